#include "level_builders.h"

#include <gtest/gtest.h>

namespace vimbo {
namespace {

constexpr MidiRange kOpen{MidiRange::kKeep, MidiRange::kKeep};
constexpr std::uint8_t kNoRoot = Layer::kNoRootKey;

struct Empty {
    Region& Add(MidiRange keys, MidiRange velocities = {}, int tag = Instrument::kNoTag)
    {
        return instrument.FindOrAddRegion(wave.Handle(), keys, velocities, kNoRoot, tag);
    }
    std::size_t LayerOf(const Region& region) const
    {
        const std::vector<Layer*> layers = instrument.Layers();
        return static_cast<std::size_t>(std::find(layers.begin(), layers.end(), region.ParentLayer()) -
                                        layers.begin());
    }

    Collection items;
    Waveform& wave = items.Create<Waveform>(u"w");
    Instrument& instrument = items.Create<Instrument>(u"i");
};

TEST(Instrument, ReadersRegionsFindTheirLayer)
{
    Empty e;
    EXPECT_EQ(e.LayerOf(e.Add({60, 60})), 0u);
    EXPECT_EQ(e.LayerOf(e.Add({62, 62})), 0u);
    EXPECT_EQ(e.LayerOf(e.Add({60, 60})), 1u);
    EXPECT_EQ(e.LayerOf(e.Add({64, 64}, {0, 63})), 0u); // free in the first, though no split of it
    EXPECT_EQ(e.LayerOf(e.Add({66, 66})), 1u);          // the last region there has these velocities
    EXPECT_EQ(e.LayerOf(e.Add({67, 67}, {0, 63})), 0u);
    EXPECT_EQ(e.LayerOf(e.Add(kOpen, kOpen)), 2u);

    Empty tagged;
    EXPECT_EQ(tagged.LayerOf(tagged.Add({60, 60}, {}, 0)), 0u);
    EXPECT_EQ(tagged.LayerOf(tagged.Add({61, 61}, {}, 7)), 1u);
    EXPECT_EQ(tagged.LayerOf(tagged.Add({62, 62}, {}, 0)), 0u);
    EXPECT_EQ(tagged.LayerOf(tagged.Add({60, 60}, {}, 0)), 2u);
    EXPECT_EQ(tagged.LayerOf(tagged.Add({60, 60}, {0, 5}, 7)), 1u);
    EXPECT_EQ(tagged.LayerOf(tagged.Add({63, 63})), 0u);
    const Region& last = tagged.Add({63, 63});
    EXPECT_EQ(tagged.LayerOf(last), 2u); // layer 1 ends with other velocities
    EXPECT_EQ(WideToUtf8(last.ParentLayer()->GetName()), "Layer 3");
}

TEST(Instrument, CopiesOfRegionsGoWhereTheyFitAndSoundTheSame)
{
    Empty e;
    Region& source = e.Add({60, 70});
    Layer& first = *source.ParentLayer();
    first.SetParam(kArtVolume, -6);
    first.SetParam(kParamDelay, 0.5f);
    Layer& second = e.instrument.AddLayer(u"second");
    source.SetParam(kParamLoopStart, 5);
    Region& copy = e.instrument.AddRegionCopy(source);
    EXPECT_EQ(copy.ParentLayer(), &second);
    EXPECT_EQ(Heard(copy), Heard(source));
    EXPECT_EQ(copy.Wave(), &e.wave);
    EXPECT_TRUE(copy.Overrides(Region::kLoopStart));
    copy.Validate();
    EXPECT_EQ(Heard(copy), Heard(source));
    EXPECT_EQ(e.LayerOf(e.instrument.AddRegionCopy(copy)), 2u); // searched from the second on
    source.trigger.Set(kParamLowKey, 0);
    source.trigger.Set(kParamHighKey, 10);
    EXPECT_EQ(e.LayerOf(e.instrument.AddRegionCopy(copy)), 3u);
    auto& other = e.items.Create<Instrument>(u"other");
    other.AddLayer();
    EXPECT_EQ(other.AddRegionCopy(copy).ParentLayer(), other.Layers()[0]);
    ExpectConsistent(e.items);
}

TEST(Instrument, ValidateNamesLayersAndHandsDownDrumAndValues)
{
    Empty e;
    Layer& named = e.instrument.AddLayer(u"Strings");
    Layer& unnamed = e.items.Create<Layer>(u"");
    e.instrument.AddChild(unnamed.Handle());
    e.instrument.AddChild(named.Handle()); // a second time
    e.instrument.location.SetDrum(true);
    e.instrument.articulation.Set(kArtPan, -0.5f);
    e.instrument.channelFx[1] = {static_cast<ChannelFxType>(9), {1, 2, 3}, {1, 2, 3, 4, 5}};
    e.instrument.channelFx[2] = {ChannelFxType::Delay, {1, 2, 3}, {NAN, 0.5f, 1e30f, 4, 5}};
    e.instrument.Validate();
    EXPECT_EQ(e.instrument.Layers(), (std::vector<Layer*>{&named, &unnamed}));
    EXPECT_EQ(WideToUtf8(unnamed.GetName()), "Layer 2");
    EXPECT_TRUE(named.drum && unnamed.drum);
    EXPECT_EQ(unnamed.articulation[kArtPan], -0.5f);
    EXPECT_EQ(e.instrument.channelFx[1], ChannelFx{});
    const ChannelFx& fx = e.instrument.channelFx[2];
    EXPECT_EQ(fx.type, ChannelFxType::Delay);
    EXPECT_TRUE(fx.values[0] == 0 && fx.values[1] == 0.5f && fx.values[2] < 1e30f);
    e.instrument.SetParam(kParamDrum, 0);
    EXPECT_FALSE(named.drum);
}

TEST(Instrument, LocationAndEffectsAreParameters)
{
    Empty e;
    e.instrument.SetParam(kParamBankMsb, 3);
    e.instrument.SetParam(kParamBankLsb, 200);
    e.instrument.SetParam(kParamProgram, 5);
    e.instrument.SetParam(kParamDrum, 1);
    EXPECT_EQ(e.instrument.location.word, 3u << 14 | 127u << 7 | 5u | MidiLocation::kDrumBit);
    for (ParamId id = kParamBankMsb; id <= kParamLast; ++id) {
        e.instrument.SetParam(id, 1);
        EXPECT_EQ(e.instrument.GetParam(id), 1) << id;
        EXPECT_TRUE(e.instrument.IsParamSet(id)) << id;
        EXPECT_EQ(e.instrument.GetParamInfo(id).id, id);
    }
    e.instrument.SetParam(231 + 8 * 3 + 1, 77);
    e.instrument.SetParam(231 + 8 * 2 + 7, -1.5f);
    EXPECT_EQ(e.instrument.channelFx[3].bytes[1], 77);
    EXPECT_EQ(e.instrument.channelFx[2].values[4], -1.5f);
    e.instrument.ClearParam(231 + 8 * 3 + 1, 0);
    EXPECT_FALSE(e.instrument.IsParamSet(231 + 8 * 3 + 1));
}

TEST(Instrument, DeltasReachWhatIsSetBelow)
{
    Empty e;
    Region& set = e.Add({0, 10});
    Region& unset = e.Add({20, 30});
    Layer& layer = *set.ParentLayer();
    set.SetParam(kArtVolume, -10);
    SetParamPropagatingDelta(e.instrument, kArtVolume, 3);
    EXPECT_EQ(set.GetParam(kArtVolume), -7);
    EXPECT_EQ(unset.GetParam(kArtVolume), 3);
    EXPECT_FALSE(unset.IsParamSet(kArtVolume));
    layer.SetParam(kArtVolume, 1);
    SetParamPropagatingDelta(e.instrument, kArtVolume, 1);
    EXPECT_EQ(layer.GetParam(kArtVolume), -1);
    EXPECT_EQ(unset.GetParam(kArtVolume), -1);
    EXPECT_EQ(set.GetParam(kArtVolume), -9);
    SetParamPropagatingDelta(layer, kParamHighKey, 125); // two below what it was
    EXPECT_EQ(set.GetParam(kParamHighKey), 8);
    EXPECT_EQ(set.GetName(), u"C-1..G#-1 : w");
}

TEST(Instrument, PhaseMastersLeadOtherLayersInPitch)
{
    Empty e;
    Region& master = e.Add({60, 70});
    Region& slave = e.Add({60, 70});
    Region& elsewhere = e.Add({80, 90});
    for (Region* region : {&master, &slave, &elsewhere})
        region->phaseGroup = 4;
    master.phaseMaster = 1;
    master.articulation.Set(kArtTuning, 1.5f);
    master.articulation.Set(kArtLfos + 1, 7);
    master.articulation.Set(kArtEnvelopes + 27 + 5, 2); // pitch envelope, not in use
    master.articulation.Set(kArtVolume, -6);
    slave.articulation.Set(kArtTuning, -1);
    ValidateLevels(e.instrument);
    EXPECT_EQ(slave.articulation[kArtTuning], 1.5f);
    EXPECT_EQ(slave.articulation[kArtLfos + 1], 7);
    EXPECT_EQ(slave.articulation[kArtEnvelopes + 27 + 5], 0);
    EXPECT_EQ(slave.articulation[kArtVolume], 0);
    EXPECT_EQ(slave.ParentLayer()->articulation[kArtTuning], 1.5f); // it has no other regions
    EXPECT_EQ(elsewhere.articulation[kArtTuning], 0);
    EXPECT_EQ(slave.PhaseMaster(), &master);
    EXPECT_EQ(master.PhaseMaster(), nullptr);
    EXPECT_EQ(elsewhere.PhaseMaster(), nullptr);
    ExpectInherited(e.instrument);

    master.articulation.Set(kArtPEnvToPitch, 12);
    slave.ParentLayer()->AddRegion(e.wave.Handle(), {0, 10});
    master.articulation.Set(kArtBendToPitch, 12);
    ValidateLevels(e.instrument);
    EXPECT_EQ(slave.articulation[kArtEnvelopes + 27 + 5], 2);
    EXPECT_EQ(slave.articulation[kArtBendToPitch], 12);
    EXPECT_EQ(slave.ParentLayer()->articulation[kArtBendToPitch], 2); // now it has one that follows nobody
    ExpectInherited(e.instrument);
    const auto records = Records(e.instrument);
    ValidateLevels(e.instrument);
    EXPECT_EQ(Records(e.instrument), records);
}

TEST(CompactLayers, MergesWhatDoesNotOverlapWithoutAChangeInSound)
{
    for (unsigned seed = 0; seed < 80; ++seed) {
        Collection items;
        RandomLevels random(items, seed);
        Instrument& instrument = random.Make(12, seed % 4, 1 + seed);
        ValidateLevels(instrument);
        const auto heard = Heard(instrument);
        const auto layersBefore = instrument.Layers().size();
        const auto moveUp = seed % 2 == 0 ? MoveParamsUp::Yes : MoveParamsUp::No;
        const auto keep = seed % 3 == 0 ? KeepArticulation::Yes : KeepArticulation::No;
        const std::size_t gone = instrument.CompactLayers(moveUp, keep);
        EXPECT_EQ(instrument.Layers().size() + gone, layersBefore);
        EXPECT_EQ(Heard(instrument), heard);
        ValidateLevels(instrument);
        EXPECT_EQ(Heard(instrument), heard);
        for (const Layer* layer : instrument.Layers())
            ExpectNoOverlap(*layer);
        ExpectConsistent(items);
        EXPECT_EQ(instrument.CompactLayers(moveUp, keep), 0u);
        ASSERT_FALSE(HasFailure()) << "seed " << seed;
    }
}

TEST(CompactLayers, ArticulationCanKeepLayersApart)
{
    Empty e;
    const float volumes[] = {-6, 0, -6};
    for (std::uint8_t i = 0; i < 3; ++i) {
        Layer& layer = e.instrument.AddLayer();
        const auto low = static_cast<std::uint8_t>(10 * i);
        layer.AddRegion(e.wave.Handle(), {low, static_cast<std::uint8_t>(low + 9)});
        layer.SetParam(kArtVolume, volumes[i]);
    }
    EXPECT_EQ(e.instrument.CompactLayers(MoveParamsUp::No, KeepArticulation::Yes), 1u);
    Layer& first = *e.instrument.Layers()[0];
    EXPECT_EQ(first.Children().size(), 2u);
    for (const Region* region : first.Regions())
        EXPECT_FALSE(region->articulation.HasAnySet());
    EXPECT_EQ(e.instrument.CompactLayers(MoveParamsUp::Yes, KeepArticulation::No), 1u);
    EXPECT_EQ(first.trigger.keys, (MidiRange{0, 29}));
    EXPECT_EQ(first.FindRegion(15, 100)->GetParam(kArtVolume), 0);
}

TEST(CompactLayers, ManyLayersOfOneShapeAreQuick)
{
    for (const MidiRange keys : {MidiRange{0, 127}, MidiRange{60, 60}}) {
        Empty e;
        for (int i = 0; i < 5000; ++i)
            e.instrument.AddLayer().AddRegion(e.wave.Handle(), keys);
        e.instrument.AddLayer().AddRegion(e.wave.Handle(), {61, 61});
        EXPECT_EQ(e.instrument.CompactLayers(MoveParamsUp::Yes, KeepArticulation::No),
                  keys.IsFull() ? 0u : 1u);
    }
    Empty e;
    for (int i = 0; i < 128 * 40; ++i) {
        const auto key = static_cast<std::uint8_t>(i % 128);
        e.instrument.AddLayer().AddRegion(e.wave.Handle(), {key, key});
    }
    EXPECT_EQ(e.instrument.CompactLayers(MoveParamsUp::No, KeepArticulation::Yes), 128u * 40 - 40);
}

} // namespace
} // namespace vimbo
