// Reading DLS banks: instruments with their regions, over a pool of waveforms that stay on disk.
#include "base/last_error.h"
#include "base/text.h"
#include "formats/dls/dls.h"
#include "formats/dls/dls_pool.h"
#include "formats/dls/dls_units.h"
#include "formats/wave/wave_texts.h"
#include "model/key_velocity_grid.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <optional>

namespace vimbo {
namespace dls {
namespace {

/// More regions are no bank but an attempt to exhaust memory; so are more on top of each other.
constexpr std::size_t kMaxRegions = std::size_t{1} << 18;
constexpr std::size_t kMaxLayers = 512;
constexpr std::size_t kMaxConnections = 4096; ///< of one list; the format knows about a hundred
constexpr std::size_t kMaxTextBytes = 1024;
constexpr std::u16string_view kTitle = u"Vimbo Studio";
constexpr std::u16string_view kMissingTable = u"DLS parser warning: Mandatory 'ptbl' chunk is missing, will "
                                              u"attempt to read file anyway, but may not be "
                                              u"correct!";

bool IsList(ChunkCursor& chunk, FourCc& type) noexcept
{
    return chunk.Id() == FourCc{"LIST"} && chunk.Read(type);
}

/// Appends the blocks of `art1` and `art2`.
void ReadConnections(ChunkCursor list, std::vector<Connection>& out)
{
    while (list.Next()) {
        TableHead head;
        if ((list.Id() != FourCc{"art1"} && list.Id() != FourCc{"art2"}) || !list.Read(head))
            continue;
        if (head.bytes.Get() > sizeof(head))
            list.Skip(head.bytes.Get() - sizeof(head));
        ConnectionBlock block;
        for (std::uint32_t i = 0; i < head.count.Get() && out.size() < kMaxConnections && list.Read(block);
             ++i)
            out.push_back({block.source.Get(), block.control.Get(), block.destination.Get(),
                           block.transform.Get(), block.scale.Get()});
    }
}

bool IsArticulation(FourCc type) noexcept
{
    return type == FourCc{"lart"} || type == FourCc{"lar2"};
}

/// A region as the file has it.
struct RegionParts {
    RegionHeader header{};
    unsigned layer = 0;
    WaveLink link{};
    bool hasLink = false;
    std::optional<SampleRecord> sample;
    std::vector<Connection> connections;
};

RegionParts ReadRegion(ChunkCursor list)
{
    RegionParts parts;
    while (list.Next()) {
        FourCc type;
        if (list.Id() == FourCc{"rgnh"} && list.Read(parts.header)) {
            U16le layer;
            if (list.Read(layer))
                parts.layer = layer.Get();
        } else if (list.Id() == FourCc{"wlnk"}) {
            parts.hasLink = list.Read(parts.link);
        } else if (list.Id() == FourCc{"wsmp"}) {
            parts.sample = ReadSampleRecord(list);
        } else if (IsList(list, type) && IsArticulation(type)) {
            ReadConnections(list.Inner(), parts.connections);
        }
    }
    return parts;
}

MidiRange RangeOf(U16le low, U16le high) noexcept
{
    const auto edge = [](U16le word) {
        return static_cast<std::uint8_t>(std::min<unsigned>(word.Get(), 127));
    };
    const MidiRange range{edge(low), edge(high)};
    return range.low <= range.high ? range : MidiRange{range.high, range.low};
}

/// The layers of an instrument: those that the file numbers, and further ones for what overlaps.
class LayerStack {
public:
    explicit LayerStack(Instrument& instrument) noexcept : instrument_(instrument) {}

    /// Null if too many regions lie on top of each other.
    Layer* LayerFor(unsigned number, const Zone& zone)
    {
        const auto free = std::ranges::find_if(
            layers_, [&](const Place& at) { return at.number == number && at.grid.IsFree(zone); });
        if (free != layers_.end()) {
            free->grid.Add(zone);
            return free->layer;
        }
        if (layers_.size() == kMaxLayers)
            return nullptr;
        layers_.push_back({number, &instrument_.AddLayer(), {}});
        layers_.back().grid.Add(zone);
        return layers_.back().layer;
    }

private:
    struct Place {
        unsigned number;
        Layer* layer;
        KeyVelocityGrid grid;
    };
    Instrument& instrument_;
    std::vector<Place> layers_;
};

/// The articulations of an instrument's regions, many of which are equal; equal ones share their values.
class Articulations {
public:
    Articulations(Instrument& instrument, std::uint64_t& lostSends) noexcept
        : instrument_(instrument), lostSends_(lostSends)
    {
    }

    /// What holds for all regions that do not say otherwise.
    void SetCommon(std::vector<Connection> connections)
    {
        common_ = std::move(connections);
        instrument_.articulation = ToArticulation(common_, {}, Sends(common_));
    }

