#include "level_builders.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace vimbo {
namespace {

struct OneRegion {
    OneRegion()
    {
        wave.frames = 1000;
        wave.rootKey = 64;
        wave.loop = {LoopType::Forward, true, false, 100, 900, 0.5f};
    }
    Collection items;
    Waveform& wave = items.Create<Waveform>(u"Piano C3");
    Instrument& instrument = items.Create<Instrument>(u"i");
    Layer& layer = instrument.AddLayer();
    Region& region = layer.AddRegion(wave.Handle());
};

TEST(Region, NameShowsRangesAndSound)
{
    struct Case {
        MidiRange keys, velocities;
        const char16_t* name;
    };
    const Case cases[] = {
        {{0, 127}, {0, 127}, u"C-1..G9 : Piano C3"},
        {{48, 71}, {1, 127}, u"C3..B4 : Piano C3"},
        {{60, 60}, {2, 127}, u"C4..C4 : 2..127 : Piano C3"},
        {{61, 62}, {0, 126}, u"C#4..D4 : 0..126 : Piano C3"},
    };
    OneRegion one;
    for (const Case& c : cases) {
        one.region.trigger.keys = c.keys;
        one.region.trigger.velocities = c.velocities;
        one.region.RebuildName();
        EXPECT_EQ(one.region.GetName(), c.name);
    }
    one.items.Destroy(one.wave.Handle());
    one.region.trigger = {};
    one.region.Validate();
    EXPECT_EQ(one.region.GetName(), u"C-1..G9 : unnamed");
}

TEST(Region, FieldsWithoutOverrideAreTheWaveforms)
{
    OneRegion one;
    one.region.Validate();
    EXPECT_EQ(one.region.rootKey, 64);
    EXPECT_EQ(one.region.loop, one.wave.loop);
    for (const ParamId id : {kParamLoopType, kParamLoopRelease, kParamLoopStart, kParamLoopEnd,
                             kParamLoopPitch, kParamRegionRootKey}) {
        EXPECT_FALSE(one.region.IsParamSet(id)) << id;
        const float below = one.region.GetParam(id);
        EXPECT_EQ(one.region.GetInheritedParam(id), below) << id;
        const float other = id == kParamLoopRelease ? 0.0f : id == kParamLoopEnd ? 500.0f : 2.0f;
        one.region.SetParam(id, other);
        EXPECT_TRUE(one.region.IsParamSet(id)) << id;
        EXPECT_EQ(one.region.overrideFlags, id == 222 ? 1 : 2 << (id - 204));
        one.region.Validate();
        EXPECT_EQ(one.region.GetParam(id), other) << id;
        EXPECT_FALSE(one.region.DropEqualOverrides());
        one.region.ClearParam(id, 0);
        EXPECT_EQ(one.region.GetParam(id), below) << id;
        one.region.SetParam(id, below);
        EXPECT_TRUE(one.region.DropEqualOverrides()) << id;
        EXPECT_EQ(one.region.overrideFlags, 0);
    }
    one.wave.loop.start = 200;
    EXPECT_EQ(one.region.GetParam(kParamLoopStart), 200);
    one.region.SetParam(kParamRegionRootKey, 70);
    EXPECT_EQ(one.region.EffectiveRootKey(), 70);
    one.region.rootKey = 128;
    one.region.Validate();
    EXPECT_EQ(one.region.rootKey, 60);
}

TEST(Region, LoopPointsStayInsideTheWaveform)
{
    constexpr std::uint8_t kStart = Region::kLoopStart;
    constexpr std::uint8_t kEnd = Region::kLoopEnd;
    struct Case {
        std::uint8_t flags;
        double start, end;
        bool fractions;
        double startThen, endThen;
    };
    const Case cases[] = {
        {kStart | kEnd, 10.256, 2000, true, 10.26, 1000},
        {kStart | kEnd, 10.6, 20.4, false, 11, 21}, // the length is rounded
        {kStart, 5.5, 0, false, 6, 900},            // the waveform's end does not move along
        {kStart, 950, 0, true, 0, 900},
        {kEnd, 0, 50, true, 100, 1000},
        {kEnd, 0, NAN, true, 100, 1000},
        {kStart, -3, 0, true, 0, 900},
    };
    for (const Case& c : cases) {
        OneRegion one;
        if (!c.fractions)
            one.items.features.bits &= ~(std::uint64_t{1} << 7);
        one.region.overrideFlags = c.flags;
        one.region.loop.start = c.start;
        one.region.loop.end = c.end;
        for (int pass = 0; pass < 2; ++pass) {
            one.region.Validate();
            EXPECT_EQ(one.region.loop.start, c.startThen) << c.start << ", " << c.end;
            EXPECT_EQ(one.region.loop.end, c.endThen) << c.start << ", " << c.end;
        }
    }
}

TEST(Region, OffsetsLeaveAFrameAndNeedTheFeature)
{
    OneRegion one;
    const auto validated = [&](std::int32_t start, std::int32_t end) {
        one.region.startOffset = start;
        one.region.endOffset = end;
        one.region.Validate();
        return std::pair(one.region.startOffset, one.region.endOffset);
    };
    EXPECT_EQ(validated(10, -20), std::pair(10, -20));
    EXPECT_EQ(validated(-1, 1), std::pair(0, 0));
    EXPECT_EQ(validated(5000, 0), std::pair(999, 0));
    EXPECT_EQ(validated(0, -5000), std::pair(0, -999));
    EXPECT_EQ(validated(600, -600), std::pair(600, -399));
    one.items.features.bits &= ~(std::uint64_t{1} << 10);
    EXPECT_EQ(validated(10, -20), std::pair(0, 0));
}

TEST(Region, SettingsThatAllRegionsShareMoveToTheWaveform)
{
    OneRegion one;
    Region& second = one.layer.AddRegion(one.wave.Handle(), {0, 10});
    const LoopInfo common{LoopType::Alternating, false, false, 10, 500.25, 0};
    for (Region* region : {&one.region, &second}) {
        region->overrideFlags = Region::kAllOverrides;
        region->rootKey = 50;
        region->loop = common;
        region->loop.end = region == &second ? 500.252 : 500.25; // equal once it is rounded
    }
    auto& other = one.items.Create<Waveform>(u"other");
    other.frames = 10;
    Region& differs = one.layer.AddRegion(other.Handle(), {0, 10}, {}, 40);
    Region& fromWave = one.layer.AddRegion(other.Handle());
    UnifyRegionWaveSettings(one.items);
    EXPECT_EQ(one.wave.rootKey, 50);
    EXPECT_EQ(one.wave.loop, common);
    EXPECT_EQ(second.overrideFlags | one.region.overrideFlags, 0);
    EXPECT_EQ(second.loop, common);
    EXPECT_EQ(other.rootKey, 60);
    EXPECT_EQ(differs.overrideFlags, Region::kRootKey);
    EXPECT_EQ(fromWave.EffectiveRootKey(), 60);
}

TEST(Region, ClearRangesWhereThatIsFree)
{
    OneRegion one;
    one.layer.trigger.Set(kParamHighKey, 50);
    one.region.trigger.Set(kParamLowVelocity, 64);
    ClearRegionRanges(one.instrument);
    EXPECT_EQ(one.region.trigger, TriggerParams{});
    EXPECT_EQ(one.layer.trigger, TriggerParams{});
    EXPECT_EQ(one.region.GetName(), u"C-1..G9 : Piano C3");
    one.region.trigger.Set(kParamHighVelocity, 63);
    one.region.trigger.Set(kParamHighKey, 60);
    Region& loud = one.layer.AddRegion(one.wave.Handle(), {70, 80}, {64, 127});
    ClearRegionRanges(one.layer); // keys are free for both, velocities are not
    EXPECT_EQ(one.region.trigger.keys, MidiRange{});
    EXPECT_EQ(one.region.trigger.velocities, (MidiRange{0, 63}));
    EXPECT_EQ(loud.trigger.keys, MidiRange{});
    EXPECT_EQ(loud.trigger.velocities, (MidiRange{64, 127}));
}

TEST(Region, ClearRangesOfManyAsOneByOne)
{
    for (unsigned seed = 0; seed < 30; ++seed) {
        std::vector<TriggerParams> cleared[2];
        for (const bool isAtOnce : {false, true}) {
            std::mt19937 random(seed);
            const auto range = [&](unsigned widest) {
                const auto low = static_cast<unsigned>(random() % 128);
                const auto high = std::min(127u, low + static_cast<unsigned>(random() % widest));
                return MidiRange{static_cast<std::uint8_t>(low), static_cast<std::uint8_t>(high)};
            };
            Collection items;
            Layer& layer = items.Create<Instrument>(u"i").AddLayer();
            layer.trigger.Set(kParamHighKey, 100);
            for (unsigned i = 0; i < 9 + seed; ++i) // some overlap, some have a row of keys to themselves
                layer.AddRegion(NO_ITEM, range(1 + seed % 3 * 4), range(seed % 2 == 0 ? 3 : 60));
            if (isAtOnce)
                ClearRegionRanges(items);
            else
                for (Region* region : layer.Regions())
                    ClearRegionRanges(*region);
            for (const Region* region : layer.Regions())
                cleared[isAtOnce ? 1 : 0].push_back(region->trigger);
        }
        EXPECT_EQ(cleared[0], cleared[1]) << "seed " << seed;
    }
}

} // namespace
} // namespace vimbo
