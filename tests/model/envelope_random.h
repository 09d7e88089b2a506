// Random envelopes for property tests, the same on every run and with every standard library.
#pragma once

#include "model/envelope.h"

#include <cmath>
#include <random>

namespace vimbo {

class Random {
public:
    explicit Random(std::uint32_t seed) : engine_(seed) {}
    /// 0 to just below 1.
    double Unit() { return static_cast<double>(engine_() >> 5) / (1u << 27); }
    std::size_t Below(std::size_t count)
    {
        return static_cast<std::size_t>(Unit() * static_cast<double>(count));
    }
    float Between(double low, double high) { return static_cast<float>(low + (high - low) * Unit()); }
    /// Often 0, else 1 ms to 10 s with all decades alike.
    float Seconds() { return Below(4) == 0 ? 0 : static_cast<float>(std::pow(10.0, -3 + 4 * Unit())); }
    /// Often one of the ends of 0..1.
    float Level()
    {
        const std::size_t kind = Below(5);
        return kind == 0 ? 0 : kind == 1 ? 1 : Between(0, 1);
    }

private:
    std::mt19937 engine_;
};

inline Envelope RandomEnvelope(Random& random)
{
    Envelope e;
    e.initialLevel = random.Below(2) == 0 ? 0 : random.Level();
    for (EnvelopeStage* stage : {&e.attack1, &e.attack2, &e.decay1, &e.decay2})
        *stage = {random.Seconds(), random.Level(), random.Between(0.1, 8), random.Between(0.5, 2)};
    e.release1Rate = random.Seconds();
    e.release1Level = random.Level();
    e.release2Seconds = random.Seconds();
    e.release2Level = random.Level();
    e.release3Seconds = random.Seconds();
    e.release3Level = random.Level();
    e.releaseVelocity = random.Between(0.1, 8);
    e.releaseKey = random.Between(0.5, 2);
    return e;
}

inline DahdsrEnvelope RandomDahdsr(Random& random)
{
    DahdsrEnvelope d;
    for (float* time : {&d.delay, &d.attack, &d.hold, &d.decay, &d.release})
        *time = random.Seconds();
    for (float* factor :
         {&d.velocityToDelay, &d.velocityToAttack, &d.velocityToHold, &d.velocityToDecay,
          &d.velocityToRelease, &d.keyToDelay, &d.keyToAttack, &d.keyToHold, &d.keyToDecay, &d.keyToRelease})
        *factor = random.Between(0.25, 4);
    d.sustain = random.Level();
    d.releaseMode = random.Below(4) == 0 ? ReleaseMode::NoRelease : ReleaseMode::KeyRelease;
    return d;
}

/// Every field of the envelope that is a level.
template <class Visit>
void VisitLevels(const Envelope& e, Visit visit)
{
    for (const float level : {e.initialLevel, e.attack1.level, e.attack2.level, e.decay1.level,
                              e.decay2.level, e.release1Level, e.release2Level, e.release3Level})
        visit(level);
}

} // namespace vimbo
