#include "cli/options.h"

#include "cli/display.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
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

/// The arguments in the order that the parser wants: last first.
std::vector<std::string> ProtectedBackwards(const std::vector<std::string>& arguments)
{
    std::vector<std::string> protectedArguments(arguments.rbegin(), arguments.rend());
    for (std::string& argument : protectedArguments) {
        if (LooksLikeList(argument))
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
    if (options.convert.output)
        Unprotect(*options.convert.output);
    for (std::string& word : options.convert.select)
        Unprotect(word);
    for (std::string* text : {&options.convert.type, &options.convert.dataFormat, &options.formats.extension})
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
                    "  vimbo convert bank.sf2 -t flac -o bank/ --name-mode name --select 'Grand*'");
    return convert;
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
    const CLI::App* formats = AddFormats(app, options);
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
    else if (formats->parsed())
        options.command = Command::Formats;
    if (options.command != Command::None)
        return std::nullopt;
    fmt::print(stderr, "{}", app.help());
    return kExitUsage;
}

} // namespace vimbo::cli
