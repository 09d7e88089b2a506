// The engine's own mathematics against the C library's.
#include "synth/synth_math.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

namespace vimbo::synth {
namespace {

TEST(SynthMath, AgreesWithTheLibrary)
{
    for (double x = -200; x <= 200; x += 0.0371)
        EXPECT_NEAR(PortableExp2(x) / std::exp2(x), 1, 4e-15) << x;
    for (double x = 1e-30; x < 1e30; x *= 1.0371)
        EXPECT_NEAR(PortableLog2(x), std::log2(x), 1e-14 * std::max(1.0, std::abs(std::log2(x)))) << x;
    for (float phase = -1; phase <= 2; phase += 0.00137f) {
        const double angle = 2 * std::numbers::pi * phase;
        EXPECT_NEAR(SineOfPhase(phase), std::sin(angle), 8e-7) << phase;
        EXPECT_NEAR(CosineOfPhase(phase), std::cos(angle), 8e-7) << phase;
    }
    for (float decibels = -96; decibels <= 24; decibels += 0.37f) {
        EXPECT_NEAR(DecibelsToGain(decibels) / std::pow(10.0, decibels / 20.0), 1, 1e-6);
        EXPECT_NEAR(GainToDecibels(DecibelsToGain(decibels)), decibels, 1e-5);
    }
    EXPECT_EQ(GainToDecibels(0), -96);
    EXPECT_NEAR(SemitonesToRatio(7), std::exp2(7.0 / 12), 1e-14);
}

TEST(SynthMath, PanKeepsThePower)
{
    for (float pan = -1.5f; pan <= 1.5f; pan += 0.013f) {
        const PanGains gains = PanToGains(pan);
        EXPECT_NEAR(gains.left * gains.left + gains.right * gains.right, 1, 1e-6) << pan;
    }
    EXPECT_NEAR(PanToGains(0).left, std::sqrt(0.5), 1e-6);
    EXPECT_EQ(PanToGains(-1).right, 0);
    EXPECT_EQ(PanToGains(1).left, 0);
}

} // namespace
} // namespace vimbo::synth
