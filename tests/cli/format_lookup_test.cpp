#include "cli/format_lookup.h"

#include "base/text.h"

#include <gtest/gtest.h>

namespace vimbo::cli {
namespace {

/// The first row whose extension has no writer at all; -1 if every format can be written.
int FindUnwritable()
{
    for (int row = 1; FindRow(row); ++row) {
        bool writable = false;
        for (const int sibling : RowsWithExtension(RowExtension(row)))
            writable = writable || FindRow(sibling)->write;
        if (!writable)
            return row;
    }
    return -1;
}

TEST(FormatLookup, FindsRowsToWrite)
{
    const std::pair<const char*, int> good[] = {{"wav", 480},   {".WAV", 480},           {"480", 480},
                                                {"wav:", 480},  {"WAV:Wave Micro", 480}, {"sw", 422},
                                                {"sw:big", 423}};
    for (const auto& [type, row] : good) {
        const TypeLookup found = FindType(type);
        EXPECT_EQ(found.row, row) << type << ": " << found.error;
        EXPECT_TRUE(found.error.empty()) << type;
    }
}

TEST(FormatLookup, TellsWhyThereIsNoRow)
{
    const std::pair<const char*, const char*> bad[] = {{"wave", "did you mean wav"},
                                                       {"wsv", "did you mean wav"},
                                                       {"wav:flute", "480 (wav, Microsoft wave)"},
                                                       {"nosuchformat", "no format has the extension"},
                                                       {"0", "row 0 (*, Unrecognized) cannot be written"},
                                                       {"", "no format has the extension"},
                                                       {"532", "no format has the extension"}};
    for (const auto& [type, words] : bad) {
        const TypeLookup found = FindType(type);
        EXPECT_EQ(found.row, -1) << type;
        EXPECT_NE(found.error.find(words), std::string::npos) << type << ": " << found.error;
    }
    const int unwritable = FindUnwritable();
    if (unwritable < 0)
        GTEST_SKIP() << "every format can be written";
    const std::string error = FindType(WideToUtf8(RowExtension(unwritable)) + ":").error;
    EXPECT_NE(error.find("can be written yet"), std::string::npos) << error;
    EXPECT_NE(error.find(NameRow(unwritable)), std::string::npos) << error;
}

TEST(FormatLookup, KnowsDataFormatsInShortAndInFull)
{
    const std::pair<const char*, DataFormat> names[] = {{"PCM 24-bit", DataFormat::Pcm24},
                                                        {"pcm 24-BIT", DataFormat::Pcm24},
                                                        {"pcm24", DataFormat::Pcm24},
                                                        {"float32", DataFormat::Float32},
                                                        {"mu-law", DataFormat::MuLaw},
                                                        {"alaw", DataFormat::ALaw},
                                                        {"adpcm4", DataFormat::Adpcm4},
                                                        {"compressed", DataFormat::Compressed},
                                                        {"gsm", DataFormat::Gsm},
                                                        {"pcm", DataFormat::None},
                                                        {"adpcm", DataFormat::None},
                                                        {"pcm3", DataFormat::None},
                                                        {"", DataFormat::None},
                                                        {"24", DataFormat::None}};
    for (const auto& [name, format] : names)
        EXPECT_EQ(FindDataFormat(name), format) << name;
}

TEST(FormatLookup, MakesSaveRequestsThatTheRowAllows)
{
    const FormatRow& wav = *FindRow(480);
    const ChoiceLookup automatic = MakeChoice(480, "", ChannelWish::Auto, 0);
    EXPECT_EQ(automatic.choice.caps, wav.caps);

    const ChoiceLookup narrow = MakeChoice(480, "pcm24", ChannelWish::Mono, 0);
    EXPECT_EQ(narrow.error, "");
    EXPECT_EQ(narrow.choice.caps, FormatBit(DataFormat::Pcm24) | kCapsMono);

    const ChoiceLookup rate = MakeChoice(480, "", ChannelWish::Stereo, 128);
    EXPECT_EQ(rate.choice.caps, FormatBit(DataFormat::Compressed) | kCapsStereo);
    EXPECT_EQ(rate.choice.kbit, 128);

    EXPECT_NE(MakeChoice(480, "pcm20", ChannelWish::Auto, 0).error.find("PCM 16-bit"), std::string::npos);
    EXPECT_NE(MakeChoice(480, "nonsense", ChannelWish::Auto, 0).error, "");
    EXPECT_NE(MakeChoice(480, "pcm16", ChannelWish::Auto, 128).error.find("--kbit"), std::string::npos);
}

TEST(FormatLookup, RefusesWhatNoRowOfThatShapeCanHold)
{
    int index = 0;
    EnumeratedRow row;
    while (EnumRowsForWrite(index, row)) {
        const bool mono = (row.caps & kCapsMono) != 0;
        const bool compressed = (row.caps & FormatBit(DataFormat::Compressed)) != 0;
        EXPECT_EQ(MakeChoice(row.row, "", ChannelWish::Mono, 0).error.empty(), mono) << NameRow(row.row);
        EXPECT_EQ(MakeChoice(row.row, "", ChannelWish::Auto, 64).error.empty(), compressed)
            << NameRow(row.row);
    }
}

} // namespace
} // namespace vimbo::cli
