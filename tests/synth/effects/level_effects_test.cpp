// Tremolo, compressor and distortion.
#include "effect_sound.h"

#include <gtest/gtest.h>

namespace vimbo::synth::testing {
namespace {

Sound Constant(std::size_t frames, double level)
{
    return Make(frames, [=](std::size_t) { return level; });
}

// ---- Tremolo: with 1 in both dry and send, what comes out is its gain.

Sound TremoloGain(std::uint8_t shape, float hz, double rate, std::size_t frames)
{
    const Sound one = Constant(frames, 1);
    return Play(Fx(ChannelFxType::Tremolo, {shape, 0, 0}, {hz}), rate, one, one);
}

TEST(TremoloEffect, SineSwingsFromSilenceToFullAtItsRate)
{
    constexpr double kRate = 48000;
    for (const float hz : {0.5f, 6.0f, 11.0f}) {
        const Sound gain = TremoloGain(0, hz, kRate, 480000);
        std::size_t risings = 0;
        for (std::size_t n = 0; n < gain.Frames(); ++n) {
            const double phase = static_cast<double>(hz) * static_cast<double>(n + 1) / kRate;
            // Chords of 64 frames lie inside the sine.
            const double chord = std::pow(6.2831853 * static_cast<double>(hz) * 64 / kRate, 2) / 16;
            ASSERT_NEAR(gain.left[n], 0.5 + 0.5 * std::sin(6.283185307179586 * phase), chord + 2e-4) << n;
            ASSERT_EQ(gain.left[n], gain.right[n]);
            risings += n > 0 && gain.left[n - 1] < 0.25f && gain.left[n] >= 0.25f;
        }
        EXPECT_EQ(risings, static_cast<std::size_t>(hz * 10));
        EXPECT_NEAR(Peak(gain.left, 0, 480000), 1, 5e-3);
    }
}

TEST(TremoloEffect, ShapesAreUnipolarWhateverTheirPolarityBits)
{
    struct Case {
        std::uint8_t shape;
        std::array<double, 4> atEighths; // gain at 1/8, 3/8, 5/8 and 7/8 of a cycle of 64 blocks
    };
    const Case cases[] = {{1, {0.25, 0.75, 0.75, 0.25}},        {2, {1, 1, 0, 0}},
                          {4, {0.125, 0.375, 0.625, 0.875}},    {5, {0.875, 0.625, 0.375, 0.125}},
                          {0x40 | 1, {0.25, 0.75, 0.75, 0.25}}, {0x80 | 4, {0.125, 0.375, 0.625, 0.875}}};
    for (const Case& c : cases) {
        const Sound gain = TremoloGain(c.shape, 10, 64 * 64 * 10, 64 * 64);
        for (std::size_t i = 0; i < 4; ++i)
            EXPECT_NEAR(gain.left[64 * 64 * (2 * i + 1) / 8 - 1], c.atEighths[i], 1e-3)
                << int{c.shape} << " " << i;
    }
    // Noise holds a value for a cycle, then takes another.
    const Sound noise = TremoloGain(3, 10, 64 * 64 * 10, 64 * 64 * 4);
    for (std::size_t cycle = 0; cycle < 4; ++cycle)
        for (std::size_t n = 64; n < 64 * 62; ++n)
            ASSERT_EQ(noise.left[cycle * 4096 + n], noise.left[cycle * 4096 + 128]);
    EXPECT_NE(noise.left[2000], noise.left[6000]);
}

TEST(TremoloEffect, SendSetsTheDepth)
{
    const ChannelFx fx = Fx(ChannelFxType::Tremolo, {2, 0, 0}, {10});
    const Sound out = Play(fx, 40960, Constant(8192, 0.25), Constant(8192, 1));
    EXPECT_FLOAT_EQ(out.left[1000], 1.0f);
    EXPECT_FLOAT_EQ(out.left[3000], 0.75f);
}

// ---- Compressor

ChannelFx CompressorFx(float threshold, float ratio, float attack, float release, float makeUp)
{
    return Fx(ChannelFxType::Compressor, {}, {threshold, ratio, attack, release, makeUp});
}

TEST(CompressorEffect, StaticCurve)
{
    struct Case {
        float threshold, ratio, makeUp;
        double levelDb, gainDb;
    };
    // gain = over (1 / ratio - 1) + make-up + threshold / 4 (1 / ratio - 1)
    const Case cases[] = {
        {-20, 4, 0, -60, 3.75}, {-20, 4, 0, -20, 3.75},      {-20, 4, 0, -10, -3.75},
        {-20, 4, 0, 0, -11.25}, {-20, 4, 6, -10, -2.25},     {-20, 4, 6, -60, 9.75},
        {-40, 2, 0, -20, -5},   {-40, 1, 0, -10, 0},         {-20, 1000, 0, 0, -14.985},
        {0, 2, 0, 6, -3},       {-20, 0.5f, 0, -30, -5},     {-20, 0.5f, 0, -10, 5},
        {-20, 0, 3, -10, 3},    {0, 1, 6, -10, 0} /* off */, {10, 0.5f, 0, 20, 0} /* off */};
    for (const Case& c : cases) {
        const double level = std::pow(10, c.levelDb / 20);
        // The louder side counts, and the dry sound may be another one.
        const Sound send = Make(
            6400, [=](std::size_t) { return -level; }, [=](std::size_t) { return level / 2; });
        const Sound out = Play(CompressorFx(c.threshold, c.ratio, 0.001f, 0.001f, c.makeUp), 48000, send,
                               Make(
                                   6400, [](std::size_t) { return 0.5; }, [](std::size_t) { return -0.25; }));
        EXPECT_NEAR(Decibels(static_cast<double>(out.left[6399]) / 0.5), c.gainDb, 0.01)
            << c.threshold << " " << c.ratio << " " << c.levelDb;
        EXPECT_FLOAT_EQ(out.right[6399], out.left[6399] / -2);
    }
}

TEST(CompressorEffect, AttackAndReleaseTakeTheirTimes)
{
    constexpr double kRate = 48000, kFull = -15, kRest = 3.75; // dB at 0 dB over a threshold of -20, ratio 4
    const Sound send = Make(96000, [](std::size_t n) { return n < 48000 ? 1 : 0.01; });
    const Sound out = Play(CompressorFx(-20, 4, 0.05f, 0.2f, 0), kRate, send, Constant(96000, 1));
    const auto gainDb = [&](std::size_t n) { return Decibels(static_cast<double>(out.left[n])) - kRest; };
    for (const double times : {0.5, 1.0, 2.0}) {
        EXPECT_NEAR(gainDb(static_cast<std::size_t>(times * 0.05 * kRate) - 1),
                    kFull * (1 - std::exp(-times)), 0.02);
        EXPECT_NEAR(gainDb(48000 + static_cast<std::size_t>(times * 0.2 * kRate) - 1),
                    kFull * std::exp(-times), 0.02);
    }
}

// ---- Distortion

TEST(DistortionEffect, Curves)
{
    struct Case {
        std::uint8_t mode;
        float amountDb;
        double in, added;
    };
    // atan(1) is pi / 4, which the curve scales to 1/2.
    const Case cases[] = {
        {0, -20, 0.1, 0.4 * 0.31622777},
        {0, -20, -0.1, -0.4 * 0.31622777},
        {0, 0, 1, -0.5},
        {0, -40, 0.01, 0.49 * 0.1},
        {0, -40, 100, (0.99993634 - 100) * 0.1},
        {0, -20, 0, 0},
        {0, 48, 1, (0.00253444 - 1) * 63.0957344},
        {0, 96, 1, -63095.7344 * 15.8489},
        {1, -20, 0.5, -0.4 * 3.16227766},
        {1, -20, -0.5, 0.4 * 3.16227766},
        {1, -20, 0.05, 0},
        {1, 0, 3, -2},
        {1, 20, 3, 0},
        {1, -96, 0.5, -0.5 * 251.188643},
    };
    for (const Case& c : cases) {
        const double in = c.in;
        const Sound out =
            Play(Fx(ChannelFxType::Distortion, {c.mode, 0, 0}, {c.amountDb}), 48000, Constant(64, in));
        // 96 dB: 48 dB for the half, 36 dB for what lies above 24.
        const double added = c.amountDb == 96 ? -std::pow(10, 84.0 / 20) : c.added;
        EXPECT_NEAR(out.left[10], added, std::fabs(added) * 2e-6 + 1e-7) << int{c.mode} << " " << c.amountDb;
        EXPECT_EQ(out.left[10], out.right[63]);
    }
    // The whole arc tangent, finely.
    const Sound sweep = Make(64000, [](std::size_t n) { return (double(n) - 32000) * 0.0005; });
    const Sound bent = Play(Fx(ChannelFxType::Distortion, {}, {0}), 48000, sweep);
    for (std::size_t n = 0; n < sweep.Frames(); ++n) {
        const auto x = static_cast<double>(sweep.left[n]);
        ASSERT_NEAR(bent.left[n] + sweep.left[n], std::atan(x) * 2 / 3.14159265358979, 1.5e-6) << x;
    }
}

} // namespace
} // namespace vimbo::synth::testing
