#include "codecs/gsm.h"

#include "codecs/gsm_frame.h"

#include <cassert>
#include <cstdlib>

namespace vimbo {
namespace {

constexpr std::array<unsigned, kGsmOrder> kLarBits{6, 6, 5, 5, 4, 4, 3, 3};
constexpr unsigned kLarWordBits = 36;
constexpr unsigned kSubframeWordBits = 56;

/// Walks the fields of a word of up to 56 bits, in the order of transmission.
template <BitPacking Packing>
class FieldWalk {
public:
    explicit FieldWalk(unsigned wordBits) noexcept : at_(Packing == BitPacking::BigEndian ? wordBits : 0) {}

    std::uint8_t Get(std::uint64_t word, unsigned bits) noexcept
    {
        return static_cast<std::uint8_t>(word >> Next(bits) & ((1u << bits) - 1));
    }
    std::uint64_t Put(std::uint8_t code, unsigned bits) noexcept { return std::uint64_t{code} << Next(bits); }

private:
    /// Lowest bit of the next field.
    unsigned Next(unsigned bits) noexcept
    {
        if constexpr (Packing == BitPacking::BigEndian)
            return at_ -= bits;
        at_ += bits;
        return at_ - bits;
    }
    unsigned at_;
};

/// Shift of byte `i` of eight within a word.
template <BitPacking Packing>
constexpr unsigned ByteShift(unsigned i) noexcept
{
    return Packing == BitPacking::BigEndian ? 56 - 8 * i : 8 * i;
}

/// `bits` bits, at most 57, from bit `first` on.
template <BitPacking Packing>
std::uint64_t LoadWord(std::span<const std::byte> block, std::size_t first, unsigned bits) noexcept
{
    const auto bytes = block.subspan(first / 8).first<8>();
    std::uint64_t word = 0;
    for (unsigned i = 0; i < 8; ++i)
        word |= std::to_integer<std::uint64_t>(bytes[i]) << ByteShift<Packing>(i);
    if constexpr (Packing == BitPacking::BigEndian)
        return word << first % 8 >> (64 - bits);
    return word >> first % 8 & ((std::uint64_t{1} << bits) - 1);
}

template <BitPacking Packing>
void StoreWord(std::span<std::byte> block, std::size_t first, unsigned bits, std::uint64_t word) noexcept
{
    const auto bytes = block.subspan(first / 8).first<8>();
    word = Packing == BitPacking::BigEndian ? word << (64 - bits) >> first % 8 : word << first % 8;
    for (unsigned i = 0; i < 8; ++i)
        bytes[i] |= static_cast<std::byte>(word >> ByteShift<Packing>(i));
}

template <BitPacking Packing>
void Unpack(GsmFrame& frame, std::span<const std::byte> block, std::size_t first) noexcept
{
    const std::uint64_t larWord = LoadWord<Packing>(block, first, kLarWordBits);
    FieldWalk<Packing> lars(kLarWordBits);
    for (std::size_t i = 0; i < kGsmOrder; ++i)
        frame.lars[i] = lars.Get(larWord, kLarBits[i]);
    first += kLarWordBits;
    for (GsmSubframe& subframe : frame.subframes) {
        const std::uint64_t word = LoadWord<Packing>(block, first, kSubframeWordBits);
        FieldWalk<Packing> fields(kSubframeWordBits);
        subframe.lag = fields.Get(word, 7);
        subframe.gain = fields.Get(word, 2);
        subframe.grid = fields.Get(word, 2);
        subframe.peak = fields.Get(word, 6);
        for (std::uint8_t& pulse : subframe.pulses)
            pulse = fields.Get(word, 3);
        first += kSubframeWordBits;
    }
}

template <BitPacking Packing>
void Pack(const GsmFrame& frame, std::span<std::byte> block, std::size_t first) noexcept
{
    std::uint64_t larWord = 0;
    FieldWalk<Packing> lars(kLarWordBits);
    for (std::size_t i = 0; i < kGsmOrder; ++i)
        larWord |= lars.Put(frame.lars[i], kLarBits[i]);
    StoreWord<Packing>(block, first, kLarWordBits, larWord);
    first += kLarWordBits;
    for (const GsmSubframe& subframe : frame.subframes) {
        FieldWalk<Packing> fields(kSubframeWordBits);
        std::uint64_t word = fields.Put(subframe.lag, 7);
        word |= fields.Put(subframe.gain, 2);
        word |= fields.Put(subframe.grid, 2);
        word |= fields.Put(subframe.peak, 6);
        for (const std::uint8_t pulse : subframe.pulses)
            word |= fields.Put(pulse, 3);
        StoreWord<Packing>(block, first, kSubframeWordBits, word);
        first += kSubframeWordBits;
    }
}

/// 5.2.9.2: three straight lines for the curve between log area ratios and reflection coefficients.
int ReflectionFromLar(int lar) noexcept
{
    const int size = std::abs(lar);
    int reflection = 0;
    if (size < 11059)
        reflection = size << 1;
    else if (size < 20070)
        reflection = size + 11059;
    else
        reflection = Saturate16((size >> 2) + 26112);
    return lar < 0 ? -reflection : reflection;
}

} // namespace

void UnpackGsmFrame(GsmFrame& frame, std::span<const std::byte> block, std::size_t first,
                    BitPacking packing) noexcept
{
    if (packing == BitPacking::BigEndian)
        Unpack<BitPacking::BigEndian>(frame, block, first);
    else
        Unpack<BitPacking::LittleEndian>(frame, block, first);
}

void PackGsmFrame(const GsmFrame& frame, std::span<std::byte> block, std::size_t first,
                  BitPacking packing) noexcept
{
    if (packing == BitPacking::BigEndian)
        Pack<BitPacking::BigEndian>(frame, block, first);
    else
        Pack<BitPacking::LittleEndian>(frame, block, first);
}

GsmStages DequantiseGsmLars(const std::array<std::uint8_t, kGsmOrder>& codes) noexcept
{
    // 2^28 / slope, rounded (table 5.2).
    constexpr GsmStages kInverseSlope{13107, 13107, 13107, 13107, 19223, 17476, 31454, 29708};
    GsmStages lars;
    for (std::size_t i = 0; i < kGsmOrder; ++i) {
        const int level = (codes[i] + kGsmLarMin[i]) * 1024 - 2 * kGsmLarOffset[i];
        lars[i] =
            static_cast<std::int16_t>(Saturate16(2 * MultiplyRounded(kInverseSlope[i], Saturate16(level))));
    }
    return lars;
}

GsmStages GsmReflections(std::size_t run, const GsmStages& last, const GsmStages& current) noexcept
{
    assert(run < kGsmFilterRuns.size());
    // Each share is cut to whole numbers by itself, so the order of the shifts matters.
    GsmStages reflections;
    for (std::size_t i = 0; i < kGsmOrder; ++i) {
        const int a = last[i];
        const int b = current[i];
        const std::array<int, 4> mixes{(a >> 2) + (b >> 2) + (a >> 1), (a >> 1) + (b >> 1),
                                       (a >> 2) + (b >> 2) + (b >> 1), b};
        reflections[i] = static_cast<std::int16_t>(ReflectionFromLar(mixes[run]));
    }
    return reflections;
}

GsmPeak DecodeGsmPeak(unsigned code) noexcept
{
    int exponent = code > 15 ? static_cast<int>(code >> 3) - 1 : 0;
    unsigned mantissa = code - (static_cast<unsigned>(exponent) << 3);
    if (mantissa == 0)
        return {-4, 7};
    for (; mantissa <= 7; --exponent)
        mantissa = mantissa << 1 | 1;
    return {static_cast<std::int8_t>(exponent), static_cast<std::uint8_t>(mantissa - 8)};
}

void DecodeGsmPulses(const GsmSubframe& codes, std::span<std::int16_t, kGsmSubframeSamples> out) noexcept
{
    // Table 5.6: mantissas 8..15 as multiples of 1/16, in 15 bits.
    constexpr std::array<std::int16_t, 8> kMantissa{18431, 20479, 22527, 24575, 26623, 28671, 30719, 32767};
    const GsmPeak peak = DecodeGsmPeak(codes.peak);
    const int factor = kMantissa[peak.mantissa];
    const int shift = 6 - peak.exponent;
    const int half = (1 << shift) >> 1;
    std::fill(out.begin(), out.end(), std::int16_t{0});
    std::size_t at = codes.grid;
    for (const std::uint8_t code : codes.pulses) {
        const int pulse = (2 * code - 7) * 4096;
        out[at] = static_cast<std::int16_t>(Saturate16(MultiplyRounded(factor, pulse) + half) >> shift);
        at += 3;
    }
}

std::size_t GsmDecodedSamples(GsmFraming framing, std::size_t bytes) noexcept
{
    if (framing != GsmFraming::Wav)
        return bytes / kGsmFrameBytes * kGsmFrameSamples;
    const std::size_t cutOff = bytes % kGsmWavBlockBytes >= kGsmFrameBytes ? kGsmFrameSamples : 0;
    return bytes / kGsmWavBlockBytes * kGsmWavBlockSamples + cutOff;
}

std::size_t GsmEncodedBytes(GsmFraming framing, std::size_t samples) noexcept
{
    const bool isWav = framing == GsmFraming::Wav;
    const std::size_t blockSamples = isWav ? kGsmWavBlockSamples : kGsmFrameSamples;
    const std::size_t blocks = samples / blockSamples + (samples % blockSamples != 0 ? 1 : 0);
    return blocks * (isWav ? kGsmWavBlockBytes : kGsmFrameBytes);
}

} // namespace vimbo
