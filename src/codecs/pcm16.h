// The 16-bit stage that the sample codecs work in, and its way to and from float. Internal to this folder.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace vimbo {

inline int Clamp16(int value) noexcept
{
    return std::clamp(value, -32768, 32767);
}

inline float FromPcm16(int value) noexcept
{
    return static_cast<float>(value) * 0x1p-15f;
}

/// Nearest 16-bit sample of a nominal -1 to 1; what lies beyond saturates, NaN is silence.
inline int ToPcm16(float x) noexcept
{
    const float code = x == x ? x * 32768.0f + 32768.5f : 32768.0f;
    return static_cast<int>(std::clamp(code, 0.0f, 65535.0f)) - 32768;
}

/// Little-endian signed 16 bits at `at`, which must lie inside `bytes` with its second byte.
inline int Int16LeAt(std::span<const std::byte> bytes, std::size_t at) noexcept
{
    const auto low = std::to_integer<unsigned>(bytes[at]);
    const auto high = std::to_integer<unsigned>(bytes[at + 1]);
    return static_cast<std::int16_t>(high << 8 | low);
}

/// Little-endian 32 bits at `at`; bytes past the end count as 0.
inline std::uint32_t Word32LeAt(std::span<const std::byte> bytes, std::size_t at) noexcept
{
    std::uint32_t word = 0;
    if constexpr (std::endian::native == std::endian::little) {
        if (at < bytes.size() && bytes.size() - at >= sizeof(word)) {
            std::memcpy(&word, bytes.data() + at, sizeof(word));
            return word;
        }
    }
    for (std::size_t i = 0; i < sizeof(word) && at + i < bytes.size(); ++i)
        word |= std::to_integer<std::uint32_t>(bytes[at + i]) << (8 * i);
    return word;
}

inline std::byte LowByte(int value) noexcept
{
    return static_cast<std::byte>(static_cast<unsigned>(value) & 0xFF);
}

} // namespace vimbo
