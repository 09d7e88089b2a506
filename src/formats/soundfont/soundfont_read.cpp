// Reading SoundFont banks: presets to instruments, their zones to layers, the instruments' zones to regions.
#include "base/last_error.h"
#include "formats/soundfont/soundfont.h"
#include "formats/soundfont/soundfont_fixed_note.h"
#include "formats/soundfont/soundfont_sounds.h"
#include "formats/soundfont/soundfont_word_hash.h"
#include "formats/wave/wave_texts.h"
#include "model/instrument_threads.h"
#include "model/key_velocity_grid.h"
#include "model/wave_settings.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <memory>
#include <optional>
#include <unordered_map>

namespace vimbo {
namespace sf2 {
namespace {

/// More regions are no bank but an attempt to exhaust memory: few presets can name one instrument of many
/// zones very often.
constexpr std::size_t kMaxRegions = std::size_t{1} << 18;
/// Regions on top of each other in one zone of a preset.
constexpr std::size_t kMaxStacked = 512;
constexpr unsigned kDrumBank = 128;

std::optional<MidiRange> Intersection(MidiRange a, MidiRange b) noexcept
{
    const MidiRange both{std::max(a.low, b.low), std::min(a.high, b.high)};
    return both.low <= both.high ? std::optional(both) : std::nullopt;
}

/// The layers of one zone of a preset. Regions of a layer do not overlap; those that do, as the samples of a
/// stereo pair, go to a further layer.
class LayerStack {
public:
    /// @param keys, velocities  of the preset's zone
    LayerStack(Instrument& instrument, std::u16string_view name, MidiRange keys,
               MidiRange velocities) noexcept
        : instrument_(instrument), name_(name), keys_(keys), velocities_(velocities)
    {
    }

    /// Null if the stack is full.
    Layer* LayerFor(MidiRange keys, MidiRange velocities)
    {
        const vimbo::Zone zone(keys, velocities);
        const auto free =
            std::ranges::find_if(layers_, [&](const Place& at) { return at.grid.IsFree(zone); });
        if (free != layers_.end()) {
            free->grid.Add(zone);
            return free->layer;
        }
        if (layers_.size() == kMaxStacked)
            return nullptr;
        layers_.push_back({&Add(), {}});
        layers_.back().grid.Add(zone);
        return layers_.back().layer;
    }

private:
    struct Place {
        Layer* layer;
        KeyVelocityGrid grid;
    };

    Layer& Add()
    {
        Layer& layer = instrument_.AddLayer(name_);
        const auto restrict = [&layer](MidiRange range, ParamId low, ParamId high) {
            if (range.IsFull())
                return;
            layer.trigger.Set(low, range.low);
            layer.trigger.Set(high, range.high);
        };
        restrict(keys_, kParamLowKey, kParamHighKey);
        restrict(velocities_, kParamLowVelocity, kParamHighVelocity);
        return layer;
    }

    Instrument& instrument_;
    std::u16string_view name_;
    MidiRange keys_, velocities_;
    std::vector<Place> layers_;
};

class BankReader {
public:
    BankReader(Collection& items, const Tables& bank, std::vector<BankSample> samples)
        : items_(items), bank_(bank), samples_(std::move(samples)), instruments_(Count(bank.instruments))
    {
    }

    bool Read()
    {
        for (std::size_t i = 0; i < Count(bank_.presets); ++i)
            if (!ReadPreset(i))
                return Fail(u"The SoundFont bank has too many zones");
        Articulate();
        vote_.Apply(items_);
        NoteLosses();
        return true;
    }

private:
    /// Without the terminal record.
    template <class T>
    static std::size_t Count(const std::vector<T>& records) noexcept
    {
        return records.empty() ? 0 : records.size() - 1;
    }

