// Distortion: bends what the send gives, or cuts it off.
#pragma once

#include "synth/effects/effect_settings.h"
#include "synth/effects/effect_traits.h"
#include "synth/stereo_block.h"

#include <span>

namespace vimbo::synth {

/// Byte 1: 0 bends (arc tangent), others cut. Value 1: level from which on it does, -96 to 96 dB; the lower,
/// the stronger. Half of it is made up for.
class Distortion {
public:
    static constexpr EffectTraits kTraits{.acts = EffectActs::WhileFed};

    static std::size_t MemoryNeeded(const ChannelFx&, double) noexcept { return 0; }
    bool Setup(const ChannelFx& fx, double rate) noexcept;
    void Clear(std::span<float>) noexcept {}
    bool IsActive() const noexcept { return true; }
    std::uint64_t TailFrames() const noexcept { return 0; }
    /// dry += (curve(send) - send) * gain.
    void Process(StereoBlock& dry, const StereoBlock& send, float* memory) noexcept;

private:
    bool isSoft_ = true;
    float bend_ = 1; ///< soft: factor before the arc tangent; hard: the limit
    float gain_ = 1;
};

} // namespace vimbo::synth
