#include "model/layer_room.h"

#include <algorithm>
#include <bit>

namespace vimbo {

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

/// Calls f(tile, isInside, keys, velocities) for the tiles that the zone meets: whether it covers all of the
/// tile, and what it covers, counted from the tile's first key and velocity.
template <class F>
void LayerRoom::ForEachTile(const Zone& zone, F f)
{
    const auto part = [](MidiRange range, unsigned tile) {
        const unsigned first = tile * kTileSteps;
        const unsigned low = std::max<unsigned>(range.low, first) - first;
        const unsigned high = std::min<unsigned>(range.high, first + kTileSteps - 1) - first;
        return MidiRange{static_cast<std::uint8_t>(low), static_cast<std::uint8_t>(high)};
    };
    for (unsigned k = zone.keys.low / kTileSteps; k <= zone.keys.high / kTileSteps; ++k) {
        const MidiRange keys = part(zone.keys, k);
        for (unsigned v = zone.velocities.low / kTileSteps; v <= zone.velocities.high / kTileSteps; ++v) {
            const MidiRange velocities = part(zone.velocities, v);
            const bool isInside = keys.Width() == kTileSteps && velocities.Width() == kTileSteps;
            if (!f(k * kTilesAcross + v, isInside, keys, velocities))
                return;
        }
    }
}

/// The candidates that have room for the zone.
std::uint64_t LayerRoom::WithRoom(const Block& block, const Zone& zone, std::uint64_t candidates) noexcept
{
    // The words of tiles first, that in the middle ahead: mostly it leaves no candidate.
    const auto middle = [](MidiRange range) {
        const unsigned low = (range.low + kTileSteps - 1) / kTileSteps, end = (range.high + 1u) / kTileSteps;
        return low < end ? (low + end) / 2 : kTilesAcross;
    };
    if (const unsigned k = middle(zone.keys), v = middle(zone.velocities); std::max(k, v) < kTilesAcross)
        candidates &= ~block.any[k * kTilesAcross + v];
    if (candidates == 0)
        return 0;
    ForEachTile(zone, [&](unsigned tile, bool isInside, MidiRange, MidiRange) {
        candidates &= ~(isInside ? block.any[tile] : block.full[tile]);
        return candidates != 0;
    });
    if (candidates == 0)
        return 0;
    ForEachTile(zone, [&](unsigned tile, bool isInside, MidiRange keys, MidiRange velocities) {
        if (isInside || (block.any[tile] & candidates) == 0)
            return true;
        std::uint64_t taken = 0;
        const std::uint64_t* const places = &block.places[std::size_t{tile} * kTilePlaces];
        for (unsigned key = keys.low; key <= keys.high; ++key)
            for (unsigned velocity = velocities.low; velocity <= velocities.high; ++velocity)
                taken |= places[key * kTileSteps + velocity];
        candidates &= ~taken;
        return candidates != 0;
    });
    return candidates;
}

void LayerRoom::Put(Block& block, std::uint64_t bit, const Zone& zone) noexcept
{
    ForEachTile(zone, [&](unsigned tile, bool isInside, MidiRange keys, MidiRange velocities) {
        block.any[tile] |= bit;
        if (isInside) {
            block.full[tile] |= bit;
            return true;
        }
        std::uint64_t* const places = &block.places[std::size_t{tile} * kTilePlaces];
        for (unsigned key = keys.low; key <= keys.high; ++key)
            for (unsigned velocity = velocities.low; velocity <= velocities.high; ++velocity)
                places[key * kTileSteps + velocity] |= bit;
        return true;
    });
}

void LayerRoom::MoveToBlocks()
{
    blocks_.push_back(std::make_unique<Block>());
    for (std::size_t layer = 0; layer < few_.size(); ++layer) {
        const std::uint64_t bit = std::uint64_t{1} << layer;
        few_[layer].ForEachRectangle([&](const Zone& zone) { Put(*blocks_.back(), bit, zone); });
    }
    few_ = {};
}

void LayerRoom::AddLayer()
{
    if (size_ < kFew) {
        few_.emplace_back();
    } else {
        if (size_ == kFew)
            MoveToBlocks();
        if (size_ % LayerSet::kWordBits == 0)
            blocks_.push_back(std::make_unique<Block>());
    }
    ++size_;
    if (size_ - dropped_ > kWindow) {
        blocks_.pop_front();
        dropped_ += LayerSet::kWordBits;
    }
}

void LayerRoom::Occupy(std::size_t layer, const Zone& zone)
{
    if (layer < few_.size())
        few_[layer].Add(zone);
    else if (few_.empty() && layer >= dropped_)
        Put(*blocks_[(layer - dropped_) / LayerSet::kWordBits],
            std::uint64_t{1} << layer % LayerSet::kWordBits, zone);
}

std::uint64_t LayerRoom::FreeOf(std::size_t block, std::span<const Zone> zones,
                                std::uint64_t candidates) const noexcept
{
    const std::size_t first = block * LayerSet::kWordBits;
    if (first < dropped_ || first >= size_)
        return 0;
    if (size_ - first < LayerSet::kWordBits)
        candidates &= ~(~std::uint64_t{0} << (size_ - first));
    if (!few_.empty()) {
        for (std::uint64_t left = candidates; left != 0; left &= left - 1) {
            const KeyVelocityGrid& grid = few_[static_cast<std::size_t>(std::countr_zero(left))];
            if (!std::ranges::all_of(zones, [&](const Zone& zone) { return grid.IsFree(zone); }))
                candidates &= ~(left & (~left + 1));
        }
        return candidates;
    }
    for (const Zone& zone : zones)
        if (candidates != 0)
            candidates = WithRoom(*blocks_[(first - dropped_) / LayerSet::kWordBits], zone, candidates);
    return candidates;
}

std::size_t LayerRoom::FirstFree(std::span<const Zone> zones, std::size_t from) const noexcept
{
    from = std::max(from, dropped_);
    if (!few_.empty()) { // no more layers than needed
        for (std::size_t layer = from; layer < few_.size(); ++layer)
            if (std::ranges::all_of(zones, [&](const Zone& zone) { return few_[layer].IsFree(zone); }))
                return layer;
        return kNone;
    }
    std::uint64_t candidates = ~std::uint64_t{0} << from % LayerSet::kWordBits;
    for (std::size_t block = from / LayerSet::kWordBits; block * LayerSet::kWordBits < size_; ++block) {
        if (const std::uint64_t free = FreeOf(block, zones, candidates))
            return block * LayerSet::kWordBits + static_cast<std::size_t>(std::countr_zero(free));
        candidates = ~std::uint64_t{0};
    }
    return kNone;
}

std::size_t LayerRoom::FirstFreeAmong(const LayerSet& set, std::span<const Zone> zones,
                                      std::size_t from) const noexcept
{
    from = std::max(from, dropped_);
    const std::size_t start = from / LayerSet::kWordBits;
    for (const LayerSet::Word& word : set.From(start)) {
        const std::uint64_t candidates =
            word.block == start ? word.bits & ~std::uint64_t{0} << from % LayerSet::kWordBits : word.bits;
        if (const std::uint64_t free = FreeOf(word.block, zones, candidates))
            return word.block * LayerSet::kWordBits + static_cast<std::size_t>(std::countr_zero(free));
    }
    return kNone;
}

} // namespace vimbo
