#include "synth/point_envelope.h"

#include "synth/synth_math.h"

#include <algorithm>

namespace vimbo::synth {
namespace {

constexpr double kRangeDb = 96;
constexpr float kAudiblePosition = 0.004f;

double PositionToGain(double position) noexcept
{
    return position > 0 ? DecibelsToGain(static_cast<float>((position - 1) * kRangeDb)) : 0.0;
}

double Seconds(const PointSetting& setting, std::size_t point) noexcept
{
    const double seconds = setting.points[point].seconds * setting.timeFactor;
    return seconds > 0 ? std::min(seconds, PointEnvelope::kMaxSeconds) : 0;
}

double LevelOf(float level, bool isAmplitude) noexcept
{
    return Limited(level, isAmplitude ? 0.0f : -1.0f, 1.0f);
}

std::size_t PointsBeforeHold(const PointSetting& setting) noexcept
{
    return setting.holds ? std::min<std::size_t>(setting.holdPoint, setting.points.size())
                         : setting.points.size();
}

} // namespace

double PointEnvelope::Position() const noexcept
{
    return isGain_ ? GainToDecibels(static_cast<float>(level_)) / kRangeDb + 1 : level_;
}

float PointEnvelope::Value() const noexcept
{
    return static_cast<float>(Position());
}

float PointEnvelope::Gain() const noexcept
{
    return static_cast<float>(isGain_ ? level_ : PositionToGain(level_));
}

void PointEnvelope::SetDomain(bool isGain) noexcept
{
    if (isGain_ != isGain)
        level_ = isGain ? PositionToGain(level_) : Position();
    isGain_ = isGain;
}

/// A stage without ticks is over at once.
void PointEnvelope::Run(double target, double ticks) noexcept
{
    target_ = target;
    ticksLeft_ = static_cast<std::uint32_t>(ticks + 0.5);
    delta_ = ticksLeft_ != 0 ? (target - level_) / ticksLeft_ : 0;
    if (ticksLeft_ == 0)
        level_ = target;
}

/// Goes to the first stage from `point` on that takes time.
void PointEnvelope::Enter(unsigned point, const PointSetting& setting) noexcept
{
    const bool isReleased = phase_ == Phase::Released;
    for (; phase_ != Phase::Fall; ++point) {
        if (setting.holds && !isReleased && point >= PointsBeforeHold(setting)) {
            phase_ = Phase::Hold;
            stage_ = next_ = static_cast<std::uint8_t>(PointsBeforeHold(setting));
            target_ = level_;
            delta_ = 0;
            ticksLeft_ = 0x80000000u;
            return;
        }
        if (point >= setting.points.size())
            break;
        const double target = LevelOf(setting.points[point].level, setting.isAmplitude);
        SetDomain(setting.isAmplitude && !isReleased && target > Position());
        stage_ = static_cast<std::uint8_t>(isReleased ? point + 1 : point);
        next_ = static_cast<std::uint8_t>(point + 1);
        Run(isGain_ ? PositionToGain(target) : target, Seconds(setting, point) * setting.ticksPerSecond);
        if (ticksLeft_ != 0)
            return;
    }
    Finish(setting);
}

void PointEnvelope::Finish(const PointSetting& setting) noexcept
{
    SetDomain(false);
    const bool falls = setting.isAmplitude && phase_ != Phase::Fall && level_ > 0;
    phase_ = falls ? Phase::Fall : Phase::End;
    if (falls)
        Run(0, std::max(1.0, kFallSeconds * setting.ticksPerSecond * level_));
}

void PointEnvelope::Start(const PointSetting& setting) noexcept
{
    isStarted_ = true;
    isGain_ = false;
    level_ = LevelOf(setting.startLevel, setting.isAmplitude);
    phase_ = Phase::Points;
    Enter(0, setting);
}

void PointEnvelope::Release(const PointSetting& setting) noexcept
{
    if (!setting.holds || (phase_ != Phase::Points && phase_ != Phase::Hold))
        return;
    phase_ = Phase::Released;
    Enter(static_cast<unsigned>(PointsBeforeHold(setting)), setting);
}

EnvelopeLength LengthOf(const PointSetting& setting) noexcept
{
    EnvelopeLength length;
    const std::size_t held = PointsBeforeHold(setting);
    for (std::size_t i = 0; i < setting.points.size(); ++i)
        (i < held ? length.heldSeconds : length.releaseSeconds) += Seconds(setting, i);
    const float level = held == 0 ? setting.startLevel : setting.points[held - 1].level;
    length.sustains = setting.holds && level > kAudiblePosition;
    const float last = setting.points.empty() ? setting.startLevel : setting.points.back().level;
    if (last > 0)
        length.releaseSeconds += PointEnvelope::kFallSeconds * std::min(last, 1.0f);
    return length;
}

double KeyTimeFactor(float base, float key) noexcept
{
    return base == 1 ? 1 : PortablePower(base, key / 12);
}

} // namespace vimbo::synth
