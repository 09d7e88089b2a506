#include "synth/effects/delay.h"

#include "dsp/kernels/lane_vectors.h"
#include "dsp/kernels/voice_filter.h"
#include "synth/effects/ring.h"

#include <array>

namespace vimbo::synth {
namespace {

constexpr float kLongestSeconds = 10;
constexpr float kMostFeedback = 0.99f;
constexpr float kFeed = 1.4142135f; // a centred voice has 0.7071 on each side, and one side is heard

std::size_t LongFrames(const ChannelFx& fx, double rate) noexcept
{
    const auto seconds = static_cast<double>(ValueOf(fx, 1, 0, kLongestSeconds));
    return std::max<std::size_t>(static_cast<std::size_t>(rate * seconds + 0.5), 1);
}
/// A block is written before the short tap is read.
std::size_t RingFrames(const ChannelFx& fx, double rate) noexcept
{
    return LongFrames(fx, rate) + kBlockFrames;
}

struct FeedLine {
    template <Isa>
    VIMBO_INLINE static void Run(float* __restrict in, const float* __restrict send,
                                 const float* __restrict echo, float feedback, std::size_t count) noexcept
    {
        for (std::size_t n = 0; n < count; ++n)
            in[n] = (send[n] * kFeed + echo[n] * feedback + kFlush) - kFlush;
    }
};

struct AddEchoes {
    template <Isa>
    VIMBO_INLINE static void Run(float* __restrict dry, const float* __restrict longTap, float longGain,
                                 const float* __restrict shortTap, float shortGain,
                                 std::size_t count) noexcept
    {
        for (std::size_t n = 0; n < count; ++n)
            dry[n] += longTap[n] * longGain + shortTap[n] * shortGain;
    }
};

} // namespace

std::size_t Delay::MemoryNeeded(const ChannelFx& fx, double rate) noexcept
{
    return RingFrames(fx, rate);
}

bool Delay::Setup(const ChannelFx& fx, double rate) noexcept
{
    const float crossfeed = ValueOf(fx, 3, 0, 1), rest = 1 - crossfeed;
    longFrames_ = LongFrames(fx, rate);
    const double shortFrames = static_cast<double>(rest) * static_cast<double>(longFrames_) + 0.5;
    shortFrames_ = std::max<std::size_t>(static_cast<std::size_t>(shortFrames), 1);
    feedback_ = ValueOf(fx, 2, -kMostFeedback, kMostFeedback);
    const PanGains pan = PanToGains(ValueOf(fx, 4, -1, 1));
    const float main = (feedback_ - 1) * rest + 1;
    const float crossed = rest == 1 ? feedback_ * 0.5f : feedback_;
    shortGains_ = {main * pan.left, main * pan.right};
    longGains_ = {crossed * pan.right, crossed * pan.left};
    SetFilter(fx, rate);
    tailFrames_ = static_cast<std::uint64_t>(static_cast<double>(longFrames_) *
                                             (RoundsUntilSilence(static_cast<double>(feedback_)) + 1));
    const std::size_t ring = RingFrames(fx, rate);
    if (ring <= ring_)
        return true;
    ring_ = ring;
    return false;
}

void Delay::SetFilter(const ChannelFx& fx, double rate) noexcept
{
    const float ratio = ValueOf(fx, 5, 0, static_cast<float>(rate)) / static_cast<float>(rate);
    const bool isLowPass = ByteOf(fx, 1) == 1;
    const bool isOn = ratio > 0 && (!isLowPass || ratio < 0.5f);
    filter_ = !isOn ? Filter::None : isLowPass ? Filter::LowPass : Filter::HighPass;
    const VoiceFilterKind kind = isLowPass ? VoiceFilterKind::LowPass6 : VoiceFilterKind::HighPass6;
    const VoiceFilterCoefs coefs = ComputeVoiceFilter(kind, ratio, 0, 0);
    feed_ = coefs.poleFeed;
    decay_ = coefs.poleDecay;
}

void Delay::Clear(std::span<float> memory) noexcept
{
    std::ranges::fill(memory.first(ring_), 0.0f);
    place_ = 0;
    x1_ = y1_ = 0;
}

void Delay::RunFilter(std::span<float> samples) noexcept
{
    if (filter_ == Filter::None)
        return;
    const float feed = feed_, decay = decay_, before = filter_ == Filter::HighPass ? 1.0f : 0.0f;
    float x1 = x1_, y = y1_;
    for (float& x : samples) {
        const float in = feed * (x - x1 * before);
        x1 = x;
        y = in + decay * y;
        Flush(y);
        x = y;
    }
    x1_ = x1;
    y1_ = y;
}

void Delay::Process(StereoBlock& dry, const StereoBlock& send, float* memory) noexcept
{
    const std::size_t chunk = std::min(longFrames_, kBlockFrames);
    alignas(32) std::array<float, kBlockFrames> longTap, shortTap, in;
    for (std::size_t first = 0; first < kBlockFrames; first += chunk) {
        const std::size_t count = std::min(chunk, kBlockFrames - first);
        ReadRing(memory, ring_, StepRing(ring_, place_, ring_ - longFrames_), longTap.data(), count);
        RunBest<FeedLine>(in.data(), send.left + first, longTap.data(), feedback_, count);
        RunFilter(std::span(in).first(count));
        WriteRing(memory, ring_, place_, in.data(), count);
        ReadRing(memory, ring_, StepRing(ring_, place_, ring_ - shortFrames_), shortTap.data(), count);
        place_ = StepRing(ring_, place_, count);
        RunBest<AddEchoes>(dry.left + first, longTap.data(), longGains_.left, shortTap.data(),
                           shortGains_.left, count);
        RunBest<AddEchoes>(dry.right + first, longTap.data(), longGains_.right, shortTap.data(),
                           shortGains_.right, count);
    }
}

} // namespace vimbo::synth
