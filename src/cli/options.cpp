#include "cli/options.h"

#include "app/setting_rows.h"
#include "cli/display.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <map>

namespace vimbo::cli {

namespace {

// The option parser takes arguments like "[Kicks]" and "{}" for lists. A mark in front keeps such file names
// whole.
constexpr char kLiteralMark = '\x01';

bool LooksLikeList(const std::string& argument)
{
    return argument.starts_with('[') || argument.starts_with('{') || argument.starts_with("%%");
}

bool LooksNegative(const std::string& argument)
{
    return argument.size() > 1 && argument[0] == '-' &&
           (std::isdigit(static_cast<unsigned char>(argument[1])) != 0);
}

/// True if the command takes numbers as arguments of their own, where "-1" would be an option.
bool TakesNumbers(const std::vector<std::string>& arguments)
{
    const auto command =
        std::ranges::find_if(arguments, [](const std::string& word) { return !word.starts_with('-'); });
    return command != arguments.end() && *command == "settings";
}

/// The arguments in the order that the parser wants: last first.
std::vector<std::string> ProtectedBackwards(const std::vector<std::string>& arguments)
{
    std::vector<std::string> protectedArguments(arguments.rbegin(), arguments.rend());
    const bool takesNumbers = TakesNumbers(arguments);
    for (std::string& argument : protectedArguments) {
        if (LooksLikeList(argument) || (takesNumbers && LooksNegative(argument)))
            argument.insert(argument.begin(), kLiteralMark);
    }
    return protectedArguments;
}

void Unprotect(std::string& text)
{
    if (text.starts_with(kLiteralMark))
        text.erase(0, 1);
}

void UnprotectAll(Options& options)
{
    for (std::string& file : options.info.files)
        Unprotect(file);
    for (std::string& input : options.convert.inputs)
        Unprotect(input);
    for (std::optional<std::string>* text :
         {&options.convert.output, &options.render.gmBank, &options.settings.value})
        if (*text)
            Unprotect(**text);
    for (std::string& word : options.convert.select)
        Unprotect(word);
    for (std::vector<std::string>* words :
         {&options.render.banks, &options.render.select, &options.verify.select})
        for (std::string& word : *words)
            Unprotect(word);
    for (std::string* text :
         {&options.convert.type, &options.convert.dataFormat, &options.formats.extension,
          &options.render.input, &options.render.output, &options.render.dataFormat, &options.verify.first,
          &options.verify.second, &options.settings.key, &options.settings.reset})
        Unprotect(*text);
}

void AddLoudness(CLI::App& app, Options& options)
{
    app.add_flag("-q,--quiet", options.quiet, "Show errors only");
    app.add_flag("-v,--verbose", options.verbose, "Tell what is done with each file");
}

void AddAnswers(CLI::App& command, ReadAnswers& answers)
{
    command.add_flag("--raw", answers.raw, "Read unrecognised files as raw 8-bit samples");
    command
        .add_option("--bit-packing", answers.bitPacking,
                    "How headerless speech codes lie in their bytes: big (default) or little endian")
        ->type_name("ORDER")
        ->check(CLI::IsMember({"big", "little"}).description(""));
    command
        .add_option("--code-bits", answers.codeBits,
                    "Width of speech codes where the file's name leaves it open (default: the most common)")
        ->type_name("N")
        ->check(CLI::Range(2, 8).description(""));
}

CLI::App* AddInfo(CLI::App& app, Options& options)
{
    CLI::App* info = app.add_subcommand("info", "Show what files contain");
    info->add_option("FILE", options.info.files, "Files to look into")->required()->option_text("...");
    info->add_flag("--json", options.info.json, "Print one JSON array with an object per file");
    AddAnswers(*info, options.info.answers);
    AddLoudness(*info, options);
    info->footer("Examples:\n"
                 "  vimbo info kick.wav\n"
                 "  vimbo info --json samples/*.wav | jq '.[].waveforms[].loop'");
    return info;
}

void AddConvertTarget(CLI::App& convert, ConvertOptions& options)
{
    static const std::map<std::string, ChannelWish> kWishes{
        {"auto", ChannelWish::Auto}, {"mono", ChannelWish::Mono}, {"stereo", ChannelWish::Stereo}};
    convert
        .add_option("-t,--type", options.type, "Format to write: an extension, a row number, or ext:words")
        ->required()
        ->type_name("TYPE");
    convert
        .add_option("-o,--output", options.output, "Folder or file to write to (default: beside each input)")
        ->type_name("DIR_OR_FILE");
    convert
        .add_option("--data-format", options.dataFormat,
                    "Encoding of the samples, such as \"PCM 24-bit\" or pcm24")
        ->type_name("NAME");
    convert
        .add_option_function<std::string>(
            "--channels", [&options](const std::string& word) { options.channels = kWishes.at(word); },
            "Average stereo to mono, or put mono into both channels")
        ->check(CLI::IsMember({"auto", "mono", "stereo"}).description(""))
        ->type_name("auto|mono|stereo");
    convert
        .add_option("--kbit", options.kbit,
                    "Bit rate of compressed formats in kbit/s, or their quality where they go by that")
        ->type_name("N")
        ->check(CLI::Range(0.01, 10000.0).description(""));
}

void AddBankOptions(CLI::App& convert, ConvertOptions& options)
{
    convert
        .add_option(
            "--select", options.select,
            "Take only the instruments, waveforms or songs of this name (* and ? match any text) or number")
        ->type_name("NAME_OR_NUMBER");
    convert.add_flag("--merge", options.merge,
                     "Put all inputs into one output file; samples that several refer to are kept once");
    convert
        .add_option(
            "--name-mode", options.nameMode,
            "Names of the files of one bank: base-number, number-base, base-name, name, number-name, source, "
            "program (default: base, number and name)")
        ->type_name("MODE")
        ->check(CLI::IsMember(
                    {"base-number", "number-base", "base-name", "name", "number-name", "source", "program"})
                    .description(""));
    convert.add_flag("--report", options.report, "Tell what was kept, approximated and lost");
}

CLI::App* AddConvert(CLI::App& app, Options& all)
{
    ConvertOptions& options = all.convert;
    CLI::App* convert = app.add_subcommand("convert", "Convert files and whole folders to another format");
    convert->add_option("INPUT", options.inputs, "Files, and folders whose files are all converted")
        ->required()
        ->option_text("...");
    AddConvertTarget(*convert, options);
    CLI::Option* force = convert->add_flag("--force", options.force, "Replace files that exist");
    convert->add_flag("--no-clobber", options.noClobber, "Leave files that exist alone, without an error")
        ->excludes(force);
    convert
        ->add_option("-j,--jobs", options.jobs, "How many files to convert side by side (default: all cores)")
        ->type_name("N")
        ->check(CLI::Range(1, 1024).description(""));
    AddBankOptions(*convert, options);
    convert->add_flag("-n,--dry-run", options.dryRun, "Only tell what would be written");
    convert->add_flag("--json", options.json, "Print a JSON array with a report per file");
    AddAnswers(*convert, options.answers);
    AddLoudness(*convert, all);
    convert->footer("Examples:\n"
                    "  vimbo convert kick.wav -t sw\n"
                    "  vimbo convert samples/ -t wav --data-format pcm24 -o converted/\n"
                    "  vimbo convert *.wav -t sw:big -o words/ --channels mono\n"
                    "  vimbo convert dump.bin --raw -t wav -o dump.wav\n"
                    "  vimbo convert bank.sf2 -t sf3 --report\n"
                    "  vimbo convert bank.sf2 -t flac -o bank/ --name-mode name --select 'Grand*'\n"
                    "  vimbo convert instruments/*.sfz -t sf2 --merge -o bank.sf2\n"
                    "\nSongs become waveforms as the settings mid2wav.* say, synthesis models as sy2wt.*;\n"
                    "\"vimbo settings\" shows and changes them. No other setting changes a conversion.");
    return convert;
}

/// The limits of a setting, for the option that takes its place.
CLI::Validator LimitsOf(app::SettingKey<std::int64_t> key)
{
    const app::SettingRow& row = app::kSettingRows[key.Row()];
    return CLI::Range(row.least, row.most).description("");
}

struct SwitchText {
    const char* name;
    const char* help;
};

/// Two switches for one decision; without either the setting decides.
void AddSwitches(CLI::App& command, std::optional<bool>& decision, SwitchText yes, SwitchText no)
{
    CLI::Option* on = command.add_flag_callback(
        yes.name, [&decision] { decision = true; }, yes.help);
    command
        .add_flag_callback(
            no.name, [&decision] { decision = false; }, no.help)
        ->excludes(on);
}

void AddRenderSound(CLI::App& render, RenderOptions& options)
{
    render
        .add_option("--rate", options.rateHz,
                    "Sample rate in Hz (default: setting mid2wav.dwSampleRate, 48000 unless set)")
        ->type_name("HZ")
        ->check(LimitsOf("mid2wav.dwSampleRate"));
    render
        .add_option("--polyphony", options.polyphony,
                    "Notes that may sound together (default: setting mid2wav.iMaxPolyphony, 128 unless set)")
        ->type_name("N")
        ->check(LimitsOf("mid2wav.iMaxPolyphony"));
    AddSwitches(render, options.effects,
                {"--effects",
                 "With reverb, chorus and all other effects (default: setting mid2wav.bEffects, with "
                 "unless set)"},
                {"--no-effects", "Without them"});
    AddSwitches(render, options.normalize,
                {"--normalize",
                 "Make the loudest sample full scale (default: setting mid2wav.bNormalizePeak, full "
                 "scale unless set)"},
                {"--no-normalize", "Keep the level as it is played"});
    AddSwitches(render, options.trimSilence,
                {"--trim-silence",
                 "Trim silence at both ends (default: setting mid2wav.bDeleteSilence, trimmed unless set)"},
                {"--keep-silence", "Do not trim it"});
    render
        .add_option("--tail", options.tailSeconds,
                    "How long notes may ring on behind the last event (default: 30; 0 cuts there)")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, 3600.0).description(""));
    render
        .add_option("--data-format", options.dataFormat, "Encoding of the samples, such as pcm24 or float32")
        ->type_name("NAME");
    render.add_option("-j,--jobs", options.jobs, "Threads to render with (default: all cores)")
        ->type_name("N")
        ->check(CLI::Range(1, 1024).description(""));
}