    bool ReadPreset(std::size_t index)
    {
        const PresetHeader& header = bank_.presets[index];
        auto& instrument = items_.Create<Instrument>(NameOf(header.name));
        instrument.location.word = 0;
        const unsigned bank = header.bank.Get();
        instrument.location.SetDrum(bank == kDrumBank);
        instrument.location.SetBankMsb(bank);
        instrument.location.SetProgram(header.preset.Get());
        if ((header.library.Get() | header.genre.Get() | header.morphology.Get()) != 0)
            ++presetsWithClasses_;
        for (const BankZone& preset : PresetZones(bank_, index, unplaced_))
            if (preset.link < instruments_.size() &&
                !ReadZone(instrument, Held(preset, timbres_.DifferenceOf(preset.values))))
                return false;
        return true;
    }

    /// What is needed of a zone for every region that it becomes.
    struct HeldZone {
        MidiRange keys, velocities;
        SampleSettings sample;
        std::size_t link;
        Sound sound; ///< of the zone alone
        /// Version 1 has no plain sums.
        std::unique_ptr<const BankZone> version1;
        /// The other half of a stereo pair among the instrument's zones; kAlone if there is none.
        std::size_t partner = kAlone;
    };
    static constexpr std::size_t kAlone = static_cast<std::size_t>(-1);
    /// Of a region that has no articulation yet.
    struct RegionSound {
        Region* region;
        const HeldZone* zone;
        SoundSum sum;
        int rootMoved; ///< keys down, which is tuning
    };
    HeldZone Held(const BankZone& zone, const Sound& sound) const
    {
        return {zone.keys,   zone.velocities,
                zone.sample, zone.link,
                sound,       bank_.major == kVersion1 ? std::make_unique<const BankZone>(zone) : nullptr,
                kAlone};
    }

    /// Many presets share an instrument.
    const std::vector<HeldZone>& ZonesOf(std::size_t instrument)
    {
        auto& held = instruments_[instrument];
        if (held)
            return *held;
        const std::vector<BankZone> zones = InstrumentZones(bank_, instrument, unplaced_);
        held.emplace().reserve(zones.size());
        for (const BankZone& zone : zones)
            held->push_back(Held(zone, timbres_.SoundOf(zone.values)));
        if (items_.MayLeaveTwins() && bank_.major != kVersion1)
            PairZones(*held);
        return *held;
    }

    /// Every preset that shares the instrument, and each of its zones, makes regions of pairs: as pairs they
    /// are found once, and only one region of two is made. Where more than two zones are alike it is left to
    /// the fix-up pass to tell which belong together.
    void PairZones(std::vector<HeldZone>& zones) const
    {
        std::vector<std::pair<std::uint64_t, std::size_t>> order;
        for (std::size_t i = 0; i < zones.size(); ++i)
            order.emplace_back(PairKey(zones[i]), i);
        std::ranges::sort(order);
        for (std::size_t first = 0, last; first < order.size(); first = last) {
            for (last = first + 1; last < order.size() && order[last].first == order[first].first;)
                ++last;
            if (last - first != 2)
                continue;
            const std::size_t a = order[first].second, b = order[first + 1].second;
            if (!ArePair(zones[a], zones[b]))
                continue;
            zones[a].partner = b;
            zones[b].partner = a;
        }
    }

    /// Equal for zones that are alike but for their samples and pans.
    static std::uint64_t PairKey(const HeldZone& zone) noexcept
    {
        WordHash hash;
        hash.Add(std::uint64_t{zone.keys.Word()} << 16 | zone.velocities.Word());
        hash.Add(std::uint64_t{zone.sound.timbre} << 32 | zone.sample.exclusiveClass);
        for (std::size_t i = 0; i < zone.sound.mix.size(); ++i)
            if (i != kMixPan)
                hash.Add(static_cast<std::uint32_t>(zone.sound.mix[i]));
        return hash.Get();
    }

    bool ArePair(const HeldZone& a, const HeldZone& b) const noexcept
    {
        constexpr int kHardPan = 375; // of 500: what the fix-up pass takes for a side
        if (a.link >= samples_.size() || b.link >= samples_.size())
            return false;
        const BankSample &one = samples_[a.link], &other = samples_[b.link];
        const auto areSides = [&] {
            if (one.side != BankSample::Side::None && other.side != BankSample::Side::None)
                return one.side != other.side;
            const int pan = a.sound.mix[kMixPan];
            return one.side == other.side && std::abs(pan) >= kHardPan && b.sound.mix[kMixPan] == -pan;
        };
        Mix mix = a.sound.mix;
        mix[kMixPan] = b.sound.mix[kMixPan];
        return one.wave != nullptr && other.wave != nullptr && one.wave != other.wave && areSides() &&
               one.isUnpitched == other.isUnpitched && AreAlike(*one.wave, *other.wave) && a.keys == b.keys &&
               a.velocities == b.velocities && a.sample == b.sample && a.sound.timbre == b.sound.timbre &&
               mix == b.sound.mix;
    }

