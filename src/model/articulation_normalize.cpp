// Reduction of a block to the facilities that a feature mask permits.
#include "model/articulation.h"
#include "model/articulation_rows.h"
#include "model/envelope.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <numeric>

namespace vimbo {
namespace {

constexpr int kPolarityShift = 6;
constexpr int kShapeBits = 0x3F;

constexpr std::array kAllLfos{LfoIndex::Pitch, LfoIndex::Volume, LfoIndex::Filter, LfoIndex::X};
constexpr std::array kAllEnvelopes{EnvelopeIndex::Volume, EnvelopeIndex::Pitch, EnvelopeIndex::Filter,
                                   EnvelopeIndex::X};
constexpr unsigned kModEnvelopes =
    IndexBit(EnvelopeIndex::Pitch) | IndexBit(EnvelopeIndex::Filter) | IndexBit(EnvelopeIndex::X);

/// What goes back to its default when its feature is missing.
struct Facility {
    Feature feature;
    ParamId id;
};
constexpr auto kFacilities = std::to_array<Facility>({
    {Feature::LfoModulation, kArtWheelPLfoToPitch},
    {Feature::LfoModulation, kArtTouchPLfoToPitch},
    {Feature::LfoModulation, kArtVelPLfoToPitch},
    {Feature::LfoModulation, kArtWheelXLfoToPitch},
    {Feature::LfoModulation, kArtTouchXLfoToPitch},
    {Feature::LfoModulation, kArtVelXLfoToPitch},
    {Feature::LfoModulation, kArtWheelVLfoToVolume},
    {Feature::LfoModulation, kArtTouchVLfoToVolume},
    {Feature::LfoModulation, kArtVelVLfoToVolume},
    {Feature::LfoModulation, kArtWheelFLfoToCutoff},
    {Feature::LfoModulation, kArtTouchFLfoToCutoff},
    {Feature::LfoModulation, kArtVelFLfoToCutoff},
    {Feature::EnvVelocityToDepth, kArtVelPEnvToPitch},
    {Feature::EnvVelocityToDepth, kArtVelFEnvToCutoff},
    {Feature::PitchBend, kArtBendToPitch},
    {Feature::PitchKey, kArtKeyToPitch},
    {Feature::PitchRandom, kArtRandomToPitch},
    {Feature::MixerKeyToVolumePan, kArtKeyToVolume},
    {Feature::MixerKeyToVolumePan, kArtKeyToPan},
    {Feature::MixerRandomToPan, kArtRandomToPan},
    {Feature::VolumeControllers, kArtWheelToVolume},
    {Feature::VolumeControllers, kArtTouchToVolume},
    {Feature::FilterControllersToCutoff, kArtWheelToCutoff},
    {Feature::FilterControllersToCutoff, kArtTouchToCutoff},
    {Feature::FilterKeyVelocityToCutoff, kArtVelToCutoff},
    {Feature::FilterKeyVelocityToCutoff, kArtKeyToCutoff},
    {Feature::FilterToResonance, kArtVelToResonance},
    {Feature::FilterToResonance, kArtWheelToResonance},
    {Feature::FilterToResonance, kArtTouchToResonance},
    {Feature::EffectEq, kArtEqGain},
    {Feature::EffectEq, kArtEqGain + kEqBandParams},
    {Feature::EffectEq, kArtEqGain + 2 * kEqBandParams},
    {Feature::EffectSends, kArtSend},
    {Feature::EffectSends, kArtSend + kSendParams},
    {Feature::EffectSends, kArtSend + 2 * kSendParams},
    {Feature::EffectSends, kArtSend + 3 * kSendParams},
    {Feature::MixerChannelDepths, kArtCc10ToPan},
    {Feature::MixerChannelDepths, kArtCcToSend},
    {Feature::MixerChannelDepths, kArtCcToSend + kSendParams},
    {Feature::MixerChannelDepths, kArtCcToSend + 2 * kSendParams},
    {Feature::MixerChannelDepths, kArtCcToSend + 3 * kSendParams},
});

/// The same of every envelope, by offset.
constexpr auto kEnvelopeFacilities = std::to_array<Facility>({
    {Feature::EnvVelocityToAttack1, kEnvVelToAttack1},
    {Feature::EnvVelocityToAttack2, kEnvVelToAttack2},
    {Feature::EnvVelocityToDecay, kEnvVelToDecay1},
    {Feature::EnvVelocityToDecay, kEnvVelToDecay2},
    {Feature::EnvVelocityToRelease, kEnvVelToRelease},
    {Feature::EnvKeyToAttackRelease, kEnvKeyToAttack1},
    {Feature::EnvKeyToAttackRelease, kEnvKeyToAttack2},
    {Feature::EnvKeyToAttackRelease, kEnvKeyToRelease},
});

constexpr std::array<ParamId, 4> kPLfoDepths{3, 4, 5, 6};
constexpr std::array<ParamId, 4> kVLfoDepths{19, 20, 21, 22};
constexpr std::array<ParamId, 4> kFLfoDepths{29, 30, 31, 32};
constexpr std::array<ParamId, 5> kXLfoDepths{7, 8, 9, 10, kArtXLfoToPan};
constexpr std::array<ParamId, 2> kPEnvDepths{kArtPEnvToPitch, kArtVelPEnvToPitch};
constexpr std::array<ParamId, 2> kFEnvDepths{kArtFEnvToCutoff, kArtVelFEnvToCutoff};
constexpr std::array<ParamId, 1> kXEnvDepths{kArtXEnvToPan};

constexpr std::span<const ParamId> DepthsOf(LfoIndex index) noexcept
{
    switch (index) {
    case LfoIndex::Pitch:
        return kPLfoDepths;
    case LfoIndex::Volume:
        return kVLfoDepths;
    case LfoIndex::Filter:
        return kFLfoDepths;
    default:
        return kXLfoDepths;
    }
}

constexpr std::span<const ParamId> DepthsOf(EnvelopeIndex index) noexcept
{
    switch (index) {
    case EnvelopeIndex::Pitch:
        return kPEnvDepths;
    case EnvelopeIndex::Filter:
        return kFEnvDepths;
    case EnvelopeIndex::X:
        return kXEnvDepths;
    default:
        return {};
    }
}

constexpr ParamId Id(std::size_t base, std::size_t offset) noexcept
{
    return static_cast<ParamId>(base + offset);
}

/// Back to the default, unmarked: every level does the same, so what would be inherited is the same too.
void Clear(ArticulationBlock& block, ParamId id)
{
    block.Inherit(id, kArticulationDefaults[id]);
}

/// A reduction depends on several values. If this level sets one of them, its result differs from the upper
/// level's, so what changes must be marked here or it would be inherited back.
class Reduction {
public:
    explicit Reduction(ArticulationBlock& block) noexcept : block_(block) {}
    void DependsOn(ParamId id) noexcept { marks_ = marks_ || block_.IsSet(id); }
    void DependsOn(std::span<const ParamId> ids) noexcept
    {
        for (const ParamId id : ids)
            DependsOn(id);
    }
    void DependsOn(ParamId first, std::size_t count) noexcept
    {
        for (std::size_t i = 0; i < count; ++i)
            DependsOn(Id(first, i));
    }
    void Change(ParamId id, float value)
    {
        const float before = block_[id];
        block_.Assign(id, value);
        if (marks_ && block_[id] != before)
            block_.Mark(id);
    }

private:
    ArticulationBlock& block_;
    bool marks_ = false;
};

void MakePolarityPositive(ArticulationBlock& block, LfoIndex index)
{
    const ParamId shapeId = LfoBase(index);
    const int value = static_cast<int>(block[shapeId]);
    if (!block.IsSet(shapeId) || value >> kPolarityShift != static_cast<int>(LfoPolarity::NegativeUnipolar))
        return;
    Reduction reduction(block);
    reduction.DependsOn(shapeId);
    // 0 - x rather than -x: zeros stay positive.
    for (const ParamId id : DepthsOf(index))
        reduction.Change(id, 0.0f - block[id]);
    const int unipolar = static_cast<int>(LfoPolarity::Unipolar) << kPolarityShift;
    block.Set(shapeId, static_cast<float>((value & kShapeBits) | unipolar));
}

/// Half of a fade-in is about where its depth begins to be heard.
void RampToDelay(ArticulationBlock& block, LfoIndex index)
{
    const ParamId delay = Id(LfoBase(index), kLfoDelay);
    const ParamId ramp = Id(LfoBase(index), kLfoRamp);
    if (block[ramp] != 0) {
        Reduction reduction(block);
        reduction.DependsOn(delay);
        reduction.DependsOn(ramp);
        reduction.Change(delay, block[delay] + 0.5f * block[ramp]);
    }
    Clear(block, ramp);
}

template <class Index>
void DropDepths(ArticulationBlock& block, Reduction& reduction, unsigned dropped, std::span<const Index> all)
{
    for (const Index index : all)
        if ((dropped & IndexBit(index)) != 0)
            for (const ParamId id : DepthsOf(index))
                if (block[id] != 0)
                    reduction.Change(id, 0);
}

/// One LFO for all, or one for pitch and one for the rest: of different ones the strongest keeps its depths.
void MergeLfos(ArticulationBlock& block, FeatureMask features)
{
    if (features.Has(Feature::KeepSeparateLfos) || features.Has(Feature::LfoSeparate))
        return;
    unsigned shared = IndexBit(LfoIndex::Volume) | IndexBit(LfoIndex::Filter) | IndexBit(LfoIndex::X);
    if (!features.Has(Feature::LfoPitchAndModulation))
        shared |= IndexBit(LfoIndex::Pitch);
    const unsigned dropped = ComposeModLfo(block, shared).dropped;
    if (dropped == 0)
        return;
    Reduction reduction(block);
    reduction.DependsOn(kArtLfos, kLfos * kLfoParams);
    for (const LfoIndex index : kAllLfos)
        reduction.DependsOn(DepthsOf(index));
    DropDepths<LfoIndex>(block, reduction, dropped, kAllLfos);
}

void NormalizeLfos(ArticulationBlock& block, FeatureMask features)
{
    for (const LfoIndex index : kAllLfos) {
        MakePolarityPositive(block, index);
        if (!features.Has(Feature::LfoShapes))
            Clear(block, LfoBase(index));
        if (!features.Has(Feature::LfoRamp))
            RampToDelay(block, index);
    }
}

bool IsDefaultEnvelope(const ArticulationBlock& block, ParamId base) noexcept
{
    return std::memcmp(block.Values().data() + base, kArticulationDefaults.data() + base,
                       kEnvelopeParams * sizeof(float)) == 0;
}

void TakeRelease(Envelope& to, const Envelope& from) noexcept
{
    to.release1Rate = from.release1Rate;
    to.release1Level = from.release1Level;
    to.release2Seconds = from.release2Seconds;
    to.release2Level = from.release2Level;
    to.release3Seconds = from.release3Seconds;
    to.release3Level = from.release3Level;
    to.releaseVelocity = from.releaseVelocity;
    to.releaseKey = from.releaseKey;
}

bool IsPositive(const Envelope& e) noexcept
{
    return e.decay2.level >= 0 && e.release1Level >= 0 && e.release2Level >= 0 && e.release3Level >= 0;
}

/// True if the reduction to six stages (or to five, without delay) has nothing to do. It is not carried out
/// again on its own outcome: rounded values would creep from pass to pass.
bool HasReducedForm(const Envelope& e, FeatureMask features) noexcept
{
    const bool hasStages = e.initialLevel == 0 && e.attack1.level == 0 && e.attack2.level == 1 &&
                           e.decay1.level == 1 && IsPositive(e);
    const bool hasRelease = features.Has(Feature::EnvThreeReleases) ||
                            (e.release1Level == 0 && e.release2Level == 0 && e.release3Level == 0);
    return hasStages && hasRelease &&
           (features.Has(Feature::EnvSixStages) || e.attack1 == EnvelopeStage{0, 0});
}

/// Height and sign of a modulation envelope become its depths'.
void MoveHeightToDepths(Envelope& envelope, EnvelopeDepths& depths) noexcept
{
    NormalizeBipolar(envelope, depths);
    const float factor = NormalizeToOne(envelope);
    if (factor > 0)
        depths = {depths.pitch * factor, depths.velocityPitch * factor, depths.cutoff * factor,
                  depths.velocityCutoff * factor, depths.pan * factor};
}

/// The nearest envelope without what the mask forbids, and the depths that go with it.
void Reduce(Envelope& envelope, EnvelopeDepths& depths, bool isVolume, FeatureMask features) noexcept
{
    if (!features.Has(Feature::EnvThreeReleases))
        FoldReleases(envelope);
    if (features.Has(Feature::EnvMoreLevels) || HasReducedForm(envelope, features))
        return;
    if (!isVolume)
        MoveHeightToDepths(envelope, depths);
    const Envelope whole = envelope;
    if (features.Has(Feature::EnvSixStages))
        ReduceToSixStages(envelope, isVolume);
    else
        ReduceToAhdsr(envelope, isVolume);
    if (features.Has(Feature::EnvThreeReleases))
        TakeRelease(envelope, whole);
}

void WriteDepths(ArticulationBlock& block, const EnvelopeDepths& depths, EnvelopeIndex index)
{
    const std::array<float, 2> pitch{depths.pitch, depths.velocityPitch};
    const std::array<float, 2> cutoff{depths.cutoff, depths.velocityCutoff};
    const std::array<float, 1> pan{depths.pan};
    const std::span<const ParamId> ids = DepthsOf(index);
    const std::span<const float> values = index == EnvelopeIndex::Pitch    ? std::span<const float>(pitch)
                                          : index == EnvelopeIndex::Filter ? std::span<const float>(cutoff)
                                                                           : std::span<const float>(pan);
    for (std::size_t i = 0; i < ids.size(); ++i)
        block.Assign(ids[i], values[i]);
}

void ReduceEnvelope(ArticulationBlock& block, EnvelopeIndex index, FeatureMask features)
{
    const ParamId base = EnvelopeBase(index);
    Envelope envelope;
    EnvelopeDepths depths;
    GetEnvelopeEx(block, envelope, depths, index);
    const Envelope before = envelope;
    Reduce(envelope, depths, index == EnvelopeIndex::Volume, features);
    if (envelope == before)
        return;
    ArticulationBlock reduced = block;
    SetEnvelope(reduced, envelope, index);
    WriteDepths(reduced, depths, index);

    Reduction reduction(block);
    reduction.DependsOn(base, kEnvelopeParams);
    reduction.DependsOn(DepthsOf(index));
    for (std::size_t offset = 0; offset < kEnvelopeParams; ++offset)
        reduction.Change(Id(base, offset), reduced[Id(base, offset)]);
    for (const ParamId id : DepthsOf(index))
        reduction.Change(id, reduced[id]);
}

/// A note whose release leads nowhere below its sustain level sounds until its wave ends.
void DeriveReleaseMode(ArticulationBlock& block, ParamId base)
{
    const ParamId sustain = Id(base, kEnvSustain);
    const ParamId release = Id(base, kEnvRelease1Level);
    if (!(block[sustain] > 0 && block[sustain] <= block[release]))
        return;
    Reduction reduction(block);
    reduction.DependsOn(sustain);
    reduction.DependsOn(release);
    reduction.Change(Id(base, kEnvReleaseMode), static_cast<float>(ReleaseMode::NoRelease));
}

void ClearMissing(ArticulationBlock& block, std::span<const Facility> facilities, ParamId base,
                  FeatureMask features)
{
    if (features == FeatureMask{})
        return;
    for (const Facility& facility : facilities)
        if (!features.Has(facility.feature))
            Clear(block, Id(base, facility.id));
}

void NormalizeEnvelopes(ArticulationBlock& block, FeatureMask features)
{
    const bool reduces = !features.Has(Feature::EnvThreeReleases) || !features.Has(Feature::EnvMoreLevels);
    for (const EnvelopeIndex index : kAllEnvelopes) {
        const ParamId base = EnvelopeBase(index);
        ClearMissing(block, kEnvelopeFacilities, base, features);
        if (reduces && !IsDefaultEnvelope(block, base)) {
            ReduceEnvelope(block, index, features);
            // A stage may have taken the permitted factor of another that its own place does not permit.
            ClearMissing(block, kEnvelopeFacilities, base, features);
        }
        DeriveReleaseMode(block, base);
    }
}

void ResetModEnvelopes(ArticulationBlock& block)
{
    for (ParamId id = EnvelopeBase(EnvelopeIndex::Pitch); id < kArticulationParams; ++id)
        Clear(block, id);
    for (const EnvelopeIndex index : kAllEnvelopes)
        for (const ParamId id : DepthsOf(index))
            Clear(block, id);
}

/// One modulation envelope: of different ones the strongest keeps its depths.
void MergeEnvelopes(ArticulationBlock& block)
{
    const unsigned dropped = ComposeModEnv(block, kModEnvelopes).dropped;
    if (dropped == 0)
        return;
    Reduction reduction(block);
    const ParamId first = EnvelopeBase(EnvelopeIndex::Pitch);
    reduction.DependsOn(first, kArticulationParams - first);
    for (const EnvelopeIndex index : kAllEnvelopes)
        reduction.DependsOn(DepthsOf(index));
    DropDepths<EnvelopeIndex>(block, reduction, dropped, kAllEnvelopes);
}

void NormalizeFilter(ArticulationBlock& block, FeatureMask features)
{
    if (!features.Has(Feature::FilterLowPass)) {
        for (ParamId id = kArtFilterType; id <= kArtTouchToResonance; ++id)
            Clear(block, id);
        return;
    }
    const auto type = static_cast<FilterType>(block[kArtFilterType]);
    if (!features.Has(Feature::FilterMoreTypes) && type != FilterType::PassThru)
        block.Assign(kArtFilterType, static_cast<float>(FilterType::LowPass12));
}

/// Puts the bands in the order of their frequencies, if any of them is heard.
void SortEqBands(ArticulationBlock& block)
{
    const auto at = [&block](ParamId first, std::size_t band) {
        return block[Id(first, band * kEqBandParams)];
    };
    std::array<std::size_t, kEqBands> order{};
    std::iota(order.begin(), order.end(), std::size_t{0});
    const bool isHeard =
        std::ranges::any_of(order, [&](std::size_t band) { return at(kArtEqGain, band) != 0; });
    const auto lower = [&](std::size_t a, std::size_t b) {
        return at(kArtEqFrequency, a) < at(kArtEqFrequency, b);
    };
    if (!isHeard || std::ranges::is_sorted(order, lower))
        return;
    std::ranges::stable_sort(order, lower);
    const ArticulationBlock before = block;
    Reduction reduction(block);
    reduction.DependsOn(kArtEqMode, kEqBands * kEqBandParams);
    for (std::size_t i = 0; i < kEqBands * kEqBandParams; ++i) {
        const ParamId to = Id(kArtEqMode, i);
        const ParamId from = Id(kArtEqMode, order[i / kEqBandParams] * kEqBandParams + i % kEqBandParams);
        reduction.Change(to, before[from]);
        if (before.IsSet(from))
            block.Mark(to);
    }
}

} // namespace

void ArticulationBlock::Normalize(FeatureMask features)
{
    NormalizeLfos(*this, features);
    ClearMissing(*this, kFacilities, 0, features);
    MergeLfos(*this, features);
    NormalizeEnvelopes(*this, features);
    if (!features.Has(Feature::EnvModulationAndVolume))
        ResetModEnvelopes(*this);
    else if (!features.Has(Feature::EnvSeparate))
        MergeEnvelopes(*this);
    NormalizeFilter(*this, features);
    if (features.Has(Feature::EffectEq))
        SortEqBands(*this);
}

} // namespace vimbo
