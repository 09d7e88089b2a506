// Where the voices of one channel come together.
#pragma once

#include "model/param_ids.h"
#include "synth/effects/effect_slot.h"
#include "synth/stereo_block.h"

#include <array>
#include <atomic>

namespace vimbo::synth {

/// Voices of one channel, added up. What is in an empty block does not matter.
struct alignas(kCacheLine) BusSum {
    bool dryIsEmpty = true;
    std::array<bool, kSends> sendIsEmpty{true, true, true, true};
    StereoBlock dry;
    std::array<StereoBlock, kSends> sends; ///< send n feeds effect slot n

    void MakeEmpty() noexcept
    {
        dryIsEmpty = true;
        sendIsEmpty.fill(true);
    }
};

/// What batches of voices and channels with effects give to the output. The engine adds them up in pairs.
struct alignas(kCacheLine) Subtotal {
    bool isEmpty = true;
    std::atomic<bool> isPairHalfDone{false}; ///< the pair's second member holds the mark
    StereoBlock sound;
};

struct alignas(kCacheLine) ChannelBus {
    // What all threads read in every block is not written without need.
    BusSum* sum = &tail;        ///< what becomes of the channel: its first part, where it has voices
    std::uint32_t subtotal = 0; ///< where its sound goes, with effects
    bool hasEffects = false;    ///< a slot has a type
    bool runsEffects = false;   ///< in this block
    bool isSummed = false;      ///< in this block: its parts are kept apart, for effects or for the meter
    std::array<bool, kSends> isSendUsed{};

    /// Parts that are not ready in this block; whoever sums up the last one runs the bus.
    alignas(kCacheLine) std::atomic<unsigned> partsLeft{0};
    std::atomic<float> meter{0};
    std::array<EffectSlot, kSends> effects;
    BusSum tail; ///< for effects that ring without voices
};

} // namespace vimbo::synth
