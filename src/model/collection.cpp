#include "model/collection.h"

#include "base/last_error.h"
#include "base/text.h"
#include "model/instrument.h"
#include "model/merge.h"
#include "model/record_text.h"
#include "model/sample_source.h"
#include "model/song.h"
#include "model/synth_model.h"
#include "model/waveform.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cassert>
#include <mutex>

namespace vimbo {

namespace {

/// Serials that were used last, by kind: for all collections of the process, which may work on different
/// threads.
std::array<std::atomic<std::uint32_t>, kItemKinds> lastSerials{};

std::uint32_t NextSerial(ItemKind kind) noexcept
{
    std::atomic<std::uint32_t>& last = lastSerials[static_cast<std::size_t>(kind)];
    std::uint32_t before = last.load(std::memory_order_relaxed);
    std::uint32_t serial;
    do // the two highest serials are reserved
        serial = before + 1 < NO_WAVEFORM_YET ? before + 1 : 0;
    while (!last.compare_exchange_weak(before, serial, std::memory_order_relaxed));
    return serial;
}

void RecordSerial(ItemHandle used) noexcept
{
    std::atomic<std::uint32_t>& last = lastSerials[used.KindIndex()];
    std::uint32_t before = last.load(std::memory_order_relaxed);
    while (before < used.Serial() &&
           !last.compare_exchange_weak(before, used.Serial(), std::memory_order_relaxed)) {
    }
}

/// The location word with its banks in another order: clashes are resolved by counting this up.
constexpr std::uint32_t BankMsbFirst(MidiLocation location) noexcept
{
    return location.BankMsb() | location.Program() << 7 | location.BankLsb() << 14 |
           (location.word & MidiLocation::kDrumBit);
}

constexpr MidiLocation FromBankMsbFirst(std::uint32_t key) noexcept
{
    MidiLocation location;
    location.SetBankMsb(key);
    location.SetProgram(key >> 7);
    location.SetBankLsb(key >> 14);
    location.SetDrum((key & MidiLocation::kDrumBit) != 0);
    return location;
}

} // namespace

Collection::Collection() : TextItem(ItemKey{}, *this), host_(&SilentHost())
{
    handle_ = TakeHandle(kKind);
    map_.Insert(handle_, nullptr);
    Link(*this);
    SetName(u"New collection");
}

Collection::~Collection() = default;

Item* NextOfKind(const Item& item) noexcept
{
    return item.nextOfKind_;
}

ItemHandle Collection::TakeHandle(ItemKind kind) const noexcept
{
    ItemHandle handle;
    do
        handle = ItemHandle(kind, NextSerial(kind));
    while (FindItem(handle) != nullptr);
    return handle;
}

void Collection::Install(std::unique_ptr<Item> item, ItemHandle wanted)
{
    Item& made = *item;
    if (wanted.Serial() == ANY_SERIAL)
        wanted = TakeHandle(wanted.Kind());
    else
        RecordSerial(wanted);
    made.handle_ = wanted;
    map_.Insert(wanted, std::move(item));
    Link(made);
}

void Collection::Link(Item& item) noexcept
{
    const auto kind = item.handle_.KindIndex();
    item.previousOfKind_ = last_[kind];
    item.nextOfKind_ = nullptr;
    (last_[kind] != nullptr ? last_[kind]->nextOfKind_ : first_[kind]) = &item;
    last_[kind] = &item;
    ++counts_[kind];
}

void Collection::Unlink(Item& item) noexcept
{
    const auto kind = item.handle_.KindIndex();
    (item.previousOfKind_ != nullptr ? item.previousOfKind_->nextOfKind_ : first_[kind]) = item.nextOfKind_;
    (item.nextOfKind_ != nullptr ? item.nextOfKind_->previousOfKind_ : last_[kind]) = item.previousOfKind_;
    --counts_[kind];
}

Item* Collection::CreateItem(ItemHandle handle)
{
    if (handle.Serial() >= NO_WAVEFORM_YET || map_.Contains(handle))
        return nullptr;
    const auto make = [&]<class T>(T*) -> Item* {
        auto item = std::make_unique<T>(ItemKey{}, *this);
        T& made = *item;
        Install(std::move(item), handle);
        return &made;
    };
    switch (handle.Kind()) {
    case ItemKind::Waveform:
        return make(static_cast<Waveform*>(nullptr));
    case ItemKind::SynthModel:
        return make(static_cast<SynthModel*>(nullptr));
    case ItemKind::Region:
        return make(static_cast<Region*>(nullptr));
    case ItemKind::Layer:
        return make(static_cast<Layer*>(nullptr));
    case ItemKind::Instrument: {
        auto* instrument = make(static_cast<Instrument*>(nullptr));
        static_cast<Instrument*>(instrument)->location.SetProgram(handle.Serial());
        return instrument;
    }
    case ItemKind::Track:
        return make(static_cast<Track*>(nullptr));
    case ItemKind::Song:
        return make(static_cast<Song*>(nullptr));
    case ItemKind::Collection:
        break;
    }
    return nullptr;
}

Item* Collection::CloneItem(const Item& source)
{
    switch (source.Kind()) {
    case ItemKind::Waveform:
        return &Clone(static_cast<const Waveform&>(source));
    case ItemKind::SynthModel:
        return &Clone(static_cast<const SynthModel&>(source));
    case ItemKind::Region:
        return &Clone(static_cast<const Region&>(source));
    case ItemKind::Layer:
        return &Clone(static_cast<const Layer&>(source));
    case ItemKind::Instrument:
        return &Clone(static_cast<const Instrument&>(source));
    case ItemKind::Track:
        return &Clone(static_cast<const Track&>(source));
    case ItemKind::Song:
        return &Clone(static_cast<const Song&>(source));
    case ItemKind::Collection:
        break;
    }
    return nullptr;
}

void Collection::Destroy(ItemHandle handle)
{
    Item* item = handle != handle_ ? FindItem(handle) : nullptr;
    if (item == nullptr)
        return;
    item->OnDestroy(); // takes other items out of the map, never this one
    if (late_ != nullptr) {
        DestroyLate(handle);
        return;
    }
    Unlink(*item);
    map_.Take(handle);
}

struct Collection::LateRemovals {
    std::mutex mutex;
    std::vector<std::unique_ptr<Item>> items;
};

void Collection::DestroyLate(ItemHandle handle)
{
    const std::lock_guard lock(late_->mutex);
    late_->items.push_back(std::move(*map_.Find(handle)));
}

void Collection::RemoveLate() noexcept
{
    for (const std::unique_ptr<Item>& item : late_->items) {
        Unlink(*item);
        map_.Take(item->Handle());
    }
    late_.reset();
}

LateRemovalScope::LateRemovalScope(Collection& collection) : collection_(collection)
{
    collection_.late_ = std::make_unique<Collection::LateRemovals>();
}

LateRemovalScope::~LateRemovalScope()
{
    collection_.RemoveLate();
}

void Collection::Clear()
{
    // Parents before children, so that no child searches a long list; the last kinds hold only strays.
    for (const ItemKind kind : {ItemKind::Song, ItemKind::Instrument, ItemKind::Waveform, ItemKind::Track,
                                ItemKind::Layer, ItemKind::Region, ItemKind::SynthModel})
        while (Item* item = First(kind))
            Destroy(item->Handle());
    twins.clear();
    nameCounters_ = {};
    formatRow = -1;
    ClearTexts();
    SetName(u"New collection");
}

void Collection::Validate()
{
    TextItem::Validate();
    FreeNumbers locations(MidiLocation::kMask);
    for (Instrument& instrument : All<Instrument>())
        MakeLocationUnique(instrument, locations);
}

void MakeLocationUnique(Instrument& instrument, FreeNumbers& locations)
{
    instrument.location = FromBankMsbFirst(locations.Take(BankMsbFirst(instrument.location)));
}

bool Collection::EnsureData()
{
    for (Waveform& wave : All<Waveform>())
        if (!wave.EnsureData())
            return false;
    return TextItem::EnsureData();
}

void Collection::Serialize(ByteWriter& out) const
{
    TextItem::Serialize(out);
    out.Write(I32le(formatRow));
}

bool Collection::Deserialize(ByteReader& in)
{
    I32le row;
    if (!TextItem::Deserialize(in))
        return false;
    if (!in.Read(row))
        return Fail(kDamagedRecord);
    formatRow = row.Get();
    return true;
}

const ImportProcedure* Collection::FindImportProcedure(std::uint64_t id) const noexcept
{
    for (const ImportProcedure* own : {&kGenericImport, &kPairImport, &kChannelImport})
        if (id == own->id)
            return own;
    const auto found = std::find_if(procedures_.begin(), procedures_.end(),
                                    [id](const ImportProcedure* procedure) { return procedure->id == id; });
    return found != procedures_.end() ? *found : nullptr;
}

} // namespace vimbo
