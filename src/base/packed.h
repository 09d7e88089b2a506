// Fixed-byte-order fields for records that are stored in files.
#pragma once

#include <array>
#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace vimbo {

/// Number in a fixed byte order; one-byte aligned, so it may sit anywhere in a record.
template <class T, std::endian Order>
requires std::is_arithmetic_v<T>
class Packed {
public:
    constexpr Packed() noexcept = default;
    constexpr Packed(T value) noexcept { Set(value); } // NOLINT: records are filled in with plain numbers

    constexpr T Get() const noexcept
    {
        Bits value = 0;
        for (std::size_t i = 0; i < sizeof(T); ++i)
            value = static_cast<Bits>(value | static_cast<Bits>(Bits{bytes_[i]} << ShiftOf(i)));
        return std::bit_cast<T>(value);
    }

    constexpr void Set(T value) noexcept
    {
        const auto bits = std::bit_cast<Bits>(value);
        for (std::size_t i = 0; i < sizeof(T); ++i)
            bytes_[i] = static_cast<std::uint8_t>(bits >> ShiftOf(i));
    }

private:
    using Bits = std::conditional_t<
        sizeof(T) == 1, std::uint8_t,
        std::conditional_t<sizeof(T) == 2, std::uint16_t,
                           std::conditional_t<sizeof(T) == 4, std::uint32_t, std::uint64_t>>>;

    static constexpr unsigned ShiftOf(std::size_t index) noexcept
    {
        const std::size_t place = Order == std::endian::little ? index : sizeof(T) - 1 - index;
        return static_cast<unsigned>(8 * place);
    }

    std::array<std::uint8_t, sizeof(T)> bytes_{};
};

using U16le = Packed<std::uint16_t, std::endian::little>;
using U16be = Packed<std::uint16_t, std::endian::big>;
using U32le = Packed<std::uint32_t, std::endian::little>;
using U32be = Packed<std::uint32_t, std::endian::big>;
using U64le = Packed<std::uint64_t, std::endian::little>;
using U64be = Packed<std::uint64_t, std::endian::big>;
using I16le = Packed<std::int16_t, std::endian::little>;
using I16be = Packed<std::int16_t, std::endian::big>;
using I32le = Packed<std::int32_t, std::endian::little>;
using I32be = Packed<std::int32_t, std::endian::big>;
using F32le = Packed<float, std::endian::little>;
using F32be = Packed<float, std::endian::big>;
using F64le = Packed<double, std::endian::little>;
using F64be = Packed<double, std::endian::big>;

/// A type that may be copied to and from file bytes as it stands.
template <class T>
concept DiskRecord = std::is_trivially_copyable_v<T> && alignof(T) == 1;

/// Four-character code as it stands in the file, e.g. FourCc{"fmt "}.
struct FourCc {
    std::array<char, 4> text{};

    constexpr FourCc() noexcept = default;
    constexpr FourCc(const char (&literal)[5]) noexcept : text{literal[0], literal[1], literal[2], literal[3]}
    {
    }
    friend constexpr bool operator==(const FourCc&, const FourCc&) noexcept = default;
};
static_assert(DiskRecord<FourCc> && sizeof(FourCc) == 4);

} // namespace vimbo
