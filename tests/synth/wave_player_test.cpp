// Loops and segments, against the same rules followed one frame at a time.
#include "synth/wave_player.h"

#include "voice_builders.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>

namespace vimbo::synth {
namespace {

/// The position's rules, frame by frame, as they read.
class Twin {
public:
    explicit Twin(const WaveSound& sound) : sound_(sound), position_(static_cast<double>(sound.start))
    {
        const auto start = static_cast<double>(sound.start), end = static_cast<double>(sound.end);
        const double loopStart = std::max(sound.loopStart, start), loopEnd = std::min(sound.loopEnd, end);
        if (sound.loopType == LoopType::Off || loopStart >= loopEnd) {
            segments_ = {{start, end, 1, LoopType::Forward, false}};
        } else {
            segments_ = {{start, loopStart, 1, LoopType::Forward, false},
                         {loopStart, loopEnd, 255, sound.loopType, sound.breakOnRelease}};
            if (sound.breakOnRelease)
                segments_.push_back({loopEnd, end, 1, LoopType::Forward, false});
        }
        current_ = segments_[0];
    }

    float Next(double rate)
    {
        if (hasEnded)
            return 0;
        const float value = sound_.sample->Data()[static_cast<std::ptrdiff_t>(position_)];
        if (isTuned_)
            rate *= std::exp2(sound_.loopTuning / 12);
        position_ += isBackward_ ? -rate : rate;
        while (!hasEnded && !(isBackward_ ? position_ >= current_.start : position_ < current_.end))
            Turn();
        return value;
    }
    void Release()
    {
        isReleased_ = true;
        if (!current_.breaks)
            return;
        current_.repeats = 1;
        if (isBackward_) {
            current_.mode = LoopType::Forward;
            current_.repeats = 2;
        }
    }
    double Position() const { return position_; }
    bool hasEnded = false;

private:
    struct Segment {
        double start, end;
        int repeats;
        LoopType mode;
        bool breaks;
    };

    void Turn()
    {
        if (current_.repeats != 255 && --current_.repeats == 0) {
            isTuned_ = false;
            if (++index_ == segments_.size()) {
                hasEnded = true;
                return;
            }
            current_ = segments_[index_];
            if (current_.breaks && isReleased_)
                current_.repeats = 1;
            return;
        }
        isTuned_ = true;
        if (!isBackward_ && current_.mode == LoopType::Forward) {
            position_ -= current_.end - current_.start;
        } else if (isBackward_ && current_.mode == LoopType::Reverse) {
            position_ += current_.end - current_.start;
        } else {
            position_ = isBackward_ ? current_.start + (current_.start - position_)
                                    : current_.end - (position_ - current_.end);
            isBackward_ = !isBackward_;
        }
    }

