// All settings: their keys, types, defaults and limits.
#pragma once

#include "formats/format_table.h"
#include "formats/save_all.h"
#include "model/waveform.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace vimbo::app {

enum class SettingType : std::uint8_t {
    Flag,   ///< bool
    Whole,  ///< std::int64_t
    Number, ///< double
    Text,   ///< std::u16string
    Path,   ///< std::u16string
    Mask,   ///< std::uint64_t
    Wholes, ///< std::vector<std::int64_t>
    Paths   ///< std::vector<std::u16string>
};

using SettingValue = std::variant<bool, std::int64_t, double, std::u16string, std::uint64_t,
                                  std::vector<std::int64_t>, std::vector<std::u16string>>;

/// One setting. Keys are a group, a dot, and a name that begins with its type; they are an interface, since
/// users' files hold them.
struct SettingRow {
    std::string_view key;
    SettingType type = SettingType::Flag;
    std::int64_t whole = 0;     ///< default of Flag, Whole, and of every element of Wholes
    double number = 0;          ///< default of Number
    std::u16string_view text{}; ///< default of Text and Path; lists of paths are empty, masks have all bits
    std::int64_t least = 0;     ///< of Whole, Number, and of the elements of Wholes
    std::int64_t most = 0;      ///< likewise; of Text, Path and the elements of Paths: UTF-16 units
    std::size_t count = 0;      ///< elements of Wholes; most elements of Paths
    bool mayBeUnset = false;    ///< Wholes: there may be none, which is the default
    std::string_view meaning{}; ///< for people; "" as long as nothing in the program is steered by it
};

namespace rows {

inline constexpr std::int64_t kWord = std::numeric_limits<std::int32_t>::max();
inline constexpr std::int64_t kUnsignedWord = std::numeric_limits<std::uint32_t>::max();
inline constexpr std::int64_t kPathUnits = 4095; ///< what the system opens
inline constexpr std::int64_t kLastRow = std::int64_t{kFormatRowCount} - 1;
/// Rates that songs may be rendered at.
inline constexpr std::int64_t kLeastRateHz = 8000, kMostRateHz = kMaxRateHz;

constexpr SettingRow Flag(std::string_view key, bool initial, std::string_view meaning = {})
{
    return {.key = key, .type = SettingType::Flag, .whole = initial ? 1 : 0, .meaning = meaning};
}
constexpr SettingRow Whole(std::string_view key, std::int64_t initial, std::int64_t least, std::int64_t most,
                           std::string_view meaning = {})
{
    return {.key = key,
            .type = SettingType::Whole,
            .whole = initial,
            .least = least,
            .most = most,
            .meaning = meaning};
}
constexpr SettingRow Number(std::string_view key, double initial, std::int64_t least, std::int64_t most)
{
    return {.key = key, .type = SettingType::Number, .number = initial, .least = least, .most = most};
}
constexpr SettingRow Text(std::string_view key, std::u16string_view initial, std::int64_t most)
{
    return {.key = key, .type = SettingType::Text, .text = initial, .most = most};
}
constexpr SettingRow Path(std::string_view key, std::string_view meaning = {})
{
    return {.key = key, .type = SettingType::Path, .most = kPathUnits, .meaning = meaning};
}
constexpr SettingRow Mask(std::string_view key)
{
    return {.key = key, .type = SettingType::Mask};
}
constexpr SettingRow Wholes(std::string_view key, std::size_t count, std::int64_t initial, std::int64_t least,
                            std::int64_t most)
{
    return {.key = key,
            .type = SettingType::Wholes,
            .whole = initial,
            .least = least,
            .most = most,
            .count = count};
}
constexpr SettingRow UnsetWholes(std::string_view key, std::size_t count, std::int64_t least,
                                 std::int64_t most)
{
    SettingRow row = Wholes(key, count, 0, least, most);
    row.mayBeUnset = true;
    return row;
}
constexpr SettingRow Paths(std::string_view key, std::size_t count)
{
    return {.key = key, .type = SettingType::Paths, .most = kPathUnits, .count = count};
}

} // namespace rows

