#include "formats/export_set.h"

#include "model/collection.h"
#include "model/key_velocity_grid.h"
#include "model/song.h"
#include "model/synth_model.h"

#include <algorithm>
#include <bitset>
#include <memory>
#include <unordered_set>

namespace vimbo {
namespace {

constexpr unsigned kKeys = 128;
using KeySet = std::bitset<kKeys>;

KeySet KeysOf(const Region& region) noexcept
{
    KeySet keys;
    for (unsigned key = region.trigger.keys.low; key <= region.trigger.keys.high && key < kKeys; ++key)
        keys.set(key);
    return keys;
}

void Adopt(Item& parent, Item& child)
{
    child.SetParent(parent.Handle());
    parent.AddChild(child.Handle());
}

/// Destroys the children that `isDoomed` picks by item and place. The parent's list is written anew once, so
/// that the time grows with its length only. @return how many went
template <class Child, class Pick>
std::size_t DestroyIf(Item& parent, const std::vector<Child*>& children, Pick isDoomed)
{
    std::vector<Child*> doomed;
    parent.ClearChildren();
    for (std::size_t i = 0; i < children.size(); ++i) {
        if (isDoomed(*children[i], i))
            doomed.push_back(children[i]);
        else
            parent.AddChild(children[i]->Handle());
    }
    for (Child* child : doomed) {
        child->SetParent(NO_ITEM);
        parent.Owner().Destroy(child->Handle());
    }
    return doomed.size();
}

void DestroyEmptyLayers(Instrument& instrument)
{
    DestroyIf(instrument, instrument.Layers(),
              [](const Layer& layer, std::size_t) { return layer.Regions().empty(); });
}

std::u16string_view BaseOf(const Layer& layer) noexcept
{
    std::u16string_view base = layer.GetName();
    base = base.substr(0, base.find(u':'));
    while (!base.empty() && base.back() == u' ')
        base.remove_suffix(1);
    return base;
}

/// An instrument without layers that has all else of `model`; a plain one if that is null.
Instrument& MakeShell(const Item& item, const Instrument* model)
{
    std::u16string_view name = model != nullptr ? model->GetName() : item.GetName();
    // Without a name it would use up a number of the default names.
    auto& shell = item.Owner().Create<Instrument>(name.empty() ? u"unnamed" : name);
    if (model == nullptr)
        return shell;
    shell.location = model->location;
    shell.articulation = model->articulation;
    shell.channelFx = model->channelFx;
    for (ParamId id = kTextArtist; id <= kTextSourcePath; ++id)
        shell.SetText(id, model->GetText(id));
    shell.SetImage(model->GetImage());
    return shell;
}

Layer& AddShellLayer(Instrument& shell, const Layer* model)
{
    Layer& layer = shell.AddLayer(model != nullptr ? BaseOf(*model) : std::u16string_view());
    if (model != nullptr) {
        layer.trigger = model->trigger;
        layer.articulation = model->articulation;
    }
    return layer;
}

/// Each waveform once, in the order of the calls.
class WaveList {
public:
    explicit WaveList(std::vector<Waveform*>& out) noexcept : out_(out) {}
    void Add(const Region& region)
    {
        if (Waveform* wave = region.Wave())
            Add(*wave);
        if (const SynthModel* synth = region.Synth())
            for (std::size_t i = 0; i < synth->Children().size(); ++i)
                if (Item* wave = synth->Child(i))
                    Add(static_cast<Waveform&>(*wave));
    }

private:
    void Add(Waveform& wave)
    {
        if (seen_.insert(&wave).second)
            out_.push_back(&wave);
    }
    std::vector<Waveform*>& out_;
    std::unordered_set<const Waveform*> seen_;
};

constexpr unsigned kNoGroup = 255;
constexpr unsigned kGroups = static_cast<unsigned>(TriggerKind::LastAlternate) -
                             static_cast<unsigned>(TriggerKind::FirstAlternate) + 1;

unsigned AlternateGroup(const Region& region) noexcept
{
    constexpr auto kFirst = static_cast<unsigned>(TriggerKind::FirstAlternate);
    const unsigned type = region.trigger.triggerType;
    return type >= kFirst && type < kFirst + kGroups ? type - kFirst : kNoGroup;
}

/// Places of regions, by layer.
using Places = std::vector<std::vector<std::size_t>>;

/// The regions that overlap one of their alternate group in an earlier layer. Empty if there are none.
Places FindOverlappingAlternates(const Instrument& instrument)
{
    std::array<std::unique_ptr<KeyVelocityGrid>, kGroups> grids;
    const std::vector<Layer*> layers = instrument.Layers();
    Places found(layers.size());
    bool any = false;
    for (std::size_t l = 0; l < layers.size(); ++l) {
        std::vector<const Region*> kept;
        const std::vector<Region*> regions = layers[l]->Regions();
        for (std::size_t r = 0; r < regions.size(); ++r) {
            const unsigned group = AlternateGroup(*regions[r]);
            if (group == kNoGroup)
                continue;
            if (grids[group] && !grids[group]->IsFree(Zone(regions[r]->trigger)))
                found[l].push_back(r);
            else
                kept.push_back(regions[r]);
        }
        any = any || !found[l].empty();
        for (const Region* region : kept) {
            auto& grid = grids[AlternateGroup(*region)];
            if (!grid)
                grid = std::make_unique<KeyVelocityGrid>();
            grid->Add(Zone(region->trigger));
        }
    }
    return any ? found : Places();
}

bool HasKeyOverlap(const Layer& layer)
{
    KeySet taken;
    for (const Region* region : layer.Regions()) {
        const KeySet keys = KeysOf(*region);
        if ((taken & keys).any())
            return true;
        taken |= keys;
    }
    return false;
}

struct KeyStack {
    KeySet keys;
    std::vector<Region*> regions;
};

/// The regions in as few lists as come out when each goes into the first one that has its keys free.
std::vector<KeyStack> StackByKeys(const std::vector<Region*>& regions)
{
    std::vector<KeyStack> stacks;
    for (Region* region : regions) {
        const KeySet keys = KeysOf(*region);
        auto free = std::find_if(stacks.begin(), stacks.end(),
                                 [&](const KeyStack& stack) { return (stack.keys & keys).none(); });
        if (free == stacks.end())
            free = stacks.emplace(stacks.end());
        free->keys |= keys;
        free->regions.push_back(region);
    }
    return stacks;
}

void TakeRegions(Layer& layer, const std::vector<Region*>& regions)
{
    layer.ClearChildren();
    for (Region* region : regions)
        Adopt(layer, *region);
    layer.RebuildName();
}

/// Appends the layer and the new ones that its overlapping regions moved to.
void SeparateLayer(Instrument& instrument, Layer& layer, std::vector<ItemHandle>& order)
{
    order.push_back(layer.Handle());
    const std::vector<KeyStack> stacks = StackByKeys(layer.Regions());
    if (stacks.size() < 2)
        return;
    TakeRegions(layer, stacks.front().regions);
    for (std::size_t i = 1; i < stacks.size(); ++i) {
        Layer& added = AddShellLayer(instrument, &layer);
        TakeRegions(added, stacks[i].regions);
        order.push_back(added.Handle());
    }
}

struct ClipLimits {
    MidiRange keys, velocities;

