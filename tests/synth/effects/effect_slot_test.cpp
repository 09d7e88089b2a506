#include "effect_sound.h"

#include <gtest/gtest.h>
#include <limits>
#include <span>

namespace vimbo::synth::testing {
std::size_t CountAllocations();
void RunEffectOverNoise(const void* effect, double rate, std::span<float> out);
} // namespace vimbo::synth::testing
namespace vimbo_baseline::synth::testing {
void RunEffectOverNoise(const void* effect, double rate, std::span<float> out);
}

namespace vimbo::synth::testing {
namespace {

constexpr double kRate = 44100;
constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

const ChannelFx kEffects[] = {
    kDefaultChorus,
    Fx(ChannelFxType::Chorus, {3, 1, 1}, {4, 0.002f, 0.7f}),
    kDefaultReverb,
    Fx(ChannelFxType::Reverb, {2, 0, 0}, {1, 0, 0.01f, 0.1f, 0.1f}),
    Fx(ChannelFxType::Delay, {1, 0, 0}, {0.05f, 0.6f, 0.5f, -0.5f, 4000}),
    Fx(ChannelFxType::Delay, {}, {0.0005f, 0.6f, 0.25f, 0.5f, 200}),
    Fx(ChannelFxType::Tremolo, {1, 0, 0}, {6}),
    Fx(ChannelFxType::Compressor, {}, {-20, 4, 0.01f, 0.1f, 3}),
    Fx(ChannelFxType::Distortion, {}, {-24}),
    Fx(ChannelFxType::Distortion, {1, 0, 0}, {-24}),
    Fx(ChannelFxType::Phaser, {1, 0, 0}, {0.5f, 0.8f, 0.00025f, 0.6f}),
    Fx(ChannelFxType::Phaser, {0, 1, 0}, {3, 0.8f, 0.001f, 0}),
    Fx(ChannelFxType::Transient, {}, {0.7f, -0.4f, 3000}),
};

struct Blocks {
    StereoBlock dry, send;

