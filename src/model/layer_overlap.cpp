// Regions of one layer never overlap: tests for free room, and the ways of making it.
#include "model/layer_room.h"
#include "model/levels.h"

#include <algorithm>
#include <unordered_map>

namespace vimbo {
namespace {

unsigned CommonWidth(MidiRange a, MidiRange b) noexcept
{
    return MidiRange{std::max(a.low, b.low), std::min(a.high, b.high)}.Width();
}

/// Keeps the larger side of `range` beside the blocker, the upper one of two equal sides. False if there is
/// none.
bool CutRange(MidiRange& range, MidiRange blocker) noexcept
{
    const int below = blocker.low - range.low;
    const int above = range.high - blocker.high;
    if (below <= 0 && above <= 0)
        return false;
    if (above >= below)
        range.low = static_cast<std::uint8_t>(blocker.high + 1);
    else
        range.high = static_cast<std::uint8_t>(blocker.low - 1);
    return true;
}

/// What changes is marked: else the region would inherit it again.
void SetZone(Region& region, const Zone& zone, const Layer& layer)
{
    region.trigger.keys = zone.keys;
    region.trigger.velocities = zone.velocities;
    region.trigger.Normalize(region.Owner().features); // fades fit what is left
    region.trigger.MarkDifferences(layer.trigger);
    region.RebuildName();
}

bool AnyOverlap(const std::vector<Region*>& regions) noexcept
{
    KeyVelocityGrid grid;
    for (const Region* region : regions) {
        const Zone zone(region->trigger);
        if (!grid.IsFree(zone))
            return true;
        grid.Add(zone);
    }
    return false;
}

/// The zones that were kept, with the owner of every place. They do not overlap, so that all marking together
/// touches each place once.
class OwnedGrid {
public:
    void Add(const Zone& zone)
    {
        const auto owner = static_cast<std::uint16_t>(zones_.size());
        zones_.push_back(zone);
        grid_.Add(zone);
        for (unsigned key = zone.keys.low; key <= zone.keys.high; ++key)
            for (unsigned velocity = zone.velocities.low; velocity <= zone.velocities.high; ++velocity)
                owners_[key * KeyVelocityGrid::kSteps + velocity] = owner;
    }

