// Level, tuning, filter, pan and sends; the whole zone.
#include "formats/soundfont/soundfont_unit_parts.h"

namespace vimbo::sf2 {
namespace {

constexpr double kDbPerAttenuation = 0.04; ///< level law of the EMU hardware; on paper it is 0.1
constexpr double kNoFilterHz = 19900;
constexpr int kHighestFilterCents = 13498; ///< the highest cutoff that is not read as no filter
constexpr int kHighestCents = 13500;
constexpr double kHighestHz = 20000;
constexpr double kHzOfZeroCents = 8.176;
constexpr double kZeroCentsPerHz = 0.1223092; ///< the inverse of the above
constexpr double kLogOfSemitone = 0.057762265;
/// Octaves from the centre of a bipolar key number, key 64, to middle C.
constexpr double kOctavesToMiddleC = -1.0 / 3;
/// Semitones or dB per octave for a bipolar amount of 1 unit over 128 keys.
constexpr double kKeysPart = 0.1875;

constexpr std::array kFilterDepths{
    kArtVelToCutoff,       kArtKeyToCutoff,       kArtWheelToCutoff,   kArtTouchToCutoff, kArtFLfoToCutoff,
    kArtWheelFLfoToCutoff, kArtTouchFLfoToCutoff, kArtVelFLfoToCutoff, kArtFEnvToCutoff,  kArtVelFEnvToCutoff,
    kArtVelToResonance,    kArtWheelToResonance,  kArtTouchToResonance};

/// A value that is a plain multiple of a generator's or slot's amount.
struct Linear {
    std::size_t source;
    ParamId id;
    double unit;
    Limits limits = kSlotLimits;
};
constexpr std::array kLevelSlots{Linear{kSlotVelToVolume, kArtVelToVolume, kDbPerAttenuation, {0, 32767}},
                                 Linear{kSlotKeyToVolume, kArtKeyToVolume, kDbPerAttenuation* kKeysPart},
                                 Linear{kSlotWheelToVolume, kArtWheelToVolume, kDbPerAttenuation},
                                 Linear{kSlotTouchToVolume, kArtTouchToVolume, kDbPerAttenuation},
                                 Linear{kSlotKeyToPan, kArtKeyToPan, 0.000375},
                                 Linear{kSlotCc10ToPan, kArtCc10ToPan, 0.002}};
constexpr std::array kFilterSlots{
    Linear{kSlotVelToCutoff, kArtVelToCutoff, -0.005}, // half of the range: the parameter is bipolar
    Linear{kSlotKeyToCutoff, kArtKeyToCutoff, 0.01 * kKeysPart},
    Linear{kSlotWheelToCutoff, kArtWheelToCutoff, 0.01},
    Linear{kSlotTouchToCutoff, kArtTouchToCutoff, 0.01},
    Linear{kSlotVelToResonance, kArtVelToResonance, 0.1},
    Linear{kSlotWheelToResonance, kArtWheelToResonance, 0.1},
    Linear{kSlotTouchToResonance, kArtTouchToResonance, 0.1}};

template <std::size_t Count>
void ReadSlots(const Zone& zone, const std::array<Linear, Count>& table, ArticulationBlock& out)
{
    for (const Linear& row : table)
        out.Set(row.id, Stored(row.id, zone.slots[row.source] * row.unit));
}

template <std::size_t Count>
void WriteSlots(const ArticulationBlock& block, const std::array<Linear, Count>& table, Zone& out) noexcept
{
    for (const Linear& row : table)
        out.slots[row.source] = ToWhole(block[row.id] / row.unit, row.limits);
}

void ReadTuning(const Zone& zone, ArticulationBlock& out)
{
    const auto& g = zone.generators;
    out.Set(kArtTuning, Stored(kArtTuning, g[kGenCoarseTune] + g[kGenFineTune] * 0.01));
    out.Set(kArtKeyToPitch, Stored(kArtKeyToPitch, g[kGenScaleTuning] * 0.01));
    out.Set(kArtBendToPitch, Stored(kArtBendToPitch, zone.slots[kSlotBendToPitch] * 0.01 + 2));
}

void WriteTuning(const ArticulationBlock& block, Zone& out) noexcept
{
    const int cents = ToWhole(block[kArtTuning] * 100.0, {-12099, 12099});
    out.generators[kGenCoarseTune] = cents / 100;
    out.generators[kGenFineTune] = cents % 100;
    out.generators[kGenScaleTuning] = ToWhole(block[kArtKeyToPitch] * 100.0, LimitsOf(kGenScaleTuning));
    out.slots[kSlotBendToPitch] = ToWhole((block[kArtBendToPitch] - 2.0) * 100, kSlotLimits);
}

/// What the volume falls by for the zone's other values: key tracking is centred on middle C here, on key 64
/// there; the file's filter boosts the peak, ours keeps the passband.
double VolumeCorrection(const ArticulationBlock& block) noexcept
{
    return block[kArtResonance] / 2.0 - block[kArtKeyToVolume] * kOctavesToMiddleC;
}

float StoredVolume(int attenuation, double correctionDb) noexcept
{
    return Stored(kArtVolume, -attenuation * kDbPerAttenuation - correctionDb);
}

void ReadVolume(const Zone& zone, ArticulationBlock& out)
{
    out.Set(kArtVolume, StoredVolume(zone.generators[kGenAttenuation], VolumeCorrection(out)));
}

/// A unipolar LFO swings around half of its depth.
double LfoMeanDb(const ArticulationBlock& block) noexcept
{
    Lfo lfo;
    GetLfo(block, lfo, LfoIndex::Volume);
    const double half = block[kArtVLfoToVolume] / 2.0;
    return lfo.polarity == LfoPolarity::Bipolar ? 0 : lfo.polarity == LfoPolarity::Unipolar ? half : -half;
}

void WriteVolume(const ArticulationBlock& block, float waveGainDb, Zone& out) noexcept
{
    const double gainDb = std::isfinite(waveGainDb) ? waveGainDb : 0;
    const double volumeDb = block[kArtVolume] + gainDb + LfoMeanDb(block);
    const double correctionDb = VolumeCorrection(block);
    out.generators[kGenAttenuation] =
        Invert(-(volumeDb + correctionDb) / kDbPerAttenuation, LimitsOf(kGenAttenuation), 0,
               Stored(kArtVolume, volumeDb), [&](int step) { return StoredVolume(step, correctionDb); });
}

/// Factor from the cutoff at full velocity and at the centre of the file's key tracking to the cutoff at the
/// parameter's centres: the middle velocity and middle C.
double CutoffFactor(const ArticulationBlock& block) noexcept
{
    return std::exp(kLogOfSemitone * (block[kArtKeyToCutoff] * kOctavesToMiddleC - block[kArtVelToCutoff]));
}

bool HasFilter(const Zone& zone) noexcept
{
    return CentsToHz(zone.generators[kGenCutoff]) < kNoFilterHz || zone.generators[kGenResonance] > 0;
}

float StoredCutoff(int cents, double factor) noexcept
{
    return Stored(kArtCutoff, CentsToHz(cents) * factor);
}

void ReadFilter(const Zone& zone, ArticulationBlock& out)
{
    out.Set(kArtFilterType, static_cast<float>(FilterType::LowPass12));
    out.Set(kArtResonance, Stored(kArtResonance, zone.generators[kGenResonance] * 0.1));
    ReadSlots(zone, kFilterSlots, out);
    out.Set(kArtCutoff, StoredCutoff(zone.generators[kGenCutoff], CutoffFactor(out)));
}

bool IsWritable(FilterType type) noexcept
{
    return (type >= FilterType::LowPass6 && type <= FilterType::LowPass24) || type == FilterType::BandPass6 ||
           type == FilterType::BandPass12;
}

void WriteFilter(const ArticulationBlock& block, Zone& out) noexcept
{
    if (static_cast<FilterType>(block[kArtFilterType]) == FilterType::PassThru)
        return;
    WriteSlots(block, kFilterSlots, out);
    const int resonance = ToWhole(block[kArtResonance] * 10.0, LimitsOf(kGenResonance));
    out.generators[kGenResonance] = resonance;
    // An open filter without resonance is read as none; one that something closes must stay.
    const bool maySeemOpen =
        resonance > 0 || std::ranges::all_of(kFilterDepths, [&](ParamId id) { return block[id] == 0; });
    const Limits limits{LimitsOf(kGenCutoff).minimum, maySeemOpen ? kHighestCents : kHighestFilterCents};
    const double factor = CutoffFactor(block);
    const double formula = kCentsPerOctave * std::log2(block[kArtCutoff] / factor * kZeroCentsPerHz);
    out.generators[kGenCutoff] = Invert(formula, limits, ToWhole(formula, limits), block[kArtCutoff],
                                        [&](int cents) { return StoredCutoff(cents, factor); });
}

struct SendSlots {
    std::optional<std::size_t> reverb, chorus;
};

SendSlots FindSends(const Instrument& instrument) noexcept
{
    return {FindChannelFx(instrument, ChannelFxType::Reverb),
            FindChannelFx(instrument, ChannelFxType::Chorus)};
}

struct SendSource {
    Gen generator;
    Slot slot;
};
constexpr SendSource kReverb{kGenReverbSend, kSlotCc91ToReverb}, kChorus{kGenChorusSend, kSlotCc93ToChorus};

bool HasSend(const Zone& zone, SendSource send) noexcept
{
    return zone.generators[send.generator] != 0 || zone.slots[send.slot] != DefaultZone().slots[send.slot];
}

SendSlots ProvideSends(const Zone& zone, Instrument& instrument, int& lost) noexcept
{
    SendSlots slots;
    if (HasSend(zone, kReverb) && !(slots.reverb = ProvideChannelFx(instrument, kDefaultReverb)))
        ++lost;
    if (HasSend(zone, kChorus) && !(slots.chorus = ProvideChannelFx(instrument, kDefaultChorus)))
        ++lost;
    return slots;
}

ParamId SendId(ParamId first, std::size_t slot) noexcept
{
    return static_cast<ParamId>(first + kSendParams * slot);
}

void ReadSend(const Zone& zone, SendSource send, std::optional<std::size_t> slot, ArticulationBlock& out)
{
    if (!slot)
        return;
    const ParamId level = SendId(kArtSend, *slot), depth = SendId(kArtCcToSend, *slot);
    out.Set(level, Stored(level, zone.generators[send.generator] * 0.001));
    out.Set(depth, Stored(depth, zone.slots[send.slot] * 0.001));
}

void WriteSend(const ArticulationBlock& block, SendSource send, std::optional<std::size_t> slot,
               Zone& out) noexcept
{
    if (!slot)
        return;
    out.generators[send.generator] =
        ToWhole(block[SendId(kArtSend, *slot)] * 1000.0, LimitsOf(send.generator));
    out.slots[send.slot] = ToWhole(block[SendId(kArtCcToSend, *slot)] * 1000.0, kSlotLimits);
}

/// A unipolar source x of 0..1 with an amount A is a constant A/2 and a bipolar source 2x - 1 with A/2.
bool Halve(Zone& zone, Slot unipolar, Slot bipolar) noexcept
{
    if (zone.slots[bipolar] != 0 || zone.slots[unipolar] == 0)
        return false;
    zone.slots[bipolar] = static_cast<std::int32_t>(std::lround(zone.slots[unipolar] / 2.0));
    return true;
}

/// The zone as it is written: with bipolar sources only. Whatever is read then has exact steps in the file.
Zone WithBipolarSources(Zone zone) noexcept
{
    // The amounts of 33 to volume count as gain, so that the constant lowers the attenuation.
    if (Halve(zone, kSlotUniKeyToVolume, kSlotKeyToVolume))
        MoveGenerator(zone, kGenAttenuation, -zone.slots[kSlotKeyToVolume]);
    if (HasFilter(zone) && Halve(zone, kSlotUniKeyToCutoff, kSlotKeyToCutoff)) {
        MoveGenerator(zone, kGenCutoff, zone.slots[kSlotKeyToCutoff]);
        if (!HasFilter(zone))
            zone.generators[kGenCutoff] = kHighestFilterCents;
    }
    if (Halve(zone, kSlotUniVelToModEnvToPitch, kSlotVelToModEnvToPitch))
        MoveGenerator(zone, kGenModEnvToPitch, zone.slots[kSlotVelToModEnvToPitch]);
    if (Halve(zone, kSlotUniVelToModEnvToCutoff, kSlotVelToModEnvToCutoff))
        MoveGenerator(zone, kGenModEnvToCutoff, zone.slots[kSlotVelToModEnvToCutoff]);
    MakeEnvelopeSourcesBipolar(zone);
    return zone;
}

void ReadZone(const Zone& source, SendSlots sends, ArticulationBlock& out)
{
    const Zone zone = WithBipolarSources(source);
    const bool hasFilter = HasFilter(zone);
    out.Reset();
    ReadTuning(zone, out);
    ReadSlots(zone, kLevelSlots, out);
    if (hasFilter)
        ReadFilter(zone, out);
    ReadVolume(zone, out);
    out.Set(kArtPan, Stored(kArtPan, zone.generators[kGenPan] * 0.002));
    ReadSend(zone, kReverb, sends.reverb, out);
    ReadSend(zone, kChorus, sends.chorus, out);
    ReadLfos(zone, hasFilter, out);
    ReadEnvelopes(zone, hasFilter, out);
    out.MarkDifferences(DefaultArticulation());
}

/// The block without what a zone has no place for: filters of other types with all that moves them, and
/// movements of the pan.
ArticulationBlock WritablePart(const ArticulationBlock& block) noexcept
{
    ArticulationBlock part = block;
    for (const ParamId id : {kArtXLfoToPan, kArtXEnvToPan})
        part.Inherit(id, 0);
    if (IsWritable(static_cast<FilterType>(block[kArtFilterType])))
        return part;
    for (const ParamId id : kFilterDepths)
        part.Inherit(id, 0);
    for (const ParamId id : {kArtFilterType, kArtCutoff, kArtResonance})
        part.Inherit(id, DefaultArticulation()[id]);
    return part;
}

/// True for generators that say the same for every sample.
bool IsArticulation(std::size_t generator) noexcept
{
    const Limits limits = LimitsOf(generator);
    return limits.minimum != limits.maximum;
}

} // namespace

Limits LimitsOf(std::size_t generator) noexcept
{
    switch (generator) {
    case kGenModLfoToPitch:
    case kGenVibLfoToPitch:
    case kGenModEnvToPitch:
    case kGenModLfoToCutoff:
    case kGenModEnvToCutoff:
        return {-12000, 12000};
    case kGenCutoff:
        return {1500, kHighestCents};
    case kGenResonance:
        return {0, 960};
    case kGenModLfoToVolume:
        return {-960, 960};
    case kGenChorusSend:
    case kGenReverbSend:
    case kGenModEnvSustain:
    case kGenVolEnvSustain:
        return {0, 1000};
    case kGenPan:
        return {-500, 500};
    case kGenModLfoFrequency:
    case kGenVibLfoFrequency:
        return {-16000, 4500};
    case kGenModLfoDelay:
    case kGenVibLfoDelay:
    case kGenModEnvDelay:
    case kGenModEnvHold:
    case kGenVolEnvDelay:
    case kGenVolEnvHold:
        return {-12000, 5000};
    case kGenModEnvAttack:
    case kGenModEnvDecay:
    case kGenModEnvRelease:
    case kGenVolEnvAttack:
    case kGenVolEnvDecay:
    case kGenVolEnvRelease:
        return {-12000, 8000};
    case kGenKeyToModEnvHold:
    case kGenKeyToModEnvDecay:
    case kGenKeyToVolEnvHold:
    case kGenKeyToVolEnvDecay:
        return {-1200, 1200};
    case kGenAttenuation:
        return {-1440, 1440};
    case kGenCoarseTune:
        return {-120, 120};
    case kGenFineTune:
        return {-99, 99};
    case kGenScaleTuning:
        return {0, 1200};
    default:
        return {0, 0}; // no part of the articulation
    }
}

float Stored(ParamId id, double value) noexcept
{
    constexpr double kAnyLimit = 1e6; // beyond every parameter's limits
    return RoundAndClamp(ArticulationParamRow(id),
                         static_cast<float>(std::clamp(value, -kAnyLimit, kAnyLimit)));
}

void MoveGenerator(Zone& zone, std::size_t generator, double by) noexcept
{
    zone.generators[generator] = ToWhole(zone.generators[generator] + by, LimitsOf(generator));
}

float TimecentsToSeconds(double timecents) noexcept
{
    if (!(timecents >= -11999))
        return 0;
    constexpr double kLongest = 24000; // about 12 days; keeps the power finite
    const double seconds = std::exp2(std::min(timecents, kLongest) / kCentsPerOctave);
    const double steps = seconds > 24 ? 10 : 100;
    return static_cast<float>(seconds > 2 ? std::round(seconds * steps) / steps : seconds);
}

double Timecents(double seconds) noexcept
{
    return seconds > 0 ? kCentsPerOctave * std::log2(seconds) : -12000;
}

int SecondsToTimecents(double seconds, int minimum, int maximum) noexcept
{
    return ToWhole(Timecents(seconds), {minimum, maximum});
}

float CentsToHz(double cents) noexcept
{
    if (cents >= kHighestCents)
        return static_cast<float>(kHighestHz);
    const double hz = kHzOfZeroCents * std::exp2(cents / kCentsPerOctave);
    const double step = hz >= 1000 ? 10 : hz >= 100 ? 1 : 0.01;
    return static_cast<float>(std::round(hz / step) * step);
}

void ZoneToArticulation(const Zone& zone, ArticulationBlock& out, Instrument* instrument, int* lostSends)
{
    int lost = 0;
    const SendSlots sends = instrument ? ProvideSends(zone, *instrument, lost) : SendSlots{};
    ReadZone(zone, sends, out);
    if (lostSends)
        *lostSends = lost;
}

void ZoneToArticulation(const Zone& zone, ArticulationBlock& out, const Instrument& instrument)
{
    ReadZone(zone, FindSends(instrument), out);
}

void ArticulationToZone(const ArticulationBlock& block, const Instrument* instrument, float waveGainDb,
                        Zone& out)
{
    const ArticulationBlock part = WritablePart(block);
    for (std::size_t generator = 0; generator < kGenerators; ++generator)
        if (IsArticulation(generator))
            out.generators[generator] = DefaultZone().generators[generator];
    out.slots = DefaultZone().slots;
    WriteTuning(part, out);
    WriteSlots(part, kLevelSlots, out);
    WriteVolume(part, waveGainDb, out);
    WriteFilter(part, out);
    out.generators[kGenPan] = ToWhole(part[kArtPan] * 500.0, LimitsOf(kGenPan));
    if (instrument) {
        const SendSlots sends = FindSends(*instrument);
        WriteSend(part, kReverb, sends.reverb, out);
        WriteSend(part, kChorus, sends.chorus, out);
    }
    WriteLfos(part, out);
    WriteEnvelopes(part, out);
}

} // namespace vimbo::sf2
