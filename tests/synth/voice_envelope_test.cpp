// Envelopes: times, levels and the laws of their segments, measured tick by tick.
#include "synth/voice_envelope.h"

#include "voice_builders.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>

namespace vimbo::synth {
namespace {

/// One envelope on its own.
class Rig {
public:
    Rig(EnvelopeIndex index, std::initializer_list<std::pair<ParamId, float>> values, float velocity = 0,
        float octaves = 0, bool isReleaseTrigger = false)
        : setting{params, index, isReleaseTrigger, velocity, octaves, static_cast<float>(kTicks)}
    {
        const auto defaults = DefaultParams();
        std::copy_n(defaults.begin() + EnvelopeBase(index), kEnvelopeParams, params.begin());
        for (const auto& [offset, value] : values)
            params[offset] = value;
        envelope.Start(setting);
    }
    float Tick() { return envelope.Tick(setting); }
    float After(double seconds)
    {
        float value = envelope.Value();
        for (int n = 0; n < static_cast<int>(std::lround(seconds * kTicks)); ++n)
            value = Tick();
        return value;
    }
    /// Ticks until the envelope is over; -1 if it takes longer than `most`.
    int TicksToEnd(int most = 100000)
    {
        for (int n = 0; n < most; ++n) {
            if (envelope.IsFinished())
                return n;
            Tick();
        }
        return -1;
    }

