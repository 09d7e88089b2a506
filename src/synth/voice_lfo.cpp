#include "synth/voice_lfo.h"

#include <algorithm>

namespace vimbo::synth {
namespace {

constexpr unsigned kShapeMask = 63, kPolarityShift = 6;
constexpr double kCycle = 4294967296.0; // phase words

unsigned ShapeWord(float value) noexcept
{
    return value >= 0 && value < 256 ? static_cast<unsigned>(value) : 0;
}

std::uint32_t WholeTicks(float seconds, float ticksPerSecond) noexcept
{
    const float ticks = seconds * ticksPerSecond; // as a float: 0.04 * 1000 is 40
    return ticks > 0 ? static_cast<std::uint32_t>(std::min(ticks, 2147483648.0f)) : 0;
}

/// In cycles. Unipolar waves start at their lowest value, except the square and falling saws.
double StartPhase(OscillatorShape shape, bool isUnipolar) noexcept
{
    switch (shape) {
    case OscillatorShape::Sine:
        return isUnipolar ? 0.75 : 0;
    case OscillatorShape::Triangle:
        return isUnipolar ? 0 : 0.25;
    case OscillatorShape::SawUp:
    case OscillatorShape::SawDown:
        return isUnipolar ? 0 : 0.5;
    default:
        return 0;
    }
}

} // namespace

void VoiceLfo::Edit(Params params, float ticksPerSecond) noexcept
{
    const unsigned word = ShapeWord(params[kLfoShape]);
    shape_ = static_cast<OscillatorShape>(word & kShapeMask);
    const auto polarity = static_cast<LfoPolarity>(word >> kPolarityShift);
    scale_ = polarity == LfoPolarity::Unipolar ? 0.5f : polarity == LfoPolarity::NegativeUnipolar ? -0.5f : 1;
    offset_ = scale_ == 1 ? 0 : scale_; // (v + 1) / 2, or its negative
    const double step = static_cast<double>(params[kLfoFrequency]) / ticksPerSecond;
    const double limited = step > 0 ? std::min(step, 0.5) : 0;
    step_ = static_cast<std::uint32_t>(limited * kCycle + 0.5);
    stepPhase_ = static_cast<float>(limited);
}

void VoiceLfo::Start(Params params, float ticksPerSecond, SynthRandom& random) noexcept
{
    *this = {};
    Edit(params, ticksPerSecond);
    phase_ = static_cast<std::uint32_t>(StartPhase(shape_, offset_ != 0) * kCycle);
    if (shape_ == OscillatorShape::Noise)
        held_ = random.NextBipolar();
    delayTicks_ = WholeTicks(params[kLfoDelay], ticksPerSecond);
    rampTicks_ = WholeTicks(params[kLfoRamp], ticksPerSecond);
    if (rampTicks_ != 0) {
        rampGain_ = 0;
        rampStep_ = 1 / static_cast<float>(rampTicks_);
    }
}

} // namespace vimbo::synth