    const WaveSound& sound_;
    std::vector<Segment> segments_;
    Segment current_{};
    std::size_t index_ = 0;
    double position_;
    bool isBackward_ = false, isReleased_ = false, isTuned_ = false;
};

WaveSound Ramp(std::uint32_t frames)
{
    WaveSound sound;
    sound.sample =
        MakeSample(frames, 1, 48000, [](std::size_t i, std::size_t) { return static_cast<float>(i + 1); });
    sound.end = frames;
    return sound;
}

/// Plays sound and twin side by side, `release` frames in with the key.
void ExpectLikeTwin(const WaveSound& sound, double rate, int release, int frames, std::mt19937& random)
{
    Twin twin(sound);
    WavePlayer player;
    player.Start(sound);
    std::array<float, 64> out;
    for (int done = 0; done < frames;) {
        int count = 1 + static_cast<int>(random() % out.size());
        if (done == release) {
            twin.Release();
            player.Release();
        }
        if (done < release)
            count = std::min(count, release - done);
        const std::span<float> part(out.data(), static_cast<std::size_t>(count));
        player.Read(sound, rate, done >= release, part);
        for (int i = 0; i < count; ++i)
            ASSERT_EQ(part[static_cast<std::size_t>(i)], twin.Next(rate)) << "frame " << done + i;
        ASSERT_EQ(player.HasEnded(), twin.hasEnded) << "frame " << done + count;
        if (!twin.hasEnded) {
            ASSERT_EQ(player.Position(), twin.Position()) << "frame " << done + count;
        }
        done += count;
    }
}

TEST(WavePlayer, LoopsAreExactToTheFrame)
{
    std::mt19937 random(42);
    const auto below = [&random](std::uint32_t n) { return static_cast<int>(random() % n); };
    for (int round = 0; round < 4000; ++round) {
        const auto frames = static_cast<std::uint32_t>(1 + below(300));
        WaveSound sound = Ramp(frames);
        sound.start = below(4) == 0 ? below(frames) : 0;
        sound.end = below(4) == 0 ? sound.start + below(frames - static_cast<std::uint32_t>(sound.start)) + 1
                                  : frames;
        sound.loopStart = below(frames) - (below(8) == 0 ? 40 : 0);
        sound.loopEnd = sound.loopStart + 1 + below(below(2) == 0 ? 8 : frames) + (below(8) == 0 ? 1000 : 0);
        sound.loopType = static_cast<LoopType>(below(4));
        sound.breakOnRelease = below(2) == 0;
        sound.loopTuning = below(3) == 0 ? 12.0f : 0.0f;
        const_cast<SynthSample&>(*sound.sample).WrapLoop(sound.loopStart, sound.loopType);
        const double rate = 1 + below(below(2) == 0 ? 3 : 900);
        SCOPED_TRACE(testing::Message()
                     << "round " << round << ": frames " << frames << ", played " << sound.start << ".."
                     << sound.end << ", loop " << sound.loopStart << ".." << sound.loopEnd << ", type "
                     << static_cast<int>(sound.loopType) << ", rate " << rate);
        ExpectLikeTwin(sound, rate, below(2) == 0 ? below(600) : 100000, 1500, random);
        if (testing::Test::HasFatalFailure())
            return;
    }
}

/// Rates and points of 1/256: positions are exact, so no frame may be off.
TEST(WavePlayer, FractionalRatesLandWhereTheRulesSay)
{
    std::mt19937 random(43);
    const auto fraction = [&random](unsigned n) { return static_cast<double>(random() % (n * 256)) / 256; };
    for (int round = 0; round < 2000; ++round) {
        WaveSound sound = Ramp(500);
        sound.loopStart = fraction(400);
        sound.loopEnd = sound.loopStart + 1.0 / 16 + fraction(100);
        sound.loopType = static_cast<LoopType>(1 + random() % 3);
        sound.breakOnRelease = true;
        const double rate = 1.0 / 256 + fraction(round % 2 != 0 ? 2 : 1000);
        Twin twin(sound);
        WavePlayer player;
        player.Start(sound);
        std::array<float, 64> out;
        for (int block = 0; block < 40; ++block) {
            if (block == 30) {
                twin.Release();
                player.Release();
            }
            player.Read(sound, rate, block >= 30, out);
            for (int i = 0; i < 64; ++i)
                twin.Next(rate);
            ASSERT_EQ(player.HasEnded(), twin.hasEnded) << round << ' ' << block;
            if (twin.hasEnded)
                break;
            ASSERT_EQ(player.Position(), twin.Position()) << round << ' ' << block;
        }
    }
}

/// Single cycles and other loops of whole samples: what sounds is the interpolation of the endless row of
/// frames that the loop makes, without a step at the seams.
TEST(WavePlayer, LoopsOfWholeSamplesHaveNoSeam)
{
    std::mt19937 random(44);
    const auto unit = [&random] { return static_cast<double>(random()) / 4294967296.0; };
    for (int round = 0; round < 600; ++round) {
        const auto frames = static_cast<std::uint32_t>(1 + random() % (round % 2 != 0 ? 6 : 60));
        WaveSound sound;
        auto sample = MakeSample(frames, 1, 48000,
                                 [&](std::size_t, std::size_t) { return static_cast<float>(unit() - 0.5); });
        sound.loopType = static_cast<LoopType>(1 + random() % 3);
        sample->WrapLoop(0, sound.loopType);
        sound.sample = sample;
        sound.end = frames;
        sound.loopEnd = frames;
        const auto row = [&](std::ptrdiff_t k) {
            const auto n = static_cast<std::ptrdiff_t>(frames);
            if (k < n)
                return k < 0 ? 0.0f : sample->Data()[k];
            const std::ptrdiff_t phase = k % (2 * n);
            switch (sound.loopType) {
            case LoopType::Reverse:
                return sample->Data()[(n - k % n) % n];
            case LoopType::Alternating:
                return sample->Data()[phase < n ? phase : std::min(2 * n - phase, n - 1)];
            default:
                return sample->Data()[k % n];
            }
        };
        const double rate = 0.05 + unit() * (round % 3 != 0 ? 1 : 7);
        WavePlayer player;
        player.Start(sound);
        std::array<float, 64> out;
        for (int block = 0; block < 8; ++block) {
            player.Read(sound, rate, false, out);
            for (std::size_t i = 0; i < out.size(); ++i) {
                const double at = rate * static_cast<double>(block * 64 + static_cast<int>(i));
                const auto k = static_cast<std::ptrdiff_t>(at);
                if (sound.loopType == LoopType::Reverse && std::abs(at - frames) <= 1)
                    continue; // where it turns once, the frames behind the end are those of the later turns
                const float p[] = {row(k - 1), row(k), row(k + 1), row(k + 2)};
                const double t = at - static_cast<double>(k);
                const double wanted =
                    p[1] +
                    0.5 * t *
                        (p[2] - p[0] +
                         t * (2 * p[0] - 5 * p[1] + 4 * p[2] - p[3] + t * (3 * (p[1] - p[2]) + p[3] - p[0])));
                ASSERT_NEAR(out[i], wanted, 2e-5)
                    << "round " << round << ", " << frames << " frames, type "
                    << static_cast<int>(sound.loopType) << ", rate " << rate << ", at " << at;
            }
        }
    }
}

TEST(WavePlayer, TuningHoldsFromTheFirstWrapToTheExit)
{
    WaveSound sound = Ramp(1000);
    sound.loopType = LoopType::Forward;
    sound.loopStart = 100;
    sound.loopEnd = 200;
    sound.loopTuning = 12;
    sound.breakOnRelease = true;
    WavePlayer player;
    player.Start(sound);
    std::array<float, 200> first;
    player.Read(sound, 1, false, first);
    EXPECT_EQ(first[199], 200) << "the first pass is not tuned";
    std::array<float, 50> turn;
    player.Read(sound, 1, false, turn);
    EXPECT_EQ(turn[0], 101);
    EXPECT_EQ(turn[1], 103);
    EXPECT_EQ(turn[49], 199);
    player.Release();
    player.Read(sound, 1, true, turn);
    player.Read(sound, 1, true, turn);
    EXPECT_EQ(turn[0], 201);
    EXPECT_EQ(turn[1], 202) << "behind the loop, the rate is the voice's again";
}

TEST(WavePlayer, StereoReadsBothSidesAlike)
{
    std::mt19937 random(3);
    WaveSound mono = Ramp(300), stereo = mono;
    stereo.sample = MakeSample(300, 2, 48000, [](std::size_t i, std::size_t channel) {
        return channel == 0 ? static_cast<float>(i + 1) : -2 * static_cast<float>(i + 1);
    });
    for (WaveSound* sound : {&mono, &stereo}) {
        sound->loopType = LoopType::Alternating;
        sound->loopStart = 50.25;
        sound->loopEnd = 290.5;
    }
    WavePlayer one, two;
    one.Start(mono);
    two.Start(stereo);
    std::array<float, 64> out, left, right;
    for (int block = 0; block < 50; ++block) {
        one.Read(mono, 1.37, false, out);
        two.Read(stereo, 1.37, false, left, right);
        for (std::size_t i = 0; i < out.size(); ++i) {
            ASSERT_EQ(left[i], out[i]);
            ASSERT_NEAR(right[i], -2 * out[i], 1e-3);
        }
    }
}

TEST(WavePlayer, EmptySamplesNeverEndOthersAreSilentBehindTheirEnd)
{
    std::array<float, 64> out;
    WavePlayer player;
    WaveSound nothing;
    player.Start(nothing);
    player.Read(nothing, 1, false, out);
    EXPECT_FALSE(player.HasEnded());
    EXPECT_EQ(out[0], 0);
    WaveSound sound = Ramp(40);
    player.Start(sound);
    player.Read(sound, 1, false, out);
    EXPECT_TRUE(player.HasEnded());
    EXPECT_EQ(out[39], 40);
    EXPECT_EQ(out[40], 0);
    player.Read(sound, 1, false, out);
    EXPECT_EQ(out[0], 0);
}

TEST(WavePlayer, EditsKeepAPositionInsideTheNewRange)
{
    std::array<float, 64> out;
    WaveSound sound = Ramp(1000);
    WavePlayer player;
    player.Start(sound);
    for (int n = 0; n < 5; ++n)
        player.Read(sound, 1, false, out);
    sound.loopType = LoopType::Alternating;
    sound.loopStart = 100;
    sound.loopEnd = 330;
    player.Edit(sound, false);
    player.Read(sound, 1, false, out);
    EXPECT_EQ(out[0], 321);
    EXPECT_EQ(out[10], 331) << "the turning point, one behind the loop";
    EXPECT_EQ(out[11], 330);
    sound.loopEnd = 400; // still on its way back
    player.Edit(sound, false);
    player.Read(sound, 1, false, out);
    EXPECT_EQ(out[0], 277);
    EXPECT_EQ(out[1], 276);
    sound.start = 600; // outside now
    player.Edit(sound, false);
    player.Read(sound, 1, false, out);
    EXPECT_EQ(out[0], 601);
    EXPECT_EQ(out[1], 602);
}

/// Nothing may hang, leave the sample (the sanitizers tell), or lose its position.
TEST(WavePlayer, AnyLoopsAndRatesAreSafe)
{
    std::mt19937 random(11);
    constexpr double kInf = std::numeric_limits<double>::infinity();
    const double odd[] = {0,     1,      39.5, 40,    41,           -1,     1e-12, 1e-300,
                          1e300, -1e300, kInf, -kInf, std::nan(""), 20.001, 20};
    const auto pick = [&] { return odd[random() % std::size(odd)]; };
    std::array<float, 64> out;
    for (int round = 0; round < 20000; ++round) {
        WaveSound sound = Ramp(random() % 5 == 0 ? 1 : 40);
        sound.loopStart = pick();
        sound.loopEnd = random() % 3 == 0 ? sound.loopStart + pick() : pick();
        sound.loopType = static_cast<LoopType>(random() % 4);
        sound.breakOnRelease = random() % 2 == 0;
        sound.loopTuning = static_cast<float>(pick());
        sound.start = static_cast<std::int64_t>(random() % 100) - 30;
        sound.end = static_cast<std::int64_t>(random() % 100) - 30;
        WavePlayer player;
        player.Start(sound);
        for (int block = 0; block < 6; ++block) {
            if (block == 3)
                player.Release();
            if (block == 4)
                player.Edit(sound, true);
            player.Read(sound, pick(), block >= 3, out);
            ASSERT_TRUE(std::isfinite(player.Position()));
            for (const float value : out)
                ASSERT_TRUE(std::abs(value) < 100) << round;
        }
    }
}

} // namespace
} // namespace vimbo::synth