    Blocks()
    {
        std::fill_n(dry.left, kBlockFrames, 7.0f); // what an empty block may hold
        std::fill_n(dry.right, kBlockFrames, 7.0f);
        std::fill_n(send.left, kBlockFrames, kNan);
        std::fill_n(send.right, kBlockFrames, kNan);
    }
};

struct TailCase {
    ChannelFx fx;
    double rate;
    std::uint64_t tailFrames; // by hand: ln(1e-6) = -13.815511
};
const TailCase kTails[] = {
    // 1628 * 13.815511 / -ln(0.7) + 567
    {Fx(ChannelFxType::Reverb, {}, {0, 0}), 44100, 63626},
    // lines of 2048 frames for 1102.5 + 2; rounds 13.815511 / -ln(0.5) = 19.93
    {Fx(ChannelFxType::Chorus, {1, 0, 0}, {1, 0, 0.5f}), 44100, 2048 + 40819},
    {Fx(ChannelFxType::Chorus, {1, 0, 0}, {1, 0, 0}), 44100, 2048},
    {Fx(ChannelFxType::Delay, {}, {0.01f, 0.5f, 0.5f, 0, 0}), 48000, 480 + 9567},
    {Fx(ChannelFxType::Tremolo, {}, {5}), 48000, 0},
    {Fx(ChannelFxType::Distortion, {}, {-10}), 48000, 0},
};

TEST(EffectSlot, SleepsAfterItsTailAndIsThenExactlySilent)
{
    for (const TailCase& c : kTails) {
        EffectSlot slot;
        Prepare(slot, c.fx, c.rate);
        EXPECT_TRUE(slot.IsAsleep());
        const Sound noise = Noise(6400, 0.5);
        const Sound first = Play(slot, noise);
        std::uint64_t silent = 0;
        float lastPeak = 0;
        while (!slot.IsAsleep() && silent < 10000000) {
            Blocks blocks;
            const bool sounds = slot.Process(blocks.dry, blocks.send, true, true);
            silent += kBlockFrames;
            EXPECT_EQ(sounds, !slot.IsAsleep());
            if (sounds)
                lastPeak = std::max(Peak({blocks.dry.left, blocks.dry.left + 64}, 0, 64),
                                    Peak({blocks.dry.right, blocks.dry.right + 64}, 0, 64));
        }
        EXPECT_EQ(silent, (c.tailFrames / kBlockFrames + 1) * kBlockFrames) << int(c.fx.type);
        EXPECT_LT(lastPeak, 2e-6f) << int(c.fx.type);
        Blocks blocks;
        EXPECT_FALSE(slot.Process(blocks.dry, blocks.send, true, true));
        EXPECT_EQ(blocks.dry.left[0], 7.0f); // not even looked at
        EXPECT_TRUE(slot.Process(blocks.dry, blocks.send, false, true));
        EXPECT_EQ(blocks.dry.left[0], 7.0f);
        // Woken up, it does what it did at first: nothing is left in the lines.
        const Sound again = Play(slot, noise);
        EXPECT_EQ(first.left, again.left) << int(c.fx.type);
        EXPECT_EQ(first.right, again.right) << int(c.fx.type);
    }
}

TEST(EffectSlot, EmptyBlocksMayHoldAnything)
{
    for (const ChannelFx& fx : kEffects) {
        EffectSlot given, empty;
        Prepare(given, fx, kRate);
        Prepare(empty, fx, kRate);
        const Sound noise = Noise(640);
        for (std::size_t at = 0; at < 640; at += kBlockFrames) {
            Blocks a, b;
            const bool isFed = at < 320;
            a.dry.Clear();
            Load(a.send, isFed ? noise : Sound(), at);
            if (isFed)
                b.send = a.send;
            given.Process(a.dry, a.send, false, !isFed);
            const bool sounds = empty.Process(b.dry, b.send, true, !isFed);
            if (fx.type == ChannelFxType::Compressor)
                EXPECT_FALSE(sounds); // nothing to multiply
            else
                EXPECT_TRUE(sounds || !isFed) << int(fx.type);
            for (std::size_t n = 0; sounds && n < kBlockFrames; ++n)
                ASSERT_EQ(a.dry.left[n], b.dry.left[n]) << int(fx.type);
        }
    }
}

TEST(EffectSlot, SameTypeKeepsItsTailOthersStartFromSilence)
{
    const auto tailPeak = [](EffectSlot& slot) {
        const Sound out = Play(slot, Sound(6400));
        return Peak(out.left, 0, 6400);
    };
    struct Case {
        ChannelFx before, after;
        double rateAfter;
        bool keeps;
    };
    const ChannelFx longDelay = Fx(ChannelFxType::Delay, {}, {0.09f, 0.5f, 0.5f, 0, 0});
    const ChannelFx shortDelay = Fx(ChannelFxType::Delay, {}, {0.03f, 0.9f, 0.5f, 0, 0});
    const ChannelFx room = Fx(ChannelFxType::Reverb, {}, {0.9f, 0.1f});
    for (const Case& c : {Case{kDefaultReverb, room, kRate, true}, Case{longDelay, shortDelay, kRate, true},
                          Case{shortDelay, longDelay, kRate, false}, Case{kDefaultReverb, room, 48000, false},
                          Case{kDefaultReverb, kDefaultChorus, kRate, false},
                          Case{kDefaultReverb, ChannelFx{}, kRate, false}}) {
        EffectSlot slot;
        slot.Reserve(std::max(EffectSlot::MemoryNeeded(c.before, kRate),
                              EffectSlot::MemoryNeeded(c.after, c.rateAfter)));
        slot.Setup(c.before, kRate);
        Play(slot, Noise(6400));
        slot.Setup(c.after, c.rateAfter);
        EXPECT_EQ(slot.Type(), c.after.type);
        EXPECT_EQ(tailPeak(slot) > 0, c.keeps) << int(c.before.type) << " " << int(c.after.type);
    }
    EffectSlot slot;
    Prepare(slot, kDefaultReverb, kRate);
    Play(slot, Noise(6400));
    slot.Clear();
    EXPECT_EQ(tailPeak(slot), 0);
}

TEST(EffectSlot, MemoryComesFromOutside)
{
    const std::size_t needed = EffectSlot::MemoryNeeded(kDefaultReverb, kRate);
    EffectSlot slot, whole;
    slot.Reserve(needed - 1);
    slot.Setup(kDefaultReverb, kRate);
    EXPECT_EQ(slot.Type(), ChannelFxType::None); // too little: off, and the sound passes
    Blocks blocks;
    EXPECT_TRUE(slot.Process(blocks.dry, blocks.send, false, false));
    EXPECT_EQ(blocks.dry.left[5], 7.0f);

    const std::unique_ptr<float[]> old = slot.Adopt(std::make_unique<float[]>(needed), needed);
    EXPECT_NE(old, nullptr);
    slot.Setup(kDefaultReverb, kRate);
    Prepare(whole, kDefaultReverb, kRate);
    const Sound noise = Noise(64 * 50);
    Play(slot, noise);
    Play(whole, noise);
    slot.Reserve(needed * 2); // moves, and takes the tail along
    slot.Setup(kDefaultReverb, kRate);
    EXPECT_EQ(slot.Memory(), needed * 2);
    EXPECT_EQ(Play(slot, Sound(6400)).left, Play(whole, Sound(6400)).left);

    EXPECT_NE(slot.Adopt(nullptr, 100), nullptr);
    EXPECT_EQ(slot.Type(), ChannelFxType::None);
    EXPECT_EQ(slot.Memory(), 0u);
}

TEST(EffectSlot, BlocksAndSetupsAllocateNothing)
{
    EffectSlot slot;
    const Sound noise = Noise(640);
    for (const ChannelFx& fx : kEffects) {
        slot.Reserve(EffectSlot::MemoryNeeded(fx, kRate));
        StereoBlock dry, send;
        const std::size_t before = CountAllocations();
        slot.Setup(fx, kRate);
        for (std::size_t at = 0; at < 640; at += kBlockFrames) {
            Load(send, noise, at);
            Load(dry, noise, at);
            slot.Process(dry, send, false, at > 320);
        }
        slot.Clear();
        EXPECT_EQ(CountAllocations(), before) << int(fx.type);
    }
}

TEST(EffectSlot, AnyParametersAndAnySoundStayFinite)
{
    constexpr float kOdd[] = {kNan, kInfinity, -kInfinity, 1e30f, -1e30f, 1e-40f, -1,
                              0,    1,         0.5f,       96,    -96,    1e6f};
    constexpr double kRates[] = {44100, 0, -1, 1e12, 1000, std::numeric_limits<double>::quiet_NaN()};
    SynthRandom random;
    const Sound noise = Noise(64 * 12);
    for (int round = 0; round < 3000; ++round) {
        ChannelFx fx;
        fx.type = static_cast<ChannelFxType>(round % 10); // 9 is no effect
        for (std::uint8_t& byte : fx.bytes)
            byte = static_cast<std::uint8_t>(random.Next() % 4 == 0 ? random.Next() : random.Next() % 3);
        for (float& value : fx.values)
            value = kOdd[random.Next() % std::size(kOdd)];
        const double rate = round < 300 ? kRates[random.Next() % std::size(kRates)] : 48000;
        if (rate > 48000 && fx.values[0] > 0.5f)
            fx.values[0] = 0.1f; // a delay of 10 s at this rate takes long to clear
        ASSERT_LE(EffectSlot::MemoryNeeded(fx, rate), 7700000u);
        EffectSlot slot;
        Prepare(slot, fx, rate);
        for (std::size_t at = 0; at < noise.Frames(); at += kBlockFrames) {
            StereoBlock dry, send;
            Load(dry, noise, at);
            Load(send, noise, at);
            if (at == 128)
                std::fill_n(send.left, 8, kOdd[random.Next() % 5]);
            slot.Process(dry, send, false, at > 512);
            for (std::size_t n = 0; n < kBlockFrames; ++n)
                ASSERT_TRUE(std::isfinite(dry.left[n]) && std::isfinite(dry.right[n]))
                    << "type " << int(fx.type) << ", round " << round << ", frame " << at + n;
        }
    }
    // A bad sample is gone as soon as the sound is.
    for (const ChannelFx& fx : kEffects) {
        EffectSlot slot;
        Prepare(slot, fx, kRate);
        Sound bad = Noise(64 * 40);
        bad.left[70] = kNan;
        bad.right[99] = -kInfinity;
        Play(slot, bad);
        const Sound after = Play(slot, Noise(64 * 40));
        for (std::size_t n = 0; n < after.Frames(); ++n)
            ASSERT_TRUE(std::isfinite(after.left[n]) && std::isfinite(after.right[n])) << int(fx.type);
    }
}

TEST(EffectSlot, EveryProcessorGivesTheSameBits)
{
    for (const ChannelFx& fx : kEffects) {
        for (const double rate : {48000.0, 8000.0}) {
            std::vector<float> best(64 * 400), baseline(64 * 400);
            RunEffectOverNoise(&fx, rate, best);
            vimbo_baseline::synth::testing::RunEffectOverNoise(&fx, rate, baseline);
            EXPECT_EQ(best, baseline) << int(fx.type);
            EXPECT_GT(Level(best, 0, best.size()), 0.01);
        }
    }
}

} // namespace
} // namespace vimbo::synth::testing