    const ArticulationBlock& Of(const std::vector<Connection>& own, const RegionLevel& level)
    {
        auto [place, isNew] = blocks_.try_emplace({own, level});
        if (isNew) {
            std::vector<Connection> all = common_;
            all.insert(all.end(), own.begin(), own.end());
            place->second = ToArticulation(all, level, Sends(all));
            place->second.MarkDifferences(instrument_.articulation);
        }
        return place->second;
    }

private:
    SendSlots Sends(const std::vector<Connection>& connections)
    {
        int lost = 0;
        const SendSlots slots = ProvideSends(connections, instrument_, lost);
        lostSends_ += static_cast<std::uint64_t>(lost);
        return slots;
    }

    Instrument& instrument_;
    std::uint64_t& lostSends_;
    std::vector<Connection> common_;
    std::map<std::pair<std::vector<Connection>, RegionLevel>, ArticulationBlock> blocks_;
};

/// Regions of a phase group, from which pairs are to be found.
struct PhaseLink {
    Region* region;
    unsigned group;
    std::uint32_t channel;
    bool isMaster;
    bool saysPan;
};

/// A pair has one region at each side, of the same ranges; the left one leads. Its halves go to the sides,
/// unless they say where they stand. All others keep their group.
void SettlePhaseGroups(std::vector<PhaseLink>& links)
{
    using Key = std::array<unsigned, 3>;
    std::map<Key, std::vector<PhaseLink*>> rights;
    const auto keyOf = [](const PhaseLink& link) {
        const TriggerParams& trigger = link.region->trigger;
        return Key{trigger.keys.Word(), trigger.velocities.Word(), link.group};
    };
    for (PhaseLink& link : links)
        if (link.channel == kChannelRight)
            rights[keyOf(link)].push_back(&link);
    for (auto& [key, list] : rights)
        std::ranges::reverse(list); // taken from the back
    const auto place = [](PhaseLink& link, float pan) {
        if (!link.saysPan)
            link.region->articulation.Set(kArtPan, pan);
        link.region = nullptr;
    };
    for (PhaseLink& link : links) {
        const auto found = link.channel == kChannelLeft ? rights.find(keyOf(link)) : rights.end();
        if (found == rights.end() || found->second.empty())
            continue;
        place(*found->second.back(), 1);
        found->second.pop_back();
        place(link, -1);
    }
    for (const PhaseLink& link : links)
        if (link.region != nullptr) {
            link.region->phaseGroup = static_cast<std::uint16_t>(link.group);
            link.region->phaseMaster = link.isMaster ? 1 : 0;
        }
}

std::u16string DefaultInstrumentName(MidiLocation location)
{
    const std::string text = std::string(location.IsDrum() ? "Drums" : "Instrument") + " " +
                             std::to_string(location.BankMsb()) + "-" + std::to_string(location.BankLsb()) +
                             ": " + std::to_string(location.Program());
    return {text.begin(), text.end()};
}

/// True for the banks of earlier versions, which stored the first instrument with its layers apart:
/// "Vimbo ... 12.02" and below.
bool IsFromEarlierVersion(std::string_view software) noexcept
{
    constexpr std::string_view kMaker = "Vimbo ";
    constexpr unsigned kLastSplitting = 1202;
    if (!software.starts_with(kMaker))
        return false;
    const auto isDigit = [](char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; };
    std::size_t at = kMaker.size();
    while (at < software.size() && !isDigit(software[at]))
        ++at;
    const auto number = [&](unsigned& out) {
        const std::size_t first = at;
        for (out = 0; at < software.size() && isDigit(software[at]) && out < kLastSplitting; ++at)
            out = out * 10 + static_cast<unsigned>(software[at] - '0');
        return at != first;
    };
    unsigned major = 0, minor = 0;
    if (!number(major))
        return false;
    if (at < software.size() && software[at] == '.') {
        ++at;
        number(minor);
    }
    return major * 100 + minor <= kLastSplitting;
}

class BankReader {
public:
    BankReader(Collection& items, FileObject& file, std::uint64_t start, std::uint64_t end) noexcept
        : items_(items), file_(file), chunks_(file, start, end, std::endian::little)
    {
    }

