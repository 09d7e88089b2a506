#include "model/fix_up.h"

#include "model_builders.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>

namespace vimbo {
namespace {

TEST(FixUp, PrunesOnlyWhatTheMaskNames)
{
    const auto build = [](Collection& items) {
        Waveform& good = items.Create<Waveform>(u"good");
        good.frames = 10;
        Waveform& bad = items.Create<Waveform>(u"three channels");
        bad.frames = 10;
        bad.channels = 3;
        items.Create<Waveform>(u"no frames");
        AddInstrument(items, 1, 1, good);
        AddInstrument(items, 1, 1, bad);
        AddInstrument(items, 1, 1, good).Child(0)->Child(0)->SetChild(0, NO_ITEM);
        Song& song = items.Create<Song>(u"s");
        AddTrack(song, {0, 0xFF, 0x2F, 0});
        AddTrack(song, {});
        AddTrack(items.Create<Song>(u"empty"), {});
    };
    struct Case {
        std::uint8_t mask;
        std::size_t waveforms, regions, layers, instruments, tracks, songs;
    };
    const Case cases[] = {
        {0, 3, 3, 3, 3, 3, 2},     {1, 1, 3, 3, 3, 3, 2},      {4, 3, 2, 3, 3, 3, 2},
        {1 | 4, 1, 1, 3, 3, 3, 2}, {8 | 16, 3, 3, 3, 3, 3, 2}, {1 | 4 | 8, 1, 1, 1, 3, 3, 2},
        {32, 3, 3, 3, 3, 1, 2},    {64, 3, 3, 3, 3, 3, 2},     {kPruneAll, 1, 1, 1, 1, 1, 1},
    };
    for (const Case& c : cases) {
        Collection items;
        build(items);
        for (int pass = 0; pass < 2; ++pass) { // a second pass finds nothing to do
            FixUpItems(items, c.mask, AfterLoad::No);
            SCOPED_TRACE(static_cast<int>(c.mask));
            EXPECT_EQ(items.CountOf(ItemKind::Waveform), c.waveforms);
            EXPECT_EQ(items.CountOf(ItemKind::Region), c.regions);
            EXPECT_EQ(items.CountOf(ItemKind::Layer), c.layers);
            EXPECT_EQ(items.CountOf(ItemKind::Instrument), c.instruments);
            EXPECT_EQ(items.CountOf(ItemKind::Track), c.tracks);
            EXPECT_EQ(items.CountOf(ItemKind::Song), c.songs);
            if ((c.mask & 1) == 0)
                ExpectConsistent(items);
        }
    }
}

TEST(FixUp, SynthesisModelsGoWithTheirLastWaveform)
{
    Collection items;
    Waveform& wave = items.Create<Waveform>(u"w");
    Region& plain = items.Create<Region>(u"");
    plain.SetSound(items.Create<SynthModel>(u"needs none").Handle());
    Region& sampled = items.Create<Region>(u"");
    SynthModel& model = items.Create<SynthModel>(u"needs one");
    sampled.SetSound(model.Handle());
    model.AddChild(wave.Handle());
    FixUpItems(items, PruneBit(ItemKind::SynthModel), AfterLoad::No);
    EXPECT_EQ(items.CountOf(ItemKind::SynthModel), 2u);
    FixUpItems(items, PruneBit(ItemKind::Waveform) | PruneBit(ItemKind::SynthModel), AfterLoad::No);
    EXPECT_EQ(items.CountOf(ItemKind::SynthModel), 1u);
    EXPECT_NE(plain.Synth(), nullptr);
    EXPECT_TRUE(sampled.Children().empty());
    ExpectConsistent(items);
}

TEST(FixUp, SaveFormatsFollowTheSourceAfterALoad)
{
    const std::pair<DataFormat, SaveFormat> cases[] = {
        {DataFormat::Pcm8, SaveFormat::Pcm8},       {DataFormat::Pcm12, SaveFormat::Pcm16},
        {DataFormat::Pcm16, SaveFormat::Pcm16},     {DataFormat::Pcm20, SaveFormat::Pcm24},
        {DataFormat::Pcm24, SaveFormat::Pcm24},     {DataFormat::Pcm32, SaveFormat::Pcm32},
        {DataFormat::Float32, SaveFormat::Float32}, {DataFormat::Float64, SaveFormat::Float32},
        {DataFormat::MuLaw, SaveFormat::MuLaw},     {DataFormat::ALaw, SaveFormat::ALaw},
        {DataFormat::Delta8, SaveFormat::Pcm8},     {DataFormat::Delta16, SaveFormat::Pcm16},
    };
    for (const auto& [source, expected] : cases) {
        Collection items;
        Waveform& wave = items.Create<Waveform>(u"w");
        wave.frames = 1;
        wave.SetSourceFormat(source, 0);
        wave.saveFormat = SaveFormat::Default;
        FixUpItems(items, kPruneAll, AfterLoad::Yes);
        EXPECT_EQ(wave.saveFormat, expected) << static_cast<int>(source);
    }
}

TEST(FixUp, TellsWhatItDoes)
{
    RecordingHost host;
    Collection items;
    items.SetHost(host);
    items.Create<Instrument>(u"a");
    items.Create<Instrument>(u"b");
    FixUpItems(items, 0, AfterLoad::No);
    EXPECT_EQ(host.statuses, (std::vector<std::u16string>{u"Fixing up items...", u""}));
    EXPECT_EQ(host.progress, std::vector<std::u16string>{u""});
    EXPECT_NE(items.List<Instrument>()[0]->location, items.List<Instrument>()[1]->location);
}

/// Random trees as careless readers leave them.
class RoughTrees {
public:
    explicit RoughTrees(std::uint32_t seed) : random_(seed) {}

