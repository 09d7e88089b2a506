// The flat set of items that everything is read into and written from.
#pragma once

#include "base/host.h"
#include "model/features.h"
#include "model/item_map.h"
#include "model/load_options.h"
#include "model/text_item.h"

#include <array>
#include <iterator>
#include <memory>
#include <unordered_map>

namespace vimbo {

struct ImportProcedure;

/// Old handle to new handle, while items move between collections.
class HandleTranslation {
public:
    void Add(ItemHandle from, ItemHandle to) { map_[from] = to; }
    /// NO_ITEM for NO_ITEM and for handles that were never added.
    ItemHandle operator()(ItemHandle from) const noexcept;

private:
    std::unordered_map<ItemHandle, ItemHandle, ItemHandleHash> map_;
};

/// Walks the items of one class in the order of their arrival. Do not add or destroy items of the kind
/// meanwhile.
template <class T>
class ItemsOf;

/// A region that a reader left out, as the fix-up pass would only join it with another one: it equals
/// `region` in everything but its waveform and its pan, which is the opposite. Both waveforms are mono.
struct StereoTwin {
    ItemHandle region;
    ItemHandle wave; ///< what the region that was left out plays
};

enum class SortMode { ByName = 1, ByLocation = 2, ByProgram = 3 };

class Collection final : public TextItem {
public:
    static constexpr ItemKind kKind = ItemKind::Collection;
    Collection();
    ~Collection() override;

    /// Makes an item of class T with the next free serial. An empty name gives the default name of its kind.
    template <class T>
    T& Create(std::u16string_view name)
    {
        auto item = std::make_unique<T>(ItemKey{}, *this);
        T& made = *item;
        Install(std::move(item), ItemHandle(T::kKind, ANY_SERIAL));
        made.SetName(name);
        return made;
    }

    /// A copy under a new serial, without a parent; nested children are copied with it. `source` may live in
    /// another collection only if it has no children.
    template <class T>
    T& Clone(const T& source)
    {
        auto item = std::make_unique<T>(ItemKey{}, *this, source);
        T& made = *item;
        Install(std::move(item), ItemHandle(T::kKind, ANY_SERIAL));
        static_cast<Item&>(made).OnCloned(source);
        return made;
    }

    /// Clone for a source whose class is not known; null for a collection.
    Item* CloneItem(const Item& source);

    /// An empty item of exactly that handle, of the class that its kind names; null for kinds above 6, for
    /// the two reserved serials, and for a handle that is taken.
    Item* CreateItem(ItemHandle handle);
    /// Destroys an item and everything nested in it; its slots elsewhere go stale until Validate. Unknown
    /// handles and the collection itself: nothing.
    void Destroy(ItemHandle handle);

    Item* FindItem(ItemHandle handle) const noexcept
    {
        const std::unique_ptr<Item>* found = map_.Find(handle);
        if (found == nullptr)
            return nullptr;
        if (*found == nullptr) // the collection's own entry, or one that leaves late
            return handle == handle_ ? &Owner() : nullptr;
        return found->get();
    }
    /// The item of a child slot whose kind is known: only the slot's serial counts.
    template <class T>
    T* Find(ItemHandle handle) const noexcept
    {
        if (handle == NO_ITEM)
            return nullptr;
        return static_cast<T*>(FindItem(ItemHandle(T::kKind, handle.Serial())));
    }
    std::size_t CountOf(ItemKind kind) const noexcept { return counts_[static_cast<std::size_t>(kind)]; }
    /// All items, the collection's own entry included.
    std::size_t ItemCount() const noexcept { return map_.Size(); }
    template <class T>
    ItemsOf<T> All() const noexcept;
    /// The items of class T in a list of their own, for walks that create or destroy.
    template <class T>
    std::vector<T*> List() const;

    /// Destroys all songs, instruments and waveforms; row index -1, name "New collection", no source path.
    void Clear();
    /// Moves all items of `other` into this collection under new serials; nothing if it holds none. Goes
    /// through all instruments: for many collections there is CollectionMerger.
    void Merge(Collection& other);
    /// Becomes a copy of `other`, with equal handles: for work that may change items without touching the
    /// user's. Samples that only exist in memory are copied, others stay where they are.
    void CopyFrom(const Collection& other);
    /// Makes the MIDI locations of instruments unique: a clash raises the major bank first.
    void Validate() override;
    [[nodiscard]] bool EnsureData() override;
    void Serialize(ByteWriter& out) const override;
    [[nodiscard]] bool Deserialize(ByteReader& in) override;

    /// Item::EnsureUniqueName on every item of the kind, in the order of arrival, but in O(n log n) time for
    /// n names, however many clash. @return true if a name changed.
    bool MakeNamesUnique(ItemKind kind);