    /// Cuts `zone` until it is free of all kept zones. False if nothing remains.
    bool Fit(Zone& zone) const noexcept
    {
        // Keys below the first conflict stay free whatever edge moves, so one walk upwards sees them all.
        unsigned key = zone.keys.low;
        for (;;) {
            const auto hit = grid_.FirstOccupied(zone, key);
            if (hit.key == KeyVelocityGrid::kSteps)
                return true;
            if (!CutZone(zone, zones_[owners_[hit.key * KeyVelocityGrid::kSteps + hit.velocity]]))
                return false;
            key = std::max<unsigned>(hit.key, zone.keys.low);
        }
    }

private:
    KeyVelocityGrid grid_;
    std::vector<Zone> zones_;
    std::vector<std::uint16_t> owners_ =
        std::vector<std::uint16_t>(std::size_t{KeyVelocityGrid::kSteps} * KeyVelocityGrid::kSteps);
};

} // namespace

bool CutZone(Zone& zone, const Zone& blocker) noexcept
{
    const unsigned lostToKeys = CommonWidth(zone.keys, blocker.keys) * zone.velocities.Width();
    const unsigned lostToVelocities = CommonWidth(zone.velocities, blocker.velocities) * zone.keys.Width();
    if (lostToKeys <= lostToVelocities)
        return CutRange(zone.keys, blocker.keys) || CutRange(zone.velocities, blocker.velocities);
    return CutRange(zone.velocities, blocker.velocities) || CutRange(zone.keys, blocker.keys);
}

void Layer::CutOverlaps(std::vector<Region*>& regions)
{
    if (regions.size() < 2 || !AnyOverlap(regions))
        return;
    OwnedGrid grid;
    std::vector<Item*> covered;
    std::erase_if(regions, [&](Region* region) {
        Zone zone(region->trigger);
        if (!grid.Fit(zone)) {
            covered.push_back(region);
            return true;
        }
        grid.Add(zone);
        if (zone.keys != region->trigger.keys || zone.velocities != region->trigger.velocities)
            SetZone(*region, zone, *this);
        return false;
    });
    DestroyChildren(*this, covered);
}

bool Layer::HasNoOverlap(MidiRange keys, MidiRange velocities, const Region* except) const noexcept
{
    const Zone zone = Zone(keys, velocities).Normalized();
    for (std::size_t i = Children().size(); i-- > 0;) { // neighbours in a file are neighbours here
        const auto* region = static_cast<const Region*>(Child(i));
        if (region != nullptr && region != except && zone.Overlaps(Zone(region->trigger).Normalized()))
            return false;
    }
    return true;
}

Region* Layer::FindRegion(unsigned key, unsigned velocity) const noexcept
{
    const auto matches = [](MidiRange range, unsigned value) {
        return value == kAny || range.Contains(value);
    };
    for (std::size_t i = 0; i < Children().size(); ++i) {
        auto* region = static_cast<Region*>(Child(i));
        if (region != nullptr && matches(region->trigger.keys, key) &&
            matches(region->trigger.velocities, velocity))
            return region;
    }
    return nullptr;
}

void Layer::ResolveOverlap(MidiRange keys, MidiRange velocities, const Region* except)
{
    const Zone wanted(keys, velocities);
    std::vector<Item*> covered;
    ForEachRegion(*this, [&](Region& region) {
        Zone zone(region.trigger);
        if (&region == except || !zone.Overlaps(wanted))
            return;
        if (CutZone(zone, wanted))
            SetZone(region, zone, *this);
        else
            covered.push_back(&region);
    });
    DestroyChildren(*this, covered);
}

namespace {

Region& AddCopy(Layer& target, const Region& region)
{
    Region& copy = target.Owner().Clone(region);
    copy.SetParent(target.Handle());
    target.AddChild(copy.Handle());
    copy.trigger.MarkDifferences(target.trigger);
    MarkArticulation(copy, target);
    copy.RebuildName();
    return copy;
}

} // namespace

Region& Instrument::AddRegionCopy(const Region& region)
{
    const Layer* source = region.ParentLayer();
    const std::vector<Layer*> layers = Layers();
    auto from = std::find(layers.begin(), layers.end(), source);
    if (from == layers.end())
        from = layers.begin();
    const auto free = std::find_if(from, layers.end(), [&](const Layer* layer) {
        return layer->HasNoOverlap(region.trigger.keys, region.trigger.velocities);
    });
    return AddCopy(free != layers.end() ? **free : AddLayer(), region);
}

std::vector<Region*> Instrument::AddRegionCopies(std::span<const Region* const> regions)
{
    /// So many have to be copied that grids of all layers pay.
    constexpr std::size_t kMany = 16;
    std::vector<Region*> copies;
    copies.reserve(regions.size());
    if (regions.size() < kMany) {
        for (const Region* region : regions)
            copies.push_back(&AddRegionCopy(*region));
        return copies;
    }
    std::vector<Layer*> layers = Layers();
    std::unordered_map<const Layer*, std::size_t> numbers;
    LayerRoom room;
    for (const Layer* layer : layers) {
        const std::size_t number = room.Size();
        numbers.emplace(layer, number);
        room.AddLayer();
        ForEachRegion(*layer,
                      [&](const Region& held) { room.Occupy(number, Zone(held.trigger).Normalized()); });
    }
    for (const Region* region : regions) {
        const Zone zone = Zone(region->trigger).Normalized();
        const auto source = numbers.find(region->ParentLayer());
        std::size_t target = room.FirstFree({&zone, 1}, source != numbers.end() ? source->second : 0);
        if (target == LayerRoom::kNone) {
            target = room.Size();
            layers.push_back(&AddLayer());
            room.AddLayer();
        }
        copies.push_back(&AddCopy(*layers[target], *region));
        room.Occupy(target, zone);
    }
    return copies;
}

} // namespace vimbo
