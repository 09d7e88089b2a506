// Layers as several zones of a preset, so that large banks need fewer records.
#include "formats/soundfont/soundfont_build.h"
#include "model/layer_room.h"

#include <algorithm>
#include <map>

namespace vimbo::sf2 {
namespace {

/// True if the layer has what all regions of the band agree on, and nothing else. The sides of a pair are
/// joined before that counts.
bool IsSourceOf(const OutLayer& band, const ArticulationBlock& layer, const ArticulationBlock& above) noexcept
{
    for (ParamId id = 0; id < kArticulationParams; ++id) {
        const float value = band.zones.front().region->articulation[id];
        const bool agree = std::ranges::all_of(
            band.zones, [=](const OutZone& zone) { return zone.region->articulation[id] == value; });
        if (id != kArtPan && layer[id] != (agree ? value : above[id]))
            return false;
    }
    return true;
}

MidiRange OutZone::*RangeOn(BandAxis axis) noexcept
{
    return axis == BandAxis::Keys ? &OutZone::keys : &OutZone::velocities;
}

/// True if each band meets each of the earlier layers.
bool AreBandsApart(const OutLayer& layer, BandAxis axis, const LayerRoom& earlier)
{
    MidiRange OutZone::*const own = RangeOn(axis);
    std::map<std::uint16_t, std::vector<vimbo::Zone>> bands;
    for (const OutZone& zone : layer.zones)
        bands[(zone.*own).Word()].push_back(vimbo::Zone(zone.keys, zone.velocities).Normalized());
    return std::ranges::all_of(
        bands, [&](const auto& band) { return earlier.FirstFree(band.second) == LayerRoom::kNone; });
}

} // namespace

std::vector<OutLayer> BandsOf(const OutLayer& layer, BandAxis axis)
{
    if (axis == BandAxis::None)
        return {layer};
    MidiRange OutZone::*const own = RangeOn(axis);
    MidiRange OutLayer::*const shared = axis == BandAxis::Keys ? &OutLayer::keys : &OutLayer::velocities;
    std::vector<OutLayer> bands;
    for (const OutZone& zone : layer.zones) {
        const MidiRange range = zone.*own;
        auto band = std::ranges::find(bands, range, shared);
        if (band == bands.end()) {
            OutLayer fresh;
            fresh.layer = layer.layer;
            fresh.name = layer.name;
            fresh.isNamed = layer.isNamed;
            fresh.*shared = range;
            band = bands.insert(bands.end(), std::move(fresh));
        }
        band->zones.push_back(zone);
        band->zones.back().*own = MidiRange();
    }
    const Instrument* instrument = layer.layer->ParentInstrument();
    const ArticulationBlock& above = instrument != nullptr ? instrument->articulation : DefaultArticulation();
    const auto source = std::ranges::find_if(
        bands, [&](const OutLayer& band) { return IsSourceOf(band, layer.layer->articulation, above); });
    if (source != bands.end())
        std::rotate(bands.begin(), source, source + 1);
    return bands;
}

std::vector<bool> FindDividable(std::span<const OutLayer> layers, BandAxis axis)
{
    std::vector<bool> dividable;
    LayerRoom earlier;
    for (const OutLayer& layer : layers) {
        // Right halves join the left ones before anything else. What has left the window is not known.
        const bool isApart =
            layer.isRight || (earlier.WindowStart() == 0 && AreBandsApart(layer, axis, earlier));
        dividable.push_back(layer.mayDivide && isApart);
        if (layer.isRight)
            continue;
        earlier.AddLayer();
        for (const OutZone& zone : layer.zones)
            earlier.Occupy(earlier.Size() - 1, vimbo::Zone(zone.keys, zone.velocities).Normalized());
    }
    return dividable;
}

} // namespace vimbo::sf2