    static bool AreAlike(const Waveform& a, const Waveform& b) noexcept
    {
        return a.channels == 1 && b.channels == 1 && a.frames != 0 && a.frames == b.frames &&
               a.rateHz == b.rateHz && a.rootKey == b.rootKey && a.fineTune == b.fineTune &&
               a.volume == b.volume && a.loop == b.loop;
    }

    /// A preset that pans the zone plays both halves off their sides.
    bool PlaysPair(const HeldZone& zone, const HeldZone& preset) const noexcept
    {
        return zone.partner != kAlone &&
               (samples_[zone.link].side != BankSample::Side::None || preset.sound.mix[kMixPan] == 0);
    }

    SoundSum SumOf(const HeldZone& zone, const HeldZone& preset)
    {
        if (bank_.major != kVersion1)
            return timbres_.SumOf(zone.sound, preset.sound);
        return timbres_.SumOf(timbres_.SoundOf(SumOfVersion1(*zone.version1, *preset.version1)),
                              timbres_.DifferenceOf(Zone()));
    }

    bool ReadZone(Instrument& instrument, const HeldZone& preset)
    {
        const std::u16string name = NameOf(bank_.instruments[preset.link].name);
        LayerStack layers(instrument, name, preset.keys, preset.velocities);
        const std::vector<HeldZone>& zones = ZonesOf(preset.link);
        for (const HeldZone& zone : zones) {
            const auto keys = Intersection(zone.keys, preset.keys);
            const auto velocities = Intersection(zone.velocities, preset.velocities);
            if (zone.link >= samples_.size() || samples_[zone.link].wave == nullptr || !keys || !velocities)
                continue;
            if (++regions_ > kMaxRegions)
                return false;
            const bool isPair = PlaysPair(zone, preset);
            if (isPair && &zones[zone.partner] < &zone)
                continue; // its twin stands for both
            Layer* layer = layers.LayerFor(*keys, *velocities);
            if (layer == nullptr) {
                stackedTooHigh_ += isPair ? 2 : 1;
                continue;
            }
            const BankSample& sample = samples_[zone.link];
            Region& region = layer->AddRegion(sample.wave->Handle(), *keys, *velocities);
            ApplySample(region, zone, sample);
            const SoundSum sum = SumOf(zone, preset);
            const int rootKey = region.rootKey;
            FoldTuning(region, zone, sum);
            sounds_[&instrument].push_back({&region, &zone, sum, rootKey - region.rootKey});
            vote_.Hear(region, *sample.wave, *sample.wave);
            if (isPair)
                LeaveTwin(region, *sample.wave, *samples_[zones[zone.partner].link].wave, zone.sample);
        }
        return true;
    }

    void LeaveTwin(Region& region, const Waveform& below, Waveform& wave, const SampleSettings& settings)
    {
        vote_.Hear(region, below, wave);
        items_.twins.push_back({region.Handle(), wave.Handle()});
        LoopIfLooped(wave, region.loop);
        if (region.startOffset != settings.startOffset || region.endOffset != settings.endOffset)
            ++offsetsOutside_;
    }

    /// A waveform without a loop gets the first one that is played.
    static void LoopIfLooped(Waveform& wave, const LoopInfo& loop) noexcept
    {
        if (loop.type != LoopType::Off && wave.loop.type == LoopType::Off)
            wave.loop = loop;
    }

