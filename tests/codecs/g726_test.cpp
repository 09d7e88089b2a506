#include "codecs/g726.h"

#include "codecs/g72x_signals.h"

#include <limits>

#ifdef VIMBO_TEST_SPANDSP
#include <spandsp.h>
#endif

namespace vimbo {
namespace {

using namespace vimbo::testing;

constexpr std::array<unsigned, 4> kWidths = {2, 3, 4, 5};
constexpr std::array kPackings = {BitPacking::BigEndian, BitPacking::LittleEndian};

Pcm Decode(unsigned bits, BitPacking packing, std::span<const std::byte> bytes)
{
    G726State state;
    std::vector<float> out(bytes.size() * 8 / bits);
    EXPECT_EQ(DecodeG726(state, bits, packing, bytes, out), out.size());
    return ToPcm(out);
}

Bytes Encode(unsigned bits, BitPacking packing, std::span<const float> sound)
{
    G726State state;
    Bytes out((sound.size() * bits + 7) / 8);
    EXPECT_EQ(EncodeG726(state, bits, packing, sound, out), out.size());
    return out;
}

Bytes Repacked(unsigned bits, std::span<const std::byte> bigEndian)
{
    CodeReader reader(bigEndian, BitPacking::BigEndian);
    Bytes out(bigEndian.size());
    CodeWriter writer(out, BitPacking::LittleEndian);
    for (std::size_t codes = bigEndian.size() * 8 / bits; codes > 0; --codes)
        writer.Put(reader.Take(bits), bits);
    writer.Finish();
    return out;
}

Pcm Halved(Pcm sound)
{
    for (std::int16_t& sample : sound)
        sample = static_cast<std::int16_t>(sample / 2);
    return sound;
}

// Numbers are spandsp's (0.0.6), those of the long runs but for the output's limit.
TEST(G726, CodesBitByBitInEachWidthAndPacking)
{
    struct Case {
        unsigned bits;
        std::uint64_t codes, sound, runs; ///< hashes
        Pcm start;                        ///< what `kFew` decodes to
    };
    const std::vector<Case> cases = {
        {2,
         0x88034BCCAF81ED07,
         0x2CDAEB46F9CF01AA,
         0x99217D2EE5DB73E1,
         {12, -12, -12, 60, -20, -68, -96, 124, -176, 236, -100, 92, -92}},
        {3,
         0xCF3A786846CDC4EF,
         0x64FD0BE1738A4682,
         0xF1C26C0D3B20DFB8,
         {16, 0, 60, -24, -72, -28, 92, -140, 0, 180, 200, 0, -92}},
        {4,
         0xD2A064F7C5D60597,
         0x8A6AB8B79861ED07,
         0x81D66DE06E7F3F65,
         {24, -16, -8, -60, -80, -44, -12, -20, 0, -28, -20, -44, 60}},
        {5,
         0xED8AED477F52CB02,
         0xA86D8D3BE711AEC6,
         0x6628B827CB8112C1,
         {48, -60, -108, -44, -40, -24, 60, 148, -20, 220, 424, 16, -148}},
    };
    const Bytes few = MakeBytes({0x3D, 0xE9, 0x9C, 0xED, 0x0C, 0xDB, 0x5C, 0x0D, 0x11});
    const auto sound = ToFloats(Warble(16000));
    for (const auto& [bits, codesHash, soundHash, runsHash, start] : cases) {
        const Bytes codes = Encode(bits, BitPacking::BigEndian, sound);
        EXPECT_EQ(HashOf(codes), codesHash) << bits;
        EXPECT_EQ(HashOf(Decode(bits, BitPacking::BigEndian, codes)), soundHash) << bits;
        Pcm first = Decode(bits, BitPacking::BigEndian, few);
        first.resize(start.size());
        EXPECT_EQ(first, start) << bits;
        const Bytes runs = LongRuns(bits, BitPacking::BigEndian, 16000);
        EXPECT_EQ(HashOf(Decode(bits, BitPacking::BigEndian, runs)), runsHash) << bits;

        const Bytes other = Repacked(bits, codes);
        EXPECT_EQ(Encode(bits, BitPacking::LittleEndian, sound), other) << bits;
        EXPECT_EQ(HashOf(Decode(bits, BitPacking::LittleEndian, other)), soundHash) << bits;
    }
}

// Attacks out of silence make most of the error, and the longest codes follow them slowest.
TEST(G726, StaysCloseToTheSound)
{
    const auto check = [](const Pcm& sound, std::array<double, 4> leastDb) {
        for (std::size_t i = 0; i < kWidths.size(); ++i) {
            const Bytes codes = Encode(kWidths[i], BitPacking::BigEndian, ToFloats(sound));
            EXPECT_GT(SnrDb(sound, Decode(kWidths[i], BitPacking::BigEndian, codes)), leastDb[i])
                << kWidths[i];
        }
    };
    check(SpeechLike(32000), {19.0, 25.0, 22.0, 17.5});
    check(MusicLike(32000), {19.5, 19.0, 23.0, 20.0});
}

TEST(G726, PiecesGiveWhatTheWholeGives)
{
    const auto sound = ToFloats(Warble(2003));
    for (const unsigned bits : kWidths)
        for (const BitPacking packing : kPackings) {
            const Bytes whole = Encode(bits, packing, sound);
            G726State encoder, decoder;
            Bytes bytes(whole.size());
            std::size_t written = 0;
            for (std::size_t at = 0, size = 8; at < sound.size(); at += size, size = size % 304 + 40) {
                const auto piece = std::span(sound).subspan(at, std::min(size, sound.size() - at));
                written += EncodeG726(encoder, bits, packing, piece, std::span(bytes).subspan(written));
            }
            EXPECT_EQ(bytes, whole);

            const Pcm expected = Decode(bits, packing, whole);
            std::vector<float> out(expected.size(), 9.0f);
            std::size_t read = 0;
            for (std::size_t at = 0, codes = 8; at < whole.size();
                 at += codes / 8 * bits, codes = codes % 256 + 24) {
                const std::size_t size = std::min(codes / 8 * bits, whole.size() - at);
                read += DecodeG726(decoder, bits, packing, std::span(whole).subspan(at, size),
                                   std::span(out).subspan(read));
            }
            EXPECT_EQ(read, out.size());
            EXPECT_EQ(ToPcm(out), expected);
        }
}

TEST(G726, KeepsInsideItsSpansAndItsRange)
{
    std::array<float, 40> out;
    std::array<std::byte, 9> codes{};
    for (const unsigned bits : {0u, 1u, 6u, 8u}) {
        G726State state;
        EXPECT_EQ(DecodeG726(state, bits, BitPacking::BigEndian, codes, out), 0u);
        EXPECT_EQ(EncodeG726(state, bits, BitPacking::BigEndian, out, codes), 0u);
    }
    out.fill(9.0f);
    G726State state; // 9 bytes hold 14 codes of 5 bits
    EXPECT_EQ(DecodeG726(state, 5, BitPacking::BigEndian, codes, std::span(out).first(7)), 7u);
    EXPECT_EQ(out[7], 9.0f);
    EXPECT_EQ(DecodeG726(state, 5, BitPacking::BigEndian, codes, out), 14u);
    EXPECT_EQ(out[14], 9.0f);
    out.fill(0.0f);
    EXPECT_EQ(EncodeG726(state, 5, BitPacking::BigEndian, out, codes), 9u);

    // Codes of the largest magnitude drive the output to its ends, where 14 bits end it.
    for (const unsigned bits : kWidths) {
        Bytes loud(40 * bits);
        CodeWriter writer(loud, BitPacking::BigEndian);
        const unsigned largest = (1u << (bits - 1)) - 1;
        for (int k = 0; k < 320; ++k)
            writer.Put(k < 160 ? largest : largest + 1, bits);
        const Pcm sound = Decode(bits, BitPacking::BigEndian, loud);
        EXPECT_EQ(*std::max_element(sound.begin(), sound.end()), 32764) << bits;
        EXPECT_EQ(*std::min_element(sound.begin(), sound.end()), -32768) << bits;
    }
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    const std::array<float, 4> wild = {kInfinity, -kInfinity, std::numeric_limits<float>::quiet_NaN(), 1.0f};
    EXPECT_EQ(Encode(4, BitPacking::BigEndian, wild),
              Encode(4, BitPacking::BigEndian, ToFloats({32767, -32768, 0, 32767})));
}

TEST(G726, ManyCodesAtOnceAreSingleCodes)
{
    Random random(11);
    const Bytes bytes = RandomBytes(random, 50);
    const auto check = [&]<unsigned Bits>(std::integral_constant<unsigned, Bits>) {
        const auto compare = [&]<BitPacking Packing>(std::integral_constant<BitPacking, Packing>) {
            std::array<std::uint8_t, 70> codes;
            SplitCodes<Bits, Packing>(bytes, codes);
            CodeReader reader(bytes, Packing);
            for (const std::uint8_t code : codes)
                ASSERT_EQ(code, reader.Take(Bits)) << Bits;
        };
        compare(std::integral_constant<BitPacking, BitPacking::BigEndian>{});
        compare(std::integral_constant<BitPacking, BitPacking::LittleEndian>{});
    };
    [&]<unsigned... Bits>(std::integer_sequence<unsigned, Bits...>)
    {
        (check(std::integral_constant<unsigned, Bits + 1>{}), ...);
    }
    (std::make_integer_sequence<unsigned, 8>{});
}

// ffmpeg 5.1 keeps a fraction of the scale factor that block MIX drops, so that its sound strays by a few
// steps. With 5 bits its coefficients leak twice too fast as well, and only its own streams come out right.
TEST(G726, FfmpegDecodesAlmostTheSame)
{
    NEED_PROGRAM("ffmpeg");
    const Pcm sound = Halved(SpeechLike(16000));
    for (const auto& [bits, leastDb] : {std::pair{2u, 25.0}, std::pair{3u, 30.0}, std::pair{4u, 40.0}})
        for (const BitPacking packing : kPackings) {
            const std::string format = packing == BitPacking::BigEndian ? "g726" : "g726le";
            const std::string command = "ffmpeg -v error -f " + format + " -code_size " +
                                        std::to_string(bits) + " -i {in} -f s16le {out}";
            const Bytes codes = Encode(bits, packing, ToFloats(sound));
            const Pcm theirs = ToPcm(RunOnFile(command, "in.g726", codes, "out.raw"));
            EXPECT_GT(SnrDb(Decode(bits, packing, codes), theirs), leastDb) << bits;
        }
}

// As "Sun audio", in which 3 and 4-bit codes lie little-endian. With 5 bits sox multiplies zero coefficients
// otherwise.
TEST(G726, SoxDecodesTheSame)
{
    NEED_PROGRAM("sox");
    for (const Pcm& sound : {Halved(SpeechLike(24000)), Halved(MusicLike(24000)), NoiseOf(24000, 3000)})
        for (const auto& [bits, encoding] : {std::pair{3u, 25u}, std::pair{4u, 23u}}) {
            const Bytes codes = Encode(bits, BitPacking::LittleEndian, ToFloats(sound));
            FileMaker file(std::endian::big);
            file.Tag(".snd")
                .Put(28, 4)
                .Put(codes.size(), 4)
                .Put(encoding, 4)
                .Put(8000, 4)
                .Put(1, 4)
                .Put(0, 4);
            file.Add(codes);
            EXPECT_EQ(SoxDecoded("in.au", file.Get()), Decode(bits, BitPacking::LittleEndian, codes)) << bits;
        }
}

TEST(G726, SpandspAgrees)
{
#ifdef VIMBO_TEST_SPANDSP
    Random random(4);
    for (const unsigned bits : kWidths)
        for (const BitPacking packing : kPackings)
            for (const Pcm& sound : {SpeechLike(16000), MusicLike(16000), NoiseOf(16000, 30000)}) {
                const int order = packing == BitPacking::BigEndian ? G726_PACKING_LEFT : G726_PACKING_RIGHT;
                const int rate = static_cast<int>(bits) * 8000;
                auto* encoder = g726_init(nullptr, rate, G726_ENCODING_LINEAR, order);
                Bytes codes(sound.size());
                codes.resize(static_cast<std::size_t>(
                    g726_encode(encoder, reinterpret_cast<std::uint8_t*>(codes.data()), sound.data(),
                                static_cast<int>(sound.size()))));
                g726_free(encoder);
                EXPECT_EQ(Encode(bits, packing, ToFloats(sound)), codes);

                const Bytes noise = RandomBytes(random, codes.size());
                for (const Bytes& stream : {codes, noise, LongRuns(bits, packing, 16000)}) {
                    auto* decoder = g726_init(nullptr, rate, G726_ENCODING_LINEAR, order);
                    Pcm decoded(4 * stream.size());
                    decoded.resize(static_cast<std::size_t>(g726_decode(
                        decoder, decoded.data(), reinterpret_cast<const std::uint8_t*>(stream.data()),
                        static_cast<int>(stream.size()))));
                    g726_free(decoder);
                    const Pcm ours = Decode(bits, packing, stream);
                    ASSERT_EQ(ours.size(), decoded.size());
                    // It wraps where the output must be limited.
                    for (std::size_t k = 0; k < ours.size(); ++k)
                        ASSERT_TRUE(ours[k] == decoded[k] || ours[k] == 32764 || ours[k] == -32768) << bits;
                }
            }
#else
    GTEST_SKIP() << "libspandsp was not found";
#endif
}

} // namespace
} // namespace vimbo
