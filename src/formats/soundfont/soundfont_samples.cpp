#include "formats/soundfont/soundfont_samples.h"

#include "base/last_error.h"
#include "base/path.h"
#include "formats/soundfont/soundfont.h"
#include "formats/xiph/file_range.h"
#include "formats/xiph/xiph.h"

#include <algorithm>
#include <optional>

namespace vimbo::sf2 {
namespace {

constexpr std::uint16_t kCompressed = kSampleVorbis | kSampleFlac;
constexpr std::uint64_t kWordBytes = 2;
constexpr std::uint8_t kMiddleC = 60;
constexpr std::uint8_t kUnpitched = 255;
constexpr std::u16string_view kRomFile = u"1mgm.sf2";

/// The page of an Ogg stream, up to its table of lengths. RFC 3533.
struct OggPage {
    FourCc marker;
    std::uint8_t version, flags;
    U64le frames; ///< from the stream's start to the end of the page; all ones: no packet ends here
    U32le serial, sequence, checksum;
    std::uint8_t segments;
};
static_assert(DiskRecord<OggPage> && sizeof(OggPage) == 27);
constexpr FourCc kOggMarker{"OggS"};
constexpr FourCc kFlacMarker{"fLaC"};

/// First packet of a Vorbis stream. Vorbis I specification, section 4.2.2.
struct VorbisHead {
    std::uint8_t type;
    std::array<char, 6> vorbis;
    U32le version;
    std::uint8_t channels;
    U32le rateHz;
    I32le mostBits, nominalBits, leastBits; ///< per second
    std::uint8_t blockSizes, framing;
};
static_assert(DiskRecord<VorbisHead> && sizeof(VorbisHead) == 30);

/// Start of a stream whose first page holds nothing but that packet, as all do.
struct VorbisStart {
    OggPage page;
    std::uint8_t packetBytes;
    VorbisHead head;
};
static_assert(DiskRecord<VorbisStart>);

bool IsWhole(const VorbisStart& start) noexcept
{
    constexpr std::array<char, 6> kVorbis = {'v', 'o', 'r', 'b', 'i', 's'};
    return start.page.marker == kOggMarker && start.page.segments == 1 &&
           start.packetBytes == sizeof(VorbisHead) && start.head.type == 1 && start.head.vorbis == kVorbis &&
           start.head.version.Get() == 0;
}

/// Frames of an Ogg stream by its last page; none if that page is not found near the end.
std::optional<std::uint32_t> FramesOfOgg(FileObject& file, const ByteRange& range)
{
    constexpr std::uint64_t kTailBytes = 8192; // pages of one channel's encoder are about half as long
    std::vector<std::byte> tail(static_cast<std::size_t>(std::min(range.bytes, kTailBytes)));
    if (!file.Seek(range.offset + range.bytes - tail.size()) || !file.ReadExact(tail))
        return std::nullopt;
    for (std::size_t at = tail.size(); at-- > 0;) {
        OggPage page;
        if (tail[at] != std::byte{'O'} || !ByteReader(std::span(tail).subspan(at)).Read(page))
            continue;
        const std::uint64_t frames = page.frames.Get();
        if (page.marker == kOggMarker && page.version == 0 && frames != ~std::uint64_t{0})
            return frames <= UINT32_MAX ? std::optional(static_cast<std::uint32_t>(frames)) : std::nullopt;
    }
    return std::nullopt;
}

/// Describes a Vorbis stream by the heads of its first and last page, hundreds of which a bank may hold.
bool DescribeQuickly(Waveform& wave, FileObject& file, const ByteRange& range)
{
    constexpr std::uint64_t kMostFramesPerByte = 2048; // blocks of 4096 frames in packets of one byte
    VorbisStart start;
    if (range.bytes < sizeof(start) || !file.Seek(range.offset) || !file.Read(start) || !IsWhole(start))
        return false;
    const unsigned channels = start.head.channels;
    const std::optional<std::uint32_t> frames = FramesOfOgg(file, range);
    if (channels == 0 || channels > kMaxChannels || !frames || *frames == 0 ||
        *frames / kMostFramesPerByte > range.bytes)
        return false;
    wave.sourceWord = FormatBit(DataFormat::Compressed);
    wave.importProc = &kVorbisImport;
    wave.sourceOffset = range.offset;
    wave.sourceBytes = range.bytes;
    wave.channels = static_cast<std::uint8_t>(channels);
    wave.bits = 1;
    wave.rateHz = start.head.rateHz.Get();
    wave.frames = *frames;
    const float kbit = static_cast<float>(start.head.nominalBits.Get()) / 1000.0f;
    // Encoders of fixed quality may state no rate.
    const double seconds = static_cast<double>(*frames) / std::max(wave.rateHz, 1u);
    const double mean = static_cast<double>(range.bytes) * 8 / 1000 / seconds;
    wave.saveFormat = BitrateToSaveFormat(kbit > 0 ? kbit : static_cast<float>(mean));
    return true;
}

/// What a stream's first bytes say that it is.
bool DescribeStream(Waveform& wave, FileObject& file, const ByteRange& range)
{
    FourCc marker;
    if (range.bytes < sizeof(marker) || !file.Seek(range.offset) || !file.Read(marker))
        return false;
    if (marker == kFlacMarker)
        return DescribeFlac(wave, file, range.offset, range.bytes);
    return marker == kOggMarker &&
           (DescribeQuickly(wave, file, range) || DescribeVorbis(wave, file, range.offset, range.bytes));
}

/// The part of an address range that `smpl` holds.
struct Extent {
    std::uint64_t first = 0;
    std::uint64_t end = 0;
    std::uint64_t Length() const noexcept { return end > first ? end - first : 0; }
};
Extent ExtentOf(const SampleHeader& header, std::uint64_t room) noexcept
{
    return {header.start.Get(), std::min<std::uint64_t>(header.end.Get(), room)};
}

class SampleReader {
public:
    SampleReader(Collection& items, FileObject& file, const Tables& bank) noexcept
        : items_(items), file_(file), bank_(bank)
    {
    }

