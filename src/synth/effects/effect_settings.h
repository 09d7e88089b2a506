// What all effects need to turn an instrument's effect parameters, which may hold anything, into settings.
#pragma once

#include "model/instrument.h"
#include "synth/synth_math.h"

#include <cstddef>

namespace vimbo::synth {

/// Output rates beyond these are taken as these; they bound the lengths of delay lines.
inline constexpr double kLowestRate = 1000, kHighestRate = 768000;

/// NaN gives `low`.
constexpr float Limited(float value, float low, float high) noexcept
{
    if (!(value > low))
        return low;
    return value < high ? value : high;
}
constexpr double Limited(double value, double low, double high) noexcept
{
    if (!(value > low))
        return low;
    return value < high ? value : high;
}
constexpr double LimitedRate(double rate) noexcept
{
    return Limited(rate, kLowestRate, kHighestRate);
}

constexpr double NaturalExp(double x) noexcept
{
    return PortableExp2(x * 1.4426950408889634);
}

/// What is left of a state after one frame that falls to 1/e in `seconds`; 0 for no time.
constexpr float DecayOverTime(double seconds, double rate) noexcept
{
    return seconds > 0 ? static_cast<float>(NaturalExp(-1 / (rate * seconds))) : 0.0f;
}
/// What is left of a one-pole's state after one frame.
constexpr float DecayAtFrequency(double hz, double rate) noexcept
{
    return static_cast<float>(NaturalExp(-6.283185307179586 * hz / rate));
}

/// How many rounds of a loop with this feedback sound until they are 120 dB down. 20000 stand for a loop
/// that never ends.
constexpr double RoundsUntilSilence(double feedback) noexcept
{
    const double size = feedback < 0 ? -feedback : feedback;
    if (size >= 1)
        return 20000;
    return size > 1e-6 ? -13.815511 / (PortableLog2(size) * 0.6931471805599453) : 0.0;
}

/// The parameters as the effects' documentation counts them: value 1 is `values[0]`.
constexpr std::uint8_t ByteOf(const ChannelFx& fx, std::size_t number) noexcept
{
    return fx.bytes[number - 1];
}
constexpr float ValueOf(const ChannelFx& fx, std::size_t number, float low, float high) noexcept
{
    return Limited(fx.values[number - 1], low, high);
}

} // namespace vimbo::synth
