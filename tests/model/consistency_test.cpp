#include "model/consistency.h"

#include "model/fix_up.h"
#include "model/stereo_pairs.h"
#include "model_builders.h"

#include <gtest/gtest.h>

#include <random>

namespace vimbo {
namespace {

TEST(Consistency, FindsBrokenLinks)
{
    const auto fault = [](auto&& breakIt) {
        Collection items;
        AddInstrument(items, 1, 1, items.Create<Waveform>(u"w"));
        ExpectConsistent(items);
        breakIt(items);
        std::u16string why;
        return IsConsistent(items, &why) ? std::string() : WideToUtf8(why);
    };
    EXPECT_EQ(fault([](Collection& items) {
                  items.List<Region>()[0]->SetParent(ItemHandle(ItemKind::Layer, 0xFFFFF));
              }),
              "region has a parent that does not exist or is of the wrong kind");
    EXPECT_EQ(fault([](Collection& items) {
                  items.List<Region>()[0]->SetParent(items.List<Region>()[0]->Handle());
              }),
              "region has a parent that does not exist or is of the wrong kind");
    EXPECT_EQ(fault([](Collection& items) {
                  items.List<Layer>()[0]->AddChild(ItemHandle(ItemKind::Region, 0xFFFFF));
              }),
              "layer has a child that does not exist");
    EXPECT_EQ(fault([](Collection& items) {
                  items.List<Region>()[0]->SetChild(0, ItemHandle(ItemKind::Layer, 1));
              }),
              "region has a child of a kind that cannot stand there");
    EXPECT_EQ(fault([](Collection& items) { items.List<Region>()[0]->AddChild(NO_ITEM); }),
              "region has more than one child");
    EXPECT_EQ(fault([](Collection& items) { items.Destroy(items.List<Waveform>()[0]->Handle()); }), "");
}

/// Random edits on two collections, as a user and the readers make them.
class RandomEdits {
public:
    explicit RandomEdits(std::uint32_t seed) : random_(seed) {}

    void Step(Collection& items, Collection& other)
    {
        switch (Roll(20)) {
        case 0:
        case 1:
            items.Create<Waveform>(u"w").frames = Roll(2);
            break;
        case 2:
        case 3:
            AddTree(items);
            break;
        case 4:
            AddSong(items);
            break;
        case 5:
        case 6:
        case 7:
            if (Item* victim = Any(items); victim != &items)
                items.Destroy(victim->Handle());
            break;
        case 8:
        case 9:
            CloneAny(items);
            break;
        case 10:
            items.Merge(other);
            break;
        case 11:
            MoveAny(items);
            break;
        case 12:
            FixUp(items);
            break;
        case 13:
            items.MakeNamesUnique(static_cast<ItemKind>(Roll(7)));
            break;
        case 14:
            ReplaceSound(items);
            break;
        case 15:
        case 16:
            AddRegions(items);
            break;
        case 17:
            Regroup(items);
            break;
        case 18: {
            const Item* item = Any(items);
            const auto id = static_cast<ParamId>(Roll(kParamLast + 1));
            Any(items)->SetParam(id, static_cast<float>(Roll(300)) - 100);
            Any(items)->ClearParam(id, item->GetParam(id));
            break;
        }
        default:
            Any(items)->Validate();
            break;
        }
    }

private:
    std::uint32_t Roll(std::size_t sides) { return static_cast<std::uint32_t>(random_() % sides); }

    void MoveAny(Collection& items)
    {
        const std::uint32_t from = Roll(4), to = Roll(5);
        Any(items)->MoveChild(from, to);
    }

    Item* Any(Collection& items)
    {
        std::vector<Item*> all{&items};
        const auto add = [&](auto list) { all.insert(all.end(), list.begin(), list.end()); };
        add(items.List<Waveform>());
        add(items.List<SynthModel>());
        add(items.List<Region>());
        add(items.List<Layer>());
        add(items.List<Instrument>());
        add(items.List<Track>());
        add(items.List<Song>());
        return all[Roll(all.size())];
    }

    void AddTree(Collection& items)
    {
        if (items.CountOf(ItemKind::Waveform) == 0)
            return;
        const std::vector<Waveform*> waves = items.List<Waveform>();
        const std::uint32_t layers = Roll(3), regions = Roll(4);
        Instrument& instrument = AddInstrument(items, layers, regions, *waves[Roll(waves.size())]);
        instrument.location.word = Roll(4);
        if (Roll(2) == 0)
            ReplaceSound(items);
    }

