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

Zone ZoneIn(MidiRange keys, MidiRange velocities, MidiRange layerKeys, MidiRange layerVelocities) noexcept
{
    return Zone(WithoutGaps(keys, layerKeys), WithoutGaps(velocities, layerVelocities)).Normalized();
}

std::optional<MidiRange> LastVelocities(const Layer& layer) noexcept
{
    for (std::size_t i = layer.Children().size(); i-- > 0;)
        if (const Item* region = layer.Child(i))
            return static_cast<const Region*>(region)->trigger.velocities.Normalized();
    return std::nullopt;
}

constexpr bool HasOpenEdge(MidiRange range) noexcept
{
    return range.low == MidiRange::kKeep || range.high == MidiRange::kKeep;
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
        const Zone zone = ZoneIn(keys, velocities, layer->trigger.keys, layer->trigger.velocities);
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
    for (;;) {
        Update(instrument);
        found_ = hasOwnRanges_ && (HasOpenEdge(keys) || HasOpenEdge(velocities))
                     ? FindBetweenOpenEdges(keys, velocities, tagWord)
                     : FindIndex(ZoneIn(keys, velocities, {}, {}), tagWord);
        if (found_ == LayerRoom::kNone)
            return nullptr;
        auto* layer = static_cast<Layer*>(instrument.Child(found_));
        if (layer != nullptr && layer->Children().size() == layers_[found_].regions)
            return layer;
        // Somebody else was here.
        if (layer != nullptr && layer->Children().size() > layers_[found_].regions)
            NoteNewRegions(found_, *layer);
        else
            *this = {};
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

/// The zone is another one in each layer, if the layers' own ranges differ: they are gone through one by one.
std::size_t RegionPlaces::FindBetweenOpenEdges(MidiRange keys, MidiRange velocities,
                                               std::uint32_t tagWord) const
{
    std::size_t found = LayerRoom::kNone;
    std::optional<Zone> zone;
    std::uint64_t free = 0; ///< for that zone, of the layers of one block
    for (std::size_t i = room_.WindowStart(); i < layers_.size(); ++i) {
        const Known& known = layers_[i];
        const Zone here = ZoneIn(keys, velocities, known.keys, known.velocities);
        if (!zone || i % LayerSet::kWordBits == 0 || here.keys != zone->keys ||
            here.velocities != zone->velocities) {
            zone = here;
            free = room_.FreeOf(i / LayerSet::kWordBits, {&here, 1}, ~std::uint64_t{0});
        }
        if ((tagWord != 0 && known.tagWord != tagWord) || (free >> i % LayerSet::kWordBits & 1) == 0)
            continue;
        const bool continuesSplit = known.lastVelocities == here.velocities.Word();
        if (found == LayerRoom::kNone || continuesSplit)
            found = i;
        if (continuesSplit || tagWord != 0)
            break;
    }
    return found;
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
    layers_.push_back({handle, 0, {}, {}, 0, kNoVelocities});
    room_.AddLayer();
    if (layer == nullptr) {
        room_.Occupy(index, {MidiRange{}, MidiRange{}});
        return;
    }
    Known& known = layers_.back();
    known.tagWord = layer->scratch[kTagWord];
    known.keys = layer->trigger.keys;
    known.velocities = layer->trigger.velocities;
    byTag_[known.tagWord].Put(index);
    hasOwnRanges_ |= !known.keys.IsFull() || !known.velocities.IsFull();
    NoteNewRegions(index, *layer);
}

void RegionPlaces::NoteNewRegions(std::size_t index, const Layer& layer)
{
    for (std::size_t i = layers_[index].regions; i < layer.Children().size(); ++i)
        if (const Item* region = layer.Child(i))
            NoteRegion(index, static_cast<const Region&>(*region));
    layers_[index].regions = layer.Children().size();
}

void RegionPlaces::NoteRegion(std::size_t index, const Region& region)
{
    ++layers_[index].regions;
    if (index < room_.WindowStart())
        return;
    const Zone zone = Zone(region.trigger).Normalized();
    room_.Occupy(index, zone);
    std::uint32_t& last = layers_[index].lastVelocities;
    const std::uint32_t now = zone.velocities.Word();
    if (last == now)
        return;
    if (last != kNoVelocities)
        byLastVelocities_[last].Take(index);
    byLastVelocities_[now].Put(index);
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
