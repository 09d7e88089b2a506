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

std::size_t PlainFirstFree(const PlainLayers& layers, std::span<const Zone> zones, std::size_t from = 0)
{
    for (std::size_t i = from; i < layers.size(); ++i)
        if (HasRoom(layers[i], zones))
            return i;
    return LayerRoom::kNone;
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
            const std::size_t from = random.Below(static_cast<unsigned>(plain.size()) + 1);
            ASSERT_EQ(room.FirstFree(zones, from), PlainFirstFree(plain, zones, from)) << "from " << from;
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

/// Ranges around the middle, so that nearly every zone needs a layer of its own.
Zone CrowdedZone(RandomZones& random)
{
    const auto around = [&] {
        return MidiRange{static_cast<std::uint8_t>(random.Below(63)),
                         static_cast<std::uint8_t>(62 + random.Below(66))};
    };
    return {around(), around()};
}

TEST(LayerRoom, IsExactUpToItsWindowAndKeepsToItBeyond)
{
    RandomZones random(1);
    PlainLayers plain;
    LayerRoom room;
    LayerSet odd, all;
    for (int i = 0; i < 4000; ++i) {
        const Zone zone = random.Below(4) == 0 ? random.Shape(3) : CrowdedZone(random);
        const std::size_t start = room.WindowStart();
        const std::size_t from =
            std::max<std::size_t>(start, random.Below(1 + static_cast<unsigned>(plain.size())));
        ASSERT_EQ(room.FirstFree({&zone, 1}, from), PlainFirstFree(plain, {&zone, 1}, from));
        std::size_t found = room.FirstFree({&zone, 1});
        ASSERT_EQ(found, PlainFirstFree(plain, {&zone, 1}, start)) << "step " << i;
        ASSERT_EQ(room.FirstFreeAmong(all, {&zone, 1}, 0), found);
        const std::size_t inOdd = room.FirstFreeAmong(odd, {&zone, 1}, 0);
        for (std::size_t at = start; at < std::min(inOdd, plain.size()); ++at)
            ASSERT_FALSE(at % 2 == 1 && HasRoom(plain[at], {&zone, 1}));
        if (inOdd != LayerRoom::kNone) {
            ASSERT_TRUE(inOdd % 2 == 1 && inOdd >= start && HasRoom(plain[inOdd], {&zone, 1}));
        }
        if (found == LayerRoom::kNone) {
            found = room.Size();
            room.AddLayer();
            plain.emplace_back();
            all.Put(found);
            odd.Put(found);
            if (found % 2 == 0)
                odd.Take(found);
        }
        room.Occupy(found, zone);
        room.Occupy(0, {{0, 127}, {0, 127}}); // as good as gone once it is out of the window
        plain[0] = {{MidiRange{}, MidiRange{}}};
        plain[found].push_back(zone);
        ASSERT_EQ(room.WindowStart() == 0, room.Size() <= LayerRoom::kWindow);
        ASSERT_LE(room.Size() - room.WindowStart(), LayerRoom::kWindow);
        ASSERT_GE(room.Size() - room.WindowStart(), std::min(room.Size(), LayerRoom::kWindow - 63));
    }
    EXPECT_GT(room.WindowStart(), 1000u);
}

/// Where the regions lie: the number of each one's layer.
std::vector<std::size_t> PlacesOf(const Instrument& instrument, const std::vector<const Region*>& regions)
{
    std::vector<std::size_t> places;
    const std::vector<Layer*> layers = instrument.Layers();
    for (const Region* region : regions)
        places.push_back(
            static_cast<std::size_t>(std::ranges::find(layers, region->ParentLayer()) - layers.begin()));
    return places;
}

TEST(LayerRoom, ManyCopiesOfRegionsGoWhereOneByOneGoes)
{
    for (unsigned seed = 0; seed < 12; ++seed) {
        std::vector<std::size_t> places[2];
        for (const bool isAtOnce : {false, true}) {
            RandomZones random(seed);
            Collection items;
            auto& instrument = items.Create<Instrument>(u"i");
            auto& other = items.Create<Instrument>(u"other");
            std::vector<const Region*> sources, copies;
            for (int i = 0; i < 60; ++i) {
                const Zone zone = random.Shape(seed);
                sources.push_back(
                    &(i % 4 == 0 ? other : instrument)
                         .FindOrAddRegion(NO_ITEM, zone.keys, zone.velocities, Layer::kNoRootKey));
            }
            if (isAtOnce) {
                for (const Region* copy : instrument.AddRegionCopies(sources))
                    copies.push_back(copy);
            } else {
                for (const Region* source : sources)
                    copies.push_back(&instrument.AddRegionCopy(*source));
            }
            places[isAtOnce ? 1 : 0] = PlacesOf(instrument, copies);
            ExpectConsistent(items);
        }
        EXPECT_EQ(places[0], places[1]) << "seed " << seed;
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

TEST(LayerRoom, ReadersMayGiveBadRangesOpenEdgesAndLayersOfTheirOwn)
{
    for (unsigned seed = 0; seed < 24; ++seed) {
        std::vector<std::size_t> places[2];
        for (const bool isLoading :
             {false, true}) { // without the knowledge of a load, all is searched plainly
            RandomZones random(seed);
            Collection items;
            items.loading = isLoading;
            auto& instrument = items.Create<Instrument>(u"i");
            std::vector<const Region*> regions;
            const auto range = [&] {
                MidiRange any{static_cast<std::uint8_t>(random.Below(140)),
                              static_cast<std::uint8_t>(random.Below(140))};
                if (seed % 2 != 0 && random.Below(3) == 0)
                    any.low = MidiRange::kKeep;
                if (seed % 2 != 0 && random.Below(3) == 0)
                    any.high = MidiRange::kKeep;
                return any;
            };
            for (int i = 0; i < 400; ++i) {
                if (random.Below(30) == 0) {
                    Layer& layer = instrument.AddLayer();
                    layer.scratch[0] = random.Below(3);
                    if (random.Below(2) == 0)
                        layer.trigger.Set(kParamLowKey, static_cast<float>(random.Below(80)));
                    layer.AddRegion(NO_ITEM, range(), {});
                }
                if (random.Below(20) == 0 && !regions.empty()) // behind the back of the search
                    regions.back()->ParentLayer()->AddRegion(NO_ITEM, {5, 6}, {50, 51});
                const MidiRange keys = range(),
                                velocities = random.Below(2) == 0 ? MidiRange{3, 90} : range();
                regions.push_back(&instrument.FindOrAddRegion(NO_ITEM, keys, velocities, Layer::kNoRootKey,
                                                              static_cast<int>(random.Below(4)) - 2));
            }
            places[isLoading ? 1 : 0] = PlacesOf(instrument, regions);
        }
        EXPECT_EQ(places[0], places[1]) << "seed " << seed;
    }
}

} // namespace
} // namespace vimbo
