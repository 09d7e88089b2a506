#include "model/layer_room.h"

#include <algorithm>
#include <bit>

namespace vimbo {
namespace {

constexpr MidiRange Single(unsigned value) noexcept
{
    return {static_cast<std::uint8_t>(value), static_cast<std::uint8_t>(value)};
}

/// Halving the axis again and again, the first middle that lies in the range: of ranges that all overlap one
/// another, most have it in common.
unsigned Anchor(MidiRange range) noexcept
{
    unsigned middle = KeyVelocityGrid::kSteps / 2;
    for (unsigned step = middle / 2; step != 0 && !range.Contains(middle); step /= 2)
        middle = range.high < middle ? middle - step : middle + step;
    return std::clamp<unsigned>(middle, range.low, range.high);
}

std::u32string PackedZones(std::span<const Zone> zones)
{
    std::u32string packed;
    packed.reserve(zones.size());
    for (const Zone& zone : zones)
        packed.push_back(
            static_cast<char32_t>(zone.keys.Word() | std::uint32_t{zone.velocities.Word()} << 16));
    return packed;
}

/// What of the range whole tiles cover; an inverted range if none lies in it.
MidiRange WholeTiles(MidiRange range, unsigned steps) noexcept
{
    const unsigned low = (range.low + steps - 1) / steps * steps;
    const unsigned end = (range.high + 1u) / steps * steps;
    if (low >= end)
        return {1, 0};
    return {static_cast<std::uint8_t>(low), static_cast<std::uint8_t>(end - 1)};
}

} // namespace

void LayerSet::Put(std::size_t layer)
{
    const std::size_t block = layer / kWordBits;
    auto at = std::ranges::lower_bound(words_, block, {}, &Word::block);
    if (at == words_.end() || at->block != block)
        at = words_.insert(at, {block, 0});
    at->bits |= std::uint64_t{1} << layer % kWordBits;
}

void LayerSet::Take(std::size_t layer)
{
    const std::size_t block = layer / kWordBits;
    const auto at = std::ranges::lower_bound(words_, block, {}, &Word::block);
    if (at == words_.end() || at->block != block)
        return;
    at->bits &= ~(std::uint64_t{1} << layer % kWordBits);
    if (at->bits == 0)
        words_.erase(at);
}

std::span<const LayerSet::Word> LayerSet::From(std::size_t block) const noexcept
{
    const auto at = std::ranges::lower_bound(words_, block, {}, &Word::block);
    return {at, words_.end()};
}

/// The tiles that lie wholly in the zone, as a zone; empty if there are none.
Zone LayerRoom::Core(const Zone& zone) noexcept
{
    return {WholeTiles(zone.keys, kTileSteps), WholeTiles(zone.velocities, kTileSteps)};
}

LayerRoom::TileWords LayerRoom::WordsFor(std::span<const Zone> zones)
{
    TileWords words;
    for (const Zone& zone : zones) {
        const Zone core = Core(zone);
        for (unsigned k = zone.keys.low / kTileSteps; k <= zone.keys.high / kTileSteps; ++k)
            for (unsigned v = zone.velocities.low / kTileSteps; v <= zone.velocities.high / kTileSteps; ++v) {
                const bool isInside =
                    core.keys.Contains(k * kTileSteps) && core.velocities.Contains(v * kTileSteps);
                const unsigned tile = k * kTilesAcross + v;
                words.push_back(static_cast<std::uint16_t>(isInside ? tile : kTiles + tile));
            }
    }
    return words;
}

void LayerRoom::AddLayer()
{
    grids_.emplace_back();
    if (grids_.size() <= kWindow)
        return;
    MapNewLayers(); // maps and grids go together
    grids_.erase(grids_.begin(), grids_.begin() + LayerSet::kWordBits);
    maps_.pop_front();
    dropped_ += LayerSet::kWordBits;
}

bool LayerRoom::HasRoom(std::size_t layer, std::span<const Zone> zones) const noexcept
{
    if (layer < dropped_ || layer >= Size())
        return false;
    const KeyVelocityGrid& grid = grids_[layer - dropped_];
    return std::ranges::all_of(zones, [&](const Zone& zone) { return grid.IsFree(zone); });
}

void LayerRoom::Occupy(std::size_t layer, const Zone& zone)
{
    if (layer < dropped_)
        return;
    grids_[layer - dropped_].Add(zone);
    if (layer < mapped_)
        MapTiles(layer, zone.keys);
}

void LayerRoom::MapTiles(std::size_t layer, MidiRange keys)
{
    const std::size_t index = layer - dropped_;
    TileMap& map = maps_[index / LayerSet::kWordBits];
    const std::uint64_t bit = std::uint64_t{1} << index % LayerSet::kWordBits;
    for (unsigned k = keys.low / kTileSteps; k <= keys.high / kTileSteps; ++k) {
        const KeyVelocityGrid::Summary rows = grids_[index].Summarise(k * kTileSteps, kTileSteps);
        for (unsigned v = 0; v < kTilesAcross; ++v) {
            const unsigned tile = k * kTilesAcross + v;
            const unsigned half = v * kTileSteps / LayerSet::kWordBits;
            const unsigned shift = v * kTileSteps % LayerSet::kWordBits;
            if ((rows.any[half] >> shift & 0xFF) != 0)
                map[tile] |= bit;
            if ((rows.all[half] >> shift & 0xFF) == 0xFF)
                map[kTiles + tile] |= bit;
        }
    }
}

void LayerRoom::MapNewLayers()
{
    maps_.resize((grids_.size() + LayerSet::kWordBits - 1) / LayerSet::kWordBits);
    for (; mapped_ < Size(); ++mapped_)
        MapTiles(mapped_, MidiRange{});
}

/// The first layer with room among the candidates of one block of 64, a bit each.
std::size_t LayerRoom::SearchBlock(std::size_t block, std::uint64_t candidates, const TileWords& words,
                                   std::span<const Zone> zones) const
{
    if (const std::size_t map = block - dropped_ / LayerSet::kWordBits; map < maps_.size())
        for (std::size_t i = 0; i < words.size() && candidates != 0; ++i)
            candidates &= ~maps_[map][words[i]]; // layers that are not mapped yet have no bit there
    for (; candidates != 0; candidates &= candidates - 1) {
        const std::size_t layer =
            block * LayerSet::kWordBits + static_cast<std::size_t>(std::countr_zero(candidates));
        if (HasRoom(layer, zones))
            return layer;
    }
    return kNone;
}

/// From a layer of the window on.
std::size_t LayerRoom::Search(std::span<const Zone> zones, std::size_t from) const
{
    const TileWords words = from < mapped_ ? WordsFor(zones) : TileWords();
    for (std::size_t first = from; first < Size();) {
        const std::size_t found = SearchBlock(first / LayerSet::kWordBits,
                                              ~std::uint64_t{0} << first % LayerSet::kWordBits, words, zones);
        if (found != kNone)
            return found;
        first = (first / LayerSet::kWordBits + 1) * LayerSet::kWordBits;
    }
    return kNone;
}

/// The first layer with room, known from now on as the place where the next search for these zones begins.
std::size_t LayerRoom::Advance(std::span<const Zone> zones, std::size_t from)
{
    std::size_t& open = firstOpen_[PackedZones(zones)];
    open = std::min(Search(zones, std::max({open, from, dropped_})), Size());
    return open;
}

std::size_t LayerRoom::FirstFree(std::span<const Zone> zones, std::size_t from)
{
    from = std::max(from, dropped_);
    if (grids_.size() <= kFew)
        return Search(zones, from);
    MapNewLayers();
    std::size_t first = 0;
    const auto raise = [&](const Zone& part) { first = std::max(first, Advance({&part, 1}, 0)); };
    for (const Zone& zone : zones) {
        raise({Single(Anchor(zone.keys)), Single(Anchor(zone.velocities))});
        if (const Zone core = Core(zone); core.keys.Width() != 0 && core.velocities.Width() != 0)
            raise(core);
    }
    first = Advance(zones, first);
    if (first < from)
        first = Search(zones, from);
    return first < Size() ? first : kNone;
}

std::size_t LayerRoom::FirstFreeAmong(const LayerSet& set, std::span<const Zone> zones,
                                      std::size_t from) const
{
    from = std::max(from, dropped_);
    const TileWords words = from < mapped_ ? WordsFor(zones) : TileWords();
    const std::size_t start = from / LayerSet::kWordBits;
    for (const LayerSet::Word& word : set.From(start)) {
        const std::uint64_t candidates =
            word.block == start ? word.bits & ~std::uint64_t{0} << from % LayerSet::kWordBits : word.bits;
        if (const std::size_t found = SearchBlock(word.block, candidates, words, zones); found != kNone)
            return found;
    }
    return kNone;
}

} // namespace vimbo