CLI::App* AddRender(CLI::App& app, Options& all)
{
    RenderOptions& options = all.render;
    CLI::App* render = app.add_subcommand("render", "Play songs, or a note of an instrument, into a file");
    render->add_option("FILE", options.input, "A song; with --note a bank or instrument")
        ->required()
        ->option_text(" ");
    render->add_option("-o,--output", options.output, "File to write; its extension chooses the format")
        ->required()
        ->type_name("FILE");
    render
        ->add_option("-b,--bank", options.banks,
                     "Take instruments that the song does not bring along from this bank (may be repeated)")
        ->type_name("BANK");
    render
        ->add_option_function<std::string>(
            "--gm-bank", [&options](const std::string& bank) { options.gmBank = bank; },
            "The bank for all other instruments (default: setting mid2wav.wszGMBank, the first General MIDI "
            "bank of the system unless set; \"\" means that one)")
        ->type_name("BANK");
    AddRenderSound(*render, options);
    render->add_flag("--stems", options.stems, "Write one file per MIDI channel");
    render->add_option("--note", options.note, "Play this key (0 to 127) of an instrument instead of songs")
        ->type_name("KEY")
        ->check(CLI::Range(0, 127).description(""));
    render->add_option("--velocity", options.velocity, "How hard the key is struck, 1 to 127 (default: 100)")
        ->type_name("N")
        ->check(CLI::Range(1, 127).description(""));
    render->add_option("--seconds", options.seconds, "Length of the note's file (default: 2)")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.01, 3600.0).description(""));
    render
        ->add_option("--hold", options.holdSeconds, "How long the key is held (default: half of the length)")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, 3600.0).description(""));
    render->add_option("--select", options.select, "The songs, or the instrument, of this name or number")
        ->type_name("NAME_OR_NUMBER");
    render->add_flag("--force", options.force, "Replace files that exist");
    AddLoudness(*render, all);
    render->footer("Examples:\n"
                   "  vimbo render song.mid -o song.wav\n"
                   "  vimbo render song.mid -b piano.sf2 --rate 44100 -o song.flac\n"
                   "  vimbo render song.mid --stems -o stems.wav\n"
                   "  vimbo render bank.sf2 --note 60 --seconds 4 --select 'Grand*' -o c4.wav\n"
                   "\n\"vimbo settings\" shows and changes the settings.");
    return render;
}

