// Which keys and velocities a layer's regions occupy, one bit for each of the 16384 places.
#pragma once

#include "model/trigger.h"

#include <array>
#include <bit>
#include <cstdint>

namespace vimbo {

/// A rectangle in the plane of keys and velocities.
struct Zone {
    MidiRange keys;
    MidiRange velocities;

    explicit Zone(const TriggerParams& trigger) noexcept : keys(trigger.keys), velocities(trigger.velocities)
    {
    }
    Zone(MidiRange keyRange, MidiRange velocityRange) noexcept : keys(keyRange), velocities(velocityRange) {}
    Zone Normalized() const noexcept { return {keys.Normalized(), velocities.Normalized()}; }
    bool Overlaps(const Zone& other) const noexcept
    {
        return keys.Overlaps(other.keys) && velocities.Overlaps(other.velocities);
    }
};

/// Shrinks `zone` until it no longer overlaps `blocker`, at the edge that loses less. False if nothing would
/// remain; `zone` is as it was then.
bool CutZone(Zone& zone, const Zone& blocker) noexcept;

class KeyVelocityGrid {
public:
    static constexpr unsigned kSteps = 128;
    using Row = std::array<std::uint64_t, 2>; ///< velocities 0 to 63, 64 to 127
    struct Place {
        unsigned key = kSteps; ///< kSteps: none
        unsigned velocity = 0;
    };

    /// The occupied place in the zone of the lowest key from `fromKey` up, then of the lowest velocity.
    Place FirstOccupied(const Zone& zone, unsigned fromKey) const noexcept
    {
        const Row mask = Mask(zone.velocities);
        for (unsigned key = fromKey; key <= zone.keys.high && key < kSteps; ++key)
            for (unsigned half = 0; half < 2; ++half)
                if (const std::uint64_t hit = rows_[key][half] & mask[half])
                    return {key, half * 64 + static_cast<unsigned>(std::countr_zero(hit))};
        return {};
    }
    bool IsFree(const Zone& zone) const noexcept
    {
        const Row mask = Mask(zone.velocities);
        std::uint64_t hit = 0; // without a way out of the loop, compilers make vector code of it
        for (unsigned key = zone.keys.low; key <= zone.keys.high && key < kSteps; ++key)
            hit |= (rows_[key][0] & mask[0]) | (rows_[key][1] & mask[1]);
        return hit == 0;
    }
    void Add(const Zone& zone) noexcept
    {
        const Row mask = Mask(zone.velocities);
        for (unsigned key = zone.keys.low; key <= zone.keys.high && key < kSteps; ++key) {
            rows_[key][0] |= mask[0];
            rows_[key][1] |= mask[1];
        }
    }

    /// True if all that is occupied in `zone` lies in `own`.
    bool IsFreeBeside(const Zone& zone, const Zone& own) const noexcept
    {
        const Row mask = Mask(zone.velocities), ownMask = Mask(own.velocities);
        std::uint64_t hit = 0;
        for (unsigned key = zone.keys.low; key <= zone.keys.high && key < kSteps; ++key)
            for (unsigned half = 0; half < 2; ++half)
                hit |= rows_[key][half] & mask[half] &
                       (own.keys.Contains(key) ? ~ownMask[half] : ~std::uint64_t{0});
        return hit == 0;
    }
    /// Adds what of the zone is occupied in another grid.
    void AddOccupied(const KeyVelocityGrid& other, const Zone& zone) noexcept
    {
        const Row mask = Mask(zone.velocities);
        for (unsigned key = zone.keys.low; key <= zone.keys.high && key < kSteps; ++key)
            for (unsigned half = 0; half < 2; ++half)
                rows_[key][half] |= other.rows_[key][half] & mask[half];
    }

    /// Calls f(zone) for zones that do not overlap and make up what is occupied: runs of velocities, over as
    /// many keys as have the same row.
    template <class F>
    void ForEachRectangle(F f) const
    {
        for (unsigned key = 0, last; key < kSteps; key = last + 1) {
            for (last = key; last + 1 < kSteps && rows_[last + 1] == rows_[key];)
                ++last;
            const MidiRange keys{static_cast<std::uint8_t>(key), static_cast<std::uint8_t>(last)};
            const auto isSet = [&](unsigned v) { return (rows_[key][v / 64] >> v % 64 & 1) != 0; };
            for (unsigned from = 0, to; from < kSteps; from = to + 1) {
                for (to = from; to < kSteps && isSet(to);)
                    ++to;
                if (to != from)
                    f(Zone(keys, {static_cast<std::uint8_t>(from), static_cast<std::uint8_t>(to - 1)}));
            }
        }
    }

private:
    static std::uint64_t Below(unsigned count) noexcept
    {
        return count >= 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << count) - 1;
    }
    static Row Mask(MidiRange range) noexcept
    {
        const unsigned from = range.low;
        const unsigned to = range.high + 1u;
        if (from >= to)
            return {};
        const auto above = [](unsigned value) { return value > 64 ? value - 64 : 0; };
        return {Below(to) & ~Below(from), Below(above(to)) & ~Below(above(from))};
    }

    std::array<Row, kSteps> rows_{};
};

} // namespace vimbo
