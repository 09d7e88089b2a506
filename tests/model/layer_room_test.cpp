// First-fit searches against plain twins that try one layer after another.
#include "model/layer_room.h"

#include "level_builders.h"

#include <random>

namespace vimbo {
namespace {

class RandomZones {
public:
    explicit RandomZones(unsigned seed) : engine_(seed) {}

    unsigned Below(unsigned count) { return static_cast<unsigned>(engine_() % count); }
    /// Up to `widest` steps.
    MidiRange Range(unsigned widest)
    {
        const unsigned width = 1 + Below(widest);
        const unsigned low = Below(129 - width);
        return {static_cast<std::uint8_t>(low), static_cast<std::uint8_t>(low + width - 1)};
    }
    /// One of the shapes that stacks are made of: any size, thin crosses, one axis full, single places.
    Zone Shape(unsigned kind)
    {
        switch (kind % 4) {
        case 0:
            return {Range(128), Range(128)};
        case 1:
            return Below(2) == 0 ? Zone(Range(2), Range(128)) : Zone(Range(128), Range(2));
        case 2:
            return {Range(24), MidiRange{}};
        default:
            return {Range(1), Range(1 + Below(40))};
        }
    }

private:
    std::mt19937 engine_;
};

using PlainLayers = std::vector<std::vector<Zone>>;

bool HasRoom(const std::vector<Zone>& layer, std::span<const Zone> zones)
{
    return std::ranges::none_of(layer, [&](const Zone& other) {
        return std::ranges::any_of(zones, [&](const Zone& zone) { return zone.Overlaps(other); });
    });
}

std::size_t PlainFirstFree(const PlainLayers& layers, std::span<const Zone> zones)
{
    const auto found = std::ranges::find_if(layers, [&](const auto& layer) { return HasRoom(layer, zones); });
    return found != layers.end() ? static_cast<std::size_t>(found - layers.begin()) : LayerRoom::kNone;
}

TEST(LayerRoom, FindsWhatAPlainSearchFinds)
{
    for (unsigned seed = 0; seed < 24; ++seed) {
        RandomZones random(seed);
        PlainLayers plain;
        LayerRoom room;
        for (int i = 0; i < 800; ++i) {
            std::vector<Zone> zones;
            for (unsigned n = 1 + (seed / 8) * random.Below(3); n > 0; --n)
                zones.push_back(random.Shape(seed < 8 ? seed : random.Below(4)));
            const std::size_t expected = PlainFirstFree(plain, zones);
            std::size_t found = room.FirstFree(zones);
            ASSERT_EQ(found, expected) << "seed " << seed << ", step " << i;
            if (found == LayerRoom::kNone) {
                found = room.Size();
                room.AddLayer();
                plain.emplace_back();
            }
            for (const Zone& zone : zones) {
                room.Occupy(found, zone);
                plain[found].push_back(zone);
            }
        }
        EXPECT_EQ(room.Size(), plain.size());
    }
}

TEST(LayerRoom, CompactLayersFillsTheFirstLayerWithRoom)
{
    for (unsigned seed = 0; seed < 12; ++seed) {
        RandomZones random(seed);
        Collection items;
        auto& instrument = items.Create<Instrument>(u"i");
        PlainLayers plain;
        for (int i = 0; i < 250; ++i) {
            Layer& layer = instrument.AddLayer();
            std::vector<Zone> zones;
            for (unsigned n = 1 + random.Below(3); n > 0; --n)
                if (const Zone zone = random.Shape(seed); HasRoom(zones, {&zone, 1})) {
                    layer.AddRegion(NO_ITEM, zone.keys, zone.velocities);
                    zones.push_back(zone);
                }
            std::size_t place = PlainFirstFree(plain, zones);
            if (place == LayerRoom::kNone)
                place = (plain.emplace_back(), plain.size() - 1);
            plain[place].insert(plain[place].end(), zones.begin(), zones.end());
        }
        instrument.CompactLayers(MoveParamsUp::No, KeepArticulation::No);
        const auto word = [](const Zone& zone) { return zone.keys.Word() << 16 | zone.velocities.Word(); };
        const std::vector<Layer*> layers = instrument.Layers();
        ASSERT_EQ(layers.size(), plain.size());
        for (std::size_t i = 0; i < layers.size(); ++i) {
            std::vector<int> expected, found;
            for (const Zone& zone : plain[i])
                expected.push_back(word(zone));
            for (const Region* region : layers[i]->Regions())
                found.push_back(word(Zone(region->trigger)));
            std::ranges::sort(expected);
            std::ranges::sort(found);
            ASSERT_EQ(found, expected) << "seed " << seed << ", layer " << i;
        }
    }
}

/// Where a plain search puts a reader's region: behind the same velocities, else in the first layer with
/// room.
std::size_t PlainPlace(const PlainLayers& layers, const std::vector<int>& tags, const Zone& zone, int tag)
{
    std::size_t first = LayerRoom::kNone;
    for (std::size_t i = 0; i < layers.size(); ++i) {
        if ((tag >= 0 && tags[i] != tag) || !HasRoom(layers[i], {&zone, 1}))
            continue;
        if (tag >= 0 || (!layers[i].empty() && layers[i].back().velocities == zone.velocities))
            return i;
        first = std::min(first, i);
    }
    return first;
}

TEST(LayerRoom, RegionsOfReadersFindTheirLayer)
{
    for (unsigned seed = 0; seed < 24; ++seed) {
        RandomZones random(seed);
        Collection items;
        items.loading = true;
        auto& instrument = items.Create<Instrument>(u"i");
        PlainLayers plain;
        std::vector<int> tags;
        const auto numberOf = [&](const Layer* layer) {
            const std::vector<Layer*> layers = instrument.Layers();
            return static_cast<std::size_t>(std::ranges::find(layers, layer) - layers.begin());
        };
        for (int i = 0; i < 500; ++i) {
            Zone zone = random.Shape(seed < 12 ? seed : random.Below(4));
            if (random.Below(2) == 0)
                zone.velocities = {0, static_cast<std::uint8_t>(random.Below(3) * 60 + 7)};
            const int tag = seed % 3 == 0 ? static_cast<int>(random.Below(4)) - 1 : Instrument::kNoTag;
            if (random.Below(50) == 0) { // a layer that a reader makes itself
                instrument.AddLayer().AddRegion(NO_ITEM, zone.keys, zone.velocities);
                plain.push_back({zone});
                tags.push_back(Instrument::kNoTag);
            }
            const std::size_t expected = PlainPlace(plain, tags, zone, tag);
            const Region& region =
                instrument.FindOrAddRegion(NO_ITEM, zone.keys, zone.velocities, Layer::kNoRootKey, tag);
            const std::size_t place = numberOf(region.ParentLayer());
            if (expected == LayerRoom::kNone) {
                ASSERT_EQ(place, plain.size()) << "seed " << seed << ", step " << i;
                plain.emplace_back();
                tags.push_back(tag);
            } else {
                ASSERT_EQ(place, expected) << "seed " << seed << ", step " << i;
            }
            plain[place].push_back(zone);
        }
    }
}

} // namespace
} // namespace vimbo
