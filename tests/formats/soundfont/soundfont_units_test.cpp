#include "formats/soundfont/soundfont_units.h"

#include "model/articulation_rows.h"
#include "model/collection.h"
#include "model/envelope.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace vimbo::sf2 {
namespace {

using Amounts = std::vector<std::pair<std::size_t, int>>;
using Values = std::vector<std::pair<ParamId, float>>;

Zone MakeZone(const Amounts& generators, const Amounts& slots = {})
{
    Zone zone = DefaultZone();
    for (const auto& [generator, amount] : generators)
        zone.generators[generator] = amount;
    for (const auto& [slot, amount] : slots)
        zone.slots[slot] = amount;
    return zone;
}

ArticulationBlock Read(const Zone& zone, const Instrument* instrument = nullptr)
{
    ArticulationBlock block;
    if (instrument)
        ZoneToArticulation(zone, block, *instrument);
    else
        ZoneToArticulation(zone, block, nullptr);
    return block;
}

Zone Write(const ArticulationBlock& block, const Instrument* instrument = nullptr, float gainDb = 0)
{
    Zone zone = DefaultZone();
    ArticulationToZone(block, instrument, gainDb, zone);
    return zone;
}

ArticulationBlock MakeBlock(const Values& values)
{
    ArticulationBlock block;
    for (const auto& [id, value] : values)
        block.Set(id, value);
    return block;
}

Modulator MakeModulator(std::uint16_t source, std::uint16_t destination, std::int16_t amount)
{
    return {source, destination, amount, std::uint16_t{0}, std::uint16_t{0}};
}

TEST(SoundFontUnits, ModulatorsFindTheirSlotInEitherDirection)
{
    struct Case {
        std::uint16_t source, destination;
        int slot, amount; // for an amount of 100
    };
    for (const Case& c : {Case{0x0002, 33, 0, 100},   Case{0x0102, 38, 4, -100},  Case{0x0003, 34, 6, 100},
                          Case{0x0202, 35, 10, 100},  Case{0x0302, 35, 10, -100}, Case{0x0203, 38, 15, 100},
                          Case{0x0002, 25, 16, 100},  Case{0x0003, 30, 23, 100},  Case{0x0203, 26, 30, 100},
                          Case{0x0102, 48, 32, 100},  Case{0x0002, 48, 32, -100}, Case{0x0103, 48, 33, -100},
                          Case{0x0181, 48, 35, -100}, Case{0x000D, 13, 38, 100},  Case{0x020E, 52, 40, 100},
                          Case{0x0202, 5, 42, 100},   Case{0x000D, 5, 43, 100},   Case{0x0202, 6, 45, 100},
                          Case{0x000D, 6, 46, 100},   Case{0x0102, 8, 49, 100},   Case{0x0002, 8, 49, -100},
                          Case{0x0003, 8, 50, 100},   Case{0x0203, 8, 51, 100},   Case{0x000D, 10, 55, 100},
                          Case{0x0202, 10, 56, 100},  Case{0x0002, 11, 57, 100},  Case{0x028A, 17, 60, 100},
                          Case{0x00DB, 16, 61, 100},  Case{0x00DD, 15, 62, 100},  Case{0x008D, 9, -1, 0},
                          Case{0x0502, 48, -1, 0},    Case{0x0081, 17, -1, 0},    Case{0x000D, 9, 65, 100}}) {
        SCOPED_TRACE(testing::Message() << c.source << " to " << c.destination);
        const auto found = FindSlot(MakeModulator(c.source, c.destination, 100));
        EXPECT_EQ(found ? static_cast<int>(found->slot) : -1, c.slot);
        EXPECT_EQ(found ? found->amount : 0, c.amount);
    }
    Modulator modulator = MakeModulator(0x0302, 33, -32768);
    EXPECT_EQ(FindSlot(modulator)->amount, 32768);
    modulator.transform = std::uint16_t{2};
    EXPECT_FALSE(FindSlot(modulator));
    modulator.transform = std::uint16_t{0};
    modulator.amountSource = std::uint16_t{16}; // the standard's pitch bend: scaled by the bend range
    EXPECT_FALSE(FindSlot(modulator));
    for (std::size_t slot = 0; slot < kSlots; ++slot)
        EXPECT_EQ(FindSlot({kSlotTable[slot].source, kSlotTable[slot].destination, std::int16_t{1},
                            std::uint16_t{0}, std::uint16_t{0}})
                      ->slot,
                  slot);
}

TEST(SoundFontUnits, TimesAndFrequenciesAreRounded)
{
    for (const auto& [timecents, seconds] : std::initializer_list<std::pair<int, float>>{{-32768, 0},
                                                                                         {-12000, 0},
                                                                                         {-11999, 0.000977f},
                                                                                         {-1200, 0.5f},
                                                                                         {0, 1},
                                                                                         {1200, 2},
                                                                                         {1300, 2.12f},
                                                                                         {5502, 24.0f},
                                                                                         {5600, 25.4f},
                                                                                         {6000, 32}})
        EXPECT_NEAR(TimecentsToSeconds(timecents), seconds, 1e-6f) << timecents;
    for (const auto& [cents, hz] : std::initializer_list<std::pair<int, float>>{{0, 8.18f},
                                                                                {2400, 32.7f},
                                                                                {5000, 147},
                                                                                {6900, 440},
                                                                                {8400, 1050},
                                                                                {12000, 8370},
                                                                                {13499, 19900},
                                                                                {13500, 20000},
                                                                                {32767, 20000}})
        EXPECT_NEAR(CentsToHz(cents), hz, 1e-4f) << cents;
    EXPECT_EQ(SecondsToTimecents(0, -12000, 5000), -12000);
    EXPECT_EQ(SecondsToTimecents(3, -12000, 5000), 1902);
    EXPECT_EQ(SecondsToTimecents(100, -12000, 5000), 5000);
}

TEST(SoundFontUnits, ZonesWithKnownArticulations)
{
    struct Case {
        Amounts generators, slots;
        Values values;
    };
    constexpr ParamId kVol = kArtEnvelopes, kPitch = kVol + kEnvelopeParams,
                      kFilter = kPitch + kEnvelopeParams;
    const std::vector<Case> cases{
        {{{51, -3}, {52, 25}, {56, 50}, {17, -500}},
         {{40, 1000}, {59, 1600}, {60, -250}},
         {{0, -2.75f}, {1, 0.5f}, {2, 12}, {51, -1}, {52, -0.5f}, {53, 0.6f}}},
        {{{48, 100}}, {{32, 1200}, {35, 300}, {36, -25}}, {{14, -4}, {15, 48}, {17, 12}, {18, -1}}},
        {{{48, 0}}, {{34, 1000}}, {{16, 7.5f}, {14, -2.5f}}},
        {{{48, 0}}, {{33, 1600}}, {{16, 6}, {14, 30}}},
        // The cutoff at full velocity and the cutoff at middle C are the file's: 1050 Hz.
        {{{8, 8400}, {9, 60}},
         {{49, -2400}, {52, 300}, {53, -100}, {63, 10}, {64, 20}, {65, 30}},
         {{23, 2}, {24, 525}, {25, 12}, {27, 3}, {28, -1}, {35, 6}, {36, 1}, {37, 2}, {38, 3}, {14, -3}}},
        {{{8, 8400}}, {{51, 1600}}, {{23, 2}, {24, 991.1f}, {26, 3}}},
        {{{8, 8400 - 1600}}, {{50, 3200}}, {{23, 2}, {24, 991.1f}, {26, 3}}},
        {{{8, 13500}, {9, 10}}, {}, {{23, 2}, {24, 20000}, {35, 1}, {14, -0.5f}}},
        {{{8, 13499}, {9, 0}, {10, 100}, {11, 1200}}, {{49, -2400}, {51, 1600}, {63, 10}}, {}},
        {{{24, -1200}, {23, 1300}, {6, 50}},
         {{44, 20}, {46, 30}, {45, 40}},
         {{3, 0.5f}, {4, 0.2f}, {5, 0.3f}, {6, 0.4f}, {65, 1}, {66, 4.09f}, {67, 2.12f}}},
        // One LFO for three destinations, beside a vibrato of its own: pitch goes to the fourth.
        {{{6, 50}, {22, 0}, {21, 0}, {5, 100}, {13, -30}, {10, 1200}, {8, 8400}},
         {{41, 1}, {43, 2}, {42, 3}, {37, 10}, {38, 20}, {39, 30}, {54, 100}, {55, 200}, {56, 300}},
         {{3, 0.5f}, {65, 1},     {66, 8.18f}, {7, 1},   {8, 0.01f}, {9, 0.02f}, {10, 0.03f},
          {77, 1},   {78, 8.18f}, {79, 1},     {19, -3}, {20, 1},    {21, 2},    {22, 3},
          {69, 1},   {70, 8.18f}, {71, 1},     {29, 12}, {30, 1},    {31, 2},    {32, 3},
          {73, 1},   {74, 8.18f}, {75, 1},     {23, 2},  {24, 1050}}},
        {{{33, -1200}, {34, 1200}, {35, 0}, {36, 1200}, {37, 480}, {38, 5600}, {39, 100}, {40, -100}},
         {{9, 1200}, {12, -1200}, {13, 6400}, {15, -6400}},
         {{kVol + 1, 0.5f},
          {kVol + 5, 2},
          {kVol + 9, 1},
          {kVol + 13, 1},
          {kVol + 16, 0.5f},
          {kVol + 17, 25.4f},
          {kVol + 6, 4},
          {kVol + 23, 0.25f},
          {kVol + 3, 2},
          {kVol + 24, 0.5f},
          {kVol + 11, 0.5f},
          {kVol + 15, 2}}},
        // Unipolar sources: the time at middle C, 60/128 of the way, is the file's.
        {{{34, -6000}}, {{1, 800}, {6, 12800}}, {{kVol + 5, 1}, {kVol + 6, 2}, {kVol + 7, 2}}},
        {{{37, 960}, {36, 0}}, {}, {{kVol + 16, 0}, {kVol + 13, 1}}},
        {{{7, -1200}, {11, 2400}, {8, 8400}, {26, 0}, {29, 250}},
         {{48, 100}, {57, 400}},
         {{23, 2},
          {24, 1050},
          {11, -12},
          {12, 1},
          {33, 26},
          {34, 2},
          {kPitch + 5, 1},
          {kPitch + 16, 0.75f},
          {kFilter + 5, 1},
          {kFilter + 16, 0.75f}}}};
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "case " << &c - cases.data());
        const ArticulationBlock block = Read(MakeZone(c.generators, c.slots));
        ArticulationBlock expected = MakeBlock(c.values);
        for (ParamId id = 0; id < kArticulationParams; ++id)
            EXPECT_NEAR(block[id], expected[id], 1e-4f) << id;
        expected.MarkDifferences(DefaultArticulation());
        EXPECT_TRUE(std::ranges::equal(block.Marks(), expected.Marks()));
    }
    EXPECT_EQ(Read(DefaultZone()), DefaultArticulation());
    EXPECT_EQ(Write(DefaultArticulation()), DefaultZone());
}

