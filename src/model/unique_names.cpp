#include "model/unique_names.h"

#include "base/text.h"
#include "model/collection.h"
#include "model/free_numbers.h"
#include "model/hashed_text.h"

#include <algorithm>
#include <map>
#include <string>
#include <vector>

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

std::size_t DigitsStart(std::u16string_view name) noexcept
{
    return static_cast<std::size_t>(name.rend() - std::find_if_not(name.rbegin(), name.rend(), IsDigit));
}

/// True for what stands before the digit of a note name ("C#3").
constexpr bool MakesNote(char16_t before) noexcept
{
    return before == u'#' || (before >= u'A' && before <= u'G');
}

/// Where the number behind a name starts; the name's length if it has none. The digit of a note name is none.
std::size_t NumberStart(std::u16string_view name) noexcept
{
    const std::size_t start = DigitsStart(name);
    const std::size_t digits = name.size() - start;
    const bool isNote = digits == 1 && start > 0 && MakesNote(name[start - 1]);
    return digits > kMaxDigits || isNote ? name.size() : start;
}

std::uint64_t ToNumber(std::u16string_view digits) noexcept
{
    std::uint64_t number = 0;
    for (const char16_t digit : digits)
        number = number * 10 + (digit - u'0');
    return number;
}

/// The names in use. A name never falls free while items are renamed one after another, since an item gives
/// its name up only to a twin. Every call takes O(log n) comparisons of names and numbers for n names, also
/// with all of them in one series.
class NamePool {
public:
    void Add(std::u16string_view name)
    {
        std::u16string key = NameKey(name);
        if (++holders_[HashedText(key)] > 1)
            return;
        const std::size_t start = DigitsStart(key);
        const std::size_t digits = key.size() - start;
        if (digits == 0 || digits > kMaxDigits + 1 || key[start] == u'0') // no name that is tried
            return;
        const std::uint64_t number = ToNumber(std::u16string_view(key).substr(start));
        key.resize(start);
        series_[HashedText(std::move(key))].Take(number);
    }
    void Remove(std::u16string_view name) { --holders_[HashedText(NameKey(name))]; }
    std::size_t Holders(std::u16string_view name) const
    {
        const auto found = holders_.find(HashedText(NameKey(name)));
        return found != holders_.end() ? found->second : 0;
    }

    /// Names with higher and higher numbers are tried until one is free.
    std::u16string FindFree(std::u16string_view taken) const
    {
        std::u16string name(taken);
        for (;;) {
            const std::size_t start = NumberStart(name);
            const bool hasNumber = start < name.size();
            std::uint64_t number = hasNumber ? ToNumber(std::u16string_view(name).substr(start)) + 1 : 1;
            if (hasNumber)
                name.resize(start);
            else
                name.push_back(u' ');
            // Not a number any more: a single digit that makes a note name, and one digit too many.
            const bool isNote = number < 10 && !name.empty() && MakesNote(name.back());
            if (!isNote)
                number = std::min(FirstFree(name, number), kNoNumber);
            const std::string digits = std::to_string(number);
            name.append(digits.begin(), digits.end());
            if (Holders(name) == 0 || (!isNote && number != kNoNumber))
                return name;
        }
    }

private:
    static constexpr std::uint64_t kNoNumber = 1'000'000'000'000'000'000; ///< kMaxDigits + 1 digits

    std::uint64_t FirstFree(std::u16string_view stem, std::uint64_t from) const
    {
        const auto found = series_.find(HashedText(NameKey(stem)));
        return found != series_.end() ? found->second.FirstFree(from) : from;
    }

    std::map<HashedText, std::size_t> holders_; ///< by NameKey
    std::map<HashedText, NumberRuns> series_;   ///< numbers taken, by NameKey of what stands before them
};

/// False if no two items from `first` on have equal names; nearly always false then.
bool MayHaveTwins(const Item* first)
{
    std::vector<std::uint64_t> hashes;
    std::string room;
    for (const Item* item = first; item != nullptr; item = NextOfKind(*item)) {
        std::uint64_t hash = 0xCBF29CE484222325; // FNV-1a
        for (const char c : NarrowName(*item, room)) {
            // As in MayBeEqual only ASCII counts.
            const auto unit = static_cast<unsigned char>(c);
            hash = (hash ^ (unit < 0x80 ? std::uint64_t{FoldCase(unit)} : 0x80)) * 0x100000001B3;
        }
        hashes.push_back(hash);
    }
    std::ranges::sort(hashes);
    return std::ranges::adjacent_find(hashes) != hashes.end();
}

} // namespace

struct UniqueNames::Names : NamePool {};

UniqueNames::UniqueNames(const Collection& collection, ItemKind kind) : names_(std::make_unique<Names>())
{
    for (const Item* item = collection.First(kind); item != nullptr; item = NextOfKind(*item))
        names_->Add(item->GetName());
}

UniqueNames::~UniqueNames() = default;

bool UniqueNames::Add(Item& item)
{
    const bool isTaken = names_->Holders(item.GetName()) != 0;
    if (isTaken)
        item.SetName(names_->FindFree(item.GetName()));
    names_->Add(item.GetName());
    return isTaken;
}

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
    if (!MayHaveTwins(First(kind)))
        return false;
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
