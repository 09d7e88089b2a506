#include "level_builders.h"

#include <gtest/gtest.h>

namespace vimbo {
namespace {

struct TwoRegions {
    Collection items;
    Instrument& instrument = items.Create<Instrument>(u"i");
    Layer& layer = instrument.AddLayer();
    Region& a = layer.AddRegion(NO_ITEM, {0, 10});
    Region& b = layer.AddRegion(NO_ITEM, {20, 30});
};

TEST(ArticulationUp, AllOrNothingFailsAtOneDifference)
{
    TwoRegions t;
    for (Region* region : {&t.a, &t.b}) {
        region->SetParam(kArtCutoff, 500);
        region->SetParam(kArtFilterType, 2);
    }
    t.b.SetParam(kArtVolume, -6);
    EXPECT_FALSE(t.layer.MoveArticulationUp(MoveUpMode::AllOrNothing));
    EXPECT_FALSE(t.layer.articulation.HasAnySet());
    EXPECT_TRUE(t.a.IsParamSet(kArtCutoff));
    EXPECT_TRUE(t.layer.MoveArticulationUp(MoveUpMode::AllOrNothing, 0, kArticulationParams,
                                           KeepVolumeAndTuning::Yes));
    EXPECT_EQ(t.layer.articulation[kArtCutoff], 500);
    EXPECT_TRUE(t.layer.articulation.IsSet(kArtCutoff));
    EXPECT_FALSE(t.a.IsParamSet(kArtCutoff));
    EXPECT_EQ(t.b.GetParam(kArtVolume), -6);
    EXPECT_TRUE(t.b.IsParamSet(kArtVolume));
}

TEST(ArticulationUp, IndividualIdsMoveWithinTheirRange)
{
    TwoRegions t;
    t.a.SetParam(kArtVolume, -6);
    t.b.SetParam(kArtVolume, -6);
    t.a.SetParam(kArtPan, 1);
    t.b.SetParam(kArtPan, 1);
    t.b.SetParam(kArtVelToVolume, 10);
    EXPECT_TRUE(t.layer.MoveArticulationUp(MoveUpMode::Individually, kArtVolume, kArtPan));
    EXPECT_TRUE(t.layer.IsParamSet(kArtVolume));
    EXPECT_FALSE(t.layer.IsParamSet(kArtPan) || t.layer.IsParamSet(kArtVelToVolume));
    EXPECT_TRUE(t.instrument.MoveArticulationUp(MoveUpMode::Individually));
    EXPECT_EQ(t.instrument.articulation[kArtVolume], -6);
    EXPECT_EQ(t.instrument.articulation[kArtPan], 1); // the regions' own values decide
    EXPECT_FALSE(t.layer.IsParamSet(kArtVolume) || t.a.IsParamSet(kArtPan));
    EXPECT_FALSE(t.instrument.MoveArticulationUp(MoveUpMode::AllOrNothing)); // b's velocity curve
}

TEST(ArticulationUp, EffectiveBlockAveragesWhatIsBelow)
{
    TwoRegions t;
    t.layer.SetParam(kArtPan, 0.5f);
    EXPECT_EQ(t.layer.GetEffective(), t.layer.articulation);
    t.a.SetParam(kArtVolume, -6);
    const ArticulationBlock block = t.layer.GetEffective();
    EXPECT_EQ(block[kArtVolume], -3);
    EXPECT_EQ(block[kArtPan], 0.5f);
    EXPECT_TRUE(block.IsSet(kArtVolume) && block.IsSet(kArtPan));
    t.instrument.AddLayer().AddRegion(NO_ITEM).SetParam(kArtVolume, 3);
    t.instrument.AddLayer(); // nothing sounds there
    EXPECT_EQ(t.instrument.GetEffective()[kArtVolume], 0);
    EXPECT_EQ(t.instrument.GetEffective()[kArtPan], 0.25f);
}

/// Moves between levels are no edits: every region keeps all 189 values.
TEST(ArticulationUp, MovesChangeNoRegion)
{
    for (unsigned seed = 0; seed < 60; ++seed) {
        Collection items;
        RandomLevels random(items, seed);
        Instrument& instrument = random.Make(3, seed % 5, 20);
        ValidateLevels(instrument);
        const auto heard = Heard(instrument);
        const auto expectSame = [&](const char* step) {
            EXPECT_EQ(Heard(instrument), heard) << step;
            ValidateLevels(instrument);
            EXPECT_EQ(Heard(instrument), heard) << step << ", validated";
            ExpectInherited(instrument);
        };
        const auto mode = seed % 2 == 0 ? MoveUpMode::Individually : MoveUpMode::AllOrNothing;
        const auto keep = seed % 3 == 0 ? KeepVolumeAndTuning::Yes : KeepVolumeAndTuning::No;
        const bool whole = mode == MoveUpMode::AllOrNothing && keep == KeepVolumeAndTuning::No;
        for (Layer* layer : instrument.Layers()) {
            if (!layer->MoveArticulationUp(mode, 0, kArticulationParams, keep) || !whole)
                continue;
            for (const Region* region : layer->Regions())
                EXPECT_FALSE(region->articulation.HasAnySet());
        }
        expectSame("to layers");
        static_cast<void>(instrument.MoveArticulationUp(mode, 0, kArticulationParams, keep));
        expectSame("to the instrument");
        instrument.PushArticulationDown();
        EXPECT_EQ(instrument.articulation, ArticulationBlock{});
        expectSame("down to layers");
        for (Layer* layer : instrument.Layers()) {
            layer->PushArticulationDown();
            EXPECT_EQ(layer->articulation, instrument.articulation);
        }
        expectSame("down to regions");
        ASSERT_FALSE(HasFailure()) << "seed " << seed;
    }
}

} // namespace
} // namespace vimbo
