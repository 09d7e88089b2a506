// The fast forms: one loop per encoding, written so that compilers turn it into vector code, run in the
// version that suits the processor. Results are the same to the last bit in every version and in the plain
// twins.
#include "dsp/kernels/sample_convert.h"

#include "dsp/kernels/pack24.h"
#include "dsp/kernels/sample_rules.h"

#include <algorithm>
#include <array>
#include <cassert>

namespace vimbo {
namespace {

constexpr std::size_t kChunk = 256; // samples that pass through a buffer in the first-level cache
using Chunk = std::array<std::uint32_t, kChunk>;

// ---- Bytes to floats: Run<version>(in, out, samples, flip), where `flip` is the top bit for unsigned data.

struct Decode8 {
    template <Isa>
    VIMBO_INLINE static void Run(const std::byte* __restrict in, float* __restrict out, std::size_t count,
                                 std::uint32_t flip) noexcept
    {
        for (std::size_t i = 0; i < count; ++i)
            out[i] = LinearToFloat(std::to_integer<std::uint32_t>(in[i]) << 24 ^ flip);
    }
};

template <std::endian Order>
struct Decode16 {
    template <Isa>
    VIMBO_INLINE static void Run(const std::byte* __restrict in, float* __restrict out, std::size_t count,
                                 std::uint32_t flip) noexcept
    {
        for (std::size_t i = 0; i < count; ++i)
            out[i] = LinearToFloat(std::uint32_t{LoadWord<std::uint16_t, Order>(in + 2 * i)} << 16 ^ flip);
    }
};

/// Words may be converted in place, so they go through a buffer: the compiler need not fear for the overlap
/// then.
template <std::endian Order>
struct Decode32 {
    template <Isa>
    VIMBO_INLINE static void Run(const std::byte* in, float* out, std::size_t count, std::uint32_t flip,
                                 std::uint32_t mask) noexcept
    {
        for (std::size_t done = 0; done < count; done += kChunk) {
            const std::size_t samples = std::min(kChunk, count - done);
            Chunk words;
            std::memcpy(words.data(), in + 4 * done, 4 * samples);
            for (std::size_t i = 0; i < samples; ++i) {
                const std::uint32_t word = Order == std::endian::native ? words[i] : ReverseBytes(words[i]);
                out[done + i] = LinearToFloat((word ^ flip) & mask);
            }
        }
    }
};

template <std::endian Order>
struct DecodeFloat64 {
    template <Isa>
    VIMBO_INLINE static void Run(const std::byte* __restrict in, float* __restrict out,
                                 std::size_t count) noexcept
    {
        for (std::size_t i = 0; i < count; ++i)
            out[i] = static_cast<float>(std::bit_cast<double>(LoadWord<std::uint64_t, Order>(in + 8 * i)));
    }
};

/// Whole groups of a packing, as far as its slack allows. @return samples converted
template <class Packing>
VIMBO_INLINE std::size_t DecodeGroups(const std::byte* __restrict in, std::size_t bytes,
                                      float* __restrict out, std::size_t count, std::uint32_t flip) noexcept
{
    constexpr std::size_t kGroups = kChunk / Packing::kSamples;
    std::size_t groups = count / Packing::kSamples;
    groups = std::min(groups, bytes < Packing::kSlack ? 0 : (bytes - Packing::kSlack) / Packing::kBytes);
    for (std::size_t done = 0; done < groups; done += kGroups) {
        const std::size_t now = std::min(kGroups, groups - done);
        Chunk words;
        for (std::size_t g = 0; g < now; ++g)
            Packing::Unpack(in + (done + g) * Packing::kBytes, words.data() + g * Packing::kSamples);
        for (std::size_t i = 0; i < now * Packing::kSamples; ++i)
            out[done * Packing::kSamples + i] = LinearToFloat(words[i] ^ flip);
    }
    return groups * Packing::kSamples;
}

template <class Packing>
struct DecodePacked {
    template <Isa>
    VIMBO_INLINE static void Run(const std::byte* in, std::size_t bytes, float* out, std::size_t count,
                                 std::uint32_t flip, std::size_t* converted) noexcept
    {
        *converted = DecodeGroups<Packing>(in, bytes, out, count, flip);
    }
};

template <std::endian Order>
struct Decode24 {
    template <Isa Version>
    VIMBO_INLINE static void Run(const std::byte* in, std::size_t bytes, float* out, std::size_t count,
                                 std::uint32_t flip, std::size_t* converted) noexcept
    {
        *converted = DecodeGroups<Fastest24<Order, Version>>(in, bytes, out, count, flip);
    }
};

// A G.711 code is a small floating-point number: segment and step become exponent and leading fraction bits
// of a float of 128 and more, one fraction bit below them puts it into the middle of its interval.
constexpr std::uint32_t kSegmentZero = 0x43000000; // 128.0f
constexpr std::uint32_t kHalfStep = 1u << 18;
constexpr unsigned kStepShift = 19;

struct DecodeMuLaw {
    template <Isa>
    VIMBO_INLINE static void Run(const std::byte* __restrict in, float* __restrict out,
                                 std::size_t count) noexcept
    {
        for (std::size_t i = 0; i < count; ++i) {
            const std::uint32_t code = ~std::to_integer<std::uint32_t>(in[i]) & 0xFF;
            const std::uint32_t bits = kSegmentZero + ((code & 0x7F) << kStepShift) + kHalfStep;
            const float magnitude = std::bit_cast<float>(bits) - 132.0f;
            const float value =
                std::bit_cast<float>(std::bit_cast<std::uint32_t>(magnitude) | (code & 0x80) << 24);
            out[i] = (value + 0.0f) * kUnit16; // the second code of silence is no negative zero
        }
    }
};

struct DecodeALaw {
    template <Isa>
    VIMBO_INLINE static void Run(const std::byte* __restrict in, float* __restrict out,
                                 std::size_t count) noexcept
    {
        for (std::size_t i = 0; i < count; ++i) {
            const std::uint32_t code = std::to_integer<std::uint32_t>(in[i]) ^ 0xD5;
            const std::uint32_t bits = kSegmentZero + ((code & 0x7F) << kStepShift) + kHalfStep;
            const float scaled = std::bit_cast<float>(bits);
            const float magnitude =
                (code & 0x70) != 0 ? scaled : 2.0f * scaled - 256.0f; // the lowest segment is even
            const std::uint32_t sign = (code & 0x80) << 24;
            out[i] = std::bit_cast<float>(std::bit_cast<std::uint32_t>(magnitude) | sign) * kUnit16;
        }
    }
};

/// The running sum is serial; the conversion behind it is not.
template <class Word, std::endian Order>
struct DecodeDelta {
    template <Isa>
    VIMBO_INLINE static void Run(const std::byte* __restrict in, float* __restrict out, std::size_t count,
                                 DeltaState* state) noexcept
    {
        constexpr unsigned kShift = 32 - 8 * sizeof(Word);
        std::uint32_t sum = std::uint32_t{state->previous} << kShift;
        for (std::size_t done = 0; done < count; done += kChunk) {
            const std::size_t samples = std::min(kChunk, count - done);
            Chunk words;
            for (std::size_t i = 0; i < samples; ++i)
                words[i] = sum += std::uint32_t{LoadDelta(in + (done + i) * sizeof(Word))} << kShift;
            for (std::size_t i = 0; i < samples; ++i)
                out[done + i] = LinearToFloat(words[i]);
        }
        state->previous = static_cast<std::uint16_t>(sum >> kShift);
    }

