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
inline constexpr int kHighestCents = 13500; ///< of a cutoff
/// A unipolar key number of 0..1 covers 128 keys: this part of it lies below middle C.
inline constexpr double kKeysBelowMiddleC = 60.0 / 128;
/// Octaves from the centre of a bipolar key number, key 64, to middle C.
inline constexpr double kOctavesToMiddleC = -1.0 / 3;
/// Semitones or dB per octave for a bipolar amount of 1 unit over 128 keys.
inline constexpr double kKeysPart = 0.1875;

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

/// A unipolar source x of 0..1 with an amount A is a constant A/2 and a bipolar source 2x - 1 with A/2.
/// @return A/2; none if A is 0, or the bipolar source has an amount of its own
inline std::optional<std::int32_t> HalfOf(const Zone& zone, Slot unipolar, Slot bipolar) noexcept
{
    if (zone.slots[bipolar] != 0 || zone.slots[unipolar] == 0)
        return std::nullopt;
    return static_cast<std::int32_t>(std::lround(zone.slots[unipolar] / 2.0));
}
/// Gives the half to the bipolar source. @return false if there is none
inline bool Halve(Zone& zone, Slot unipolar, Slot bipolar) noexcept
{
    const std::optional<std::int32_t> half = HalfOf(zone, unipolar, bipolar);
    if (half)
        zone.slots[bipolar] = *half;
    return half.has_value();
}

/// A value that is a plain multiple of a generator's or slot's amount.
struct Linear {
    std::size_t source;
    ParamId id;
    double unit;
    Limits limits = kSlotLimits;
};

template <std::size_t Count>
void ReadSlots(const Zone& zone, const std::array<Linear, Count>& table, ArticulationBlock& out)
{
    for (const Linear& row : table)
        out.Set(row.id, Stored(row.id, zone.slots[row.source] * row.unit));
}

template <std::size_t Count>
void WriteSlots(const ArticulationBlock& block, const std::array<Linear, Count>& table, Zone& out) noexcept
{
    for (const Linear& row : table)
        out.slots[row.source] = ToWhole(block[row.id] / row.unit, row.limits);
}

// The filter (soundfont_filter.cpp).
bool HasFilter(const Zone& zone) noexcept;
void ReadFilter(const Zone& zone, ArticulationBlock& out);
void WriteFilter(const ArticulationBlock& block, Zone& out) noexcept;
/// Takes filters of types that a zone does not have out of the block, with all that moves them.
void DropUnwritableFilter(ArticulationBlock& block);
void MakeFilterSourcesBipolar(Zone& zone) noexcept;

// Envelopes and LFOs (soundfont_modulation.cpp). Zones have bipolar sources only.
void ReadEnvelopes(const Zone& zone, bool hasFilter, ArticulationBlock& out);
void ReadLfos(const Zone& zone, bool hasFilter, ArticulationBlock& out);
void WriteEnvelopes(const ArticulationBlock& block, Zone& out) noexcept;
void WriteLfos(const ArticulationBlock& block, Zone& out) noexcept;
/// Turns unipolar sources of the envelopes' slots into bipolar ones.
void MakeEnvelopeSourcesBipolar(Zone& zone) noexcept;

} // namespace vimbo::sf2
