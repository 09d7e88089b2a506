// Writing SoundFont banks. All tables and sizes are settled before the first byte is written; the samples
// then go from their sources to the file in pieces.
#include "base/last_error.h"
#include "base/text.h"
#include "dsp/kernels/sample_convert.h"
#include "formats/soundfont/soundfont.h"
#include "formats/soundfont/soundfont_frames.h"
#include "formats/wave/wave_records.h"
#include "model/collection.h"

#include <algorithm>
#include <bit>
#include <limits>

namespace vimbo {
namespace sf2 {
namespace {

constexpr std::size_t kPieceFrames = 65536;
/// Silence behind each sample, for players that read ahead. SoundFont 2.04, section 6.1.
constexpr std::uint32_t kGapFrames = 46;
constexpr std::size_t kMaxSamples = 65535;
constexpr std::size_t kMaxTextBytes = 256;
constexpr std::size_t kMaxCommentBytes = 65536;
constexpr std::string_view kEngine = "EMU8000";
constexpr std::string_view kSoftware = "Vimbo Studio v12.7";
constexpr std::size_t kSoftwareBytes = 20;
constexpr std::u16string_view kCannotWrite = u"Couldn't write to file!";
constexpr std::u16string_view kTooManyValues =
    u"Save failed - Too much data!\n\nThe SF2 file format is by its construction limited to storing a "
    u"maximum "
    u"of 65536 parameter values... Remove some instruments then try saving again.\n";

constexpr std::u16string_view kTooManyValues1 =
    u"Save failed - Too many 'parameter' values!\nThe SBK format can handle a maximum of 65536 parameter "
    u"values...\n";

bool FailFull(unsigned major)
{
    return Fail(major == kVersion1 ? kTooManyValues1 : kTooManyValues);
}

struct InfoText {
    FourCc id;
    ParamId text;
    std::size_t maxBytes; ///< with the NUL
};
constexpr std::array kInfoTexts = {InfoText{FourCc{"INAM"}, kTextName, kMaxTextBytes},
                                   InfoText{FourCc{"IENG"}, kTextEngineer, kMaxTextBytes},
                                   InfoText{FourCc{"IPRD"}, kTextProduct, kMaxTextBytes},
                                   InfoText{FourCc{"ICOP"}, kTextCopyright, kMaxTextBytes},
                                   InfoText{FourCc{"ICMT"}, kTextComments, kMaxCommentBytes}};

void WriteChunkHead(ByteWriter& out, FourCc id, std::uint64_t bytes)
{
    out.Write(RiffChunkHead{id, static_cast<std::uint32_t>(bytes)});
}

void WriteChunk(ByteWriter& out, FourCc id, std::string_view text, std::size_t bytes)
{
    WriteChunkHead(out, id, bytes);
    out.Append(text.substr(0, bytes));
    out.Fill(bytes - std::min(bytes, text.size()));
}

void WriteList(ByteWriter& out, FourCc type, const ByteWriter& body)
{
    WriteChunkHead(out, FourCc{"LIST"}, sizeof(FourCc) + body.Size());
    out.Write(type);
    out.Append(body.Bytes());
}

template <class T>
void WriteTable(ByteWriter& out, FourCc id, const std::vector<T>& records)
{
    WriteChunkHead(out, id, records.size() * sizeof(T));
    out.Append(std::as_bytes(std::span(records)));
}

/// Where a sample lies in `smpl`.
struct Extent {
    std::uint64_t offset = 0; ///< bytes
    std::uint64_t bytes = 0;  ///< with the silence, or of the stream with its pad byte
    bool isStream = false;
};

/// Everything about the bank's data that is settled before it is written.
struct DataPlan {
    std::vector<Extent> extents;
    std::uint64_t bytes = 0; ///< of `smpl`
    bool is24 = false;

