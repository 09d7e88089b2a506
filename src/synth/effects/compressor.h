// Compressor: what the send gives sets the gain of the dry sound.
#pragma once

#include "synth/effects/effect_settings.h"
#include "synth/effects/effect_traits.h"
#include "synth/stereo_block.h"

#include <span>

namespace vimbo::synth {

/// Values: threshold -96 to 48 dB; ratio 0.25 to 1000 (below 1 expands, 0 and below is 1); attack and release
/// 0 to 10 s; make-up -96 to 48 dB. The gain is limited to 48 dB.
/// No compression (ratio up to 1) with a threshold of 0 dB or more switches it off.
class Compressor {
public:
    static constexpr EffectTraits kTraits{.acts = EffectActs::OnDrySound};

    static std::size_t MemoryNeeded(const ChannelFx&, double) noexcept { return 0; }
    bool Setup(const ChannelFx& fx, double rate) noexcept;
    void Clear(std::span<float>) noexcept { over_ = 1e-5f; }
    bool IsActive() const noexcept { return thresholdDb_ < 0 || slope_ < 0; }
    std::uint64_t TailFrames() const noexcept { return tailFrames_; }
    /// Multiplies dry in place.
    void Process(StereoBlock& dry, const StereoBlock& send, float* memory) noexcept;

private:
    float thresholdDb_ = 0, makeUpDb_ = 0;
    float slope_ = 0; ///< dB of gain per dB over the threshold: 1 / ratio - 1
    float attack_ = 0, release_ = 0;
    float over_ = 1e-5f; ///< smoothed dB over the threshold
    std::uint64_t tailFrames_ = 0;
};

} // namespace vimbo::synth
