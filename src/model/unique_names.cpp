// Telling items of one name apart by numbers.
#include "base/text.h"
#include "model/collection.h"

#include <algorithm>
#include <string>
#include <unordered_map>

namespace vimbo {

namespace {

/// More digits than this are no number that was ever put behind a name; 64 bits hold them.
constexpr std::size_t kMaxDigits = 18;

constexpr bool IsDigit(char16_t unit) noexcept
{
    return unit >= u'0' && unit <= u'9';
}

/// Equal for names that count as equal: the same 8-bit text, case ignored.
std::u16string NameKey(std::string_view narrow)
{
    std::u16string key = NarrowToWide(narrow);
    for (char16_t& unit : key)
        unit = FoldCase(unit);
    return key;
}

std::u16string NameKey(std::u16string_view name)
{
    return NameKey(WideToNarrow(name));
}

constexpr bool HasTexts(ItemKind kind) noexcept
{
    return kind == ItemKind::Waveform || kind == ItemKind::Instrument || kind == ItemKind::Song ||
           kind == ItemKind::Collection;
}

/// The name's 8-bit form; text items keep theirs, for others it is made in `room`.
const std::string& NarrowName(const Item& item, std::string& room)
{
    if (HasTexts(item.Kind()))
        return static_cast<const TextItem&>(item).GetTextNarrow(kTextName);
    return room = WideToNarrow(item.GetName());
}

/// Rules most pairs of names out without converting them: only ASCII is looked at.
bool MayBeEqual(std::string_view a, std::string_view b) noexcept
{
    const auto alike = [](char left, char right) {
        const auto l = static_cast<unsigned char>(left), r = static_cast<unsigned char>(right);
        return l == r || l >= 0x80 || r >= 0x80 || FoldCase(l) == FoldCase(r);
    };
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), alike);
}

/// Where the number behind a name starts; the name's length if it has none. The digit of a note name ("C#3")
/// is none.
std::size_t NumberStart(std::u16string_view name) noexcept
{
    std::size_t start = name.size();
    while (start > 0 && IsDigit(name[start - 1]))
        --start;
    if (name.size() - start > kMaxDigits)
        return name.size();
    const char16_t before = name.size() >= 2 ? name[name.size() - 2] : u' ';
    const bool isNote = before == u'#' || (before >= u'A' && before <= u'G');
    return isNote ? name.size() : start;
}

/// The name that is tried after `name`.
std::u16string NextName(std::u16string_view name)
{
    const std::size_t start = NumberStart(name);
    std::uint64_t number = 0;
    for (const char16_t digit : name.substr(start))
        number = number * 10 + (digit - u'0');
    std::u16string next(name.substr(0, start));
    if (start == name.size())
        next.push_back(u' ');
    const std::string digits = std::to_string(number + 1);
    return next.append(digits.begin(), digits.end());
}

/// The names in use. A name never falls free while items are renamed one after another, since an item gives
/// its name up only to a twin; so each search may start where an earlier one from the same name ended.
class NamePool {
public:
    void Add(std::u16string_view name) { ++holders_[NameKey(name)]; }
    void Remove(std::u16string_view name) { --holders_[NameKey(name)]; }
    std::size_t Holders(std::u16string_view name) const
    {
        const auto found = holders_.find(NameKey(name));
        return found != holders_.end() ? found->second : 0;
    }

    /// Tries name after name until one is free.
    std::u16string FindFree(std::u16string_view taken)
    {
        std::vector<std::u16string> tried;
        std::u16string name(taken);
        do {
            tried.push_back(name);
            const auto known = reached_.find(name);
            name = known != reached_.end() ? known->second : NextName(name);
        } while (Holders(name) > 0);
        for (std::u16string& passed : tried)
            reached_.insert_or_assign(std::move(passed), name);
        return name;
    }

private:
    std::unordered_map<std::u16string, std::size_t> holders_;    ///< by NameKey
    std::unordered_map<std::u16string, std::u16string> reached_; ///< a taken name: the last one found from it
};

} // namespace

bool Item::EnsureUniqueName()
{
    std::string ownRoom, otherRoom;
    const std::string& own = NarrowName(*this, ownRoom);
    const auto isTwin = [&](const Item& other) {
        const std::string& narrow = NarrowName(other, otherRoom);
        return &other != this && MayBeEqual(own, narrow) && NameKey(own) == NameKey(narrow);
    };
    const Item* twin = owner_->First(Kind());
    while (twin != nullptr && !isTwin(*twin))
        twin = twin->nextOfKind_;
    if (twin == nullptr)
        return false;

    NamePool others;
    for (const Item* item = owner_->First(Kind()); item != nullptr; item = item->nextOfKind_)
        if (item != this)
            others.Add(item->GetName());
    SetName(others.FindFree(GetName()));
    return true;
}

bool Collection::MakeNamesUnique(ItemKind kind)
{
    NamePool names;
    for (const Item* item = First(kind); item != nullptr; item = item->nextOfKind_)
        names.Add(item->GetName());
    bool changed = false;
    for (Item* item = First(kind); item != nullptr; item = item->nextOfKind_) {
        if (names.Holders(item->GetName()) < 2)
            continue;
        const std::u16string name = names.FindFree(item->GetName());
        names.Remove(item->GetName());
        item->SetName(name);
        names.Add(item->GetName());
        changed = true;
    }
    return changed;
}

} // namespace vimbo
