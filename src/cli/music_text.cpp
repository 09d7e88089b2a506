#include "cli/music_text.h"

#include "base/numeric.h"
#include "cli/display.h"
#include "cli/music_json.h"
#include "cli/report_json.h"
#include "model/song_analysis.h"
#include "model/synth_model.h"
#include "model/waveform.h"

#include <fmt/format.h>

#include <iterator>

namespace vimbo::cli {

namespace {

template <class... Args>
void Print(std::string& out, fmt::format_string<Args...> format, Args&&... args)
{
    fmt::format_to(std::back_inserter(out), format, std::forward<Args>(args)...);
}

void PutPart(std::string& out, std::string_view text)
{
    out += text;
}
void PutPart(std::string& out, unsigned number)
{
    out += fmt::format_int(number).c_str();
}
/// Appends texts and numbers one after another: large banks have ten thousands of such lines.
template <class... Parts>
void Put(std::string& out, const Parts&... parts)
{
    (PutPart(out, parts), ...);
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

void MusicText::AddParams(std::string_view indent, const std::vector<ShownParam>& params)
{
    for (const ShownParam& param : params)
        Put(out_, indent, paramTexts_.Of(param), "\n");
}

void MusicText::AddRegion(const Region& region)
{
    const TriggerParams& trigger = region.trigger;
    const unsigned rootKey = region.EffectiveRootKey();
    Put(out_, "       ", KeysText(trigger.keys), ", velocity ", trigger.velocities.low, "..",
        trigger.velocities.high, ": ", SoundText(region), ", root key ", rootKey, " (",
        NoteName(static_cast<int>(rootKey)), ")", OverridesText(region), "\n");
    AddParams("         ", TriggerValues(trigger));
    AddParams("         ", SetParams(region.articulation));
}

void MusicText::Add(std::size_t number, const Instrument& instrument)
{
    const MidiLocation location = instrument.location;
    Print(out_, "  {}. {} ({}bank {}/{}, program {})\n", number, Printable(instrument.GetName()),
          location.IsDrum() ? "drum kit, " : "", location.BankMsb(), location.BankLsb(), location.Program());
    for (const auto& [key, text] : ListTexts(instrument))
        Put(out_, "     ", key, ": ", Printable(text), "\n");
    for (const ChannelFx& effect : instrument.channelFx)
        if (effect.type != ChannelFxType::None)
            Put(out_, "     effect: ", ChannelFxWord(effect.type), "\n");
    AddParams("     ", SetParams(instrument.articulation));
    for (const Layer* layer : instrument.Layers()) {
        Put(out_, "     ", Printable(layer->GetName()), "\n");
        AddParams("       ", SetParams(layer->articulation));
        for (const Region* region : layer->Regions())
            AddRegion(*region);
    }
}

void MusicText::Add(std::size_t number, const Song& song)
{
    const TempoMap tempo(song);
    Print(out_, "  {}. {}\n", number, Printable(song.GetName()));
    Print(out_, "     MIDI format {}, division {}, {:.4g} beats per minute{}, {}\n", song.format,
          song.division, tempo.FirstTempo(), tempo.Changes() > 1 ? " at the start" : "",
          LengthText(SongSeconds(song)));
    for (const auto& [key, text] : ListTexts(song))
        Print(out_, "     {}: {}\n", key, Printable(text));
    for (std::size_t i = 0; i < song.Children().size(); ++i) {
        if (song.Child(i) == nullptr)
            continue;
        const auto& track = static_cast<const Track&>(*song.Child(i));
        Print(out_, "     {}: {}, port {}, {} events\n", Printable(track.GetName()), ChannelText(track),
              track.port, track.EventCount());
    }
}

} // namespace vimbo::cli
