// Reads a wave at any pitch: four-point interpolation.
#pragma once

#include <span>

namespace vimbo {

/// Frames that must lie around every frame that is read at: one before, two behind it.
inline constexpr int kCubicFramesBefore = 1, kCubicFramesAfter = 2;

/// Fills `out` with the wave at `position`, `position` + `rate`, `position` + 2 `rate`...: cubic
/// interpolation of Catmull and Rom between the two frames around each position.
/// @param frames   frame 0 of the wave; kCubicFramesBefore and kCubicFramesAfter frames exist around each
/// frame
///                 that is read at
/// @param position in frames, 0 to below 2^31
/// @param rate     frames per output frame; below 0 plays backwards, but no position may fall below 0
/// @param out      any length; must not overlap the wave
/// Frame n is position + n * rate in double precision, not a sum of steps. Errors: none. Thread: any.
void ReadCubicMono(const float* frames, double position, double rate, std::span<float> out) noexcept;

/// The same for left, right, left, right...; `left` and `right` have equal lengths.
void ReadCubicStereo(const float* interleaved, double position, double rate, std::span<float> left,
                     std::span<float> right) noexcept;

/// The plain twins: the same results, one frame at a time.
void ReadCubicMonoPlain(const float* frames, double position, double rate, std::span<float> out) noexcept;
void ReadCubicStereoPlain(const float* interleaved, double position, double rate, std::span<float> left,
                          std::span<float> right) noexcept;

} // namespace vimbo
