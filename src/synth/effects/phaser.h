// Phaser: first-order all-passes in a row, whose corner swings, beside the sound itself.
#pragma once

#include "synth/effects/effect_lfo.h"
#include "synth/effects/effect_traits.h"
#include "synth/stereo_block.h"

#include <array>
#include <span>

namespace vimbo::synth {

/// Byte 1: not 0 lets the right side swing apart from the left one (a quarter of a cycle for sine and
/// triangle, half a cycle for the square). Byte 2: shape of the swing. Values: rate 0 to 100 Hz; depth 0 to
/// 0.99; delay of the whole row at rest in seconds, a stage per frame of it, 1 to 48 stages; feedback -0.99
/// to 0.99.
class Phaser {
public:
    static constexpr EffectTraits kTraits{.acts = EffectActs::WithTail};
    static constexpr std::size_t kMaxStages = 48;

    static std::size_t MemoryNeeded(const ChannelFx&, double) noexcept { return 0; }
    bool Setup(const ChannelFx& fx, double rate) noexcept;
    void Clear(std::span<float> memory) noexcept;
    bool IsActive() const noexcept { return true; }
    std::uint64_t TailFrames() const noexcept { return tailFrames_; }
    /// Adds to dry.
    void Process(StereoBlock& dry, const StereoBlock& send, float* memory) noexcept;

private:
    using Stages = std::array<float, kMaxStages>; ///< what each stage gave for the frame before

    float Stretch(std::size_t side) const noexcept;

    EffectLfo lfo_;
    float rightOffset_ = 0;
    float depth_ = 0, feedback_ = 0, outGain_ = 1;
    std::size_t stages_ = 1;
    std::uint64_t tailFrames_ = 0;
    std::array<float, 2> stretch_{1, 1}; ///< delay of a stage in frames, at the end of the block before
    std::array<float, 2> input_{};       ///< of the first stage, the frame before
    alignas(16) std::array<Stages, 2> outputs_{};
};

} // namespace vimbo::synth
