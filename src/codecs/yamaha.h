// Yamaha ADPCM as its 4-bit sound chips decode it (ADPCM-B of the Y8950 and YM2608), WAV format tag 32.
#pragma once

#include <cstddef>
#include <span>

namespace vimbo {

/// One channel; as constructed, at the start of a stream.
struct YamahaState {
    int predictor = 0; ///< -32768 to 32767
    int step = 127;    ///< 127 to 24576
};

/// Decodes two samples per byte, the lower code first.
/// @param out  int16 / 32768. An odd place at its end takes a byte's first sample, after which the stream
/// cannot
///             go on; what is not written is left alone
/// @return samples written
std::size_t DecodeYamahaMono(YamahaState& state, std::span<const std::byte> in,
                             std::span<float> out) noexcept;

/// Decodes one frame per byte: left in the lower code, right in the upper.
/// @param states  left, right
/// @param out     interleaved; an odd place at its end stays as it is
/// @return frames written
std::size_t DecodeYamahaStereo(std::span<YamahaState, 2> states, std::span<const std::byte> in,
                               std::span<float> out) noexcept;

} // namespace vimbo
