#include "dsp/kernels/g711.h"
#include "dsp/kernels/sample_convert.h"
#include "test_files.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <vector>

namespace vimbo {
namespace {

using testing::Bytes;
using testing::MakeBytes;
constexpr std::endian kLittle = std::endian::little;
constexpr std::endian kBig = std::endian::big;
constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

std::vector<float> Decoded(const SampleLayout& layout, std::span<const std::byte> bytes, std::size_t samples)
{
    std::vector<float> out(samples, 99.0f);
    DeltaState state;
    DecodeSamples(layout, bytes, out, state);
    return out;
}

Bytes Encoded(const SampleLayout& layout, std::span<const float> samples)
{
    Bytes bytes(StoredBytes(layout.coding, samples.size()), std::byte{0xEE});
    DeltaState state;
    EncodeSamples(layout, samples, bytes, state);
    return bytes;
}

struct Case {
    const char* name;
    SampleLayout layout;
    Bytes bytes;
    std::vector<float> samples;
};

// Spelled out by hand from the descriptions of the encodings; values are exact in both directions.
const std::vector<Case>& KnownCases()
{
    using enum SampleCoding;
    static const std::vector<Case> cases = {
        {"s8",
         {Pcm8, false, kLittle},
         MakeBytes({0x00, 0x80, 0x7F, 0xFF}),
         {0, -1, 127 / 128.0f, -1 / 128.0f}},
        {"u8",
         {Pcm8, true, kLittle},
         MakeBytes({0x80, 0x00, 0xFF, 0x7F}),
         {0, -1, 127 / 128.0f, -1 / 128.0f}},
        {"s16", {Pcm16, false, kLittle}, MakeBytes({0x34, 0x12, 0x00, 0x80}), {0x1234 / 32768.0f, -1}},
        {"s16 big", {Pcm16, false, kBig}, MakeBytes({0x12, 0x34, 0x80, 0x00}), {0x1234 / 32768.0f, -1}},
        {"u16", {Pcm16, true, kLittle}, MakeBytes({0x00, 0x80, 0x00, 0x00}), {0, -1}},
        {"u16 big", {Pcm16, true, kBig}, MakeBytes({0x92, 0x34, 0x00, 0x00}), {0x1234 / 32768.0f, -1}},
        // 12 bits: 0x123 and 0x456, then 0x800 alone in one and a half bytes.
        {"s12",
         {Pcm12, false, kLittle},
         MakeBytes({0x23, 0x61, 0x45, 0x00, 0x08}),
         {0x123 / 2048.0f, 0x456 / 2048.0f, -1}},
        {"s12 big",
         {Pcm12, false, kBig},
         MakeBytes({0x12, 0x34, 0x56, 0x80, 0x00}),
         {0x123 / 2048.0f, 0x456 / 2048.0f, -1}},
        {"u12", {Pcm12, true, kLittle}, MakeBytes({0x00, 0x38, 0x92}), {0, 0x123 / 2048.0f}},
        // 20 bits: 0x12345 and 0x6789A, then 0x80000 alone in two and a half bytes.
        {"s20",
         {Pcm20, false, kLittle},
         MakeBytes({0x45, 0x23, 0xA1, 0x89, 0x67, 0x00, 0x00, 0x08}),
         {0x12345 / 524288.0f, 0x6789A / 524288.0f, -1}},
        {"s20 big",
         {Pcm20, false, kBig},
         MakeBytes({0x12, 0x34, 0x56, 0x78, 0x9A, 0x80, 0x00, 0x00}),
         {0x12345 / 524288.0f, 0x6789A / 524288.0f, -1}},
        {"u20", {Pcm20, true, kLittle}, MakeBytes({0x45, 0x23, 0x09, 0x00, 0x00}), {0x12345 / 524288.0f, -1}},
        {"s24",
         {Pcm24, false, kLittle},
         MakeBytes({0x56, 0x34, 0x12, 0, 0, 0x80}),
         {0x123456 / 8388608.0f, -1}},
        {"s24 big",
         {Pcm24, false, kBig},
         MakeBytes({0x12, 0x34, 0x56, 0x80, 0, 0}),
         {0x123456 / 8388608.0f, -1}},
        {"u24", {Pcm24, true, kLittle}, MakeBytes({0x56, 0x34, 0x92, 0, 0, 0}), {0x123456 / 8388608.0f, -1}},
        {"s24 in 32", {Pcm24In32, false, kLittle}, MakeBytes({0, 0x56, 0x34, 0x12}), {0x123456 / 8388608.0f}},
        {"s32",
         {Pcm32, false, kLittle},
         MakeBytes({0, 0x56, 0x34, 0x12, 0, 0, 0, 0x80, 1, 0, 0, 0}),
         {0x123456 / 8388608.0f, -1, 0x1p-31f}},
        {"s32 big", {Pcm32, false, kBig}, MakeBytes({0x12, 0x34, 0x56, 0}), {0x123456 / 8388608.0f}},
        {"u32", {Pcm32, true, kLittle}, MakeBytes({0, 0, 0, 0x80, 0, 0, 0, 0}), {0, -1}},
        {"f32", {Float32, false, kLittle}, MakeBytes({0, 0, 0x80, 0x3F, 0, 0, 0, 0xC0}), {1, -2}},
        {"f32 big", {Float32, false, kBig}, MakeBytes({0x3F, 0x80, 0, 0, 0xC0, 0, 0, 0}), {1, -2}},
        {"f64", {Float64, false, kLittle}, MakeBytes({0, 0, 0, 0, 0, 0, 0xF8, 0xBF}), {-1.5f}},
        {"f64 big", {Float64, false, kBig}, MakeBytes({0xBF, 0xF8, 0, 0, 0, 0, 0, 0}), {-1.5f}},
        {"mu-law", {MuLaw, false, kLittle}, MakeBytes({0x00, 0x80, 0xFF, 0xFE}), {-32124, 32124, 0, 8}},
        {"a-law", {ALaw, false, kLittle}, MakeBytes({0x2A, 0xAA, 0x55, 0xD5}), {-32256, 32256, -8, 8}},
        // 100, -100 (difference -200 wraps to 56), -128, 127 (wraps to -1)
        {"delta 8",
         {Delta8, false, kLittle},
         MakeBytes({100, 56, -28, -1}),
         {100 / 128.0f, -100 / 128.0f, -1, 127 / 128.0f}},
        {"delta 16", {Delta16, false, kLittle}, MakeBytes({0xFF, 0x7F, 0x01, 0x00}), {32767 / 32768.0f, -1}},
        {"delta 16 big", {Delta16, false, kBig}, MakeBytes({0x7F, 0xFF, 0x00, 0x01}), {32767 / 32768.0f, -1}},
    };
    return cases;
}

TEST(SampleConvert, KnownBytesBothWays)
{
    for (const Case& item : KnownCases()) {
        SCOPED_TRACE(item.name);
        const bool isG711 =
            item.layout.coding == SampleCoding::MuLaw || item.layout.coding == SampleCoding::ALaw;
        std::vector<float> expected = item.samples;
        for (float& value : expected)
            value *= isG711 ? 0x1p-15f : 1.0f;
        ASSERT_EQ(StoredBytes(item.layout.coding, expected.size()), item.bytes.size());
        EXPECT_EQ(Decoded(item.layout, item.bytes, expected.size()), expected);
        EXPECT_EQ(Encoded(item.layout, expected), item.bytes);
    }
}

TEST(SampleConvert, LimitsAndRounding)
{
    struct Row {
        SampleCoding coding;
        float value;
        std::int32_t code; // signed, at the top of 32 bits
    };
    using enum SampleCoding;
    const std::vector<Row> rows = {
        {Pcm8, 1.0f, 0x7F000000},
        {Pcm8, 0.5f / 128, 0x01000000},
        {Pcm8, -0.5f / 128, 0},
        {Pcm8, -0.6f / 128, -0x01000000},
        {Pcm16, 1.0f, 0x7FFF0000},
        {Pcm16, -1.0f, std::numeric_limits<std::int32_t>::min()},
        {Pcm16, 0.49f / 32768, 0},
        {Pcm16, 0.5f / 32768, 0x00010000},
        {Pcm24, 1.0f, 0x7FFFFF00},
        {Pcm24, -0.25f / 8388608, 0},          // 1 - 2^-25 is no float, it rounds to 1
        {Pcm24, -0.5f / 8388608, -0x00000100}, // downwards, not to the nearest
        {Pcm24, -0.5f, -0x40000000},
        {Pcm32, 1.0f, 0x7FFFFFFF},
        {Pcm32, 0x1p-31f, 1},
        {Pcm32, -0x1p-32f, -1},
        {Pcm32, 0x1.8p-31f, 1},
        {Pcm32, 1.0f - 0x1p-24f, 0x7FFFFF80},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(::testing::Message() << static_cast<int>(row.coding) << " " << row.value);
        const Bytes bytes = Encoded({row.coding, false, kBig}, std::vector{row.value});
        std::uint32_t code = 0;
        for (std::size_t i = 0; i < bytes.size(); ++i)
            code |= std::to_integer<std::uint32_t>(bytes[i]) << (24 - 8 * i);
        EXPECT_EQ(static_cast<std::int32_t>(code), row.code);
    }

    for (SampleCoding coding : {Pcm8, Pcm12, Pcm16, Pcm20, Pcm24, Pcm24In32, Pcm32}) {
        SCOPED_TRACE(static_cast<int>(coding));
        const std::vector<float> wild = {kNan, kInfinity, -kInfinity, 3e38f, -3e38f, 1.0f};
        for (bool isUnsigned : {false, true}) {
            const SampleLayout layout{coding, isUnsigned, kLittle};
            const std::vector<float> back = Decoded(layout, Encoded(layout, wild), wild.size());
            EXPECT_EQ(back[0], 0.0f);
            EXPECT_GT(back[1], 0.99f);
            EXPECT_EQ(back[2], -1.0f);
            EXPECT_EQ(back[3], back[1]);
            EXPECT_EQ(back[4], -1.0f);
            EXPECT_EQ(back[5], back[1]);
        }
    }
}

std::uint64_t Fnv1a(std::uint64_t hash, std::uint8_t byte)
{
    return (hash ^ byte) * 0x100000001B3;
}

// Hashes of what libsndfile's and (decoding) FFmpeg's and SoX's coders give. (libsndfile wraps -32768.)
TEST(G711, AgreesWithOtherCoders)
{
    constexpr std::uint64_t kBasis = 0xCBF29CE484222325;
    std::uint64_t muEncoded = kBasis, aEncoded = kBasis, muDecoded = kBasis, aDecoded = kBasis;
    for (int value = -32767; value <= 32767; ++value) {
        muEncoded = Fnv1a(muEncoded, LinearToMuLaw(static_cast<std::int16_t>(value)));
        aEncoded = Fnv1a(aEncoded, LinearToALaw(static_cast<std::int16_t>(value)));
    }
    for (std::size_t code = 0; code < 256; ++code)
        for (int shift : {0, 8}) {
            muDecoded = Fnv1a(muDecoded, static_cast<std::uint8_t>(kMuLawToLinear[code] >> shift));
            aDecoded = Fnv1a(aDecoded, static_cast<std::uint8_t>(kALawToLinear[code] >> shift));
        }
    EXPECT_EQ(muEncoded, 0xd04d5fb5d202ba50u);
    EXPECT_EQ(aEncoded, 0x1a9f427d67acc112u);
    EXPECT_EQ(muDecoded, 0xb91e65d68481a1a8u);
    EXPECT_EQ(aDecoded, 0x693a40ca62a3d2a5u);
    EXPECT_EQ(LinearToMuLaw(-32768), 0x00);
    EXPECT_EQ(LinearToALaw(-32768), 0x2A);
}

std::vector<SampleLayout> AllLayouts()
{
    std::vector<SampleLayout> layouts;
    for (int coding = 0; coding <= static_cast<int>(SampleCoding::Delta16); ++coding)
        for (bool isUnsigned : {false, true})
            for (std::endian order : {kLittle, kBig})
                layouts.push_back({static_cast<SampleCoding>(coding), isUnsigned, order});
    return layouts;
}

bool SameBits(std::span<const float> a, std::span<const float> b)
{
    return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size_bytes()) == 0);
}

