// The 32-bit name by which items refer to one another.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>

namespace vimbo {

enum class ItemKind : std::uint8_t {
    Waveform = 0,
    SynthModel = 1,
    Region = 2,
    Layer = 3,
    Instrument = 4,
    Track = 5,
    Song = 6,
    Collection = 7
};
inline constexpr std::size_t kItemKinds = 8;

/// The lower-case word of messages and default names: "waveform", "synth" ...; index 8 is "special".
std::u16string_view KindWord(std::size_t kind) noexcept;

inline constexpr std::uint32_t kSerialMask = 0x0FFFFFFF;
inline constexpr std::uint32_t ANY_SERIAL = 0x0FFFFFFF;      ///< "take the next free serial"
inline constexpr std::uint32_t NO_WAVEFORM_YET = 0x0FFFFFFE; ///< a region made without a waveform

/// Top four bits the kind, low 28 bits the serial; all ones names no item.
struct ItemHandle {
    std::uint32_t value = 0xFFFFFFFF;

    constexpr ItemHandle() noexcept = default;
    constexpr explicit ItemHandle(std::uint32_t raw) noexcept : value(raw) {}
    constexpr ItemHandle(ItemKind kind, std::uint32_t serial) noexcept
        : value(static_cast<std::uint32_t>(kind) << 28 | (serial & kSerialMask))
    {
    }

    constexpr std::size_t KindIndex() const noexcept { return value >> 28; }
    constexpr ItemKind Kind() const noexcept { return static_cast<ItemKind>(value >> 28); }
    constexpr std::uint32_t Serial() const noexcept { return value & kSerialMask; }
    friend constexpr bool operator==(ItemHandle, ItemHandle) noexcept = default;
    friend constexpr auto operator<=>(ItemHandle, ItemHandle) noexcept = default;
};
inline constexpr ItemHandle NO_ITEM{0xFFFFFFFF};

/// The full handle that a child slot of an item of kind `parent` means: where only one kind can stand, the
/// slot's serial is enough. NO_ITEM for kinds that cannot stand there, so walks down the hierarchy always
/// end.
ItemHandle ChildHandle(ItemKind parent, ItemHandle slot) noexcept;

/// FNV-1a, 64 bits, over the handle's four bytes in little-endian order.
struct ItemHandleHash {
    constexpr std::size_t operator()(ItemHandle handle) const noexcept
    {
        std::uint64_t hash = 0xCBF29CE484222325;
        for (unsigned shift = 0; shift < 32; shift += 8)
            hash = (hash ^ ((handle.value >> shift) & 0xFF)) * 0x100000001B3;
        return static_cast<std::size_t>(hash);
    }
};

} // namespace vimbo
