// The oscillator of effects: one value per block.
#pragma once

#include "synth/effects/effect_settings.h"

namespace vimbo::synth {

class EffectLfo {
public:
    static constexpr float kHighestHz = 100; ///< a block's ramp cannot follow much more

    /// Keeps the phase. Shapes that do not exist are sines.
    void Set(std::uint8_t shape, float hz, double rate) noexcept
    {
        constexpr std::uint8_t kShapeBits = 0x3F; // above them stands the polarity
        shape &= kShapeBits;
        shape_ = shape <= static_cast<std::uint8_t>(OscillatorShape::SawDownSoft)
                     ? static_cast<OscillatorShape>(shape)
                     : OscillatorShape::Sine;
        step_ = static_cast<float>(static_cast<double>(hz) * kBlockFrames / rate);
        if (step_ > 1)
            step_ = 1;
    }
    void Restart(float phase) noexcept
    {
        phase_ = phase;
        random_ = SynthRandom{};
        held_ = random_.NextBipolar();
    }
    OscillatorShape Shape() const noexcept { return shape_; }

    /// -1 to 1; `offset` in cycles, 0 to 1.
    float Value(float offset = 0) const noexcept
    {
        float phase = phase_ + offset;
        if (phase >= 1)
            phase -= 1;
        return ShapeValue(shape_, phase, step_, held_);
    }
    /// On by one block.
    void Advance() noexcept
    {
        phase_ += step_;
        if (phase_ >= 1) {
            phase_ -= 1;
            held_ = random_.NextBipolar();
        }
    }

private:
    OscillatorShape shape_ = OscillatorShape::Sine;
    float phase_ = 0, step_ = 0, held_ = 0;
    SynthRandom random_;
};

} // namespace vimbo::synth