    std::vector<BankSample> Read()
    {
        std::vector<BankSample> samples(bank_.sampleHeaders.size());
        if (bank_.isPacked)
            DescribePacked();
        for (std::size_t i = 0; i < samples.size(); ++i)
            samples[i] = ReadOne(bank_.sampleHeaders[i]);
        for (std::size_t i = 0; i < samples.size(); ++i)
            samples[i].side = SideOf(i);
        return samples;
    }

private:
    BankSample ReadOne(const SampleHeader& header)
    {
        const bool isRom = (header.type.Get() & kSampleRom) != 0;
        if (header.end.Get() == 0 && header.start.Get() == 0)
            return {};
        if (isRom && !FindRom())
            return Drop(header, u"the sample is in a ROM that is not here");
        Waveform& wave = items_.Create<Waveform>(NameOf(header.name));
        wave.rateHz = 0;
        wave.SetText(kTextSourcePath, isRom ? romPath_ : file_.Path());
        const bool isCompressed = !isRom && !bank_.isPacked && (header.type.Get() & kCompressed) != 0;
        if (!(isCompressed ? SetStream(wave, header) : SetPlain(wave, header, isRom)) || wave.frames == 0) {
            items_.Destroy(wave.Handle());
            return Drop(header, u"the bank does not hold its data");
        }
        SetLoop(wave, header, isCompressed ? 0 : header.start.Get());
        return SetPitch(wave, header);
    }

    static BankSample SetPitch(Waveform& wave, const SampleHeader& header)
    {
        const std::uint8_t key = header.originalPitch;
        wave.rootKey = key <= 127 ? key : kMiddleC;
        wave.fineTune = std::clamp<std::int8_t>(header.pitchCorrection, -100, 100);
        if (const std::uint32_t rate = header.rateHz.Get(); rate != 0 || wave.rateHz == 0)
            wave.rateHz = std::clamp(rate, 1u, kMaxRateHz);
        return {&wave, key == kUnpitched};
    }

    /// @param start  what the points of the header count from
    static void SetLoop(Waveform& wave, const SampleHeader& header, std::uint32_t start) noexcept
    {
        const auto point = [&](std::uint32_t place) {
            return static_cast<double>(std::min(place > start ? place - start : 0, wave.frames));
        };
        wave.loop.start = point(header.loopStart.Get());
        wave.loop.end = point(header.loopEnd.Get());
        wave.loop.type = wave.loop.end > wave.loop.start ? LoopType::Forward : LoopType::Off;
    }

    bool SetStream(Waveform& wave, const SampleHeader& header)
    {
        const Extent extent = ExtentOf(header, bank_.samples.bytes);
        return extent.Length() != 0 &&
               DescribeStream(wave, file_, {bank_.samples.offset + extent.first, extent.Length()});
    }

    bool SetPlain(Waveform& wave, const SampleHeader& header, bool isRom)
    {
        if (bank_.isPacked && !isRom)
            return SetPacked(wave, header);
        const ByteRange& data = isRom ? rom_->samples : bank_.samples;
        const ByteRange& low = isRom ? rom_->lowBytes : bank_.lowBytes;
        const Extent extent = ExtentOf(header, data.bytes / kWordBytes);
        wave.frames = static_cast<std::uint32_t>(extent.Length());
        wave.channels = 1;
        wave.SetSourceFormat(low.bytes != 0 ? DataFormat::Pcm24 : DataFormat::Pcm16, 0);
        wave.sourceOffset = data.offset + extent.first * kWordBytes;
        if (low.bytes != 0) {
            wave.importProc = &kSm24Import;
            wave.formatOffset = low.offset + extent.first;
        }
        if (wave.frames != 0 && extent.end < header.end.Get())
            Note(header, Fidelity::Approximated, u"the bank does not hold all of its data");
        return true;
    }

