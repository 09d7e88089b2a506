#include "formats/soundfont/soundfont_units1.h"

#include "formats/soundfont/soundfont_unit_parts.h"

#include <cstdlib>

namespace vimbo::sf2 {
namespace {

constexpr std::int32_t kCentsPerKey = 100;
constexpr std::int32_t kHalfTracking = 50;
constexpr std::int32_t kMostTuneCents = 12099; ///< the coarse and the fine generator together
constexpr std::int32_t kHighestFilter = 126;   ///< one more is read as no filter

/// Milliseconds to timecents.
std::int32_t TimeFromVersion1(std::int32_t milliseconds) noexcept
{
    return static_cast<std::int32_t>(std::lround(1200 * std::log2(std::max(milliseconds, 1) / 1000.0)));
}

std::int32_t RateFromVersion1(std::int32_t amount, std::int32_t ofZero) noexcept
{
    return amount <= 0 ? ofZero : static_cast<std::int32_t>(std::lround(1200 * std::log2(amount) - 7925));
}

/// A volume of 0..127 to centibels of attenuation.
std::int32_t AttenuationFromVersion1(std::int32_t volume) noexcept
{
    return volume <= 0 ? 1000 : static_cast<std::int32_t>(std::lround(-200 * std::log10(volume / 127.0)));
}

/// The amounts that stand for values, in 8 bits but for times. Their values rise or fall throughout.
Limits AmountsOf(unsigned generator) noexcept
{
    switch (generator) {
    case kGenCutoff:
    case kGenResonance:
    case kGenPan:
    case kGenAttenuation:
        return {0, 127};
    case kGenChorusSend:
    case kGenReverbSend:
        return {0, 255};
    case kGenModEnvSustain:
    case kGenVolEnvSustain:
        return {0, 96};
    case kGenModLfoFrequency:
    case kGenVibLfoFrequency:
        return {1, 255};
    case kGenModLfoToPitch:
    case kGenVibLfoToPitch:
    case kGenModEnvToPitch:
    case kGenModLfoToCutoff:
    case kGenModEnvToCutoff:
    case kGenModLfoToVolume:
        return {-127, 127};
    case kGenKeyToModEnvHold:
    case kGenKeyToModEnvDecay:
    case kGenKeyToVolEnvHold:
    case kGenKeyToVolEnvDecay:
        return {-216, 216};
    case kGenModLfoDelay:
    case kGenVibLfoDelay:
    case kGenModEnvDelay:
    case kGenModEnvAttack:
    case kGenModEnvHold:
    case kGenModEnvDecay:
    case kGenModEnvRelease:
    case kGenVolEnvDelay:
    case kGenVolEnvAttack:
    case kGenVolEnvHold:
    case kGenVolEnvDecay:
    case kGenVolEnvRelease:
        return {1, 32767};
    default:
        return {0, 0}; // the same in both versions
    }
}

bool HasOwnUnit(unsigned generator) noexcept
{
    const Limits amounts = AmountsOf(generator);
    return amounts.minimum != amounts.maximum;
}

/// What readers take for a generator that is left out.
std::int32_t Assumed(unsigned generator) noexcept
{
    if (generator == kGenModLfoFrequency)
        return kModLfoFrequency1;
    return generator == kGenVibLfoFrequency ? kVibLfoFrequency1 : DefaultZone().generators[generator];
}

/// The first amount whose value is `value` or beyond it, seen from the least amount; the last one if none is.
std::int32_t FirstReaching(unsigned generator, std::int32_t value) noexcept
{
    auto [low, high] = AmountsOf(generator);
    const bool rises = FromVersion1(generator, low) < FromVersion1(generator, high);
    while (low < high) {
        const int middle = low + (high - low) / 2;
        const std::int32_t at = FromVersion1(generator, middle);
        if (rises ? at >= value : at <= value)
            high = middle;
        else
            low = middle + 1;
    }
    return low;
}

/// An open filter that something closes must not become none.
std::int32_t HeldCutoff(const Zone& zone) noexcept
{
    const auto& g = zone.generators;
    if (g[kGenCutoff] == Assumed(kGenCutoff))
        return g[kGenCutoff];
    std::int32_t amount = ToVersion1(kGenCutoff, g[kGenCutoff]);
    if (g[kGenResonance] == 0 && (g[kGenModLfoToCutoff] != 0 || g[kGenModEnvToCutoff] != 0))
        amount = std::min(amount, kHighestFilter);
    return FromVersion1(kGenCutoff, amount);
}

std::int32_t HeldTracking(std::int32_t centsPerKey) noexcept
{
    if (centsPerKey < kHalfTracking / 2)
        return 0;
    return centsPerKey < (kHalfTracking + kCentsPerKey) / 2 ? kHalfTracking : kCentsPerKey;
}

std::int32_t CentsOf(const Zone& zone) noexcept
{
    return zone.generators[kGenCoarseTune] * kCentsPerKey + zone.generators[kGenFineTune];
}

void SetCents(Zone& zone, std::int32_t cents) noexcept
{
    zone.generators[kGenCoarseTune] = cents / kCentsPerKey;
    zone.generators[kGenFineTune] = cents % kCentsPerKey;
}

/// Tuning goes along the scale: half of it counts where keys are half as far apart.
std::int32_t TuningSteps(const Zone& held) noexcept
{
    return held.generators[kGenScaleTuning] == kHalfTracking ? 2 : 1;
}

} // namespace

// Units of version 1, as drivers for the AWE32 convert them: the hardware's own steps.
std::int32_t FromVersion1(unsigned generator, std::int32_t amount) noexcept
{
    switch (generator) {
    case kGenCutoff:
        return amount >= 127 ? 14400 : 59 * amount + 4366;
    case kGenResonance:
        return amount * 3 / 2;
    case kGenChorusSend:
    case kGenReverbSend:
        return amount * 1000 / 256;
    case kGenPan:
        return amount * 1000 / 127 - 500;
    case kGenAttenuation:
        return AttenuationFromVersion1(amount);
    case kGenScaleTuning:
        return amount != 0 ? 50 : 100;
    case kGenModLfoDelay:
    case kGenVibLfoDelay:
    case kGenModEnvDelay:
    case kGenModEnvAttack:
    case kGenModEnvHold:
    case kGenModEnvDecay:
    case kGenModEnvRelease:
    case kGenVolEnvDelay:
    case kGenVolEnvAttack:
    case kGenVolEnvHold:
    case kGenVolEnvDecay:
    case kGenVolEnvRelease:
        return TimeFromVersion1(amount);
    case kGenKeyToModEnvHold:
    case kGenKeyToModEnvDecay:
    case kGenKeyToVolEnvHold:
    case kGenKeyToVolEnvDecay:
        return amount * 111 / 20;
    case kGenModLfoFrequency:
        return RateFromVersion1(amount, kModLfoFrequency1);
    case kGenVibLfoFrequency:
        return RateFromVersion1(amount, kVibLfoFrequency1);
    case kGenModLfoToPitch:
    case kGenVibLfoToPitch:
    case kGenModEnvToPitch:
        return amount * 75 / 8;
    case kGenModLfoToCutoff:
        return amount * 225 / 4;
    case kGenModEnvToCutoff:
        return amount * 225 / 2;
    case kGenModLfoToVolume:
        return amount * 15 / 8;
    case kGenModEnvSustain:
        return amount < 96 ? 1000 * (96 - amount) / 96 : 0;
    case kGenVolEnvSustain:
        return amount < 96 ? (2000 - 21 * amount) / 2 : 0;
    default:
        return amount;
    }
}

std::int32_t ToVersion1(unsigned generator, std::int32_t value) noexcept
{
    if (generator == kGenScaleTuning)
        return HeldTracking(value) == kHalfTracking ? 1 : 0;
    if (!HasOwnUnit(generator))
        return value;
    const auto away = [&](std::int32_t amount) { return std::abs(FromVersion1(generator, amount) - value); };
    const std::int32_t next = FirstReaching(generator, value);
    if (next == AmountsOf(generator).minimum || away(next) < away(next - 1))
        return next;
    return FirstReaching(generator, FromVersion1(generator, next - 1));
}

Zone HeldByVersion1(const Zone& zone) noexcept
{
    Zone held = zone;
    held.slots = DefaultZone().slots;
    auto& g = held.generators;
    for (unsigned i = 0; i < kGenerators; ++i)
        if (HasOwnUnit(i) && i != kGenCutoff && g[i] != Assumed(i))
            g[i] = FromVersion1(i, ToVersion1(i, g[i]));
    g[kGenCutoff] = HeldCutoff(held);
    g[kGenScaleTuning] = HeldTracking(g[kGenScaleTuning]);
    const std::int32_t most = kMostTuneCents / TuningSteps(held);
    SetCents(held, std::clamp(CentsOf(held), -most, most));
    return held;
}

Zone AmountsOfVersion1(const Zone& held) noexcept
{
    Zone amounts = DefaultsOfVersion1();
    Zone values = held;
    SetCents(values, CentsOf(held) * TuningSteps(held));
    for (unsigned i = 0; i < kGenerators; ++i)
        if (values.generators[i] != Assumed(i))
            amounts.generators[i] = ToVersion1(i, values.generators[i]);
    amounts.generators[kGenSamplePitch] = held.generators[kGenSamplePitch];
    if (held.generators[kGenScaleTuning] == 0)
        amounts.generators[kGenKey] = held.generators[kGenSamplePitch] / kCentsPerKey;
    return amounts;
}

const Zone& DefaultsOfVersion1() noexcept
{
    static const Zone kDefaults = [] {
        Zone zone;
        for (unsigned i = 0; i < kGenerators; ++i) {
            const std::int32_t amount = ToVersion1(i, Assumed(i));
            zone.generators[i] = FromVersion1(i, amount) == Assumed(i) ? amount : kLeftOut;
        }
        zone.generators[kGenSamplePitch] = kLeftOut; // from the sample's header
        return zone;
    }();
    return kDefaults;
}

void ArticulationToVersion1(const ArticulationBlock& block, const Instrument& instrument, float waveGainDb,
                            Zone& out)
{
    constexpr int kMostRounds = 4;
    ArticulationBlock part = block, read;
    // Modulators whose centres the level and the cutoff depend on.
    for (const ParamId id : {kArtKeyToVolume, kArtVelToCutoff, kArtKeyToCutoff})
        part.Inherit(id, 0);
    const auto fit = [&](float gainDb) {
        ArticulationToZone(part, &instrument, gainDb, out);
        out = HeldByVersion1(out);
        ZoneToArticulation(out, read, instrument);
    };
    fit(waveGainDb);
    // The decay times depend on the sustain levels, the volume on the resonance.
    if (read[kArtFilterType] != DefaultArticulation()[kArtFilterType])
        part.Inherit(kArtResonance, read[kArtResonance]);
    for (std::size_t i = 0; i < kEnvelopes; ++i) {
        const auto id = static_cast<ParamId>(kArtEnvelopes + kEnvelopeParams * i + kEnvSustain);
        part.Inherit(id, read[id]);
    }
    fit(waveGainDb);
    for (int round = 0; round < kMostRounds; ++round) {
        const Zone last = out;
        part = read;
        fit(0);
        if (out == last)
            return;
    }
}

PitchOfVersion1 PitchForVersion1(std::uint32_t rateHz, int fineTuneCents, int rootKey,
                                 float keyToPitch) noexcept
{
    const double octaves = std::log2(std::max(rateHz, 1u) / static_cast<double>(kVersion1RateHz));
    const double semitones = octaves * 12 + fineTuneCents * 0.01;
    const double tracking = HeldTracking(ToWhole(keyToPitch * 100.0, LimitsOf(kGenScaleTuning))) * 0.01;
    if (tracking == 0)
        return {rootKey, semitones};
    const int moved = std::clamp(rootKey - static_cast<int>(std::lround(semitones / tracking)), 0, 127);
    return {moved, semitones + (moved - rootKey) * tracking};
}

} // namespace vimbo::sf2
