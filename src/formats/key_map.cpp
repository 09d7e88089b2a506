// Instruments as tables of keys, for formats that cannot store ranges of their own for every region.
#include "formats/export_set.h"

#include "model/waveform.h"

#include <algorithm>
#include <bitset>
#include <iterator>

namespace vimbo {
namespace {

constexpr unsigned kSteps = 128;      ///< keys, or velocities
constexpr unsigned kMergeAround = 64; ///< the velocity whose entry stays when entries merge
using Entries = std::vector<KeyMapEntry>;

/// False if nothing of the range lies inside the bounds.
bool Clip(MidiRange& range, MidiRange bounds) noexcept
{
    if (!range.Overlaps(bounds))
        return false;
    range = {std::max(range.low, bounds.low), std::min(range.high, bounds.high)};
    return true;
}

/// Splits a range wherever one of its parts begins or ends.
class Cuts {
public:
    void Add(MidiRange range) noexcept
    {
        starts_.set(range.low);
        starts_.set(range.high + 1u);
    }
    std::vector<MidiRange> Split(MidiRange bounds) const
    {
        std::vector<MidiRange> pieces;
        unsigned from = bounds.low;
        for (unsigned next = from + 1; next <= bounds.high + 1u; ++next)
            if (next > bounds.high || starts_[next]) {
                pieces.push_back({static_cast<std::uint8_t>(from), static_cast<std::uint8_t>(next - 1)});
                from = next;
            }
        return pieces;
    }

private:
    std::bitset<kSteps + 1> starts_;
};

/// A region with what the format can hold of its ranges.
struct Reach {
    const Region* region;
    MidiRange keys, velocities;
};

/// By low velocity.
std::vector<Reach> ReachesOf(const Layer& layer, const KeyMapLimits& limits)
{
    std::vector<Reach> reaches;
    for (const Region* region : layer.Regions()) {
        Reach reach{region, region->trigger.keys, region->trigger.velocities};
        if (Clip(reach.keys, limits.keys) && Clip(reach.velocities, limits.velocities))
            reaches.push_back(reach);
    }
    std::stable_sort(reaches.begin(), reaches.end(),
                     [](const Reach& a, const Reach& b) { return a.velocities.low < b.velocities.low; });
    return reaches;
}

std::size_t CostOf(const Entries& entries, bool countStereoTwice) noexcept
{
    if (!countStereoTwice)
        return entries.size();
    std::size_t cost = 0;
    for (const KeyMapEntry& entry : entries) {
        const Waveform* wave = entry.region != nullptr ? entry.region->Wave() : nullptr;
        cost += wave != nullptr && wave->channels > 1 ? 2 : 1;
    }
    return cost;
}

/// One entry gives way to the next one, the last one to that before it; the entry in the middle stays.
void MergeTwo(Entries& entries)
{
    auto leaves = std::find_if(entries.begin(), entries.end(), [](const KeyMapEntry& entry) {
        return !entry.velocities.Contains(kMergeAround);
    });
    if (leaves == entries.end() || std::next(leaves) == entries.end()) {
        const MidiRange gone = entries.back().velocities;
        entries.pop_back();
        MidiRange& taker = entries.back().velocities;
        taker.high = std::max(taker.high, gone.high);
        return;
    }
    MidiRange& taker = std::next(leaves)->velocities;
    taker.low = std::min(taker.low, leaves->velocities.low);
    entries.erase(leaves);
}

/// @return true if entries were merged
bool FitEntries(Entries& entries, std::size_t limit, bool countStereoTwice)
{
    bool merged = false;
    while (entries.size() > 1 && CostOf(entries, countStereoTwice) > limit) {
        MergeTwo(entries);
        merged = true;
    }
    return merged;
}

/// Drops layers from the last one on until the zone is within the limits. @return true if one went
bool FitLayers(KeyMapZone& zone, const KeyMapLimits& limits)
{
    const std::size_t before = zone.layers.size();
    if (zone.layers.size() > limits.maxLayers)
        zone.layers.erase(zone.layers.begin() + static_cast<std::ptrdiff_t>(limits.maxLayers),
                          zone.layers.end());
    std::size_t total = 0;
    for (const KeyMapLayer& layer : zone.layers)
        total += CostOf(layer.entries, limits.countStereoTwice);
    while (total > limits.maxTotal && zone.layers.size() > 1) {
        total -= CostOf(zone.layers.back().entries, limits.countStereoTwice);
        zone.layers.pop_back();
    }
    return zone.layers.size() != before;
}

bool HasSameContent(const KeyMapZone& a, const KeyMapZone& b)
{
    return std::equal(a.layers.begin(), a.layers.end(), b.layers.begin(), b.layers.end(),
                      [](const KeyMapLayer& x, const KeyMapLayer& y) {
                          return x.layer == y.layer && x.entries == y.entries;
                      });
}

void MergeEqualZones(std::vector<KeyMapZone>& zones)
{
    std::vector<KeyMapZone> merged;
    for (KeyMapZone& zone : zones) {
        if (!merged.empty() && HasSameContent(merged.back(), zone))
            merged.back().keys.high = zone.keys.high;
        else
            merged.push_back(std::move(zone));
    }
    zones = std::move(merged);
}

/// Articulation and trigger of the layer's part of a zone.
void FillValues(KeyMapLayer& layer)
{
    const Region& first = *layer.entries.front().region;
    layer.articulation = first.articulation;
    layer.trigger = first.trigger;
    if (layer.entries.size() < 2)
        return;
    std::vector<WeightedBlock> blocks;
    for (const KeyMapEntry& entry : layer.entries) {
        blocks.push_back({&entry.region->articulation, static_cast<double>(entry.velocities.Width())});
        layer.trigger.Unite(entry.region->trigger);
    }
    layer.articulation = Average(blocks);
}

Entries EntriesIn(MidiRange keys, const std::vector<Reach>& reaches)
{
    Entries entries;
    for (const Reach& reach : reaches)
        if (reach.keys.Contains(keys))
            entries.push_back({reach.region, reach.velocities});
    return entries;
}

} // namespace

KeyMap BuildKeyMap(const Instrument& instrument, const KeyMapLimits& limits)
{
    KeyMap map;
    if (limits.keys.Width() == 0 || limits.keys.high >= kSteps)
        return map;
    Cuts cuts;
    std::vector<std::vector<Reach>> layers;
    for (const Layer* layer : instrument.Layers()) {
        const bool isSelected =
            limits.layerSelect < 0 || layers.size() == static_cast<std::size_t>(limits.layerSelect);
        layers.push_back(isSelected ? ReachesOf(*layer, limits) : std::vector<Reach>());
        for (const Reach& reach : layers.back())
            cuts.Add(reach.keys);
    }

    bool reduced = false;
    for (const MidiRange keys : cuts.Split(limits.keys)) {
        KeyMapZone& zone = map.zones.emplace_back(KeyMapZone{keys, {}});
        for (std::size_t i = 0; i < layers.size(); ++i) {
            Entries entries = EntriesIn(keys, layers[i]);
            if (entries.empty())
                continue;
            if (limits.maxVelocityEntries < kSteps)
                reduced |= FitEntries(entries, limits.maxVelocityEntries, limits.countStereoTwice);
            zone.layers.push_back({i, std::move(entries), {}, {}});
        }
        reduced |= FitLayers(zone, limits);
    }
    if (reduced)
        MergeEqualZones(map.zones);
    for (KeyMapZone& zone : map.zones)
        for (KeyMapLayer& layer : zone.layers)
            FillValues(layer);
    return map;
}

std::vector<MidiRange> BuildVelocityZones(const Layer& layer, unsigned key, std::size_t maxZones)
{
    if (maxZones == 0)
        return {};
    Cuts cuts;
    std::vector<MidiRange> sounding;
    for (const Region* region : layer.Regions()) {
        MidiRange velocities = region->trigger.velocities;
        if ((key < kSteps && !region->trigger.keys.Contains(key)) || !Clip(velocities, {}))
            continue;
        cuts.Add(velocities);
        sounding.push_back(velocities);
    }
    Entries zones;
    for (const MidiRange piece : cuts.Split(MidiRange{}))
        if (std::any_of(sounding.begin(), sounding.end(),
                        [&](MidiRange range) { return range.Contains(piece); }))
            zones.push_back({nullptr, piece});
    FitEntries(zones, maxZones, false);
    std::vector<MidiRange> ranges;
    std::transform(zones.begin(), zones.end(), std::back_inserter(ranges),
                   [](const KeyMapEntry& zone) { return zone.velocities; });
    return ranges;
}

} // namespace vimbo
