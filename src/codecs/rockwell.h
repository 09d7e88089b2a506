// Rockwell ADPCM of voice modems (WAV format tags 59 and 768), 2, 3 or 4 bits per sample: an adaptive
// quantizer and a predictor of order 8 that learns from the signs of the differences.
#pragma once

#include <array>
#include <cstddef>
#include <span>

namespace vimbo {

/// As constructed, at the start of a stream.
struct RockwellState {
    static constexpr std::size_t kOrder = 8;

    int step = 31;                          ///< 31 up to the width's limit
    std::array<int, kOrder> coefficients{}; ///< 2^15 = 1, 16 bits
    std::array<int, kOrder> differences{};  ///< the last ones, newest first, 16 bits
};

/// Decodes whole codes, which fill each byte from its lowest bit.
/// @param bits  2, 3 or 4; with another width nothing is decoded
/// @param in    all but a stream's last part must hold a multiple of 3 bytes where `bits` is 3
/// @param out   mono, int16 / 32768. With fewer places than codes the stream can go on after a whole byte
/// only;
///              what is not written is left alone
/// @return samples written
std::size_t DecodeRockwell(RockwellState& state, unsigned bits, std::span<const std::byte> in,
                           std::span<float> out) noexcept;

} // namespace vimbo
