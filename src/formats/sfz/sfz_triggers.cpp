// When regions sound, and their loops.
#include "formats/sfz/sfz_units.h"
#include "model/waveform.h"

#include <algorithm>
#include <cmath>

namespace vimbo::sfz {
namespace {

constexpr double kHighest = 127;
constexpr double kHalf = 64; ///< from where a pedal is down
constexpr unsigned kMaxGroup = 65535;
constexpr float kAlternateGroup = static_cast<float>(TriggerKind::FirstAlternate);

// Cross-fades. The model centres them on the edges of its range.

void ReadFadeIn(double low, double from, double to, std::uint8_t& edge, std::uint8_t& fade) noexcept
{
    from = std::max(from, low);
    if (to == kUnset || to <= from)
        return;
    const int width = static_cast<int>(to) - static_cast<int>(from);
    fade = static_cast<std::uint8_t>(width);
    edge = static_cast<std::uint8_t>(static_cast<int>(from) + width / 2);
}

void ReadFadeOut(double high, double from, double to, std::uint8_t& edge, std::uint8_t& fade) noexcept
{
    to = to == kUnset ? to : std::min(to, high);
    if (from == kUnset || to <= from)
        return;
    const int width = static_cast<int>(to) - static_cast<int>(from);
    fade = static_cast<std::uint8_t>(width);
    edge = static_cast<std::uint8_t>(static_cast<int>(from) + width / 2);
}

double Midi(double value) noexcept
{
    return value == kUnset ? value : std::clamp(value, 0.0, kHighest);
}

struct RangeOps {
    std::size_t low, high, inLow, inHigh, outLow, outHigh;
    ParamId first, fadeIn, fadeOut;
};
constexpr RangeOps kKeyOps = {kLowKey,       kHighKey,     kXfInLowKey,     kXfInHighKey,    kXfOutLowKey,
                              kXfOutHighKey, kParamLowKey, kParamKeyFadeIn, kParamKeyFadeOut};
constexpr RangeOps kVelOps = {
    kLowVel,       kHighVel,          kXfInLowVel,          kXfInHighVel,         kXfOutLowVel,
    kXfOutHighVel, kParamLowVelocity, kParamVelocityFadeIn, kParamVelocityFadeOut};

void ReadRange(const Record& record, const RangeOps& ops, TriggerParams& out)
{
    const double low = Midi(record[ops.low]), high = Midi(record[ops.high]);
    MidiRange range{static_cast<std::uint8_t>(low), static_cast<std::uint8_t>(high)};
    std::uint8_t fadeIn = 0, fadeOut = 0;
    ReadFadeIn(low, Midi(record[ops.inLow]), Midi(record[ops.inHigh]), range.low, fadeIn);
    ReadFadeOut(high, Midi(record[ops.outLow]), Midi(record[ops.outHigh]), range.high, fadeOut);
    if (range.low > range.high && (fadeIn | fadeOut) != 0)
        range.low = range.high = static_cast<std::uint8_t>((range.low + range.high) / 2);
    out.Set(ops.first, range.low);
    out.Set(ops.first + 1, range.high);
    if (fadeIn != 0)
        out.Set(ops.fadeIn, fadeIn);
    if (fadeOut != 0)
        out.Set(ops.fadeOut, fadeOut);
}

void WriteRange(const FadeRange& fade, MidiRange range, unsigned fadeIn, unsigned fadeOut,
                const RangeOps& ops, Record& out)
{
    out[ops.low] = range.low;
    out[ops.high] = range.high;
    if (fadeIn != 0) {
        out[ops.low] = out[ops.inLow] = fade.low;
        out[ops.inHigh] = fade.fullLow;
    }
    if (fadeOut != 0) {
        out[ops.high] = out[ops.outHigh] = fade.high;
        out[ops.outLow] = fade.fullHigh;
    }
}

void ReadPedal(const Record& record, TriggerParams& out, UnitLosses& losses)
{
    const double low = record[kPedalLow], high = record[kPedalHigh];
    if (low <= 0 && high >= kHighest)
        return;
    const bool isDown = high >= kHighest, isUp = low <= 0;
    if (isDown || isUp)
        out.Set(kParamPedalSwitch,
                static_cast<float>(isDown ? PedalSwitch::PlayOnDown : PedalSwitch::PlayOnUp));
    if ((isDown && low != kHalf) || (isUp && high != kHalf - 1) || !(isDown || isUp))
        ++losses.pedals;
}

} // namespace

TriggerParams ToTrigger(const Record& record, std::uint32_t rateHz, UnitLosses& losses)
{
    TriggerParams trigger;
    ReadRange(record, kKeyOps, trigger);
    ReadRange(record, kVelOps, trigger);
    trigger.Set(kParamKeyFadeFormula, static_cast<float>(record[kXfKeyCurve]));
    trigger.Set(kParamVelocityFadeFormula, static_cast<float>(record[kXfVelCurve]));
    ReadPedal(record, trigger, losses);
    const bool isRandom = record[kLowRandom] > 0 || record[kHighRandom] < 1;
    losses.releaseKeys += record[kTrigger] == kTriggerReleaseKey ? 1 : 0;
    if (record[kTrigger] != kTriggerAttack)
        trigger.Set(kParamTriggerType, static_cast<float>(TriggerKind::KeyRelease));
    else if (isRandom || record[kSeqLength] > 1)
        trigger.Set(kParamTriggerType, kAlternateGroup);
    losses.randoms += isRandom ? 1 : 0;
    const double group = record[kOffBy] != 0 ? record[kOffBy] : 0;
    if (group != 0 && record[kGroup] != group)
        ++losses.groups;
    trigger.Set(kParamExclusionGroup, static_cast<float>(std::clamp(group, 0.0, double{kMaxGroup})));
    double delay = record[kDelay];
    if (rateHz != 0)
        delay += record[kDelaySamples] / rateHz;
    trigger.Set(kParamDelay, static_cast<float>(delay));
    const TriggerParams defaults;
    for (ParamId id = kFirstTriggerParam; id <= kLastTriggerParam; ++id)
        if (trigger.Get(id) == defaults.Get(id))
            trigger.Unmark(id);
    return trigger;
}

void FromTrigger(const TriggerParams& trigger, Record& out)
{
    const CrossFade fades = CrossFadeRanges(trigger);
    WriteRange(fades.keys, trigger.keys, trigger.keyFadeIn, trigger.keyFadeOut, kKeyOps, out);
    WriteRange(fades.velocities, trigger.velocities, trigger.velocityFadeIn, trigger.velocityFadeOut, kVelOps,
               out);
    if ((trigger.keyFadeIn | trigger.keyFadeOut) != 0)
        out[kXfKeyCurve] = trigger.keyFadeFormula;
    if ((trigger.velocityFadeIn | trigger.velocityFadeOut) != 0)
        out[kXfVelCurve] = trigger.velocityFadeFormula;
    if (trigger.pedalSwitch == static_cast<std::uint8_t>(PedalSwitch::PlayOnDown))
        out[kPedalLow] = kHalf;
    if (trigger.pedalSwitch == static_cast<std::uint8_t>(PedalSwitch::PlayOnUp))
        out[kPedalHigh] = kHalf - 1;
    if (trigger.triggerType == static_cast<std::uint8_t>(TriggerKind::KeyRelease))
        out[kTrigger] = kTriggerRelease;
    out[kGroup] = out[kOffBy] = trigger.exclusionGroup;
    out[kDelay] = trigger.delaySeconds;
}

LoopInfo ToLoop(const Record& record, const Waveform& wave)
{
    LoopInfo loop = wave.loop;
    loop.oneShot = false;
    const double mode = record[kLoopMode];
    if (mode == kNoLoop || mode == kOneShot)
        loop.type = LoopType::Off;
    else if (mode != kUnset && loop.type == LoopType::Off)
        loop.type = LoopType::Forward;
    if (mode != kUnset)
        loop.breakOnRelease = mode == kLoopSustain;
    if (loop.type != LoopType::Off && record[kLoopType] != kUnset)
        loop.type = record[kLoopType] == kLoopBackward    ? LoopType::Reverse
                    : record[kLoopType] == kLoopAlternate ? LoopType::Alternating
                                                          : LoopType::Forward;
    const double frames = wave.frames;
    loop.start = std::clamp(loop.start, 0.0, frames);
    if (record[kLoopStart] != kUnset)
        loop.start = std::clamp(record[kLoopStart], 0.0, frames);
    if (record[kLoopEnd] != kUnset) // the last frame of the loop
        loop.end = std::clamp(record[kLoopEnd] + 1, loop.start, frames);
    loop.end = std::min(loop.end, frames);
    if (loop.end - loop.start < 1)
        loop.type = LoopType::Off;
    loop.pitch = static_cast<float>(record[kLoopTune] * 0.01);
    return loop;
}

void FromLoop(const LoopInfo& loop, bool isOneShot, const Waveform& wave, Generation generation, Record& out)
{
    if (loop.type == LoopType::Off) {
        if (isOneShot)
            out[kLoopMode] = kOneShot;
        else if (wave.loop.type != LoopType::Off) // the sample file holds it
            out[kLoopMode] = kNoLoop;
        return;
    }
    out[kLoopMode] = loop.breakOnRelease ? kLoopSustain : kLoopContinuous;
    out[kLoopStart] = std::round(loop.start);
    out[kLoopEnd] = std::round(loop.end) - 1;
    if (generation == Generation::First)
        return;
    if (loop.type != LoopType::Forward)
        out[kLoopType] = loop.type == LoopType::Reverse ? kLoopBackward : kLoopAlternate;
    out[kLoopTune] = loop.pitch * 100.0;
}

} // namespace vimbo::sfz
