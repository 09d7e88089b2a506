#include "model/consistency.h"

#include "model/instrument.h"
#include "model/song.h"
#include "model/synth_model.h"
#include "model/waveform.h"

namespace vimbo {

namespace {

/// nullptr, or what is wrong with one slot.
const char16_t* SlotFault(const Item& item, std::size_t index)
{
    const ItemHandle slot = item.Children()[index];
    if (slot == NO_ITEM || item.Child(index) != nullptr)
        return nullptr;
    const ItemHandle child = ChildHandle(item.Kind(), slot);
    if (child == NO_ITEM)
        return u"has a child of a kind that cannot stand there";
    // Items of the top level know nothing of the lists that name them.
    const bool mayBeStale = child.Kind() == ItemKind::Waveform || item.Kind() == ItemKind::Collection;
    return mayBeStale ? nullptr : u"has a child that does not exist";
}

const char16_t* ItemFault(const Collection& collection, const Item& item, ItemKind kind)
{
    if (item.Kind() != kind)
        return u"stands in the chain of another kind";
    if (&item.Owner() != &collection)
        return u"belongs to another collection";
    if (collection.FindItem(item.Handle()) != &item)
        return u"is not found under its handle";
    if (item.Parent() != NO_ITEM && item.ParentItem() == nullptr)
        return u"has a parent that does not exist or is of the wrong kind";
    if (kind == ItemKind::Region && item.Children().size() > 1)
        return u"has more than one child";
    for (std::size_t i = 0; i < item.Children().size(); ++i)
        if (const char16_t* fault = SlotFault(item, i))
            return fault;
    return nullptr;
}

class Checker {
public:
    Checker(const Collection& collection, std::u16string* why) noexcept : collection_(collection), why_(why)
    {
    }

    template <class T>
    bool CheckKind()
    {
        const std::size_t counted = collection_.CountOf(T::kKind);
        std::size_t chained = 0;
        for (const T& item : collection_.All<T>()) {
            if (++chained > counted) // also ends a walk in a circle
                break;
            if (const char16_t* fault = ItemFault(collection_, item, T::kKind))
                return Report(T::kKind, fault);
        }
        items_ += counted;
        return chained == counted || Report(T::kKind, u"has a counter that differs from its chain");
    }

    bool CheckTotal() const
    {
        // Each chained item was found under its own handle, so equal numbers mean equal sets.
        return items_ == collection_.ItemCount() ||
               Report(ItemKind::Collection, u"has more or fewer items in its map than in its chains");
    }

private:
    bool Report(ItemKind kind, std::u16string_view fault) const
    {
        if (why_ != nullptr)
            *why_ = std::u16string(KindWord(static_cast<std::size_t>(kind))).append(u" ").append(fault);
        return false;
    }

    const Collection& collection_;
    std::u16string* why_;
    std::size_t items_ = 0;
};

} // namespace

bool IsConsistent(const Collection& collection, std::u16string* why)
{
    Checker checker(collection, why);
    return checker.CheckKind<Waveform>() && checker.CheckKind<SynthModel>() && checker.CheckKind<Region>() &&
           checker.CheckKind<Layer>() && checker.CheckKind<Instrument>() && checker.CheckKind<Track>() &&
           checker.CheckKind<Song>() && checker.CheckKind<Collection>() && checker.CheckTotal();
}

} // namespace vimbo
