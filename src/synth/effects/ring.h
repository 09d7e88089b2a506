// Delay lines: rings of frames, read and written some frames at a time.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace vimbo::synth {

/// `place` below `size`, `count` up to `size`.
inline void ReadRing(const float* ring, std::size_t size, std::size_t place, float* out,
                     std::size_t count) noexcept
{
    const std::size_t first = std::min(count, size - place);
    std::memcpy(out, ring + place, first * sizeof(float));
    std::memcpy(out + first, ring, (count - first) * sizeof(float));
}
inline void WriteRing(float* ring, std::size_t size, std::size_t place, const float* in,
                      std::size_t count) noexcept
{
    const std::size_t first = std::min(count, size - place);
    std::memcpy(ring + place, in, first * sizeof(float));
    std::memcpy(ring, in + first, (count - first) * sizeof(float));
}
/// `place` moved on by `step` frames, `step` up to `size`.
inline std::size_t StepRing(std::size_t size, std::size_t place, std::size_t step) noexcept
{
    place += step;
    return place < size ? place : place - size;
}

} // namespace vimbo::synth