TEST(SoundFontUnits, ArticulationsWithKnownZones)
{
    struct Case {
        Values values;
        Amounts generators, slots;
    };
    constexpr ParamId kVol = kArtEnvelopes, kPitch = kVol + kEnvelopeParams,
                      kFilter = kPitch + kEnvelopeParams;
    const std::vector<Case> cases{
        {{{15, 48}, {16, 3}, {14, -10}}, {{48, 225}}, {{32, 1200}, {34, 400}}},
        {{{15, -96}, {14, 96}, {0, -1.25f}}, {{48, -1440}, {51, -1}, {52, -25}}, {{32, 0}}},
        {{{23, 9}, {24, 1000}, {35, 6}}, {{8, 8321}, {9, 60}, {48, -75}}, {}},
        {{{23, 2}, {24, 1000}, {25, 12}, {26, 3}}, {{8, 8321 + 1200 + 100}}, {{49, -2400}, {51, 1600}}},
        {{{23, 5}, {24, 1000}, {25, 12}, {29, 5}, {33, 12}, {35, 6}}, {}, {}}, // high-pass
        {{{23, 4}, {24, 24000}}, {{8, 13500}}, {}},
        {{{23, 4}, {24, 24000}, {33, -24}}, {{8, 13498}, {11, -2400}}, {}}, // must not be read as none
        // Unipolar LFOs have half of the range, and a mean of their own.
        {{{65, 64}, {3, 1}, {4, 0.5f}, {69, 64}, {19, 6}, {70, 1}},
         {{6, 50}, {24, -851}, {13, 30}, {22, -3638}, {48, -75}},
         {{44, 25}}},
        {{{65, 128}, {3, 1}, {67, 1}, {68, 2}}, {{6, -50}, {24, -851}, {23, 1200}}, {}},
        // The stronger of two LFOs stays; those to the pan have no place.
        {{{19, 3}, {70, 2}, {23, 2}, {24, 1000}, {29, 12}, {74, 3}, {54, 1}},
         {{8, 8321}, {10, 1200}, {22, -1736}},
         {}},
        {{{kVol + 13, 0.5f}, {kVol + 16, 0.75f}, {kVol + 17, 3}, {kVol + 25, 1}},
         {{36, 1200}, {37, 240}, {38, 8000}},
         {}},
        {{{kVol + 16, 0}, {kVol + 6, 4}, {kVol + 24, 0.5f}, {kVol + 15, 2}},
         {{37, 1000}, {40, -100}},
         {{9, 1200}, {15, -6400}}},
        // Another form of envelope, weaker, is dropped; one that goes downward is turned.
        {{{11, 24},
          {kPitch + 5, 2},
          {kPitch + 8, -1},
          {kPitch + 12, -1},
          {kPitch + 16, -0.5f},
          {23, 2},
          {24, 1000},
          {33, 1},
          {kFilter + 5, 1}},
         {{7, -2400}, {26, 1200}, {29, 500}, {8, 8321}},
         {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "case " << &c - cases.data());
        const Zone zone = Write(MakeBlock(c.values)), expected = MakeZone(c.generators, c.slots);
        for (std::size_t i = 0; i < kGenerators; ++i)
            EXPECT_EQ(zone.generators[i], expected.generators[i]) << "generator " << i;
        for (std::size_t i = 0; i < kSlots; ++i)
            EXPECT_EQ(zone.slots[i], expected.slots[i]) << "slot " << i;
    }
    Zone kept = MakeZone({{kGenRootKey, 40}, {kGenSampleModes, 1}, {kGenPan, 77}});
    ArticulationToZone(DefaultArticulation(), nullptr, -3, kept);
    EXPECT_EQ(kept, MakeZone({{kGenRootKey, 40}, {kGenSampleModes, 1}, {kGenAttenuation, 75}}));
}

TEST(SoundFontUnits, SendsGoToTheInstrumentsEffects)
{
    Collection items;
    Instrument& instrument = items.Create<Instrument>(u"i");
    ArticulationBlock block;
    int lost = -1;
    ZoneToArticulation(DefaultZone(), block, &instrument, &lost);
    EXPECT_EQ(instrument.channelFx[0].type, ChannelFxType::None);
    EXPECT_EQ(lost, 0);

    instrument.channelFx[0].type = ChannelFxType::Delay;
    const Zone zone = MakeZone({{15, 250}, {16, 600}}, {{61, 200}});
    EXPECT_EQ(Read(zone, &instrument), DefaultArticulation()); // looking on adds no effects
    ZoneToArticulation(zone, block, &instrument, &lost);
    EXPECT_EQ(instrument.channelFx[1].type, ChannelFxType::Reverb);
    EXPECT_EQ(instrument.channelFx[2].type, ChannelFxType::Chorus);
    ArticulationBlock expected = MakeBlock({{59, 0.6f}, {60, 0.2f}, {61, 0.25f}});
    EXPECT_EQ(block, expected);
    EXPECT_EQ(Read(zone, &instrument), expected);
    EXPECT_EQ(Write(block, &instrument), zone);
    EXPECT_EQ(Write(block), DefaultZone());

    instrument.channelFx.fill({ChannelFxType::Phaser, {}, {}});
    instrument.channelFx[3] = {};
    ZoneToArticulation(zone, block, &instrument, &lost);
    EXPECT_EQ(lost, 1);
    EXPECT_EQ(instrument.channelFx[3].type, ChannelFxType::Reverb);
    EXPECT_EQ(block, MakeBlock({{63, 0.6f}, {64, 0.2f}}));
}

/// What may stand in a bank's generators and is part of an articulation: generator, lowest, highest.
constexpr std::array<std::array<int, 3>, 34> kLegal{
    {{5, -12000, 12000},  {6, -12000, 12000},  {7, -12000, 12000}, {8, 1500, 13500},   {9, 0, 960},
     {10, -12000, 12000}, {11, -12000, 12000}, {13, -960, 960},    {15, 0, 1000},      {16, 0, 1000},
     {17, -500, 500},     {21, -12000, 5000},  {22, -16000, 4500}, {23, -12000, 5000}, {24, -16000, 4500},
     {25, -12000, 5000},  {26, -12000, 8000},  {27, -12000, 5000}, {28, -12000, 8000}, {29, 0, 1000},
     {30, -12000, 8000},  {31, -1200, 1200},   {32, -1200, 1200},  {33, -12000, 5000}, {34, -12000, 8000},
     {35, -12000, 5000},  {36, -12000, 8000},  {37, 0, 1440},      {38, -12000, 8000}, {39, -1200, 1200},
     {40, -1200, 1200},   {48, 0, 1440},       {51, -120, 120},    {52, -99, 99}}};

class FixedPoint : public testing::Test {
protected:
    FixedPoint()
    {
        instrument.channelFx[1].type = ChannelFxType::Reverb;
        instrument.channelFx[2].type = ChannelFxType::Chorus;
    }
    int Pick(int low, int high) { return std::uniform_int_distribution<int>(low, high)(random); }
    /// Extremes and their neighbours often.
    int PickAny(int low, int high)
    {
        const int kind = Pick(0, 7);
        return kind == 0 ? low : kind == 1 ? high : kind == 2 ? low + Pick(0, 4) : Pick(low, high);
    }
    void ExpectInsideLimits(const ArticulationBlock& block)
    {
        for (const ParamRow& row : kArticulationRows)
            EXPECT_TRUE(block[row.id] >= row.minimum && block[row.id] <= row.maximum) << row.id;
    }
    /// What is written to a file: nothing outside 16 bits.
    void ExpectFitsFile(const Zone& zone)
    {
        const auto fits = [](int amount) { return amount >= -32768 && amount <= 32767; };
        EXPECT_TRUE(std::ranges::all_of(zone.generators, fits) && std::ranges::all_of(zone.slots, fits));
    }

    std::mt19937 random{11};
    Collection items;
    Instrument& instrument = items.Create<Instrument>(u"i");
};

TEST_F(FixedPoint, LegalZonesComeBackExactly)
{
    for (int round = 0; round < 6000; ++round) {
        Zone zone = DefaultZone();
        for (const auto& [generator, low, high] : kLegal)
            if (Pick(0, 3) <= round % 4)
                zone.generators[static_cast<std::size_t>(generator)] = PickAny(low, high);
        const int largest = std::array{100, 3000, 32767}[static_cast<std::size_t>(round) % 3];
        for (std::size_t slot = 0; slot < kSlots; ++slot)
            if (Pick(0, 4) < round % 5)
                zone.slots[slot] = PickAny(-largest, largest);
        // "Velocity to Volume" below 0 is read, but cannot be written.
        zone.slots[kSlotVelToVolume] = std::abs(zone.slots[kSlotVelToVolume]);

        const ArticulationBlock first = Read(zone, &instrument);
        const Zone written = Write(first, &instrument);
        EXPECT_EQ(Read(written, &instrument), first);
        if (HasFailure())
            FAIL() << "round " << round;
    }
}

TEST_F(FixedPoint, AnyZoneIsBoundedAndSettles)
{
    for (int round = 0; round < 4000; ++round) {
        Zone zone = DefaultZone();
        for (int& amount : zone.generators)
            if (Pick(0, 3) <= round % 4)
                amount = PickAny(-32768, 32767);
        for (int& amount : zone.slots)
            if (Pick(0, 3) <= round % 4)
                amount = PickAny(-65536, 65534);
        const ArticulationBlock first = Read(zone, &instrument);
        ExpectInsideLimits(first);
        const Zone written = Write(first, &instrument);
        ExpectFitsFile(written);
        const Zone again = Write(Read(written, &instrument), &instrument);
        EXPECT_EQ(Write(Read(again, &instrument), &instrument), again);
        if (HasFailure())
            FAIL() << "round " << round;
    }
}

TEST_F(FixedPoint, AnyArticulationSettlesWithTheSecondWriting)
{
    for (int round = 0; round < 4000; ++round) {
        ArticulationBlock block;
        for (const ParamRow& row : kArticulationRows) {
            const float part = static_cast<float>(PickAny(0, 1000)) / 1000;
            const float value = row.minimum + (row.maximum - row.minimum) * part * part;
            const bool isList = row.editClass >= EditClass::Key;
            if (Pick(0, 3) <= round % 4)
                block.Set(row.id, isList ? std::floor(value) : value);
        }
        const Zone first = Write(block, &instrument);
        ExpectFitsFile(first);
        const ArticulationBlock read = Read(first, &instrument);
        const Zone second = Write(read, &instrument);
        EXPECT_EQ(Read(second, &instrument), read);
        if (HasFailure())
            FAIL() << "round " << round;
    }
}

} // namespace
} // namespace vimbo::sf2
