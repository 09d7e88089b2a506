// What the GSM decoder and encoder share: a frame's codes, their packing, and the steps that both must do
// alike. Clause numbers are those of ETSI EN 300 961. Internal to this folder.
#pragma once

#include "codecs/bits.h"
#include "codecs/gsm.h"

#include <algorithm>

namespace vimbo {

inline constexpr std::size_t kGsmOrder = 8;
inline constexpr std::size_t kGsmSubframes = 4;
inline constexpr std::size_t kGsmSubframeSamples = 40;
inline constexpr std::size_t kGsmPulses = 13;
inline constexpr std::size_t kGsmHistory = 120; ///< longest long-term lag

/// One value for each stage of the short-term lattice.
using GsmStages = std::array<std::int16_t, kGsmOrder>;

/// The codes of 40 samples, as transmitted.
struct GsmSubframe {
    std::uint8_t lag;  ///< 7 bits; 40..120 are valid
    std::uint8_t gain; ///< 2 bits
    std::uint8_t grid; ///< 2 bits: first of every third sample
    std::uint8_t peak; ///< 6 bits: block maximum, 3 bits of exponent over 3 of mantissa
    std::array<std::uint8_t, kGsmPulses> pulses; ///< 3 bits each
};

/// The codes of 160 samples, as transmitted.
struct GsmFrame {
    std::array<std::uint8_t, kGsmOrder> lars; ///< 6, 6, 5, 5, 4, 4, 3, 3 bits
    std::array<GsmSubframe, kGsmSubframes> subframes;
};

/// A block maximum after decoding: a mantissa to look up and an exponent, -4..6.
struct GsmPeak {
    std::int8_t exponent;
    std::uint8_t mantissa; ///< 0..7
};

// Table 5.1 (quantiser of the log area ratios), table 5.3b (long-term gains).
inline constexpr GsmStages kGsmLarSlope{20480, 20480, 20480, 20480, 13964, 15360, 8534, 9036};
inline constexpr GsmStages kGsmLarOffset{0, 0, 2048, -2560, 94, -1792, -341, -1144};
inline constexpr GsmStages kGsmLarMin{-32, -32, -16, -16, -8, -8, -4, -4};
inline constexpr std::array<std::int16_t, 4> kGsmGain{3277, 11469, 21299, 32767};

/// The consecutive parts of a frame that each have a short-term filter of their own (5.2.9.1).
inline constexpr std::array<std::size_t, 4> kGsmFilterRuns{13, 14, 13, 120};

/// add() and sub() of the recommendation end here.
constexpr int Saturate16(int value) noexcept
{
    return std::clamp(value, -32768, 32767);
}

/// The same for the lattice filters, where hardly a sample needs it: a branch that is never taken does not
/// lengthen the chain of dependent sums, which is what limits their speed.
inline int SaturateRarely(int value) noexcept
{
    if (value != static_cast<std::int16_t>(value)) [[unlikely]]
        return value < 0 ? -32768 : 32767;
    return value;
}

/// mult_r(), for operands that are not both -32768.
constexpr int MultiplyRounded(int a, int b) noexcept
{
    return (a * b + 0x4000) >> 15;
}

/// mult(), likewise.
constexpr int MultiplyTruncated(int a, int b) noexcept
{
    return (a * b) >> 15;
}

/// Takes the 260 bits at bit `first` of `block` apart, and the reverse, which wants the bits 0 before.
/// `block` has 7 bytes more than the frame needs, so that whole words can be moved.
void UnpackGsmFrame(GsmFrame& frame, std::span<const std::byte> block, std::size_t first,
                    BitPacking packing) noexcept;
void PackGsmFrame(const GsmFrame& frame, std::span<std::byte> block, std::size_t first,
                  BitPacking packing) noexcept;

/// Log area ratios from their codes (5.2.8).
GsmStages DequantiseGsmLars(const std::array<std::uint8_t, kGsmOrder>& codes) noexcept;

/// Reflection coefficients for one of kGsmFilterRuns, between the ratios of the last frame and this (5.2.9).
GsmStages GsmReflections(std::size_t run, const GsmStages& last, const GsmStages& current) noexcept;

/// Exponent and mantissa of a block maximum's code, 0..63 (5.2.15).
GsmPeak DecodeGsmPeak(unsigned code) noexcept;

/// The pulses of a subframe on their grid, zeros between them (5.2.16, 5.2.17).
void DecodeGsmPulses(const GsmSubframe& codes, std::span<std::int16_t, kGsmSubframeSamples> out) noexcept;

} // namespace vimbo
