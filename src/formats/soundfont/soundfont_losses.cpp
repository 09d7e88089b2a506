// What a SoundFont bank cannot hold of a collection.
#include "base/text.h"
#include "formats/soundfont/soundfont_build.h"
#include "model/collection.h"
#include "model/song.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

namespace vimbo::sf2 {
namespace {

constexpr std::u16string_view kShortNames = u"the format has 20 8-bit characters, and each name once";
constexpr std::u16string_view kNoText = u"the format has no such text";

void NoteTexts(ConversionNotes& notes, const TextItem& item)
{
    for (const ParamId id :
         {kTextArtist, kTextComments, kTextCopyright, kTextEngineer, kTextProduct, kTextImage})
        notes.Text(item, id, u"", kNoText);
}

TriggerParams HeldTrigger(const OutZone& zone) noexcept
{
    TriggerParams held;
    held.keys = zone.keys;
    held.velocities = zone.velocities;
    held.exclusionGroup = static_cast<std::uint16_t>(zone.values->generators[kGenExclusiveClass]);
    return held;
}

/// The waveform's gain goes into the zones.
ArticulationBlock WantedBlock(const OutZone& zone, const OutSample& sample)
{
    ArticulationBlock wanted = zone.region->articulation;
    if (sample.wave->volume != 0)
        wanted.Set(kArtVolume, wanted[kArtVolume] + sample.wave->volume);
    return wanted;
}

void NoteZone(ConversionNotes& notes, const OutZone& zone, const OutSample& sample,
              const Instrument& instrument)
{
    const Region& region = *zone.region;
    const ArticulationBlock wanted = WantedBlock(zone, sample);
    ArticulationBlock held;
    ZoneToArticulation(*zone.values, held, instrument);
    if (sample.channel != OutSample::kWhole)
        held.Set(kArtPan, wanted[kArtPan]); // the two sides say it together
    if (zone.pitchMoved != 0)
        held.Set(kArtTuning, held[kArtTuning] - static_cast<float>(zone.pitchMoved));
    notes.Articulation(region, wanted, held);
    notes.Trigger(region, region.trigger, HeldTrigger(zone));
    const LoopInfo loop = GetEffectiveLoop(region);
    notes.Loop(region, loop, WholeLoop(loop, sample.wave->frames));
    if (region.phaseGroup != 0)
        notes.Param(region, kParamPhaseGroup, region.phaseGroup, 0);
}

bool AnySendsTo(const std::vector<OutLayer>& layers, ChannelFxType effect)
{
    return std::ranges::any_of(layers, [effect](const OutLayer& layer) {
        return std::ranges::any_of(layer.zones,
                                   [effect](const OutZone& zone) { return SendsTo(*zone.values, effect); });
    });
}

/// What becomes of the effect in a slot: zones only say how much goes to the reverb and to the chorus.
/// @param reason  why it does not stay as it is; empty: it does
Fidelity FateOf(const Instrument& instrument, std::size_t slot, const std::vector<OutLayer>& layers,
                std::u16string_view& reason)
{
    const ChannelFx& effect = instrument.channelFx[slot];
    const bool isReverb = effect.type == ChannelFxType::Reverb;
    if (!isReverb && effect.type != ChannelFxType::Chorus)
        reason = u"the format has sends to reverb and chorus only";
    else if (FindChannelFx(instrument, effect.type) != slot)
        reason = u"the format has one reverb and one chorus";
    else if (!AnySendsTo(layers, effect.type))
        reason = u"nothing is sent to it";
    else {
        reason = effect != (isReverb ? kDefaultReverb : kDefaultChorus)
                     ? u"the format says nothing of how the effect is set"
                     : u"";
        return reason.empty() ? Fidelity::Kept : Fidelity::Approximated;
    }
    return Fidelity::Lost;
}

void NoteEffects(ConversionNotes& notes, const Instrument& instrument, const std::vector<OutLayer>& layers)
{
    for (std::size_t slot = 0; slot < kChannelFxSlots; ++slot) {
        std::u16string_view reason;
        if (instrument.channelFx[slot].type == ChannelFxType::None)
            continue;
        const Fidelity fidelity = FateOf(instrument, slot, layers, reason);
        if (fidelity == Fidelity::Kept)
            continue;
        notes.Add({.fidelity = fidelity,
                   .topic = NoteTopic::Effect,
                   .item = ItemPath(instrument),
                   .what = u"Channel effect " + std::u16string(1, static_cast<char16_t>(u'1' + slot)),
                   .from = {},
                   .to = {},
                   .reason = std::u16string(reason)});
    }
}

/// The two sides of stereo waveforms follow one another and have one name.
void NoteLayerNames(ConversionNotes& notes, const std::vector<OutLayer>& layers)
{
    const Layer* last = nullptr;
    for (const OutLayer& layer : layers)
        if (std::exchange(last, layer.layer) != layer.layer)
            notes.LayerName(*layer.layer, NarrowToWide(layer.name), kShortNames);
}

void NoteLocation(ConversionNotes& notes, const OutPreset& preset)
{
    const MidiLocation location = preset.instrument->location;
    const unsigned bank = location.IsDrum() ? 0 : preset.bank;
    notes.Param(*preset.instrument, kParamBankMsb, static_cast<float>(location.BankMsb()),
                static_cast<float>(bank), u"the format has one number for the bank; 128 for drum kits");
    notes.Param(*preset.instrument, kParamBankLsb, static_cast<float>(location.BankLsb()), 0,
                u"the format has one number for the bank");
}

void NoteMissing(ConversionNotes& notes, const Instrument& instrument, const SampleList& samples)
{
    for (const Layer* layer : instrument.Layers())
        for (const Region* region : layer->Regions())
            if (!samples.places.contains(region->Wave()))
                notes.Dropped(*region, region->Synth() != nullptr ? u"the format has no synthesis models"
                                                                  : u"it has no waveform");
}

/// Version 1 has no pitches of samples; the zones that play one make up for it.
void NotePitch(ConversionNotes& notes, const Waveform& wave, bool isUsed)
{
    constexpr float kMiddleC = 60;
    notes.Param(wave, kParamWaveRate, static_cast<float>(wave.rateHz), static_cast<float>(kVersion1RateHz),
                isUsed ? u"the format has one rate; regions are tuned to sound the same"
                       : u"the format has one rate");
    if (isUsed)
        return;
    notes.Param(wave, kParamWaveRootKey, wave.rootKey, kMiddleC, u"only regions have a pitch");
    notes.Param(wave, kParamWaveFineTune, wave.fineTune, 0, u"only regions have a pitch");
}

std::uint8_t WidthOf(const Waveform& wave) noexcept
{
    constexpr std::uint8_t kPlain = 16;
    return std::max(wave.bits, kPlain);
}

} // namespace

void NotePreset(ConversionNotes& notes, const OutPreset& preset, const std::vector<OutLayer>& layers,
                const SampleList& samples)
{
    if (!notes.IsWanted())
        return;
    const Instrument& instrument = *preset.instrument;
    notes.Name(instrument, NarrowToWide(preset.name), kShortNames);
    NoteTexts(notes, instrument);
    NoteLocation(notes, preset);
    NoteEffects(notes, instrument, layers);
    NoteLayerNames(notes, layers);
    NoteMissing(notes, instrument, samples);
    for (const OutLayer& layer : layers)
        for (const OutZone& zone : layer.zones)
            if (samples.samples[zone.sample].channel != 1) // said with the left one
                NoteZone(notes, zone, samples.samples[zone.sample], instrument);
}

void NoteSamples(ConversionNotes& notes, const SampleList& samples, const ExportSet& set, unsigned major)
{
    if (!notes.IsWanted())
        return;
    std::unordered_set<const Waveform*> used;
    for (const Instrument* instrument : set.Instruments())
        for (const Layer* layer : instrument->Layers())
            for (const Region* region : layer->Regions())
                used.insert(region->Wave());
    for (const OutSample& sample : samples.samples) {
        const Waveform& wave = *sample.wave;
        if (sample.channel == OutSample::kWhole)
            notes.Name(wave, NarrowToWide(sample.name), kShortNames);
        if (sample.channel == 1)
            continue;
        NoteTexts(notes, wave);
        if (!wave.markers.empty())
            notes.Add({.fidelity = Fidelity::Lost,
                       .topic = NoteTopic::Waveform,
                       .item = ItemPath(wave),
                       .what = u"Markers",
                       .from = {},
                       .to = {},
                       .reason = u"the format has none",
                       .count = wave.markers.size()});
        if (major == kVersion1)
            NotePitch(notes, wave, used.contains(&wave));
        if (used.contains(&wave))
            continue;
        notes.Param(wave, kParamWaveVolume, wave.volume, 0, u"only regions have a volume");
        notes.Loop(wave, wave.loop, LoopOf(sample));
    }
    for (const Waveform* wave : set.Waveforms())
        if (!samples.places.contains(wave))
            notes.Dropped(*wave, u"it has no samples");
}

void NoteWidth(ConversionNotes& notes, const OutSample& sample, unsigned bits)
{
    const Waveform& wave = *sample.wave;
    if (!notes.IsWanted() || sample.channel == 1 || WidthOf(wave) <= bits)
        return;
    const auto text = [](unsigned width) { return NarrowToWide(std::to_string(width) + "-bit"); };
    notes.Add({.fidelity = Fidelity::Approximated,
               .topic = NoteTopic::Waveform,
               .item = ItemPath(wave),
               .what = u"Samples",
               .from = text(wave.bits),
               .to = text(bits),
               .reason = {}});
}

void NoteRest(ConversionNotes& notes, const Item& root, const ExportSet& set,
              const std::vector<OutPreset>& presets)
{
    if (!notes.IsWanted())
        return;
    std::unordered_set<const Instrument*> written;
    for (const OutPreset& preset : presets)
        written.insert(preset.instrument);
    for (const Instrument* instrument : set.Instruments())
        if (!written.contains(instrument))
            notes.Dropped(*instrument, u"it plays no waveform");
    if (root.Kind() == ItemKind::Collection)
        for (const Song& song : root.Owner().All<Song>())
            notes.Dropped(song, u"the format has no songs");
}

} // namespace vimbo::sf2
