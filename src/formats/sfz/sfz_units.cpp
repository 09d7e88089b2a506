// Units, tuning, level, pan, equalizers and filter; the whole articulation.
#include "formats/sfz/sfz_unit_parts.h"
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
    const bool hasTuneRandom = record[kTuneRandom] != 0;
    const double random = hasTuneRandom ? record[kTuneRandom] : record[kPitchRandom];
    losses.pitchRandoms += hasTuneRandom && record[kPitchRandom] != 0 ? 1 : 0;
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

bool HasMovement(const Record& record) noexcept
{
    return record[kFilLfo + kLfoFreq] > 0 || std::ranges::any_of(kFilterLinear, [&](const Linear& row) {
               return row.op != kResonance && record[row.op] != 0;
           });
}

void ReadFilter(const Record& record, ArticulationBlock& block, UnitLosses& losses)
{
    ReadLinear(record, kFilterLinear, block);
    if (record[kCutoff] == kUnset)
        return;
    if (record[kFilType] >= kFilPeak) { // a filter of a gain
        constexpr std::size_t kBand = kEqs - 1;
        constexpr double kWidth = 1;
        losses.gainFilters += HasMovement(record) || record[kEq + kBand * kEqFields + 1] != 0 ? 1 : 0;
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

// How long a region fades that another one turns off. A time of its own counts whether or not the mode says
// so.

void ReadShutdown(const Record& record, ArticulationBlock& block)
{
    const double mode = record[kOffMode], seconds = record[kOffTime];
    if (mode == kOffNormal)
        SetValue(block, kArtShutdownRate, std::max(record[kAmpEg + kEgRelease], kOffSeconds));
    else if (mode == kOffTimed || seconds != kOffSeconds)
        SetValue(block, kArtShutdownRate, seconds);
}

void WriteShutdown(const ArticulationBlock& block, Generation generation, Record& out)
{
    if (generation == Generation::First || block[kArtShutdownRate] == DefaultArticulation()[kArtShutdownRate])
        return;
    out[kOffMode] = kOffTimed;
    out[kOffTime] = block[kArtShutdownRate];
}

} // namespace

ArticulationBlock ToArticulation(const Record& record, UnitLosses& losses)
{
    ArticulationBlock block;
    ReadLinear(record, kLinear, block);
    ReadPitch(record, block, losses);
    ReadLevels(record, block);
    ReadFilter(record, block, losses);
    ReadEqs(record, block);
    ReadLfos(record, block, losses);
    ReadEnvelopes(record, block, losses);
    ReadShutdown(record, block);
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
    WriteLfos(block, generation, out);
    WriteEnvelopes(block, generation, out);
    WriteShutdown(block, generation, out);
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
