#include "model/param.h"

#include "model/articulation.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <set>
#include <string>

namespace vimbo {
namespace {

TEST(ParamRows, KnownRowsInAllColumns)
{
    struct Known {
        ParamId id;
        EditClass editClass;
        ParamUnit unit;
        float defaultValue, minimum, maximum;
        std::u16string_view name, hint;
    };
    using enum EditClass;
    const Known table[] = {
        {0, TwoDecimals, ParamUnit::Semitones, 0, -48, 48, u"Master tuning Pitch adjustment", u""},
        {1, TwoDecimals, ParamUnit::Semitones, 1, -12, 12, u"Key to Pitch",
         u"Semitones per key, centered on Root key"},
        {13, TwoDecimals, ParamUnit::Semitones, 0, 0, 96, u"Random to Pitch", u""},
        {15, TwoDecimals, ParamUnit::Db, 96, -96, 96, u"Velocity to Volume",
         u"Special transform, negative inverts range"},
        {16, TwoDecimals, ParamUnit::Db, 0, -24, 24, u"Key to Volume", u"dB per octave, centered on mid-C"},
        {21, TwoDecimals, ParamUnit::Db, 0, -96, 96, u"Aftertrouch to V-LFO to Volume", u""},
        {23, FilterType, ParamUnit::None, 0, 0, 12, u"Filter type", u""},
        {24, OneDecimal, ParamUnit::Hz, 8000, 8, 24000, u"Filter Cutoff frequency", u""},
        {34, TwoDecimals, ParamUnit::Semitones, 0, -128, 128, u"Velocity to F-ENV to Filter Cutoff", u""},
        {35, TwoDecimals, ParamUnit::Db, 0, -6, 96, u"Filter Resonance peak height", u""},
        {44, OneDecimal, ParamUnit::Hz, 800, 16, 24000, u"EQ 2 center Frequency", u""},
        {50, TwoDecimals, ParamUnit::Factor, 0.71f, 0.01f, 10, u"EQ 3 Q-value",
         u"Band-width is a function of Center frequency / Q"},
        {51, Percent, ParamUnit::Percent, 0, -1, 1, u"Pan position",
         u"-100% = full left | 0% = centered | +100% = full right"},
        {56, Percent, ParamUnit::Percent, 0, 0, 1, u"Random to Pan position", u""},
        {63, Percent, ParamUnit::Percent, 0, 0, 1, u"Send channel 3 level", u""},
        {64, Percent, ParamUnit::Percent, 1, 0, 1, u"CC94 to Send channel 3 level", u""},
        {77, LfoShape, ParamUnit::None, 0, 0, 255, u"F-LFO Wave Shape", u""},
        {78, Adaptive, ParamUnit::Hz, 5, 0.01f, 20, u"F-LFO Frequency", u""},
        {79, Adaptive, ParamUnit::Seconds, 0, 0, 10, u"F-LFO Delay Time", u""},
        {80, Adaptive, ParamUnit::Seconds, 0, 0, 100, u"F-LFO Ramp/fade-in Time", u""},
        {89, FourDecimals, ParamUnit::Db, 1, 0, 1, u"V-ENV Attack 2 Level", u""},
        {97, FourDecimals, ParamUnit::Db, 1, 0, 1, u"V-ENV Sustain", u"Decay 2 Level"},
        {98, Adaptive, ParamUnit::Seconds, 0, 0, 100, u"V-ENV Release 1 Rate",
         u"Note: Time = Rate * Delta-Level"},
        {107, Adaptive, ParamUnit::Seconds, 0.015f, 0, 100, u"V-ENV Shutdown Rate",
         u"On note or key-exclusion, time from full volume to silent"},
        {110, Adaptive, ParamUnit::Factor, 1, 0.015625f, 64, u"P-ENV Velocity to Attack 1 Time",
         u"Time-quotient max/min velocity"},
        {126, Percent, ParamUnit::Percent, 0, -1, 1, u"P-ENV Release 1 Level", u""},
        {134, None, ParamUnit::None, 0, 0, 0, u"", u""},
        {186, Adaptive, ParamUnit::Factor, 1, 0.25f, 4, u"X-ENV Key number to total Release Time",
         u"Time-multiplier per octave"},
        {187, ReleaseMode, ParamUnit::None, 0, 0, 1, u"X-ENV Release Mode",
         u"Ignore note-off | One-shot mode"},
        {188, None, ParamUnit::None, 0, 0, 0, u"", u""},
        {190, Key, ParamUnit::None, 127, 0, 127, u"High key", u""},
        {203, ThreeDecimals, ParamUnit::Seconds, 0, 0, 100, u"Delay", u""},
        {224, Whole, ParamUnit::None, 0, -2147483520.0f, 0, u"End offset",
         u"In frames from the end of the waveform, negative"},
    };
    for (const Known& known : table) {
        const ParamRow& row = AnyParamRow(known.id);
        EXPECT_EQ(row.id, known.id);
        EXPECT_EQ(row.editClass, known.editClass) << known.id;
        EXPECT_EQ(row.unit, known.unit) << known.id;
        EXPECT_EQ(row.defaultValue, known.defaultValue) << known.id;
        EXPECT_EQ(row.minimum, known.minimum) << known.id;
        EXPECT_EQ(row.maximum, known.maximum) << known.id;
        EXPECT_TRUE(row.name == known.name && row.hint == known.hint) << known.id;
    }
}

TEST(ParamRows, NamesTellTheArticulationApart)
{
    std::multiset<std::u16string_view> names;
    for (ParamId id = 0; id < kArticulationParams; ++id)
        names.insert(AnyParamRow(id).name);
    // Three empty rows; one send's name and four of an LFO's stand twice.
    EXPECT_EQ(names.count(u""), 3U);
    EXPECT_EQ(names.count(u"Send channel 3 level"), 2U);
    EXPECT_EQ(names.count(u"F-LFO Delay Time"), 2U);
    EXPECT_EQ(std::set(names.begin(), names.end()).size(), 189U - 2 - 1 - 4);
}

TEST(ParamRows, LiveInTheirGroups)
{
    for (ParamId id = 0; id < 300; ++id) {
        const bool isLoop = id >= 204 && id <= 208;
        EXPECT_EQ(AnyParamRow(id).id == id, id <= 262) << id;
        EXPECT_EQ(id != 0 && ArticulationParamRow(id).id == id, id > 0 && id < 189) << id;
        EXPECT_EQ(id != 0 && TriggerParamRow(id).id == id, id >= 189 && id <= 203) << id;
        EXPECT_EQ(id != 0 && TextParamRow(id).id == id, id >= 209 && id <= 216) << id;
        EXPECT_EQ(id != 0 && WaveParamRow(id).id == id, isLoop || (id >= 217 && id <= 221)) << id;
        EXPECT_EQ(id != 0 && RegionParamRow(id).id == id, isLoop || (id >= 222 && id <= 226)) << id;
        EXPECT_EQ(id != 0 && InstrumentParamRow(id).id == id, id >= 227 && id <= 262) << id;
    }
    EXPECT_EQ(&AnyParamRow(263), &kEmptyParamRow);
}

TEST(Rounding, FollowsTheEditClass)
{
    constexpr float kInf = std::numeric_limits<float>::infinity();
    struct Case {
        ParamId id;
        float value, expected;
    };
    const Case cases[] = {
        {15, 200, 96},
        {15, -1e30f, -96},
        {24, 1234.56f, 1234.6f},
        {24, 7.96f, 8},
        {66, 12.345f, 12.35f},
        {66, 2.3456f, 2.346f},
        {66, 9.9999f, 10},
        {66, -5, 0.01f},
        {0, -1.235f, -1.24f}, // float -1.235 lies below
        {0, -1.234f, -1.23f},
        {0, 1.005f, 1}, // float 1.005 lies below
        {51, 0.12349f, 0.123f},
        {51, -0.0004f, 0},
        {97, 0.12346f, 0.1235f},
        {125, 0.12346f, 0.123f},
        {23, 2.7f, 2.7f},       // lists are not rounded
        {203, 0.0125f, 0.013f}, // float 0.0125 lies above
        {134, 5, 0},
        {24, kInf, 24000},
        {24, -kInf, 8},
        {24, std::nanf(""), 8000},
    };
    for (const Case& c : cases)
        EXPECT_EQ(RoundAndClamp(AnyParamRow(c.id), c.value), c.expected) << c.id << ' ' << c.value;
    EXPECT_FALSE(std::signbit(RoundAndClamp(AnyParamRow(51), -0.0004f)));
}

TEST(Rounding, IsStable)
{
    // A value that was set can be set again: what is stored does not creep.
    for (ParamId id = 0; id <= kParamLast; ++id) {
        const ParamRow& row = AnyParamRow(id);
        const float width = row.maximum - row.minimum;
        for (int i = 0; i <= 500; ++i) {
            const float once = RoundAndClamp(row, row.minimum + width * static_cast<float>(i) / 500);
            ASSERT_EQ(RoundAndClamp(row, once), once) << id;
            ASSERT_TRUE(once >= row.minimum && once <= row.maximum) << id;
        }
    }
}

TEST(ParamText, ValuesAsShown)
{
    struct Case {
        ParamId id;
        float value;
        std::u16string_view text;
    };
    const Case cases[] = {
        {14, -6, u"-6 dB"},
        {0, 1.5f, u"1.5 st"},
        {51, 0.35f, u"35 %"},
        {51, -0.125f, u"-12.5 %"},
        {51, -0.0001f, u"0 %"},
        {24, 8000, u"8000 Hz"},
        {24, 1234.56f, u"1234.6 Hz"},
        {50, 0.71f, u"0.71 x"},
        {107, 0.015f, u"0.015 s"},
        {97, 1, u"0 dB"},
        {97, 0, u"-96 dB"},
        {97, 0.5f, u"-48 dB"},
        {124, 0.5f, u"50 %"}, // sustain of the pitch envelope
        {23, 2, u"Low-Pass 12 dB/oct"},
        {65, 68, u"Saw-Up+"},
        {65, 132, u"132"},
        {106, 1, u"No Release"},
        {189, 60, u"C4"},
        {199, 17, u"Alternate Gr.16"},
        {201, 3, u"3"},
        {204, 0, u"Off"},
        {204, 3, u"Alternating"},
        {217, 44100, u"44100 Hz"},
        {219, -25, u"-25 %"},
        {221, 8, u"Compressed 32 kbit/s"},
        {24, std::nanf(""), u"8000 Hz"},
    };
    for (const Case& c : cases)
        EXPECT_TRUE(FormatParamValue(c.id, c.value) == c.text) << c.id << ' ' << c.value;
}

TEST(ParamText, ListEntries)
{
    struct Case {
        EditClass list;
        int value;
        std::u16string_view text;
    };
    using enum EditClass;
    const Case cases[] = {
        {TriggerType, 0, u"Key Press"},
        {TriggerType, 1, u"Key Release"},
        {TriggerType, 2, u"Alternate Gr.1"},
        {TriggerType, 18, u""},
        {PedalSwitch, 0, u"Don't switch"},
        {PedalSwitch, 2, u"Play on Up"},
        {LfoShape, 3, u"Noise"},
        {LfoShape, 64, u"Sine+"},
        {LfoShape, 67, u"Noise+"},
        {LfoShape, 6, u""},
        {LfoShape, 70, u""},
        {LfoShape, 128, u""},
        {FilterType, 4, u"Low-Pass 24 dB/oct"},
        {FilterType, 5, u"High-Pass 6 dB/oct"},
        {FilterType, 12, u"Band-Reject 12 dB/oct"},
        {FilterType, 13, u""},
        {EqMode, 1, u"Lo-shelf"},
        {LoopType, 0, u""},
        {LoopRelease, 1, u"Break on Release"},
        {ChannelFxType, 8, u"Transient"},
        {NoteExclusion, 0, u"Self exclusive"},
        {FadeFormula, 1, u"Linear Gain"},
        {SaveFormat, 22, u""},
        {SaveFormat, -1, u""},
        {OneDecimal, 0, u""},
    };
    for (const Case& c : cases)
        EXPECT_TRUE(ListEntryText(c.list, c.value) == c.text) << static_cast<int>(c.list) << ' ' << c.value;
}

TEST(ParamText, NamesOfSharedModulators)
{
    const auto without = [](std::initializer_list<Feature> missing) {
        FeatureMask mask;
        for (const Feature feature : missing)
            mask.bits &= ~(std::uint64_t{1} << static_cast<unsigned>(feature));
        return mask;
    };
    const FeatureMask twoLfos = without({Feature::LfoSeparate});
    const FeatureMask oneLfo = without({Feature::LfoSeparate, Feature::LfoPitchAndModulation});
    const FeatureMask twoEnvelopes = without({Feature::EnvSeparate});
    struct Case {
        ParamId id;
        FeatureMask mask;
        std::u16string_view name;
    };
    const Case cases[] = {
        {4, {}, u"Mod wheel to P-LFO to Pitch"},
        {4, twoLfos, u"Mod wheel to P-LFO to Pitch"},
        {4, oneLfo, u"Mod wheel to M-LFO to Pitch"},
        {68, twoLfos, u"P-LFO Ramp/fade-in Time"},
        {8, twoLfos, u"Mod wheel to M-LFO to Pitch"},
        {54, twoLfos, u"M-LFO to Pan position"},
        {77, twoLfos, u"M-LFO Wave Shape"},
        {29, twoEnvelopes, u"F-LFO to Filter Cutoff"},
        {12, twoEnvelopes, u"Velocity to M-ENV to Pitch"},
        {55, twoEnvelopes, u"M-ENV to Pan position"},
        {97, twoEnvelopes, u"V-ENV Sustain"},
        {108, twoEnvelopes, u"M-ENV Initial Level"},
        {134, twoEnvelopes, u""},
        {189, oneLfo, u"Low key"},
    };
    for (const Case& c : cases)
        EXPECT_TRUE(DisplayName(c.id, c.mask) == c.name) << c.id;
}

TEST(Features, PresetsAreFoundByTheirKnownBits)
{
    EXPECT_EQ(FeatureTexts().size(), 43U);
    ASSERT_EQ(FeaturePresets().size(), 22U);
    for (const FeaturePreset& preset : FeaturePresets()) {
        EXPECT_TRUE(FeaturePresetName(preset.mask) == preset.text);
        // Bits 4 and 44 and above have no text.
        const std::uint64_t unknown = preset.mask.bits ^ (1ULL << 4 | 1ULL << 50);
        EXPECT_TRUE(FeaturePresetName({unknown}) == preset.text);
    }
    EXPECT_TRUE(FeaturePresetName({0xB42740C4E88}) == u"Akai S1000-series (.P)");
    EXPECT_TRUE(FeaturePresetName({0xB42740C4E89}) == u"Custom set");
    EXPECT_TRUE(FeatureMask{0xFFFFFFFFFFF}.Has(Feature::VolumeControllers));
    EXPECT_FALSE(FeatureMask{0xFFFFFFFFFFF}.Has(Feature::KeepSeparateLfos));
}

} // namespace
} // namespace vimbo
