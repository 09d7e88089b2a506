// Where the voices of one channel come together.
#pragma once

#include "model/param_ids.h"
#include "synth/effects/effect_slot.h"
#include "synth/stereo_block.h"

#include <array>
#include <atomic>

namespace vimbo::synth {

struct ChannelBus {
    StereoBlock dry;
    std::array<StereoBlock, kSends> sends; ///< send n feeds effect slot n
    bool dryIsEmpty = true;
    std::array<bool, kSends> sendIsEmpty{true, true, true, true};

    // Values of this block.
    float pan = 0;
    float volume = 0; ///< of the channel
    float gain = 0;   ///< channel volume and master gain
    std::array<float, kSends> sendValues{};

    std::array<EffectSlot, kSends> effects;
    bool hasEffects = false;  ///< a slot has a type
    bool runsEffects = false; ///< in this block
    std::array<bool, kSends> isSendUsed{};
    std::atomic<float> meter{0};
};

} // namespace vimbo::synth
