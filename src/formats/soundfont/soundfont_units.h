// SoundFont generators and modulators as articulation values, and back.
#pragma once

#include "formats/soundfont/soundfont_records.h"
#include "model/instrument.h"

#include <array>
#include <optional>

namespace vimbo::sf2 {

inline constexpr std::size_t kSlots = 66;

/// Source of the standard's default modulator from velocity to attenuation: a concave curve, downwards.
inline constexpr std::uint16_t kConcaveVelocity = 0x0502;

/// A modulator that the articulation has a place for: its source and its destination generator.
struct SlotKey {
    std::uint16_t source;
    std::uint16_t destination;
};
extern const std::array<SlotKey, kSlots> kSlotTable;

/// Rows of the slot table. The two envelopes have 16 each, in one layout.
enum Slot : std::size_t {
    kSlotVolEnv = 0,
    kSlotModEnv = 16,
    kSlotVelToVolume = 32,
    kSlotUniKeyToVolume = 33,
    kSlotKeyToVolume = 34,
    kSlotWheelToVolume = 35,
    kSlotTouchToVolume = 36,
    kSlotWheelToModLfoToVolume = 37,
    kSlotTouchToModLfoToVolume = 38,
    kSlotVelToModLfoToVolume = 39,
    kSlotBendToPitch = 40,
    kSlotWheelToModLfoToPitch = 41,
    kSlotVelToModLfoToPitch = 42,
    kSlotTouchToModLfoToPitch = 43,
    kSlotWheelToVibLfoToPitch = 44,
    kSlotVelToVibLfoToPitch = 45,
    kSlotTouchToVibLfoToPitch = 46,
    kSlotUniVelToModEnvToPitch = 47,
    kSlotVelToModEnvToPitch = 48,
    kSlotVelToCutoff = 49,
    kSlotUniKeyToCutoff = 50,
    kSlotKeyToCutoff = 51,
    kSlotWheelToCutoff = 52,
    kSlotTouchToCutoff = 53,
    kSlotWheelToModLfoToCutoff = 54,
    kSlotTouchToModLfoToCutoff = 55,
    kSlotVelToModLfoToCutoff = 56,
    kSlotUniVelToModEnvToCutoff = 57,
    kSlotVelToModEnvToCutoff = 58,
    kSlotKeyToPan = 59,
    kSlotCc10ToPan = 60,
    kSlotCc91ToReverb = 61,
    kSlotCc93ToChorus = 62,
    kSlotVelToResonance = 63,
    kSlotWheelToResonance = 64,
    kSlotTouchToResonance = 65
};
// Places within an envelope's slots: velocity to delay, attack, hold, decay, release; key to delay, attack,
// release; each for a unipolar source (only read) and a bipolar one.
inline constexpr std::size_t kSlotUniVelToEnv = 0;
inline constexpr std::size_t kSlotUniKeyToEnv = 5;
inline constexpr std::size_t kSlotVelToEnv = 8;
inline constexpr std::size_t kSlotKeyToEnv = 13;

/// The slot of a modulator, with its amount brought to the slot's direction; none if the articulation has no
/// place for it (also with an amount source or a transform).
struct SlotAmount {
    std::size_t slot;
    std::int32_t amount;
};
std::optional<SlotAmount> FindSlot(const Modulator& modulator) noexcept;

/// What one zone says, or the sum of an instrument's and a preset's zone: generator amounts (signed) and slot
/// amounts. Ranges, sample and instrument links are not part of it.
struct Zone {
    std::array<std::int32_t, kGenerators> generators{};
    std::array<std::int32_t, kSlots> slots{};
    friend bool operator==(const Zone&, const Zone&) = default;
};
/// The standard's defaults of an instrument zone (presets start from zeros), with the slots of the default
/// modulators so that they give the articulation's defaults.
const Zone& DefaultZone() noexcept;

/// Timecents to seconds: below -11999 0; rounded to 0.1 s above 24 s, to 0.01 s above 2 s.
float TimecentsToSeconds(double timecents) noexcept;
/// Rounded; 0 s gives -12000.
int SecondsToTimecents(double seconds, int minimum, int maximum) noexcept;
/// Absolute cents to Hz: 13500 and more is 20000; rounded to 10, 1, 0.01 Hz by size.
float CentsToHz(double cents) noexcept;

/// The articulation of a zone sum: all values; marked is what differs from the articulation's defaults. Sends
/// go to the instrument's effect slots.
/// @param instrument  gets a reverb or chorus effect if the zone has a send and a slot is free; may be null:
///                    sends are dropped
/// @param lostSends   number of sends for which no slot was free (0 to 2)
void ZoneToArticulation(const Zone& zone, ArticulationBlock& out, Instrument* instrument,
                        int* lostSends = nullptr);
/// The same without adding effects: sends to effects that the instrument lacks are dropped.
void ZoneToArticulation(const Zone& zone, ArticulationBlock& out, const Instrument& instrument);

/// What differs most between the zones of a bank: tuning, level, pan and sends.
inline constexpr std::array<std::size_t, 6> kMixGenerators{kGenCoarseTune, kGenFineTune,   kGenAttenuation,
                                                           kGenPan,        kGenReverbSend, kGenChorusSend};
/// ZoneToArticulation in two steps. The first one does most of the work, and the same for all zones that only
/// differ in their kMixGenerators. The second needs a block that has had the first, and may have had the
/// second for another mix and instrument; arguments as above.
void ReadTimbre(const Zone& zone, ArticulationBlock& out);
void ReadMix(const Zone& zone, ArticulationBlock& out, Instrument* instrument, int* lostSends = nullptr);
void ReadMix(const Zone& zone, ArticulationBlock& out, const Instrument& instrument);

/// True if the zone sends to the effect, as the standard's own default modulators do not count.
/// @param effect  reverb or chorus
bool SendsTo(const Zone& zone, ChannelFxType effect) noexcept;

/// The zone of an articulation: inverse of ZoneToArticulation. Where the formula's nearest step would not
/// read back as the same value although a step close by does, that step is taken; so what was read once comes
/// back exactly. Generators that depend on the sample (root key, offsets, modes, exclusive class) are left as
/// they are in `out`. All values are in the limits of their generators, slots in 16 bits.
/// @param waveGainDb  the waveform's volume, which goes into the attenuation
void ArticulationToZone(const ArticulationBlock& block, const Instrument* instrument, float waveGainDb,
                        Zone& out);
/// ArticulationToZone in two steps, likewise: the second needs a zone that has had the first, for a block
/// that only differs in volume, tuning, pan and sends.
void WriteTimbre(const ArticulationBlock& block, Zone& out);
void WriteMix(const ArticulationBlock& block, const Instrument* instrument, float waveGainDb, Zone& out);

} // namespace vimbo::sf2
