#include "formats/sfz/sfz_losses.h"

#include "base/text.h"
#include "formats/sfz/sfz_effects.h"
#include "model/collection.h"
#include "model/song.h"

#include <algorithm>
#include <unordered_set>

namespace vimbo::sfz {
namespace {

constexpr std::u16string_view kNoText = u"the format has no such text";

constexpr std::u16string_view kNoParameter = u"there is no such parameter";

/// Why an opcode was left out, and what comes of it where that can be heard.
std::u16string_view ReasonOf(std::string_view name)
{
    constexpr std::string_view kConditions[] = {
        "sw_",        "lochan",       "hichan",    "lobend",    "hibend",     "lobpm",     "hibpm",
        "loprog",     "hiprog",       "lochanaft", "locc",      "hicc",       "lopolyaft", "hipolyaft",
        "hichanaft",  "on_lo",        "on_hi",     "start_lo",  "start_hi",   "stop_lo",   "stop_hi",
        "sustain_sw", "sostenuto_sw", "xfin_locc", "xfin_hicc", "xfout_locc", "xfout_hicc"};
    if (name.find('=') != std::string_view::npos)
        return u"there is no such value";
    if (name.find("label") != std::string_view::npos)
        return u"it is for display only";
    if (std::ranges::any_of(kConditions, [name](std::string_view each) { return name.starts_with(each); }))
        return u"its regions play without this condition";
    return kNoParameter;
}

class Teller {
public:
    explicit Teller(Host& host) noexcept : host_(host) {}