    void FixUp(Collection& items)
    {
        LoadOptions& options = items.loadOptions;
        for (bool* option : {&options.autoMoveArticulation, &options.autoSplitStereo, &options.autoAppend32,
                             &options.autoBid2Fwd, &options.autoCompactLayers})
            *option = Roll(2) == 0;
        FixUpItems(items, static_cast<std::uint8_t>(Roll(128)), Roll(2) == 0 ? AfterLoad::No : AfterLoad::Yes,
                   Roll(2) == 0 ? SourceHoldsStereo::No : SourceHoldsStereo::Yes);
        std::u16string why;
        ASSERT_TRUE(IsFixedUp(items, &why)) << WideToUtf8(why);
    }

    void AddRegions(Collection& items)
    {
        const std::vector<Waveform*> waves = items.List<Waveform>();
        const std::vector<Instrument*> instruments = items.List<Instrument>();
        if (waves.empty() || instruments.empty())
            return;
        Instrument& instrument = *instruments[Roll(instruments.size())];
        for (std::uint32_t n = Roll(4); n > 0; --n) {
            const auto low = static_cast<std::uint8_t>(Roll(100));
            Region& region = instrument.FindOrAddRegion(waves[Roll(waves.size())]->Handle(),
                                                        {low, static_cast<std::uint8_t>(low + Roll(28))},
                                                        {0, 127}, 60, static_cast<int>(Roll(4)) - 1);
            region.articulation.Set(kArtPan, Roll(2) == 0 ? -1.0f : 1.0f);
        }
    }

    void Regroup(Collection& items)
    {
        const std::vector<Instrument*> instruments = items.List<Instrument>();
        if (instruments.empty())
            return;
        Instrument& instrument = *instruments[Roll(instruments.size())];
        switch (Roll(6)) {
        case 0:
            instrument.CompactLayers(MoveParamsUp::Yes, KeepArticulation::No);
            break;
        case 1:
            MergeStereoPairs(instrument, DeleteUnused::Yes);
            break;
        case 2:
            SplitStereoToLayers(instrument);
            break;
        case 3:
            RemoveDuplicateWaves(items);
            break;
        case 4:
            UnifyRegionWaveSettings(items);
            break;
        default:
            ClearRegionRanges(instrument);
        }
    }

    void AddSong(Collection& items)
    {
        Song& song = items.Create<Song>(u"s");
        for (std::uint32_t i = Roll(3); i > 0; --i)
            AddTrack(song, {0, 0xFF, 0x2F, 0});
    }

    void ReplaceSound(Collection& items)
    {
        const std::vector<Region*> regions = items.List<Region>();
        if (regions.empty())
            return;
        SynthModel& model = items.Create<SynthModel>(u"m");
        ASSERT_TRUE(model.SetModel(Roll(3)));
        if (items.CountOf(ItemKind::Waveform) > 0) {
            model.AddChild(items.List<Waveform>()[0]->Handle());
            model.SetWaveReference(Roll(8), model.Children()[0]);
        }
        regions[Roll(regions.size())]->SetSound(model.Handle());
    }

    void CloneAny(Collection& items)
    {
        const Item* source = Any(items);
        if (source == &items || items.ItemCount() > 500)
            return;
        Item* copy = items.CloneItem(*source);
        if (Item* parent = source->ParentItem(); parent != nullptr && parent->Kind() != ItemKind::Region)
            Nest(*parent, *copy);
    }

    std::mt19937 random_;
};

TEST(Collection, RandomEditsKeepItConsistent)
{
    for (std::uint32_t seed = 0; seed < 60; ++seed) {
        RandomEdits edits(seed);
        Collection items, other;
        for (int step = 0; step < 250; ++step) {
            edits.Step(items, other);
            if (HasFatalFailure())
                FAIL() << "seed " << seed << " step " << step;
            if (step % 4 == 0)
                edits.Step(other, items);
            std::u16string why;
            ASSERT_TRUE(IsConsistent(items, &why) && IsConsistent(other, &why))
                << "seed " << seed << " step " << step << ": " << WideToUtf8(why);
        }
        items.Clear();
        ASSERT_EQ(items.ItemCount(), 1u);
    }
}

} // namespace
} // namespace vimbo
