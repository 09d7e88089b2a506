#include "base/byte_reader.h"

#include <gtest/gtest.h>

#include <limits>

namespace vimbo {
namespace {

template <class... T>
std::vector<std::byte> Bytes(T... values)
{
    return {static_cast<std::byte>(values)...};
}

struct Mixed {
    FourCc type;
    U16le little;
    I16be big;
    U64be wide;
    F32le real;
};
static_assert(DiskRecord<Mixed> && sizeof(Mixed) == 20);

TEST(Packed, KnownBytesInBothOrders)
{
    // 1.5f is 0x3FC00000 in IEEE 754, -2.0 is 0xC000000000000000.
    const auto bytes = Bytes('d', 'a', 't', 'a', 0x34, 0x12, 0xFF, 0xFE, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06,
                             0x07, 0x08, 0x00, 0x00, 0xC0, 0x3F);
    Mixed record;
    ByteReader reader(bytes);
    ASSERT_TRUE(reader.Read(record));
    EXPECT_EQ(record.type, FourCc{"data"});
    EXPECT_EQ(record.little.Get(), 0x1234);
    EXPECT_EQ(record.big.Get(), -2);
    EXPECT_EQ(record.wide.Get(), 0x0102030405060708U);
    EXPECT_EQ(record.real.Get(), 1.5F);

    ByteWriter writer;
    writer.Write(Mixed{"data", 0x1234, -2, 0x0102030405060708U, 1.5F});
    writer.Write(F64be(-2.0));
    writer.Write(I32le(std::numeric_limits<std::int32_t>::min()));
    auto expected = bytes;
    for (const int value : {0xC0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x80})
        expected.push_back(static_cast<std::byte>(value));
    EXPECT_EQ(writer.Release(), expected);
}

TEST(ByteReader, RefusesWhatIsNotThereAndStaysInPlace)
{
    const auto bytes = Bytes(1, 2, 3, 4, 5);
    ByteReader reader(bytes);
    U32be number;
    ASSERT_TRUE(reader.Read(number));
    EXPECT_EQ(number.Get(), 0x01020304U);
    EXPECT_FALSE(reader.Read(number));
    EXPECT_EQ(number.Get(), 0U) << "a short record must not keep an older value";
    EXPECT_EQ(reader.Left(), 1U);

    std::span<const std::byte> part = bytes;
    for (const std::uint64_t claim : {std::uint64_t{2}, std::numeric_limits<std::uint64_t>::max()}) {
        EXPECT_FALSE(reader.Take(claim, part));
        EXPECT_TRUE(part.empty());
        EXPECT_FALSE(reader.Skip(claim));
        EXPECT_EQ(reader.Left(), 1U);
    }
    ASSERT_TRUE(reader.Take(1, part));
    EXPECT_EQ(part[0], std::byte{5});
    EXPECT_TRUE(reader.Skip(0));
    EXPECT_FALSE(reader.Skip(1));
    EXPECT_FALSE(ByteReader().Read(number));
}

TEST(ByteWriter, AppendsAndPatchesOnlyInside)
{
    ByteWriter writer;
    writer.Append("RIFF");
    writer.Write(U32le(0));
    writer.Fill(2, std::byte{0xEE});
    writer.Extend(3)[1] = std::byte{7};
    ASSERT_EQ(writer.Size(), 13U);
    EXPECT_TRUE(writer.Patch(4, U32le(0x01020304)));
    EXPECT_TRUE(writer.Patch(9, U32be(0x0A0B0C0D))) << "the last place that holds it";
    EXPECT_FALSE(writer.Patch(10, U32le(0xFFFFFFFF)));
    EXPECT_FALSE(writer.Patch(14, U16le(0xFFFF)));
    EXPECT_FALSE(writer.Patch(std::numeric_limits<std::size_t>::max(), U16le(0xFFFF)));
    EXPECT_EQ(writer.Release(), Bytes('R', 'I', 'F', 'F', 4, 3, 2, 1, 0xEE, 0x0A, 0x0B, 0x0C, 0x0D));
}

} // namespace
} // namespace vimbo