    bool Holds(const Region& region) const noexcept
    {
        return keys.Contains(region.trigger.keys) && velocities.Contains(region.trigger.velocities);
    }
    bool Meets(const Region& region) const noexcept
    {
        return keys.Overlaps(region.trigger.keys) && velocities.Overlaps(region.trigger.velocities);
    }
};

/// Moves one edge inward; the fade there keeps what is not cut off.
void MoveEdge(TriggerParams& trigger, ParamId id, std::uint8_t& edge, std::uint8_t limit, ParamId fadeId,
              std::uint8_t& fade) noexcept
{
    const int cut = edge < limit ? limit - edge : edge - limit;
    edge = limit;
    trigger.Mark(id);
    if (fade == 0)
        return;
    fade = static_cast<std::uint8_t>(std::max(0, fade - cut));
    trigger.Mark(fadeId);
}

void ClipRegion(Region& region, const ClipLimits& limits)
{
    TriggerParams& t = region.trigger;
    if (t.keys.low < limits.keys.low)
        MoveEdge(t, kParamLowKey, t.keys.low, limits.keys.low, kParamKeyFadeIn, t.keyFadeIn);
    if (t.keys.high > limits.keys.high)
        MoveEdge(t, kParamHighKey, t.keys.high, limits.keys.high, kParamKeyFadeOut, t.keyFadeOut);
    if (t.velocities.low < limits.velocities.low)
        MoveEdge(t, kParamLowVelocity, t.velocities.low, limits.velocities.low, kParamVelocityFadeIn,
                 t.velocityFadeIn);
    if (t.velocities.high > limits.velocities.high)
        MoveEdge(t, kParamHighVelocity, t.velocities.high, limits.velocities.high, kParamVelocityFadeOut,
                 t.velocityFadeOut);
    t.Normalize(region.Owner().features);
    region.RebuildName();
}

bool NeedsClipping(const Instrument& instrument, const ClipLimits& limits)
{
    const std::vector<Layer*> layers = instrument.Layers();
    return std::any_of(layers.begin(), layers.end(), [&](const Layer* layer) {
        const std::vector<Region*> regions = layer->Regions();
        return regions.empty() || !std::all_of(regions.begin(), regions.end(),
                                               [&](const Region* region) { return limits.Holds(*region); });
    });
}

void ClipInstrument(Instrument& instrument, const ClipLimits& limits)
{
    for (Layer* layer : instrument.Layers()) {
        DestroyIf(*layer, layer->Regions(),
                  [&](const Region& region, std::size_t) { return !limits.Meets(region); });
        for (Region* region : layer->Regions())
            if (!limits.Holds(*region))
                ClipRegion(*region, limits);
        layer->RebuildName();
    }
    DestroyEmptyLayers(instrument);
}

void Compact(Instrument& instrument, std::size_t limit)
{
    instrument.CompactLayers(MoveParamsUp::Yes, KeepArticulation::Yes);
    if (instrument.Layers().size() > limit)
        instrument.CompactLayers(MoveParamsUp::No, KeepArticulation::No);
}

} // namespace

Instrument& WrapInInstrument(const Item& item)
{
    Collection& owner = item.Owner();
    if (item.Kind() == ItemKind::Layer) {
        const auto& layer = static_cast<const Layer&>(item);
        Instrument& shell = MakeShell(item, layer.ParentInstrument());
        Adopt(shell, owner.Clone(layer));
        return shell;
    }
    if (item.Kind() == ItemKind::Region) {
        const auto& region = static_cast<const Region&>(item);
        const Layer* above = region.ParentLayer();
        Instrument& shell = MakeShell(item, above != nullptr ? above->ParentInstrument() : nullptr);
        Layer& layer = AddShellLayer(shell, above);
        Adopt(layer, owner.Clone(region));
        layer.RebuildName();
        return shell;
    }
    Instrument& shell = MakeShell(item, nullptr);
    Region& region = shell.AddLayer().AddRegion(NO_ITEM);
    if (item.Kind() == ItemKind::SynthModel)
        region.SetSound(owner.Clone(static_cast<const SynthModel&>(item)).Handle());
    else if (item.Kind() == ItemKind::Waveform)
        region.SetSound(item.Handle());
    region.RebuildName();
    return shell;
}

void ExportSet::Fill(Item& root, IncludeWaves includeWaves, DropOverlappingAlternates dropAlternates)
{
    Clear();
    owner_ = &root.Owner();
    switch (root.Kind()) {
    case ItemKind::Collection:
        instruments_ = owner_->List<Instrument>();
        std::stable_sort(
            instruments_.begin(), instruments_.end(),
            [](const Instrument* a, const Instrument* b) { return a->location.word < b->location.word; });
        if (includeWaves == IncludeWaves::Yes)
            waveforms_ = owner_->List<Waveform>();
        break;
    case ItemKind::Waveform:
        if (includeWaves == IncludeWaves::Yes)
            waveforms_.push_back(&static_cast<Waveform&>(root));
        break;
    case ItemKind::Instrument:
        instruments_.push_back(&static_cast<Instrument&>(root));
        break;
    case ItemKind::Layer:
    case ItemKind::Region:
    case ItemKind::SynthModel:
        instruments_.push_back(&Own(WrapInInstrument(root)));
        break;
    case ItemKind::Track:
    case ItemKind::Song:
        break;
    }
    if (includeWaves == IncludeWaves::Yes && root.Kind() != ItemKind::Collection) {
        WaveList waves(waveforms_);
        for (const Instrument* instrument : instruments_)
            for (const Layer* layer : instrument->Layers())
                for (const Region* region : layer->Regions())
                    waves.Add(*region);
    }
    if (dropAlternates == DropOverlappingAlternates::Yes)
        RemoveOverlappingAlternates();
}

void ExportSet::Clear()
{
    for (const ItemHandle handle : owned_)
        owner_->Destroy(handle);
    owned_.clear();
    clones_.clear();
    instruments_.clear();
    waveforms_.clear();
}

Instrument& ExportSet::Own(Instrument& made)
{
    owned_.push_back(made.Handle());
    clones_.emplace(&made, &made);
    return made;
}

Instrument& ExportSet::CloneOf(Instrument& instrument)
{
    if (const auto known = clones_.find(&instrument); known != clones_.end())
        return *known->second;
    owner_ = &instrument.Owner();
    Instrument& clone = Own(owner_->Clone(instrument));
    clones_.emplace(&instrument, &clone);
    return clone;
}

Instrument& ExportSet::EditAt(std::size_t index)
{
    instruments_[index] = &CloneOf(*instruments_[index]);
    return *instruments_[index];
}

void ExportSet::LimitLayers(std::size_t maxMelodic, std::size_t maxDrum, CompactFirst compactFirst)
{
    for (std::size_t i = 0; i < instruments_.size(); ++i) {
        const std::size_t limit = instruments_[i]->location.IsDrum() ? maxDrum : maxMelodic;
        if (instruments_[i]->Layers().size() <= limit)
            continue;
        Instrument& instrument = EditAt(i);
        if (compactFirst == CompactFirst::Yes)
            Compact(instrument, limit);
        DestroyIf(instrument, instrument.Layers(),
                  [limit](const Layer&, std::size_t place) { return place >= limit; });
    }
}

void ExportSet::RemoveOverlappingAlternates()
{
    for (std::size_t i = 0; i < instruments_.size(); ++i) {
        const Places doomed = FindOverlappingAlternates(*instruments_[i]);
        if (doomed.empty())
            continue;
        Instrument& instrument = EditAt(i);
        const std::vector<Layer*> layers = instrument.Layers();
        std::vector<bool> isLeftEmpty(layers.size());
        for (std::size_t l = 0; l < layers.size(); ++l) {
            if (doomed[l].empty())
                continue;
            DestroyIf(*layers[l], layers[l]->Regions(), [&](const Region&, std::size_t place) {
                return std::binary_search(doomed[l].begin(), doomed[l].end(), place);
            });
            layers[l]->RebuildName();
            isLeftEmpty[l] = layers[l]->Children().empty();
        }
        DestroyIf(instrument, layers, [&](const Layer&, std::size_t place) { return isLeftEmpty[place]; });
    }
}

void ExportSet::SeparateVelocityStacks()
{
    for (std::size_t i = 0; i < instruments_.size(); ++i) {
        const std::vector<Layer*> before = instruments_[i]->Layers();
        if (std::none_of(before.begin(), before.end(),
                         [](const Layer* layer) { return HasKeyOverlap(*layer); }))
            continue;
        Instrument& instrument = EditAt(i);
        std::vector<ItemHandle> order;
        for (Layer* layer : instrument.Layers())
            SeparateLayer(instrument, *layer, order);
        instrument.ClearChildren();
        for (const ItemHandle layer : order)
            instrument.AddChild(layer);
    }
}

void ExportSet::ClipTo(MidiRange keys, MidiRange velocities, bool melodic, bool drum)
{
    const ClipLimits limits{keys, velocities};
    std::vector<Instrument*> kept;
    for (std::size_t i = 0; i < instruments_.size(); ++i) {
        const bool isSelected = instruments_[i]->location.IsDrum() ? drum : melodic;
        if (isSelected && NeedsClipping(*instruments_[i], limits))
            ClipInstrument(EditAt(i), limits);
        if (!isSelected || !instruments_[i]->Layers().empty())
            kept.push_back(instruments_[i]);
    }
    instruments_ = std::move(kept);
}

void ExportSet::KeepFirstInstrument()
{
    if (!instruments_.empty())
        instruments_.erase(instruments_.begin() + 1, instruments_.end());
}

std::vector<Song*> SongsToExport(Item& root)
{
    if (root.Kind() == ItemKind::Collection)
        return root.Owner().List<Song>();
    if (root.Kind() == ItemKind::Song)
        return {&static_cast<Song&>(root)};
    return {};
}

} // namespace vimbo
