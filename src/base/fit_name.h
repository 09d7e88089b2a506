// Fitting names into the fixed-width fields of file formats, keeping what tells siblings apart.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace vimbo {

enum class KeepTags : bool { No, Yes }; ///< keep the number, note and channel tags at the end when shortening
enum class PadName : bool { No, Yes };  ///< fill up with blanks, channel letter in the last two places
enum class EndName : bool { No, Yes };  ///< reserve room for, and store, a terminating NUL

/// Writes `name` into a field of out.size() characters. The stem is what gets shortened; the trailing channel
/// tag
/// ("-L", " R"), number ("12") and note name ("C#3") survive. Without padding the rest of the field is zero.
/// @return characters written, with the padding when padding was asked for, without the NUL.
std::size_t FitName(std::span<char> out, std::string_view name, KeepTags keepTags, PadName pad,
                    EndName end) noexcept;
std::size_t FitName(std::span<char16_t> out, std::u16string_view name, KeepTags keepTags, PadName pad,
                    EndName end) noexcept;

} // namespace vimbo
