// Words in file bytes, for inner loops: loads and stores without alignment, in either byte order. Internal to
// this folder.
#pragma once

#include "dsp/kernels/sample_rules.h"

#include <cstring>

namespace vimbo {

VIMBO_INLINE std::uint16_t ReverseBytes(std::uint16_t word) noexcept
{
    return static_cast<std::uint16_t>(word >> 8 | word << 8);
}

VIMBO_INLINE std::uint32_t ReverseBytes(std::uint32_t word) noexcept
{
    word = (word & 0x00FF00FF) << 8 | (word >> 8 & 0x00FF00FF);
    return word << 16 | word >> 16;
}

VIMBO_INLINE std::uint64_t ReverseBytes(std::uint64_t word) noexcept
{
    word = (word & 0x00FF00FF00FF00FF) << 8 | (word >> 8 & 0x00FF00FF00FF00FF);
    word = (word & 0x0000FFFF0000FFFF) << 16 | (word >> 16 & 0x0000FFFF0000FFFF);
    return word << 32 | word >> 32;
}

template <class Word, std::endian Order>
VIMBO_INLINE Word LoadWord(const std::byte* bytes) noexcept
{
    Word word;
    std::memcpy(&word, bytes, sizeof word);
    return Order == std::endian::native ? word : ReverseBytes(word);
}

template <std::endian Order, class Word>
VIMBO_INLINE void StoreWord(std::byte* bytes, Word word) noexcept
{
    if constexpr (Order != std::endian::native)
        word = ReverseBytes(word);
    std::memcpy(bytes, &word, sizeof word);
}

} // namespace vimbo
