#include "synth/song_instruments.h"

#include "base/host.h"
#include "base/path.h"
#include "formats/open.h"
#include "model/collection.h"

#include <algorithm>
#include <array>

namespace vimbo::synth {
namespace {

constexpr std::u16string_view kNoGmBank =
    u"Could not open the default GM/GS collection!\nInstruments will be missing from the song.";

Instrument* FindExactly(const Collection& collection, std::uint32_t patch)
{
    for (Instrument& instrument : collection.All<Instrument>())
        if (instrument.location.word == patch)
            return &instrument;
    return nullptr;
}

void Put(SynthEngine& engine, const Instrument& instrument, std::uint32_t patch)
{
    auto compiled = CompileInstrument(instrument, engine.Samples());
    compiled->patch = patch;
    engine.PutInstrument(std::move(compiled));
}

/// Patches that the collection does not have stay in `missing`.
std::size_t PutFrom(SynthEngine& engine, const Collection& bank, std::vector<std::uint32_t>& missing)
{
    return std::erase_if(missing, [&](std::uint32_t patch) {
        const Instrument* found = FindNearestInstrument(bank, MidiLocation{patch});
        if (found)
            Put(engine, *found, patch);
        return found != nullptr;
    });
}

void PutFromGmBank(SynthEngine& engine, const InstrumentSources& sources, InstrumentChoice& choice)
{
    Host& host = sources.host ? *sources.host : SilentHost();
    host.SetStatus(u"Loading instruments...");
    const std::u16string path = sources.gmBank.empty() ? FindSystemGmBank() : sources.gmBank;
    Collection bank;
    bank.SetHost(host);
    if (path.empty() || !LoadFile(bank, path, AllowRaw::No)) {
        host.ShowMessage(kNoGmBank, u"Vimbo Studio", MessageIcon::Warning);
        return;
    }
    choice.gmBank = path;
    choice.gm = PutFrom(engine, bank, choice.missing);
}

} // namespace

Instrument* FindNearestInstrument(const Collection& collection, MidiLocation location)
{
    return FindFallingBack(location, [&](std::uint32_t patch) { return FindExactly(collection, patch); });
}

InstrumentChoice PutSongInstruments(SynthEngine& engine, const PreparedSong& song,
                                    const InstrumentSources& sources)
{
    InstrumentChoice choice;
    choice.missing = NeededPatches(song);
    if (sources.own)
        choice.own = std::erase_if(choice.missing, [&](std::uint32_t patch) {
            const Instrument* found = FindExactly(*sources.own, patch);
            if (found)
                Put(engine, *found, patch);
            return found != nullptr;
        });
    for (Collection* bank : sources.banks)
        choice.banks += PutFrom(engine, *bank, choice.missing);
    if (!choice.missing.empty() && sources.useGmBank)
        PutFromGmBank(engine, sources, choice);
    return choice;
}

std::u16string FindSystemGmBank()
{
    constexpr std::array kFolders = {u"/usr/local/share/sounds/sf2", u"/usr/local/share/sounds/sf3",
                                     u"/usr/share/sounds/sf2",       u"/usr/share/sounds/sf3",
                                     u"/usr/share/soundfonts",       u"/usr/share/midi/sf2"};
    // What the system's maintainer chose, then well-known names.
    constexpr std::array kNames = {u"default-GM.sf2",    u"default-GM.sf3", u"default.sf2",
                                   u"FluidR3_GM.sf2",    u"TimGM6mb.sf2",   u"MuseScore_General.sf3",
                                   u"GeneralUser-GS.sf2"};
    for (const auto* name : kNames)
        for (const auto* folder : kFolders) {
            const std::u16string path = std::u16string(folder) + u"/" + name;
            if (IsFile(path))
                return path;
        }
    return {};
}

} // namespace vimbo::synth
