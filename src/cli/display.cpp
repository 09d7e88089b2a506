#include "cli/display.h"

#include "base/text.h"

#include <algorithm>
#include <cstdio>

namespace vimbo::cli {

namespace {

bool IsControl(char16_t unit) noexcept
{
    return unit < 32 || (unit >= 127 && unit < 160);
}

} // namespace

std::string PathToUtf8(std::string_view path)
{
    return WideToUtf8(PathToWide(path));
}

std::string Printable(std::u16string_view text)
{
    if (std::ranges::none_of(text, IsControl))
        return WideToUtf8(text);
    std::u16string line;
    for (const char16_t unit : text) {
        const bool isBreak = unit == u'\n' || unit == u'\r' || unit == u'\t';
        if (isBreak && line.ends_with(u' '))
            continue;
        line += isBreak ? u' ' : IsControl(unit) ? u'?' : unit;
    }
    return WideToUtf8(line);
}

std::string Printable(std::string_view text)
{
    return Printable(PathToWide(text));
}

bool WriteOut(std::string_view text)
{
    return std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
}

} // namespace vimbo::cli
