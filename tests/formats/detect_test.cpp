#include "formats/open.h"
#include "test_files.h"

#include <gtest/gtest.h>

namespace vimbo {
namespace {

using testing::Bytes;
using testing::MakeBytes;
using testing::MakeWav;

struct Detected {
    std::u16string_view extension;
    std::u16string_view description;
    int confidence;
};

Detected Detect(std::u16string_view path, std::span<const std::byte> bytes)
{
    MemoryFile file(bytes);
    EXPECT_TRUE(file.Seek(1));
    int confidence = -1;
    const int row = DetectFormat(path, file, confidence);
    EXPECT_EQ(file.Position(), 1u) << "detection must leave the file where it was";
    return {RowExtension(row), RowDescription(row), confidence};
}

TEST(Detect, ContentOutweighsTheName)
{
    const Bytes wav = MakeWav(1, 8000, 16, MakeBytes({1, 2, 3, 4}));
    struct Case {
        std::u16string_view path;
        std::u16string_view extension;
        std::u16string_view description;
        int confidence;
    };
    // Full match and extension: 9 of 9; full match alone: 6 of 9.
    const Case cases[] = {
        {u"/a/b.wav", u"wav", u"Microsoft wave", 100}, {u"/a/b.WAV", u"wav", u"Microsoft wave", 100},
        {u"/a/x.aif", u"wav", u"Microsoft wave", 66},  {u"/a.wav/noext", u"wav", u"Microsoft wave", 66},
        {u"wav", u"wav", u"Microsoft wave", 100},      {u"/a/b..wav", u"wav", u"Microsoft wave", 100},
    };
    for (const Case& test : cases) {
        const Detected found = Detect(test.path, wav);
        EXPECT_EQ(found.extension, test.extension) << WideToUtf8(test.path);
        EXPECT_EQ(found.description, test.description) << WideToUtf8(test.path);
        EXPECT_EQ(found.confidence, test.confidence) << WideToUtf8(test.path);
    }
}

TEST(Detect, NamesDecideAmongFilesOfPlainSamples)
{
    const Bytes noise = MakeBytes({0x91, 0x00, 0x13, 0xF7, 0x55, 0xAA, 0x01, 0x80});
    EXPECT_EQ(Detect(u"kick.ub", noise).description, u"Unsigned bytes (8-bit)");
    EXPECT_EQ(Detect(u"kick.ub", noise).confidence, 5 * 100 / 9);
    EXPECT_EQ(Detect(u"kick.SW", noise).description, u"Signed words (16-bit) - Little Endian");
    EXPECT_EQ(Detect(u"kick.alaw", noise).description, u"G.711 A-law");
    // No row fits: the raw fallback, with a confidence that says nothing.
    for (std::u16string_view path : {u"kick.bin1", u"kick.swx", u"kick", u"dir.ub/kick"}) {
        EXPECT_EQ(Detect(path, noise).extension, u"*") << WideToUtf8(path);
        EXPECT_EQ(Detect(path, noise).confidence, 0);
    }
}

TEST(Detect, EmptyAndUnreadableFiles)
{
    MemoryFile empty;
    int confidence = -1;
    EXPECT_EQ(DetectFormat(u"x.wav", empty, confidence), -1);
    EXPECT_EQ(confidence, 0);

    const testing::ScratchFolder folder;
    std::u16string name = u"?";
    DescribeFile(folder.Wide("none.wav"), name, confidence);
    EXPECT_EQ(name, u"");
    EXPECT_EQ(confidence, 0);
    DescribeFile(folder.Put("empty.wav", {}), name, confidence);
    EXPECT_EQ(name, u"Unknown file type");

    const auto wav = folder.Put("good.wav", MakeWav(1, 8000, 8, MakeBytes({128, 129})));
    DescribeFile(wav, name, confidence);
    EXPECT_EQ(name, u"Microsoft wave");
    EXPECT_EQ(confidence, 100);
    EXPECT_TRUE(IsKnownFormat(wav));
    EXPECT_FALSE(IsKnownFormat(folder.Put("odd.xyz", MakeBytes({1, 2, 3}))));
    EXPECT_FALSE(IsKnownFormat(folder.Wide("none.wav")));
}

} // namespace
} // namespace vimbo
