#include "synth/voice_envelope.h"

#include "synth/synth_math.h"

#include <algorithm>
#include <cmath>

namespace vimbo::synth {
namespace {

constexpr float kRangeDb = 96;
constexpr double kMostTicks = 2147483648.0;
constexpr float kNoClickAttack = 0.001f, kNoClickRelease = 0.002f; // seconds

enum Stage : unsigned {
    kAttack1,
    kAttack2,
    kDecay1,
    kDecay2,
    kHoldStage,
    kRelease1Stage,
    kRelease2,
    kRelease3
};

double PositionToGain(double position) noexcept
{
    return position > 0 ? DecibelsToGain(static_cast<float>((position - 1) * kRangeDb)) : 0.0;
}

/// Stages as the parameters describe them.
class Plan {
public:
    explicit Plan(const EnvelopeSetting& setting) noexcept : setting_(setting) {}

    float InitialLevel() const noexcept { return Level(kEnvInitialLevel); }
    float Target(unsigned stage) const noexcept
    {
        static constexpr ParamId kLevels[] = {kEnvAttack1Level,  kEnvAttack2Level, kEnvDecay1Level,
                                              kEnvSustain,       kEnvSustain,      kEnvRelease1Level,
                                              kEnvRelease2Level, kEnvRelease3Level};
        return Level(kLevels[stage]);
    }
    /// The stages that do something.
    bool IsBuilt(unsigned stage) const noexcept
    {
        switch (stage) {
        case kAttack1:
            return Seconds(stage) != 0 || InitialLevel() != Target(kAttack1);
        case kHoldStage:
            return std::max({Target(kDecay2), Target(kRelease1Stage), Target(kRelease2), Target(kRelease3)}) >
                   0;
        case kRelease1Stage:
            return HasRelease();
        case kRelease2:
        case kRelease3:
            return Target(stage) != Target(Before(stage));
        default:
            return Seconds(stage) != 0 || Target(stage) != Target(stage - 1);
        }
    }
    bool HasRelease() const noexcept { return !setting_.isReleaseTrigger && !IsOneShot(); }
    /// Straight in amplitude.
    bool IsGain(unsigned stage) const noexcept { return IsVolume() && stage <= kAttack2; }
    /// Length from a level.
    double Ticks(unsigned stage, double level) const noexcept
    {
        if (stage == kHoldStage)
            return kMostTicks;
        double seconds = Seconds(stage);
        if (stage == kRelease1Stage)
            seconds *= std::abs(Target(stage) - level);
        return seconds * setting_.ticksPerSecond;
    }
    float ShutdownTicks() const noexcept
    {
        return Limited(setting_.params[kEnvShutdownRate], 0.0f, 1e6f) * setting_.ticksPerSecond;
    }

private:
    bool IsVolume() const noexcept { return setting_.index == EnvelopeIndex::Volume; }
    bool IsOneShot() const noexcept
    {
        return setting_.params[kEnvReleaseMode] == static_cast<float>(ReleaseMode::NoRelease);
    }
    float Level(ParamId offset) const noexcept
    {
        return Limited(setting_.params[offset], IsVolume() ? 0.0f : -1.0f, 1.0f);
    }
    /// The built stage before a later release stage.
    unsigned Before(unsigned stage) const noexcept
    {
        if (stage == kRelease3 && IsBuilt(kRelease2))
            return kRelease2;
        return HasRelease() ? kRelease1Stage : kDecay2;
    }
    double Scaled(ParamId time, ParamId velocity, ParamId key) const noexcept
    {
        const float seconds = setting_.params[time];
        if (!(seconds > 0))
            return 0;
        double factor = 1;
        if (setting_.params[velocity] != 1)
            factor = PortablePower(setting_.params[velocity], setting_.velocity * 0.5);
        if (setting_.params[key] != 1)
            factor *= PortablePower(setting_.params[key], setting_.octaves);
        return std::clamp(seconds * factor, 0.0, kMostTicks);
    }
    /// Time of a stage, for release 1 of a level difference of 1. The volume envelope's are long enough not
    /// to click.
    double Seconds(unsigned stage) const noexcept
    {
        if (stage < kHoldStage) {
            const auto time = static_cast<ParamId>(kEnvAttack1Time + 4 * stage);
            const double seconds =
                Scaled(time, static_cast<ParamId>(time + 1), static_cast<ParamId>(time + 2));
            return IsFirstRise(stage) ? std::max<double>(seconds, kNoClickAttack) : seconds;
        }
        const auto time = static_cast<ParamId>(kEnvRelease1Rate + 2 * (stage - kRelease1Stage));
        const double seconds = Scaled(time, kEnvVelToRelease, kEnvKeyToRelease);
        return IsVolume() && !IsOneShot() ? std::max<double>(seconds, kNoClickRelease) : seconds;
    }
    /// The stage that leaves silence first.
    bool IsFirstRise(unsigned stage) const noexcept
    {
        if (!IsVolume() || InitialLevel() != 0 || Target(stage) == 0)
            return false;
        for (unsigned before = kAttack1; before < stage; ++before)
            if (Target(before) > 0)
                return false;
        return true;
    }