    void Fill(Collection& items)
    {
        for (unsigned i = 0; i < 4; ++i) {
            Waveform& wave = items.Create<Waveform>(u"w");
            wave.frames = 100 + Roll(50);
            wave.SetSourceFormat(DataFormat::Pcm16, 0);
        }
        for (unsigned i = 0; i < 3; ++i) {
            Instrument& instrument = items.Create<Instrument>(u"i");
            instrument.location.word = Roll(3);
            Scatter(instrument.articulation);
            for (unsigned l = Roll(4); l > 0; --l)
                AddRoughLayer(instrument, items.List<Waveform>());
        }
    }

    FeatureMask RandomMask()
    {
        FeatureMask mask;
        mask.bits = (std::uint64_t{random_()} << 32 | random_()) | std::uint64_t{random_()} << 20;
        return mask;
    }

private:
    std::uint32_t Roll(std::uint32_t sides) { return static_cast<std::uint32_t>(random_() % sides); }
    std::uint8_t Byte() { return static_cast<std::uint8_t>(Roll(8) == 0 ? Roll(256) : Roll(128)); }

    void Scatter(ArticulationBlock& block)
    {
        for (unsigned n = Roll(6); n > 0; --n) {
            const auto id = static_cast<ParamId>(Roll(kArticulationParams));
            const ParamRow& row = ArticulationParamRow(id);
            block.Set(id, row.minimum + (row.maximum - row.minimum) * static_cast<float>(Roll(5)) / 4);
        }
    }

