#include "effect_sound.h"

#include <gtest/gtest.h>
#include <map>

namespace vimbo::synth::testing {
namespace {

using Echoes = std::map<std::size_t, float>;

struct DelayCase {
    const char* name;
    double rate;
    std::uint8_t filter;
    std::array<float, 5> values; // seconds, feedback, crossfeed, pan, cutoff
    Echoes left, right;
};

// An impulse enters the line as sqrt(2). Crossfeed c: main = (feedback - 1) (1 - c) + 1.
const DelayCase kCases[] = {
    {"ping-pong, left first",
     48000,
     0,
     {0.01f, 0.5f, 0.5f, -1, 0},
     {{240, 1.0606602f}, {720, 0.5303301f}, {1200, 0.26516504f}},
     {{480, 0.70710678f}, {960, 0.35355339f}, {1440, 0.1767767f}}},
    {"ping-pong, right first",
     44100,
     0,
     {0.01f, 0.5f, 0.5f, 1, 0},
     {{441, 0.70710678f}, {882, 0.35355339f}, {1323, 0.1767767f}},
     {{221, 1.0606602f}, {662, 0.5303301f}, {1103, 0.26516504f}, {1544, 0.13258252f}}},
    {"both taps at the long time: gains add",
     48000,
     0,
     {0.01f, 0.5f, 0, 0, 0},
     {{480, 0.75f}, {960, 0.375f}, {1440, 0.1875f}},
     {{480, 0.75f}, {960, 0.375f}, {1440, 0.1875f}}},
    {"one echo of a line without feedback", 48000, 0, {0.01f, 0, 0.25f, -1, 0}, {{360, 0.35355339f}}, {}},
    {"full crossfeed: the short tap is one frame long",
     48000,
     0,
     {0.01f, 0.5f, 1, -1, 0},
     {{1, 1.4142135f}, {481, 0.70710678f}, {961, 0.35355339f}, {1441, 0.1767767f}},
     {{480, 0.70710678f}, {960, 0.35355339f}, {1440, 0.1767767f}}},
    {"shorter than a block",
     48000,
     0,
     {0.0125f, -0.5f, 1, -1, 0},
     {{1, 1.4142135f}, {601, -0.70710678f}, {1201, 0.35355339f}},
     {{600, -0.70710678f}, {1200, 0.35355339f}}},
};

void ExpectEchoes(const std::vector<float>& side, const Echoes& echoes, const char* name)
{
    for (std::size_t n = 0; n < side.size(); ++n) {
        const auto echo = echoes.find(n);
        EXPECT_NEAR(side[n], echo == echoes.end() ? 0 : echo->second, 1e-6f) << name << ", frame " << n;
    }
}

TEST(DelayEffect, EchoesComeAtTheirTimesAndSides)
{
    for (const DelayCase& c : kCases) {
        const Sound out = Play(Fx(ChannelFxType::Delay, {c.filter, 0, 0}, c.values), c.rate, Impulse(1600));
        ExpectEchoes(out.left, c.left, c.name);
        ExpectEchoes(out.right, c.right, c.name);
    }
}

TEST(DelayEffect, LinesShorterThanABlockFeedBackFrameByFrame)
{
    for (const std::size_t frames : {1u, 5u, 63u, 64u, 65u}) {
        const auto seconds = static_cast<float>(static_cast<double>(frames) / 48000);
        const Sound out = Play(Fx(ChannelFxType::Delay, {}, {seconds, 0.9f, 1, 1, 0}), 48000, Impulse(640));
        double echo = 1.4142135;
        for (std::size_t n = 1; n < 640; ++n) {
            echo *= n % frames == 0 ? 0.9 : 1; // the long tap, on the left: feedback * line
            EXPECT_NEAR(out.left[n], n % frames == 0 ? echo : 0.0, 1e-5) << frames << " frames, frame " << n;
        }
    }
}

TEST(DelayEffect, OnlyTheLeftSideIsHeard)
{
    const Sound send = Make(
        640, [](std::size_t) { return 0; }, [](std::size_t) { return 1; });
    const Sound out = Play(Fx(ChannelFxType::Delay, {}, {0.001f, 0.5f, 0.5f, 0, 0}), 48000, send);
    EXPECT_EQ(Peak(out.left, 0, 640) + Peak(out.right, 0, 640), 0);
}

TEST(DelayEffect, FilterHasItsCorner)
{
    constexpr double kRate = 48000, kCornerHz = 1000;
    for (const std::uint8_t kind : {std::uint8_t{1}, std::uint8_t{0}}) {
        const ChannelFx fx = Fx(ChannelFxType::Delay, {kind, 0, 0}, {0.01f, 0, 1, -1, kCornerHz});
        const auto gainDb = [&](double hz) {
            const Sound out = Play(fx, kRate, Sine(19200, hz, kRate, 0.70710678));
            return Decibels(Level(out.left, 9600, 19200) / 0.70710678);
        };
        EXPECT_NEAR(gainDb(kCornerHz), -3.01, 0.35) << int{kind};
        EXPECT_NEAR(gainDb(kind == 1 ? 50 : 20000), 0, 0.1) << int{kind};
        EXPECT_NEAR(gainDb(kind == 1 ? 10000 : 50), kind == 1 ? -20.0 : -26, 1.2) << int{kind};
    }
    // Off: no cutoff, and a low-pass at half the rate.
    for (const float cutoff : {0.0f, 24000.0f}) {
        const ChannelFx fx = Fx(ChannelFxType::Delay, {1, 0, 0}, {0.001f, 0, 1, -1, cutoff});
        EXPECT_FLOAT_EQ(Play(fx, kRate, Impulse(128)).left[1], 1.4142135f);
    }
}

} // namespace
} // namespace vimbo::synth::testing
