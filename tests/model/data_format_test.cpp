#include "model/data_format.h"

#include <gtest/gtest.h>

namespace vimbo {
namespace {

TEST(DataFormat, NamesBitsAndMasks)
{
    struct Row {
        DataFormat format;
        std::u16string_view name;
        unsigned bits;
    };
    // Codes are stored in settings and masks: the numbers are part of the test.
    for (const Row& row :
         {Row{static_cast<DataFormat>(2), u"PCM 16-bit", 16},
          Row{static_cast<DataFormat>(7), u"Float 64-bit", 64},
          Row{static_cast<DataFormat>(9), u"A-law 8-bit", 8},
          Row{static_cast<DataFormat>(13), u"ADPCM 4-bit", 4},
          Row{static_cast<DataFormat>(16), u"Delta PCM 16-bit", 16},
          Row{static_cast<DataFormat>(17), u"Compressed", 1}, Row{static_cast<DataFormat>(19), u"MIDI", 0},
          Row{static_cast<DataFormat>(20), u"", 0}}) {
        EXPECT_EQ(DataFormatName(row.format), row.name);
        EXPECT_EQ(DataFormatBits(row.format), row.bits);
        EXPECT_EQ(DataFormatByName(row.name), row.format);
    }
    EXPECT_EQ(DataFormatByName(u"mu-LAW 8-bit"), DataFormat::MuLaw);
    EXPECT_EQ(FirstFormatOf(0x00C00028), DataFormat::Pcm20); // two formats: the lowest; flags do not count
    EXPECT_EQ(FirstFormatOf(0xFFF00000), DataFormat::None);
}

TEST(DataFormat, BitratesFallIntoClasses)
{
    struct Row {
        float kbit;
        int code;
    };
    // 39.5 becomes 39 (39.999), 39.6 becomes 40 (40.099): below and at the first limit.
    for (const Row& row : {Row{0, 8}, Row{-5, 8}, Row{39.5f, 8}, Row{39.6f, 9}, Row{48, 9}, Row{55, 9},
                           Row{56, 10}, Row{128, 14}, Row{160, 16}, Row{176, 17}, Row{207.5f, 17},
                           Row{208, 18}, Row{256, 19}, Row{287, 19}, Row{288, 20}, Row{1e30f, 20}})
        EXPECT_EQ(static_cast<int>(BitrateToSaveFormat(row.kbit)), row.code) << row.kbit;

    float kbit = -1;
    for (int code = 8; code <= 20; ++code) { // a class's own rate leads back to it
        const auto format = static_cast<SaveFormat>(code);
        EXPECT_EQ(SaveFormatToDataFormat(format, kbit), DataFormat::Compressed);
        EXPECT_EQ(BitrateToSaveFormat(kbit), format);
    }
    EXPECT_EQ(SaveFormatName(static_cast<SaveFormat>(17)), u"Compressed 192 kbit/s");
    EXPECT_EQ(SaveFormatToDataFormat(SaveFormat::Adpcm4, kbit), DataFormat::Adpcm4);
    EXPECT_EQ(kbit, 0.0f);
    EXPECT_EQ(SaveFormatToDataFormat(SaveFormat::Default, kbit), DataFormat::None);
}

} // namespace
} // namespace vimbo
