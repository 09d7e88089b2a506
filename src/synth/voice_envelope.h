// The envelope generator of voices: one value per control tick.
#pragma once

#include "model/envelope.h"

#include <cstdint>
#include <span>

namespace vimbo::synth {

/// What an envelope is made of. Made anew for every call, so that it can point at values that are edited
/// while the envelope runs: a stage reads its time and level when it starts.
struct EnvelopeSetting {
    std::span<const float, kEnvelopeParams> params; ///< by the offsets of envelope.h
    EnvelopeIndex index = EnvelopeIndex::Volume;
    bool isReleaseTrigger = false; ///< no stage waits for a key's release then
    float velocity = 0;            ///< bipolar
    float octaves = 0;             ///< above middle C
    float ticksPerSecond = 750;
};

/// Attack 1 and 2, decay 1 and 2, hold, release 1 to 3, of which those are built that do something. Levels of
/// the volume envelope are positions: 0 is -96 dB, 1 is 0 dB, straight lines between them are straight in dB,
/// but attacks are straight in amplitude. Other envelopes hold plain values of -1 to 1.
/// Any parameter values are safe, NaN too: levels are limited to their range, times to 2^31 ticks.
class VoiceEnvelope {
public:
    /// Goes to the initial level, and through stages that take no time.
    void Start(const EnvelopeSetting& setting) noexcept;
    /// One tick. @return the value at its end
    float Tick(const EnvelopeSetting& setting) noexcept
    {
        if (ticksLeft_ == 0 && stage_ != kFinished)
            GoOn(setting);
        if (ticksLeft_ == 0)
            return Value();
        --ticksLeft_;
        level_ += delta_;
        return Value();
    }
    /// The value of the last tick.
    float Value() const noexcept { return isGain_ ? GainAsPosition() : static_cast<float>(level_); }

    /// Key's release: goes to the release stages, if there are any (not in one-shot mode, not for release
    /// triggers).
    void Release(const EnvelopeSetting& setting) noexcept;
    /// Volume envelope only: falls to silence at the shutdown rate. Does nothing if a fade that is as fast
    /// already runs.
    void ShutDown(const EnvelopeSetting& setting) noexcept;
    /// The parameters have changed. Stages to come follow by themselves; a held level is moved.
    void Edit(const EnvelopeSetting& setting) noexcept;

    bool IsFinished() const noexcept { return stage_ == kFinished; }

private:
    static constexpr std::uint8_t kHold = 4, kRelease1 = 5, kLastStage = 7, kFinished = 8;

    void Enter(unsigned stage, const EnvelopeSetting& setting) noexcept;
    void GoOn(const EnvelopeSetting& setting) noexcept;
    void SetDomain(bool isGain) noexcept;
    void Run(unsigned stage, double target, double ticks) noexcept;
    float GainAsPosition() const noexcept;

    double level_ = 0, delta_ = 0, target_ = 0; ///< gains if isGain_
    std::uint32_t ticksLeft_ = 0;
    std::uint8_t stage_ = kFinished;
    bool isGain_ = false;
};

} // namespace vimbo::synth
