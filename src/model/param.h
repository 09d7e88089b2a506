// Numbered parameters: the row that describes each to editors and reports, rounding, and values as text.
#pragma once

#include "model/features.h"
#include "model/param_ids.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace vimbo {

enum class ParamUnit : std::uint8_t { None, Db, Semitones, Factor, Percent, Hz, Seconds, Milliseconds };

/// How a value is rounded when it is set, and what kind of field edits it.
enum class EditClass : std::uint8_t {
    None = 0,
    ThreeDecimals = 1,
    TwoDecimals = 2,
    OneDecimal = 3,
    Whole = 4,    ///< not rounded by Set
    Adaptive = 5, ///< from 10 upward two decimals, below three
    Percent = 6,  ///< a factor shown in percent; three decimals
    Plain = 7,    ///< not rounded by Set
    FourDecimals = 8,
    Key = 13,
    TriggerType = 14,
    PedalSwitch = 15,
    LfoShape = 16,
    ReleaseMode = 17,
    FilterType = 18,
    EqMode = 19,
    LoopType = 20,
    LoopRelease = 21,
    ChannelFxType = 22,
    NoteExclusion = 23,
    FadeFormula = 24,
    SaveFormat = 25
};

/// One row of the parameter tables.
struct ParamRow {
    ParamId id = 0;
    EditClass editClass = EditClass::None;
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

/// The rows by group of ids (see param_ids.h); kEmptyParamRow for ids of other groups. The loop rows 204 to
/// 208 are found in both the wave and the region group. Instrument rows are 227 to 262.
const ParamRow& ArticulationParamRow(ParamId id) noexcept;
const ParamRow& TriggerParamRow(ParamId id) noexcept;
const ParamRow& TextParamRow(ParamId id) noexcept;
const ParamRow& WaveParamRow(ParamId id) noexcept;
const ParamRow& RegionParamRow(ParamId id) noexcept;
const ParamRow& InstrumentParamRow(ParamId id) noexcept;
/// The row of any id from 0 to 262; kEmptyParamRow above.
const ParamRow& AnyParamRow(ParamId id) noexcept;

/// The name shown for an articulation id under a feature mask: without separate LFOs or envelopes, their
/// letter becomes "M" (as in "M-LFO to Pitch").
std::u16string DisplayName(ParamId id, FeatureMask features);

/// `value` rounded as the row's edit class says, then clamped to the row's limits. NaN gives the default.
float RoundAndClamp(const ParamRow& row, float value) noexcept;

/// "", "dB", "st", "x", "%", "Hz", "s", "ms".
std::u16string_view UnitWord(ParamUnit unit) noexcept;
/// The entry of a list class ("Low-Pass 12 dB/oct"); "" if the class is no list or the value none of its
/// entries.
std::u16string ListEntryText(EditClass editClass, int value);
/// The value as a musician reads it, with its unit: "-6 dB", "35 %", "Low-Pass 12 dB/oct", "C4". Factors in
/// percent are multiplied by 100; levels of the volume envelope (0 to 1) are shown as -96 to 0 dB.
std::u16string FormatParamValue(ParamId id, float value);

} // namespace vimbo
