// Logarithm, power and arc tangent for loops over a block's frames: single precision and without branches, so
// that compilers can run several frames side by side. Same bits on every machine.
#pragma once

#include "dsp/kernels/sample_rules.h"

#include <bit>
#include <cmath>
#include <cstdint>

namespace vimbo::synth {

// The polynomials are minimax fits (iteratively weighted least squares) on the intervals named.

/// log2 of a normal number above 0, within 1e-7 plus rounding.
VIMBO_INLINE float BlockLog2(float x) noexcept
{
    constexpr std::int32_t kRootOfHalf = 0x3F3504F3;
    const auto bits = std::bit_cast<std::int32_t>(x);
    const std::int32_t exponent = (bits - kRootOfHalf) >> 23;
    const float t = std::bit_cast<float>(bits - exponent * 0x00800000) - 1; // -0.29 to 0.41
    float sum = -0.14574437f;
    sum = sum * t + 0.23689033f;
    sum = sum * t - 0.25006905f;
    sum = sum * t + 0.28670746f;
    sum = sum * t - 0.3600872f;
    sum = sum * t + 0.48093945f;
    sum = sum * t - 0.72135717f;
    sum = sum * t + 1.4426948f;
    return static_cast<float>(exponent) + sum * t;
}

/// 2^x for x of -126 to 126, within 2e-7 of its value.
VIMBO_INLINE float BlockExp2(float x) noexcept
{
    constexpr float kWholes = 0x1.8p23f; // next to it a float holds whole numbers only
    const float whole = (x + kWholes) - kWholes;
    const float r = x - whole; // -0.5 to 0.5
    float sum = 0.0013264727f;
    sum = sum * r + 0.009671513f;
    sum = sum * r + 0.05550734f;
    sum = sum * r + 0.24022242f;
    sum = sum * r + 0.693147f;
    sum = sum * r + 1;
    return std::bit_cast<float>(std::bit_cast<std::int32_t>(sum) +
                                static_cast<std::int32_t>(whole) * 0x00800000);
}

/// Within 1e-7 for all finite numbers.
VIMBO_INLINE float BlockArcTangent(float x) noexcept
{
    constexpr float kEighth = 0.41421356f, kThreeEighths = 2.4142136f; // tangents of 1/8 and 3/8 pi
    const float a = std::fabs(x);
    const float top = a > kThreeEighths ? -1.0f : a > kEighth ? a - 1 : a;
    const float bottom = a > kThreeEighths ? a : a > kEighth ? a + 1 : 1.0f;
    const float turned = a > kThreeEighths ? 1.5707964f : a > kEighth ? 0.78539819f : 0.0f;
    const float t = top / bottom; // -0.42 to 0.42
    const float z = t * t;
    float sum = 0.080602944f;
    sum = sum * z - 0.1387985f;
    sum = sum * z + 0.19977926f;
    sum = sum * z - 0.33332955f;
    return std::copysign(turned + (t + t * z * sum), x);
}

} // namespace vimbo::synth
