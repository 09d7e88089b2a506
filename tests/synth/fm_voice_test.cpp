// FM voices, measured: pitch, level, spectra, envelopes, and what damaged patches do.
#include "spectrum.h"
#include "synth/fm_voice.h"

#include "synth/la_patch.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>

namespace vimbo::synth {
namespace {

using Block = std::array<std::byte, 824>;

/// Sounds at full level until the key goes up.
FmOperator Steady(double hz)
{
    FmOperator op;
    op.isEnabled = op.isCarrier = true;
    op.ratio = 0;
    op.fixedHz = static_cast<float>(hz);
    op.envelope.startLevel = 1;
    op.envelope.points = 1;
    op.envelope.holdPoint = 0;
    return op;
}

SynthRegion FmRegion(const FmPatch& patch)
{
    SynthRegion region;
    region.model = VoiceModel::Fm;
    region.params = DefaultParams();
    region.fm = std::make_shared<FmPatch>(patch);
    return region;
}

SynthRegion OneOperator(const FmOperator& op)
{
    FmPatch patch;
    patch.operators[3] = op;
    return FmRegion(patch);
}

TEST(FmPatchBlock, HasKnownPlacesAndComesBackExactly)
{
    Block block{};
    const auto put = [&block](std::size_t at, float value) { std::memcpy(&block[at], &value, sizeof value); };
    block[4] = std::byte{0xF4}; // transpose -12
    put(8, 7);                  // bend range
    const std::size_t second = 120 + 96;
    block[second] = std::byte{1 | 2 | 16};
    block[second + 1] = std::byte{2};
    block[second + 3] = std::byte{0xFF};
    put(second + 12, 3.5f); // ratio
    put(second + 24, -300); // level, too low
    put(second + 32, 1e9f); // modulation, too high
    put(second + 64 + 4, 0.25f);
    block[696 + 2] = std::byte{0x00};
    block[696 + 3] = std::byte{0x80};
    const std::optional<FmPatch> patch = FmPatch::Parse(block);
    ASSERT_TRUE(patch);
    EXPECT_EQ(patch->transpose, -12);
    EXPECT_EQ(patch->bendRange, 7);
    const FmOperator& op = patch->operators[1];
    EXPECT_TRUE(op.isEnabled && op.isCarrier && op.rightIsCurved && !op.leftIsCurved);
    EXPECT_EQ(op.oscillator, FmOscillator::Table);
    EXPECT_EQ(op.sources, 63);
    EXPECT_EQ(op.ratio, 3.5f);
    EXPECT_EQ(op.levelDb, -96);
    EXPECT_EQ(op.modulation, 4);
    EXPECT_EQ(op.keyToTime, 1) << "0 is no factor";
    EXPECT_EQ(op.envelope.point[0].seconds, 0.25f);
    EXPECT_EQ(patch->table[1], -32768);
    EXPECT_FALSE(FmPatch::Parse(std::span(block).first(823)));
    EXPECT_FALSE(patch->Store(std::span(block).first(823)));

    std::mt19937 random(1);
    for (int run = 0; run < 200; ++run) {
        for (std::byte& byte : block)
            byte = static_cast<std::byte>(random());
        const FmPatch first = *FmPatch::Parse(block);
        Block stored;
        ASSERT_TRUE(first.Store(stored));
        EXPECT_EQ(*FmPatch::Parse(stored), first);
    }
}

TEST(FmVoice, PitchIsExact)
{
    const double a4 = 440 * 8.175798 / 8.1757989156;
    struct Row {
        const char* name;
        void (*change)(FmPatch&);
        void (*play)(Voice&);
        float key;
        double hz;
    };
    const Row rows[] = {
        {"fixed", [](FmPatch& p) { p.operators[0] = Steady(997.3); }, nullptr, 33, 997.3},
        {"ratio", nullptr, nullptr, 69, a4},
        {"low key", nullptr, nullptr, 21, a4 / 16},
        {"ratio 3.5", [](FmPatch& p) { p.operators[0].ratio = 3.5f; }, nullptr, 69, a4 * 3.5},
        {"detune", [](FmPatch& p) { p.operators[0].detuneHz = -3; }, nullptr, 69, a4 - 3},
        {"transpose", [](FmPatch& p) { p.transpose = -24; }, nullptr, 81, a4 / 2},
        {"bend", nullptr, [](Voice& v) { v.pitchBend = -0.5f; }, 70, a4},
        {"channel's bend range", nullptr, [](Voice& v) { v.pitchBend = 1, v.bendRange = 12; }, 57, a4},
        {"portamento", nullptr, [](Voice& v) { v.tuningOffset = 12; }, 57, a4},
        {"keeps its pitch", [](FmPatch& p) { p.operators[0].keepsPitch = true; },
         [](Voice& v) { v.pitchBend = 1; }, 69, a4},
        {"LFO",
         [](FmPatch& p) {
             p.lfoShape = 2, p.lfoHz = 0.1f;
             p.lfoPitch = 1, p.wheelLfoPitch = 2, p.touchLfoPitch = 4;
         },
         [](Voice& v) { v.modWheel = 0.5f, v.aftertouch = 0.25f; }, 66, a4},
        {"envelope",
         [](FmPatch& p) {
             p.pitchDepth = 24, p.velocityToPitchEnvelope = true;
             p.pitchEnvelope.startLevel = 1;
             p.pitchEnvelope.points = 1;
             p.pitchEnvelope.point[0] = {0.5f, 0.0f};
             p.pitchEnvelope.holdPoint = 1;
         },
         nullptr, 57, a4},
    };
    for (const Row& row : rows) {
        FmPatch patch;
        patch.operators[0] = Steady(0);
        patch.operators[0].ratio = 1;
        if (row.change)
            row.change(patch);
        const SynthRegion region = FmRegion(patch);
        TestVoice voice(region, {row.key, 127});
        if (row.play)
            row.play(voice.voice);
        EXPECT_NEAR(Cents(MeasureHz(Record(voice, 3000)), row.hz), 0, 0.05) << row.name;
    }
}

TEST(FmVoice, LevelFollowsVelocityAndKey)
{
    struct Row {
        const char* name;
        void (*change)(FmOperator&);
        Strike strike;
        double db;
    };
    const Row rows[] = {
        {"full", nullptr, {60, 1}, 0},
        {"output level", [](FmOperator& op) { op.levelDb = -37.5f; }, {60, 1}, -37.5},
        {"velocity", [](FmOperator& op) { op.velocityDb = 96; }, {60, 64}, 40 * std::log10(64 / 127.0)},
        {"turned round", [](FmOperator& op) { op.velocityDb = -48; }, {60, 64}, 20 * std::log10(63 / 127.0)},
        {"left, half", [](FmOperator& op) { op.leftDb = -20, op.leftKeys = 24; }, {48, 99}, -10},
        {"left, beyond", [](FmOperator& op) { op.leftDb = -20, op.leftKeys = 24; }, {20, 99}, -20},
        {"left, whole keyboard", [](FmOperator& op) { op.leftDb = -20; }, {45, 99}, -5},
        {"right", [](FmOperator& op) { op.leftDb = -20, op.rightDb = 8; }, {127, 99}, 8},
        {"right, curved",
         [](FmOperator& op) { op.rightDb = -49, op.rightIsCurved = true, op.rightKeys = 24; },
         {72, 99},
         -49 * (std::sqrt(99.0) - 1) / 98},
        {"at the break key", [](FmOperator& op) { op.leftDb = op.rightDb = -20; }, {60, 99}, 0},
        {"limit", [](FmOperator& op) { op.levelDb = 12, op.rightDb = 96; }, {127, 99}, 12},
    };
    for (const Row& row : rows) {
        FmOperator op = Steady(750);
        if (row.change)
            row.change(op);
        const SynthRegion region = OneOperator(op);
        TestVoice voice(region, row.strike);
        EXPECT_NEAR(Decibels(AmplitudeAt(Record(voice, 750), 750)), row.db, 0.01) << row.name;
        EXPECT_NEAR(voice.voice.envelopeGain, 1, 1e-6);
        EXPECT_NEAR(Decibels(voice.voice.gainEstimate), row.db, 0.01) << row.name;
    }
}

/// A carrier moved by a modulator has sidebands of Bessel functions of the index.
TEST(FmVoice, SidebandsAreBesselFunctions)
{
    for (const double index : {0.5, 1.0, 2.0, 5.0, 9.0}) {
        FmPatch patch;
        patch.operators[1] = Steady(200);
        patch.operators[1].isCarrier = false;
        patch.operators[4] = Steady(6000);
        patch.operators[4].sources = 1 << 1;
        patch.operators[4].modulation = static_cast<float>(index / (2 * std::numbers::pi));
        const SynthRegion region = FmRegion(patch);
        TestVoice voice(region);
        const std::vector<float> frames = Record(voice, 750);
        for (unsigned n = 0; n < 12; ++n) {
            const double expected = std::abs(std::cyl_bessel_j(n, index));
            for (const double side : {-1.0, 1.0}) {
                const double amplitude = AmplitudeAt(frames, 6000 + side * 200 * n);
                if (expected > 1e-3)
                    EXPECT_NEAR(Decibels(amplitude), Decibels(expected), 0.1) << index << ' ' << n;
                else
                    EXPECT_LT(amplitude, 1.1e-3) << index << ' ' << n;
            }
        }
    }
}

/// sin(x + b * y) fed back into itself has harmonics 2 J_n(n b) / (n b).
TEST(FmVoice, FeedbackMakesHarmonicsAndStaysInBounds)
{
    constexpr double kDepth = 0.8; // radians
    FmOperator op = Steady(50);
    op.sources = 1 << 3;
    op.feedback = static_cast<float>(kDepth / (2 * std::numbers::pi));
    const SynthRegion region = OneOperator(op);
    TestVoice voice(region);
    const std::vector<float> frames = Record(voice, 750);
    for (unsigned n = 1; n <= 6; ++n)
        EXPECT_NEAR(Decibels(AmplitudeAt(frames, 50 * n)),
                    Decibels(2 * std::cyl_bessel_j(n, n * kDepth) / (n * kDepth)), 0.2)
            << n;
    // The mean of two outputs keeps strong feedback from swinging from frame to frame.
    op.feedback = 0.35f;
    const SynthRegion strong = OneOperator(op);
    TestVoice bright(strong);
    EXPECT_LT(AmplitudeAt(Record(bright, 750), 24000), 0.01);
    for (const float feedback : {1.0f, 4.0f})
        for (const double hz : {55.0, 3000.0, 20000.0}) {
            op = Steady(hz);
            op.sources = 1 << 3;
            op.feedback = feedback;
            const SynthRegion loud = OneOperator(op);
            TestVoice screaming(loud);
            EXPECT_LE(PeakOf(Record(screaming, 200)), 1.0001) << feedback << ' ' << hz;
        }
}

TEST(FmVoice, ThreeEarlierSourcesCount)
{
    FmPatch patch;
    for (FmOperator& op : patch.operators)
        op = Steady(100);
    patch.operators[1].isEnabled = false;
    patch.operators[4].sources = 0xFF;
    patch.operators[5].sources = 1 << 5 | 1 << 4;
    const FmSources all = SourcesOf(patch, 4);
    EXPECT_EQ(all.count, 3);
    EXPECT_EQ(all.index, (std::array<std::uint8_t, 3>{0, 2, 3}));
    EXPECT_FALSE(all.isSelf);
    EXPECT_TRUE(SourcesOf(patch, 5).isSelf);
    EXPECT_EQ(SourcesOf(patch, 5).count, 1);
}

/// Rises are straight in amplitude, falls in dB.
TEST(FmVoice, EnvelopeKeepsItsTimes)
{
    FmOperator op = Steady(12000);
    op.startPhase = 0.125f; // every frame has the same magnitude
    op.envelope.startLevel = 0;
    op.envelope.points = 4;
    op.envelope.holdPoint = 3;
    op.envelope.point = {{{1, 0.2f}, {0.75f, 0.3f}, {0.5f, 0.1f}, {0, 0.4f}}};
    const auto levelAt = [](std::span<const float> frames, double seconds) {
        return Decibels(std::abs(frames[static_cast<std::size_t>(seconds * kRate)]) * std::numbers::sqrt2);
    };
    for (const float keyToTime : {1.0f, 2.0f}) {
        op.keyToTime = keyToTime;
        const double factor = keyToTime == 1 ? 1 : 2; // an octave above key 0
        const SynthRegion region = OneOperator(op);
        TestVoice voice(region, {12, 100});
        const std::vector<float> held = Record(voice, 1500);
        EXPECT_NEAR(levelAt(held, 0.05 * factor), Decibels(0.25), 0.3);
        EXPECT_NEAR(std::abs(held[30 * kBlockFrames - 1]) * std::numbers::sqrt2, 0.2 / factor, 1e-5)
            << "a block ends on its tick's value";
        EXPECT_NEAR(levelAt(held, 0.1 * factor), Decibels(0.5), 0.2);
        EXPECT_NEAR(levelAt(held, 0.2 * factor), 0, 0.15);
        EXPECT_NEAR(levelAt(held, 0.35 * factor), -12, 0.15);
        EXPECT_NEAR(levelAt(held, 0.55 * factor), -36, 0.4);
        EXPECT_NEAR(levelAt(held, 1.9), -48, 0.05) << "held";
        ReleaseVoice(voice.voice, kClock);
        const auto ticks = static_cast<unsigned>(0.4 * factor * kTicks + 0.5);
        const std::vector<float> let = Record(voice, ticks - 1);
        EXPECT_NEAR(levelAt(let, 0.1 * factor), -48 - 12, 0.2);
        EXPECT_FALSE(voice.voice.isDead);
        voice.Run(2);
        EXPECT_TRUE(voice.voice.isDead);
    }
}

TEST(FmVoice, PitchEnvelopeMovesHoldsAndGoesBack)
{
    FmPatch patch;
    patch.operators[0] = Steady(1000);
    patch.operators[0].envelope.point[0] = {1, 3};
    patch.pitchDepth = 12;
    patch.pitchEnvelope = {-1, 2, 1, {{{0.5f, 0.5f}, {0, 0.2f}}}};
    const SynthRegion region = FmRegion(patch);
    TestVoice voice(region);
    EXPECT_NEAR(Cents(MeasureHz(Record(voice, 5)), 500), 0, 30);
    voice.Run(800);
    EXPECT_NEAR(Cents(MeasureHz(Record(voice, 750)), 1000), 600, 0.1);
    ReleaseVoice(voice.voice, kClock);
    voice.Run(75);
    EXPECT_NEAR(Cents(MeasureHz(Record(voice, 3)), 1000), 300, 15);
    voice.Run(80);
    EXPECT_NEAR(Cents(MeasureHz(Record(voice, 750)), 1000), 0, 0.1);
}

/// Behind the hold rises are straight in dB, too.
TEST(PointEnvelope, ReleaseMayRise)
{
    const std::array<LevelPoint, 3> points{{{0.25f, 0}, {0.75f, 0.2f}, {0, 0.1f}}};
    const PointSetting setting{points, 1, 1, true, true, 1, 750};
    PointEnvelope envelope;
    envelope.Start(setting);
    for (int tick = 0; tick < 50; ++tick)
        envelope.Tick(setting);
    EXPECT_EQ(envelope.Value(), 0.25f);
    EXPECT_EQ(envelope.Stage(), 1u) << "the hold";
    envelope.Release(setting);
    for (int tick = 0; tick < 75; ++tick)
        envelope.Tick(setting);
    EXPECT_NEAR(envelope.Value(), 0.5f, 1e-5);
    EXPECT_NEAR(envelope.Gain(), std::pow(10, -48 / 20.0), 1e-6);
    for (int tick = 0; tick < 76; ++tick)
        envelope.Tick(setting);
    EXPECT_EQ(envelope.Stage(), 3u);
    EXPECT_FALSE(envelope.IsBehindLast());
}

TEST(FmVoice, EndsWithItsCarriers)
{
    FmPatch patch;
    patch.operators[0] = Steady(300);
    patch.operators[0].isCarrier = false;
    const SynthRegion modulatorAlone = FmRegion(patch);
    TestVoice silent(modulatorAlone);
    silent.Run();
    EXPECT_TRUE(silent.voice.isDead);

    // One shot: the key does not matter.
    patch.operators[2] = Steady(500);
    patch.operators[2].envelope = {1, 2, kNoHold, {{{1, 0.1f}, {0, 0.1f}}}};
    const SynthRegion shot = FmRegion(patch);
    TestVoice voice(shot);
    ReleaseVoice(voice.voice, kClock);
    voice.Run(145);
    EXPECT_FALSE(voice.voice.isDead);
    voice.Run(6);
    EXPECT_TRUE(voice.voice.isDead);

    // A last level that is heard does not last for ever.
    patch.operators[2].envelope = {1, 1, 0, {{{1, 0.1f}}}};
    const SynthRegion drone = FmRegion(patch);
    TestVoice droning(drone);
    ReleaseVoice(droning.voice, kClock);
    droning.Run(75 + 370);
    EXPECT_FALSE(droning.voice.isDead);
    droning.Run(10);
    EXPECT_TRUE(droning.voice.isDead);

    TestVoice shut(drone);
    shut.Run(10);
    ShutDownVoice(shut.voice, kClock);
    shut.Run(6);
    EXPECT_NEAR(shut.GainDb(), -96 * 6 / 11.25, 0.1) << "the region's shutdown time, 15 ms";
    shut.Run(6);
    EXPECT_TRUE(shut.voice.isDead);
}

TEST(FmVoice, HarmonicShapesHaveNoAliases)
{
    constexpr double kHz = 2093.7;
    for (const HarmonicShape shape :
         {HarmonicShape::Saw, HarmonicShape::Triangle, HarmonicShape::Square, HarmonicShape::Pulse}) {
        FmOperator op = Steady(kHz);
        op.oscillator = FmOscillator::BandLimited;
        op.shape = static_cast<std::uint8_t>(shape);
        const SynthRegion region = OneOperator(op);
        TestVoice voice(region);
        voice.Run(300); // the sums' start dies away
        const std::vector<double> spectrum = Spectrum(Record(voice, 128));
        const double first = *std::max_element(spectrum.begin() + 300, spectrum.begin() + 420);
        EXPECT_LT(Decibels(StrongestAlias(spectrum, kHz) / first), -60) << static_cast<int>(shape);
    }
}

TEST(FmVoice, HarmonicShapesHaveTheirSpectra)
{
    constexpr double kHz = 250;
    struct Row {
        HarmonicShape shape;
        double (*amplitude)(double n); ///< 0: none
    };
    const Row rows[] = {
        {HarmonicShape::Saw, [](double n) { return 2 / (std::numbers::pi * n); }},
        {HarmonicShape::Square,
         [](double n) { return std::fmod(n, 2) != 0 ? 4 / (std::numbers::pi * n) : 0; }},
        {HarmonicShape::Triangle,
         [](double n) {
             return std::fmod(n, 2) != 0 ? 8 / (std::numbers::pi * std::numbers::pi * n * n) : 0;
         }},
        {HarmonicShape::Pulse, [](double) { return 2 / 193.0; }},
    };
    for (const Row& row : rows) {
        FmOperator op = Steady(kHz);
        op.oscillator = FmOscillator::BandLimited;
        op.shape = static_cast<std::uint8_t>(row.shape);
        const SynthRegion region = OneOperator(op);
        TestVoice voice(region);
        voice.Run(750);
        const std::vector<float> frames = Record(voice, 750);
        for (int n = 1; n <= 12; ++n) {
            const double expected = row.amplitude(n), measured = AmplitudeAt(frames, kHz * n);
            if (expected > 0)
                EXPECT_NEAR(Decibels(measured), Decibels(expected), 0.15)
                    << static_cast<int>(row.shape) << ' ' << n;
            else
                EXPECT_LT(measured, 1e-4) << static_cast<int>(row.shape) << ' ' << n;
        }
    }
}

TEST(FmShapes, ShapesOfTables)
{
    WaveTable table{};
    table[0] = 16384;
    table[1] = -16384;
    const auto at = [&](unsigned shape, double cycles) {
        return TableShape(shape, static_cast<std::uint32_t>(cycles * 4294967296.0), table);
    };
    struct Row {
        unsigned shape;
        std::array<double, 8> values; ///< at eighths of a cycle, 1/16 behind
    };
    const double s = std::sin(std::numbers::pi / 8), c = std::cos(std::numbers::pi / 8);
    const double d = std::numbers::sqrt2 / 2;
    const Row rows[] = {
        {0, {s, c, c, s, -s, -c, -c, -s}},
        {1, {s, c, c, s, 0, 0, 0, 0}},
        {2, {s, c, c, s, s, c, c, s}},
        {3, {s, c, 0, 0, s, c, 0, 0}},
        {4, {d, d, -d, -d, 0, 0, 0, 0}},
        {5, {d, d, d, d, 0, 0, 0, 0}},
        {6, {1, 1, 1, 1, -1, -1, -1, -1}},
        {7, {0.25, 1 / 64.0, 0.0009765625, 1 / 16384.0, -1 / 16384.0, -0.0009765625, -1 / 64.0, -0.25}},
        {8, {s, 1, 1, s, -s, -c, -c, -s}},
        {12, {d, 1, 1, -d, 0, 0, 0, 0}},
        {16, {0.25, 0.75, 0.75, 0.25, -0.25, -0.75, -0.75, -0.25}},
        {19, {0.25, 0.75, 0, 0, 0.25, 0.75, 0, 0}},
        {22, {0.5, 5 / 6.0, 0.5, 1 / 6.0, -1 / 6.0, -0.5, -5 / 6.0, -0.5}},
        {24, {0.125, 0.375, 0.625, 0.875, -0.875, -0.625, -0.375, -0.125}},
        {26, {0.125, 0.375, 0.625, 0.875, 0.875, 0.625, 0.375, 0.125}},
    };
    for (const Row& row : rows)
        for (std::size_t i = 0; i < 8; ++i) {
            const double cycles = (static_cast<double>(i) + 0.5) / 8;
            EXPECT_NEAR(at(row.shape, cycles), row.values[i], 1e-5) << row.shape << ' ' << i;
            if (row.shape < 8) {
                EXPECT_EQ(OplShape(row.shape, static_cast<std::uint32_t>(cycles * 4294967296.0)),
                          at(row.shape, cycles));
            }
        }
    for (const unsigned shape : {15u, 23u, 30u, 31u}) {
        EXPECT_NEAR(at(shape, 0), 0.5, 1e-4);
        EXPECT_NEAR(at(shape, 0.25 / 64), 0.25, 1e-4);
        EXPECT_NEAR(at(shape, 63.5 / 64), 0.25, 1e-4) << "the cycle closes";
    }
}

/// Any bytes make a voice that is finite, bounded, and ends.
TEST(FmVoice, DamagedPatchesStayInBounds)
{
    std::mt19937 random(7);
    for (int run = 0; run < 150; ++run) {
        Block block;
        for (std::byte& byte : block)
            byte = static_cast<std::byte>(random());
        if (run % 2 == 0) // floats of a size that means something
            for (std::size_t at = 8; at + 4 <= 696; at += 4) {
                if (at < 120 || (at - 120) % 96 >= 12) {
                    const auto value = static_cast<float>(static_cast<int>(random() % 4001) - 2000) / 300;
                    std::memcpy(&block[at], &value, sizeof value);
                }
            }
        FmPatch patch = *FmPatch::Parse(block);
        for (FmOperator& op : patch.operators)
            for (LevelPoint& point : op.envelope.point)
                point.seconds = std::min(point.seconds, 0.3f), op.keyToTime = std::min(op.keyToTime, 1.0f);
        const SynthRegion region = FmRegion(patch);
        TestVoice voice(region,
                        {static_cast<float>(random() % 128), 1 + static_cast<unsigned>(random() % 127)});
        const auto step = [&] {
            voice.voice.pitchBend = static_cast<float>(random() % 2001) / 1000 - 1;
            voice.voice.modWheel = static_cast<float>(random() % 128) / 127;
            voice.voice.aftertouch = static_cast<float>(random() % 128) / 127;
            for (const float value : voice.Run()) {
                ASSERT_TRUE(std::isfinite(value)) << run;
                ASSERT_LE(std::abs(value), 6 * 4 * BandLimitedWave::kMost) << run;
            }
            ASSERT_TRUE(std::isfinite(voice.voice.gainEstimate) && voice.voice.gainEstimate >= 0) << run;
        };
        for (int tick = 0; tick < 100; ++tick)
            step();
        ReleaseVoice(voice.voice, kClock);
        for (int tick = 0; tick < 1500 && !voice.voice.isDead; ++tick) // 4 * 0.3 s and the last fall
            step();
        EXPECT_TRUE(voice.voice.isDead) << run;
    }
}

/// An edit of the region does not disturb what sounds.
TEST(FmVoice, EditsGoOn)
{
    FmPatch patch;
    patch.operators[0] = Steady(1000);
    SynthRegion region = FmRegion(patch);
    TestVoice voice(region), other(region);
    voice.Run(50);
    other.Run(50);
    patch.operators[0].levelDb = -6.0206f;
    patch.operators[1] = Steady(3000);
    const SynthRegion edited = FmRegion(patch);
    voice.voice.region = &edited;
    InitVoice(voice.voice, kClock, false);
    voice.Run();
    other.Run();
    const std::vector<float> after = Record(voice, 750), before = Record(other, 750);
    EXPECT_NEAR(AmplitudeAt(after, 1000), 0.5, 1e-3);
    EXPECT_NEAR(AmplitudeAt(after, 3000), 1, 1e-3);
    double difference = 0;
    for (std::size_t i = 0; i < 48; ++i)
        difference += after[i] * before[i] / 48;
    EXPECT_NEAR(difference, 0.25, 0.01) << "the phase goes on";
    // Another model takes the voice's sound away.
    SynthRegion la = FmRegion(patch);
    la.model = VoiceModel::La;
    la.la = std::make_shared<LaProgram>();
    voice.voice.region = &la;
    InitVoice(voice.voice, kClock, false);
    EXPECT_TRUE(voice.voice.isDead);
}

} // namespace
} // namespace vimbo::synth
