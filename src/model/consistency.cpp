#include "model/consistency.h"

#include "model/instrument.h"
#include "model/song.h"
#include "model/synth_model.h"
#include "model/waveform.h"

#include <array>
#include <bitset>
#include <unordered_set>

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

namespace {

template <class T>
const char16_t* ChildFault(const T& item)
{
    for (std::size_t i = 0; i < item.Children().size(); ++i) {
        const Item* child = item.Child(i);
        if (child == nullptr)
            return u"has a child that does not exist";
        if (child->Kind() != ItemKind::Waveform && T::kKind != ItemKind::Collection &&
            child->Parent() != item.Handle())
            return u"has a child that belongs to another";
    }
    return nullptr;
}

bool FollowsFrom(const ArticulationBlock& block, const ArticulationBlock& above)
{
    for (ParamId id = 0; id < kArticulationParams; ++id)
        if (!block.IsSet(id) && block[id] != above[id])
            return false;
    return true;
}

bool FollowsFrom(const TriggerParams& trigger, const TriggerParams& above)
{
    for (ParamId id = kFirstTriggerParam; id <= kLastTriggerParam; ++id)
        if (!trigger.IsSet(id) && trigger.Get(id) != above.Get(id))
            return false;
    return true;
}

constexpr bool IsProperRange(MidiRange range) noexcept
{
    return range.low <= range.high && range.high <= 127;
}

/// Which cells of the plane of keys and velocities are taken.
class Occupancy {
public:
    /// False if a cell was taken before.
    bool Take(const TriggerParams& trigger)
    {
        for (unsigned key = trigger.keys.low; key <= trigger.keys.high; ++key)
            for (unsigned velocity = trigger.velocities.low; velocity <= trigger.velocities.high;
                 ++velocity) {
                if (taken_[key].test(velocity))
                    return false;
                taken_[key].set(velocity);
            }
        return true;
    }

private:
    std::array<std::bitset<128>, 128> taken_;
};

const char16_t* FixedUpFault(const Layer& layer)
{
    if (const Instrument* instrument = layer.ParentInstrument();
        instrument != nullptr && !FollowsFrom(layer.articulation, instrument->articulation))
        return u"differs from its instrument in a value that it does not set";
    if (!IsProperRange(layer.trigger.keys) || !IsProperRange(layer.trigger.velocities))
        return u"has a range out of order";
    Occupancy plane;
    for (const Region* region : layer.Regions()) {
        if (!IsProperRange(region->trigger.keys) || !IsProperRange(region->trigger.velocities))
            return u"has a region with a range out of order";
        if (!plane.Take(region->trigger))
            return u"has regions that overlap";
    }
    return nullptr;
}

bool LoopLiesInside(const LoopInfo& loop, std::uint32_t frames)
{
    return frames == 0 || (loop.start >= 0 && loop.start < loop.end && loop.end <= frames);
}

const char16_t* FixedUpFault(const Region& region)
{
    if (const Layer* layer = region.ParentLayer()) {
        if (!FollowsFrom(region.articulation, layer->articulation))
            return u"differs from its layer in a value that it does not set";
        if (!FollowsFrom(region.trigger, layer->trigger))
            return u"differs from its layer in a trigger value that it does not set";
    }
    const Waveform* wave = region.Wave();
    if (wave == nullptr || wave->frames == 0)
        return nullptr;
    if (!LoopLiesInside(region.loop, wave->frames))
        return u"has a loop outside its waveform";
    if (region.startOffset < 0 || region.endOffset > 0 ||
        static_cast<std::uint32_t>(region.startOffset) >= wave->frames)
        return u"has an offset outside its waveform";
    return nullptr;
}

const char16_t* FixedUpFault(const Waveform& wave)
{
    return LoopLiesInside(wave.loop, wave.frames) ? nullptr : u"has a loop outside its frames";
}

template <class T>
const char16_t* FixedUpFault(const T&)
{
    return nullptr;
}

template <class T>
bool IsKindFixedUp(const Collection& collection, std::u16string* why)
{
    for (const T& item : collection.All<T>()) {
        const char16_t* fault = ChildFault(item);
        if (fault == nullptr)
            fault = FixedUpFault(item);
        if (fault == nullptr)
            continue;
        if (why != nullptr)
            *why = std::u16string(KindWord(static_cast<std::size_t>(T::kKind))).append(u" ").append(fault);
        return false;
    }
    return true;
}

bool HasUniqueLocations(const Collection& collection, std::u16string* why)
{
    std::unordered_set<std::uint32_t> words;
    for (const Instrument& instrument : collection.All<Instrument>())
        if (!words.insert(instrument.location.word).second) {
            if (why != nullptr)
                *why = u"two instruments have one MIDI location";
            return false;
        }
    return true;
}

} // namespace

bool IsFixedUp(const Collection& collection, std::u16string* why)
{
    return IsConsistent(collection, why) && IsKindFixedUp<Waveform>(collection, why) &&
           IsKindFixedUp<SynthModel>(collection, why) && IsKindFixedUp<Region>(collection, why) &&
           IsKindFixedUp<Layer>(collection, why) && IsKindFixedUp<Instrument>(collection, why) &&
           IsKindFixedUp<Track>(collection, why) && IsKindFixedUp<Song>(collection, why) &&
           IsKindFixedUp<Collection>(collection, why) && HasUniqueLocations(collection, why);
}

} // namespace vimbo