    std::uint64_t LowBytes() const noexcept { return is24 ? bytes / 2 + (bytes / 2 & 1) : 0; }
};

DataPlan PlanData(const std::vector<OutSample>& samples, const Streams& streams, bool is24)
{
    DataPlan plan;
    plan.is24 = is24;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const std::uint64_t stream = streams.places.empty() ? 0 : streams.places[i].bytes;
        Extent extent{plan.bytes, stream + (stream & 1), stream != 0}; // samples beside it count in words
        if (!extent.isStream)
            extent.bytes = (std::uint64_t{samples[i].wave->frames} + kGapFrames) * 2;
        plan.bytes += extent.bytes;
        plan.extents.push_back(extent);
    }
    return plan;
}

/// @param streamBytes  length of a stream, 0 for plain samples
SampleHeader HeaderOf(const OutSample& sample, const Extent& extent, const Streams& streams,
                      std::uint64_t streamBytes)
{
    SampleHeader header{};
    header.name = NameField(sample.name);
    const bool isStream = streamBytes != 0;
    const auto start = static_cast<std::uint32_t>(isStream ? extent.offset : extent.offset / 2);
    const std::uint32_t origin = isStream ? 0 : start;
    header.start = start;
    header.end = start + (isStream ? static_cast<std::uint32_t>(streamBytes) : sample.wave->frames);
    header.loopStart = origin + sample.loopStart;
    header.loopEnd = origin + std::max(sample.loopStart, sample.loopEnd);
    header.rateHz = sample.wave->rateHz;
    header.originalPitch = sample.rootKey;
    header.pitchCorrection = sample.wave->fineTune;
    header.link = sample.link;
    header.type = static_cast<std::uint16_t>(sample.type | (isStream ? streams.type : 0));
    return header;
}

std::vector<SampleHeader> HeadersOf(const std::vector<OutSample>& samples, const DataPlan& plan,
                                    const Streams& streams)
{
    std::vector<SampleHeader> headers;
    for (std::size_t i = 0; i < samples.size(); ++i)
        headers.push_back(HeaderOf(samples[i], plan.extents[i], streams,
                                   plan.extents[i].isStream ? streams.places[i].bytes : 0));
    SampleHeader& terminal = headers.emplace_back();
    terminal.name = NameField("EOS");
    return headers;
}

/// The names of version 1.
std::vector<SampleName> NamesOf(const std::vector<OutSample>& samples)
{
    std::vector<SampleName> names;
    for (const OutSample& sample : samples)
        names.push_back({NameField(sample.name)});
    names.push_back({NameField("EOS")});
    return names;
}

std::vector<SampleHeader1> HeadersOfVersion1(const std::vector<SampleHeader>& headers)
{
    std::vector<SampleHeader1> out;
    for (const SampleHeader& header : headers)
        out.push_back({header.start, header.end, header.loopStart, header.loopEnd});
    return out;
}

/// The text as the file holds it, without what reading would change.
std::string TextOf(const TextItem& root, const InfoText& info)
{
    std::string text = WideToNarrow(NarrowToWide(root.GetTextNarrow(info.text)));
    text.resize(std::min(text.size(), info.maxBytes - 1));
    while (!text.empty() && static_cast<unsigned char>(text.back()) <= ' ')
        text.pop_back();
    return text;
}

ByteWriter MakeInfo(const TextItem& root, std::uint16_t major, std::uint16_t minor)
{
    ByteWriter info;
    WriteChunkHead(info, FourCc{"ifil"}, 2 * sizeof(U16le));
    info.Write(U16le(major));
    info.Write(U16le(minor));
    WriteChunk(info, FourCc{"isng"}, kEngine, kEngine.size() + 1);
    for (const InfoText& row : kInfoTexts)
        if (const std::string text = TextOf(root, row); !text.empty())
            WriteChunk(info, row.id, text, (text.size() + 2) & ~std::size_t{1});
    WriteChunk(info, FourCc{"ISFT"}, kSoftware, kSoftwareBytes);
    return info;
}

ByteWriter MakeTables(const OutTables& tables, const std::vector<SampleHeader>& headers, unsigned major)
{
    ByteWriter out;
    WriteTable(out, FourCc{"phdr"}, tables.presets);
    WriteTable(out, FourCc{"pbag"}, tables.presetZones.bags);
    WriteTable(out, FourCc{"pmod"}, tables.presetZones.modulators);
    WriteTable(out, FourCc{"pgen"}, tables.presetZones.generators);
    WriteTable(out, FourCc{"inst"}, tables.instruments);
    WriteTable(out, FourCc{"ibag"}, tables.instrumentZones.bags);
    WriteTable(out, FourCc{"imod"}, tables.instrumentZones.modulators);
    WriteTable(out, FourCc{"igen"}, tables.instrumentZones.generators);
    if (major == kVersion1)
        WriteTable(out, FourCc{"shdr"}, HeadersOfVersion1(headers));
    else
        WriteTable(out, FourCc{"shdr"}, headers);
    return out;
}

/// Writes the samples to their places.
class DataWriter {
public:
    DataWriter(FileObject& file, const DataPlan& plan, std::uint64_t words, std::uint64_t lowBytes) noexcept
        : file_(file), plan_(plan), words_(words), lowBytes_(lowBytes)
    {
    }