    void Lost(NoteTopic topic, std::u16string what, std::uint64_t count, std::u16string_view reason)
    {
        Tell(Fidelity::Lost, topic, std::move(what), count, reason);
    }
    void Near(NoteTopic topic, std::u16string what, std::uint64_t count, std::u16string_view reason)
    {
        Tell(Fidelity::Approximated, topic, std::move(what), count, reason);
    }

private:
    void Tell(Fidelity fidelity, NoteTopic topic, std::u16string what, std::uint64_t count,
              std::u16string_view reason)
    {
        if (count != 0)
            host_.NoteConversion({.fidelity = fidelity,
                                  .topic = topic,
                                  .item = {},
                                  .what = std::move(what),
                                  .from = {},
                                  .to = {},
                                  .reason = std::u16string(reason),
                                  .count = count});
    }
    Host& host_;
};

void TellUnits(Teller& tell, const UnitLosses& units)
{
    tell.Near(NoteTopic::Parameter, u"bend_down", units.bends, u"it goes as far as bend_up");
    tell.Lost(NoteTopic::Parameter, u"Velocity to times", units.times, u"the time is 0");
    tell.Lost(NoteTopic::Parameter, u"Key number to times", units.keyTimes, u"the time is 0 at some keys");
    tell.Lost(NoteTopic::Parameter, u"Envelopes", units.envelopes, u"another one has the same target");
    tell.Lost(NoteTopic::Parameter, u"LFOs", units.lfos, u"another one has the same target");
    tell.Near(NoteTopic::Parameter, u"LFO waves", units.waves, u"a wave of few forms stands for them");
    tell.Lost(NoteTopic::Parameter, u"pitch_random", units.pitchRandoms, u"tune_random stands for both");
    tell.Near(NoteTopic::Parameter, u"Filters of a gain", units.gainFilters,
              u"an equalizer band without modulation stands for them");
    tell.Lost(NoteTopic::Parameter, u"ampeg_depth", units.ampDepths, u"the envelope is the volume");
    tell.Near(NoteTopic::Trigger, u"trigger=release_key", units.releaseKeys,
              u"it plays as trigger=release does");
    tell.Near(NoteTopic::Trigger, u"Random ranges", units.randoms, u"the regions play in turn");
    tell.Lost(NoteTopic::Trigger, u"Groups", units.groups, u"off_by names another group");
    tell.Near(NoteTopic::Trigger, u"Pedal ranges", units.pedals, u"the pedal has two positions");
}

void TellRegions(Teller& tell, const ReadLosses& losses)
{
    for (const auto& [name, count] : losses.generators)
        tell.Lost(NoteTopic::Region, u"Generated sound " + ToWide(name), count, u"it plays no sample");
    tell.Lost(NoteTopic::Region, u"Regions", losses.withoutSample, u"they name no sample");
    tell.Lost(NoteTopic::Region, u"Regions", losses.unplayable, u"no key plays them");
    tell.Lost(NoteTopic::Region, u"Regions", losses.stacked, u"too many of them overlap");
    tell.Near(NoteTopic::Region, u"Sample offsets", losses.offsets, u"they reach outside the sample");
    tell.Near(NoteTopic::Trigger, u"seq_position", losses.sequences,
              u"the regions play in the order of the text");
    tell.Lost(NoteTopic::Waveform, u"Samples in the text", losses.embedded, u"only sample files are read");
}

void NoteLocation(ConversionNotes& notes, const Instrument& instrument)
{
    for (const ParamId id : {kParamBankMsb, kParamBankLsb, kParamProgram, kParamDrum})
        if (instrument.GetParam(id) != 0)
            notes.Param(instrument, id, instrument.GetParam(id), 0, u"the format has no MIDI locations");
}

void NoteEffects(ConversionNotes& notes, const Instrument& instrument, Generation generation)
{
    for (std::size_t slot = 0; slot < kChannelFxSlots; ++slot) {
        const ChannelFx& fx = instrument.channelFx[slot];
        const auto read = generation == Generation::Second ? EffectOf(WordOf(fx.type)) : std::nullopt;
        const bool isWritten = read.has_value();
        if (fx.type == ChannelFxType::None || (isWritten && fx == read->effect))
            continue;
        notes.Add({.fidelity = isWritten ? Fidelity::Approximated : Fidelity::Lost,
                   .topic = NoteTopic::Effect,
                   .item = ItemPath(instrument),
                   .what = u"Channel effect " + std::u16string(1, static_cast<char16_t>(u'1' + slot)),
                   .from = {},
                   .to = {},
                   .reason = isWritten ? u"only its kind is kept" : u"the format has no such effect"});
    }
}

void NoteTexts(ConversionNotes& notes, const TextItem& item)
{
    for (const ParamId id :
         {kTextArtist, kTextComments, kTextCopyright, kTextEngineer, kTextProduct, kTextImage})
        notes.Text(item, id, u"", kNoText);
}

} // namespace

void TellLosses(Host& host, const ReadLosses& losses)
{
    if (!host.WantsNotes())
        return;
    Teller tell(host);
    for (const auto& [name, count] : losses.opcodes)
        tell.Lost(NoteTopic::Parameter, u"Opcode " + ToWide(name), count, ReasonOf(name));
    tell.Lost(NoteTopic::Parameter, u"Other opcodes", losses.otherCount, kNoParameter);
    TellUnits(tell, losses.units);
    TellRegions(tell, losses);
    tell.Lost(NoteTopic::Other, u"Curves", losses.curves, u"there is no place for them");
    for (const auto& [word, count] : losses.nearEffects)
        tell.Near(NoteTopic::Effect, u"Effect " + ToWide(word), count, u"the nearest kind stands for it");
    tell.Lost(NoteTopic::Effect, u"Effect settings", losses.effects, u"there is no place for them");
    tell.Lost(NoteTopic::Other, u"#include", losses.text.missingIncludes, u"the file could not be opened");
    tell.Lost(NoteTopic::Other, u"#include", losses.text.refusedIncludes,
              u"it leads in a circle, or too deep");
    tell.Lost(NoteTopic::Other, u"Text", losses.text.isCut ? 1 : 0, u"it grows beyond 64 MB");
}

void NoteRegion(ConversionNotes& notes, const Region& region, const Waveform& wave, const Record& record,
                const LoopInfo& loop)
{
    if (!notes.IsWanted())
        return;
    ArticulationBlock wanted = region.articulation;
    wanted.Set(kArtVolume, wanted[kArtVolume] + wave.volume);
    wanted.Set(kArtTuning, wanted[kArtTuning] + static_cast<float>(wave.fineTune) / 100);
    UnitLosses losses;
    notes.Articulation(region, wanted, ToArticulation(record, losses));
    notes.Trigger(region, region.trigger, ToTrigger(record, wave.rateHz, losses));
    LoopInfo held = ToLoop(record, wave);
    held.oneShot = record[kLoopMode] == kOneShot && loop.oneShot;
    notes.Loop(region, loop, held);
    if (region.phaseGroup != 0)
        notes.Param(region, kParamPhaseGroup, region.phaseGroup, 0, u"the format has no phase groups");
}

std::string LabelText(const Layer& layer)
{
    std::u16string_view name = layer.GetName();
    name = name.substr(0, name.find(u':')); // ranges follow
    while (name.ends_with(u' '))
        name.remove_suffix(1);
    const bool isNumbered = name.starts_with(u"Layer ") && // as layers are called until they get a name
                            name.find_first_not_of(u"0123456789", 6) == std::u16string_view::npos;
    const auto isSpecial = [](char16_t c) {
        return c < u' ' || std::u16string_view(u"=<>$#\"/").find(c) != std::u16string_view::npos;
    };
    if (isNumbered || std::ranges::any_of(name, isSpecial))
        return {};
    return WideToUtf8(name.substr(std::min(name.find_first_not_of(u' '), name.size())));
}

void NoteInstrument(ConversionNotes& notes, const Instrument& instrument, std::u16string_view name,
                    Generation generation)
{
    if (!notes.IsWanted())
        return;
    notes.Name(instrument, name, u"the file's name stands for it");
    NoteTexts(notes, instrument);
    NoteLocation(notes, instrument);
    NoteEffects(notes, instrument, generation);
    for (const Layer* layer : instrument.Layers())
        if (generation == Generation::First || LabelText(*layer).empty())
            notes.LayerName(*layer);
}

void NoteSample(ConversionNotes& notes, const Waveform& wave, std::u16string_view fileName, DataFormat format)
{
    if (!notes.IsWanted())
        return;
    notes.Name(wave, fileName.substr(0, fileName.rfind(u'.')), u"the file's name stands for it");
    notes.Samples(wave, format, wave.channels);
}

void NoteRest(ConversionNotes& notes, const Item& root, const ExportSet& set)
{
    if (!notes.IsWanted() || root.Kind() != ItemKind::Collection)
        return;
    std::unordered_set<const Waveform*> used;
    for (const Instrument* instrument : set.Instruments())
        for (const Layer* layer : instrument->Layers())
            for (const Region* region : layer->Regions())
                used.insert(region->Wave());
    for (const Waveform* wave : set.Waveforms())
        if (!used.contains(wave))
            notes.Dropped(*wave, u"no instrument plays it");
    for (const Song& song : root.Owner().All<Song>())
        notes.Dropped(song, u"the format has no songs");
    NoteTexts(notes, static_cast<const TextItem&>(root));
}

} // namespace vimbo::sfz
