#include "formats/save.h"

#include "bank_builder.h"
#include "base/last_error.h"
#include "formats/export_set.h"
#include "formats/open.h"
#include "model/song.h"
#include "model/synth_model.h"
#include "model/track_builder.h"
#include "test_files.h"
#include "test_host.h"

#include <gtest/gtest.h>

#include <csignal>
#include <sys/resource.h>

namespace vimbo {
namespace {

using testing::Bank;
using testing::Bytes;
using testing::MakeBytes;
using testing::MakeWav;
using testing::ScratchFolder;

constexpr int kWavRow = 480;

std::vector<std::string> Names(const ScratchFolder& folder)
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder.Path()))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

/// What the writer below was given.
struct Seen {
    int calls = 0;
    ItemKind kind = ItemKind::Collection;
    std::u16string name;
    std::string zones;
    std::vector<unsigned> channels;
    std::vector<float> pans;
    std::size_t instruments = 0, tracks = 0, synths = 0;
    std::uint32_t variant = 0;
    bool saving = false;
};
Seen seen;
bool writerFails = false;

bool WriteSeen(Item& root, FileObject& file, FormatChoice& choice)
{
    const int calls = seen.calls + 1;
    seen = {};
    seen.calls = calls;
    seen.kind = root.Kind();
    seen.name = root.GetName();
    seen.saving = root.Owner().saving;
    seen.variant = choice.variant;
    seen.synths = root.Owner().CountOf(ItemKind::SynthModel);
    seen.tracks = root.Kind() == ItemKind::Song ? root.Children().size() : 0;
    ExportSet set;
    set.Fill(root, IncludeWaves::Yes);
    seen.instruments = set.Instruments().size();
    for (const Instrument* instrument : set.Instruments()) {
        seen.zones += testing::Zones(*instrument);
        for (const Layer* layer : instrument->Layers())
            for (const Region* region : layer->Regions())
                seen.pans.push_back(region->articulation[kArtPan]);
    }
    for (const Waveform* wave : set.Waveforms())
        seen.channels.push_back(wave->channels);
    if (!file.WriteAll(MakeBytes({'n', 'e', 'w'})))
        return Fail(u"Couldn't write to file!");
    return !writerFails || Fail(u"Something is wrong with it");
}

constexpr std::uint32_t kPcm16Caps = FormatBit(DataFormat::Pcm16) | kCapsMono;

constexpr FormatRow MakeRow(std::uint8_t kinds, std::uint32_t caps)
{
    FormatRow row;
    row.extension = u"seen";
    row.write = WriteSeen;
    row.kinds = kinds;
    row.caps = caps;
    row.variant = 77;
    return row;
}
constexpr FormatRow kBankRow =
    MakeRow(kKindWave | kKindInstrument | kKindCollection, kPcm16Caps | kCapsDualMono);
constexpr FormatRow kWaveRow = MakeRow(kKindWave, kPcm16Caps);
constexpr FormatRow kSongRow = MakeRow(kKindTrack | kKindSong, FormatBit(DataFormat::Midi));

bool Save(Item& root, const FormatRow& row, std::u16string_view path, SaveOptions options = {})
{
    FormatChoice choice;
    choice.caps = row.caps;
    return SaveThroughRow(root, row, path, choice, options);
}

Track& AddTrack(Song& song)
{
    Track& track = song.Owner().Create<Track>(u"t");
    track.SetParent(song.Handle());
    song.AddChild(track.Handle());
    const Bytes events = MakeBytes({0, 0x90, 60, 64, 10, 0x80, 60, 64, 0, 0xFF, 0x2F, 0});
    track.SetData(events);
    return track;
}

class SaveThroughRowTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        seen = {};
        writerFails = false;
    }
    ScratchFolder folder;
    std::u16string path = folder.Wide("out.seen");
};

