#include "effect_sound.h"

#include <gtest/gtest.h>

namespace vimbo::synth::testing {
namespace {

constexpr double kTwoPi = 6.283185307179586;

struct SweepCase {
    const char* name;
    std::uint8_t voices;
    bool halves, followsDepth;
    float hz, depth;
};
constexpr SweepCase kSweeps[] = {
    {"one voice", 1, false, false, 2, 0.003f},
    {"three, spread", 3, false, false, 0.7f, 0.01f},
    {"four, spread", 4, false, false, 5, 0.002f},
    {"two, halving", 2, true, false, 3, 0.005f},
    {"deeper than the delay", 1, false, false, 1, 0.08f},
    {"delay after depth", 2, false, true, 1.5f, 0.06f},
};

/// Sum of all voices' delays in frames at a block's end.
double DelaySum(const SweepCase& c, double rate, std::size_t side, double blocks)
{
    const double depthWished = static_cast<double>(c.depth) * rate;
    const double base = c.followsDepth ? depthWished + 4 : rate * 0.025;
    const double depth = c.followsDepth ? depthWished : std::min(depthWished, base - 4);
    double sum = 0;
    for (int voice = 0; voice < c.voices; ++voice) {
        const double half = std::floor(c.voices / 2.0);
        double phase = side == 0 ? 0 : (half + 0.5) / c.voices;
        double cycles = static_cast<double>(c.hz) * blocks * kBlockFrames / rate;
        if (c.halves) {
            phase = side == 0 ? 0 : 0.5;
            cycles /= std::pow(2.0, voice);
        } else {
            phase += static_cast<double>(voice) / c.voices;
        }
        sum += base + depth * std::sin(kTwoPi * (phase + cycles));
    }
    return sum;
}

// A straight ramp comes out of a delay as itself, less the delay: so delays can be read off.
TEST(ChorusEffect, VoicesSwingAroundTheDelay)
{
    constexpr double kRate = 44100, kSlope = 1.0 / 32768;
    constexpr std::size_t kFrames = 64 * 700;
    const Sound ramp = Make(kFrames, [=](std::size_t n) { return static_cast<double>(n) * kSlope; });
    for (const SweepCase& c : kSweeps) {
        const ChannelFx fx = Fx(ChannelFxType::Chorus, {c.voices, c.halves, c.followsDepth}, {c.hz, c.depth});
        const Sound out = Play(fx, kRate, ramp);
        for (std::size_t side = 0; side < 2; ++side) {
            for (std::size_t n = 8191; n < kFrames; n += 64) {
                const double voices = c.voices;
                const double read = static_cast<double>(out.Side(side)[n]) / kSlope * std::sqrt(voices);
                const double delays = voices * static_cast<double>(n) - read;
                const double expected = DelaySum(c, kRate, side, static_cast<double>(n + 1) / 64);
                ASSERT_NEAR(delays, expected, 0.1) << c.name << ", side " << side << ", frame " << n;
            }
        }
    }
}

TEST(ChorusEffect, StillVoiceIsAPlainDelay)
{
    const ChannelFx fx = Fx(ChannelFxType::Chorus, {1, 0, 0}, {0, 0, 0});
    const Sound even = Play(fx, 48000, Impulse(2560));
    for (std::size_t n = 0; n < even.Frames(); ++n)
        EXPECT_EQ(even.left[n], n == 1200 ? 1.0f : 0.0f) << n;
    // 1102.5 frames: half-way between two, where the cubic's weights are -1, 9, 9 and -1 sixteenths.
    const Sound odd = Play(fx, 44100, Impulse(2560));
    constexpr float kWeights[] = {-1 / 16.0f, 9 / 16.0f, 9 / 16.0f, -1 / 16.0f};
    for (std::size_t i = 0; i < 4; ++i)
        EXPECT_NEAR(odd.right[1101 + i], kWeights[i], 1e-6f);
}

TEST(ChorusEffect, FeedbackRepeatsAndFades)
{
    // One still voice: each round is the feedback times the one before.
    const ChannelFx still = Fx(ChannelFxType::Chorus, {1, 0, 0}, {0, 0, 0.25f});
    const Sound echoes = Play(still, 48000, Make(6400, [](std::size_t n) { return n == 0 ? 0.4 : 0; }));
    for (std::size_t n = 1; n < 6400; ++n)
        EXPECT_NEAR(echoes.left[n], n % 1200 == 0 ? 0.4 * std::pow(0.25, double(n) / 1200 - 1) : 0, 1e-6)
            << n;
    // Delays of a few frames in the loop: as with one block per frame.
    const ChannelFx tight = Fx(ChannelFxType::Chorus, {1, 0, 1}, {0, 0, 0.5f});
    const Sound fast = Play(tight, 48000, Make(640, [](std::size_t n) { return n == 0 ? 0.4 : 0; }));
    for (std::size_t n = 1; n < 640; ++n)
        EXPECT_NEAR(fast.right[n], n % 4 == 0 ? 0.4 * std::pow(0.5, double(n) / 4 - 1) : 0, 1e-6) << n;
}

TEST(ChorusEffect, LoopIsLimitedWhateverTheFeedback)
{
    // Soft limiter: 1 goes in as 1 - 0.5^2 / 2, 2 as 1.
    const ChannelFx still = Fx(ChannelFxType::Chorus, {1, 0, 0}, {0, 0, 1e-6f});
    for (const auto& [in, out] : {std::pair(0.5, 0.5), {1.0, 0.875}, {-1.0, -0.875}, {2.0, 1.0}}) {
        const double level = in;
        EXPECT_NEAR(Play(still, 48000, Make(2560, [=](std::size_t) { return level; })).left[2000], out, 1e-5);
    }
    for (const std::uint8_t voices : {std::uint8_t{1}, std::uint8_t{5}, std::uint8_t{16}}) {
        const ChannelFx wild = Fx(ChannelFxType::Chorus, {voices, 0, 1}, {3, 0.004f, 1000});
        const Sound out = Play(wild, 48000, Noise(96000, 4));
        const double most = 1.3 * std::sqrt(static_cast<double>(voices)); // the cubic overshoots by 1.25
        EXPECT_LT(Peak(out.left, 0, 96000), most) << int{voices};
        EXPECT_GT(Level(out.left, 48000, 96000), 0.1) << int{voices};
    }
}

} // namespace
} // namespace vimbo::synth::testing
