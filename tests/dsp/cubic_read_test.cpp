#include "dsp/kernels/cubic_read.h"

#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace {

using namespace vimbo;

/// `frames` frames of noise with one frame in front and three behind, in memory of exactly that size. Zeros
/// among them let the smallest fractions show.
class Wave {
public:
    Wave(std::size_t frames, std::size_t channels)
        : channels_(channels), memory_(std::make_unique<float[]>((frames + 4) * channels))
    {
        std::uint32_t seed = 1;
        for (std::size_t i = 0; i < (frames + 4) * channels; ++i) {
            seed = seed * 1664525 + 1013904223;
            memory_[i] = i % 7 == 0 ? 0.0f : static_cast<float>(seed >> 8) * 0x1p-23f - 1.0f;
        }
    }
    float* Frames() { return memory_.get() + channels_; }

private:
    std::size_t channels_;
    std::unique_ptr<float[]> memory_;
};

constexpr double kPositions[] = {0, 1.2345e-12, 0.25, 7.9999999, 63, 500.1234567, 511.3, 1000.75};
constexpr double kRates[] = {1, 0.5, 0.0, 1.0001, 2, 7.3, -1, -0.31, -6.9};
constexpr std::size_t kWaveFrames = 2048;

bool IsInside(double position, double rate, std::size_t count)
{
    const double end = position + rate * static_cast<double>(count - 1);
    return end >= 0 && end < static_cast<double>(kWaveFrames);
}

TEST(CubicRead, FastAndPlainGiveTheSameBitsAndStayInside)
{
    Wave mono(kWaveFrames, 1), stereo(kWaveFrames, 2);
    for (const double position : kPositions) {
        for (const double rate : kRates) {
            for (std::size_t count = 1; count < 140; count += count < 70 ? 1 : 23) {
                if (!IsInside(position, rate, count))
                    continue;
                std::vector<float> left(count + 1, 9.0f), right(count + 1, 9.0f), expectedLeft(count),
                    expectedRight(count);
                ReadCubicMono(mono.Frames(), position, rate, std::span(left).first(count));
                ReadCubicMonoPlain(mono.Frames(), position, rate, expectedLeft);
                for (std::size_t i = 0; i < count; ++i)
                    ASSERT_EQ(left[i], expectedLeft[i])
                        << position << " " << rate << " " << count << " " << i;
                ReadCubicStereo(stereo.Frames(), position, rate, std::span(left).first(count),
                                std::span(right).first(count));
                ReadCubicStereoPlain(stereo.Frames(), position, rate, expectedLeft, expectedRight);
                for (std::size_t i = 0; i < count; ++i)
                    ASSERT_TRUE(left[i] == expectedLeft[i] && right[i] == expectedRight[i])
                        << position << " " << rate << " " << count << " " << i;
                ASSERT_TRUE(left[count] == 9.0f && right[count] == 9.0f);
            }
        }
    }
}

TEST(CubicRead, TouchesTheGuardFramesAndNothingBeyond)
{
    constexpr std::size_t kFrames = 16; // sanitizers see reads outside of the wave's memory
    Wave mono(kFrames, 1), stereo(kFrames, 2);
    for (const double rate : {1.0, 0.999, -1.0, -0.999}) {
        const double start = rate > 0 ? 0.0 : 15.999;
        std::vector<float> left(16), right(16), plain(16), plainRight(16);
        ReadCubicMono(mono.Frames(), start, rate, left);
        ReadCubicMonoPlain(mono.Frames(), start, rate, plain);
        EXPECT_EQ(left, plain);
        ReadCubicStereo(stereo.Frames(), start, rate, left, right);
        ReadCubicStereoPlain(stereo.Frames(), start, rate, plain, plainRight);
        EXPECT_TRUE(left == plain && right == plainRight);
    }
}

TEST(CubicRead, AnImpulseShowsTheKernel)
{
    std::vector<float> wave(32, 0.0f);
    wave[16] = 1;
    std::vector<float> out(8);
    ReadCubicMono(wave.data(), 14.5, 0.5, out); // Catmull and Rom: -1/16, 9/16, 9/16, -1/16 half way
    EXPECT_EQ(out, (std::vector<float>{-0.0625f, 0, 0.5625f, 1, 0.5625f, 0, -0.0625f, 0}));
    ReadCubicMono(wave.data(), 18, -0.5, out);
    EXPECT_EQ(out, (std::vector<float>{0, -0.0625f, 0, 0.5625f, 1, 0.5625f, 0, -0.0625f}));
    std::vector<float> four(4);
    ReadCubicMono(wave.data(), 14.25, 1, four); // the side with the original pitch and a constant fraction
    EXPECT_EQ(four, (std::vector<float>{-0.0234375f, 0.2265625f, 0.8671875f, -0.0703125f}));
}

TEST(CubicRead, FollowsParabolasAtAnyPositionAndRate)
{
    constexpr double kMiddle = 600000; // where positions summed up in single precision would be off by 1/32
    std::vector<float> wave(static_cast<std::size_t>(2 * kMiddle));
    const auto parabola = [](double x) { return 1e-4 * (x - kMiddle) * (x - kMiddle) - 0.3 * (x - kMiddle); };
    for (std::size_t i = 0; i < wave.size(); ++i)
        wave[i] = static_cast<float>(parabola(static_cast<double>(i)));
    for (const double rate : {0.7310585, 1.0, -1.37}) {
        std::vector<float> out(64);
        const double start = kMiddle + 0.4142;
        ReadCubicMono(wave.data(), start, rate, out);
        for (std::size_t n = 0; n < out.size(); ++n)
            EXPECT_NEAR(out[n], parabola(start + static_cast<double>(n) * rate), 1e-5) << rate << " " << n;
    }
}

} // namespace
