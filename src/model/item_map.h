// The map from handles to items.
#pragma once

#include "model/item_handle.h"

#include <cstddef>
#include <memory>
#include <vector>

namespace vimbo {

class Item;

/// Owns items by their handles: a flat table with linear probing, at most half full. Eight serials in a row
/// share a block of slots, so that items that were made one after another are found in neighbouring memory.
/// NO_ITEM is no key.
class ItemMap {
public:
    ItemMap();
    ~ItemMap();
    ItemMap(ItemMap&&) noexcept;
    ItemMap& operator=(ItemMap&&) noexcept;

    std::size_t Size() const noexcept { return size_; }
    bool Contains(ItemHandle handle) const noexcept { return FindSlot(handle) != nullptr; }
    /// The owner's place; null if the handle is not in the map. The place may hold null.
    std::unique_ptr<Item>* Find(ItemHandle handle) noexcept
    {
        Slot* slot = const_cast<Slot*>(FindSlot(handle));
        return slot != nullptr ? &slot->item : nullptr;
    }
    const std::unique_ptr<Item>* Find(ItemHandle handle) const noexcept
    {
        const Slot* slot = FindSlot(handle);
        return slot != nullptr ? &slot->item : nullptr;
    }
    /// Room for `size` items in all, so that Insert cannot fail up to there.
    void Reserve(std::size_t size);
    /// `handle` must not be in the map.
    void Insert(ItemHandle handle, std::unique_ptr<Item> item);
    /// Removes an entry; null if there is none, or if it held null.
    std::unique_ptr<Item> Take(ItemHandle handle) noexcept;

private:
    struct Slot {
        ItemHandle handle; ///< NO_ITEM: free
        std::unique_ptr<Item> item;
    };

    std::size_t Home(ItemHandle handle) const noexcept
    {
        constexpr std::uint64_t kMix = 0x9E3779B97F4A7C15; // 2^64 / golden ratio: spreads runs of numbers
        const std::uint64_t block = std::uint64_t{handle.value >> 3} * kMix;
        return static_cast<std::size_t>((block >> 29) * 8 + (handle.value & 7)) & mask_;
    }
    const Slot* FindSlot(ItemHandle handle) const noexcept
    {
        if (handle == NO_ITEM)
            return nullptr;
        for (std::size_t at = Home(handle);; at = (at + 1) & mask_) {
            if (slots_[at].handle == handle)
                return &slots_[at];
            if (slots_[at].handle == NO_ITEM)
                return nullptr;
        }
    }
    Slot& FreeSlot(ItemHandle handle) noexcept;

    std::vector<Slot> slots_;
    std::size_t mask_ = 0;
    std::size_t size_ = 0;
};

} // namespace vimbo
