// Dialogic OKI ADPCM ("VOX", WAV format tag 23): Dialogic Corporation, Dialogic ADPCM Algorithm (1988).
//
// Differences are summed up from shifted steps, each cut off, as that paper tells, and the sum saturates at
// the 16-bit output's ends. Streams of encoders that multiply first and cut off once (sox, for one) keep
// their sound but wander off the middle, by thousands of 16-bit units where they are loud: there is no header
// to correct it.
#pragma once

#include <cstddef>
#include <span>

namespace vimbo {

/// As constructed, at the start of a stream.
struct DialogicState {
    int predictor = 0; ///< -32768 to 32767
    int stepIndex = 0; ///< 0 to 48
};

/// Decodes two samples per byte, the upper code first.
/// @param out  mono, int16 / 32768. An odd place at its end takes a byte's first sample, after which the
/// stream
///             cannot go on; what is not written is left alone
/// @return samples written
std::size_t DecodeDialogic(DialogicState& state, std::span<const std::byte> in,
                           std::span<float> out) noexcept;

} // namespace vimbo
