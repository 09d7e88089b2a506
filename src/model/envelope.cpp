// Envelopes of an articulation block as records: views, depths, the one shared envelope, levels.
#include "model/envelope.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace vimbo {
namespace {

using EnvelopeValues = std::array<float, kEnvelopeParams>;

constexpr std::array kModEnvelopes{EnvelopeIndex::Pitch, EnvelopeIndex::Filter, EnvelopeIndex::X};

/// The values in the order of their offsets.
EnvelopeValues ToValues(const Envelope& e) noexcept
{
    const EnvelopeStage &a1 = e.attack1, &a2 = e.attack2, &d1 = e.decay1, &d2 = e.decay2;
    return {e.initialLevel,  a1.seconds,
            a1.velocity,     a1.key,
            a1.level,        a2.seconds,
            a2.velocity,     a2.key,
            a2.level,        d1.seconds,
            d1.velocity,     d1.key,
            d1.level,        d2.seconds,
            d2.velocity,     d2.key,
            d2.level,        e.release1Rate,
            e.release1Level, e.release2Seconds,
            e.release2Level, e.release3Seconds,
            e.release3Level, e.releaseVelocity,
            e.releaseKey,    static_cast<float>(e.releaseMode),
            e.shutdownRate};
}

/// Offsets of the ids that the index has: the shutdown rate belongs to the volume envelope alone.
constexpr ParamId ParamsOf(EnvelopeIndex index) noexcept
{
    return index == EnvelopeIndex::Volume ? kEnvelopeParams : kEnvShutdownRate;
}

bool NearTime(float a, float b) noexcept
{
    return std::abs(a - b) <= std::max(0.005f, 0.02f * std::max(std::abs(a), std::abs(b)));
}

bool NearStage(const EnvelopeStage& a, const EnvelopeStage& b) noexcept
{
    return NearTime(a.seconds, b.seconds) && std::abs(a.level - b.level) <= 0.01f &&
           NearTime(a.velocity, b.velocity) && NearTime(a.key, b.key);
}

bool NearRelease(const Envelope& a, const Envelope& b) noexcept
{
    const auto stage1 = [](const Envelope& e) { return EnvelopeStage{e.release1Rate, e.release1Level}; };
    const auto stage2 = [](const Envelope& e) { return EnvelopeStage{e.release2Seconds, e.release2Level}; };
    const auto stage3 = [](const Envelope& e) {
        return EnvelopeStage{e.release3Seconds, e.release3Level, e.releaseVelocity, e.releaseKey};
    };
    return NearStage(stage1(a), stage1(b)) && NearStage(stage2(a), stage2(b)) &&
           NearStage(stage3(a), stage3(b));
}

void Add(EnvelopeDepths& sum, const EnvelopeDepths& depths) noexcept
{
    sum.pitch += depths.pitch;
    sum.velocityPitch += depths.velocityPitch;
    sum.cutoff += depths.cutoff;
    sum.velocityCutoff += depths.velocityCutoff;
    sum.pan += depths.pan;
}

/// What the envelope of this index can hold of the depths.
EnvelopeDepths PartFor(EnvelopeIndex index, const EnvelopeDepths& depths) noexcept
{
    switch (index) {
    case EnvelopeIndex::Pitch:
        return {depths.pitch, depths.velocityPitch, 0, 0, 0};
    case EnvelopeIndex::Filter:
        return {0, 0, depths.cutoff, depths.velocityCutoff, 0};
    case EnvelopeIndex::X:
        return {0, 0, 0, 0, depths.pan};
    case EnvelopeIndex::Volume:
        break;
    }
    return {};
}

void SetDepths(ArticulationBlock& block, EnvelopeIndex index, const EnvelopeDepths& depths)
{
    if (index == EnvelopeIndex::Pitch) {
        block.Set(kArtPEnvToPitch, depths.pitch);
        block.Set(kArtVelPEnvToPitch, depths.velocityPitch);
    } else if (index == EnvelopeIndex::Filter) {
        block.Set(kArtFEnvToCutoff, depths.cutoff);
        block.Set(kArtVelFEnvToCutoff, depths.velocityCutoff);
    } else if (index == EnvelopeIndex::X) {
        block.Set(kArtXEnvToPan, depths.pan);
    }
}

/// Visits every level; the sustain level is decay 2's.
template <class Visit>
void EachLevel(Envelope& e, Visit visit)
{
    for (float* level : {&e.initialLevel, &e.attack1.level, &e.attack2.level, &e.decay1.level,
                         &e.decay2.level, &e.release1Level, &e.release2Level, &e.release3Level})
        visit(*level);
}

struct LevelRange {
    float lowest, highest;
};

LevelRange RangeOf(Envelope e) noexcept
{
    LevelRange range{e.initialLevel, e.initialLevel};
    EachLevel(e, [&](float level) {
        range.lowest = std::min(range.lowest, level);
        range.highest = std::max(range.highest, level);
    });
    return range;
}

float Release1Difference(const Envelope& e) noexcept
{
    return std::abs(e.decay2.level - e.release1Level);
}

/// Keeps the time of release 1 from the sustain level after levels have changed.
void KeepRelease1Time(Envelope& e, float formerDifference) noexcept
{
    const float difference = Release1Difference(e);
    if (difference > 0 && formerDifference > 0 && difference != formerDifference)
        e.release1Rate *= formerDifference / difference;
}

} // namespace

