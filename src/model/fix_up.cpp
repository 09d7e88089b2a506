#include "model/fix_up.h"

#include "model/instrument.h"
#include "model/song.h"
#include "model/synth_model.h"
#include "model/waveform.h"

#include <algorithm>

namespace vimbo {

namespace {

template <class T>
void ValidateAll(const Collection& collection)
{
    for (T* item : collection.List<T>())
        item->Validate();
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
    std::vector<ItemHandle> parents;
    for (T* item : collection.List<T>()) {
        if (!IsEmpty(*item))
            continue;
        parents.push_back(item->Parent());
        item->SetParent(NO_ITEM);
        collection.Destroy(item->Handle());
    }
    std::sort(parents.begin(), parents.end());
    parents.erase(std::unique(parents.begin(), parents.end()), parents.end());
    for (const ItemHandle handle : parents)
        if (Item* parent = collection.FindItem(handle))
            parent->Item::Validate();
}

} // namespace

void FixUpItems(Collection& collection, std::uint8_t pruneMask, AfterLoad afterLoad)
{
    Host& host = collection.GetHost();
    host.SetProgress(u"");
    host.SetStatus(u"Fixing up items...");

    ValidateAll<Instrument>(collection);
    ValidateAll<Layer>(collection);
    ValidateAll<Region>(collection);
    ValidateAll<SynthModel>(collection);
    ValidateWaveforms(collection, afterLoad);
    ValidateAll<Song>(collection);
    ValidateAll<Track>(collection);

    Prune<Waveform>(collection, pruneMask);
    Prune<SynthModel>(collection, pruneMask);
    Prune<Region>(collection, pruneMask);
    Prune<Layer>(collection, pruneMask);
    Prune<Instrument>(collection, pruneMask);
    Prune<Track>(collection, pruneMask);
    Prune<Song>(collection, pruneMask);

    collection.Validate();
    host.SetStatus(u"");
}

} // namespace vimbo
