#include "base/last_error.h"
#include "model_builders.h"

#include <gtest/gtest.h>

#include <functional>

namespace vimbo {
namespace {

using Bytes = std::vector<std::byte>;

Bytes MakeBytes(std::initializer_list<unsigned> values)
{
    Bytes bytes;
    for (const unsigned value : values)
        bytes.push_back(static_cast<std::byte>(value));
    return bytes;
}

Bytes Record(const Item& item)
{
    ByteWriter out;
    item.Serialize(out);
    EXPECT_EQ(item.SerializedSize(), out.Size());
    return out.Release();
}

bool Restore(Item& item, std::span<const std::byte> record)
{
    ByteReader reader(record);
    return item.Deserialize(reader);
}

/// All items in the order of state files, the collection last.
std::vector<const Item*> InStateOrder(const Collection& items)
{
    std::vector<const Item*> all;
    const auto add = [&](auto list) { all.insert(all.end(), list.begin(), list.end()); };
    add(items.List<Waveform>());
    add(items.List<SynthModel>());
    add(items.List<Region>());
    add(items.List<Layer>());
    add(items.List<Instrument>());
    add(items.List<Track>());
    add(items.List<Song>());
    all.push_back(&items);
    return all;
}

/// One item of each kind at least, every field off its default.
void FillAllKinds(Collection& items)
{
    items.SetName(u"B\u00E4nk \U0001F3B5");
    items.SetText(kTextSourcePath, u"/b\u00E4nks/a.sf2");
    items.formatRow = 123456;
    Waveform& wave = items.Create<Waveform>(u"Wave");
    wave.SetSourceFormat(DataFormat::Pcm24, kSourceBigEndian);
    wave.frames = 1000;
    wave.rateHz = 48000;
    wave.channels = 2;
    wave.rootKey = 64;
    wave.fineTune = -7;
    wave.volume = -3.5F;
    wave.loop = {LoopType::Alternating, true, true, 10.5, 999.25, 0.5F};
    wave.sourceOffset = 0x123456789A;
    wave.secondOffset = 0x987654321B;
    wave.formatOffset = 0x1122334455;
    wave.sourceBytes = 0x6677889900;
    wave.sourceTag = 3;
    wave.markers.push_back({true, 5, 50, u"intro"});
    wave.SetText(kTextComments, u"line\nline");
    Waveform& stored = items.Create<Waveform>(u"Samples");
    stored.frames = 3;
    stored.LockSamplesForWrite()[1] = 0.25F;

    Instrument& instrument = AddInstrument(items, 2, 2, wave);
    instrument.location.word = 0x2ABCDE;
    instrument.SetText(kTextArtist, u"Somebody");
    instrument.SetImage(MakeBytes({0xFF, 0xD8, 0, 0xFF, 0xFF}));
    instrument.articulation.Set(kArtCutoff, 1234);
    instrument.channelFx[3] = {ChannelFxType::Phaser, {1, 2, 3}, {1.5F, -2, 3, 4, 5}};
    Layer& layer = *items.List<Layer>()[0];
    layer.SetName(u"Soft \u03A9");
    layer.drum = true;
    layer.trigger.Set(kParamHighKey, 100);
    layer.articulation.Set(kArtVolume, -6);
    Region& region = *items.List<Region>()[0];
    region.trigger.Set(kParamDelay, 0.25F);
    region.phaseGroup = 0x1234;
    region.phaseMaster = 1;
    region.overrideFlags = Region::kLoopEnd | Region::kRootKey;
    region.rootKey = 61;
    region.loop = {LoopType::Reverse, true, true, 16777217, 4294967295.0, -1.5F};
    region.startOffset = 7;
    region.endOffset = -100000;
    region.articulation.Set(kArtPan, -0.25F);
    SynthModel& model = items.Create<SynthModel>(u"LA");
    EXPECT_TRUE(model.SetModel(1));
    model.SetWaveReference(5, wave.Handle());
    model.AddChild(wave.Handle());
    items.List<Region>()[3]->SetSound(model.Handle());
    items.Create<SynthModel>(u"none");

    Song& song = items.Create<Song>(u"Song");
    song.format = 2;
    song.division = 0xE728;
    Track& track = AddTrack(song, {0, 0x90, 60, 64, 0, 0xFF, 0x2F, 0});
    track.SetName(u"Lead");
    track.port = 2;
    track.channel = 9;
    track.sequence = 0x1234;
    AddTrack(song, {});
}

TEST(Serialize, TrackIsLaidOutAsDocumented)
{
    Collection items;
    auto* track = static_cast<Track*>(items.CreateItem(ItemHandle(ItemKind::Track, 0x012345)));
    track->SetName(u"A\u03A9");
    track->SetParent(ItemHandle(ItemKind::Song, 0x0ABCDE));
    track->sourceWord = 0x11223344;
    track->secondOffset = 0x0102030405060708;
    track->port = 1;
    track->channel = 9;
    track->sequence = 0x0203;
    const Bytes block = MakeBytes({0, 0xFF, 0x2F, 0});
    track->SetData(block);
    const Bytes expected = MakeBytes({
        0x45, 0x23, 0x01, 0x50,             // handle
        0xDE, 0xBC, 0x0A, 0x60,             // parent
        0x44, 0x33, 0x22, 0x11,             // source word
        0x08, 0x07, 0x06, 0x05,             // second offset
        0x04, 0x03, 0x02, 0x01,             // its upper half
        0,    0,    0,    0,                // children
        'A',  0,    0xA9, 0x03, 0, 0,       // name
        1,    9,    0x03, 0x02, 4, 0, 0, 0, // port, channel, sequence, bytes
        1,    0,    0,    0,                // events
        0,    0xFF, 0x2F, 0,
    });
    EXPECT_EQ(Record(*track), expected);
}

TEST(Serialize, TextItemsAreLaidOutAsDocumented)
{
    Collection items;
    auto* instrument = static_cast<Instrument*>(items.CreateItem(ItemHandle(ItemKind::Instrument, 1)));
    instrument->SetName(u"Ab");
    instrument->SetText(kTextProduct, u"P");
    instrument->SetImage(MakeBytes({1, 2, 3}));
    instrument->AddChild(ItemHandle(ItemKind::Layer, 0x77));
    instrument->location.word = 0x00112233;
    const Bytes expected = MakeBytes({
        1,    0,    0,    0x40, 0xFF, 0xFF, 0xFF, 0xFF, 0,   0, 0, 0,
        0,    0,    0,    0,    0,    0,    0,    0,    1,   0, 0, 0, // head
        0x77, 0,    0,    0x30,                                       // child
        209,  0,    4,    0,    0,    0,    'A',  0,    'b', 0,       // name
        214,  0,    2,    0,    0,    0,    'P',  0,                  // product
        216,  0,    3,    0,    0,    0,    1,    2,    3,            // image
        0xFF, 0xFF,                                                   // end of texts
        0x33, 0x22, 0x11, 0,                                          // location
    });
    const Bytes record = Record(*instrument);
    ASSERT_EQ(record.size(), expected.size() + 780 + 96); // articulation, four effects
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), record.begin()));
}

