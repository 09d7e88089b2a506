// Songs and single notes as sound.
#include "cli/cli_host.h"
#include "cli/commands.h"
#include "cli/convert_plan.h"
#include "cli/display.h"
#include "cli/format_lookup.h"
#include "cli/interrupt.h"
#include "cli/selection.h"
#include "cli/user_settings.h"

#include "app/render_settings.h"
#include "base/last_error.h"
#include "base/path.h"
#include "base/text.h"
#include "formats/open.h"
#include "formats/save.h"
#include "model/instrument.h"
#include "model/song.h"
#include "synth/song_renderer.h"

#include <fmt/format.h>

#include <chrono>
#include <deque>
#include <filesystem>

namespace vimbo::cli {

namespace fs = std::filesystem;

namespace {

/// One run of the command.
class RenderJob {
public:
    RenderJob(const RenderOptions& options, Console& console)
        : options_(options), console_(console), host_(console, 0, {}),
          settings_(app::SongRendering(LoadUserSettings(console)))
    {
        settings_.rateHz = options.rateHz.value_or(settings_.rateHz);
        settings_.polyphony = options.polyphony.value_or(settings_.polyphony);
        settings_.effects = options.effects.value_or(settings_.effects);
        settings_.normalizePeak = options.normalize.value_or(settings_.normalizePeak);
        settings_.trimSilence = options.trimSilence.value_or(settings_.trimSilence);
        settings_.threads = options.jobs;
        settings_.tailSeconds = options.tailSeconds;
        if (options.gmBank)
            settings_.gmBank = PathToWide(*options.gmBank);
    }

    int Run()
    {
        const TypeLookup type = FindType(OutputType());
        if (!type.error.empty())
            return Complain("", type.error, kExitUsage);
        row_ = type.row;
        if ((FindRow(row_)->kinds & kKindWave) == 0)
            return Complain("", "sound cannot be written as " + NameRow(row_), kExitUsage);
        const ChoiceLookup choice = MakeChoice(row_, options_.dataFormat, ChannelWish::Auto, 0);
        if (!choice.error.empty())
            return Complain("", choice.error, kExitUsage);
        choice_ = choice.choice;
        if (!Load(collection_, options_.input))
            return Complain(options_.input, ErrorText());
        for (const std::string& bank : options_.banks)
            if (!Load(banks_.emplace_back(), bank))
                return Complain(bank, ErrorText());
        const bool isNote = options_.note >= 0;
        const std::vector<std::string> unmatched =
            KeepSelected(collection_, options_.select, isNote ? ItemKind::Instrument : ItemKind::Song);
        if (!unmatched.empty())
            return Complain(options_.input, "Nothing in it is called \"" + unmatched.front() + "\"");
        console_.StartProgress(1);
        const int status = isNote ? RenderAudition() : RenderSongs();
        console_.EndProgress();
        PrintMessages();
        return status;
    }

private:
    std::string OutputType() const
    {
        const std::string extension = fs::path(options_.output).extension().native();
        return extension.empty() ? "wav" : extension.substr(1);
    }

    bool Load(Collection& collection, const std::string& path)
    {
        collection.SetHost(host_);
        ClearLastError();
        return LoadFile(collection, PathToWide(path), AllowRaw::No);
    }

    static std::string ErrorText()
    {
        const std::string text = Printable(LastError());
        return text.empty() ? "Unknown error" : text;
    }

    int Complain(const std::string& file, const std::string& error, int status = kExitFailed)
    {
        PrintMessages();
        console_.Say(Severity::Error, file, error);
        return status;
    }

    void PrintMessages()
    {
        for (const HostMessage& message : host_.TakeMessages())
            console_.Say(message.severity, options_.input, message.text);
    }

    int RenderSongs()
    {
        std::vector<Item*> songs;
        for (Song* song : collection_.List<Song>())
            songs.push_back(song);
        if (songs.empty())
            return Complain(options_.input, "There is no song in it; --note plays its instruments");
        for (std::size_t i = 0; i < songs.size(); ++i) {
            const fs::path output =
                songs.size() == 1 ? fs::path(options_.output)
                                  : NumberedOutput(options_.output, i, songs.size(), songs[i]->GetName());
            const bool good = options_.stems ? RenderStems(*songs[i], output) : RenderOne(*songs[i], output);
            if (!good)
                return kExitFailed;
        }
        return kExitGood;
    }

    synth::InstrumentSources Sources()
    {
        bankPointers_.clear();
        for (Collection& bank : banks_)
            bankPointers_.push_back(&bank);
        synth::InstrumentSources sources;
        sources.banks = bankPointers_;
        return sources;
    }

