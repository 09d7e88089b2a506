// What instruments and waveforms become in a SoundFont bank: everything but the frames, settled before a byte
// is written.
#pragma once

#include "formats/conversion_notes.h"
#include "formats/export_set.h"
#include "formats/soundfont/soundfont_zone_cache.h"

#include <array>
#include <bit>
#include <deque>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

namespace vimbo::sf2 {

/// A mono waveform, or one channel of a stereo one.
struct OutSample {
    static constexpr unsigned kWhole = 2;
    Waveform* wave = nullptr;
    unsigned channel = kWhole; ///< 0 or 1 of a stereo waveform
    std::string name;          ///< as in the file: at most 20 bytes, unlike all others; empty at first
    std::uint32_t loopStart = 0;
    std::uint32_t loopEnd = 0; ///< frames; equal to loopStart: no loop
    std::uint8_t rootKey = 60;
    std::uint16_t type = kSampleMono;
    std::uint16_t link = 0; ///< the other half of a pair
};

struct SampleList {
    std::vector<OutSample> samples;
    /// The first sample of a waveform; a stereo one's right channel follows directly. Waveforms without
    /// frames have none.
    std::unordered_map<const Waveform*, std::size_t> places;
};
/// Waveforms in the order of the set, right halves of pairs behind the left ones. A pair is a stereo
/// waveform, or two mono ones that regions in different layers play at the two sides, or two that nothing
/// plays and that are named as halves.
SampleList ListSamples(const ExportSet& set);
void NameSamples(SampleList& list);

/// A loop as the bank holds it: whole frames inside the waveform, forward.
LoopInfo WholeLoop(const LoopInfo& loop, std::uint32_t frames) noexcept;
/// What a loop of the sample is without a region.
LoopInfo LoopOf(const OutSample& sample) noexcept;

/// Some of a zone's amounts: generators from 0 on, slots behind them. Few of the amounts are not the usual
/// ones.
class ZoneMarks {
public:
    static constexpr std::size_t kAmounts = kGenerators + kSlots;