    bool Read()
    {
        std::optional<ChunkCursor> instruments, waves;
        if (!ReadChunks(instruments, waves))
            return false;
        if (waves) {
            if (!pool_.HasTable())
                items_.GetHost().ShowMessage(kMissingTable, kTitle, MessageIcon::Warning);
            pool_.ReadWaves(items_, file_, *waves);
        }
        if (instruments && !ReadInstruments(*instruments))
            return Fail(u"The DLS bank has too many regions");
        for (Region& region : items_.All<Region>())
            region.DropEqualOverrides();
        const auto all = items_.All<Instrument>();
        if (isEarlier_ && all.begin() != all.end())
            (*all.begin()).CompactLayers(MoveParamsUp::No, KeepArticulation::Yes);
        ReportLosses();
        return true;
    }

private:
    bool ReadChunks(std::optional<ChunkCursor>& instruments, std::optional<ChunkCursor>& waves)
    {
        while (chunks_.Next()) {
            FourCc type;
            if (chunks_.Id() == FourCc{"ptbl"}) {
                if (!pool_.HasTable() && !pool_.ReadTable(chunks_))
                    return false;
            } else if (IsList(chunks_, type)) {
                if (type == FourCc{"lins"} && !instruments)
                    instruments.emplace(chunks_.Inner());
                else if (type == FourCc{"wvpl"} && !waves)
                    waves.emplace(chunks_.Inner());
                else if (type == FourCc{"INFO"})
                    ReadTexts(chunks_.Inner());
            }
        }
        return true;
    }

    void ReadTexts(ChunkCursor tags)
    {
        ReadInfoTags(tags, items_);
        while (tags.Next())
            if (tags.Id() == FourCc{"ISFT"})
                isEarlier_ = IsFromEarlierVersion(NarrowTextOf(tags.ReadRest(kMaxTextBytes)));
    }

    bool ReadInstruments(ChunkCursor list)
    {
        FourCc type;
        while (list.Next())
            if (IsList(list, type) && type == FourCc{"ins "} && !ReadInstrument(list.Inner()))
                return false;
        return true;
    }

    bool ReadInstrument(ChunkCursor list)
    {
        std::vector<ChunkCursor> regions, texts;
        std::vector<Connection> common;
        InstrumentHeader header{};
        while (list.Next()) {
            FourCc type;
            if (list.Id() == FourCc{"insh"})
                static_cast<void>(list.Read(header));
            else if (!IsList(list, type))
                continue;
            else if (type == FourCc{"lrgn"})
                regions.push_back(list.Inner());
            else if (IsArticulation(type))
                ReadConnections(list.Inner(), common);
            else if (type == FourCc{"INFO"})
                texts.push_back(list.Inner());
        }
        Instrument& instrument = MakeInstrument(header, texts);
        Articulations articulations(instrument, lostSends_);
        articulations.SetCommon(std::move(common));
        return std::ranges::all_of(
            regions, [&](const ChunkCursor& inner) { return ReadRegions(instrument, inner, articulations); });
    }

    Instrument& MakeInstrument(const InstrumentHeader& header, const std::vector<ChunkCursor>& texts)
    {
        MidiLocation location;
        const std::uint32_t bank = header.bank.Get();
        location.SetDrum((bank & kDrumBank) != 0);
        location.SetBankLsb(bank & MidiLocation::kSevenBits);
        location.SetBankMsb(bank >> 8 & MidiLocation::kSevenBits);
        location.SetProgram(header.program.Get());
        auto& instrument = items_.Create<Instrument>(DefaultInstrumentName(location));
        instrument.location = location;
        for (const ChunkCursor& tags : texts)
            ReadInfoTags(tags, instrument);
        return instrument;
    }

    bool ReadRegions(Instrument& instrument, ChunkCursor list, Articulations& articulations)
    {
        LayerStack layers(instrument);
        std::vector<PhaseLink> links;
        FourCc type;
        while (list.Next()) {
            if (!IsList(list, type) || (type != FourCc{"rgn "} && type != FourCc{"rgn2"}))
                continue;
            if (++regions_ > kMaxRegions)
                return false;
            const RegionParts parts = ReadRegion(list.Inner());
            Region* region = AddRegion(layers, parts, articulations);
            const WaveLink& link = parts.link;
            if (region != nullptr && link.phaseGroup.Get() != 0)
                links.push_back({region, link.phaseGroup.Get(), link.channel.Get(),
                                 (link.options.Get() & kLinkPhaseMaster) != 0, SaysPan(parts.connections)});
        }
        SettlePhaseGroups(links);
        return true;
    }

    /// Null if the region is dropped.
    Region* AddRegion(LayerStack& layers, const RegionParts& parts, Articulations& articulations)
    {
        Pool::Entry* entry = parts.hasLink ? pool_.Find(parts.link.tableIndex.Get()) : nullptr;
        if (entry == nullptr || entry->wave == nullptr) {
            ++(entry == nullptr ? missingCues_ : missingWaves_);
            return nullptr;
        }
        const RegionHeader& header = parts.header;
        const MidiRange keys = RangeOf(header.lowKey, header.highKey);
        const MidiRange velocities = RangeOf(header.lowVelocity, header.highVelocity);
        Layer* layer = layers.LayerFor(parts.layer, Zone(keys, velocities));
        if (layer == nullptr) {
            ++stackedTooHigh_;
            return nullptr;
        }
        Region& region = layer->AddRegion(entry->wave->Handle(), keys, velocities);
        const RegionLevel level = parts.sample ? ApplySample(region, *entry, *parts.sample) : RegionLevel{};
        region.articulation = articulations.Of(parts.connections, level);
        if (header.keyGroup.Get() != 0)
            region.trigger.Set(kParamExclusionGroup, header.keyGroup.Get());
        if ((header.options.Get() & kOptionSelfNonExclusive) != 0)
            region.trigger.Set(kParamNoteExclusionMode, static_cast<float>(NoteExclusion::NonExclusive));
        return &region;
    }

