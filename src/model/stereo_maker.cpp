#include "model/stereo_maker.h"

#include "base/last_error.h"
#include "base/text.h"
#include "model/instrument.h"
#include "model/sample_source.h"
#include "model/side_names.h"
#include "model/synth_model.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

namespace vimbo {
namespace {

template <class Parent, class Child>
std::vector<Parent*> ParentsOf(const std::vector<Child*>& children)
{
    std::vector<Parent*> parents;
    std::unordered_set<const Item*> seen;
    const Item* last = nullptr; // neighbours nearly always have the same one
    for (const Child* child : children) {
        auto* const parent = static_cast<Parent*>(child->ParentItem());
        if (parent != std::exchange(last, parent) && parent != nullptr && seen.insert(parent).second)
            parents.push_back(parent);
    }
    return parents;
}

/// Without a search of the parents' lists for each: those are swept afterwards.
template <class T>
void DestroyAll(Collection& items, const std::vector<T*>& doomed)
{
    for (T* item : doomed) {
        item->SetParent(NO_ITEM);
        items.Destroy(item->Handle());
    }
}

} // namespace

std::u16string FoldedName(std::u16string_view name)
{
    std::u16string folded(name);
    for (char16_t& unit : folded)
        unit = FoldCase(unit);
    return folded;
}

Waveform* StereoMaker::StereoOf(Waveform& left, Waveform& right, const Waveform& named)
{
    const auto [place, isNew] = made_.try_emplace({left.Handle(), right.Handle()}, nullptr);
    if (isNew)
        place->second = Make(left, right, named);
    return place->second;
}

Waveform* StereoMaker::Make(Waveform& left, Waveform& right, const Waveform& named)
{
    Waveform& stereo = items_.Clone(left);
    if (!JoinStereo(stereo, right)) {
        items_.GetHost().ShowMessage(LastError(), u"Error!", MessageIcon::Error);
        items_.Destroy(stereo.Handle());
        return nullptr;
    }
    const Waveform& other = &named == &left ? right : left;
    stereo.SetName(StereoName(named.GetName(), other.GetName()));
    stereo.Validate();
    return &stereo;
}

/// The name without its side if that is free, else with " S" behind it. What could be a part of the word is
/// taken for a side only if the other name shows that it is one.
std::u16string StereoMaker::StereoName(std::u16string_view name, std::u16string_view other)
{
    if (names_.empty())
        for (const Waveform& wave : items_.All<Waveform>())
            names_.emplace(FoldedName(wave.GetName()));
    std::u16string result(AreSidesOfOneName(name, other) ? name.substr(0, FindSideEnding(name).stem)
                                                         : WithoutSideEnding(name));
    if (result.size() == name.size() || names_.contains(HashedText(FoldedName(result))))
        result += u" S";
    madeEqualNames_ |= !names_.emplace(FoldedName(result)).second;
    return result;
}

std::size_t StereoMaker::DeleteUnused()
{
    std::unordered_set<ItemHandle, ItemHandleHash> unused;
    for (const auto& [pair, stereo] : made_)
        if (stereo != nullptr)
            unused.insert({pair.first, pair.second});
    for (const Region& region : items_.All<Region>())
        for (const ItemHandle slot : region.Children())
            unused.erase(slot);
    for (const SynthModel& model : items_.All<SynthModel>()) {
        for (const ItemHandle slot : model.Children())
            unused.erase(ChildHandle(ItemKind::SynthModel, slot));
        for (std::size_t i = 0; i < SynthModel::kWaveReferences; ++i)
            unused.erase(model.WaveReference(i));
    }
    std::size_t deleted = 0;
    for (const ItemHandle half : unused)
        if (items_.FindItem(half) != nullptr) {
            items_.Destroy(half);
            ++deleted;
        }
    return deleted;
}

void RegionChanges::Merge(Region& kept, Region& gone, const Waveform& stereo)
{
    kept.phaseMaster = std::max(kept.phaseMaster, gone.phaseMaster);
    gone_.push_back(&gone);
    Merge(kept, stereo);
}

void RegionChanges::Merge(Region& kept, const Waveform& stereo)
{
    kept.SetSound(stereo.Handle());
    kept_.push_back(&kept);
    ++merged_;
}

void RegionChanges::DestroyGone(Collection& items)
{
    std::vector<Layer*> layers = ParentsOf<Layer>(gone_);
    DestroyAll(items, gone_);
    std::erase_if(layers, [](Layer* layer) {
        layer->Item::Validate();
        return !layer->Children().empty();
    });
    const std::vector<Instrument*> instruments = ParentsOf<Instrument>(layers);
    DestroyAll(items, layers);
    for (Instrument* instrument : instruments)
        instrument->Item::Validate();
}

/// Clears the pan of the layer's kept regions; at the layer, too, if that leaves nobody panned. A level below
/// one that is panned needs its own mark to stay in the middle.
void RegionChanges::Centre(Layer& layer)
{
    const auto clear = [](ArticulationBlock& block, float inherited) {
        if (inherited == 0)
            block.Inherit(kArtPan, 0);
        else
            block.Set(kArtPan, 0);
    };
    const std::vector<Region*> regions = layer.Regions();
    const bool isAll = std::ranges::all_of(regions, [this](const Region* region) {
        return IsKept(region) || region->articulation[kArtPan] == 0;
    });
    const Instrument* instrument = layer.ParentInstrument();
    if (isAll)
        clear(layer.articulation, instrument != nullptr ? instrument->articulation[kArtPan] : 0);
    for (Region* region : regions)
        if (IsKept(region))
            clear(region->articulation, layer.articulation[kArtPan]);
}

bool RegionChanges::IsKept(const Region* region) const noexcept
{
    return std::ranges::binary_search(keptSorted_, region);
}

void RegionChanges::Apply(Collection& items)
{
    DestroyGone(items);
    keptSorted_.assign(kept_.begin(), kept_.end());
    std::ranges::sort(keptSorted_);
    for (Layer* layer : ParentsOf<Layer>(kept_))
        Centre(*layer);
    for (Region* region : kept_)
        region->RebuildName();
    kept_.clear();
    gone_.clear();
}

StereoMergeCounts RegionChanges::Finish(Collection& items, StereoMaker& maker, DeleteUnused deleteUnused)
{
    Apply(items);
    const std::size_t deleted = deleteUnused == DeleteUnused::Yes ? maker.DeleteUnused() : 0;
    if (maker.MadeEqualNames() && items.loadOptions.ensureUniqueNames)
        items.MakeNamesUnique(ItemKind::Waveform);
    return {merged_, deleted};
}

} // namespace vimbo
