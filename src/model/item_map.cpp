#include "model/item_map.h"

#include "model/item.h"

#include <utility>

namespace vimbo {

namespace {

constexpr std::size_t kFirstSlots = 16;

} // namespace

ItemMap::ItemMap() : slots_(kFirstSlots), mask_(kFirstSlots - 1) {}
ItemMap::~ItemMap() = default;
ItemMap::ItemMap(ItemMap&&) noexcept = default;
ItemMap& ItemMap::operator=(ItemMap&&) noexcept = default;

ItemMap::Slot& ItemMap::FreeSlot(ItemHandle handle) noexcept
{
    std::size_t at = Home(handle);
    while (slots_[at].handle != NO_ITEM)
        at = (at + 1) & mask_;
    return slots_[at];
}

void ItemMap::Reserve(std::size_t size)
{
    std::size_t wanted = slots_.size();
    while (wanted < 2 * size)
        wanted *= 2;
    if (wanted == slots_.size())
        return;
    std::vector<Slot> before = std::exchange(slots_, std::vector<Slot>(wanted));
    mask_ = wanted - 1;
    for (Slot& slot : before)
        if (slot.handle != NO_ITEM)
            FreeSlot(slot.handle) = std::move(slot);
}

void ItemMap::Insert(ItemHandle handle, std::unique_ptr<Item> item)
{
    Reserve(size_ + 1);
    Slot& slot = FreeSlot(handle);
    slot.handle = handle;
    slot.item = std::move(item);
    ++size_;
}

std::unique_ptr<Item> ItemMap::Take(ItemHandle handle) noexcept
{
    const Slot* found = FindSlot(handle);
    if (found == nullptr)
        return nullptr;
    auto hole = static_cast<std::size_t>(found - slots_.data());
    std::unique_ptr<Item> taken = std::move(slots_[hole].item);
    slots_[hole].handle = NO_ITEM;
    --size_;
    // Entries behind the hole that were pushed past it move up, so that no search ends too early.
    for (std::size_t at = (hole + 1) & mask_; slots_[at].handle != NO_ITEM; at = (at + 1) & mask_) {
        const std::size_t home = Home(slots_[at].handle);
        if (((at - home) & mask_) < ((at - hole) & mask_))
            continue;
        slots_[hole] = std::move(slots_[at]);
        slots_[at].handle = NO_ITEM;
        hole = at;
    }
    return taken;
}

} // namespace vimbo
