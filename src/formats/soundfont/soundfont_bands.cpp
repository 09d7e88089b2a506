// Layers as several zones of a preset, so that large banks need fewer records.
#include "formats/soundfont/soundfont_build.h"
#include "model/layer_room.h"

#include <algorithm>
#include <bit>
#include <map>

namespace vimbo::sf2 {
namespace {

/// The layer's values, beside the level above and beside one region of the layer.
using Differences = ArticulationBlock::MarkWords;

/// Calls test(id) for marked ids until it is false. @return true if it never was
template <class Test>
bool AllMarked(const Differences& marks, Test test)
{
    for (std::size_t word = 0; word < marks.size(); ++word)
        for (std::uint64_t bits = marks[word]; bits != 0; bits &= bits - 1)
            if (!test(static_cast<ParamId>(word * 64 + static_cast<std::size_t>(std::countr_zero(bits)))))
                return false;
    return true;
}

/// True if the layer has what all regions of the band agree on, and what is above it for the rest. The sides
/// of a pair are joined before that counts.
/// @param fromAbove  where the layer differs from what is above it
bool IsSourceOf(const OutLayer& band, const ArticulationBlock& layer, const Differences& fromAbove) noexcept
{
    const ArticulationBlock& first = band.zones.front().region->articulation;
    const Differences fromFirst = layer.DifferenceTo(first);
    const auto agree = [&](ParamId id) {
        return std::ranges::all_of(
            band.zones, [&](const OutZone& zone) { return zone.region->articulation[id] == first[id]; });
    };
    const auto isMarked = [](const Differences& marks, ParamId id) {
        return (marks[id / 64] >> id % 64 & 1) != 0;
    };
    return AllMarked(fromAbove,
                     [&](ParamId id) { return id == kArtPan || (!isMarked(fromFirst, id) && agree(id)); }) &&
           AllMarked(fromFirst, [&](ParamId id) { return id == kArtPan || !agree(id); });
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
    MidiRange OutZone::*const range = RangeOn(axis);
    MidiRange OutLayer::*const shared = axis == BandAxis::Keys ? &OutLayer::keys : &OutLayer::velocities;
    std::vector<OutLayer> bands;
    for (const OutZone& zone : layer.zones) {
        auto band = std::ranges::find(bands, zone.*range, shared);
        if (band == bands.end()) {
            OutLayer fresh;
            fresh.layer = layer.layer;
            fresh.name = layer.name;
            fresh.isNamed = layer.isNamed;
            fresh.*shared = zone.*range;
            band = bands.insert(bands.end(), std::move(fresh));
        }
        band->zones.push_back(zone);
        band->zones.back().*range = MidiRange();
    }
    for (OutLayer& band : bands)
        band.shape = ShapeOf(band);
    const Instrument* instrument = layer.layer->ParentInstrument();
    const ArticulationBlock& above = instrument != nullptr ? instrument->articulation : DefaultArticulation();
    const ArticulationBlock& own = layer.layer->articulation;
    const Differences fromAbove = own.DifferenceTo(above);
    const auto source =
        std::ranges::find_if(bands, [&](const OutLayer& band) { return IsSourceOf(band, own, fromAbove); });
    if (source != bands.end())
        std::rotate(bands.begin(), source, source + 1);
    return bands;
}

std::vector<Dividable> FindDividable(std::span<const OutLayer> layers)
{
    std::vector<Dividable> dividable;
    LayerRoom earlier;
    for (const OutLayer& layer : layers) {
        // Right halves join the left ones before anything else. What has left the window is not known.
        const auto isApart = [&](BandAxis axis) {
            return layer.isRight || (earlier.WindowStart() == 0 && AreBandsApart(layer, axis, earlier));
        };
        dividable.push_back(
            {layer.mayDivide && isApart(BandAxis::Velocities), layer.mayDivide && isApart(BandAxis::Keys)});
        if (layer.isRight)
            continue;
        earlier.AddLayer();
        for (const OutZone& zone : layer.zones)
            earlier.Occupy(earlier.Size() - 1, vimbo::Zone(zone.keys, zone.velocities).Normalized());
    }
    return dividable;
}

} // namespace vimbo::sf2