TEST_F(SaveThroughRowTest, PartsAreWrittenAsWholesAndTheCollectionStaysAsItWas)
{
    Bank bank;
    Instrument& instrument =
        bank.Add(u"Piano", 4, {{{0, 59, 0, 127}, {60, 127, 0, 127}}, {{0, 127, 0, 127}}});
    Song& song = bank.items.Create<Song>(u"Song");
    song.division = 480;
    Track& track = AddTrack(song);
    AddTrack(song);
    const std::size_t count = bank.items.ItemCount();
    struct Case {
        Item* root;
        const FormatRow* row;
        ItemKind kind;
        std::u16string name;
        std::string zones;
    };
    const Case cases[] = {
        {instrument.Layers()[0]->Regions()[1], &kBankRow, ItemKind::Instrument, u"Piano", "60-127:0-127"},
        {instrument.Layers()[1], &kBankRow, ItemKind::Instrument, u"Piano", "0-127:0-127"},
        {&instrument, &kBankRow, ItemKind::Instrument, u"Piano", "0-59:0-127 60-127:0-127 | 0-127:0-127"},
        {&bank.wave, &kWaveRow, ItemKind::Waveform, u"w", ""},
        {&track, &kSongRow, ItemKind::Song, u"Song", ""},
        {&song, &kSongRow, ItemKind::Song, u"Song", ""},
    };
    std::map<ItemHandle, Bytes> before;
    for (const Case& test : cases) {
        ASSERT_TRUE(Save(*test.root, *test.row, path)) << WideToUtf8(LastError());
        EXPECT_EQ(seen.kind, test.kind);
        EXPECT_EQ(seen.name, test.name);
        EXPECT_EQ(seen.zones, test.zones);
        EXPECT_EQ(seen.tracks, test.root == &track ? 1u : test.root == &song ? 2u : 0u);
        EXPECT_TRUE(seen.saving);
        EXPECT_EQ(seen.variant, 77u);
        EXPECT_FALSE(bank.items.saving);
        EXPECT_EQ(bank.items.ItemCount(), count);
        if (before.empty())
            before = bank.Records(); // the fix-up pass runs on the user's items
        EXPECT_EQ(bank.Records(), before);
        EXPECT_EQ(folder.Get("out.seen"), MakeBytes({'n', 'e', 'w'}));
    }
    ASSERT_TRUE(Save(*instrument.Layers()[1], kBankRow, path, {.lastUse = true}));
    EXPECT_EQ(bank.items.ItemCount(), count) << "the temporary instrument goes even if nobody looks";
}

TEST_F(SaveThroughRowTest, StereoBecomesPairsInTheFileOnly)
{
    Bank bank;
    Waveform& stereo = bank.AddWave(u"Stereo");
    stereo.channels = 2;
    ASSERT_EQ(stereo.LockSamplesForWrite().size(), 200u);
    Instrument& instrument = bank.Add(u"i", 0, {{{0, 59, 0, 127}}});
    instrument.Layers()[0]->Regions()[0]->SetSound(stereo.Handle());
    for (Item* root : {static_cast<Item*>(&instrument), static_cast<Item*>(&bank.items)}) {
        ASSERT_TRUE(Save(*root, kBankRow, path)) << WideToUtf8(LastError());
        EXPECT_EQ(seen.channels, std::vector<unsigned>(root == &instrument ? 2 : 3, 1u));
        EXPECT_EQ(seen.pans, (std::vector<float>{-1, 1}));
        EXPECT_EQ(testing::Zones(instrument), "0-59:0-127");
        EXPECT_EQ(stereo.channels, 2);
        EXPECT_EQ(bank.items.CountOf(ItemKind::Waveform), 2u);
    }
    FormatChoice mono;
    mono.caps = kPcm16Caps;
    ASSERT_TRUE(SaveThroughRow(instrument, kBankRow, path, mono));
    EXPECT_EQ(seen.channels, std::vector<unsigned>{2}) << "mixed by the writer, as the user wishes";
    ASSERT_TRUE(Save(bank.items, kBankRow, path, {.lastUse = true}));
    EXPECT_EQ(bank.items.CountOf(ItemKind::Waveform), 3u) << "no copy where none is needed";
}