    bool Write(const std::vector<OutSample>& samples, Streams& streams, Host& host)
    {
        for (std::size_t i = 0; i < samples.size(); ++i) {
            if (host.IsCancelled())
                return Fail(u"Save aborted!");
            host.SetProgress(samples[i].wave->GetName(),
                             static_cast<double>(i) / static_cast<double>(samples.size()));
            const Extent& extent = plan_.extents[i];
            if (!(extent.isStream ? CopyStream(extent, streams.places[i], streams.file.File())
                                  : WriteFrames(extent, samples[i])))
                return false;
        }
        host.SetProgress(u"");
        return true;
    }

private:
    bool Put(std::uint64_t place, std::span<const std::byte> bytes)
    {
        return (file_.Seek(place) && file_.WriteAll(bytes)) || Fail(kCannotWrite);
    }

    bool CopyStream(const Extent& extent, const StreamPlace& from, FileObject& streams)
    {
        if (!streams.Seek(from.offset))
            return Fail(kCannotWrite);
        std::uint64_t place = words_ + extent.offset;
        for (std::uint64_t left = from.bytes; left != 0;) {
            bytes_.resize(static_cast<std::size_t>(std::min<std::uint64_t>(left, 2 * kPieceFrames)));
            if (!streams.ReadExact(bytes_) || !Put(place, bytes_))
                return Fail(kCannotWrite);
            place += bytes_.size();
            left -= bytes_.size();
        }
        bytes_.assign(static_cast<std::size_t>(extent.bytes - from.bytes), std::byte{0});
        return Put(place, bytes_);
    }

    bool WriteFrames(const Extent& extent, const OutSample& sample)
    {
        const std::unique_ptr<FrameSource> source = OpenSample(sample);
        if (source == nullptr)
            return false;
        std::uint64_t frame = extent.offset / 2;
        for (std::uint32_t first = 0; first < source->Frames();) {
            samples_.resize(std::min<std::size_t>(kPieceFrames, source->Frames() - first));
            if (!source->Read(first, samples_) || !PutFrames(frame))
                return false;
            first += static_cast<std::uint32_t>(samples_.size());
            frame += samples_.size();
        }
        samples_.assign(kGapFrames, 0.0f);
        return PutFrames(frame);
    }

    bool PutFrames(std::uint64_t frame)
    {
        const SampleCoding coding = plan_.is24 ? SampleCoding::Pcm24 : SampleCoding::Pcm16;
        bytes_.resize(static_cast<std::size_t>(StoredBytes(coding, samples_.size())));
        DeltaState none;
        EncodeSamples({coding, false, std::endian::little}, samples_, bytes_, none);
        if (!plan_.is24)
            return Put(words_ + frame * 2, bytes_);
        high_.resize(samples_.size() * 2);
        low_.resize(samples_.size());
        for (std::size_t i = 0; i < samples_.size(); ++i) {
            low_[i] = bytes_[3 * i];
            high_[2 * i] = bytes_[3 * i + 1];
            high_[2 * i + 1] = bytes_[3 * i + 2];
        }
        return Put(words_ + frame * 2, high_) && Put(lowBytes_ + frame, low_);
    }

    FileObject& file_;
    const DataPlan& plan_;
    std::uint64_t words_;    ///< place of the words in the file
    std::uint64_t lowBytes_; ///< likewise
    std::vector<float> samples_;
    std::vector<std::byte> bytes_, high_, low_;
};

/// Puts the parts of the file together around the data.
class BankWriter {
public:
    /// @param version1  false: version 2, or 3 if there are streams
    BankWriter(const TextItem& root, const SampleList& samples, const OutTables& tables, Streams& streams,
               bool is24, bool version1)
        : samples_(samples.samples), streams_(streams), plan_(PlanData(samples_, streams, is24))
    {
        const bool isCompressed = !streams.places.empty();
        const std::uint16_t major = version1 ? kVersion1 : isCompressed ? 3 : 2;
        const std::uint16_t minor = version1 || isCompressed ? 0 : is24 ? 4 : 1;
        WriteList(front_, FourCc{"INFO"}, MakeInfo(root, major, minor));
        ByteWriter names;
        if (version1)
            WriteTable(names, FourCc{"snam"}, NamesOf(samples_));
        WriteChunkHead(front_, FourCc{"LIST"}, DataListBytes() + names.Size());
        front_.Write(FourCc{"sdta"});
        front_.Append(names.Bytes());
        WriteChunkHead(front_, FourCc{"smpl"}, plan_.bytes);
        WriteList(tables_, FourCc{"pdta"}, MakeTables(tables, HeadersOf(samples_, plan_, streams), major));
    }

