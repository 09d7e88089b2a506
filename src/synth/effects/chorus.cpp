#include "synth/effects/chorus.h"

#include "dsp/kernels/cubic_read.h"
#include "dsp/kernels/lane_vectors.h"
#include "synth/effects/ring.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace vimbo::synth {
namespace {

constexpr double kUsualDelaySeconds = 0.025;
constexpr double kShortestDelay = 4; // frames: the interpolation's neighbours must have been written
constexpr float kDeepestSeconds = 0.1f;

struct Delays {
    double base, depth;
};
Delays DelaysOf(const ChannelFx& fx, double rate) noexcept
{
    const double depth = static_cast<double>(ValueOf(fx, 2, 0, kDeepestSeconds)) * rate;
    if (ByteOf(fx, 3) != 0)
        return {depth + kShortestDelay, depth};
    const double base = rate * kUsualDelaySeconds;
    return {base, std::min(depth, base - kShortestDelay)};
}

std::size_t PowerOfTwoFrom(double frames) noexcept
{
    return std::bit_ceil(static_cast<std::size_t>(frames) + 1);
}

/// A block and the interpolation's neighbours beside the longest delay.
std::size_t RingFrames(Delays delays) noexcept
{
    return PowerOfTwoFrom(delays.base + delays.depth + kBlockFrames + 8);
}

/// Straight up to a half, then a parabola that reaches 1 at 1.5, then 1.
struct LimitLoop {
    template <Isa>
    VIMBO_INLINE static void Run(float* __restrict loop, const float* __restrict send, float feedback,
                                 std::size_t count) noexcept
    {
        for (std::size_t n = 0; n < count; ++n) {
            const float x = (loop[n] * feedback + send[n] + kFlush) - kFlush;
            const float a = std::fabs(x);
            const float bent = a - (a - 0.5f) * (a - 0.5f) * 0.5f;
            const float size = a >= 1.5f ? 1.0f : a > 0.5f ? bent : a;
            loop[n] = std::copysign(size, x);
        }
    }
};

struct AddScaled {
    template <Isa>
    VIMBO_INLINE static void Run(float* __restrict to, const float* __restrict from, float gain,
                                 std::size_t count) noexcept
    {
        for (std::size_t n = 0; n < count; ++n)
            to[n] += from[n] * gain;
    }
};

} // namespace

std::size_t Chorus::MemoryNeeded(const ChannelFx& fx, double rate) noexcept
{
    return ByteOf(fx, 1) == 0 ? 0 : 4 * RingFrames(DelaysOf(fx, rate));
}

bool Chorus::Setup(const ChannelFx& fx, double rate) noexcept
{
    const std::size_t voicesBefore = voices_;
    const bool wasHalving = isHalving_;
    voices_ = std::min<std::size_t>(ByteOf(fx, 1), kMaxVoices);
    isHalving_ = ByteOf(fx, 2) != 0;
    if (voices_ == 0)
        return true;
    const Delays delays = DelaysOf(fx, rate);
    base_ = delays.base;
    depth_ = delays.depth;
    const auto hz = static_cast<double>(ValueOf(fx, 1, 0, EffectLfo::kHighestHz));
    step_ = static_cast<float>(std::min(hz * kBlockFrames / rate, 1.0));
    const float feedback = ValueOf(fx, 3, 0, 4);
    feedback_ = feedback / static_cast<float>(voices_);
    outGain_ = 1 / std::sqrt(static_cast<float>(voices_));
    const double lineFrames = static_cast<double>(PowerOfTwoFrom(base_ + depth_ + 2));
    tailFrames_ =
        static_cast<std::uint64_t>(lineFrames * (RoundsUntilSilence(static_cast<double>(feedback)) + 1));
    const std::size_t ring = RingFrames(delays);
    if (voices_ != voicesBefore || isHalving_ != wasHalving)
        RestartPhases();
    if (ring <= ring_)
        return true;
    ring_ = ring;
    return false;
}

void Chorus::Clear(std::span<float> memory) noexcept
{
    std::ranges::fill(memory.first(4 * ring_), 0.0f);
    place_ = 0;
    RestartPhases();
}

