// The 189 articulation parameters, one row each: what is edited, how it is rounded and limited, how it is
// named.
#include "model/articulation_rows.h"

#include "model/shared_values.h"

namespace vimbo {
namespace {

// Short names that keep the table's columns narrow.
constexpr EditClass kNoRounding = EditClass::None;
constexpr EditClass kOne = EditClass::OneDecimal;
constexpr EditClass kTwo = EditClass::TwoDecimals;
constexpr EditClass kFour = EditClass::FourDecimals;
constexpr EditClass kAdapt = EditClass::Adaptive;
constexpr EditClass kPercent = EditClass::Percent;
constexpr EditClass kLfoShape = EditClass::LfoShape;
constexpr EditClass kRelease = EditClass::ReleaseMode;
constexpr EditClass kFilter = EditClass::FilterType;
constexpr EditClass kEqMode = EditClass::EqMode;
constexpr ParamUnit kNone = ParamUnit::None;
constexpr ParamUnit kDb = ParamUnit::Db;
constexpr ParamUnit kSt = ParamUnit::Semitones;
constexpr ParamUnit kX = ParamUnit::Factor;
constexpr ParamUnit kPct = ParamUnit::Percent;
constexpr ParamUnit kHz = ParamUnit::Hz;
constexpr ParamUnit kSec = ParamUnit::Seconds;

// Controls: 1 basic value, 2 by key, 3 by pitch bender, 4 by velocity, 5 by modulation wheel, 6 by
// aftertouch, 7 by the channel's controller, 8 random; LFO depth 10 fixed, 11 wheel, 12 aftertouch, 13
// velocity; envelope depth 14 fixed, 15 velocity; 20 filter type; EQ 21 mode, 22 frequency, 23 gain, 24 Q;
// LFO 30 shape, 31 frequency, 32 delay, 33 ramp; envelope 40 level, 41 time, 42 velocity's and 43 key's
// factor, 44 release rate, 45 release mode, 46 shutdown. A new id takes the number of its like.
//
// The spelling of id 21, "Send channel 3" for 61 and 63, and "F-LFO" for 77 to 80 too are part of the names.
// clang-format off
constexpr std::array<ParamRow, kArticulationParams> kRows{{
//   id  class        unit  flags control default minimum  maximum  name and hint
    {  0, kTwo,        kSt,   0,  1, 0,     -48,       48,    u"Master tuning Pitch adjustment", {}},
    {  1, kTwo,        kSt,   0,  2, 1,     -12,       12,    u"Key to Pitch", u"Semitones per key, centered on Root key"},
    {  2, kTwo,        kSt,   0,  3, 2,     -96,       96,    u"Pitch bender to Pitch", {}},
    {  3, kTwo,        kSt,   0, 10, 0,     -96,       96,    u"P-LFO to Pitch", {}},
    {  4, kTwo,        kSt,   0, 11, 0,     -96,       96,    u"Mod wheel to P-LFO to Pitch", {}},
    {  5, kTwo,        kSt,   0, 12, 0,     -96,       96,    u"Aftertouch to P-LFO to Pitch", {}},
    {  6, kTwo,        kSt,   0, 13, 0,     -96,       96,    u"Velocity to P-LFO to Pitch", {}},
    {  7, kTwo,        kSt,   0, 10, 0,     -96,       96,    u"X-LFO to Pitch", {}},
    {  8, kTwo,        kSt,   0, 11, 0,     -96,       96,    u"Mod wheel to X-LFO to Pitch", {}},
    {  9, kTwo,        kSt,   0, 12, 0,     -96,       96,    u"Aftertouch to X-LFO to Pitch", {}},
    { 10, kTwo,        kSt,   0, 13, 0,     -96,       96,    u"Velocity to X-LFO to Pitch", {}},
    { 11, kTwo,        kSt,   0, 14, 0,     -96,       96,    u"P-ENV to Pitch", {}},
    { 12, kTwo,        kSt,   0, 15, 0,     -96,       96,    u"Velocity to P-ENV to Pitch", {}},
    { 13, kTwo,        kSt,   0,  8, 0,     0,         96,    u"Random to Pitch", {}},
    { 14, kTwo,        kDb,   0,  1, 0,     -96,       96,    u"Master Volume adjustment", {}},
    { 15, kTwo,        kDb,   0,  4, 96,    -96,       96,    u"Velocity to Volume", u"Special transform, negative inverts range"},
    { 16, kTwo,        kDb,   0,  2, 0,     -24,       24,    u"Key to Volume", u"dB per octave, centered on mid-C"},
    { 17, kTwo,        kDb,   0,  5, 0,     -96,       96,    u"Mod wheel to Volume", {}},
    { 18, kTwo,        kDb,   0,  6, 0,     -96,       96,    u"Aftertouch to Volume", {}},
    { 19, kTwo,        kDb,   0, 10, 0,     -96,       96,    u"V-LFO to Volume", {}},
    { 20, kTwo,        kDb,   0, 11, 0,     -96,       96,    u"Mod wheel to V-LFO to Volume", {}},
    { 21, kTwo,        kDb,   0, 12, 0,     -96,       96,    u"Aftertrouch to V-LFO to Volume", {}},
    { 22, kTwo,        kDb,   0, 13, 0,     -96,       96,    u"Velocity to V-LFO to Volume", {}},
    { 23, kFilter,     kNone, 0, 20, 0,     0,         12,    u"Filter type", {}},
    { 24, kOne,        kHz,   0,  1, 8000,  8,         24000, u"Filter Cutoff frequency", {}},
    { 25, kTwo,        kSt,   0,  4, 0,     -128,      128,   u"Velocity to Filter Cutoff", {}},
    { 26, kTwo,        kSt,   0,  2, 0,     -128,      128,   u"Key number to Filter Cutoff", {}},
    { 27, kTwo,        kSt,   0,  5, 0,     -128,      128,   u"Mod wheel to Filter Cutoff", {}},
    { 28, kTwo,        kSt,   0,  6, 0,     -128,      128,   u"Aftertouch to Filter Cutoff", {}},
    { 29, kTwo,        kSt,   0, 10, 0,     -128,      128,   u"F-LFO to Filter Cutoff", {}},
    { 30, kTwo,        kSt,   0, 11, 0,     -128,      128,   u"Mod wheel to F-LFO to Filter Cutoff", {}},
    { 31, kTwo,        kSt,   0, 12, 0,     -128,      128,   u"Aftertouch to F-LFO to Filter Cutoff", {}},
    { 32, kTwo,        kSt,   0, 13, 0,     -128,      128,   u"Velocity to F-LFO to Filter Cutoff", {}},
    { 33, kTwo,        kSt,   0, 14, 0,     -128,      128,   u"F-ENV to Filter Cutoff", {}},
    { 34, kTwo,        kSt,   0, 15, 0,     -128,      128,   u"Velocity to F-ENV to Filter Cutoff", {}},
    { 35, kTwo,        kDb,   0,  1, 0,     -6,        96,    u"Filter Resonance peak height", {}},
    { 36, kTwo,        kDb,   0,  4, 0,     -96,       96,    u"Velocity to Filter Resonance", {}},
    { 37, kTwo,        kDb,   0,  5, 0,     -96,       96,    u"Mod wheel to Filter Resonance", {}},
    { 38, kTwo,        kDb,   0,  6, 0,     -96,       96,    u"Aftertouch to Filter Resonance", {}},
    { 39, kEqMode,     kNone, 0, 21, 0,     0,         2,     u"EQ 1 Mode", {}},
    { 40, kOne,        kHz,   0, 22, 120,   16,        24000, u"EQ 1 center Frequency", {}},
    { 41, kTwo,        kDb,   0, 23, 0,     -24,       24,    u"EQ 1 Gain", {}},
    { 42, kTwo,        kX,    0, 24, 0.71f, 0.01f,     10,    u"EQ 1 Q-value", u"Band-width is a function of Center frequency / Q"},
    { 43, kEqMode,     kNone, 0, 21, 0,     0,         2,     u"EQ 2 Mode", {}},
    { 44, kOne,        kHz,   0, 22, 800,   16,        24000, u"EQ 2 center Frequency", {}},
    { 45, kTwo,        kDb,   0, 23, 0,     -24,       24,    u"EQ 2 Gain", {}},
    { 46, kTwo,        kX,    0, 24, 0.71f, 0.01f,     10,    u"EQ 2 Q-value", u"Band-width is a function of Center frequency / Q"},
    { 47, kEqMode,     kNone, 0, 21, 0,     0,         2,     u"EQ 3 Mode", {}},
    { 48, kOne,        kHz,   0, 22, 5000,  16,        24000, u"EQ 3 center Frequency", {}},
    { 49, kTwo,        kDb,   0, 23, 0,     -24,       24,    u"EQ 3 Gain", {}},
    { 50, kTwo,        kX,    0, 24, 0.71f, 0.01f,     10,    u"EQ 3 Q-value", u"Band-width is a function of Center frequency / Q"},
    { 51, kPercent,    kPct,  0,  1, 0,     -1,        1,     u"Pan position", u"-100% = full left | 0% = centered | +100% = full right"},
    { 52, kPercent,    kPct,  0,  7, 1,     -1,        1,     u"CC10 to Pan position", {}},
    { 53, kPercent,    kPct,  0,  2, 0,     -1,        1,     u"Key number to Pan position", {}},
    { 54, kPercent,    kPct,  0, 10, 0,     -1,        1,     u"X-LFO to Pan position", {}},
    { 55, kPercent,    kPct,  0, 14, 0,     -1,        1,     u"X-ENV to Pan position", {}},
    { 56, kPercent,    kPct,  0,  8, 0,     0,         1,     u"Random to Pan position", {}},
    { 57, kPercent,    kPct,  0,  1, 0,     0,         1,     u"Send channel 1 level", {}},
    { 58, kPercent,    kPct,  0,  7, 1,     0,         1,     u"CC91 to Send channel 1 level", {}},
    { 59, kPercent,    kPct,  0,  1, 0,     0,         1,     u"Send channel 2 level", {}},
    { 60, kPercent,    kPct,  0,  7, 1,     0,         1,     u"CC92 to Send channel 2 level", {}},
    { 61, kPercent,    kPct,  0,  1, 0,     0,         1,     u"Send channel 3 level", {}},
    { 62, kPercent,    kPct,  0,  7, 1,     0,         1,     u"CC93 to Send channel 3 level", {}},
    { 63, kPercent,    kPct,  0,  1, 0,     0,         1,     u"Send channel 3 level", {}},
    { 64, kPercent,    kPct,  0,  7, 1,     0,         1,     u"CC94 to Send channel 3 level", {}},
    { 65, kLfoShape,   kNone, 0, 30, 0,     0,         255,   u"P-LFO Wave Shape", {}},
    { 66, kAdapt,      kHz,   0, 31, 5,     0.01f,     20,    u"P-LFO Frequency", {}},
    { 67, kAdapt,      kSec,  0, 32, 0,     0,         10,    u"P-LFO Delay Time", {}},
    { 68, kAdapt,      kSec,  0, 33, 0,     0,         100,   u"P-LFO Ramp/fade-in Time", {}},
    { 69, kLfoShape,   kNone, 0, 30, 0,     0,         255,   u"V-LFO Wave Shape", {}},
    { 70, kAdapt,      kHz,   0, 31, 5,     0.01f,     20,    u"V-LFO Frequency", {}},
    { 71, kAdapt,      kSec,  0, 32, 0,     0,         10,    u"V-LFO Delay Time", {}},
    { 72, kAdapt,      kSec,  0, 33, 0,     0,         100,   u"V-LFO Ramp/fade-in Time", {}},
    { 73, kLfoShape,   kNone, 0, 30, 0,     0,         255,   u"F-LFO Wave Shape", {}},
    { 74, kAdapt,      kHz,   0, 31, 5,     0.01f,     20,    u"F-LFO Frequency", {}},
    { 75, kAdapt,      kSec,  0, 32, 0,     0,         10,    u"F-LFO Delay Time", {}},
    { 76, kAdapt,      kSec,  0, 33, 0,     0,         100,   u"F-LFO Ramp/fade-in Time", {}},
    { 77, kLfoShape,   kNone, 0, 30, 0,     0,         255,   u"F-LFO Wave Shape", {}},
    { 78, kAdapt,      kHz,   0, 31, 5,     0.01f,     20,    u"F-LFO Frequency", {}},
    { 79, kAdapt,      kSec,  0, 32, 0,     0,         10,    u"F-LFO Delay Time", {}},
    { 80, kAdapt,      kSec,  0, 33, 0,     0,         100,   u"F-LFO Ramp/fade-in Time", {}},
    { 81, kFour,       kDb,   0, 40, 0,     0,         1,     u"V-ENV Initial Level", {}},
    { 82, kAdapt,      kSec,  0, 41, 0,     0,         100,   u"V-ENV Attack 1 Time", {}},
    { 83, kAdapt,      kX,    0, 42, 1,     0.015625f, 64,    u"V-ENV Velocity to Attack 1 Time", u"Time-quotient max/min velocity"},
    { 84, kAdapt,      kX,    0, 43, 1,     0.25f,     4,     u"V-ENV Key number to Attack 1 Time", u"Time-multiplier per octave"},
    { 85, kFour,       kDb,   0, 40, 0,     0,         1,     u"V-ENV Attack 1 Level", {}},
    { 86, kAdapt,      kSec,  0, 41, 0,     0,         100,   u"V-ENV Attack 2 Time", {}},
    { 87, kAdapt,      kX,    0, 42, 1,     0.015625f, 64,    u"V-ENV Velocity to Attack 2 Time", u"Time-quotient max/min velocity"},
    { 88, kAdapt,      kX,    0, 43, 1,     0.25f,     4,     u"V-ENV Key number to Attack 2 Time", u"Time-multiplier per octave"},
    { 89, kFour,       kDb,   0, 40, 1,     0,         1,     u"V-ENV Attack 2 Level", {}},
    { 90, kAdapt,      kSec,  0, 41, 0,     0,         100,   u"V-ENV Decay 1 Time", {}},
    { 91, kAdapt,      kX,    0, 42, 1,     0.015625f, 64,    u"V-ENV Velocity to Decay 1 Time", u"Time-quotient max/min velocity"},
    { 92, kAdapt,      kX,    0, 43, 1,     0.25f,     4,     u"V-ENV Key number to Decay 1 Time", u"Time-multiplier per octave"},
    { 93, kFour,       kDb,   0, 40, 1,     0,         1,     u"V-ENV Decay 1 Level", {}},
    { 94, kAdapt,      kSec,  0, 41, 0,     0,         100,   u"V-ENV Decay 2 Time", {}},
    { 95, kAdapt,      kX,    0, 42, 1,     0.015625f, 64,    u"V-ENV Velocity to Decay 2 Time", u"Time-quotient max/min velocity"},
    { 96, kAdapt,      kX,    0, 43, 1,     0.25f,     4,     u"V-ENV Key number to Decay 2 Time", u"Time-multiplier per octave"},
    { 97, kFour,       kDb,   0, 40, 1,     0,         1,     u"V-ENV Sustain", u"Decay 2 Level"},
    { 98, kAdapt,      kSec,  0, 44, 0,     0,         100,   u"V-ENV Release 1 Rate", u"Note: Time = Rate * Delta-Level"},
    { 99, kFour,       kDb,   0, 40, 0,     0,         1,     u"V-ENV Release 1 Level", {}},
    {100, kAdapt,      kSec,  0, 41, 0,     0,         100,   u"V-ENV Release 2 Time", {}},
    {101, kFour,       kDb,   0, 40, 0,     0,         1,     u"V-ENV Release 2 Level", {}},
    {102, kAdapt,      kSec,  0, 41, 0,     0,         100,   u"V-ENV Release 3 Time", {}},
    {103, kFour,       kDb,   0, 40, 0,     0,         1,     u"V-ENV Release 3 Level", {}},
    {104, kAdapt,      kX,    0, 42, 1,     0.015625f, 64,    u"V-ENV Velocity to total Release Time", u"Time-quotient max/min velocity"},
    {105, kAdapt,      kX,    0, 43, 1,     0.25f,     4,     u"V-ENV Key number to total Release Time", u"Time-multiplier per octave"},
    {106, kRelease,    kNone, 0, 45, 0,     0,         1,     u"V-ENV Release Mode", u"Ignore note-off | One-shot mode"},
    {107, kAdapt,      kSec,  0, 46, 0.015f, 0,         100,   u"V-ENV Shutdown Rate", u"On note or key-exclusion, time from full volume to silent"},
    {108, kPercent,    kPct,  0, 40, 0,     -1,        1,     u"P-ENV Initial Level", {}},
    {109, kAdapt,      kSec,  0, 41, 0,     0,         100,   u"P-ENV Attack 1 Time", {}},
    {110, kAdapt,      kX,    0, 42, 1,     0.015625f, 64,    u"P-ENV Velocity to Attack 1 Time", u"Time-quotient max/min velocity"},
    {111, kAdapt,      kX,    0, 43, 1,     0.25f,     4,     u"P-ENV Key number to Attack 1 Time", u"Time-multiplier per octave"},
    {112, kPercent,    kPct,  0, 40, 0,     -1,        1,     u"P-ENV Attack 1 Level", {}},
    {113, kAdapt,      kSec,  0, 41, 0,     0,         100,   u"P-ENV Attack 2 Time", {}},
    {114, kAdapt,      kX,    0, 42, 1,     0.015625f, 64,    u"P-ENV Velocity to Attack 2 Time", u"Time-quotient max/min velocity"},
    {115, kAdapt,      kX,    0, 43, 1,     0.25f,     4,     u"P-ENV Key number to Attack 2 Time", u"Time-multiplier per octave"},
    {116, kPercent,    kPct,  0, 40, 1,     -1,        1,     u"P-ENV Attack 2 Level", {}},
    {117, kAdapt,      kSec,  0, 41, 0,     0,         100,   u"P-ENV Decay 1 Time", {}},
    {118, kAdapt,      kX,    0, 42, 1,     0.015625f, 64,    u"P-ENV Velocity to Decay 1 Time", u"Time-quotient max/min velocity"},
    {119, kAdapt,      kX,    0, 43, 1,     0.25f,     4,     u"P-ENV Key number to Decay 1 Time", u"Time-multiplier per octave"},
    {120, kPercent,    kPct,  0, 40, 1,     -1,        1,     u"P-ENV Decay 1 Level", {}},
    {121, kAdapt,      kSec,  0, 41, 0,     0,         100,   u"P-ENV Decay 2 Time", {}},
    {122, kAdapt,      kX,    0, 42, 1,     0.015625f, 64,    u"P-ENV Velocity to Decay 2 Time", u"Time-quotient max/min velocity"},
    {123, kAdapt,      kX,    0, 43, 1,     0.25f,     4,     u"P-ENV Key number to Decay 2 Time", u"Time-multiplier per octave"},
    {124, kPercent,    kPct,  0, 40, 1,     -1,        1,     u"P-ENV Sustain", u"Decay 2 Level"},
    {125, kAdapt,      kSec,  0, 44, 0,     0,         100,   u"P-ENV Release 1 Rate", u"Note: Time = Rate * Delta-Level"},
    {126, kPercent,    kPct,  0, 40, 0,     -1,        1,     u"P-ENV Release 1 Level", {}},
    {127, kAdapt,      kSec,  0, 41, 0,     0,         100,   u"P-ENV Release 2 Time", {}},
    {128, kPercent,    kPct,  0, 40, 0,     -1,        1,     u"P-ENV Release 2 Level", {}},
    {129, kAdapt,      kSec,  0, 41, 0,     0,         100,   u"P-ENV Release 3 Time", {}},
    {130, kPercent,    kPct,  0, 40, 0,     -1,        1,     u"P-ENV Release 3 Level", {}},
    {131, kAdapt,      kX,    0, 42, 1,     0.015625f, 64,    u"P-ENV Velocity to total Release Time", u"Time-quotient max/min velocity"},
    {132, kAdapt,      kX,    0, 43, 1,     0.25f,     4,     u"P-ENV Key number to total Release Time", u"Time-multiplier per octave"},
    {133, kRelease,    kNone, 0, 45, 0,     0,         1,     u"P-ENV Release Mode", u"Ignore note-off | One-shot mode"},
    {134, kNoRounding, kNone, 0,  0, 0,     0,         0,     u"", {}},
    {135, kPercent,    kPct,  0, 40, 0,     -1,        1,     u"F-ENV Initial Level", {}},
    {136, kAdapt,      kSec,  0, 41, 0,     0,         100,   u"F-ENV Attack 1 Time", {}},
    {137, kAdapt,      kX,    0, 42, 1,     0.015625f, 64,    u"F-ENV Velocity to Attack 1 Time", u"Time-quotient max/min velocity"},
    {138, kAdapt,      kX,    0, 43, 1,     0.25f,     4,     u"F-ENV Key number to Attack 1 Time", u"Time-multiplier per octave"},
    {139, kPercent,    kPct,  0, 40, 0,     -1,        1,     u"F-ENV Attack 1 Level", {}},
    {140, kAdapt,      kSec,  0, 41, 0,     0,         100,   u"F-ENV Attack 2 Time", {}},
    {141, kAdapt,      kX,    0, 42, 1,     0.015625f, 64,    u"F-ENV Velocity to Attack 2 Time", u"Time-quotient max/min velocity"},
    {142, kAdapt,      kX,    0, 43, 1,     0.25f,     4,     u"F-ENV Key number to Attack 2 Time", u"Time-multiplier per octave"},
    {143, kPercent,    kPct,  0, 40, 1,     -1,        1,     u"F-ENV Attack 2 Level", {}},
    {144, kAdapt,      kSec,  0, 41, 0,     0,         100,   u"F-ENV Decay 1 Time", {}},
    {145, kAdapt,      kX,    0, 42, 1,     0.015625f, 64,    u"F-ENV Velocity to Decay 1 Time", u"Time-quotient max/min velocity"},
    {146, kAdapt,      kX,    0, 43, 1,     0.25f,     4,     u"F-ENV Key number to Decay 1 Time", u"Time-multiplier per octave"},
    {147, kPercent,    kPct,  0, 40, 1,     -1,        1,     u"F-ENV Decay 1 Level", {}},
    {148, kAdapt,      kSec,  0, 41, 0,     0,         100,   u"F-ENV Decay 2 Time", {}},
    {149, kAdapt,      kX,    0, 42, 1,     0.015625f, 64,    u"F-ENV Velocity to Decay 2 Time", u"Time-quotient max/min velocity"},
    {150, kAdapt,      kX,    0, 43, 1,     0.25f,     4,     u"F-ENV Key number to Decay 2 Time", u"Time-multiplier per octave"},
    {151, kPercent,    kPct,  0, 40, 1,     -1,        1,     u"F-ENV Sustain", u"Decay 2 Level"},
    {152, kAdapt,      kSec,  0, 44, 0,     0,         100,   u"F-ENV Release 1 Rate", u"Note: Time = Rate * Delta-Level"},
    {153, kPercent,    kPct,  0, 40, 0,     -1,        1,     u"F-ENV Release 1 Level", {}},
    {154, kAdapt,      kSec,  0, 41, 0,     0,         100,   u"F-ENV Release 2 Time", {}},
    {155, kPercent,    kPct,  0, 40, 0,     -1,        1,     u"F-ENV Release 2 Level", {}},
    {156, kAdapt,      kSec,  0, 41, 0,     0,         100,   u"F-ENV Release 3 Time", {}},
    {157, kPercent,    kPct,  0, 40, 0,     -1,        1,     u"F-ENV Release 3 Level", {}},
    {158, kAdapt,      kX,    0, 42, 1,     0.015625f, 64,    u"F-ENV Velocity to total Release Time", u"Time-quotient max/min velocity"},
    {159, kAdapt,      kX,    0, 43, 1,     0.25f,     4,     u"F-ENV Key number to total Release Time", u"Time-multiplier per octave"},
    {160, kRelease,    kNone, 0, 45, 0,     0,         1,     u"F-ENV Release Mode", u"Ignore note-off | One-shot mode"},
    {161, kNoRounding, kNone, 0,  0, 0,     0,         0,     u"", {}},
    {162, kPercent,    kPct,  0, 40, 0,     -1,        1,     u"X-ENV Initial Level", {}},
    {163, kAdapt,      kSec,  0, 41, 0,     0,         100,   u"X-ENV Attack 1 Time", {}},
    {164, kAdapt,      kX,    0, 42, 1,     0.015625f, 64,    u"X-ENV Velocity to Attack 1 Time", u"Time-quotient max/min velocity"},
    {165, kAdapt,      kX,    0, 43, 1,     0.25f,     4,     u"X-ENV Key number to Attack 1 Time", u"Time-multiplier per octave"},
    {166, kPercent,    kPct,  0, 40, 0,     -1,        1,     u"X-ENV Attack 1 Level", {}},
    {167, kAdapt,      kSec,  0, 41, 0,     0,         100,   u"X-ENV Attack 2 Time", {}},
    {168, kAdapt,      kX,    0, 42, 1,     0.015625f, 64,    u"X-ENV Velocity to Attack 2 Time", u"Time-quotient max/min velocity"},
    {169, kAdapt,      kX,    0, 43, 1,     0.25f,     4,     u"X-ENV Key number to Attack 2 Time", u"Time-multiplier per octave"},
    {170, kPercent,    kPct,  0, 40, 1,     -1,        1,     u"X-ENV Attack 2 Level", {}},
    {171, kAdapt,      kSec,  0, 41, 0,     0,         100,   u"X-ENV Decay 1 Time", {}},
    {172, kAdapt,      kX,    0, 42, 1,     0.015625f, 64,    u"X-ENV Velocity to Decay 1 Time", u"Time-quotient max/min velocity"},
    {173, kAdapt,      kX,    0, 43, 1,     0.25f,     4,     u"X-ENV Key number to Decay 1 Time", u"Time-multiplier per octave"},
    {174, kPercent,    kPct,  0, 40, 1,     -1,        1,     u"X-ENV Decay 1 Level", {}},
    {175, kAdapt,      kSec,  0, 41, 0,     0,         100,   u"X-ENV Decay 2 Time", {}},
    {176, kAdapt,      kX,    0, 42, 1,     0.015625f, 64,    u"X-ENV Velocity to Decay 2 Time", u"Time-quotient max/min velocity"},
    {177, kAdapt,      kX,    0, 43, 1,     0.25f,     4,     u"X-ENV Key number to Decay 2 Time", u"Time-multiplier per octave"},
    {178, kPercent,    kPct,  0, 40, 1,     -1,        1,     u"X-ENV Sustain", u"Decay 2 Level"},
    {179, kAdapt,      kSec,  0, 44, 0,     0,         100,   u"X-ENV Release 1 Rate", u"Note: Time = Rate * Delta-Level"},
    {180, kPercent,    kPct,  0, 40, 0,     -1,        1,     u"X-ENV Release 1 Level", {}},
    {181, kAdapt,      kSec,  0, 41, 0,     0,         100,   u"X-ENV Release 2 Time", {}},
    {182, kPercent,    kPct,  0, 40, 0,     -1,        1,     u"X-ENV Release 2 Level", {}},
    {183, kAdapt,      kSec,  0, 41, 0,     0,         100,   u"X-ENV Release 3 Time", {}},
    {184, kPercent,    kPct,  0, 40, 0,     -1,        1,     u"X-ENV Release 3 Level", {}},
    {185, kAdapt,      kX,    0, 42, 1,     0.015625f, 64,    u"X-ENV Velocity to total Release Time", u"Time-quotient max/min velocity"},
    {186, kAdapt,      kX,    0, 43, 1,     0.25f,     4,     u"X-ENV Key number to total Release Time", u"Time-multiplier per octave"},
    {187, kRelease,    kNone, 0, 45, 0,     0,         1,     u"X-ENV Release Mode", u"Ignore note-off | One-shot mode"},
    {188, kNoRounding, kNone, 0,  0, 0,     0,         0,     u"", {}},
}};
// clang-format on

consteval bool RowsAreInOrder()
{
    for (std::size_t id = 0; id < kRows.size(); ++id)
        if (kRows[id].id != id)
            return false;
    return true;
}

consteval bool DefaultsAreInsideLimits()
{
    for (const ParamRow& row : kRows)
        if (row.defaultValue < row.minimum || row.defaultValue > row.maximum)
            return false;
    return true;
}

static_assert(RowsAreInOrder() && DefaultsAreInsideLimits());

consteval std::array<float, kArticulationParams> Defaults()
{
    std::array<float, kArticulationParams> values{};
    for (std::size_t id = 0; id < values.size(); ++id)
        values[id] = kRows[id].defaultValue;
    return values;
}

} // namespace

constinit const std::array<ParamRow, kArticulationParams> kArticulationRows = kRows;
constinit const std::array<float, kArticulationParams> kArticulationDefaults = Defaults();
constinit SharedValues::Held SharedValues::defaults_{Defaults()};

const ParamRow& ArticulationParamRow(ParamId id) noexcept
{
    return id < kArticulationParams ? kArticulationRows[id] : kEmptyParamRow;
}

} // namespace vimbo
