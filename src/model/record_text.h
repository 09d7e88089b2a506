// UTF-16 text inside the records of state files.
#pragma once

#include "base/byte_reader.h"

#include <span>
#include <string>
#include <string_view>

namespace vimbo {

/// What Deserialize says about a record that no Serialize wrote.
inline constexpr std::u16string_view kDamagedRecord = u"Damaged state record";

/// Appends the units in little-endian order, without a length or terminator.
inline void WriteUnits(ByteWriter& out, std::u16string_view text)
{
    const std::span<std::byte> room = out.Extend(2 * text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        room[2 * i] = static_cast<std::byte>(text[i] & 0xFF);
        room[2 * i + 1] = static_cast<std::byte>(text[i] >> 8);
    }
}

/// The text of bytes.size() / 2 units.
inline std::u16string ReadUnits(std::span<const std::byte> bytes)
{
    std::u16string text(bytes.size() / 2, u'\0');
    for (std::size_t i = 0; i < text.size(); ++i)
        text[i] = static_cast<char16_t>(std::to_integer<unsigned>(bytes[2 * i]) |
                                        std::to_integer<unsigned>(bytes[2 * i + 1]) << 8);
    return text;
}

} // namespace vimbo
