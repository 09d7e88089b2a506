// Units and small laws that voices, channels and effects share.
#pragma once

#include "dsp/kernels/portable_math.h"

#include <cstddef>
#include <cstdint>

namespace vimbo::synth {

/// Frames of one block: the control tick. Everything but sample reading, filters and gain ramps changes once
/// per tick.
inline constexpr std::size_t kBlockFrames = 64;

/// `value` brought into its limits; NaN gives the lowest.
template <class T>
constexpr T Limited(T value, T lowest, T highest) noexcept
{
    return !(value > lowest) ? lowest : value > highest ? highest : value;
}

/// dB to a factor of amplitude.
constexpr float DecibelsToGain(float decibels) noexcept
{
    return static_cast<float>(PortableExp2(decibels * 0.16609640474436813)); // log2(10) / 20
}
/// A factor of amplitude to dB; -96 for 0 and below and for what lies deeper.
constexpr float GainToDecibels(float gain) noexcept
{
    const double decibels = gain > 0 ? PortableLog2(gain) * 6.020599913279624 : -96;
    return decibels < -96 ? -96.0f : static_cast<float>(decibels);
}
/// Semitones to a factor of frequency.
constexpr double SemitonesToRatio(double semitones) noexcept
{
    return PortableExp2(semitones * (1.0 / 12));
}
constexpr double PortableLog10(double x) noexcept
{
    return PortableLog2(x) * 0.30102999566398120;
}
/// base^x for a base above 0; 1 for other bases.
constexpr double PortablePower(double base, double x) noexcept
{
    return base > 0 ? PortableExp2(PortableLog2(base) * x) : 1.0;
}

/// Velocity as 0 to 1 to a bipolar source: 64/127 gives 0, 1 gives 1, 1/127 gives -1.
constexpr float BipolarVelocity(float velocity) noexcept
{
    return velocity * 2.0158732f - 1.0158731f;
}
/// The velocity curve, for a velocity of 0 to 1: a depth of 96 dB gives a gain of velocity squared, and -96
/// dB at the lowest. A negative depth turns velocities round.
constexpr float VelocityDecibels(float velocity, float depth) noexcept
{
    if (depth < 0) {
        depth = -depth;
        velocity = 1 - velocity;
    }
    constexpr float kQuietest = 0.0039810715f; // 10^-2.4
    return depth *
           (velocity >= kQuietest ? static_cast<float>(PortableLog10(velocity)) * 0.41666666f : -1.0f);
}
/// Octaves above middle C.
constexpr float OctaveDistance(float key) noexcept
{
    return (key - 60) / 12;
}

/// Random numbers of 0 to 32767 that belong to an engine: the same from run to run.
class SynthRandom {
public:
    constexpr void Seed(std::uint32_t seed) noexcept { state_ = (std::uint64_t{seed} << 16) ^ kStart; }
    constexpr std::uint32_t Next() noexcept
    {
        state_ = state_ * 6364136223846793005u + 1442695040888963407u;
        return static_cast<std::uint32_t>(state_ >> 49);
    }
    /// -1 to 1.
    constexpr float NextBipolar() noexcept { return static_cast<float>(Next()) * 6.103702e-5f - 1; }

private:
    static constexpr std::uint64_t kStart = 0x853C49E6748FEA9B;
    std::uint64_t state_ = kStart;
};

/// Gains of both sides. -1 is left alone, 1 right alone; between them equal power: 0.7071 each at 0.
struct PanGains {
    float left = 1, right = 1;
};
constexpr PanGains PanToGains(float pan) noexcept
{
    if (pan <= -1)
        return {1, 0};
    if (pan >= 1)
        return {0, 1};
    const float quarter = (pan + 1) / 8; // phase of 0 to a quarter of a cycle
    return {CosineOfPhase(quarter), SineOfPhase(quarter)};
}

/// Shapes of low-frequency oscillators; the low 6 bits of a shape value. Polarity stands above them.
enum class OscillatorShape : std::uint8_t {
    Sine = 0,
    Triangle = 1,
    Square = 2,
    Noise = 3,
    SawUp = 4,
    SawDown = 5,
    SawUpSoft = 6, ///< the return takes 75 ticks, so that it does not click
    SawDownSoft = 7
};

/// A shape's value, -1 to 1, at a phase of 0 to 1. `step` is the phase of one tick. Noise gives `held`.
constexpr float ShapeValue(OscillatorShape shape, float phase, float step, float held) noexcept
{
    const float edge = 1 - 75 * step > 0.5f ? 1 - 75 * step : 0.5f;
    switch (shape) {
    case OscillatorShape::Sine:
        return SineOfPhase(phase);
    case OscillatorShape::Triangle:
        return phase < 0.5f ? 4 * phase - 1 : 3 - 4 * phase;
    case OscillatorShape::Square:
        return phase < 0.5f ? 1.0f : -1.0f;
    case OscillatorShape::Noise:
        return held;
    case OscillatorShape::SawUp:
        return 2 * phase - 1;
    case OscillatorShape::SawDown:
        return 1 - 2 * phase;
    case OscillatorShape::SawUpSoft:
        return phase < edge ? 2 * phase / edge - 1 : 1 - 2 * (phase - edge) / (1 - edge);
    case OscillatorShape::SawDownSoft:
        return phase < edge ? 1 - 2 * phase / edge : 2 * (phase - edge) / (1 - edge) - 1;
    }
    return 0;
}

} // namespace vimbo::synth
