// Steps that instruments, layers and regions share inside the model.
#pragma once

#include "model/collection.h"
#include "model/instrument.h"

namespace vimbo {

template <class F>
void ForEachLayer(const Instrument& instrument, F f)
{
    for (std::size_t i = 0; i < instrument.Children().size(); ++i)
        if (Item* layer = instrument.Child(i))
            f(static_cast<Layer&>(*layer));
}

template <class F>
void ForEachRegion(const Layer& layer, F f)
{
    for (std::size_t i = 0; i < layer.Children().size(); ++i)
        if (Item* region = layer.Child(i))
            f(static_cast<Region&>(*region));
}

/// Destroys children in time that grows with their number: the parent's list is swept once.
void DestroyChildren(Item& parent, std::span<Item* const> children);

/// Normalises the region's trigger and takes what it does not set from the layer.
void ResolveTrigger(Region& region, const Layer& layer) noexcept;
/// Brings everything below up to date with the values above: nothing stored is older than its source.
void ResolveLevels(Layer& layer);
void ResolveLevels(Instrument& instrument);
/// Marks what differs from the layer's articulation, so that the region keeps its sound there.
void MarkArticulation(Region& region, const Layer& layer) noexcept;

/// The articulation above an instrument's layers, or above a layer without an instrument.
const ArticulationBlock& BlockAbove(const Layer& layer) noexcept;

/// While a reader or a pass over everything runs, automatic names wait for the end of the pass.
inline bool NamesFollowEdits(const Item& item) noexcept
{
    return !item.Owner().loading && !item.Owner().namesWait;
}

} // namespace vimbo
