// G.726: speech at 8 kHz in 40, 32, 24 or 16 kbit/s, one code of 5, 4, 3 or 2 bits for each sample. ITU-T
// Recommendation G.726 (12/90) with the linear input and output of its Annex A. The 4-bit form is the older
// G.721, the 3 and 5-bit forms are those of G.723 (1988).
#pragma once

#include "codecs/bits.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace vimbo {

/// A signal as the predictor keeps it: magnitude `mantissa / 64 * 2^exponent`, six bits and four.
struct G726Float {
    std::int32_t mantissa = 32; ///< 32 to 63; zero is 32 with exponent 0
    std::int32_t exponent = 0;
    std::int32_t sign = 0; ///< -1 for negative signals, negative zero among them
};

/// Decoder or encoder between two calls; as constructed, at the start of a stream. One direction each, one
/// width each. Members are the recommendation's variables in its scales.
struct G726State {
    std::array<std::int16_t, 6> b{};  ///< zero section's coefficients, 2^14 = 1
    std::array<G726Float, 6> dq{};    ///< quantized differences, newest first
    std::array<std::int32_t, 2> a{};  ///< pole section's coefficients, 2^14 = 1
    std::array<G726Float, 2> sr{};    ///< reconstructed signals, newest first
    std::array<std::int32_t, 2> pk{}; ///< signs of the last partial reconstructions: -1 or 0
    std::int32_t yl = 34816;          ///< slow logarithmic scale, 2^15 = a factor of 2
    std::int32_t yu = 544;            ///< fast logarithmic scale, 2^9 = a factor of 2
    std::int32_t dms = 0, dml = 0;    ///< short and long mean of the codes' magnitudes
    std::int32_t ap = 0;              ///< how much of the fast scale counts, 256 and more = all
    bool td = false;                  ///< a tone is being heard
};

/// Decodes whole codes.
/// @param bits     width of a code, 2 to 5; with another width nothing is decoded
/// @param packing  WAV files and ATM have BigEndian, Sun audio files and RFC 3551 LittleEndian
/// @param in       `bytes * 8 / bits` codes. All but the last part of a stream must hold whole groups of
///                 eight codes, i.e. a multiple of `bits` bytes
/// @param out      mono, int16 / 32768, the two low bits of the 16 zero. What is not written is left alone
/// @return samples written
std::size_t DecodeG726(G726State& state, unsigned bits, BitPacking packing, std::span<const std::byte> in,
                       std::span<float> out) noexcept;

/// Encodes samples. The low two bits of their 16 are not heard.
/// @param bits, packing  as for the decoder; with another width nothing is encoded
/// @param in       mono, nominal -1 to 1. All but the last part of a stream must hold a multiple of
///                 8 samples, so that it ends on a byte
/// @param out      one code for each sample, zero bits behind the last. Codes without a place are not made
/// @return bytes written
std::size_t EncodeG726(G726State& state, unsigned bits, BitPacking packing, std::span<const float> in,
                       std::span<std::byte> out) noexcept;

} // namespace vimbo
