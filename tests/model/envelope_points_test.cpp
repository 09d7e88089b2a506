#include "model/envelope.h"

#include "envelope_random.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace vimbo {
namespace {

TEST(EnvelopePoints, AreTheCornersThatArePlayed)
{
    EXPECT_EQ(EnvelopeToPoints(Envelope{}), (EnvelopePoints{{{0, 0}, {0, 1}, {0, 0}}, 1, true}));

    Envelope e;
    e.initialLevel = 0.25f;
    e.attack1 = {0.5f, 0.5f};
    e.attack2 = {0, 0.5f}; // no corner
    e.decay1 = {0, 1};
    e.decay2 = {2, 0.75f};
    e.release1Rate = 4; // a quarter of the level: 1 s
    e.release1Level = 0.5f;
    e.release2Seconds = 3; // of the same level: not played
    e.release2Level = 0.5f;
    e.release3Seconds = 2;
    e.release3Level = 0.25f;
    const EnvelopePoints points{
        {{0, 0.25f}, {0.5, 0.5f}, {0.5, 1}, {2.5, 0.75f}, {1, 0.5f}, {3, 0.25f}, {3, 0}}, 3, true};
    EXPECT_EQ(EnvelopeToPoints(e), points);
    EXPECT_EQ(EnvelopeLevelAt(e, 0.25), 0.375f);
    EXPECT_EQ(EnvelopeLevelAt(e, 0.5), 1);
    EXPECT_EQ(EnvelopeLevelAt(e, 9), 0.75f);
    EXPECT_EQ(EnvelopeLevelAt(e, 9, 10), 0.75f);
    EXPECT_EQ(EnvelopeLevelAt(e, 10.5, 10), 0.625f);
    EXPECT_EQ(EnvelopeLevelAt(e, 12, 10), 0.375f);
    EXPECT_EQ(EnvelopeLevelAt(e, 13.5, 10), 0);
    EXPECT_EQ(EnvelopeLevelAt(e, 1, 0.5), 0.875f); // from full level release 1 takes 2 s
    e.releaseMode = ReleaseMode::NoRelease;
    EXPECT_EQ(EnvelopeToPoints(e),
              (EnvelopePoints{{{0, 0.25f}, {0.5, 0.5f}, {0.5, 1}, {2.5, 0.75f}}, 3, false}));
    EXPECT_EQ(EnvelopeLevelAt(e, 13.5, 10), 0.75f);
}

TEST(EnvelopePoints, ComeBackExactly)
{
    Random random(1);
    for (int i = 0; i < 5000; ++i) {
        Envelope e = RandomEnvelope(random);
        if (i % 5 == 0) // bipolar
            e.decay1.level = -e.decay1.level, e.decay2.level = -e.decay2.level;
        if (i % 7 == 0)
            e.releaseMode = ReleaseMode::NoRelease;
        const EnvelopePoints points = EnvelopeToPoints(e);
        ASSERT_LE(points.points.size(), 9u);
        Envelope back;
        ASSERT_LT(EnvelopeFromPoints(points, back), 1e-6f) << i;
        ASSERT_EQ(back.initialLevel, e.initialLevel);
        ASSERT_EQ(back.decay2.level, e.decay2.level);
        const double end = points.points.back().seconds + points.points[points.sustainPoint].seconds + 0.01;
        for (int step = 0; step <= 60; ++step) {
            // Just beside the corners, where a jump may stand.
            const double t = end * step / 60 + 1e-5;
            const double release = points.points[points.sustainPoint].seconds + 0.001;
            ASSERT_NEAR(EnvelopeLevelAt(back, t), EnvelopeLevelAt(e, t), 2e-3) << i << " at " << t;
            ASSERT_NEAR(EnvelopeLevelAt(back, t, release), EnvelopeLevelAt(e, t, release), 2e-3)
                << i << " released, at " << t;
        }
    }
}

TEST(EnvelopePoints, TakeTheStagesOfTheirPart)
{
    struct {
        EnvelopePoints points;
        Envelope expected;
    } const kCases[] = {
        // Attack alone; attack and decay; delay, attack, hold, decay; three decays; a slow rise.
        {{{{0, 0}, {1, 1}}, 1}, {.attack2 = {1, 1}}},
        {{{{0, 0}, {1, 1}, {3, 0.5f}}, 2}, {.attack2 = {1, 1}, .decay2 = {2, 0.5f}}},
        {{{{0, 0}, {1, 0}, {2, 1}, {3, 1}, {5, 0.5f}}, 4},
         {.attack1 = {1, 0}, .attack2 = {1, 1}, .decay1 = {1, 1}, .decay2 = {2, 0.5f}}},
        {{{{0, 1}, {1, 0.5f}, {2, 0.25f}, {4, 0}}, 3},
         {.initialLevel = 1,
          .attack1 = {0, 1},
          .attack2 = {1, 0.5f},
          .decay1 = {1, 0.25f},
          .decay2 = {2, 0}}},
        {{{{0, 0}, {1, 0.5f}, {2, 0.75f}, {4, 1}}, 3},
         {.attack1 = {1, 0.5f}, .attack2 = {1, 0.75f}, .decay1 = {0, 0.75f}, .decay2 = {2, 1}}},
        // Points on the line between others take no stage.
        {{{{0, 0}, {1, 0.25f}, {2, 0.5f}, {3, 0.75f}, {4, 1}, {5, 0.875f}, {6, 0.75f}}, 6},
         {.attack2 = {4, 1}, .decay2 = {2, 0.75f}}},
        // A negative envelope has its peak below.
        {{{{0, 0}, {1, -1}, {3, -0.5f}}, 2},
         {.attack1 = {0, 0}, .attack2 = {1, -1}, .decay1 = {0, -1}, .decay2 = {2, -0.5f}}},
        // A release from 0.5: 2 s for a quarter are a rate of 8.
        {{{{0, 0.5f}, {2, 0.25f}, {3, 0}}, 0},
         {.initialLevel = 0.5f,
          .attack1 = {0, 0.5f},
          .attack2 = {0, 0.5f},
          .decay1 = {0, 0.5f},
          .decay2 = {0, 0.5f},
          .release1Rate = 8,
          .release1Level = 0.25f,
          .release2Seconds = 1}},
        // A list that starts late holds its first level until then; nothing at all is the default.
        {{{{1, 0.5f}, {2, 1}}, 1}, {.initialLevel = 0.5f, .attack1 = {1, 0.5f}, .attack2 = {1, 1}}},
        {{}, {}},
    };
    for (const auto& row : kCases) {
        Envelope out;
        EXPECT_EQ(EnvelopeFromPoints(row.points, out), 0) << &row - kCases;
        EXPECT_EQ(out, row.expected) << &row - kCases;
    }
}

TEST(EnvelopePoints, FlatReleaseIsHeldByALaterStage)
{
    // After the key's release 2 s at the sustain level, then 1 s down: no rate can hold the first part.
    for (const float level : {0.5f, 0.001f, 1.0f, -0.5f}) {
        for (const EnvelopeIndex index : {EnvelopeIndex::Volume, EnvelopeIndex::Pitch}) {
            const float sustain = index == EnvelopeIndex::Volume ? std::abs(level) : level;
            Envelope out;
            EXPECT_LT(EnvelopeFromPoints({{{0, sustain}, {2, sustain}, {3, 0}}, 0}, out), 0.002f);
            EXPECT_EQ(out.release1Rate, 0);
            EXPECT_EQ(out.release2Seconds, 2);
            EXPECT_EQ(out.release3Seconds, 1);
            ArticulationBlock block;
            SetEnvelope(block, out, index);
            GetEnvelope(block, out, index);
            EXPECT_NEAR(EnvelopeToPoints(out).points.back().seconds, 3, 1e-6) << sustain;
        }
    }
    // Nor a fall of a hundredth in 2 s, which would be a rate of 200.
    Envelope out;
    EXPECT_EQ(EnvelopeFromPoints({{{0, 0.5f}, {2, 0.49f}, {3, 0}}, 0}, out), 0);
    EXPECT_EQ(out.release1Level, 0.5f);
    EXPECT_EQ(out.release2Level, 0.49f);
    // Silence behind silence needs no stage.
    EnvelopeFromPoints({{{0, 0.5f}, {1, 0}, {2, 0}}, 0}, out);
    EXPECT_EQ(out.release1Rate, 2);
    EXPECT_EQ(out.release2Level + out.release2Seconds + out.release3Seconds, 0);
}

EnvelopePoints RandomPoints(Random& random, std::size_t count)
{
    EnvelopePoints points;
    double seconds = 0;
    points.sustainPoint = random.Below(count);
    for (std::size_t i = 0; i < count; ++i) {
        if (i == points.sustainPoint + 1)
            seconds = 0;
        // Times that floats add exactly, so that jumps stay where they are.
        seconds += i == 0 ? 0 : std::round(random.Seconds() * 1024) / 1024;
        points.points.push_back({seconds, random.Level()});
    }
    return points;
}

/// Level of the list's held part, on straight lines.
double HeldLevelOf(const EnvelopePoints& points, double seconds)
{
    for (std::size_t i = 1; i <= points.sustainPoint; ++i) {
        const EnvelopePoint &from = points.points[i - 1], &to = points.points[i];
        if (seconds < to.seconds)
            return from.level +
                   (seconds - from.seconds) / (to.seconds - from.seconds) * (to.level - from.level);
    }
    return points.points[points.sustainPoint].level;
}

double SquaredError(const EnvelopePoints& points, const Envelope& e)
{
    constexpr int kSteps = 400;
    const double end = points.points[points.sustainPoint].seconds;
    double sum = 0;
    for (int i = 0; i < kSteps; ++i) {
        const double t = (i + 0.5) / kSteps * end;
        sum += std::pow(EnvelopeLevelAt(e, t) - HeldLevelOf(points, t), 2) / kSteps;
    }
    return sum;
}

TEST(EnvelopePoints, LongListsAreFittedWell)
{
    // A round swell and decay, as drawn: 31 points.
    EnvelopePoints swell;
    for (int i = 0; i <= 30; ++i) {
        const double x = i / 30.0;
        swell.points.push_back(
            {x * 4, static_cast<float>(x < 0.25 ? std::sin(x * 6.2832) : std::exp(-4 * (x - 0.25)))});
    }
    swell.sustainPoint = 30;
    Envelope e;
    const float largest = EnvelopeFromPoints(swell, e);
    EXPECT_LT(std::sqrt(SquaredError(swell, e)), 0.041);
    EXPECT_LT(largest, 0.106f);

    Random random(2);
    constexpr int kCount = 2000;
    double squared = 0, worstOff = 0;
    for (int i = 0; i < kCount; ++i) {
        const EnvelopePoints points = RandomPoints(random, 2 + random.Below(31));
        const float reported = EnvelopeFromPoints(points, e);
        squared += SquaredError(points, e) / kCount;
        // The sustain level and both total times are kept.
        ASSERT_EQ(e.decay2.level, points.points[points.sustainPoint].level);
        const EnvelopePoints back = EnvelopeToPoints(e);
        ASSERT_NEAR(back.points[back.sustainPoint].seconds, points.points[points.sustainPoint].seconds, 1e-4);
        if (points.sustainPoint + 1 < points.points.size() && points.points.back().level == 0 &&
            points.points[points.points.size() - 2].level != 0) {
            ASSERT_NEAR(back.points.back().seconds, points.points.back().seconds, 2e-3) << i;
        }
        // The reported distance is that of the points (those at jumps may lie within the jump).
        for (std::size_t p = 0; p <= points.sustainPoint; ++p) {
            const double t = points.points[p].seconds, level = points.points[p].level;
            if (p > 0 && p < points.sustainPoint &&
                points.points[p - 1].seconds == points.points[p + 1].seconds)
                continue; // inside a jump
            const double before = EnvelopeLevelAt(e, t - 1e-7) - level,
                         after = EnvelopeLevelAt(e, t + 1e-7) - level;
            const double off = before * after <= 0 ? 0 : std::min(std::abs(before), std::abs(after));
            worstOff = std::max(worstOff, off - reported);
        }
    }
    EXPECT_LT(std::sqrt(squared), 0.098); // of lists with levels all at random
    EXPECT_LT(worstOff, 2e-3);
}

TEST(EnvelopePoints, HostileListsAreRepaired)
{
    const double kInfinity = std::numeric_limits<double>::infinity();
    const double kTimes[] = {0, -1, 1, 1e-300, 1e300, kInfinity, -kInfinity, std::nan(""), 0.5, 50};
    const float kLevels[] = {
        0, 1, -1, 2, -2, 1e30f, std::nanf(""), -std::numeric_limits<float>::infinity(), 0.5f, 1e-38f};
    Random random(3);
    for (int i = 0; i < 3000; ++i) {
        EnvelopePoints points;
        for (std::size_t count = random.Below(90); count > 0; --count)
            points.points.push_back(
                {kTimes[random.Below(std::size(kTimes))], kLevels[random.Below(std::size(kLevels))]});
        points.sustainPoint = random.Below(4) == 0 ? ~std::size_t{0} : random.Below(100);
        points.hasSustain = i % 3 != 0;
        Envelope e;
        const float largest = EnvelopeFromPoints(points, e);
        ASSERT_TRUE(largest >= 0 && largest <= 2.01f) << i;
        VisitLevels(e, [&](float level) { ASSERT_TRUE(level >= -1 && level <= 1) << i; });
        for (const float time : {e.attack1.seconds, e.attack2.seconds, e.decay1.seconds, e.decay2.seconds,
                                 e.release2Seconds, e.release3Seconds})
            ASSERT_TRUE(time >= 0 && time <= 1e4f) << i;
        ASSERT_TRUE(e.release1Rate >= 0 && e.release1Rate <= 100.1f) << i;
    }
    // Times that go back stand still: the level jumps.
    Envelope e;
    EnvelopeFromPoints({{{0, 0}, {2, 1}, {1, 0.5f}, {3, 0.25f}}, 3}, e);
    EXPECT_EQ(EnvelopeToPoints(e).points[2], (EnvelopePoint{2, 0.5f}));
    // 100,000 points with one spike: the spike survives.
    EnvelopePoints many;
    for (int i = 0; i < 100000; ++i)
        many.points.push_back({i * 1e-3, i == 70000 ? 1.0f : 0.25f});
    many.sustainPoint = many.points.size() - 1;
    EXPECT_LT(EnvelopeFromPoints(many, e), 1e-3f);
    EXPECT_NEAR(EnvelopeLevelAt(e, 70.0), 1, 0.01); // 1 ms wide
}

} // namespace
} // namespace vimbo
