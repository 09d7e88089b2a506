// Reading DLS banks: instruments with their regions, over a pool of waveforms that stay on disk.
#include "base/last_error.h"
#include "base/text.h"
#include "formats/dls/dls.h"
#include "formats/dls/dls_losses.h"
#include "formats/dls/dls_regions.h"
#include "formats/dls/dls_units.h"
#include "formats/midi/midi.h"
#include "formats/wave/wave_texts.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <optional>

namespace vimbo {
namespace dls {
namespace {

/// More regions are no bank but an attempt to exhaust memory.
constexpr std::size_t kMaxRegions = std::size_t{1} << 18;
constexpr std::size_t kMaxTextBytes = 1024;
constexpr std::u16string_view kTitle = u"Vimbo Studio";
constexpr std::u16string_view kMissingTable = u"DLS parser warning: Mandatory 'ptbl' chunk is missing, will "
                                              u"attempt to read file anyway, but may not be "
                                              u"correct!";

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

enum class Songs : bool { LeaveOut, Read };

class BankReader {
public:
    BankReader(Collection& items, FileObject& file, std::uint64_t start, std::uint64_t end,
               Songs songs) noexcept
        : items_(items), file_(file), chunks_(file, start, end, std::endian::little), takesSongs_(songs)
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
            losses_.waves = pool_.ReadWaves(items_, file_, *waves);
        }
        if (instruments && !ReadInstruments(*instruments))
            return Fail(u"The DLS bank has too many regions");
        for (Region& region : items_.All<Region>())
            region.DropEqualOverrides();
        const auto all = items_.All<Instrument>();
        if (isEarlier_ && all.begin() != all.end())
            (*all.begin()).CompactLayers(MoveParamsUp::No, KeepArticulation::Yes);
        ReadSongs();
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
                else if (type == FourCc{"lRMI"})
                    songs_.push_back({chunks_.Start() + sizeof(type), chunks_.Left()});
            }
        }
        return true;
    }

    void ReadSongs()
    {
        for (const auto& [start, length] : songs_) {
            Song* song = nullptr;
            if (takesSongs_ == Songs::LeaveOut || !midi::ReadRmiRange(items_, file_, start, length, song))
                ++losses_.songs;
        }
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
            else if (list.Id() == FourCc{"cdl "})
                ++losses_.conditions;
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
        losses_.connections += CountUnknown(common);
        Articulations articulations(instrument, losses_.sends);
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
            losses_.conditions += parts.isConditional ? 1 : 0;
            losses_.connections += CountUnknown(parts.connections);
            losses_.loops += parts.sample && parts.sample->head.loopCount.Get() > 1 ? 1 : 0;
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
            ++(entry == nullptr ? losses_.missingCues : losses_.missingWaves);
            return nullptr;
        }
        const RegionHeader& header = parts.header;
        const MidiRange keys = RangeOf(header.lowKey, header.highKey);
        const MidiRange velocities = RangeOf(header.lowVelocity, header.highVelocity);
        Layer* layer = layers.LayerFor(parts.layer, Zone(keys, velocities));
        if (layer == nullptr) {
            ++losses_.stackedTooHigh;
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
        if (losses_.missingCues != 0)
            host.ShowMessage(u"Missing cue", kTitle, MessageIcon::Warning);
        if (losses_.missingWaves != 0)
            host.ShowMessage(u"Missing wave", kTitle, MessageIcon::Warning);
        TellLosses(host, losses_);
    }

    Collection& items_;
    FileObject& file_;
    ChunkCursor chunks_;
    Pool pool_;
    Songs takesSongs_;
    struct Range {
        std::uint64_t start, length;
    };
    std::vector<Range> songs_; ///< images in the file
    bool isEarlier_ = false;
    std::size_t regions_ = 0;
    ReadLosses losses_;
};

bool ReadRange(Collection& collection, FileObject& file, std::uint64_t start, std::uint64_t length,
               Songs songs)
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
    return BankReader(collection, file, std::min(start + sizeof(form), end), end, songs).Read();
}

} // namespace
} // namespace dls

bool ReadDlsRange(Collection& collection, FileObject& file, std::uint64_t start, std::uint64_t length)
{
    return dls::ReadRange(collection, file, start, length, dls::Songs::LeaveOut);
}

bool ReadDls(Collection& collection, FileObject& file, std::uint32_t /*variant*/)
{
    return dls::ReadRange(collection, file, 0, file.Size(), dls::Songs::Read);
}

int DetectDls(std::span<const std::byte> head, std::uint32_t /*variant*/, std::uint64_t /*fileSize*/)
{
    RiffFormHead form;
    const bool isForm =
        ByteReader(head).Read(form) && form.chunk.id == FourCc{"RIFF"} && form.type == FourCc{"DLS "};
    return isForm ? 6 : 0;
}

} // namespace vimbo
