#include "model/item.h"

#include "base/last_error.h"
#include "base/text.h"
#include "model/collection.h"
#include "model/record_text.h"

#include <algorithm>
#include <new>
#include <unordered_set>

namespace vimbo {

namespace {

/// Head of every item's record in state files; the child handles follow.
struct ItemRecord {
    U32le handle;
    U32le parent;
    U32le sourceWord;
    U32le secondOffsetLow;
    U32le secondOffsetHigh; ///< first scratch word of the record: nothing else in it outlives the reader
    U32le childCount;
};
static_assert(DiskRecord<ItemRecord> && sizeof(ItemRecord) == 24);

bool CanBeParent(ItemKind parent, ItemKind child) noexcept
{
    return parent != ItemKind::Collection && child != ItemKind::Waveform &&
           ChildHandle(parent, ItemHandle(child, 0)) == ItemHandle(child, 0);
}

/// Only damaged records list a child twice; lists of one, by far the most, cost nothing.
bool HasDoubleSlots(std::span<const ItemHandle> slots)
{
    if (slots.size() < 2)
        return false;
    std::vector<ItemHandle> sorted(slots.begin(), slots.end());
    const auto isBefore = [](ItemHandle a, ItemHandle b) { return a.value < b.value; };
    std::sort(sorted.begin(), sorted.end(), isBefore);
    return std::adjacent_find(sorted.begin(), sorted.end()) != sorted.end();
}

void DropDoubleSlots(HandleList& slots)
{
    std::unordered_set<ItemHandle, ItemHandleHash> seen;
    slots.RemoveIf([&](ItemHandle slot) { return !seen.insert(slot).second; });
}

} // namespace

std::u16string_view KindWord(std::size_t kind) noexcept
{
    static constexpr std::array<std::u16string_view, kItemKinds + 1> kWords{
        u"waveform", u"synth", u"region",     u"layer",  u"instrument",
        u"track",    u"song",  u"collection", u"special"};
    return kind < kWords.size() ? kWords[kind] : std::u16string_view();
}

ItemHandle ChildHandle(ItemKind parent, ItemHandle slot) noexcept
{
    if (slot == NO_ITEM)
        return NO_ITEM;
    const auto oneOf = [slot](auto... kinds) { return ((slot.Kind() == kinds) || ...) ? slot : NO_ITEM; };
    switch (parent) {
    case ItemKind::SynthModel:
        return ItemHandle(ItemKind::Waveform, slot.Serial());
    case ItemKind::Region:
        return oneOf(ItemKind::Waveform, ItemKind::SynthModel);
    case ItemKind::Layer:
        return ItemHandle(ItemKind::Region, slot.Serial());
    case ItemKind::Instrument:
        return ItemHandle(ItemKind::Layer, slot.Serial());
    case ItemKind::Song:
        return ItemHandle(ItemKind::Track, slot.Serial());
    case ItemKind::Collection:
        return oneOf(ItemKind::Waveform, ItemKind::Instrument, ItemKind::Song);
    case ItemKind::Waveform:
    case ItemKind::Track:
        break;
    }
    return NO_ITEM;
}

Item::Item(ItemKey, Collection& owner) noexcept : owner_(&owner) {}

Item::Item(ItemKey, Collection& owner, const Item& source)
    : owner_(&owner), children_(source.children_), sourceWord(source.sourceWord),
      secondOffset(source.secondOffset), scratch(source.scratch), scratchByte(source.scratchByte)
{
}

Item::~Item() = default;

Item* Item::ParentItem() const noexcept
{
    return CanBeParent(parent_.Kind(), Kind()) ? owner_->FindItem(parent_) : nullptr;
}

Item* Item::Child(std::size_t index) const noexcept
{
    const std::span<const ItemHandle> slots = children_.All();
    return index < slots.size() ? owner_->FindItem(ChildHandle(Kind(), slots[index])) : nullptr;
}

bool Item::AddChild(ItemHandle child) noexcept
{
    try {
        children_.Add(child);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

void Item::SetChild(std::size_t index, ItemHandle child) noexcept
{
    if (index < children_.Size())
        children_.All()[index] = child;
}

void Item::RemoveChild(ItemHandle child) noexcept
{
    children_.RemoveIf([&](ItemHandle slot) {
        return slot == child || (child != NO_ITEM && ChildHandle(Kind(), slot) == child);
    });
}

void Item::MoveChild(std::size_t from, std::size_t to) noexcept
{
    const std::span<ItemHandle> slots = children_.All();
    if (from >= slots.size())
        return;
    to = std::min(to, slots.size() - 1);
    const auto at = [slots](std::size_t index) { return slots.begin() + static_cast<std::ptrdiff_t>(index); };
    if (from < to)
        std::rotate(at(from), at(from + 1), at(to + 1));
    else
        std::rotate(at(to), at(from), at(from + 1));
}

void Item::OnDestroy()
{
    if (Item* parent = ParentItem())
        parent->RemoveChild(handle_);
    // The list is emptied first: each child would otherwise search it for itself.
    const HandleList nested = std::move(children_);
    for (std::size_t i = nested.Size(); i-- > 0;) {
        const ItemHandle child = ChildHandle(Kind(), nested.All()[i]);
        if (child != NO_ITEM && child.Kind() != ItemKind::Waveform)
            owner_->Destroy(child);
    }
}

void Item::OnCloned(const Item& source)
{
    for (std::size_t i = 0; i < children_.Size(); ++i) {
        const Item* child = source.Child(i);
        if (child == nullptr || child->Kind() == ItemKind::Waveform)
            continue;
        Item* copy = owner_->CloneItem(*child);
        copy->SetParent(handle_);
        SetChild(i, copy->Handle());
    }
}

void Item::TranslateHandles(const HandleTranslation& table)
{
    parent_ = table(parent_);
    for (ItemHandle& slot : children_.All())
        slot = table(ChildHandle(Kind(), slot));
}

void Item::Serialize(ByteWriter& out) const
{
    ItemRecord record;
    record.handle = handle_.value;
    record.parent = parent_.value;
    record.sourceWord = sourceWord;
    record.secondOffsetLow = static_cast<std::uint32_t>(secondOffset);
    record.secondOffsetHigh = static_cast<std::uint32_t>(secondOffset >> 32);
    record.childCount = static_cast<std::uint32_t>(children_.Size());
    out.Write(record);
    for (const ItemHandle slot : children_.All())
        out.Write(U32le(slot.value));
}

bool Item::Deserialize(ByteReader& in)
{
    ItemRecord record;
    std::span<const std::byte> slotBytes;
    if (!in.Read(record) || ItemHandle(record.handle.Get()).Kind() != Kind() ||
        !in.Take(std::uint64_t{record.childCount.Get()} * sizeof(U32le), slotBytes))
        return Fail(kDamagedRecord);
    std::vector<ItemHandle> slots(record.childCount.Get());
    ByteReader slotReader(slotBytes);
    for (ItemHandle& slot : slots) {
        U32le value;
        if (slotReader.Read(value))
            slot = ItemHandle(value.Get());
    }
    parent_ = ItemHandle(record.parent.Get());
    sourceWord = record.sourceWord.Get();
    secondOffset = std::uint64_t{record.secondOffsetHigh.Get()} << 32 | record.secondOffsetLow.Get();
    scratch = {};
    scratchByte = 0;
    children_.Assign(slots);
    return true;
}

std::size_t Item::SerializedSize() const
{
    ByteWriter out;
    Serialize(out);
    return out.Size();
}

void Item::SetNameNarrow(std::string_view name)
{
    SetName(NarrowToWide(name));
}

std::u16string_view Item::GetSourcePath() const
{
    const Item* parent = ParentItem();
    return parent != nullptr ? parent->GetSourcePath() : std::u16string_view();
}

void Item::Validate()
{
    if (parent_ != NO_ITEM && ParentItem() == nullptr)
        parent_ = NO_ITEM;
    AdoptChildren();
}

void Item::AdoptChildren()
{
    for (ItemHandle& slot : children_.All()) {
        slot = ChildHandle(Kind(), slot);
        if (!KeepsChild(slot))
            slot = NO_ITEM;
    }
    children_.RemoveIf([](ItemHandle slot) { return slot == NO_ITEM; });
    if (HasDoubleSlots(children_.All()))
        DropDoubleSlots(children_);
}

/// A nested item belongs to one parent: one that has none is taken in, another's is not kept.
bool Item::KeepsChild(ItemHandle child) const noexcept
{
    Item* item = owner_->FindItem(child);
    if (item == nullptr || !CanBeParent(Kind(), item->Kind()))
        return item != nullptr;
    if (item->ParentItem() == nullptr)
        item->parent_ = handle_;
    return item->parent_ == handle_;
}

bool Item::EnsureData()
{
    for (std::size_t i = 0; i < children_.Size(); ++i)
        if (Item* child = Child(i); child != nullptr && !child->EnsureData())
            return false;
    return true;
}

bool Item::IsParamSet(std::uint16_t) const
{
    return false;
}

float Item::GetParam(std::uint16_t) const
{
    return 0;
}

void Item::SetParam(std::uint16_t, float) {}

void Item::ClearParam(std::uint16_t, float) {}

float Item::GetInheritedParam(std::uint16_t id) const
{
    return GetParamInfo(id).defaultValue;
}

const ParamRow& Item::GetParamInfo(std::uint16_t) const
{
    return kEmptyParamRow;
}

} // namespace vimbo
