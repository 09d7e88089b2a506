// The block path: the same bits whatever the threads, nothing allocated, no system call, changes while it
// runs.
#include "synth/synth_fixture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <random>
#include <thread>

#if defined(__linux__)
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

// Address sanitizers bring their own allocation.
#if defined(__SANITIZE_ADDRESS__)
#define VIMBO_COUNTS_ALLOCATIONS 0
#else
#define VIMBO_COUNTS_ALLOCATIONS 1
#endif

#if VIMBO_COUNTS_ALLOCATIONS
namespace {
std::atomic<bool> countsAllocations{false};
std::atomic<std::size_t> allocations{0};

void* Allocate(std::size_t size)
{
    if (countsAllocations.load(std::memory_order_relaxed))
        ++allocations;
    if (void* memory = std::malloc(size == 0 ? 1 : size))
        return memory;
    throw std::bad_alloc();
}
} // namespace

void* operator new(std::size_t size)
{
    return Allocate(size);
}
void operator delete(void* memory) noexcept
{
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}
#endif

namespace vimbo::synth {
namespace {

/// Regions of all filter kinds, with EQ, LFOs, sends to four effects, and noise LFOs that draw random
/// numbers.
std::unique_ptr<SynthInstrument> MakeRichInstrument()
{
    std::vector<float> wave(1000);
    std::mt19937 random(3);
    for (float& sample : wave)
        sample = static_cast<float>(random() % 2001) / 1000 - 1;
    const auto sample = MakeSample(wave, 44100);
    std::vector<SynthRegion> regions;
    for (unsigned kind = 0; kind < 13; ++kind) {
        SynthRegion region = MakeRegion(sample, kind);
        region.keys = {static_cast<std::uint8_t>(kind * 9), static_cast<std::uint8_t>(kind * 9 + 20)};
        region.fades.keys = {region.keys.low, region.keys.low, region.keys.high, region.keys.high,
                             FadeFormula::EqualPower};
        region.params[kArtFilterType] = static_cast<float>(kind);
        region.params[kArtCutoff] = 300.0f + 300 * static_cast<float>(kind);
        region.params[kArtResonance] = 6;
        region.params[kArtPan] = static_cast<float>(kind) / 6 - 1;
        region.params[kArtPLfoToPitch] = 0.3f;
        region.params[kArtLfos] = static_cast<float>(kind % 4); // with noise
        region.params[kArtRandomToPitch] = 0.1f;
        region.params[kArtEqGain] = kind % 2 == 0 ? 6.0f : 0.0f;
        for (std::size_t n = 0; n < kSends; ++n)
            region.params[kArtSend + kSendParams * n] = 0.2f;
        regions.push_back(std::move(region));
    }
    auto instrument = MakeInstrument(std::move(regions));
    instrument->effects = {kDefaultChorus, kDefaultReverb,
                           ChannelFx{ChannelFxType::Delay, {1}, {0.1f, 0.4f, 0.3f, 0, 4000}},
                           ChannelFx{ChannelFxType::Phaser, {1}, {0.5f, 0.5f, 6, 0.3f}}};
    return instrument;
}

/// Notes and controllers on 8 channels, the same for the same seed.
void SendRandomEvents(SynthEngine& engine, std::mt19937& generator)
{
    const auto random = [&generator] { return static_cast<unsigned>(generator()); };
    for (int i = 0; i < 6; ++i) {
        const unsigned channel = random() % 8, key = 20 + random() % 90;
        switch (random() % 8) {
        case 0:
            engine.Dispatch(SynthEvent::Make(0xE0 | channel, random() % 128, random() % 128));
            break;
        case 1:
            engine.Dispatch(SynthEvent::Make(0xB0 | channel, 10, random() % 128));
            break;
        case 2:
        case 3:
            engine.Dispatch(SynthEvent::Make(0x80 | channel, key));
            break;
        default:
            engine.Dispatch(SynthEvent::Make(0x90 | channel, key, 1 + random() % 127));
        }
    }
}

struct SongSetup {
    unsigned threads;
    bool effects, meters;
};

Rendered RenderRandomSong(const SongSetup& setup, std::size_t blocks)
{
    SynthEngine engine({.polyphony = 256, .gain = 0.1f, .threads = setup.threads});
    engine.effectsOn = setup.effects;
    engine.metersOn = setup.meters;
    engine.PutInstrument(MakeRichInstrument());
    std::mt19937 random(11);
    Rendered all;
    for (std::size_t b = 0; b < blocks; ++b) {
        SendRandomEvents(engine, random);
        const Rendered block = RenderBlocks(engine, 1);
        all.left.insert(all.left.end(), block.left.begin(), block.left.end());
        all.right.insert(all.right.end(), block.right.begin(), block.right.end());
    }
    EXPECT_GT(engine.VoiceCount(), 200u) << "enough for several workers";
    return all;
}

TEST(EngineBlock, SameBitsForAnyNumberOfThreads)
{
    for (const bool effects : {true, false}) {
        const Rendered one = RenderRandomSong({1, effects, false}, 400);
        EXPECT_GT(one.Peak(), 0.05f);
        for (const unsigned threads : {1u, 2u, 3u, 8u}) {
            const Rendered other = RenderRandomSong({threads, effects, threads == 2}, 400);
            EXPECT_EQ(one.left, other.left) << threads;
            EXPECT_EQ(one.right, other.right) << threads;
        }
    }
}

/// However voices are spread over kinds, channels, batches and threads: what comes out is their sum. Lower
/// keys are not filtered; every third channel goes through its effects.
TEST(EngineBlock, EveryVoiceIsHeardOnce)
{
    const auto make = [](std::uint32_t patch) {
        SynthRegion low = MakeRegion(Ones(), 1), high = MakeRegion(Ones(), 2);
        // The wave's start follows silence, which the interpolation overshoots: not into the loop.
        low.wave.loopStart = high.wave.loopStart = 8;
        low.keys = {0, 59};
        high.keys = {60, 127};
        high.params[kArtFilterType] = 2;
        high.params[kArtCutoff] = 5000;
        return MakeInstrument({std::move(low), std::move(high)}, patch);
    };
    float one = 0;
    for (const unsigned voices : {1u, 2u, 3u, 5u, 16u, 17u, 31u, 33u, 64u, 100u, 129u, 200u}) {
        SynthEngine engine({.polyphony = 256, .gain = 1.0f / 64, .threads = 2});
        engine.clampOutput = false;
        engine.metersOn = true;
        engine.PutInstrument(make(0));
        auto withEffects = make(1);
        withEffects->effects[0] = kDefaultChorus; // nothing is sent to it
        engine.PutInstrument(std::move(withEffects));
        for (unsigned channel = 0; channel < 7; ++channel)
            engine.Dispatch(SynthEvent::Make(0xC0 | channel, channel % 3 == 0 ? 1 : 0));
        for (unsigned i = 0; i < voices; ++i)
            engine.Dispatch(SynthEvent::Make(0x90 | i % 7, 20 + i % 90, 127));
        RenderBlocks(engine, 100);
        ASSERT_EQ(engine.VoiceCount(), voices);
        const float peak = RenderBlocks(engine, 1).Peak();
        one = voices == 1 ? peak : one;
        EXPECT_NEAR(peak / one, voices, 0.002 * voices);
        float meters = 0;
        for (unsigned channel = 0; channel < 7; ++channel)
            meters += engine.Meter(channel);
        EXPECT_NEAR(meters / 64 / one, voices, 0.002 * voices);
    }
    EXPECT_GT(one, 0.001f);
}

#if VIMBO_COUNTS_ALLOCATIONS
TEST(EngineBlock, AllocatesNothing)
{
    SynthEngine engine({.polyphony = 256, .threads = 2});
    engine.PutInstrument(MakeRichInstrument());
    std::mt19937 random(5);
    alignas(32) std::array<float, 2 * kBlockFrames> block{};
    countsAllocations = true;
    for (int b = 0; b < 600; ++b) {
        SendRandomEvents(engine, random);
        engine.Dispatch(SynthEvent::Make(0xC0, 0));
        engine.PostEvent(SynthEvent::Make(0x91, 60, 100), engine.PositionSeconds());
        engine.Render(block);
    }
    countsAllocations = false;
    EXPECT_EQ(allocations, 0u);
}
#endif

#if defined(__linux__) && defined(__x86_64__) && VIMBO_COUNTS_ALLOCATIONS
/// From here on a system call other than leaving kills the thread's process.
bool ForbidSystemCalls()
{
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, 0), // the number of the call
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_exit_group, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
    };
    const sock_fprog filter{std::size(program), program};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

TEST(EngineBlock, MakesNoSystemCall)
{
    constexpr int kGood = 7, kNoFilter = 8;
    const pid_t child = fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
        SynthEngine engine({.polyphony = 256, .threads = 1});
        engine.PutInstrument(MakeRichInstrument());
        std::mt19937 random(5);
        alignas(32) std::array<float, 2 * kBlockFrames> block{};
        if (!ForbidSystemCalls())
            _exit(kNoFilter);
        for (int b = 0; b < 300; ++b) {
            SendRandomEvents(engine, random);
            engine.Render(block);
        }
        _exit(kGood);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    if (WIFEXITED(status) && WEXITSTATUS(status) == kNoFilter)
        GTEST_SKIP() << "this system allows no filter for system calls";
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == kGood) << "ended with status " << status;
}
#endif

