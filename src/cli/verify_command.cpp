// How far two banks differ by ear.
#include "cli/cli_host.h"
#include "cli/commands.h"
#include "cli/display.h"
#include "cli/interrupt.h"
#include "cli/report_json.h"
#include "cli/selection.h"

#include "base/last_error.h"
#include "base/text.h"
#include "formats/open.h"
#include "synth/bank_compare.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace vimbo::cli {
namespace {

using synth::ComparedInstrument;
using synth::NoteDifference;

double PitchOf(const NoteDifference& difference)
{
    return difference.pitchCents.value_or(0);
}

/// The greatest differences of an instrument's notes.
struct Worst {
    explicit Worst(const ComparedInstrument& instrument)
        : level(instrument.Worst([](const NoteDifference& d) { return d.levelDb; })),
          pitch(instrument.Worst(PitchOf)),
          brightness(instrument.Worst([](const NoteDifference& d) { return d.brightnessOctaves; })),
          balance(instrument.Worst([](const NoteDifference& d) { return d.balanceDb; })),
          attack(instrument.Worst([](const NoteDifference& d) { return d.attackSeconds; })),
          release(instrument.Worst([](const NoteDifference& d) { return d.releaseSeconds; })),
          envelope(instrument.Worst([](const NoteDifference& d) { return d.envelopeDb; })),
          silent(static_cast<std::size_t>(
              std::ranges::count_if(instrument.notes, [](const synth::ComparedNote& note) {
                  return note.difference.isSilentInOne;
              })))
    {
    }
    double level, pitch, brightness, balance, attack, release, envelope;
    std::size_t silent; ///< notes that only one of the banks plays
};

std::string LocationText(MidiLocation location)
{
    return fmt::format("{}{}:{}:{}", location.IsDrum() ? "d" : "", location.BankMsb(), location.BankLsb(),
                       location.Program());
}

std::string LineOf(const ComparedInstrument& instrument)
{
    const std::string name = Printable(instrument.nameA);
    if (instrument.isMissing)
        return fmt::format("{:<10} {:<24.24} missing\n", LocationText(instrument.location), name);
    if (instrument.notes.empty())
        return fmt::format("{:<10} {:<24.24} silent in both\n", LocationText(instrument.location), name);
    const Worst worst(instrument);
    std::string line =
        fmt::format("{:<10} {:<24.24} {:>8.3f} {:>8.2f} {:>8.3f} {:>8.2f} {:>7.0f} {:>8.0f} {:>8.2f}",
                    LocationText(instrument.location), name, worst.level, worst.pitch, worst.brightness,
                    worst.balance, worst.attack * 1000, worst.release * 1000, worst.envelope);
    if (worst.silent != 0)
        line += fmt::format("  {} of {} notes sound in one only", worst.silent, instrument.notes.size());
    return line + "\n";
}

Json JsonOf(const ComparedInstrument& instrument)
{
    Json json;
    json["bankMsb"] = instrument.location.BankMsb();
    json["bankLsb"] = instrument.location.BankLsb();
    json["program"] = instrument.location.Program();
    json["drum"] = instrument.location.IsDrum();
    json["name"] = WideToUtf8(instrument.nameA);
    json["missing"] = instrument.isMissing;
    if (instrument.isMissing)
        return json;
    json["otherName"] = WideToUtf8(instrument.nameB);
    json["notes"] = Json::array();
    for (const synth::ComparedNote& note : instrument.notes) {
        const NoteDifference& difference = note.difference;
        Json entry{{"key", note.key}, {"velocity", note.velocity}, {"levelDb", difference.levelDb}};
        if (difference.isSilentInOne) {
            entry["silentInOne"] = true;
        } else {
            entry["pitchCents"] = difference.pitchCents ? Json(*difference.pitchCents) : Json(nullptr);
            entry["brightnessOctaves"] = difference.brightnessOctaves;
            entry["balanceDb"] = difference.balanceDb;
            entry["attackSeconds"] = difference.attackSeconds;
            entry["releaseSeconds"] = difference.releaseSeconds;
            entry["envelopeDb"] = difference.envelopeDb;
        }
        json["notes"].push_back(std::move(entry));
    }
    return json;
}

bool Load(Collection& collection, CliHost& host, const std::string& path, Console& console)
{
    collection.SetHost(host);
    ClearLastError();
    const bool good = LoadFile(collection, PathToWide(path), AllowRaw::No);
    for (const HostMessage& message : host.TakeMessages())
        console.Say(message.severity, path, message.text);
    if (!good)
        console.Say(Severity::Error, path, Printable(LastError()));
    return good;
}

std::string TableOf(const std::vector<ComparedInstrument>& results)
{
    std::string text =
        fmt::format("{:<10} {:<24} {:>8} {:>8} {:>8} {:>8} {:>7} {:>8} {:>8}\n", "location", "name",
                    "level dB", "cents", "octaves", "balance", "att. ms", "rel. ms", "env. dB");
    std::vector<double> levels;
    for (const ComparedInstrument& result : results) {
        text += LineOf(result);
        for (const synth::ComparedNote& note : result.notes)
            if (!note.difference.isSilentInOne)
                levels.push_back(std::abs(note.difference.levelDb));
    }
    std::ranges::sort(levels);
    if (!levels.empty())
        text += fmt::format(
            "{} instruments, {} notes; level difference: median {:.3f} dB, 95 % within {:.3f} dB, "
            "greatest {:.3f} dB\n",
            results.size(), levels.size(), levels[levels.size() / 2], levels[levels.size() * 95 / 100],
            levels.back());
    return text;
}

bool IsBeyond(const ComparedInstrument& result, const VerifyOptions& options)
{
    const bool hasLimit = options.limitLevelDb >= 0 || options.limitPitchCents >= 0;
    const Worst worst(result);
    return (hasLimit && (result.isMissing || worst.silent != 0)) ||
           (options.limitLevelDb >= 0 && std::abs(worst.level) > options.limitLevelDb) ||
           (options.limitPitchCents >= 0 && std::abs(worst.pitch) > options.limitPitchCents);
}

} // namespace

int RunVerify(const VerifyOptions& options, Console& console)
{
    CliHost host(console, 0, {});
    Collection first, second;
    if (!Load(first, host, options.first, console) || !Load(second, host, options.second, console))
        return kExitFailed;
    const auto unmatched = KeepSelected(first, options.select, ItemKind::Instrument);
    if (!unmatched.empty() || first.CountOf(ItemKind::Instrument) == 0) {
        console.Say(Severity::Error, options.first,
                    unmatched.empty() ? "There is no instrument in it"
                                      : "Nothing in it is called \"" + unmatched.front() + "\"");
        return kExitFailed;
    }
    synth::CompareGrid grid;
    grid.keys = options.keys;
    if (!options.velocities.empty())
        grid.velocities = options.velocities;
    console.StartProgress(1);
    const auto results = synth::CompareBanks(first, second, grid, [&console](double fraction) {
        console.SetProgress(0, fraction);
        return IsInterrupted();
    });
    console.EndProgress();
    Json list = Json::array();
    if (options.json)
        for (const ComparedInstrument& result : results)
            list.push_back(JsonOf(result));
    const bool written = WriteOut(options.json ? ToText(list) : TableOf(results));
    const bool good = std::ranges::none_of(
        results, [&options](const ComparedInstrument& result) { return IsBeyond(result, options); });
    return written && good && !IsInterrupted() ? kExitGood : kExitFailed;
}

} // namespace vimbo::cli
