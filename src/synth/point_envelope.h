// Envelopes of FM and LA patches: a row of points, with a place where the key holds them.
#pragma once

#include <cstdint>
#include <span>

namespace vimbo::synth {

/// A level, and the time that it takes to get there from the level before.
struct LevelPoint {
    float level = 0; ///< amplitudes: position 0 to 1 (0 is -96 dB, 1 is 0 dB); others -1 to 1
    float seconds = 0;
    friend bool operator==(const LevelPoint&, const LevelPoint&) = default;
};

/// What an envelope is made of. Made anew for every call, so that it can point at values that are edited
/// while the envelope runs: a stage reads its time and level when it starts.
struct PointSetting {
    std::span<const LevelPoint> points;
    float startLevel = 0;
    unsigned holdPoint = 0; ///< points ahead of the place where the envelope stands until the key's release
    bool holds = false;     ///< false: it runs through, whatever the key does
    bool isAmplitude = false;
    double timeFactor = 1; ///< of all times
    float ticksPerSecond = 750;
};

/// One value per control tick. Amplitudes rise straight in amplitude ahead of the hold, and go straight in dB
/// everywhere else; other envelopes go straight. After the last point an amplitude that has not died away
/// falls to silence by itself, other values stay. Times are limited to kMaxSeconds, NaN counts as 0.
class PointEnvelope {
public:
    static constexpr double kMaxSeconds = 400;  ///< of one stage, with its factor
    static constexpr double kFallSeconds = 0.5; ///< from full level to silence, behind the last point
    /// Stages: points are numbered from 0, those behind the hold from holdPoint + 1.
    static constexpr unsigned kMaxStages = 6;

    void Start(const PointSetting& setting) noexcept;
    /// One tick: the value moves on.
    void Tick(const PointSetting& setting) noexcept
    {
        if (ticksLeft_ == 0) {
            if (phase_ == Phase::End)
                return;
            level_ = target_;
            Enter(next_, setting);
            if (ticksLeft_ == 0)
                return;
        }
        --ticksLeft_;
        level_ += delta_;
    }
    /// Key's release; nothing for an envelope without a hold.
    void Release(const PointSetting& setting) noexcept;

    /// As in LevelPoint.
    float Value() const noexcept;
    /// Amplitudes only: 0 to 1.
    float Gain() const noexcept;
    /// The last point is reached; Value may still fall.
    bool IsBehindLast() const noexcept { return phase_ == Phase::Fall || phase_ == Phase::End; }
    bool IsStarted() const noexcept { return isStarted_; }
    /// Number of the stage: points as above, the hold itself holdPoint.
    unsigned Stage() const noexcept { return stage_; }

private:
    enum class Phase : std::uint8_t { Points, Hold, Released, Fall, End };

    void Enter(unsigned point, const PointSetting& setting) noexcept;
    void Finish(const PointSetting& setting) noexcept;
    void Run(double target, double ticks) noexcept;
    void SetDomain(bool isGain) noexcept;
    double Position() const noexcept;

    double level_ = 0, delta_ = 0, target_ = 0; ///< gains if isGain_
    std::uint32_t ticksLeft_ = 0;
    std::uint8_t next_ = 0; ///< point that comes after this stage
    std::uint8_t stage_ = 0;
    Phase phase_ = Phase::End;
    bool isGain_ = false;
    bool isStarted_ = false;
};

/// How long the points last: up to the hold (all of them without one), and behind it.
struct EnvelopeLength {
    double heldSeconds = 0, releaseSeconds = 0;
    bool sustains = false; ///< the held level is heard: only the key ends the sound
};
EnvelopeLength LengthOf(const PointSetting& setting) noexcept;

/// Factor of times at a key of 0 to 127: base per octave above key 0; 1 for a base of 1.
double KeyTimeFactor(float base, float key) noexcept;

} // namespace vimbo::synth
