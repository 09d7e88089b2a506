// DLS connections as articulation values, and back.
#pragma once

#include "formats/dls/dls_records.h"
#include "model/instrument.h"

#include <optional>
#include <span>
#include <vector>

namespace vimbo::dls {

/// A scale of this stands for no time, no frequency, nothing.
inline constexpr std::int32_t kScaleOfZero = INT32_MIN;
/// A cutoff of this stands for no filter.
inline constexpr std::int32_t kNoFilter = INT32_MAX;

/// 32-bit timecents, a step being 1/65536 timecent.
double SecondsOf(std::int32_t scale) noexcept;
std::int32_t TimeScaleOf(double seconds) noexcept;
/// Absolute pitch, where 6900 cents are 440 Hz; above 2 Hz rounded to 0.01 Hz.
double HzOf(std::int32_t scale) noexcept;
std::int32_t PitchScaleOf(double hz) noexcept;
/// A multiple of a unit. Saturates, short of the two scales of a meaning of their own.
std::int32_t LinearScaleOf(double value, double unit) noexcept;

inline constexpr double kScalePerSemitone = 6553600;
inline constexpr double kScalePerDb = 655360;
inline constexpr double kScalePerWhole = 65536000; ///< of fractions
inline constexpr double kScalePerPan = 32768000;   ///< from the middle to one side

/// The instrument's effect slots that sends to reverb and chorus reach.
struct SendSlots {
    std::optional<std::size_t> reverb, chorus;
};
SendSlots FindSends(const Instrument& instrument) noexcept;
/// Adds the effects that the connections send to. @param lost  number of effects that found no free slot
SendSlots ProvideSends(std::span<const Connection> connections, Instrument& instrument, int& lost) noexcept;

/// What sample records say beyond the waveform's own.
struct RegionLevel {
    double gainDb = 0;
    int cents = 0;
    friend auto operator<=>(const RegionLevel&, const RegionLevel&) = default;
};

/// The articulation of a region or instrument: all values; marked is what differs from the defaults. Of
/// connections with equal ends the last one counts.
ArticulationBlock ToArticulation(std::span<const Connection> connections, const RegionLevel& level,
                                 const SendSlots& sends);

/// How many connections mean nothing to ToArticulation. Those that every player has by itself do not count.
std::uint64_t CountUnknown(std::span<const Connection> connections) noexcept;

/// True if the connections place the sound between left and right.
bool SaysPan(std::span<const Connection> connections) noexcept;

struct Sound {
    std::vector<Connection> connections; ///< what differs from the format's defaults
    RegionLevel level;
};
/// The inverse, as far as the level goes (kDlsLevel1 and so on). What is read from the result gives the same
/// result again.
/// @param held  what ToArticulation makes of it
Sound ToSound(const ArticulationBlock& block, const SendSlots& sends, std::uint32_t level,
              ArticulationBlock& held);

} // namespace vimbo::dls