void Chorus::RestartPhases() noexcept
{
    const auto count = static_cast<float>(std::max<std::size_t>(voices_, 1));
    for (std::size_t voice = 0; voice < voices_; ++voice) {
        const float even = static_cast<float>(voice) / count;
        const float shifted = even + (static_cast<float>(voices_ / 2) + 0.5f) / count;
        Phase(0, voice) = isHalving_ ? 0.0f : even;
        Phase(1, voice) = isHalving_ ? 0.5f : shifted >= 1 ? shifted - 1 : shifted;
    }
}

std::size_t Chorus::Advance(Swings& swings) noexcept
{
    double shortest = base_ + depth_;
    for (std::size_t side = 0; side < 2; ++side) {
        float step = step_;
        for (std::size_t voice = 0; voice < voices_; ++voice) {
            float& phase = Phase(side, voice);
            const double from = base_ + depth_ * static_cast<double>(SineOfPhase(phase));
            phase += step;
            phase -= phase >= 1 ? 1.0f : 0.0f;
            const double to = base_ + depth_ * static_cast<double>(SineOfPhase(phase));
            swings[side][voice] = {from, (to - from) / kBlockFrames};
            shortest = std::min({shortest, from, to});
            step *= isHalving_ ? 0.5f : 1.0f;
        }
    }
    // The interpolation looks at two frames behind the place.
    return std::clamp<std::size_t>(static_cast<std::size_t>(shortest) - 2, 1, kBlockFrames);
}

void Chorus::AddVoices(std::span<const Swing> swings, std::size_t first, std::span<float> sum,
                       const float* line) const noexcept
{
    std::ranges::fill(sum, 0.0f);
    std::array<float, kBlockFrames> voice;
    for (const Swing& swing : swings) {
        const double startDelay = swing.delay + swing.slope * static_cast<double>(first + 1);
        const double endDelay = swing.delay + swing.slope * static_cast<double>(first + sum.size());
        const auto back = static_cast<std::size_t>(std::max(startDelay, endDelay)) + 2;
        const std::size_t start = (place_ + first - back) & (ring_ - 1);
        ReadCubicMono(line + start, static_cast<double>(back) - startDelay, 1 - swing.slope,
                      std::span(voice).first(sum.size()));
        RunBest<AddScaled>(sum.data(), voice.data(), 1.0f, sum.size());
    }
}

void Chorus::Write(float* line, std::size_t first, std::span<const float> in) const noexcept
{
    const std::size_t at = (place_ + first) & (ring_ - 1);
    WriteRing(line, ring_, at, in.data(), in.size());
    WriteRing(line + ring_, ring_, at, in.data(), in.size());
}

void Chorus::RunSide(std::span<const Swing> swings, std::span<float, kBlockFrames> dry, const float* send,
                     float* line, std::size_t chunk) noexcept
{
    const bool loops = feedback_ > 0;
    if (!loops) {
        Write(line, 0, {send, kBlockFrames});
        chunk = kBlockFrames;
    }
    std::array<float, kBlockFrames> buffer;
    for (std::size_t first = 0; first < kBlockFrames; first += chunk) {
        const std::size_t count = std::min(chunk, kBlockFrames - first);
        const std::span<float> sum = std::span(buffer).first(count);
        AddVoices(swings, first, sum, line);
        RunBest<AddScaled>(dry.data() + first, sum.data(), outGain_, count);
        if (loops) {
            RunBest<LimitLoop>(sum.data(), send + first, feedback_, count);
            Write(line, first, sum);
        }
    }
}

void Chorus::Process(StereoBlock& dry, const StereoBlock& send, float* memory) noexcept
{
    Swings swings;
    const std::size_t chunk = Advance(swings);
    RunSide(std::span(swings[0]).first(voices_), dry.left, send.left, memory, chunk);
    RunSide(std::span(swings[1]).first(voices_), dry.right, send.right, memory + 2 * ring_, chunk);
    place_ = (place_ + kBlockFrames) & (ring_ - 1);
}

} // namespace vimbo::synth
