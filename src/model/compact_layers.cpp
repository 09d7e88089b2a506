// Fewer layers for the same sound: merging, and moving triggers from regions to their layer.
#include "model/layer_room.h"
#include "model/levels.h"

#include <algorithm>
#include <bit>
#include <map>

namespace vimbo {
namespace {

constexpr ParamId kTriggerParams = kLastTriggerParam - kFirstTriggerParam + 1;

constexpr std::uint64_t TriggerBit(ParamId id) noexcept
{
    return std::uint64_t{1} << (id - kFirstTriggerParam);
}

/// Exclusion stays with the regions.
constexpr std::uint64_t kMovableTriggers = ((std::uint64_t{1} << kTriggerParams) - 1) &
                                           ~TriggerBit(kParamExclusionGroup) &
                                           ~TriggerBit(kParamNoteExclusionMode);

/// An edge that not all regions agree on may lie on the wrong side of the other one, which moved.
void OpenInvertedRange(TriggerParams& trigger, MidiRange& range, ParamId lowId, std::uint64_t moved) noexcept
{
    if (range.low <= range.high)
        return;
    const auto highId = static_cast<ParamId>(lowId + 1);
    if ((moved & TriggerBit(lowId)) == 0) {
        range.low = MidiRange{}.low;
        trigger.Unmark(lowId);
    }
    if ((moved & TriggerBit(highId)) == 0) {
        range.high = MidiRange{}.high;
        trigger.Unmark(highId);
    }
}

void MarkNonDefaults(TriggerParams& trigger) noexcept
{
    trigger.marks = 0;
    trigger.MarkDifferences(TriggerParams{});
}

/// The trigger of a layer that holds exactly these regions: their common range and values.
TriggerParams UnitedTrigger(const std::vector<Region*>& regions) noexcept
{
    TriggerParams united = regions.front()->trigger;
    for (const Region* region : regions)
        united.Unite(region->trigger);
    united.Normalize(regions.front()->Owner().features);
    MarkNonDefaults(united);
    return united;
}

/// Moves the regions of the sources into the target. All of them keep their effective values.
void Absorb(Layer& target, std::span<Layer* const> sources)
{
    for (Layer* source : sources) {
        ForEachRegion(*source, [&](Region& region) {
            region.SetParent(target.Handle());
            target.AddChild(region.Handle());
            MarkArticulation(region, target);
        });
        source->ClearChildren();
    }
    const std::vector<Region*> regions = target.Regions();
    if (regions.empty())
        return;
    target.trigger = UnitedTrigger(regions);
    for (Region* region : regions)
        region->trigger.MarkDifferences(target.trigger);
}

void MoveAllUp(Layer& layer)
{
    layer.MoveTriggerUp();
    if (layer.Owner().features.Has(Feature::ArticulationOnLayer))
        layer.MoveArticulationUp(MoveUpMode::Individually);
}

/// A layer that stays, and those that it takes in.
struct KeptLayer {
    Layer* layer;
    std::vector<Layer*> absorbed;
};

/// Finds the first layer with room for each one.
class LayerPacker {
public:
    void Place(Layer& layer)
    {
        std::vector<Zone> zones;
        ForEachRegion(layer, [&](const Region& region) { zones.emplace_back(region.trigger); });
        if (zones.empty())
            return;
        std::size_t index = room_.FirstFree(zones);
        if (index != LayerRoom::kNone) {
            kept_[index].absorbed.push_back(&layer);
        } else {
            index = kept_.size();
            kept_.push_back({&layer, {}});
            room_.AddLayer();
        }
        for (const Zone& zone : zones)
            room_.Occupy(index, zone);
    }
    std::span<const KeptLayer> Kept() const noexcept { return kept_; }

private:
    LayerRoom room_;
    std::vector<KeptLayer> kept_;
};

std::uint32_t Bits(float value) noexcept
{
    return std::bit_cast<std::uint32_t>(value + 0.0f); // -0 is 0
}

std::uint64_t HashOf(const ArticulationBlock& block) noexcept
{
    std::uint64_t hash = 0xCBF29CE484222325; // FNV-1a over words
    for (const float value : block.Values())
        hash = (hash ^ Bits(value)) * 0x100000001B3;
    return hash;
}

/// Any order of values: by their hashes, and of equal hashes by the values themselves, as a file may be made
/// so that all hashes are equal.
struct BlockOrder {
    using Key = std::pair<std::uint64_t, const ArticulationBlock*>;
    bool operator()(const Key& a, const Key& b) const noexcept
    {
        if (a.first != b.first)
            return a.first < b.first;
        return !a.second->SharesValues(*b.second) &&
               std::ranges::lexicographical_compare(a.second->Values(), b.second->Values(), {}, Bits, Bits);
    }
};

/// Layers that may merge, in order: all, or those of equal articulation.
std::vector<std::vector<Layer*>> MergeableGroups(const Instrument& instrument, KeepArticulation keep)
{
    std::vector<std::vector<Layer*>> groups;
    if (keep == KeepArticulation::No)
        return {instrument.Layers()};
    std::map<BlockOrder::Key, std::size_t, BlockOrder> numbers;
    ForEachLayer(instrument, [&](Layer& layer) {
        const auto [same, isNew] =
            numbers.try_emplace({HashOf(layer.articulation), &layer.articulation}, groups.size());
        if (isNew)
            groups.emplace_back();
        groups[same->second].push_back(&layer);
    });
    return groups;
}

} // namespace

void Layer::MoveTriggerUp()
{
    ForEachRegion(*this, [this](Region& region) { ResolveTrigger(region, *this); });
    const std::vector<Region*> regions = Regions();
    if (regions.empty())
        return;
    const TriggerParams& first = regions.front()->trigger;
    TriggerParams difference;
    for (const Region* region : regions) {
        TriggerParams other = region->trigger;
        other.marks = 0;
        other.MarkDifferences(first);
        difference.marks |= other.marks;
    }
    const std::uint64_t moved = kMovableTriggers & ~difference.marks;

    TriggerParams raised = trigger;
    raised.marks = ~moved;
    raised.InheritFrom(first);
    TriggerParams explicitly = raised;
    MarkNonDefaults(explicitly);
    raised.marks = (trigger.marks & ~moved) | (explicitly.marks & moved);
    OpenInvertedRange(raised, raised.keys, kParamLowKey, moved);
    OpenInvertedRange(raised, raised.velocities, kParamLowVelocity, moved);
    raised.Normalize(Owner().features);
    trigger = raised;
    for (Region* region : regions) {
        region->trigger.marks &= ~moved;
        region->trigger.MarkDifferences(trigger); // what did not fit the layer's own range stays below
    }
    RebuildName();
}

std::size_t Instrument::CompactLayers(MoveParamsUp moveUp, KeepArticulation keepArticulation)
{
    AdoptChildren();
    ForEachLayer(*this, [](Layer& layer) { layer.AdoptChildren(); });
    ResolveLevels(*this);
    if (moveUp == MoveParamsUp::Yes)
        ForEachLayer(*this, MoveAllUp);
    std::vector<Item*> gone;
    for (const std::vector<Layer*>& group : MergeableGroups(*this, keepArticulation)) {
        LayerPacker packer;
        for (Layer* layer : group)
            packer.Place(*layer);
        for (const KeptLayer& kept : packer.Kept()) {
            if (kept.absorbed.empty())
                continue;
            Absorb(*kept.layer, kept.absorbed);
            kept.layer->Validate();
            if (moveUp == MoveParamsUp::Yes)
                MoveAllUp(*kept.layer);
            gone.insert(gone.end(), kept.absorbed.begin(), kept.absorbed.end());
        }
    }
    DestroyChildren(*this, gone);
    return gone.size();
}

void MergeLayers(Layer& target, Layer& source)
{
    if (&target == &source)
        return;
    ResolveLevels(target);
    ResolveLevels(source);
    Layer* const sources[] = {&source};
    Absorb(target, sources);
    source.Owner().Destroy(source.Handle());
    target.Validate();
}

} // namespace vimbo
