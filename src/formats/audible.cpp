#include "formats/audible.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace vimbo {
namespace {

// The smallest steps that can be heard. Stored values are rounded, so that a step apart may come out a little
// more than a step.
constexpr float kDbStep = 0.05f;
constexpr float kSemitoneStep = 0.01f;
constexpr float kTimeRatio = 0.01f, kFrequencyRatio = 0.01f, kFactorRatio = 0.005f;
constexpr float kShortestSeconds = 0.0005f;
constexpr float kPartStep = 0.005f;  ///< of depths and levels from 0 to 1
constexpr float kVolumeRangeDb = 96; ///< of a volume envelope's level, 0 to 1
constexpr float kRounding = 1.0001f;

bool IsRatioWithin(float a, float b, float ratio) noexcept
{
    return std::abs(a - b) <= ratio * kRounding * std::max(std::abs(a), std::abs(b));
}

bool IsStepWithin(float a, float b, float step) noexcept
{
    return std::abs(a - b) <= step * kRounding;
}

bool IsSameTime(float a, float b) noexcept
{
    return IsRatioWithin(a, b, kTimeRatio) || IsStepWithin(a, b, kShortestSeconds);
}

bool AnySet(const ArticulationBlock& block, ParamId first, ParamId last) noexcept
{
    for (ParamId id = first; id <= last; ++id)
        if (block[id] != 0)
            return true;
    return false;
}

bool HasFilter(const ArticulationBlock& block) noexcept
{
    return block[kArtFilterType] != static_cast<float>(FilterType::PassThru);
}

bool IsLfoUsed(const ArticulationBlock& block, LfoIndex index) noexcept
{
    switch (index) {
    case LfoIndex::Pitch:
        return AnySet(block, kArtPLfoToPitch, kArtVelPLfoToPitch);
    case LfoIndex::Volume:
        return AnySet(block, kArtVLfoToVolume, kArtVelVLfoToVolume);
    case LfoIndex::Filter:
        return HasFilter(block) && AnySet(block, kArtFLfoToCutoff, kArtVelFLfoToCutoff);
    case LfoIndex::X:
        return AnySet(block, kArtXLfoToPitch, kArtVelXLfoToPitch) || block[kArtXLfoToPan] != 0;
    }
    return false;
}

bool IsEnvelopeUsed(const ArticulationBlock& block, EnvelopeIndex index) noexcept
{
    switch (index) {
    case EnvelopeIndex::Volume:
        return true;
    case EnvelopeIndex::Pitch:
        return AnySet(block, kArtPEnvToPitch, kArtVelPEnvToPitch);
    case EnvelopeIndex::Filter:
        return HasFilter(block) && AnySet(block, kArtFEnvToCutoff, kArtVelFEnvToCutoff);
    case EnvelopeIndex::X:
        return block[kArtXEnvToPan] != 0;
    }
    return false;
}

constexpr ParamId kLastFilterParam = kArtTouchToResonance;
constexpr ParamId kAfterEq = kArtEqMode + kEqBands * kEqBandParams;
constexpr ParamId kAfterLfos = kArtLfos + kLfos * kLfoParams;

constexpr bool IsEnvelopeId(ParamId id) noexcept
{
    return id >= kArtEnvelopes && id < kArticulationParams;
}

constexpr EnvelopeIndex EnvelopeOf(ParamId id) noexcept
{
    return static_cast<EnvelopeIndex>((id - kArtEnvelopes) / kEnvelopeParams);
}

/// True of the factors by which velocity and key change times.
constexpr bool IsTimeFactor(ParamId offset) noexcept
{
    switch (offset) {
    case kEnvVelToAttack1:
    case kEnvKeyToAttack1:
    case kEnvVelToAttack2:
    case kEnvKeyToAttack2:
    case kEnvVelToDecay1:
    case kEnvKeyToDecay1:
    case kEnvVelToDecay2:
    case kEnvKeyToDecay2:
    case kEnvVelToRelease:
    case kEnvKeyToRelease:
        return true;
    default:
        return false;
    }
}

/// True if any time is above 0 that the factor is for.
bool HasTimeFor(const ArticulationBlock& block, ParamId base, ParamId offset) noexcept
{
    const auto isAbove0 = [&](ParamId time) { return block[static_cast<ParamId>(base + time)] > 0; };
    if (offset == kEnvVelToRelease || offset == kEnvKeyToRelease)
        return isAbove0(kEnvRelease1Rate) || isAbove0(kEnvRelease2Time) || isAbove0(kEnvRelease3Time);
    // Each time stands right ahead of its two factors.
    for (const ParamId time : {kEnvDecay2Time, kEnvDecay1Time, kEnvAttack2Time, kEnvAttack1Time})
        if (offset > time)
            return isAbove0(time);
    return true;
}

bool IsEnvelopeValueHeard(const ArticulationBlock& block, ParamId id) noexcept
{
    const EnvelopeIndex index = EnvelopeOf(id);
    const ParamId base = EnvelopeBase(index);
    const auto offset = static_cast<ParamId>(id - base);
    if (!IsEnvelopeUsed(block, index) || (offset == kEnvShutdownRate && index != EnvelopeIndex::Volume))
        return false;
    const bool isReleased =
        block[static_cast<ParamId>(base + kEnvReleaseMode)] != static_cast<float>(ReleaseMode::NoRelease);
    if (offset >= kEnvRelease1Rate && offset <= kEnvKeyToRelease && !isReleased)
        return false;
    return !IsTimeFactor(offset) || HasTimeFor(block, base, offset);
}

/// Neither a neutral value nor one of an unused part: values whose 0 still says something.
constexpr bool SpeaksAtZero(ParamId id) noexcept
{
    return id == kArtKeyToPitch || id == kArtBendToPitch || id == kArtVelToVolume || id == kArtFilterType ||
           id == kArtCutoff || id == kArtResonance || id == kArtCc10ToPan;
}

/// The corners' times: those up to the sustain point, and those behind it.
struct CornerTimes {
    std::vector<double> held, released;
    void Add(const Envelope& envelope)
    {
        const EnvelopePoints points = EnvelopeToPoints(envelope);
        for (std::size_t i = 0; i < points.points.size(); ++i)
            (i <= points.sustainPoint ? held : released).push_back(points.points[i].seconds);
    }
};

/// True if two envelopes run alike, whatever their segments: on straight lines, the greatest difference lies
/// at a corner of one of them.
bool RunAlike(const Envelope& a, const Envelope& b, float step)
{
    constexpr double kHalfJump = 1e-6; // levels may jump at a corner: compared on both sides of it
    CornerTimes times;
    times.Add(a);
    times.Add(b);
    const double release = *std::max_element(times.held.begin(), times.held.end());
    const auto isNear = [&](double seconds, double releaseSeconds) {
        for (const double at : {std::max(0.0, seconds - kHalfJump), seconds + kHalfJump})
            if (std::abs(EnvelopeLevelAt(a, at, releaseSeconds) - EnvelopeLevelAt(b, at, releaseSeconds)) >
                step)
                return false;
        return true;
    };
    return std::all_of(times.held.begin(), times.held.end(), [&](double at) { return isNear(at, -1); }) &&
           std::all_of(times.released.begin(), times.released.end(),
                       [&](double at) { return isNear(release + at, release); });
}

/// Factors of stages without length do nothing.
bool HaveSameFactors(const Envelope& a, const Envelope& b) noexcept
{
    const auto same = [](float x, float y) { return IsRatioWithin(x, y, kFactorRatio); };
    const auto sameStage = [&](const EnvelopeStage& x, const EnvelopeStage& y) {
        return (x.seconds == 0 && y.seconds == 0) || (same(x.velocity, y.velocity) && same(x.key, y.key));
    };
    return sameStage(a.attack1, b.attack1) && sameStage(a.attack2, b.attack2) &&
           sameStage(a.decay1, b.decay1) && sameStage(a.decay2, b.decay2) &&
           same(a.releaseVelocity, b.releaseVelocity) && same(a.releaseKey, b.releaseKey);
}

} // namespace