    /// Renders and tells what became of it; nothing in `result.wave` if that is all.
    synth::RenderResult Render(Item& song, const synth::RenderSettings& settings, synth::ScratchFile& scratch,
                               int channel = synth::kAllChannels)
    {
        ClearLastError();
        const auto start = std::chrono::steady_clock::now();
        synth::RenderResult result = synth::RenderSong(song, settings, Sources(), scratch, channel);
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
        switch (result.end) {
        case synth::RenderEnd::NoNotes:
            Complain(options_.input, "No notes to render!");
            break;
        case synth::RenderEnd::Aborted:
            Complain(options_.input, "Rendered aborted!");
            break;
        case synth::RenderEnd::Failed:
            Complain(options_.input, ErrorText());
            break;
        case synth::RenderEnd::Done:
            Report(result, took.count());
            break;
        }
        return result;
    }

    void Report(const synth::RenderResult& result, double took)
    {
        const synth::InstrumentChoice& choice = result.instruments;
        for (const std::uint32_t patch : choice.missing) {
            const MidiLocation location{patch};
            console_.Say(Severity::Note, options_.input,
                         fmt::format("no instrument for {} {} of bank {}:{}",
                                     location.IsDrum() ? "drum kit" : "program", location.Program() + 1,
                                     location.BankMsb(), location.BankLsb()));
        }
        if (result.clipped)
            console_.Say(Severity::Note, options_.input, "clipped; --normalize prevents that");
        console_.Say(Severity::Detail, options_.input,
                     fmt::format("{:.1f} s rendered in {:.2f} s, up to {} voices; instruments: {} own, {} of "
                                 "the banks, {} of {}",
                                 result.seconds, took, result.mostVoices, choice.own, choice.banks, choice.gm,
                                 choice.gmBank.empty() ? "no default bank" : Printable(choice.gmBank)));
    }

    bool RenderOne(Item& song, const fs::path& output)
    {
        synth::ScratchFile scratch;
        const synth::RenderResult result = Render(song, settings_, scratch);
        return result.wave != nullptr && Save(*result.wave, output);
    }

    /// One file per channel, all as loud as in the whole song and aligned with it.
    bool RenderStems(Item& song, const fs::path& output)
    {
        synth::RenderSettings settings = settings_;
        settings.trimSilence = false;
        if (settings.normalizePeak) {
            synth::ScratchFile scratch;
            const synth::RenderResult whole = Render(song, settings, scratch);
            if (!whole.wave)
                return false;
            settings.gain = whole.peak > 0 ? 1 / whole.peak : 1;
            settings.normalizePeak = false;
            collection_.Destroy(whole.wave->Handle());
        }
        for (const int channel : synth::ChannelsWithNotes(song)) {
            synth::ScratchFile scratch;
            const synth::RenderResult stem = Render(song, settings, scratch, channel);
            if (!stem.wave)
                return false;
            fs::path path = output;
            path.replace_filename(fmt::format("{}-ch{:02}{}", output.stem().native(), channel + 1,
                                              output.extension().native()));
            const bool good = Save(*stem.wave, path);
            collection_.Destroy(stem.wave->Handle());
            if (!good)
                return false;
        }
        return true;
    }

    int RenderAudition()
    {
        const std::vector<Instrument*> instruments = collection_.List<Instrument>();
        if (instruments.empty())
            return Complain(options_.input, "There is no instrument in it");
        synth::ScratchFile scratch;
        const synth::Audition note{static_cast<unsigned>(options_.note), options_.velocity,
                                   options_.holdSeconds >= 0 ? options_.holdSeconds : options_.seconds / 2,
                                   options_.seconds};
        ClearLastError();
        Waveform* const wave = synth::RenderNote(*instruments.front(), note, settings_, scratch);
        if (!wave)
            return Complain(options_.input, ErrorText());
        console_.Say(Severity::Detail, options_.input,
                     fmt::format("key {}, velocity {} of {}", note.key, note.velocity,
                                 Printable(instruments.front()->GetName())));
        return Save(*wave, options_.output) ? kExitGood : kExitFailed;
    }

    bool Save(Waveform& wave, const fs::path& output)
    {
        std::error_code error;
        if (!options_.force && fs::exists(output, error)) {
            Complain("", Printable(output.native()) + " exists; --force replaces it");
            return false;
        }
        if (SaveToPath(&wave, PathToWide(output.native()), row_, choice_))
            return true;
        Complain(output.native(), ErrorText());
        return false;
    }

    const RenderOptions& options_;
    Console& console_;
    CliHost host_;
    synth::RenderSettings settings_;
    Collection collection_;
    std::deque<Collection> banks_;
    std::vector<Collection*> bankPointers_;
    int row_ = -1;
    FormatChoice choice_;
};

} // namespace

int RunRender(const RenderOptions& options, Console& console)
{
    return RenderJob(options, console).Run();
}

} // namespace vimbo::cli
