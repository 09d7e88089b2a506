#include "effect_sound.h"

#include <gtest/gtest.h>

namespace vimbo::synth::testing {
namespace {

constexpr double kRate = 48000, kPi = 3.141592653589793;

ChannelFx PhaserFx(std::size_t stages, float hz, float depth, float feedback, std::uint8_t shape = 0,
                   std::uint8_t stereo = 0)
{
    const auto seconds = static_cast<float>(static_cast<double>(stages) / kRate);
    return Fx(ChannelFxType::Phaser, {stereo, shape, 0}, {hz, depth, seconds, feedback});
}

/// Frame by frame, stage by stage.
class PlainPhaser {
public:
    PlainPhaser(std::size_t stages, double feedback) : feedback_(feedback), x1_(stages), y1_(stages) {}
    double Next(double in, double m)
    {
        const double c = (1 - m) / (1 + m);
        double x = std::clamp(in + y1_.back() * feedback_, -2.0, 2.0);
        for (std::size_t i = 0; i < x1_.size(); ++i) {
            const double y = (x - y1_[i]) * c + x1_[i];
            x1_[i] = x;
            x = y1_[i] = y;
        }
        return x * std::pow(feedback_ + 1, -0.2);
    }

private:
    double feedback_;
    std::vector<double> x1_, y1_;
};

TEST(PhaserEffect, AgreesWithThePlainForm)
{
    const Sound send = Noise(64 * 300);
    for (const std::size_t stages : {1u, 3u, 4u, 6u, 17u, 48u}) {
        for (const float feedback : {0.0f, 0.75f, -0.5f}) {
            constexpr float kHz = 5.859375f, kDepth = 0.9f; // 1/128 of a cycle per block: exact sums
            const Sound out = Play(PhaserFx(stages, kHz, kDepth, feedback, 0, 1), kRate, send);
            for (std::size_t side = 0; side < 2; ++side) {
                PlainPhaser plain(stages, static_cast<double>(feedback));
                const auto lfo = [side](std::size_t block) {
                    const double cycles = static_cast<double>(kHz) * static_cast<double>(block) * 64 / kRate;
                    return std::sin(2 * kPi * (cycles + (side == 1 ? 0.25 : 0)));
                };
                for (std::size_t n = 0; n < send.Frames(); ++n) {
                    const double t = static_cast<double>(n % 64 + 1) / 64;
                    const double m =
                        ((1 - t) * lfo(n / 64) + t * lfo(n / 64 + 1)) * static_cast<double>(kDepth) + 1;
                    ASSERT_NEAR(out.Side(side)[n], plain.Next(static_cast<double>(send.Side(side)[n]), m),
                                1e-4)
                        << stages << " stages, feedback " << feedback << ", frame " << n;
                }
            }
        }
    }
}

// At rest a stage delays by one frame: the row can be counted, and it loops with one frame more.
TEST(PhaserEffect, StagesAreCounted)
{
    struct Case {
        float seconds;
        double rate;
        std::size_t stages;
    };
    for (const Case& c : {Case{0, 48000, 1}, Case{0.00025f, 48000, 12}, Case{0.00025f, 44100, 11},
                          Case{1e-4f, 48000, 5}, Case{1, 48000, 48}, Case{0.0005f, 96000, 48}}) {
        const ChannelFx fx = Fx(ChannelFxType::Phaser, {}, {0, 0, c.seconds, 0.5f});
        const Sound out = Play(fx, c.rate, Impulse(640));
        for (std::size_t n = 0; n < out.Frames(); ++n) {
            const bool isEcho = (n + 1) % (c.stages + 1) == 0;
            const double rounds = static_cast<double>((n + 1) / (c.stages + 1)) - 1;
            ASSERT_NEAR(out.left[n], isEcho ? std::pow(1.5, -0.2) * std::pow(0.5, rounds) : 0, 1e-6)
                << c.stages;
        }
    }
}

/// Level of dry plus effect for a sine in both.
double GainAt(const ChannelFx& fx, double hz, std::size_t side)
{
    const Sound sine = Sine(48000, hz, kRate, 0.5);
    return Level(Play(fx, kRate, sine, sine).Side(side), 24000, 48000) / 0.35355339;
}

// N stages with a delay of m frames each turn by N 2 atan(m tan(w / 2)): notches at odd multiples of pi.
TEST(PhaserEffect, NotchesLieWhereTheStagesPutThem)
{
    for (const std::size_t stages : {2u, 4u, 6u, 9u}) {
        for (const std::uint8_t isStereo : {std::uint8_t{0}, std::uint8_t{1}}) {
            const ChannelFx fx = PhaserFx(stages, 0, 0.6f, 0, 2, isStereo); // the square rests at +1
            for (std::size_t side = 0; side < 2; ++side) {
                const double m = isStereo && side == 1 ? 0.4 : 1.6;
                for (std::size_t notch = 1; notch < stages; notch += 2) {
                    const auto turned = [&](double half) {
                        return 2 * std::atan(std::tan(half / (2 * double(stages))) / m) * kRate / (2 * kPi);
                    };
                    const double odd = static_cast<double>(notch) * kPi;
                    EXPECT_LT(Decibels(GainAt(fx, turned(odd), side)), -50) << stages << " " << side;
                    if (notch + 1 == stages)
                        continue; // the next peak lies at half the rate
                    EXPECT_NEAR(GainAt(fx, turned(odd + kPi), side), 2, 0.01) << stages << " " << side;
                }
            }
        }
    }
}

TEST(PhaserEffect, LoopIsLimited)
{
    const Sound out = Play(PhaserFx(6, 1, 5, 50), kRate, Noise(96000, 10));
    EXPECT_LT(Peak(out.left, 0, 96000), 60);
    EXPECT_GT(Level(out.left, 48000, 96000), 0.1);
}

} // namespace
} // namespace vimbo::synth::testing
