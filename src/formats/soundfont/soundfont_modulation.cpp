// Envelopes and LFOs of a zone.
#include "formats/soundfont/soundfont_unit_parts.h"

namespace vimbo::sf2 {
namespace {

constexpr int kOneShotRelease = 8000; ///< longer than any note lasts, for envelopes that ignore note-off

/// Where an envelope stands in a zone. Its six stages and its key to hold and decay are in order there.
struct EnvelopeSource {
    std::size_t generators; ///< the delay
    std::size_t slots;
    EnvelopeIndex index; ///< whose rows its values are stored by
    double sustainSteps; ///< from full level to silence
};
constexpr EnvelopeSource kVolume{kGenVolEnvDelay, kSlotVolEnv, EnvelopeIndex::Volume, 960};
constexpr EnvelopeSource kModulation{kGenModEnvDelay, kSlotModEnv, EnvelopeIndex::Pitch, 1000};
constexpr std::size_t kDelay = 0, kAttack = 1, kHold = 2, kDecay = 3, kSustain = 4, kRelease = 5,
                      kKeyToHold = 6, kKeyToDecay = 7;

/// One stage of a six-stage envelope: the values, and the ids' offsets that they are stored under.
struct Stage {
    std::size_t generator; ///< its place
    float DahdsrEnvelope::*seconds;
    float DahdsrEnvelope::*velocity;
    float DahdsrEnvelope::*key;
    ParamId secondsOffset, velocityOffset, keyOffset;
};
// In the order of the slots.
constexpr std::array<Stage, 5> kStages{{
    {kDelay, &DahdsrEnvelope::delay, &DahdsrEnvelope::velocityToDelay, &DahdsrEnvelope::keyToDelay,
     kEnvAttack1Time, kEnvVelToAttack1, kEnvKeyToAttack1},
    {kAttack, &DahdsrEnvelope::attack, &DahdsrEnvelope::velocityToAttack, &DahdsrEnvelope::keyToAttack,
     kEnvAttack2Time, kEnvVelToAttack2, kEnvKeyToAttack2},
    {kHold, &DahdsrEnvelope::hold, &DahdsrEnvelope::velocityToHold, &DahdsrEnvelope::keyToHold,
     kEnvDecay1Time, kEnvVelToDecay1, kEnvKeyToDecay1},
    {kDecay, &DahdsrEnvelope::decay, &DahdsrEnvelope::velocityToDecay, &DahdsrEnvelope::keyToDecay,
     kEnvDecay2Time, kEnvVelToDecay2, kEnvKeyToDecay2},
    {kRelease, &DahdsrEnvelope::release, &DahdsrEnvelope::velocityToRelease, &DahdsrEnvelope::keyToRelease,
     kEnvRelease1Rate, kEnvVelToRelease, kEnvKeyToRelease},
}};
/// Stages whose key factors are modulators; those of hold and decay are generators.
constexpr std::array<std::size_t, 3> kStagesByKeySlot{0, 1, 4};

ParamId IdOf(const EnvelopeSource& source, ParamId offset) noexcept
{
    return static_cast<ParamId>(EnvelopeBase(source.index) + offset);
}

// Factors of times. Velocity: between the highest and the lowest; the amount counts to either side. Key: per
// octave; a bipolar amount counts for 64 keys, and generators per key.
double VelocityFactor(int amount) noexcept
{
    return std::exp2(2.0 * amount / kCentsPerOctave);
}
double KeyFactor(int amount) noexcept
{
    return std::exp2(0.1875 * amount / kCentsPerOctave);
}
double KeyGeneratorFactor(int amount) noexcept
{
    return std::exp2(-amount / 100.0);
}
double VelocityAmount(double factor) noexcept
{
    return Timecents(std::sqrt(factor));
}
double KeyAmount(double factor) noexcept
{
    return Timecents(std::pow(factor, 5.3333335));
}
double KeyGeneratorAmount(double factor) noexcept
{
    return -100 * std::log2(factor);
}

/// A factor of an amount as the block stores it. Most amounts are 0.
template <class Read>
float StoredFactor(ParamId id, int amount, Read toFactor) noexcept
{
    return amount == 0 ? 1.0f : Stored(id, toFactor(amount));
}

/// The step of a factor whose `Read` is `toFactor`.
template <class Read>
int InvertFactor(ParamId id, float factor, double formula, Limits limits, Read toFactor)
{
    return Invert(formula, limits, 0, Stored(id, factor),
                  [&](int amount) { return StoredFactor(id, amount, toFactor); });
}

float SustainLevel(const EnvelopeSource& source, int amount) noexcept
{
    return static_cast<float>(std::clamp(1 - amount / source.sustainSteps, 0.0, 1.0));
}

DahdsrEnvelope ReadEnvelope(const Zone& zone, const EnvelopeSource& source) noexcept
{
    const auto generator = [&](std::size_t place) { return zone.generators[source.generators + place]; };
    const std::size_t velocitySlots = source.slots + kSlotVelToEnv, keySlots = source.slots + kSlotKeyToEnv;
    DahdsrEnvelope out;
    for (std::size_t i = 0; i < kStages.size(); ++i) {
        const Stage& stage = kStages[i];
        out.*stage.seconds = TimecentsToSeconds(generator(stage.generator));
        out.*stage.velocity =
            StoredFactor(IdOf(source, stage.velocityOffset), zone.slots[velocitySlots + i], VelocityFactor);
    }
    for (std::size_t i = 0; i < kStagesByKeySlot.size(); ++i) {
        const Stage& stage = kStages[kStagesByKeySlot[i]];
        out.*stage.key = StoredFactor(IdOf(source, stage.keyOffset), zone.slots[keySlots + i], KeyFactor);
    }
    out.keyToHold = StoredFactor(IdOf(source, kEnvKeyToDecay1), generator(kKeyToHold), KeyGeneratorFactor);
    out.keyToDecay = StoredFactor(IdOf(source, kEnvKeyToDecay2), generator(kKeyToDecay), KeyGeneratorFactor);
    out.sustain = SustainLevel(source, generator(kSustain));
    return out;
}

void WriteFactors(const DahdsrEnvelope& envelope, const EnvelopeSource& source, Zone& out) noexcept
{
    const std::size_t velocitySlots = source.slots + kSlotVelToEnv, keySlots = source.slots + kSlotKeyToEnv;
    for (std::size_t i = 0; i < kStages.size(); ++i) {
        const float factor = envelope.*kStages[i].velocity;
        out.slots[velocitySlots + i] = InvertFactor(IdOf(source, kStages[i].velocityOffset), factor,
                                                    VelocityAmount(factor), kTimeSlotLimits, VelocityFactor);
    }
    for (std::size_t i = 0; i < kStagesByKeySlot.size(); ++i) {
        const Stage& stage = kStages[kStagesByKeySlot[i]];
        const float factor = envelope.*stage.key;
        out.slots[keySlots + i] = InvertFactor(IdOf(source, stage.keyOffset), factor, KeyAmount(factor),
                                               kTimeSlotLimits, KeyFactor);
    }
    const auto writeKey = [&](std::size_t place, ParamId offset, float factor) {
        const std::size_t generator = source.generators + place;
        out.generators[generator] = InvertFactor(IdOf(source, offset), factor, KeyGeneratorAmount(factor),
                                                 LimitsOf(generator), KeyGeneratorFactor);
    };
    writeKey(kKeyToHold, kEnvKeyToDecay1, envelope.keyToHold);
    writeKey(kKeyToDecay, kEnvKeyToDecay2, envelope.keyToDecay);
}

/// The step of a time that is stored under an id. @param read  seconds of a step, as they are stored
template <class Read>
int InvertTime(std::size_t generator, ParamId id, double stored, double formulaSeconds, Read read)
{
    return Invert(Timecents(formulaSeconds), LimitsOf(generator), DefaultZone().generators[generator],
                  Stored(id, stored), [&](int step) { return Stored(id, read(step)); });
}

int WriteTime(std::size_t generator, ParamId id, float seconds) noexcept
{
    return InvertTime(generator, id, seconds, seconds, TimecentsToSeconds);
}

/// The decay's way to the sustain level is stored, the whole way is written. The sustain level of the file
/// decides, not the stored one, which has fewer digits.
int WriteDecay(const DahdsrEnvelope& envelope, const EnvelopeSource& source, int sustain) noexcept
{
    const double stored = (1 - double{envelope.sustain}) * envelope.decay;
    DahdsrEnvelope written;
    written.sustain = SustainLevel(source, sustain);
    const double fall = 1 - double{written.sustain};
    return InvertTime(source.generators + kDecay, IdOf(source, kEnvDecay2Time), stored,
                      fall > 0 ? stored / fall : 0, [&](int step) {
                          written.decay = TimecentsToSeconds(step);
                          return FromDahdsr(written).decay2.seconds;
                      });
}

void WriteEnvelope(const Envelope& envelope, const EnvelopeSource& source, Zone& out) noexcept
{
    const DahdsrEnvelope six = ToDahdsr(envelope, source.index == EnvelopeIndex::Volume);
    for (const Stage& stage : kStages) {
        const std::size_t generator = source.generators + stage.generator;
        out.generators[generator] =
            WriteTime(generator, IdOf(source, stage.secondsOffset), six.*stage.seconds);
    }
    const std::size_t sustain = source.generators + kSustain;
    const bool isSilent = source.index == EnvelopeIndex::Volume && six.sustain <= 0;
    out.generators[sustain] = ToWhole((1 - double{six.sustain}) * source.sustainSteps, LimitsOf(sustain));
    if (isSilent)
        out.generators[sustain] = LimitsOf(sustain).maximum;
    out.generators[source.generators + kDecay] = WriteDecay(six, source, out.generators[sustain]);
    if (six.releaseMode == ReleaseMode::NoRelease)
        out.generators[source.generators + kRelease] = kOneShotRelease;
    WriteFactors(six, source, out);
}

void MakeSourcesBipolar(Zone& zone, const EnvelopeSource& source) noexcept
{
    for (std::size_t i = 0; i < kStages.size(); ++i) {
        const int unipolar = zone.slots[source.slots + kSlotUniVelToEnv + i];
        int& bipolar = zone.slots[source.slots + kSlotVelToEnv + i];
        // 1.5 in place of 2 timecents for the whole range: what lies above the centre counts more.
        if (bipolar == 0)
            bipolar = static_cast<int>(std::lround(unipolar * 0.75));
    }
    for (std::size_t i = 0; i < kStagesByKeySlot.size(); ++i) {
        const int unipolar = zone.slots[source.slots + kSlotUniKeyToEnv + i];
        int& bipolar = zone.slots[source.slots + kSlotKeyToEnv + i];
        if (bipolar != 0 || unipolar == 0)
            continue;
        bipolar = static_cast<int>(std::lround(unipolar / 2.0));
        // The time at middle C stays.
        const std::size_t generator = source.generators + kStages[kStagesByKeySlot[i]].generator;
        if (TimecentsToSeconds(zone.generators[generator]) > 0)
            MoveGenerator(zone, generator, unipolar * kKeysBelowMiddleC);
    }
}

/// An LFO's way to one destination.
struct DepthSource {
    std::size_t generator, wheel, touch, velocity;
    double unit; ///< semitones or dB
};
constexpr DepthSource kVibLfoPitch{kGenVibLfoToPitch, kSlotWheelToVibLfoToPitch, kSlotTouchToVibLfoToPitch,
                                   kSlotVelToVibLfoToPitch, 0.01};
constexpr DepthSource kModLfoPitch{kGenModLfoToPitch, kSlotWheelToModLfoToPitch, kSlotTouchToModLfoToPitch,
                                   kSlotVelToModLfoToPitch, 0.01};
constexpr DepthSource kModLfoVolume{kGenModLfoToVolume, kSlotWheelToModLfoToVolume,
                                    kSlotTouchToModLfoToVolume, kSlotVelToModLfoToVolume, 0.1};
constexpr DepthSource kModLfoCutoff{kGenModLfoToCutoff, kSlotWheelToModLfoToCutoff,
                                    kSlotTouchToModLfoToCutoff, kSlotVelToModLfoToCutoff, 0.01};

LfoDepth ReadDepth(const Zone& zone, const DepthSource& source) noexcept
{
    const auto scaled = [&](int amount) { return static_cast<float>(amount * source.unit); };
    return {scaled(zone.generators[source.generator]), scaled(zone.slots[source.wheel]),
            scaled(zone.slots[source.touch]), scaled(zone.slots[source.velocity])};
}

/// @param scale  half for unipolar LFOs, which swing to one side only
void WriteDepth(const LfoDepth& depth, const DepthSource& source, double scale, Zone& out) noexcept
{
    const double steps = scale / source.unit;
    out.generators[source.generator] = ToWhole(depth.fixed * steps, LimitsOf(source.generator));
    out.slots[source.wheel] = ToWhole(depth.wheel * steps, kSlotLimits);
    out.slots[source.touch] = ToWhole(depth.touch * steps, kSlotLimits);
    out.slots[source.velocity] = ToWhole(depth.velocity * steps, kSlotLimits);
}

constexpr ParamId kLfoRateId = LfoBase(LfoIndex::Pitch) + kLfoFrequency,
                  kLfoDelayId = LfoBase(LfoIndex::Pitch) + kLfoDelay;

float StoredRate(int cents) noexcept
{
    return Stored(kLfoRateId, CentsToHz(cents));
}

float StoredDelay(int timecents) noexcept
{
    return Stored(kLfoDelayId, TimecentsToSeconds(timecents));
}

/// As the block stores it, so that comparisons give the same for what was stored.
Lfo ReadLfo(int delay, int rate) noexcept
{
    return {LfoShape::Triangle, LfoPolarity::Bipolar, StoredRate(rate), StoredDelay(delay), 0};
}

void WriteLfo(const Lfo& lfo, std::size_t delay, std::size_t rate, Zone& out) noexcept
{
    // A zone's LFOs do not fade in: half of the ramp stands for it.
    const double seconds = lfo.delaySeconds + lfo.rampSeconds / 2.0;
    out.generators[delay] = InvertTime(delay, kLfoDelayId, seconds, seconds, TimecentsToSeconds);
    out.generators[rate] =
        Invert(kCentsPerOctave * std::log2(lfo.frequencyHz * 0.1223092), LimitsOf(rate),
               DefaultZone().generators[rate], Stored(kLfoRateId, lfo.frequencyHz), StoredRate);
}

double ScaleOf(const Lfo& lfo) noexcept
{
    switch (lfo.polarity) {
    case LfoPolarity::Unipolar:
        return 0.5;
    case LfoPolarity::NegativeUnipolar:
        return -0.5;
    default:
        return 1;
    }
}

void ReadVibratoLfo(const Zone& zone, ArticulationBlock& out)
{
    const auto& g = zone.generators;
    const LfoDepth depth = ReadDepth(zone, kVibLfoPitch);
    SetLfo(out, ReadLfo(g[kGenVibLfoDelay], g[kGenVibLfoFrequency]), LfoIndex::Pitch);
    out.Set(kArtPLfoToPitch, depth.fixed);
    out.Set(kArtWheelPLfoToPitch, depth.wheel);
    out.Set(kArtTouchPLfoToPitch, depth.touch);
    out.Set(kArtVelPLfoToPitch, depth.velocity);
}

/// A P-LFO without depth goes if it says nothing. Otherwise it stays: many players move it by the wheel of
/// their own accord.
void ForgetUsualVibrato(ArticulationBlock& out)
{
    Lfo lfo;
    LfoDepths depths;
    GetLfoEx(out, lfo, depths, LfoIndex::Pitch);
    const auto& usual = DefaultZone().generators;
    if (depths.pitch.IsZero() && lfo == ReadLfo(usual[kGenVibLfoDelay], usual[kGenVibLfoFrequency]))
        SetLfo(out, Lfo{}, LfoIndex::Pitch);
}

void WriteVibratoLfo(const ArticulationBlock& block, Zone& out) noexcept
{
    Lfo lfo;
    LfoDepths depths;
    GetLfoEx(block, lfo, depths, LfoIndex::Pitch);
    WriteDepth(depths.pitch, kVibLfoPitch, ScaleOf(lfo), out);
    if (!depths.pitch.IsZero() || lfo != Lfo{})
        WriteLfo(lfo, kGenVibLfoDelay, kGenVibLfoFrequency, out);
}

/// The modulation LFO is the stronger one of V-LFO and F-LFO. An X-LFO to pitch, which a zone's LFO of both
/// pitch and another destination becomes, goes with it if it can.
ModLfo FindModLfo(const ArticulationBlock& block) noexcept
{
    constexpr float kDelayTolerance = 0.5f; // seconds, as for the other destinations
    ModLfo out = ComposeModLfo(block, IndexBit(LfoIndex::Volume) | IndexBit(LfoIndex::Filter));
    const ModLfo other = ComposeModLfo(block, IndexBit(LfoIndex::X));
    if (out.used == 0)
        return other;
    if (other.used != 0 && SameLfoShape(out.lfo, other.lfo, kDelayTolerance))
        out.depths.pitch = other.depths.pitch;
    return out;
}

} // namespace

void ReadLfos(const Zone& zone, bool hasFilter, ArticulationBlock& out)
{
    ReadVibratoLfo(zone, out);
    LfoDepths depths;
    depths.pitch = ReadDepth(zone, kModLfoPitch);
    depths.volume = ReadDepth(zone, kModLfoVolume);
    if (hasFilter)
        depths.cutoff = ReadDepth(zone, kModLfoCutoff);
    const auto& g = zone.generators;
    // Nothing can be lost: volume and filter have LFOs of their own, and pitch has two.
    MergeLfo(out, ReadLfo(g[kGenModLfoDelay], g[kGenModLfoFrequency]), depths);
    ForgetUsualVibrato(out);
}

void WriteLfos(const ArticulationBlock& block, Zone& out) noexcept
{
    WriteVibratoLfo(block, out);
    const ModLfo mod = FindModLfo(block);
    if (mod.used == 0)
        return;
    const double scale = ScaleOf(mod.lfo);
    WriteDepth(mod.depths.pitch, kModLfoPitch, scale, out);
    WriteDepth(mod.depths.volume, kModLfoVolume, scale, out);
    WriteDepth(mod.depths.cutoff, kModLfoCutoff, scale, out);
    WriteLfo(mod.lfo, kGenModLfoDelay, kGenModLfoFrequency, out);
}

void ReadEnvelopes(const Zone& zone, bool hasFilter, ArticulationBlock& out)
{
    SetEnvelope(out, FromDahdsr(ReadEnvelope(zone, kVolume)), EnvelopeIndex::Volume);
    const auto semitones = [](int cents) { return static_cast<float>(cents * 0.01); };
    EnvelopeDepths depths;
    depths.pitch = semitones(zone.generators[kGenModEnvToPitch]);
    depths.velocityPitch = semitones(zone.slots[kSlotVelToModEnvToPitch]);
    if (hasFilter) {
        depths.cutoff = semitones(zone.generators[kGenModEnvToCutoff]);
        depths.velocityCutoff = semitones(zone.slots[kSlotVelToModEnvToCutoff]);
    }
    MergeEnvelope(out, FromDahdsr(ReadEnvelope(zone, kModulation)), depths);
}

void WriteEnvelopes(const ArticulationBlock& block, Zone& out) noexcept
{
    Envelope volume;
    GetEnvelope(block, volume, EnvelopeIndex::Volume);
    WriteEnvelope(volume, kVolume, out);

    ModEnvelope mod = ComposeModEnv(block, IndexBit(EnvelopeIndex::Pitch) | IndexBit(EnvelopeIndex::Filter));
    if (mod.used == 0)
        return;
    NormalizeBipolar(mod.envelope, mod.depths);
    const double factor = NormalizeToOne(mod.envelope);
    if (factor == 0)
        return; // flat at 0: nothing moves
    WriteEnvelope(mod.envelope, kModulation, out);
    const auto cents = [&](float depth, Limits limits) { return ToWhole(depth * factor * 100, limits); };
    out.generators[kGenModEnvToPitch] = cents(mod.depths.pitch, LimitsOf(kGenModEnvToPitch));
    out.generators[kGenModEnvToCutoff] = cents(mod.depths.cutoff, LimitsOf(kGenModEnvToCutoff));
    out.slots[kSlotVelToModEnvToPitch] = cents(mod.depths.velocityPitch, kSlotLimits);
    out.slots[kSlotVelToModEnvToCutoff] = cents(mod.depths.velocityCutoff, kSlotLimits);
}

void MakeEnvelopeSourcesBipolar(Zone& zone) noexcept
{
    MakeSourcesBipolar(zone, kVolume);
    MakeSourcesBipolar(zone, kModulation);
}

} // namespace vimbo::sf2
