#include "base/staged_writer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace vimbo {
namespace {

using Copied = StagedWriter::Copied;

/// Takes so many bytes and no more.
class SmallDisk final : public FileObject {
public:
    explicit SmallDisk(std::uint64_t room) noexcept : room_(room) {}
    bool IsOpen() const noexcept override { return true; }

protected:
    std::int64_t WriteAt(std::uint64_t offset, std::span<const std::byte> bytes) noexcept override
    {
        return offset + bytes.size() <= room_ ? static_cast<std::int64_t>(bytes.size()) : -1;
    }

private:
    std::uint64_t room_;
};

std::vector<std::byte> Noise(std::size_t count)
{
    std::vector<std::byte> bytes(count);
    std::uint32_t state = 1;
    for (std::byte& byte : bytes)
        byte = static_cast<std::byte>((state = state * 1664525 + 1013904223) >> 24);
    return bytes;
}

TEST(StagedWriter, PiecesComeOutAsOneWhateverTheirLengths)
{
    const std::vector<std::byte> noise = Noise(3'000'000);
    MemoryFile source(noise);
    for (const std::uint64_t expected : {std::uint64_t{0}, std::uint64_t{10000}, ~std::uint64_t{0}}) {
        MemoryFile file;
        const std::vector<std::byte> front(5, std::byte{'f'});
        ASSERT_TRUE(file.WriteAll(front));
        std::vector<std::byte> wanted = front;
        StagedWriter out(file, expected);
        std::uint32_t seed = 7;
        const auto random = [&seed](std::uint32_t below) {
            return (seed = seed * 1664525 + 1013904223) / 256 % below;
        };
        for (int i = 0; i < 40; ++i) {
            const std::size_t bytes = i % 8 == 0 ? 1'500'000 + random(50) : random(9000);
            const std::size_t from = random(static_cast<std::uint32_t>(noise.size() - bytes));
            const std::size_t zeros = random(i % 9 == 0 ? 9000 : 90);
            ASSERT_EQ(out.AppendFrom(source, from, bytes), Copied::All);
            ASSERT_TRUE(out.AppendZeros(zeros));
            const auto start = noise.begin() + static_cast<std::ptrdiff_t>(from);
            wanted.insert(wanted.end(), start, start + static_cast<std::ptrdiff_t>(bytes));
            wanted.resize(wanted.size() + zeros);
        }
        ASSERT_TRUE(out.Flush());
        EXPECT_EQ(file.Position(), wanted.size());
        EXPECT_TRUE(std::ranges::equal(file.Bytes(), wanted));
    }
}

TEST(StagedWriter, TellsWhichSideFailed)
{
    MemoryFile source(Noise(200'000)), file;
    StagedWriter out(file, 300'000);
    ASSERT_TRUE(out.MoveTo(10));
    EXPECT_EQ(out.AppendFrom(source, 100'000, 100'001), Copied::CannotRead);
    ASSERT_TRUE(out.MoveTo(10));
    ASSERT_EQ(out.AppendFrom(source, 150'000, 50'000), Copied::All);
    ASSERT_TRUE(out.Flush());
    EXPECT_EQ(file.Position(), 50'010U);
    EXPECT_TRUE(std::ranges::equal(file.Bytes().subspan(10, 50'000), source.Bytes().subspan(150'000)));

    SmallDisk disk(100'000);
    StagedWriter full(disk, 70'000);
    EXPECT_EQ(full.AppendFrom(source, 0, 70'000), Copied::All);
    EXPECT_EQ(full.AppendFrom(source, 0, 150'000), Copied::CannotWrite);
    EXPECT_FALSE(full.AppendZeros(100'000));
}

} // namespace
} // namespace vimbo