    std::array<float, kEnvelopeParams> params{};
    EnvelopeSetting setting;
    VoiceEnvelope envelope;
};

struct Point {
    double seconds, level;
};

/// A polygon's value.
double At(std::span<const Point> points, double seconds)
{
    for (std::size_t i = 1; i < points.size(); ++i)
        if (seconds < points[i].seconds) {
            const double part =
                (seconds - points[i - 1].seconds) / (points[i].seconds - points[i - 1].seconds);
            return points[i - 1].level + part * (points[i].level - points[i - 1].level);
        }
    return points.back().level;
}

/// The value of each tick lies between those of the polygon one tick to each side.
void ExpectPolygon(Rig& rig, std::span<const Point> points, double seconds)
{
    for (int n = 1; n <= seconds * kTicks; ++n) {
        const double value = rig.Tick();
        const double a = At(points, (n - 1.01) / kTicks), b = At(points, n / kTicks),
                     c = At(points, (n + 1.01) / kTicks);
        ASSERT_GE(value, std::min({a, b, c}) - 1e-6) << n;
        ASSERT_LE(value, std::max({a, b, c}) + 1e-6) << n;
    }
}

constexpr std::initializer_list<std::pair<ParamId, float>> kAllStages{
    {kEnvInitialLevel, -0.25f}, {kEnvAttack1Time, 0.1f},    {kEnvAttack1Level, 0.5f},
    {kEnvAttack2Time, 0.2f},    {kEnvAttack2Level, 1},      {kEnvDecay1Time, 0.15f},
    {kEnvDecay1Level, 0.75f},   {kEnvDecay2Time, 0.3f},     {kEnvSustain, 0.3f},
    {kEnvRelease1Rate, 0.5f},   {kEnvRelease1Level, -0.5f}, {kEnvRelease2Time, 0.12f},
    {kEnvRelease2Level, 0.25f}, {kEnvRelease3Time, 0.08f},  {kEnvRelease3Level, -1},
};

TEST(VoiceEnvelope, PlainLevelsFollowTheirTimes)
{
    Rig rig(EnvelopeIndex::Pitch, kAllStages);
    const Point rise[] = {{0, -0.25}, {0.1, 0.5}, {0.3, 1}, {0.45, 0.75}, {0.75, 0.3}};
    ExpectPolygon(rig, rise, 2);
    rig.envelope.Release(rig.setting);
    // Release 1 takes 0.5 s for a difference of 1, and goes over 0.8.
    const Point fall[] = {{0, 0.3}, {0.4, -0.5}, {0.52, 0.25}, {0.6, -1}};
    ExpectPolygon(rig, fall, 0.7);
    EXPECT_TRUE(rig.envelope.IsFinished());
    EXPECT_EQ(rig.envelope.Value(), -1) << "all eight stages are built: nothing leads on to 0";
}

TEST(VoiceEnvelope, VelocityAndKeyStretchTimes)
{
    // velocity 4: at full velocity 4^(1/2) = 2 times as long; key 2: an octave up doubles.
    Rig rig(EnvelopeIndex::Filter,
            {{kEnvAttack2Time, 0.1f},
             {kEnvVelToAttack2, 4},
             {kEnvKeyToAttack2, 2},
             {kEnvDecay1Time, 0.1f},
             {kEnvDecay1Level, 0.5f},
             {kEnvVelToDecay1, 0.25f},
             {kEnvSustain, 0.5f},
             {kEnvRelease1Rate, 0.2f},
             {kEnvVelToRelease, 16},
             {kEnvKeyToRelease, 0.5f}},
            1, 2);
    const Point rise[] = {{0, 0}, {0.1 * 2 * 4, 1}, {0.8 + 0.1 / 2, 0.5}};
    ExpectPolygon(rig, rise, 1);
    rig.envelope.Release(rig.setting);
    const Point fall[] = {{0, 0.5}, {0.5 * 0.2 * 4 / 4, 0}};
    ExpectPolygon(rig, fall, 0.2);
    EXPECT_TRUE(rig.envelope.IsFinished());

    Rig soft(EnvelopeIndex::Filter, {{kEnvAttack2Time, 0.1f}, {kEnvVelToAttack2, 4}, {kEnvKeyToAttack2, 2}},
             -1, -1);
    const Point slow[] = {{0, 0}, {0.1 / 2 / 2, 1}};
    ExpectPolygon(soft, slow, 0.1);
}

TEST(VoiceEnvelope, VolumeRisesInAmplitudeAndFallsInDecibels)
{
    Rig rig(EnvelopeIndex::Volume, {{kEnvAttack2Time, 0.5f},
                                    {kEnvDecay1Time, 0.25f},
                                    {kEnvDecay1Level, 0.75f},
                                    {kEnvSustain, 0.5f},
                                    {kEnvDecay2Time, 0.5f},
                                    {kEnvRelease1Rate, 1}});
    const auto db = [&rig](double seconds) { return (rig.After(seconds) - 1) * 96.0; };
    EXPECT_NEAR(std::pow(10, db(0.1) / 20), 0.2, 0.003);
    EXPECT_NEAR(std::pow(10, db(0.3) / 20), 0.8, 0.003);
    EXPECT_NEAR(db(0.1), 0, 0.02);
    EXPECT_NEAR(db(0.125), -12, 0.2);
    EXPECT_NEAR(db(0.125), -24, 0.2);
    EXPECT_NEAR(db(0.25), -36, 0.2);
    EXPECT_NEAR(db(0.25), -48, 0.2);
    EXPECT_NEAR(db(100), -48, 1e-3) << "held";
    rig.envelope.Release(rig.setting); // one second for 96 dB
    EXPECT_NEAR(db(0.25), -72, 0.2);
    EXPECT_NEAR(rig.TicksToEnd(), 0.25 * kTicks, 1.5);
}

TEST(VoiceEnvelope, ReleaseStartsFromWhereverTheAttackIs)
{
    Rig rig(EnvelopeIndex::Volume, {{kEnvAttack2Time, 1}, {kEnvRelease1Rate, 1}});
    const float half = rig.After(0.5); // gain 0.5
    EXPECT_NEAR((half - 1) * 96, -6.02, 0.03);
    rig.envelope.Release(rig.setting);
    EXPECT_NEAR((rig.Tick() - 1) * 96, -6.02 - 96 / kTicks, 0.03);
    EXPECT_NEAR(rig.TicksToEnd(), half * kTicks, 2);
}

TEST(VoiceEnvelope, VolumeNeverClicks)
{
    Rig rig(EnvelopeIndex::Volume, {});
    EXPECT_EQ(rig.envelope.Value(), 0);
    EXPECT_EQ(rig.Tick(), 1) << "one tick, the least that 0.001 s make";
    rig.envelope.Release(rig.setting);
    EXPECT_NEAR(rig.Tick(), 0.5, 1e-6) << "0.002 s: two ticks";
    EXPECT_NEAR(rig.Tick(), 0, 1e-6);
    rig.Tick();
    EXPECT_TRUE(rig.envelope.IsFinished());

    // The first level above silence is what is softened.
    Rig delayed(EnvelopeIndex::Volume, {{kEnvAttack1Time, 0.1f},
                                        {kEnvAttack1Level, 0},
                                        {kEnvAttack2Level, 0},
                                        {kEnvDecay1Level, 0.5f},
                                        {kEnvSustain, 0.5f}});
    EXPECT_EQ(delayed.After(0.1), 0);
    EXPECT_NEAR(delayed.Tick(), 0.5, 1e-6);
    Rig started(EnvelopeIndex::Volume, {{kEnvInitialLevel, 0.25f}});
    EXPECT_EQ(started.envelope.Value(), 1) << "not from silence: no ramp";
    Rig plain(EnvelopeIndex::Pitch, {});
    EXPECT_EQ(plain.envelope.Value(), 1);
}

TEST(VoiceEnvelope, OneShotsAndReleaseTriggersIgnoreTheKey)
{
    for (const bool isTrigger : {false, true}) {
        Rig rig(EnvelopeIndex::Volume,
                {{kEnvReleaseMode, isTrigger ? 0.0f : 1.0f}, {kEnvSustain, 0.5f}, {kEnvDecay2Time, 1}}, 0, 0,
                isTrigger);
        rig.After(0.5);
        rig.envelope.Release(rig.setting);
        EXPECT_NEAR(rig.After(1), 0.5, 1e-6);
        EXPECT_EQ(rig.TicksToEnd(), -1);
    }
    // To silence: nothing to hold.
    Rig gone(EnvelopeIndex::Volume, {{kEnvReleaseMode, 1}, {kEnvSustain, 0}, {kEnvDecay2Time, 1}});
    EXPECT_NEAR(gone.TicksToEnd(), kTicks + 1, 2);
}

TEST(VoiceEnvelope, ShutdownFadesAtItsRate)
{
    Rig rig(EnvelopeIndex::Volume, {{kEnvSustain, 0.5f}, {kEnvShutdownRate, 0.2f}});
    rig.After(0.1);
    rig.envelope.ShutDown(rig.setting);
    EXPECT_NEAR(rig.After(0.05), 0.25, 0.01) << "0.2 s are for the whole way";
    const VoiceEnvelope before = rig.envelope;
    rig.envelope.ShutDown(rig.setting); // again: it goes on
    EXPECT_EQ(rig.Tick(), VoiceEnvelope(before).Tick(rig.setting));
    EXPECT_NEAR(rig.TicksToEnd(), 0.05 * kTicks, 2);

    // A last stage that falls faster is left alone.
    Rig fast(EnvelopeIndex::Volume, {{kEnvRelease1Level, 0.8f},
                                     {kEnvRelease2Level, 0.5f},
                                     {kEnvRelease2Time, 0.01f},
                                     {kEnvRelease3Time, 0.1f},
                                     {kEnvShutdownRate, 1}});
    fast.After(0.1);
    fast.envelope.Release(fast.setting);
    fast.After(0.05);
    fast.envelope.ShutDown(fast.setting);
    EXPECT_LT(fast.TicksToEnd(), 0.1 * kTicks);

    // From an attack, and out of a last level that would stay for ever.
    Rig rising(EnvelopeIndex::Volume, {{kEnvAttack2Time, 1}, {kEnvShutdownRate, 0.1f}});
    const float level = rising.After(0.25);
    rising.envelope.ShutDown(rising.setting);
    EXPECT_NEAR(rising.TicksToEnd(), level * 0.1 * kTicks, 2);
    Rig stuck(EnvelopeIndex::Volume, {{kEnvAttack1Time, 0.01f},
                                      {kEnvAttack2Time, 0.01f},
                                      {kEnvDecay1Time, 0.01f},
                                      {kEnvDecay2Time, 0.01f},
                                      {kEnvRelease1Rate, 0.01f},
                                      {kEnvRelease1Level, 0.3f},
                                      {kEnvRelease2Level, 0.6f},
                                      {kEnvRelease3Level, 0.5f}});
    stuck.After(0.2);
    stuck.envelope.Release(stuck.setting);
    EXPECT_NEAR(stuck.After(1), 0.5, 1e-6);
    ASSERT_TRUE(stuck.envelope.IsFinished());
    stuck.envelope.ShutDown(stuck.setting);
    EXPECT_NEAR(stuck.After(1), 0, 1e-6);
}

TEST(VoiceEnvelope, EditsActFromTheNextStage)
{
    Rig rig(EnvelopeIndex::Pitch, {{kEnvAttack2Time, 1}, {kEnvSustain, 0.5f}, {kEnvDecay2Time, 1}});
    rig.After(0.5);
    rig.params[kEnvAttack2Time] = 0.1f; // too late
    rig.params[kEnvDecay2Time] = 0.2f;
    rig.envelope.Edit(rig.setting);
    EXPECT_NEAR(rig.After(0.25), 0.75, 0.01);
    EXPECT_NEAR(rig.After(0.25 + 0.1), 0.75, 0.01) << "half the new decay";
    rig.After(1);
    rig.params[kEnvSustain] = 0.25f;
    rig.envelope.Edit(rig.setting);
    EXPECT_EQ(rig.Tick(), 0.25f);
}

TEST(VoiceEnvelope, AnyValuesGiveBoundedLevels)
{
    std::mt19937 random(7);
    constexpr float kInf = std::numeric_limits<float>::infinity();
    const float odd[] = {0, 1, -1, 0.5f, 1e-30f, 1e30f, -1e30f, kInf, -kInf, std::nanf(""), 0.001f, 64};
    for (int round = 0; round < 3000; ++round) {
        Rig rig(round % 2 != 0 ? EnvelopeIndex::Volume : EnvelopeIndex::X, {});
        for (float& value : rig.params)
            if (random() % 3 == 0)
                value = odd[random() % std::size(odd)];
        rig.envelope.Start(rig.setting);
        for (int n = 0; n < 40; ++n) {
            const float value = rig.Tick();
            ASSERT_TRUE(value >= -1.0001f && value <= 1.0001f) << round << ' ' << value;
            if (n == 20)
                round % 3 != 0 ? rig.envelope.Release(rig.setting) : rig.envelope.ShutDown(rig.setting);
        }
    }
}

} // namespace
} // namespace vimbo::synth
