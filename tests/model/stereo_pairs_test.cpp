// Mono regions to stereo ones and back.
#include "model/stereo_pairs.h"

#include "model/sample_source.h"
#include "model_builders.h"
#include "test_host.h"

#include <algorithm>
#include <functional>

namespace vimbo {
namespace {

/// An instrument with one pair in dual layers, over waveforms that need no file until they are read.
struct Pair {
    Pair()
        : left(AddWave(u"Piano -L", 100)), right(AddWave(u"Piano -R", 5000)),
          instrument(items.Create<Instrument>(u"i"))
    {
        items.SetHost(host);
        one = &AddRegion(u"first", left, -1);
        other = &AddRegion(u"second", right, 1);
    }

    Waveform& AddWave(std::u16string_view name, std::uint64_t offset)
    {
        Waveform& wave = items.Create<Waveform>(name);
        wave.SetSourceFormat(DataFormat::Pcm16, 0);
        wave.SetText(kTextSourcePath, u"/nowhere/bank.bin");
        wave.sourceOffset = offset;
        wave.frames = 1000;
        wave.loop = {.type = LoopType::Forward, .start = 10, .end = 900};
        return wave;
    }

    Region& AddRegion(std::u16string_view layerName, const Waveform& wave, float pan)
    {
        Region& region = instrument.AddLayer(layerName).AddRegion(wave.Handle(), {40, 50}, {1, 64});
        region.articulation.Set(kArtPan, pan);
        return region;
    }

    std::size_t Layers() const { return instrument.Layers().size(); }

