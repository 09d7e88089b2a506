// One block in place of several, for formats without lower levels.
#include "model/articulation.h"
#include "model/articulation_rows.h"
#include "model/envelope.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace vimbo {
namespace {

using Blocks = std::span<const WeightedBlock>;

constexpr int kShapeBits = 0x3F;
constexpr int kPolarityShift = 6;
constexpr int kListValues = 256; ///< the longest list, LFO shapes
constexpr double kRounding = 1000;
/// Weights beyond this would make sums overflow.
constexpr double kMaxWeight = 1e30;

/// Weight of the blocks by a whole number taken from each.
class Votes {
public:
    template <class ValueOf>
    Votes(Blocks blocks, ValueOf valueOf) noexcept
    {
        for (const WeightedBlock& one : blocks) {
            weights_[static_cast<std::size_t>(std::clamp(valueOf(*one.block), 0, kListValues - 1))] +=
                one.weight;
            total_ += one.weight;
        }
    }
    /// The lowest value of the greatest weight.
    int Winner() const noexcept
    {
        return static_cast<int>(std::ranges::max_element(weights_) - weights_.begin());
    }
    /// The lowest value that half the weight uses, else the winner.
    int FirstWithHalf() const noexcept
    {
        const auto found =
            std::ranges::find_if(weights_, [this](double weight) { return 2 * weight >= total_; });
        return found != weights_.end() ? static_cast<int>(found - weights_.begin()) : Winner();
    }

private:
    std::array<double, kListValues> weights_{};
    double total_ = 0;
};

int ListValue(const ArticulationBlock& block, ParamId id) noexcept
{
    return static_cast<int>(block[id]);
}

/// The weighted mean, rounded to 0.001; a value that all share stays as it is.
template <class Accept>
float MeanOf(Blocks blocks, ParamId id, Accept accept) noexcept
{
    double sum = 0;
    double weight = 0;
    bool allEqual = true;
    const float* first = nullptr;
    for (const WeightedBlock& one : blocks) {
        if (!accept(*one.block))
            continue;
        const float& value = one.block->Values()[id];
        first = first != nullptr ? first : &value;
        allEqual = allEqual && value == *first;
        sum += one.weight * static_cast<double>(value);
        weight += one.weight;
    }
    if (first == nullptr)
        return kArticulationDefaults[id];
    return allEqual ? *first : static_cast<float>(std::round(sum / weight * kRounding) / kRounding);
}

float MeanOf(Blocks blocks, ParamId id) noexcept
{
    return MeanOf(blocks, id, [](const ArticulationBlock&) { return true; });
}

float ShapeOf(Blocks blocks, ParamId id) noexcept
{
    const Votes shapes(blocks, [id](const auto& block) { return ListValue(block, id) & kShapeBits; });
    const Votes polarities(blocks,
                           [id](const auto& block) { return ListValue(block, id) >> kPolarityShift; });
    return static_cast<float>(shapes.Winner() | polarities.Winner() << kPolarityShift);
}

float FilterTypeOf(Blocks blocks) noexcept
{
    const Votes types(blocks, [](const auto& block) { return ListValue(block, kArtFilterType); });
    return static_cast<float>(types.FirstWithHalf());
}

float CutoffOf(Blocks blocks, float filterType) noexcept
{
    return MeanOf(blocks, kArtCutoff,
                  [filterType](const auto& block) { return block[kArtFilterType] == filterType; });
}

float AverageOf(Blocks blocks, const ParamRow& row, const ArticulationBlock& sofar) noexcept
{
    switch (row.editClass) {
    case EditClass::LfoShape:
        return ShapeOf(blocks, row.id);
    case EditClass::FilterType:
        return FilterTypeOf(blocks);
    case EditClass::ReleaseMode:
    case EditClass::EqMode:
        return static_cast<float>(
            Votes(blocks, [&row](const auto& block) { return ListValue(block, row.id); }).Winner());
    default:
        return row.id == kArtCutoff ? CutoffOf(blocks, sofar[kArtFilterType]) : MeanOf(blocks, row.id);
    }
}

void MarkUnion(ArticulationBlock& out, Blocks blocks)
{
    std::array<std::uint64_t, 3> marks{};
    for (const WeightedBlock& one : blocks)
        for (std::size_t word = 0; word < marks.size(); ++word)
            marks[word] |= one.block->Marks()[word];
    for (ParamId id = 0; id < kArticulationParams; ++id)
        if ((marks[id / 64] >> id % 64 & 1) != 0)
            out.Mark(id);
}

} // namespace

ArticulationBlock Average(std::span<const WeightedBlock> blocks)
{
    std::vector<WeightedBlock> counted;
    std::ranges::copy_if(blocks, std::back_inserter(counted), [](const WeightedBlock& one) {
        return one.block != nullptr && one.weight > 0 && one.weight <= kMaxWeight;
    });
    ArticulationBlock out;
    if (counted.empty())
        return out;
    // In the order of ids: the filter type comes ahead of the cutoff that depends on it.
    for (const ParamRow& row : kArticulationRows) {
        const float value = AverageOf(counted, row, out);
        out.Inherit(row.id, std::clamp(value, row.minimum, row.maximum));
    }
    MarkUnion(out, counted);
    return out;
}

} // namespace vimbo
