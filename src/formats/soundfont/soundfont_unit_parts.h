// What the files of the unit conversions share: limits of generators, rounding, inversion by search.
#pragma once

#include "formats/soundfont/soundfont_units.h"
#include "model/envelope.h"

#include <algorithm>
#include <cmath>

namespace vimbo::sf2 {

struct Limits {
    int minimum, maximum;
};
/// What may be written to a generator.
Limits LimitsOf(std::size_t generator) noexcept;
inline constexpr Limits kSlotLimits{-32767, 32767};
inline constexpr Limits kTimeSlotLimits{-28800, 28800};

inline constexpr double kCentsPerOctave = 1200;
/// A unipolar key number of 0..1 covers 128 keys: this part of it lies below middle C.
inline constexpr double kKeysBelowMiddleC = 60.0 / 128;

/// Rounded and bounded.
inline int ToWhole(double value, Limits limits) noexcept
{
    return static_cast<int>(std::lround(
        std::clamp(value, static_cast<double>(limits.minimum), static_cast<double>(limits.maximum))));
}
/// The value as the block would store it.
float Stored(ParamId id, double value) noexcept;

/// Exact forms of TimecentsToSeconds and its inverse's formula.
double Timecents(double seconds) noexcept;

/// The step that a value is written as: the nearest to the formula, unless it would not read back as `target`
/// although `usual` (what is left out of the file) or a step close by does.
/// @param read  what a step reads as, exactly as the block stores it
template <class Read>
int Invert(double formula, Limits limits, int usual, float target, Read read)
{
    constexpr int kReach = 24; // coarse roundings of times and frequencies span less
    if (read(usual) == target)
        return usual;
    const int nearest = ToWhole(formula, limits);
    for (int distance = 0; distance <= kReach; ++distance)
        for (const int step : {nearest - distance, nearest + distance})
            if (step >= limits.minimum && step <= limits.maximum && read(step) == target)
                return step;
    return nearest;
}

/// Adds to a generator within its limits.
void MoveGenerator(Zone& zone, std::size_t generator, double by) noexcept;

// Envelopes and LFOs (soundfont_modulation.cpp). Zones have bipolar sources only.
void ReadEnvelopes(const Zone& zone, bool hasFilter, ArticulationBlock& out);
void ReadLfos(const Zone& zone, bool hasFilter, ArticulationBlock& out);
void WriteEnvelopes(const ArticulationBlock& block, Zone& out) noexcept;
void WriteLfos(const ArticulationBlock& block, Zone& out) noexcept;
/// Turns unipolar sources of the envelopes' slots into bipolar ones.
void MakeEnvelopeSourcesBipolar(Zone& zone) noexcept;

} // namespace vimbo::sf2
