// Moving the items of one collection into another.
#include "model/collection.h"
#include "model/free_numbers.h"
#include "model/instrument.h"

#include <limits>

namespace vimbo {

ItemHandle HandleTranslation::operator()(ItemHandle from) const noexcept
{
    const auto found = map_.find(from);
    return found != map_.end() ? found->second : NO_ITEM;
}

void Collection::Merge(Collection& other)
{
    if (&other == this || other.ItemCount() < 2)
        return;
    FreeNumbers locations(std::numeric_limits<std::uint32_t>::max());
    for (const Instrument& instrument : All<Instrument>())
        locations.Mark(instrument.location.word);
    for (Instrument& instrument : other.All<Instrument>())
        instrument.location.word = locations.Take(instrument.location.word);

    HandleTranslation table;
    std::vector<Item*> moving;
    for (std::size_t kind = 0; kind < static_cast<std::size_t>(ItemKind::Collection); ++kind)
        for (Item* item = other.first_[kind]; item != nullptr; item = item->nextOfKind_) {
            moving.push_back(item);
            table.Add(item->handle_, TakeHandle(item->Kind()));
        }
    map_.reserve(map_.size() + moving.size()); // from here on memory cannot run out halfway

    for (Item* item : moving) {
        auto node = other.map_.extract(item->handle_);
        other.Unlink(*item);
        item->TranslateHandles(table);
        item->handle_ = table(item->handle_);
        item->owner_ = this;
        node.key() = item->handle_;
        map_.insert(std::move(node));
        Link(*item);
    }
    other.ClearChildren();
    Validate();
}

} // namespace vimbo