// clang-format off
/// The settings, in the order in which they are saved and listed.
inline constexpr auto kSettingRows = std::to_array<SettingRow>({
    rows::Paths      ("app.LastFilesW",             32),
    rows::Path       ("app.LastPathInW"),
    rows::Path       ("app.LastPathOutW"),
    // rows of the format table: waveforms, instruments, songs, collections, "Save all"
    rows::Wholes     ("app.aiLastExp",              5, -1, -1, rows::kLastRow),
    rows::UnsetWholes("app.ptLastPos",              2, -rows::kWord, rows::kWord),
    rows::UnsetWholes("app.ptLastSize",             2, 1, rows::kWord),
    rows::Whole      ("app.iPaneSplitL",            221, 17, rows::kWord),
    rows::UnsetWholes("app.awColWidths",            5, 0, 65535),
    rows::Whole      ("app.bCheckForUpdates",       -1, -1, 1), // -1: yet to be asked
    rows::Flag       ("app.bDispBankPrgs",          true),
    rows::Flag       ("app.bDispLoBank",            false),
    rows::Flag       ("app.bAutoSelWaveforms",      true),
    rows::Flag       ("app.bAutoSelCollItems",      false),
    rows::Flag       ("app.bPropagateDownDelta",    false),
    rows::Flag       ("app.bPersistentState",       false),
    rows::Flag       ("app.bShowNoteNames",         true),
    rows::Flag       ("app.bMidIsNamedC3",          false),
    rows::Path       ("app.wszWave"),
    rows::Path       ("app.wszMidi"),
    rows::Text       ("app.szVSTPaths",             u"", 65535),

    rows::Flag       ("load.bConfirm",              false),
    rows::Flag       ("load.bAutoSplitStereo",      false),
    rows::Flag       ("load.bAutoMergeStereo",      true),
    rows::Flag       ("load.bAutoCompactLayers",    true),
    rows::Flag       ("load.bAutoRemoveDupWaves",   true),
    rows::Flag       ("load.bAutoMoveArticulation", false),
    rows::Flag       ("load.bAutoMoveTriggerParams", true),
    rows::Flag       ("load.bAutoAppend32",         false),
    rows::Flag       ("load.bAutoBid2Fwd",          false),
    rows::Flag       ("load.bAutoSortColl",         true),
    rows::Flag       ("load.bAutoSortWaves",        true),
    rows::Flag       ("load.bEnsureUniqueNames",    true),

    rows::Text       ("aio.szAudioOutDev",          u"System default", 63),
    rows::Flag       ("aio.bAudioOutExclusive",     false),
    rows::Whole      ("aio.cAudioOutFormat",        16, 16, 255), // 16, 24, 32; 255: float
    rows::Whole      ("aio.cAudioOutChannels",      2, 1, 8),
    rows::Whole      ("aio.szAudioOutSampleRate",   48000, 1000, kMaxRateHz),
    rows::Text       ("aio.szAudioInDev",           u"System default", 63),
    rows::Flag       ("aio.bAudioInExclusive",      false),
    rows::Whole      ("aio.cAudioInFormat",         16, 16, 255),
    rows::Whole      ("aio.cAudioInChannels",       2, 1, 8),
    rows::Flag       ("aio.bAudioInAGC",            true),
    rows::Flag       ("aio.bAudioInMono",           false),
    rows::Whole      ("aio.szAudioInSampleRate",    48000, 1000, kMaxRateHz),
    rows::Text       ("aio.szMidiInDev",            u"", 31),
    rows::Whole      ("aio.nLatency",               -1, -1, rows::kWord), // frames; -1: the system's choice
    rows::Number     ("aio.fdbMixGain",             6.0, -96, 96),
    rows::Number     ("aio.fdbWaveGain",            -6.0, -96, 96),
    rows::Flag       ("aio.bEnable",                false),
    rows::Flag       ("aio.bVKeyboard",             true),
    rows::Flag       ("aio.bPlayWaveOnClick",       true),
    rows::Flag       ("aio.bPlayCollOnClick",       false),
    rows::Text       ("aio.acVKlo",                 u"ZSXDCVGBHNJM,L.", 38),
    rows::Text       ("aio.acVKhi",                 u"Q2W3ER5T6Y7UI9O0P", 38),

    rows::Flag       ("viz.bWaveDispFill",          true),
    rows::Flag       ("viz.bWaveDispSplit",         false),
    rows::Flag       ("viz.bTrackInEditor",         true),
    rows::Flag       ("viz.bSpectrum",              false),
    rows::Flag       ("viz.bChannels",              false),

    rows::Text       ("sds.szOutDev",               u"", 31),
    rows::Text       ("sds.szInDev",                u"", 31),
    rows::Whole      ("sds.iChannel",               0, 0, rows::kWord),
    rows::Whole      ("sds.iBaseSample",            0, 0, rows::kWord),
    rows::Whole      ("sds.iSCSIDev",               0, 0, rows::kWord),
    rows::Whole      ("sds.iOutBits",               16, 8, 32),

    rows::Whole      ("rawio.iCDDev",               0, 0, rows::kWord),
    rows::Whole      ("rawio.iFDDev",               0, 0, rows::kWord),
    rows::Flag       ("rawio.bReplaceColl",         true),

    rows::Mask       ("features"),

    rows::Whole      ("sall.iMode",                 static_cast<int>(AutoNaming::Name),
                      static_cast<int>(AutoNaming::BaseAndNumber), static_cast<int>(AutoNaming::ProgramAndName)),
    rows::Flag       ("sall.bSubDirs",              false),

    rows::Whole      ("sy2wt.dwSampleRate",         48000, rows::kLeastRateHz, rows::kMostRateHz, "Hz of waveforms made of synthesis models"),
    rows::Whole      ("sy2wt.dwmsMaxLength",        2000, 1, 600000, "greatest length of such a waveform in ms"),
    rows::Whole      ("sy2wt.dwmsMinLength",        250, 1, 600000, "least length in ms"),
    rows::Whole      ("sy2wt.iNumWaves",            1, 1, 128, "how many such waveforms share a region's keys"),

    rows::Whole      ("mid2wav.dwSampleRate",       48000, rows::kLeastRateHz, rows::kMostRateHz, "Hz of songs that become waveforms"),
    rows::Flag       ("mid2wav.bEffects",           true, "reverb, chorus and all other effects"),
    rows::Flag       ("mid2wav.bDeleteSrc",         false),
    rows::Flag       ("mid2wav.bNormalizePeak",     true, "the loudest sample becomes full scale"),
    rows::Flag       ("mid2wav.bDeleteSilence",     true, "silence at both ends is trimmed"),
    rows::Path       ("mid2wav.wszGMBank",          "bank for what a song lacks; empty: the system's General MIDI bank"),
    rows::Whole      ("mid2wav.iMaxPolyphony",      128, 1, 65000, "notes that may sound together"),

    rows::Flag       ("fmt.mp3.bWriteID3",          true),
    rows::Flag       ("fmt.mp3.bWriteAPE",          false),
    rows::Flag       ("fmt.mp3.bWriteJS",           true),
    rows::Flag       ("fmt.mp2.bWriteID3",          false),
    rows::Flag       ("fmt.mp2.bWriteJS",           true),
    rows::Flag       ("fmt.aac.bWriteID3",          false),
    rows::Flag       ("fmt.aac.bWriteAPE",          false),
    rows::Flag       ("fmt.aac.bWriteMS",           true),
    rows::Whole      ("fmt.vox.dwDataFormat",       0x8002000, 0, rows::kUnsignedWord), // a waveform's source word
    rows::Whole      ("fmt.sd2.dwSampleRate",       44100, 1, kMaxRateHz),
    rows::Whole      ("fmt.sd2.iChannels",          2, 1, 2),
    rows::Whole      ("fmt.sd2.iBits",              16, 8, 32),
});
// clang-format on

