#include "base/atom.h"
#include "base/last_error.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace vimbo {
namespace {

/// An atom that claims a payload without having it, for trees too large to build.
class ClaimedAtom final : public Atom {
public:
    explicit ClaimedAtom(std::uint64_t size) : Atom("mdat"), size_(size) {}
    std::uint64_t PayloadSize() const override { return size_; }

private:
    std::uint64_t size_;
};

/// Takes only so many bytes, like a full disk.
class FullFile final : public FileObject {
public:
    explicit FullFile(std::uint64_t room) : room_(room) {}
    bool IsOpen() const noexcept override { return isOpen; }
    bool isOpen = true;

protected:
    std::int64_t WriteAt(std::uint64_t offset, std::span<const std::byte> bytes) noexcept override
    {
        if (offset >= room_)
            return -1;
        return static_cast<std::int64_t>(std::min<std::uint64_t>(bytes.size(), room_ - offset));
    }

private:
    std::uint64_t room_;
};

std::vector<std::byte> Bytes(std::string_view text)
{
    const auto bytes = std::as_bytes(std::span(text));
    return {bytes.begin(), bytes.end()};
}

using namespace std::string_literals;

TEST(Atom, WritesHeadersPayloadsAndChildrenInOrder)
{
    Atom root("moov");
    auto& full = root.Add(std::make_unique<DataAtom>(FourCc{"mvhd"}, 6U, std::uint8_t{1}, 0xFF0000A5U));
    full.Data()[5] = std::byte{'x'};
    auto& track = root.Add(std::make_unique<Atom>(FourCc{"trak"}));
    auto& data = track.Add(std::make_unique<DataAtom>(FourCc{"name"}, 2U));
    data.Data()[0] = std::byte{'N'};
    root.Add(std::make_unique<DataAtom>(FourCc{"tiny"}, 3U, std::uint8_t{1}, 1U));

    MemoryFile file;
    ASSERT_TRUE(root.Write(file));
    // Sizes by hand: mvhd 8+6, name 8+2, trak 8+10, tiny 8+3, moov 8+14+18+11. Flags keep 24 bits; tiny has
    // no room.
    EXPECT_EQ(file.Release(), Bytes("\0\0\0\x33moov\0\0\0\x0Emvhd\x01\0\0\xA5\0x"
                                    "\0\0\0\x12trak\0\0\0\x0Aname\x4E\0\0\0\0\x0Btiny\0\0\0"s));
}

TEST(Atom, RewriteGoesToItsPlaceAndBack)
{
    Atom root("moov");
    auto& size = root.Add(std::make_unique<DataAtom>(FourCc{"stsz"}, 1U, Rewritable::Yes));
    MemoryFile file;
    EXPECT_FALSE(size.Rewrite(file)) << "never written: it has no place yet";
    ASSERT_TRUE(file.WriteAll(Bytes("ab")) && root.Write(file) && file.WriteAll(Bytes("media")));
    size.Data()[0] = std::byte{'!'};
    ASSERT_TRUE(size.Rewrite(file));
    ASSERT_TRUE(file.WriteAll(Bytes(".")));
    EXPECT_EQ(file.Release(), Bytes("ab\0\0\0\x11moov\0\0\0\x09stsz!media."s));
}

TEST(Atom, SizesSaturateInsteadOfWrapping)
{
    Atom root("moov");
    root.Add(std::make_unique<ClaimedAtom>(0xFFFFFFF0U - 16U));
    EXPECT_EQ(root.TotalSize(), 0xFFFFFFF0U);
    root.Add(std::make_unique<Atom>(FourCc{"free"}));
    EXPECT_EQ(root.TotalSize(), 0xFFFFFFF8U);
    root.Add(std::make_unique<Atom>(FourCc{"free"}));
    EXPECT_EQ(root.TotalSize(), 0xFFFFFFFFU);
    root.Add(std::make_unique<ClaimedAtom>(~std::uint64_t{0}));
    EXPECT_EQ(root.TotalSize(), 0xFFFFFFFFU);
    MemoryFile file;
    ASSERT_TRUE(root.Write(file));
    EXPECT_EQ(file.Bytes()[0], std::byte{0xFF});
    EXPECT_EQ(file.Bytes()[3], std::byte{0xFF});

    EXPECT_EQ(ClaimedAtom(~std::uint64_t{0}).TotalSize(), 0xFFFFFFFFU);
    DataAtom extra("data", 10);
    extra.SetExtraSize(0xFFFFFFFFU);
    EXPECT_EQ(extra.PayloadSize(), 0x100000009U);
    EXPECT_EQ(extra.TotalSize(), 0xFFFFFFFFU);
}

TEST(Atom, FailuresSayWhy)
{
    Atom root("moov");
    auto& data = root.Add(std::make_unique<DataAtom>(FourCc{"data"}, 4U, Rewritable::Yes));
    for (const std::uint64_t room : {0U, 7U, 8U, 15U, 16U, 19U}) {
        FullFile file(room);
        ClearLastError();
        EXPECT_FALSE(root.Write(file)) << room;
        EXPECT_EQ(LastError(), u"Couldn't write to file!") << room;
    }
    FullFile file(20);
    ASSERT_TRUE(root.Write(file));
    EXPECT_FALSE(root.Rewrite(file));
    EXPECT_EQ(LastError(), u"Invalid re-write");
    file.isOpen = false;
    EXPECT_FALSE(data.Rewrite(file));
    EXPECT_EQ(LastError(), u"File seek failed");
}

} // namespace
} // namespace vimbo
