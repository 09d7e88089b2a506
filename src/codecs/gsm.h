// GSM 06.10 full-rate speech (RPE-LTP, 13 kbit/s), after ETSI EN 300 961: 160 samples in 260 bits, mono.
// All arithmetic is the recommendation's fixed point, so that streams and sound agree with other conforming
// coders bit by bit. The homing frames of later editions reset nothing: sound files are one run from start to
// end.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace vimbo {

/// How frames lie in a file.
enum class GsmFraming : std::uint8_t {
    Raw,         ///< 33 bytes a frame, filled from the top bit; the first byte's top nibble is 0xD
    ByteAligned, ///< the same, but the nibble is not looked at when read (0xD is written all the same)
    Wav          ///< Microsoft's: 65 bytes hold two frames, filled from the lowest bit
};

inline constexpr std::size_t kGsmFrameSamples = 160;
inline constexpr std::size_t kGsmFrameBytes = 33;
inline constexpr std::size_t kGsmWavBlockSamples = 2 * kGsmFrameSamples;
inline constexpr std::size_t kGsmWavBlockBytes = 65;

/// Everything a decoder keeps from frame to frame. A fresh record starts a stream.
struct GsmDecoder {
    std::array<std::int16_t, 120> residual{}; ///< short-term residual, oldest first
    std::array<std::int16_t, 8> lattice{};    ///< delay line of the synthesis filter
    std::array<std::int16_t, 8> lars{};       ///< log area ratios of the frame before
    std::int16_t deemphasis = 0;
    std::uint8_t lag = 40;  ///< of the last subframe that had a valid one
    bool corrupted = false; ///< a frame of a raw stream lacked its 0xD; never cleared by the decoder
};

/// Everything an encoder keeps from frame to frame. A fresh record starts a stream.
struct GsmEncoder {
    std::array<std::int16_t, 120> residual{}; ///< as the decoder will rebuild it, oldest first
    std::array<std::int16_t, 8> lattice{};    ///< delay line of the analysis filter
    std::array<std::int16_t, 8> lars{};
    std::int32_t offsetSum = 0;   ///< offset compensation, 15 fraction bits
    std::int16_t offsetInput = 0; ///< sample before, 14 bits wide
    std::int16_t preemphasis = 0;
};

/// Samples that `bytes` bytes decode to: whole frames, and in Wav framing the first frame of a cut-off block.
std::size_t GsmDecodedSamples(GsmFraming framing, std::size_t bytes) noexcept;

/// Bytes that `samples` samples encode to, the last block filled up.
std::size_t GsmEncodedBytes(GsmFraming framing, std::size_t samples) noexcept;

/// Decodes whole frames (Wav: whole blocks) until `in` or `out` is used up. Calls in succession continue a
/// stream if each gets whole blocks and room for them; where `out` ends inside a frame, the rest of that
/// frame is lost.
/// @param out  int16 / 32768; what is not written is left alone
/// @return samples written. Raw framing: ends in front of a frame with a wrong nibble and sets
/// state.corrupted.
std::size_t DecodeGsm(GsmDecoder& state, GsmFraming framing, std::span<const std::byte> in,
                      std::span<float> out) noexcept;

/// Encodes `in` (nominal -1..1; beyond is clipped, NaN is silence); a short last block is filled up with
/// silence. The recommendation uses the upper 13 of 16 bits. Calls in succession continue a stream if each
/// but the last gets whole blocks: 160 samples, in Wav framing 320.
/// @return bytes written: GsmEncodedBytes(), or as many whole blocks as `out` has room for
std::size_t EncodeGsm(GsmEncoder& state, GsmFraming framing, std::span<const float> in,
                      std::span<std::byte> out) noexcept;

} // namespace vimbo
