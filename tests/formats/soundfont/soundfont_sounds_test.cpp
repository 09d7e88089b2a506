// What is worked out once and shared must come out as if it were worked out for each zone.
#include "formats/soundfont/soundfont_sounds.h"
#include "formats/soundfont/soundfont_zone_cache.h"
#include "model/articulation_rows.h"
#include "model/collection.h"

#include <gtest/gtest.h>

#include <random>

namespace vimbo::sf2 {
namespace {

class SharedSounds : public testing::Test {
protected:
    int Pick(int low, int high) { return std::uniform_int_distribution<int>(low, high)(random_); }

    /// Few different ones, so that many have a timbre in common.
    Zone RandomZone(const Zone& usual)
    {
        Zone zone = usual;
        if (Pick(0, 1) == 0)
            zone.generators[kGenVolEnvAttack] += Pick(0, 2) * 700;
        if (Pick(0, 3) == 0)
            zone.generators[kGenResonance] += Pick(0, 1) * 120;
        if (Pick(0, 3) == 0)
            zone.slots[kSlotUniKeyToVolume] += Pick(-1, 1) * 300;
        if (Pick(0, 3) == 0)
            zone.slots[kSlotCc91ToReverb] += Pick(0, 1) * 50;
        for (const std::size_t generator : kMixGenerators)
            if (Pick(0, 2) == 0)
                zone.generators[generator] += Pick(-3, 3) * 40;
        return zone;
    }

    static Zone Sum(Zone zone, const Zone& difference)
    {
        for (std::size_t i = 0; i < kGenerators; ++i)
            zone.generators[i] += difference.generators[i];
        for (std::size_t i = 0; i < kSlots; ++i)
            zone.slots[i] += difference.slots[i];
        return zone;
    }

    Collection items_;

private:
    std::mt19937 random_{5};
};

TEST_F(SharedSounds, SumsOfZonesReadAsEachForItself)
{
    Timbres timbres;
    std::vector<std::pair<SoundSum, Zone>> sums;
    for (int i = 0; i < 20 * 150; ++i) {
        const Zone zone = RandomZone(DefaultZone()), difference = RandomZone(Zone());
        sums.emplace_back(timbres.SumOf(timbres.SoundOf(zone), timbres.DifferenceOf(difference)),
                          Sum(zone, difference));
    }
    EXPECT_LT(timbres.PairCount(), sums.size() / 2) << "they are shared";
    TimbreBlocks blocks(timbres);
    for (std::size_t round = 0; round < 20; ++round) {
        Instrument &instrument = items_.Create<Instrument>(u"i"), &alone = items_.Create<Instrument>(u"j");
        Articulations articulations(instrument, timbres, blocks);
        for (std::size_t i = 0; i < 150; ++i) {
            const auto& [both, sum] = sums[round * 150 + i];
            ASSERT_EQ(timbres.ZoneOf(both), sum);
            BankSample sample;
            sample.isUnpitched = i % 7 == 0;
            sample.side = i % 5 == 0 ? BankSample::Side::Left : BankSample::Side::None;
            ArticulationBlock wanted;
            ZoneToArticulation(sum, wanted, &alone);
            if (sample.side == BankSample::Side::Left)
                wanted.Set(kArtPan, -1);
            if (sample.isUnpitched)
                wanted.Set(kArtKeyToPitch, 0);
            ASSERT_EQ(articulations.Of(both, sample), wanted) << round << " " << i;
        }
        EXPECT_EQ(instrument.channelFx, alone.channelFx);
    }
}

TEST_F(SharedSounds, ArticulationsAreWrittenAsEachForItself)
{
    Instrument& instrument = items_.Create<Instrument>(u"i");
    instrument.channelFx = {ChannelFx{}, kDefaultChorus, kDefaultReverb};
    std::vector<ArticulationBlock> blocks;
    for (int i = 0; i < 600; ++i) {
        ArticulationBlock& block = blocks.emplace_back();
        // Some have no exact place in a bank, or none at all.
        for (const ParamId id : {kArtVelToVolume, kArtCutoff, kArtFilterType, kArtKeyToVolume, kArtVolume,
                                 kArtTuning, kArtPan, static_cast<ParamId>(kArtSend + 2 * kSendParams)})
            if (Pick(0, 2) == 0) {
                const ParamRow& row = ArticulationParamRow(id);
                const float value =
                    row.minimum + (row.maximum - row.minimum) * 0.25f * static_cast<float>(Pick(0, 4));
                block.Set(id, id == kArtFilterType ? static_cast<float>(Pick(0, 12)) : value);
            }
    }
    // Each value counts, also by itself.
    for (ParamId id = 0; id < kArticulationParams; ++id) {
        const ParamRow& row = ArticulationParamRow(id);
        const bool isHighest = blocks[0][id] == row.maximum;
        ArticulationBlock other = blocks[0];
        other.Set(id, isHighest ? row.minimum : row.maximum);
        blocks.push_back(other);
    }
    ZoneCache cache;
    for (const ArticulationBlock& block : blocks)
        for (const float gainDb : {0.0f, -6.03f}) {
            Zone wanted = DefaultZone();
            ArticulationToZone(block, &instrument, gainDb, wanted);
            ArticulationBlock read;
            ZoneToArticulation(wanted, read, instrument);
            if (!read.SameValues(block))
                ArticulationToZone(read, &instrument, 0, wanted);
            ASSERT_EQ(ZoneOf(cache.TimbreOf(block), block, instrument, gainDb), wanted);
        }
}

} // namespace
} // namespace vimbo::sf2
