#include "codecs/ms_adpcm.h"

#include "codecs/pcm16.h"

namespace vimbo {
namespace {

constexpr std::size_t kHeaderBytes = 7; // of one channel
constexpr int kSmallestDelta = 16;
// Valid streams stay far below; more could overflow when it grows once again.
constexpr int kLargestDelta = INT32_MAX / 768;

// The document's AdaptationTable, 256 = 1, by the code as unsigned.
constexpr std::array<int, 16> kGrowth{230, 230, 230, 230, 307, 409, 512, 614,
                                      768, 614, 512, 409, 307, 230, 230, 230};

struct Channel {
    int last = 0, beforeLast = 0, delta = 0;
    MsAdpcmCoefficients pair;

    float Next(unsigned code) noexcept
    {
        // 64 bits, because a file's own coefficients may have any value.
        const std::int64_t weighted =
            std::int64_t{last} * pair.last + std::int64_t{beforeLast} * pair.beforeLast;
        const int error = static_cast<int>(code ^ 8) - 8;
        const std::int64_t sample = (weighted >> 8) + error * delta;
        beforeLast = last;
        last = static_cast<int>(std::clamp<std::int64_t>(sample, -32768, 32767));
        delta = std::clamp(kGrowth[code] * delta >> 8, kSmallestDelta, kLargestDelta);
        return FromPcm16(last);
    }
};

/// Each field of the header stands there for all channels in turn.
Channel ReadHeader(std::span<const MsAdpcmCoefficients> pairs, std::span<const std::byte> block,
                   std::size_t channels, std::size_t channel) noexcept
{
    const auto index = std::to_integer<std::size_t>(block[channel]);
    const auto word = [&](std::size_t field) {
        return Int16LeAt(block, channels * (1 + 2 * field) + 2 * channel);
    };
    return {word(1), word(2), word(0), pairs[std::min(index, pairs.size() - 1)]};
}

/// Decodes `Lanes` neighbouring channels side by side, so that their chains of samples overlap in time.
/// `Stride` is the number of channels, or 0 where only `channels` knows it.
template <std::size_t Lanes, std::size_t Stride>
void DecodeLanes(std::span<const MsAdpcmCoefficients> pairs, std::span<const std::byte> block,
                 std::size_t channels, std::size_t first, std::size_t frames, std::span<float> out) noexcept
{
    const std::size_t stride = Stride != 0 ? Stride : channels;
    std::array<Channel, Lanes> lanes;
    for (std::size_t lane = 0; lane < Lanes; ++lane) {
        lanes[lane] = ReadHeader(pairs, block, stride, first + lane);
        out[first + lane] = FromPcm16(lanes[lane].beforeLast);
        if (frames > 1)
            out[stride + first + lane] = FromPcm16(lanes[lane].last);
    }
    const auto codes = block.subspan(kHeaderBytes * stride);
    for (std::size_t frame = 2; frame < frames; ++frame)
        for (std::size_t lane = 0; lane < Lanes; ++lane) {
            const std::size_t at = (frame - 2) * stride + first + lane; // in codes, the upper of a byte first
            const auto pair = std::to_integer<unsigned>(codes[at / 2]);
            out[frame * stride + first + lane] = lanes[lane].Next(at % 2 == 0 ? pair >> 4 : pair & 15);
        }
}

} // namespace

std::size_t MsAdpcmBlockFrames(std::size_t blockBytes, std::size_t channels) noexcept
{
    if (channels == 0 || blockBytes / kHeaderBytes < channels)
        return 0;
    const std::size_t bytes = blockBytes - kHeaderBytes * channels;
    return 2 + bytes / channels * 2 + bytes % channels * 2 / channels;
}

std::size_t DecodeMsAdpcmBlock(std::span<const MsAdpcmCoefficients> pairs, std::span<const std::byte> block,
                               std::size_t channels, std::span<float> out) noexcept
{
    const std::size_t held = MsAdpcmBlockFrames(block.size(), channels);
    const std::size_t frames = held == 0 ? 0 : std::min(held, out.size() / channels);
    if (frames == 0)
        return 0;
    if (pairs.empty())
        pairs = kMsAdpcmStandardPairs;
    if (channels == 1)
        DecodeLanes<1, 1>(pairs, block, channels, 0, frames, out);
    else if (channels == 2)
        DecodeLanes<2, 2>(pairs, block, channels, 0, frames, out);
    else
        for (std::size_t channel = 0; channel < channels; ++channel)
            DecodeLanes<1, 0>(pairs, block, channels, channel, frames, out);
    return frames;
}

} // namespace vimbo