/// Index of the row with exactly this key; kSettingRows.size() if there is none.
constexpr std::size_t FindSetting(std::string_view key) noexcept
{
    std::size_t row = 0;
    while (row < kSettingRows.size() && kSettingRows[row].key != key)
        ++row;
    return row;
}

/// True if values of the type are held as a T.
template <class T>
constexpr bool IsHeldAs(SettingType type) noexcept
{
    switch (type) {
    case SettingType::Flag:
        return std::is_same_v<T, bool>;
    case SettingType::Whole:
        return std::is_same_v<T, std::int64_t>;
    case SettingType::Number:
        return std::is_same_v<T, double>;
    case SettingType::Text:
    case SettingType::Path:
        return std::is_same_v<T, std::u16string>;
    case SettingType::Mask:
        return std::is_same_v<T, std::uint64_t>;
    case SettingType::Wholes:
        return std::is_same_v<T, std::vector<std::int64_t>>;
    case SettingType::Paths:
        return std::is_same_v<T, std::vector<std::u16string>>;
    }
    return false;
}

/// A key that the compiler has looked up: one that is not in the table, or of another type, does not compile.
template <class T>
class SettingKey {
public:
    consteval SettingKey(const char* key) : row_(FindSetting(key))
    {
        if (row_ == kSettingRows.size())
            throw "there is no such setting";
        if (!IsHeldAs<T>(kSettingRows[row_].type))
            throw "the setting is of another type";
    }
    constexpr std::size_t Row() const noexcept { return row_; }

private:
    std::size_t row_;
};

} // namespace vimbo::app
