// The child slots of an item. Most items have one child or none, which is kept without memory of its own.
#pragma once

#include "model/item_handle.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <new>
#include <span>
#include <utility>

namespace vimbo {

class HandleList {
public:
    HandleList() noexcept = default;
    HandleList(const HandleList& other) { Assign(other.All()); }
    HandleList(HandleList&& other) noexcept
        : many_(std::move(other.many_)), one_(other.one_), size_(std::exchange(other.size_, 0)),
          room_(std::exchange(other.room_, 1))
    {
    }
    HandleList& operator=(HandleList other) noexcept
    {
        many_ = std::move(other.many_);
        one_ = other.one_;
        size_ = std::exchange(other.size_, 0);
        room_ = std::exchange(other.room_, 1);
        return *this;
    }

    std::size_t Size() const noexcept { return size_; }
    std::span<ItemHandle> All() noexcept { return {many_ ? many_.get() : &one_, size_}; }
    std::span<const ItemHandle> All() const noexcept { return {many_ ? many_.get() : &one_, size_}; }

    void Add(ItemHandle handle)
    {
        if (size_ == room_)
            Grow();
        ++size_;
        All().back() = handle;
    }
    /// Removes every entry for which `doomed` is true.
    template <class F>
    void RemoveIf(F doomed)
    {
        const std::span<ItemHandle> all = All();
        size_ = static_cast<std::uint32_t>(std::remove_if(all.begin(), all.end(), doomed) - all.begin());
    }
    void Assign(std::span<const ItemHandle> handles)
    {
        HandleList fresh;
        for (const ItemHandle handle : handles)
            fresh.Add(handle);
        *this = std::move(fresh);
    }
    /// Memory is kept for as many again.
    void Clear() noexcept { size_ = 0; }

private:
    void Grow()
    {
        if (room_ > std::numeric_limits<std::uint32_t>::max() / 2)
            throw std::bad_alloc();
        const std::uint32_t room = room_ == 1 ? 4 : room_ * 2;
        auto grown = std::make_unique<ItemHandle[]>(room);
        std::ranges::copy(All(), grown.get());
        many_ = std::move(grown);
        room_ = room;
    }

    std::unique_ptr<ItemHandle[]> many_; ///< null as long as there is room for one
    ItemHandle one_;
    std::uint32_t size_ = 0;
    std::uint32_t room_ = 1;
};

} // namespace vimbo
