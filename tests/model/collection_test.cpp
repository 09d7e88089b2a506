#include "model/collection.h"

#include "model/fix_up.h"
#include "model/free_numbers.h"
#include "model_builders.h"

#include <gtest/gtest.h>

#include <set>
#include <thread>

namespace vimbo {
namespace {

TEST(Collection, StartsWithItselfOnly)
{
    Collection items;
    EXPECT_EQ(items.ItemCount(), 1u);
    EXPECT_EQ(items.CountOf(ItemKind::Collection), 1u);
    EXPECT_EQ(items.FindItem(items.Handle()), &items);
    EXPECT_EQ(items.GetName(), u"New collection");
    EXPECT_EQ(items.formatRow, -1);
    EXPECT_EQ(items.FindItem(NO_ITEM), nullptr);
    EXPECT_EQ(items.Find<Waveform>(NO_ITEM), nullptr);
    items.Destroy(items.Handle());
    ExpectConsistent(items);
}

TEST(Collection, SerialsCountUpAndExactHandlesAreKept)
{
    Collection items;
    const ItemHandle first = items.Create<Song>(u"a").Handle();
    const ItemHandle second = items.Create<Song>(u"b").Handle();
    EXPECT_EQ(second.Serial(), first.Serial() + 1);
    const ItemHandle ahead(ItemKind::Song, second.Serial() + 1000);
    EXPECT_NE(items.CreateItem(ahead), nullptr);
    EXPECT_EQ(items.CreateItem(ahead), nullptr);
    EXPECT_EQ(items.Create<Song>(u"c").Handle().Serial(), ahead.Serial() + 1);
    // An older serial does not set the count back.
    const ItemHandle behind(ItemKind::Song, second.Serial() + 5);
    EXPECT_NE(items.CreateItem(behind), nullptr);
    EXPECT_EQ(items.Create<Song>(u"d").Handle().Serial(), ahead.Serial() + 2);
    for (const std::uint32_t raw : {0x70000001u, 0x80000001u, 0xFFFFFFFFu, 0x0FFFFFFFu, 0x0FFFFFFEu})
        EXPECT_EQ(items.CreateItem(ItemHandle(raw)), nullptr) << raw;
    ExpectConsistent(items);
    // Another collection goes on counting, so that handles of two collections differ.
    Collection other;
    EXPECT_EQ(other.Create<Song>(u"e").Handle().Serial(), ahead.Serial() + 3);
}

TEST(Collection, SerialsWrapAndPassOverTakenOnes)
{
    Collection items;
    const ItemHandle last(ItemKind::Track, NO_WAVEFORM_YET - 1);
    ASSERT_NE(items.CreateItem(ItemHandle(ItemKind::Track, 0)), nullptr);
    ASSERT_NE(items.CreateItem(ItemHandle(ItemKind::Track, 2)), nullptr);
    ASSERT_NE(items.CreateItem(last), nullptr);
    EXPECT_EQ(items.Create<Track>(u"").Handle().Serial(), 1u);
    EXPECT_EQ(items.Create<Track>(u"").Handle().Serial(), 3u);
    ExpectConsistent(items);
}

TEST(Collection, CreateItemPicksTheClass)
{
    Collection items;
    for (std::uint32_t kind = 0; kind < 7; ++kind) {
        const ItemHandle handle(static_cast<ItemKind>(kind), 0x123456);
        Item* item = items.CreateItem(handle);
        ASSERT_NE(item, nullptr);
        EXPECT_EQ(item->Handle(), handle);
        EXPECT_EQ(items.FindItem(handle), item);
        EXPECT_EQ(items.CountOf(handle.Kind()), 1u);
    }
    EXPECT_NE(dynamic_cast<SynthModel*>(items.FindItem(ItemHandle(ItemKind::SynthModel, 0x123456))), nullptr);
    EXPECT_NE(dynamic_cast<Song*>(items.FindItem(ItemHandle(ItemKind::Song, 0x123456))), nullptr);
    EXPECT_EQ(items.Find<Layer>(ItemHandle(0x123456))->Kind(), ItemKind::Layer);
    ExpectConsistent(items);
}

TEST(Collection, WalksAKindInOrderOfArrival)
{
    Collection items;
    std::vector<ItemHandle> handles;
    for (int i = 0; i < 100; ++i)
        handles.push_back(items.Create<Region>(u"").Handle());
    for (const std::size_t index : {99u, 50u, 0u}) {
        items.Destroy(handles[index]);
        handles.erase(handles.begin() + static_cast<std::ptrdiff_t>(index));
    }
    std::vector<ItemHandle> walked;
    for (const Region& region : items.All<Region>())
        walked.push_back(region.Handle());
    EXPECT_EQ(walked, handles);
    EXPECT_EQ(items.List<Region>().size(), 97u);
    ExpectConsistent(items);
}

TEST(Collection, DestroyTakesNestedItemsAlong)
{
    Collection items;
    Waveform& wave = items.Create<Waveform>(u"w");
    Instrument& instrument = AddInstrument(items, 2, 3, wave);
    Region& region = *items.List<Region>().front();
    region.SetSound(items.Create<SynthModel>(u"m").Handle());
    items.Destroy(region.Handle());
    EXPECT_EQ(items.CountOf(ItemKind::SynthModel), 0u);
    EXPECT_EQ(instrument.Child(0)->Children().size(), 2u);
    items.Destroy(instrument.Child(0)->Handle());
    EXPECT_EQ(instrument.Children().size(), 1u);
    EXPECT_EQ(items.CountOf(ItemKind::Region), 3u);
    ExpectConsistent(items);
    items.Destroy(instrument.Handle());
    EXPECT_EQ(items.ItemCount(), 2u);
    EXPECT_EQ(items.FindItem(wave.Handle()), &wave);

    Song& song = items.Create<Song>(u"s");
    const ItemHandle first = AddTrack(song, {}).Handle();
    const ItemHandle second = AddTrack(song, {}).Handle();
    const ItemHandle third = AddTrack(song, {}).Handle();
    items.Destroy(second);
    EXPECT_EQ(std::vector(song.Children().begin(), song.Children().end()), (std::vector{first, third}));
    items.Destroy(song.Handle());
    EXPECT_EQ(items.CountOf(ItemKind::Track), 0u);
    items.Destroy(ItemHandle(ItemKind::Song, 0xABCDEF)); // no such item
    ExpectConsistent(items);
}

TEST(Collection, DestroysWideTreesQuickly)
{
    // Quadratic work here would take minutes.
    Collection items;
    Waveform& wave = items.Create<Waveform>(u"w");
    Instrument& instrument = AddInstrument(items, 1, 300000, wave);
    items.Destroy(instrument.Handle());
    EXPECT_EQ(items.ItemCount(), 2u);
    AddInstrument(items, 1, 300000, wave);
    for (Region* region : items.List<Region>())
        region->SetSound(NO_ITEM);
    FixUpItems(items, kPruneAll, AfterLoad::No);
    EXPECT_EQ(items.ItemCount(), 1u);
}

TEST(Collection, CloneCopiesNestedItemsButSharesWaveforms)
{
    Collection items;
    Waveform& wave = items.Create<Waveform>(u"w");
    Instrument& instrument = AddInstrument(items, 2, 1, wave);
    instrument.SetText(kTextArtist, u"me");
    instrument.location.word = 77;
    SynthModel& model = items.Create<SynthModel>(u"fm");
    ASSERT_TRUE(model.SetModel(0));
    model.Block()[3] = std::byte{9};
    items.List<Region>()[1]->SetSound(model.Handle());

    Instrument& copy = items.Clone(instrument);
    EXPECT_EQ(copy.GetText(kTextArtist), u"me");
    EXPECT_EQ(copy.location.word, 77u);
    EXPECT_EQ(copy.Parent(), NO_ITEM);
    ASSERT_EQ(copy.Children().size(), 2u);
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_NE(copy.Child(i), instrument.Child(i));
        EXPECT_EQ(copy.Child(i)->Parent(), copy.Handle());
        EXPECT_EQ(copy.Child(i)->Child(0)->Parent(), copy.Child(i)->Handle());
    }
    EXPECT_EQ(static_cast<Region*>(copy.Child(0)->Child(0))->Wave(), &wave);
    const SynthModel* copiedModel = static_cast<Region*>(copy.Child(1)->Child(0))->Synth();
    ASSERT_TRUE(copiedModel != nullptr && copiedModel != &model);
    EXPECT_EQ(copiedModel->Block()[3], std::byte{9});
    EXPECT_EQ(items.CountOf(ItemKind::Waveform), 1u);
    EXPECT_EQ(items.CountOf(ItemKind::Region), 4u);
    ExpectConsistent(items);
    items.Destroy(instrument.Handle());
    EXPECT_EQ(items.CountOf(ItemKind::Region), 2u);
    EXPECT_EQ(items.CountOf(ItemKind::SynthModel), 1u);

