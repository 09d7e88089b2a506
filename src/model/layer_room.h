// Where a stack of layers has room: the search behind every "first layer without overlap".
#pragma once

#include "model/key_velocity_grid.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <limits>
#include <memory>
#include <span>
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

/// The occupied places of layers that only fill up. The layers stand in blocks of 64, one bit each in words
/// of places and of tiles of 8 x 8 places, so that a search decides about 64 layers at once, and exactly:
/// tiles that lie wholly in a zone by one word, the others by the words of their places.
///
/// Only the latest layers count, kWindow of them less at most 63: a layer that falls out of the window never
/// is an answer again, and its memory is given back. So a search for m zones reads at most m * kWindow / 64
/// times 4,096 words, and keeping a zone in mind writes as many words as one block has, however many layers
/// there are: placing n zones one by one takes O(n) time. Stacks of up to kWindow layers are not touched by
/// that: there the answer is the first layer with room, without exception.
class LayerRoom {
public:
    static constexpr std::size_t kNone = std::numeric_limits<std::size_t>::max();
    static constexpr std::size_t kWindow = 1024; ///< far more layers than one note of any instrument sounds

    std::size_t Size() const noexcept { return size_; }
    /// Adds an empty layer behind the others.
    void AddLayer();
    /// Nothing if the layer is out of the window. The zone is one within 0 to 127.
    void Occupy(std::size_t layer, const Zone& zone);
    /// The first layer of the window.
    std::size_t WindowStart() const noexcept { return dropped_; }

    /// The first layer in which all zones are free, from layer `from` on; kNone if there is none.
    std::size_t FirstFree(std::span<const Zone> zones, std::size_t from = 0) const noexcept;
    /// The same among the layers of a set.
    std::size_t FirstFreeAmong(const LayerSet& set, std::span<const Zone> zones,
                               std::size_t from) const noexcept;
    /// Those of 64 layers, from 64 * `block` on, in which all zones are free; none where no layers are.
    std::uint64_t FreeOf(std::size_t block, std::span<const Zone> zones,
                         std::uint64_t candidates) const noexcept;

private:
    /// Stacks of so few layers have a grid for each, which takes less memory.
    static constexpr std::size_t kFew = 64;
    static constexpr unsigned kTileSteps = 8; ///< keys, and velocities, of a tile
    static constexpr unsigned kTilesAcross = KeyVelocityGrid::kSteps / kTileSteps;
    static constexpr unsigned kTiles = kTilesAcross * kTilesAcross;
    static constexpr unsigned kTilePlaces = kTileSteps * kTileSteps;
    /// 64 layers, a bit each.
    struct Block {
        std::array<std::uint64_t, kTiles> any{};  ///< something in the tile is occupied
        std::array<std::uint64_t, kTiles> full{}; ///< all of it, by one zone: `places` does not tell
        std::array<std::uint64_t, std::size_t{kTiles} * kTilePlaces> places{}; ///< by tile, key, velocity
    };

    template <class F>
    static void ForEachTile(const Zone& zone, F f);
    static std::uint64_t WithRoom(const Block& block, const Zone& zone, std::uint64_t candidates) noexcept;
    static void Put(Block& block, std::uint64_t bit, const Zone& zone) noexcept;
    void MoveToBlocks();

    std::vector<KeyVelocityGrid> few_; ///< as long as there are no more than kFew layers
    std::deque<std::unique_ptr<Block>> blocks_;
    std::size_t size_ = 0;
    std::size_t dropped_ = 0; ///< layers out of the window, a multiple of 64
};

} // namespace vimbo
