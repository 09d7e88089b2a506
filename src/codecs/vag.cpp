#include "codecs/vag.h"

#include "codecs/pcm16.h"

#include <array>

namespace vimbo {
namespace {

constexpr std::size_t kFilters = 5;
constexpr int kShifts = 13; // 0 (loudest) to 12
constexpr std::size_t kHeaderBytes = 2;

/// Weights of the last two samples, 64 = 1.
struct Filter {
    int last, beforeLast;
};
constexpr std::array<Filter, kFilters> kFilterTable{{{0, 0}, {60, 0}, {115, -52}, {98, -55}, {122, -60}}};
constexpr Filter kNoFilter = kFilterTable[0];

int Foretold(const VagState& state, const Filter& filter) noexcept
{
    return (state.last * filter.last + state.beforeLast * filter.beforeLast) / 64;
}

int Push(VagState& state, int sample) noexcept
{
    state.beforeLast = state.last;
    state.last = Clamp16(sample);
    return state.last;
}

/// A code with its top bit as the sign, in the upper four of 16 bits.
int SignedCode(unsigned code) noexcept
{
    return (static_cast<int>(code ^ 8) - 8) * 4096;
}

VagFlag FlagOf(std::span<const std::byte> frame) noexcept
{
    return static_cast<VagFlag>(std::to_integer<unsigned>(frame[1]) & 7);
}

void DecodeFrame(VagState& state, std::span<const std::byte, kVagFrameBytes> frame,
                 std::span<float> out) noexcept
{
    const auto head = std::to_integer<unsigned>(frame[0]);
    const Filter filter = head >> 4 < kFilters ? kFilterTable[head >> 4] : kNoFilter;
    const unsigned shift = head & 15;
    VagState track = state;
    for (std::size_t i = 0; i < out.size(); ++i) {
        const unsigned code = std::to_integer<unsigned>(frame[kHeaderBytes + i / 2]) >> (i % 2 * 4) & 15;
        out[i] = FromPcm16(Push(track, Foretold(track, filter) + (SignedCode(code) >> shift)));
    }
    state = track;
}

using Samples = std::array<int, kVagFrameSamples>;

struct Trial {
    std::array<std::uint8_t, kVagFrameSamples> codes{};
    VagState state;
    std::int64_t error = 0; ///< sum of squares
};

/// Encodes a frame in one way, from the state that the decoder will be in; false when the error reaches
/// `limit`.
bool Try(Trial& trial, const Samples& samples, const Filter& filter, int shift, std::int64_t limit) noexcept
{
    const int unit = 4096 >> shift;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const int foretold = Foretold(trial.state, filter);
        const int twice = 2 * (samples[i] - foretold) + unit;
        const int code = std::clamp(twice >> (13 - shift), -8, 7); // of the nearest multiple of the unit
        const std::int64_t off = samples[i] - Push(trial.state, foretold + code * unit);
        trial.codes[i] = static_cast<std::uint8_t>(code & 15);
        trial.error += off * off;
        if (trial.error >= limit)
            return false;
    }
    return true;
}

void Pack(const Trial& trial, std::size_t filter, int shift,
          std::span<std::byte, kVagFrameBytes> out) noexcept
{
    out[0] = static_cast<std::byte>(filter << 4 | static_cast<unsigned>(shift));
    for (std::size_t i = 0; i < kVagFrameSamples; i += 2)
        out[kHeaderBytes + i / 2] = static_cast<std::byte>(trial.codes[i] | trial.codes[i + 1] << 4);
}

/// Number of the frame whose border lies nearest.
std::size_t NearestFrame(std::size_t sample) noexcept
{
    return sample / kVagFrameSamples + (sample % kVagFrameSamples >= kVagFrameSamples / 2 ? 1 : 0);
}

std::size_t FrameCount(std::size_t samples) noexcept
{
    return samples / kVagFrameSamples + (samples % kVagFrameSamples != 0 ? 1 : 0);
}

} // namespace

VagOutline OutlineVag(std::span<const std::byte> in) noexcept
{
    VagOutline outline;
    std::optional<std::size_t> start;
    for (; in.size() >= kVagFrameBytes; in = in.subspan(kVagFrameBytes)) {
        const VagFlag flag = FlagOf(in);
        outline.hasEnd = flag == VagFlag::End;
        if (outline.hasEnd)
            break;
        if (flag == VagFlag::LoopStart)
            start = outline.samples;
        outline.samples += kVagFrameSamples;
        if (flag == VagFlag::LoopEnd && start && !outline.loop)
            outline.loop = VagLoop{*start, outline.samples};
    }
    return outline;
}

std::size_t DecodeVag(VagState& state, std::span<const std::byte> in, std::span<float> out) noexcept
{
    std::size_t done = 0;
    for (; in.size() >= kVagFrameBytes && done < out.size(); in = in.subspan(kVagFrameBytes)) {
        if (FlagOf(in) == VagFlag::End)
            break;
        const std::size_t samples = std::min(kVagFrameSamples, out.size() - done);
        DecodeFrame(state, in.first<kVagFrameBytes>(), out.subspan(done, samples));
        done += samples;
    }
    return done;
}

void EncodeVagFrame(VagState& state, std::span<const float> in, VagFlag flag,
                    std::span<std::byte, kVagFrameBytes> out) noexcept
{
    Samples samples{};
    std::transform(in.begin(), in.begin() + static_cast<std::ptrdiff_t>(std::min(in.size(), samples.size())),
                   samples.begin(), ToPcm16);
    std::int64_t best = INT64_MAX;
    VagState bestState = state;
    for (std::size_t filter = 0; filter < kFilters; ++filter)
        for (int shift = 0; shift < kShifts; ++shift) {
            Trial trial;
            trial.state = state;
            if (!Try(trial, samples, kFilterTable[filter], shift, best))
                continue;
            best = trial.error;
            bestState = trial.state;
            Pack(trial, filter, shift, out);
        }
    out[1] = static_cast<std::byte>(flag);
    state = bestState;
}

std::size_t VagBytes(std::size_t samples) noexcept
{
    return (FrameCount(samples) + 1) * kVagFrameBytes;
}

std::size_t EncodeVag(std::span<const float> in, const std::optional<VagLoop>& loop,
                      std::span<std::byte> out) noexcept
{
    const std::size_t frames = FrameCount(in.size());
    const std::size_t loopStart = loop ? NearestFrame(loop->start) : 0;
    const std::size_t loopEnd = loop ? std::min(NearestFrame(loop->end), frames) : 0;
    const bool hasLoop = loopEnd >= 2 && loopStart < loopEnd - 1;
    VagState state;
    std::size_t done = 0;
    for (std::size_t frame = 0; frame < frames && out.size() - done >= kVagFrameBytes; ++frame) {
        VagFlag flag = VagFlag::None;
        if (hasLoop && frame == loopStart)
            flag = VagFlag::LoopStart;
        else if (hasLoop && frame == loopEnd - 1)
            flag = VagFlag::LoopEnd;
        EncodeVagFrame(state, in.subspan(frame * kVagFrameSamples), flag,
                       out.subspan(done).first<kVagFrameBytes>());
        done += kVagFrameBytes;
    }
    if (out.size() - done < kVagFrameBytes)
        return done;
    const auto end = out.subspan(done, kVagFrameBytes);
    std::fill(end.begin(), end.end(), std::byte{0});
    end[1] = static_cast<std::byte>(VagFlag::End);
    return done + kVagFrameBytes;
}

} // namespace vimbo
