// Runs an effect over noise. Compiled twice, the second time for the oldest processors and into a namespace
// of its own (see CMakeLists.txt), so that one test can compare both.
#include "synth/effects/effect_slot.h"

#include <cstring>
#include <span>

namespace vimbo::synth::testing {

void RunEffectOverNoise(const void* effect, double rate, std::span<float> out)
{
    ChannelFx fx;
    std::memcpy(static_cast<void*>(&fx), effect, sizeof fx);
    EffectSlot slot;
    slot.Reserve(EffectSlot::MemoryNeeded(fx, rate));
    slot.Setup(fx, rate);
    SynthRandom random;
    StereoBlock dry, send;
    for (std::size_t at = 0; at + kBlockFrames <= out.size(); at += kBlockFrames) {
        for (std::size_t n = 0; n < kBlockFrames; ++n) {
            send.left[n] = random.NextBipolar() * (at / 4096 % 2 == 0 ? 1.0f : 0.01f);
            send.right[n] = random.NextBipolar();
            dry.left[n] = send.left[n];
            dry.right[n] = -send.right[n];
        }
        slot.Process(dry, send, false, false);
        for (std::size_t n = 0; n < kBlockFrames; ++n)
            out[at + n] = n % 2 == 0 ? dry.left[n] : dry.right[n];
    }
}

} // namespace vimbo::synth::testing