    ZoneMarks() noexcept = default;
    /// The amounts in which two zones differ.
    ZoneMarks(const Zone& one, const Zone& other) noexcept;
    void Add(std::size_t amount) noexcept { words_[amount / 64] |= std::uint64_t{1} << amount % 64; }
    bool IsEmpty() const noexcept { return (words_[0] | words_[1]) == 0; }
    /// Calls visit(amount) for each, in ascending order.
    template <class Visit>
    void ForEach(Visit visit) const
    {
        for (std::size_t word = 0; word < words_.size(); ++word)
            for (std::uint64_t bits = words_[word]; bits != 0; bits &= bits - 1)
                visit(word * 64 + static_cast<std::size_t>(std::countr_zero(bits)));
    }
    friend ZoneMarks operator|(ZoneMarks a, const ZoneMarks& b) noexcept
    {
        a.words_[0] |= b.words_[0];
        a.words_[1] |= b.words_[1];
        return a;
    }

private:
    std::array<std::uint64_t, 2> words_{};
};

/// A region, or one side of it.
struct OutZone {
    const Region* region;
    MidiRange keys, velocities;
    std::size_t sample;
    const Zone* values;    ///< absolute, with the settings of the sample; kept by the cache
    ZoneMarks unusual;     ///< amounts that are not those of DefaultZone
    double pitchMoved = 0; ///< semitones of its tuning that make up for what the sample's header cannot say
};
/// A zone of a preset, with the zones of its instrument.
struct OutLayer {
    const Layer* layer;
    std::string name;
    MidiRange keys, velocities; ///< hold all zones
    std::vector<OutZone> zones;
    std::uint64_t shape = 0; ///< equal for layers whose zones differ by the same amounts
    bool isNamed = true;     ///< false: `name` only says which layer of the preset it is
    bool isRight = false;    ///< all zones play the right halves of pairs
    bool mayDivide = false;  ///< the layer's ranges are those that layers joined from parts have
};
struct OutPreset {
    const Instrument* instrument;
    std::string name;
    std::uint16_t bank, program;
};

/// Instruments with layers, by bank and program. Clashes raise the bank, as far as there is a free one.
std::vector<OutPreset> ListPresets(const ExportSet& set);
/// The layers that have anything to play. One with stereo waveforms gives two, left and right.
/// @param major  version of the bank; 1: zones as HeldByVersion1 gives them, with the pitch of the sample
/// @param cache  for all instruments; outlives the layers
std::vector<OutLayer> LayersOf(const Instrument& instrument, const SampleList& samples, unsigned major,
                               ZoneCache& cache);

/// What OutLayer::shape is to be for the layer's zones, of which there is one at least.
std::uint64_t ShapeOf(const OutLayer& layer) noexcept;

/// Zones with their generators and modulators, as the file has them.
struct OutZoneTables {
    std::vector<Bag> bags;
    std::vector<Generator> generators;
    std::vector<Modulator> modulators;
    bool isFull = false; ///< an index would not fit into 16 bits
};
struct OutTables {
    std::vector<PresetHeader> presets;
    std::vector<InstrumentHeader> instruments;
    OutZoneTables presetZones, instrumentZones;
};

enum class BandAxis { None, Velocities, Keys };
/// The layer as one or more: zones with equal ranges on the axis form a band, which states the range in their
/// place. Bands that differ little can share an instrument record. The one that the layer's own articulation
/// agrees with comes first: a reader that joins them takes it from there.
std::vector<OutLayer> BandsOf(const OutLayer& layer, BandAxis axis);
/// Whether the bands of a layer come back as one layer when readers join layers that do not overlap: none of
/// them has room in an earlier layer.
struct Dividable {
    bool byVelocities, byKeys;
};
/// For each layer.
std::vector<Dividable> FindDividable(std::span<const OutLayer> layers);

/// How much of the layers is kept; less of it takes fewer records.
enum class Packing {
    Layers,  ///< each is a zone of its preset
    Bands,   ///< those that come back as one layer are written as bands where that takes fewer generators
    Tightest ///< any may become bands, and layers of different names share an instrument record
};

/// Puts presets into tables. Layers of one name, or without a name, whose zones differ by the same amounts
/// share an instrument record, and hold the difference in the preset.
class TablePacker {
public:
    /// @param major  version of the bank; in version 1 presets cannot hold a difference
    TablePacker(Packing packing, unsigned major) noexcept : packing_(packing), isVersion1_(major == kVersion1)
    {
    }
    /// @param layers  live as long as the packer, unchanged
    void Add(const OutPreset& preset, std::span<const OutLayer> layers);
    /// Adds the terminal records. @return false if more was added than the tables hold
    [[nodiscard]] bool Finish();
    bool IsFull() const noexcept;
    /// What there is most of beyond what a table holds, such as "70000 generators of instruments"; more may
    /// be added to a full one for that, up to a limit.
    std::u16string Excess() const;
    bool IsBeyondCounting() const noexcept;
    const OutTables& Tables() const noexcept { return tables_; }

private:
    std::size_t InstrumentFor(const OutLayer& layer);
    const OutLayer* FindShared(const OutLayer& layer, std::uint64_t hash, std::size_t* place) const;
    std::vector<const OutLayer*> Divided(std::span<const OutLayer> layers);
    std::size_t CostOf(std::span<const OutLayer> bands) const;

    std::optional<Zone> DifferenceFrom(const OutLayer& layer, const OutLayer& held) const noexcept;
    bool MaySharePlace(const OutLayer& layer, const OutLayer& held) const noexcept;

    Packing packing_;
    bool isVersion1_;
    OutTables tables_;
    std::deque<OutLayer> bands_;               ///< of layers that were divided
    std::vector<const OutLayer*> instruments_; ///< what the records hold
    std::unordered_multimap<std::uint64_t, std::size_t> byShape_;
};

/// A name in the file's 8-bit text, without what reading would change.
std::string NarrowNameOf(std::u16string_view name);
std::array<char, 20> NameField(std::string_view name) noexcept;

// What the bank cannot hold.
void NoteSamples(ConversionNotes& notes, const SampleList& samples, const ExportSet& set, unsigned major);
void NotePreset(ConversionNotes& notes, const OutPreset& preset, const std::vector<OutLayer>& layers,
                const SampleList& samples);
/// Samples with more bits than the bank gets.
void NoteWidth(ConversionNotes& notes, const OutSample& sample, unsigned bits);
/// Songs, texts and instruments that do not reach the bank.
void NoteRest(ConversionNotes& notes, const Item& root, const ExportSet& set,
              const std::vector<OutPreset>& presets);

} // namespace vimbo::sf2