CLI::App* AddVerify(CLI::App& app, Options& all)
{
    VerifyOptions& options = all.verify;
    CLI::App* verify =
        app.add_subcommand("verify", "Play the instruments of two banks and tell how far they differ");
    verify->add_option("A", options.first, "The bank that is taken as right")->required()->option_text(" ");
    verify->add_option("B", options.second, "The bank to judge")->required()->option_text(" ");
    verify->add_option("--keys", options.keys, "Keys to play, such as 36,60,84 (default: every octave)")
        ->delimiter(',')
        ->type_name("KEYS")
        ->check(CLI::Range(0, 127).description(""));
    verify->add_option("--velocities", options.velocities, "Velocities to play (default: 40,80,127)")
        ->delimiter(',')
        ->type_name("VELOCITIES")
        ->check(CLI::Range(1, 127).description(""));
    verify->add_option("--select", options.select, "Only instruments of A of this name or number")
        ->type_name("NAME_OR_NUMBER");
    verify->add_option("--limit-level", options.limitLevelDb, "Fail if a level differs by more than this")
        ->type_name("DB")
        ->check(CLI::Range(0.0, 200.0).description(""));
    verify->add_option("--limit-pitch", options.limitPitchCents, "Fail if a pitch differs by more than this")
        ->type_name("CENTS")
        ->check(CLI::Range(0.0, 12800.0).description(""));
    verify->add_flag("--json", options.json, "Print a JSON array with an object per instrument");
    AddLoudness(*verify, all);
    verify->footer("Examples:\n"
                   "  vimbo verify bank.sf2 bank.dls\n"
                   "  vimbo verify old.sf2 new.sf2 --keys 60,72 --limit-level 0.5");
    return verify;
}

