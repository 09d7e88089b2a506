#include "effect_sound.h"

#include <deque>
#include <gtest/gtest.h>
#include <numeric>

namespace vimbo::synth::testing {
namespace {

ChannelFx ReverbFx(float room, float damping, std::uint8_t gate = 0, std::array<float, 3> gateTimes = {})
{
    return Fx(ChannelFxType::Reverb, {gate, 0, 0}, {room, damping, gateTimes[0], gateTimes[1], gateTimes[2]});
}

/// Frame by frame, line by line.
class PlainReverb {
public:
    PlainReverb(double room, double damping, double rate, double spread)
        : feedback_(room * 0.28 + 0.7), damping_(damping * 0.4)
    {
        const auto frames = [&](double length) {
            return static_cast<std::size_t>((length + spread) * rate / 44100);
        };
        for (const double length : {1116, 1188, 1277, 1356, 1422, 1491, 1557, 1617})
            combs_.push_back({std::deque<double>(frames(length)), 0});
        for (const double length : {556, 441, 341, 225})
            allPasses_.emplace_back(frames(length));
    }
    double Next(double in)
    {
        double sum = 0;
        for (Comb& comb : combs_) {
            const double old = comb.line.front();
            comb.line.pop_front();
            sum += old;
            comb.damped = (comb.damped - old) * damping_ + old;
            comb.line.push_back(comb.damped * feedback_ + in * 0.029698484);
        }
        for (std::deque<double>& line : allPasses_) {
            const double old = line.front();
            line.pop_front();
            line.push_back(sum + 0.5 * old);
            sum = old - 0.5 * line.back();
        }
        return sum;
    }

private:
    struct Comb {
        std::deque<double> line;
        double damped = 0;
    };
    double feedback_, damping_;
    std::vector<Comb> combs_;
    std::vector<std::deque<double>> allPasses_;
};

TEST(ReverbEffect, AgreesWithThePlainForm)
{
    // 8000 and 1000 Hz have lines shorter than a block.
    for (const double rate : {44100.0, 48000.0, 96000.0, 8000.0, 1000.0}) {
        const Sound send = Noise(64 * 300);
        const Sound out = Play(ReverbFx(0.8f, 0.5f), rate, send);
        PlainReverb left(static_cast<double>(0.8f), 0.5, rate, -11.5);
        PlainReverb right(static_cast<double>(0.8f), 0.5, rate, 11.5);
        for (std::size_t n = 0; n < send.Frames(); ++n) {
            ASSERT_NEAR(out.left[n], left.Next(static_cast<double>(send.left[n])), 3e-6) << rate << " " << n;
            ASSERT_NEAR(out.right[n], right.Next(static_cast<double>(send.left[n])), 3e-6)
                << rate << " " << n;
        }
    }
}

TEST(ReverbEffect, LinesHaveTheirLengths)
{
    struct Arrivals {
        double rate;
        std::array<std::size_t, 2> firstComb, secondComb, shortestAllPass;
    };
    for (const Arrivals& a : {Arrivals{44100, {1104, 1127}, {1176, 1199}, {213, 236}},
                              Arrivals{48000, {1202, 1227}, {1280, 1305}, {232, 257}}}) {
        const Sound out = Play(ReverbFx(0.5f, 0), a.rate, Impulse(2560));
        for (std::size_t side = 0; side < 2; ++side) {
            const std::vector<float>& s = out.Side(side);
            // Straight through four all-passes: (-1/2)^4; one of them sounding: 3/4 (-1/2)^3.
            EXPECT_EQ(Peak(s, 0, a.firstComb[side]), 0);
            EXPECT_NEAR(s[a.firstComb[side]], 0.029698484f / 16, 1e-8f);
            EXPECT_EQ(Peak(s, a.firstComb[side] + 1, a.secondComb[side]), 0);
            EXPECT_NEAR(s[a.secondComb[side]], 0.029698484f / 16, 1e-8f);
            EXPECT_NEAR(s[a.firstComb[side] + a.shortestAllPass[side]], -0.029698484f * 0.75f / 8, 1e-8f);
        }
    }
}

/// Seconds for 60 dB, from the slope of the energy left (Schroeder's integral) between -10 and -40 dB.
double DecaySeconds(const std::vector<float>& side, double rate)
{
    std::vector<double> left(side.size());
    double sum = 0;
    for (std::size_t n = side.size(); n-- > 0;)
        left[n] = sum += static_cast<double>(side[n]) * static_cast<double>(side[n]);
    const auto frameAt = [&](double decibels) {
        std::size_t n = 0;
        while (n < left.size() && 10 * std::log10(left[n] / left[0]) > decibels)
            ++n;
        return static_cast<double>(n);
    };
    return (frameAt(-40) - frameAt(-10)) / rate * 2;
}

// A comb of L frames and feedback g falls by 60 dB in 3 L / log10(1 / g) frames; the mix lies between its
// shortest and its longest comb.
TEST(ReverbEffect, DecaysAsItsCombsSay)
{
    for (const float room : {0.0f, 0.5f, 0.9f}) {
        const double combSeconds = 3 / -std::log10(static_cast<double>(room) * 0.28 + 0.7);
        for (const double rate : {44100.0, 48000.0}) {
            const Sound out = Play(ReverbFx(room, 0), rate, Impulse(static_cast<std::size_t>(rate) * 6));
            const double seconds = DecaySeconds(out.left, rate);
            EXPECT_GT(seconds, combSeconds * 1104 / 44100) << room;
            EXPECT_LT(seconds, combSeconds * 1606 / 44100) << room;
        }
    }
}

// At half the output rate a comb's loop keeps (1 - d) / (1 + d) of its feedback, with a damping d of 0.4: it
// is dead before frequencies at the bottom have lost anything.
TEST(ReverbEffect, DampingEatsHighFrequencies)
{
    const auto highSeconds = [](float damping) {
        const Sound out = Play(ReverbFx(0.5f, damping), 44100, Impulse(88200));
        std::vector<float> high(out.Frames() - 2);
        for (std::size_t n = 0; n < high.size(); ++n)
            high[n] = out.left[n] - 2 * out.left[n + 1] + out.left[n + 2];
        return DecaySeconds(high, 44100);
    };
    EXPECT_LT(highSeconds(1), 0.5 * highSeconds(0));
    const Sound steady = Make(88200, [](std::size_t) { return 0.1; });
    const Sound dull = Play(ReverbFx(0, 1), 44100, steady), bright = Play(ReverbFx(0, 0), 44100, steady);
    EXPECT_NEAR(dull.left[88000], bright.left[88000], 1e-4);
}

TEST(ReverbEffect, GatesOpenAndClose)
{
    constexpr double kRate = 48000;
    // A tone of 0.5 s, then silence. Room 1: without a gate it sounds on for seconds.
    const Sound tone =
        Make(64 * 1500, [](std::size_t n) { return n < 24000 ? std::sin(double(n) * 0.1) : 0; });
    const std::array<float, 3> times = {0.02f, 0.2f, 0.1f}; // attack, hold, release
    const Sound open = Play(ReverbFx(1, 0), kRate, tone);
    struct Case {
        std::uint8_t gate;
        double closesAt; // seconds
    };
    for (const Case& c : {Case{1, 0.5 + 0.2 + 0.1}, Case{2, 0.02 + 0.2 + 0.1}}) {
        const Sound gated = Play(ReverbFx(1, 0, c.gate, times), kRate, tone);
        const auto closed = static_cast<std::size_t>(c.closesAt * kRate);
        for (const std::size_t n : {4800u, 9600u}) // fully open
            EXPECT_EQ(gated.left[n], open.left[n]) << int{c.gate};
        const std::size_t middle = closed - 2400; // half released
        const double gain =
            Level(gated.left, middle - 320, middle + 320) / Level(open.left, middle - 320, middle + 320);
        EXPECT_NEAR(gain, 0.5, 0.04) << int{c.gate};
        EXPECT_GT(Peak(gated.left, closed - 1000, closed - 500), 0) << int{c.gate};
        EXPECT_EQ(Peak(gated.left, closed + 192, gated.Frames()), 0) << int{c.gate};
    }
}

} // namespace
} // namespace vimbo::synth::testing
