// Voices that play samples: level, pitch, filter and pan, measured against what the parameters mean.
#include "voice_builders.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>

namespace vimbo::synth {
namespace {

/// Level in dB that a struck voice holds.
double HeldDb(const SynthRegion& region, Strike strike = {})
{
    TestVoice voice(region, strike);
    voice.Run(10);
    return voice.GainDb();
}

TEST(WaveVoice, LevelFollowsVelocity)
{
    for (const float depth : {96.0f, 48.0f, 20.0f, 0.0f, -30.0f, -96.0f})
        for (unsigned velocity = 1; velocity <= 127; ++velocity) {
            SynthRegion region = SineRegion();
            region.params[kArtVelToVolume] = depth;
            region.params[kArtVolume] = -3;
            const double x = depth < 0 ? 1 - velocity / 127.0 : velocity / 127.0;
            const double expected = -3 + std::abs(depth) / 96 * (x > 0.00398107 ? 40 * std::log10(x) : -96);
            const double db = HeldDb(region, {60, velocity});
            if (expected < -96)
                EXPECT_EQ(db, -std::numeric_limits<double>::infinity());
            else
                EXPECT_NEAR(db, expected, 0.01) << depth << ' ' << velocity;
        }
}

TEST(WaveVoice, LevelFollowsKeysControllersAndEnvelope)
{
    SynthRegion region = SineRegion();
    region.params[kArtKeyToVolume] = -6;
    EXPECT_NEAR(HeldDb(region, {84, 127}), -12, 0.01);
    EXPECT_NEAR(HeldDb(region, {54, 127}), 3, 0.01);
    region.params[kArtKeyToVolume] = 0;
    region.params[kArtVolume] = 40;
    EXPECT_NEAR(HeldDb(region), 12, 0.01) << "the limit";
    region.params[kArtVolume] = 0;
    region.params[kArtWheelToVolume] = -20;
    region.params[kArtTouchToVolume] = -8;
    region.params[EnvelopeBase(EnvelopeIndex::Volume) + kEnvSustain] = 0.75f;
    TestVoice voice(region);
    voice.Run(10);
    EXPECT_NEAR(voice.GainDb(), -24, 0.01);
    voice.voice.modWheel = 0.5f;
    voice.voice.aftertouch = 1;
    voice.voice.softPedal = true;
    voice.Run();
    EXPECT_NEAR(voice.GainDb(), -24 - 10 - 8 - 9, 0.01);
}

/// Depths of a square LFO in its first half: fixed + B * velocity + wheel + touch.
TEST(WaveVoice, LfoDepthsAddUp)
{
    SynthRegion region = SineRegion();
    region.params[kArtVelToVolume] = 0;
    region.params[kArtVLfoToVolume] = -3;
    region.params[kArtWheelVLfoToVolume] = -4;
    region.params[kArtTouchVLfoToVolume] = -5;
    region.params[kArtVelVLfoToVolume] = -6;
    region.params[LfoBase(LfoIndex::Volume) + kLfoShape] = 2;
    region.params[LfoBase(LfoIndex::Volume) + kLfoFrequency] = 0.5f;
    EXPECT_NEAR(HeldDb(region, {60, 127}), -9, 0.01);
    EXPECT_NEAR(HeldDb(region, {60, 1}), 3, 0.01);
    TestVoice voice(region, {60, 64});
    voice.voice.modWheel = 1;
    voice.voice.aftertouch = 0.5f;
    voice.Run(10);
    EXPECT_NEAR(voice.GainDb(), -3 - 4 - 2.5, 0.01);
    // Velocity alone makes an LFO run, too.
    region.params[kArtVLfoToVolume] = region.params[kArtWheelVLfoToVolume] =
        region.params[kArtTouchVLfoToVolume] = 0;
    EXPECT_NEAR(HeldDb(region, {60, 127}), -6, 0.01);
    region.params[LfoBase(LfoIndex::Volume) + kLfoFrequency] = 0;
    EXPECT_NEAR(HeldDb(region, {60, 127}), 0, 0.01);
}

/// Cents above 1000 Hz, from the first to the last upward zero crossing.
double MeasureCents(TestVoice& voice, unsigned ticks)
{
    double first = -1, last = -1;
    int periods = -1;
    float before = 0;
    for (unsigned tick = 0; tick < ticks; ++tick) {
        const auto block = voice.Run();
        for (std::size_t i = 0; i < block.size(); ++i) {
            if (before < 0 && block[i] >= 0) {
                last = tick * 64.0 + static_cast<double>(i) - block[i] / (block[i] - before);
                first = first < 0 ? last : first;
                ++periods;
            }
            before = block[i];
        }
    }
    return 1200 * std::log2(48.0 * periods / (last - first));
}

TEST(WaveVoice, PitchIsExact)
{
    const ParamId pitchLfo = LfoBase(LfoIndex::Pitch), extraLfo = LfoBase(LfoIndex::X);
    struct Row {
        const char* name;
        std::vector<std::pair<ParamId, float>> params;
        Strike strike;
        void (*set)(Voice&);
        double cents;
    };
    const Row rows[] = {
        {"root", {}, {60, 100}, nullptr, 0},
        {"key", {}, {67, 100}, nullptr, 700},
        {"low key", {}, {21, 100}, nullptr, -3900},
        {"quarter tones", {{kArtKeyToPitch, 0.5f}}, {71, 100}, nullptr, 550},
        {"tuning", {{kArtTuning, -7.31f}}, {60, 100}, nullptr, -731},
        {"channel", {}, {60, 100}, [](Voice& v) { v.tuningOffset = 0.37f; }, 37},
        {"bend, region's range",
         {{kArtBendToPitch, 3}},
         {60, 100},
         [](Voice& v) { v.pitchBend = -0.5f; },
         -150},
        {"bend, channel's range", {}, {60, 100}, [](Voice& v) { v.pitchBend = 1, v.bendRange = 12; }, 1200},
        {"bend off",
         {{kArtBendToPitch, 0}},
         {60, 100},
         [](Voice& v) { v.pitchBend = 1, v.bendRange = 12; },
         0},
        {"pitch LFO",
         {{kArtPLfoToPitch, 1},
          {kArtVelPLfoToPitch, 0.5f},
          {kArtWheelPLfoToPitch, 2},
          {kArtTouchPLfoToPitch, 4},
          {pitchLfo, 2},
          {pitchLfo + kLfoFrequency, 0.05f}},
         {60, 127},
         [](Voice& v) { v.modWheel = 0.5f, v.aftertouch = 0.25f; },
         350},
        {"extra LFO",
         {{kArtXLfoToPitch, -1},
          {kArtVelXLfoToPitch, 0.5f},
          {kArtWheelXLfoToPitch, 2},
          {kArtTouchXLfoToPitch, 4},
          {extraLfo, 2},
          {extraLfo + kLfoFrequency, 0.05f}},
         {60, 1},
         [](Voice& v) { v.modWheel = 0.5f, v.aftertouch = 0.25f; },
         50},
        {"envelope", {{kArtPEnvToPitch, 5}, {kArtVelPEnvToPitch, 2}}, {60, 127}, nullptr, 700},
        {"envelope, soft", {{kArtPEnvToPitch, 5}, {kArtVelPEnvToPitch, 2}}, {60, 1}, nullptr, 300},
    };
    for (const Row& row : rows) {
        SynthRegion region = SineRegion();
        for (const auto& [id, value] : row.params)
            region.params[id] = value;
        TestVoice voice(region, row.strike);
        if (row.set)
            row.set(voice.voice);
        EXPECT_NEAR(MeasureCents(voice, 3000), row.cents, 0.05) << row.name;
    }
}

TEST(WaveVoice, SampleRateAndEnvelopeBendThePitchOverTime)
{
    SynthRegion region = SineRegion();
    const auto old = region.wave.sample;
    region.wave.sample =
        MakeSample(old->Frames(), 1, 32000, [&](std::size_t i, std::size_t) { return old->Data()[i]; });
    TestVoice voice(region);
    EXPECT_NEAR(MeasureCents(voice, 2000), 1200 * std::log2(32.0 / 48), 0.05);

    // An envelope that falls by 12 semitones in 2 s: the way is the integral over the rates.
    region = SineRegion();
    region.wave.loopType = LoopType::Off;
    region.wave.sample = SynthSample::Create(200000, 1, 48000);
    region.wave.end = 200000;
    region.params[kArtPEnvToPitch] = 12;
    const ParamId envelope = EnvelopeBase(EnvelopeIndex::Pitch);
    region.params[envelope + kEnvDecay2Time] = 2;
    region.params[envelope + kEnvSustain] = 0;
    region.params[envelope + kEnvInitialLevel] = 1;
    region.params[envelope + kEnvAttack1Level] = 1;
    TestVoice falling(region);
    falling.Run(1500);
    const double way = std::get<WaveVoice>(falling.voice.model).player.Position();
    EXPECT_NEAR(way, 2 * 48000 / std::log(2), 64);
}

TEST(WaveVoice, RandomPitchStaysInItsRange)
{
    SynthRegion region = SineRegion();
    region.params[kArtRandomToPitch] = 1;
    region.params[kArtRandomToPan] = 0.5f;
    double low = 0, high = 0;
    for (unsigned seed = 0; seed < 200; ++seed) {
        TestVoice voice(region);
        voice.voice.random.Seed(seed * 7919);
        InitVoice(voice.voice, kClock, true);
        voice.Run();
        const double semitones = 12 * std::log2(std::get<WaveVoice>(voice.voice.model).rate);
        low = std::min(low, semitones);
        high = std::max(high, semitones);
        EXPECT_LE(std::abs(voice.voice.panModulation), 0.5f);
    }
    EXPECT_GE(low, -1);
    EXPECT_LE(high, 1);
    EXPECT_LT(low, -0.9);
    EXPECT_GT(high, 0.9);
}

TEST(WaveVoice, PanAddsUp)
{
    SynthRegion region = SineRegion();
    region.params[kArtPan] = -0.5f;
    region.params[kArtCc10ToPan] = 0.5f;
    region.params[kArtKeyToPan] = 0.25f;
    TestVoice voice(region, {84, 100});
    voice.Run();
    const auto ratio = [&](float channel) {
        const PanGains gains = VoicePan(voice.voice, channel);
        return std::atan2(gains.right, gains.left) * 4 / std::numbers::pi -
               1; // the pan that makes these gains
    };
    EXPECT_NEAR(ratio(0), 0, 1e-5) << "-0.5 + 2 octaves * 0.25";
    EXPECT_NEAR(ratio(-1), -0.5, 1e-5);
    EXPECT_NEAR(ratio(1), 0.5, 1e-5);
    region.params[kArtXEnvToPan] = -2;
    region.params[kArtXLfoToPan] = 0.25f;
    region.params[LfoBase(LfoIndex::X)] = 2;
    TestVoice moving(region, {60, 100});
    moving.Run();
    EXPECT_NEAR(moving.voice.panModulation, 0.25 - 2, 1e-5);
    EXPECT_EQ(VoicePan(moving.voice, 0).right, 0) << "beyond the left";
}

TEST(WaveVoice, FilterFollowsItsModulation)
{
    SynthRegion region = SineRegion();
    TestVoice open(region);
    open.Run();
    EXPECT_FALSE(open.voice.isFiltered);
    region.params[kArtFilterType] = 4;
    region.params[kArtCutoff] = 200;
    region.params[kArtVelToCutoff] = 1;
    region.params[kArtKeyToCutoff] = 2;
    region.params[kArtWheelToCutoff] = 4;
    region.params[kArtTouchToCutoff] = 8;
    region.params[kArtFEnvToCutoff] = 16;
    region.params[kArtVelFEnvToCutoff] = 32;
    region.params[kArtFLfoToCutoff] = -3;
    region.params[LfoBase(LfoIndex::Filter)] = 2;
    region.params[kArtResonance] = 2;
    region.params[kArtVelToResonance] = 1;
    region.params[kArtWheelToResonance] = 4;
    region.params[kArtTouchToResonance] = -20;
    TestVoice voice(region, {72, 127});
    voice.voice.modWheel = 0.5f;
    voice.Run();
    EXPECT_TRUE(voice.voice.isFiltered);
    EXPECT_EQ(voice.voice.filterKind, VoiceFilterKind::LowPass24);
    const auto expect = [&voice](float semitones, float resonance) {
        const VoiceFilterCoefs& actual = voice.voice.filterCoefs;
        const auto coefs =
            ComputeVoiceFilter(VoiceFilterKind::LowPass24, 200.0f / 48000, semitones, resonance);
        EXPECT_NEAR(actual.last.cross / coefs.last.cross, 1, 1e-5);
        EXPECT_NEAR(actual.last.damping / coefs.last.damping, 1, 1e-5);
    };
    expect(1 + 2 + 2 + 16 + 32 - 3, 2 + 1 + 2);
    voice.voice.aftertouch = 1;
    voice.Run();
    expect(1 + 2 + 2 + 8 + 16 + 32 - 3, 0);
}

TEST(WaveVoice, EqTakesTheBandsWithGain)
{
    SynthRegion region = SineRegion();
    TestVoice flat(region);
    EXPECT_EQ(flat.voice.eqBands, 0);
    region.params[kArtEqGain] = 6;
    region.params[kArtEqGain + 2 * kEqBandParams] = -4;
    region.params[kArtEqMode + 2 * kEqBandParams] = 2;
    TestVoice voice(region);
    ASSERT_EQ(voice.voice.eqBands, 2);
    const auto same = [](const BiquadCoefs& a, const BiquadCoefs& b) {
        return a.b0 == b.b0 && a.b1 == b.b1 && a.b2 == b.b2 && a.a1 == b.a1 && a.a2 == b.a2;
    };
    EXPECT_TRUE(same(voice.voice.eq[0], ComputeBiquad(EqMode::Peak, 120.0f / 48000, 6, 0.71f)));
    EXPECT_TRUE(same(voice.voice.eq[1], ComputeBiquad(EqMode::HighShelf, 5000.0f / 48000, -4, 0.71f)));
}

TEST(WaveVoice, DelayIsSilentAndDiesWithTheKey)
{
    SynthRegion region = SineRegion();
    region.delaySeconds = 0.1f;
    TestVoice voice(region);
    int ticks = 0;
    for (; ticks < 1000; ++ticks) {
        voice.Run();
        if (voice.voice.gainEstimate > 0)
            break;
        ASSERT_EQ(voice.block.left[63], 0);
    }
    EXPECT_EQ(ticks, 75);
    EXPECT_EQ(voice.block.left[1], region.wave.sample->Data()[1]);
    EXPECT_NEAR(voice.GainDb(), 0, 0.01) << "the attack starts with the sound";
    for (const bool isShutdown : {false, true}) {
        TestVoice waiting(region);
        waiting.Run(10);
        isShutdown ? ShutDownVoice(waiting.voice, kClock) : ReleaseVoice(waiting.voice, kClock);
        waiting.Run();
        EXPECT_TRUE(waiting.voice.isDead);
        EXPECT_EQ(waiting.voice.gainEstimate, 0);
    }
}

TEST(WaveVoice, EndsWithItsEnvelopeOrItsSample)
{
    SynthRegion region = SineRegion();
    region.params[EnvelopeBase(EnvelopeIndex::Volume) + kEnvRelease1Rate] = 0.4f;
    TestVoice voice(region);
    voice.Run(5000);
    EXPECT_FALSE(voice.voice.isDead);
    ReleaseVoice(voice.voice, kClock);
    voice.Run(299);
    EXPECT_FALSE(voice.voice.isDead);
    voice.Run(3);
    EXPECT_TRUE(voice.voice.isDead);

    TestVoice shut(region);
    shut.Run(10);
    ShutDownVoice(shut.voice, kClock); // 0.015 s
    shut.Run(10);
    EXPECT_FALSE(shut.voice.isDead);
    shut.Run(3);
    EXPECT_TRUE(shut.voice.isDead);

    region.wave.loopType = LoopType::Off; // 4800 frames
    TestVoice once(region);
    once.Run(74);
    EXPECT_FALSE(once.voice.isDead);
    once.Run();
    EXPECT_TRUE(once.voice.isDead);
    region.params[EnvelopeBase(EnvelopeIndex::Volume) + kEnvReleaseMode] = 1;
    TestVoice oneShot(region);
    ReleaseVoice(oneShot.voice, kClock);
    oneShot.Run(74);
    EXPECT_NEAR(oneShot.GainDb(), 0, 0.01);
}

TEST(WaveVoice, ReleaseTriggersStartReleasedAndPlayOn)
{
    SynthRegion region = SineRegion();
    region.trigger = static_cast<std::uint8_t>(TriggerKind::KeyRelease);
    TestVoice voice(region);
    voice.voice.released = voice.voice.isReleaseTrigger = true;
    voice.Run(10);
    ReleaseVoice(voice.voice, kClock);
    voice.Run(100);
    EXPECT_NEAR(voice.GainDb(), 0, 0.01);
}

TEST(WaveVoice, EditsKeepPhasesAndPosition)
{
    SynthRegion region = SineRegion();
    region.params[kArtPLfoToPitch] = 1;
    region.params[kArtVelToVolume] = 0;
    TestVoice voice(region), untouched(region);
    voice.Run(100);
    untouched.Run(100);
    SynthRegion edited = region;
    edited.params[kArtVolume] = -6;
    edited.params[kArtFilterType] = 2;
    edited.params[kArtPEnvToPitch] = 2; // starts now
    edited.params[kArtEqGain] = 3;
    voice.voice.region = &edited;
    InitVoice(voice.voice, kClock, false);
    const auto& wave = std::get<WaveVoice>(voice.voice.model);
    const auto& same = std::get<WaveVoice>(untouched.voice.model);
    EXPECT_EQ(wave.player.Position(), same.player.Position());
    voice.Run();
    untouched.Run();
    EXPECT_NEAR(wave.rate / same.rate, std::exp2(2 / 12.0), 1e-6) << "LFO as before, envelope on top";
    EXPECT_NEAR(voice.GainDb(), -6, 0.01);
    EXPECT_TRUE(voice.voice.isFiltered);
    EXPECT_EQ(voice.voice.eqBands, 1);
    edited.model = VoiceModel::Fm;
    InitVoice(voice.voice, kClock, false);
    EXPECT_TRUE(voice.voice.isDead) << "another model cannot go on";
}

TEST(WaveVoice, AnyParametersAreSafe)
{
    std::mt19937 random(5);
    constexpr float kInf = std::numeric_limits<float>::infinity();
    const float odd[] = {0,   1,    -1,   1e-30f, 1e30f, -1e30f, kInf, -kInf, std::nanf(""),
                         100, -100, 5000, 2,      12.9f};
    for (int round = 0; round < 3000; ++round) {
        SynthRegion region = SineRegion();
        const auto often = 1 + random() % 60;
        for (float& value : region.params)
            if (random() % often == 0)
                value = odd[random() % std::size(odd)];
        TestVoice voice(region,
                        {static_cast<float>(random() % 128), 1 + static_cast<unsigned>(random() % 127)});
        voice.voice.modWheel = 1;
        voice.voice.pitchBend = -1;
        for (int tick = 0; tick < 12; ++tick) {
            if (tick == 6)
                ReleaseVoice(voice.voice, kClock);
            if (tick == 8)
                InitVoice(voice.voice, kClock, false);
            if (tick == 10)
                ShutDownVoice(voice.voice, kClock);
            for (const float value : voice.Run())
                ASSERT_LE(std::abs(value), 1.5f);
            const PanGains pan = VoicePan(voice.voice, 0.5f);
            ASSERT_TRUE(pan.left >= 0 && pan.left <= 1.0001f && pan.right >= 0 && pan.right <= 1.0001f);
            ASSERT_TRUE(voice.voice.envelopeGain >= 0 && voice.voice.envelopeGain < 4);
            const VoiceFilterCoefs& f = voice.voice.filterCoefs;
            ASSERT_TRUE(std::isfinite(f.last.cross + f.last.damping + f.first.cross + f.poleDecay));
            for (std::size_t band = 0; band < voice.voice.eqBands; ++band)
                ASSERT_TRUE(std::isfinite(voice.voice.eq[band].b0 + voice.voice.eq[band].a2));
        }
    }
}

} // namespace
} // namespace vimbo::synth
