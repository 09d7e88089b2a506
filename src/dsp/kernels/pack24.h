// Samples of 12, 20 and 24 bits to and from words whose most significant bit is bit 31, a group at a time.
// Internal to this folder.
#pragma once

#include "dsp/kernels/multiversion.h"
#include "dsp/kernels/word_access.h"

namespace vimbo {

/// Each packing converts kSamples samples in kBytes bytes. kSlack: bytes that Unpack reads and Pack
/// overwrites behind the group; the caller sees to it that they exist, and that groups are stored in
/// ascending order.
template <std::endian Order>
struct Packing12 {
    static constexpr std::size_t kSamples = 2, kBytes = 3, kSlack = 0;
    static constexpr bool kLittle = Order == std::endian::little;

    VIMBO_INLINE static void Unpack(const std::byte* in, std::uint32_t* words) noexcept
    {
        const auto b0 = std::to_integer<std::uint32_t>(in[0]);
        const auto b1 = std::to_integer<std::uint32_t>(in[1]);
        const auto b2 = std::to_integer<std::uint32_t>(in[2]);
        const std::uint32_t pair = kLittle ? b0 | b1 << 8 | b2 << 16 : b0 << 16 | b1 << 8 | b2;
        const std::uint32_t low = pair << 20;
        const std::uint32_t high = pair << 8 & 0xFFF00000;
        words[0] = kLittle ? low : high;
        words[1] = kLittle ? high : low;
    }

    VIMBO_INLINE static void Pack(const std::uint32_t* words, std::byte* out) noexcept
    {
        const std::uint32_t low = kLittle ? words[0] : words[1];
        const std::uint32_t high = kLittle ? words[1] : words[0];
        const std::uint32_t pair = low >> 20 | (high >> 8 & 0x00FFF000);
        out[0] = static_cast<std::byte>(kLittle ? pair : pair >> 16);
        out[1] = static_cast<std::byte>(pair >> 8);
        out[2] = static_cast<std::byte>(kLittle ? pair >> 16 : pair);
    }
};

template <std::endian Order>
struct Packing20 {
    static constexpr std::size_t kSamples = 2, kBytes = 5, kSlack = 0;
    static constexpr bool kLittle = Order == std::endian::little;

    VIMBO_INLINE static void Unpack(const std::byte* in, std::uint32_t* words) noexcept
    {
        const auto word = LoadWord<std::uint32_t, Order>(in);
        const auto last = std::to_integer<std::uint32_t>(in[4]);
        words[0] = kLittle ? word << 12 : word & 0xFFFFF000;
        words[1] = kLittle ? (word >> 8 & 0x00FFF000) | last << 24 : word << 20 | last << 12;
    }

    VIMBO_INLINE static void Pack(const std::uint32_t* words, std::byte* out) noexcept
    {
        const std::uint32_t first = words[0] & 0xFFFFF000;
        const std::uint32_t second = words[1];
        const std::uint32_t word = kLittle ? first >> 12 | (second << 8 & 0xFFF00000) : first | second >> 20;
        StoreWord<Order>(out, word);
        out[4] = static_cast<std::byte>(kLittle ? second >> 24 : second >> 12);
    }
};

/// Four samples as one word of eight bytes and one of four.
template <std::endian Order>
struct Packing24 {
    static constexpr std::size_t kSamples = 4, kBytes = 12, kSlack = 0;
    static constexpr bool kLittle = Order == std::endian::little;
    static constexpr std::uint32_t kTop24 = 0xFFFFFF00;

    VIMBO_INLINE static void Unpack(const std::byte* in, std::uint32_t* words) noexcept
    {
        const auto head = LoadWord<std::uint64_t, Order>(in);
        const auto tail = LoadWord<std::uint32_t, Order>(in + 8);
        const auto low = [head](unsigned shift) { return static_cast<std::uint32_t>(head >> shift); };
        words[0] = kLittle ? low(0) << 8 : low(32) & kTop24;
        words[1] = kLittle ? low(16) & kTop24 : low(8) & kTop24;
        words[2] = kLittle ? low(48) << 8 | tail << 24 : low(0) << 16 | (tail >> 16 & 0xFF00);
        words[3] = kLittle ? tail & kTop24 : tail << 8;
    }

    VIMBO_INLINE static void Pack(const std::uint32_t* words, std::byte* out) noexcept
    {
        const std::uint64_t a = words[0] >> 8, b = words[1] >> 8, c = words[2] >> 8, d = words[3] >> 8;
        const std::uint64_t head = kLittle ? a | b << 24 | c << 48 : a << 40 | b << 16 | c >> 8;
        const std::uint64_t tail = kLittle ? c >> 16 | d << 8 : c << 24 | d;
        StoreWord<Order>(out, head);
        StoreWord<Order>(out + 8, static_cast<std::uint32_t>(tail));
    }
};

#if defined(__x86_64__) && defined(__GNUC__)

/// The same by byte shuffles, one instruction on AVX2; a vector holds four samples, so twelve of its bytes
/// are used.
template <std::endian Order>
struct Shuffling24 {
    static constexpr std::size_t kSamples = 4, kBytes = 12, kSlack = 4;
    static constexpr bool kLittle = Order == std::endian::little;
    using Bytes16 = std::uint8_t __attribute__((vector_size(16)));
    using Words4 = std::uint32_t __attribute__((vector_size(16)));

    VIMBO_INLINE static void Unpack(const std::byte* in, std::uint32_t* words) noexcept
    {
        Bytes16 bytes;
        std::memcpy(&bytes, in, sizeof bytes);
        if constexpr (kLittle)
            bytes = __builtin_shufflevector(bytes, bytes, 0, 0, 1, 2, 3, 3, 4, 5, 6, 6, 7, 8, 9, 9, 10, 11);
        else
            bytes = __builtin_shufflevector(bytes, bytes, 2, 2, 1, 0, 5, 5, 4, 3, 8, 8, 7, 6, 11, 11, 10, 9);
        Words4 samples;
        std::memcpy(&samples, &bytes, sizeof samples);
        samples &= 0xFFFFFF00u;
        std::memcpy(words, &samples, sizeof samples);
    }

    VIMBO_INLINE static void Pack(const std::uint32_t* words, std::byte* out) noexcept
    {
        Bytes16 bytes;
        std::memcpy(&bytes, words, sizeof bytes);
        if constexpr (kLittle)
            bytes =
                __builtin_shufflevector(bytes, bytes, 1, 2, 3, 5, 6, 7, 9, 10, 11, 13, 14, 15, 0, 0, 0, 0);
        else
            bytes =
                __builtin_shufflevector(bytes, bytes, 3, 2, 1, 7, 6, 5, 11, 10, 9, 15, 14, 13, 0, 0, 0, 0);
        std::memcpy(out, &bytes, sizeof bytes);
    }
};

template <std::endian Order, Isa Version>
using Fastest24 = std::conditional_t<Version == Isa::Avx2, Shuffling24<Order>, Packing24<Order>>;

#else

template <std::endian Order, Isa>
using Fastest24 = Packing24<Order>;

#endif

} // namespace vimbo
