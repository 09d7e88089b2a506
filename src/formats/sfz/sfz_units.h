// SFZ values as articulation and trigger values, and back.
#pragma once

#include "formats/sfz/sfz_opcodes.h"
#include "model/articulation.h"
#include "model/loop_info.h"
#include "model/trigger.h"

namespace vimbo {
class Waveform;
} // namespace vimbo

namespace vimbo::sfz {

/// What of a record the articulation has no place for.
struct UnitLosses {
    std::uint64_t bends = 0;        ///< bend_down other than the opposite of bend_up
    std::uint64_t times = 0;        ///< velocity to a time of 0
    std::uint64_t keyTimes = 0;     ///< keys to a time that reaches 0 on the region's keys
    std::uint64_t envelopes = 0;    ///< of any number of points: several for one target
    std::uint64_t waves = 0;        ///< of LFOs, for which another form stands
    std::uint64_t pitchRandoms = 0; ///< beside tune_random
    std::uint64_t gainFilters = 0;  ///< whose movements, or the third band beside them, are lost
    std::uint64_t ampDepths = 0;    ///< of the volume envelope
    std::uint64_t releaseKeys = 0;  ///< triggers without regard to the pedal
    std::uint64_t lfos = 0;         ///< likewise
    std::uint64_t randoms = 0;      ///< lorand, hirand: played in turn
    std::uint64_t groups = 0;       ///< group and off_by that differ
    std::uint64_t pedals = 0;       ///< ranges of the pedal other than its halves
};

/// All values of the block; nothing is marked but what differs from the defaults.
ArticulationBlock ToArticulation(const Record& record, UnitLosses& losses);
/// The opcodes from kFirstSoundOp on, and envelopes and LFOs with numbers; inverse of ToArticulation. Opcodes
/// that the generation lacks keep their defaults. The record's range of keys must be set already: times that
/// follow the key are fitted to it.
void FromArticulation(const ArticulationBlock& block, Generation generation, Record& out);

/// @param rateHz  of the waveform, for delays in frames
TriggerParams ToTrigger(const Record& record, std::uint32_t rateHz, UnitLosses& losses);
/// Inverse of ToTrigger but for alternate groups, whose shares depend on other regions.
void FromTrigger(const TriggerParams& trigger, Record& out);

/// The loop that a region has on a waveform.
LoopInfo ToLoop(const Record& record, const Waveform& wave);
/// @param isOneShot  the region plays to its end whatever the key does
void FromLoop(const LoopInfo& loop, bool isOneShot, const Waveform& wave, Generation generation, Record& out);

/// Cents and dB that go from a waveform to its regions, as players ignore them in sample files.
void AddWaveTuning(const Waveform& wave, Record& out);

} // namespace vimbo::sfz
