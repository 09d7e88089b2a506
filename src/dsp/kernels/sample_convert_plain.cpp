// One sample at a time, written after the definitions of the encodings: what the fast forms are measured
// against.
#include "dsp/kernels/g711.h"
#include "dsp/kernels/sample_convert.h"
#include "dsp/kernels/sample_rules.h"

#include <algorithm>
#include <cstring>

namespace vimbo {
namespace {

std::uint64_t ReadWord(const std::byte* bytes, std::size_t size, std::endian order) noexcept
{
    std::uint64_t word = 0;
    for (std::size_t i = 0; i < size; ++i) {
        const std::size_t place = order == std::endian::little ? i : size - 1 - i;
        word |= std::to_integer<std::uint64_t>(bytes[i]) << (8 * place);
    }
    return word;
}

void WriteWord(std::byte* bytes, std::uint64_t word, std::size_t size, std::endian order) noexcept
{
    for (std::size_t i = 0; i < size; ++i) {
        const std::size_t place = order == std::endian::little ? i : size - 1 - i;
        bytes[i] = static_cast<std::byte>(word >> (8 * place));
    }
}

/// Where a sample of 12 or 20 bits lies: the second of a pair begins in the middle of a byte. Little-endian
/// data is a stream of bits from the least significant up, big-endian data one from the most significant
/// down.
struct PackedPlace {
    std::size_t offset, bytes;
    unsigned shift;
};

PackedPlace PlaceOf(unsigned bits, std::size_t index, std::endian order) noexcept
{
    const bool second = index % 2 != 0;
    const bool upper = second == (order == std::endian::little);
    return {index / 2 * (bits / 4) + (second ? bits / 8 : 0), (bits + 4) / 8, upper ? 4u : 0u};
}

bool IsPacked(SampleCoding coding) noexcept
{
    return coding == SampleCoding::Pcm12 || coding == SampleCoding::Pcm20;
}

/// The code of sample `index`, in its own width.
std::uint64_t ReadCode(const SampleLayout& layout, const std::byte* bytes, std::size_t index) noexcept
{
    const unsigned bits = StoredBits(layout.coding);
    if (!IsPacked(layout.coding))
        return ReadWord(bytes + index * (bits / 8), bits / 8, layout.order);
    const PackedPlace place = PlaceOf(bits, index, layout.order);
    const std::uint64_t word = ReadWord(bytes + place.offset, place.bytes, layout.order);
    return word >> place.shift & ((1u << bits) - 1);
}

void WriteCode(const SampleLayout& layout, std::byte* bytes, std::size_t index, std::uint64_t code) noexcept
{
    const unsigned bits = StoredBits(layout.coding);
    if (!IsPacked(layout.coding)) {
        WriteWord(bytes + index * (bits / 8), code, bits / 8, layout.order);
        return;
    }
    // The first of a pair clears the nibble that it shares, the second adds to it.
    const PackedPlace place = PlaceOf(bits, index, layout.order);
    std::byte* const at = bytes + place.offset;
    const std::byte shared = index % 2 != 0 ? at[0] : std::byte{0};
    WriteWord(at, code << place.shift, place.bytes, layout.order);
    at[0] |= shared;
}

float DecodeCode(const SampleLayout& layout, std::uint64_t code, DeltaState& state) noexcept
{
    const auto linear = [&](unsigned bits) {
        const std::uint32_t flip = layout.isUnsigned ? kTopBit : 0;
        return LinearToFloat(static_cast<std::uint32_t>(code) << (32 - bits) ^ flip);
    };
    switch (layout.coding) {
    case SampleCoding::Pcm24In32:
        code &= ~std::uint64_t{0xFF};
        return linear(32);
    case SampleCoding::Float32:
        return std::bit_cast<float>(static_cast<std::uint32_t>(code));
    case SampleCoding::Float64:
        return static_cast<float>(std::bit_cast<double>(code));
    case SampleCoding::MuLaw:
        return static_cast<float>(kMuLawToLinear[code]) * kUnit16;
    case SampleCoding::ALaw:
        return static_cast<float>(kALawToLinear[code]) * kUnit16;
    case SampleCoding::Delta8:
        state.previous = static_cast<std::uint8_t>(state.previous + code);
        return LinearToFloat(std::uint32_t{state.previous} << 24);
    case SampleCoding::Delta16:
        state.previous = static_cast<std::uint16_t>(state.previous + code);
        return LinearToFloat(std::uint32_t{state.previous} << 16);
    default:
        return linear(StoredBits(layout.coding));
    }
}

std::uint64_t EncodeDelta(std::uint32_t code, DeltaState& state) noexcept
{
    const std::uint32_t difference = code - state.previous;
    state.previous = static_cast<std::uint16_t>(code);
    return difference;
}

std::uint64_t EncodeValue(const SampleLayout& layout, float x, DeltaState& state) noexcept
{
    const auto linear = [&](std::uint32_t offsetCode, unsigned bits) {
        return layout.isUnsigned ? offsetCode : offsetCode ^ 1u << (bits - 1);
    };
    switch (layout.coding) {
    case SampleCoding::Pcm8:
        return linear(OffsetCode<8>(x), 8);
    case SampleCoding::Pcm12:
        return linear(OffsetCode<12>(x), 12);
    case SampleCoding::Pcm16:
        return linear(OffsetCode<16>(x), 16);
    case SampleCoding::Pcm20:
        return linear(OffsetCode<20>(x), 20);
    case SampleCoding::Pcm24:
        return linear(OffsetCode<24>(x), 24);
    case SampleCoding::Pcm24In32:
        return std::uint64_t{linear(OffsetCode<24>(x), 24)} << 8;
    case SampleCoding::Pcm32:
        return linear(OffsetCode32(x), 32);
    case SampleCoding::Float32:
        return std::bit_cast<std::uint32_t>(x);
    case SampleCoding::Float64:
        return std::bit_cast<std::uint64_t>(static_cast<double>(x));
    case SampleCoding::MuLaw:
        return LinearToMuLaw(static_cast<std::int16_t>(static_cast<int>(OffsetCode<16>(x)) - 32768));
    case SampleCoding::ALaw:
        return LinearToALaw(static_cast<std::int16_t>(static_cast<int>(OffsetCode<16>(x)) - 32768));
    case SampleCoding::Delta8:
        return EncodeDelta(OffsetCode<8>(x) ^ 0x80, state) & 0xFF;
    case SampleCoding::Delta16:
        return EncodeDelta(OffsetCode<16>(x) ^ 0x8000, state) & 0xFFFF;
    }
    return 0;
}

} // namespace

unsigned StoredBits(SampleCoding coding) noexcept
{
    switch (coding) {
    case SampleCoding::Pcm8:
    case SampleCoding::MuLaw:
    case SampleCoding::ALaw:
    case SampleCoding::Delta8:
        return 8;
    case SampleCoding::Pcm12:
        return 12;
    case SampleCoding::Pcm16:
    case SampleCoding::Delta16:
        return 16;
    case SampleCoding::Pcm20:
        return 20;
    case SampleCoding::Pcm24:
        return 24;
    case SampleCoding::Pcm24In32:
    case SampleCoding::Pcm32:
    case SampleCoding::Float32:
        return 32;
    case SampleCoding::Float64:
        return 64;
    }
    return 8;
}

std::uint64_t StoredBytes(SampleCoding coding, std::uint64_t samples) noexcept
{
    const unsigned bits = StoredBits(coding);
    return samples / 2 * (bits / 4) + samples % 2 * ((bits + 7) / 8);
}

void DecodeSamplesPlain(const SampleLayout& layout, std::span<const std::byte> bytes, std::span<float> out,
                        DeltaState& state) noexcept
{
    const std::size_t count = std::min(out.size(), HeldSamples(layout.coding, bytes.size()));
    for (std::size_t i = 0; i < count; ++i)
        out[i] = DecodeCode(layout, ReadCode(layout, bytes.data(), i), state);
    std::fill(out.begin() + static_cast<std::ptrdiff_t>(count), out.end(), 0.0f);
}

void EncodeSamplesPlain(const SampleLayout& layout, std::span<const float> in, std::span<std::byte> bytes,
                        DeltaState& state) noexcept
{
    const std::size_t count = std::min(in.size(), HeldSamples(layout.coding, bytes.size()));
    for (std::size_t i = 0; i < count; ++i)
        WriteCode(layout, bytes.data(), i, EncodeValue(layout, in[i], state));
}

} // namespace vimbo
