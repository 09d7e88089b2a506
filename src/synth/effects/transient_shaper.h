// Transient shaper: raises or lowers the beginnings of notes and what follows them.
#pragma once

#include "dsp/kernels/biquad.h"
#include "dsp/kernels/voice_filter.h"
#include "synth/effects/effect_settings.h"
#include "synth/effects/effect_traits.h"
#include "synth/stereo_block.h"

#include <array>
#include <span>

namespace vimbo::synth {

/// Values: attack -1 to 1 and sustain -1 to 1, both 0 switch it off; centre of a 12 dB boost in what the
/// effect listens to, in Hz, 0 for none, up to 0.49 of the output rate.
class TransientShaper {
public:
    static constexpr EffectTraits kTraits{.acts = EffectActs::WhileFed};
    /// Fast and slow for attacks; quickly and slowly falling for sustained sound.
    static constexpr std::size_t kFollowers = 4;

    static std::size_t MemoryNeeded(const ChannelFx&, double) noexcept { return 0; }
    bool Setup(const ChannelFx& fx, double rate) noexcept;
    void Clear(std::span<float> memory) noexcept;
    bool IsActive() const noexcept { return attack_ != 0 || sustain_ != 0; }
    /// The followers must have come to rest before the next note.
    std::uint64_t TailFrames() const noexcept { return tailFrames_; }
    /// dry += (gain - 1) * send.
    void Process(StereoBlock& dry, const StereoBlock& send, float* memory) noexcept;

private:
    using Followers = std::array<float, kFollowers>;

    void Listen(const StereoBlock& send, float* heard) noexcept;

    float attack_ = 0, sustain_ = 0;
    float attackMakeUp_ = 1; ///< 3^-attack
    VoiceFilterCoefs highPass_;
    VoiceFilterState highPassState_;
    BiquadCoefs peak_;
    BiquadState peakState_;
    bool hasPeak_ = false;
    alignas(16) Followers up_{}, down_{}, values_{}, held_{};
    std::uint64_t tailFrames_ = 0;
};

} // namespace vimbo::synth
