#include "model/trigger.h"

#include <gtest/gtest.h>

#include <cmath>

namespace vimbo {
namespace {

TriggerParams WithRanges(MidiRange keys, MidiRange velocities = {})
{
    TriggerParams trigger;
    trigger.keys = keys;
    trigger.velocities = velocities;
    return trigger;
}

TEST(Trigger, EveryIdHasItsFieldAndMark)
{
    TriggerParams trigger;
    for (ParamId id = kFirstTriggerParam; id <= kLastTriggerParam; ++id) {
        const float value = id == kParamDelay ? 1.25f : 1.0f;
        trigger.Set(id, value);
        EXPECT_EQ(trigger.Get(id), value) << id;
        EXPECT_EQ(trigger.marks, std::uint64_t{1} << (id - 189)) << id;
        const TriggerParams defaults;
        EXPECT_FALSE(trigger.SameValues(defaults)) << id;
        trigger.Unmark(id);
        EXPECT_TRUE(trigger.InheritFrom(defaults));
        EXPECT_FALSE(trigger.InheritFrom(defaults));
        EXPECT_EQ(trigger, defaults) << id;
    }
    trigger.Set(188, 1);
    trigger.Set(204, 1);
    EXPECT_EQ(trigger, TriggerParams{});
    trigger.Set(kParamHighKey, 300);
    trigger.Set(kParamTriggerType, -5);
    trigger.Set(kParamExclusionGroup, 40000);
    EXPECT_EQ(trigger.keys.high, 127);
    EXPECT_EQ(trigger.triggerType, 0);
    EXPECT_EQ(trigger.exclusionGroup, 40000);
}

TEST(Trigger, NormalizeRepairsRangesListsAndDelay)
{
    TriggerParams trigger = WithRanges({100, 50}, {200, 255});
    trigger.Mark(kParamLowKey);
    trigger.keyFadeIn = 200;
    trigger.keyFadeOut = 51;
    trigger.velocityFadeIn = 128;
    trigger.keyFadeFormula = 2;
    trigger.triggerType = 18;
    trigger.pedalSwitch = 3;
    trigger.noteExclusionMode = 2;
    trigger.delaySeconds = 0.0126f;
    trigger.Normalize({});
    EXPECT_EQ(trigger.keys, (MidiRange{50, 100}));
    EXPECT_TRUE(trigger.IsSet(kParamLowKey) && trigger.IsSet(kParamHighKey)); // both edges were meant
    EXPECT_EQ(trigger.velocities, (MidiRange{0, 127}));
    EXPECT_EQ(trigger.keyFadeIn, 51);
    EXPECT_EQ(trigger.keyFadeOut, 51);
    EXPECT_EQ(trigger.velocityFadeIn, 127);
    EXPECT_EQ(trigger.keyFadeFormula + trigger.triggerType + trigger.pedalSwitch + trigger.noteExclusionMode,
              0);
    EXPECT_FLOAT_EQ(trigger.delaySeconds, 0.013f);
    const TriggerParams once = trigger;
    trigger.Normalize({});
    EXPECT_EQ(trigger, once);
    for (const auto& [delay, expected] : {std::pair{NAN, 0.0f}, {-1.0f, 0.0f}, {1e9f, 100.0f}}) {
        trigger.delaySeconds = delay;
        trigger.Normalize({});
        EXPECT_EQ(trigger.delaySeconds, expected);
    }
}

TEST(Trigger, FeaturesLimitWhatIsKept)
{
    TriggerParams full = WithRanges({0, 60});
    full.keyFadeIn = full.keyFadeOut = full.velocityFadeIn = full.velocityFadeOut = 5;
    full.triggerType = full.pedalSwitch = 1;
    full.delaySeconds = 2;
    const auto limited = [&](unsigned bit) {
        TriggerParams trigger = full;
        trigger.Normalize({~(std::uint64_t{1} << bit)});
        return trigger;
    };
    TriggerParams noFades = full;
    noFades.keyFadeIn = noFades.keyFadeOut = noFades.velocityFadeIn = noFades.velocityFadeOut = 0;
    EXPECT_EQ(limited(0), noFades);
    TriggerParams noType = full;
    noType.triggerType = noType.pedalSwitch = 0;
    EXPECT_EQ(limited(13), noType);
    TriggerParams noDelay = full;
    noDelay.delaySeconds = 0;
    EXPECT_EQ(limited(12), noDelay);
    EXPECT_EQ(limited(1), full);
}

TEST(Trigger, UniteGrowsRangesAndKeepsOnlyWhatIsShared)
{
    TriggerParams a = WithRanges({40, 50}, {1, 20});
    a.delaySeconds = 0.5f;
    a.triggerType = 3;
    TriggerParams b = WithRanges({45, 60}, {64, 127});
    b.delaySeconds = 0.5f;
    b.triggerType = 4;
    a.Unite(b);
    TriggerParams expected = WithRanges({40, 60}, {1, 127});
    expected.delaySeconds = 0.5f;
    EXPECT_EQ(a, expected);
}

TEST(Trigger, RecordIsLaidOutAsDocumentedAndTamed)
{
    TriggerParams trigger = WithRanges({1, 90}, {3, 91});
    trigger.keyFadeIn = 5;
    trigger.keyFadeOut = 6;
    trigger.velocityFadeIn = 7;
    trigger.velocityFadeOut = 8;
    trigger.keyFadeFormula = trigger.velocityFadeFormula = 1;
    trigger.triggerType = 17;
    trigger.pedalSwitch = 2;
    trigger.exclusionGroup = 0x1234;
    trigger.noteExclusionMode = 1;
    trigger.delaySeconds = 1.5f;
    trigger.marks = 0x4321;
    ByteWriter out;
    trigger.Serialize(out);
    const unsigned char expected[] = {1, 90, 3, 91, 5,    6,    7,    8,    1, 1, 17, 2, 0x34, 0x12,
                                      1, 0,  0, 0,  0xC0, 0x3F, 0x21, 0x43, 0, 0, 0,  0, 0,    0};
    ASSERT_EQ(out.Size(), sizeof(expected));
    EXPECT_EQ(std::memcmp(out.Bytes().data(), expected, sizeof(expected)), 0);
    TriggerParams back;
    ByteReader whole(out.Bytes());
    ASSERT_TRUE(back.Deserialize(whole));
    EXPECT_EQ(back, trigger);
    ByteReader cut(out.Bytes().first(27));
    EXPECT_FALSE(back.Deserialize(cut));

    const std::vector<std::byte> wild(28, std::byte{0xFF});
    ByteReader wildReader(wild);
    ASSERT_TRUE(back.Deserialize(wildReader));
    TriggerParams tame = back;
    tame.Normalize({});
    EXPECT_EQ(back, tame);
    EXPECT_EQ(back.marks, 0x7FFFu);
    EXPECT_EQ(back.delaySeconds, 0);
}

TEST(CrossFade, NeighboursWithEqualFadesAddUpToOne)
{
    for (const std::uint8_t width : std::initializer_list<std::uint8_t>{1, 2, 3, 8, 13}) {
        TriggerParams lower = WithRanges({20, 59});
        TriggerParams upper = WithRanges({60, 99});
        lower.keyFadeOut = upper.keyFadeIn = width;
        lower.keyFadeFormula = upper.keyFadeFormula = 1;
        const FadeRange down = CrossFadeRanges(lower).keys;
        const FadeRange up = CrossFadeRanges(upper).keys;
        EXPECT_EQ(down.high - up.low + 1, width); // all of them fade
        for (unsigned key = 20; key < 100; ++key)
            EXPECT_NEAR(down.GainAt(key) + up.GainAt(key), 1, 1e-6) << "width " << +width << ", key " << key;
        lower.keyFadeFormula = upper.keyFadeFormula = 0;
        const auto power = [&](unsigned key) {
            return std::pow(CrossFadeRanges(lower).keys.GainAt(key), 2) +
                   std::pow(CrossFadeRanges(upper).keys.GainAt(key), 2);
        };
        EXPECT_NEAR(power(59), 1, 1e-6);
        EXPECT_NEAR(power(60), 1, 1e-6);
    }
}

TEST(CrossFade, CurvesStayPutAtTheEndsOfTheKeyboard)
{
    TriggerParams inside = WithRanges({10, 100}, {1, 64});
    inside.keyFadeIn = 8;
    inside.velocityFadeOut = 6;
    TriggerParams atEdge = inside;
    atEdge.keys.low = 2;
    const CrossFade fades = CrossFadeRanges(inside);
    EXPECT_EQ(fades.keys, (FadeRange{6, 14, 100, 100, FadeFormula::EqualPower}));
    EXPECT_EQ(fades.velocities, (FadeRange{1, 1, 61, 67, FadeFormula::EqualPower}));
    EXPECT_EQ(fades.keys.GainAt(5), 0);
    EXPECT_EQ(fades.keys.GainAt(101), 0);
    EXPECT_EQ(fades.velocities.GainAt(1), 1);
    const FadeRange cut = CrossFadeRanges(atEdge).keys;
    EXPECT_EQ(cut.low, 0);
    for (unsigned key = 0; key < 20; ++key)
        EXPECT_EQ(cut.GainAt(key), fades.keys.GainAt(key + 8)) << key;
}

} // namespace
} // namespace vimbo
