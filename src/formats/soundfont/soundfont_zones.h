// The zones of presets and instruments: what their generators and modulators say, defaults and global zones
// included.
#pragma once

#include "formats/soundfont/soundfont_tables.h"
#include "formats/soundfont/soundfont_units.h"
#include "model/trigger.h"

#include <bitset>
#include <map>

namespace vimbo::sf2 {

/// What only an instrument zone says, of its sample.
struct SampleSettings {
    std::int32_t startOffset = 0; ///< frames, as are the others
    std::int32_t endOffset = 0;
    std::int32_t loopStartOffset = 0;
    std::int32_t loopEndOffset = 0;
    unsigned modes = 0; ///< low two bits: no loop, loop, no loop, loop until release
    unsigned exclusiveClass = 0;
    int rootKey = -1; ///< -1: the sample's. Version 1: added to the sample's, from 60
    int fixedKey = -1;
    int fixedVelocity = -1;
    int samplePitch = -1; ///< version 1: cents of the key that plays the sample unshifted
    friend bool operator==(const SampleSettings&, const SampleSettings&) = default;
};

struct BankZone {
    static constexpr std::size_t kNoLink = static_cast<std::size_t>(-1);
    Zone values;
    std::bitset<kGenerators> given; ///< generators that the zone or its global zone names
    MidiRange keys;
    MidiRange velocities;
    SampleSettings sample;
    bool hasLinearVelocity = false; ///< a modulator with a linear source, not the standard's own curve
    std::size_t link = kNoLink;     ///< the instrument of a preset zone, the sample of an instrument zone
};

/// What was met that the articulation has no place for.
struct Unplaced {
    std::map<std::pair<unsigned, unsigned>, std::uint64_t> modulators; ///< by source and destination
    std::map<unsigned, std::uint64_t> generators;
};

/// The zones of an instrument that name a sample.
std::vector<BankZone> InstrumentZones(const Tables& bank, std::size_t instrument, Unplaced& unplaced);
/// The zones of a preset that name an instrument. Generators and modulators are differences; in version 1
/// they are values for what the instrument leaves open.
std::vector<BankZone> PresetZones(const Tables& bank, std::size_t preset, Unplaced& unplaced);

/// What an instrument zone sounds like below a preset zone in version 1, with the tuning that belongs to the
/// sample's pitch. In all others it is the sum of the two.
Zone SumOfVersion1(const BankZone& instrument, const BankZone& preset) noexcept;
/// The key at which the zone plays a sample of this original pitch unshifted.
int RootKeyOf(const SampleSettings& sample, int originalPitch, unsigned major) noexcept;

} // namespace vimbo::sf2
