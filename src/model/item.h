// The abstract root of everything that a Collection holds.
#pragma once

#include "base/byte_reader.h"
#include "model/handle_list.h"
#include "model/item_handle.h"
#include "model/param.h"

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vimbo {

class Collection;

/// Only collections make items: they own every one of them through their map.
class ItemKey {
    friend class Collection;
    ItemKey() = default;
};

/// One item of a collection. Links between items are handles; a dead handle answers null.
class Item {
    // Walks over all items only need these: they come first, side by side in memory.
    Collection* owner_;
    ItemHandle handle_;
    ItemHandle parent_ = NO_ITEM;
    HandleList children_;
    Item* nextOfKind_ = nullptr; ///< items of one kind are chained in the order of their arrival
    Item* previousOfKind_ = nullptr;

public:
    virtual ~Item();
    Item(const Item&) = delete;
    Item& operator=(const Item&) = delete;

    ItemHandle Handle() const noexcept { return handle_; }
    ItemKind Kind() const noexcept { return handle_.Kind(); }
    ItemHandle Parent() const noexcept { return parent_; }
    void SetParent(ItemHandle parent) noexcept { parent_ = parent; }
    /// The parent; null if there is none, if it is gone, or if its kind is not the one above this item's.
    Item* ParentItem() const noexcept;
    Collection& Owner() const noexcept { return *owner_; }

    std::span<const ItemHandle> Children() const noexcept { return children_.All(); }
    /// The item of one slot; null for a stale slot, a slot of a kind that cannot stand there, and a bad
    /// index.
    Item* Child(std::size_t index) const noexcept;
    /// Appends; false if memory runs out. Does not set the child's parent.
    bool AddChild(ItemHandle child) noexcept;
    /// Replaces one slot; an index out of range does nothing.
    void SetChild(std::size_t index, ItemHandle child) noexcept;
    /// Removes every slot that holds `child`.
    void RemoveChild(ItemHandle child) noexcept;
    /// Empties the list; the children themselves stay.
    void ClearChildren() noexcept { children_.Clear(); }
    /// Drops child slots whose item is gone, belongs to another parent, or was listed before; takes in those
    /// without a parent.
    void AdoptChildren();
    /// Moves one child to another place; `to` is clamped to the last; equal or bad indices do nothing.
    void MoveChild(std::size_t from, std::size_t to) noexcept;

    /// Adds number suffixes to the name until no other item of the kind has it (narrow text, case ignored).
    /// Goes through all items of the kind: for more than one of them there are Collection::MakeNamesUnique
    /// and UniqueNames.
    /// @return true if the name changed.
    bool EnsureUniqueName();

    /// Appends the item's record as state files and undo records hold it.
    virtual void Serialize(ByteWriter& out) const;
    /// Reads what Serialize wrote into this item (whose handle is kept). Damaged input: false, with the Last
    /// error text; the item is then still valid.
    [[nodiscard]] virtual bool Deserialize(ByteReader& in);
    std::size_t SerializedSize() const;

    virtual void SetName(std::u16string_view name) = 0;
    void SetNameNarrow(std::string_view name);
    virtual std::u16string_view GetName() const { return u"unnamed"; }
    /// The file that the item came from: its own, else its parent's, else "".
    virtual std::u16string_view GetSourcePath() const;
    /// Drops a parent that is gone, and child slots whose item is gone, belongs to another parent, or was
    /// listed before; classes add their own repairs.
    virtual void Validate();
    /// Brings all samples below into memory; false at the first failure.
    [[nodiscard]] virtual bool EnsureData();

    virtual bool IsParamSet(std::uint16_t id) const;
    virtual float GetParam(std::uint16_t id) const;
    virtual void SetParam(std::uint16_t id, float value);
    virtual void ClearParam(std::uint16_t id, float inherited);
    virtual float GetInheritedParam(std::uint16_t id) const;
    virtual const ParamRow& GetParamInfo(std::uint16_t id) const;

    std::uint32_t sourceWord = 0;   ///< waveforms: DataFormat bit and flags; else free for a reader
    std::uint64_t secondOffset = 0; ///< waveforms: file offset of a sequential right channel, 0: contiguous
    std::array<std::uint32_t, 6> scratch{}; ///< free for a reader while it builds items
    std::uint8_t scratchByte = 0;

protected:
    Item(ItemKey key, Collection& owner) noexcept;
    /// Copies the reader's words and the child slots; the handle comes from the collection, the parent is
    /// none.
    Item(ItemKey key, Collection& owner, const Item& source);
    /// Leaves the parent's list and destroys what is nested in the item, last first; waveforms are nested in
    /// nothing. Called before the item leaves the map; a class adds what else it has to give up.
    virtual void OnDestroy();
    /// Replaces the child slots of nested items by copies of these; called when the copy is in the map.
    virtual void OnCloned(const Item& source);
    /// Rewrites handles inside the class's own fields when items move to another collection.
    virtual void TranslateHandles(const class HandleTranslation& table);

private:
    friend class Collection;
    friend Item* NextOfKind(const Item& item) noexcept;
    bool KeepsChild(ItemHandle child) const noexcept;
};

} // namespace vimbo
