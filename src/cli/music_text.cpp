#include "cli/music_text.h"

#include "base/numeric.h"
#include "cli/display.h"
#include "cli/music_json.h"
#include "cli/parameters.h"
#include "cli/report_json.h"
#include "model/song_analysis.h"
#include "model/synth_model.h"
#include "model/waveform.h"

#include <fmt/format.h>

#include <iterator>

namespace vimbo::cli {

namespace {

template <class... Args>
void Add(std::string& out, fmt::format_string<Args...> format, Args&&... args)
{
    fmt::format_to(std::back_inserter(out), format, std::forward<Args>(args)...);
}

void AddParams(std::string& out, int indent, const std::vector<ShownParam>& params)
{
    for (const ShownParam& param : params)
        Add(out, "{:{}}{}: {}\n", "", indent, param.name, param.text);
}

/// A frame position with at most two decimals.
std::string Frames(double value)
{
    std::string text = fmt::format("{:.2f}", value);
    text.erase(text.find_last_not_of('0') + 1);
    if (text.ends_with('.'))
        text.pop_back();
    return text;
}

std::string KeysText(MidiRange keys)
{
    return keys.low == keys.high ? NoteName(keys.low) : NoteName(keys.low) + ".." + NoteName(keys.high);
}

std::string SoundText(const Region& region)
{
    if (const Waveform* wave = region.Wave())
        return '"' + Printable(wave->GetName()) + '"';
    if (const SynthModel* synth = region.Synth())
        return fmt::format("synthesis model {} \"{}\"", synth->Model(), Printable(synth->GetName()));
    return "nothing";
}

std::string OverridesText(const Region& region)
{
    std::string text;
    constexpr unsigned kLoop = Region::kAllOverrides & ~unsigned{Region::kRootKey};
    if ((region.overrideFlags & kLoop) != 0)
        text += ", own loop " + LoopText(GetEffectiveLoop(region));
    if (region.startOffset != 0)
        text += fmt::format(", starts at +{}", region.startOffset);
    if (region.endOffset != 0)
        text += fmt::format(", ends at {}", region.endOffset);
    if (region.phaseGroup != 0)
        text +=
            fmt::format(", phase group {}{}", region.phaseGroup, region.phaseMaster != 0 ? " (master)" : "");
    return text;
}

void AddRegion(std::string& out, const Region& region)
{
    const TriggerParams& trigger = region.trigger;
    Add(out, "       {}, velocity {}..{}: {}, root key {} ({}){}\n", KeysText(trigger.keys),
        trigger.velocities.low, trigger.velocities.high, SoundText(region), region.EffectiveRootKey(),
        NoteName(region.EffectiveRootKey()), OverridesText(region));
    AddParams(out, 9, TriggerValues(trigger));
    AddParams(out, 9, SetParams(region.articulation));
}

std::string ChannelText(const Track& track)
{
    if (track.channel < 16)
        return fmt::format("channel {}", track.channel + 1);
    return track.channel == Track::kControlTrack ? "control track" : "no channel at its start";
}

std::string LengthText(double seconds)
{
    const auto whole = static_cast<long>(seconds);
    return fmt::format("{}:{:02} ({:.3f} s)", whole / 60, whole % 60, seconds);
}

} // namespace

std::string LoopText(const LoopInfo& loop)
{
    if (loop.type == LoopType::Off)
        return "off";
    std::string text =
        fmt::format("{} from {} to {}", LoopTypeWord(loop.type), Frames(loop.start), Frames(loop.end));
    if (loop.breakOnRelease)
        text += ", plays on at release";
    if (loop.pitch != 0)
        text += fmt::format(", {:+} semitones", loop.pitch);
    return text;
}

void AddInstrumentText(std::string& out, std::size_t number, const Instrument& instrument)
{
    const MidiLocation location = instrument.location;
    Add(out, "  {}. {} ({}bank {}/{}, program {})\n", number, Printable(instrument.GetName()),
        location.IsDrum() ? "drum kit, " : "", location.BankMsb(), location.BankLsb(), location.Program());
    for (const auto& [key, text] : ListTexts(instrument))
        Add(out, "     {}: {}\n", key, Printable(text));
    for (const ChannelFx& effect : instrument.channelFx)
        if (effect.type != ChannelFxType::None)
            Add(out, "     effect: {}\n", ChannelFxWord(effect.type));
    AddParams(out, 5, SetParams(instrument.articulation));
    for (const Layer* layer : instrument.Layers()) {
        Add(out, "     {}\n", Printable(layer->GetName()));
        AddParams(out, 7, SetParams(layer->articulation));
        for (const Region* region : layer->Regions())
            AddRegion(out, *region);
    }
}

void AddSongText(std::string& out, std::size_t number, const Song& song)
{
    const TempoMap tempo(song);
    Add(out, "  {}. {}\n", number, Printable(song.GetName()));
    Add(out, "     MIDI format {}, division {}, {:.4g} beats per minute{}, {}\n", song.format, song.division,
        tempo.FirstTempo(), tempo.Changes() > 1 ? " at the start" : "", LengthText(SongSeconds(song)));
    for (const auto& [key, text] : ListTexts(song))
        Add(out, "     {}: {}\n", key, Printable(text));
    for (std::size_t i = 0; i < song.Children().size(); ++i) {
        if (song.Child(i) == nullptr)
            continue;
        const auto& track = static_cast<const Track&>(*song.Child(i));
        Add(out, "     {}: {}, port {}, {} events\n", Printable(track.GetName()), ChannelText(track),
            track.port, track.EventCount());
    }
}

} // namespace vimbo::cli
