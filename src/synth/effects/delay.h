// Delay: echoes that jump from side to side.
#pragma once

#include "synth/effects/effect_settings.h"
#include "synth/effects/effect_traits.h"
#include "synth/stereo_block.h"

#include <span>

namespace vimbo::synth {

/// One line with two taps: the long one feeds back and sounds on the side opposite to the short one.
/// Byte 1: filter in the loop, 1 low-pass, others high-pass. Values: time 0 to 10 s; feedback -0.99 to 0.99;
/// crossfeed 0 to 1 (0: both taps at the long time; 0.5: the short one half as long); pan of the short tap
/// -1 to 1; cutoff in Hz, 0 for no filter. Only the send's left side is heard.
class Delay {
public:
    static constexpr EffectTraits kTraits{.acts = EffectActs::WithTail};

    static std::size_t MemoryNeeded(const ChannelFx& fx, double rate) noexcept;
    bool Setup(const ChannelFx& fx, double rate) noexcept;
    void Clear(std::span<float> memory) noexcept;
    bool IsActive() const noexcept { return true; }
    std::uint64_t TailFrames() const noexcept { return tailFrames_; }
    /// Adds to dry.
    void Process(StereoBlock& dry, const StereoBlock& send, float* memory) noexcept;

private:
    enum class Filter : std::uint8_t { None, LowPass, HighPass };
    void SetFilter(const ChannelFx& fx, double rate) noexcept;
    void RunFilter(std::span<float> samples) noexcept;

    std::size_t longFrames_ = 1, shortFrames_ = 1;
    PanGains longGains_, shortGains_;
    float feedback_ = 0;
    Filter filter_ = Filter::None;
    float feed_ = 1, decay_ = 0; ///< one-pole: factors of the input (or its change) and of the output before
    float x1_ = 0, y1_ = 0;
    std::size_t ring_ = 0, place_ = 0;
    std::uint64_t tailFrames_ = 0;
};

} // namespace vimbo::synth