// Lengths around every group, vector and chunk size; the input starts at an odd address.
const std::vector<std::size_t> kLengths = {0,  1,  2,  3,  4,   5,   7,   8,   11,   16,
                                           17, 31, 33, 64, 255, 256, 257, 259, 1000, 4099};

TEST(SampleConvert, FastDecodingEqualsPlain)
{
    std::mt19937 random(1);
    Bytes noise(8 * 4099 + 1);
    for (std::byte& byte : noise)
        byte = static_cast<std::byte>(random());
    for (const SampleLayout& layout : AllLayouts())
        for (std::size_t samples : kLengths) {
            SCOPED_TRACE(::testing::Message() << static_cast<int>(layout.coding) << " " << samples);
            const std::size_t stored = StoredBytes(layout.coding, samples);
            const Bytes exact(noise.begin(), noise.begin() + static_cast<std::ptrdiff_t>(stored + 1));
            const auto bytes = std::span(exact).subspan(1);
            std::vector<float> fast(samples), plain(samples);
            DeltaState fastState{77}, plainState{77};
            DecodeSamples(layout, bytes, fast, fastState);
            DecodeSamplesPlain(layout, bytes, plain, plainState);
            EXPECT_TRUE(SameBits(fast, plain));
            EXPECT_EQ(fastState.previous, plainState.previous);
        }
}

