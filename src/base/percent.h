// Bytes as plain text: percent-encoding (RFC 3986, section 2.1).
#pragma once

#include <string>
#include <string_view>

namespace vimbo {

/// Letters, digits and "/-_.!~*'()" stay, every other byte becomes "%" and two digits.
std::string PercentEncoded(std::string_view bytes);
/// The bytes again; a "%" without two hexadecimal digits stays as it is.
std::string PercentDecoded(std::string_view text);

} // namespace vimbo
