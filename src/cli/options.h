// The command line as data: what the user asked for, and the parser that finds out.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace vimbo::cli {

/// Exit status of the program.
inline constexpr int kExitGood = 0;
inline constexpr int kExitFailed = 1; ///< something could not be read, converted or written
inline constexpr int kExitUsage = 2;  ///< the command line makes no sense

/// What readers that cannot tell from the file are answered.
struct ReadAnswers {
    bool raw = false;       ///< read unrecognised files as raw samples
    std::string bitPacking; ///< "big", "little", or "" for the default
    unsigned codeBits = 0;  ///< width of speech codes; 0 for the default
};

struct InfoOptions {
    std::vector<std::string> files;
    bool json = false;
    ReadAnswers answers;
};

enum class ChannelWish { Auto, Mono, Stereo };

struct ConvertOptions {
    std::vector<std::string> inputs; ///< files and folders
    std::string type;
    std::optional<std::string> output; ///< file or folder; none: beside each input
    std::string dataFormat;            ///< "" for automatic
    ChannelWish channels = ChannelWish::Auto;
    float kbit = 0;       ///< 0: the waveform decides
    std::size_t jobs = 0; ///< 0: all cores
    bool force = false;
    bool noClobber = false;
    bool dryRun = false;
    bool json = false;
    bool report = false;             ///< tell what was kept, approximated and lost
    bool merge = false;              ///< all inputs go into one output
    std::string nameMode;            ///< how files of one bank are named; "" for the default
    std::vector<std::string> select; ///< names or numbers of what is taken; none: all
    ReadAnswers answers;
};

struct FormatsOptions {
    std::string extension; ///< "" for all
    bool read = false;
    bool write = false;
    bool json = false;
    bool markdown = false;
};

/// What is rendered: the songs of a file, or with a note one of its instruments. What is not given is as the
/// user's settings say ("mid2wav.").
struct RenderOptions {
    std::string input;
    std::vector<std::string> banks;    ///< where instruments are sought behind the song's own
    std::optional<std::string> gmBank; ///< default bank; "": the system's
    std::string output;
    std::string dataFormat;
    std::optional<unsigned> rateHz, polyphony;
    std::optional<bool> effects, normalize, trimSilence;
    bool stems = false;
    double tailSeconds = 30;
    int note = -1; ///< key 0 to 127; below 0: songs
    unsigned velocity = 100;
    double seconds = 2;      ///< length of a note's file
    double holdSeconds = -1; ///< below 0: half of the length
    std::vector<std::string> select;
    unsigned jobs = 0; ///< 0: all cores
    bool force = false;
};

/// Two banks to compare by ear.
struct VerifyOptions {
    std::string first, second;
    std::vector<unsigned> keys; ///< empty: every octave
    std::vector<unsigned> velocities;
    std::vector<std::string> select;
    double limitLevelDb = -1;    ///< a greater difference fails; below 0: none does
    double limitPitchCents = -1; ///< likewise
    bool json = false;
};

/// What is done with the user's settings: all are listed, one is shown or set, or some are reset.
struct SettingsOptions {
    std::string key; ///< "": all
    std::optional<std::string> value;
    std::string reset; ///< a key, or "all"; "": none
    bool all = false;  ///< list also those that steer nothing yet
    bool json = false;
};

enum class Command { None, Info, Convert, Render, Verify, Formats, Settings };

struct Options {
    Command command = Command::None;
    bool quiet = false;
    bool verbose = false;
    InfoOptions info;
    ConvertOptions convert;
    RenderOptions render;
    VerifyOptions verify;
    FormatsOptions formats;
    SettingsOptions settings;
};

/// Reads the arguments (without the program's name). Help and version go to stdout, complaints to stderr.
/// @return the exit status if there is nothing more to do, else nothing, with `options` filled
std::optional<int> ParseCommandLine(const std::vector<std::string>& arguments, Options& options);

} // namespace vimbo::cli
