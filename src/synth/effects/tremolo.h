// Tremolo: an oscillator moves the level of what the send gives.
#pragma once

#include "synth/effects/effect_lfo.h"
#include "synth/effects/effect_traits.h"
#include "synth/stereo_block.h"

#include <span>

namespace vimbo::synth {

/// Byte 1: shape (the low 6 bits of an oscillator's shape, always unipolar). Value 1: rate, 0 to 100 Hz.
class Tremolo {
public:
    static constexpr EffectTraits kTraits{.acts = EffectActs::WhileFed};

    static std::size_t MemoryNeeded(const ChannelFx&, double) noexcept { return 0; }
    bool Setup(const ChannelFx& fx, double rate) noexcept
    {
        lfo_.Set(ByteOf(fx, 1), ValueOf(fx, 1, 0, EffectLfo::kHighestHz), rate);
        return true;
    }
    void Clear(std::span<float>) noexcept
    {
        lfo_.Restart(0);
        gain_ = Gain();
    }
    bool IsActive() const noexcept { return true; }
    std::uint64_t TailFrames() const noexcept { return 0; }
    /// dry += (gain - 1) * send.
    void Process(StereoBlock& dry, const StereoBlock& send, float* memory) noexcept;

private:
    float Gain() const noexcept { return (lfo_.Value() + 1) * 0.5f; }

    EffectLfo lfo_;
    float gain_ = 0.5f; ///< at the end of the block before
};

} // namespace vimbo::synth