CLI::App* AddFormats(CLI::App& app, Options& all)
{
    FormatsOptions& options = all.formats;
    CLI::App* formats = app.add_subcommand("formats", "List the file formats");
    formats->add_option("EXT", options.extension, "Only formats with this extension")->option_text(" ");
    formats->add_flag("--read", options.read, "Only formats that can be read");
    formats->add_flag("--write", options.write, "Only formats that can be written");
    CLI::Option* json =
        formats->add_flag("--json", options.json, "Print a JSON array with an object per format");
    formats->add_flag("--markdown", options.markdown, "Print the format list of the documentation")
        ->excludes(json);
    AddLoudness(*formats, all);
    formats->footer("Examples:\n"
                    "  vimbo formats --write\n"
                    "  vimbo formats wav\n"
                    "  vimbo formats --json | jq '.[] | select(.read) | .extension'");
    return formats;
}

CLI::App* AddSettings(CLI::App& app, Options& all)
{
    SettingsOptions& options = all.settings;
    CLI::App* settings = app.add_subcommand("settings", "Show and change the user's settings");
    CLI::Option* key = settings->add_option("KEY", options.key, "Show this one only")->option_text(" ");
    settings
        ->add_option_function<std::string>(
            "VALUE", [&options](const std::string& value) { options.value = value; }, "Set it to this")
        ->option_text(" ");
    settings->add_option("--reset", options.reset, "Give this setting, or all, its default")
        ->type_name("KEY|all")
        ->excludes(key);
    settings->add_flag("--all", options.all, "List also the settings that are not used yet");
    settings->add_flag("--json", options.json, "Print a JSON array with an object per setting");
    AddLoudness(*settings, all);
    settings->footer(
        "The file is $XDG_CONFIG_HOME/vimbo-studio/settings.toml (~/.config/vimbo-studio/\n"
        "settings.toml), or what VIMBO_SETTINGS names. If that is empty, there is none, and all\n"
        "settings have their defaults.\n"
        "\nExamples:\n"
        "  vimbo settings\n"
        "  vimbo settings mid2wav.dwSampleRate 44100\n"
        "  vimbo settings mid2wav.wszGMBank ~/banks/gm.sf2\n"
        "  vimbo settings --reset all");
    return settings;
}

/// Sends the parser's help or complaint to where it belongs.
int Answer(const CLI::App& app, const CLI::ParseError& error)
{
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
        const int status = app.exit(error);
        return std::fflush(stdout) == 0 ? status : kExitFailed;
    }
    std::string message = error.what();
    std::erase(message, kLiteralMark);
    fmt::print(stderr, "vimbo: {}\n", Printable(message));
    const auto used = app.get_subcommands();
    fmt::print(stderr, "Try \"vimbo {}--help\".\n", used.empty() ? "" : used.front()->get_name() + " ");
    return kExitUsage;
}

} // namespace

std::optional<int> ParseCommandLine(const std::vector<std::string>& arguments, Options& options)
{
    CLI::App app("Shows and converts samples, instruments and songs of samplers, trackers and synthesizers.",
                 "vimbo");
    app.set_version_flag("-V,--version", "vimbo " VIMBO_VERSION, "Print the version and exit");
    AddLoudness(app, options);
    app.require_subcommand(0, 1);
    const CLI::App* info = AddInfo(app, options);
    const CLI::App* convert = AddConvert(app, options);
    const CLI::App* render = AddRender(app, options);
    const CLI::App* verify = AddVerify(app, options);
    const CLI::App* formats = AddFormats(app, options);
    const CLI::App* settings = AddSettings(app, options);
    app.footer("Examples:\n"
               "  vimbo info kick.wav\n"
               "  vimbo convert samples/ -t wav -o converted/\n"
               "  vimbo formats --write\n"
               "\n\"vimbo COMMAND --help\" tells more about a command.");
    try {
        app.parse(ProtectedBackwards(arguments));
    } catch (const CLI::ParseError& error) {
        return Answer(app, error);
    }
    UnprotectAll(options);
    if (info->parsed())
        options.command = Command::Info;
    else if (convert->parsed())
        options.command = Command::Convert;
    else if (render->parsed())
        options.command = Command::Render;
    else if (verify->parsed())
        options.command = Command::Verify;
    else if (formats->parsed())
        options.command = Command::Formats;
    else if (settings->parsed())
        options.command = Command::Settings;
    if (options.command != Command::None)
        return std::nullopt;
    fmt::print(stderr, "{}", app.help());
    return kExitUsage;
}

} // namespace vimbo::cli
