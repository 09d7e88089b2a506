#include "base/last_error.h"
#include "formats/open.h"
#include "formats/save.h"
#include "model/song.h"
#include "test_files.h"

#include <gtest/gtest.h>

namespace vimbo {
namespace {

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
    EXPECT_EQ(fails(&collection, folder.Wide("a"), 0), u"Invalid export format selected");
    EXPECT_EQ(fails(&collection, folder.Wide("a"), kWavRow), u"Empty item - nothing to save");
    EXPECT_EQ(fails(&collection.Create<Song>(u"s"), folder.Wide("a"), kWavRow),
              u"Empty item - nothing to save");
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
    };
    for (const Case& test : cases)
        EXPECT_EQ(SanitizeFileName(test.name), test.expected) << WideToUtf8(test.name);
    EXPECT_EQ(SanitizeFileName(std::u16string(300, u'x')).size(), 259u);
    const auto fitted = SanitizeFileName(u"Concert Grand Piano C#3-L", 12);
    EXPECT_LE(fitted.size(), 12u);
    EXPECT_TRUE(fitted.ends_with(u"-L"));
    EXPECT_NE(fitted.find(u"C#3"), std::u16string::npos);
}

} // namespace
} // namespace vimbo