    VIMBO_INLINE static Word LoadDelta(const std::byte* bytes) noexcept
    {
        if constexpr (sizeof(Word) == 1)
            return std::to_integer<Word>(*bytes);
        else
            return LoadWord<Word, Order>(bytes);
    }
};

// ---- Floats to bytes: Run<version>(in, out, samples, flip), where `flip` is the top bit for signed data.

struct Encode8 {
    template <Isa>
    VIMBO_INLINE static void Run(const float* __restrict in, std::byte* __restrict out, std::size_t count,
                                 std::uint32_t flip) noexcept
    {
        for (std::size_t i = 0; i < count; ++i)
            out[i] = static_cast<std::byte>(OffsetCode<8>(in[i]) ^ flip);
    }
};

template <std::endian Order>
struct Encode16 {
    template <Isa>
    VIMBO_INLINE static void Run(const float* __restrict in, std::byte* __restrict out, std::size_t count,
                                 std::uint32_t flip) noexcept
    {
        for (std::size_t i = 0; i < count; ++i)
            StoreWord<Order>(out + 2 * i, static_cast<std::uint16_t>(OffsetCode<16>(in[i]) ^ flip));
    }
};

template <std::endian Order>
struct Encode24In32 {
    template <Isa>
    VIMBO_INLINE static void Run(const float* __restrict in, std::byte* __restrict out, std::size_t count,
                                 std::uint32_t flip) noexcept
    {
        for (std::size_t i = 0; i < count; ++i)
            StoreWord<Order>(out + 4 * i, OffsetCode<24>(in[i]) << 8 ^ flip);
    }
};

template <std::endian Order>
struct Encode32 {
    template <Isa>
    VIMBO_INLINE static void Run(const float* __restrict in, std::byte* __restrict out, std::size_t count,
                                 std::uint32_t flip) noexcept
    {
        for (std::size_t i = 0; i < count; ++i)
            StoreWord<Order>(out + 4 * i, OffsetCode32(in[i]) ^ flip);
    }
};

template <std::endian Order>
struct EncodeFloat64 {
    template <Isa>
    VIMBO_INLINE static void Run(const float* __restrict in, std::byte* __restrict out,
                                 std::size_t count) noexcept
    {
        for (std::size_t i = 0; i < count; ++i)
            StoreWord<Order>(out + 8 * i, std::bit_cast<std::uint64_t>(static_cast<double>(in[i])));
    }
};

/// Whole groups of a packing, as far as its slack allows. @return samples converted
template <class Packing, unsigned Bits>
VIMBO_INLINE std::size_t EncodeGroups(const float* __restrict in, std::byte* __restrict out,
                                      std::size_t bytes, std::size_t count, std::uint32_t flip) noexcept
{
    constexpr std::size_t kGroups = kChunk / Packing::kSamples;
    std::size_t groups = count / Packing::kSamples;
    groups = std::min(groups, bytes < Packing::kSlack ? 0 : (bytes - Packing::kSlack) / Packing::kBytes);
    for (std::size_t done = 0; done < groups; done += kGroups) {
        const std::size_t now = std::min(kGroups, groups - done);
        Chunk words;
        for (std::size_t i = 0; i < now * Packing::kSamples; ++i)
            words[i] = OffsetCode<Bits>(in[done * Packing::kSamples + i]) << (32 - Bits) ^ flip;
        for (std::size_t g = 0; g < now; ++g)
            Packing::Pack(words.data() + g * Packing::kSamples, out + (done + g) * Packing::kBytes);
    }
    return groups * Packing::kSamples;
}

template <class Packing, unsigned Bits>
struct EncodePacked {
    template <Isa>
    VIMBO_INLINE static void Run(const float* in, std::byte* out, std::size_t bytes, std::size_t count,
                                 std::uint32_t flip, std::size_t* converted) noexcept
    {
        *converted = EncodeGroups<Packing, Bits>(in, out, bytes, count, flip);
    }
};

template <std::endian Order>
struct Encode24 {
    template <Isa Version>
    VIMBO_INLINE static void Run(const float* in, std::byte* out, std::size_t bytes, std::size_t count,
                                 std::uint32_t flip, std::size_t* converted) noexcept
    {
        *converted = EncodeGroups<Fastest24<Order, Version>, 24>(in, out, bytes, count, flip);
    }
};

/// Segment and step of a magnitude of 128 to 32767: exponent and leading fraction bits of the same number as
/// a float.
VIMBO_INLINE std::uint32_t SegmentAndStep(std::int32_t magnitude) noexcept
{
    return (std::bit_cast<std::uint32_t>(static_cast<float>(magnitude)) - kSegmentZero) >> kStepShift;
}

struct EncodeMuLaw {
    template <Isa>
    VIMBO_INLINE static void Run(const float* __restrict in, std::byte* __restrict out,
                                 std::size_t count) noexcept
    {
        for (std::size_t i = 0; i < count; ++i) {
            const std::int32_t value = static_cast<std::int32_t>(OffsetCode<16>(in[i])) - 32768;
            const std::int32_t magnitude = value < 0 ? -value : value;
            const std::int32_t biased = (magnitude < 32635 ? magnitude : 32635) + 132;
            const std::uint32_t sign = static_cast<std::uint32_t>(value) >> 24 & 0x80;
            out[i] = static_cast<std::byte>(~(sign | SegmentAndStep(biased)));
        }
    }
};

struct EncodeALaw {
    template <Isa>
    VIMBO_INLINE static void Run(const float* __restrict in, std::byte* __restrict out,
                                 std::size_t count) noexcept
    {
        for (std::size_t i = 0; i < count; ++i) {
            const std::int32_t value = static_cast<std::int32_t>(OffsetCode<16>(in[i])) - 32768;
            std::int32_t magnitude = value < 0 ? -value : value;
            magnitude = magnitude < 32767 ? magnitude : 32767;
            const std::uint32_t upper = SegmentAndStep(magnitude);
            const std::uint32_t lowest = static_cast<std::uint32_t>(magnitude) >> 4;
            const std::uint32_t sign = static_cast<std::uint32_t>(value) >> 24 & 0x80;
            out[i] = static_cast<std::byte>((sign | (magnitude < 256 ? lowest : upper)) ^ 0xD5);
        }
    }
};

template <class Word, std::endian Order>
struct EncodeDelta {
    template <Isa>
    VIMBO_INLINE static void Run(const float* __restrict in, std::byte* __restrict out, std::size_t count,
                                 DeltaState* state) noexcept
    {
        constexpr unsigned kBits = 8 * sizeof(Word);
        std::array<std::uint32_t, kChunk + 1> codes;
        codes[0] = state->previous;
        for (std::size_t done = 0; done < count; done += kChunk) {
            const std::size_t samples = std::min(kChunk, count - done);
            for (std::size_t i = 0; i < samples; ++i)
                codes[i + 1] = OffsetCode<kBits>(in[done + i]) ^ 1u << (kBits - 1);
            for (std::size_t i = 0; i < samples; ++i)
                StoreDelta(out + (done + i) * sizeof(Word), static_cast<Word>(codes[i + 1] - codes[i]));
            codes[0] = codes[samples];
        }
        state->previous = static_cast<std::uint16_t>(codes[0]);
    }

