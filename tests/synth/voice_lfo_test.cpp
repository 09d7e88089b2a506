// LFOs: the values of every shape, polarities, delays and fade-ins.
#include "synth/voice_lfo.h"

#include "voice_builders.h"

#include <gtest/gtest.h>

#include <limits>
#include <set>

namespace vimbo::synth {
namespace {

constexpr float kTicksPerSecond = 1000;

struct Rig {
    explicit Rig(float shape, float hz, float delay = 0, float ramp = 0) : params{shape, hz, delay, ramp}
    {
        lfo.Start(params, kTicksPerSecond, random);
    }
    float Tick() { return lfo.Tick(random); }
    std::vector<float> Ticks(int count)
    {
        std::vector<float> values;
        while (count-- > 0)
            values.push_back(Tick());
        return values;
    }
    std::array<float, kLfoParams> params;
    SynthRandom random;
    VoiceLfo lfo;
};

void ExpectNear(const std::vector<float>& values, std::initializer_list<double> expected, float shape)
{
    ASSERT_EQ(values.size(), expected.size());
    for (std::size_t i = 0; i < values.size(); ++i)
        EXPECT_NEAR(values[i], expected.begin()[i], 1e-5) << "shape " << shape << ", tick " << i;
}

TEST(VoiceLfo, ShapesAndStartPhases)
{
    constexpr double r = 0.70710678;
    const struct {
        float shape;
        std::initializer_list<double> values; ///< eighths of a cycle from the start
    } rows[] = {
        {0, {0, r, 1, r, 0, -r, -1, -r, 0}},
        {1, {0, 0.5, 1, 0.5, 0, -0.5, -1, -0.5, 0}},
        {2, {1, 1, 1, 1, -1, -1, -1, -1, 1}},
        {4, {0, 0.25, 0.5, 0.75, -1, -0.75, -0.5, -0.25, 0}},
        {5, {0, -0.25, -0.5, -0.75, 1, 0.75, 0.5, 0.25, 0}},
        // At this speed the return takes half the cycle.
        {6, {-1, -0.5, 0, 0.5, 1, 0.5, 0, -0.5, -1}},
        {7, {1, 0.5, 0, -0.5, -1, -0.5, 0, 0.5, 1}},
        // Unipolar: from 0 where the shape can.
        {64, {0, 0.5 - r / 2, 0.5, 0.5 + r / 2, 1, 0.5 + r / 2, 0.5, 0.5 - r / 2, 0}},
        {65, {0, 0.25, 0.5, 0.75, 1, 0.75, 0.5, 0.25, 0}},
        {66, {1, 1, 1, 1, 0, 0, 0, 0, 1}},
        {68, {0, 0.125, 0.25, 0.375, 0.5, 0.625, 0.75, 0.875, 0}},
        {69, {1, 0.875, 0.75, 0.625, 0.5, 0.375, 0.25, 0.125, 1}},
        {128, {0, r / 2 - 0.5, -0.5, -0.5 - r / 2, -1, -0.5 - r / 2, -0.5, r / 2 - 0.5, 0}},
        {132, {0, -0.125, -0.25, -0.375, -0.5, -0.625, -0.75, -0.875, 0}},
    };
    for (const auto& row : rows)
        ExpectNear(Rig(row.shape, kTicksPerSecond / 8).Ticks(9), row.values, row.shape);
}

TEST(VoiceLfo, SoftSawsReturnInSeventyFiveTicks)
{
    Rig rig(6, 1); // 1000 ticks: up for 925, down for 75
    const std::vector<float> values = rig.Ticks(1001);
    EXPECT_NEAR(values[0], -1, 1e-6);
    EXPECT_NEAR(values[925 / 2], 0, 2e-3);
    EXPECT_NEAR(values[925], 1, 2e-3);
    EXPECT_NEAR(values[925 + 38], 0, 0.03);
    EXPECT_NEAR(values[1000], -1, 2e-3);
}

TEST(VoiceLfo, NoiseHoldsForACycle)
{
    Rig rig(3, 10);
    std::set<float> seen;
    for (int cycle = 0; cycle < 50; ++cycle) {
        const std::vector<float> values = rig.Ticks(100);
        for (std::size_t i = 1; i + 1 < values.size(); ++i)
            ASSERT_EQ(values[i], values[1]) << cycle << ' ' << i;
        ASSERT_LE(std::abs(values[1]), 1);
        seen.insert(values[1]);
    }
    EXPECT_GT(seen.size(), 45u);
    EXPECT_LT(*seen.begin(), -0.5f);
    EXPECT_GT(*seen.rbegin(), 0.5f);
}

TEST(VoiceLfo, DelayThenFadeIn)
{
    Rig rig(2, 10, 0.0205f, 0.04f); // a square: 1 for 50 ticks
    for (int n = 0; n < 20; ++n)
        ASSERT_EQ(rig.Tick(), 0) << n;
    for (int n = 0; n < 40; ++n)
        ASSERT_NEAR(rig.Tick(), n / 40.0, 1e-5) << n;
    for (int n = 40; n < 50; ++n)
        ASSERT_EQ(rig.Tick(), 1) << n;
    EXPECT_EQ(rig.Tick(), -1) << "the phase waits for the delay, not for the fade-in";
}

TEST(VoiceLfo, KeepsItsFrequency)
{
    for (const float hz : {0.01f, 0.37f, 5.0f, 19.7f}) {
        Rig rig(4, hz);
        const int ticks = static_cast<int>(200 / hz * kTicksPerSecond);
        int wraps = 0;
        float before = 0;
        for (int n = 0; n < ticks; ++n) {
            const float value = rig.Tick();
            wraps += value < before ? 1 : 0;
            before = value;
        }
        EXPECT_NEAR(wraps, 200, 1) << hz;
    }
}

TEST(VoiceLfo, EditsKeepThePhase)
{
    Rig rig(4, 1);
    const float before = rig.Ticks(300).back();
    rig.params[kLfoFrequency] = 2;
    rig.lfo.Edit(rig.params, kTicksPerSecond);
    EXPECT_NEAR(rig.Tick(), before + 0.002, 1e-5);
    EXPECT_NEAR(rig.Tick(), before + 0.006, 1e-5);
}

TEST(VoiceLfo, AnyValuesAreSafe)
{
    constexpr float kInf = std::numeric_limits<float>::infinity();
    const float odd[] = {std::nanf(""), kInf, -kInf, 1e30f, -1e30f, 1e-40f, 255, 8, 63, 0};
    for (const float shape : odd)
        for (const float hz : odd)
            for (const float time : odd)
                for (const float value : Rig(shape, hz, time, -time).Ticks(20))
                    ASSERT_TRUE(value >= -1 && value <= 1) << shape << ' ' << hz << ' ' << time;
}

} // namespace
} // namespace vimbo::synth
