// The arithmetic that the plain and the fast conversions share: one sample, no memory. Internal to this
// folder.
#pragma once

#include "dsp/kernels/sample_convert.h"

#include <bit>
#include <cstddef>
#include <cstdint>

// Everything in here is inlined by force: the fast forms are compiled for several instruction sets, and a
// function that stayed on its own would exist for the oldest only.
#if defined(__GNUC__)
#define VIMBO_INLINE [[gnu::always_inline]] inline
#else
#define VIMBO_INLINE inline
#endif

namespace vimbo {

inline constexpr std::uint32_t kTopBit = 0x80000000u;
inline constexpr float kUnit16 = 0x1p-15f;
inline constexpr float kUnit32 = 0x1p-31f;

/// Whole samples that `bytes` bytes hold.
inline std::size_t HeldSamples(SampleCoding coding, std::size_t bytes) noexcept
{
    const std::size_t bits = StoredBits(coding);
    const std::size_t pairBytes = bits / 4;
    return bytes / pairBytes * 2 + (bytes % pairBytes >= (bits + 7) / 8 ? 1 : 0);
}

/// A signed code whose most significant bit is bit 31, as a float. Exact up to 24 bits; all scales are powers
/// of two.
VIMBO_INLINE float LinearToFloat(std::uint32_t code) noexcept
{
    return static_cast<float>(static_cast<std::int32_t>(code)) * kUnit32;
}

VIMBO_INLINE float SilenceIfNan(float x) noexcept
{
    return x == x ? x : 0.0f;
}

/// Offset-binary code of `Bits` bits: 0 for -1.0, all ones for 1.0 and more. 24 bits are truncated without a
/// half step.
template <unsigned Bits>
VIMBO_INLINE std::uint32_t OffsetCode(float x) noexcept
{
    static_assert(Bits <= 24, "wider codes need double precision");
    constexpr float kHalf = static_cast<float>(1u << (Bits - 1));
    constexpr float kLargest = static_cast<float>((1u << Bits) - 1);
    const float value = SilenceIfNan(x);
    float code = Bits == 24 ? (value + 1.0f) * kHalf : value * kHalf + (kHalf + 0.5f);
    code = code > 0.0f ? code : 0.0f;
    code = code < kLargest ? code : kLargest;
    return static_cast<std::uint32_t>(static_cast<std::int32_t>(code));
}

/// The same with 32 bits, truncated. Double precision, so that quiet signals keep what a float holds.
VIMBO_INLINE std::uint32_t OffsetCode32(float x) noexcept
{
    // Limits are applied to the float, in lanes as wide as the result; only the arithmetic needs wider ones.
    float value = SilenceIfNan(x);
    value = value > -1.0f ? value : -1.0f;
    const std::uint32_t saturated = value < 1.0f ? 0 : 0xFFFFFFFFu;
    value = value < 1.0f ? value : 0.0f;
    // Rounding down with additions only, which every vector unit has in double precision: next to 1.5 * 2^52
    // a double holds whole numbers, their low bits at the bottom of its fraction.
    constexpr double kWholes = 0x1.8p52;
    const double code = (static_cast<double>(value) + 1.0) * 0x1p31;
    const double nearest = (code + kWholes) - kWholes;
    const double below = nearest - (nearest > code ? 1.0 : 0.0);
    return static_cast<std::uint32_t>(std::bit_cast<std::uint64_t>(below + kWholes)) | saturated;
}

} // namespace vimbo
