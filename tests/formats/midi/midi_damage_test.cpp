// Damaged songs of all formats: every truncation, and every byte at its extremes.
#include "formats/midi/midi.h"
#include "midi_bytes.h"
#include "model/consistency.h"

#include <gtest/gtest.h>

namespace vimbo {
namespace {

using namespace testing;

Bytes Written(Collection& items, WriteFn write)
{
    MemoryFile file;
    FormatChoice choice;
    EXPECT_TRUE(write(items, file, choice));
    return file.Release();
}

void Check(std::span<const std::byte> bytes, ReadFn read, DetectFn detect)
{
    const Opened opened(bytes, read);
    EXPECT_TRUE(IsConsistent(opened.items));
    EXPECT_EQ(opened.isRead, opened.items.CountOf(ItemKind::Song) != 0);
    EXPECT_LE(opened.items.ItemCount(), 5u);
    if (opened.isRead && read != ReadSmf) { // which finds headers further on
        EXPECT_EQ(detect(bytes, 0, bytes.size()), 6);
    }
}

TEST(MidiDamage, FilesFailCleanlyOrGiveWhatIsSound)
{
    const Bytes good = MakeSmf(2, {Block({0, 0xFF, 0, 2, 0, 0}), Block({0, 0x93, 60, 99, 96, 60, 0}),
                                   Block({0, 0xF0, 2, 1, 0xF7, 5, 0xC0, 1})});
    Opened opened(good, ReadSmf);
    opened.At().SetText(kTextComments, u"text");
    const std::tuple<Bytes, ReadFn, DetectFn> kFiles[] = {
        {good, ReadSmf, DetectSmf},
        {Written(opened.items, WriteRmi), ReadRmi, DetectRmi},
        {Written(opened.items, WriteXmi), ReadXmi, DetectXmi},
    };
    for (const auto& [bytes, read, detect] : kFiles) {
        for (std::size_t n = 0; n <= bytes.size(); ++n)
            Check(std::span(bytes).first(n), read, detect);
        for (std::size_t at = 0; at < bytes.size(); ++at)
            for (const int fill : {0x00, 0x01, 0x7F, 0x80, 0xFF}) {
                Bytes bad = bytes;
                bad[at] = static_cast<std::byte>(fill);
                Check(bad, read, detect);
            }
    }
}

} // namespace
} // namespace vimbo
