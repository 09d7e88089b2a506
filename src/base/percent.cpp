#include "base/percent.h"

#include <cctype>
#include <charconv>

#include <fmt/format.h>

namespace vimbo {

std::string PercentEncoded(std::string_view bytes)
{
    std::string encoded;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        const bool plain = byte < 0x80 && (std::isalnum(byte) != 0 ||
                                           std::string_view("/-_.!~*'()").find(c) != std::string_view::npos);
        encoded += plain ? std::string(1, c) : fmt::format("%{:02X}", byte);
    }
    return encoded;
}

std::string PercentDecoded(std::string_view text)
{
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const std::string_view digits = text.substr(i + 1, 2);
        unsigned char byte = 0;
        const bool isEncoded =
            text[i] == '%' && digits.size() == 2 &&
            std::from_chars(digits.data(), digits.data() + 2, byte, 16).ptr == digits.data() + 2;
        bytes += isEncoded ? static_cast<char>(byte) : text[i];
        i += isEncoded ? 2 : 0;
    }
    return bytes;
}

} // namespace vimbo
