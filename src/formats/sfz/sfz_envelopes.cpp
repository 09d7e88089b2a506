// Envelopes of an articulation.
#include "formats/sfz/sfz_unit_parts.h"
#include "model/envelope.h"

#include <algorithm>
#include <cmath>

namespace vimbo::sfz {
namespace {

constexpr double kMiddleC = 60, kHighestKey = 127, kOctave = 12;

struct EnvelopeRow {
    EnvelopeIndex index;
    std::size_t base; ///< kOps for the one without a name
    FlexTarget target;
    ParamId depth; ///< kArticulationParams for the volume envelope
};
constexpr ParamId kNoDepth = static_cast<ParamId>(kArticulationParams);
constexpr EnvelopeRow kEnvelopeRows[] = {
    {EnvelopeIndex::Volume, kAmpEg, kFlexVolume, kNoDepth},
    {EnvelopeIndex::Pitch, kPitchEg, kFlexPitch, kArtPEnvToPitch},
    {EnvelopeIndex::Filter, kFilEg, kFlexCutoff, kArtFEnvToCutoff},
    {EnvelopeIndex::X, kOps, kFlexPan, kArtXEnvToPan},
};

/// A time that grows by `add` towards the highest velocity, as the time at the middle and the quotient of its
/// ends. @return false if a quotient can't say it
bool ToVelocityTime(double& seconds, double add, float& quotient) noexcept
{
    quotient = 1;
    if (add == 0)
        return true;
    const double atHighest = seconds + add;
    if (seconds <= 0 || atHighest <= 0)
        return false;
    quotient = static_cast<float>(atHighest / seconds);
    seconds = std::sqrt(seconds * atHighest);
    return true;
}

void FromVelocityTime(double seconds, double quotient, double& out, double& add) noexcept
{
    out = seconds / std::sqrt(quotient);
    add = seconds * std::sqrt(quotient) - out;
    if (quotient == 1)
        add = 0;
}

/// Keys between which a factor per octave and a number of seconds per key are the same: those of the region,
/// an octave at least.
struct KeyWindow {
    explicit KeyWindow(const Record& record) noexcept
        : low(std::clamp(record[kLowKey], 0.0, kHighestKey)),
          high(std::clamp(record[kHighKey], low, kHighestKey)), nearest(std::clamp(kMiddleC, low, high))
    {
        high = std::max(high, std::min(low + kOctave, kHighestKey));
        low = std::min(low, high - kOctave);
    }
    double low, high;
    double nearest; ///< of the region's own keys to middle C
};

/// A time at key 0 that has grown by `add` at the highest key, as the time at middle C and the factor per
/// octave. @return false if a factor can't say it
bool ToKeyTime(double& seconds, double add, const KeyWindow& keys, float& factor) noexcept
{
    factor = 1;
    if (add == 0)
        return true;
    const double atLow = seconds + add * keys.low / kHighestKey;
    const double atHigh = seconds + add * keys.high / kHighestKey;
    if (atLow <= 0 || atHigh <= 0) {
        seconds = std::max(seconds + add * keys.nearest / kHighestKey, 0.0);
        return false;
    }
    const double perOctave = std::pow(atHigh / atLow, kOctave / (keys.high - keys.low));
    factor = static_cast<float>(perOctave);
    seconds = atLow * std::pow(perOctave, (kMiddleC - keys.low) / kOctave);
    return true;
}

void FromKeyTime(double seconds, double factor, const KeyWindow& keys, double& out, double& add) noexcept
{
    const auto at = [&](double key) { return seconds * std::pow(factor, (key - kMiddleC) / kOctave); };
    add = (at(keys.high) - at(keys.low)) * kHighestKey / (keys.high - keys.low);
    out = at(keys.low) - add * keys.low / kHighestKey;
    if (out >= 0)
        return;
    // Times below 0 are none for players: what grows faster goes through 0 and the middle of the range.
    const double middle = (keys.low + keys.high) / 2;
    out = 0;
    add = at(middle) * kHighestKey / middle;
}

struct TimeRow {
    EgField time, velocity, key;
    float DahdsrEnvelope::*seconds;
    float DahdsrEnvelope::*byVelocity;
    float DahdsrEnvelope::*byKey;
};
constexpr TimeRow kTimes[] = {
    {kEgDelay, kEgVelToDelay, kEgKeyToDelay, &DahdsrEnvelope::delay, &DahdsrEnvelope::velocityToDelay,
     &DahdsrEnvelope::keyToDelay},
    {kEgAttack, kEgVelToAttack, kEgKeyToAttack, &DahdsrEnvelope::attack, &DahdsrEnvelope::velocityToAttack,
     &DahdsrEnvelope::keyToAttack},
    {kEgHold, kEgVelToHold, kEgKeyToHold, &DahdsrEnvelope::hold, &DahdsrEnvelope::velocityToHold,
     &DahdsrEnvelope::keyToHold},
    {kEgDecay, kEgVelToDecay, kEgKeyToDecay, &DahdsrEnvelope::decay, &DahdsrEnvelope::velocityToDecay,
     &DahdsrEnvelope::keyToDecay},
    {kEgRelease, kEgVelToRelease, kEgKeyToRelease, &DahdsrEnvelope::release,
     &DahdsrEnvelope::velocityToRelease, &DahdsrEnvelope::keyToRelease},
};

/// The level at which delay and attack begin.
void SetStart(Envelope& envelope, double percent) noexcept
{
    envelope.initialLevel = envelope.attack1.level = static_cast<float>(percent * 0.01);
}

Envelope ReadEnvelope(const Record& record, std::size_t base, UnitLosses& losses)
{
    const KeyWindow keys(record);
    DahdsrEnvelope six;
    for (const TimeRow& row : kTimes) {
        double seconds = std::max(record[base + row.time], 0.0);
        if (!ToKeyTime(seconds, record[base + row.key], keys, six.*row.byKey))
            ++losses.keyTimes;
        if (!ToVelocityTime(seconds, record[base + row.velocity], six.*row.byVelocity))
            ++losses.times;
        six.*row.seconds = static_cast<float>(seconds);
    }
    six.sustain = static_cast<float>(record[base + kEgSustain] * 0.01);
    Envelope envelope = FromDahdsr(six);
    SetStart(envelope, record[base + kEgStart]);
    return envelope;
}

void WriteTime(const DahdsrEnvelope& six, const TimeRow& row, Generation generation, std::size_t base,
               Record& out)
{
    const KeyWindow keys(out);
    double seconds = six.*row.seconds, factor = six.*row.byKey;
    double &time = out[base + row.time], &byKey = out[base + row.key];
    if (generation ==
        Generation::First) { // no keys: the time at the region's key that is nearest to middle C
        seconds *= std::pow(factor, (keys.nearest - kMiddleC) / kOctave);
        factor = 1;
    }
    FromVelocityTime(seconds, six.*row.byVelocity, time, out[base + row.velocity]);
    byKey = 0;
    if (factor != 1 && seconds > 0)
        FromKeyTime(time, factor, keys, time, byKey);
}

void WriteSixStages(const Envelope& envelope, bool isVolume, Generation generation, std::size_t base,
                    Record& out)
{
    Envelope plain = envelope;
    double start = 0;
    if (envelope.initialLevel == envelope.attack1.level) {
        start = envelope.initialLevel * 100.0;
        SetStart(plain, 0);
    }
    const DahdsrEnvelope six = ToDahdsr(plain, isVolume);
    for (const TimeRow& row : kTimes)
        WriteTime(six, row, generation, base, out);
    out[base + kEgSustain] = six.sustain * 100.0;
    out[base + kEgStart] = start;
}

/// Points have no times that follow the key either.
void TakeKeyed(EnvelopeStage& read, const EnvelopeStage& wanted) noexcept
{
    read.key = wanted.key;
    if (wanted.key != 1)
        read.seconds = wanted.seconds;
}

/// True if the record gives the same envelope again, but for what points would not give either.
bool IsExact(const Envelope& envelope, EnvelopeIndex index, const Record& record, std::size_t base)
{
    UnitLosses losses;
    Envelope read = ReadEnvelope(record, base, losses);
    TakeKeyed(read.attack1, envelope.attack1);
    TakeKeyed(read.attack2, envelope.attack2);
    TakeKeyed(read.decay1, envelope.decay1);
    TakeKeyed(read.decay2, envelope.decay2);
    if (envelope.releaseKey != 1)
        read.release1Rate = envelope.release1Rate;
    read.releaseKey = envelope.releaseKey;
    read.releaseMode = envelope.releaseMode;
    read.shutdownRate = envelope.shutdownRate;
    ArticulationBlock block;
    SetEnvelope(block, read, index);
    GetEnvelope(block, read, index);
    return read == envelope;
}

FlexEnvelope ToFlex(const Envelope& envelope)
{
    const EnvelopePoints points = EnvelopeToPoints(envelope);
    FlexEnvelope flex;
    flex.points = std::min(points.points.size(), kMaxFlexPoints);
    double before = 0;
    for (std::size_t i = 0; i < flex.points; ++i) {
        flex.levels[i] = points.points[i].level;
        flex.seconds[i] = points.points[i].seconds - before;
        const bool endsHeldPart = points.hasSustain && i == points.sustainPoint; // the release counts from 0
        before = endsHeldPart ? 0 : points.points[i].seconds;
    }
    if (points.hasSustain)
        flex.sustain = static_cast<double>(points.sustainPoint);
    return flex;
}

Envelope FromFlex(const FlexEnvelope& flex)
{
    EnvelopePoints points;
    if (flex.seconds[0] > 0)
        points.points.push_back({0, 0});
    const std::size_t before = points.points.size();
    points.hasSustain = flex.sustain >= 0 && flex.sustain < static_cast<double>(flex.points);
    if (points.hasSustain)
        points.sustainPoint = static_cast<std::size_t>(flex.sustain) + before;
    double seconds = 0;
    for (std::size_t i = 0; i < flex.points; ++i) {
        const bool beginsRelease = points.hasSustain && points.points.size() == points.sustainPoint + 1;
        seconds = (beginsRelease ? 0 : seconds) + std::max(flex.seconds[i], 0.0);
        points.points.push_back({seconds, static_cast<float>(flex.levels[i])});
    }
    Envelope envelope;
    static_cast<void>(EnvelopeFromPoints(points, envelope));
    return envelope;
}

void WriteEnvelope(const ArticulationBlock& block, const EnvelopeRow& row, Generation generation, Record& out)
{
    const bool isVolume = row.index == EnvelopeIndex::Volume;
    Envelope envelope;
    EnvelopeDepths depths;
    GetEnvelopeEx(block, envelope, depths, row.index);
    const bool isHeard = isVolume || block[row.depth] != 0;
    if (row.base == kOps && (!isHeard || generation == Generation::First))
        return;
    if (row.base != kOps) {
        WriteSixStages(envelope, isVolume, generation, row.base, out);
        if (!isHeard || IsExact(envelope, row.index, out, row.base))
            return;
    }
    if (generation == Generation::Second) {
        const Record defaults;
        if (row.base != kOps)
            std::copy_n(defaults.values.begin() + static_cast<std::ptrdiff_t>(row.base), kEgFields,
                        out.values.begin() + static_cast<std::ptrdiff_t>(row.base));
        FlexEnvelope flex = ToFlex(envelope);
        flex.depths[row.target] = isVolume ? 100 : block[row.depth] * 100.0;
        out.envelopes[1 + static_cast<unsigned>(row.index)] = flex;
        return;
    }
    if (isVolume)
        return;
    NormalizeBipolar(envelope, depths);
    const double factor = NormalizeToOne(envelope);
    const bool isPitch = row.index == EnvelopeIndex::Pitch;
    WriteSixStages(envelope, false, generation, row.base, out);
    out[row.base + kEgDepth] = (isPitch ? depths.pitch : depths.cutoff) * factor * 100;
    out[row.base + kEgVelToDepth] = (isPitch ? depths.velocityPitch : depths.velocityCutoff) * factor * 100;
}

void ReadFlexEnvelopes(const Record& record, ArticulationBlock& block, UnitLosses& losses)
{
    std::array<bool, kFlexTargets> taken{};
    for (const auto& [number, flex] : record.envelopes)
        for (const EnvelopeRow& row : kEnvelopeRows) {
            if (flex.depths[row.target] == 0 || flex.points == 0)
                continue;
            const bool isFree = !taken[row.target] && (row.depth == kNoDepth || block[row.depth] == 0);
            taken[row.target] = true;
            if (!isFree) {
                ++losses.envelopes;
                continue;
            }
            SetEnvelope(block, FromFlex(flex), row.index);
            if (row.depth != kNoDepth)
                SetValue(block, row.depth, flex.depths[row.target] * 0.01);
        }
}

} // namespace

void ReadEnvelopes(const Record& record, ArticulationBlock& block, UnitLosses& losses)
{
    for (const EnvelopeRow& row : kEnvelopeRows)
        if (row.base != kOps)
            SetEnvelope(block, ReadEnvelope(record, row.base, losses), row.index);
    losses.ampDepths += record[kAmpEg + kEgDepth] != 0 || record[kAmpEg + kEgVelToDepth] != 0 ? 1 : 0;
    ReadFlexEnvelopes(record, block, losses);
}

void WriteEnvelopes(const ArticulationBlock& block, Generation generation, Record& out)
{
    for (const EnvelopeRow& row : kEnvelopeRows)
        if (row.index != EnvelopeIndex::Filter || block[kArtFilterType] != 0)
            WriteEnvelope(block, row, generation, out);
}

} // namespace vimbo::sfz
