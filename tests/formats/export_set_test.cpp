#include "formats/export_set.h"

#include "bank_builder.h"
#include "model/song.h"
#include "model/synth_model.h"

#include <bitset>
#include <functional>
#include <random>

namespace vimbo {
namespace {

using testing::Bank;
using testing::Zones;

std::vector<std::string> Names(std::span<Instrument* const> instruments)
{
    std::vector<std::string> names;
    for (const Instrument* instrument : instruments)
        names.push_back(WideToUtf8(instrument->GetName()));
    return names;
}

TEST(ExportSet, FillsInTheOrderOfTheFile)
{
    Bank bank;
    Waveform& second = bank.AddWave(u"second");
    Waveform& unused = bank.AddWave(u"unused");
    bank.Add(u"c", MidiLocation::kDrumBit, {});
    Instrument& b = bank.Add(u"b", 7, {{{0, 10, 0, 127}, {11, 20, 0, 127}, {21, 30, 0, 127}}});
    bank.Add(u"a", 3, {});
    b.Layers()[0]->Regions()[0]->SetSound(second.Handle());
    auto& model = bank.items.Create<SynthModel>(u"m");
    model.AddChild(unused.Handle());
    b.Layers()[0]->Regions()[2]->SetSound(model.Handle());

    ExportSet set;
    set.Fill(bank.items, IncludeWaves::Yes);
    EXPECT_EQ(Names(set.Instruments()), (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_EQ(set.Waveforms().size(), 3u);
    set.KeepFirstInstrument();
    EXPECT_EQ(Names(set.Instruments()), std::vector<std::string>{"a"});
    set.Fill(b, IncludeWaves::Yes);
    EXPECT_EQ(Names(set.Instruments()), std::vector<std::string>{"b"});
    EXPECT_EQ(std::vector(set.Waveforms().begin(), set.Waveforms().end()),
              (std::vector<Waveform*>{&second, &bank.wave, &unused}))
        << "by first use; the synthesis model's too";
    set.Fill(bank.wave, IncludeWaves::Yes);
    EXPECT_TRUE(set.Instruments().empty());
    EXPECT_EQ(set.Waveforms().front(), &bank.wave);

    auto& song = bank.items.Create<Song>(u"s");
    bank.items.Create<Song>(u"t");
    EXPECT_EQ(SongsToExport(bank.items).size(), 2u);
    EXPECT_EQ(SongsToExport(song), std::vector<Song*>{&song});
    EXPECT_TRUE(SongsToExport(b).empty());
}

TEST(ExportSet, PartsOfInstrumentsAreWrappedAsTheySound)
{
    Bank bank;
    Instrument& kit = bank.Add(u"Kit", MidiLocation::kDrumBit | 5, {{{0, 9, 0, 127}, {36, 36, 0, 127}}, {}});
    kit.SetText(kTextArtist, u"artist");
    kit.SetParam(kArtVolume, -3);
    Layer& layer = *kit.Layers()[0];
    layer.SetName(u"Snares: x");
    layer.SetParam(kArtPan, 0.5f);
    layer.SetParam(kParamDelay, 0.25f);
    Region& region = *layer.Regions()[1];
    auto& synth = bank.items.Create<SynthModel>(u"fm");
    ASSERT_TRUE(synth.SetModel(1));
    const auto before = bank.Records();
    const std::size_t count = bank.items.ItemCount();

    struct Case {
        Item* root;
        std::string zones;
        std::size_t waves;
    };
    for (const Case& test : {Case{&region, "36-36:0-127", 1u}, Case{&layer, "0-9:0-127 36-36:0-127", 1u},
                             Case{&synth, "0-127:0-127", 0u}}) {
        ExportSet set;
        set.Fill(*test.root, IncludeWaves::Yes);
        ASSERT_EQ(set.Instruments().size(), 1u);
        Instrument& made = *set.Instruments()[0];
        EXPECT_EQ(Zones(made), test.zones);
        EXPECT_EQ(set.Waveforms().size(), test.waves);
        made.Validate();
        Layer& madeLayer = *made.Layers().front();
        madeLayer.Validate();
        Region& madeRegion = *madeLayer.Regions().back();
        madeRegion.Validate();
        const bool hasParents = test.root != &synth;
        EXPECT_EQ(made.location.word, hasParents ? kit.location.word : 0u);
        EXPECT_EQ(madeLayer.drum, hasParents);
        EXPECT_EQ(made.GetText(kTextArtist), hasParents ? u"artist" : u"");
        EXPECT_EQ(WideToUtf8(made.GetName()), hasParents ? "Kit" : "fm");
        EXPECT_EQ(madeRegion.articulation[kArtVolume], hasParents ? -3.0f : 0.0f);
        EXPECT_EQ(madeRegion.articulation[kArtPan], hasParents ? 0.5f : 0.0f);
        EXPECT_EQ(madeRegion.trigger.delaySeconds, hasParents ? 0.25f : 0.0f);
        EXPECT_EQ(madeRegion.Synth() != nullptr, !hasParents);
        set.Clear();
        EXPECT_EQ(bank.items.ItemCount(), count);
        EXPECT_EQ(bank.Records(), before);
    }
}

using Operation = std::function<void(ExportSet&)>;

struct OperationCase {
    const char* name;
    std::vector<std::vector<testing::Zone4>> layers;
    Operation run;
    std::string expected; ///< "" if the instrument leaves the set
};

void LimitTo1(ExportSet& set)
{
    set.LimitLayers(1, 0, CompactFirst::No);
}
void CompactTo1(ExportSet& set)
{
    set.LimitLayers(1, 0, CompactFirst::Yes);
}
void Alternates(ExportSet& set)
{
    set.RemoveOverlappingAlternates();
}
void Separate(ExportSet& set)
{
    set.SeparateVelocityStacks();
}
void Clip(ExportSet& set)
{
    set.ClipTo({21, 108}, {1, 100}, true, false);
}

const OperationCase kOperations[] = {
    {"limit", {{{0, 60, 0, 127}}, {{61, 127, 0, 127}}}, LimitTo1, "0-60:0-127"},
    {"limit reached", {{{0, 60, 0, 127}}}, LimitTo1, "0-60:0-127"},
    {"compact", {{{0, 60, 0, 127}}, {{61, 127, 0, 127}}}, CompactTo1, "0-60:0-127 61-127:0-127"},
    {"alternates of one group",
     {{{0, 60, 0, 127, 2}}, {{50, 70, 0, 127, 2}, {71, 80, 0, 127, 2}}},
     Alternates,
     "0-60:0-127 | 71-80:0-127"},
    {"a layer that is left empty goes",
     {{{0, 60, 0, 127, 2}}, {{50, 70, 0, 127, 2}}, {}},
     Alternates,
     "0-60:0-127 | "},
    {"other groups and velocities stay",
     {{{0, 60, 0, 63, 2}}, {{0, 60, 64, 127, 2}}, {{0, 60, 0, 127, 3}}, {{0, 60, 0, 127}}, {{0, 60, 0, 127}}},
     Alternates,
     "0-60:0-63 | 0-60:64-127 | 0-60:0-127 | 0-60:0-127 | 0-60:0-127"},
    {"what is gone removes nothing",
     {{{0, 9, 0, 127, 17}}, {{5, 20, 0, 127, 17}}, {{15, 30, 0, 127, 17}}},
     Alternates,
     "0-9:0-127 | 15-30:0-127"},
    {"stacks",
     {{{0, 60, 0, 63}, {0, 60, 64, 127}, {61, 90, 0, 127}}, {{1, 2, 0, 127}}},
     Separate,
     "0-60:0-63 61-90:0-127 | 0-60:64-127 | 1-2:0-127"},
    {"three stacks",
     {{{0, 60, 0, 1}, {0, 60, 2, 3}, {60, 61, 4, 5}, {61, 62, 0, 1}}},
     Separate,
     "0-60:0-1 61-62:0-1 | 0-60:2-3 | 60-61:4-5"},
    {"splits without stacks", {{{0, 59, 0, 127}, {60, 127, 0, 127}}}, Separate, "0-59:0-127 60-127:0-127"},
    {"clip",
     {{{0, 60, 0, 127}, {109, 120, 0, 127}, {70, 70, 101, 127}}, {{0, 20, 0, 127}}},
     Clip,
     "21-60:1-100"},
    {"clip nothing", {{{21, 108, 1, 100}}}, Clip, "21-108:1-100"},
    {"clip all", {{{0, 20, 0, 127}}}, Clip, ""},
};

TEST(ExportSet, OperationsWorkOnClones)
{
    for (const OperationCase& test : kOperations) {
        SCOPED_TRACE(test.name);
        Bank bank;
        Instrument& instrument = bank.Add(u"i", 0, test.layers);
        bank.Add(u"other", 1, {{{30, 40, 1, 100}}});
        const auto before = bank.Records();
        const std::string zonesBefore = Zones(instrument);
        {
            ExportSet set;
            set.Fill(bank.items, IncludeWaves::No);
            test.run(set);
            const bool isThere = !test.expected.empty();
            ASSERT_EQ(set.Instruments().size(), isThere ? 2u : 1u);
            if (isThere) {
                Instrument& made = *set.Instruments()[0];
                EXPECT_EQ(Zones(made), test.expected);
                EXPECT_EQ(&made == &instrument, test.expected == zonesBefore) << "cloned only if it changes";
            }
            EXPECT_EQ(Zones(instrument), zonesBefore);
            std::u16string why;
            EXPECT_TRUE(IsConsistent(bank.items, &why)) << WideToUtf8(why);
        }
        EXPECT_EQ(bank.Records(), before);
    }
}

TEST(ExportSet, DrumKitsHaveLimitsOfTheirOwn)
{
    Bank bank;
    const std::vector<std::vector<testing::Zone4>> layers{{{0, 60, 0, 127}}, {{61, 127, 0, 127}}};
    bank.Add(u"drum", MidiLocation::kDrumBit, layers);
    bank.Add(u"melodic", 0, layers);
    ExportSet set;
    set.Fill(bank.items, IncludeWaves::No);
    set.ClipTo({0, 63}, {}, false, true);
    EXPECT_EQ(Zones(*set.Instruments()[0]), "0-60:0-127 | 61-127:0-127");
    EXPECT_EQ(Zones(*set.Instruments()[1]), "0-60:0-127 | 61-63:0-127");
    set.LimitLayers(2, 1, CompactFirst::No);
    EXPECT_EQ(set.Instruments()[0]->Layers().size(), 2u);
    EXPECT_EQ(set.Instruments()[1]->Layers().size(), 1u);
}

TEST(ExportSet, ClippedEdgesLoseTheirFadesAndStay)
{
    Bank bank;
    Instrument& instrument = bank.Add(u"i", 0, {{{0, 127, 0, 127}}});
    Region& region = *instrument.Layers()[0]->Regions()[0];
    region.SetParam(kParamKeyFadeIn, 30);
    region.SetParam(kParamKeyFadeOut, 8);
    region.trigger.Unmark(kParamLowKey);
    ExportSet set;
    set.Fill(instrument, IncludeWaves::No);
    set.ClipTo({10, 120}, {}, true, true);
    Layer& layer = *set.Instruments()[0]->Layers()[0];
    layer.Validate();
    const TriggerParams& clipped = layer.Regions()[0]->trigger;
    EXPECT_EQ(clipped.keys, (MidiRange{10, 120})) << "not inherited again";
    EXPECT_EQ(clipped.keyFadeIn, 20);
    EXPECT_EQ(clipped.keyFadeOut, 1);
}

/// Any instruments: operations in any order keep what they promise, and the originals.
TEST(ExportSet, AnyBankKeepsItsPromises)
{
    std::mt19937 random(7);
    const auto below = [&](unsigned limit) { return static_cast<unsigned>(random() % limit); };
    for (int round = 0; round < 40; ++round) {
        Bank bank;
        for (unsigned i = 0; i < 3; ++i) {
            Instrument& instrument = bank.Add(u"i", i | (below(2) != 0 ? MidiLocation::kDrumBit : 0), {});
            for (unsigned r = below(60); r > 0; --r) {
                const auto edge = [&](unsigned width) { return static_cast<std::uint8_t>(below(width)); };
                const std::uint8_t key = edge(120), velocity = edge(100);
                instrument.FindOrAddRegion(
                    bank.wave.Handle(), {key, static_cast<std::uint8_t>(key + edge(8))},
                    {velocity, static_cast<std::uint8_t>(velocity + edge(28))}, Layer::kNoRootKey);
            }
        }
        const auto before = bank.Records();
        ExportSet set;
        set.Fill(bank.items, IncludeWaves::No);
        set.ClipTo({24, 100}, {20, 90}, true, true);
        set.SeparateVelocityStacks();
        std::size_t regions = 0;
        for (const Instrument* instrument : set.Instruments()) {
            ASSERT_FALSE(instrument->Layers().empty());
            for (const Layer* layer : instrument->Layers()) {
                std::bitset<128> keys;
                for (const Region* region : layer->Regions()) {
                    const TriggerParams& t = region->trigger;
                    ASSERT_TRUE((MidiRange{24, 100}.Contains(t.keys)));
                    ASSERT_TRUE((MidiRange{20, 90}.Contains(t.velocities)));
                    for (unsigned key = t.keys.low; key <= t.keys.high; ++key) {
                        ASSERT_FALSE(keys[key]);
                        keys.set(key);
                    }
                    ++regions;
                }
            }
        }
        std::size_t expected = 0;
        for (const auto& [handle, record] : before)
            if (handle.Kind() == ItemKind::Region) {
                const TriggerParams& t = bank.items.Find<Region>(handle)->trigger;
                expected += t.keys.Overlaps({24, 100}) && t.velocities.Overlaps({20, 90}) ? 1 : 0;
            }
        EXPECT_EQ(regions, expected) << "none lost, none doubled";
        set.Clear();
        ASSERT_EQ(bank.Records(), before);
    }
}

} // namespace
} // namespace vimbo