void GetEnvelope(const ArticulationBlock& block, Envelope& out, EnvelopeIndex index) noexcept
{
    const ParamId base = EnvelopeBase(index);
    const auto at = [&](ParamId offset) { return block[static_cast<ParamId>(base + offset)]; };
    const auto stage = [&](ParamId timeOffset, ParamId levelOffset) {
        return EnvelopeStage{at(timeOffset), at(levelOffset), at(static_cast<ParamId>(timeOffset + 1)),
                             at(static_cast<ParamId>(timeOffset + 2))};
    };
    out = {};
    out.initialLevel = at(kEnvInitialLevel);
    out.attack1 = stage(kEnvAttack1Time, kEnvAttack1Level);
    out.attack2 = stage(kEnvAttack2Time, kEnvAttack2Level);
    out.decay1 = stage(kEnvDecay1Time, kEnvDecay1Level);
    out.decay2 = stage(kEnvDecay2Time, kEnvSustain);
    out.release1Rate = at(kEnvRelease1Rate);
    out.release1Level = at(kEnvRelease1Level);
    out.release2Seconds = at(kEnvRelease2Time);
    out.release2Level = at(kEnvRelease2Level);
    out.release3Seconds = at(kEnvRelease3Time);
    out.release3Level = at(kEnvRelease3Level);
    out.releaseVelocity = at(kEnvVelToRelease);
    out.releaseKey = at(kEnvKeyToRelease);
    out.releaseMode = at(kEnvReleaseMode) >= 0.5f ? ReleaseMode::NoRelease : ReleaseMode::KeyRelease;
    if (index == EnvelopeIndex::Volume)
        out.shutdownRate = at(kEnvShutdownRate);
}

void SetEnvelope(ArticulationBlock& block, const Envelope& envelope, EnvelopeIndex index)
{
    const EnvelopeValues values = ToValues(envelope);
    for (ParamId offset = 0; offset < ParamsOf(index); ++offset)
        block.Set(static_cast<ParamId>(EnvelopeBase(index) + offset), values[offset]);
}

void GetEnvelopeEx(const ArticulationBlock& block, Envelope& out, EnvelopeDepths& depths,
                   EnvelopeIndex index) noexcept
{
    GetEnvelope(block, out, index);
    depths = PartFor(index, {block[kArtPEnvToPitch], block[kArtVelPEnvToPitch], block[kArtFEnvToCutoff],
                             block[kArtVelFEnvToCutoff], block[kArtXEnvToPan]});
}

float Strength(const EnvelopeDepths& depths) noexcept
{
    return kPitchStrength * (std::abs(depths.pitch) + std::abs(depths.velocityPitch)) +
           kCutoffStrength * (std::abs(depths.cutoff) + std::abs(depths.velocityCutoff)) +
           kPanStrength * std::abs(depths.pan);
}

