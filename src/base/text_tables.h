// Code tables behind the conversions of text.h. Internal to base.
#pragma once

#include <array>
#include <string_view>

namespace vimbo {

/// Windows-1252, bytes 0x80..0x9F. The five undefined bytes (81 8D 8F 90 9D) stand for the control of the
/// same value.
extern const std::array<char16_t, 32> kWindows1252;

/// Plain Latin look-alikes: the entry of code point `c` stands at c - first.
struct BestFitTable {
    char32_t first = 0;
    std::string_view plain;
};
extern const std::array<BestFitTable, 3> kBestFitTables;

} // namespace vimbo
