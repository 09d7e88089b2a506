#include "base/range_copy.h"

#include "base/text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

namespace vimbo {
namespace {

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

class Random {
public:
    std::uint32_t operator()(std::uint32_t below) noexcept
    {
        return (seed_ = seed_ * 1664525 + 1013904223) / 256 % below;
    }

private:
    std::uint32_t seed_ = 7;
};

std::vector<std::byte> Noise(std::size_t count)
{
    Random random;
    std::vector<std::byte> bytes(count);
    for (std::byte& byte : bytes)
        byte = static_cast<std::byte>(random(256));
    return bytes;
}

std::u16string StoreIn(const std::string& name, std::span<const std::byte> bytes)
{
    const std::u16string path = Utf8ToWide(::testing::TempDir() + "range_copy_" + name);
    FileObject file;
    EXPECT_TRUE(file.Open(path, FileMode::Create) && file.WriteAll(bytes));
    return path;
}

void RunHelpers(RangeCopy& copy, int count)
{
    std::vector<std::jthread> threads;
    for (int i = 0; i < count; ++i)
        threads.emplace_back([&copy] {
            RangeCopy::Helper helper(copy);
            while (helper.Step()) {
            }
        });
}

TEST(RangeCopy, PiecesComeOutAsOneWhateverTheirLengths)
{
    const std::vector<std::byte> noise = Noise(3'000'000);
    const std::vector<std::u16string> paths{
        StoreIn("a", noise), StoreIn("b", std::span<const std::byte>(noise).subspan(1'000'000))};
    std::vector<RangeCopy::Range> ranges;
    std::vector<std::byte> wanted(5, std::byte{'f'});
    Random random;
    for (std::uint32_t i = 0; i < 60; ++i) {
        const std::uint32_t held = i % 8 == 0 ? 1'500'000 + random(50) : random(9000);
        const std::uint32_t zeros = i % 10 == 9 ? 1'200'000 : random(90);
        const std::size_t file = random(2);
        const std::uint32_t from = random(2'000'000 - held);
        ranges.push_back({file, from, held, wanted.size(), held + zeros});
        const auto start = noise.begin() + from + static_cast<std::ptrdiff_t>(file * 1'000'000);
        wanted.insert(wanted.end(), start, start + held);
        wanted.resize(wanted.size() + zeros);
        if (i % 7 == 3) // a gap, which stays as it is
            wanted.resize(wanted.size() + random(3000), std::byte{'g'});
    }
    std::vector<std::byte> before(wanted.size(), std::byte{'g'});
    std::fill_n(before.begin(), 5, std::byte{'f'});
    for (const int helpers : {1, 3}) {
        MemoryFile file(before);
        RangeCopy copy(file, paths, ranges);
        RunHelpers(copy, helpers);
        EXPECT_TRUE(copy.IsWritten());
        for (std::size_t i = 0; i < ranges.size(); ++i)
            EXPECT_TRUE(copy.Holds(i)) << i;
        EXPECT_TRUE(std::ranges::equal(file.Bytes(), wanted)) << helpers;
    }
}

TEST(RangeCopy, TellsWhatCouldNotBeReadOrWritten)
{
    const std::vector<std::byte> noise = Noise(2'000'000);
    const std::vector<std::u16string> paths{StoreIn("c", noise), u"/no/such/file"};
    // Its beginning can be read, but not what lies behind the end of the file; nor does the other file exist.
    const std::vector<RangeCopy::Range> ranges{{0, 0, 1000, 0, 1010},
                                               {0, 100'000, 1'900'001, 1010, 1'900'011},
                                               {1, 0, 10, 1'901'021, 20},
                                               {0, 500, 700'000, 1'901'041, 700'000}};
    MemoryFile file;
    RangeCopy copy(file, paths, ranges);
    RunHelpers(copy, 2);
    EXPECT_TRUE(copy.IsWritten());
    const std::array held{copy.Holds(0), copy.Holds(1), copy.Holds(2), copy.Holds(3)};
    EXPECT_EQ(held, (std::array{true, false, false, true}));
    ASSERT_EQ(file.Size(), 2'601'041U);
    EXPECT_TRUE(std::ranges::equal(file.Bytes().subspan(1'901'041),
                                   std::span<const std::byte>(noise).subspan(500, 700'000)));

    SmallDisk disk(1'900'000);
    RangeCopy full(disk, paths, ranges);
    RunHelpers(full, 2);
    EXPECT_FALSE(full.IsWritten());

    MemoryFile none;
    RangeCopy stopped(none, paths, ranges);
    stopped.Stop();
    RunHelpers(stopped, 1);
    EXPECT_FALSE(stopped.Holds(0)) << "nobody has begun it";
    EXPECT_EQ(none.Size(), 0U);
}

} // namespace
} // namespace vimbo