bool SameEnvelopeForm(const Envelope& a, const Envelope& b) noexcept
{
    return std::abs(a.initialLevel - b.initialLevel) <= 0.01f && NearStage(a.attack1, b.attack1) &&
           NearStage(a.attack2, b.attack2) && NearStage(a.decay1, b.decay1) &&
           NearStage(a.decay2, b.decay2) && NearRelease(a, b) && a.releaseMode == b.releaseMode;
}

ModEnvelope ComposeModEnv(const ArticulationBlock& block, unsigned candidates) noexcept
{
    std::array<ModEnvelope, kModEnvelopes.size()> all;
    const ModEnvelope* strongest = nullptr;
    for (std::size_t i = 0; i < all.size(); ++i) {
        const EnvelopeIndex index = kModEnvelopes[i];
        GetEnvelopeEx(block, all[i].envelope, all[i].depths, index);
        if ((candidates & IndexBit(index)) == 0 || Strength(all[i].depths) == 0)
            continue;
        all[i].used = IndexBit(index);
        if (!strongest || Strength(all[i].depths) > Strength(strongest->depths))
            strongest = &all[i];
    }
    ModEnvelope out;
    if (!strongest)
        return out;
    out.envelope = strongest->envelope;
    for (const ModEnvelope& one : all) {
        if (one.used != 0 && SameEnvelopeForm(one.envelope, out.envelope)) {
            Add(out.depths, one.depths);
            out.used |= one.used;
        } else {
            out.dropped |= one.used;
        }
    }
    return out;
}

ModEnvelope ComposeModEnv(std::span<const ArticulationBlock* const> blocks, unsigned candidates) noexcept
{
    ModEnvelope out;
    for (const ArticulationBlock* block : blocks) {
        const ModEnvelope one = ComposeModEnv(*block, candidates);
        if (one.used != 0 && (out.used == 0 || Strength(one.depths) > Strength(out.depths)))
            out = one;
    }
    for (const ArticulationBlock* block : blocks) {
        const ModEnvelope one = ComposeModEnv(*block, candidates);
        out.dropped |= one.dropped;
        if (one.used != 0 && !SameEnvelopeForm(one.envelope, out.envelope))
            out.dropped |= one.used;
    }
    return out;
}

unsigned MergeEnvelope(ArticulationBlock& block, const Envelope& envelope, const EnvelopeDepths& depths)
{
    unsigned lost = 0;
    for (const EnvelopeIndex index : kModEnvelopes) {
        EnvelopeDepths part = PartFor(index, depths);
        if (Strength(part) == 0)
            continue;
        Envelope present;
        EnvelopeDepths presentDepths;
        GetEnvelopeEx(block, present, presentDepths, index);
        const bool isUsed = Strength(presentDepths) != 0;
        if (isUsed && SameEnvelopeForm(present, envelope)) {
            Add(part, presentDepths);
            SetDepths(block, index, part);
            continue;
        }
        if (isUsed)
            lost |= IndexBit(index);
        if (isUsed && !(Strength(part) > Strength(presentDepths)))
            continue;
        SetEnvelope(block, envelope, index);
        SetDepths(block, index, part);
    }
    return lost;
}

void InvertLevels(Envelope& envelope) noexcept
{
    EachLevel(envelope, [](float& level) { level = 1 - level; });
}

void NormalizeBipolar(Envelope& envelope, EnvelopeDepths& depths) noexcept
{
    const LevelRange range = RangeOf(envelope);
    if (range.highest < 0 || -range.lowest > range.highest) {
        EachLevel(envelope, [](float& level) { level = -level; });
        depths = {-depths.pitch, -depths.velocityPitch, -depths.cutoff, -depths.velocityCutoff, -depths.pan};
    }
    const float difference = Release1Difference(envelope);
    EachLevel(envelope, [](float& level) { level = level > 0 ? std::min(level, 1.0f) : 0.0f; });
    KeepRelease1Time(envelope, difference);
}

float NormalizeToOne(Envelope& envelope) noexcept
{
    const LevelRange range = RangeOf(envelope);
    const float factor = -range.lowest > range.highest ? range.lowest : range.highest;
    if (factor == 0 || !std::isfinite(factor))
        return 0;
    const float difference = Release1Difference(envelope);
    EachLevel(envelope, [&](float& level) { level /= factor; });
    KeepRelease1Time(envelope, difference);
    return factor;
}

} // namespace vimbo