// Floats of every size and sign, with the values at which codes change.
std::vector<float> HardFloats(std::size_t count)
{
    std::mt19937 random(2);
    std::uniform_real_distribution<float> inRange(-1.1f, 1.1f);
    std::vector<float> values(count);
    for (std::size_t i = 0; i < count; ++i) {
        const auto bits = static_cast<std::uint32_t>(random());
        const float step =
            std::ldexp(static_cast<float>(static_cast<int>(bits % 1001) - 500), -static_cast<int>(i % 34));
        const std::array<float, 4> kinds = {inRange(random), std::bit_cast<float>(bits), step,
                                            std::nextafter(step, 9.0f)};
        values[i] = kinds[i % kinds.size()];
    }
    return values;
}

TEST(SampleConvert, FastEncodingEqualsPlain)
{
    const std::vector<float> values = HardFloats(4099);
    for (const SampleLayout& layout : AllLayouts())
        for (std::size_t samples : kLengths) {
            SCOPED_TRACE(::testing::Message() << static_cast<int>(layout.coding) << " " << samples);
            const auto in = std::span(values).last(samples);
            const std::size_t stored = StoredBytes(layout.coding, samples);
            Bytes fast(stored + 3, std::byte{0xEE}), plain(stored + 3, std::byte{0xEE});
            DeltaState fastState{77}, plainState{77};
            EncodeSamples(layout, in, std::span(fast).subspan(1), fastState);
            EncodeSamplesPlain(layout, in, std::span(plain).subspan(1), plainState);
            EXPECT_EQ(fast, plain);
            EXPECT_EQ(fast[stored + 1], std::byte{0xEE}); // nothing behind the last sample
            EXPECT_EQ(fastState.previous, plainState.previous);
        }
}

