// What a DLS bank cannot hold of a collection.
#include "formats/dls/dls_losses.h"
#include "base/text.h"
#include "formats/dls/dls.h"
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

/// True if any region says something of the way to an effect; otherwise nothing of it is in the file.
bool IsSentTo(const OutInstrument& out, std::uint16_t destination) noexcept
{
    return std::ranges::any_of(out.regions, [&](const OutRegion& region) {
        return std::ranges::find(region.sound.connections, destination, &Connection::destination) !=
               region.sound.connections.end();
    });
}

void NoteEffects(ConversionNotes& notes, const OutInstrument& out, std::uint32_t level)
{
    const Instrument& instrument = *out.instrument;
    const SendSlots sends = FindSends(instrument);
    const auto note = [&](std::size_t slot, Fidelity fidelity, std::u16string_view reason) {
        notes.Add({.fidelity = fidelity,
                   .topic = NoteTopic::Effect,
                   .item = ItemPath(instrument),
                   .what = u"Channel effect " + std::u16string(1, static_cast<char16_t>(u'1' + slot)),
                   .from = {},
                   .to = {},
                   .reason = std::u16string(reason)});
    };
    for (std::size_t slot = 0; slot < kChannelFxSlots; ++slot) {
        const ChannelFx& fx = instrument.channelFx[slot];
        if (fx.type == ChannelFxType::None)
            continue;
        const bool isReverb = sends.reverb == slot;
        if (level < kDlsLevel2)
            note(slot, Fidelity::Lost, u"level 1 has no effects");
        else if (!isReverb && sends.chorus != slot)
            note(slot, Fidelity::Lost, u"the format has sends to one reverb and one chorus only");
        else if (!IsSentTo(out, isReverb ? kDstReverb : kDstChorus))
            note(slot, Fidelity::Lost, u"no region sends more or less to it than by default");
        else if (fx != (isReverb ? kDefaultReverb : kDefaultChorus))
            note(slot, Fidelity::Approximated, u"only its kind is kept");
    }
}

void NoteLayer(ConversionNotes& notes, const Layer& layer, const WaveList& waves)
{
    notes.LayerName(layer);
    for (const Region* region : layer.Regions())
        if (!waves.places.contains(region->Wave()))
            notes.Dropped(*region, region->Synth() != nullptr ? u"the format has no synthesis models"
                                                              : u"it has no waveform");
}

} // namespace

void TellLosses(Host& host, const ReadLosses& losses)
{
    if (!host.WantsNotes())
        return;
    const auto note = [&](NoteTopic topic, std::u16string_view what, std::uint64_t count,
                          std::u16string_view reason) {
        if (count != 0)
            host.NoteConversion({.fidelity = Fidelity::Lost,
                                 .topic = topic,
                                 .item = {},
                                 .what = std::u16string(what),
                                 .from = {},
                                 .to = {},
                                 .reason = std::u16string(reason),
                                 .count = count});
    };
    note(NoteTopic::Region, u"Regions", losses.missingCues, u"Missing cue");
    note(NoteTopic::Region, u"Regions", losses.missingWaves, u"Missing wave");
    note(NoteTopic::Region, u"Regions", losses.stackedTooHigh, u"too many of them overlap");
    note(NoteTopic::Region, u"Conditions", losses.conditions, u"all that is in the bank is read");
    note(NoteTopic::Loop, u"Further loops", losses.loops, u"a region has one loop");
    note(NoteTopic::Parameter, u"Connections", losses.connections, u"there are no such parameters");
    note(NoteTopic::Effect, u"Sends", losses.sends, u"the instrument has no free effect slot");
    note(NoteTopic::Song, u"Songs", losses.songs,
         u"they are no RIFF-MIDI images, or lie in a bank in a song");
    note(NoteTopic::Waveform, u"Waveforms", losses.waves, u"their encoding is not known");
}

void NoteInstrument(ConversionNotes& notes, const OutInstrument& out, const WaveList& waves,
                    std::uint32_t level)
{
    if (!notes.IsWanted())
        return;
    const Instrument& instrument = *out.instrument;
    notes.Name(instrument, NarrowToWide(instrument.GetTextNarrow(kTextName)), u"the format has 8-bit names");
    NoteTexts(notes, instrument);
    NoteEffects(notes, out, level);
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
        notes.Samples(wave, out.coding->format,
                      out.channel == OutWave::kWhole ? out.channels : wave.channels);
        notes.Loop(wave, wave.loop, HeldLoop(RecordOf(wave)));
        notes.Markers(wave, wave.markers.size(), u"the format has none");
    }
    for (const Waveform* wave : set.Waveforms())
        if (!waves.places.contains(wave))
            notes.Dropped(*wave, u"it has no samples");
}

void NoteBank(ConversionNotes& notes, const Item& root, const ExportSet& set,
              const std::vector<OutInstrument>& instruments)
{
    if (!notes.IsWanted())
        return;
    if (root.Kind() == ItemKind::Collection)
        NoteTexts(notes, static_cast<const TextItem&>(root));
    auto written = instruments.begin(); // in the set's order
    for (const Instrument* instrument : set.Instruments())
        if (written != instruments.end() && written->instrument == instrument)
            ++written;
        else
            notes.Dropped(*instrument, u"it plays no waveform");
}

void NoteSongs(ConversionNotes& notes, const Item& root)
{
    if (notes.IsWanted() && root.Kind() == ItemKind::Collection)
        for (const Song& song : root.Owner().All<Song>())
            notes.Dropped(song, u"only the extended levels hold a song");
}

} // namespace vimbo::dls
