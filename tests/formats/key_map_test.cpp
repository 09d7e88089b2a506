#include "bank_builder.h"
#include "formats/export_set.h"

#include <random>

namespace vimbo {
namespace {

using testing::Bank;

std::string RangeText(MidiRange range)
{
    return std::to_string(range.low) + '-' + std::to_string(range.high);
}

/// "0-59[0:0-127] 60-127[0:0-63,64-127;1:0-127]": zones, layers, velocities.
std::string Text(const KeyMap& map)
{
    std::string text;
    for (const KeyMapZone& zone : map.zones) {
        text += (text.empty() ? "" : " ") + RangeText(zone.keys) + '[';
        for (std::size_t l = 0; l < zone.layers.size(); ++l) {
            text += (l > 0 ? ";" : "") + std::to_string(zone.layers[l].layer) + ':';
            for (std::size_t e = 0; e < zone.layers[l].entries.size(); ++e)
                text += (e > 0 ? "," : "") + RangeText(zone.layers[l].entries[e].velocities);
        }
        text += ']';
    }
    return text;
}

KeyMapLimits Limits(std::size_t velocities, std::size_t total = 1000, std::size_t layers = 1000)
{
    KeyMapLimits limits;
    limits.maxVelocityEntries = velocities;
    limits.maxTotal = total;
    limits.maxLayers = layers;
    return limits;
}

TEST(KeyMap, CutsTheKeyboardAtEveryEdge)
{
    Bank bank;
    const Instrument& split = bank.Add(u"i", 0, {{{20, 60, 64, 127}, {20, 70, 0, 63}}, {{50, 100, 10, 90}}});
    KeyMapLimits limits;
    EXPECT_EQ(Text(BuildKeyMap(split, limits)),
              "0-19[] 20-49[0:0-63,64-127] 50-60[0:0-63,64-127;1:10-90] 61-70[0:0-63;1:10-90] "
              "71-100[1:10-90] 101-127[]");
    limits.layerSelect = 1;
    EXPECT_EQ(Text(BuildKeyMap(split, limits)), "0-49[] 50-100[1:10-90] 101-127[]");
    limits.layerSelect = -1;
    limits.keys = {55, 80};
    limits.velocities = {1, 64};
    EXPECT_EQ(Text(BuildKeyMap(split, limits)),
              "55-60[0:1-63,64-64;1:10-64] 61-70[0:1-63;1:10-64] 71-80[1:10-64]");
    limits.velocities = {100, 127};
    EXPECT_EQ(Text(BuildKeyMap(split, limits)), "55-60[0:100-127] 61-80[]") << "no cut where nothing sounds";
    EXPECT_EQ(Text(BuildKeyMap(bank.Add(u"empty", 1, {}), {})), "0-127[]");
}

TEST(KeyMap, MergesWhatTheFormatCannotHold)
{
    Bank bank;
    Instrument& stack = bank.Add(
        u"i", 0,
        {{{0, 127, 1, 20}, {0, 127, 21, 40}, {0, 127, 41, 80}, {0, 127, 81, 100}, {0, 127, 101, 127}},
         {{0, 60, 0, 127}},
         {{61, 127, 0, 127}}});
    struct Case {
        KeyMapLimits limits;
        std::string expected;
    };
    const Case cases[] = {
        {Limits(5), "0-60[0:1-20,21-40,41-80,81-100,101-127;1:0-127] "
                    "61-127[0:1-20,21-40,41-80,81-100,101-127;2:0-127]"},
        {Limits(4), "0-60[0:1-40,41-80,81-100,101-127;1:0-127] 61-127[0:1-40,41-80,81-100,101-127;2:0-127]"},
        {Limits(3), "0-60[0:1-80,81-100,101-127;1:0-127] 61-127[0:1-80,81-100,101-127;2:0-127]"},
        {Limits(2), "0-60[0:1-80,81-127;1:0-127] 61-127[0:1-80,81-127;2:0-127]"},
        {Limits(1), "0-60[0:1-127;1:0-127] 61-127[0:1-127;2:0-127]"},
        {Limits(0), "0-60[0:1-127;1:0-127] 61-127[0:1-127;2:0-127]"},
        {Limits(2, 2), "0-127[0:1-80,81-127]"},
        {Limits(1, 0), "0-127[0:1-127]"},
        {Limits(1, 9, 1), "0-127[0:1-127]"},
    };
    for (const Case& test : cases)
        EXPECT_EQ(Text(BuildKeyMap(stack, test.limits)), test.expected) << test.limits.maxVelocityEntries;
    const KeyMap one = BuildKeyMap(stack, Limits(1));
    EXPECT_EQ(one.zones[0].layers[0].entries[0].region, stack.Layers()[0]->Regions()[2])
        << "the region at velocity 64 stays";

    Waveform& stereo = bank.AddWave(u"stereo");
    stereo.channels = 2;
    stack.Layers()[0]->Regions()[4]->SetSound(stereo.Handle());
    KeyMapLimits twice = Limits(4, 1000, 1);
    twice.countStereoTwice = true;
    EXPECT_EQ(Text(BuildKeyMap(stack, twice)), "0-127[0:1-80,81-100,101-127]");
}

TEST(KeyMap, ValuesOfSeveralRegionsAreAveraged)
{
    Bank bank;
    Instrument& instrument = bank.Add(u"i", 0, {{{0, 60, 0, 31}, {0, 127, 32, 127}}});
    const std::vector<Region*> regions = instrument.Layers()[0]->Regions();
    regions[0]->SetParam(kArtVolume, -8);
    regions[0]->SetParam(kParamExclusionGroup, 3);
    regions[0]->SetParam(kParamDelay, 1);
    regions[1]->SetParam(kParamDelay, 1);
    const KeyMap map = BuildKeyMap(instrument, {});
    ASSERT_EQ(map.zones.size(), 2u);
    const KeyMapLayer& both = map.zones[0].layers[0];
    EXPECT_FLOAT_EQ(both.articulation[kArtVolume], -2) << "a quarter of the velocities";
    EXPECT_EQ(both.trigger.velocities, MidiRange{});
    EXPECT_EQ(both.trigger.exclusionGroup, 0) << "no group holds for both";
    EXPECT_EQ(both.trigger.delaySeconds, 1);
    EXPECT_EQ(map.zones[1].layers[0].articulation, regions[1]->articulation);
    EXPECT_EQ(map.zones[1].layers[0].trigger, regions[1]->trigger);
}

TEST(KeyMap, AnyInstrumentIsCoveredOnce)
{
    std::mt19937 random(3);
    const auto below = [&](unsigned limit) { return static_cast<std::uint8_t>(random() % limit); };
    for (int round = 0; round < 30; ++round) {
        Bank bank;
        Instrument& instrument = bank.Add(u"i", 0, {});
        for (unsigned r = below(80); r > 0; --r) {
            const std::uint8_t key = below(100), velocity = below(100);
            instrument.FindOrAddRegion(bank.wave.Handle(), {key, static_cast<std::uint8_t>(key + below(28))},
                                       {velocity, static_cast<std::uint8_t>(velocity + below(28))},
                                       Layer::kNoRootKey);
        }
        KeyMapLimits limits;
        limits.keys = {10, 110};
        const KeyMap map = BuildKeyMap(instrument, limits);
        unsigned next = 10;
        for (const KeyMapZone& zone : map.zones) {
            ASSERT_EQ(zone.keys.low, next);
            next = zone.keys.high + 1u;
            for (unsigned key = zone.keys.low; key <= zone.keys.high; ++key)
                for (unsigned velocity = 0; velocity < 128; ++velocity) {
                    std::vector<const Region*> expected, found;
                    for (const Layer* layer : instrument.Layers())
                        if (const Region* region = layer->FindRegion(key, velocity))
                            expected.push_back(region);
                    for (const KeyMapLayer& layer : zone.layers)
                        for (const KeyMapEntry& entry : layer.entries)
                            if (entry.velocities.Contains(velocity))
                                found.push_back(entry.region);
                    ASSERT_EQ(found, expected) << key << ' ' << velocity;
                }
        }
        ASSERT_EQ(next, 111u);
        const KeyMap reduced = BuildKeyMap(instrument, Limits(2, 3, 2));
        for (const KeyMapZone& zone : reduced.zones) {
            std::size_t total = 0;
            ASSERT_LE(zone.layers.size(), 2u);
            for (const KeyMapLayer& layer : zone.layers) {
                ASSERT_LE(layer.entries.size(), 2u);
                total += layer.entries.size();
            }
            ASSERT_LE(total, 3u);
        }
    }
}

TEST(KeyMap, VelocityZonesOfALayer)
{
    Bank bank;
    const Instrument& instrument =
        bank.Add(u"i", 0, {{{0, 60, 0, 30}, {0, 60, 40, 127}, {61, 127, 0, 80}, {61, 127, 81, 127}}});
    const Layer& layer = *instrument.Layers()[0];
    const auto text = [&](unsigned key, std::size_t maxZones) {
        std::string joined;
        for (const MidiRange range : BuildVelocityZones(layer, key, maxZones))
            joined += RangeText(range) + ' ';
        return joined;
    };
    EXPECT_EQ(text(60, 9), "0-30 40-127 ");
    EXPECT_EQ(text(61, 9), "0-80 81-127 ");
    EXPECT_EQ(text(128, 9), "0-30 31-39 40-80 81-127 ");
    EXPECT_EQ(text(128, 2), "0-80 81-127 ");
    EXPECT_EQ(text(60, 1), "0-127 ");
    EXPECT_EQ(text(60, 0), "");
}

} // namespace
} // namespace vimbo