    bool Fits() const noexcept { return FormBytes() <= std::numeric_limits<std::uint32_t>::max(); }

    bool Write(FileObject& file, Host& host)
    {
        ByteWriter form;
        WriteChunkHead(form, FourCc{"RIFF"}, FormBytes());
        form.Write(FourCc{"sfbk"});
        if (!file.WriteAll(form.Bytes()) || !file.WriteAll(front_.Bytes()))
            return Fail(kCannotWrite);
        const std::uint64_t words = file.Position();
        const std::uint64_t lowHead = words + plan_.bytes;
        DataWriter data(file, plan_, words, lowHead + sizeof(RiffChunkHead));
        return data.Write(samples_, streams_, host) && WriteLowHead(file, lowHead) &&
               (file.WriteAll(tables_.Bytes()) || Fail(kCannotWrite));
    }

private:
    std::uint64_t DataListBytes() const noexcept
    {
        const std::uint64_t low = plan_.is24 ? sizeof(RiffChunkHead) + plan_.LowBytes() : 0;
        return sizeof(FourCc) + sizeof(RiffChunkHead) + plan_.bytes + low;
    }
    std::uint64_t FormBytes() const noexcept
    {
        const std::uint64_t low = plan_.is24 ? sizeof(RiffChunkHead) + plan_.LowBytes() : 0;
        return sizeof(FourCc) + front_.Size() + plan_.bytes + low + tables_.Size();
    }

    /// The head of `sm24` and the byte that makes its length even; leaves the file standing behind the data.
    bool WriteLowHead(FileObject& file, std::uint64_t place)
    {
        if (!file.Seek(place))
            return Fail(kCannotWrite);
        if (!plan_.is24)
            return true;
        ByteWriter head, pad;
        WriteChunkHead(head, FourCc{"sm24"}, plan_.LowBytes());
        pad.Fill(static_cast<std::size_t>(plan_.LowBytes() - plan_.bytes / 2));
        const std::uint64_t end = place + head.Size() + plan_.bytes / 2;
        return (file.WriteAll(head.Bytes()) && file.Seek(end) && file.WriteAll(pad.Bytes())) ||
               Fail(kCannotWrite);
    }

