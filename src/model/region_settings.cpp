// What a region says in place of its waveform, and edits that reach many regions.
#include "model/key_velocity_grid.h"
#include "model/levels.h"
#include "model/wave_settings.h"
#include "model/waveform.h"

#include <unordered_set>

namespace vimbo {
namespace {

LoopInfo LoopOn(const Region& region, const Waveform& wave) noexcept
{
    LoopInfo loop = wave.loop;
    if (region.Overrides(Region::kLoopType)) {
        loop.type = region.loop.type;
        loop.oneShot = region.loop.oneShot; // has no flag of its own
    }
    if (region.Overrides(Region::kLoopRelease))
        loop.breakOnRelease = region.loop.breakOnRelease;
    if (region.Overrides(Region::kLoopStart))
        loop.start = region.loop.start;
    if (region.Overrides(Region::kLoopEnd))
        loop.end = region.loop.end;
    if (region.Overrides(Region::kLoopPitch))
        loop.pitch = region.loop.pitch;
    return loop;
}

/// Gives one axis of a region the full range. The layer's own range goes too; its other regions keep theirs.
void ClearAxis(Region& region, Layer* layer, MidiRange TriggerParams::*axis, ParamId lowId)
{
    const auto clear = [=](TriggerParams& trigger) {
        trigger.*axis = MidiRange{};
        trigger.Unmark(lowId);
        trigger.Unmark(static_cast<ParamId>(lowId + 1));
    };
    if (layer != nullptr && !(layer->trigger.*axis).IsFull()) {
        clear(layer->trigger);
        ForEachRegion(*layer, [&](Region& other) { other.trigger.MarkDifferences(layer->trigger); });
    }
    clear(region.trigger);
}

/// @param isFree  (zone): whether no other region of the layer is there
/// @return true if the region changed
template <class F>
bool ClearRanges(Region& region, Layer* layer, F isFree)
{
    const TriggerParams before = region.trigger;
    const MidiRange full;
    const bool both = isFree(Zone(full, full));
    const bool keys = both || isFree(Zone(full, before.velocities));
    if (keys)
        ClearAxis(region, layer, &TriggerParams::keys, kParamLowKey);
    if (both || (!keys && isFree(Zone(before.keys, full))))
        ClearAxis(region, layer, &TriggerParams::velocities, kParamLowVelocity);
    if (region.trigger == before)
        return false;
    region.RebuildName();
    return true;
}

void ClearRanges(Region& region)
{
    Layer* layer = region.ParentLayer();
    const bool changed = ClearRanges(region, layer, [&](const Zone& zone) {
        return layer == nullptr || layer->HasNoOverlap(zone.keys, zone.velocities, &region);
    });
    if (changed && layer != nullptr)
        layer->RebuildName();
}

/// The places that the regions of one layer occupy, and those that more than one do: enough to tell what is
/// free beside any of them.
class Neighbours {
public:
    explicit Neighbours(const Layer& layer)
    {
        ForEachRegion(layer, [this](const Region& region) {
            const Zone zone = Zone(region.trigger).Normalized();
            shared_.AddOccupied(any_, zone);
            any_.Add(zone);
        });
    }
    bool AreAway(const Zone& zone, const Zone& own) const noexcept
    {
        const Zone wanted = zone.Normalized();
        return shared_.IsFree(wanted) && any_.IsFreeBeside(wanted, own.Normalized());
    }
    /// A region grew into places that were free.
    void Grow(const Zone& zone) noexcept { any_.Add(zone.Normalized()); }

private:
    KeyVelocityGrid any_, shared_;
};

void ClearRanges(Layer& layer)
{
    constexpr std::size_t kFew = 8; // among so few, looking at all of them is quicker
    bool changed = false;
    if (layer.Children().size() <= kFew) {
        ForEachRegion(layer, [&](Region& region) {
            changed |= ClearRanges(region, &layer, [&](const Zone& zone) {
                return layer.HasNoOverlap(zone.keys, zone.velocities, &region);
            });
        });
        if (changed)
            layer.RebuildName();
        return;
    }
    Neighbours neighbours(layer);
    ForEachRegion(layer, [&](Region& region) {
        const Zone own(region.trigger);
        if (!ClearRanges(region, &layer, [&](const Zone& zone) { return neighbours.AreAway(zone, own); }))
            return;
        neighbours.Grow(Zone(region.trigger));
        changed = true;
    });
    if (changed)
        layer.RebuildName();
}

void ShiftRegion(Region& region, ParamId id, float step)
{
    if (id < kArticulationParams) {
        if (region.articulation.IsSet(id))
            region.articulation.Set(id, region.articulation[id] + step);
    } else if (TriggerParams::IsId(id) && region.trigger.IsSet(id)) {
        region.trigger.Set(id, region.trigger.Get(id) + step);
        region.RebuildName();
    }
}

void ShiftRegions(Layer& layer, ParamId id, float step)
{
    ForEachRegion(layer, [&](Region& region) { ShiftRegion(region, id, step); });
    if (id == kArtPan)
        layer.RebuildName();
}

} // namespace

LoopInfo GetEffectiveLoop(const Region& region) noexcept
{
    const Waveform* wave = region.Wave();
    return wave != nullptr ? LoopOn(region, *wave) : region.loop;
}

bool Region::DropEqualOverrides() noexcept
{
    const Waveform* wave = Wave();
    if (wave == nullptr)
        return false;
    const std::uint8_t before = overrideFlags;
    const auto dropIf = [this](bool equal, Override flag) {
        if (equal)
            overrideFlags &= static_cast<std::uint8_t>(~flag);
    };
    dropIf(rootKey == wave->rootKey, kRootKey);
    dropIf(loop.type == wave->loop.type && loop.oneShot == wave->loop.oneShot, kLoopType);
    dropIf(loop.breakOnRelease == wave->loop.breakOnRelease, kLoopRelease);
    dropIf(loop.start == wave->loop.start, kLoopStart);
    dropIf(loop.end == wave->loop.end, kLoopEnd);
    dropIf(loop.pitch == wave->loop.pitch, kLoopPitch);
    return overrideFlags != before;
}

WaveSettingsVote::Settings WaveSettingsVote::SettingsOf(const Region& region, const Waveform& below,
                                                        const Waveform& wave) noexcept
{
    Settings settings{region.RootKeyOn(below), LoopOn(region, below)};
    if (wave.frames != 0) // points behind the end are the end
        NormalizeLoop(settings.loop, wave.frames, region.Owner().features);
    return settings;
}

void WaveSettingsVote::Hear(const Region& region, const Waveform& below, const Waveform& wave)
{
    const Settings settings = SettingsOf(region, below, wave);
    Verdict& verdict = verdicts_.try_emplace(&wave, Verdict{settings}).first->second;
    verdict.agree = verdict.agree && verdict.settings == settings;
    verdict.overridden = verdict.overridden || region.overrideFlags != 0;
}

void WaveSettingsVote::Apply(Collection& collection) const
{
    for (Waveform& wave : collection.All<Waveform>())
        if (const auto found = verdicts_.find(&wave); found != verdicts_.end() && found->second.Counts()) {
            wave.rootKey = found->second.settings.rootKey;
            wave.loop = found->second.settings.loop;
        }
    for (Region& region : collection.All<Region>()) {
        const Waveform* wave = region.Wave();
        if (wave == nullptr)
            continue;
        if (!verdicts_.at(wave).Counts()) {
            region.DropEqualOverrides();
            continue;
        }
        region.rootKey = wave->rootKey;
        region.loop = wave->loop;
        region.overrideFlags = 0;
    }
}

void UnifyRegionWaveSettings(Collection& collection)
{
    WaveSettingsVote vote;
    for (const Region& region : collection.All<Region>())
        if (const Waveform* wave = region.Wave())
            vote.Hear(region, *wave, *wave);
    vote.Apply(collection);
}

void ClearRegionRanges(Item& item)
{
    switch (item.Kind()) {
    case ItemKind::Region:
        ClearRanges(static_cast<Region&>(item));
        break;
    case ItemKind::Layer:
        ClearRanges(static_cast<Layer&>(item));
        break;
    case ItemKind::Instrument:
        ForEachLayer(static_cast<Instrument&>(item), [](Layer& layer) { ClearRanges(layer); });
        break;
    case ItemKind::Collection: { // its list of children need not name everything it holds
        std::unordered_set<const Region*> listed;
        for (Layer& layer : item.Owner().All<Layer>()) {
            ClearRanges(layer);
            ForEachRegion(layer, [&](const Region& region) { listed.insert(&region); });
        }
        for (Region& region : item.Owner().All<Region>())
            if (!listed.contains(&region)) // nobody is beside it
                ClearRanges(region, nullptr, [](const Zone&) { return true; });
        break;
    }
    default:
        break;
    }
}

void SetParamPropagatingDelta(Item& item, ParamId id, float value)
{
    const float before = item.GetParam(id);
    item.SetParam(id, value);
    const float step = item.GetParam(id) - before;
    if (step == 0)
        return;
    if (item.Kind() == ItemKind::Layer)
        ShiftRegions(static_cast<Layer&>(item), id, step);
    if (item.Kind() != ItemKind::Instrument || id >= kArticulationParams)
        return;
    ForEachLayer(static_cast<Instrument&>(item), [&](Layer& layer) {
        if (layer.articulation.IsSet(id))
            layer.SetParam(id, layer.articulation[id] + step);
        ShiftRegions(layer, id, step);
    });
}

} // namespace vimbo
