#include "model_builders.h"

#include <gtest/gtest.h>

namespace vimbo {
namespace {

std::vector<std::uint32_t> Serials(const Item& item)
{
    std::vector<std::uint32_t> serials;
    for (const ItemHandle child : item.Children())
        serials.push_back(child.Serial());
    return serials;
}

/// An instrument with one layer, one region and one waveform.
struct PlainInstrument {
    explicit PlainInstrument(Collection& items)
        : instrument(items.Create<Instrument>(u"Piano")), layer(items.Create<Layer>(u"")),
          region(items.Create<Region>(u"")), wave(items.Create<Waveform>(u"Piano C4"))
    {
        Nest(instrument, layer);
        Nest(layer, region).SetSound(wave.Handle());
    }
    Instrument& instrument;
    Layer& layer;
    Region& region;
    Waveform& wave;
};

TEST(ItemHandle, HoldsKindAndSerial)
{
    const ItemHandle handle(ItemKind::Layer, 0x2ABCDEF0);
    EXPECT_EQ(handle.value, 0x3ABCDEF0u);
    EXPECT_EQ(handle.Kind(), ItemKind::Layer);
    EXPECT_EQ(handle.Serial(), 0x0ABCDEF0u);
    EXPECT_EQ(NO_ITEM.value, 0xFFFFFFFFu);
    // FNV-1a of "foob", from the authors' list of test vectors.
    EXPECT_EQ(ItemHandleHash{}(ItemHandle(0x626F6F66)), 0xDD120E790C2512AFu);
}

TEST(ItemHandle, ChildSlotsTakeTheKindOfTheirPlace)
{
    const ItemHandle onlySerial(5);
    EXPECT_EQ(ChildHandle(ItemKind::Instrument, onlySerial), ItemHandle(ItemKind::Layer, 5));
    EXPECT_EQ(ChildHandle(ItemKind::Layer, onlySerial), ItemHandle(ItemKind::Region, 5));
    EXPECT_EQ(ChildHandle(ItemKind::Song, onlySerial), ItemHandle(ItemKind::Track, 5));
    EXPECT_EQ(ChildHandle(ItemKind::Region, onlySerial), ItemHandle(ItemKind::Waveform, 5));
    EXPECT_EQ(ChildHandle(ItemKind::Region, ItemHandle(ItemKind::SynthModel, 5)),
              ItemHandle(ItemKind::SynthModel, 5));
    EXPECT_EQ(ChildHandle(ItemKind::Region, ItemHandle(ItemKind::Region, 5)), NO_ITEM);
    EXPECT_EQ(ChildHandle(ItemKind::Waveform, onlySerial), NO_ITEM);
    EXPECT_EQ(ChildHandle(ItemKind::Track, onlySerial), NO_ITEM);
    for (const ItemKind kind : {ItemKind::Instrument, ItemKind::Region, ItemKind::SynthModel})
        EXPECT_EQ(ChildHandle(kind, NO_ITEM), NO_ITEM);
}

TEST(Item, MovesChildren)
{
    struct Case {
        std::size_t from, to;
        std::vector<std::uint32_t> expected;
    };
    const Case cases[] = {
        {0, 2, {2, 3, 1, 4}}, {3, 0, {4, 1, 2, 3}}, {1, 99, {1, 3, 4, 2}},
        {2, 2, {1, 2, 3, 4}}, {4, 0, {1, 2, 3, 4}}, {3, 99, {1, 2, 3, 4}},
    };
    for (const Case& c : cases) {
        Collection items;
        Song& song = items.Create<Song>(u"s");
        for (std::uint32_t serial = 1; serial <= 4; ++serial)
            ASSERT_TRUE(song.AddChild(ItemHandle(ItemKind::Track, serial)));
        song.MoveChild(c.from, c.to);
        EXPECT_EQ(Serials(song), c.expected) << c.from << " to " << c.to;
    }
}

TEST(Item, RemovesEverySlotOfAChild)
{
    Collection items;
    Song& song = items.Create<Song>(u"s");
    for (const std::uint32_t raw : {0x50000001u, 0x50000002u, 1u, 0xFFFFFFFFu, 0x50000003u})
        song.AddChild(ItemHandle(raw));
    song.RemoveChild(ItemHandle(ItemKind::Track, 1));
    EXPECT_EQ(Serials(song), (std::vector<std::uint32_t>{2, 0x0FFFFFFF, 3}));
    song.SetChild(0, ItemHandle(ItemKind::Track, 7));
    song.SetChild(3, ItemHandle(ItemKind::Track, 8));
    song.MoveChild(0, 1);
    EXPECT_EQ(Serials(song), (std::vector<std::uint32_t>{0x0FFFFFFF, 7, 3}));
}

TEST(Item, ValidateKeepsOnlyLiveChildrenInOrder)
{
    Collection items;
    Song& song = items.Create<Song>(u"s");
    const ItemHandle first = items.Create<Track>(u"a").Handle();
    const ItemHandle second = items.Create<Track>(u"b").Handle();
    const ItemHandle gone(ItemKind::Track, second.Serial() + 100);
    for (const ItemHandle slot : {NO_ITEM, second, gone, ItemHandle(first.Serial()), NO_ITEM})
        song.AddChild(slot);
    song.SetParent(ItemHandle(ItemKind::Layer, 12345));
    song.Validate();
    ASSERT_EQ(song.Children().size(), 2u);
    EXPECT_EQ(song.Children()[0], second);
    EXPECT_EQ(song.Children()[1], first); // the slot held the serial only
    EXPECT_EQ(song.Parent(), NO_ITEM);
}

TEST(Item, SourcePathComesFromTheNearestAncestorThatHasOne)
{
    Collection items;
    PlainInstrument piano(items);
    SynthModel& model = items.Create<SynthModel>(u"m");
    piano.region.SetSound(model.Handle());
    EXPECT_EQ(model.GetSourcePath(), u"");
    piano.instrument.SetText(kTextSourcePath, u"/banks/piano.sf2");
    EXPECT_EQ(model.GetSourcePath(), u"/banks/piano.sf2");
    // Damaged files name any parent: no walk upwards may go round in circles.
    piano.instrument.SetText(kTextSourcePath, u"");
    piano.instrument.SetParent(piano.region.Handle());
    piano.layer.SetParent(piano.layer.Handle());
    EXPECT_EQ(model.GetSourcePath(), u"");
}

TEST(Item, SlotsDoNotReachItemsOfOtherKinds)
{
    Collection items;
    Waveform& wave = items.Create<Waveform>(u"w");
    Track& track = items.Create<Track>(u"t");
    track.AddChild(track.Handle());
    items.AddChild(items.Handle());
    EXPECT_EQ(track.Child(0), nullptr);
    EXPECT_EQ(items.Child(0), nullptr);
    EXPECT_EQ(track.Child(1), nullptr);
    EXPECT_TRUE(track.EnsureData());
    Region& region = items.Create<Region>(u"");
    region.AddChild(ItemHandle(wave.Handle().Serial()));
    EXPECT_EQ(region.Child(0), &wave);
    EXPECT_EQ(region.Wave(), &wave);
    EXPECT_EQ(region.Synth(), nullptr);
}

TEST(Region, SetSoundReplacesTheOneChild)
{
    Collection items;
    PlainInstrument piano(items);
    SynthModel& model = items.Create<SynthModel>(u"m");
    piano.region.SetSound(model.Handle());
    EXPECT_EQ(model.Parent(), piano.region.Handle());
    piano.region.SetSound(model.Handle());
    EXPECT_EQ(items.CountOf(ItemKind::SynthModel), 1u);
    piano.region.SetSound(piano.wave.Handle());
    EXPECT_EQ(items.CountOf(ItemKind::SynthModel), 0u);
    EXPECT_EQ(piano.region.Wave(), &piano.wave);
    piano.region.SetSound(NO_ITEM);
    EXPECT_TRUE(piano.region.Children().empty());
    EXPECT_EQ(items.CountOf(ItemKind::Waveform), 1u);
}

TEST(Region, NameSurvivesItsWaveform)
{
    Collection items;
    PlainInstrument piano(items);
    items.Destroy(piano.wave.Handle());
    EXPECT_EQ(piano.region.GetName(), u"unnamed");
    EXPECT_EQ(piano.region.Children().size(), 1u); // stale until Validate
    EXPECT_EQ(piano.region.Wave(), nullptr);
    EXPECT_TRUE(IsConsistent(items));
    piano.region.Validate();
    EXPECT_TRUE(piano.region.Children().empty());
}

TEST(MidiLocation, NamesItsBits)
{
    MidiLocation location;
    location.SetProgram(0x55);
    location.SetBankLsb(0x2A);
    location.SetBankMsb(0x81); // the eighth bit is cut off
    location.SetDrum(true);
    EXPECT_EQ(location.word, 0x55u | 0x2Au << 7 | 1u << 14 | 1u << 21);
    location.SetBankLsb(3);
    location.SetDrum(false);
    EXPECT_EQ(location.Program(), 0x55u);
    EXPECT_EQ(location.BankLsb(), 3u);
    EXPECT_EQ(location.BankMsb(), 1u);
    EXPECT_FALSE(location.IsDrum());
}

TEST(Track, CountsItsEvents)
{
    struct Case {
        std::vector<unsigned char> block;
        std::uint32_t events;
    };
    const Case cases[] = {
        {{}, 0},
        {{0x00, 0xFF, 0x2F, 0x00}, 1},
        // note on, the same by running status, program change, end
        {{0x00, 0x90, 60, 64, 0x81, 0x00, 60, 0, 0x10, 0xC0, 5, 0x00, 0xFF, 0x2F, 0x00}, 4},
        // tempo, system exclusive, song position, song select, tune request, note on
        {{0,    0xFF, 0x51, 3, 7,    0xA1, 0x20, 0,    0xF0, 2,    1, 0xF7, 0,
          0xF2, 1,    2,    0, 0xF3, 1,    0,    0xF6, 0,    0x91, 1, 1},
         6},
        // running status goes on with the meta status: a text of two bytes
        {{0, 0x90, 60, 64, 0, 0xFF, 0x01, 1, 'a', 0, 0x01, 2, 'b', 'c', 0, 0xFF, 0x2F, 0}, 4},
        {{0x00, 0xFF, 0x01, 0x8F, 0xFF, 0xFF, 0x7F, 'x'}, 1}, // claims more than there is
        {{0, 0xD0, 5, 0, 6, 0, 7, 0, 8}, 4},                  // channel pressure has one byte
        {{0x81, 0x82, 0x83, 0x84, 0xC0, 5, 0, 6}, 2},         // a delta time ends after four bytes
        {{0x00, 0x90}, 1},
        {{0x81, 0x82, 0x83}, 0},
    };
    Collection items;
    Track& track = items.Create<Track>(u"t");
    for (const Case& c : cases) {
        track.SetData(std::as_bytes(std::span(c.block)));
        EXPECT_EQ(track.EventCount(), c.events);
        EXPECT_EQ(track.Data().size(), c.block.size());
    }
    track.SetData(track.Data().first(2)); // a part of its own block
    EXPECT_EQ(track.Data()[0], std::byte{0x81});
    track.SetData({});
    EXPECT_EQ(track.EventCount(), 0u);
}

TEST(Song, ValidateRepairsDivisionAndName)
{
    Collection items;
    items.SetName(u"Tunes");
    auto* song = static_cast<Song*>(items.CreateItem(ItemHandle(ItemKind::Song, 4711)));
    ASSERT_NE(song, nullptr);
    EXPECT_EQ(song->format, 1);
    EXPECT_EQ(song->division, 24);
    song->division = 0;
    song->Validate();
    EXPECT_EQ(song->division, 24);
    EXPECT_EQ(song->GetName(), u"Tunes");
    song->division = 0xE728; // 25 frames of 40 ticks
    song->Validate();
    EXPECT_EQ(song->division, 0xE728);
}

TEST(SynthModel, KeepsBlockAndWaveReferences)
{
    Collection items;
    SynthModel& model = items.Create<SynthModel>(u"la");
    EXPECT_TRUE(model.Block().empty());
    EXPECT_FALSE(model.SetModel(3));
    EXPECT_TRUE(model.SetModel(0));
    EXPECT_EQ(model.Block().size(), 824u);
    model.SetWaveReference(0, ItemHandle(7));
    EXPECT_EQ(model.WaveReference(0), NO_ITEM);
    EXPECT_TRUE(model.SetModel(1));
    ASSERT_EQ(model.Block().size(), 760u);
    model.SetWaveReference(7, ItemHandle(ItemKind::Waveform, 0x1020304));
    model.SetWaveReference(8, ItemHandle(1));
    EXPECT_EQ(model.Block()[752], std::byte{1});
    EXPECT_EQ(model.Block()[756], std::byte{4});
    EXPECT_EQ(model.Block()[759], std::byte{1});
    EXPECT_EQ(model.WaveReference(7), ItemHandle(ItemKind::Waveform, 0x1020304));
    EXPECT_EQ(model.WaveReference(6), NO_ITEM);
    model.SetWaveReference(7, NO_ITEM);
    EXPECT_EQ(model.WaveReference(7), NO_ITEM);
}

} // namespace
} // namespace vimbo