bool SoundsAlike(const ParamRow& row, float a, float b) noexcept
{
    if (a == b)
        return true;
    if (row.id == kParamLowVelocity) // 0 is a note-off, never a note
        return std::max(a, 1.0f) == std::max(b, 1.0f);
    switch (row.unit) {
    case ParamUnit::Db:
        return IsStepWithin(a, b,
                            row.editClass == EditClass::FourDecimals ? kDbStep / kVolumeRangeDb : kDbStep);
    case ParamUnit::Semitones:
        return IsStepWithin(a, b, kSemitoneStep);
    case ParamUnit::Factor:
        return IsRatioWithin(a, b, kFactorRatio);
    case ParamUnit::Percent:
        return row.editClass == EditClass::Percent && IsStepWithin(a, b, kPartStep);
    case ParamUnit::Hz:
        return row.id != kParamWaveRate && IsRatioWithin(a, b, kFrequencyRatio);
    case ParamUnit::Seconds:
        return IsSameTime(a, b);
    case ParamUnit::Milliseconds:
        return IsRatioWithin(a, b, kTimeRatio);
    case ParamUnit::None:
        break;
    }
    return false;
}

bool IsHeard(const ArticulationBlock& block, ParamId id) noexcept
{
    if (id >= kArticulationParams || ArticulationParamRow(id).name.empty())
        return false;
    if (IsEnvelopeId(id))
        return IsEnvelopeValueHeard(block, id);
    if (id >= kArtLfos && id < kAfterLfos)
        return IsLfoUsed(block, static_cast<LfoIndex>((id - kArtLfos) / kLfoParams));
    if (id >= kArtEqMode && id < kAfterEq) {
        const auto gain =
            static_cast<ParamId>(kArtEqGain + (id - kArtEqMode) / kEqBandParams * kEqBandParams);
        return block[gain] != 0;
    }
    if (id > kArtFilterType && id <= kLastFilterParam && !HasFilter(block))
        return false;
    return SpeaksAtZero(id) || block[id] != 0;
}

bool EnvelopeMatches::Covers(ParamId id)
{
    if (!IsEnvelopeId(id))
        return false;
    const EnvelopeIndex index = EnvelopeOf(id);
    const auto offset = static_cast<ParamId>(id - EnvelopeBase(index));
    if (IsTimeFactor(offset) || offset == kEnvSustain || offset >= kEnvReleaseMode)
        return false;
    std::optional<bool>& known = known_[static_cast<std::size_t>(index)];
    if (!known)
        known = Match(index);
    return *known;
}

bool EnvelopeMatches::Match(EnvelopeIndex index) const
{
    Envelope a, b;
    GetEnvelope(wanted_, a, index);
    GetEnvelope(held_, b, index);
    // What moves a time in one of them alone makes the curves differ at other keys and velocities.
    return a.releaseMode == b.releaseMode && HaveSameFactors(a, b) && RunAlike(a, b, kPartStep);
}

} // namespace vimbo
