// What a DLS bank cannot hold of a collection.
#include "base/text.h"
#include "formats/dls/dls_build.h"
#include "formats/wave/wave_texts.h"
#include "model/collection.h"
#include "model/song.h"

#include <algorithm>

namespace vimbo::dls {
namespace {

void NoteTexts(ConversionNotes& notes, const TextItem& item)
{
    for (const InfoTag& tag : kInfoTags)
        if (tag.text != kTextName)
            notes.Text(item, tag.text, NarrowToWide(item.GetTextNarrow(tag.text)),
                       u"the format has 8-bit texts");
    notes.Text(item, kTextImage, u"", u"the format has no images");
}

TriggerParams HeldTrigger(const TriggerParams& trigger) noexcept
{
    TriggerParams held;
    held.keys = trigger.keys;
    held.velocities = trigger.velocities;
    held.exclusionGroup = trigger.exclusionGroup;
    held.noteExclusionMode = trigger.noteExclusionMode;
    return held;
}

LoopInfo HeldLoop(const OutRecord& record) noexcept
{
    return SampleFromWsmp(record.head, record.head.loopCount.Get() != 0 ? &record.loop : nullptr).loop;
}

void NoteRegion(ConversionNotes& notes, const OutRegion& out, const Waveform& wave)
{
    const Region& region = *out.region;
    ArticulationBlock held = out.held;
    if (out.isSplit)
        held.Set(kArtPan, region.articulation[kArtPan]); // the two sides say it together
    notes.Articulation(region, region.articulation, held);
    notes.Trigger(region, region.trigger, HeldTrigger(region.trigger));
    notes.Loop(region, GetEffectiveLoop(region), HeldLoop(RecordOf(out, wave)));
    for (const ParamId id : {kParamStartOffset, kParamEndOffset})
        if (region.GetParam(id) != 0)
            notes.Param(region, id, region.GetParam(id), 0, u"the format plays whole waveforms");
}

void NoteEffects(ConversionNotes& notes, const Instrument& instrument)
{
    for (std::size_t slot = 0; slot < kChannelFxSlots; ++slot) {
        const ChannelFxType type = instrument.channelFx[slot].type;
        if (type == ChannelFxType::None || type == ChannelFxType::Reverb || type == ChannelFxType::Chorus)
            continue;
        notes.Add({.fidelity = Fidelity::Lost,
                   .topic = NoteTopic::Effect,
                   .item = ItemPath(instrument),
                   .what = u"Channel effect " + std::u16string(1, static_cast<char16_t>(u'1' + slot)),
                   .from = {},
                   .to = {},
                   .reason = u"the format has sends to reverb and chorus only"});
    }
}

void NoteLayer(ConversionNotes& notes, const Layer& layer, const WaveList& waves)
{
    std::u16string_view name = layer.GetName();
    name = name.substr(0, name.find(u':'));
    if (!name.empty() && !name.starts_with(u"Layer ")) // those come back by themselves
        notes.Name(layer, u"", u"the format has no names of layers");
    for (const Region* region : layer.Regions())
        if (!waves.places.contains(region->Wave()))
            notes.Dropped(*region, region->Synth() != nullptr ? u"the format has no synthesis models"
                                                              : u"it has no waveform");
}

std::u16string WidthText(unsigned bits)
{
    return NarrowToWide(std::to_string(bits) + "-bit");
}

/// Linear samples of fewer bits than the waveform has, and codings that lose something.
void NoteCoding(ConversionNotes& notes, const OutWave& out)
{
    const Waveform& wave = *out.wave;
    const Coding& coding = *out.coding;
    const bool isLinear = coding.tag == 1 || coding.tag == 3;
    const bool isKept = isLinear ? wave.bits <= coding.bits : wave.SourceFormat() == coding.format;
    if (!isKept)
        notes.Add({.fidelity = Fidelity::Approximated,
                   .topic = NoteTopic::Waveform,
                   .item = ItemPath(wave),
                   .what = u"Samples",
                   .from = WidthText(wave.bits),
                   .to = isLinear ? WidthText(coding.bits) : std::u16string(DataFormatName(coding.format)),
                   .reason = {}});
}

} // namespace

void NoteInstrument(ConversionNotes& notes, const OutInstrument& out, const WaveList& waves)
{
    if (!notes.IsWanted())
        return;
    const Instrument& instrument = *out.instrument;
    notes.Name(instrument, NarrowToWide(instrument.GetTextNarrow(kTextName)), u"the format has 8-bit names");
    NoteTexts(notes, instrument);
    NoteEffects(notes, instrument);
    for (const Layer* layer : instrument.Layers())
        NoteLayer(notes, *layer, waves);
    for (const OutRegion& region : out.regions)
        if (waves.waves[region.wave].channel != 1) // said with the left one
            NoteRegion(notes, region, *waves.waves[region.wave].wave);
}

void NoteWaves(ConversionNotes& notes, const ExportSet& set, const WaveList& waves)
{
    if (!notes.IsWanted())
        return;
    for (const OutWave& out : waves.waves) {
        const Waveform& wave = *out.wave;
        if (out.channel == 1)
            continue;
        notes.Name(wave, NarrowToWide(wave.GetTextNarrow(kTextName)), u"the format has 8-bit names");
        NoteTexts(notes, wave);
        NoteCoding(notes, out);
        notes.Loop(wave, wave.loop, HeldLoop(RecordOf(wave)));
        if (!wave.markers.empty())
            notes.Add({.fidelity = Fidelity::Lost,
                       .topic = NoteTopic::Waveform,
                       .item = ItemPath(wave),
                       .what = u"Markers",
                       .from = {},
                       .to = {},
                       .reason = u"the format has none",
                       .count = wave.markers.size()});
    }
    for (const Waveform* wave : set.Waveforms())
        if (!waves.places.contains(wave))
            notes.Dropped(*wave, u"it has no samples");
}

void NoteRest(ConversionNotes& notes, const Item& root, const ExportSet& set,
              const std::vector<OutInstrument>& instruments)
{
    if (!notes.IsWanted())
        return;
    for (const Instrument* instrument : set.Instruments())
        if (std::ranges::find(instruments, instrument, &OutInstrument::instrument) == instruments.end())
            notes.Dropped(*instrument, u"it plays no waveform");
    // FIXME: the extended levels have a place for a song's RIFF-MIDI image (`lRMI`).
    if (root.Kind() == ItemKind::Collection)
        for (const Song& song : root.Owner().All<Song>())
            notes.Dropped(song, u"songs are not written to this format");
}

} // namespace vimbo::dls
