#include "formats/wave/wave.h"

#include "base/last_error.h"
#include "model/consistency.h"
#include "wave_bytes.h"

#include <gtest/gtest.h>

namespace vimbo {
namespace {

/// Every chunk that the reader knows, in front of and behind the data.
const ByteList kSeed = Join(
    {Spell("'RF64' FFFFFFFF 'WAVE'"
           "'ds64' 1C000000 4A020000 00000000 0C000000 00000000 02000000 00000000 00000000"
           "'fmt ' 28000000 FEFF 0300 401F0000 80BB0000 0600 1000"
           "  1600 1000 07000000 0100 0000 0000 1000 800000AA00389B71"
           "'fact' 04000000 02000000"
           "'smpl' 4E000000 47000000 5E000000 48E80100 3D000000 00000080 00000000 00000000 01000000 12000000"
           "  00000000 00000000 00000000 01000000 00000000 00000000"
           "  0000 3C FE 0C 00 03 000000 00000000 01000000"
           "'wsmp' 24000000 14000000 3E00 2EFF 00000000 00000000 01000000 10000000 00000000 00000000 02000000"
           "'inst' 07000000 3C 00 06 00 7F 00 7F 00"
           "'data' FFFFFFFF 0000 0010 0020 0040 0050 0060"
           "'cue ' 34000000 02000000 01000000 00000000 'data' 00000000 00000000 01000000"
           "  02000000 00000000 'data' 00000000 00000000 00000000"
           "'LIST' 46000000 'adtl' 'labl' 0F000000 01000000 'Loop Range' 00 00"
           "  'ltxt' 14000000 01000000 01000000 'rgn ' 0000 0000 0000 0000 'labl' 06000000 02000000 'M' 00"
           "'LIST' 10000000 'INFO' 'INAM' 04000000 'Abc' 00 'atem' 00000000"
           "'mesa' 8D000000 0000 40 19180B18190A022625280000 00 01 0000 01 0A FE"),
     ByteList(16), Spell("00000000 0080 01000000"), ByteList(90), Spell("A861 E7 00")});

/// Reads, loads, and writes what was read; every outcome must be a sound one.
void Check(std::span<const std::byte> bytes)
{
    ClearLastError();
    MemoryFile file(bytes);
    Collection items;
    if (!ReadWave(items, file, 0)) {
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
        EXPECT_FALSE(wave.HasBlock());
        return;
    }
    EXPECT_EQ(samples.size(), std::size_t{wave.frames} * wave.channels);
    EXPECT_LE(samples.size(), bytes.size());
    MemoryFile written;
    FormatChoice choice{.caps = FormatBit(DataFormat::Pcm16) | kCapsMono | kCapsStereo};
    EXPECT_TRUE(WriteWave(wave, written, choice));
}

TEST(WaveDamage, TheSeedIsSound)
{
    MemoryFile file(kSeed);
    Collection items;
    ASSERT_TRUE(ReadWave(items, file, 0));
    Waveform& wave = *items.List<Waveform>().front();
    EXPECT_EQ(kSeed.size() - 8, 0x24Au);
    EXPECT_EQ(wave.GetName(), u"ONANO 2+_.00"); // mesa, the last chunk, was reached
    EXPECT_EQ(wave.markers.size(), 1u);
    EXPECT_EQ(LoadFrom(wave, file).size(), 2u); // trimmed to one stereo frame
}

TEST(WaveDamage, EveryTruncation)
{
    for (std::size_t n = 0; n <= kSeed.size(); ++n)
        Check(std::span(kSeed).first(n));
}

TEST(WaveDamage, EveryFieldAtItsExtremes)
{
    for (const std::size_t width : {1u, 2u, 4u, 8u}) {
        for (std::size_t at = 0; at + width <= kSeed.size(); ++at) {
            for (const int fill : {0x00, 0x01, 0x7F, 0x80, 0xFF}) {
                ByteList damaged = kSeed;
                std::fill_n(damaged.begin() + static_cast<std::ptrdiff_t>(at), width,
                            static_cast<std::byte>(fill));
                Check(damaged);
            }
        }
    }
}

} // namespace
} // namespace vimbo