TEST(Serialize, RegionsAndEffectsAreLaidOutAsDocumented)
{
    Collection items;
    auto* region = static_cast<Region*>(items.CreateItem(ItemHandle(ItemKind::Region, 1)));
    region->trigger.Set(kParamHighKey, 9);
    region->phaseGroup = 0x1234;
    region->phaseMaster = 5;
    region->overrideFlags = 0x21;
    region->rootKey = 61;
    region->startOffset = 0x010203;
    region->endOffset = -2;
    region->articulation.Set(kArtKeyToPitch, 0.5F);
    const Bytes record = Record(*region);
    const std::size_t trigger = 24 + 2; // head, empty name
    ASSERT_EQ(record.size(), trigger + 28 + 5 + 15 + 8 + 780);
    EXPECT_EQ(record[trigger + 1], std::byte{9});
    EXPECT_EQ(record[trigger + 20], std::byte{2}); // the mark
    const auto at = [&](std::size_t offset, std::size_t count) {
        const auto begin = record.begin() + static_cast<std::ptrdiff_t>(offset);
        return Bytes(begin, begin + static_cast<std::ptrdiff_t>(count));
    };
    EXPECT_EQ(at(trigger + 28, 5), MakeBytes({0x34, 0x12, 5, 0x21, 61}));
    EXPECT_EQ(at(trigger + 48, 8), MakeBytes({3, 2, 1, 0, 0xFE, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(at(trigger + 60, 4), MakeBytes({0, 0, 0, 0x3F}));
    EXPECT_EQ(at(trigger + 56 + 756, 8), MakeBytes({2, 0, 0, 0, 0, 0, 0, 0}));

    auto* instrument = static_cast<Instrument*>(items.CreateItem(ItemHandle(ItemKind::Instrument, 1)));
    instrument->channelFx[3] = {ChannelFxType::Phaser, {1, 2, 3}, {0.5F, 0, 0, 0, 1}};
    const Bytes effects = Record(*instrument);
    EXPECT_EQ(Bytes(effects.end() - 24, effects.end()),
              MakeBytes({7, 1, 2, 3, 0, 0, 0, 0x3F, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x80, 0x3F}));
}

TEST(Serialize, AWholeCollectionComesBack)
{
    Collection items;
    FillAllKinds(items);
    Collection restored;
    restored.loading = true;
    for (const Item* item : InStateOrder(items)) {
        Item* made = item->Kind() == ItemKind::Collection ? &restored : restored.CreateItem(item->Handle());
        ASSERT_NE(made, nullptr);
        ASSERT_TRUE(Restore(*made, Record(*item))) << WideToUtf8(LastError());
    }
    ASSERT_EQ(restored.ItemCount(), items.ItemCount());
    for (const Item* item : InStateOrder(items)) {
        if (item->Kind() == ItemKind::Collection)
            continue;
        const Item* twin = restored.FindItem(item->Handle());
        ASSERT_NE(twin, nullptr);
        EXPECT_EQ(Record(*twin), Record(*item));
        EXPECT_EQ(twin->GetName(), item->GetName());
    }
    std::u16string why;
    EXPECT_TRUE(IsConsistent(restored, &why)) << WideToUtf8(why);
    EXPECT_EQ(restored.GetName(), u"B\u00E4nk \U0001F3B5");
    EXPECT_EQ(restored.GetSourcePath(), u"/b\u00E4nks/a.sf2");
    EXPECT_EQ(restored.formatRow, 123456);

    // Field by field, so that a field that neither side stores is noticed.
    const Waveform& wave = *restored.List<Waveform>()[0];
    EXPECT_EQ(wave.frames, 1000u);
    EXPECT_EQ(wave.rateHz, 48000u);
    EXPECT_EQ(wave.bits, 24);
    EXPECT_EQ(wave.channels, 2);
    EXPECT_EQ(wave.rootKey, 64);
    EXPECT_EQ(wave.fineTune, -7);
    EXPECT_EQ(wave.volume, -3.5F);
    EXPECT_EQ(wave.loop, (LoopInfo{LoopType::Alternating, true, true, 10.5, 999.25, 0.5F}));
    EXPECT_EQ(wave.saveFormat, SaveFormat::Pcm24);
    EXPECT_EQ(wave.sourceWord, FormatBit(DataFormat::Pcm24) | kSourceBigEndian);
    EXPECT_EQ(wave.sourceOffset, 0x123456789Au);
    EXPECT_EQ(wave.secondOffset, 0x987654321Bu);
    EXPECT_EQ(wave.formatOffset, 0x1122334455u);
    EXPECT_EQ(wave.sourceBytes, 0x6677889900u);
    EXPECT_EQ(wave.sourceTag, 3);
    EXPECT_TRUE(wave.HasGenericImport());
    ASSERT_EQ(wave.markers.size(), 1u);
    EXPECT_TRUE(wave.markers[0].SameAs(items.List<Waveform>()[0]->markers[0]));
    EXPECT_EQ(wave.markers[0].id, items.List<Waveform>()[0]->markers[0].id);
    EXPECT_EQ(wave.GetText(kTextComments), u"line\nline");
    EXPECT_FALSE(wave.HasBlock());
    Waveform& stored = *restored.List<Waveform>()[1];
    ASSERT_TRUE(stored.HasBlock());
    EXPECT_EQ(stored.LockSamples()[1], 0.25F);

    const Instrument& instrument = *restored.List<Instrument>()[0];
    EXPECT_EQ(instrument.location.word, 0x2ABCDEu);
    EXPECT_EQ(instrument.GetText(kTextArtist), u"Somebody");
    EXPECT_EQ(instrument.GetImage().size(), 5u);
    EXPECT_EQ(instrument.articulation[kArtCutoff], 1234);
    EXPECT_EQ(instrument.channelFx[3], items.List<Instrument>()[0]->channelFx[3]);
    const Layer& layer = *restored.List<Layer>()[0];
    EXPECT_TRUE(layer.drum);
    EXPECT_EQ(layer.trigger, items.List<Layer>()[0]->trigger);
    EXPECT_EQ(layer.articulation[kArtVolume], -6);
    const Region& region = *restored.List<Region>()[0];
    EXPECT_EQ(region.trigger.delaySeconds, 0.25F);
    EXPECT_EQ(region.phaseGroup, 0x1234);
    EXPECT_EQ(region.phaseMaster, 1);
    EXPECT_EQ(region.overrideFlags, 17);
    EXPECT_EQ(region.rootKey, 61);
    EXPECT_EQ(region.loop, (LoopInfo{LoopType::Reverse, true, true, 16777217, 4294967295.0, -1.5F}));
    EXPECT_EQ(region.startOffset, 7);
    EXPECT_EQ(region.endOffset, -100000);
    EXPECT_TRUE(region.articulation.IsSet(kArtPan));
    EXPECT_EQ(restored.List<Region>()[3]->Synth()->WaveReference(5), wave.Handle());
    const Song& song = *restored.List<Song>()[0];
    EXPECT_EQ(song.format, 2);
    EXPECT_EQ(song.division, 0xE728);
    const Track& track = *restored.List<Track>()[0];
    EXPECT_EQ(track.port, 2);
    EXPECT_EQ(track.channel, 9);
    EXPECT_EQ(track.sequence, 0x1234);
    EXPECT_EQ(track.EventCount(), 2u);
    EXPECT_EQ(track.ParentItem(), &song);
}

TEST(Serialize, RecordsEndWhereTheySay)
{
    Collection items;
    FillAllKinds(items);
    for (const Item* item : InStateOrder(items)) {
        Bytes record = Record(*item);
        record.insert(record.end(), 5, std::byte{0xEE});
        Collection other;
        Item* made = item->Kind() == ItemKind::Collection ? &other : other.CreateItem(item->Handle());
        ByteReader reader(record);
        EXPECT_TRUE(made->Deserialize(reader));
        EXPECT_EQ(reader.Left(), 5u);
    }
}

TEST(Serialize, ReplacesWhatWasThereAndKeepsTheHandle)
{
    Collection items;
    Instrument& source = items.Create<Instrument>(u"source");
    Instrument& target = items.Create<Instrument>(u"target");
    target.SetText(kTextArtist, u"gone");
    target.SetImage(MakeBytes({1}));
    target.AddChild(NO_ITEM);
    target.scratchByte = 9;
    const ItemHandle handle = target.Handle();
    ASSERT_TRUE(Restore(target, Record(source)));
    EXPECT_EQ(target.Handle(), handle);
    EXPECT_EQ(target.GetName(), u"source");
    EXPECT_FALSE(target.HasText(kTextArtist) || target.HasText(kTextImage));
    EXPECT_TRUE(target.Children().empty());
    EXPECT_EQ(target.scratchByte, 0);
}

/// Whatever a record held, the item must be storable and its collection in order.
void ExpectSound(Collection& items, Item& item)
{
    const Bytes record = Record(item);
    EXPECT_TRUE(Restore(item, record)) << WideToUtf8(LastError());
    EXPECT_EQ(Record(item), record);
    item.Validate();
    std::u16string why;
    EXPECT_TRUE(IsConsistent(items, &why)) << WideToUtf8(why);
}

/// Restores a damaged record into a fresh item. @return whether it was taken.
bool TryDamaged(const Item& original, const Bytes& record)
{
    Collection items;
    Item& item = original.Kind() == ItemKind::Collection ? items : *items.CreateItem(original.Handle());
    ClearLastError();
    const bool taken = Restore(item, record);
    EXPECT_EQ(taken, LastError().empty());
    ExpectSound(items, item);
    return taken;
}

TEST(Serialize, TruncatedRecordsFail)
{
    Collection items;
    FillAllKinds(items);
    for (const Item* item : InStateOrder(items)) {
        const Bytes record = Record(*item);
        for (std::size_t size = 0; size < record.size(); ++size)
            ASSERT_FALSE(
                TryDamaged(*item, Bytes(record.begin(), record.begin() + static_cast<std::ptrdiff_t>(size))))
                << "kind " << item->Handle().KindIndex() << ", " << size << " of " << record.size();
    }
}

TEST(Serialize, DamagedFieldsAreRefusedOrMadeHarmless)
{
    Collection items;
    FillAllKinds(items);
    for (const Item* item : InStateOrder(items)) {
        const Bytes record = Record(*item);
        for (std::size_t at = 0; at < record.size(); ++at)
            for (const unsigned width : {1u, 4u})
                for (const unsigned fill : {0u, 1u, 0x7Fu, 0x80u, 0xFFu}) {
                    Bytes damaged = record;
                    for (std::size_t i = at; i < std::min<std::size_t>(at + width, damaged.size()); ++i)
                        damaged[i] = static_cast<std::byte>(fill);
                    TryDamaged(*item, damaged);
                    ASSERT_FALSE(HasFailure()) << "kind " << item->Handle().KindIndex() << ", offset " << at;
                }
    }
}

TEST(Serialize, RefusesWhatNoItemWrites)
{
    struct Case {
        ItemKind kind;
        std::size_t offset;
        unsigned value;
    };
    Collection items;
    items.CreateItem(ItemHandle(ItemKind::Song, 1))->SetName(u"Ab");
    items.CreateItem(ItemHandle(ItemKind::SynthModel, 1))->SetName(u"m");
    items.CreateItem(ItemHandle(ItemKind::Region, 1))->AddChild(ItemHandle(1));
    items.CreateItem(ItemHandle(ItemKind::Track, 1));
    const Case cases[] = {
        {ItemKind::Song, 3, 0x50},     // a track's handle
        {ItemKind::Song, 23, 0x40},    // 2^30 children
        {ItemKind::Song, 24, 217},     // unknown text
        {ItemKind::Song, 26, 3},       // half a unit
        {ItemKind::Song, 29, 0x80},    // 2 GB of text
        {ItemKind::SynthModel, 28, 3}, // unknown model
        {ItemKind::SynthModel, 28, 1}, // size of another model
        {ItemKind::SynthModel, 32, 1}, // wrong size
        {ItemKind::Track, 33, 1},      // more data than there is
    };
    for (const Case& c : cases) {
        const Item& item = *items.FindItem(ItemHandle(c.kind, 1));
        Bytes record = Record(item);
        ASSERT_LT(c.offset, record.size());
        record[c.offset] = static_cast<std::byte>(c.value);
        EXPECT_FALSE(TryDamaged(item, record)) << "offset " << c.offset;
        EXPECT_EQ(LastError(), u"Damaged state record");
    }
    const Item& song = *items.FindItem(ItemHandle(ItemKind::Song, 1));
    Bytes oddText = Record(song);
    oddText[26] = std::byte{5};
    oddText.insert(oddText.begin() + 34, std::byte{'c'});
    EXPECT_FALSE(TryDamaged(song, oddText));
    Item& region = *items.FindItem(ItemHandle(ItemKind::Region, 1));
    region.AddChild(NO_ITEM);
    const Bytes record = Record(region);
    EXPECT_FALSE(TryDamaged(region, record));
    EXPECT_FALSE(TryDamaged(region, Bytes(record.begin(), record.end() - 1)));
}

} // namespace
} // namespace vimbo