TEST_F(SaveThroughRowTest, SongsAndSynthesisModelsAreRendered)
{
    Bank bank;
    Song& song = bank.items.Create<Song>(u"Song");
    Track& track = AddTrack(song);
    AddTrack(song);
    Instrument& instrument = bank.Add(u"i", 0, {{{0, 59, 0, 127}}});
    auto& model = bank.items.Create<SynthModel>(u"fm");
    Region& region = *instrument.Layers()[0]->Regions()[0];
    region.SetSound(model.Handle());
    const std::size_t count = bank.items.ItemCount();
    std::size_t rendered = 0;
    bool canConvert = true;
    SaveServices services;
    services.renderSong = [&](Song& given) {
        rendered = given.Children().size();
        Waveform& wave = given.Owner().Create<Waveform>(u"Rendered");
        wave.frames = 10;
        return &wave;
    };
    services.convertSynthModels = [&](Item& root) {
        for (Region* each : root.Owner().List<Region>()) {
            Waveform& wave = root.Owner().Create<Waveform>(u"Converted");
            wave.frames = 10;
            if (each->Synth() != nullptr)
                each->SetSound(wave.Handle());
        }
        return canConvert;
    };
    const SaveOptions with{.services = &services};

    ASSERT_TRUE(Save(song, kWaveRow, path, with));
    EXPECT_EQ(seen.name, u"Rendered");
    EXPECT_EQ(rendered, 2u);
    ASSERT_TRUE(Save(track, kWaveRow, path, with));
    EXPECT_EQ(rendered, 1u);
    TrackBuilder tempo;
    constexpr std::array kTempo = {std::byte{3}, std::byte{0}, std::byte{0}};
    tempo.PutMeta(kMetaTempo, kTempo);
    tempo.PutEndOfTrack();
    song.TrackAt(1)->SetData(tempo.Data());
    ASSERT_TRUE(Save(track, kWaveRow, path, with));
    EXPECT_EQ(rendered, 2u) << "the tempo of its song comes along";
    for (Item* root : {static_cast<Item*>(&instrument), static_cast<Item*>(&region),
                       static_cast<Item*>(&model), static_cast<Item*>(&bank.items)}) {
        seen = {};
        ASSERT_TRUE(Save(*root, kBankRow, path, with)) << WideToUtf8(LastError());
        EXPECT_EQ(seen.instruments, 1u);
        EXPECT_FALSE(seen.channels.empty());
        EXPECT_EQ(region.Synth(), &model);
    }

    const Bytes earlier = MakeBytes({'o', 'l', 'd'});
    folder.Put("out.seen", earlier);
    const int calls = seen.calls;
    const auto fails = [&](Item& item, const FormatRow& row, const SaveOptions& options) {
        EXPECT_FALSE(Save(item, row, path, options));
        EXPECT_EQ(folder.Get("out.seen"), earlier);
        return LastError();
    };
    canConvert = false;
    EXPECT_EQ(fails(instrument, kBankRow, with), u"Failed to render synth to wave");
    EXPECT_EQ(fails(instrument, kBankRow, {}), u"Failed to render synth to wave");
    EXPECT_EQ(fails(song, kWaveRow, {}), u"Save aborted!");
    services.renderSong = [](Song&) { return static_cast<Waveform*>(nullptr); };
    EXPECT_EQ(fails(track, kWaveRow, with), u"Save aborted!");
    EXPECT_EQ(seen.calls, calls);
    EXPECT_EQ(bank.items.ItemCount(), count);
    EXPECT_EQ(region.Synth(), &model);
}

TEST_F(SaveThroughRowTest, EmptyItems)
{
    Collection collection;
    Instrument& instrument = collection.Create<Instrument>(u"i");
    Layer& layer = instrument.AddLayer();
    const FormatRow both = MakeRow(kKindSong | kKindCollection, kPcm16Caps);
    const auto isEmpty = [&](Item& item, const FormatRow& row) {
        return !Save(item, row, path) && LastError() == u"Empty item - nothing to save";
    };
    EXPECT_TRUE(isEmpty(layer, kBankRow)) << "pruned with all that is empty below what is written";
    EXPECT_EQ(collection.CountOf(ItemKind::Layer), 0u);
    EXPECT_TRUE(isEmpty(instrument, kBankRow));
    EXPECT_TRUE(isEmpty(instrument, kSongRow));
    EXPECT_EQ(collection.CountOf(ItemKind::Instrument), 1u);
    EXPECT_TRUE(isEmpty(collection, kBankRow));
    EXPECT_TRUE(isEmpty(collection, kSongRow));
    EXPECT_TRUE(isEmpty(collection, both));
    EXPECT_EQ(seen.calls, 0);
    EXPECT_TRUE(Names(folder).empty());
    ASSERT_TRUE(Save(collection, kBankRow, path, {.force = true})) << "the writer itself decides";
    AddTrack(collection.Create<Song>(u"s"));
    EXPECT_TRUE(Save(collection, kSongRow, path));
    EXPECT_TRUE(Save(collection, both, path)) << "songs are content where the row holds them";
    EXPECT_TRUE(isEmpty(collection, kBankRow));
    EXPECT_EQ(seen.calls, 3);
}

