#include "base/numeric.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace vimbo {
namespace {

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

TEST(Decibels, ToGain)
{
    const float exact[][2] = {{0, 1},       {6, 2},   {12, 5},   {-6, 0.5f},
                              {-12, 0.25f}, {-96, 0}, {-500, 0}, {kNan, 0}};
    for (const auto& [db, gain] : exact)
        EXPECT_EQ(DbToGain(db), gain) << db;
    EXPECT_NEAR(DbToGain(-6.0206f), 0.5f, 1e-5f);
    EXPECT_NEAR(DbToGain(-20.0f), 0.1f, 1e-6f);
    EXPECT_NEAR(DbToGain(-95.99f), 1.5867e-5f, 1e-9f);
    EXPECT_NEAR(DbToGain(-0.001f), 0.99988f, 1e-5f) << "below 1 nothing is rounded";
    EXPECT_FLOAT_EQ(DbToGain(20.0f), 10.0f);
    EXPECT_FLOAT_EQ(DbToGain(3.0f), 1.413f) << "1.41254 to the next thousandth";
    EXPECT_FLOAT_EQ(DbToGain(0.005f), 1.001f);
    EXPECT_FLOAT_EQ(DbToGain(12.01f), 3.986f);
}

TEST(Decibels, FromGain)
{
    const float exact[][2] = {{1, 0},       {2, 6},   {4, 12},   {0.5f, -6},
                              {0.25f, -12}, {0, -96}, {-1, -96}, {1.5848933e-5f, -96},
                              {kNan, -96}};
    for (const auto& [gain, db] : exact)
        EXPECT_EQ(GainToDb(gain), db) << gain;
    EXPECT_FLOAT_EQ(GainToDb(10.0f), 20.0f);
    EXPECT_FLOAT_EQ(GainToDb(0.1f), -20.0f);
    EXPECT_FLOAT_EQ(GainToDb(5.0f), 13.98f);
    EXPECT_FLOAT_EQ(GainToDb(3.0f), 9.54f) << "9.5424";
    EXPECT_FLOAT_EQ(GainToDb(0.33f), -9.63f) << "-9.6297";
}

TEST(Keys, ToHz)
{
    EXPECT_NEAR(KeyToHz(69.0f), 440.0f, 2e-4f);
    EXPECT_NEAR(KeyToHz(60.0f), 261.62557f, 2e-4f);
    EXPECT_NEAR(KeyToHz(0.0f), 8.1757989f, 1e-6f);
    EXPECT_NEAR(KeyToHz(69.5f), 452.8930f, 3e-4f);
}

TEST(Keys, NoteNames)
{
    EXPECT_EQ(NoteName(60), "C4");
    EXPECT_EQ(NoteName(60, MiddleC::IsC3), "C3");
    EXPECT_EQ(NoteName(0), "C-1");
    EXPECT_EQ(NoteName(127), "G9");
    EXPECT_EQ(NoteName(70), "A#4");
    EXPECT_EQ(NoteName(-1), "B-2");
    EXPECT_EQ(NoteName(-12), "C-2");
    EXPECT_EQ(NoteName(-13, MiddleC::IsC3), "B-4");
    EXPECT_EQ(NoteName(std::numeric_limits<int>::min()), "E-178956972");
}

TEST(Numbers, Grouped)
{
    EXPECT_EQ(GroupedNumber(0), "0");
    EXPECT_EQ(GroupedNumber(999), "999");
    EXPECT_EQ(GroupedNumber(1000), "1 000");
    EXPECT_EQ(GroupedNumber(100000), "100 000");
    EXPECT_EQ(GroupedNumber(4294967295u), "4 294 967 295");
}

TEST(Numbers, Rounding)
{
    EXPECT_DOUBLE_EQ(RoundToHundredth(1.125), 1.13);
    EXPECT_DOUBLE_EQ(RoundToHundredth(-1.125), -1.13);
    EXPECT_DOUBLE_EQ(RoundToHundredth(-0.004), 0.0);
    EXPECT_EQ(RoundToHundredth(1e308), 1e308);
    EXPECT_TRUE(std::isnan(RoundToHundredth(kNan)));

    EXPECT_EQ(RoundToInt(2.5), 3);
    EXPECT_EQ(RoundToInt(-2.5), -3);
    EXPECT_EQ(RoundToInt(2.4999), 2);
    EXPECT_EQ(RoundToInt(1e300), std::numeric_limits<int>::max());
    EXPECT_EQ(RoundToInt(-1e300), std::numeric_limits<int>::min());
    EXPECT_EQ(RoundToInt(kNan), 0);
}

} // namespace
} // namespace vimbo