TEST(SampleConvert, EveryCodeSurvivesTheRoundTrip)
{
    using enum SampleCoding;
    for (SampleCoding coding : {Pcm8, Pcm12, Pcm16, Pcm20, Pcm24, Delta8, Delta16})
        for (std::endian order : {kLittle, kBig}) {
            SCOPED_TRACE(static_cast<int>(coding));
            // Counting bytes pass through all codes of up to 16 bits and a spread of the wider ones.
            Bytes bytes(StoredBytes(coding, 131072));
            for (std::size_t i = 0; i < bytes.size(); ++i)
                bytes[i] = static_cast<std::byte>(i % 2 == 0 ? i / 512 : i / 2 + i / 131072);
            const SampleLayout layout{coding, false, order};
            EXPECT_EQ(Encoded(layout, Decoded(layout, bytes, 131072)), bytes);
        }
}

TEST(SampleConvert, WordsAreConvertedInPlace)
{
    for (SampleCoding coding : {SampleCoding::Pcm32, SampleCoding::Pcm24In32, SampleCoding::Float32})
        for (std::endian order : {kLittle, kBig}) {
            const SampleLayout layout{coding, false, order};
            Bytes bytes = Encoded(layout, std::vector<float>(1003, 0.25f));
            bytes[4 * 500] = std::byte{0x3E};
            const std::vector<float> expected = Decoded(layout, bytes, 1003);
            std::vector<float> block(1003);
            std::memcpy(block.data(), bytes.data(), bytes.size());
            DeltaState state;
            DecodeSamples(layout, std::as_bytes(std::span(block)), block, state);
            EXPECT_TRUE(SameBits(block, expected));
        }
}

