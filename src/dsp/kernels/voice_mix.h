// Gain ramps and sums of 64-frame blocks: from a voice's sound to the buses and from the buses to the output.
#pragma once

#include <cstddef>
#include <span>

namespace vimbo {

/// Frames of every block here. Pointers address that many floats unless stated otherwise; buffers of one call
/// must not overlap. Errors: none. Threads: any, one per buffer.
inline constexpr std::size_t kMixFrames = 64;

// Ramps go from the gain at the end of the last block to the gain at the end of this one: the factor of frame
// n, 1 to 64, is old + (new - old) * n / 64, and exactly the gain if both are equal.

/// Gains of both sides, linear.
struct GainRamp {
    float oldLeft, newLeft, oldRight, newRight;
};
/// The two sides of a voice, each by its own ramp, in place of what `left` and `right` hold. The inputs of a
/// mono voice are one block. `left` may be its own input or both, `right` its own.
void StoreRamp(const GainRamp& gains, const float* inLeft, const float* inRight, float* left,
               float* right) noexcept;
/// The same added to `left` and `right`: what StoreRamp and AddTo give, in one pass and to the same bits. For
/// voices whose ramped sound nothing else needs.
void AddRamp(const GainRamp& gains, const float* inLeft, const float* inRight, float* left,
             float* right) noexcept;

void AddTo(float* to, const float* from) noexcept;
void StoreTo(float* to, const float* from) noexcept;
/// to += from * gain
void AddScaled(float* to, const float* from, float gain) noexcept;
/// to = from * gain
void StoreScaled(float* to, const float* from, float gain) noexcept;

/// The largest absolute sample of a block. NaN if there is one.
float PeakOf(const float* block) noexcept;

/// Two planar blocks to left, right, left, right...; `out` has 2 * kMixFrames samples.
void Interleave(const float* left, const float* right, float* out) noexcept;

} // namespace vimbo