    VIMBO_INLINE static void StoreDelta(std::byte* bytes, Word difference) noexcept
    {
        if constexpr (sizeof(Word) == 1)
            *bytes = static_cast<std::byte>(difference);
        else
            StoreWord<Order>(bytes, difference);
    }
};

// ---- In-place swaps and channel layouts.

template <class Word>
struct SwapWords {
    template <Isa>
    VIMBO_INLINE static void Run(std::byte* bytes, std::size_t count) noexcept
    {
        for (std::size_t i = 0; i < count; ++i)
            StoreWord<std::endian::native>(
                bytes + sizeof(Word) * i,
                ReverseBytes(LoadWord<Word, std::endian::native>(bytes + sizeof(Word) * i)));
    }
};

struct InterleavePlanes {
    template <Isa>
    VIMBO_INLINE static void Run(const float* __restrict left, const float* __restrict right,
                                 float* __restrict out, std::size_t frames) noexcept
    {
        for (std::size_t i = 0; i < frames; ++i) {
            out[2 * i] = left[i];
            out[2 * i + 1] = right[i];
        }
    }
};

struct SplitPlanes {
    template <Isa>
    VIMBO_INLINE static void Run(const float* __restrict in, float* __restrict left, float* __restrict right,
                                 std::size_t frames) noexcept
    {
        for (std::size_t i = 0; i < frames; ++i) {
            left[i] = in[2 * i];
            right[i] = in[2 * i + 1];
        }
    }
};

struct AveragePlanes {
    template <Isa>
    VIMBO_INLINE static void Run(const float* __restrict in, float* __restrict out,
                                 std::size_t frames) noexcept
    {
        for (std::size_t i = 0; i < frames; ++i)
            out[i] = (in[2 * i] + in[2 * i + 1]) * 0.5f;
    }
};

// ---- Choice of the loop.

template <std::endian Order>
void DecodeOrdered(const SampleLayout& layout, std::span<const std::byte> bytes, std::span<float> out,
                   DeltaState& state) noexcept
{
    const std::uint32_t flip = layout.isUnsigned ? kTopBit : 0;
    const std::byte* const in = bytes.data();
    float* const to = out.data();
    const std::size_t count = out.size();
    std::size_t converted = count;
    switch (layout.coding) {
    case SampleCoding::Pcm8:
        RunBest<Decode8>(in, to, count, flip);
        break;
    case SampleCoding::Pcm12:
        RunBest<DecodePacked<Packing12<Order>>>(in, bytes.size(), to, count, flip, &converted);
        break;
    case SampleCoding::Pcm16:
        RunBest<Decode16<Order>>(in, to, count, flip);
        break;
    case SampleCoding::Pcm20:
        RunBest<DecodePacked<Packing20<Order>>>(in, bytes.size(), to, count, flip, &converted);
        break;
    case SampleCoding::Pcm24:
        RunBest<Decode24<Order>>(in, bytes.size(), to, count, flip, &converted);
        break;
    case SampleCoding::Pcm24In32:
        RunBest<Decode32<Order>>(in, to, count, flip, 0xFFFFFF00u);
        break;
    case SampleCoding::Pcm32:
        RunBest<Decode32<Order>>(in, to, count, flip, 0xFFFFFFFFu);
        break;
    case SampleCoding::Float32:
        if (count != 0)
            std::memmove(to, in, 4 * count);
        if (Order != std::endian::native)
            SwapBytes(std::as_writable_bytes(out), 4);
        break;
    case SampleCoding::Float64:
        RunBest<DecodeFloat64<Order>>(in, to, count);
        break;
    case SampleCoding::MuLaw:
        RunBest<DecodeMuLaw>(in, to, count);
        break;
    case SampleCoding::ALaw:
        RunBest<DecodeALaw>(in, to, count);
        break;
    case SampleCoding::Delta8:
        RunBest<DecodeDelta<std::uint8_t, Order>>(in, to, count, &state);
        break;
    case SampleCoding::Delta16:
        RunBest<DecodeDelta<std::uint16_t, Order>>(in, to, count, &state);
        break;
    }
    // Groups that are not whole, or too near to the end for a wide load.
    if (converted != count)
        DecodeSamplesPlain(layout, bytes.subspan(StoredBytes(layout.coding, converted)),
                           out.subspan(converted), state);
}

template <std::endian Order>
void EncodeOrdered(const SampleLayout& layout, std::span<const float> in, std::span<std::byte> bytes,
                   DeltaState& state) noexcept
{
    const bool isSigned = !layout.isUnsigned;
    const std::uint32_t flip = isSigned ? kTopBit : 0;
    const float* const from = in.data();
    std::byte* const out = bytes.data();
    const std::size_t count = in.size();
    std::size_t converted = count;
    switch (layout.coding) {
    case SampleCoding::Pcm8:
        RunBest<Encode8>(from, out, count, isSigned ? 0x80u : 0u);
        break;
    case SampleCoding::Pcm12:
        RunBest<EncodePacked<Packing12<Order>, 12>>(from, out, bytes.size(), count, flip, &converted);
        break;
    case SampleCoding::Pcm16:
        RunBest<Encode16<Order>>(from, out, count, isSigned ? 0x8000u : 0u);
        break;
    case SampleCoding::Pcm20:
        RunBest<EncodePacked<Packing20<Order>, 20>>(from, out, bytes.size(), count, flip, &converted);
        break;
    case SampleCoding::Pcm24:
        RunBest<Encode24<Order>>(from, out, bytes.size(), count, flip, &converted);
        break;
    case SampleCoding::Pcm24In32:
        RunBest<Encode24In32<Order>>(from, out, count, flip);
        break;
    case SampleCoding::Pcm32:
        RunBest<Encode32<Order>>(from, out, count, flip);
        break;
    case SampleCoding::Float32:
        if (count != 0)
            std::memcpy(out, from, 4 * count);
        if (Order != std::endian::native)
            SwapBytes(bytes, 4);
        break;
    case SampleCoding::Float64:
        RunBest<EncodeFloat64<Order>>(from, out, count);
        break;
    case SampleCoding::MuLaw:
        RunBest<EncodeMuLaw>(from, out, count);
        break;
    case SampleCoding::ALaw:
        RunBest<EncodeALaw>(from, out, count);
        break;
    case SampleCoding::Delta8:
        RunBest<EncodeDelta<std::uint8_t, Order>>(from, out, count, &state);
        break;
    case SampleCoding::Delta16:
        RunBest<EncodeDelta<std::uint16_t, Order>>(from, out, count, &state);
        break;
    }
    if (converted != count)
        EncodeSamplesPlain(layout, in.subspan(converted),
                           bytes.subspan(StoredBytes(layout.coding, converted)), state);
}

} // namespace

void DecodeSamples(const SampleLayout& layout, std::span<const std::byte> bytes, std::span<float> out,
                   DeltaState& state) noexcept
{
    const std::size_t count = std::min(out.size(), HeldSamples(layout.coding, bytes.size()));
    if (layout.order == std::endian::little)
        DecodeOrdered<std::endian::little>(layout, bytes, out.first(count), state);
    else
        DecodeOrdered<std::endian::big>(layout, bytes, out.first(count), state);
    std::fill(out.begin() + static_cast<std::ptrdiff_t>(count), out.end(), 0.0f);
}

void EncodeSamples(const SampleLayout& layout, std::span<const float> in, std::span<std::byte> bytes,
                   DeltaState& state) noexcept
{
    const std::size_t count = std::min(in.size(), HeldSamples(layout.coding, bytes.size()));
    const auto whole = bytes.first(static_cast<std::size_t>(StoredBytes(layout.coding, count)));
    if (layout.order == std::endian::little)
        EncodeOrdered<std::endian::little>(layout, in.first(count), whole, state);
    else
        EncodeOrdered<std::endian::big>(layout, in.first(count), whole, state);
}

void SwapBytes(std::span<std::byte> bytes, std::size_t elementSize) noexcept
{
    switch (elementSize) {
    case 2:
        RunBest<SwapWords<std::uint16_t>>(bytes.data(), bytes.size() / 2);
        break;
    case 3:
        for (std::size_t i = 0; i + 2 < bytes.size(); i += 3)
            std::swap(bytes[i], bytes[i + 2]);
        break;
    case 4:
        RunBest<SwapWords<std::uint32_t>>(bytes.data(), bytes.size() / 4);
        break;
    case 8:
        RunBest<SwapWords<std::uint64_t>>(bytes.data(), bytes.size() / 8);
        break;
    default:
        assert(false && "element size is 2, 3, 4 or 8");
    }
}

void Interleave(std::span<const float> left, std::span<const float> right, std::span<float> out) noexcept
{
    assert(left.size() == right.size() && out.size() == 2 * left.size());
    RunBest<InterleavePlanes>(left.data(), right.data(), out.data(), left.size());
}

void Deinterleave(std::span<const float> in, std::span<float> left, std::span<float> right) noexcept
{
    assert(left.size() == right.size() && in.size() == 2 * left.size());
    RunBest<SplitPlanes>(in.data(), left.data(), right.data(), left.size());
}

void AverageToMono(std::span<const float> in, std::span<float> out) noexcept
{
    assert(out.size() == in.size() / 2);
    RunBest<AveragePlanes>(in.data(), out.data(), out.size());
}

void DuplicateToStereo(std::span<const float> in, std::span<float> out) noexcept
{
    assert(out.size() == 2 * in.size());
    RunBest<InterleavePlanes>(in.data(), in.data(), out.data(), in.size());
}

} // namespace vimbo
