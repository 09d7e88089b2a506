#include "formats/mpeg/mpeg.h"

#include "base/last_error.h"
#include "codecs/mpeg_stream.h"
#include "formats/speech/packet_frames.h"
#include "model/collection.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace vimbo {
namespace {

/// @param frames  gets how many the stream has
PacketInput Open(FileObject& file, std::uint64_t offset, std::uint64_t bytes, std::uint64_t& frames)
{
    PacketInput stream;
    if (bytes == 0) {
        Fail(u"No MPEG audio found");
        return stream;
    }
    stream.input = std::make_unique<FileRange>(file, offset, bytes);
    auto decoder = std::make_unique<MpegStream>();
    if (!decoder->Open(*stream.input))
        return stream;
    frames = decoder->Info().frames;
    stream.decoder = std::move(decoder);
    return stream;
}

/// With as many channels as the waveform has, whatever the stream says.
std::unique_ptr<FrameSource> MakeSource(std::uint32_t frames, unsigned channels, PacketInput stream,
                                        std::unique_ptr<FileObject> owned)
{
    std::unique_ptr<FrameSource> source =
        std::make_unique<PacketFrames>(frames, std::move(stream), std::move(owned));
    return source->Channels() == channels ? std::move(source) : WithChannels(std::move(source), channels);
}

bool LoadFile(Waveform& wave, FileObject& file)
{
    return LoadMpeg(wave, file, wave.sourceOffset, wave.sourceBytes);
}

std::unique_ptr<FrameSource> StreamFile(const Waveform& wave, std::unique_ptr<FileObject> file)
{
    return file != nullptr ? StreamMpeg(wave, std::move(file), wave.sourceOffset, wave.sourceBytes) : nullptr;
}

} // namespace

const ImportProcedure kMpegImport{20, LoadFile, StreamFile};

bool LoadMpeg(Waveform& wave, FileObject& file, std::uint64_t offset, std::uint64_t bytes)
{
    if (wave.frames == 0)
        return Fail(u"Zero length");
    std::uint64_t frames = 0;
    PacketInput stream = Open(file, offset, bytes, frames);
    if (stream.decoder == nullptr)
        return false;
    if (frames == 0)
        return Fail(u"No MPEG audio found");
    if (frames < wave.frames) {
        wave.frames = static_cast<std::uint32_t>(frames);
        NormalizeLoop(wave.loop, wave.frames, wave.Owner().features);
    }
    return LoadFrames(wave, *MakeSource(wave.frames, wave.channels, std::move(stream), nullptr));
}

std::unique_ptr<FrameSource> StreamMpeg(const Waveform& wave, std::unique_ptr<FileObject> file,
                                        std::uint64_t offset, std::uint64_t bytes)
{
    std::uint64_t frames = 0;
    PacketInput stream = Open(*file, offset, bytes, frames);
    if (stream.decoder == nullptr)
        return nullptr;
    return MakeSource(wave.frames, wave.channels, std::move(stream), std::move(file));
}

unsigned Mp3KbitFor(float kbit) noexcept
{
    constexpr float kLeast = 8, kMost = 320;
    constexpr unsigned kDefault = 128;
    const float whole = std::round(kbit);
    return whole >= kLeast && whole <= kMost ? static_cast<unsigned>(whole) : kDefault;
}

bool EncodeMpeg(FrameSource& source, MpegEncoder& encoder)
{
    constexpr std::uint32_t kPieceFrames = 16384;
    std::vector<float> samples(std::size_t{std::min(kPieceFrames, source.Frames())} * source.Channels());
    for (std::uint32_t first = 0; first < source.Frames();) {
        const std::uint32_t frames = std::min(kPieceFrames, source.Frames() - first);
        const auto piece = std::span(samples).first(std::size_t{frames} * source.Channels());
        if (!source.Read(first, piece) || !encoder.Put(piece))
            return false;
        first += frames;
    }
    return encoder.Finish();
}

bool EncodeMp3(FrameSource& source, Mp3Settings settings, FileObject& file, Mp3Stream& out)
{
    out.offset = file.Position();
    FileSink sink(file);
    Mp3Encoder encoder;
    settings.channels = source.Channels();
    if (!encoder.Start(settings, sink) || !EncodeMpeg(source, encoder))
        return false;
    if (!sink.SeekEnd())
        return Fail(u"Couldn't write to file!");
    out.kbit = encoder.Kbit();
    out.bytes = file.Position() - out.offset;
    return true;
}

bool PutMp3(const Mp3Stream& stream, FileObject& from, FileObject& to)
{
    return (from.Seek(stream.offset) && CopyBytes(from, to, stream.bytes)) ||
           Fail(u"Couldn't write to file!");
}

} // namespace vimbo