TEST_F(SaveThroughRowTest, AFullDiskKeepsTheEarlierFile)
{
    const Bytes earlier = MakeBytes({'o', 'l', 'd'});
    folder.Put("out.seen", earlier);
    Bank bank;
    rlimit limit = {};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &limit), 0);
    const auto previous = std::signal(SIGXFSZ, SIG_IGN);
    rlimit small = limit;
    small.rlim_cur = 2;
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    const bool saved = Save(bank.wave, kWaveRow, path);
    ::setrlimit(RLIMIT_FSIZE, &limit);
    std::signal(SIGXFSZ, previous);
    EXPECT_FALSE(saved);
    EXPECT_EQ(LastError(), u"Couldn't write to file!");
    writerFails = true;
    EXPECT_FALSE(Save(bank.wave, kWaveRow, path));
    EXPECT_EQ(LastError(), u"Something is wrong with it");
    EXPECT_EQ(folder.Get("out.seen"), earlier);
    EXPECT_EQ(Names(folder), std::vector<std::string>{"out.seen"});
}

TEST(SaveToPath, FailuresKeepTheEarlierFileAndLeaveNothingBehind)
{
    const ScratchFolder folder;
    const Bytes earlier = MakeBytes({'o', 'l', 'd'});
    const auto target = folder.Put("out.wav", earlier);
    Collection collection;
    ASSERT_TRUE(LoadFile(collection, folder.Put("in.wav", MakeWav(1, 8000, 16, MakeBytes({1, 2, 3, 4}))),
                         AllowRaw::No));
    Waveform& wave = *collection.All<Waveform>().begin();
    wave.frames = 1000; // more than the file holds: the writer fails half-way

    EXPECT_FALSE(SaveToPath(&wave, target, kWavRow, AutoChoice(kWavRow)));
    EXPECT_EQ(LastError(), u"Reading from file failed");
    EXPECT_EQ(folder.Get("out.wav"), earlier);
    EXPECT_FALSE(SaveToPath(&collection, target, kWavRow, AutoChoice(kWavRow)));
    EXPECT_EQ(LastError(), u"The file format can not save this item");
    EXPECT_EQ(folder.Get("out.wav"), earlier);
    EXPECT_EQ(Names(folder), (std::vector<std::string>{"in.wav", "out.wav"}));
    EXPECT_FALSE(collection.saving);
}

TEST(SaveToPath, Refusals)
{
    const ScratchFolder folder;
    Collection collection;
    const auto fails = [&](Item* item, std::u16string_view path, int row) {
        EXPECT_FALSE(SaveToPath(item, path, row, AutoChoice(row)));
        return LastError();
    };
    EXPECT_EQ(fails(nullptr, folder.Wide("a"), kWavRow), u"No item selected");
    EXPECT_EQ(fails(&collection, folder.Wide("a"), -1), u"Invalid export format selected");
    EXPECT_EQ(fails(&collection, folder.Wide("a"), 532), u"Invalid export format selected");
    EXPECT_EQ(fails(&collection, folder.Wide("a"), 0), u"Invalid export format selected");
    EXPECT_EQ(fails(&collection, folder.Wide("a"), kWavRow), u"Empty item - nothing to save");
    EXPECT_FALSE(SaveToPath(&collection, folder.Wide("a"), kWavRow, AutoChoice(kWavRow), {.force = true}));
    EXPECT_EQ(LastError(), u"The file format can not save this item") << "forced, the writer itself is asked";
    Waveform& wave = collection.Create<Waveform>(u"w");
    EXPECT_EQ(fails(&wave, folder.Wide("no/such/folder/a"), kWavRow), u"Could not create file");
    EXPECT_EQ(fails(&wave, PathToWide(folder.Path().string()), kWavRow), u"Could not create file");
    EXPECT_TRUE(Names(folder).empty());
}

