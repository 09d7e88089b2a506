// Connections as values, and back.
#include "dls_bank.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace vimbo::dls {
namespace {

TEST(DlsUnits, ConnectionsGiveValues)
{
    struct Row {
        std::vector<Connection> connections;
        ParamId id;
        double value;
    };
    constexpr std::int32_t kOctave = 78643200, kTwoOctaves = 157286400; // 1200 and 2400 cents, timecents
    constexpr Connection kFilter = Fixed(1280, 6900 * 65536);           // 440 Hz
    constexpr EnvelopeIndex kV = EnvelopeIndex::Volume, kP = EnvelopeIndex::Pitch, kF = EnvelopeIndex::Filter;
    const Row rows[] = {
        {{Fixed(4, -32768000)}, kArtPan, -1},
        {{Fixed(2, 0x12340000 | 250)}, kArtPan, 0.5},
        {{Fixed(3, 3276800)}, kArtTuning, 0.5},
        {{By(3, 3, 0)}, kArtKeyToPitch, 0},
        {{By(3, 3, 419430400)}, kArtKeyToPitch, 0.5},
        {{By(2, 1, -31457280)}, kArtVelToVolume, 48},
        {{By(129, 1, 1966080)}, kArtWheelToVolume, 3},
        {{By(138, 4, 16646144)}, kArtCc10ToPan, 0.5},
        {{By(3, 4, 34952531)}, kArtKeyToPan, 0.1},
        {{kFilter}, kArtCutoff, 440},
        {{kFilter}, kArtFilterType, 2},
        {{Fixed(1280, INT32_MAX)}, kArtFilterType, 0},
        {{kFilter, Fixed(1281, 655360 * 12)}, kArtResonance, 12},
        {{kFilter, Fixed(1281, 655360 * 12)}, kArtVolume, -6},
        {{kFilter, By(3, 1280, 838860800)}, kArtKeyToCutoff, 12},
        {{Fixed(1280, 900 * 65536), By(3, 1280, 838860800)}, kArtCutoff, 440}, // five octaves up
        {{kFilter, By(2, 1280, kTwoOctaves * 2)}, kArtVelToCutoff, 24},
        {{kFilter, By(2, 1280, kTwoOctaves)}, kArtCutoff, 880},
        {{kFilter, {2, 0, 1280, 0x4000, kTwoOctaves}}, kArtVelToCutoff, 24},
        {{kFilter, {2, 0, 1280, 0x4000, kTwoOctaves}}, kArtCutoff, 440},
        {{kFilter, By(5, 1280, -kOctave)}, kArtFEnvToCutoff, -12},
        {{By(5, 1280, -kOctave)}, kArtFEnvToCutoff, 0}, // nothing to move
        {{By(5, 3, kOctave)}, kArtPEnvToPitch, 12},
        {{By(5, 4, 32768000)}, kArtXEnvToPan, 1},
        {{By(9, 3, 327680)}, kArtPLfoToPitch, 0.05},
        {{By(9, 3, 327680, 129)}, kArtWheelPLfoToPitch, 0.05},
        {{By(9, 3, 327680)}, LfoBase(LfoIndex::Pitch) + kLfoDelay, 0.01},
        {{By(1, 1, 655360 * 3), Fixed(260, 0)}, LfoBase(LfoIndex::Volume) + kLfoFrequency, 8.18},
        {{kFilter, By(1, 1280, kOctave, 8)}, kArtTouchFLfoToCutoff, 12},
        {{By(1, 4, 16384000)}, kArtXLfoToPan, 0.5},
        {{By(9, 3, 327680), By(1, 3, 655360), Fixed(260, kOctave)}, kArtXLfoToPitch, 0.1},
        {{Fixed(518, kOctave)}, Env(kV, kEnvAttack2Time), 2},
        {{Fixed(518, INT32_MIN)}, Env(kV, kEnvAttack2Time), 0},
        {{Fixed(518, 0), By(2, 518, -kTwoOctaves)}, Env(kV, kEnvAttack2Time), 0.5},
        {{Fixed(518, 0), By(2, 518, -kTwoOctaves)}, Env(kV, kEnvVelToAttack2), 0.25},
        {{Fixed(519, 0), Fixed(522, 32768000)}, Env(kV, kEnvDecay2Time), 0.5},
        {{Fixed(520, 0x7FFF0000 | 250)}, Env(kV, kEnvSustain), 0.25},
        {{Fixed(524, 0), By(3, 524, -838860800)}, Env(kV, kEnvKeyToDecay1), 0.5},
        {{Fixed(524, kOctave * 5), By(3, 524, -838860800)}, Env(kV, kEnvDecay1Time), 1},
        {{Fixed(523, 0)}, Env(kV, kEnvAttack1Time), 1},
        {{Fixed(521, kTwoOctaves)}, Env(kV, kEnvRelease1Rate), 4},
        {{Fixed(525, 0)}, kArtShutdownRate, 1},
        {{By(5, 3, kOctave), Fixed(782, 0), Fixed(779, kOctave)}, Env(kP, kEnvDecay2Time), 2},
        {{kFilter, By(5, 1280, kOctave), Fixed(783, 0)}, Env(kF, kEnvAttack1Time), 1},
        {{Fixed(4, 32768000), Fixed(4, 0)}, kArtPan, 0}, // the last one
        {{{0, 7, 4, 0, 32768000}}, kArtPan, 0},          // means something else
    };
    for (const Row& row : rows) {
        const ArticulationBlock block = ToArticulation(row.connections, {}, {});
        EXPECT_NEAR(block[row.id], row.value, std::abs(row.value) * 1e-3 + 1e-4)
            << row.id << " from " << row.connections.back().source << " to "
            << row.connections.back().destination;
    }
}

TEST(DlsUnits, EverythingThatTheFormatHoldsComesBackExactly)
{
    ArticulationBlock block;
    const std::pair<ParamId, float> values[] = {
        {kArtTuning, -7.25f},       {kArtKeyToPitch, 0.37f},    {kArtVolume, -13.37f},
        {kArtVelToVolume, 71.5f},   {kArtKeyToVolume, -2.5f},   {kArtWheelToVolume, 4.25f},
        {kArtTouchToVolume, -1},    {kArtPan, 0.333f},          {kArtCc10ToPan, 0.75f},
        {kArtKeyToPan, -0.125f},    {kArtFilterType, 2},        {kArtCutoff, 1234.6f},
        {kArtVelToCutoff, 13.7f},   {kArtKeyToCutoff, 5.5f},    {kArtWheelToCutoff, -24},
        {kArtTouchToCutoff, 3.1f},  {kArtResonance, 11.11f},    {kArtVelToResonance, 2},
        {kArtWheelToResonance, -3}, {kArtTouchToResonance, 1},  {kArtPLfoToPitch, 0.07f},
        {kArtWheelPLfoToPitch, 1},  {kArtTouchPLfoToPitch, 2},  {kArtVelPLfoToPitch, -0.5f},
        {kArtVLfoToVolume, 2.22f},  {kArtWheelVLfoToVolume, 1}, {kArtFLfoToCutoff, 7},
        {kArtVelFLfoToCutoff, 3},   {kArtXLfoToPan, 0.6f},      {kArtXLfoToPitch, 1.5f},
        {kArtPEnvToPitch, -12},     {kArtFEnvToCutoff, 48.5f},  {kArtXEnvToPan, 0.25f},
        {kArtSend + 2, 0.21f},      {kArtCcToSend + 2, 0.5f},   {kArtSend + 4, 0.125f},
        {kArtShutdownRate, 0.1f}};
    for (const auto& [id, value] : values)
        block.Set(id, value);
    SetLfo(block, {LfoShape::Sine, LfoPolarity::Bipolar, 6.54f, 0, 0}, LfoIndex::Pitch);
    for (const LfoIndex index : {LfoIndex::Volume, LfoIndex::Filter, LfoIndex::X})
        SetLfo(block, {LfoShape::Sine, LfoPolarity::Bipolar, 0.25f, 1.234f, 0}, index);
    const auto envelope = [&](EnvelopeIndex index, float scale) {
        const std::pair<ParamId, float> stages[] = {{kEnvAttack1Time, 0.111f}, {kEnvAttack2Time, 0.013f},
                                                    {kEnvDecay1Time, 0.5f},    {kEnvDecay2Time, 2},
                                                    {kEnvSustain, 0.371f},     {kEnvRelease1Rate, 1.7f},
                                                    {kEnvVelToAttack2, 0.3f},  {kEnvVelToDecay2, 2.5f},
                                                    {kEnvKeyToDecay1, 0.9f},   {kEnvKeyToDecay2, 1.111f}};
        for (const auto& [offset, value] : stages)
            block.Set(Env(index, offset), value * (offset <= kEnvDecay1Time ? scale : 1));
    };
    envelope(EnvelopeIndex::Volume, 1);
    for (const EnvelopeIndex index : {EnvelopeIndex::Pitch, EnvelopeIndex::Filter, EnvelopeIndex::X})
        envelope(index, 3);
    ArticulationBlock held;
    const SendSlots sends{1, 2};
    const Sound sound = ToSound(block, sends, kDlsLevel2Plus, held);
    for (ParamId id = 0; id < kArticulationParams; ++id)
        EXPECT_EQ(held[id], block[id]) << id;
    EXPECT_EQ(sound.level.cents, -725);
    EXPECT_NEAR(sound.level.gainDb, -13.37 + 11.11 / 2, 1e-5);
    const auto has = [&](const Connection& wanted) {
        return std::ranges::find(sound.connections, wanted) != sound.connections.end();
    };
    EXPECT_TRUE(has({2, 0, 1, 0x8400, -46858240}));
    EXPECT_TRUE(has({1, 0, 0x500, 0x4000, 45875200}));
    EXPECT_TRUE(has({3, 0, 1280, 0, 384477867}));
}

TEST(DlsUnits, LevelsLimitWhatTheyHold)
{
    ArticulationBlock block, held;
    block.Set(kArtFilterType, static_cast<float>(FilterType::LowPass24));
    block.Set(kArtCutoff, 15000);
    block.Set(kArtResonance, 30);
    block.Set(kArtVelToVolume, 10);
    block.Set(Env(EnvelopeIndex::Volume, kEnvAttack1Time), 1);
    static_cast<void>(ToSound(block, {}, kDlsLevel2, held));
    EXPECT_NEAR(held[kArtCutoff], 8.1758 * std::exp2(11921 / 1200.0), 1);
    EXPECT_EQ(held[kArtResonance], 22.5f);
    static_cast<void>(ToSound(block, {}, kDlsLevel2Plus, held));
    EXPECT_EQ(held[kArtCutoff], 15000);
    EXPECT_EQ(held[kArtResonance], 30);
    static_cast<void>(ToSound(block, {}, kDlsLevel1, held));
    EXPECT_EQ(held[kArtFilterType], 0);
    EXPECT_EQ(held[kArtVelToVolume], 96);
    EXPECT_GT(held[Env(EnvelopeIndex::Volume, kEnvAttack2Time)], 0) << "the delay goes to the attack";
    block.Set(kArtFilterType, static_cast<float>(FilterType::HighPass12));
    EXPECT_EQ(ToSound(block, {}, kDlsLevel2Plus, held).level.gainDb, 0);
    EXPECT_EQ(held[kArtFilterType], 0);
    EXPECT_TRUE(ToSound(ArticulationBlock(), {}, kDlsLevel2, held).connections.empty());
}

} // namespace
} // namespace vimbo::dls
