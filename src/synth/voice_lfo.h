// The low-frequency oscillator of voices: one value per control tick.
#pragma once

#include "model/envelope.h"
#include "synth/synth_math.h"

#include <span>

namespace vimbo::synth {

/// Any parameter values are safe, NaN too: frequencies are limited to half a cycle per tick, times to 2^31
/// ticks.
class VoiceLfo {
public:
    using Params = std::span<const float, kLfoParams>; ///< by the offsets of envelope.h

    /// Stands at the start phase of its shape, so that unipolar waves begin at 0 where they can.
    void Start(Params params, float ticksPerSecond, SynthRandom& random) noexcept;
    /// The parameters have changed: the phase goes on, so do delay and fade-in.
    void Edit(Params params, float ticksPerSecond) noexcept;
    /// @return -1 to 1, 0 to 1 or -1 to 0, by the polarity; 0 in the delay
    float Tick(SynthRandom& random) noexcept
    {
        if (delayTicks_ != 0) {
            --delayTicks_;
            return 0;
        }
        constexpr float kPhaseUnit = 1.0f / (1 << 24);
        float value = ShapeValue(shape_, static_cast<float>(phase_ >> 8) * kPhaseUnit, stepPhase_, held_);
        value = value * scale_ + offset_;
        if (rampTicks_ != 0) {
            value *= rampGain_;
            rampGain_ += rampStep_;
            --rampTicks_;
        }
        Advance(random);
        return value;
    }

private:
    void Advance(SynthRandom& random) noexcept
    {
        const std::uint32_t before = phase_;
        phase_ += step_;
        if (phase_ < before && shape_ == OscillatorShape::Noise)
            held_ = random.NextBipolar();
    }

    std::uint32_t phase_ = 0, step_ = 0; ///< cycles / 2^32
    float stepPhase_ = 0;                ///< cycles
    float held_ = 0;                     ///< noise
    float scale_ = 1, offset_ = 0;       ///< polarity
    float rampGain_ = 1, rampStep_ = 0;
    std::uint32_t delayTicks_ = 0, rampTicks_ = 0;
    OscillatorShape shape_ = OscillatorShape::Sine;
};

} // namespace vimbo::synth
