#include "base/last_error.h"
#include "formats/open.h"
#include "model/instrument.h"
#include "test_files.h"
#include "test_host.h"

#include <gtest/gtest.h>

namespace vimbo {
namespace {

using testing::Bytes;
using testing::MakeBytes;
using testing::MakeWav;
using testing::ScratchFolder;
using testing::ScriptedHost;

Bytes SmallWav(int firstSample = 16)
{
    return MakeWav(1, 11025, 16, MakeBytes({firstSample, 0, 0, 64, 0, 192}));
}

TEST(LoadFile, FillsTheCollection)
{
    const ScratchFolder folder;
    const auto path = folder.Put("My.Kick.wav", SmallWav());
    Collection collection;
    int confidence = 0;
    ASSERT_TRUE(LoadFile(collection, path, AllowRaw::No, &confidence));
    EXPECT_EQ(confidence, 100);
    EXPECT_EQ(collection.GetName(), u"My.Kick");
    EXPECT_EQ(collection.GetText(kTextSourcePath), path);
    EXPECT_EQ(RowExtension(collection.formatRow), u"wav");
    EXPECT_FALSE(collection.loading);
    ASSERT_EQ(collection.CountOf(ItemKind::Waveform), 1u);
    Waveform& wave = *collection.All<Waveform>().begin();
    EXPECT_FALSE(wave.HasBlock()) << "samples stay on disk until they are needed";
    EXPECT_EQ(wave.loop.end, 3.0) << "the fix-up pass has run";
    EXPECT_EQ(wave.saveFormat, SaveFormat::Pcm16);
    const auto samples = wave.LockSamples();
    ASSERT_EQ(samples.size(), 3u);
    EXPECT_EQ(samples[1], 0.5f);
    EXPECT_EQ(samples[2], -0.5f);
}

TEST(LoadFile, RefusalsLeaveACleanCollection)
{
    const ScratchFolder folder;
    struct Case {
        std::u16string path;
        std::u16string error;
    };
    const Case cases[] = {
        {folder.Wide("missing.wav"), u"Could not open file"},
        {PathToWide(folder.Path().string()), u"Could not open file"},
        {folder.Put("empty.wav", {}), u"File is of zero size"},
        {folder.Put("odd.xyz", MakeBytes({1, 2, 3})), u"Not detected as any supported file type"},
    };
    for (const Case& test : cases) {
        Collection collection;
        collection.Create<Waveform>(u"kept");
        EXPECT_FALSE(LoadFile(collection, test.path, AllowRaw::No)) << WideToUtf8(test.path);
        EXPECT_EQ(LastError(), test.error);
        EXPECT_EQ(collection.CountOf(ItemKind::Waveform), 1u)
            << "nothing is lost before there is something new";
    }
    // A reader's own failure empties the collection.
    Bytes noData = SmallWav();
    noData.resize(36);
    Collection collection;
    collection.Create<Waveform>(u"gone");
    EXPECT_FALSE(LoadFile(collection, folder.Put("nodata.wav", noData), AllowRaw::No));
    EXPECT_EQ(LastError(), u"No wave data found!");
    EXPECT_EQ(collection.GetName(), u"Empty collection");
    EXPECT_EQ(collection.CountOf(ItemKind::Waveform), 0u);
}

TEST(LoadFile, UnknownFilesAskBeforeTheyAreReadAsRaw)
{
    const ScratchFolder folder;
    const auto path = folder.Put("odd.xyz", MakeBytes({0, 64, 192}));
    ScriptedHost host;
    Collection collection;
    collection.SetHost(host);
    host.answers["raw-import"] = 2; // Cancel
    ASSERT_TRUE(LoadFile(collection, path, AllowRaw::Yes));
    EXPECT_EQ(collection.CountOf(ItemKind::Waveform), 0u);
    host.answers["raw-import"] = 1; // Allways OK
    ASSERT_TRUE(LoadFile(collection, path, AllowRaw::Yes));
    ASSERT_EQ(collection.CountOf(ItemKind::Waveform), 1u);
    host.answers["raw-import"] = 2;
    const std::size_t asked = host.asked.size();
    ASSERT_TRUE(LoadFile(collection, path, AllowRaw::Yes));
    EXPECT_EQ(host.asked.size(), asked) << "answered for the rest of the session";
    Waveform& wave = *collection.All<Waveform>().begin();
    EXPECT_EQ(wave.frames, 3u);
    EXPECT_EQ(wave.rateHz, 44100u);
    ASSERT_EQ(wave.LockSamples().size(), 3u);
    EXPECT_EQ(wave.LockSamples()[1], 0.5f);
    EXPECT_EQ(wave.LockSamples()[2], -0.5f);
}

TEST(MergeFile, AddsToWhatIsThere)
{
    const ScratchFolder folder;
    Collection collection;
    ASSERT_TRUE(LoadFile(collection, folder.Put("a.wav", SmallWav()), AllowRaw::No));
    const auto name = std::u16string(collection.GetName());
    ASSERT_TRUE(MergeFile(collection, folder.Put("b.wav", SmallWav())));
    EXPECT_EQ(collection.CountOf(ItemKind::Waveform), 2u);
    EXPECT_EQ(collection.GetName(), name);
    EXPECT_FALSE(MergeFile(collection, folder.Wide("missing.wav")));
    EXPECT_EQ(collection.CountOf(ItemKind::Waveform), 2u);
    for (Waveform& wave : collection.All<Waveform>())
        EXPECT_TRUE(wave.EnsureData()) << "each still knows its own file";
}

TEST(ReplaceWaveforms, TakesSamplesOfTheSameName)
{
    const ScratchFolder folder;
    Collection collection;
    ASSERT_TRUE(LoadFile(collection, folder.Put("kick.wav", SmallWav(16)), AllowRaw::No));
    Waveform& kept = collection.Create<Waveform>(u"Snare");
    Waveform& kick = *collection.All<Waveform>().begin();
    kick.loop.type = LoopType::Forward;
    kick.loop.start = 1;
    int replaced = -1;
    ASSERT_TRUE(ReplaceWaveforms(collection, folder.Put("new/kick.wav", SmallWav(32)), replaced));
    EXPECT_EQ(replaced, 1);
    EXPECT_EQ(collection.CountOf(ItemKind::Waveform), 2u);
    ASSERT_EQ(kick.LockSamples().size(), 3u);
    EXPECT_EQ(kick.LockSamples()[0], 32.0f / 32768);
    EXPECT_EQ(kick.loop.type, LoopType::Forward) << "a loop that says nothing replaces none";
    EXPECT_EQ(kick.loop.start, 1.0);
    EXPECT_EQ(kept.frames, 0u);
    ASSERT_TRUE(ReplaceWaveforms(collection, folder.Put("new/KICK.wav", SmallWav(48)), replaced));
    EXPECT_EQ(replaced, 0) << "names are compared exactly";
}

TEST(OpenPath, FoldersMergeAfterTheFirstFile)
{
    const ScratchFolder folder;
    folder.Put("set/a.wav", SmallWav());
    folder.Put("set/deep/b.wav", SmallWav());
    folder.Put("set/.hidden/c.wav", SmallWav());
    ScriptedHost host;
    Collection collection;
    collection.SetHost(host);
    collection.Create<Waveform>(u"replaced by the first file");
    int opened = 0;
    ASSERT_TRUE(OpenPath(collection, folder.Wide("set"), OpenMode::New, Announce::Yes, &opened));
    EXPECT_EQ(opened, 2);
    EXPECT_EQ(collection.CountOf(ItemKind::Waveform), 2u);
    EXPECT_EQ(host.status.back(), u"Merged: " + folder.Wide("set/deep/b.wav"));

    folder.Put("set/aa.wav", {});
    EXPECT_FALSE(OpenPath(collection, folder.Wide("set"), OpenMode::New, Announce::No, &opened));
    EXPECT_EQ(opened, 1) << "the walk ends at the first file that fails";
    EXPECT_EQ(LastError(), u"File is of zero size");
}

TEST(OpenPath, AFolderGivesWhatItsFilesGiveOneByOne)
{
    const ScratchFolder folder;
    const Bytes kick = SmallWav(16), snare = SmallWav(32);
    folder.Put("w/k.wav", kick);
    folder.Put("w/s.wav", snare);
    const std::string_view text = "<region> sample=../w/k.wav key=60 <region> sample=../w/s.wav key=61";
    const auto bytes = std::as_bytes(std::span(text));
    const std::u16string paths[] = {
        folder.Put("set/a.sfz", {bytes.begin(), bytes.end()}), folder.Put("set/k.wav", kick),
        folder.Put("set/m.sfz", {bytes.begin(), bytes.end()}), folder.Put("set/s.wav", snare)};
    Collection oneByOne, atOnce;
    ASSERT_TRUE(LoadFile(oneByOne, paths[0], AllowRaw::No)) << WideToUtf8(LastError());
    for (const std::u16string& path : std::span(paths).subspan(1))
        ASSERT_TRUE(MergeFile(oneByOne, path));
    ASSERT_TRUE(OpenPath(atOnce, folder.Wide("set"), OpenMode::New, Announce::No));
    for (const Collection* items : {&oneByOne, &atOnce}) {
        std::vector<std::u16string> names;
        for (const Waveform& wave : items->All<Waveform>())
            names.emplace_back(wave.GetName());
        // A bank's waveforms replace equal ones, one that comes alone stays until a bank comes behind it.
        EXPECT_EQ(names, (std::vector<std::u16string>{u"k", u"s", u"s"}));
        std::vector<std::uint32_t> locations;
        for (const Instrument& instrument : items->All<Instrument>())
            locations.push_back(instrument.location.word);
        EXPECT_EQ(locations, (std::vector<std::uint32_t>{0, 1}));
    }

    folder.Put("new/1/k.wav", SmallWav(48));
    folder.Put("new/2/s.wav", SmallWav(64));
    ASSERT_TRUE(OpenPath(atOnce, folder.Wide("new"), OpenMode::ReplaceWaves, Announce::No));
    std::vector<float> firsts;
    for (Waveform& wave : atOnce.All<Waveform>())
        firsts.push_back(wave.LockSamples()[0] * 32768);
    EXPECT_EQ(firsts, (std::vector<float>{48, 64, 32})) << "of equal names the first";
}

TEST(MissingFileSearch, LooksNearbyBeforeItAsks)
{
    const ScratchFolder folder;
    folder.Put("bank/Samples/Kick One.wav", SmallWav());
    folder.Put("bank/snare.wav", SmallWav());
    folder.Put("else/HAT.WAV", SmallWav());
    folder.Put("else/ride.wav", SmallWav());
    ScriptedHost host;
    MissingFileSearch search(host, folder.Wide("bank/kit.sfz"));
    std::u16string found;
    ASSERT_TRUE(search.Find(u"samples\\kick one.WAV", u"*.wav", found));
    EXPECT_EQ(found, folder.Wide("bank/Samples/Kick One.wav"));
    ASSERT_TRUE(search.Find(u"D:\\old\\place\\Snare.wav", u"*.wav", found));
    EXPECT_EQ(found, folder.Wide("bank/snare.wav"));

    EXPECT_FALSE(search.Find(u"hat.wav", u"*.wav", found));
    ASSERT_EQ(host.asked.size(), 1u);
    EXPECT_EQ(host.asked[0], u"Please locate the missing file: hat.wav");
    EXPECT_FALSE(search.Find(u"hat.wav", u"*.wav", found));
    EXPECT_EQ(host.asked.size(), 1u) << "each name is asked for once";

    host.picked = folder.Wide("else/ride.wav");
    ASSERT_TRUE(search.Find(u"ride.wav", u"*.wav", found));
    ASSERT_TRUE(search.Find(u"hat.wav", u"*.wav", found)) << "siblings lie where the user pointed";
    EXPECT_EQ(found, folder.Wide("else/HAT.WAV"));
    EXPECT_EQ(host.asked.size(), 2u);
}

} // namespace
} // namespace vimbo
