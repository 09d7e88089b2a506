// Fetching the samples of FLAC and Ogg Vorbis streams, from files and from parts of banks.
#include "base/last_error.h"
#include "formats/speech/packet_frames.h"
#include "formats/xiph/xiph.h"

#include <algorithm>
#include <limits>

namespace vimbo {
namespace {

/// A claim of up to this many times what the stream holds is believed, and the rest is silence.
constexpr std::uint64_t kBelievedRatio = 4;
constexpr std::uint64_t kBelievedExtra = 65536;
constexpr std::u16string_view kTooManyChannels = u"Files of more than two channels are not supported";

constexpr std::u16string_view kNothingDecoded = u"No samples could be decoded";

template <class Decoder>
PacketInput OpenAs(const Waveform& wave, FileObject& file)
{
    PacketInput stream;
    stream.input = std::make_unique<FileRange>(file, wave.sourceOffset, wave.sourceBytes);
    auto decoder = std::make_unique<Decoder>();
    if (!decoder->Open(*stream.input))
        return stream;
    if (decoder->Channels() == wave.channels)
        stream.decoder = std::move(decoder);
    else
        Fail(u"Reading from file failed"); // no longer the stream that described the waveform
    return stream;
}

/// Lowers a length that the stream is far from holding: no memory for what is not there.
bool SettleLength(Waveform& wave, PacketDecoder& decoder)
{
    std::vector<float> last(wave.channels);
    std::size_t frames = 0;
    if (decoder.Seek(wave.frames - 1) && decoder.Read(last, frames) && frames == 1)
        return decoder.Seek(0) || Fail(kNothingDecoded);
    const std::uint64_t held = decoder.CountFrames();
    if (held == 0)
        return decoder.Read(last, frames) && Fail(kNothingDecoded);
    if (wave.frames > held * kBelievedRatio + kBelievedExtra) {
        wave.frames = static_cast<std::uint32_t>(held);
        NormalizeLoop(wave.loop, wave.frames, wave.Owner().features);
    }
    return true;
}

template <class Decoder>
bool Load(Waveform& wave, FileObject& file)
{
    if (wave.frames == 0)
        return Fail(u"Zero length");
    PacketInput stream = OpenAs<Decoder>(wave, file);
    if (stream.decoder == nullptr || !SettleLength(wave, *stream.decoder))
        return false;
    PacketFrames frames(wave.frames, std::move(stream), nullptr);
    return LoadFrames(wave, frames);
}

template <class Decoder>
std::unique_ptr<FrameSource> Stream(const Waveform& wave, std::unique_ptr<FileObject> file)
{
    PacketInput stream = OpenAs<Decoder>(wave, *file);
    if (stream.decoder == nullptr)
        return nullptr;
    return std::make_unique<PacketFrames>(wave.frames, std::move(stream), std::move(file));
}

/// The claimed length if the stream can have it, else what it really has.
std::uint32_t FramesOf(std::uint64_t claimed, std::uint64_t most, PacketDecoder& decoder)
{
    const std::uint64_t frames = claimed != 0 && claimed <= most ? claimed : decoder.CountFrames();
    return static_cast<std::uint32_t>(
        std::min<std::uint64_t>(frames, std::numeric_limits<std::uint32_t>::max()));
}

DataFormat FormatOfBits(unsigned bits) noexcept
{
    constexpr DataFormat kFormats[] = {DataFormat::Pcm8,  DataFormat::Pcm12, DataFormat::Pcm16,
                                       DataFormat::Pcm20, DataFormat::Pcm24, DataFormat::Pcm32};
    const auto* found =
        std::ranges::find_if(kFormats, [bits](DataFormat f) { return DataFormatBits(f) >= bits; });
    return found != std::end(kFormats) ? *found : DataFormat::Pcm32;
}

void DescribeSource(Waveform& wave, DataFormat format, const ImportProcedure& procedure, std::uint64_t offset,
                    std::uint64_t bytes) noexcept
{
    wave.sourceWord = FormatBit(format);
    wave.importProc = &procedure;
    wave.sourceOffset = offset;
    wave.sourceBytes = bytes;
}

} // namespace

const ImportProcedure kFlacImport{7, Load<FlacDecoder>, Stream<FlacDecoder>};
const ImportProcedure kVorbisImport{8, Load<VorbisDecoder>, Stream<VorbisDecoder>};

bool DescribeFlac(Waveform& wave, FileObject& file, std::uint64_t offset, std::uint64_t bytes)
{
    constexpr std::uint64_t kLeastPacketBytes = 8; // headers and checksums
    constexpr std::uint32_t kMostBlockFrames = 65535;
    FileRange input(file, offset, bytes);
    FlacDecoder decoder;
    if (!decoder.Open(input))
        return false;
    const FlacInfo& info = decoder.Info();
    if (info.channels > kMaxChannels)
        return Fail(kTooManyChannels);
    const std::uint32_t blockFrames = info.maxBlockFrames != 0 ? info.maxBlockFrames : kMostBlockFrames;
    const DataFormat format = FormatOfBits(info.bits);
    DescribeSource(wave, format, kFlacImport, offset, bytes);
    wave.channels = static_cast<std::uint8_t>(info.channels);
    wave.rateHz = info.rateHz;
    wave.bits = static_cast<std::uint8_t>(info.bits);
    wave.saveFormat = SaveFormatOf(format);
    wave.frames = FramesOf(info.frames, input.Size() / kLeastPacketBytes * blockFrames, decoder);
    const bool isEmpty = info.frames == 0 && info.packetsAt >= input.Size();
    return wave.frames != 0 || isEmpty || Fail(kNothingDecoded);
}

bool DescribeVorbis(Waveform& wave, FileObject& file, std::uint64_t offset, std::uint64_t bytes,
                    std::vector<std::string>* comments)
{
    constexpr std::uint64_t kMostFramesPerByte = 2048; // blocks of 4096 frames in packets of one byte
    FileRange input(file, offset, bytes);
    VorbisDecoder decoder;
    if (!decoder.Open(input))
        return false;
    const VorbisInfo& info = decoder.Info();
    if (info.channels > kMaxChannels)
        return Fail(kTooManyChannels);
    DescribeSource(wave, DataFormat::Compressed, kVorbisImport, offset, bytes);
    wave.channels = static_cast<std::uint8_t>(info.channels);
    wave.rateHz = info.rateHz;
    wave.bits = 1;
    wave.saveFormat = BitrateToSaveFormat(info.kbit);
    wave.frames = FramesOf(info.frames, input.Size() * kMostFramesPerByte, decoder);
    if (comments != nullptr)
        *comments = decoder.Comments();
    return wave.frames != 0 || info.frames == 0 || Fail(kNothingDecoded);
}

} // namespace vimbo
