#include "cli/display.h"

#include "base/text.h"

#include <cstdio>

namespace vimbo::cli {

std::string PathToUtf8(std::string_view path)
{
    return WideToUtf8(PathToWide(path));
}

std::string Printable(std::u16string_view text)
{
    std::u16string line;
    for (const char16_t unit : text) {
        const bool isBreak = unit == u'\n' || unit == u'\r' || unit == u'\t';
        if (isBreak && line.ends_with(u' '))
            continue;
        const bool isControl = unit < 32 || (unit >= 127 && unit < 160);
        line += isBreak ? u' ' : isControl ? u'?' : unit;
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
