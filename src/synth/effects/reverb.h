// Reverb: combs side by side and all-passes in a row, on each side, after M. R. Schroeder, "Natural sounding
// artificial reverberation" (1962), with damping in the combs' loops (J. A. Moorer, 1979).
#pragma once

#include "synth/effects/effect_settings.h"
#include "synth/effects/effect_traits.h"
#include "synth/stereo_block.h"

#include <array>
#include <span>

namespace vimbo::synth {

/// Opens and closes the reverb's output, a step per block.
class ReverbGate {
public:
    /// Keyed: open while the send is louder than -40 dB, then held and closed. Triggered: each onset opens it
    /// for the attack and the hold, however long the sound is.
    enum class Mode : std::uint8_t { Off, Keyed, Triggered };

    void Set(Mode mode, double attackSeconds, double holdSeconds, double releaseSeconds,
             double rate) noexcept;
    void Close() noexcept;
    /// The gain at the end of a block; `peak` is the send's.
    float Advance(float peak) noexcept;
    Mode GetMode() const noexcept { return mode_; }
    float Gain() const noexcept { return gain_; }

private:
    enum class Stage : std::uint8_t { Attack, Hold, Release, Closed };
    bool IsOpened(float peak) noexcept;

    Mode mode_ = Mode::Off;
    Stage stage_ = Stage::Closed;
    float gain_ = 0;
    float attackStep_ = 1, releaseStep_ = 1; ///< gain per block
    float holdBlocks_ = 0, heldBlocks_ = 0;
    float follower_ = 0, followerDecay_ = 0;
};

/// Byte 1: gate, 0 none, 1 keyed, others triggered. Values: room size 0 to 1; damping 0 to 1; the gate's
/// attack, hold and release, 0 to 10 s each. Only the send's left side is heard.
class Reverb {
public:
    static constexpr EffectTraits kTraits{.acts = EffectActs::WithTail};
    static constexpr std::size_t kCombs = 8, kAllPasses = 4; // on each side

    /// Frames of the lines at a rate: the left side's, then the right side's.
    static std::array<std::size_t, 2 * kCombs> CombFrames(double rate) noexcept;
    static std::array<std::size_t, 2 * kAllPasses> AllPassFrames(double rate) noexcept;

    static std::size_t MemoryNeeded(const ChannelFx& fx, double rate) noexcept;
    bool Setup(const ChannelFx& fx, double rate) noexcept;
    void Clear(std::span<float> memory) noexcept;
    bool IsActive() const noexcept { return true; }
    std::uint64_t TailFrames() const noexcept { return tailFrames_; }
    /// Adds to dry.
    void Process(StereoBlock& dry, const StereoBlock& send, float* memory) noexcept;

private:
    struct Line {
        std::size_t offset = 0, frames = 1, place = 0;
    };

    void SetLines(double rate) noexcept;
    /// `count` up to chunk_; writes the combs' sums.
    void RunCombs(std::size_t count, const float* in, float* left, float* right, float* memory) noexcept;
    static void RunAllPasses(std::span<Line> lines, std::size_t count, float* sound, float* memory) noexcept;

    std::array<Line, 2 * kCombs> combs_;
    std::array<Line, 2 * kAllPasses> allPasses_;
    std::size_t chunk_ = kBlockFrames; ///< frames that no line returns within; a multiple of four
    std::array<float, 2 * kCombs> damped_{};
    float feedback_ = 0.7f, damping_ = 0;
    std::size_t memoryUsed_ = 0;
    std::uint64_t tailFrames_ = 0;
    ReverbGate gate_;
};

} // namespace vimbo::synth