TEST(EngineBlock, EventsActAtTheirBlock)
{
    SynthEngine engine({.gain = 1, .threads = 1});
    engine.PutInstrument(MakeInstrument({MakeRegion()}));
    const Rendered silence = RenderBlocks(engine, 3);
    EXPECT_EQ(silence.Peak(), 0);
    EXPECT_EQ(engine.StatusText(), u"");
    EXPECT_TRUE(engine.PostEvent(SynthEvent::Make(0x90, 60, 127), 10 * 64 / 48000.0));
    RenderBlocks(engine, 6); // up to block 9
    EXPECT_EQ(engine.VoiceCount(), 0u);
    RenderBlocks(engine, 1);
    EXPECT_EQ(engine.VoiceCount(), 1u);
    EXPECT_EQ(engine.StatusText(), u"1 region");
    EXPECT_TRUE(engine.PostEvent(SynthEvent::Make(0x80, 60), 0)) << "the past is the next block";
    RenderBlocks(engine, 400);
    EXPECT_EQ(engine.VoiceCount(), 0u);
    std::size_t taken = 0;
    while (engine.PostEvent(SynthEvent::Make(0xB0, 1, 1), 0))
        ++taken;
    EXPECT_EQ(taken, EventRing::kSlots) << "a full ring refuses and overwrites nothing";
    engine.Seek(2, true);
    EXPECT_NEAR(engine.PositionSeconds(), 2, 64 / 48000.0);
    EXPECT_TRUE(engine.PostEvent(SynthEvent::Make(0xB0, 1, 1), 2));
}

