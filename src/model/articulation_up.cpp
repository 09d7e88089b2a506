// Articulation between the levels: up where all items below agree, and down to all of them.
#include "model/levels.h"

#include <algorithm>
#include <bit>

namespace vimbo {
namespace {

using Ids = ArticulationBlock::MarkWords;
using Blocks = std::vector<const ArticulationBlock*>;

/// The ids that a move may touch.
Ids MovableIds(ParamId from, ParamId to, KeepVolumeAndTuning keep) noexcept
{
    ArticulationBlock movable;
    for (ParamId id = from; id < std::min<ParamId>(to, kArticulationParams); ++id)
        if (keep == KeepVolumeAndTuning::No || (id != kArtTuning && id != kArtVolume))
            movable.Mark(id);
    Ids ids{};
    std::ranges::copy(movable.Marks(), ids.begin());
    return ids;
}

/// Those of the ids on which all blocks agree; in the all-or-nothing form none if they disagree on one.
/// @return false if they disagree there
bool FindAgreed(const Blocks& blocks, MoveUpMode mode, Ids& ids) noexcept
{
    bool complete = true;
    const ArticulationBlock* before = blocks.front();
    for (const ArticulationBlock* block : blocks) {
        if (block->SharesValues(*before))
            continue;
        before = block;
        const Ids differing = block->DifferenceTo(*blocks.front(), ids);
        for (std::size_t word = 0; word < ids.size(); ++word) {
            complete = complete && differing[word] == 0;
            ids[word] &= ~differing[word];
        }
    }
    return complete || mode == MoveUpMode::Individually;
}

template <class F>
void ForEachId(const Ids& ids, F f)
{
    for (std::size_t word = 0; word < ids.size(); ++word)
        for (std::uint64_t left = ids[word]; left != 0; left &= left - 1)
            f(static_cast<ParamId>(word * 64 + static_cast<std::size_t>(std::countr_zero(left))));
}

/// Stores a value as it stands, marked if it is new here.
void Raise(ArticulationBlock& block, ParamId id, float value)
{
    if (block[id] == value)
        return;
    block.Inherit(id, value);
    block.Mark(id);
}

bool AnyRegionSets(const Layer& layer)
{
    bool any = false;
    ForEachRegion(layer, [&](const Region& region) { any = any || region.articulation.HasAnySet(); });
    return any;
}

bool AnythingSetBelow(const Instrument& instrument)
{
    bool any = false;
    ForEachLayer(instrument, [&](const Layer& layer) {
        any = any || layer.articulation.HasAnySet() || AnyRegionSets(layer);
    });
    return any;
}

/// What decides about an instrument: a layer's own block, or its regions' blocks where these set anything.
Blocks DecidingBlocks(const Instrument& instrument)
{
    Blocks blocks;
    ForEachLayer(instrument, [&](const Layer& layer) {
        if (!AnyRegionSets(layer)) {
            blocks.push_back(&layer.articulation);
            return;
        }
        ForEachRegion(layer, [&](const Region& region) { blocks.push_back(&region.articulation); });
    });
    return blocks;
}

ArticulationBlock EqualAverage(std::span<const ArticulationBlock* const> blocks)
{
    std::vector<WeightedBlock> weighted;
    weighted.reserve(blocks.size());
    for (const ArticulationBlock* block : blocks)
        weighted.push_back({block, 1.0});
    return Average(weighted);
}

} // namespace

bool Layer::MoveArticulationUp(MoveUpMode mode, ParamId from, ParamId to, KeepVolumeAndTuning keep)
{
    const std::vector<Region*> regions = Regions();
    if (std::ranges::none_of(regions, [](const Region* region) { return region->articulation.HasAnySet(); }))
        return true;
    Blocks blocks;
    blocks.reserve(regions.size());
    for (Region* region : regions) {
        region->articulation.InheritFrom(articulation);
        blocks.push_back(&region->articulation);
    }
    Ids moved = MovableIds(from, to, keep);
    if (!FindAgreed(blocks, mode, moved))
        return false;
    ForEachId(moved, [&](ParamId id) { Raise(articulation, id, (*blocks.front())[id]); });
    for (Region* region : regions)
        region->articulation.UnmarkAll(moved);
    return true;
}

bool Instrument::MoveArticulationUp(MoveUpMode mode, ParamId from, ParamId to, KeepVolumeAndTuning keep)
{
    if (!AnythingSetBelow(*this))
        return true;
    ResolveLevels(*this);
    const Blocks blocks = DecidingBlocks(*this);
    Ids agreed = MovableIds(from, to, keep);
    if (!FindAgreed(blocks, mode, agreed))
        return false;
    const ArticulationBlock values = *blocks.front(); // which may be about to change
    ForEachId(agreed, [&](ParamId id) { Raise(articulation, id, values[id]); });
    ForEachLayer(*this, [&](Layer& layer) {
        ForEachId(agreed, [&](ParamId id) { layer.articulation.Inherit(id, values[id]); });
        ForEachRegion(layer, [&](Region& region) {
            // Filter values without a filter may differ: such marks do not make a region decide.
            Ids equal = region.articulation.DifferenceTo(values);
            for (std::size_t word = 0; word < equal.size(); ++word)
                equal[word] = agreed[word] & ~equal[word];
            region.articulation.UnmarkAll(equal);
        });
    });
    return true;
}

ArticulationBlock Layer::GetEffective() const
{
    if (!AnyRegionSets(*this))
        return articulation;
    Blocks blocks;
    ForEachRegion(*this, [&](const Region& region) { blocks.push_back(&region.articulation); });
    ArticulationBlock average = EqualAverage(blocks);
    for (ParamId id = 0; id < kArticulationParams; ++id)
        if (articulation.IsSet(id))
            average.Mark(id);
    return average;
}

ArticulationBlock Instrument::GetEffective() const
{
    if (!AnythingSetBelow(*this))
        return articulation;
    std::vector<ArticulationBlock> effective;
    ForEachLayer(*this, [&](const Layer& layer) {
        if (!layer.Children().empty())
            effective.push_back(layer.GetEffective());
    });
    if (effective.empty()) // nothing sounds; the layers still say what is wanted
        ForEachLayer(*this, [&](const Layer& layer) { effective.push_back(layer.articulation); });
    Blocks blocks;
    for (const ArticulationBlock& block : effective)
        blocks.push_back(&block);
    ArticulationBlock average = EqualAverage(blocks);
    for (ParamId id = 0; id < kArticulationParams; ++id)
        if (articulation.IsSet(id))
            average.Mark(id);
    return average;
}

void Layer::PushArticulationDown()
{
    ForEachRegion(*this, [&](Region& region) {
        articulation.PushDownTo(region.articulation);
        region.articulation.InheritFrom(articulation);
    });
    articulation.UnmarkAll();
    articulation.InheritFrom(BlockAbove(*this));
}

void Instrument::PushArticulationDown()
{
    ForEachLayer(*this, [&](Layer& layer) {
        articulation.PushDownTo(layer.articulation);
        layer.articulation.InheritFrom(articulation);
        ForEachRegion(layer, [&](Region& region) { region.articulation.InheritFrom(layer.articulation); });
    });
    articulation.Reset();
}

} // namespace vimbo
