#include "model/region_places.h"

#include "model/levels.h"

#include <optional>

namespace vimbo {
namespace {

/// The range with its open edges taken from the layer, as a region there would have it.
MidiRange WithoutGaps(MidiRange range, MidiRange layerRange) noexcept
{
    return {range.low == MidiRange::kKeep ? layerRange.low : range.low,
            range.high == MidiRange::kKeep ? layerRange.high : range.high};
}

std::optional<MidiRange> LastVelocities(const Layer& layer) noexcept
{
    for (std::size_t i = layer.Children().size(); i-- > 0;)
        if (const Item* region = layer.Child(i))
            return static_cast<const Region*>(region)->trigger.velocities;
    return std::nullopt;
}

bool IsRegular(MidiRange range) noexcept
{
    return range.low <= range.high && MidiRange{}.Contains(range);
}

bool IsRegular(const Zone& zone) noexcept
{
    return IsRegular(zone.keys) && IsRegular(zone.velocities);
}

void Put(LayerRoom::LayerSet& set, std::size_t index, bool isIn)
{
    const std::uint64_t bit = std::uint64_t{1} << index % 64;
    if (set.size() <= index / 64)
        set.resize(index / 64 + 1);
    set[index / 64] = isIn ? set[index / 64] | bit : set[index / 64] & ~bit;
}

} // namespace

Layer* RegionPlaces::Scan(const Instrument& instrument, MidiRange keys, MidiRange velocities,
                          std::uint32_t tagWord)
{
    Layer* found = nullptr;
    for (std::size_t i = 0; i < instrument.Children().size(); ++i) {
        auto* layer = static_cast<Layer*>(instrument.Child(i));
        if (layer == nullptr || (tagWord != 0 && layer->scratch[kTagWord] != tagWord))
            continue;
        const Zone zone(WithoutGaps(keys, layer->trigger.keys),
                        WithoutGaps(velocities, layer->trigger.velocities));
        if (!layer->HasNoOverlap(zone.keys, zone.velocities))
            continue;
        const bool continuesSplit = LastVelocities(*layer) == zone.velocities;
        if (found == nullptr || continuesSplit)
            found = layer;
        if (continuesSplit || tagWord != 0)
            break;
    }
    return found;
}

Layer* RegionPlaces::Find(const Instrument& instrument, MidiRange keys, MidiRange velocities,
                          std::uint32_t tagWord)
{
    const Zone zone(WithoutGaps(keys, MidiRange{}), WithoutGaps(velocities, MidiRange{}));
    for (;;) {
        Update(instrument);
        isIrregular_ |= !IsRegular(zone);
        found_ = LayerRoom::kNone;
        if (isIrregular_)
            return Scan(instrument, keys, velocities, tagWord);
        found_ = FindIndex(zone, tagWord);
        if (found_ == LayerRoom::kNone)
            return nullptr;
        auto* layer = static_cast<Layer*>(instrument.Child(found_));
        if (layer != nullptr && layer->Children().size() == layers_[found_].regions)
            return layer;
        *this = {}; // somebody else was here
    }
}

std::size_t RegionPlaces::FindIndex(const Zone& zone, std::uint32_t tagWord)
{
    const std::span<const Zone> zones(&zone, 1);
    const std::size_t first = room_.FirstFree(zones);
    if (first == LayerRoom::kNone)
        return first;
    if (tagWord != 0)
        return room_.FirstFreeAmong(byTag_[tagWord], zones, first);
    const std::size_t split = room_.FirstFreeAmong(byLastVelocities_[zone.velocities.Word()], zones, first);
    return split != LayerRoom::kNone ? split : first;
}

void RegionPlaces::Note(const Instrument& instrument, const Layer& layer, const Region& region)
{
    Update(instrument);
    const std::size_t index = found_ < layers_.size() ? found_ : layers_.size() - 1;
    found_ = LayerRoom::kNone;
    if (layers_[index].layer != layer.Handle() || layers_[index].regions + 1 != layer.Children().size())
        return;
    NoteRegion(index, region);
}

/// Learns the layers that were added at the end; all of them if others came or went.
void RegionPlaces::Update(const Instrument& instrument)
{
    const std::span<const ItemHandle> slots = instrument.Children();
    if (!layers_.empty() &&
        (slots.size() < layers_.size() || slots[layers_.size() - 1] != layers_.back().layer))
        *this = {};
    while (layers_.size() < slots.size()) {
        const std::size_t index = layers_.size();
        Learn(slots[index], static_cast<const Layer*>(instrument.Child(index)));
    }
}

void RegionPlaces::Learn(ItemHandle handle, const Layer* layer)
{
    const std::size_t index = layers_.size();
    layers_.push_back({handle, 0, kNoVelocities});
    room_.AddLayer();
    if (layer == nullptr) {
        room_.Occupy(index, {MidiRange{}, MidiRange{}});
        return;
    }
    Put(byTag_[layer->scratch[kTagWord]], index, true);
    isIrregular_ |= !layer->trigger.keys.IsFull() || !layer->trigger.velocities.IsFull();
    ForEachRegion(*layer, [&](const Region& region) { NoteRegion(index, region); });
    layers_[index].regions = layer->Children().size();
}

void RegionPlaces::NoteRegion(std::size_t index, const Region& region)
{
    ++layers_[index].regions;
    const Zone zone(region.trigger);
    if (!IsRegular(zone)) {
        isIrregular_ = true;
        return;
    }
    room_.Occupy(index, zone);
    std::uint32_t& last = layers_[index].lastVelocities;
    const std::uint32_t now = zone.velocities.Word();
    if (last == now)
        return;
    if (last != kNoVelocities)
        Put(byLastVelocities_[last], index, false);
    Put(byLastVelocities_[now], index, true);
    last = now;
}

Region& Instrument::FindOrAddRegion(ItemHandle waveform, MidiRange keys, MidiRange velocities,
                                    std::uint8_t rootKey, int layerTag)
{
    const std::uint32_t tagWord = layerTag < 0 ? 0 : static_cast<std::uint32_t>(layerTag) + 1;
    if (!Owner().loading)
        places_.reset(); // ranges may have changed meanwhile, and may change until the next call
    else if (!places_)
        places_ = std::make_unique<RegionPlaces>();
    Layer* layer = places_ ? places_->Find(*this, keys, velocities, tagWord)
                           : RegionPlaces::Scan(*this, keys, velocities, tagWord);
    if (layer == nullptr) {
        layer = &AddLayer();
        layer->scratch[RegionPlaces::kTagWord] = tagWord;
    }
    Region& region = layer->AddRegion(waveform, keys, velocities, rootKey);
    if (places_)
        places_->Note(*this, *layer, region);
    return region;
}

} // namespace vimbo
