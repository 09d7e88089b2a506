#include "dsp/kernels/voice_mix.h"

#include <array>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace {

using namespace vimbo;
using Block = std::array<float, kMixFrames>;

/// One guard behind the block shows writes that go too far.
struct Guarded {
    Block block{};
    float guard = 77;
};

Block Sound(float phase)
{
    Block block;
    for (std::size_t i = 0; i < kMixFrames; ++i)
        block[i] = std::sin(static_cast<float>(i) * 0.7f + phase);
    return block;
}

TEST(VoiceMix, RampsReachTheirTargetAtTheLastFrame)
{
    for (const GainRamp& g :
         {GainRamp{0, 1, 1, 0}, {0.3f, 0.7f, 0.9f, 0.1f}, {0.2f, 0.2f, 0.123f, 0.123f}, {0, 0, 1e-6f, 4}}) {
        const Block in = Sound(0);
        Guarded left, right;
        StoreRamp(g, in.data(), in.data(), left.block.data(), right.block.data());
        for (std::size_t i = 0; i < kMixFrames; ++i) {
            const double part = static_cast<double>(i + 1) / 64;
            const auto gain = [part](double from, double to) { return from + (to - from) * part; };
            EXPECT_NEAR(left.block[i], in[i] * gain(g.oldLeft, g.newLeft), 4e-7);
            EXPECT_NEAR(right.block[i], in[i] * gain(g.oldRight, g.newRight), 4e-7);
            if (g.oldLeft == g.newLeft) {
                EXPECT_EQ(left.block[i], in[i] * g.newLeft);
            }
        }
        EXPECT_FLOAT_EQ(left.block[63], in[63] * g.newLeft);
        EXPECT_TRUE(left.guard == 77 && right.guard == 77);

        Block inPlace = in, other{};
        StoreRamp(g, inPlace.data(), inPlace.data(), inPlace.data(), other.data());
        EXPECT_TRUE(inPlace == left.block && other == right.block);
        Block stereoLeft = in, stereoRight = in;
        StoreRamp(g, stereoLeft.data(), stereoRight.data(), stereoLeft.data(), stereoRight.data());
        EXPECT_TRUE(stereoLeft == left.block && stereoRight == right.block);

        Block sum = Sound(1), sumRight = Sound(2), direct = sum, directRight = sumRight;
        AddTo(sum.data(), left.block.data());
        AddTo(sumRight.data(), right.block.data());
        AddRamp(g, in.data(), in.data(), direct.data(), directRight.data());
        EXPECT_TRUE(direct == sum && directRight == sumRight);
    }
}

TEST(VoiceMix, SumsAndCopiesEveryFrameOnce)
{
    const Block from = Sound(0.5f), before = Sound(3);
    Guarded added, scaled, stored, copied;
    added.block = scaled.block = before;
    AddTo(added.block.data(), from.data());
    AddScaled(scaled.block.data(), from.data(), 0.37f);
    StoreScaled(stored.block.data(), from.data(), 0.37f);
    StoreTo(copied.block.data(), from.data());
    for (std::size_t i = 0; i < kMixFrames; ++i) {
        EXPECT_EQ(added.block[i], before[i] + from[i]);
        const float product = from[i] * 0.37f; // rounded by itself: no fused multiply-add
        EXPECT_EQ(stored.block[i], product);
        EXPECT_EQ(scaled.block[i], before[i] + product);
    }
    EXPECT_EQ(copied.block, from);
    for (const Guarded& g : {added, scaled, stored, copied})
        EXPECT_EQ(g.guard, 77);

    std::array<float, 2 * kMixFrames> frames;
    Interleave(from.data(), before.data(), frames.data());
    for (std::size_t i = 0; i < kMixFrames; ++i)
        EXPECT_TRUE(frames[2 * i] == from[i] && frames[2 * i + 1] == before[i]);
}

TEST(VoiceMix, PeakIsFoundWhereverItStands)
{
    for (std::size_t at = 0; at < kMixFrames; ++at) {
        Block block = Sound(0);
        block[at] = at % 2 == 0 ? -1.25f : 1.25f;
        EXPECT_EQ(PeakOf(block.data()), 1.25f) << at;
        block[at] = -std::numeric_limits<float>::infinity();
        EXPECT_EQ(PeakOf(block.data()), std::numeric_limits<float>::infinity()) << at;
        block[at] = std::nanf("");
        EXPECT_TRUE(std::isnan(PeakOf(block.data()))) << at;
    }
    Block silent{};
    silent[5] = -0.0f;
    EXPECT_EQ(PeakOf(silent.data()), 0.0f);
}

} // namespace
