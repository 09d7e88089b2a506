// Layers as several zones of a preset, so that large banks need fewer records.
#include "formats/soundfont/soundfont_build.h"
#include "model/key_velocity_grid.h"

#include <algorithm>

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
bool AreBandsApart(const OutLayer& layer, BandAxis axis, const std::vector<KeyVelocityGrid>& earlier)
{
    MidiRange OutZone::*const own = RangeOn(axis);
    std::vector<MidiRange> bands;
    std::vector<std::size_t> bandOf;
    for (const OutZone& zone : layer.zones) {
        const auto band = std::ranges::find(bands, zone.*own);
        bandOf.push_back(static_cast<std::size_t>(band - bands.begin()));
        if (band == bands.end())
            bands.push_back(zone.*own);
    }
    return std::ranges::all_of(earlier, [&](const KeyVelocityGrid& grid) {
        std::vector<bool> meets(bands.size(), false);
        for (std::size_t i = 0; i < layer.zones.size(); ++i) {
            const OutZone& zone = layer.zones[i];
            if (!meets[bandOf[i]] && !grid.IsFree(vimbo::Zone(zone.keys, zone.velocities)))
                meets[bandOf[i]] = true;
        }
        return std::ranges::find(meets, false) == meets.end();
    });
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
    std::vector<KeyVelocityGrid> earlier;
    for (const OutLayer& layer : layers) {
        // Right halves join the left ones before anything else.
        dividable.push_back(layer.mayDivide && (layer.isRight || AreBandsApart(layer, axis, earlier)));
        if (layer.isRight)
            continue;
        KeyVelocityGrid& grid = earlier.emplace_back();
        for (const OutZone& zone : layer.zones)
            grid.Add(vimbo::Zone(zone.keys, zone.velocities));
    }
    return dividable;
}

} // namespace vimbo::sf2