    void ApplySample(Region& region, const HeldZone& zone, const BankSample& sample)
    {
        Waveform& wave = *sample.wave;
        region.rootKey = static_cast<std::uint8_t>(RootKeyOf(zone.sample, wave.rootKey, bank_.major));
        region.overrideFlags = Region::kAllOverrides;
        SetLoop(region, zone.sample, wave);
        SetOffsets(region, zone.sample);
        if (zone.sample.exclusiveClass != 0)
            region.trigger.Set(kParamExclusionGroup, static_cast<float>(zone.sample.exclusiveClass));
    }

    /// Tuning beyond what the articulation holds moves the root key, which sounds the same for sounds that
    /// follow the keys in semitones.
    void FoldTuning(Region& region, const HeldZone& zone, const SoundSum& sum) const
    {
        const ParamRow& row = ArticulationParamRow(kArtTuning);
        const double tuning = TuningOf(sum);
        const double excess = tuning - std::clamp<double>(tuning, row.minimum, row.maximum);
        if (excess == 0 || zone.sample.fixedKey >= 0 || !FollowsKeys(zone, sum))
            return;
        const int whole = static_cast<int>(excess < 0 ? std::floor(excess) : std::ceil(excess));
        region.rootKey = static_cast<std::uint8_t>(std::clamp(region.rootKey - whole, 0, 127));
    }

    bool FollowsKeys(const HeldZone& zone, const SoundSum& sum) const
    {
        ArticulationBlock block;
        ReadTimbre(timbres_.ZoneOf(sum), block);
        return block[kArtKeyToPitch] == 1 && !samples_[zone.link].isUnpitched;
    }

    static double TuningOf(const SoundSum& sum) noexcept
    {
        static_assert(kMixGenerators[0] == kGenCoarseTune && kMixGenerators[1] == kGenFineTune);
        return sum.mix[0] + sum.mix[1] * 0.01;
    }

    /// Most of the work of reading a bank, and each instrument's is its own.
    void Articulate()
    {
        TimbreBlocks blocks(timbres_);
        std::atomic<std::uint64_t> lostSends = 0;
        ForEachInstrument(items_, [&](Instrument& instrument) {
            const auto sounds = sounds_.find(&instrument);
            if (sounds == sounds_.end())
                return;
            Articulations articulations(instrument, timbres_, blocks);
            for (const RegionSound& sound : sounds->second)
                Articulate(sound, articulations);
            lostSends += articulations.LostSends();
        });
        lostSends_ = lostSends;
    }

    void Articulate(const RegionSound& sound, Articulations& articulations) const
    {
        Region& region = *sound.region;
        region.articulation = articulations.Of(sound.sum, samples_[sound.zone->link]);
        if (sound.rootMoved != 0)
            region.articulation.Set(kArtTuning, static_cast<float>(TuningOf(sound.sum) - sound.rootMoved));
        FixNote(region, sound.zone->sample);
    }

    /// All overrides are set here and compared with the waveform in the end, as its loop may still change.
    static void SetLoop(Region& region, const SampleSettings& settings, Waveform& wave) noexcept
    {
        LoopInfo loop = wave.loop;
        const double length = wave.frames;
        loop.start = std::clamp(loop.start + settings.loopStartOffset, 0.0, length);
        loop.end = std::clamp(loop.end + settings.loopEndOffset, 0.0, length);
        const bool isLooped = settings.modes % 2 == 1 && loop.end - loop.start >= 1;
        loop.type = isLooped ? LoopType::Forward : LoopType::Off;
        loop.breakOnRelease = isLooped && settings.modes == 3;
        loop.oneShot = settings.modes == 2;
        region.loop = loop;
        LoopIfLooped(wave, loop);
    }

    void SetOffsets(Region& region, const SampleSettings& settings) noexcept
    {
        region.startOffset = std::max(settings.startOffset, 0);
        region.endOffset = std::min(settings.endOffset, 0);
        if (region.startOffset != settings.startOffset || region.endOffset != settings.endOffset)
            ++offsetsOutside_;
    }

