#include "model/levels.h"

#include <algorithm>
#include <unordered_set>

namespace vimbo {

void AdoptChildren(Item& parent)
{
    const std::vector<ItemHandle> slots(parent.Children().begin(), parent.Children().end());
    std::unordered_set<ItemHandle, ItemHandleHash> seen;
    parent.ClearChildren();
    for (const ItemHandle slot : slots) {
        const ItemHandle handle = ChildHandle(parent.Kind(), slot);
        Item* child = parent.Owner().FindItem(handle);
        if (child == nullptr || !seen.insert(handle).second)
            continue;
        const Item* other = child->ParentItem();
        if (other != nullptr && other != &parent)
            continue;
        child->SetParent(parent.Handle());
        parent.AddChild(handle);
    }
}

void DestroyChildren(Item& parent, std::span<Item* const> children)
{
    if (children.empty())
        return;
    for (Item* child : children) {
        child->SetParent(NO_ITEM); // else each would search the parent's list for itself
        parent.Owner().Destroy(child->Handle());
    }
    parent.Item::Validate();
}

void ResolveTrigger(Region& region, const Layer& layer) noexcept
{
    const FeatureMask features = region.Owner().features;
    region.trigger.Normalize(features);
    if (!region.trigger.InheritFrom(layer.trigger))
        return;
    region.trigger.Normalize(features); // own and inherited edges may be in the wrong order together
    region.trigger.MarkDifferences(layer.trigger);
}

void ResolveLevels(Layer& layer) noexcept
{
    if (const Instrument* instrument = layer.ParentInstrument())
        layer.articulation.InheritFrom(instrument->articulation);
    ForEachRegion(layer, [&](Region& region) {
        ResolveTrigger(region, layer);
        region.articulation.InheritFrom(layer.articulation);
    });
}

void ResolveLevels(Instrument& instrument) noexcept
{
    ForEachLayer(instrument, [](Layer& layer) { ResolveLevels(layer); });
}

void MarkArticulation(Region& region, const Layer& layer) noexcept
{
    for (ParamId id = 0; id < kArticulationParams; ++id)
        if (region.articulation[id] != layer.articulation[id])
            region.articulation.Mark(id);
}

const ArticulationBlock& BlockAbove(const Layer& layer) noexcept
{
    const Instrument* instrument = layer.ParentInstrument();
    return instrument != nullptr ? instrument->articulation : DefaultArticulation();
}

} // namespace vimbo