    /// Brings the items of one kind into display order: what All and List give from then on.
    void SortKind(ItemKind kind, SortMode mode);
    /// Items in display order: instruments first, by the mode, then everything else by name without regard to
    /// case.
    void Sort(std::vector<Item*>& items, SortMode mode) const;

    std::int32_t formatRow = -1; ///< row of the format table that it was loaded through
    FeatureMask features;
    LoadOptions loadOptions;
    bool loading = false;   ///< a reader or a state restore is running
    bool saving = false;    ///< a writer is running
    bool namesWait = false; ///< a pass is running that renames all layers and regions in the end
    /// In the order of their regions; the fix-up pass behind the reader joins or makes them. None unless
    /// MayLeaveTwins.
    std::vector<StereoTwin> twins;
    /// True if the pass is to join stereo pairs, and does nothing before to regions that would need both.
    bool MayLeaveTwins() const noexcept
    {
        return loading && loadOptions.autoMergeStereo && !loadOptions.autoSplitStereo &&
               !loadOptions.autoMoveArticulation && features.Has(Feature::ArticulationOnRegion);
    }

    Host& GetHost() const noexcept { return *host_; }
    void SetHost(Host& host) noexcept { host_ = &host; }
    /// The procedures that Deserialize may meet, beside the generic one; the array must outlive the
    /// collection.
    void SetImportProcedures(std::span<const ImportProcedure* const> procedures) noexcept
    {
        procedures_ = procedures;
    }
    const ImportProcedure* FindImportProcedure(std::uint64_t id) const noexcept;

    /// Counters of default names, for TextItem.
    std::u16string TakeNameNumber(ItemKind kind);

private:
    friend class Item;
    friend class CollectionMerger;
    friend class UniqueNames;
    void TakeItemsOf(Collection& other);
    void Install(std::unique_ptr<Item> item, ItemHandle wanted);
    ItemHandle TakeHandle(ItemKind kind) const noexcept;
    void Link(Item& item) noexcept;
    void Unlink(Item& item) noexcept;
    void DestroyLate(ItemHandle handle);
    void RemoveLate() noexcept;
    Item* First(ItemKind kind) const noexcept { return first_[static_cast<std::size_t>(kind)]; }
    template <class T>
    friend class ItemsOf;
    friend class LateRemovalScope;

    ItemMap map_; ///< null for the collection itself
    std::array<Item*, kItemKinds> first_{};
    std::array<Item*, kItemKinds> last_{};
    std::array<std::size_t, kItemKinds + 1> counts_{};
    std::array<std::uint32_t, 2> nameCounters_{}; ///< waveforms, instruments
    struct LateRemovals;
    std::unique_ptr<LateRemovals> late_; ///< while a LateRemovalScope lives
    Host* host_;
    std::span<const ImportProcedure* const> procedures_;
};

/// While it lives, threads may destroy items that no other thread touches: what is destroyed does not answer
/// to its handle any more, but leaves the lists and counts of items only when the scope ends. Nothing may be
/// created meanwhile.
class LateRemovalScope {
public:
    explicit LateRemovalScope(Collection& collection);
    ~LateRemovalScope();
    LateRemovalScope(const LateRemovalScope&) = delete;
    LateRemovalScope& operator=(const LateRemovalScope&) = delete;

private:
    Collection& collection_;
};

template <class T>
class ItemsOf {
public:
    class Iterator {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = T;
        using difference_type = std::ptrdiff_t;
        using pointer = T*;
        using reference = T&;
        Iterator() = default;
        explicit Iterator(Item* item) noexcept : item_(item) {}
        T& operator*() const noexcept { return static_cast<T&>(*item_); }
        T* operator->() const noexcept { return static_cast<T*>(item_); }
        Iterator& operator++() noexcept
        {
            item_ = ItemsOf::Next(*item_);
            return *this;
        }
        Iterator operator++(int) noexcept
        {
            Iterator before = *this;
            ++*this;
            return before;
        }
        friend bool operator==(const Iterator&, const Iterator&) = default;

    private:
        Item* item_ = nullptr;
    };

    explicit ItemsOf(const Collection& collection) noexcept : first_(collection.First(T::kKind)) {}
    Iterator begin() const noexcept { return Iterator(first_); }
    Iterator end() const noexcept { return Iterator(); }

private:
    static Item* Next(const Item& item) noexcept;
    Item* first_;
};

/// The next item of the same kind, in order of arrival; null at the end.
Item* NextOfKind(const Item& item) noexcept;

template <class T>
Item* ItemsOf<T>::Next(const Item& item) noexcept
{
    return NextOfKind(item);
}

template <class T>
ItemsOf<T> Collection::All() const noexcept
{
    return ItemsOf<T>(*this);
}

template <class T>
std::vector<T*> Collection::List() const
{
    std::vector<T*> items;
    items.reserve(CountOf(T::kKind));
    for (T& item : All<T>())
        items.push_back(&item);
    return items;
}

} // namespace vimbo
