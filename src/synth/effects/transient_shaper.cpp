#include "synth/effects/transient_shaper.h"

#include "dsp/kernels/lane_vectors.h"

#include <algorithm>
#include <cmath>

namespace vimbo::synth {
namespace {

constexpr float kRest = 1e-5f; // added to what is heard, so that ratios stay sane in silence
constexpr double kHighPassHz = 160;
constexpr float kPeakQ = 0.2f, kPeakDb = 12;
constexpr double kAttackHz = 10, kAttackFallHz = 2.5, kSustainRiseHz = 144, kSustainFallHz = 1.8;

/// Four followers, each with the hold behind it. The fast one goes to the left side of `attacks` and the slow
/// one to the right; the quickly falling one to the left side of `sustains`.
struct Follow {
    template <Isa>
    VIMBO_INLINE static void Run(const float* heard, const float* up4, const float* down4, float* values4,
                                 float* held4, StereoBlock* attacks, StereoBlock* sustains) noexcept
    {
        Float4 up, down, v, h;
        Load(up, up4);
        Load(down, down4);
        Load(v, values4);
        Load(h, held4);
        const auto step = [&](float in, Float4& out) __attribute__((always_inline))
        {
            const Float4 x = {in, in, in, in};
            const Float4 rise = x - v;
            v = v + rise * (x >= v ? up : down);
            const Float4 above = v - h;
            h = above > 0 ? v : h + above * down;
            out = h;
        };
        for (std::size_t n = 0; n < kBlockFrames; n += 4) {
            Float4 a, b, c, d;
            step(heard[n], a);
            step(heard[n + 1], b);
            step(heard[n + 2], c);
            step(heard[n + 3], d);
            Transpose(a, b, c, d);
            Store(attacks->left + n, a);
            Store(attacks->right + n, b);
            Store(sustains->left + n, c);
            Store(sustains->right + n, d);
        }
        Store(values4, v);
        Store(held4, h);
    }
};

struct Shape {
    template <Isa>
    VIMBO_INLINE static void Run(StereoBlock* __restrict dry, const StereoBlock* __restrict send,
                                 const StereoBlock* __restrict attacks,
                                 const StereoBlock* __restrict sustains, float attack, float makeUp) noexcept
    {
        for (std::size_t n = 0; n < kBlockFrames; ++n) {
            const float ratio = attacks->right[n] / attacks->left[n];
            const float meant = (ratio - 1) * attack > 0 ? ratio : 1.0f;
            const float gain = sustains->right[n] / sustains->left[n] * (meant * makeUp) - 1;
            dry->left[n] += gain * send->left[n];
            dry->right[n] += gain * send->right[n];
        }
    }
};

} // namespace

bool TransientShaper::Setup(const ChannelFx& fx, double rate) noexcept
{
    attack_ = ValueOf(fx, 1, -1, 1);
    sustain_ = ValueOf(fx, 2, -1, 1);
    const double a = PortablePower(40, static_cast<double>(attack_));
    const double s = PortablePower(6, static_cast<double>(sustain_));
    const auto one = [rate](double hz) { return 1 - DecayAtFrequency(hz, rate); };
    up_ = {one(kAttackHz * std::max(1 / a, 1.0)), one(kAttackHz * std::max(a, 1.0)), one(kSustainRiseHz),
           one(kSustainRiseHz)};
    down_ = {one(kAttackFallHz), one(kAttackFallHz), one(kSustainFallHz * std::max(s, 1.0)),
             one(kSustainFallHz * std::max(1 / s, 1.0))};
    attackMakeUp_ = static_cast<float>(PortablePower(3, -static_cast<double>(attack_)));
    const auto highPassRatio = static_cast<float>(kHighPassHz / rate);
    highPass_ = ComputeVoiceFilter(VoiceFilterKind::HighPass6, highPassRatio, 0, 0);
    const float peakHz = ValueOf(fx, 3, 0, static_cast<float>(0.49 * rate));
    hasPeak_ = peakHz > 0;
    peak_ = ComputeBiquad(EqMode::Peak, peakHz / static_cast<float>(rate), kPeakDb, kPeakQ);
    tailFrames_ = static_cast<std::uint64_t>(rate * 2 * 13.8 / (6.2831853 * kSustainFallHz));
    return true;
}

void TransientShaper::Clear(std::span<float>) noexcept
{
    highPassState_ = {};
    peakState_ = {};
    values_.fill(kRest);
    held_.fill(kRest);
}

void TransientShaper::Listen(const StereoBlock& send, float* heard) noexcept
{
    for (std::size_t n = 0; n < kBlockFrames; ++n)
        heard[n] = (send.left[n] + send.right[n]) * 0.70710677f;
    const FilterLane highPass{heard, &highPass_, &highPassState_};
    RunVoiceFilter(VoiceFilterKind::HighPass6, {&highPass, 1});
    if (hasPeak_) {
        const EqLane peak{heard, 1, &peak_, &peakState_};
        RunEqLanes({&peak, 1});
    }
    for (std::size_t n = 0; n < kBlockFrames; ++n)
        heard[n] = std::fabs(heard[n]) + kRest;
}

void TransientShaper::Process(StereoBlock& dry, const StereoBlock& send, float*) noexcept
{
    alignas(32) std::array<float, kBlockFrames> heard;
    StereoBlock attacks, sustains;
    Listen(send, heard.data());
    RunBest<Follow>(heard.data(), up_.data(), down_.data(), values_.data(), held_.data(), &attacks,
                    &sustains);
    RunBest<Shape>(&dry, &send, &attacks, &sustains, attack_, attackMakeUp_);
}

} // namespace vimbo::synth
