// The engine's unit of sound: one control tick of both sides.
#pragma once

#include "synth/synth_math.h"

#include <cstring>

namespace vimbo::synth {

/// What lies on different lines can be written by different processors without one waiting for the other.
inline constexpr std::size_t kCacheLine = 64;

/// kBlockFrames frames, planar; nominal range [-1, 1], louder is allowed.
struct StereoBlock {
    alignas(kCacheLine) float left[kBlockFrames];
    alignas(kCacheLine) float right[kBlockFrames];

    void Clear() noexcept
    {
        std::memset(left, 0, sizeof left);
        std::memset(right, 0, sizeof right);
    }
};

} // namespace vimbo::synth
