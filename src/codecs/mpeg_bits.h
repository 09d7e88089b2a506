// Bits of an MPEG frame, from the top of each byte. Internal to this folder.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace vimbo::mpeg {

/// Bytes behind the data that MpegBits may look at.
inline constexpr std::size_t kBitsMargin = 8;

/// The data must be followed by kBitsMargin bytes of memory. Behind them every bit is 0.
class MpegBits {
public:
    MpegBits(const std::uint8_t* data, std::size_t bytes) noexcept : data_(data), bytes_(bytes) {}

    std::size_t Position() const noexcept { return at_; }
    void Seek(std::size_t bit) noexcept { at_ = bit; }
    std::size_t SizeBits() const noexcept { return 8 * bytes_; }

    /// @param bits 0 to 32
    std::uint32_t Take(unsigned bits) noexcept
    {
        if (bits == 0)
            return 0;
        if (at_ + bits > 8 * bytes_)
            return TakeAtEnd(bits);
        const auto value = static_cast<std::uint32_t>(Peek(at_) >> (64 - bits));
        at_ += bits;
        return value;
    }

    /// 57 or more bits from `bit` on, at the top of the word. `bit` lies at most at the data's end.
    std::uint64_t Peek(std::size_t bit) const noexcept
    {
        std::uint64_t word;
        std::memcpy(&word, data_ + (bit >> 3), sizeof(word));
        if constexpr (std::endian::native == std::endian::little)
            word = __builtin_bswap64(word);
        return word << (bit & 7);
    }

private:
    std::uint32_t TakeAtEnd(unsigned bits) noexcept
    {
        std::uint32_t value = 0;
        for (; bits != 0; --bits, ++at_) {
            const unsigned bit = at_ < 8 * bytes_ ? data_[at_ >> 3] >> (7 - (at_ & 7)) & 1u : 0u;
            value = value << 1 | bit;
        }
        return value;
    }

    const std::uint8_t* data_;
    std::size_t bytes_;
    std::size_t at_ = 0;
};

} // namespace vimbo::mpeg