    const EnvelopeSetting& setting_;
};

} // namespace

float VoiceEnvelope::GainAsPosition() const noexcept
{
    return GainToDecibels(static_cast<float>(level_)) / kRangeDb + 1;
}

void VoiceEnvelope::SetDomain(bool isGain) noexcept
{
    if (isGain_ != isGain)
        level_ = isGain ? PositionToGain(level_) : static_cast<double>(GainAsPosition());
    isGain_ = isGain;
}

/// Takes up a stage; one without time is over at once.
void VoiceEnvelope::Run(unsigned stage, double target, double ticks) noexcept
{
    stage_ = static_cast<std::uint8_t>(stage);
    target_ = target;
    ticksLeft_ = static_cast<std::uint32_t>(std::min(ticks, kMostTicks) + 0.5);
    delta_ = ticksLeft_ != 0 ? (target - level_) / ticksLeft_ : 0;
    if (ticksLeft_ == 0)
        level_ = target;
}

/// Goes to the first stage from `stage` on that takes time.
void VoiceEnvelope::Enter(unsigned stage, const EnvelopeSetting& setting) noexcept
{
    const Plan plan(setting);
    for (; stage < kFinished; ++stage) {
        if (!plan.IsBuilt(stage))
            continue;
        SetDomain(plan.IsGain(stage));
        const double target = isGain_ ? PositionToGain(plan.Target(stage)) : plan.Target(stage);
        if (stage == kHold)
            level_ = target;
        Run(stage, target, plan.Ticks(stage, level_));
        if (ticksLeft_ != 0)
            return;
    }
    SetDomain(false);
    stage_ = kFinished;
    ticksLeft_ = 0;
    bool isFull = true; // with all eight stages there is none left that would lead to 0
    for (unsigned i = 0; i < kFinished; ++i)
        isFull = isFull && plan.IsBuilt(i);
    if (!isFull)
        level_ = 0;
}

void VoiceEnvelope::GoOn(const EnvelopeSetting& setting) noexcept
{
    level_ = target_;
    Enter(stage_ + 1u, setting);
}

void VoiceEnvelope::Start(const EnvelopeSetting& setting) noexcept
{
    isGain_ = false;
    level_ = Plan(setting).InitialLevel();
    Enter(0, setting);
}

void VoiceEnvelope::Release(const EnvelopeSetting& setting) noexcept
{
    if (stage_ < kRelease1 && Plan(setting).HasRelease())
        Enter(kRelease1, setting);
}

void VoiceEnvelope::ShutDown(const EnvelopeSetting& setting) noexcept
{
    SetDomain(false);
    const double ticks = Plan(setting).ShutdownTicks() * level_;
    const bool falls = stage_ == kLastStage && target_ == 0;
    const bool isSilent = stage_ == kFinished && level_ == 0;
    if ((falls && ticksLeft_ <= ticks + 1) || isSilent)
        return;
    Run(kLastStage, 0, ticks);
}

void VoiceEnvelope::Edit(const EnvelopeSetting& setting) noexcept
{
    if (stage_ == kHold)
        Enter(kHold, setting);
}

} // namespace vimbo::synth
