#include "model/envelope.h"

#include "envelope_random.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

namespace vimbo {
namespace {

constexpr float kInfinity = std::numeric_limits<float>::infinity();

TEST(Envelope, ViewsReadAndWriteTheNumberedValues)
{
    ArticulationBlock block;
    Envelope e;
    // Every field a value of its own, by id; 26 is the shutdown rate.
    for (ParamId offset = 0; offset < kEnvelopeParams; ++offset)
        if (offset != kEnvReleaseMode)
            block.Set(static_cast<ParamId>(kArtEnvelopes + offset),
                      0.3f + 0.01f * static_cast<float>(offset));
    block.Set(106, 1);
    GetEnvelope(block, e, EnvelopeIndex::Volume);
    const Envelope expected{.initialLevel = 0.3f,
                            .attack1 = {0.31f, 0.34f, 0.32f, 0.33f},
                            .attack2 = {0.35f, 0.38f, 0.36f, 0.37f},
                            .decay1 = {0.39f, 0.42f, 0.4f, 0.41f},
                            .decay2 = {0.43f, 0.46f, 0.44f, 0.45f},
                            .release1Rate = 0.47f,
                            .release1Level = 0.48f,
                            .release2Seconds = 0.49f,
                            .release2Level = 0.5f,
                            .release3Seconds = 0.51f,
                            .release3Level = 0.52f,
                            .releaseVelocity = 0.53f,
                            .releaseKey = 0.54f,
                            .releaseMode = ReleaseMode::NoRelease,
                            .shutdownRate = 0.56f};
    EXPECT_TRUE(SameEnvelopeForm(e, expected));
    EXPECT_NEAR(e.shutdownRate, 0.56f, 1e-6);
    EXPECT_NEAR(e.decay2.level, 0.46f, 1e-6);

    for (const EnvelopeIndex index :
         {EnvelopeIndex::Volume, EnvelopeIndex::Pitch, EnvelopeIndex::Filter, EnvelopeIndex::X}) {
        ArticulationBlock other;
        SetEnvelope(other, e, index);
        Envelope back;
        GetEnvelope(other, back, index);
        EXPECT_EQ(back.shutdownRate, index == EnvelopeIndex::Volume ? e.shutdownRate : 0.015f);
        back.shutdownRate = e.shutdownRate;
        EXPECT_EQ(back, e);
        for (ParamId id = 0; id < kArtPLfoToPitch; ++id)
            EXPECT_FALSE(other.IsSet(id));
        for (ParamId offset = 0; offset < kEnvShutdownRate; ++offset)
            EXPECT_TRUE(other.IsSet(static_cast<ParamId>(EnvelopeBase(index) + offset)));
        for (const EnvelopeIndex unmarked : {EnvelopeIndex::Pitch, EnvelopeIndex::Filter, EnvelopeIndex::X})
            EXPECT_FALSE(other.IsSet(static_cast<ParamId>(EnvelopeBase(unmarked) + kEnvShutdownRate)));
    }
}

TEST(Envelope, SixStagesBecomeTheTableAndComeBack)
{
    const DahdsrEnvelope d{.delay = 0.1f,
                           .attack = 0.2f,
                           .hold = 0.3f,
                           .decay = 4,
                           .sustain = 0.75f,
                           .release = 2,
                           .velocityToDelay = 1.1f,
                           .velocityToAttack = 1.2f,
                           .velocityToHold = 1.3f,
                           .velocityToDecay = 1.4f,
                           .velocityToRelease = 1.5f,
                           .keyToDelay = 0.5f,
                           .keyToAttack = 0.6f,
                           .keyToHold = 0.7f,
                           .keyToDecay = 0.8f,
                           .keyToRelease = 0.9f,
                           .releaseMode = ReleaseMode::NoRelease};
    const Envelope e = FromDahdsr(d);
    EXPECT_EQ(e, (Envelope{.initialLevel = 0,
                           .attack1 = {0.1f, 0, 1.1f, 0.5f},
                           .attack2 = {0.2f, 1, 1.2f, 0.6f},
                           .decay1 = {0.3f, 1, 1.3f, 0.7f},
                           .decay2 = {1, 0.75f, 1.4f, 0.8f},
                           .release1Rate = 2,
                           .releaseVelocity = 1.5f,
                           .releaseKey = 0.9f,
                           .releaseMode = ReleaseMode::NoRelease,
                           .shutdownRate = 0.015f}));

    Random random(1);
    for (int i = 0; i < 5000; ++i) {
        const bool isVolume = i % 2 != 0;
        DahdsrEnvelope in = RandomDahdsr(random);
        const Envelope full = FromDahdsr(in);
        Envelope reduced = full;
        ReduceToSixStages(reduced, isVolume);
        ASSERT_EQ(reduced, full) << i;
        DahdsrEnvelope out = ToDahdsr(full, isVolume);
        const float way = 1 - in.sustain;
        EXPECT_NEAR(out.decay, way > 0 ? in.decay : 0, 1e-5 * in.decay) << i;
        out.decay = in.decay;
        ASSERT_EQ(out, in) << i;
    }
}

/// The level as the ear has it: volume in gain, other envelopes as they are. Written apart from the forms.
double HeardLevel(const Envelope& e, double seconds, bool isVolume)
{
    const auto heard = [&](double level) {
        return !isVolume ? level : level > 0 ? std::pow(10.0, 4.8 * (level - 1)) : 0;
    };
    double level = e.initialLevel;
    int number = 0;
    for (const EnvelopeStage* stage : {&e.attack1, &e.attack2, &e.decay1, &e.decay2}) {
        if (seconds < stage->seconds) {
            const double part = seconds / stage->seconds;
            if (number < 2)
                return heard(level) + part * (heard(stage->level) - heard(level));
            return heard(level + part * (stage->level - level));
        }
        seconds -= stage->seconds;
        level = stage->level;
        ++number;
    }
    return heard(level);
}

double HeldSeconds(const Envelope& e)
{
    return double{e.attack1.seconds} + e.attack2.seconds + e.decay1.seconds + e.decay2.seconds;
}

double ReleaseSecondsOf(const Envelope& e)
{
    const auto points = EnvelopeToPoints(e);
    return points.sustainPoint + 1 < points.points.size() ? points.points.back().seconds : 0;
}

struct Errors {
    double level = 0, seconds = 0; ///< mean over time and envelopes; of the held time, relative
    void Add(const Envelope& full, const Envelope& small, bool isVolume, int count)
    {
        constexpr int kSteps = 200;
        const double span = std::max(HeldSeconds(full), 1e-3);
        for (int i = 0; i < kSteps; ++i) {
            const double t = (i + 0.5) / kSteps * span;
            level +=
                std::abs(HeardLevel(full, t, isVolume) - HeardLevel(small, t, isVolume)) / kSteps / count;
        }
        seconds += std::abs(HeldSeconds(full) - HeldSeconds(small)) / span / count;
    }
};

TEST(Envelope, SmallerFormsKeepLevelsAndTimes)
{
    struct {
        const char* what;
        void (*reduce)(Envelope&, bool);
        double bound[2][2]; ///< modulation, volume; level, seconds; a little above what was measured
    } const kForms[] = {
        {"six stages", ReduceToSixStages, {{0.106, 0.094}, {0.107, 0.086}}},
        {"without delay", ReduceToAhdsr, {{0.145, 0.094}, {0.237, 0.086}}},
        {"four", [](Envelope& e, bool v) { e = FromDahdsr(ToAdsr(e, v)); }, {{0.187, 0.215}, {0.29, 0.182}}}};
    for (const auto& form : kForms) {
        for (const bool isVolume : {false, true}) {
            Random random(2);
            Errors errors;
            constexpr int kCount = 3000;
            for (int i = 0; i < kCount; ++i) {
                Envelope full = RandomEnvelope(random);
                // The form always rises to full level: nothing else is asked of it.
                (i % 2 != 0 ? full.attack2 : full.decay1).level = 1;
                Envelope small = full;
                form.reduce(small, isVolume);
                ASSERT_EQ(small.decay2.level, full.decay2.level);
                if (full.decay2.level > 0) {
                    ASSERT_NEAR(ReleaseSecondsOf(small), ReleaseSecondsOf(full),
                                1e-5 + 1e-5 * ReleaseSecondsOf(full));
                }
                errors.Add(full, small, isVolume, kCount);
            }
            EXPECT_LT(errors.level, form.bound[isVolume][0]) << form.what << isVolume;
            EXPECT_LT(errors.seconds, form.bound[isVolume][1]) << form.what << isVolume;
        }
    }
}

TEST(Envelope, SmallerFormsOfKnownEnvelopes)
{
    // Fast to a quarter, then slowly a little further: the fast part is what is heard.
    Envelope piano;
    piano.decay1 = {0.1f, 0.3f};
    piano.decay2 = {5, 0.25f};
    DahdsrEnvelope d = ToDahdsr(piano, true);
    EXPECT_EQ(d.delay + d.attack, 0);
    EXPECT_LT((1 - d.sustain) * d.decay, 0.5f);
    // A peak that decay 1 reaches ends the attack.
    Envelope late;
    late.attack1 = {0.5f, 0};
    late.attack2 = {1, 0.5f};
    late.decay1 = {1, 1};
    late.decay2 = {2, 0.5f};
    d = ToDahdsr(late, false);
    EXPECT_EQ(d.delay, 0.5f);
    EXPECT_EQ(d.attack, 2);
    EXPECT_EQ(d.hold, 0);
    EXPECT_EQ(d.decay, 4);
    // Delay 0.5 and attack 1: half level after 1 s, now with an attack of 2 s; the hold gives up 0.5 s.
    const DahdsrEnvelope six{.delay = 0.5f, .attack = 1, .hold = 0.75f, .decay = 2, .sustain = 0.5f};
    d = ToAhdsr(FromDahdsr(six), false);
    EXPECT_EQ(d.delay, 0);
    EXPECT_EQ(d.attack, 2);
    EXPECT_EQ(d.hold, 0.25f);
    EXPECT_EQ(d.decay, 2);
    d = ToAdsr(FromDahdsr(six), false);
    EXPECT_EQ(d.hold, 0);
    EXPECT_EQ(d.decay, 2.5f); // 1.25 s to the half level
    // Silence stays silence.
    Envelope silent;
    for (EnvelopeStage* stage : {&silent.attack1, &silent.attack2, &silent.decay1, &silent.decay2})
        *stage = {1, 0};
    EXPECT_EQ(ToDahdsr(silent, true), (DahdsrEnvelope{.sustain = 0}));
}

TEST(Envelope, FoldingKeepsTheTimeToSilence)
{
    Envelope e;
    e.decay2.level = 0.8f;
    e.release1Rate = 2; // 0.3 of level: 0.6 s
    e.release1Level = 0.5f;
    e.release2Seconds = 3;
    e.release2Level = 0.2f;
    e.release3Seconds = 1;
    FoldReleases(e);
    EXPECT_NEAR(e.release1Rate * 0.8f, 4.6f, 1e-5);
    EXPECT_EQ(e.release1Level + e.release2Level + e.release3Level + e.release2Seconds + e.release3Seconds, 0);

    Random random(3);
    for (int i = 0; i < 2000; ++i) {
        Envelope full = RandomEnvelope(random), folded = full;
        FoldReleases(folded);
        if (full.decay2.level > 0) {
            EXPECT_NEAR(ReleaseSecondsOf(folded), ReleaseSecondsOf(full), 1e-4) << i;
        }
        Envelope twice = folded;
        FoldReleases(twice);
        EXPECT_EQ(twice, folded);
        full.release2Level = full.release3Level = full.release1Level;
        const Envelope before = full;
        FoldReleases(full);
        EXPECT_EQ(full, before);
    }
}

TEST(Envelope, LevelsAreInvertedAndNormalized)
{
    Envelope e;
    e.initialLevel = 0.25f;
    e.attack1.level = -0.5f;
    InvertLevels(e);
    EXPECT_EQ(e.initialLevel, 0.75f);
    EXPECT_EQ(e.attack1.level, 1.5f);
    EXPECT_EQ(e.decay2.level, 0);
    EXPECT_EQ(e.release3Level, 1);

    const auto levels = [](float initial, float peak, float sustain, float release) {
        Envelope out;
        out.initialLevel = initial;
        out.attack2.level = out.decay1.level = peak;
        out.decay2.level = sustain;
        out.release1Rate = 4;
        out.release1Level = out.release2Level = out.release3Level = release;
        return out;
    };
    const EnvelopeDepths depths{1, 2, 3, 4, 0.5f}, negated{-1, -2, -3, -4, -0.5f};
    struct {
        Envelope in, out;
        bool isNegated;
    } kCases[] = {
        {levels(0, 1, 0.5f, 0), levels(0, 1, 0.5f, 0), false},
        {levels(0, -1, -0.5f, 0), levels(0, 1, 0.5f, 0), true},
        {levels(-0.25f, -0.5f, -0.5f, -1), levels(0.25f, 0.5f, 0.5f, 1), true},
        {levels(0.5f, -0.75f, 0.25f, -0.25f), levels(0, 0.75f, 0, 0.25f), true},
        {levels(-0.5f, 0.5f, 0, 0), levels(0, 0.5f, 0, 0), false}, // equal sizes: not negated
        {levels(0, 0, 0, 0), levels(0, 0, 0, 0), false},
    };
    kCases[3].out.release1Rate = 8; // the level goes half as far in the same time
    for (const auto& row : kCases) {
        Envelope out = row.in;
        EnvelopeDepths outDepths = depths;
        NormalizeBipolar(out, outDepths);
        EXPECT_EQ(out, row.out);
        EXPECT_EQ(outDepths, row.isNegated ? negated : depths);
    }

    Envelope half = levels(0, 0.5f, 0.25f, 0);
    EXPECT_EQ(NormalizeToOne(half), 0.5f);
    EXPECT_EQ(half.attack2.level, 1);
    EXPECT_EQ(half.decay2.level, 0.5f);
    EXPECT_EQ(half.release1Rate, 2); // 1 s as before
    Envelope negative = levels(0, -0.5f, -0.25f, 0);
    EXPECT_EQ(NormalizeToOne(negative), -0.5f);
    EXPECT_EQ(negative.decay2.level, 0.5f);
    Envelope none = levels(0, 0, 0, 0), same = none;
    EXPECT_EQ(NormalizeToOne(none), 0);
    EXPECT_EQ(none, same);
}

Envelope Plucked(float decaySeconds)
{
    return FromDahdsr({.decay = decaySeconds, .sustain = 0.25f, .release = 0.5f});
}

TEST(ModEnvelope, MergedEnvelopesAreComposedAgain)
{
    const unsigned all =
        IndexBit(EnvelopeIndex::Pitch) | IndexBit(EnvelopeIndex::Filter) | IndexBit(EnvelopeIndex::X);
    Random random(4);
    for (int i = 0; i < 500; ++i) {
        const auto depth = [&](double limit) {
            return std::round(random.Between(-limit, limit) * 10) / 10.0f;
        };
        ArticulationBlock stored;
        SetEnvelope(stored, RandomEnvelope(random), EnvelopeIndex::Pitch);
        Envelope e;
        GetEnvelope(stored, e, EnvelopeIndex::Pitch);
        const EnvelopeDepths depths{depth(96), depth(96), depth(128), depth(128), depth(1)};
        ArticulationBlock block;
        EXPECT_EQ(MergeEnvelope(block, e, depths), 0u);
        const ModEnvelope out = ComposeModEnv(block, all);
        EXPECT_EQ(out.dropped, 0u);
        EXPECT_EQ(out.depths, depths);
        EXPECT_EQ(out.envelope, e);
    }
    EXPECT_EQ(ComposeModEnv(ArticulationBlock(), all).used, 0u);
}

TEST(ModEnvelope, TheStrongerFormWins)
{
    const unsigned pitch = IndexBit(EnvelopeIndex::Pitch), filter = IndexBit(EnvelopeIndex::Filter);
    ArticulationBlock block;
    EXPECT_EQ(MergeEnvelope(block, Plucked(1), {.pitch = 3, .velocityPitch = -2}), 0u);
    EXPECT_EQ(MergeEnvelope(block, Plucked(1), {.pitch = 1, .cutoff = 24}), 0u);
    EXPECT_EQ(block[kArtPEnvToPitch], 4);
    EXPECT_EQ(MergeEnvelope(block, Plucked(2), {.pitch = 6}), pitch); // 4 and 2 are not less
    EXPECT_EQ(block[kArtPEnvToPitch], 4);
    EXPECT_EQ(MergeEnvelope(block, Plucked(2), {.pitch = -7}), pitch);
    EXPECT_EQ(block[kArtPEnvToPitch], -7);
    EXPECT_EQ(block[kArtVelPEnvToPitch], 0);

    const ModEnvelope out = ComposeModEnv(block, pitch | filter);
    EXPECT_EQ(out.used, pitch);
    EXPECT_EQ(out.dropped, filter);
    EXPECT_EQ(out.depths, (EnvelopeDepths{.pitch = -7}));
    EXPECT_EQ(ComposeModEnv(block, filter).depths, (EnvelopeDepths{.cutoff = 24}));

    ArticulationBlock weak;
    MergeEnvelope(weak, Plucked(2), {.pitch = 1, .pan = 0.5f});
    const ArticulationBlock* const blocks[] = {&weak, &block};
    const ModEnvelope both = ComposeModEnv(blocks, pitch | filter);
    EXPECT_EQ(both.depths, (EnvelopeDepths{.pitch = -7}));
    EXPECT_EQ(both.dropped, filter);
}

TEST(Envelope, EverythingStaysFiniteAndInsideForAnyInput)
{
    const float kTimes[] = {0, 1e-30f, 0.001f, 100, 1e30f, kInfinity, -1, std::nanf("")};
    const float kLevels[] = {0, 1, -1, 0.5f, 1e-6f, 0.9999999f, -kInfinity, kInfinity, std::nanf("")};
    Random random(5);
    const auto pick = [&](const auto& list) { return list[random.Below(std::size(list))]; };
    for (int i = 0; i < 20000; ++i) {
        Envelope e;
        e.initialLevel = pick(kLevels);
        for (EnvelopeStage* stage : {&e.attack1, &e.attack2, &e.decay1, &e.decay2})
            *stage = {pick(kTimes), pick(kLevels)};
        e.release1Rate = pick(kTimes);
        e.release1Level = pick(kLevels);
        e.release2Seconds = pick(kTimes);
        e.release2Level = pick(kLevels);
        e.release3Seconds = pick(kTimes);
        e.release3Level = pick(kLevels);
        const bool isVolume = i % 2 != 0;
        for (const DahdsrEnvelope& d : {ToDahdsr(e, isVolume), ToAhdsr(e, isVolume), ToAdsr(e, isVolume)}) {
            for (const float time : {d.delay, d.attack, d.hold, d.decay, d.release})
                ASSERT_TRUE(time >= 0 && time < kInfinity) << i;
            ASSERT_TRUE(d.sustain >= 0 && d.sustain <= 1) << i;
        }
        Envelope reduced = e;
        ReduceToSixStages(reduced, isVolume);
        Envelope again = reduced;
        ReduceToSixStages(again, isVolume);
        ASSERT_EQ(again.decay2.level, reduced.decay2.level);
        if (HeldSeconds(reduced) < 1e4) { // far longer stages are cut
            ASSERT_NEAR(HeldSeconds(again), HeldSeconds(reduced), 1e-6 * HeldSeconds(reduced));
        }
        VisitLevels(reduced, [&](float level) { ASSERT_TRUE(level >= 0 && level <= 1) << i; });
    }
}

TEST(EnvelopeForms, AMillisecondBesideALongStageStays)
{
    const DahdsrEnvelope six{.delay = 0.127f, .attack = 0.001f, .hold = 0.001f, .decay = 10, .sustain = 0.5f};
    for (const bool isVolume : {false, true}) {
        const DahdsrEnvelope back = ToDahdsr(FromDahdsr(six), isVolume);
        EXPECT_EQ(back.delay, six.delay);
        EXPECT_EQ(back.attack, six.attack);
        EXPECT_EQ(back.hold, six.hold);
        EXPECT_FLOAT_EQ(back.decay, six.decay);
    }
}

TEST(EnvelopeForms, FactorsThatAllStagesShareComeBack)
{
    DahdsrEnvelope six{
        .delay = 0.25f, .attack = 0.5f, .hold = 0.125f, .decay = 8, .sustain = 0.5f, .release = 3};
    six.velocityToDelay = six.velocityToAttack = six.velocityToHold = six.velocityToDecay = 0.5f;
    six.keyToDelay = six.keyToAttack = six.keyToHold = six.keyToDecay = 1.25f;
    six.velocityToRelease = 2;
    six.keyToRelease = 0.75f;
    six.releaseMode = ReleaseMode::NoRelease;
    for (const bool isVolume : {false, true})
        EXPECT_EQ(ToDahdsr(FromDahdsr(six), isVolume), six);
}

} // namespace
} // namespace vimbo
