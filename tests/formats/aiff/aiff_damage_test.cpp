#include "formats/aiff/aiff_bytes.h"
#include "model/consistency.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace vimbo {
namespace {

const ByteList kId3 =
    Spell("'ID3' 0400 00 0000001C 'TIT2' 00000004 0000 03 'Abc' 'APIC' 00000004 0000 00000000");

ByteList Seed(std::string_view type, const ByteList& head, std::string_view dataId)
{
    return IffImage(type,
                    {head, IffChunk("MARK", Spell("0002 0001 00000001 01 'a' 0002 00000002 01 'b'")),
                     IffChunk("INST", Spell("3C00 007F 007F 0000 0001 0001 0002 0001 0001 0002")),
                     IffChunk("NAME", Spell("'N'")), IffChunk("ANNO", Spell("'A'")), IffChunk("ID3 ", kId3),
                     IffChunk(dataId, Join({ByteList(8), ByteList(68, std::byte{0x31})}))});
}

const std::vector<ByteList> kSeeds = {
    Seed("AIFF", Comm(2, 3, 16), "SSND"),
    Seed("AIFC", Comm(2, 1, 16, "ima4"), "SSND"),
    Seed("AIFC", Comm(1, 70, 3, "G723"), "SSND"),
    Seed("AIFC", Comm(2, 10, 8, "MAC3"), "SSND"),
    Seed("AIFC", Comm(1, 200, 0, "GSM "), "SSND"),
    Seed("MAUD", IffChunk("MHDR", Spell("00000003 0010 0010 0000AC43 0002 0001 0002 0000")), "MDAT"),
};

/// Reads, loads, and writes what was read; every outcome must be a sound one.
void Check(std::span<const std::byte> bytes)
{
    ClearLastError();
    MemoryFile file(bytes);
    Collection items;
    if (!ReadAiff(items, file, 0)) {
        EXPECT_FALSE(LastError().empty());
        EXPECT_EQ(items.CountOf(ItemKind::Waveform), 0u);
        return;
    }
    EXPECT_TRUE(IsConsistent(items));
    Waveform& wave = *items.List<Waveform>().front();
    ClearLastError();
    const std::vector<float> samples = LoadFrom(wave, file);
    if (samples.empty()) {
        EXPECT_FALSE(LastError().empty());
        return;
    }
    EXPECT_EQ(samples.size(), std::size_t{wave.frames} * wave.channels);
    EXPECT_LE(samples.size(), bytes.size() * kMacePacketFrames);
    MemoryFile written;
    FormatChoice choice{.caps = FormatBit(DataFormat::Pcm16) | kCapsMono | kCapsStereo};
    EXPECT_TRUE(WriteAiff(wave, written, choice));
}

TEST(AiffDamage, TheSeedsAreSound)
{
    for (const ByteList& seed : kSeeds) {
        OpenedAiff opened(seed);
        ASSERT_TRUE(opened.isRead) << WideToUtf8(LastError());
        EXPECT_FALSE(opened.Samples().empty());
        EXPECT_EQ(opened.wave->loop.type, LoopType::Forward);
    }
}

TEST(AiffDamage, EveryTruncation)
{
    for (const ByteList& seed : kSeeds) {
        for (std::size_t n = 0; n <= seed.size(); ++n)
            Check(std::span(seed).first(n));
    }
}

TEST(AiffDamage, EveryFieldAtItsExtremes)
{
    for (const ByteList& seed : kSeeds) {
        for (const std::size_t width : {1u, 2u, 4u, 8u}) {
            for (std::size_t at = 0; at + width <= seed.size(); ++at) {
                for (const int fill : {0x00, 0x01, 0x7F, 0x80, 0xFF}) {
                    ByteList damaged = seed;
                    std::fill_n(damaged.begin() + static_cast<std::ptrdiff_t>(at), width,
                                static_cast<std::byte>(fill));
                    Check(damaged);
                }
            }
        }
    }
}

} // namespace
} // namespace vimbo
