#include "codecs/g722.h"

#include "codecs/g72x_signals.h"

#include <limits>

#ifdef VIMBO_TEST_SPANDSP
#include <spandsp.h>
#endif

namespace vimbo {
namespace {

using namespace vimbo::testing;

constexpr std::array<unsigned, 3> kWidths = {8, 7, 6};
constexpr std::array kPackings = {BitPacking::BigEndian, BitPacking::LittleEndian};

constexpr std::size_t kRunCodes = 6000;

Pcm Decode(unsigned bits, BitPacking packing, std::span<const std::byte> bytes)
{
    G722State state;
    std::vector<float> out(bytes.size() * 8 / bits * 2);
    EXPECT_EQ(DecodeG722(state, bits, packing, bytes, out), out.size());
    return ToPcm(out);
}

Bytes Encode(unsigned bits, BitPacking packing, std::span<const float> sound)
{
    G722State state;
    Bytes out(((sound.size() + 1) / 2 * bits + 7) / 8);
    EXPECT_EQ(EncodeG722(state, bits, packing, sound, out), out.size());
    return out;
}

/// Whole codes of `bits` bits, each moved to the top of a byte of its own.
Bytes Octets(unsigned bits, BitPacking packing, std::span<const std::byte> bytes)
{
    CodeReader reader(bytes, packing);
    Bytes out(bytes.size() * 8 / bits);
    for (std::byte& octet : out)
        octet = static_cast<std::byte>(reader.Take(bits) << (8 - bits));
    return out;
}

// Sounds and hashes are those of ffmpeg 5.1; spandsp 0.0.6 gives the same but for the last limit. Longer runs
// part us: neither limits each single sum of block FILTEZ.
TEST(G722, DecodesAnyCodesBitByBit)
{
    Random random(7);
    const Bytes bytes = RandomBytes(random, 840);
    struct Case {
        unsigned bits;
        Pcm start;
        std::uint64_t noise, runs; ///< hashes of 400 samples of noise, of all samples of long runs
    };
    const std::vector<Case> cases = {
        {8,
         {0, 0, 0, -1, -1, 0, 0, -2, -1, 2, 0, -9, 8, 18, 14, -3, -5, 13, 8, -36},
         0x9FB3FEE997BBEA86,
         0x401391408037343A},
        {7,
         {0, 0, 0, -1, -1, 0, -1, -1, 0, 1, -1, -5, 5, 19, 30, 33, 25, -9, -21, -11},
         0x17811537E9B116A2,
         0x998F880B33A1C1CF},
        {6,
         {0, -1, -1, 0, 0, -1, -1, 0, -1, -2, 1, 6, -1, -12, -15, -4, 4, -14, -11, 7},
         0x21F63372DECC0E0C,
         0x057420823D246330},
    };
    for (const Case& known : cases) {
        Pcm sound = Decode(known.bits, BitPacking::LittleEndian, bytes);
        sound.resize(400);
        EXPECT_EQ(HashOf(sound), known.noise) << known.bits;
        sound.resize(known.start.size());
        EXPECT_EQ(sound, known.start) << known.bits;

        const Bytes runs = LongRuns(known.bits, BitPacking::LittleEndian, kRunCodes);
        EXPECT_EQ(HashOf(Decode(known.bits, BitPacking::LittleEndian, runs)), known.runs) << known.bits;
    }
}

// Hashes are spandsp's. Shorter codes are the longest ones without their last bits.
TEST(G722, EncodesBitByBitInEachWidthAndPacking)
{
    const auto sound = ToFloats(Warble(16000));
    constexpr std::array<std::uint64_t, 3> kHashes = {0x5D5AA462BDD59CFD, 0xA80FF23B0801FF87,
                                                      0x74430EFCE7162620};
    const Bytes full = Encode(8, BitPacking::BigEndian, sound);
    for (std::size_t i = 0; i < kWidths.size(); ++i) {
        const unsigned bits = kWidths[i];
        EXPECT_EQ(HashOf(Encode(bits, BitPacking::LittleEndian, sound)), kHashes[i]) << bits;
        for (const BitPacking packing : kPackings) {
            Bytes shortened = full;
            for (std::byte& octet : shortened)
                octet &= static_cast<std::byte>(0xFF << (8 - bits));
            EXPECT_EQ(Octets(bits, packing, Encode(bits, packing, sound)), shortened) << bits;
        }
    }
}

TEST(G722, StaysCloseToTheSound)
{
    constexpr std::size_t kDelay = 22; // the two filters together
    const auto check = [](const Pcm& sound, std::array<double, 3> leastDb) {
        for (std::size_t i = 0; i < kWidths.size(); ++i) {
            const Bytes codes = Encode(kWidths[i], BitPacking::BigEndian, ToFloats(sound));
            Pcm decoded = Decode(kWidths[i], BitPacking::BigEndian, codes);
            decoded.erase(decoded.begin(), decoded.begin() + kDelay);
            const Pcm compared(sound.begin(), sound.end() - kDelay);
            EXPECT_GT(SnrDb(compared, decoded), leastDb[i]) << kWidths[i];
        }
    };
    check(SpeechLike(32000), {27.0, 26.5, 25.0});
    check(MusicLike(32000), {25.0, 25.0, 24.0});
}

TEST(G722, PiecesGiveWhatTheWholeGives)
{
    const auto sound = ToFloats(Warble(4001));
    for (const unsigned bits : kWidths)
        for (const BitPacking packing : kPackings) {
            const Bytes whole = Encode(bits, packing, sound);
            G722State encoder, decoder;
            Bytes bytes(whole.size());
            std::size_t written = 0;
            for (std::size_t at = 0, size = 16; at < sound.size(); at += size, size = size % 400 + 48) {
                const auto piece = std::span(sound).subspan(at, std::min(size, sound.size() - at));
                written += EncodeG722(encoder, bits, packing, piece, std::span(bytes).subspan(written));
            }
            EXPECT_EQ(written, bytes.size());
            EXPECT_EQ(bytes, whole);

            const Pcm expected = Decode(bits, packing, whole);
            std::vector<float> out(expected.size(), 9.0f);
            std::size_t read = 0;
            for (std::size_t at = 0, size = bits; at < whole.size();
                 at += size, size = size % 200 + 3 * bits) {
                size -= size % bits;
                const auto piece = std::span(whole).subspan(at, std::min(size, whole.size() - at));
                read += DecodeG722(decoder, bits, packing, piece, std::span(out).subspan(read));
            }
            EXPECT_EQ(read, out.size());
            EXPECT_EQ(ToPcm(out), expected);
        }
}

TEST(G722, KeepsInsideItsSpans)
{
    const Bytes bytes = Encode(8, BitPacking::BigEndian, ToFloats(Warble(300)));
    const Pcm whole = Decode(8, BitPacking::BigEndian, bytes);
    for (const std::size_t room : {0u, 1u, 2u, 127u, 128u, 129u, 299u, 300u, 400u}) {
        std::vector<float> out(room, 9.0f);
        G722State state;
        const std::size_t wanted = std::min<std::size_t>(room, 300);
        ASSERT_EQ(DecodeG722(state, 8, BitPacking::BigEndian, bytes, out), wanted);
        EXPECT_TRUE(std::all_of(out.begin() + static_cast<std::ptrdiff_t>(wanted), out.end(),
                                [](float sample) { return sample == 9.0f; }));
        out.resize(wanted);
        EXPECT_EQ(ToPcm(out), Pcm(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(wanted)));
    }
    std::array<float, 40> out{};
    std::array<std::byte, 20> codes{};
    for (const unsigned bits : {0u, 5u, 9u}) {
        G722State state;
        EXPECT_EQ(DecodeG722(state, bits, BitPacking::BigEndian, bytes, out), 0u);
        EXPECT_EQ(EncodeG722(state, bits, BitPacking::BigEndian, out, codes), 0u);
    }
    G722State state; // 6 bytes hold 6 codes of 7 bits, and not a seventh
    EXPECT_EQ(DecodeG722(state, 7, BitPacking::BigEndian, std::span(bytes).first(6), out), 12u);
    EXPECT_EQ(EncodeG722(state, 7, BitPacking::BigEndian, out, std::span(codes).first(6)), 6u);

    // What is no sample is limited, or silence.
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    const std::array<float, 5> wild = {kInfinity, -kInfinity, std::numeric_limits<float>::quiet_NaN(), 1.0f,
                                       -5.0f};
    const Pcm tame = {32767, -32768, 0, 32767, -32768, 0};
    EXPECT_EQ(Encode(8, BitPacking::BigEndian, wild), Encode(8, BitPacking::BigEndian, ToFloats(tame)));
}

// Steady differences drive the coefficients to both ends of 16 bits, which no sound does.
TEST(G722, VectorZeroSectionIsThePlainOne)
{
    Random random(5);
    G722ZerosPlain plain{{}};
    G722ZerosBest best{{}};
    int highest = 0, lowest = 0;
    for (int k = 0; k < 60000; ++k) {
        const int size = k / 1000 % 3 == 0 ? 16383 : 700;
        const int noise = static_cast<int>(random.Below(2 * static_cast<unsigned>(size) + 1)) - size;
        const int steady = k / 10000 % 3 == 0 ? size : k / 10000 % 3 == 1 ? -size : noise;
        const int alternating = k % 2 == 0 ? steady : -steady;
        const int difference = k / 30000 == 0 ? steady : alternating;
        const int estimate = plain.Move(difference);
        ASSERT_EQ(best.Move(difference), estimate) << k;
        highest = std::max(highest, int{plain.State().coefficients[0]});
        lowest = std::min(lowest, int{plain.State().coefficients[0]});
    }
    EXPECT_EQ(highest, 32513); // where 255 / 256, rounded down, takes 128 away
    EXPECT_EQ(lowest, -32768);
    for (std::size_t i = 0; i < 6; ++i) {
        EXPECT_EQ(best.State().coefficients[i], plain.State().coefficients[i]);
        EXPECT_EQ(best.State().differences[i], plain.State().differences[i]);
    }
}

TEST(G722, FfmpegAgrees)
{
    NEED_PROGRAM("ffmpeg");
    Random random(3);
    const Bytes noise = RandomBytes(random, 4200);
    for (const unsigned bits : kWidths)
        for (const Bytes& codes : {noise, LongRuns(bits, BitPacking::BigEndian, kRunCodes),
                                   Encode(bits, BitPacking::BigEndian, ToFloats(MusicLike(16000)))}) {
            const std::string command = "ffmpeg -v error -f g722 -bits_per_codeword " + std::to_string(bits);
            const Bytes octets = Octets(bits, BitPacking::BigEndian, codes);
            const Bytes sound = RunOnFile(command + " -i {in} -f s16le {out}", "in.g722", octets, "out.raw");
            EXPECT_EQ(ToPcm(sound), Decode(bits, BitPacking::BigEndian, codes)) << bits;
        }
    const Pcm sound = SpeechLike(16000);
    const std::string encode = "ffmpeg -v error -f s16le -ar 16000 -ac 1 -i {in} -c:a g722 -f g722 {out}";
    EXPECT_EQ(RunOnFile(encode, "in.raw", ToBytes(sound), "out.g722"),
              Encode(8, BitPacking::BigEndian, ToFloats(sound)));
}

TEST(G722, SpandspAgrees)
{
#ifdef VIMBO_TEST_SPANDSP
    const std::array<int, 3> rates = {64000, 56000, 48000};
    Random random(4);
    for (std::size_t i = 0; i < kWidths.size(); ++i)
        for (const Pcm& sound : {SpeechLike(16000), MusicLike(16000), NoiseOf(16000, 9000)}) {
            const int options = kWidths[i] < 8 ? G722_PACKED : 0;
            auto* encoder = g722_encode_init(nullptr, rates[i], options);
            Bytes codes(sound.size());
            codes.resize(
                static_cast<std::size_t>(g722_encode(encoder, reinterpret_cast<std::uint8_t*>(codes.data()),
                                                     sound.data(), static_cast<int>(sound.size()))));
            g722_encode_free(encoder);
            EXPECT_EQ(Encode(kWidths[i], BitPacking::LittleEndian, ToFloats(sound)), codes);

            const Bytes noise = RandomBytes(random, codes.size());
            for (const Bytes& stream : {codes, noise}) {
                auto* decoder = g722_decode_init(nullptr, rates[i], options);
                Pcm decoded(2 * sound.size());
                decoded.resize(static_cast<std::size_t>(
                    g722_decode(decoder, decoded.data(), reinterpret_cast<const std::uint8_t*>(stream.data()),
                                static_cast<int>(stream.size()))));
                g722_decode_free(decoder);
                const Pcm ours = Decode(kWidths[i], BitPacking::LittleEndian, stream);
                ASSERT_GE(decoded.size() + 2, ours.size()); // it leaves the last packed code undone
                ASSERT_LE(decoded.size(), ours.size());
                // It wraps where the output must be limited.
                for (std::size_t k = 0; k < decoded.size(); ++k)
                    ASSERT_TRUE(ours[k] == decoded[k] || ours[k] == 32767 || ours[k] == -32768) << kWidths[i];
            }
        }
#else
    GTEST_SKIP() << "libspandsp was not found";
#endif
}

} // namespace
} // namespace vimbo
