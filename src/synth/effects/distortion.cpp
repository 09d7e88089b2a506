#include "synth/effects/distortion.h"

#include "dsp/kernels/lane_vectors.h"
#include "synth/effects/block_math.h"

namespace vimbo::synth {
namespace {

struct Bend {
    template <Isa>
    VIMBO_INLINE static void Run(float* __restrict dry, const float* __restrict send, float factor,
                                 float gain) noexcept
    {
        constexpr float kToOne = 0.63661975f; // 2 / pi
        for (std::size_t n = 0; n < kBlockFrames; ++n)
            dry[n] += (BlockArcTangent(send[n] * factor) * kToOne - send[n]) * gain;
    }
};

struct Cut {
    template <Isa>
    VIMBO_INLINE static void Run(float* __restrict dry, const float* __restrict send, float limit,
                                 float gain) noexcept
    {
        for (std::size_t n = 0; n < kBlockFrames; ++n) {
            const float above = send[n] > -limit ? send[n] : -limit;
            const float inside = above < limit ? above : limit;
            dry[n] += (inside - send[n]) * gain;
        }
    }
};

/// dB to gain; 0 where nothing can be heard any more.
float GainOrNone(float decibels) noexcept
{
    return decibels > -96 ? DecibelsToGain(decibels) : 0.0f;
}

} // namespace

bool Distortion::Setup(const ChannelFx& fx, double) noexcept
{
    const float amountDb = ValueOf(fx, 1, -96, 96);
    isSoft_ = ByteOf(fx, 1) == 0;
    if (isSoft_) {
        float makeUpDb = amountDb / 2;
        if (amountDb > 24)
            makeUpDb += (amountDb - 24) / 2;
        bend_ = GainOrNone(-amountDb);
        gain_ = DecibelsToGain(makeUpDb);
    } else {
        bend_ = GainOrNone(amountDb);
        gain_ = DecibelsToGain(-amountDb / 2);
    }
    return true;
}

void Distortion::Process(StereoBlock& dry, const StereoBlock& send, float*) noexcept
{
    if (isSoft_) {
        RunBest<Bend>(dry.left, send.left, bend_, gain_);
        RunBest<Bend>(dry.right, send.right, bend_, gain_);
    } else {
        RunBest<Cut>(dry.left, send.left, bend_, gain_);
        RunBest<Cut>(dry.right, send.right, bend_, gain_);
    }
}

} // namespace vimbo::synth
