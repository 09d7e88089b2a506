#include "base/last_error.h"
#include "formats/format_table.h"

#include <gtest/gtest.h>

namespace vimbo {
namespace {

TEST(FormatTable, LookUpByExtension)
{
    EXPECT_EQ(FindRowByExtension(u".WAV", kKindWave), 480);
    EXPECT_EQ(FindRowByExtension(u"wav", kKindWave), 480);
    EXPECT_EQ(FindRowByExtension(u"wav", kKindInstrument), -1);
    EXPECT_EQ(FindRowByExtension(u"raw", kKindWave), -1) << "that row has no writer";
    EXPECT_EQ(FindRowByExtension(u"wa", kKindWave), -1);
    EXPECT_EQ(FindRowByExtension(u"", kKindWave), -1);
}

TEST(FormatTable, CapabilitiesComeFromTheFirstWritingSibling)
{
    std::uint32_t variant = 99;
    EXPECT_EQ(GetRowCaps(8, variant), 0x320000u);
    EXPECT_EQ(GetRowCaps(480, variant), 0x327F75u);
    EXPECT_EQ(variant, 0u);
    EXPECT_EQ(GetRowCaps(0, variant), 0u);
    EXPECT_EQ(GetRowCaps(-1, variant), 0u);
    EXPECT_EQ(GetRowCaps(532, variant), 0u);
}

TEST(FormatTable, RowsOutsideTheTableAreAbsent)
{
    for (int row : {-1, 532, 100000, -2147483647}) {
        EXPECT_EQ(FindRow(row), nullptr);
        EXPECT_EQ(RowDescription(row), u"<none>");
        EXPECT_EQ(RowExtension(row), u"");
        EXPECT_FALSE(RowSupportsKind(row, ItemKind::Waveform));
    }
    EXPECT_TRUE(RowSupportsKind(480, ItemKind::Waveform));
    EXPECT_FALSE(RowSupportsKind(480, ItemKind::Instrument));
}

TEST(FormatTable, EnumerationsMeetEveryRowOnce)
{
    int index = -5;
    EnumeratedRow row;
    std::size_t readers = 0;
    int last = -1;
    while (EnumRowsForRead(index, row)) {
        EXPECT_GT(row.row, last);
        last = row.row;
        EXPECT_NE(FindRow(row.row)->read, nullptr);
        ++readers;
    }
    EXPECT_FALSE(EnumRowsForRead(index, row)) << "the end stays the end";
    std::size_t expected = 0;
    for (const FormatRow& entry : FormatRows())
        expected += entry.read ? 1 : 0;
    EXPECT_EQ(readers, expected);
    EXPECT_GT(readers, 20u);
}

TEST(FormatTable, CompressedSettingsOfARow)
{
    std::uint32_t index = 0;
    float kbit = 0;
    float last = 0;
    std::u16string name;
    while (GetSubFormat(480, index, kbit, name)) {
        EXPECT_GT(kbit, last);
        EXPECT_FALSE(name.empty());
        last = kbit;
    }
    EXPECT_EQ(last, 320);
    index = 0;
    EXPECT_FALSE(GetSubFormat(0, index, kbit, name));
    EXPECT_FALSE(GetSubFormat(-1, index, kbit, name));
}

TEST(FormatTable, WhatADriverThrowsBecomesTheErrorText)
{
    FormatRow row;
    row.read = [](Collection&, FileObject&, std::uint32_t) -> bool {
        throw std::runtime_error("broken library");
    };
    row.write = [](Item&, FileObject&, FormatChoice&) -> bool { throw std::bad_alloc(); };
    Collection collection;
    MemoryFile file;
    EXPECT_FALSE(ReadThroughRow(row, collection, file));
    EXPECT_EQ(LastError(), u"broken library");
    FormatChoice choice;
    EXPECT_FALSE(WriteThroughRow(row, collection, file, choice));
    EXPECT_EQ(LastError(), u"Out of memory");
}

} // namespace
} // namespace vimbo
