#include "model/levels.h"

namespace vimbo {

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

void ResolveLevels(Layer& layer)
{
    if (const Instrument* instrument = layer.ParentInstrument())
        layer.articulation.InheritFrom(instrument->articulation);
    ForEachRegion(layer, [&](Region& region) {
        ResolveTrigger(region, layer);
        region.articulation.InheritFrom(layer.articulation);
    });
}

void ResolveLevels(Instrument& instrument)
{
    ForEachLayer(instrument, [](Layer& layer) { ResolveLevels(layer); });
}

void MarkArticulation(Region& region, const Layer& layer) noexcept
{
    region.articulation.MarkAll(region.articulation.DifferenceTo(layer.articulation));
}

const ArticulationBlock& BlockAbove(const Layer& layer) noexcept
{
    const Instrument* instrument = layer.ParentInstrument();
    return instrument != nullptr ? instrument->articulation : DefaultArticulation();
}

} // namespace vimbo
