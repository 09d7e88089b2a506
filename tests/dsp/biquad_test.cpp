#include "dsp/kernels/biquad.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <cstring>
#include <gtest/gtest.h>
#include <numbers>
#include <vector>

namespace {

using namespace vimbo;
using Complex = std::complex<double>;
using Block = std::array<float, kEqFrames>;

/// The analogue prototypes at frequency s, relative to the centre.
Complex Prototype(EqMode mode, Complex s, double gainDb, double q)
{
    const double a = std::pow(10.0, gainDb / 40), root = std::sqrt(a);
    if (mode == EqMode::Peak)
        return (s * s + s * (a / q) + 1.0) / (s * s + s / (a * q) + 1.0);
    if (mode == EqMode::LowShelf)
        return a * (s * s + root / q * s + a) / (a * s * s + root / q * s + 1.0);
    return a * (a * s * s + root / q * s + 1.0) / (s * s + root / q * s + a);
}

TEST(Biquad, HasTheResponseOfItsAnaloguePrototype)
{
    for (const EqMode mode : {EqMode::Peak, EqMode::LowShelf, EqMode::HighShelf}) {
        for (const double ratio : {0.001, 0.01, 0.1, 0.3, 0.45}) {
            for (const double gainDb : {-18.0, -3.0, 6.0, 24.0}) {
                for (const double q : {0.3, 0.7071, 4.0}) {
                    const BiquadCoefs c = ComputeBiquad(mode, static_cast<float>(ratio),
                                                        static_cast<float>(gainDb), static_cast<float>(q));
                    for (const double frequency : {0.0, 0.0005, 0.001, 0.02, 0.1, 0.25, 0.3, 0.49}) {
                        const double w = 2 * std::numbers::pi * frequency;
                        const Complex z = std::polar(1.0, -w);
                        const Complex s(0, std::tan(w / 2) / std::tan(std::numbers::pi * ratio));
                        const Complex got = (double{c.b0} + double{c.b1} * z + double{c.b2} * z * z) /
                                            (1.0 + double{c.a1} * z + double{c.a2} * z * z);
                        const Complex expected = Prototype(mode, s, gainDb, q);
                        EXPECT_NEAR(20 * std::log10(std::abs(got) / std::abs(expected)), 0, 0.1)
                            << static_cast<int>(mode) << " " << ratio << " " << gainDb << " " << q << " "
                            << frequency;
                    }
                }
            }
        }
    }
}

TEST(Biquad, BringsWildSettingsIntoRange)
{
    for (const float ratio : {-1.0f, 0.0f, 0.5f, 7.0f}) {
        for (const float q : {-1.0f, 0.0f, 1e9f}) {
            const BiquadCoefs c = ComputeBiquad(EqMode::Peak, ratio, 24, q);
            // Both poles inside the unit circle, by the triangle of Jury.
            EXPECT_LE(std::abs(c.a2), 1.0f) << ratio << " " << q;
            EXPECT_LE(std::abs(c.a1), 1.0f + c.a2) << ratio << " " << q;
        }
    }
}

struct Voice {
    Block samples{};
    std::uint8_t bands = 0;
    std::array<BiquadCoefs, kMaxEqBands> coefs;
    std::array<BiquadState, kMaxEqBands> states;
    EqLane Lane() { return {samples.data(), bands, coefs.data(), states.data()}; }
};

std::vector<Voice> Voices(std::size_t count)
{
    std::vector<Voice> voices(count);
    for (std::size_t i = 0; i < count; ++i) {
        voices[i].bands = static_cast<std::uint8_t>((i * 3 + count) % (kMaxEqBands + 1));
        for (std::size_t b = 0; b < kMaxEqBands; ++b) {
            const auto mode = static_cast<EqMode>((b + i) % 3);
            voices[i].coefs[b] = ComputeBiquad(mode, 0.002f * static_cast<float>(1 + i + 20 * b),
                                               static_cast<float>(b) * 9.0f - 8.0f, 0.7f);
        }
    }
    return voices;
}

void RunAll(std::vector<Voice>& voices, decltype(&RunEqLanes) run)
{
    std::vector<EqLane> lanes;
    for (Voice& voice : voices)
        lanes.push_back(voice.Lane());
    run(lanes);
}

TEST(EqLanes, GiveTheBitsOfOneByOneAndOfTheDefinition)
{
    for (const std::size_t count : {1u, 3u, 8u, 9u, 16u, 23u, 50u}) {
        auto fast = Voices(count), plain = Voices(count);
        std::vector<std::array<std::array<double, 4>, kMaxEqBands>> history(count); // x1, x2, y1, y2
        for (std::uint32_t repeat = 0; repeat < 4; ++repeat) {
            std::uint32_t seed = repeat;
            for (std::size_t i = 0; i < count; ++i)
                for (std::size_t f = 0; f < kEqFrames; ++f) {
                    seed = seed * 1664525 + 1013904223;
                    fast[i].samples[f] = plain[i].samples[f] =
                        static_cast<float>(seed >> 8) * 0x1p-23f - 1.0f;
                }
            const auto in = fast;
            RunAll(fast, RunEqLanes);
            RunAll(plain, RunEqLanesPlain);
            for (std::size_t i = 0; i < count; ++i) {
                ASSERT_EQ(fast[i].samples, plain[i].samples) << i << " of " << count;
                ASSERT_EQ(std::memcmp(fast[i].states.data(), plain[i].states.data(), sizeof fast[i].states),
                          0);
                for (std::size_t f = 0; f < kEqFrames; ++f) {
                    double x = in[i].samples[f];
                    for (std::size_t b = 0; b < in[i].bands; ++b) {
                        const BiquadCoefs& c = in[i].coefs[b];
                        auto& [x1, x2, y1, y2] = history[i][b];
                        const double y = c.b0 * x + c.b1 * x1 + c.b2 * x2 - c.a1 * y1 - c.a2 * y2;
                        x2 = x1, x1 = x, y2 = y1, y1 = y;
                        x = y;
                    }
                    ASSERT_NEAR(fast[i].samples[f], x, 1e-3) << i << " of " << count;
                }
            }
        }
    }
}

TEST(EqLanes, DecayToSilenceWithoutDenormals)
{
    auto voices = Voices(24);
    for (Voice& voice : voices)
        voice.samples[0] = 1;
    const auto isDenormal = [](float x) { return std::fpclassify(x) == FP_SUBNORMAL; };
    for (int repeat = 0; repeat < 400; ++repeat) {
        RunAll(voices, RunEqLanes);
        for (Voice& voice : voices) {
            ASSERT_FALSE(std::ranges::any_of(voice.samples, isDenormal)) << repeat;
            for (const BiquadState& state : voice.states)
                ASSERT_FALSE(isDenormal(state.s1) || isDenormal(state.s2)) << repeat;
            voice.samples = {};
        }
    }
}

} // namespace
