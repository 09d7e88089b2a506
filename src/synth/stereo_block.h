// The engine's unit of sound: one control tick of both sides.
#pragma once

#include "synth/synth_math.h"

#include <cstring>

namespace vimbo::synth {

/// kBlockFrames frames, planar; nominal range [-1, 1], louder is allowed.
struct StereoBlock {
    alignas(32) float left[kBlockFrames];
    alignas(32) float right[kBlockFrames];

    void Clear() noexcept
    {
        std::memset(left, 0, sizeof left);
        std::memset(right, 0, sizeof right);
    }
};

} // namespace vimbo::synth
