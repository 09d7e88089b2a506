// The numbered parameters beside the articulation: 189 to 262.
#include "model/articulation_rows.h"

namespace vimbo {
namespace {

/// Loop points lie in a waveform of up to 2^32 frames.
constexpr float kMaxPoint = 4294967296.0f;
/// The greatest float that an offset of 32 bits with sign holds.
constexpr float kMaxOffset = 2147483520.0f;
/// Values of channel effects are free; this only keeps them finite.
constexpr float kMaxFx = 1e6f;

// Short names that keep the table's columns narrow.
constexpr EditClass kRaw = EditClass::None;
constexpr EditClass kTwo = EditClass::TwoDecimals;
constexpr EditClass kThree = EditClass::ThreeDecimals;
constexpr EditClass kWhole = EditClass::Whole;
constexpr EditClass kKey = EditClass::Key;
constexpr EditClass kTrigger = EditClass::TriggerType;
constexpr EditClass kPedal = EditClass::PedalSwitch;
constexpr EditClass kFade = EditClass::FadeFormula;
constexpr EditClass kExclude = EditClass::NoteExclusion;
constexpr EditClass kLoopType = EditClass::LoopType;
constexpr EditClass kLoopEnd = EditClass::LoopRelease;
constexpr EditClass kSave = EditClass::SaveFormat;
constexpr ParamUnit kNone = ParamUnit::None;
constexpr ParamUnit kDb = ParamUnit::Db;
constexpr ParamUnit kSt = ParamUnit::Semitones;
constexpr ParamUnit kPct = ParamUnit::Percent;
constexpr ParamUnit kHz = ParamUnit::Hz;
constexpr ParamUnit kSec = ParamUnit::Seconds;

constexpr std::size_t kFirstId = kArticulationParams;

// Controls: 50 and up trigger, 60 loop, 70 texts, 80 waveform and region, 90 location, 100 effects.
// clang-format off
constexpr std::array<ParamRow, kParamLast + 1 - kFirstId> kRows{{
//   id  class      unit  flags control default minimum     maximum     name and hint
    {189, kKey,      kNone, 0,  50, 0,         0,           127,        u"Low key", {}},
    {190, kKey,      kNone, 0,  50, 127,       0,           127,        u"High key", {}},
    {191, kWhole,    kNone, 0,  51, 0,         0,           127,        u"Low velocity", {}},
    {192, kWhole,    kNone, 0,  51, 127,       0,           127,        u"High velocity", {}},
    {193, kWhole,    kNone, 0,  52, 0,         0,           127,        u"Key cross-fade in", u"Number of keys from the low key upward"},
    {194, kWhole,    kNone, 0,  52, 0,         0,           127,        u"Key cross-fade out", u"Number of keys from the high key downward"},
    {195, kWhole,    kNone, 0,  52, 0,         0,           127,        u"Velocity cross-fade in", u"Number of velocities from the low velocity upward"},
    {196, kWhole,    kNone, 0,  52, 0,         0,           127,        u"Velocity cross-fade out", u"Number of velocities from the high velocity downward"},
    {197, kFade,     kNone, 0,  53, 0,         0,           1,          u"Key cross-fade formula", {}},
    {198, kFade,     kNone, 0,  53, 0,         0,           1,          u"Velocity cross-fade formula", {}},
    {199, kTrigger,  kNone, 0,  54, 0,         0,           17,         u"Trigger type", {}},
    {200, kPedal,    kNone, 0,  55, 0,         0,           2,          u"Pedal switch", {}},
    {201, kWhole,    kNone, 0,  56, 0,         0,           65535,      u"Exclusion group", u"A new note silences others of its group; 0 for none"},
    {202, kExclude,  kNone, 0,  57, 0,         0,           1,          u"Note exclusion mode", {}},
    {203, kThree,    kSec,  0,  58, 0,         0,           100,        u"Delay", {}},
    {204, kLoopType, kNone, 0,  60, 0,         0,           3,          u"Loop type", u"Off/One-shot | Forward/Normal | Reverse/Backwards | Alternating/Ping-Pong/Bi-directional"},
    {205, kLoopEnd,  kNone, 0,  61, 0,         0,           1,          u"Loop release mode", u"Loop until the end of the V-EG or Break the loop and play the remainder of the sample when the key is released"},
    {206, kTwo,      kNone, 0,  62, 0,         0,           kMaxPoint,  u"Loop start", u"First wavesample in the looping region"},
    {207, kTwo,      kNone, 0,  62, kMaxPoint, 0,           kMaxPoint,  u"Loop end", u"First wavesample *after* the loop range"},
    {208, kTwo,      kSt,   0,  63, 0,         -12,         12,         u"Loop pitch", u"Pitch adjustment during loop playback"},
    {209, kRaw,      kNone, 0,  70, 0,         0,           0,          u"Name", {}},
    {210, kRaw,      kNone, 0,  70, 0,         0,           0,          u"Artist", {}},
    {211, kRaw,      kNone, 0,  70, 0,         0,           0,          u"Comments", {}},
    {212, kRaw,      kNone, 0,  70, 0,         0,           0,          u"Copyright", {}},
    {213, kRaw,      kNone, 0,  70, 0,         0,           0,          u"Engineer", {}},
    {214, kRaw,      kNone, 0,  70, 0,         0,           0,          u"Product", u"Album name"},
    {215, kRaw,      kNone, 0,  70, 0,         0,           0,          u"Source file on disk", {}},
    {216, kRaw,      kNone, 0,  71, 0,         0,           0,          u"Image", u"Album cover"},
    {217, kWhole,    kHz,   0,  80, 22050,     1,           768000,     u"Waveform sample rate", {}},
    {218, kKey,      kNone, 0,  81, 60,        0,           127,        u"Root key", u"Key number that plays at the original pitch"},
    {219, kWhole,    kPct,  0,  82, 0,         -100,        100,        u"Playback Pitch adjustment", u"In steps of 1/100th of a semitone"},
    {220, kTwo,      kDb,   0,  83, 0,         -96,         96,         u"Playback Volume adjustment", {}},
    {221, kSave,     kNone, 0,  84, 1,         0,           21,         u"Preferred data format for saving", u"To create files with mixed data types use \"Auto\" as data format when saving"},
    {222, kKey,      kNone, 0,  81, 60,        0,           127,        u"Root key", u"Key number that plays at the original pitch"},
    {223, kWhole,    kNone, 0,  85, 0,         0,           kMaxOffset, u"Start offset", u"In frames from the start of the waveform"},
    {224, kWhole,    kNone, 0,  85, 0,         -kMaxOffset, 0,          u"End offset", u"In frames from the end of the waveform, negative"},
    {225, kWhole,    kNone, 0,  86, 0,         0,           65535,      u"Phase group", u"Regions of one group keep their phases locked; 0 for none"},
    {226, kWhole,    kNone, 0,  87, 0,         0,           255,        u"Phase group master", u"The pitch of the group follows this region"},
    {227, kWhole,    kNone, 0,  90, 0,         0,           127,        u"Bank MSB", u"Controller 0"},
    {228, kWhole,    kNone, 0,  90, 0,         0,           127,        u"Bank LSB", u"Controller 32"},
    {229, kWhole,    kNone, 0,  91, 0,         0,           127,        u"Program", {}},
    {230, kWhole,    kNone, 0,  92, 0,         0,           1,          u"Drum kit", {}},
    {231, kWhole,    kNone, 0, 100, 0,         0,           255,        u"Channel effect 1 setting 1", {}},
    {232, kWhole,    kNone, 0, 100, 0,         0,           255,        u"Channel effect 1 setting 2", {}},
    {233, kWhole,    kNone, 0, 100, 0,         0,           255,        u"Channel effect 1 setting 3", {}},
    {234, kRaw,      kNone, 0, 101, 0,         -kMaxFx,     kMaxFx,     u"Channel effect 1 value 1", {}},
    {235, kRaw,      kNone, 0, 101, 0,         -kMaxFx,     kMaxFx,     u"Channel effect 1 value 2", {}},
    {236, kRaw,      kNone, 0, 101, 0,         -kMaxFx,     kMaxFx,     u"Channel effect 1 value 3", {}},
    {237, kRaw,      kNone, 0, 101, 0,         -kMaxFx,     kMaxFx,     u"Channel effect 1 value 4", {}},
    {238, kRaw,      kNone, 0, 101, 0,         -kMaxFx,     kMaxFx,     u"Channel effect 1 value 5", {}},
    {239, kWhole,    kNone, 0, 100, 0,         0,           255,        u"Channel effect 2 setting 1", {}},
    {240, kWhole,    kNone, 0, 100, 0,         0,           255,        u"Channel effect 2 setting 2", {}},
    {241, kWhole,    kNone, 0, 100, 0,         0,           255,        u"Channel effect 2 setting 3", {}},
    {242, kRaw,      kNone, 0, 101, 0,         -kMaxFx,     kMaxFx,     u"Channel effect 2 value 1", {}},
    {243, kRaw,      kNone, 0, 101, 0,         -kMaxFx,     kMaxFx,     u"Channel effect 2 value 2", {}},
    {244, kRaw,      kNone, 0, 101, 0,         -kMaxFx,     kMaxFx,     u"Channel effect 2 value 3", {}},
    {245, kRaw,      kNone, 0, 101, 0,         -kMaxFx,     kMaxFx,     u"Channel effect 2 value 4", {}},
    {246, kRaw,      kNone, 0, 101, 0,         -kMaxFx,     kMaxFx,     u"Channel effect 2 value 5", {}},
    {247, kWhole,    kNone, 0, 100, 0,         0,           255,        u"Channel effect 3 setting 1", {}},
    {248, kWhole,    kNone, 0, 100, 0,         0,           255,        u"Channel effect 3 setting 2", {}},
    {249, kWhole,    kNone, 0, 100, 0,         0,           255,        u"Channel effect 3 setting 3", {}},
    {250, kRaw,      kNone, 0, 101, 0,         -kMaxFx,     kMaxFx,     u"Channel effect 3 value 1", {}},
    {251, kRaw,      kNone, 0, 101, 0,         -kMaxFx,     kMaxFx,     u"Channel effect 3 value 2", {}},
    {252, kRaw,      kNone, 0, 101, 0,         -kMaxFx,     kMaxFx,     u"Channel effect 3 value 3", {}},
    {253, kRaw,      kNone, 0, 101, 0,         -kMaxFx,     kMaxFx,     u"Channel effect 3 value 4", {}},
    {254, kRaw,      kNone, 0, 101, 0,         -kMaxFx,     kMaxFx,     u"Channel effect 3 value 5", {}},
    {255, kWhole,    kNone, 0, 100, 0,         0,           255,        u"Channel effect 4 setting 1", {}},
    {256, kWhole,    kNone, 0, 100, 0,         0,           255,        u"Channel effect 4 setting 2", {}},
    {257, kWhole,    kNone, 0, 100, 0,         0,           255,        u"Channel effect 4 setting 3", {}},
    {258, kRaw,      kNone, 0, 101, 0,         -kMaxFx,     kMaxFx,     u"Channel effect 4 value 1", {}},
    {259, kRaw,      kNone, 0, 101, 0,         -kMaxFx,     kMaxFx,     u"Channel effect 4 value 2", {}},
    {260, kRaw,      kNone, 0, 101, 0,         -kMaxFx,     kMaxFx,     u"Channel effect 4 value 3", {}},
    {261, kRaw,      kNone, 0, 101, 0,         -kMaxFx,     kMaxFx,     u"Channel effect 4 value 4", {}},
    {262, kRaw,      kNone, 0, 101, 0,         -kMaxFx,     kMaxFx,     u"Channel effect 4 value 5", {}},
}};
// clang-format on

consteval bool RowsAreInOrder()
{
    for (std::size_t i = 0; i < kRows.size(); ++i)
        if (kRows[i].id != kFirstId + i || kRows[i].defaultValue < kRows[i].minimum ||
            kRows[i].defaultValue > kRows[i].maximum)
            return false;
    return true;
}
static_assert(RowsAreInOrder());

/// The row if the id lies in first..last.
const ParamRow& RowWithin(ParamId id, ParamId first, ParamId last) noexcept
{
    return id >= first && id <= last ? kRows[id - kFirstId] : kEmptyParamRow;
}

constexpr bool IsLoopParam(ParamId id) noexcept
{
    return id >= kParamLoopType && id <= kParamLoopPitch;
}

} // namespace

const ParamRow& TriggerParamRow(ParamId id) noexcept
{
    return RowWithin(id, kFirstTriggerParam, kLastTriggerParam);
}

const ParamRow& TextParamRow(ParamId id) noexcept
{
    return RowWithin(id, kTextName, kTextImage);
}

const ParamRow& WaveParamRow(ParamId id) noexcept
{
    return IsLoopParam(id) ? kRows[id - kFirstId] : RowWithin(id, kParamWaveRate, kParamWaveSaveFormat);
}

const ParamRow& RegionParamRow(ParamId id) noexcept
{
    return IsLoopParam(id) ? kRows[id - kFirstId] : RowWithin(id, kParamRegionRootKey, kParamPhaseMaster);
}

const ParamRow& InstrumentParamRow(ParamId id) noexcept
{
    return RowWithin(id, kParamBankMsb, kParamLast);
}

const ParamRow& AnyParamRow(ParamId id) noexcept
{
    return id < kFirstId ? kArticulationRows[id] : RowWithin(id, kFirstTriggerParam, kParamLast);
}

} // namespace vimbo
