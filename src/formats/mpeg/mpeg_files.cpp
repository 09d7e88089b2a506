// Files of MPEG audio: frames one after the other, with tags before and behind them. ISO/IEC 11172-3 and
// 13818-3. Reading looks at the headers of all frames, and takes no samples.
#include "base/last_error.h"
#include "base/text.h"
#include "codecs/mp2_encoder.h"
#include "codecs/mpeg_stream.h"
#include "formats/mpeg/mpeg.h"
#include "formats/texts/id3.h"
#include "formats/xiph/file_range.h"

#include <algorithm>
#include <array>
#include <limits>

namespace vimbo {
namespace {

/// The bytes behind a tag; nothing if it is longer than what is there.
std::span<const std::byte> BehindTag(std::span<const std::byte> head) noexcept
{
    const std::uint64_t tag = Id3TagBytes(head);
    return head.subspan(static_cast<std::size_t>(std::min<std::uint64_t>(tag, head.size())));
}

/// Frames of one stream that begin right here and follow each other, up to `most`. The last one may be cut.
unsigned CountFrames(std::span<const std::byte> bytes, unsigned most, MpegHeader& first) noexcept
{
    unsigned count = 0;
    MpegHeader header;
    while (count < most && ParseMpegHeader(bytes, header)) {
        if (count == 0)
            first = header;
        if (header.IsFree() || !IsSameMpegStream(first, header))
            return 0;
        ++count;
        if (header.FrameBytes() >= bytes.size())
            return count;
        bytes = bytes.subspan(header.FrameBytes());
    }
    return count;
}

bool DescribeMpeg(Waveform& wave, FileObject& file)
{
    FileRange input(file, 0, 0);
    MpegStream stream;
    if (!stream.Open(input))
        return false;
    const MpegInfo& info = stream.Info();
    wave.sourceWord = FormatBit(DataFormat::Compressed);
    wave.importProc = &kMpegImport;
    wave.sourceOffset = 0;
    wave.sourceBytes = file.Size();
    wave.channels = static_cast<std::uint8_t>(info.first.Channels());
    wave.rateHz = info.first.rateHz;
    wave.bits = 1;
    wave.saveFormat = BitrateToSaveFormat(info.kbit);
    wave.frames = static_cast<std::uint32_t>(
        std::min<std::uint64_t>(info.frames, std::numeric_limits<std::uint32_t>::max()));
    return true;
}

void ReadTag(Waveform& wave, FileObject& file)
{
    std::array<std::byte, kId3HeadBytes> head{};
    if (!file.Seek(0) || !file.ReadExact(head))
        return;
    const std::uint64_t bytes = std::min({Id3TagBytes(head), file.Size(), std::uint64_t{kId3BytesRead}});
    std::vector<std::byte> tag(static_cast<std::size_t>(bytes));
    if (bytes != 0 && file.Seek(0) && file.ReadExact(tag))
        ReadId3Texts(tag, wave.GetName(), wave);
}

/// What MPEG files have no place for.
void NoteLosses(const Waveform& wave)
{
    Host& host = wave.Owner().GetHost();
    if (!host.WantsNotes())
        return;
    const auto note = [&](bool isLost, NoteTopic topic, std::u16string what) {
        if (isLost)
            host.NoteConversion({.fidelity = Fidelity::Lost,
                                 .topic = topic,
                                 .item = std::u16string(wave.GetName()),
                                 .what = std::move(what),
                                 .from = {},
                                 .to = {},
                                 .reason = u"MPEG audio files have no place for it"});
    };
    note(wave.rootKey != 60 || wave.fineTune != 0, NoteTopic::Waveform, u"Root key and tuning");
    note(wave.loop.type != LoopType::Off, NoteTopic::Loop, u"Loop");
    note(!wave.markers.empty(), NoteTopic::Waveform, u"Markers");
    note(!wave.GetImage().empty(), NoteTopic::Other, u"Image");
}

/// The mean that LAME's documentation gives for music of 44100 Hz in stereo, in kbit/s, by its quality.
constexpr std::array<float, 10> kQualityKbit = {245, 225, 190, 175, 165, 130, 115, 100, 85, 65};

Mp3Settings SettingsOf(const Waveform& wave, std::uint32_t variant, float kbit) noexcept
{
    Mp3Settings settings;
    settings.rateHz = wave.rateHz;
    settings.kbit = Mp3KbitFor(kbit);
    if (variant == kMp3VariantAverage)
        settings.mode = Mp3RateMode::Average;
    if (variant == kMp3VariantVariable) {
        settings.mode = Mp3RateMode::Variable;
        const auto found = std::ranges::find_if(kQualityKbit, [kbit](float mean) { return mean <= kbit; });
        settings.quality = static_cast<float>(found - kQualityKbit.begin());
    }
    return settings;
}

} // namespace

int DetectMpeg(std::span<const std::byte> head, std::uint32_t variant, std::uint64_t /*fileSize*/) noexcept
{
    constexpr int kSure = 6, kClue = 4, kWeakClue = 3, kUnknown = 2;
    constexpr unsigned kEnoughFrames = 4;
    const auto audio = BehindTag(head);
    if (audio.empty()) // most files with such tags are of layer III
        return variant == kMpegLayer3 ? kWeakClue : kUnknown;
    MpegHeader first;
    const unsigned frames = CountFrames(audio, kEnoughFrames, first);
    const bool isWanted = variant == kMpegAnyLayer || variant == first.layer;
    // Streams that were cut out of others begin anywhere, so that only the extension can tell.
    if (frames < 2 || !isWanted)
        return variant == kMpegAnyLayer ? 0 : kUnknown;
    return frames == kEnoughFrames && variant != kMpegAnyLayer ? kSure : kClue;
}

bool ReadMpeg(Collection& collection, FileObject& file, std::uint32_t /*variant*/)
{
    auto& wave = collection.Create<Waveform>(collection.GetName());
    if (DescribeMpeg(wave, file)) {
        ReadTag(wave, file);
        return true;
    }
    collection.Destroy(wave.Handle());
    return false;
}

bool WriteMp3(Item& root, FileObject& file, FormatChoice& choice)
{
    if (root.Kind() != ItemKind::Waveform)
        return Fail(u"The file format can not save this item");
    auto& wave = static_cast<Waveform&>(root);
    float kbit = 0;
    static_cast<void>(PickDataFormat(wave, choice, kbit, Mp3SubFormats, choice.variant));
    const auto source = OpenFramesOrNone(wave, choice, NearestMp3Rate(wave.rateHz));
    if (source == nullptr)
        return false;
    NoteLosses(wave);
    Mp3Stream stream;
    if (!file.WriteAll(MakeId3Tag(wave)))
        return Fail(u"Couldn't write to file!");
    return EncodeMp3(*source, SettingsOf(wave, choice.variant, kbit), file, stream);
}

bool WriteMp2(Item& root, FileObject& file, FormatChoice& choice)
{
    if (root.Kind() != ItemKind::Waveform)
        return Fail(u"The file format can not save this item");
    auto& wave = static_cast<Waveform&>(root);
    float kbit = 0;
    static_cast<void>(PickDataFormat(wave, choice, kbit, Mp2SubFormats, choice.variant));
    const auto source = OpenFramesOrNone(wave, choice, NearestMp2Rate(wave.rateHz));
    if (source == nullptr)
        return false;
    NoteLosses(wave);
    FileSink sink(file);
    Mp2Encoder encoder;
    return encoder.Start({wave.rateHz, source->Channels(), static_cast<unsigned>(kbit)}, sink) &&
           EncodeMpeg(*source, encoder);
}

float Mp3SubFormats(std::uint32_t index, std::uint32_t variant, std::u16string* name)
{
    const bool isVariable = variant == kMp3VariantVariable;
    const std::size_t count = isVariable ? kQualityKbit.size() : kMp3Kbit.size();
    if (index >= count)
        return 0;
    const std::size_t quality =
        kQualityKbit.size() - 1 - std::min<std::size_t>(index, kQualityKbit.size() - 1);
    if (name != nullptr) {
        const std::string number = std::to_string(isVariable ? quality : std::size_t{kMp3Kbit[index]});
        *name = isVariable ? u"MP3 VBR Quality " + NarrowToWide(number)
                           : (variant == kMp3VariantAverage ? u"MP3 ABR " : u"MP3 CBR ") +
                                 NarrowToWide(number) + u" kbit/s";
    }
    return isVariable ? kQualityKbit[quality] : static_cast<float>(kMp3Kbit[index]);
}

float Mp2SubFormats(std::uint32_t index, std::uint32_t /*variant*/, std::u16string* name)
{
    // ISO/IEC 11172-3, bit rates of layer II
    static constexpr std::array<unsigned, 14> kKbit = {32,  48,  56,  64,  80,  96,  112,
                                                       128, 160, 192, 224, 256, 320, 384};
    if (index >= kKbit.size())
        return 0;
    if (name != nullptr)
        *name = u"MP2 CBR " + NarrowToWide(std::to_string(kKbit[index])) + u" kbit/s";
    return static_cast<float>(kKbit[index]);
}

} // namespace vimbo
