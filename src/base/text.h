// Text inside the program is UTF-16; this converts it from and to the 8-bit text of files and to UTF-8.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace vimbo {

/// 8-bit file text (Windows-1252) to UTF-16. Bytes 0x80..0x9F go through the Windows-1252 table, all others
/// keep their value. Stops at the first NUL and after 0x100000 characters.
std::u16string NarrowToWide(std::string_view text);

/// The same into a fixed field: writes the converted text and a terminating NUL.
/// @return false when the room runs out; what fits is written, the last unit is the NUL.
bool NarrowToWide(std::span<char16_t> out, std::string_view text) noexcept;

/// UTF-16 to 8-bit file text, up to the first NUL. Code points up to U+00FF keep their value. Latin
/// Extended-A, Greek (U+0370..U+03FF) and Cyrillic (U+0400..U+0467) letters become plain Latin look-alikes.
/// Typographic quotes become "'" and '"', the bullet '*', the ellipsis '.', angle quotes '<' and '>', the
/// circumflex '^', the euro sign 'E'; the other characters of Windows-1252 (dashes, daggers, trade mark, per
/// mille, florin, small tilde) keep their byte. Anything else becomes '?', a surrogate pair as one character.
std::string WideToNarrow(std::u16string_view text);

/// The same into a fixed field, with a terminating NUL; false when the room runs out, as for NarrowToWide.
bool WideToNarrow(std::span<char> out, std::u16string_view text) noexcept;

/// UTF-8 to UTF-16; an invalid sequence becomes U+FFFD.
std::u16string Utf8ToWide(std::string_view text);

/// UTF-16 to UTF-8; an unpaired surrogate becomes U+FFFD.
std::string WideToUtf8(std::u16string_view text);

/// A path of the system to UTF-16 and back. Bytes that are no UTF-8 travel as lone surrogates U+DC80..U+DCFF,
/// so that every file name survives the round trip byte by byte.
std::u16string PathToWide(std::string_view path);
std::string WideToPath(std::u16string_view path);

/// Lower-case form of one UTF-16 unit for comparing names without regard to case (ASCII, Latin-1, Latin
/// Extended-A, Greek, where the final sigma counts as sigma, and Cyrillic; all others unchanged).
char16_t FoldCase(char16_t unit) noexcept;

/// Compares two texts without regard to case, unit by unit after FoldCase; <0, 0, >0 as for string
/// comparison.
int CompareNoCase(std::u16string_view a, std::u16string_view b) noexcept;

} // namespace vimbo
