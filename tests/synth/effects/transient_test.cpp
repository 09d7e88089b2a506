#include "effect_sound.h"

#include <gtest/gtest.h>

namespace vimbo::synth::testing {
namespace {

constexpr double kRate = 48000, kTwoPi = 6.283185307179586;

ChannelFx ShaperFx(float attack, float sustain, float peakHz = 0)
{
    return Fx(ChannelFxType::Transient, {}, {attack, sustain, peakHz});
}

/// A tone that starts at full level after 0.25 s and falls to a hundredth 0.5 s later.
Sound Burst()
{
    return Make(72000, [](std::size_t n) {
        const double level = n < 12000 ? 0 : n < 36000 ? 0.5 : 0.005;
        return level * std::sin(kTwoPi * 1000 * static_cast<double>(n) / kRate);
    });
}

double StepAt(double hz)
{
    return 1 - std::exp(-kTwoPi * hz / kRate);
}

/// A follower with its hold, one frame at a time.
class PlainFollower {
public:
    PlainFollower(double upHz, double downHz) : up_(StepAt(upHz)), down_(StepAt(downHz)) {}
    double Next(double x)
    {
        value_ += (x - value_) * (x < value_ ? down_ : up_);
        held_ = value_ - held_ > 0 ? value_ : held_ + (value_ - held_) * down_;
        return held_;
    }

private:
    double up_, down_, value_ = 1e-5, held_ = 1e-5;
};

TEST(TransientShaperEffect, AgreesWithThePlainForm)
{
    const Sound send = Burst();
    for (const auto& [attack, sustain] :
         {std::pair(1.0, 0.0), {-1.0, 0.0}, {0.0, 1.0}, {0.0, -1.0}, {0.5, -0.25}}) {
        const double a = std::pow(40, attack), s = std::pow(6, sustain);
        PlainFollower fast(10 * std::max(1 / a, 1.0), 2.5), slow(10 * std::max(a, 1.0), 2.5);
        PlainFollower first(144, 1.8 * std::max(s, 1.0)), second(144, 1.8 * std::max(1 / s, 1.0));
        const double decay = std::exp(-kTwoPi * 160 / kRate);
        const Sound out =
            Play(ShaperFx(static_cast<float>(attack), static_cast<float>(sustain)), kRate, send, send);
        double x1 = 0, y = 0;
        for (std::size_t n = 0; n < send.Frames(); ++n) {
            const double x = 2 * static_cast<double>(send.left[n]) * 0.70710677;
            y = (1 + decay) / 2 * (x - x1) + decay * y;
            x1 = x;
            const double heard = std::fabs(y) + 1e-5;
            double ratio = slow.Next(heard);
            ratio /= fast.Next(heard);
            ratio = (ratio - 1) * attack > 0 ? ratio : 1;
            double gain = second.Next(heard);
            gain = gain / first.Next(heard) * ratio * std::pow(3, -attack);
            ASSERT_NEAR(out.left[n], gain * static_cast<double>(send.left[n]), 1e-3)
                << attack << " " << sustain << " " << n;
        }
    }
}

TEST(TransientShaperEffect, ShapesABurst)
{
    const Sound burst = Burst();
    struct Gains {
        double onset, body, tail;
    };
    const auto gains = [&](const ChannelFx& fx) {
        const Sound out = Play(fx, kRate, burst, burst);
        const auto gain = [&](std::size_t from, std::size_t to) {
            return Level(out.left, from, to) / Level(burst.left, from, to);
        };
        return Gains{gain(12000, 12240), gain(33600, 36000), gain(38400, 43200)};
    };
    const Gains none = gains(ShaperFx(0, 0, 1000));
    EXPECT_EQ(none.onset, 1);
    EXPECT_EQ(none.tail, 1);
    const Gains harder = gains(ShaperFx(1, 0)), softer = gains(ShaperFx(-1, 0));
    // Followers of a tone settle at different heights, since it is rectified and not smooth.
    EXPECT_NEAR(harder.body, 1 / 3.0, 0.1);
    EXPECT_GT(harder.onset, 5 * harder.body);
    EXPECT_NEAR(softer.body, 3, 0.6);
    EXPECT_LT(softer.onset, softer.body / 3);
    EXPECT_GT(gains(ShaperFx(0, 1)).tail, 2);
    EXPECT_LT(gains(ShaperFx(0, -1)).tail, 0.5);
    EXPECT_NEAR(gains(ShaperFx(0, 1)).body, 1, 0.1);
}

// A loud low tone under a burst: with the boost at the burst, its onset counts for more.
TEST(TransientShaperEffect, PeakMakesItListen)
{
    const Sound send = Make(48000, [](std::size_t n) {
        const double t = static_cast<double>(n) / kRate;
        return 0.3 * std::sin(kTwoPi * 60 * t) + (n >= 24000 ? 0.1 * std::sin(kTwoPi * 6000 * t) : 0);
    });
    const auto onset = [&](float peakHz) {
        const Sound out = Play(ShaperFx(1, 0, peakHz), kRate, send, send);
        return Level(out.left, 24000, 24480) / Level(out.left, 23520, 24000);
    };
    EXPECT_GT(onset(6000), 1.2 * onset(0));
}

} // namespace
} // namespace vimbo::synth::testing
