#include "synth/fm_shapes.h"

#include "dsp/kernels/portable_math.h"

#include <algorithm>

namespace vimbo::synth {
namespace {

constexpr std::uint32_t kHalf = 0x80000000u, kQuarter = 0x40000000u, kEighth = 0x20000000u;

float Fraction(std::uint32_t phase) noexcept
{
    return static_cast<float>(phase >> 8) * (1.0f / 16777216.0f);
}

/// Up from 0, down from a quarter, up from three quarters.
float TriangleOf(std::uint32_t phase) noexcept
{
    const float p = Fraction(phase + kQuarter);
    return p < 0.5f ? 4 * p - 1 : 3 - 4 * p;
}

/// Up from 0; the jump is at a half.
float SawOf(std::uint32_t phase) noexcept
{
    return 2 * Fraction(phase + kHalf) - 1;
}

/// A triangle whose peaks stand at an eighth and seven eighths.
float LeaningTriangle(std::uint32_t phase) noexcept
{
    const float p = Fraction(phase);
    if (p < 0.125f)
        return 8 * p;
    return p < 0.875f ? (0.5f - p) * (1 / 0.375f) : 8 * (p - 1);
}

float SquareOf(std::uint32_t phase) noexcept
{
    return phase < kHalf ? 1.0f : -1.0f;
}

/// 96 dB per half cycle: falls from 1, then grows to -1.
float LogarithmicSaw(std::uint32_t phase) noexcept
{
    const double p = Fraction(phase < kHalf ? phase : ~phase);
    const auto level = static_cast<float>(PortableExp2(-32 * p));
    return phase < kHalf ? level : -level;
}

/// Six forms of a wave: whole; without the lower half; both halves up; both up without the second and fourth
/// quarter; twice as fast and then silent; the same with both halves up.
template <class Wave>
float FormOf(unsigned form, std::uint32_t phase, Wave wave) noexcept
{
    const bool isUpper = phase < kHalf;
    const auto up = [](float value) { return value < 0 ? -value : value; };
    switch (form) {
    case 0:
        return wave(phase);
    case 1:
        return isUpper ? wave(phase) : 0;
    case 2:
        return up(wave(phase));
    case 3:
        return (phase & kQuarter) == 0 ? up(wave(phase)) : 0;
    case 4:
        return isUpper ? wave(phase * 2) : 0;
    default:
        return isUpper ? up(wave(phase * 2)) : 0;
    }
}

float FromTable(std::uint32_t phase, const WaveTable& table) noexcept
{
    constexpr unsigned kFractionBits = 26;
    static_assert(kWaveTableSize == 1u << (32 - kFractionBits));
    const std::size_t index = phase >> kFractionBits;
    const float t = static_cast<float>(phase & ((1u << kFractionBits) - 1)) * (1.0f / (1u << kFractionBits));
    const float from = table[index], to = table[(index + 1) % kWaveTableSize];
    return std::max((from + (to - from) * t) * (1.0f / 32767), -1.0f);
}

} // namespace

std::uint32_t StepOf(double cyclesPerFrame) noexcept
{
    if (!(cyclesPerFrame > 0))
        return 0;
    return static_cast<std::uint32_t>(std::min(cyclesPerFrame, 0.5) * 4294967296.0 + 0.5);
}

float OplShape(unsigned shape, std::uint32_t phase) noexcept
{
    switch (shape & 7) {
    case 6:
        return SquareOf(phase);
    case 7:
        return LogarithmicSaw(phase);
    default:
        return FormOf(shape & 7, phase, [](std::uint32_t at) { return SineOfTurn(at); });
    }
}

float TableShape(unsigned shape, std::uint32_t phase, const WaveTable& table) noexcept
{
    shape &= kTableShapes - 1;
    if (shape == 15 || shape == 23 || shape >= 30)
        return FromTable(phase, table);
    if (shape >= 24)
        return FormOf(shape - 24, phase, SawOf);
    if (shape >= 16)
        return shape == 22 ? LeaningTriangle(phase) : FormOf(shape - 16, phase, TriangleOf);
    const bool isFlat = shape >= 8 && phase >= kEighth && phase <= 3 * kEighth;
    return isFlat ? 1 : OplShape(shape, phase);
}

} // namespace vimbo::synth
