// Where a stack of layers has room: the search behind every "first layer without overlap".
#pragma once

#include "model/key_velocity_grid.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

namespace vimbo {

/// The occupied places of layers that only fill up. A search does not begin at the first layer each time:
/// what had no room for a zone, or for a part of it, never will have. From there on it goes through 64 layers
/// at once by a coarse map of tiles; exact grids decide what the map leaves open.
class LayerRoom {
public:
    static constexpr std::size_t kNone = std::numeric_limits<std::size_t>::max();

    std::size_t Size() const noexcept { return grids_.size(); }
    /// Adds an empty layer behind the others.
    void AddLayer() { grids_.emplace_back(); }
    void Occupy(std::size_t layer, const Zone& zone);

    /// The first layer in which all zones are free; kNone if there is none.
    std::size_t FirstFree(std::span<const Zone> zones);
    /// A set of layers, one bit each. Layers beyond the last word are not in it.
    using LayerSet = std::vector<std::uint64_t>;
    /// The same among the layers of a set, from one layer on.
    std::size_t FirstFreeAmong(const LayerSet& set, std::span<const Zone> zones, std::size_t from) const;

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
    bool IsFree(std::size_t layer, std::span<const Zone> zones) const noexcept;
    void MapTiles(std::size_t layer, MidiRange keys);
    void MapNewLayers();
    std::size_t Search(std::span<const Zone> zones, std::size_t from, const LayerSet* set) const;
    std::size_t Advance(std::span<const Zone> zones, std::size_t from);

    std::vector<KeyVelocityGrid> grids_;
    std::vector<TileMap> maps_;
    std::size_t mapped_ = 0; ///< layers that the maps cover
    /// By zones, packed: layers below have no room for them. Size() and above: nor has any.
    std::unordered_map<std::u32string, std::size_t> firstOpen_;
};

} // namespace vimbo
