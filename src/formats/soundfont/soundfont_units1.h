// Version 1 of SoundFont banks: the hardware's own steps in place of cents and timecents, no modulators, and
// samples whose pitch is said by the zones.
#pragma once

#include "formats/soundfont/soundfont_units.h"

#include <limits>

namespace vimbo::sf2 {

/// Cents of the key that plays the sample unshifted.
inline constexpr unsigned kGenSamplePitch = 55;
/// Rates of LFOs where a bank says nothing, in absolute cents.
inline constexpr std::int32_t kModLfoFrequency1 = -725;
inline constexpr std::int32_t kVibLfoFrequency1 = -15600;
/// Stands in a zone of amounts for a generator that is not in the file.
inline constexpr std::int32_t kLeftOut = std::numeric_limits<std::int32_t>::min();

/// Amounts of version 1 in the units of version 2.
std::int32_t FromVersion1(unsigned generator, std::int32_t amount) noexcept;
/// The amount whose value is nearest; always the same one for amounts of equal value. Of scale tuning: 0
/// or 1.
std::int32_t ToVersion1(unsigned generator, std::int32_t value) noexcept;

/// What a reader of version 1 gets of a zone of absolute values: each at its nearest step, no modulators but
/// the default ones, keys tracked by 0, 50 or 100 cents.
Zone HeldByVersion1(const Zone& zone) noexcept;
/// The amounts of a zone as HeldByVersion1 gives it, kLeftOut where readers assume a value that no amount
/// stands for. Zones without key tracking play one key: that of the sample's pitch.
Zone AmountsOfVersion1(const Zone& held) noexcept;
/// Amounts that say the same as a zone that says nothing.
const Zone& DefaultsOfVersion1() noexcept;

/// As ArticulationToZone, of what version 1 holds. What is read from the zone gives the same zone again.
void ArticulationToVersion1(const ArticulationBlock& block, const Instrument& instrument, float waveGainDb,
                            Zone& out);

/// How a sound of another rate is played as one of kVersion1RateHz.
struct PitchOfVersion1 {
    int rootKey;
    double semitones; ///< on top of the zone's tuning
};
/// @param keyToPitch  of the zone: its root key can move only as far as it tracks keys
PitchOfVersion1 PitchForVersion1(std::uint32_t rateHz, int fineTuneCents, int rootKey,
                                 float keyToPitch) noexcept;

} // namespace vimbo::sf2
