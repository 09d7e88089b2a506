#include "model/fix_up.h"

#include "model/instrument_threads.h"
#include "model/levels.h"
#include "model/load_actions.h"
#include "model/song.h"
#include "model/synth_model.h"
#include "model/waveform.h"

#include <algorithm>
#include <unordered_set>

namespace vimbo {

namespace {

template <class T>
void ValidateAll(const Collection& collection)
{
    for (T* item : collection.List<T>())
        item->Validate();
}

template <class T>
void ValidateArticulated(T& item)
{
    item.Validate();
    item.articulation.Normalize(item.Owner().features);
}

/// What was marked as set although it equals what the level above says.
void UnmarkRedundant(Region& region, const Layer& layer)
{
    region.trigger.ClearRedundant(layer.trigger);
    region.articulation.ClearRedundant(layer.articulation);
}

void ValidateRegion(Region& region, AfterLoad afterLoad)
{
    ValidateArticulated(region);
    if (afterLoad == AfterLoad::No)
        return;
    region.DropEqualOverrides();
    if (const Layer* layer = region.ParentLayer())
        UnmarkRedundant(region, *layer);
}

void ValidateLayer(Layer& layer, AfterLoad afterLoad)
{
    ValidateArticulated(layer);
    ForEachRegion(layer, [afterLoad](Region& region) { ValidateRegion(region, afterLoad); });
}

/// Layers may destroy regions while they are validated, but never an item of their own kind.
void ValidateLayersAndRegions(Collection& collection, AfterLoad afterLoad)
{
    if (HasStrays(collection))
        for (Layer& layer : collection.All<Layer>())
            ValidateLayer(layer, afterLoad);
    else
        ForEachInstrument(collection, [afterLoad](Instrument& instrument) {
            ForEachLayer(instrument, [afterLoad](Layer& layer) { ValidateLayer(layer, afterLoad); });
        });
    if (!HasStrays(collection)) // dead slots are gone now
        return;
    std::unordered_set<const Region*> listed;
    for (const Layer& layer : collection.All<Layer>())
        ForEachRegion(layer, [&](const Region& region) { listed.insert(&region); });
    for (Region& region : collection.All<Region>())
        if (!listed.contains(&region))
            ValidateRegion(region, afterLoad);
}

void ValidateWaveforms(const Collection& collection, AfterLoad afterLoad)
{
    for (Waveform& wave : collection.All<Waveform>()) {
        // Ahead of Validate, which would choose by the bits alone.
        if (afterLoad == AfterLoad::Yes && wave.saveFormat == SaveFormat::Default && wave.HasGenericImport())
            wave.saveFormat = SaveFormatOf(wave.SourceFormat());
        wave.Validate();
    }
}

bool HasLiveChild(const Item& item) noexcept
{
    for (std::size_t i = 0; i < item.Children().size(); ++i)
        if (item.Child(i) != nullptr)
            return true;
    return false;
}

bool IsEmpty(const Waveform& wave) noexcept
{
    return wave.frames == 0 || wave.channels == 0 || wave.channels > kMaxChannels;
}

/// Drops the model's dead waveforms first. One that never had waveforms is complete as it is.
bool IsEmpty(SynthModel& model)
{
    const bool hadWaves = !model.Children().empty();
    model.Validate();
    return hadWaves && model.Children().empty();
}

bool IsEmpty(const Track& track) noexcept
{
    return track.EventCount() == 0;
}

template <class T>
bool IsEmpty(const T& item) noexcept
{
    return !HasLiveChild(item);
}

/// Destroys the empty items of one kind. Each parent's list is swept once, however many of its children go.
template <class T>
void Prune(Collection& collection, std::uint8_t mask)
{
    if ((mask & PruneBit(T::kKind)) == 0)
        return;
    std::vector<T*> empty;
    for (T& item : collection.All<T>())
        if (IsEmpty(item))
            empty.push_back(&item);
    std::vector<ItemHandle> parents;
    for (T* item : empty) {
        parents.push_back(item->Parent());
        item->SetParent(NO_ITEM);
        collection.Destroy(item->Handle());
    }
    std::sort(parents.begin(), parents.end());
    parents.erase(std::unique(parents.begin(), parents.end()), parents.end());
    for (const ItemHandle handle : parents) {
        Item* parent = collection.FindItem(handle);
        if (parent == nullptr)
            continue;
        parent->Item::Validate();
        if (parent->Kind() == ItemKind::Layer)
            static_cast<Layer*>(parent)->RebuildName();
    }
}

void ValidateItems(Collection& collection, AfterLoad afterLoad)
{
    for (Instrument& instrument : collection.All<Instrument>())
        ValidateArticulated(instrument);
    ValidateLayersAndRegions(collection, afterLoad);
    ValidateAll<SynthModel>(collection);
    ValidateWaveforms(collection, afterLoad);
    ValidateAll<Song>(collection);
    ValidateAll<Track>(collection);
}

/// Slots of waveforms that are gone.
template <class T>
void DropDeadChildren(const Collection& collection)
{
    for (T& item : collection.All<T>())
        static_cast<Item&>(item).Item::Validate();
}

void PruneItems(Collection& collection, std::uint8_t mask)
{
    const std::size_t waves = collection.CountOf(ItemKind::Waveform);
    Prune<Waveform>(collection, mask);
    Prune<SynthModel>(collection, mask);
    Prune<Region>(collection, mask);
    Prune<Layer>(collection, mask);
    Prune<Instrument>(collection, mask);
    Prune<Track>(collection, mask);
    Prune<Song>(collection, mask);
    if (collection.CountOf(ItemKind::Waveform) != waves) {
        DropDeadChildren<SynthModel>(collection);
        DropDeadChildren<Region>(collection);
    }
}

/// Layers and regions keep their names for a scope: they are all renamed behind it.
class NamesWaitScope {
public:
    explicit NamesWaitScope(Collection& collection) noexcept : collection_(collection)
    {
        collection_.namesWait = true;
    }
    ~NamesWaitScope() { collection_.namesWait = false; }
    NamesWaitScope(const NamesWaitScope&) = delete;
    NamesWaitScope& operator=(const NamesWaitScope&) = delete;

private:
    Collection& collection_;
};

/// The same above the regions.
void UnmarkRedundantArticulationAbove(const Collection& collection)
{
    for (Instrument& instrument : collection.All<Instrument>())
        instrument.articulation.ClearRedundant(DefaultArticulation());
    for (Layer& layer : collection.All<Layer>())
        if (const Instrument* instrument = layer.ParentInstrument())
            layer.articulation.ClearRedundant(instrument->articulation);
}

void UnmarkRedundantAbove(const Collection& collection)
{
    UnmarkRedundantArticulationAbove(collection);
    for (Layer& layer : collection.All<Layer>())
        layer.trigger.ClearRedundant(TriggerParams{});
}

} // namespace

void UnmarkRedundantArticulation(Collection& collection)
{
    UnmarkRedundantArticulationAbove(collection);
    for (Region& region : collection.All<Region>())
        if (const Layer* layer = region.ParentLayer())
            region.articulation.ClearRedundant(layer->articulation);
}

void RebuildNames(Collection& collection)
{
    if (!HasStrays(collection)) {
        ForEachInstrument(collection, [](Instrument& instrument) {
            ForEachLayer(instrument, [](Layer& layer) {
                ForEachRegion(layer, [](Region& region) { region.RebuildName(); });
                layer.RebuildName();
            });
        });
        return;
    }
    for (Region& region : collection.All<Region>())
        region.RebuildName();
    for (Layer& layer : collection.All<Layer>())
        layer.RebuildName();
}

void FixUpItems(Collection& collection, std::uint8_t pruneMask, AfterLoad afterLoad, SourceHoldsStereo stereo)
{
    Host& host = collection.GetHost();
    host.SetProgress(u"");
    host.SetStatus(u"Fixing up items...");

    {
        const NamesWaitScope namesWait(collection);
        ValidateItems(collection, afterLoad);
        PruneItems(collection, pruneMask);
        if (afterLoad == AfterLoad::Yes)
            UnmarkRedundantAbove(collection); // regions are done
        MoveToPermittedLevels(collection);
        if (afterLoad == AfterLoad::Yes)
            CarryOutLoadOptions(collection, stereo);
    }
    RebuildNames(collection); // last, as they show what the steps before may change
    collection.Validate();
    host.SetStatus(u"");
}

} // namespace vimbo
