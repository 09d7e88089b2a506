// The order in which items are listed.
#include "base/text.h"
#include "model/collection.h"
#include "model/instrument.h"

#include <algorithm>

namespace vimbo {

namespace {

std::uint32_t LocationKey(const Item& item, SortMode mode) noexcept
{
    const std::uint32_t word = static_cast<const Instrument&>(item).location.word;
    return mode == SortMode::ByLocation ? word : (word & MidiLocation::kSevenBits) << 15 | word >> 7;
}

bool ComesBefore(const Item& a, const Item& b, SortMode mode)
{
    const bool aIsInstrument = a.Kind() == ItemKind::Instrument;
    if (aIsInstrument != (b.Kind() == ItemKind::Instrument))
        return aIsInstrument;
    if (aIsInstrument && mode != SortMode::ByName)
        return LocationKey(a, mode) < LocationKey(b, mode);
    return CompareNoCase(a.GetName(), b.GetName()) < 0;
}

} // namespace

void Collection::Sort(std::vector<Item*>& items, SortMode mode) const
{
    GetHost().SetStatus(u"Sorting instruments...");
    std::stable_sort(items.begin(), items.end(),
                     [mode](const Item* a, const Item* b) { return ComesBefore(*a, *b, mode); });
    GetHost().SetStatus(u"Done: Sorted items!");
}

void Collection::SortKind(ItemKind kind, SortMode mode)
{
    const auto comesBefore = [mode](const Item* a, const Item* b) { return ComesBefore(*a, *b, mode); };
    std::vector<Item*> items;
    items.reserve(CountOf(kind));
    for (Item* item = First(kind); item != nullptr; item = item->nextOfKind_)
        items.push_back(item);
    if (std::is_sorted(items.begin(), items.end(), comesBefore))
        return;
    std::stable_sort(items.begin(), items.end(), comesBefore);
    for (Item* item : items) // each goes from its place to the end of the chain
        Unlink(*item);
    for (Item* item : items)
        Link(*item);
}

} // namespace vimbo