    testing::ScriptedHost host;
    Collection items;
    Waveform& left;
    Waveform& right;
    Instrument& instrument;
    Region *one, *other;
};

TEST(MergeStereoPairs, RulesOfJoining)
{
    struct Row {
        const char* name;
        bool joins;
        std::function<void(Pair&)> change;
    };
    const std::vector<Row> rows = {
        {"as it is", true, [](Pair&) {}},
        {"sides swapped", true,
         [](Pair& p) {
             p.one->articulation.Set(kArtPan, 1);
             p.other->articulation.Set(kArtPan, -1);
         }},
        {"just hard", true,
         [](Pair& p) {
             p.one->articulation.Set(kArtPan, -0.75f);
             p.other->articulation.Set(kArtPan, 0.75f);
         }},
        {"not hard", false,
         [](Pair& p) {
             p.one->articulation.Set(kArtPan, -0.7f);
             p.other->articulation.Set(kArtPan, 0.7f);
         }},
        {"unequal pans", false, [](Pair& p) { p.other->articulation.Set(kArtPan, 0.9f); }},
        {"one side", false, [](Pair& p) { p.other->articulation.Set(kArtPan, -1); }},
        {"marks", true,
         [](Pair& p) {
             p.other->articulation.Set(kArtVolume, 0);
             p.other->trigger.Mark(kParamDelay);
         }},
        {"articulation", false, [](Pair& p) { p.other->articulation.Set(kArtCutoff, 500); }},
        {"last articulation", false,
         [](Pair& p) { p.other->articulation.Inherit(kArticulationParams - 1, 77); }},
        {"keys", false, [](Pair& p) { p.other->trigger.keys.high = 51; }},
        {"delay", false, [](Pair& p) { p.other->trigger.delaySeconds = 0.01f; }},
        {"exclusion", false, [](Pair& p) { p.other->trigger.exclusionGroup = 3; }},
        {"start offset", false, [](Pair& p) { p.other->startOffset = 1; }},
        {"end offset", false, [](Pair& p) { p.one->endOffset = -1; }},
        {"phase groups", false, [](Pair& p) { p.other->phaseGroup = 2; }},
        {"phase group", true,
         [](Pair& p) {
             p.one->phaseGroup = p.other->phaseGroup = 2;
             p.other->phaseMaster = 1;
         }},
        {"root override", false,
         [](Pair& p) {
             p.other->overrideFlags = Region::kRootKey;
             p.other->rootKey = 61;
         }},
        {"idle override", true,
         [](Pair& p) {
             p.other->overrideFlags = Region::kRootKey;
             p.other->rootKey = 60;
         }},
        {"loop override", false,
         [](Pair& p) {
             p.other->overrideFlags = Region::kLoopType;
             p.other->loop.type = LoopType::Off;
         }},
        {"rate", false, [](Pair& p) { p.right.rateHz = 44100; }},
        {"root key", false, [](Pair& p) { p.right.rootKey = 61; }},
        {"fine tune", false, [](Pair& p) { p.right.fineTune = 1; }},
        {"volume", false, [](Pair& p) { p.right.volume = -1; }},
        {"loop", false, [](Pair& p) { p.right.loop.start = 11; }},
        {"frames", true, [](Pair& p) { p.right.frames = 950; }},
        {"frames and end", false,
         [](Pair& p) {
             p.right.frames = 950;
             p.one->endOffset = p.other->endOffset = -9;
         }},
        {"loops that are off", true,
         [](Pair& p) {
             p.left.loop = {.end = 1000};
             p.right.loop = {.end = 950};
             p.right.frames = 950;
         }},
        {"stereo", false, [](Pair& p) { p.right.channels = 2; }},
        {"one waveform", false, [](Pair& p) { p.other->SetSound(p.left.Handle()); }},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Pair pair;
        row.change(pair);
        const StereoMergeCounts counts = MergeStereoPairs(pair.items, DeleteUnused::Yes);
        EXPECT_EQ(counts.merged, row.joins ? 1u : 0u);
        EXPECT_EQ(counts.deleted, row.joins ? 2u : 0u);
        EXPECT_EQ(pair.Layers(), row.joins ? 1u : 2u);
        EXPECT_TRUE(pair.host.shown.empty());
        ExpectConsistent(pair.items);
        if (!row.joins)
            continue;
        const std::vector<Region*> regions = pair.instrument.Layers()[0]->Regions();
        ASSERT_EQ(regions.size(), 1u);
        const Waveform* stereo = regions[0]->Wave();
        ASSERT_NE(stereo, nullptr);
        EXPECT_EQ(stereo->channels, 2);
        EXPECT_FALSE(stereo->HasBlock());
        EXPECT_EQ(stereo->GetName(), u"Piano");
        EXPECT_EQ(regions[0]->articulation[kArtPan], 0);
        EXPECT_FALSE(regions[0]->articulation.IsSet(kArtPan));
        EXPECT_EQ(stereo->frames, 1000u);
    }
}

TEST(MergeStereoPairs, LeftIsWhatIsPannedLeft)
{
    for (const float pan : {-1.0f, 1.0f}) {
        Pair pair;
        pair.one->articulation.Set(kArtPan, pan);
        pair.other->articulation.Set(kArtPan, -pan);
        pair.left.bits = 24;
        EXPECT_EQ(MergeStereoPairs(pair.instrument, DeleteUnused::No).merged, 1u);
        Waveform& stereo = *pair.one->Wave();
        Waveform* right = nullptr;
        EXPECT_EQ(stereo.bits, 24);
        ASSERT_NE(right = SplitStereo(stereo), nullptr);
        EXPECT_EQ(stereo.sourceOffset, pan < 0 ? 100u : 5000u);
        EXPECT_EQ(right->sourceOffset, pan < 0 ? 5000u : 100u);
        EXPECT_EQ(pair.items.CountOf(ItemKind::Waveform), 4u);
    }
}

/// What a reader left out comes out as if it had made both regions, joined or not.
TEST(MergeStereoPairs, TwinsAreJoinedOrMade)
{
    for (const bool alike : {true, false}) {
        Pair whole, half;
        const ItemHandle layer = half.other->Parent();
        half.items.Destroy(half.other->Handle());
        half.items.Destroy(layer);
        half.items.twins.push_back({half.one->Handle(), half.right.Handle()});
        for (Pair* pair : {&whole, &half})
            pair->right.fineTune = alike ? 0 : 5;
        for (Pair* pair : {&whole, &half})
            EXPECT_EQ(MergeStereoPairs(pair->items, DeleteUnused::Yes).merged, alike ? 1u : 0u);
        EXPECT_TRUE(half.items.twins.empty());
        ASSERT_EQ(half.Layers(), whole.Layers());
        for (std::size_t i = 0; i < half.Layers(); ++i) {
            const auto regions = half.instrument.Layers()[i]->Regions();
            const auto wanted = whole.instrument.Layers()[i]->Regions();
            ASSERT_EQ(regions.size(), 1u);
            EXPECT_EQ(regions[0]->Wave()->GetName(), wanted[0]->Wave()->GetName());
            EXPECT_EQ(regions[0]->Wave()->channels, wanted[0]->Wave()->channels);
            EXPECT_TRUE(regions[0]->articulation.SameValues(wanted[0]->articulation));
            EXPECT_TRUE(regions[0]->trigger.SameValues(wanted[0]->trigger));
            EXPECT_EQ(GetEffectiveLoop(*regions[0]), GetEffectiveLoop(*wanted[0]));
        }
    }
}

TEST(MergeStereoPairs, StackedPairsShareWaveformsAndKeepTheirNames)
{
    Pair pair;
    Waveform& stringsLeft = pair.AddWave(u"Str L2", 10000);
    Waveform& stringsRight = pair.AddWave(u"Str R2", 20000);
    pair.AddRegion(u"", stringsRight, 1); // ahead of the other right one for its keys
    pair.AddRegion(u"", stringsLeft, -1);
    Region& again = pair.AddRegion(u"", pair.left, -1);
    Region& partner = pair.AddRegion(u"", pair.right, 1);
    for (Region* region : {&again, &partner})
        region->trigger.keys = {60, 70};
    Region& alone = pair.AddRegion(u"", pair.left, 0);
    pair.AddWave(u"piano", 1);

    const StereoMergeCounts counts = MergeStereoPairs(pair.items, DeleteUnused::Yes);
    EXPECT_EQ(counts.merged, 3u);
    EXPECT_EQ(counts.deleted, 3u); // the left piano is still played alone
    EXPECT_EQ(alone.Wave(), &pair.left);
    EXPECT_EQ(Names<Waveform>(pair.items),
              std::vector<std::u16string>({u"Piano -L", u"piano", u"Piano S", u"Str"}));
    EXPECT_EQ(again.Wave(), pair.one->Wave());
    EXPECT_EQ(pair.Layers(), 4u);
    ExpectConsistent(pair.items);
}

TEST(MergeStereoPairs, PanOfTheLayerGoesToo)
{
    Pair pair;
    for (Region* region : {pair.one, pair.other}) {
        const float pan = region->articulation[kArtPan];
        region->ParentLayer()->articulation.Set(kArtPan, pan);
        region->articulation.Inherit(kArtPan, pan);
    }
    Region& single = pair.one->ParentLayer()->AddRegion(pair.left.Handle(), {80, 90});
    single.articulation.Inherit(kArtPan, -1);
    EXPECT_EQ(MergeStereoPairs(pair.items, DeleteUnused::Yes).merged, 1u);
    for (int pass = 0; pass < 2; ++pass) {
        EXPECT_EQ(pair.one->articulation[kArtPan], 0);
        EXPECT_EQ(single.articulation[kArtPan], -1);
        pair.one->ParentLayer()->Validate();
        pair.one->Validate();
        single.Validate();
    }

    Pair whole;
    for (Region* region : {whole.one, whole.other})
        region->ParentLayer()->articulation.Set(kArtPan, region->articulation[kArtPan]);
    EXPECT_EQ(MergeStereoPairs(whole.items, DeleteUnused::Yes).merged, 1u);
    EXPECT_EQ(whole.one->ParentLayer()->articulation[kArtPan], 0);
    EXPECT_FALSE(whole.one->articulation.IsSet(kArtPan));
}

TEST(MergeStereoPairs, FailuresAreShownOnceAndTheRestGoesOn)
{
    Pair pair;
    pair.left.importProc = nullptr; // in memory, where the other side cannot be read
    pair.left.LockSamples();
    Region& again = pair.AddRegion(u"", pair.left, -1);
    Region& partner = pair.AddRegion(u"", pair.right, 1);
    again.trigger.keys = partner.trigger.keys = {60, 70};
    EXPECT_EQ(MergeStereoPairs(pair.items, DeleteUnused::Yes).merged, 0u);
    EXPECT_EQ(pair.host.shown, std::vector<std::u16string>({u"Could not open file"}));
    EXPECT_EQ(pair.items.CountOf(ItemKind::Waveform), 2u);
    EXPECT_EQ(pair.Layers(), 4u);
}

TEST(SplitStereoToLayers, MakesWhatMergingJoins)
{
    Pair pair;
    pair.instrument.Layers()[0]->drum = true;
    EXPECT_EQ(MergeStereoPairs(pair.items, DeleteUnused::Yes).merged, 1u);
    Region& mono = pair.one->ParentLayer()->AddRegion(pair.AddWave(u"Mono", 7).Handle(), {80, 90});
    pair.one->phaseMaster = 1;

    EXPECT_EQ(SplitStereoToLayers(pair.items), 1u);
    ExpectConsistent(pair.items);
    const std::vector<Layer*> layers = pair.instrument.Layers();
    ASSERT_EQ(layers.size(), 2u);
    EXPECT_TRUE(layers[1]->drum);
    EXPECT_EQ(layers[0]->Regions(), std::vector<Region*>({pair.one, &mono}));
    ASSERT_EQ(layers[1]->Regions().size(), 1u);
    Region& partner = *layers[1]->Regions()[0];
    EXPECT_EQ(pair.one->articulation[kArtPan], -1);
    EXPECT_EQ(partner.articulation[kArtPan], 1);
    EXPECT_TRUE(partner.trigger.SameValues(pair.one->trigger));
    EXPECT_EQ(partner.phaseMaster, 0);
    EXPECT_EQ(pair.one->Wave()->GetName(), u"Piano -L");
    EXPECT_EQ(partner.Wave()->GetName(), u"Piano -R");
    EXPECT_EQ(partner.Wave()->sourceOffset, 5000u);
    EXPECT_EQ(pair.one->Wave()->loop.end, 900);
    EXPECT_EQ(MergeStereoPairs(pair.items, DeleteUnused::Yes).merged, 1u);
    EXPECT_EQ(pair.Layers(), 1u);
}

TEST(SplitStereoToLayers, KeepsTheMiddleOfAPannedImage)
{
    for (const float pan : {-1.0f, -0.5f, 0.0f, 0.25f, 1.0f}) {
        Pair pair;
        pair.left.channels = 2;
        pair.one->articulation.Set(kArtPan, pan);
        EXPECT_EQ(SplitStereoToLayers(pair.instrument), 1u);
        const float right = pair.instrument.Layers()[1]->Regions()[0]->articulation[kArtPan];
        EXPECT_FLOAT_EQ((pair.one->articulation[kArtPan] + right) / 2, pan);
        EXPECT_LE(pair.one->articulation[kArtPan], right);
    }
}

TEST(SplitStereoToLayers, OneInstrumentLeavesTheOthersAlone)
{
    Pair pair;
    pair.left.channels = 2;
    Instrument& stranger = AddInstrument(pair.items, 1, 1, pair.left);
    EXPECT_EQ(SplitStereoToLayers(pair.instrument), 1u);
    EXPECT_EQ(stranger.Layers()[0]->Regions()[0]->Wave(), &pair.left);
    EXPECT_EQ(pair.left.channels, 2);
    EXPECT_EQ(pair.one->Wave()->channels, 1);
    EXPECT_EQ(pair.Layers(), 3u);
    EXPECT_EQ(pair.items.CountOf(ItemKind::Waveform), 4u);
}

TEST(MergeStereoWaves, ByNameAndShape)
{
    Pair pair;
    pair.one->articulation.Set(kArtPan, 0);
    pair.other->articulation.Set(kArtPan, 0);
    pair.other->phaseMaster = 1;
    Instrument& second = pair.items.Create<Instrument>(u"second");
    Region& elsewhere = second.AddLayer().AddRegion(pair.left.Handle());
    pair.AddWave(u"Bell", 1); // no pair: another stem
    pair.AddWave(u"Ber", 1);
    pair.AddWave(u"Cello (L)", 2);
    pair.AddWave(u"cello R", 3);
    pair.AddWave(u"Flute L1", 4);
    pair.AddWave(u"Flute R2", 5);
    pair.AddWave(u"Horn L", 4);
    pair.AddWave(u"Horn R", 5).rootKey = 61;

    const StereoMergeCounts counts = MergeStereoWaves(pair.items, DeleteUnused::Yes);
    EXPECT_EQ(counts.merged, 2u);
    EXPECT_EQ(counts.deleted, 3u);
    EXPECT_EQ(elsewhere.Wave(), &pair.left);
    EXPECT_EQ(pair.Layers(), 1u);
    const std::vector<Region*> kept = pair.instrument.Layers()[0]->Regions();
    ASSERT_EQ(kept, std::vector<Region*>({pair.other}));
    EXPECT_EQ(kept[0]->Wave()->GetName(), u"Piano");
    EXPECT_EQ(kept[0]->Wave()->channels, 2);
    const auto names = Names<Waveform>(pair.items);
    EXPECT_TRUE(std::ranges::count(names, u"Cello") == 1 && std::ranges::count(names, u"Bell") == 1);
    ExpectConsistent(pair.items);
}

TEST(WithoutSideEnding, Names)
{
    const std::initializer_list<std::pair<std::u16string_view, std::u16string_view>> rows = {
        {u"Piano -L", u"Piano"},
        {u"Piano - r", u"Piano"},
        {u"Piano (R)", u"Piano"},
        {u"Piano[l]", u"Piano"},
        {u"Str R2", u"Str"},
        {u"PianoL", u"Piano"},
        {u"C3L", u"C3"},
        {u"Kick_R", u"Kick"},
        {u"Cell", u"Cell"},
        {u"BELL", u"BELL"},
        {u"Guitar2", u"Guitar2"},
        {u"L", u"L"},
        {u"-L", u"-L"},
        {u"(L)", u"(L)"},
        {u"", u""},
        {u"Piano 2", u"Piano 2"},
        {u"Piano (X)", u"Piano (X)"}};
    for (const auto& [name, wanted] : rows)
        EXPECT_EQ(WithoutSideEnding(name), wanted) << WideToUtf8(name);
}

} // namespace
} // namespace vimbo
