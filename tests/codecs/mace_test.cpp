// MACE against the output of ffmpeg's decoder for the same bytes, and against itself in pieces.
#include "codecs/mace.h"

#include "codecs/adpcm_witness.h"

namespace vimbo {
namespace {

using namespace vimbo::testing;

constexpr std::size_t kRounds = 3000;

/// Every code in every state: the upper bytes of a linear congruential generator.
Bytes NoiseBytes(std::size_t count)
{
    Bytes bytes(count);
    std::uint32_t seed = 1;
    for (std::byte& byte : bytes) {
        seed = seed * 1664525u + 1013904223u;
        byte = static_cast<std::byte>(seed >> 24);
    }
    return bytes;
}

Pcm Decode(MaceRatio ratio, unsigned channels, std::span<const std::byte> in, std::size_t pieceBytes)
{
    std::vector<MaceState> states(channels);
    Pcm all;
    while (!in.empty()) {
        const auto piece = in.first(std::min(in.size(), pieceBytes));
        std::vector<float> out(piece.size() * kMacePacketFrames + 1);
        out.resize(DecodeMace(states, ratio, piece, out) * channels);
        const Pcm decoded = ToPcm(out);
        all.insert(all.end(), decoded.begin(), decoded.end());
        in = in.subspan(piece.size());
    }
    return all;
}

struct Known {
    MaceRatio ratio;
    unsigned channels;
    std::array<int, 12> start;  ///< 8-bit samples
    std::array<int, 12> middle; ///< from sample 600
    std::array<int, 6> end;
    std::uint64_t hash; ///< FNV-1a over all of them
};

constexpr Known kKnown[] = {
    {MaceRatio::Three,
     1,
     {-2, -2, -1, -2, -2, -1, 0, 1, -2, -6, -10, -15},
     {11, 9, 10, 8, 6, 6, 5, 5, 39, -94, -83, -38},
     {22, 8, -42, -115, -125, -72},
     0xead61aa5b7c2b05f},
    {MaceRatio::Three,
     2,
     {-2, 0, -2, 0, -1, -1, -2, -3, -2, -6, -1, -9},
     {-24, -2, -21, -1, 109, 0, 95, -3, 83, -4, 107, -3},
     {5, 7, -1, 10, -2, 15},
     0xa1dbb8dce5e75950},
    {MaceRatio::Six,
     1,
     {0, 0, 0, 0, -1, -1, -1, -1, 0, 0, 0, -1},
     {-32, -33, -33, -33, -34, -34, -34, -34, -34, -33, -32, -32},
     {102, 112, 114, 110, 89, 52},
     0x49c09131437d73b7},
    {MaceRatio::Six,
     2,
     {0, 0, 0, 0, 0, 0, 0, 0, -1, 0, -1, -1},
     {0, 91, 0, 98, -1, 108, -2, 121, -3, 124, -3, 118},
     {15, 44, 13, 42, 39, 37},
     0x6ac01ec9a50500cb},
};

TEST(Mace, DecodesAsOtherDecodersDo)
{
    for (const Known& known : kKnown) {
        const std::size_t roundBytes = MacePacketBytes(known.ratio) * known.channels;
        SCOPED_TRACE(roundBytes);
        const Bytes bytes = NoiseBytes(roundBytes * kRounds);
        const Pcm whole = Decode(known.ratio, known.channels, bytes, bytes.size());
        ASSERT_EQ(whole.size(), kRounds * kMacePacketFrames * known.channels);
        std::uint64_t hash = 0xcbf29ce484222325;
        for (const std::int16_t sample : whole) {
            const int top = sample >> 8;
            ASSERT_EQ(sample & 0xFF, top & 0xFF); // the 8-bit sample in both bytes
            hash = (hash ^ static_cast<unsigned>(top & 0xFF)) * 0x100000001b3;
        }
        const auto expect = [&whole](std::span<const int> wanted, std::size_t at) {
            for (std::size_t i = 0; i < wanted.size(); ++i)
                EXPECT_EQ(whole[at + i] >> 8, wanted[i]) << at + i;
        };
        expect(known.start, 0);
        expect(known.middle, 600);
        expect(known.end, whole.size() - known.end.size());
        EXPECT_EQ(hash, known.hash);
        EXPECT_EQ(Decode(known.ratio, known.channels, bytes, roundBytes * 7), whole);
    }
}

TEST(Mace, WritesWholeRoundsOnly)
{
    std::array<MaceState, 2> states;
    std::vector<float> out(25, 7.0f);
    EXPECT_EQ(DecodeMace(states, MaceRatio::Three, NoiseBytes(7), out), 6u); // one round and three bytes
    EXPECT_EQ(out[12], 7.0f);
    EXPECT_EQ(DecodeMace(states, MaceRatio::Six, NoiseBytes(8), std::span(out).first(23)), 6u);
    EXPECT_EQ(out[12], 7.0f);
    EXPECT_EQ(DecodeMace(states, MaceRatio::Six, NoiseBytes(1), out), 0u);
}

} // namespace
} // namespace vimbo
