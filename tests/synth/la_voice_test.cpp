// LA voices, measured: waves, filter, ring modulation, waveforms, envelopes, and what damaged patches do.
#include "spectrum.h"
#include "synth/la_voice.h"

#include "dsp/kernels/biquad.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>

namespace vimbo::synth {
namespace {

using Block = std::array<std::byte, 760>;

constexpr float kOpen = 136; ///< cutoff that leaves everything through
constexpr double kKey60Hz = 8.175798 * 32;

/// A synthesized wave at full level until the key goes up.
LaPartial Steady(LaWaveform waveform)
{
    LaPartial partial;
    partial.isEnabled = true;
    partial.waveform = waveform;
    partial.cutoff = kOpen;
    partial.levelEnvelope.startLevel = 1;
    for (std::size_t i = 0; i < kLaHoldPoint; ++i)
        partial.levelEnvelope.point[i].level = 1;
    return partial;
}

/// A key-independent pitch of `hz`.
LaPartial Steady(LaWaveform waveform, double hz)
{
    LaPartial partial = Steady(waveform);
    const double semitones = 12 * std::log2(hz / kKey60Hz);
    partial.keyFollow = 0;
    partial.coarse = static_cast<float>(std::round(semitones));
    partial.fine = static_cast<float>(100 * (semitones - std::round(semitones)));
    return partial;
}

/// A sine of `hz` as a looped waveform: a clean partial for ring modulation.
LaWave SineWave(double hz)
{
    LaWave wave;
    const auto sample = MakeSample(4800, 1, 48000, [=](std::size_t i, std::size_t) {
        return static_cast<float>(std::sin(2 * std::numbers::pi * hz * static_cast<double>(i) / kRate));
    });
    sample->WrapLoop(0, LoopType::Forward);
    wave.sound = {sample, LoopType::Forward, false, 0, 4800, 0, 0, 4800};
    return wave;
}

SynthRegion LaRegion(const LaProgram& program)
{
    SynthRegion region;
    region.model = VoiceModel::La;
    region.params = DefaultParams();
    region.la = std::make_shared<LaProgram>(program);
    return region;
}

SynthRegion OnePartial(const LaPartial& partial)
{
    LaProgram program;
    program.patch.partials[1] = partial;
    return LaRegion(program);
}

std::vector<float> Settled(const SynthRegion& region, unsigned ticks = 750, Strike strike = {})
{
    TestVoice voice(region, strike);
    voice.Run(750);
    return Record(voice, ticks);
}

TEST(LaPatchBlock, HasKnownPlacesAndComesBackExactly)
{
    Block block{};
    const auto put = [&block](std::size_t at, float value) { std::memcpy(&block[at], &value, sizeof value); };
    block[0] = std::byte{2};
    put(8, 12);               // bend range
    block[64] = std::byte{3}; // first LFO: random
    put(68, 5.5f);
    put(112, 800); // first EQ band
    const std::size_t lower = 136 + 280;
    block[lower] = std::byte{1 | 2 | 8};
    block[lower + 1] = std::byte{9};
    block[lower + 13] = std::byte{48};
    put(lower + 16, -12);
    put(lower + 72, 99); // resonance, too high
    const std::optional<LaPatch> patch = LaPatch::Parse(block);
    ASSERT_TRUE(patch);
    EXPECT_EQ(patch->structure, LaStructure::Ring);
    EXPECT_EQ(patch->bendRange, 12);
    EXPECT_EQ(patch->lfos[0].shape, LaLfoShape::Random);
    EXPECT_EQ(patch->lfos[0].hz, 5.5f);
    EXPECT_EQ(patch->eq[0].hz, 800);
    const LaPartial& partial = patch->partials[1];
    EXPECT_TRUE(partial.isEnabled && partial.isPcm && partial.filterIsGentle && !partial.ignoresBend);
    EXPECT_EQ(partial.waveform, LaWaveform::Square);
    EXPECT_EQ(partial.waveSplit[0], 48);
    EXPECT_EQ(partial.coarse, -12);
    EXPECT_EQ(partial.resonance, 30);
    EXPECT_FALSE(LaPatch::Parse(std::span(block).first(696)));

    std::mt19937 random(1);
    for (int run = 0; run < 200; ++run) {
        for (std::byte& byte : block)
            byte = static_cast<std::byte>(random());
        const LaPatch first = *LaPatch::Parse(block);
        Block stored = block;
        ASSERT_TRUE(first.Store(stored));
        EXPECT_EQ(*LaPatch::Parse(stored), first);
        EXPECT_TRUE(std::equal(stored.begin() + 696, stored.end(), block.begin() + 696)) << "wave references";
    }
}

TEST(LaVoice, SawAndSquareHaveTheirSpectra)
{
    for (const float width : {0.0f, 0.5f, 0.75f, 1.0f}) {
        LaPartial partial = Steady(LaWaveform::Square, 250);
        partial.pulseWidth = width;
        // Narrower by 4 octaves per 1 above a half.
        const double share = width <= 0.5f ? 0.5 : 0.5 * std::exp2(-4 * (width - 0.5));
        const std::vector<float> frames = Settled(OnePartial(partial));
        for (int n = 1; n <= 10; ++n) {
            const double expected =
                4 / (std::numbers::pi * n) * std::abs(std::sin(std::numbers::pi * n * share));
            const double measured = AmplitudeAt(frames, 250.0 * n);
            if (expected > 0.01)
                EXPECT_NEAR(Decibels(measured), Decibels(expected), 0.2) << width << ' ' << n;
            else
                EXPECT_LT(measured, 0.003) << width << ' ' << n;
        }
    }
    const std::vector<float> saw = Settled(OnePartial(Steady(LaWaveform::Saw, 250)));
    for (int n = 1; n <= 10; ++n)
        EXPECT_NEAR(Decibels(AmplitudeAt(saw, 250.0 * n)), Decibels(2 / (std::numbers::pi * n)), 0.2) << n;
    for (const LaWaveform waveform : {LaWaveform::Saw, LaWaveform::Square}) {
        LaPartial partial = Steady(waveform, 3137.3);
        partial.pulseWidth = 0.8f;
        const std::vector<double> spectrum = Spectrum(Settled(OnePartial(partial), 128));
        EXPECT_LT(Decibels(StrongestAlias(spectrum, 3137.3)), -60);
    }
}

/// Aftertouch and an LFO (here standing at 1) widen and narrow the pulse.
TEST(LaVoice, PulseWidthIsModulated)
{
    LaProgram program;
    program.patch.lfos[2] = {LaLfoShape::Square, LaLfoMode::KeyOn, 0, 0.01f, 0, 0};
    LaPartial& partial = program.patch.partials[0] = Steady(LaWaveform::Square, 250);
    partial.pulseWidth = 0.5f;
    partial.touchPulse = 0.25f;
    partial.lfoPulse = 0.25f;
    partial.pulseLfo = 2;
    const SynthRegion region = LaRegion(program);
    TestVoice voice(region);
    const auto share = [&](float touch) {
        voice.voice.aftertouch = touch;
        voice.Run(750);
        const std::vector<float> frames = Record(voice, 750);
        // Of a pulse: second harmonic / first is |cos(pi share)|.
        return std::acos(AmplitudeAt(frames, 500) / AmplitudeAt(frames, 250)) / std::numbers::pi;
    };
    EXPECT_NEAR(share(0), 0.25, 0.003);
    EXPECT_NEAR(share(0.5f), 0.5 * std::exp2(-1.5), 0.003);
    EXPECT_NEAR(share(1), 0.125, 0.003);
}

TEST(LaVoice, PitchIsExact)
{
    struct Row {
        const char* name;
        void (*change)(LaPatch&);
        void (*play)(Voice&);
        float key;
        double cents; ///< above key 60
    };
    const Row rows[] = {
        {"key", nullptr, nullptr, 72, 1200},
        {"tuning", [](LaPatch& p) { p.partials[0].coarse = -7, p.partials[0].fine = 13; }, nullptr, 60, -687},
        {"key follow", [](LaPatch& p) { p.partials[0].keyFollow = -0.5f; }, nullptr, 72, -600},
        {"bend", nullptr, [](Voice& v) { v.pitchBend = -1; }, 60, -200},
        {"no bend", [](LaPatch& p) { p.partials[0].ignoresBend = true; }, [](Voice& v) { v.pitchBend = 1; },
         60, 0},
        {"LFO, limited",
         [](LaPatch& p) {
             p.lfos[1] = {LaLfoShape::Square, LaLfoMode::KeyOn, 0, 0.01f, 0, 0};
             p.partials[0].pitchLfo = 1;
             p.partials[0].lfoPitch = 3, p.partials[0].wheelLfoPitch = 6;
         },
         [](Voice& v) { v.modWheel = 1; }, 60, 600},
        {"LFO",
         [](LaPatch& p) {
             p.lfos[1] = {LaLfoShape::Square, LaLfoMode::KeyOn, 0, 0.01f, 0, 0};
             p.partials[0].pitchLfo = 1;
             p.partials[0].lfoPitch = 3, p.partials[0].touchLfoPitch = 1;
         },
         [](Voice& v) { v.aftertouch = 0.5f; }, 60, 350},
        {"envelope",
         [](LaPatch& p) {
             p.partials[0].pitchDepth = 8, p.partials[0].velocityPitchDepth = 4;
             p.pitchEnvelope.startLevel = 1;
             for (LevelPoint& point : p.pitchEnvelope.point)
                 point.level = -0.5f;
         },
         nullptr, 60, -600},
    };
    for (const Row& row : rows) {
        LaProgram program;
        program.patch.partials[0] = Steady(LaWaveform::Saw);
        program.patch.partials[0].cutoff = 30; // next to a sine
        if (row.change)
            row.change(program.patch);
        const SynthRegion region = LaRegion(program);
        TestVoice voice(region, {row.key, 127});
        if (row.play)
            row.play(voice.voice);
        voice.Run(300);
        EXPECT_NEAR(Cents(MeasureHz(Record(voice, 3000)), kKey60Hz), row.cents, 0.1) << row.name;
    }
}

/// Harmonics of a saw through the filter, against the same harmonics without it.
TEST(LaVoice, FilterHasItsCornerSlopeAndPeak)
{
    const std::vector<float> open = Settled(OnePartial(Steady(LaWaveform::Saw, 100)));
    struct Row {
        const char* name;
        void (*change)(LaPartial&);
        double key, hz, db, tolerance;
    };
    const float corner = static_cast<float>(12 * std::log2(1000 / 8.175798));
    static float cornerKey;
    cornerKey = corner;
    const Row rows[] = {
        {"two octaves above", nullptr, 60, 4000, -48, 3},
        {"gentle", [](LaPartial& p) { p.filterIsGentle = true; }, 60, 4000, -24, 2},
        {"far below", nullptr, 60, 100, 0, 0.5},
        {"peak is 12 dB above, the rest 6 dB below",
         [](LaPartial& p) { p.filterIsGentle = true, p.resonance = 12; }, 60, 1000, 12 - 6, 0.3},
        {"late curve", [](LaPartial& p) { p.filterIsGentle = true, p.resonance = 15, p.resonanceCurve = 8; },
         60, 1000, 7.5 - 3.75, 0.3},
        {"key follow, an octave up",
         [](LaPartial& p) { p.filterIsGentle = true, p.resonance = 12, p.cutoffKeyFollow = 1; }, 72, 2000, 6,
         0.3},
        {"bias above",
         [](LaPartial& p) {
             p.filterIsGentle = true, p.resonance = 12;
             p.filterBias = {60, true, 12};
         },
         84, 4000, 6, 0.3},
        {"envelope",
         [](LaPartial& p) {
             p.filterIsGentle = true, p.resonance = 12;
             p.filterDepth = 24;
             for (LevelPoint& point : p.filterEnvelope.point)
                 point = {0.5f, 0.1f};
         },
         60, 2000, 6, 0.3},
    };
    for (const Row& row : rows) {
        LaPartial partial = Steady(LaWaveform::Saw, 100);
        partial.cutoff = cornerKey;
        if (row.change)
            row.change(partial);
        const std::vector<float> frames =
            Settled(OnePartial(partial), 750, {static_cast<float>(row.key), 64});
        EXPECT_NEAR(Decibels(AmplitudeAt(frames, row.hz)) - Decibels(AmplitudeAt(open, row.hz)), row.db,
                    row.tolerance)
            << row.name;
    }
}

TEST(LaVoice, StructuresMixAndMultiply)
{
    LaProgram program;
    program.waves[0] = SineWave(1000);
    program.waves[4] = SineWave(300);
    program.patch.partials[0] = program.patch.partials[1] = Steady(LaWaveform::Saw);
    program.patch.partials[0].isPcm = program.patch.partials[1].isPcm = true;
    struct Row {
        LaStructure structure;
        double upper, lower, side;
    };
    for (const Row& row : {Row{LaStructure::Mix, 1, 1, 0}, Row{LaStructure::MixRing, 1, 0, 0.5},
                           Row{LaStructure::Ring, 0, 0, 0.5}, Row{LaStructure::Stereo, 1, 0, 0}}) {
        program.patch.structure = row.structure;
        const SynthRegion region = LaRegion(program);
        TestVoice voice(region);
        EXPECT_EQ(voice.voice.isStereo, row.structure == LaStructure::Stereo);
        std::vector<float> frames, right;
        for (int tick = 0; tick < 750; ++tick) {
            const auto left = voice.Run();
            frames.insert(frames.end(), left.begin(), left.end());
            right.insert(right.end(), std::begin(voice.block.right), std::end(voice.block.right));
        }
        EXPECT_NEAR(AmplitudeAt(frames, 1000), row.upper, 1e-3);
        EXPECT_NEAR(AmplitudeAt(frames, 300), row.lower, 1e-3);
        EXPECT_NEAR(AmplitudeAt(frames, 1300), row.side, 1e-3);
        EXPECT_NEAR(AmplitudeAt(frames, 700), row.side, 1e-3);
        EXPECT_NEAR(AmplitudeAt(right, 300), row.structure == LaStructure::Stereo ? 1 : 0, 1e-3);
        EXPECT_NEAR(AmplitudeAt(right, 1000), 0, 1e-3);
    }
    program.patch.structure = LaStructure::Mix;
    program.patch.balance = -0.5f;
    EXPECT_NEAR(AmplitudeAt(Settled(LaRegion(program)), 300), 0.5, 1e-3);
    EXPECT_NEAR(AmplitudeAt(Settled(LaRegion(program)), 1000), 1, 1e-3);
}

TEST(LaVoice, WaveformsPlayAtTheirPitchAndLoop)
{
    LaProgram program;
    LaPartial& partial = program.patch.partials[1] = Steady(LaWaveform::Saw);
    partial.isPcm = true;
    partial.waveSplit = {0, 72, 0};
    program.waves[4] = SineWave(1000);
    program.waves[4].rootKey = 48;
    program.waves[4].gain = 0.5f;
    program.waves[6] = SineWave(2000); // the third, from key 72 on
    const SynthRegion region = LaRegion(program);
    TestVoice low(region, {60, 100}), high(region, {72, 100});
    const std::vector<float> frames = Record(low, 1500);
    EXPECT_NEAR(Cents(MeasureHz(frames), 2000), 0, 0.05);
    EXPECT_NEAR(PeakOf(frames), 0.5, 1e-3);
    EXPECT_NEAR(Cents(MeasureHz(Record(high, 1500)), 4000), 0, 0.05);

    program.waves[4].sound.loopType = LoopType::Off; // a tenth of a second an octave up: 37.5 ticks
    const SynthRegion shot = LaRegion(program);
    TestVoice voice(shot, {60, 100});
    voice.Run(36);
    EXPECT_FALSE(voice.voice.isDead);
    voice.Run(3);
    EXPECT_TRUE(voice.voice.isDead) << "the only partial is over";
    program.waves[4].sound.loopType = LoopType::Forward;
    program.waves[4].sound.breakOnRelease = true;
    const SynthRegion breaking = LaRegion(program);
    TestVoice let(breaking, {60, 100});
    let.Run(200);
    EXPECT_FALSE(let.voice.isDead);
    ReleaseVoice(let.voice, kClock);
    let.Run(39);
    EXPECT_TRUE(let.voice.isDead) << "the loop's last turn";
    program.waves[4].sound.sample = MakeSample(
        4800, 2, 48000, [](std::size_t, std::size_t channel) { return channel == 0 ? 0.5f : -0.25f; });
    const SynthRegion stereo = LaRegion(program);
    TestVoice both(stereo, {60, 100});
    both.Run();
    EXPECT_NEAR(both.Run()[30], 0.125f * 0.5f, 1e-5) << "the mean of both sides";
    program.waves[4].sound.sample = nullptr;
    const SynthRegion missing = LaRegion(program);
    TestVoice none(missing);
    EXPECT_EQ(PeakOf(none.Run()), 0);
    EXPECT_TRUE(none.voice.isDead);
}

TEST(LaVoice, LevelFollowsVelocityAndBias)
{
    LaProgram program;
    LaPartial& partial = program.patch.partials[0] = Steady(LaWaveform::Saw);
    partial.isPcm = true;
    partial.keyFollow = 0;
    program.waves[0] = SineWave(1000);
    partial.levelDb = -3;
    partial.velocityDb = 96;
    partial.levelBias = {LaBias{60, true, -6}, LaBias{48, false, -12}};
    partial.touchLevel = -4;
    const auto db = [&](Strike strike, float touch) {
        const SynthRegion region = LaRegion(program);
        TestVoice voice(region, strike);
        voice.voice.aftertouch = touch;
        voice.Run();
        return Decibels(AmplitudeAt(Record(voice, 75), 1000));
    };
    EXPECT_NEAR(db({60, 127}, 0), -3, 0.01);
    EXPECT_NEAR(db({60, 64}, 0), -3 + 40 * std::log10(64 / 127.0), 0.01);
    EXPECT_NEAR(db({84, 127}, 0), -3 - 12, 0.01);
    EXPECT_NEAR(db({42, 127}, 0.5f), -3 - 6 - 2, 0.01);
}

TEST(LaVoice, EqualizesWhatItMixes)
{
    LaProgram program;
    program.patch.partials[0] = Steady(LaWaveform::Saw);
    program.patch.partials[0].isPcm = true;
    program.waves[0] = SineWave(1000);
    program.patch.eq[1] = {LaEqMode::Peak, 1000, 6, 1};
    const SynthRegion region = LaRegion(program);
    TestVoice voice(region);
    ASSERT_EQ(voice.voice.eqBands, 1);
    std::vector<float> frames;
    for (int tick = 0; tick < 1500; ++tick) {
        voice.Run();
        const EqLane lane{voice.block.left, 1, voice.voice.eq.data(), voice.voice.eqState.data()};
        RunEqLanes({&lane, 1});
        frames.insert(frames.end(), std::begin(voice.block.left), std::end(voice.block.left));
    }
    EXPECT_NEAR(Decibels(AmplitudeAt(std::span(frames).last(48000), 1000)), 6, 0.01);
}

/// The level envelope ends the voice; -75 dB is low enough.
TEST(LaVoice, TvaKeepsItsTimesAndEndsTheVoice)
{
    LaProgram program;
    LaPartial& partial = program.patch.partials[0] = Steady(LaWaveform::Saw, 1000);
    partial.levelEnvelope = {0, {{{1, 0.1f}, {1, 0.1f}, {0.75f, 0.1f}, {0.5f, 0.1f}, {0.2f, 0.3f}}}};
    const SynthRegion region = LaRegion(program);
    TestVoice voice(region);
    const std::vector<float> held = Record(voice, 375);
    const auto levelAt = [](std::span<const float> frames, double seconds) {
        const auto at = static_cast<std::size_t>(seconds * kRate);
        return Decibels(AmplitudeAt(frames.subspan(at, 48), 1000) * std::numbers::pi / 2);
    };
    EXPECT_NEAR(levelAt(held, 0.05), -6, 0.4);
    EXPECT_NEAR(levelAt(held, 0.15), 0, 0.4);
    EXPECT_NEAR(levelAt(held, 0.25), -12, 0.4);
    EXPECT_NEAR(levelAt(held, 0.45), -48, 0.4);
    ReleaseVoice(voice.voice, kClock);
    voice.Run(224);
    EXPECT_FALSE(voice.voice.isDead);
    voice.Run(2);
    EXPECT_TRUE(voice.voice.isDead) << "0.3 s; position 0.2 is -76.8 dB";

    program.patch.partials[0].levelEnvelope.point[4].level = 0.5f;
    const SynthRegion loud = LaRegion(program);
    TestVoice other(loud);
    other.Run(375);
    ReleaseVoice(other.voice, kClock);
    other.Run(226);
    EXPECT_FALSE(other.voice.isDead) << "still heard";
    other.Run(190);
    EXPECT_TRUE(other.voice.isDead) << "but not for ever";

    TestVoice shut(loud);
    ShutDownVoice(shut.voice, kClock);
    shut.Run(12);
    EXPECT_TRUE(shut.voice.isDead);
}

/// An LFO that starts with a stage of the TVA.
TEST(LaVoice, LfoFollowsTvaStages)
{
    LaProgram program;
    program.patch.lfos[0] = {LaLfoShape::Square, LaLfoMode::TvaStage, 2, 1, 0, 0};
    LaPartial& partial = program.patch.partials[0] = Steady(LaWaveform::Square, 1000);
    partial.levelEnvelope.point = {{{1, 0.4f}, {1, 0.4f}, {1, 1}, {1, 0}, {0, 0.1f}}};
    partial.levelEnvelope.startLevel = 1;
    partial.levelLfo = 0;
    partial.lfoLevel = -12;
    const SynthRegion region = LaRegion(program);
    TestVoice voice(region);
    const std::vector<float> frames = Record(voice, 1200);
    const auto db = [&](double seconds) {
        const auto at = static_cast<std::size_t>(seconds * kRate);
        return Decibels(AmplitudeAt(std::span(frames).subspan(at, 480), 1000) * std::numbers::pi / 4);
    };
    EXPECT_NEAR(db(0.1), -12, 0.5) << "first half of the cycle";
    EXPECT_NEAR(db(0.6), 12, 0.5);
    EXPECT_NEAR(db(0.9), -12, 0.5) << "begins anew at 0.8 s";
    EXPECT_NEAR(db(1.25), -12, 0.5);
    EXPECT_NEAR(db(1.35), 12, 0.5);
}

/// Any bytes make a voice that is finite, bounded, and ends.
TEST(LaVoice, DamagedPatchesStayInBounds)
{
    std::mt19937 random(7);
    for (int run = 0; run < 150; ++run) {
        Block block;
        for (std::byte& byte : block)
            byte = static_cast<std::byte>(random());
        if (run % 2 == 0)
            for (std::size_t at = 8; at + 4 <= 696; at += 4)
                if ((at < 136 && (at < 64 || at >= 112 || at % 16 != 0)) ||
                    (at >= 136 && (at - 136) % 280 >= 16)) {
                    const auto value = static_cast<float>(static_cast<int>(random() % 4001) - 2000) / 100;
                    std::memcpy(&block[at], &value, sizeof value);
                }
        LaProgram program;
        program.patch = *LaPatch::Parse(block);
        for (std::size_t i = 0; i < program.waves.size(); ++i)
            program.waves[i] = SineWave(static_cast<double>(random() % 20000));
        for (LaPartial& partial : program.patch.partials) {
            for (LevelPoint& point : partial.levelEnvelope.point)
                point.seconds = std::min(point.seconds, 0.2f);
            partial.keyToTime = std::min(partial.keyToTime, 1.0f);
            partial.velocityToTime = 1;
        }
        const SynthRegion region = LaRegion(program);
        TestVoice voice(region,
                        {static_cast<float>(random() % 128), 1 + static_cast<unsigned>(random() % 127)});
        const auto step = [&] {
            voice.voice.pitchBend = static_cast<float>(random() % 2001) / 1000 - 1;
            voice.voice.modWheel = static_cast<float>(random() % 128) / 127;
            voice.voice.aftertouch = static_cast<float>(random() % 128) / 127;
            voice.Run();
            for (const auto* side : {voice.block.left, voice.block.right})
                for (std::size_t i = 0; i < kBlockFrames; ++i) {
                    ASSERT_TRUE(std::isfinite(side[i])) << run;
                    ASSERT_LE(std::abs(side[i]), 60000) << run; // a product of two resonances at +12 dB
                }
        };
        for (int tick = 0; tick < 100; ++tick)
            step();
        ReleaseVoice(voice.voice, kClock);
        for (int tick = 0; tick < 1200 && !voice.voice.isDead; ++tick)
            step();
        EXPECT_TRUE(voice.voice.isDead) << run;
    }
}

} // namespace
} // namespace vimbo::synth
