// The search for a region's layer while a reader adds regions to one instrument by the thousands.
#pragma once

#include "model/instrument.h"
#include "model/layer_room.h"

#include <unordered_map>
#include <vector>

namespace vimbo {

/// Knows what the layers of an instrument hold. It notices layers and regions that came or went behind its
/// back, but not that a range was changed.
class RegionPlaces {
public:
    /// Scratch word of layers: the reader's tag plus one; 0 for layers made without one.
    static constexpr std::size_t kTagWord = 0;

    /// The layer for a region of these ranges, as Instrument::FindOrAddRegion chooses it; null if it has to
    /// be a new one.
    /// @param tagWord  the layer's tag plus one, 0 for none
    Layer* Find(const Instrument& instrument, MidiRange keys, MidiRange velocities, std::uint32_t tagWord);
    /// The same without any knowledge, from what the layers hold now.
    static Layer* Scan(const Instrument& instrument, MidiRange keys, MidiRange velocities,
                       std::uint32_t tagWord);
    /// To be called when a region has been added at the end of `layer`, one of the instrument's.
    void Note(const Instrument& instrument, const Layer& layer, const Region& region);

private:
    struct Known {
        ItemHandle layer;
        std::size_t regions;
        std::uint32_t lastVelocities; ///< kNoVelocities for an empty layer
    };
    static constexpr std::uint32_t kNoVelocities = 0xFFFFFFFF;

    void Update(const Instrument& instrument);
    void Learn(ItemHandle handle, const Layer* layer);
    void NoteRegion(std::size_t index, const Region& region);
    std::size_t FindIndex(const Zone& zone, std::uint32_t tagWord);

    LayerRoom room_;
    std::vector<Known> layers_;
    std::size_t found_ = LayerRoom::kNone; ///< that Find answered last
    std::unordered_map<std::uint32_t, LayerRoom::LayerSet> byTag_, byLastVelocities_;
    bool isIrregular_ = false; ///< there are ranges that only Scan understands
};

} // namespace vimbo
