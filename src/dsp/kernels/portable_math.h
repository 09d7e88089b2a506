// Exponentials, logarithms and sines that give the same bits on every machine: the C library's change with
// its version and with the processor. Plain arithmetic only, so a build without contraction is enough.
#pragma once

#include <bit>
#include <cstdint>

namespace vimbo {

/// 2^x within 2e-15 of its value; x is limited to -1022..1023.
constexpr double PortableExp2(double x) noexcept
{
    if (!(x > -1022)) // NaN too
        x = -1022;
    if (x > 1023)
        x = 1023;
    const auto whole = static_cast<std::int64_t>(x < 0 ? x - 0.5 : x + 0.5);
    const double r = (x - static_cast<double>(whole)) * 0.69314718055994530942; // -0.35 to 0.35
    const double r2 = r * r;
    // Taylor, even and odd powers side by side: the term left out is below 1e-15.
    double even = 1.0 / 479001600, odd = 1.0 / 39916800;
    even = even * r2 + 1.0 / 3628800, odd = odd * r2 + 1.0 / 362880;
    even = even * r2 + 1.0 / 40320, odd = odd * r2 + 1.0 / 5040;
    even = even * r2 + 1.0 / 720, odd = odd * r2 + 1.0 / 120;
    even = even * r2 + 1.0 / 24, odd = odd * r2 + 1.0 / 6;
    even = even * r2 + 1.0 / 2, odd = odd * r2 + 1;
    const double sum = 1 + (even * r2 + odd * r);
    return sum * std::bit_cast<double>(static_cast<std::uint64_t>(whole + 1023) << 52);
}

/// log2 of a normal number above 0, within 1e-15 (absolute or relative); -1074 for 0 and below.
constexpr double PortableLog2(double x) noexcept
{
    if (!(x >= 2.2250738585072014e-308))
        return -1074;
    const auto bits = std::bit_cast<std::uint64_t>(x);
    auto exponent = static_cast<std::int64_t>(bits >> 52) - 1023;
    double m = std::bit_cast<double>((bits & 0x000FFFFFFFFFFFFFu) | 0x3FF0000000000000u);
    if (m > 1.4142135623730951) {
        m *= 0.5;
        ++exponent;
    }
    const double t = (m - 1) / (m + 1), t2 = t * t; // log m = 2 (t + t^3/3 + t^5/5 ...), t up to 0.172
    const double t4 = t2 * t2;                      // every second term in one sum: two short chains
    double first = 1.0 / 21, second = 1.0 / 19;
    for (int n = 17; n > 0; n -= 4)
        first = first * t4 + 1.0 / n;
    for (int n = 15; n > 0; n -= 4)
        second = second * t4 + 1.0 / n;
    const double sum = first + second * t2;
    return static_cast<double>(exponent) + 2 * 1.4426950408889634 * t * sum;
}

/// sin(2 pi phase) for a phase of 0 to 1 (phases beyond are brought there): the Taylor series of degree 11 on
/// the first quarter, within 6e-8.
constexpr float SineOfPhase(float phase) noexcept
{
    phase -= static_cast<float>(static_cast<std::int32_t>(phase));
    if (phase < 0)
        phase += 1;
    float x = phase; // folded to -0.25..0.25
    if (x > 0.25f && x < 0.75f)
        x = 0.5f - x;
    else if (x >= 0.75f)
        x -= 1;
    const float z = x * x * 39.47842f; // (2 pi x)^2
    float sum = 2.7557319e-6f - 2.5052108e-8f * z;
    sum = sum * z - 0.0001984127f;
    sum = sum * z + 0.008333334f;
    sum = sum * z - 0.16666667f;
    sum = sum * z + 1;
    return sum * x * 6.2831855f;
}
constexpr float CosineOfPhase(float phase) noexcept
{
    return SineOfPhase(phase + 0.25f);
}

} // namespace vimbo
