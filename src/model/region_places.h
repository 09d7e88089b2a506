// The search for a region's layer while a reader adds regions to one instrument by the thousands.
#pragma once

#include "model/instrument.h"
#include "model/layer_room.h"

#include <map>
#include <vector>

namespace vimbo {

/// Knows what the layers of an instrument hold. It notices layers that came or went behind its back, and
/// regions of a layer that it would choose, but not that a range was changed. n regions take O(n log n) time:
/// a search looks at LayerRoom::kWindow layers at most. It learns regions and layers behind the others that
/// somebody else added one by one, but the whole instrument anew when any went, or when layers came between
/// others.
class RegionPlaces {
public:
    /// Scratch word of layers: the reader's tag plus one; 0 for layers made without one.
    static constexpr std::size_t kTagWord = 0;

    /// The layer for a region of these ranges, as Instrument::FindOrAddRegion chooses it; null if it has to
    /// be a new one.
    /// @param tagWord  the layer's tag plus one, 0 for none
    Layer* Find(const Instrument& instrument, MidiRange keys, MidiRange velocities, std::uint32_t tagWord);
    /// The same without any knowledge, from what all the layers hold now.
    static Layer* Scan(const Instrument& instrument, MidiRange keys, MidiRange velocities,
                       std::uint32_t tagWord);
    /// To be called when a region has been added at the end of `layer`, one of the instrument's.
    void Note(const Instrument& instrument, const Layer& layer, const Region& region);

private:
    struct Known {
        ItemHandle layer;
        std::uint32_t tagWord;
        MidiRange keys, velocities; ///< of the layer itself
        std::size_t regions;
        std::uint32_t lastVelocities; ///< kNoVelocities for an empty layer
    };
    static constexpr std::uint32_t kNoVelocities = 0xFFFFFFFF;

    void Update(const Instrument& instrument);
    void Learn(ItemHandle handle, const Layer* layer);
    void NoteNewRegions(std::size_t index, const Layer& layer);
    void NoteRegion(std::size_t index, const Region& region);
    std::size_t FindIndex(const Zone& zone, std::uint32_t tagWord);
    std::size_t FindBetweenOpenEdges(MidiRange keys, MidiRange velocities, std::uint32_t tagWord) const;

    LayerRoom room_;
    std::vector<Known> layers_;
    std::size_t found_ = LayerRoom::kNone; ///< that Find answered last
    std::map<std::uint32_t, LayerSet> byTag_, byLastVelocities_;
    bool hasOwnRanges_ = false; ///< there are layers that are not full themselves
};

} // namespace vimbo
