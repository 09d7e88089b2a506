#include "synth/effects/tremolo.h"

#include "dsp/kernels/lane_vectors.h"

namespace vimbo::synth {
namespace {

struct MoveLevel {
    template <Isa>
    VIMBO_INLINE static void Run(float* __restrict dry, const float* __restrict send, float from,
                                 float step) noexcept
    {
        for (std::size_t n = 0; n < kBlockFrames; ++n) {
            const float gain = from + step * static_cast<float>(static_cast<std::int32_t>(n) + 1);
            dry[n] += (gain - 1) * send[n];
        }
    }
};

} // namespace

void Tremolo::Process(StereoBlock& dry, const StereoBlock& send, float*) noexcept
{
    lfo_.Advance();
    const float target = Gain();
    const float step = (target - gain_) / static_cast<float>(kBlockFrames);
    RunBest<MoveLevel>(dry.left, send.left, gain_, step);
    RunBest<MoveLevel>(dry.right, send.right, gain_, step);
    gain_ = target;
}

} // namespace vimbo::synth
