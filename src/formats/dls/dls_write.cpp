// Writing DLS banks. All lists and sizes are settled before the first byte is written; the samples then go
// from their sources to the file in pieces.
#include "base/last_error.h"
#include "base/text.h"
#include "formats/dls/dls.h"
#include "formats/dls/dls_build.h"
#include "formats/dls/dls_losses.h"
#include "formats/midi/midi.h"
#include "formats/midi/midi_losses.h"
#include "formats/wave/wave_records.h"
#include "formats/wave/wave_texts.h"
#include "model/collection.h"
#include "model/song.h"

#include <algorithm>
#include <limits>

namespace vimbo {
namespace dls {
namespace {

constexpr std::string_view kSoftware = "Vimbo Studio v12.7";
constexpr std::size_t kSoftwareBytes = 20;
constexpr std::u16string_view kCannotWrite = u"Couldn't write to file!";
constexpr std::uint16_t kTagPcm = 1;

constexpr std::size_t kLevel1MelodicRegions = 16;
constexpr std::size_t kLevel1DrumRegions = 128;

void WriteHead(ByteWriter& out, FourCc id, std::uint64_t bytes)
{
    out.Write(RiffChunkHead{id, static_cast<std::uint32_t>(bytes)});
}

void WriteList(ByteWriter& out, FourCc type, const ByteWriter& body)
{
    WriteHead(out, FourCc{"LIST"}, sizeof(FourCc) + body.Size());
    out.Write(type);
    out.Append(body.Bytes());
}

void WriteText(ByteWriter& out, FourCc id, std::string_view text, std::size_t bytes)
{
    WriteHead(out, id, bytes);
    out.Append(text);
    out.Fill(bytes - text.size());
}

void WriteInfo(ByteWriter& out, const TextItem& item, std::string_view name)
{
    ByteWriter tags;
    for (const InfoTag& tag : kInfoTags) {
        const std::string_view text = tag.text == kTextName ? name : item.GetTextNarrow(tag.text);
        if (!text.empty())
            WriteText(tags, tag.id, text, (text.size() + 2) & ~std::size_t{1});
    }
    if (item.Kind() != ItemKind::Waveform)
        WriteText(tags, FourCc{"ISFT"}, kSoftware, kSoftwareBytes);
    WriteList(out, FourCc{"INFO"}, tags);
}

void WriteRecord(ByteWriter& out, const OutRecord& record)
{
    const bool isLooped = record.head.loopCount.Get() != 0;
    WriteHead(out, FourCc{"wsmp"}, sizeof(record.head) + (isLooped ? sizeof(record.loop) : 0));
    out.Write(record.head);
    if (isLooped)
        out.Write(record.loop);
}

void WriteConnections(ByteWriter& out, const std::vector<Connection>& connections, bool isLevel2)
{
    if (connections.empty())
        return;
    ByteWriter list;
    WriteHead(list, isLevel2 ? FourCc{"art2"} : FourCc{"art1"},
              sizeof(TableHead) + connections.size() * sizeof(ConnectionBlock));
    list.Write(TableHead{sizeof(TableHead), static_cast<std::uint32_t>(connections.size())});
    for (const Connection& at : connections)
        list.Write(ConnectionBlock{at.source, at.control, at.destination, at.transform, at.scale});
    WriteList(out, isLevel2 ? FourCc{"lar2"} : FourCc{"lart"}, list);
}

RegionHeader HeaderOf(const Region& region) noexcept
{
    const TriggerParams& trigger = region.trigger;
    RegionHeader header;
    header.lowKey = trigger.keys.low;
    header.highKey = trigger.keys.high;
    header.lowVelocity = trigger.velocities.low;
    header.highVelocity = trigger.velocities.high;
    if (trigger.noteExclusionMode == static_cast<std::uint8_t>(NoteExclusion::NonExclusive))
        header.options = kOptionSelfNonExclusive;
    header.keyGroup = trigger.exclusionGroup;
    return header;
}

void WriteRegion(ByteWriter& out, const OutRegion& region, const Waveform& wave, bool isLevel2)
{
    ByteWriter body;
    WriteHead(body, FourCc{"rgnh"}, sizeof(RegionHeader) + (isLevel2 ? sizeof(U16le) : 0));
    body.Write(HeaderOf(*region.region));
    if (isLevel2)
        body.Write(U16le(region.layer));
    if (const OutRecord record = RecordOf(region, wave); !IsSame(record, RecordOf(wave)))
        WriteRecord(body, record);
    WriteHead(body, FourCc{"wlnk"}, sizeof(WaveLink));
    body.Write(region.link);
    WriteConnections(body, region.sound.connections, isLevel2);
    WriteList(out, isLevel2 ? FourCc{"rgn2"} : FourCc{"rgn "}, body);
}

void WriteInstrument(ByteWriter& out, const OutInstrument& from, const WaveList& waves, bool isLevel2)
{
    const MidiLocation location = from.instrument->location;
    ByteWriter regions, body;
    for (const OutRegion& region : from.regions)
        WriteRegion(regions, region, *waves.waves[region.wave].wave, isLevel2);
    WriteHead(body, FourCc{"insh"}, sizeof(InstrumentHeader));
    body.Write(
        InstrumentHeader{static_cast<std::uint32_t>(from.regions.size()),
                         (location.IsDrum() ? kDrumBank : 0) | location.BankMsb() << 8 | location.BankLsb(),
                         location.Program()});
    WriteList(body, FourCc{"lrgn"}, regions);
    WriteInfo(body, *from.instrument, from.instrument->GetTextNarrow(kTextName));
    WriteList(out, FourCc{"ins "}, body);
}

void WriteFormat(ByteWriter& out, const OutWave& wave)
{
    const Coding& coding = *wave.coding;
    FmtCommon common;
    common.tag = coding.tag;
    common.channels = static_cast<std::uint16_t>(wave.channels);
    common.rateHz = wave.wave->rateHz;
    ByteWriter fields;
    if (coding.IsMp3()) {
        common.blockAlign = std::uint16_t{1};
        common.averageBytes = wave.mp3.kbit * 1000 / 8;
        fields.Write(Mp3FieldsOf(wave.wave->rateHz, wave.mp3.kbit));
    } else {
        const std::uint64_t align =
            coding.isIma ? kImaBlockBytes * wave.channels : wave.channels * coding.bits / 8u;
        common.blockAlign = static_cast<std::uint16_t>(align);
        common.averageBytes =
            static_cast<std::uint32_t>(wave.wave->rateHz * align / (coding.isIma ? kImaBlockFrames : 1u));
        fields.Write(U16le(coding.bits));
        fields.Write(U16le(coding.isIma ? std::uint16_t{sizeof(U16le)} : std::uint16_t{0}));
        if (coding.isIma)
            fields.Write(U16le(kImaBlockFrames));
    }
    WriteHead(out, FourCc{"fmt "}, sizeof(common) + fields.Size());
    out.Write(common);
    out.Append(fields.Bytes());
    if (coding.tag == kTagPcm)
        return;
    WriteHead(out, FourCc{"fact"}, sizeof(U32le));
    out.Write(U32le(wave.wave->frames));
}

/// What stands before and behind a waveform's samples.
struct WaveFrame {
    ByteWriter front, back;
    std::uint64_t Bytes(const OutWave& wave) const noexcept
    {
        return front.Size() + wave.DataBytes() + back.Size();
    }
};

WaveFrame FrameOf(const OutWave& wave)
{
    WaveFrame frame;
    ByteWriter body, info;
    WriteFormat(body, wave);
    WriteRecord(body, RecordOf(*wave.wave));
    WriteHead(body, FourCc{"data"}, wave.DataBytes());
    const std::string name =
        wave.channel == OutWave::kWhole ? wave.wave->GetTextNarrow(kTextName) : WideToNarrow(wave.Name());
    frame.back.Fill(static_cast<std::size_t>(wave.DataBytes() & 1));
    WriteInfo(frame.back, *wave.wave, name);
    WriteHead(frame.front, FourCc{"LIST"},
              sizeof(FourCc) + body.Size() + wave.DataBytes() + frame.back.Size());
    frame.front.Write(FourCc{"wave"});
    frame.front.Append(body.Bytes());
    return frame;
}

bool Put(FileObject& file, std::span<const std::byte> bytes)
{
    return file.WriteAll(bytes) || Fail(kCannotWrite);
}

/// Puts the parts of the file together.
class BankWriter {
public:
    /// @param song  RIFF-MIDI image; empty for none
    BankWriter(const TextItem& root, WaveList& waves, const std::vector<OutInstrument>& instruments,
               std::uint32_t level, std::span<const std::byte> song)
        : waves_(waves)
    {
        const auto count = static_cast<std::uint32_t>(instruments.size());
        ByteWriter list;
        for (const OutInstrument& instrument : instruments)
            WriteInstrument(list, instrument, waves, level >= kDlsLevel2);
        WriteHead(front_, FourCc{"colh"}, sizeof(U32le));
        front_.Write(U32le(count));
        WriteList(front_, FourCc{"lins"}, list);
        WritePool();
        if (!song.empty()) {
            WriteHead(back_, FourCc{"LIST"}, sizeof(FourCc) + song.size());
            back_.Write(FourCc{"lRMI"});
            back_.Append(song);
        }
        WriteInfo(back_, root, root.GetTextNarrow(kTextName));
    }