    void NoteLosses() const
    {
        if (!items_.GetHost().WantsNotes())
            return;
        for (const auto& [modulator, count] : unplaced_.modulators)
            Note(NoteTopic::Parameter, u"Modulators", count,
                 u"from source " + Number(modulator.first) + u" to generator " + Number(modulator.second));
        for (const auto& [generator, count] : unplaced_.generators)
            Note(NoteTopic::Parameter, u"Generators", count,
                 u"number " + Number(generator) + u" has no meaning where it stands");
        Note(NoteTopic::Effect, u"Sends", lostSends_, u"the instrument has no free effect slot");
        Note(NoteTopic::Region, u"Regions", stackedTooHigh_, u"too many of them overlap");
        Note(NoteTopic::Region, u"Sample offsets", offsetsOutside_, u"they reach outside the sample");
        Note(NoteTopic::Instrument, u"Library, genre and morphology", presetsWithClasses_,
             u"there is no place for them");
    }

    static std::u16string Number(unsigned value)
    {
        const std::string digits = std::to_string(value);
        return {digits.begin(), digits.end()};
    }

    void Note(NoteTopic topic, std::u16string_view what, std::uint64_t count,
              std::u16string_view reason) const
    {
        if (count != 0)
            items_.GetHost().NoteConversion({.fidelity = Fidelity::Lost,
                                             .topic = topic,
                                             .item = {},
                                             .what = std::u16string(what),
                                             .from = {},
                                             .to = {},
                                             .reason = std::u16string(reason),
                                             .count = count});
    }

    Collection& items_;
    const Tables& bank_;
    std::vector<BankSample> samples_;
    std::vector<std::optional<std::vector<HeldZone>>> instruments_;
    Timbres timbres_;
    std::unordered_map<const Instrument*, std::vector<RegionSound>> sounds_;
    WaveSettingsVote vote_;
    Unplaced unplaced_;
    std::size_t regions_ = 0;
    std::uint64_t lostSends_ = 0, stackedTooHigh_ = 0, offsetsOutside_ = 0, presetsWithClasses_ = 0;
};

/// True if the bank is of the kind that the row reads. Versions above 1 are told apart by their samples.
bool FitsVariant(const Tables& bank, std::uint32_t variant) noexcept
{
    if (variant == kSoundFont1)
        return bank.major == kVersion1 && !bank.isPacked && bank.samples.bytes != 0;
    return bank.isPacked == (variant == kSoundFontPacked);
}

bool ReadBank(Collection& collection, FileObject& file, const Tables& bank)
{
    for (const ChunkCursor& texts : bank.info)
        ReadInfoTags(texts, collection);
    return BankReader(collection, bank, ReadSamples(collection, file, bank)).Read();
}

} // namespace
} // namespace sf2

bool ReadSoundFont(Collection& collection, FileObject& file, std::uint32_t variant)
{
    sf2::Tables bank;
    if (!sf2::ReadTables(file, bank) || !sf2::FitsVariant(bank, variant))
        return Fail(variant == kSoundFont1 ? u"Not a SoundFont v1.x file" : u"Not a Sound Font v2.x file");
    return sf2::ReadBank(collection, file, bank);
}

bool ReadSoundFontRange(Collection& collection, FileObject& file, std::uint64_t start, std::uint64_t length)
{
    sf2::Tables bank;
    if (!sf2::ReadTables(file, start, length, bank))
        return Fail(u"Not a Sound Font v2.x file");
    return sf2::ReadBank(collection, file, bank);
}

int DetectSoundFont(std::span<const std::byte> head, std::uint32_t variant, std::uint64_t /*fileSize*/)
{
    RiffFormHead form;
    ByteReader in(head);
    const bool isPacked = variant == kSoundFontPacked;
    if (!in.Read(form) || form.chunk.id != FourCc{"RIFF"} ||
        form.type != (isPacked ? FourCc{"sfpk"} : FourCc{"sfbk"}))
        return 0;
    // Where the version stands if `ifil` comes first.
    constexpr std::size_t kVersionOffset = 32;
    constexpr int kMatch = 6, kFormOnly = 2;
    U16le major;
    if (!in.Skip(kVersionOffset - sizeof(form)) || !in.Read(major))
        return kFormOnly;
    const unsigned wanted = variant == kSoundFont1 ? 1 : variant == kSoundFont3 ? 3 : 2;
    return major.Get() == wanted ? kMatch : kFormOnly;
}

} // namespace vimbo
