// Articulation between the levels: up where all items below agree, and down to all of them.
#include "model/levels.h"

#include <algorithm>

namespace vimbo {
namespace {

/// The ids that a move may touch.
class MovedIds {
public:
    MovedIds(ParamId from, ParamId to, KeepVolumeAndTuning keep) noexcept
        : from_(from), to_(std::min<ParamId>(to, kArticulationParams)), keep_(keep)
    {
    }
    template <class F>
    void ForEach(F f) const
    {
        for (ParamId id = from_; id < to_; ++id)
            if (keep_ == KeepVolumeAndTuning::No || (id != kArtTuning && id != kArtVolume))
                f(id);
    }

private:
    ParamId from_;
    ParamId to_;
    KeepVolumeAndTuning keep_;
};

using Blocks = std::vector<const ArticulationBlock*>;

bool AllAgree(const Blocks& blocks, ParamId id) noexcept
{
    return std::all_of(blocks.begin(), blocks.end(),
                       [&](const ArticulationBlock* block) { return (*block)[id] == (*blocks.front())[id]; });
}

/// The ids that move; all of them must agree in the all-or-nothing form, else `complete` is false.
std::vector<ParamId> AgreedIds(const Blocks& blocks, const MovedIds& ids, bool& complete)
{
    std::vector<ParamId> agreed;
    complete = true;
    ids.ForEach([&](ParamId id) {
        if (AllAgree(blocks, id))
            agreed.push_back(id);
        else
            complete = false;
    });
    return agreed;
}

/// Stores a value as it stands, marked if it is new here.
void Raise(ArticulationBlock& block, ParamId id, float value) noexcept
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
    if (!AnyRegionSets(*this))
        return true;
    ForEachRegion(*this, [&](Region& region) { region.articulation.InheritFrom(articulation); });
    Blocks blocks;
    ForEachRegion(*this, [&](const Region& region) { blocks.push_back(&region.articulation); });
    bool complete = false;
    const std::vector<ParamId> moved = AgreedIds(blocks, MovedIds(from, to, keep), complete);
    if (mode == MoveUpMode::AllOrNothing && !complete)
        return false;
    for (const ParamId id : moved) {
        Raise(articulation, id, (*blocks.front())[id]);
        ForEachRegion(*this, [id](Region& region) { region.articulation.Unmark(id); });
    }
    return true;
}

bool Instrument::MoveArticulationUp(MoveUpMode mode, ParamId from, ParamId to, KeepVolumeAndTuning keep)
{
    if (!AnythingSetBelow(*this))
        return true;
    ResolveLevels(*this);
    const Blocks blocks = DecidingBlocks(*this);
    bool complete = false;
    const std::vector<ParamId> agreed = AgreedIds(blocks, MovedIds(from, to, keep), complete);
    if (mode == MoveUpMode::AllOrNothing && !complete)
        return false;
    std::vector<float> values;
    for (const ParamId id : agreed)
        values.push_back((*blocks.front())[id]);
    for (std::size_t i = 0; i < agreed.size(); ++i)
        Raise(articulation, agreed[i], values[i]);
    ForEachLayer(*this, [&](Layer& layer) {
        for (std::size_t i = 0; i < agreed.size(); ++i)
            layer.articulation.Inherit(agreed[i], values[i]);
        ForEachRegion(layer, [&](Region& region) {
            // Filter values without a filter may differ: such marks do not make a region decide.
            for (std::size_t i = 0; i < agreed.size(); ++i)
                if (region.articulation[agreed[i]] == values[i])
                    region.articulation.Unmark(agreed[i]);
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