    void AddRoughLayer(Instrument& instrument, const std::vector<Waveform*>& waves)
    {
        Layer& layer = instrument.AddLayer();
        Scatter(layer.articulation);
        for (unsigned r = Roll(5); r > 0; --r) {
            Region& region = layer.AddRegion(waves[Roll(4)]->Handle(), {Byte(), Byte()}, {Byte(), Byte()},
                                             Roll(2) == 0 ? Layer::kNoRootKey : Byte());
            Scatter(region.articulation);
            region.phaseGroup = static_cast<std::uint16_t>(Roll(3));
            region.phaseMaster = static_cast<std::uint8_t>(Roll(2));
            region.overrideFlags = static_cast<std::uint8_t>(Roll(64));
            region.loop.type = static_cast<LoopType>(Roll(4));
            region.loop.start = Roll(200);
            region.loop.end = Roll(200);
            region.startOffset = static_cast<std::int32_t>(Roll(300)) - 100;
            region.endOffset = static_cast<std::int32_t>(Roll(300)) - 200;
        }
    }

    std::mt19937 random_;
};

std::vector<std::byte> Snapshot(const Collection& items)
{
    ByteWriter out;
    const auto add = [&](const auto& list) {
        for (const Item* item : list)
            item->Serialize(out);
    };
    add(items.List<Waveform>());
    add(items.List<Region>());
    add(items.List<Layer>());
    add(items.List<Instrument>());
    return out.Release();
}

TEST(FixUp, ASecondPassChangesNothing)
{
    for (std::uint32_t seed = 0; seed < 150; ++seed) {
        SCOPED_TRACE(seed);
        RoughTrees trees(seed);
        Collection items;
        trees.Fill(items);
        if (seed % 3 != 0)
            items.features = trees.RandomMask();
        items.loadOptions.autoMoveArticulation = seed % 2 == 0;
        FixUpItems(items, kPruneAll, seed % 4 == 0 ? AfterLoad::No : AfterLoad::Yes, SourceHoldsStereo::No);
        std::u16string why;
        ASSERT_TRUE(IsFixedUp(items, &why)) << WideToUtf8(why);
        const std::vector<std::byte> once = Snapshot(items);
        FixUpItems(items, kPruneAll, AfterLoad::No);
        ASSERT_EQ(Snapshot(items), once);
    }
}

struct SmallKit {
    Collection items;
    Waveform& wave = items.Create<Waveform>(u"w");
    Instrument& instrument = items.Create<Instrument>(u"i");
    Layer& layer = instrument.AddLayer();
    Region& low;
    Region& high;

