// A writer's private view of what it is to store.
#pragma once

#include "model/instrument.h"
#include "model/waveform.h"

#include <span>
#include <unordered_map>
#include <vector>

namespace vimbo {

class Song;

enum class IncludeWaves : bool { No, Yes };
enum class DropOverlappingAlternates : bool { No, Yes };
enum class CompactFirst : bool { No, Yes };

/// Instruments and waveforms that go into a file. Operations that change an instrument work on a clone, which
/// the set owns and destroys at its end; the collection's own instruments are never touched. The collection
/// must outlive the set, and is not to be validated meanwhile.
class ExportSet {
public:
    ExportSet() = default;
    ~ExportSet() { Clear(); }
    ExportSet(const ExportSet&) = delete;
    ExportSet& operator=(const ExportSet&) = delete;

    /// From a collection: all instruments in ascending order of their locations, and all waveforms. From an
    /// instrument: itself; from a layer, region or synthesis model: a temporary instrument that holds a copy.
    /// From these, waveforms are those used, by first use. From a waveform: itself.
    void Fill(Item& root, IncludeWaves includeWaves,
              DropOverlappingAlternates dropAlternates = DropOverlappingAlternates::No);
    /// Destroys the clones.
    void Clear();

    std::span<Instrument* const> Instruments() const noexcept { return instruments_; }
    /// As filled: later operations do not take waveforms out.
    std::span<Waveform* const> Waveforms() const noexcept { return waveforms_; }

    /// Deletes layers from the last one on where there are more than allowed. Compacting first tries to merge
    /// layers of equal articulation, and others only if that is not enough.
    void LimitLayers(std::size_t maxMelodic, std::size_t maxDrum, CompactFirst compactFirst);
    /// Of overlapping regions of one alternate group, those of later layers go.
    void RemoveOverlappingAlternates();
    /// Moves regions that overlap an earlier one in keys into new layers, until no layer has such an overlap.
    void SeparateVelocityStacks();
    /// Clips regions to the limits; what lies outside goes, with what is left empty. A fade loses as many
    /// steps as are cut off at its edge.
    void ClipTo(MidiRange keys, MidiRange velocities, bool melodic, bool drum);
    void KeepFirstInstrument();

private:
    Instrument& CloneOf(Instrument& instrument);
    Instrument& EditAt(std::size_t index);
    Instrument& Own(Instrument& made);

    std::vector<Instrument*> instruments_;
    std::vector<Waveform*> waveforms_;
    std::unordered_map<const Instrument*, Instrument*> clones_; ///< by original, and each clone by itself
    std::vector<ItemHandle> owned_;
    Collection* owner_ = nullptr;
};

/// Makes an instrument that holds a copy of a layer, region or synthesis model, in the same collection. What
/// stands above the item (instrument and layer values, location) is copied with it, so that it sounds alike.
Instrument& WrapInInstrument(const Item& item);

/// All songs of a collection, or the one given; none for other items.
std::vector<Song*> SongsToExport(Item& root);

/// One region in a key zone of a layer, with its velocity range clipped.
struct KeyMapEntry {
    const Region* region = nullptr;
    MidiRange velocities;
    friend bool operator==(const KeyMapEntry&, const KeyMapEntry&) = default;
};
/// A layer's part of a zone.
struct KeyMapLayer {
    std::size_t layer = 0;            ///< index in the instrument
    std::vector<KeyMapEntry> entries; ///< by low velocity; never empty
    ArticulationBlock articulation; ///< of the first region; the average, by widths, where there are several
    TriggerParams trigger;          ///< of the first region; united where there are several
};
struct KeyMapZone {
    MidiRange keys;
    std::vector<KeyMapLayer> layers; ///< those that sound here
};
struct KeyMap {
    std::vector<KeyMapZone> zones; ///< by low key; together they cover the keyboard without overlap
};
struct KeyMapLimits {
    std::size_t maxLayers = static_cast<std::size_t>(-1); ///< of a zone; the last ones go
    std::size_t maxVelocityEntries = 128;                 ///< of one layer in a zone
    std::size_t maxTotal = static_cast<std::size_t>(-1);  ///< entries of all layers in a zone
    int layerSelect = -1;                                 ///< one layer only; -1: all
    bool countStereoTwice = false;                        ///< a region with a stereo waveform counts as two
    MidiRange keys;                                       ///< what the format's keyboard covers
    MidiRange velocities;                                 ///< what its velocities cover
};
/// The instrument as a table of keys, for formats that have nothing else.
KeyMap BuildKeyMap(const Instrument& instrument, const KeyMapLimits& limits);

/// The velocity ranges that sound at one key of a layer, cut at the regions' edges, at most maxZones.
/// @param key 128 and above: the whole keyboard
std::vector<MidiRange> BuildVelocityZones(const Layer& layer, unsigned key, std::size_t maxZones);

} // namespace vimbo