TEST(SaveToPath, OverItsOwnSource)
{
    const ScratchFolder folder;
    const auto path = folder.Put("a.wav", MakeWav(1, 8000, 8, MakeBytes({128, 255, 0, 64})));
    Collection collection;
    ASSERT_TRUE(LoadFile(collection, path, AllowRaw::No));
    Waveform& wave = *collection.All<Waveform>().begin();
    FormatChoice choice = AutoChoice(kWavRow);
    choice.caps = FormatBit(DataFormat::Float32) | kCapsMono | kCapsStereo;
    ASSERT_TRUE(SaveToPath(&wave, path, kWavRow, choice));
    EXPECT_EQ(folder.Get("a.wav")[20], std::byte{3}) << "float samples now";
    ASSERT_EQ(wave.LockSamples().size(), 4u);
    EXPECT_EQ(wave.LockSamples()[2], -1.0f) << "what was in the replaced file is still there";
}

TEST(SaveToPath, TellsTheUserIfAsked)
{
    const ScratchFolder folder;
    testing::ScriptedHost host;
    Collection collection;
    collection.SetHost(host);
    Waveform& wave = collection.Create<Waveform>(u"w");
    const auto save = [&](std::uint32_t frames, const std::string& name, SaveOptions options) {
        wave.FreeSamples(); // silence of another length
        wave.frames = frames;
        host.status.clear();
        const int row = FindRowByExtension(u"ub", kKindWave);
        if (!SaveToPath(&wave, folder.Wide(name), row, AutoChoice(row), options))
            host.status.push_back(u"failed");
        return WideToUtf8(host.status.back());
    };
    const SaveOptions loud{.interactive = true};
    const std::string path = WideToUtf8(folder.Wide("a.ub"));
    EXPECT_EQ(save(5, "a.ub", loud), "Saved: " + path + " (5 Bytes)");
    EXPECT_EQ(WideToUtf8(host.status.front()), "Saving...");
    EXPECT_EQ(save(1023, "a.ub", loud), "Saved: " + path + " (1023 Bytes)");
    EXPECT_EQ(save(1536, "a.ub", loud), "Saved: " + path + " (1.5 KB)");
    EXPECT_EQ(save(0x180000, "a.ub", loud), "Saved: " + path + " (1.5 MB)");
    EXPECT_EQ(save(5, "a.ub", {}), "Writing: " + path);
    save(5, "no/folder", loud);
    EXPECT_EQ(host.status[host.status.size() - 2], u"Failed to Save.");
}

TEST(SanitizeFileName, KeepsNamesLegalAndTellsSiblingsApart)
{
    struct Case {
        std::u16string_view name;
        std::u16string expected;
    };
    const Case cases[] = {
        {u"\"a|b\"", u"'a,b'"},    {u"*", u"noname"},
        {u"", u"noname"},          {u"kick.wav", u"kick_wav"},
        {u"<1>/2\\3", u"(1)_2_3"}, {u"..hidden", u"hidden"},
        {u"C:\\x?", u"C__x_"},     {u"Bass\u00E9 \u65E5", u"Bass\u00E9 \u65E5"},
        {u"a\x7F\tb", u"a__b"},
    };
    for (const Case& test : cases)
        EXPECT_EQ(SanitizeFileName(test.name), test.expected) << WideToUtf8(test.name);
    EXPECT_EQ(SanitizeFileName(std::u16string(300, u'x')).size(), 259u);
    const auto fitted = SanitizeFileName(u"Concert Grand Piano C#3-L", 12);
    EXPECT_LE(fitted.size(), 12u);
    EXPECT_TRUE(fitted.ends_with(u"-L"));
    EXPECT_NE(fitted.find(u"C#3"), std::u16string::npos);
    EXPECT_EQ(SanitizeFileName(u"\u0141\u00F3d\u017A \u65E5\u201C", 259, PlainLatin::Yes), u"L\u00F3dz _'")
        << "the unknown one comes as a question mark";
}

TEST(SanitizeFileName, NarrowNames)
{
    EXPECT_EQ(SanitizeFileNameNarrow("\"a|b\" <c>"), "'a|b' _c_");
    EXPECT_EQ(SanitizeFileNameNarrow("<*x"), "x");
    EXPECT_EQ(SanitizeFileNameNarrow("<"), "noname");
    EXPECT_EQ(SanitizeFileNameNarrow("<", 259, UpperCase::Yes), "NONAME");
    EXPECT_EQ(SanitizeFileNameNarrow("Caf\xE9 no 1\xF7", 259, UpperCase::Yes), "CAF\xC9_NO_1\xF7");
    EXPECT_EQ(SanitizeFileNameNarrow("Concert Grand C#3-L", 10).size(), 10u);
}

} // namespace
} // namespace vimbo