    /// Root key and loop override the waveform's; a waveform that says nothing takes the first region's.
    /// @return what the record says beyond that
    static RegionLevel ApplySample(Region& region, Pool::Entry& entry, const SampleRecord& record)
    {
        Waveform& wave = *entry.wave;
        const DlsSample sample = SampleFromWsmp(record.head, record.loop ? &*record.loop : nullptr);
        if (!entry.record) {
            entry.record = record.head;
            wave.rootKey = sample.tuning.rootKey;
            wave.fineTune = sample.tuning.cents;
            wave.loop = sample.loop;
        }
        region.overrideFlags = Region::kAllOverrides;
        region.loop = sample.loop;
        if (sample.loop.type == LoopType::Off) {
            region.loop = wave.loop; // the rest of it says nothing
            region.loop.type = LoopType::Off;
        }
        const unsigned key = record.head.unityNote.Get();
        int cents = record.head.cents.Get();
        // The waveform's key takes what its tuning has beyond a semitone.
        const bool isSame = key == entry.record->unityNote.Get() && cents == entry.record->cents.Get();
        region.rootKey = isSame ? wave.rootKey : static_cast<std::uint8_t>(std::min(key, 127u));
        cents = isSame ? 0 : cents - wave.fineTune;
        WsmpHead own;
        WsmpLoop loop;
        SampleToWsmp({{}, wave.volume, {}}, own, loop);
        const double gain = record.head.gain.Get();
        return {(gain - own.gain.Get()) / kScalePerDb, cents};
    }

    void ReportLosses() const
    {
        Host& host = items_.GetHost();
        if (missingCues_ != 0)
            host.ShowMessage(u"Missing cue", kTitle, MessageIcon::Warning);
        if (missingWaves_ != 0)
            host.ShowMessage(u"Missing wave", kTitle, MessageIcon::Warning);
        if (!host.WantsNotes())
            return;
        Note(NoteTopic::Region, u"Regions", missingCues_, u"Missing cue");
        Note(NoteTopic::Region, u"Regions", missingWaves_, u"Missing wave");
        Note(NoteTopic::Region, u"Regions", stackedTooHigh_, u"too many of them overlap");
        Note(NoteTopic::Effect, u"Sends", lostSends_, u"the instrument has no free effect slot");
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
    FileObject& file_;
    ChunkCursor chunks_;
    Pool pool_;
    bool isEarlier_ = false;
    std::size_t regions_ = 0;
    std::uint64_t missingCues_ = 0, missingWaves_ = 0, stackedTooHigh_ = 0, lostSends_ = 0;
};

} // namespace
} // namespace dls

bool ReadDlsRange(Collection& collection, FileObject& file, std::uint64_t start, std::uint64_t length)
{
    RiffFormHead form;
    const std::uint64_t size = file.Size();
    const bool isForm = start <= size && file.Seek(start) && file.Read(form) &&
                        form.chunk.id == FourCc{"RIFF"} && form.type == FourCc{"DLS "};
    if (!isForm)
        return Fail(u"Not a RIFF DLS file");
    constexpr std::uint32_t kSmallest = 12, kOpen = 0xFFFFFFFF; // sizes that were never filled in
    const std::uint32_t claimed = form.chunk.size.Get();
    std::uint64_t room = std::min(length, size - start);
    if (claimed >= kSmallest && claimed != kOpen)
        room = std::min<std::uint64_t>(room, sizeof(RiffChunkHead) + std::uint64_t{claimed});
    const std::uint64_t end = start + room;
    return dls::BankReader(collection, file, std::min(start + sizeof(form), end), end).Read();
}

bool ReadDls(Collection& collection, FileObject& file, std::uint32_t /*variant*/)
{
    return ReadDlsRange(collection, file, 0, file.Size());
}

int DetectDls(std::span<const std::byte> head, std::uint32_t /*variant*/, std::uint64_t /*fileSize*/)
{
    RiffFormHead form;
    const bool isForm =
        ByteReader(head).Read(form) && form.chunk.id == FourCc{"RIFF"} && form.type == FourCc{"DLS "};
    return isForm ? 6 : 0;
}

} // namespace vimbo
