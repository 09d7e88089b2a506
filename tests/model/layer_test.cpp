#include "level_builders.h"

#include "base/text.h"

#include <gtest/gtest.h>

#include <bitset>

namespace vimbo {
namespace {

constexpr std::uint8_t kKeep = MidiRange::kKeep;

/// A layer of an instrument, and one waveform for all.
struct OneLayer {
    Region& Add(MidiRange keys, MidiRange velocities = {kKeep, kKeep})
    {
        return layer.AddRegion(wave.Handle(), keys, velocities);
    }
    std::string Name() const { return WideToUtf8(layer.GetName()); }

    Collection items;
    Waveform& wave = items.Create<Waveform>(u"Piano");
    Instrument& instrument = items.Create<Instrument>(u"i");
    Layer& layer = instrument.AddLayer();
};

TEST(Layer, NewRegionsMarkTheEdgesThatWereGiven)
{
    OneLayer one;
    one.layer.trigger.Set(kParamHighVelocity, 90);
    one.layer.articulation.Set(kArtPan, 0.5f);
    const Region& region = one.layer.AddRegion(one.wave.Handle(), {60, kKeep}, {kKeep, 80}, 61);
    EXPECT_EQ(region.trigger.keys, (MidiRange{60, 127}));
    EXPECT_EQ(region.trigger.velocities, (MidiRange{0, 80}));
    EXPECT_EQ(region.trigger.marks, 0b1001u);
    EXPECT_EQ(region.articulation[kArtPan], 0.5f);
    EXPECT_FALSE(region.articulation.IsSet(kArtPan));
    EXPECT_EQ(region.overrideFlags, Region::kRootKey);
    EXPECT_EQ(region.EffectiveRootKey(), 61);
    EXPECT_EQ(region.Wave(), &one.wave);
    const Region& open = one.layer.AddRegion(NO_ITEM);
    EXPECT_EQ(open.trigger.velocities, (MidiRange{0, 90}));
    EXPECT_EQ(open.trigger.marks, 0u);
    EXPECT_TRUE(open.Children().empty());
    EXPECT_EQ(open.EffectiveRootKey(), 60);
}

TEST(Layer, NameShowsSideAndRanges)
{
    OneLayer one;
    EXPECT_EQ(one.Name(), "Layer 1");
    Region& region = one.Add({0, 127});
    region.SetParam(kArtPan, -1);
    EXPECT_EQ(one.Name(), "Layer 1: L");
    one.layer.SetParam(kParamLowKey, 48);
    one.layer.SetParam(kParamHighKey, 71);
    EXPECT_EQ(one.Name(), "Layer 1: L C3..B4");
    one.layer.SetParam(kParamHighVelocity, 64);
    region.SetParam(kArtPan, 1);
    EXPECT_EQ(one.Name(), "Layer 1: R C3..B4 : 0..64");
    one.Add({1, 2});
    one.layer.RebuildName();
    EXPECT_EQ(one.Name(), "Layer 1: C3..B4 : 0..64"); // the second is centred
    one.wave.channels = 2;
    one.layer.SetName(u"Soft : now: and then");
    one.layer.ClearParam(kParamLowKey, 0);
    one.layer.ClearParam(kParamHighKey, 127);
    EXPECT_EQ(one.Name(), "Soft: S 0..64");
    one.items.loading = true;
    one.layer.ClearParam(kParamHighVelocity, 127);
    EXPECT_EQ(one.Name(), "Soft: S 0..64"); // readers' edits are not followed one by one
    one.layer.Validate();
    EXPECT_EQ(one.Name(), "Soft: S");
}

TEST(Layer, EditsReachRegionsWithoutAMark)
{
    OneLayer one;
    Region& follows = one.Add({10, 20});
    Region& stays = one.Add({30, 40});
    stays.SetParam(kArtVolume, -6);
    stays.SetParam(kParamHighVelocity, 100);
    one.layer.SetParam(kArtVolume, -3);
    one.layer.SetParam(kParamHighVelocity, 50);
    EXPECT_EQ(follows.GetParam(kArtVolume), -3);
    EXPECT_EQ(stays.GetParam(kArtVolume), -6);
    EXPECT_EQ(follows.GetParam(kParamHighVelocity), 50);
    EXPECT_EQ(stays.GetParam(kParamHighVelocity), 100);
    EXPECT_FALSE(follows.IsParamSet(kArtVolume) || follows.IsParamSet(kParamHighVelocity));
    EXPECT_EQ(follows.GetName(), u"A#-1..G#0 : 0..50 : Piano");
    one.instrument.SetParam(kArtVolume, 5);
    EXPECT_EQ(follows.GetParam(kArtVolume), -3); // the layer has its own
    one.layer.ClearParam(kArtVolume, one.layer.GetInheritedParam(kArtVolume));
    EXPECT_EQ(one.layer.GetParam(kArtVolume), 5);
    EXPECT_EQ(follows.GetParam(kArtVolume), 5);
    EXPECT_EQ(stays.GetParam(kArtVolume), -6);
    one.instrument.SetParam(kArtVolume, 7);
    EXPECT_EQ(follows.GetParam(kArtVolume), 7);
    EXPECT_EQ(stays.GetInheritedParam(kArtVolume), 7);
}

TEST(Layer, ValidateCutsAtTheEdgeThatLosesLess)
{
    struct Case {
        const char* what;
        MidiRange firstKeys, firstVelocities, keys, velocities;
        MidiRange leftKeys, leftVelocities; ///< width 0: destroyed
    };
    const MidiRange none{1, 0};
    const Case cases[] = {
        {"apart", {0, 10}, {0, 127}, {11, 20}, {0, 127}, {11, 20}, {0, 127}},
        {"overlap in keys", {0, 15}, {0, 127}, {10, 20}, {0, 127}, {16, 20}, {0, 127}},
        {"inside", {0, 60}, {0, 127}, {10, 20}, {5, 100}, none, none},
        {"equal", {0, 60}, {0, 127}, {0, 60}, {0, 127}, none, none},
        {"one velocity less costs less", {0, 20}, {0, 64}, {5, 30}, {64, 127}, {5, 30}, {65, 127}},
        {"one key less costs less", {0, 20}, {0, 64}, {20, 30}, {10, 127}, {21, 30}, {10, 127}},
        {"equal loss moves the key", {0, 5}, {0, 5}, {5, 6}, {5, 6}, {6, 6}, {5, 6}},
        {"keys lie inside", {0, 60}, {0, 64}, {10, 20}, {10, 127}, {10, 20}, {65, 127}},
        {"the larger side stays", {0, 60}, {50, 60}, {1, 60}, {0, 127}, {1, 60}, {61, 127}},
    };
    for (const Case& c : cases) {
        OneLayer one;
        const Region& first = one.Add(c.firstKeys, c.firstVelocities);
        const ItemHandle second = one.Add(c.keys, c.velocities).Handle();
        one.layer.Validate();
        EXPECT_EQ(first.trigger.keys, c.firstKeys) << c.what;
        EXPECT_EQ(first.trigger.velocities, c.firstVelocities) << c.what;
        const auto* left = static_cast<const Region*>(one.items.FindItem(second));
        ASSERT_EQ(left != nullptr, c.leftKeys.Width() != 0) << c.what;
        if (left == nullptr)
            continue;
        EXPECT_EQ(left->trigger.keys, c.leftKeys) << c.what;
        EXPECT_EQ(left->trigger.velocities, c.leftVelocities) << c.what;
    }
}

TEST(Layer, ValidateSortsRepairsAndKeepsTheOrderOfEquals)
{
    OneLayer one;
    Region& inverted = one.Add({100, 50});
    Region& low = one.Add({0, 10}, {64, 127});
    Region& lower = one.Add({0, 10}, {0, 63});
    Region& orphan = one.items.Create<Region>(u"");
    orphan.trigger.Set(kParamHighKey, 30);
    orphan.trigger.Set(kParamLowKey, 20);
    one.layer.AddChild(orphan.Handle());
    one.layer.AddChild(low.Handle()); // named twice
    one.layer.AddChild(ItemHandle(ItemKind::Region, 0x0FFFFFF));
    Layer& other = one.instrument.AddLayer();
    const Region& foreign = other.AddRegion(one.wave.Handle());
    one.layer.AddChild(foreign.Handle());
    one.layer.Validate();
    EXPECT_EQ(one.layer.Regions(), (std::vector<Region*>{&lower, &low, &orphan, &inverted}));
    EXPECT_EQ(inverted.trigger.keys, (MidiRange{50, 100}));
    EXPECT_EQ(orphan.Parent(), one.layer.Handle());
    EXPECT_EQ(foreign.Parent(), other.Handle());
}

TEST(Layer, InheritedEdgeOnTheWrongSideStaysWhereItIsSwapped)
{
    OneLayer one;
    one.layer.trigger.Set(kParamHighKey, 50);
    Region& region = one.Add({100, kKeep});
    for (int pass = 0; pass < 2; ++pass) {
        ValidateLevels(one.instrument);
        EXPECT_EQ(region.trigger.keys, (MidiRange{50, 100}));
    }
}

TEST(Layer, ValidateLeavesNoOverlapAndChangesNothingMore)
{
    for (unsigned seed = 0; seed < 60; ++seed) {
        Collection items;
        RandomLevels random(items, seed);
        Instrument& instrument = random.Make(2, 2 + seed, seed % 3 == 0 ? 128 : 24);
        std::bitset<128 * 128> covered;
        const auto cover = [&](std::bitset<128 * 128>& places, const Layer& layer) {
            for (const Region* region : layer.Regions())
                for (unsigned key = region->trigger.keys.low; key <= region->trigger.keys.high; ++key)
                    for (unsigned v = region->trigger.velocities.low; v <= region->trigger.velocities.high;
                         ++v)
                        places.set(key * 128 + v);
        };
        Layer& layer = *instrument.Layers()[0];
        for (Region* region : layer.Regions()) {
            region->trigger.Normalize({});
            region->trigger.InheritFrom(layer.trigger);
            region->trigger.Normalize({});
        }
        cover(covered, layer);
        ValidateLevels(instrument);
        std::bitset<128 * 128> left;
        cover(left, layer);
        EXPECT_TRUE((left & ~covered).none()) << "regions grew";
        for (const Layer* each : instrument.Layers())
            ExpectNoOverlap(*each);
        ExpectInherited(instrument);
        const auto records = Records(instrument);
        ValidateLevels(instrument);
        EXPECT_EQ(Records(instrument), records) << "seed " << seed;
        ExpectConsistent(items);
        ASSERT_FALSE(HasFailure()) << "seed " << seed;
    }
}

TEST(Layer, TwentyThousandRegionsValidate)
{
    Collection items;
    RandomLevels random(items, 4711);
    auto& layer = items.Create<Instrument>(u"i").AddLayer();
    for (int i = 0; i < 20000; ++i)
        layer.AddRegion(NO_ITEM, random.Range(4), random.Range(i % 100 == 0 ? 128 : 4));
    layer.Validate();
    EXPECT_GT(layer.Children().size(), 1000u);
    EXPECT_EQ(items.CountOf(ItemKind::Region), layer.Children().size());
    std::size_t places = 0;
    for (const Region* region : layer.Regions())
        places += region->trigger.keys.Width() * region->trigger.velocities.Width();
    EXPECT_LE(places, 16384u);
    ExpectConsistent(items);
}

TEST(Layer, FindsRegionsAndFreeRoom)
{
    OneLayer one;
    Region& soft = one.Add({60, 72}, {0, 63});
    Region& loud = one.Add({60, 72}, {64, 127});
    EXPECT_EQ(one.layer.FindRegion(72, 63), &soft);
    EXPECT_EQ(one.layer.FindRegion(60, 64), &loud);
    EXPECT_EQ(one.layer.FindRegion(Layer::kAny, 100), &loud);
    EXPECT_EQ(one.layer.FindRegion(65, Layer::kAny), &soft);
    EXPECT_EQ(one.layer.FindRegion(73, Layer::kAny), nullptr);
    EXPECT_TRUE(one.layer.HasNoOverlap({0, 59}, {}));
    EXPECT_FALSE(one.layer.HasNoOverlap({0, 60}, {}));
    EXPECT_TRUE(one.layer.HasNoOverlap({0, 127}, {0, 63}, &soft));
    EXPECT_FALSE(one.layer.HasNoOverlap({0, 127}, {}, &soft));
}

TEST(Layer, ResolveOverlapMakesRoom)
{
    OneLayer one;
    Region& cut = one.Add({0, 65});
    const ItemHandle covered = one.Add({66, 70}).Handle();
    Region& excepted = one.Add({71, 80});
    one.layer.ResolveOverlap({60, 75}, {}, &excepted);
    EXPECT_EQ(cut.trigger.keys, (MidiRange{0, 59}));
    EXPECT_EQ(one.items.FindItem(covered), nullptr);
    EXPECT_EQ(excepted.trigger.keys, (MidiRange{71, 80}));
    EXPECT_EQ(one.layer.Children().size(), 2u);
    EXPECT_TRUE(one.layer.HasNoOverlap({60, 75}, {}, &excepted));
}

TEST(Layer, MoveTriggerUpTakesWhatAllAgreeOn)
{
    OneLayer one;
    Region& a = one.Add({60, 70}, {0, 64});
    Region& b = one.Add({60, 80}, {65, 127});
    for (Region* region : {&a, &b}) {
        region->trigger.Set(kParamDelay, 0.25f);
        region->trigger.Set(kParamExclusionGroup, 3);
        region->trigger.Set(kParamPedalSwitch, 0); // agreed, but the default
    }
    const auto before = Heard(one.instrument);
    one.layer.MoveTriggerUp();
    EXPECT_EQ(one.layer.trigger.keys, (MidiRange{60, 127}));
    EXPECT_EQ(one.layer.trigger.delaySeconds, 0.25f);
    EXPECT_EQ(one.layer.trigger.marks, std::uint64_t{1} << 14 | 1u);
    EXPECT_FALSE(a.trigger.IsSet(kParamLowKey) || a.trigger.IsSet(kParamPedalSwitch));
    EXPECT_TRUE(a.trigger.IsSet(kParamExclusionGroup));
    ValidateLevels(one.instrument);
    EXPECT_EQ(Heard(one.instrument), before);

    for (unsigned seed = 0; seed < 40; ++seed) {
        Collection items;
        RandomLevels random(items, seed);
        Instrument& instrument = random.Make(4, seed % 4, 60);
        ValidateLevels(instrument);
        const auto heard = Heard(instrument);
        for (Layer* layer : instrument.Layers())
            layer->MoveTriggerUp();
        EXPECT_EQ(Heard(instrument), heard);
        ValidateLevels(instrument);
        EXPECT_EQ(Heard(instrument), heard) << "seed " << seed;
    }
}

TEST(Layer, MergeLayersKeepsValuesAndCutsOverlaps)
{
    OneLayer one;
    one.layer.articulation.Set(kArtVolume, -6);
    one.layer.trigger.Set(kParamHighVelocity, 100);
    Region& stays = one.Add({0, 60});
    Layer& source = one.instrument.AddLayer();
    source.articulation.Set(kArtCutoff, 1000);
    Region& moved = source.AddRegion(one.wave.Handle(), {50, 70});
    MergeLayers(one.layer, source);
    EXPECT_EQ(one.instrument.Layers(), std::vector<Layer*>{&one.layer});
    EXPECT_EQ(one.layer.Regions(), (std::vector<Region*>{&stays, &moved}));
    EXPECT_EQ(stays.trigger.keys, (MidiRange{0, 60}));
    EXPECT_EQ(stays.trigger.velocities, (MidiRange{0, 100}));
    EXPECT_EQ(moved.trigger.keys, (MidiRange{61, 70}));
    EXPECT_EQ(moved.trigger.velocities, (MidiRange{0, 127}));
    EXPECT_EQ(moved.articulation[kArtCutoff], 1000);
    EXPECT_EQ(moved.articulation[kArtVolume], 0);
    EXPECT_EQ(stays.articulation[kArtVolume], -6);
    EXPECT_EQ(one.layer.trigger.keys, (MidiRange{0, 70}));
    ExpectConsistent(one.items);
    MergeLayers(one.layer, one.layer);
    EXPECT_EQ(one.layer.Children().size(), 2u);
}

} // namespace
} // namespace vimbo
