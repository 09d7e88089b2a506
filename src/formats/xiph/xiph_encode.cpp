// Any waveform's frames to FLAC and Ogg Vorbis streams.
#include "base/last_error.h"
#include "dsp/kernels/sample_convert.h"
#include "formats/xiph/file_range.h"
#include "formats/xiph/xiph.h"

#include <algorithm>
#include <cmath>

namespace vimbo {
namespace {

constexpr std::uint32_t kPieceFrames = 16384;

/// Calls `put` with all frames, piece by piece.
template <class Put>
bool ForEachPiece(FrameSource& source, Put put)
{
    std::vector<float> samples(std::size_t{std::min(kPieceFrames, source.Frames())} * source.Channels());
    for (std::uint32_t first = 0; first < source.Frames();) {
        const std::uint32_t frames = std::min(kPieceFrames, source.Frames() - first);
        const auto piece = std::span(samples).first(std::size_t{frames} * source.Channels());
        if (!source.Read(first, piece) || !put(piece))
            return false;
        first += frames;
    }
    return true;
}

/// Widths that PCM files hold in whole bytes: the very codes that they get.
void ToStoredCodes(std::span<const float> in, SampleCoding coding, std::span<std::int32_t> out)
{
    std::vector<std::byte> bytes(static_cast<std::size_t>(StoredBytes(coding, in.size())));
    DeltaState none;
    EncodeSamples({coding, false, std::endian::little}, in, bytes, none);
    const std::size_t width = bytes.size() / in.size();
    const unsigned unused = 32 - 8 * static_cast<unsigned>(width);
    for (std::size_t i = 0; i < in.size(); ++i) {
        std::uint32_t code = 0;
        for (std::size_t byte = 0; byte < width; ++byte)
            code |= std::to_integer<std::uint32_t>(bytes[i * width + byte]) << (8 * byte);
        out[i] = static_cast<std::int32_t>(code << unused) >> unused;
    }
}

/// Other widths, which PCM files pack: the same rounding, half up in single precision.
void ToRoundedCodes(std::span<const float> in, unsigned bits, std::span<std::int32_t> out)
{
    const float half = std::ldexp(1.0f, static_cast<int>(bits) - 1);
    std::ranges::transform(in, out.begin(), [half](float x) {
        const float code = (std::isnan(x) ? 0.0f : x) * half + (half + 0.5f);
        return static_cast<std::int32_t>(std::clamp(code, 0.0f, 2 * half - 1)) -
               static_cast<std::int32_t>(half);
    });
}

void ToCodes(std::span<const float> in, unsigned bits, std::span<std::int32_t> out)
{
    switch (bits) {
    case 8:
        return ToStoredCodes(in, SampleCoding::Pcm8, out);
    case 16:
        return ToStoredCodes(in, SampleCoding::Pcm16, out);
    case 24:
        return ToStoredCodes(in, SampleCoding::Pcm24, out);
    default:
        return ToRoundedCodes(in, bits, out);
    }
}

} // namespace

bool EncodeFlac(FrameSource& source, const FlacSettings& settings, FileObject& file)
{
    FileSink sink(file);
    FlacEncoder encoder;
    std::vector<std::int32_t> codes;
    const auto put = [&](std::span<const float> piece) {
        codes.resize(piece.size());
        ToCodes(piece, settings.bits, codes);
        return encoder.Put(codes);
    };
    if (!encoder.Start(settings, source.Channels(), source.Frames(), sink) || !ForEachPiece(source, put) ||
        !encoder.Finish())
        return false;
    return sink.SeekEnd() || Fail(u"Couldn't write to file!");
}

bool EncodeVorbis(FrameSource& source, const VorbisSettings& settings, FileObject& file)
{
    FileSink sink(file);
    VorbisEncoder encoder;
    if (!encoder.Start(settings, source.Channels(), sink) ||
        !ForEachPiece(source, [&](std::span<const float> piece) { return encoder.Put(piece); }) ||
        !encoder.Finish())
        return false;
    return sink.SeekEnd() || Fail(u"Couldn't write to file!");
}

} // namespace vimbo
