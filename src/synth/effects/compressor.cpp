#include "synth/effects/compressor.h"

#include "dsp/kernels/lane_vectors.h"
#include "synth/effects/block_math.h"

#include <array>

namespace vimbo::synth {
namespace {

constexpr float kDecibelsPerOctave = 6.0205999f; // 20 log10(2)
constexpr float kOctavesPerDecibel = 0.16609640f;
constexpr float kSilenceDb = -96, kSilence = 1.5848932e-5f;
constexpr float kHighestGainDb = 48;
constexpr float kLongestSeconds = 10;

/// dB of the louder side over the threshold, at least 0.
struct MeasureOver {
    template <Isa>
    VIMBO_INLINE static void Run(const StereoBlock* send, float offsetDb, float* __restrict over) noexcept
    {
        for (std::size_t n = 0; n < kBlockFrames; ++n) {
            const float left = std::fabs(send->left[n]), right = std::fabs(send->right[n]);
            const float louder = left > right ? left : right;
            const float heard = louder > kSilence ? louder : kSilence;
            const float decibels = BlockLog2(heard) * kDecibelsPerOctave + offsetDb;
            over[n] = decibels > 0 ? decibels : 0;
        }
    }
};

struct ApplyGain {
    template <Isa>
    VIMBO_INLINE static void Run(StereoBlock* dry, const float* __restrict over, float slope,
                                 float offsetDb) noexcept
    {
        for (std::size_t n = 0; n < kBlockFrames; ++n) {
            const float wanted = over[n] * slope + offsetDb;
            const float decibels = wanted < kHighestGainDb ? wanted : kHighestGainDb;
            const float audible = decibels > kSilenceDb ? decibels : kSilenceDb;
            const float gain = decibels > kSilenceDb ? BlockExp2(audible * kOctavesPerDecibel) : 0;
            dry->left[n] *= gain;
            dry->right[n] *= gain;
        }
    }
};

} // namespace

bool Compressor::Setup(const ChannelFx& fx, double rate) noexcept
{
    thresholdDb_ = ValueOf(fx, 1, -96, 48);
    const float ratio = fx.values[1] > 0 ? ValueOf(fx, 2, 0.25f, 1000) : 1.0f;
    const float releaseSeconds = ValueOf(fx, 4, 0, kLongestSeconds);
    slope_ = 1 / ratio - 1;
    attack_ = DecayOverTime(ValueOf(fx, 3, 0, kLongestSeconds), rate);
    release_ = DecayOverTime(releaseSeconds, rate);
    makeUpDb_ = ValueOf(fx, 5, -96, 48);
    tailFrames_ = static_cast<std::uint64_t>(static_cast<double>(releaseSeconds) * rate * 13.8);
    return true;
}

void Compressor::Process(StereoBlock& dry, const StereoBlock& send, float*) noexcept
{
    alignas(32) std::array<float, kBlockFrames> overs;
    RunBest<MeasureOver>(&send, makeUpDb_ - thresholdDb_, overs.data());
    const float attack = attack_, release = release_;
    float smooth = over_;
    for (float& over : overs) {
        smooth = over + (smooth - over) * (over > smooth ? attack : release);
        Flush(smooth);
        over = smooth;
    }
    over_ = smooth;
    RunBest<ApplyGain>(&dry, overs.data(), slope_, makeUpDb_ + thresholdDb_ * 0.25f * slope_);
}

} // namespace vimbo::synth