    bool Fits() const noexcept { return FormBytes() <= std::numeric_limits<std::uint32_t>::max(); }

    bool Write(FileObject& file, Host& host)
    {
        ByteWriter form;
        WriteHead(form, FourCc{"RIFF"}, FormBytes());
        form.Write(FourCc{"DLS "});
        if (!Put(file, form.Bytes()) || !Put(file, front_.Bytes()))
            return false;
        for (std::size_t i = 0; i < waves_.waves.size(); ++i) {
            if (host.IsCancelled())
                return Fail(u"Save aborted!");
            const OutWave& wave = waves_.waves[i];
            host.SetProgress(wave.wave->GetName(),
                             static_cast<double>(i) / static_cast<double>(waves_.waves.size()));
            if (!Put(file, frames_[i].front.Bytes()) ||
                !WriteSamples(wave, waves_.scratch.File(), file, host) || !Put(file, frames_[i].back.Bytes()))
                return false;
        }
        host.SetProgress(u"");
        return Put(file, back_.Bytes());
    }

private:
    static bool WriteSamples(const OutWave& wave, FileObject& scratch, FileObject& file, Host& host)
    {
        if (WriteFrames(wave, scratch, file))
            return true;
        const std::u16string reason = LastError();
        host.ShowMessage(reason, u"Error!", MessageIcon::Error);
        return Fail(reason);
    }

