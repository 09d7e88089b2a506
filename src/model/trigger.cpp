#include "model/trigger.h"

#include "base/numeric.h"

#include <algorithm>
#include <cmath>
#include <type_traits>

namespace vimbo {
namespace {

constexpr std::uint8_t kMaxMidi = 127;
constexpr float kMaxDelaySeconds = 100;
constexpr std::uint64_t kAllMarks = (std::uint64_t{1} << (kLastTriggerParam - kFirstTriggerParam + 1)) - 1;

/// Calls f(id, field of a, the same field of b) for every id in order.
template <class A, class B, class F>
void ForEachField(A& a, B& b, F f)
{
    f(kParamLowKey, a.keys.low, b.keys.low);
    f(kParamHighKey, a.keys.high, b.keys.high);
    f(kParamLowVelocity, a.velocities.low, b.velocities.low);
    f(kParamHighVelocity, a.velocities.high, b.velocities.high);
    f(kParamKeyFadeIn, a.keyFadeIn, b.keyFadeIn);
    f(kParamKeyFadeOut, a.keyFadeOut, b.keyFadeOut);
    f(kParamVelocityFadeIn, a.velocityFadeIn, b.velocityFadeIn);
    f(kParamVelocityFadeOut, a.velocityFadeOut, b.velocityFadeOut);
    f(kParamKeyFadeFormula, a.keyFadeFormula, b.keyFadeFormula);
    f(kParamVelocityFadeFormula, a.velocityFadeFormula, b.velocityFadeFormula);
    f(kParamTriggerType, a.triggerType, b.triggerType);
    f(kParamPedalSwitch, a.pedalSwitch, b.pedalSwitch);
    f(kParamExclusionGroup, a.exclusionGroup, b.exclusionGroup);
    f(kParamNoteExclusionMode, a.noteExclusionMode, b.noteExclusionMode);
    f(kParamDelay, a.delaySeconds, b.delaySeconds);
}

struct TriggerRecord {
    std::uint8_t lowKey, highKey, lowVelocity, highVelocity;
    std::uint8_t keyFadeIn, keyFadeOut, velocityFadeIn, velocityFadeOut;
    std::uint8_t keyFadeFormula, velocityFadeFormula;
    std::uint8_t triggerType, pedalSwitch;
    U16le exclusionGroup;
    std::uint8_t noteExclusionMode;
    std::uint8_t unused;
    F32le delaySeconds;
    U64le marks;
};
static_assert(DiskRecord<TriggerRecord> && sizeof(TriggerRecord) == 28);

FadeRange FadesAround(MidiRange range, unsigned fadeIn, unsigned fadeOut, std::uint8_t formula) noexcept
{
    // The larger half of an odd width lies inside the range.
    const int low = range.low - static_cast<int>(fadeIn / 2);
    const int high = range.high + static_cast<int>(fadeOut - fadeOut / 2);
    const int fullLow = range.low + static_cast<int>(fadeIn - fadeIn / 2);
    const int fullHigh = range.high - static_cast<int>(fadeOut / 2);
    const auto midi = [](int value) {
        return static_cast<std::uint8_t>(std::clamp(value, 0, int{kMaxMidi}));
    };
    return {midi(low),
            midi(fullLow),
            midi(fullHigh),
            midi(high),
            formula == static_cast<std::uint8_t>(FadeFormula::LinearGain) ? FadeFormula::LinearGain
                                                                          : FadeFormula::EqualPower,
            static_cast<std::uint8_t>(midi(low) - low),
            static_cast<std::uint8_t>(high - midi(high))};
}

void FitFades(std::uint8_t& fadeIn, std::uint8_t& fadeOut, MidiRange range) noexcept
{
    const auto width = static_cast<std::uint8_t>(std::min<unsigned>(range.Width(), kMaxMidi));
    fadeIn = std::min(fadeIn, width);
    fadeOut = std::min(fadeOut, width);
}

void ZeroAbove(std::uint8_t& value, unsigned last) noexcept
{
    if (value > last)
        value = 0;
}

} // namespace

float TriggerParams::Get(ParamId id) const noexcept
{
    float value = 0;
    ForEachField(*this, *this, [&](ParamId field, auto own, auto) {
        if (field == id)
            value = static_cast<float>(own);
    });
    return value;
}

void TriggerParams::Assign(ParamId id, float value) noexcept
{
    if (!IsId(id))
        return;
    const float limited = RoundAndClamp(TriggerParamRow(id), value);
    ForEachField(*this, *this, [&](ParamId field, auto& own, auto&) {
        using Field = std::remove_reference_t<decltype(own)>;
        if (field != id)
            return;
        if constexpr (std::is_same_v<Field, float>)
            own = limited;
        else
            own = static_cast<Field>(RoundToInt(limited));
    });
}

void TriggerParams::Set(ParamId id, float value) noexcept
{
    if (!IsId(id))
        return;
    Assign(id, value);
    Mark(id);
}

bool TriggerParams::InheritFrom(const TriggerParams& source) noexcept
{
    bool changed = false;
    ForEachField(*this, source, [&](ParamId id, auto& own, const auto& other) {
        if (IsSet(id) || own == other)
            return;
        own = other;
        changed = true;
    });
    return changed;
}

void TriggerParams::MarkDifferences(const TriggerParams& source) noexcept
{
    ForEachField(*this, source, [&](ParamId id, const auto& own, const auto& other) {
        if (own != other)
            Mark(id);
    });
}

bool TriggerParams::ClearRedundant(const TriggerParams& source) noexcept
{
    const std::uint64_t before = marks;
    ForEachField(*this, source, [&](ParamId id, const auto& own, const auto& other) {
        if (own == other)
            Unmark(id);
    });
    return marks != before;
}

bool TriggerParams::SameValues(const TriggerParams& other) const noexcept
{
    bool same = true;
    ForEachField(*this, other,
                 [&](ParamId, const auto& own, const auto& theirs) { same = same && own == theirs; });
    return same;
}

void TriggerParams::Normalize(FeatureMask features) noexcept
{
    const auto putInOrder = [this](MidiRange& range, ParamId lowId, ParamId highId) {
        ZeroAbove(range.low, kMaxMidi);
        range.high = std::min(range.high, kMaxMidi);
        if (range.low <= range.high)
            return;
        std::swap(range.low, range.high);
        if (IsSet(lowId) || IsSet(highId)) { // else one of them would be inherited anew, and swapped again
            Mark(lowId);
            Mark(highId);
        }
    };
    putInOrder(keys, kParamLowKey, kParamHighKey);
    putInOrder(velocities, kParamLowVelocity, kParamHighVelocity);
    FitFades(keyFadeIn, keyFadeOut, keys);
    FitFades(velocityFadeIn, velocityFadeOut, velocities);
    ZeroAbove(keyFadeFormula, static_cast<unsigned>(FadeFormula::LinearGain));
    ZeroAbove(velocityFadeFormula, static_cast<unsigned>(FadeFormula::LinearGain));
    ZeroAbove(triggerType, static_cast<unsigned>(TriggerKind::LastAlternate));
    ZeroAbove(pedalSwitch, static_cast<unsigned>(PedalSwitch::PlayOnUp));
    ZeroAbove(noteExclusionMode, static_cast<unsigned>(NoteExclusion::NonExclusive));
    // "Not above 0" holds for NaN too.
    delaySeconds = !(delaySeconds > 0)
                       ? 0
                       : std::min(std::trunc(delaySeconds * 1000.0f + 0.5f) / 1000.0f, kMaxDelaySeconds);
    if (!features.Has(Feature::TriggerCrossFade))
        keyFadeIn = keyFadeOut = velocityFadeIn = velocityFadeOut = 0;
    if (!features.Has(Feature::TriggerType))
        triggerType = pedalSwitch = 0;
    if (!features.Has(Feature::TriggerDelay))
        delaySeconds = 0;
}

void TriggerParams::Unite(const TriggerParams& other) noexcept
{
    const TriggerParams own = *this;
    ForEachField(own, other, [&](ParamId id, const auto& value, const auto& theirs) {
        if (value != theirs)
            Assign(id, 0); // the default of all but the ranges
    });
    keys = {std::min(own.keys.low, other.keys.low), std::max(own.keys.high, other.keys.high)};
    velocities = {std::min(own.velocities.low, other.velocities.low),
                  std::max(own.velocities.high, other.velocities.high)};
}

void TriggerParams::Serialize(ByteWriter& out) const
{
    TriggerRecord record{};
    record.lowKey = keys.low;
    record.highKey = keys.high;
    record.lowVelocity = velocities.low;
    record.highVelocity = velocities.high;
    record.keyFadeIn = keyFadeIn;
    record.keyFadeOut = keyFadeOut;
    record.velocityFadeIn = velocityFadeIn;
    record.velocityFadeOut = velocityFadeOut;
    record.keyFadeFormula = keyFadeFormula;
    record.velocityFadeFormula = velocityFadeFormula;
    record.triggerType = triggerType;
    record.pedalSwitch = pedalSwitch;
    record.exclusionGroup = exclusionGroup;
    record.noteExclusionMode = noteExclusionMode;
    record.delaySeconds = delaySeconds;
    record.marks = marks;
    out.Write(record);
}

bool TriggerParams::Deserialize(ByteReader& in) noexcept
{
    TriggerRecord record;
    if (!in.Read(record))
        return false;
    keys = {record.lowKey, record.highKey};
    velocities = {record.lowVelocity, record.highVelocity};
    keyFadeIn = record.keyFadeIn;
    keyFadeOut = record.keyFadeOut;
    velocityFadeIn = record.velocityFadeIn;
    velocityFadeOut = record.velocityFadeOut;
    keyFadeFormula = record.keyFadeFormula;
    velocityFadeFormula = record.velocityFadeFormula;
    triggerType = record.triggerType;
    pedalSwitch = record.pedalSwitch;
    exclusionGroup = record.exclusionGroup.Get();
    noteExclusionMode = record.noteExclusionMode;
    delaySeconds = record.delaySeconds.Get();
    marks = record.marks.Get() & kAllMarks;
    Normalize(FeatureMask{});
    return true;
}

float FadeRange::GainAt(unsigned value) const noexcept
{
    if (value < low || value > high)
        return 0;
    const auto at = static_cast<float>(value);
    const float zeroBelow = static_cast<float>(low) - static_cast<float>(cutLow) - 1;
    const float zeroAbove = static_cast<float>(high) + static_cast<float>(cutHigh) + 1;
    float gain = 1;
    if (value < fullLow)
        gain = (at - zeroBelow) / (static_cast<float>(fullLow) - zeroBelow);
    else if (value > fullHigh)
        gain = (zeroAbove - at) / (zeroAbove - static_cast<float>(fullHigh));
    return formula == FadeFormula::LinearGain ? gain : std::sqrt(gain);
}

CrossFade CrossFadeRanges(const TriggerParams& trigger) noexcept
{
    return {FadesAround(trigger.keys, trigger.keyFadeIn, trigger.keyFadeOut, trigger.keyFadeFormula),
            FadesAround(trigger.velocities, trigger.velocityFadeIn, trigger.velocityFadeOut,
                        trigger.velocityFadeFormula)};
}

} // namespace vimbo