    const std::vector<OutSample>& samples_;
    Streams& streams_;
    DataPlan plan_;
    ByteWriter front_;  ///< from INFO to the head of `smpl`
    ByteWriter tables_; ///< `pdta`
};

/// What the request says about the data.
struct Coding {
    bool compress = false;
    bool is24 = false; ///< of plain samples
};

Coding CodingOf(const SampleList& list, const FormatChoice& choice)
{
    const std::uint32_t formats = choice.caps & kDataFormatMask;
    if (choice.variant == kSoundFont1)
        return {};
    if (choice.variant == kSoundFont3)
        return {formats != FormatBit(DataFormat::Pcm24), formats == FormatBit(DataFormat::Pcm24)};
    std::vector<const Waveform*> waves;
    for (const OutSample& sample : list.samples)
        waves.push_back(sample.wave);
    float kbit = 0;
    return {false, PickDataFormatForSet(waves, choice, kbit, nullptr) == DataFormat::Pcm24};
}

/// Most players know only Vorbis; this quality is hard to tell from the original.
constexpr float kDefaultQuality = 0.6f;

/// Who asks for PCM wants to lose nothing.
float DefaultSetting(const FormatChoice& choice) noexcept
{
    return (choice.caps & FormatBit(DataFormat::Compressed)) != 0 ? kDefaultQuality : CompressSettings::kFlac;
}

CompressSettings CompressionOf(const FormatChoice& choice)
{
    CompressSettings settings;
    settings.choice = choice;
    settings.choice.caps =
        FormatBit(DataFormat::Pcm16) |
        (choice.caps & FormatBit(DataFormat::Compressed) ? FormatBit(DataFormat::Pcm24) : 0);
    settings.setting = choice.kbit != 0 ? choice.kbit : DefaultSetting(choice);
    return settings;
}

void NoteTexts(ConversionNotes& notes, const TextItem& root)
{
    for (const InfoText& row : kInfoTexts)
        notes.Text(root, row.text, NarrowToWide(TextOf(root, row)),
                   u"the format has 8-bit texts of limited length");
    for (const ParamId id : {kTextArtist, kTextImage})
        notes.Text(root, id, u"", u"the format has no such text");
}

void NoteWidths(Host& host, const SampleList& list, const Streams& streams, bool is24)
{
    constexpr unsigned kPlainBits = 16, kWideBits = 24;
    ConversionNotes notes(host);
    for (std::size_t i = 0; i < list.samples.size(); ++i)
        if (streams.places.empty() || streams.places[i].bytes == 0)
            NoteWidth(notes, list.samples[i], is24 ? kWideBits : kPlainBits);
        else if (streams.places[i].bits != 0)
            NoteWidth(notes, list.samples[i], streams.places[i].bits);
}

/// @return false if the tables are too small
bool Pack(const std::vector<OutPreset>& presets, const SampleList& samples, unsigned major,
          TablePacker& packer, ConversionNotes* notes)
{
    for (const OutPreset& preset : presets) {
        std::vector<OutLayer> layers = LayersOf(*preset.instrument, samples, major);
        if (notes != nullptr)
            NotePreset(*notes, preset, layers, samples);
        if (!packer.IsFull())
            packer.Add(preset, std::move(layers));
    }
    return packer.Finish();
}

/// All tables, null with the Last error text if they do not fit. A layer is a zone of its preset unless the
/// tables are too small for that.
std::unique_ptr<TablePacker> PackTables(const ExportSet& set, const SampleList& samples, const Item& root,
                                        unsigned major)
{
    if (samples.samples.size() > kMaxSamples) {
        FailFull(major);
        return nullptr;
    }
    ConversionNotes notes(root.Owner().GetHost());
    const std::vector<OutPreset> presets = ListPresets(set);
    NoteSamples(notes, samples, set, major);
    NoteRest(notes, root, set, presets);
    if (root.Kind() == ItemKind::Collection)
        NoteTexts(notes, static_cast<const TextItem&>(root));
    auto packer = std::make_unique<TablePacker>(DivideLayers::No, major);
    if (Pack(presets, samples, major, *packer, notes.IsWanted() ? &notes : nullptr))
        return packer;
    packer = std::make_unique<TablePacker>(DivideLayers::Yes, major);
    if (Pack(presets, samples, major, *packer, nullptr))
        return packer;
    FailFull(major);
    return nullptr;
}

} // namespace
} // namespace sf2

bool WriteSoundFont(Item& root, FileObject& file, FormatChoice& choice)
{
    const bool version1 = choice.variant == kSoundFont1;
    ExportSet set;
    set.Fill(root, IncludeWaves::Yes);
    const sf2::SampleList samples = sf2::ListSamples(set);
    if (version1 && samples.samples.empty())
        return Fail(u"A SoundFont v1 bank needs at least one waveform");
    const std::unique_ptr<sf2::TablePacker> packer =
        sf2::PackTables(set, samples, root, version1 ? sf2::kVersion1 : 2);
    if (packer == nullptr)
        return false;
    Host& host = root.Owner().GetHost();
    sf2::Coding coding = sf2::CodingOf(samples, choice);
    sf2::Streams streams;
    if (coding.compress && !sf2::CompressSamples(samples.samples, sf2::CompressionOf(choice), host, streams))
        return false;
    const Item& titled = root.Kind() == ItemKind::Waveform || root.Kind() == ItemKind::Instrument ||
                                 root.Kind() == ItemKind::Collection
                             ? root
                             : static_cast<const Item&>(root.Owner());
    sf2::NoteWidths(host, samples, streams, coding.is24);
    sf2::BankWriter bank(static_cast<const TextItem&>(titled), samples, packer->Tables(), streams,
                         coding.is24, version1);
    if (!bank.Fits())
        return Fail(u"The samples are too long for a SoundFont bank, which can have 4 GB");
    return bank.Write(file, host);
}

} // namespace vimbo
