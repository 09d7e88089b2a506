#include "model/layer_room.h"

#include <algorithm>
#include <bit>

namespace vimbo {
namespace {

constexpr std::size_t kWordBits = 64;

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

bool LayerRoom::IsFree(std::size_t layer, std::span<const Zone> zones) const noexcept
{
    return std::ranges::all_of(zones, [&](const Zone& zone) { return grids_[layer].IsFree(zone); });
}

void LayerRoom::Occupy(std::size_t layer, const Zone& zone)
{
    grids_[layer].Add(zone);
    if (layer < mapped_)
        MapTiles(layer, zone.keys);
}

void LayerRoom::MapTiles(std::size_t layer, MidiRange keys)
{
    TileMap& map = maps_[layer / kWordBits];
    const std::uint64_t bit = std::uint64_t{1} << layer % kWordBits;
    for (unsigned k = keys.low / kTileSteps; k <= keys.high / kTileSteps; ++k) {
        const KeyVelocityGrid::Summary rows = grids_[layer].Summarise(k * kTileSteps, kTileSteps);
        for (unsigned v = 0; v < kTilesAcross; ++v) {
            const unsigned tile = k * kTilesAcross + v;
            const unsigned half = v * kTileSteps / kWordBits, shift = v * kTileSteps % kWordBits;
            if ((rows.any[half] >> shift & 0xFF) != 0)
                map[tile] |= bit;
            if ((rows.all[half] >> shift & 0xFF) == 0xFF)
                map[kTiles + tile] |= bit;
        }
    }
}

void LayerRoom::MapNewLayers()
{
    maps_.resize((grids_.size() + kWordBits - 1) / kWordBits);
    for (; mapped_ < grids_.size(); ++mapped_)
        MapTiles(mapped_, MidiRange{});
}

std::size_t LayerRoom::Search(std::span<const Zone> zones, std::size_t from, const LayerSet* set) const
{
    const std::size_t end = std::min(mapped_, set != nullptr ? set->size() * kWordBits : mapped_);
    const TileWords words = from < end ? WordsFor(zones) : TileWords();
    for (std::size_t block = from / kWordBits; block * kWordBits < end; ++block) {
        std::uint64_t taken = set != nullptr ? ~(*set)[block] : 0;
        if (block == from / kWordBits)
            taken |= (std::uint64_t{1} << from % kWordBits) - 1;
        for (std::size_t i = 0; i < words.size() && taken != ~std::uint64_t{0}; ++i)
            taken |= maps_[block][words[i]];
        for (std::uint64_t open = ~taken; open != 0; open &= open - 1) {
            const std::size_t layer = block * kWordBits + static_cast<std::size_t>(std::countr_zero(open));
            if (layer >= mapped_)
                break;
            if (IsFree(layer, zones))
                return layer;
        }
    }
    for (std::size_t layer = std::max(from, mapped_); layer < grids_.size(); ++layer)
        if ((set == nullptr || (layer / kWordBits < set->size() &&
                                ((*set)[layer / kWordBits] >> layer % kWordBits & 1) != 0)) &&
            IsFree(layer, zones))
            return layer;
    return kNone;
}

/// The first layer with room, known from now on as the place where the next search for these zones begins.
std::size_t LayerRoom::Advance(std::span<const Zone> zones, std::size_t from)
{
    std::size_t& open = firstOpen_[PackedZones(zones)];
    open = std::min(Search(zones, std::max(open, from), nullptr), grids_.size());
    return open;
}

std::size_t LayerRoom::FirstFree(std::span<const Zone> zones)
{
    if (grids_.size() <= kFew)
        return Search(zones, 0, nullptr);
    MapNewLayers();
    std::size_t from = 0;
    const auto raise = [&](const Zone& part) { from = std::max(from, Advance({&part, 1}, 0)); };
    for (const Zone& zone : zones) {
        raise({Single(Anchor(zone.keys)), Single(Anchor(zone.velocities))});
        if (const Zone core = Core(zone); core.keys.Width() != 0 && core.velocities.Width() != 0)
            raise(core);
    }
    from = Advance(zones, from);
    return from < grids_.size() ? from : kNone;
}

std::size_t LayerRoom::FirstFreeAmong(const LayerSet& set, std::span<const Zone> zones,
                                      std::size_t from) const
{
    return Search(zones, from, &set);
}

} // namespace vimbo