TEST(SampleConvert, ShortInputClearsTheRest)
{
    const Bytes bytes = MakeBytes({0, 0x40, 0, 0x40, 0x7F});
    EXPECT_EQ(Decoded({SampleCoding::Pcm16, false, kLittle}, bytes, 4),
              (std::vector<float>{0.5f, 0.5f, 0, 0}));
    EXPECT_EQ(Decoded({SampleCoding::Float64, false, kLittle}, bytes, 2), (std::vector<float>{0, 0}));
    EXPECT_EQ(Decoded({SampleCoding::Pcm12, false, kBig}, std::span(bytes).first(4), 3)[2], 0.0f);
}

TEST(SampleConvert, DeltaStreamsContinueAcrossPieces)
{
    const std::vector<float> samples = HardFloats(600);
    const SampleLayout layout{SampleCoding::Delta16, false, kLittle};
    const Bytes whole = Encoded(layout, samples);
    Bytes pieces(whole.size());
    DeltaState encodeState, decodeState;
    EncodeSamples(layout, std::span(samples).first(301), std::span(pieces).first(602), encodeState);
    EncodeSamples(layout, std::span(samples).subspan(301), std::span(pieces).subspan(602), encodeState);
    EXPECT_EQ(pieces, whole);
    std::vector<float> out(600);
    DecodeSamples(layout, std::span(whole).first(200), std::span(out).first(100), decodeState);
    DecodeSamples(layout, std::span(whole).subspan(200), std::span(out).subspan(100), decodeState);
    EXPECT_EQ(out, Decoded(layout, whole, 600));
}

TEST(SampleConvert, SwapsAndChannels)
{
    const auto swapped = [](Bytes bytes, std::size_t size) {
        SwapBytes(bytes, size);
        return bytes;
    };
    EXPECT_EQ(swapped(MakeBytes({1, 2, 3, 4, 5}), 2), MakeBytes({2, 1, 4, 3, 5}));
    EXPECT_EQ(swapped(MakeBytes({1, 2, 3, 4, 5}), 3), MakeBytes({3, 2, 1, 4, 5}));
    EXPECT_EQ(swapped(MakeBytes({1, 2, 3, 4, 5}), 4), MakeBytes({4, 3, 2, 1, 5}));
    EXPECT_EQ(swapped(MakeBytes({1, 2, 3, 4, 5, 6, 7, 8, 9}), 8), MakeBytes({8, 7, 6, 5, 4, 3, 2, 1, 9}));

    std::vector<float> left(37), right(37), stereo(74), mono(37), back(37), other(37), doubled(74);
    for (std::size_t i = 0; i < left.size(); ++i) {
        left[i] = static_cast<float>(i);
        right[i] = -2.0f * static_cast<float>(i);
    }
    Interleave(left, right, stereo);
    EXPECT_EQ(stereo[72], 36.0f);
    EXPECT_EQ(stereo[73], -72.0f);
    Deinterleave(stereo, back, other);
    EXPECT_EQ(back, left);
    EXPECT_EQ(other, right);
    AverageToMono(stereo, mono);
    EXPECT_EQ(mono[35], -17.5f);
    DuplicateToStereo(left, doubled);
    EXPECT_EQ(doubled[70], 35.0f);
    EXPECT_EQ(doubled[71], 35.0f);
}

TEST(SampleConvert, StoredSizes)
{
    EXPECT_EQ(StoredBytes(SampleCoding::Pcm12, 3), 5u);
    EXPECT_EQ(StoredBytes(SampleCoding::Pcm20, 3), 8u);
    EXPECT_EQ(StoredBytes(SampleCoding::Float64, std::uint64_t{1} << 58), std::uint64_t{1} << 61);
    EXPECT_EQ(StoredBytes(SampleCoding::Pcm20, std::uint64_t{1} << 58), (std::uint64_t{5} << 57));
}

} // namespace
} // namespace vimbo
