// Tuning, level, pan and sends; the whole zone.
#include "formats/soundfont/soundfont_unit_parts.h"

namespace vimbo::sf2 {
namespace {

constexpr double kDbPerAttenuation = 0.04; ///< level law of the EMU hardware; on paper it is 0.1

constexpr std::array kLevelSlots{Linear{kSlotVelToVolume, kArtVelToVolume, kDbPerAttenuation, {0, 32767}},
                                 Linear{kSlotKeyToVolume, kArtKeyToVolume, kDbPerAttenuation* kKeysPart},
                                 Linear{kSlotWheelToVolume, kArtWheelToVolume, kDbPerAttenuation},
                                 Linear{kSlotTouchToVolume, kArtTouchToVolume, kDbPerAttenuation},
                                 Linear{kSlotKeyToPan, kArtKeyToPan, 0.000375},
                                 Linear{kSlotCc10ToPan, kArtCc10ToPan, 0.002}};

/// How the pitch follows key and wheel.
void ReadTracking(const Zone& zone, ArticulationBlock& out)
{
    out.Set(kArtKeyToPitch, Stored(kArtKeyToPitch, zone.generators[kGenScaleTuning] * 0.01));
    out.Set(kArtBendToPitch, Stored(kArtBendToPitch, zone.slots[kSlotBendToPitch] * 0.01 + 2));
}

void WriteTracking(const ArticulationBlock& block, Zone& out) noexcept
{
    out.generators[kGenScaleTuning] = ToWhole(block[kArtKeyToPitch] * 100.0, LimitsOf(kGenScaleTuning));
    out.slots[kSlotBendToPitch] = ToWhole((block[kArtBendToPitch] - 2.0) * 100, kSlotLimits);
}

/// Stores and marks what differs from the default.
void Put(ArticulationBlock& out, ParamId id, double value)
{
    const float stored = Stored(id, value);
    if (stored == DefaultArticulation()[id])
        out.Inherit(id, stored);
    else
        out.Set(id, stored);
}

void ReadTuning(const Zone& zone, ArticulationBlock& out)
{
    const auto& g = zone.generators;
    Put(out, kArtTuning, g[kGenCoarseTune] + g[kGenFineTune] * 0.01);
}

void WriteTuning(const ArticulationBlock& block, Zone& out) noexcept
{
    const int cents = ToWhole(block[kArtTuning] * 100.0, {-12099, 12099});
    out.generators[kGenCoarseTune] = cents / 100;
    out.generators[kGenFineTune] = cents % 100;
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

/// With the constant part of a unipolar key tracking. Its amounts count as gain, so it lowers the
/// attenuation.
int AttenuationOf(const Zone& zone) noexcept
{
    const int attenuation = zone.generators[kGenAttenuation];
    const std::optional<std::int32_t> half = HalfOf(zone, kSlotUniKeyToVolume, kSlotKeyToVolume);
    return half ? ToWhole(attenuation - *half, LimitsOf(kGenAttenuation)) : attenuation;
}

/// Of a block that has the zone's timbre.
void ReadVolume(const Zone& zone, ArticulationBlock& out)
{
    Put(out, kArtVolume, StoredVolume(AttenuationOf(zone), VolumeCorrection(out)));
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

/// All but those that are given values anyway: blocks share their values until one changes.
void DropSendsBut(SendSlots kept, ArticulationBlock& out)
{
    for (std::size_t slot = 0; slot < kChannelFxSlots; ++slot)
        if (slot != kept.reverb && slot != kept.chorus)
            for (const ParamId id : {SendId(kArtSend, slot), SendId(kArtCcToSend, slot)})
                out.Inherit(id, DefaultArticulation()[id]);
}

void ReadSend(const Zone& zone, SendSource send, std::optional<std::size_t> slot, ArticulationBlock& out)
{
    if (!slot)
        return;
    Put(out, SendId(kArtSend, *slot), zone.generators[send.generator] * 0.001);
    Put(out, SendId(kArtCcToSend, *slot), zone.slots[send.slot] * 0.001);
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

/// The zone as it is written but for its attenuation: with bipolar sources only. Whatever is read then has
/// exact steps in the file.
Zone WithBipolarSources(Zone zone) noexcept
{
    Halve(zone, kSlotUniKeyToVolume, kSlotKeyToVolume);
    MakeFilterSourcesBipolar(zone);
    if (Halve(zone, kSlotUniVelToModEnvToPitch, kSlotVelToModEnvToPitch))
        MoveGenerator(zone, kGenModEnvToPitch, zone.slots[kSlotVelToModEnvToPitch]);
    if (Halve(zone, kSlotUniVelToModEnvToCutoff, kSlotVelToModEnvToCutoff))
        MoveGenerator(zone, kGenModEnvToCutoff, zone.slots[kSlotVelToModEnvToCutoff]);
    MakeEnvelopeSourcesBipolar(zone);
    return zone;
}

void ReadMixWith(const Zone& zone, SendSlots sends, ArticulationBlock& out)
{
    ReadTuning(zone, out);
    ReadVolume(zone, out);
    Put(out, kArtPan, zone.generators[kGenPan] * 0.002);
    DropSendsBut(sends, out);
    ReadSend(zone, kReverb, sends.reverb, out);
    ReadSend(zone, kChorus, sends.chorus, out);
}

/// The block without what a zone has no place for: filters of other types with all that moves them, and
/// movements of the pan.
ArticulationBlock WritablePart(const ArticulationBlock& block)
{
    ArticulationBlock part = block;
    for (const ParamId id : {kArtXLfoToPan, kArtXEnvToPan})
        part.Inherit(id, 0);
    DropUnwritableFilter(part);
    return part;
}

/// True for generators that say the same for every sample.
bool IsArticulation(std::size_t generator) noexcept
{
    const Limits limits = LimitsOf(generator);
    return limits.minimum != limits.maximum;
}

} // namespace

bool SendsTo(const Zone& zone, ChannelFxType effect) noexcept
{
    return HasSend(zone, effect == ChannelFxType::Reverb ? kReverb : kChorus);
}

void ReadTimbre(const Zone& source, ArticulationBlock& out)
{
    const Zone zone = WithBipolarSources(source);
    const bool hasFilter = HasFilter(zone);
    out.Reset();
    ReadTracking(zone, out);
    ReadSlots(zone, kLevelSlots, out);
    if (hasFilter)
        ReadFilter(zone, out);
    ReadLfos(zone, hasFilter, out);
    ReadEnvelopes(zone, hasFilter, out);
    out.MarkDifferences(DefaultArticulation());
}

void ReadMix(const Zone& zone, ArticulationBlock& out, Instrument* instrument, int* lostSends)
{
    int lost = 0;
    ReadMixWith(zone, instrument ? ProvideSends(zone, *instrument, lost) : SendSlots{}, out);
    if (lostSends)
        *lostSends = lost;
}

void ZoneToArticulation(const Zone& zone, ArticulationBlock& out, Instrument* instrument, int* lostSends)
{
    ReadTimbre(zone, out);
    ReadMix(zone, out, instrument, lostSends);
}

void ReadMix(const Zone& zone, ArticulationBlock& out, const Instrument& instrument)
{
    ReadMixWith(zone, FindSends(instrument), out);
}

void ZoneToArticulation(const Zone& zone, ArticulationBlock& out, const Instrument& instrument)
{
    ReadTimbre(zone, out);
    ReadMix(zone, out, instrument);
}

void WriteTimbre(const ArticulationBlock& block, Zone& out)
{
    const ArticulationBlock part = WritablePart(block);
    for (std::size_t generator = 0; generator < kGenerators; ++generator)
        if (IsArticulation(generator))
            out.generators[generator] = DefaultZone().generators[generator];
    out.slots = DefaultZone().slots;
    WriteTracking(part, out);
    WriteSlots(part, kLevelSlots, out);
    WriteFilter(part, out);
    WriteLfos(part, out);
    WriteEnvelopes(part, out);
}

void WriteMix(const ArticulationBlock& block, const Instrument* instrument, float waveGainDb, Zone& out)
{
    const ArticulationBlock part = WritablePart(block);
    WriteTuning(part, out);
    WriteVolume(part, waveGainDb, out);
    out.generators[kGenPan] = ToWhole(part[kArtPan] * 500.0, LimitsOf(kGenPan));
    if (instrument) {
        const SendSlots sends = FindSends(*instrument);
        WriteSend(part, kReverb, sends.reverb, out);
        WriteSend(part, kChorus, sends.chorus, out);
    }
}

void ArticulationToZone(const ArticulationBlock& block, const Instrument* instrument, float waveGainDb,
                        Zone& out)
{
    WriteTimbre(block, out);
    WriteMix(block, instrument, waveGainDb, out);
}

} // namespace vimbo::sf2
