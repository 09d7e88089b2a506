#include "model/side_names.h"

#include "base/text.h"
#include "model/stereo_pairs.h"

namespace vimbo {
namespace {

using Side = SideEnding::Side;

Side SideOf(char16_t letter) noexcept
{
    const char16_t folded = FoldCase(letter);
    return folded == u'l' ? Side::Left : folded == u'r' ? Side::Right : Side::None;
}

bool IsDigit(char16_t unit) noexcept
{
    return unit >= u'0' && unit <= u'9';
}

bool IsSeparator(char16_t unit) noexcept
{
    return unit == u' ' || unit == u'-' || unit == u'_';
}

bool IsBracketed(std::u16string_view name) noexcept
{
    if (name.size() < 3)
        return false;
    const char16_t open = name[name.size() - 3];
    return (open == u'(' && name.back() == u')') || (open == u'[' && name.back() == u']');
}

/// "Str L", "StrL" and "60L", but not "Cell" or "BELL".
bool StandsApart(char16_t before, char16_t letter) noexcept
{
    const bool isCapital = letter < u'a', isSmallBefore = before >= u'a' && before <= u'z';
    return IsSeparator(before) || (isCapital && (isSmallBefore || IsDigit(before)));
}

} // namespace

SideEnding FindSideEnding(std::u16string_view name) noexcept
{
    SideEnding ending;
    if (IsBracketed(name)) {
        ending.side = SideOf(name[name.size() - 2]);
        ending.isClear = true;
        name.remove_suffix(3);
    } else {
        if (name.size() > 1 && IsDigit(name.back())) {
            ending.digit = name.back();
            name.remove_suffix(1);
        }
        if (name.size() < 2)
            return {};
        ending.side = SideOf(name.back());
        ending.isClear = StandsApart(name[name.size() - 2], name.back());
        name.remove_suffix(1);
    }
    while (!name.empty() && IsSeparator(name.back()))
        name.remove_suffix(1);
    ending.stem = name.size();
    return name.empty() || ending.side == Side::None ? SideEnding() : ending;
}

bool AreSidesOfOneName(std::u16string_view a, std::u16string_view b) noexcept
{
    const SideEnding one = FindSideEnding(a), other = FindSideEnding(b);
    return one.side != Side::None && other.side != Side::None && one.side != other.side &&
           one.digit == other.digit && CompareNoCase(a.substr(0, one.stem), b.substr(0, other.stem)) == 0;
}

std::u16string_view WithoutSideEnding(std::u16string_view name) noexcept
{
    const SideEnding ending = FindSideEnding(name);
    return ending.isClear ? name.substr(0, ending.stem) : name;
}

} // namespace vimbo