    Song& song = items.Create<Song>(u"s");
    AddTrack(song, {0, 0x90, 1, 1});
    Song& songCopy = items.Clone(song);
    EXPECT_EQ(static_cast<Track*>(songCopy.Child(0))->EventCount(), 1u);
    items.Destroy(song.Handle());
    EXPECT_EQ(static_cast<Track*>(songCopy.Child(0))->Data().size(), 4u);
    ExpectConsistent(items);
}

TEST(Collection, ClearEmptiesEverything)
{
    Collection items;
    AddInstrument(items, 2, 2, items.Create<Waveform>(u"w"));
    AddTrack(items.Create<Song>(u"s"), {});
    items.Create<Layer>(u"stray");
    items.formatRow = 12;
    items.SetName(u"Bank");
    items.SetText(kTextSourcePath, u"bank.sf2");
    items.SetText(kTextArtist, u"me");
    items.Clear();
    EXPECT_EQ(items.ItemCount(), 1u);
    EXPECT_EQ(items.formatRow, -1);
    EXPECT_EQ(items.GetName(), u"New collection");
    EXPECT_EQ(items.GetSourcePath(), u"");
    EXPECT_FALSE(items.HasText(kTextArtist));
    ExpectConsistent(items);
}

TEST(Collection, LocationsBecomeUnique)
{
    constexpr std::uint32_t kDrum = 1u << 21;
    struct Case {
        std::vector<std::uint32_t> before, after;
    };
    const Case cases[] = {
        {{0, 0, 0}, {0, 1u << 14, 2u << 14}},                                // the major bank is raised first
        {{127u << 14, 127u << 14}, {127u << 14, 1}},                         // and carries into the program
        {{127u << 14 | 127, 127u << 14 | 127}, {127u << 14 | 127, 1u << 7}}, // then into the minor bank
        {{0, kDrum, kDrum}, {0, kDrum, kDrum | 1u << 14}},                   // kits stand apart
        {{1u << 14, 0, 0}, {1u << 14, 0, 2u << 14}},                         // the first comer stays
        {{0x3FFFFF, 0x3FFFFF}, {0x3FFFFF, 0}},
        {{0xFFC00005, 5}, {5, 5 | 1u << 14}}, // bits above the drum flag mean nothing
    };
    for (const Case& c : cases) {
        Collection items;
        for (const std::uint32_t word : c.before)
            items.Create<Instrument>(u"i").location.word = word;
        items.Validate();
        std::vector<std::uint32_t> words;
        for (const Instrument& instrument : items.All<Instrument>())
            words.push_back(instrument.location.word);
        EXPECT_EQ(words, c.after);
    }
}

TEST(Collection, AHundredAndTwentyNineClashesChangeAProgram)
{
    Collection items;
    for (int i = 0; i < 20000; ++i)
        items.Create<Instrument>(u"i");
    items.Validate();
    const std::vector<Instrument*> instruments = items.List<Instrument>();
    EXPECT_EQ(instruments[127]->location.word, 127u << 14);
    EXPECT_EQ(instruments[128]->location.word, 1u);
    EXPECT_EQ(instruments[129]->location.word, 1u | 1u << 14);
    std::set<std::uint32_t> words;
    for (const Instrument* instrument : instruments)
        words.insert(instrument->location.word);
    EXPECT_EQ(words.size(), instruments.size());
}

TEST(FreeNumbers, LongRunsAreQuick)
{
    FreeNumbers numbers(0xFFFFFFFF);
    numbers.Mark(3);
    for (std::uint32_t i = 0; i < 300000; ++i)
        ASSERT_EQ(numbers.Take(0), i < 3 ? i : i + 1);
    for (std::uint32_t i = 0; i < 300000; ++i) // from every place in the run
        ASSERT_EQ(numbers.Take(i), 300001 + i);
    FreeNumbers ring(3);
    EXPECT_EQ(ring.Take(2), 2u);
    EXPECT_EQ(ring.Take(2), 3u);
    EXPECT_EQ(ring.Take(6), 0u);
    EXPECT_EQ(ring.Take(2), 1u);
    EXPECT_EQ(ring.Take(2), 2u); // all are taken
}

TEST(Collection, SortsInstrumentsByModeAndTheRestByName)
{
    RecordingHost host;
    Collection items;
    items.SetHost(host);
    const auto add = [&](std::u16string_view name, unsigned program, unsigned lsb, unsigned msb, bool drum) {
        Instrument& instrument = items.Create<Instrument>(name);
        instrument.location.SetProgram(program);
        instrument.location.SetBankLsb(lsb);
        instrument.location.SetBankMsb(msb);
        instrument.location.SetDrum(drum);
    };
    items.Create<Waveform>(u"beta");
    items.Create<Song>(u"Alpha");
    add(u"delta", 5, 0, 1, false);
    add(u"Charlie", 9, 0, 0, false);
    add(u"charlie", 5, 1, 0, false);
    add(u"Bravo", 0, 0, 0, true);
    add(u"alfa", 5, 0, 0, false);
    const std::pair<SortMode, std::vector<std::u16string>> cases[] = {
        {SortMode::ByName, {u"alfa", u"Bravo", u"Charlie", u"charlie", u"delta", u"Alpha", u"beta"}},
        {SortMode::ByLocation, {u"alfa", u"Charlie", u"charlie", u"delta", u"Bravo", u"Alpha", u"beta"}},
        {SortMode::ByProgram, {u"Bravo", u"alfa", u"charlie", u"delta", u"Charlie", u"Alpha", u"beta"}},
    };
    for (const auto& [mode, expected] : cases) {
        std::vector<Item*> list;
        for (Waveform& item : items.All<Waveform>())
            list.push_back(&item);
        for (Instrument& item : items.All<Instrument>())
            list.push_back(&item);
        for (Song& item : items.All<Song>())
            list.push_back(&item);
        items.Sort(list, mode);
        std::vector<std::u16string> names;
        for (const Item* item : list)
            names.emplace_back(item->GetName());
        EXPECT_EQ(names, expected) << static_cast<int>(mode);
    }
    EXPECT_EQ(host.statuses.front(), u"Sorting instruments...");
    EXPECT_EQ(host.statuses.back(), u"Done: Sorted items!");
}

TEST(Collection, SortKeepsTheOrderOfEquals)
{
    Collection items;
    std::vector<Item*> list;
    for (int i = 0; i < 200; ++i)
        list.push_back(&items.Create<Waveform>(i % 2 == 0 ? u"a" : u"A"));
    const std::vector<Item*> before = list;
    items.Sort(list, SortMode::ByName);
    EXPECT_EQ(list, before);
}

TEST(Collection, ShowsNewInstrumentsWhileLoading)
{
    RecordingHost host;
    Collection items;
    items.SetHost(host);
    items.Create<Instrument>(u"quiet");
    items.loading = true;
    items.Create<Instrument>(u" Strings ");
    items.Create<Waveform>(u"wave");
    EXPECT_EQ(host.progress, std::vector<std::u16string>{u"Strings"});
}

TEST(Collection, CollectionsOnTwoThreadsDoNotMeet)
{
    // Also run under a thread sanitizer.
    const auto work = [](std::set<std::uint32_t>& handles, std::u16string& lastName) {
        Collection items;
        items.SetName(u"t");
        for (int i = 0; i < 2000; ++i) {
            Waveform& wave = items.Create<Waveform>(u"");
            handles.insert(wave.Handle().value);
            if (i % 100 == 0)
                AddInstrument(items, 2, 2, wave);
            lastName = wave.GetName();
        }
        Collection target;
        target.Merge(items);
        EXPECT_TRUE(IsConsistent(target));
    };
    std::set<std::uint32_t> left, right;
    std::u16string leftName, rightName;
    std::thread thread([&] { work(left, leftName); });
    work(right, rightName);
    thread.join();
    std::vector<std::uint32_t> common;
    std::set_intersection(left.begin(), left.end(), right.begin(), right.end(), std::back_inserter(common));
    EXPECT_TRUE(common.empty());
    EXPECT_EQ(leftName, u"t 1998");
    EXPECT_EQ(rightName, u"t 1998");
}

} // namespace
} // namespace vimbo
