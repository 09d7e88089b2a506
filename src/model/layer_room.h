// Where a stack of layers has room: the search behind every "first layer without overlap".
#pragma once

#include "model/key_velocity_grid.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <limits>
#include <map>
#include <span>
#include <string>
#include <vector>

namespace vimbo {

/// A set of layers, given by their numbers: a bit each, in words of 64 layers. Words without a bit take no
/// memory. Put and Take cost the logarithm of the number of words, and a step for each word behind.
class LayerSet {
public:
    static constexpr std::size_t kWordBits = 64;
    struct Word {
        std::size_t block; ///< of layers 64 * block and up
        std::uint64_t bits;
    };

    void Put(std::size_t layer);
    void Take(std::size_t layer);
    /// The words from a block on, in order.
    std::span<const Word> From(std::size_t block) const noexcept;

private:
    std::vector<Word> words_;
};

/// The occupied places of layers that only fill up. A search does not begin at the first layer each time:
/// what had no room for a zone, or for a part of it, never will have. From there on it goes through 64 layers
/// at once by a coarse map of tiles; exact grids decide what the map leaves open.
///
/// Only the latest layers count, kWindow of them less at most 63: a layer that falls out of the window never
/// is an answer again, and its memory is given back. So a search for m zones takes at most
/// 3 m * kWindow * 256 words of 64 places, and the logarithm of the number of searches before, however many
/// layers there are; placing n zones one by one takes O(n log n) time. Stacks of up to kWindow layers are not
/// touched by that: there the answer is the first layer with room, without exception.
class LayerRoom {
public:
    static constexpr std::size_t kNone = std::numeric_limits<std::size_t>::max();
    static constexpr std::size_t kWindow = 1024; ///< far more layers than one note of any instrument sounds

    std::size_t Size() const noexcept { return dropped_ + grids_.size(); }
    /// Adds an empty layer behind the others.
    void AddLayer();
    /// Nothing if the layer is out of the window.
    void Occupy(std::size_t layer, const Zone& zone);
    /// The first layer of the window.
    std::size_t WindowStart() const noexcept { return dropped_; }

    /// The first layer in which all zones are free, from layer `from` on; kNone if there is none. `from`
    /// above 0 costs one search more.
    std::size_t FirstFree(std::span<const Zone> zones, std::size_t from = 0);
    /// The same among the layers of a set.
    std::size_t FirstFreeAmong(const LayerSet& set, std::span<const Zone> zones, std::size_t from) const;
    /// True if the layer is in the window and all zones are free in it.
    bool HasRoom(std::size_t layer, std::span<const Zone> zones) const noexcept;

private:
    /// Stacks of so few layers are gone through one by one.
    static constexpr std::size_t kFew = 64;
    static constexpr unsigned kTileSteps = 8; ///< keys, and velocities, of a tile
    static constexpr unsigned kTilesAcross = KeyVelocityGrid::kSteps / kTileSteps;
    static constexpr unsigned kTiles = kTilesAcross * kTilesAcross;
    /// A bit for each of 64 layers: by tile, whether anything in it is occupied; behind that whether all is.
    using TileMap = std::array<std::uint64_t, std::size_t{2} * kTiles>;
    /// The words of a TileMap of which a set bit means that a layer has no room for some zones.
    using TileWords = std::vector<std::uint16_t>;

    static Zone Core(const Zone& zone) noexcept;
    static TileWords WordsFor(std::span<const Zone> zones);
    void MapTiles(std::size_t layer, MidiRange keys);
    void MapNewLayers();
    std::size_t SearchBlock(std::size_t block, std::uint64_t candidates, const TileWords& words,
                            std::span<const Zone> zones) const;
    std::size_t Search(std::span<const Zone> zones, std::size_t from) const;
    std::size_t Advance(std::span<const Zone> zones, std::size_t from);

    // Of the window; `dropped_` layers came before, a multiple of 64.
    std::deque<KeyVelocityGrid> grids_;
    std::deque<TileMap> maps_;
    std::size_t dropped_ = 0;
    std::size_t mapped_ = 0; ///< layers below are covered by the maps, or dropped
    /// By zones, packed: layers below have no room for them. Size() and above: nor has any.
    std::map<std::u32string, std::size_t> firstOpen_;
};

} // namespace vimbo
