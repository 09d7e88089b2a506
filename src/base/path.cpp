// The functions of path.h that only look at the text; those that ask the system are in path_lookup.cpp.
#include "base/path.h"

#include <array>

namespace vimbo {
namespace {

constexpr char16_t kFirstAccent = 0x300,
                   kLastAccent = 0x36A; ///< marks that may change the letter before them

/// What one combining accent makes of letters: `plain[i]` becomes `composed[i]`.
struct Accent {
    char16_t mark = 0;
    std::u16string_view plain, composed;
};

// Latin-1 letters only. The circumflex lacks "e": names with that letter are left plain on purpose.
constexpr std::array<Accent, 6> kAccents = {{
    {0x300, u"AEIOUaeiou", u"\u00C0\u00C8\u00CC\u00D2\u00D9\u00E0\u00E8\u00EC\u00F2\u00F9"},
    {0x301, u"AEIOUYaeiouy", u"\u00C1\u00C9\u00CD\u00D3\u00DA\u00DD\u00E1\u00E9\u00ED\u00F3\u00FA\u00FD"},
    {0x302, u"AIOUaiou", u"\u00C2\u00CE\u00D4\u00DB\u00E2\u00EE\u00F4\u00FB"},
    {0x303, u"ANOano", u"\u00C3\u00D1\u00D5\u00E3\u00F1\u00F5"},
    {0x308, u"AEIOUaeiouy", u"\u00C4\u00CB\u00CF\u00D6\u00DC\u00E4\u00EB\u00EF\u00F6\u00FC\u00FF"},
    {0x30A, u"Aa", u"\u00C5\u00E5"},
}};

constexpr bool IsCombiningMark(char16_t c) noexcept
{
    return (c >= 0x300 && c <= 0x36F) || (c >= 0x1AB0 && c <= 0x1AFF) || (c >= 0x1DC0 && c <= 0x1DFF) ||
           (c >= 0x20D0 && c <= 0x2DFF) || (c >= 0xFE20 && c <= 0xFE2F);
}

/// The letter with its accent, or the letter itself where Latin-1 has no such form.
char16_t Compose(char16_t letter, char16_t mark) noexcept
{
    for (const Accent& accent : kAccents)
        if (accent.mark == mark)
            if (const std::size_t at = accent.plain.find(letter); at != std::u16string_view::npos)
                return accent.composed[at];
    return letter;
}

} // namespace

std::size_t GetFileName(std::u16string_view path) noexcept
{
    return path.find_last_of(u"/:\\") + 1; // npos + 1 is 0
}

std::size_t GetExtension(std::u16string_view path) noexcept
{
    const std::size_t dot = path.rfind(u'.');
    return dot == std::u16string_view::npos || dot < GetFileName(path) ? path.size() : dot;
}

std::u16string BaseName(std::u16string_view path)
{
    const std::size_t start = GetFileName(path);
    return std::u16string(path.substr(start, GetExtension(path) - start));
}

std::u16string DirectoryOf(std::u16string_view path)
{
    const std::size_t slash = path.rfind(u'/');
    if (slash == std::u16string_view::npos)
        return {};
    const std::size_t last = path.substr(0, slash).find_last_not_of(u'/');
    return last == std::u16string_view::npos ? u"/" : std::u16string(path.substr(0, last + 1));
}

std::u16string JoinPath(std::u16string_view folder, std::u16string_view name)
{
    std::u16string result;
    if (!folder.empty() && !name.starts_with(u'/')) {
        result = folder;
        if (result.back() != u'/')
            result += u'/';
    }
    return result += name;
}

bool ComposeAccents(std::u16string& path)
{
    bool changed = false;
    std::size_t kept = 0;
    for (const char16_t unit : path) {
        if (!IsCombiningMark(unit)) {
            path[kept++] = unit;
            continue;
        }
        if (kept == 0 || unit < kFirstAccent || unit > kLastAccent)
            continue;
        char16_t& letter = path[kept - 1];
        const char16_t composed = Compose(letter, unit);
        changed |= composed != letter;
        letter = composed;
    }
    path.resize(kept);
    return changed;
}

} // namespace vimbo
