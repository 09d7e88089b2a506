// One of the four effects of a channel, of whichever type its instrument asks for.
#pragma once

#include "synth/effects/chorus.h"
#include "synth/effects/compressor.h"
#include "synth/effects/delay.h"
#include "synth/effects/distortion.h"
#include "synth/effects/phaser.h"
#include "synth/effects/reverb.h"
#include "synth/effects/transient_shaper.h"
#include "synth/effects/tremolo.h"

#include <memory>
#include <variant>

namespace vimbo::synth {

/// State and delay lines of one effect. Parameters may hold anything: each effect limits them as its class
/// says, and types that do not exist are no effect. Output rates are taken as 1000 to 768000 Hz. Not for two
/// threads at a time.
class EffectSlot {
public:
    /// The loudest sound that effects take, 120 dB. Louder samples are cut down to it and NaN counts as
    /// silence, so that nothing a voice gives can stay in a delay line for ever.
    static constexpr float kLoudest = 1e6f;

    /// Floats of memory that Setup will want; at most 7.7 million (10 s of delay at the highest rate).
    static std::size_t MemoryNeeded(const ChannelFx& fx, double rate) noexcept;

    /// Floats that the slot has.
    std::size_t Memory() const noexcept { return capacity_; }
    /// Sees to memory of at least `floats` floats and keeps what the memory holds. The only call that
    /// allocates: not while blocks run. Out of memory leaves the slot as it is.
    void Reserve(std::size_t floats) noexcept;
    /// Takes over memory of `floats` floats, copies into it what it can hold of the present contents, and
    /// gives the old memory back for the caller to free where that may take time. A slot whose lines do not
    /// fit any more is off until the next Setup.
    [[nodiscard]] std::unique_ptr<float[]> Adopt(std::unique_ptr<float[]> memory,
                                                 std::size_t floats) noexcept;

    /// Another type or rate starts from silence. The same type goes on with what its lines hold, unless they
    /// must become longer than ever before. Without the memory needed the slot is off.
    void Setup(const ChannelFx& fx, double rate) noexcept;
    /// The type in effect; None as well when memory was short.
    ChannelFxType Type() const noexcept { return type_; }

    /// One block: changes `dry` by what the effect makes of `send`. What is in a block called empty does not
    /// matter; an empty `dry` that gets sound is written whole.
    /// @return whether dry holds sound now
    bool Process(StereoBlock& dry, const StereoBlock& send, bool dryIsEmpty, bool sendIsEmpty) noexcept;

    /// Silences delay lines and brings followers to rest.
    void Clear() noexcept;
    /// Nothing is left to fade: with an empty send, Process does nothing.
    bool IsAsleep() const noexcept { return isAsleep_; }

private:
    using Effect = std::variant<std::monostate, Chorus, Reverb, Delay, Tremolo, Compressor, Distortion,
                                Phaser, TransientShaper>;

    void Start(ChannelFxType type) noexcept;
    std::span<float> Lines() noexcept { return {memory_.get(), capacity_}; }
    /// Counts silent blocks. @return whether there is anything to do
    bool StaysAwake(bool sendIsEmpty, std::uint64_t tailFrames) noexcept;
    template <class T>
    bool Run(T& effect, StereoBlock& dry, const StereoBlock& send, bool dryIsEmpty,
             bool sendIsEmpty) noexcept;

    Effect effect_;
    ChannelFxType type_ = ChannelFxType::None;
    double rate_ = 0;
    std::unique_ptr<float[]> memory_;
    std::size_t capacity_ = 0;
    std::size_t floatsUsed_ = 0; ///< the most that a Setup of this type has used
    std::uint64_t silentFrames_ = 0;
    bool isAsleep_ = true;
};

} // namespace vimbo::synth