    /// The table of cues, and the head of the list of waveforms.
    void WritePool()
    {
        WriteHead(front_, FourCc{"ptbl"}, sizeof(TableHead) + waves_.waves.size() * sizeof(U32le));
        front_.Write(TableHead{sizeof(TableHead), static_cast<std::uint32_t>(waves_.waves.size())});
        for (const OutWave& wave : waves_.waves) {
            front_.Write(U32le(static_cast<std::uint32_t>(poolBytes_)));
            poolBytes_ += frames_.emplace_back(FrameOf(wave)).Bytes(wave);
        }
        WriteHead(front_, FourCc{"LIST"}, sizeof(FourCc) + poolBytes_);
        front_.Write(FourCc{"wvpl"});
    }

    std::uint64_t FormBytes() const noexcept
    {
        return sizeof(FourCc) + front_.Size() + poolBytes_ + back_.Size();
    }

    WaveList& waves_;
    std::vector<WaveFrame> frames_;
    std::uint64_t poolBytes_ = 0;
    ByteWriter front_; ///< from `colh` to the head of the list of waveforms
    ByteWriter back_;
};

std::size_t Level1Limit(const Instrument& instrument) noexcept
{
    return instrument.location.IsDrum() ? kLevel1DrumRegions : kLevel1MelodicRegions;
}

/// Level 1 has few regions; the user says once for the file what is to become of the rest.
void LimitRegions(std::vector<OutInstrument>& instruments, Host& host, ConversionNotes& notes)
{
    const auto isOver = [](const OutInstrument& out) {
        return out.regions.size() > Level1Limit(*out.instrument);
    };
    if (std::ranges::none_of(instruments, isOver))
        return;
    Question question;
    question.key = "dls-level1-regions";
    question.text = u"The collection contains instruments with more regions than what is allowed by the DLS "
                    u"level 1 specification.\n\nDo you want to write all regions anyway?\n(if you answer No, "
                    u"then some regions will be skipped)";
    question.title = u"Vimbo Studio";
    question.buttons = {u"Yes", u"No"};
    if (host.Ask(question) == 0)
        return;
    for (OutInstrument& out : instruments) {
        const std::size_t limit = Level1Limit(*out.instrument);
        for (std::size_t i = limit; i < out.regions.size(); ++i)
            notes.Dropped(*out.regions[i].region, u"level 1 allows fewer regions");
        if (isOver(out))
            out.regions.resize(limit);
    }
}

/// Where the bank's texts come from.
const TextItem& TitleOf(const Item& root)
{
    const bool hasTexts = root.Kind() == ItemKind::Waveform || root.Kind() == ItemKind::Instrument ||
                          root.Kind() == ItemKind::Collection;
    return static_cast<const TextItem&>(hasTexts ? root : static_cast<const Item&>(root.Owner()));
}

/// What a bank is written as.
struct Shape {
    std::uint32_t level = kDlsLevel2; ///< of the records
    bool isLimited = false;           ///< to level 1's number of regions
    const Song* song = nullptr;       ///< that goes with it
};

bool WriteBank(Item& root, FileObject& file, const FormatChoice& choice, const Shape& shape,
               ConversionNotes& notes)
{
    ExportSet set;
    set.Fill(root, IncludeWaves::Yes);
    WaveList waves;
    if (!ListWaves(set, choice, waves))
        return false;
    Host& host = root.Owner().GetHost();
    std::vector<OutInstrument> instruments = ListInstruments(set, waves, shape.level);
    if (shape.isLimited)
        LimitRegions(instruments, host, notes);
    NoteWaves(notes, set, waves);
    for (const OutInstrument& instrument : instruments)
        NoteInstrument(notes, instrument, waves, shape.level);
    NoteBank(notes, root, set, instruments);
    if (!CompressWaves(waves, host))
        return false;
    MemoryFile song;
    if (shape.song != nullptr && !midi::WriteRmiImage(*shape.song, song))
        return false;
    BankWriter bank(TitleOf(root), waves, instruments, shape.level, song.Bytes());
    if (!bank.Fits())
        return Fail(u"The samples are too long for a DLS bank, which can have 4 GB");
    return bank.Write(file, host);
}

const Song* FirstSong(const Item& root) noexcept
{
    const auto songs = root.Owner().All<Song>();
    return root.Kind() == ItemKind::Collection && songs.begin() != songs.end() ? &*songs.begin() : nullptr;
}

} // namespace
} // namespace dls

bool WriteDls(Item& root, FileObject& file, FormatChoice& choice)
{
    dls::Shape shape{choice.variant, choice.variant < kDlsLevel2, nullptr};
    if (choice.variant >= kDlsLevel2Plus)
        shape.song = dls::FirstSong(root);
    {
        ConversionNotes notes(root.Owner().GetHost());
        if (!dls::WriteBank(root, file, choice, shape, notes))
            return false;
        if (shape.song == nullptr)
            dls::NoteSongs(notes, root);
    }
    if (shape.song != nullptr)
        midi::NoteLosses(root, *shape.song, file, ReadDls);
    return true;
}

bool WriteDlsImage(Collection& collection, FileObject& file, DlsImage image, std::uint32_t caps,
                   std::uint64_t& bytes)
{
    bytes = 0;
    const auto instruments = collection.All<Instrument>();
    if (instruments.begin() == instruments.end())
        return true;
    FormatChoice choice;
    choice.caps = caps;
    choice.variant = image == DlsImage::Level1   ? kDlsLevel1
                     : image == DlsImage::Level2 ? kDlsLevel2
                                                 : kDlsLevel2PlusPlus;
    const dls::Shape shape{image == DlsImage::Level2 ? kDlsLevel2 : kDlsLevel1, image == DlsImage::Level1,
                           nullptr};
    ConversionNotes notes(collection.GetHost());
    const std::uint64_t start = file.Position();
    if (!dls::WriteBank(collection, file, choice, shape, notes))
        return false;
    bytes = file.Position() - start;
    return true;
}

} // namespace vimbo
