#include "model/param.h"

#include <algorithm>
#include <array>

namespace vimbo {

namespace {

// Editing classes, as far as these rows use them: numbers with two decimals or none, key numbers, and lists.
constexpr std::uint8_t kTwoDecimals = 2;
constexpr std::uint8_t kWhole = 4;
constexpr std::uint8_t kKey = 13;
constexpr std::uint8_t kLoopTypeList = 20;
constexpr std::uint8_t kLoopReleaseList = 21;
constexpr std::uint8_t kSaveFormatList = 25;

constexpr ParamRow TextRow(std::uint16_t id, std::u16string_view name, std::u16string_view hint = {})
{
    return {id, 0, ParamUnit::None, 0, 0, 0, 0, 0, name, hint};
}

constexpr std::array kTextRows{
    TextRow(kTextName, u"Name"),
    TextRow(kTextArtist, u"Artist"),
    TextRow(kTextComments, u"Comments"),
    TextRow(kTextCopyright, u"Copyright"),
    TextRow(kTextEngineer, u"Engineer"),
    TextRow(kTextProduct, u"Product", u"Album name"),
    TextRow(kTextSourcePath, u"Source file on disk"),
    TextRow(kTextImage, u"Image", u"Album cover"),
};

/// Loop points lie in a waveform of up to 2^32 frames.
constexpr float kMaxLoopPoint = 4294967296.0F;

constexpr ParamRow WaveRow(std::uint16_t id, std::uint8_t editClass, ParamUnit unit, float value,
                           float minimum, float maximum, std::u16string_view name,
                           std::u16string_view hint = {})
{
    return {id, editClass, unit, 0, 0, value, minimum, maximum, name, hint};
}

// clang-format off
constexpr std::array kWaveRows{
    WaveRow(kParamLoopType, kLoopTypeList, ParamUnit::None, 0, 0, 3, u"Loop type",
            u"Off/One-shot | Forward/Normal | Reverse/Backwards | Alternating/Ping-Pong/Bi-directional"),
    WaveRow(kParamLoopRelease, kLoopReleaseList, ParamUnit::None, 0, 0, 1, u"Loop release mode",
            u"Loop until the end of the V-EG or Break the loop and play the remainder of the sample when the key is "
            u"released"),
    WaveRow(kParamLoopStart, kTwoDecimals, ParamUnit::None, 0, 0, kMaxLoopPoint, u"Loop start",
            u"First wavesample in the looping region"),
    WaveRow(kParamLoopEnd, kTwoDecimals, ParamUnit::None, kMaxLoopPoint, 0, kMaxLoopPoint, u"Loop end",
            u"First wavesample *after* the loop range"),
    WaveRow(kParamLoopPitch, kTwoDecimals, ParamUnit::Semitones, 0, -12, 12, u"Loop pitch",
            u"Pitch adjustment during loop playback"),
    WaveRow(kParamWaveRate, kWhole, ParamUnit::Hz, 22050, 1, 768000, u"Waveform sample rate"),
    WaveRow(kParamWaveRootKey, kKey, ParamUnit::None, 60, 0, 127, u"Root key",
            u"Key number that plays at the original pitch"),
    WaveRow(kParamWaveFineTune, kWhole, ParamUnit::Percent, 0, -100, 100, u"Playback Pitch adjustment",
            u"In steps of 1/100th of a semitone"),
    WaveRow(kParamWaveVolume, kTwoDecimals, ParamUnit::Db, 0, -96, 96, u"Playback Volume adjustment"),
    WaveRow(kParamWaveSaveFormat, kSaveFormatList, ParamUnit::None, 1, 0, 21, u"Preferred data format for saving",
            u"To create files with mixed data types use \"Auto\" as data format when saving"),
};
// clang-format on

template <std::size_t N>
const ParamRow& RowOf(const std::array<ParamRow, N>& rows, std::uint16_t id) noexcept
{
    const auto found =
        std::find_if(rows.begin(), rows.end(), [id](const ParamRow& row) { return row.id == id; });
    return found != rows.end() ? *found : kEmptyParamRow;
}

} // namespace

const ParamRow& TextParamRow(std::uint16_t id) noexcept
{
    return RowOf(kTextRows, id);
}

const ParamRow& WaveParamRow(std::uint16_t id) noexcept
{
    return RowOf(kWaveRows, id);
}

} // namespace vimbo
