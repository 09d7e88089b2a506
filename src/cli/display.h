// Names and texts in the form in which they may be shown: valid UTF-8, and nothing that drives a terminal.
#pragma once

#include <string>
#include <string_view>

namespace vimbo::cli {

/// A path of the system as valid UTF-8: bytes that are none become U+FFFD. For JSON.
std::string PathToUtf8(std::string_view path);

/// Text for one line of a terminal: valid UTF-8, line breaks as blanks, other control characters as "?".
std::string Printable(std::string_view text);
std::string Printable(std::u16string_view text);

/// Writes to standard output; false if the system refused.
[[nodiscard]] bool WriteOut(std::string_view text);

} // namespace vimbo::cli
