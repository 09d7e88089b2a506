// Moving and copying the items of one collection into another.
#include "model/merge.h"

#include "model/instrument.h"
#include "model/song.h"
#include "model/synth_model.h"
#include "model/waveform.h"

namespace vimbo {

ItemHandle HandleTranslation::operator()(ItemHandle from) const noexcept
{
    const auto found = map_.find(from);
    return found != map_.end() ? found->second : NO_ITEM;
}

CollectionMerger::CollectionMerger(Collection& target)
    : target_(target), words_(MidiLocation::kMask), locations_(MidiLocation::kMask)
{
    for (const Instrument& instrument : target.All<Instrument>())
        words_.Mark(instrument.location.word);
}

void CollectionMerger::Merge(Collection& other)
{
    if (&other == &target_ || other.ItemCount() < 2)
        return;
    for (Instrument& instrument : other.All<Instrument>())
        instrument.location.word = words_.Take(instrument.location.word);
    const std::vector<Instrument*> arriving = other.List<Instrument>();
    target_.TakeItemsOf(other);
    if (isFirst_) {
        target_.TextItem::Validate();
        for (Instrument& instrument : target_.All<Instrument>())
            MakeLocationUnique(instrument, locations_);
    } else {
        for (Instrument* instrument : arriving)
            MakeLocationUnique(*instrument, locations_);
    }
    for (const Instrument* instrument : arriving)
        words_.Mark(instrument->location.word);
    isFirst_ = false;
}

void Collection::Merge(Collection& other)
{
    CollectionMerger(*this).Merge(other);
}

/// Under new handles. Memory cannot run out halfway.
void Collection::TakeItemsOf(Collection& other)
{
    HandleTranslation table;
    std::vector<Item*> moving;
    for (std::size_t kind = 0; kind < static_cast<std::size_t>(ItemKind::Collection); ++kind)
        for (Item* item = other.first_[kind]; item != nullptr; item = item->nextOfKind_) {
            moving.push_back(item);
            table.Add(item->handle_, TakeHandle(item->Kind()));
        }
    map_.Reserve(map_.Size() + moving.size());

    for (Item* item : moving) {
        std::unique_ptr<Item> owned = other.map_.Take(item->handle_);
        other.Unlink(*item);
        item->TranslateHandles(table);
        item->handle_ = table(item->handle_);
        item->owner_ = this;
        map_.Insert(item->handle_, std::move(owned));
        Link(*item);
    }
    other.ClearChildren();
}

void Collection::CopyFrom(const Collection& other)
{
    if (&other == this)
        return;
    Clear();
    CopyTexts(other);
    formatRow = other.formatRow;
    features = other.features;
    loadOptions = other.loadOptions;
    host_ = other.host_;
    procedures_ = other.procedures_;
    map_.Reserve(other.map_.Size());
    const auto copyAll = [&]<class T>(T*) {
        for (const T& source : other.All<T>()) {
            auto copy = std::make_unique<T>(ItemKey{}, *this, source);
            copy->parent_ = source.parent_;
            Install(std::move(copy), source.handle_);
        }
    };
    copyAll(static_cast<Waveform*>(nullptr));
    copyAll(static_cast<SynthModel*>(nullptr));
    copyAll(static_cast<Region*>(nullptr));
    copyAll(static_cast<Layer*>(nullptr));
    copyAll(static_cast<Instrument*>(nullptr));
    copyAll(static_cast<Track*>(nullptr));
    copyAll(static_cast<Song*>(nullptr));
    children_ = other.children_;
}

} // namespace vimbo
