// G.722: 7 kHz speech and music in 64, 56 or 48 kbit/s. ITU-T Recommendation G.722 (11/88): two sub-band
// ADPCM coders behind a quadrature mirror filter, two samples at 16 kHz for each code.
#pragma once

#include "codecs/bits.h"
#include "codecs/g722_zeros.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace vimbo {

/// What one sub-band's coder remembers. The recommendation's scales: coefficients 2^14 = 1, signals 15 bits.
struct G722Band {
    G722Zeros zeros;
    int pole1 = 0, pole2 = 0; ///< coefficients of the pole section, a1 and a2
    int rebuilt = 0;          ///< last reconstructed signal
    int sign1 = 0, sign2 = 0; ///< of the last two partial reconstructions: -1 or 0
    int zeroEstimate = 0;     ///< what the zero section predicts for the next sample
    int estimate = 0;         ///< what both sections predict
    int logScale = 0;         ///< 2^11 = a factor of 2
    int scale = 0;            ///< quantizer's step, 4 to 16384
};

/// Decoder or encoder between two calls; as constructed, at the start of a stream. One direction each.
struct G722State {
    static constexpr std::size_t kFilterHistory = 11; ///< 12 taps on each phase, less the newest

    G722State() noexcept
    {
        low.scale = 32;
        high.scale = 8;
    }

    G722Band low, high;
    std::array<std::int16_t, kFilterHistory> first{}, second{}; ///< the filter's two phases, oldest first
};

/// Decodes whole codes.
/// @param bits     width of a code: 8, 7 or 6 (64, 56, 48 kbit/s); with another width nothing is decoded
/// @param packing  of 7 and 6-bit codes, which lie close together: high sub-band's two bits on top, then the
///                 low sub-band's without its last or last two. Octets with an auxiliary channel in those
///                 last bits are 8-bit codes here
/// @param in       `bytes * 8 / bits` codes. All but the last part of a stream must hold whole groups of
///                 eight codes, i.e. a multiple of `bits` bytes
/// @param out      mono at 16 kHz, int16 / 32768; an odd place at its end takes a code's first sample, after
///                 which the stream cannot go on. What is not written is left alone
/// @return samples written: two per code
std::size_t DecodeG722(G722State& state, unsigned bits, BitPacking packing, std::span<const std::byte> in,
                       std::span<float> out) noexcept;

/// Encodes pairs of samples, the last one filled up with silence.
/// @param bits, packing  as for the decoder; with another width nothing is encoded
/// @param in       mono at 16 kHz, nominal -1 to 1. All but the last part of a stream must hold a multiple of
///                 16 samples, so that it ends on a byte
/// @param out      `(samples + 1) / 2` codes, zero bits behind the last. Codes without a place are not made
/// @return bytes written
std::size_t EncodeG722(G722State& state, unsigned bits, BitPacking packing, std::span<const float> in,
                       std::span<std::byte> out) noexcept;

} // namespace vimbo
