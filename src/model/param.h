// Numbered parameters: ids, and the row that describes each to editors and reports.
#pragma once

#include <cstdint>
#include <string_view>

namespace vimbo {

enum class ParamUnit : std::uint8_t { None, Db, Semitones, Factor, Percent, Hz, Seconds, Milliseconds };

/// One row of the parameter tables.
struct ParamRow {
    std::uint16_t id = 0;
    std::uint8_t editClass = 0; ///< rounding and kind of editing field
    ParamUnit unit = ParamUnit::None;
    std::uint8_t flags = 0;    ///< display flags of the editing pane
    std::uint16_t control = 0; ///< editing field; rows of like meaning share it
    float defaultValue = 0;
    float minimum = 0;
    float maximum = 0;
    std::u16string_view name;
    std::u16string_view hint;
};

/// The row that unknown ids get.
inline constexpr ParamRow kEmptyParamRow{};

inline constexpr std::uint16_t kParamLoopType = 204;
inline constexpr std::uint16_t kParamLoopRelease = 205;
inline constexpr std::uint16_t kParamLoopStart = 206;
inline constexpr std::uint16_t kParamLoopEnd = 207;
inline constexpr std::uint16_t kParamLoopPitch = 208;
inline constexpr std::uint16_t kTextName = 209;
inline constexpr std::uint16_t kTextArtist = 210;
inline constexpr std::uint16_t kTextComments = 211;
inline constexpr std::uint16_t kTextCopyright = 212;
inline constexpr std::uint16_t kTextEngineer = 213;
inline constexpr std::uint16_t kTextProduct = 214;
inline constexpr std::uint16_t kTextSourcePath = 215;
inline constexpr std::uint16_t kTextImage = 216;
inline constexpr std::uint16_t kParamWaveRate = 217;
inline constexpr std::uint16_t kParamWaveRootKey = 218;
inline constexpr std::uint16_t kParamWaveFineTune = 219;
inline constexpr std::uint16_t kParamWaveVolume = 220;
inline constexpr std::uint16_t kParamWaveSaveFormat = 221;

/// Rows of the text properties 209 to 216, and of the loop and waveform parameters 204 to 208 and 217 to 221;
/// kEmptyParamRow for other ids.
const ParamRow& TextParamRow(std::uint16_t id) noexcept;
const ParamRow& WaveParamRow(std::uint16_t id) noexcept;

} // namespace vimbo
