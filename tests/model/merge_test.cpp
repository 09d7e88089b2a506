#include "model/merge.h"

#include "model_builders.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>

namespace vimbo {
namespace {

TEST(Merge, AnEmptyCollectionChangesNothing)
{
    Collection target, empty;
    Instrument& a = target.Create<Instrument>(u"a");
    Instrument& b = target.Create<Instrument>(u"b");
    target.Merge(empty);
    target.Merge(target);
    EXPECT_EQ(target.ItemCount(), 3u);
    EXPECT_EQ(a.location, b.location); // not even Validate has run
    EXPECT_TRUE(IsConsistent(empty) && IsConsistent(target));
}

TEST(Merge, MovesItemsWithTheirLinks)
{
    Collection target;
    target.Create<Waveform>(u"old");
    auto source = std::make_unique<Collection>();
    Waveform& wave = source->Create<Waveform>(u"w");
    Instrument& instrument = source->Create<Instrument>(u"i");
    Layer& layer = Nest(instrument, source->Create<Layer>(u"l"));
    Region& region = Nest(layer, source->Create<Region>(u"r"));
    region.SetSound(wave.Handle());
    Region& modelled = Nest(layer, source->Create<Region>(u"m"));
    SynthModel& model = source->Create<SynthModel>(u"la");
    modelled.SetSound(model.Handle());
    ASSERT_TRUE(model.SetModel(1));
    model.AddChild(wave.Handle());
    model.SetWaveReference(2, wave.Handle());
    model.SetWaveReference(3, ItemHandle(ItemKind::Waveform, 0xABCDEF)); // of a waveform that is gone
    layer.AddChild(NO_ITEM);
    layer.AddChild(ItemHandle(ItemKind::Region, 0xABCDEF));
    layer.AddChild(ItemHandle(region.Handle().Serial())); // a slot without the kind
    Song& song = source->Create<Song>(u"s");
    Track& track = Nest(song, source->Create<Track>(u"t"));
    source->AddChild(instrument.Handle());
    const std::set<ItemHandle> before{wave.Handle(),     instrument.Handle(), layer.Handle(), region.Handle(),
                                      modelled.Handle(), model.Handle(),      song.Handle(),  track.Handle()};

    target.Merge(*source);
    EXPECT_EQ(source->ItemCount(), 1u);
    EXPECT_EQ(source->CountOf(ItemKind::Region), 0u);
    EXPECT_TRUE(source->Children().empty());
    EXPECT_TRUE(IsConsistent(*source));
    source.reset(); // the moved items have another owner
    EXPECT_EQ(target.ItemCount(), 10u);
    for (const Item* item : std::initializer_list<const Item*>{&wave, &instrument, &layer, &region, &modelled,
                                                               &model, &song, &track}) {
        EXPECT_EQ(target.FindItem(item->Handle()), item);
        EXPECT_EQ(&item->Owner(), &target);
        EXPECT_FALSE(before.contains(item->Handle()));
    }
    EXPECT_EQ(region.Wave(), &wave);
    EXPECT_EQ(modelled.Synth(), &model);
    EXPECT_EQ(model.Parent(), modelled.Handle());
    EXPECT_EQ(model.Child(0), &wave);
    EXPECT_EQ(model.WaveReference(2), wave.Handle());
    EXPECT_EQ(model.WaveReference(3), NO_ITEM);
    EXPECT_EQ(instrument.Child(0), &layer);
    EXPECT_EQ(track.ParentItem(), &song);
    ASSERT_EQ(layer.Children().size(), 5u);
    EXPECT_EQ(layer.Children()[2], NO_ITEM);
    EXPECT_EQ(layer.Children()[3], NO_ITEM);
    EXPECT_EQ(layer.Children()[4], region.Handle());
    std::u16string why;
    EXPECT_TRUE(IsConsistent(target, &why)) << WideToUtf8(why);
    EXPECT_EQ(target.List<Waveform>().back(), &wave); // arrivals stand last
}

TEST(Merge, RaisesTheWholeLocationWordOfLateComers)
{
    Collection target, source;
    const auto add = [](Collection& items, std::uint32_t word) -> Instrument& {
        Instrument& instrument = items.Create<Instrument>(u"i");
        instrument.location.word = word;
        return instrument;
    };
    Instrument& first = add(target, 0);
    add(target, 1);
    add(target, 127);
    Instrument& twin = add(source, 0);
    Instrument& own = add(source, 5);
    Instrument& edge = add(source, 127);
    Instrument& again = add(source, 0);
    target.Merge(source);
    EXPECT_EQ(first.location.word, 0u);
    EXPECT_EQ(twin.location.word, 2u); // the program changes, not the bank
    EXPECT_EQ(own.location.word, 5u);
    EXPECT_EQ(edge.location.word, 1u << 7); // carries into the minor bank
    EXPECT_EQ(again.location.word, 3u);
}

TEST(Merge, ManyInstrumentsAtOnePlaceAreQuick)
{
    Collection target, source;
    for (int i = 0; i < 20000; ++i) {
        target.Create<Instrument>(u"t");
        source.Create<Instrument>(u"s");
    }
    target.Merge(source);
    EXPECT_EQ(target.CountOf(ItemKind::Instrument), 40000u);
    std::set<std::uint32_t> words;
    for (const Instrument& instrument : target.All<Instrument>())
        words.insert(instrument.location.word);
    EXPECT_EQ(words.size(), 40000u);
}

TEST(Merge, OneMergerForManyGivesWhatManyMergesGive)
{
    for (unsigned seed = 0; seed < 20; ++seed) {
        std::vector<std::uint32_t> words[2];
        for (const bool isOneMerger : {false, true}) {
            std::mt19937 random(seed);
            const auto below = [&](unsigned limit) { return static_cast<std::uint32_t>(random() % limit); };
            const auto word = [&] { return below(3) == 0 ? MidiLocation::kMask - below(3) : below(4) << 14; };
            Collection target;
            for (unsigned i = below(4); i > 0; --i)
                target.Create<Instrument>(u"t").location.word = word();
            target.Validate();
            CollectionMerger merger(target);
            for (int i = 0; i < 8; ++i) {
                Collection other;
                other.Create<Waveform>(u"w");
                for (unsigned n = below(5); n > 0; --n)
                    other.Create<Instrument>(u"i").location.word = word();
                if (isOneMerger)
                    merger.Merge(other);
                else
                    target.Merge(other);
            }
            EXPECT_TRUE(IsConsistent(target));
            EXPECT_EQ(target.CountOf(ItemKind::Waveform), 8u);
            for (const Instrument& instrument : target.All<Instrument>())
                words[isOneMerger ? 1 : 0].push_back(instrument.location.word);
        }
        EXPECT_EQ(words[0], words[1]) << "seed " << seed;
        std::ranges::sort(words[0]);
        EXPECT_EQ(std::ranges::adjacent_find(words[0]), words[0].end());
    }
}

} // namespace
} // namespace vimbo