    /// All samples of a packed bank are one stream.
    void DescribePacked()
    {
        Collection scratch;
        Waveform& wave = scratch.Create<Waveform>(u"");
        if (!DescribeStream(wave, file_, bank_.samples))
            return;
        packedBits_ = wave.bits;
        packedFrames_ = wave.channels == 1 ? wave.frames : 0;
        packedWord_ = wave.sourceWord;
        packedSave_ = wave.saveFormat;
    }

    bool SetPacked(Waveform& wave, const SampleHeader& header)
    {
        const Extent extent = ExtentOf(header, packedFrames_);
        wave.frames = static_cast<std::uint32_t>(extent.Length());
        wave.channels = 1;
        wave.sourceWord = packedWord_;
        wave.bits = packedBits_;
        wave.saveFormat = packedSave_;
        wave.importProc = &kPackedImport;
        wave.sourceOffset = bank_.samples.offset;
        wave.sourceBytes = bank_.samples.bytes;
        wave.formatOffset = extent.first;
        return true;
    }

    /// The side of a sample whose partner names it in turn. Banks in which all links stand at 0 (FluidR3 GM)
    /// play single halves in the middle, and pan true pairs by generators.
    BankSample::Side SideOf(std::size_t index) const noexcept
    {
        const SampleHeader& header = bank_.sampleHeaders[index];
        const unsigned type = header.type.Get() & (kSampleLeft | kSampleRight);
        const std::size_t link = header.link.Get();
        if (link >= bank_.sampleHeaders.size() || link == index)
            return BankSample::Side::None;
        const SampleHeader& partner = bank_.sampleHeaders[link];
        const unsigned partnerType = partner.type.Get() & (kSampleLeft | kSampleRight);
        if (partner.link.Get() != index || (type | partnerType) != (kSampleLeft | kSampleRight))
            return BankSample::Side::None;
        if (type == kSampleLeft)
            return BankSample::Side::Left;
        return type == kSampleRight ? BankSample::Side::Right : BankSample::Side::None;
    }

    bool FindRom()
    {
        if (!romAsked_) {
            romAsked_ = true;
            if (WantsRom())
                OpenRom();
        }
        return rom_.has_value();
    }

    bool WantsRom() const
    {
        Question question;
        question.key = "soundfont-rom";
        question.text = u"This SoundFont references ROM waveforms.\n\n"
                        u"Would you like to skip these, or load them from \"1mgm.sf2\"?\n"
                        u"(i.e. the AWE32 ROM equivalent from the SB Live-drivers)";
        question.title = u"Vimbo Studio";
        question.buttons = {u"Skip", u"Load"};
        return items_.GetHost().Ask(question) == 1;
    }

    void OpenRom()
    {
        romPath_ = FindExistingPath(JoinPath(DirectoryOf(file_.Path()), kRomFile));
        if (!IsFile(romPath_) && !items_.GetHost().PickFile(u"Please locate 1mgm.sf2", u"*.sf2", romPath_))
            return;
        FileObject file;
        Tables tables;
        if (file.Open(romPath_, FileMode::Read) && ReadTables(file, tables) && !tables.isPacked) {
            romPath_ = file.Path();
            rom_ = std::move(tables);
            rom_->info.clear(); // refers to the file
            return;
        }
        items_.GetHost().ShowMessage(u"Invalid 1mgm.sf2 - skipping ROM", u"Error!", MessageIcon::Error);
    }

    BankSample Drop(const SampleHeader& header, std::u16string_view reason)
    {
        Note(header, Fidelity::Lost, reason);
        return {};
    }

    void Note(const SampleHeader& header, Fidelity fidelity, std::u16string_view reason)
    {
        Host& host = items_.GetHost();
        if (host.WantsNotes())
            host.NoteConversion({.fidelity = fidelity,
                                 .topic = NoteTopic::Waveform,
                                 .item = NameOf(header.name),
                                 .what = u"Samples",
                                 .from = {},
                                 .to = {},
                                 .reason = std::u16string(reason)});
    }

    Collection& items_;
    FileObject& file_;
    const Tables& bank_;
    bool romAsked_ = false;
    std::optional<Tables> rom_;
    std::u16string romPath_;
    std::uint32_t packedFrames_ = 0; ///< 0: the stream cannot be read
    std::uint32_t packedWord_ = 0;
    std::uint8_t packedBits_ = 0;
    SaveFormat packedSave_ = SaveFormat::Default;
};

} // namespace

std::vector<BankSample> ReadSamples(Collection& items, FileObject& file, const Tables& bank)
{
    return SampleReader(items, file, bank).Read();
}

} // namespace vimbo::sf2
