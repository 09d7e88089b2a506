// The sound-shaping values of an instrument, a layer or a region.
#pragma once

#include "base/byte_reader.h"
#include "model/param.h"
#include "model/shared_values.h"

#include <array>
#include <bit>
#include <cassert>
#include <cstdint>
#include <span>

namespace vimbo {

enum class FilterType : std::uint8_t {
    PassThru = 0,
    LowPass6 = 1,
    LowPass12 = 2,
    LowPass18 = 3,
    LowPass24 = 4,
    HighPass6 = 5,
    HighPass12 = 6,
    HighPass18 = 7,
    HighPass24 = 8,
    BandPass6 = 9,
    BandPass12 = 10,
    BandReject6 = 11,
    BandReject12 = 12
};

/// 189 values, each with a mark that tells whether it was set at this level. A value without the mark is the
/// inherited one, so a block always holds what sounds. Copies share their values until one of them changes,
/// so they cost next to nothing.
class ArticulationBlock {
public:
    /// The defaults of the parameter table, nothing set.
    ArticulationBlock() noexcept = default;
    void Reset() noexcept { *this = ArticulationBlock(); }

    /// `id` below kArticulationParams.
    float operator[](ParamId id) const noexcept
    {
        assert(id < kArticulationParams);
        return values_.Get()[id];
    }
    bool IsSet(ParamId id) const noexcept { return (set_[id / 64] >> id % 64 & 1) != 0; }
    /// Rounds and clamps by the id's row, stores and marks. Ids outside the table: nothing.
    void Set(ParamId id, float value);
    /// The same without changing the mark.
    void Assign(ParamId id, float value);
    /// Stores a value as it stands, clears the mark.
    void Inherit(ParamId id, float value)
    {
        Store(id, value);
        Unmark(id);
    }
    void Mark(ParamId id) noexcept { set_[id / 64] |= std::uint64_t{1} << id % 64; }
    void Unmark(ParamId id) noexcept { set_[id / 64] &= ~(std::uint64_t{1} << id % 64); }
    void UnmarkAll() noexcept { set_ = {}; }

    /// Takes the source's values where nothing is set here. @return true if a value changed
    bool InheritFrom(const ArticulationBlock& source);
    /// Unmarks what equals the source's value. @return true if a mark went
    bool ClearRedundant(const ArticulationBlock& source) noexcept;
    /// Where something is set here and not in `target`, `target` gets the value and the mark.
    void PushDownTo(ArticulationBlock& target) const;
    /// Marks and stores what differs from `source`; the rest is unmarked.
    void MarkDifferences(const ArticulationBlock& source) noexcept { set_ = DifferenceTo(source); }
    /// The ids whose values differ, as marks: all of them, or those among some.
    using MarkWords = std::array<std::uint64_t, 3>;
    MarkWords DifferenceTo(const ArticulationBlock& other) const noexcept;
    MarkWords DifferenceTo(const ArticulationBlock& other, const MarkWords& among) const noexcept;
    /// Adds marks, given as Marks() returns them.
    void MarkAll(const MarkWords& marks) noexcept;
    void UnmarkAll(const MarkWords& marks) noexcept;
    /// True if anything is set; without a filter, ids 24 to 39 do not count.
    bool HasAnySet() const noexcept;
    /// The marks as three words, bit `id % 64` of word `id / 64`.
    std::span<const std::uint64_t, 3> Marks() const noexcept { return set_; }
    std::span<const float, kArticulationParams> Values() const noexcept { return values_.Get(); }
    bool SameValues(const ArticulationBlock& other) const noexcept;
    /// True if the values are one copy in memory; a hint that saves comparing them.
    bool SharesValues(const ArticulationBlock& other) const noexcept
    {
        return values_.IsSharedWith(other.values_);
    }

    /// Reduces the block to what the mask permits.
    void Normalize(FeatureMask features);

    /// The block as state files hold it: 189 floats, 3 words of 64 bits (780 bytes).
    void Serialize(ByteWriter& out) const;
    /// False if the input is short; values outside their limits (NaN too) are brought inside.
    [[nodiscard]] bool Deserialize(ByteReader& in);

    friend bool operator==(const ArticulationBlock& a, const ArticulationBlock& b) noexcept
    {
        return a.set_ == b.set_ && a.SameValues(b);
    }

private:
    /// Values that are there already stay shared.
    void Store(ParamId id, float value)
    {
        if (std::bit_cast<std::uint32_t>(values_.Get()[id]) == std::bit_cast<std::uint32_t>(value))
            return;
        values_.Own()[id] = value;
        own_[id / 64] |= std::uint64_t{1} << id % 64;
    }

    bool TakeUnmarked(const ArticulationBlock& source);
    MarkWords MayDiffer(const ArticulationBlock& other) const noexcept;

    SharedValues values_;
    MarkWords set_{};
    SharedValues above_; ///< of the block that this one inherited from last
    MarkWords own_{};    ///< where values may differ from those above; elsewhere they do not
};

/// The level above every instrument: all defaults, nothing set.
const ArticulationBlock& DefaultArticulation() noexcept;

struct WeightedBlock {
    const ArticulationBlock* block;
    double weight; ///< above 0
};
/// One block for several: weighted means rounded to 0.001; shapes, polarities, release modes and the filter
/// type by majority. Marked is what is marked in any block. No blocks: the defaults.
ArticulationBlock Average(std::span<const WeightedBlock> blocks);

/// What the articulation clipboard moves together.
enum class ParamGroup : std::uint8_t { Other, Lfo, Envelope, Eq, Filter };
ParamGroup GroupOf(ParamId id) noexcept;

} // namespace vimbo