    SmallKit()
        : low(layer.AddRegion(Wave().Handle(), {0, 59})), high(layer.AddRegion(wave.Handle(), {60, 127}))
    {
    }
    Waveform& Wave()
    {
        wave.frames = 100;
        wave.SetSourceFormat(DataFormat::Pcm16, 0);
        return wave;
    }
    void FixUp(std::uint64_t forbidden)
    {
        items.features.bits &= ~forbidden;
        FixUpItems(items, kPruneAll, AfterLoad::No);
    }
};
constexpr std::uint64_t kNoInstrumentLevel = 2, kNoLayerLevel = 4, kNoRegionLevel = 8;

TEST(FixUp, WithoutRegionLevelArticulationGathersAtTheLayer)
{
    SmallKit kit;
    for (Region* region : {&kit.low, &kit.high}) {
        region->articulation.Set(kArtFilterType, 2);
        region->articulation.Set(kArtVolume, region == &kit.low ? -6.0f : -3.0f);
    }
    kit.low.articulation.Set(kArtCutoff, 1000);
    kit.high.articulation.Set(kArtCutoff, 3000);
    kit.FixUp(kNoRegionLevel);
    EXPECT_EQ(kit.layer.articulation[kArtCutoff], 2000);
    EXPECT_TRUE(kit.layer.articulation.IsSet(kArtCutoff));
    EXPECT_EQ(kit.low.articulation[kArtCutoff], 2000);
    EXPECT_FALSE(kit.low.articulation.IsSet(kArtCutoff));
    EXPECT_EQ(kit.low.articulation[kArtVolume], -6);
    EXPECT_EQ(kit.high.articulation[kArtVolume], -3);
    EXPECT_TRUE(kit.high.articulation.IsSet(kArtVolume));
}

TEST(FixUp, ArticulationMovesToTheLevelsThatRemain)
{
    const auto cutoffs = [](std::uint64_t forbidden) {
        SmallKit kit;
        kit.instrument.SetParam(kArtFilterType, 2);
        kit.instrument.SetParam(kArtCutoff, 500);
        kit.high.articulation.Set(kArtCutoff, 3000);
        kit.FixUp(forbidden);
        const auto text = [](const ArticulationBlock& block) {
            return std::to_string(static_cast<int>(block[kArtCutoff])) + (block.IsSet(kArtCutoff) ? "!" : "");
        };
        return text(kit.instrument.articulation) + " " + text(kit.layer.articulation) + " " +
               text(kit.low.articulation) + " " + text(kit.high.articulation);
    };
    EXPECT_EQ(cutoffs(0), "500! 500 500 3000!");
    EXPECT_EQ(cutoffs(kNoInstrumentLevel), "8000 500! 500 3000!");
    EXPECT_EQ(cutoffs(kNoRegionLevel), "500! 1750! 1750 1750");
    EXPECT_EQ(cutoffs(kNoLayerLevel), "500! 500 500 3000!") << "regions hold it still";
    EXPECT_EQ(cutoffs(kNoInstrumentLevel | kNoLayerLevel), "8000 8000 500! 3000!");
    EXPECT_EQ(cutoffs(kNoLayerLevel | kNoRegionLevel), "1750! 1750 1750 1750");
}

TEST(FixUp, OnlyALoadUnmarksWhatSaysNothing)
{
    SmallKit kit;
    kit.instrument.articulation.Set(kArtBendToPitch, 2); // the default
    kit.low.articulation.Set(kArtPan, 0);
    kit.low.trigger.Set(kParamDelay, 0);
    kit.low.overrideFlags = Region::kRootKey | Region::kLoopStart;
    kit.low.rootKey = 60;
    kit.low.loop.start = 10;
    FixUpItems(kit.items, kPruneAll, AfterLoad::No);
    EXPECT_TRUE(kit.instrument.articulation.IsSet(kArtBendToPitch) && kit.low.articulation.IsSet(kArtPan) &&
                kit.low.trigger.IsSet(kParamDelay) && kit.low.Overrides(Region::kRootKey));
    kit.items.loadOptions.autoMoveTriggerParams = false;
    FixUpItems(kit.items, kPruneAll, AfterLoad::Yes);
    EXPECT_FALSE(kit.instrument.articulation.HasAnySet() || kit.low.articulation.HasAnySet());
    EXPECT_FALSE(kit.low.trigger.IsSet(kParamDelay));
    EXPECT_EQ(kit.low.overrideFlags, Region::kLoopStart);
    EXPECT_EQ(kit.low.trigger.marks, 2u) << "the high key alone differs";
}

TEST(FixUp, LoadOptionsDoWhatTheySay)
{
    const auto load = [](auto&& change, SourceHoldsStereo stereo) {
        auto items = std::make_unique<Collection>();
        items->loadOptions = {.ensureUniqueNames = false,
                              .autoMoveArticulation = false,
                              .autoMoveTriggerParams = false,
                              .autoSplitStereo = false,
                              .autoMergeStereo = false,
                              .autoCompactLayers = false,
                              .autoAppend32 = false,
                              .autoBid2Fwd = false,
                              .autoSortWaves = false,
                              .autoSortColl = false,
                              .autoRemoveDupWaves = false};
        for (const char16_t* name : {u"b", u"a", u"a"}) {
            Waveform& wave = items->Create<Waveform>(name);
            wave.frames = 40;
            wave.LockSamplesForWrite();
            wave.loop = {.type = LoopType::Alternating, .start = 10, .end = 20};
        }
        const std::vector<Waveform*> waves = items->List<Waveform>();
        Instrument& last = items->Create<Instrument>(u"x");
        last.location.word = 9;
        for (unsigned l = 0; l < 2; ++l) {
            Region& region = last.AddLayer().AddRegion(waves[1 + l]->Handle(), {10, 20});
            region.articulation.Set(kArtPan, l == 0 ? -1.0f : 1.0f);
            region.articulation.Set(kArtVolume, -6);
        }
        Instrument& first = items->Create<Instrument>(u"x");
        for (unsigned l = 0; l < 2; ++l)
            first.AddLayer().AddRegion(waves[0]->Handle(), l == 0 ? MidiRange{0, 63} : MidiRange{64, 127});
        change(items->loadOptions);
        FixUpItems(*items, kPruneAll, AfterLoad::Yes, stereo);
        ExpectConsistent(*items);
        return items;
    };
    const auto plain = load([](LoadOptions&) {}, SourceHoldsStereo::No);
    EXPECT_EQ(Names<Waveform>(*plain), (std::vector<std::u16string>{u"b", u"a", u"a"}));
    EXPECT_EQ(plain->CountOf(ItemKind::Layer), 4u);

    const auto unique = load([](LoadOptions& o) { o.ensureUniqueNames = true; }, SourceHoldsStereo::No);
    EXPECT_EQ(Names<Waveform>(*unique), (std::vector<std::u16string>{u"b", u"a 1", u"a"}));
    EXPECT_EQ(Names<Instrument>(*unique), (std::vector<std::u16string>{u"x 1", u"x"}));

    const auto moved = load([](LoadOptions& o) { o.autoMoveArticulation = true; }, SourceHoldsStereo::No);
    EXPECT_TRUE(moved->List<Instrument>()[0]->articulation.IsSet(kArtVolume));
    EXPECT_FALSE(moved->List<Instrument>()[0]->articulation.IsSet(kArtPan));
    EXPECT_FALSE(plain->List<Instrument>()[0]->articulation.IsSet(kArtVolume));

    const auto triggers = load([](LoadOptions& o) { o.autoMoveTriggerParams = true; }, SourceHoldsStereo::No);
    EXPECT_TRUE(triggers->List<Layer>()[0]->trigger.IsSet(kParamHighKey));
    EXPECT_EQ(triggers->List<Layer>()[0]->trigger.keys, (MidiRange{10, 20}));

    const auto joined = load([](LoadOptions& o) { o.autoMergeStereo = true; }, SourceHoldsStereo::No);
    EXPECT_EQ(joined->CountOf(ItemKind::Region), 3u);
    const auto kept = load([](LoadOptions& o) { o.autoMergeStereo = true; }, SourceHoldsStereo::Yes);
    EXPECT_EQ(kept->CountOf(ItemKind::Region), 4u) << "the format could have held stereo";

    const auto compact = load([](LoadOptions& o) { o.autoCompactLayers = true; }, SourceHoldsStereo::No);
    EXPECT_EQ(compact->CountOf(ItemKind::Layer), 3u);

    const auto loops =
        load([](LoadOptions& o) { o.autoBid2Fwd = o.autoAppend32 = true; }, SourceHoldsStereo::No);
    const Waveform& unrolled = *loops->List<Waveform>()[0];
    EXPECT_EQ(unrolled.loop.type, LoopType::Forward);
    EXPECT_EQ(unrolled.loop.end - unrolled.loop.start, 20);
    EXPECT_GE(unrolled.frames, 30 + 32u);
    EXPECT_EQ(loops->List<Region>()[0]->loop.type, LoopType::Forward) << "regions follow their waveforms";

    const auto sorted =
        load([](LoadOptions& o) { o.autoSortWaves = o.autoSortColl = true; }, SourceHoldsStereo::No);
    EXPECT_EQ(Names<Waveform>(*sorted), (std::vector<std::u16string>{u"a", u"a", u"b"}));
    EXPECT_EQ(sorted->List<Instrument>()[0]->location.word, 0u);
}

} // namespace
} // namespace vimbo
