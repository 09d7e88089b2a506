#include "formats/sfz/sfz_units.h"

#include "model/envelope.h"
#include "model/waveform.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <span>

namespace vimbo::sfz {
namespace {

constexpr double kMiddleC = 60;
/// ln 2 / 12: semitones to the logarithm of a frequency's factor.
constexpr double kLogSemitone = 0.057762265;
/// The same for keys at an amount per octave.
constexpr double kLogKeyPerOctave = 0.004813522;

/// One number times a factor, which is all that most values need.
struct Linear {
    std::size_t op;
    ParamId id;
    double read, write;
};
constexpr Linear kLinear[] = {
    {kKeyTrack, kArtKeyToPitch, 0.01, 100},
    {kBendUp, kArtBendToPitch, 0.01, 100},
    {kAmpVelTrack, kArtVelToVolume, 0.96, 1.0416666},
    {kAmpKeyTrack, kArtKeyToVolume, 12, 0.083333336},
    {kGainWheel, kArtWheelToVolume, 1, 1},
    {kGainTouch, kArtTouchToVolume, 1, 1},
    {kPanKeyTrack, kArtKeyToPan, 0.12, 8.333333},
    {kPanCc10, kArtCc10ToPan, 0.01, 100},
    {kEffect1, kArtSend, 0.01, 100},
    {kEffect2, kArtSend + kSendParams, 0.01, 100},
    {kEffect3, kArtSend + 2 * kSendParams, 0.01, 100},
    {kEffect4, kArtSend + 3 * kSendParams, 0.01, 100},
    {kPitchEg + kEgDepth, kArtPEnvToPitch, 0.01, 100},
    {kPitchEg + kEgVelToDepth, kArtVelPEnvToPitch, 0.01, 100},
};
constexpr Linear kFilterLinear[] = {
    {kFilVelTrack, kArtVelToCutoff, 0.01, 100},
    {kFilKeyTrack, kArtKeyToCutoff, 0.12, 8.333333},
    {kCutoffWheel, kArtWheelToCutoff, 0.01, 100},
    {kCutoffTouch, kArtTouchToCutoff, 0.01, 100},
    {kResonance, kArtResonance, 1, 1},
    {kResonanceVelocity, kArtVelToResonance, 1, 1},
    {kResonanceWheel, kArtWheelToResonance, 1, 1},
    {kResonanceTouch, kArtTouchToResonance, 1, 1},
    {kFilEg + kEgDepth, kArtFEnvToCutoff, 0.01, 100},
    {kFilEg + kEgVelToDepth, kArtVelFEnvToCutoff, 0.01, 100},
};

/// An LFO with names of its own: where its depths go, and their unit.
struct LfoRow {
    LfoIndex index;
    std::size_t base;
    FlexTarget target;
    ParamId depth; ///< fixed; then wheel, aftertouch, velocity
    double read, write;
};
constexpr LfoRow kLfoRows[] = {
    {LfoIndex::Pitch, kPitchLfo, kFlexPitch, kArtPLfoToPitch, 0.01, 100},
    {LfoIndex::Volume, kAmpLfo, kFlexVolume, kArtVLfoToVolume, 1, 1},
    {LfoIndex::Filter, kFilLfo, kFlexCutoff, kArtFLfoToCutoff, 0.01, 100},
};
constexpr std::size_t kDepths = 4;

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

void SetValue(ArticulationBlock& block, ParamId id, double value)
{
    block.Set(id, static_cast<float>(value));
}

void ReadLinear(const Record& record, std::span<const Linear> rows, ArticulationBlock& block)
{
    for (const Linear& row : rows)
        SetValue(block, row.id, record[row.op] * row.read);
}

void WriteLinear(const ArticulationBlock& block, std::span<const Linear> rows, Record& out)
{
    for (const Linear& row : rows)
        out[row.op] = block[row.id] * row.write;
}

// Tuning, level, pan.

double DbOfPercent(double percent) noexcept
{
    constexpr double kSilence = -96;
    return percent <= 0 ? kSilence : std::max(20 * std::log10(percent / 100), kSilence);
}

void ReadPitch(const Record& record, ArticulationBlock& block, UnitLosses& losses)
{
    SetValue(block, kArtTuning,
             record[kTranspose] + record[kTune] * 0.01 - std::abs(record[kTuneRandom]) * 0.005);
    const double random = record[kTuneRandom] != 0 ? record[kTuneRandom] : record[kPitchRandom];
    SetValue(block, kArtRandomToPitch, std::abs(random) * 0.01);
    if (record[kBendDown] != -record[kBendUp])
        ++losses.bends;
}

void WritePitch(const ArticulationBlock& block, Record& out)
{
    const double tuning = block[kArtTuning];
    out[kTranspose] = std::trunc(tuning);
    out[kTune] = (tuning - std::trunc(tuning)) * 100;
    out[kPitchRandom] = block[kArtRandomToPitch] * 100.0;
    out[kBendDown] = -out[kBendUp];
}

void ReadLevels(const Record& record, ArticulationBlock& block)
{
    SetValue(block, kArtVolume,
             (kMiddleC - record[kAmpKeyCenter]) * record[kAmpKeyTrack] + record[kVolume] +
                 record[kGroupVolume] + record[kMasterVolume] + record[kGlobalVolume] +
                 DbOfPercent(record[kAmplitude]));
    SetValue(block, kArtPan,
             ((kMiddleC - record[kPanKeyCenter]) * record[kPanKeyTrack] + record[kPan]) * 0.01);
    SetValue(block, kArtRandomToPan, std::abs(record[kPanRandom]) * 0.01);
}

void WriteLevels(const ArticulationBlock& block, Record& out)
{
    out[kVolume] = block[kArtVolume];
    out[kPan] = block[kArtPan] * 100.0;
    out[kPanRandom] = block[kArtRandomToPan] * 100.0;
}

// Equalizers: octaves between the -3 dB points, as Q.

double QOfWidth(double octaves) noexcept
{
    constexpr double kNarrowest = 0.01;
    return 1 / (2 * std::sinh(std::numbers::ln2 / 2 * std::max(octaves, kNarrowest)));
}

double WidthOfQ(double q) noexcept
{
    return 2 / std::numbers::ln2 * std::asinh(1 / (2 * q));
}

void SetEq(ArticulationBlock& block, std::size_t band, double mode, double frequency, double gain, double q)
{
    const auto first = static_cast<ParamId>(band * kEqBandParams);
    SetValue(block, kArtEqMode + first, mode);
    SetValue(block, kArtEqFrequency + first, frequency);
    SetValue(block, kArtEqGain + first, gain);
    SetValue(block, kArtEqQ + first, q);
}

void ReadEqs(const Record& record, ArticulationBlock& block)
{
    for (std::size_t band = 0; band < kEqs; ++band) {
        const std::size_t base = kEq + band * kEqFields;
        if (record[base + 1] != 0)
            SetEq(block, band, record[base + 3], record[base], record[base + 1], QOfWidth(record[base + 2]));
    }
}

void WriteEqs(const ArticulationBlock& block, Record& out)
{
    for (std::size_t band = 0; band < kEqs; ++band) {
        const auto first = static_cast<ParamId>(band * kEqBandParams);
        const std::size_t base = kEq + band * kEqFields;
        if (block[kArtEqGain + first] == 0)
            continue;
        out[base] = block[kArtEqFrequency + first];
        out[base + 1] = block[kArtEqGain + first];
        out[base + 2] = WidthOfQ(block[kArtEqQ + first]);
        out[base + 3] = block[kArtEqMode + first];
    }
}

// Filter. The file's cutoff is that of full velocity and of the tracking's own centre.

void ReadFilter(const Record& record, ArticulationBlock& block)
{
    ReadLinear(record, kFilterLinear, block);
    if (record[kCutoff] == kUnset)
        return;
    if (record[kFilType] >= kFilPeak) { // a filter of a gain
        constexpr std::size_t kBand = kEqs - 1;
        constexpr double kWidth = 1;
        const double mode = record[kFilType] == kFilPeak ? 0 : record[kFilType] == kFilLowShelf ? 1 : 2;
        SetEq(block, kBand, mode, record[kCutoff], record[kResonance], QOfWidth(kWidth));
        return;
    }
    const double velocity = block[kArtVelToCutoff], key = block[kArtKeyToCutoff];
    SetValue(block, kArtFilterType, record[kFilType]);
    SetValue(block, kArtCutoff,
             record[kCutoff] * std::exp(velocity * 0.5 * kLogSemitone) *
                 std::exp((kMiddleC - record[kFilKeyCenter]) * kLogKeyPerOctave * key));
}

/// The nearest type that has a word.
double FilterWordOf(double type, Generation generation) noexcept
{
    const auto is = [type](FilterType wanted) { return type == static_cast<double>(wanted); };
    const auto number = [](FilterType wanted) { return static_cast<double>(wanted); };
    if (is(FilterType::LowPass18))
        type = number(FilterType::LowPass24);
    if (is(FilterType::HighPass18))
        type = number(FilterType::HighPass24);
    if (generation == Generation::Second)
        return type;
    if (is(FilterType::LowPass24))
        return number(FilterType::LowPass12);
    if (is(FilterType::HighPass24))
        return number(FilterType::HighPass12);
    if (is(FilterType::BandPass6))
        return number(FilterType::BandPass12);
    return is(FilterType::BandReject6) ? number(FilterType::BandReject12) : type;
}

void WriteFilter(const ArticulationBlock& block, Generation generation, Record& out)
{
    if (block[kArtFilterType] == 0)
        return;
    WriteLinear(block, kFilterLinear, out);
    out[kCutoff] = block[kArtCutoff] * std::exp(block[kArtVelToCutoff] * -0.5 * kLogSemitone);
    out[kFilType] = FilterWordOf(block[kArtFilterType], generation);
}

// LFOs.

struct WaveRow {
    int wave;
    LfoShape shape;
};
/// lfoN_wave; the first of a shape is written.
constexpr WaveRow kWaves[] = {{1, LfoShape::Sine},   {0, LfoShape::Triangle}, {3, LfoShape::Square},
                              {2, LfoShape::Square}, {4, LfoShape::Square},   {5, LfoShape::Square},
                              {6, LfoShape::SawUp},  {7, LfoShape::SawDown},  {12, LfoShape::Noise}};

void ReadLfo(const Record& record, const LfoRow& row, ArticulationBlock& block)
{
    if (record[row.base + kLfoFreq] <= 0) // it stands still
        return;
    Lfo lfo;
    lfo.frequencyHz = static_cast<float>(record[row.base + kLfoFreq]);
    lfo.delaySeconds = static_cast<float>(record[row.base + kLfoDelay]);
    lfo.rampSeconds = static_cast<float>(record[row.base + kLfoFade]);
    SetLfo(block, lfo, row.index);
    for (std::size_t i = 0; i < kDepths; ++i)
        SetValue(block, static_cast<ParamId>(row.depth + i), record[row.base + kLfoDepth + i] * row.read);
}

LfoDepth ToDepth(const std::array<double, kDepths>& amounts, double factor) noexcept
{
    const auto at = [&](std::size_t i) { return static_cast<float>(amounts[i] * factor); };
    return {at(0), at(1), at(2), at(3)};
}

void ReadFlexLfos(const Record& record, ArticulationBlock& block, UnitLosses& losses)
{
    for (const auto& [number, flex] : record.lfos) {
        if (flex.freq <= 0)
            continue;
        const auto* wave = std::ranges::find_if(
            kWaves, [wanted = flex.wave](const WaveRow& row) { return row.wave == wanted; });
        Lfo lfo;
        lfo.shape = wave != std::end(kWaves) ? wave->shape : LfoShape::Sine;
        lfo.frequencyHz = static_cast<float>(flex.freq);
        lfo.delaySeconds = static_cast<float>(flex.delay);
        lfo.rampSeconds = static_cast<float>(flex.fade);
        LfoDepths depths;
        depths.volume = ToDepth(flex.depths[kFlexVolume], 1);
        depths.pitch = ToDepth(flex.depths[kFlexPitch], 0.01);
        depths.cutoff = ToDepth(flex.depths[kFlexCutoff], 0.01);
        depths.pan = static_cast<float>(flex.depths[kFlexPan][0] * 0.01);
        if (MergeLfo(block, lfo, depths) != 0)
            ++losses.lfos;
    }
}

int WaveOf(LfoShape shape) noexcept
{
    return std::ranges::find_if(kWaves, [shape](const WaveRow& row) { return row.shape == shape; })->wave;
}

FlexLfo ToFlex(const Lfo& lfo)
{
    FlexLfo flex;
    flex.wave = WaveOf(lfo.shape);
    flex.freq = lfo.frequencyHz;
    flex.delay = lfo.delaySeconds;
    flex.fade = lfo.rampSeconds;
    return flex;
}

/// A wave between 0 and 1 has half the effect; a file has waves around 0 only.
double PolarityFactor(const Lfo& lfo) noexcept
{
    return lfo.polarity == LfoPolarity::Bipolar ? 1 : lfo.polarity == LfoPolarity::Unipolar ? 2 : -2;
}

void WriteLfo(const ArticulationBlock& block, const LfoRow& row, Generation generation, Record& out)
{
    Lfo lfo;
    GetLfo(block, lfo, row.index);
    std::array<double, kDepths> depths{};
    const double factor = row.write * PolarityFactor(lfo);
    for (std::size_t i = 0; i < kDepths; ++i)
        depths[i] = block[static_cast<ParamId>(row.depth + i)] * factor;
    const bool isUsed = std::ranges::any_of(depths, [](double depth) { return depth != 0; });
    if (!isUsed && lfo == Lfo{})
        return;
    if (isUsed && generation == Generation::Second && lfo.shape != LfoShape::Sine) {
        FlexLfo flex = ToFlex(lfo);
        flex.depths[row.target] = depths;
        out.lfos[1 + static_cast<unsigned>(row.index)] = flex;
        return;
    }
    out[row.base + kLfoFreq] = lfo.frequencyHz;
    out[row.base + kLfoDelay] = lfo.delaySeconds;
    out[row.base + kLfoFade] = lfo.rampSeconds;
    for (std::size_t i = 0; i < kDepths; ++i)
        out[row.base + kLfoDepth + i] = depths[i];
}

void WriteXLfo(const ArticulationBlock& block, Record& out)
{
    Lfo lfo;
    LfoDepths depths;
    GetLfoEx(block, lfo, depths, LfoIndex::X);
    if (depths.pan == 0 && depths.pitch.IsZero())
        return;
    FlexLfo flex = ToFlex(lfo);
    const double factor = 100 * PolarityFactor(lfo);
    flex.depths[kFlexPan][0] = depths.pan * factor;
    flex.depths[kFlexPitch] = {depths.pitch.fixed * factor, depths.pitch.wheel * factor,
                               depths.pitch.touch * factor, depths.pitch.velocity * factor};
    out.lfos[1 + static_cast<unsigned>(LfoIndex::X)] = flex;
}

// Envelopes.

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

struct TimeRow {
    EgField time, velocity;
    float DahdsrEnvelope::*seconds;
    float DahdsrEnvelope::*quotient;
};
constexpr TimeRow kTimes[] = {
    {kEgDelay, kEgVelToDelay, &DahdsrEnvelope::delay, &DahdsrEnvelope::velocityToDelay},
    {kEgAttack, kEgVelToAttack, &DahdsrEnvelope::attack, &DahdsrEnvelope::velocityToAttack},
    {kEgHold, kEgVelToHold, &DahdsrEnvelope::hold, &DahdsrEnvelope::velocityToHold},
    {kEgDecay, kEgVelToDecay, &DahdsrEnvelope::decay, &DahdsrEnvelope::velocityToDecay},
    {kEgRelease, kEgVelToRelease, &DahdsrEnvelope::release, &DahdsrEnvelope::velocityToRelease},
};

/// The level at which delay and attack begin.
void SetStart(Envelope& envelope, double percent) noexcept
{
    envelope.initialLevel = envelope.attack1.level = static_cast<float>(percent * 0.01);
}

Envelope ReadEnvelope(const Record& record, std::size_t base, UnitLosses& losses)
{
    DahdsrEnvelope six;
    for (const TimeRow& row : kTimes) {
        double seconds = std::max(record[base + row.time], 0.0);
        if (!ToVelocityTime(seconds, record[base + row.velocity], six.*row.quotient))
            ++losses.times;
        six.*row.seconds = static_cast<float>(seconds);
    }
    six.sustain = static_cast<float>(record[base + kEgSustain] * 0.01);
    Envelope envelope = FromDahdsr(six);
    SetStart(envelope, record[base + kEgStart]);
    return envelope;
}

void WriteSixStages(const Envelope& envelope, bool isVolume, std::size_t base, Record& out)
{
    Envelope plain = envelope;
    double start = 0;
    if (envelope.initialLevel == envelope.attack1.level) {
        start = envelope.initialLevel * 100.0;
        SetStart(plain, 0);
    }
    const DahdsrEnvelope six = ToDahdsr(plain, isVolume);
    for (const TimeRow& row : kTimes)
        FromVelocityTime(six.*row.seconds, six.*row.quotient, out[base + row.time], out[base + row.velocity]);
    out[base + kEgSustain] = six.sustain * 100.0;
    out[base + kEgStart] = start;
}

/// True if the record gives the same envelope again, but for what no envelope of the format has.
bool IsExact(const Envelope& envelope, EnvelopeIndex index, const Record& record, std::size_t base)
{
    UnitLosses losses;
    Envelope read = ReadEnvelope(record, base, losses);
    read.attack1.key = envelope.attack1.key;
    read.attack2.key = envelope.attack2.key;
    read.decay1.key = envelope.decay1.key;
    read.decay2.key = envelope.decay2.key;
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
    for (std::size_t i = 0; i < flex.points; ++i) {
        flex.levels[i] = points.points[i].level;
        flex.seconds[i] = points.points[i].seconds - (i > 0 ? points.points[i - 1].seconds : 0);
    }
    if (points.hasSustain)
        flex.sustain = static_cast<double>(points.sustainPoint);
    return flex;
}

Envelope FromFlex(const FlexEnvelope& flex)
{
    EnvelopePoints points;
    double seconds = 0;
    if (flex.seconds[0] > 0)
        points.points.push_back({0, 0});
    const std::size_t before = points.points.size();
    for (std::size_t i = 0; i < flex.points; ++i) {
        seconds += std::max(flex.seconds[i], 0.0);
        points.points.push_back({seconds, static_cast<float>(flex.levels[i])});
    }
    points.hasSustain = flex.sustain >= 0 && flex.sustain < static_cast<double>(flex.points);
    if (points.hasSustain)
        points.sustainPoint = static_cast<std::size_t>(flex.sustain) + before;
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
        WriteSixStages(envelope, isVolume, row.base, out);
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
    WriteSixStages(envelope, false, row.base, out);
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

ArticulationBlock ToArticulation(const Record& record, UnitLosses& losses)
{
    ArticulationBlock block;
    ReadLinear(record, kLinear, block);
    ReadPitch(record, block, losses);
    ReadLevels(record, block);
    ReadFilter(record, block);
    ReadEqs(record, block);
    for (const LfoRow& row : kLfoRows)
        ReadLfo(record, row, block);
    for (const EnvelopeRow& row : kEnvelopeRows)
        if (row.base != kOps)
            SetEnvelope(block, ReadEnvelope(record, row.base, losses), row.index);
    ReadFlexEnvelopes(record, block, losses);
    ReadFlexLfos(record, block, losses);
    if (record[kLoopMode] == kOneShot)
        block.Set(EnvelopeBase(EnvelopeIndex::Volume) + kEnvReleaseMode,
                  static_cast<float>(ReleaseMode::NoRelease));
    block.MarkDifferences(DefaultArticulation());
    return block;
}

void FromArticulation(const ArticulationBlock& block, Generation generation, Record& out)
{
    WriteLinear(block, kLinear, out);
    WritePitch(block, out);
    WriteLevels(block, out);
    WriteFilter(block, generation, out);
    WriteEqs(block, out);
    for (const LfoRow& row : kLfoRows)
        if (row.index != LfoIndex::Filter || block[kArtFilterType] != 0)
            WriteLfo(block, row, generation, out);
    if (generation == Generation::Second)
        WriteXLfo(block, out);
    for (const EnvelopeRow& row : kEnvelopeRows)
        if (row.index != EnvelopeIndex::Filter || block[kArtFilterType] != 0)
            WriteEnvelope(block, row, generation, out);
    if (generation == Generation::First)
        for (std::size_t op = kFirstSoundOp; op < kOps; ++op)
            if (RowOf(op)->since == Generation::Second)
                out[op] = RowOf(op)->defaultValue;
}

void AddWaveTuning(const Waveform& wave, Record& out)
{
    out[kTune] += wave.fineTune;
    out[kVolume] += wave.volume;
}

} // namespace vimbo::sfz
