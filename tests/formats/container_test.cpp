#include "formats/container/zip.h"

#include <gtest/gtest.h>

namespace vimbo {
namespace {

TEST(ZipArchive, OnlyItsThreeSignaturesAreDetected)
{
    const auto score = [](std::string_view head) {
        return DetectZip(std::as_bytes(std::span(head.data(), head.size())), 0, head.size());
    };
    EXPECT_EQ(score("PK\x03\x04rest"), 6);
    EXPECT_EQ(score("PK\x05\x06"), 6);
    EXPECT_EQ(score("PK\x07\x08"), 6);
    EXPECT_EQ(score("PK\x01\x02"), 0) << "a directory entry does not begin an archive";
    EXPECT_EQ(score("PK\x03"), 0);
    EXPECT_EQ(score("\x04\x03KP"), 0);
}

class DesktopHost final : public Host {
public:
    explicit DesktopHost(bool canOpen) : canOpen_(canOpen) {}
    bool OpenExternally(std::u16string_view path) override
    {
        opened = path;
        return canOpen_;
    }
    void ShowMessage(std::u16string_view text, std::u16string_view, MessageIcon) override { message = text; }
    std::u16string opened;
    std::u16string message;

private:
    bool canOpen_;
};

TEST(ZipArchive, GoesToTheDesktopAndLoadsNothing)
{
    for (bool canOpen : {true, false}) {
        DesktopHost host(canOpen);
        Collection collection;
        collection.SetHost(host);
        MemoryFile file(std::as_bytes(std::span("PK\x03\x04")), u"/disk/bank.zip");
        EXPECT_TRUE(ReadZip(collection, file, 0));
        EXPECT_EQ(host.opened, u"/disk/bank.zip");
        EXPECT_EQ(host.message, canOpen ? u"" : u"Could not open the archive with another program");
        EXPECT_EQ(collection.CountOf(ItemKind::Waveform), 0u);
    }
}

} // namespace
} // namespace vimbo