TEST(EngineBlock, ClipsOnlyWhereWanted)
{
    SynthEngine engine({.gain = 4, .threads = 1});
    engine.PutInstrument(MakeInstrument({MakeRegion()}));
    engine.Dispatch(SynthEvent::Make(0x90, 60, 127));
    EXPECT_EQ(RenderBlocks(engine, 20).Peak(), 1);
    EXPECT_EQ(engine.StatusText(), u"1 region -CLIPPING-");
    engine.clampOutput = false;
    EXPECT_GT(RenderBlocks(engine, 20).Peak(), 1.5f);
    EXPECT_TRUE(engine.TakeClipped());
    engine.SetSampleRate(48000);
    EXPECT_EQ(engine.VoiceCount(), 1u) << "the same rate changes nothing";
    engine.SetSampleRate(44100);
    EXPECT_EQ(engine.VoiceCount(), 0u);
}

TEST(EngineBlock, NothingLeavesThatHurts)
{
    std::vector<float> bad(256, 1e30f);
    bad[100] = std::nanf("");
    SynthEngine engine({.gain = 1, .threads = 1});
    engine.clampOutput = false;
    engine.PutInstrument(MakeInstrument({MakeRegion(MakeSample(bad))}));
    engine.Dispatch(SynthEvent::Make(0x90, 60, 127));
    const Rendered out = RenderBlocks(engine, 40);
    for (const float sample : out.left)
        ASSERT_LE(std::abs(sample), 15.85f); // false for NaN
    EXPECT_GT(engine.LastPeak(), 15.8f);
}

TEST(EngineBlock, InstrumentsChangeWhileBlocksRun)
{
    SynthEngine engine({.gain = 0.1f, .threads = 2});
    engine.PutInstrument(MakeRichInstrument());
    engine.running = true;
    std::atomic<bool> stop{false};
    std::atomic<std::size_t> bad{0};
    std::thread renderer([&] {
        std::mt19937 random(2);
        alignas(32) std::array<float, 2 * kBlockFrames> block{};
        while (!stop) {
            SendRandomEvents(engine, random);
            engine.Render(block);
            bad += std::ranges::count_if(block, [](float x) { return !std::isfinite(x); }) != 0 ? 1u : 0u;
        }
    });
    for (unsigned i = 0; i < 60; ++i) {
        auto next = MakeRichInstrument();
        next->regions.erase(next->regions.begin() + i % 13); // its voices fade
        next->regions.front().params[kArtFilterType] = static_cast<float>(i % 13);
        next->effects[i % 4].type = static_cast<ChannelFxType>(i % 9);
        engine.PutInstrument(std::move(next));
        if (i % 10 == 0)
            engine.Seek(i, i % 20 == 0);
    }
    engine.RemoveInstrument(0);
    stop = true;
    renderer.join();
    EXPECT_EQ(bad, 0u);
    EXPECT_EQ(engine.VoiceCount(), 0u) << "nothing plays what is gone";
}

TEST(EngineBlock, LiveUpdateKeepsWhatSounds)
{
    SynthEngine engine({.gain = 1, .threads = 1});
    engine.PutInstrument(MakeInstrument({MakeRegion(Ones(), 4), MakeRegion(Ones(), 5)}));
    engine.Dispatch(SynthEvent::Make(0x90, 60, 127));
    RenderBlocks(engine, 20);
    SynthRegion edited = MakeRegion(Ones(), 5);
    edited.params[kArtVolume] = -20;
    engine.PutInstrument(MakeInstrument({std::move(edited)}));
    RenderBlocks(engine, 60);
    EXPECT_EQ(engine.VoiceCount(), 1u) << "the region that went has faded";
    EXPECT_NEAR(RenderBlocks(engine, 1).Peak(), 0.0620001 * std::sqrt(0.5), 1e-4);
}

} // namespace
} // namespace vimbo::synth
