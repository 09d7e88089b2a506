// Chorus: voices with delays that swing, on each side by itself.
#pragma once

#include "synth/effects/effect_lfo.h"
#include "synth/effects/effect_traits.h"
#include "synth/stereo_block.h"

#include <array>
#include <span>

namespace vimbo::synth {

/// Byte 1: voices per side, up to 16; 0 switches it off. Byte 2: 0 spreads the voices over one swing, others
/// let each voice swing half as fast as the one before it. Byte 3: not 0 makes the delay follow the depth.
/// Values: rate 0 to 100 Hz; depth 0 to 0.1 s (without byte 3 up to just below the delay of 0.025 s);
/// feedback 0 to 4 (a limiter in the loop keeps any feedback from growing).
class Chorus {
public:
    static constexpr EffectTraits kTraits{.acts = EffectActs::WithTail};
    static constexpr std::size_t kMaxVoices = 16;

    static std::size_t MemoryNeeded(const ChannelFx& fx, double rate) noexcept;
    bool Setup(const ChannelFx& fx, double rate) noexcept;
    void Clear(std::span<float> memory) noexcept;
    bool IsActive() const noexcept { return voices_ > 0; }
    std::uint64_t TailFrames() const noexcept { return tailFrames_; }
    /// Adds to dry.
    void Process(StereoBlock& dry, const StereoBlock& send, float* memory) noexcept;

private:
    /// Delay of a voice at the frame before a block, and its change per frame.
    struct Swing {
        double delay = 0, slope = 0;
    };
    using Swings = std::array<std::array<Swing, kMaxVoices>, 2>;

    float& Phase(std::size_t side, std::size_t voice) noexcept { return phases_[side][voice]; }
    /// Moves all voices on by a block.
    /// @return how many frames can be read before the first of them is written
    std::size_t Advance(Swings& swings) noexcept;
    void RunSide(std::span<const Swing> swings, std::span<float, kBlockFrames> dry, const float* send,
                 float* line, std::size_t chunk) noexcept;
    void AddVoices(std::span<const Swing> swings, std::size_t first, std::span<float> sum,
                   const float* line) const noexcept;
    void Write(float* line, std::size_t first, std::span<const float> in) const noexcept;
    void RestartPhases() noexcept;

    std::size_t voices_ = 0;
    bool isHalving_ = false;
    double base_ = 0, depth_ = 0; ///< frames
    float step_ = 0;              ///< cycles per block
    float feedback_ = 0;          ///< of one voice
    float outGain_ = 1;
    std::size_t ring_ = 0; ///< frames of a line; a power of two. Each is stored twice, end to end
    std::size_t place_ = 0;
    std::uint64_t tailFrames_ = 0;
    std::array<std::array<float, kMaxVoices>, 2> phases_{};
};

} // namespace vimbo::synth
