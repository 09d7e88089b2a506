#include "formats/soundfont/soundfont_names.h"

#include "base/fit_name.h"
#include "base/text.h"
#include "formats/soundfont/soundfont_build.h"

#include <algorithm>

namespace vimbo::sf2 {
namespace {

/// Equal for names that a collection takes for equal.
std::u16string KeyOf(std::string_view name)
{
    std::u16string key = NarrowToWide(name);
    for (char16_t& unit : key)
        unit = FoldCase(unit);
    return key;
}

std::string_view Trimmed(std::string_view text) noexcept
{
    const auto isBlank = [](char c) { return static_cast<unsigned char>(c) <= ' '; };
    while (!text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

/// Reading looks for a side behind such characters, and takes them off with it.
std::string_view WithoutSeparators(std::string_view stem) noexcept
{
    while (stem.size() > 1 && (stem.back() == ' ' || stem.back() == '-' || stem.back() == '_'))
        stem.remove_suffix(1);
    return stem;
}

} // namespace

std::string NarrowNameOf(std::u16string_view name)
{
    std::string narrow = WideToNarrow(name);
    for (char& c : narrow)
        if (static_cast<unsigned char>(c) < ' ')
            c = ' ';
    // Some characters have a byte of their own that is read as another character.
    return std::string(Trimmed(WideToNarrow(NarrowToWide(narrow))));
}

std::array<char, 20> NameField(std::string_view name) noexcept
{
    std::array<char, 20> field{};
    std::copy_n(name.begin(), std::min(name.size(), field.size()), field.begin());
    return field;
}

std::string CutName(std::string_view name, std::size_t room)
{
    if (name.size() <= room)
        return std::string(name);
    std::string field(room, '\0');
    field.resize(FitName(field, name, KeepTags::Yes, PadName::No, EndName::No));
    return std::string(Trimmed(field));
}

bool FieldNames::IsFree(std::string_view name) const
{
    return !taken_.contains(KeyOf(name));
}

void FieldNames::Reserve(std::string_view name)
{
    taken_.insert(KeyOf(name));
}

template <class TryName>
void FieldNames::ForEachNumber(std::string_view stem, std::size_t room, TryName tryName)
{
    const std::string first = CutName(stem, room);
    if (tryName(first))
        return;
    for (unsigned& number = numbers_[first];;) {
        const std::string digits = " " + std::to_string(++number);
        std::string_view base = first;
        base = Trimmed(base.substr(0, std::min(base.size(), room - digits.size())));
        if (tryName(std::string(base) + digits))
            return;
    }
}

std::string FieldNames::Take(std::string_view wanted)
{
    std::string result;
    ForEachNumber(wanted.empty() ? "unnamed" : wanted, kNameBytes, [&](const std::string& name) {
        if (!IsFree(name))
            return false;
        Reserve(name);
        result = name;
        return true;
    });
    return result;
}

bool FieldNames::TakeBoth(std::string_view left, std::string_view right)
{
    const bool fit = left.size() <= kNameBytes && right.size() <= kNameBytes && !left.empty() &&
                     !right.empty() && IsFree(left) && IsFree(right) && KeyOf(left) != KeyOf(right);
    if (fit) {
        Reserve(left);
        Reserve(right);
    }
    return fit;
}

NamePair FieldNames::TakePair(std::string_view stem)
{
    NamePair pair;
    ForEachNumber(stem.empty() ? "unnamed" : stem, kNameBytes - 1, [&](const std::string& cut) {
        const std::string base(WithoutSeparators(cut));
        // As much of the mark as there is room for.
        const std::string mark = base.size() + 3 <= kNameBytes   ? " -"
                                 : base.size() + 2 <= kNameBytes ? "-"
                                                                 : "";
        pair = {base + mark + "L", base + mark + "R"};
        return TakeBoth(pair.left, pair.right);
    });
    return pair;
}

} // namespace vimbo::sf2
