// One block of each channel effect, fed with noise; and what copying the same sound costs, as the limit. The
// counter "per_frame" is the time of one stereo frame.
#include "synth/effects/effect_slot.h"

#include <benchmark/benchmark.h>
#include <cstring>
#include <string>

namespace {

using namespace vimbo;
using namespace vimbo::synth;

constexpr double kRate = 48000;

struct NamedEffect {
    const char* name;
    ChannelFx fx;
};

const NamedEffect kEffects[] = {
    {"chorus/2_voices", kDefaultChorus},
    {"chorus/4_voices_feedback", {ChannelFxType::Chorus, {4, 0, 0}, {0.6f, 0.003f, 0.4f, 0, 0}}},
    {"chorus/flanger", {ChannelFxType::Chorus, {1, 0, 1}, {0.3f, 0.002f, 0.7f, 0, 0}}},
    {"reverb", kDefaultReverb},
    {"reverb/gated", {ChannelFxType::Reverb, {1, 0, 0}, {0.8f, 0.5f, 0.01f, 0.2f, 0.1f}}},
    {"delay", {ChannelFxType::Delay, {0, 0, 0}, {0.35f, 0.5f, 0.5f, 0, 0}}},
    {"delay/low_pass", {ChannelFxType::Delay, {1, 0, 0}, {0.35f, 0.5f, 0.5f, 0, 4000}}},
    {"tremolo", {ChannelFxType::Tremolo, {0, 0, 0}, {5, 0, 0, 0, 0}}},
    {"compressor", {ChannelFxType::Compressor, {0, 0, 0}, {-20, 4, 0.01f, 0.2f, 0}}},
    {"distortion/soft", {ChannelFxType::Distortion, {0, 0, 0}, {-20, 0, 0, 0, 0}}},
    {"distortion/hard", {ChannelFxType::Distortion, {1, 0, 0}, {-20, 0, 0, 0, 0}}},
    {"phaser/6_stages", {ChannelFxType::Phaser, {1, 0, 0}, {0.5f, 0.8f, 0.000125f, 0.5f, 0}}},
    {"phaser/12_stages", {ChannelFxType::Phaser, {1, 0, 0}, {0.5f, 0.8f, 0.00025f, 0.5f, 0}}},
    {"phaser/48_stages", {ChannelFxType::Phaser, {1, 0, 0}, {0.5f, 0.8f, 0.001f, 0.5f, 0}}},
    {"transient", {ChannelFxType::Transient, {0, 0, 0}, {0.5f, 0.5f, 0, 0, 0}}},
    {"transient/peak", {ChannelFxType::Transient, {0, 0, 0}, {0.5f, 0.5f, 2000, 0, 0}}},
};

StereoBlock Noise()
{
    SynthRandom random;
    StereoBlock block;
    for (std::size_t n = 0; n < kBlockFrames; ++n) {
        block.left[n] = 0.3f * random.NextBipolar();
        block.right[n] = 0.3f * random.NextBipolar();
    }
    return block;
}

void CountFrames(benchmark::State& state)
{
    const double frames = static_cast<double>(state.iterations()) * kBlockFrames;
    state.counters["per_frame"] =
        benchmark::Counter(frames, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void Copy(benchmark::State& state)
{
    const StereoBlock from = Noise();
    StereoBlock to;
    for (auto _ : state) {
        std::memcpy(&to, &from, sizeof to);
        benchmark::DoNotOptimize(to);
        benchmark::ClobberMemory();
    }
    CountFrames(state);
}

void RunEffect(benchmark::State& state, const ChannelFx& fx)
{
    EffectSlot slot;
    slot.Reserve(EffectSlot::MemoryNeeded(fx, kRate));
    slot.Setup(fx, kRate);
    const StereoBlock send = Noise();
    StereoBlock dry;
    for (auto _ : state) {
        std::memcpy(&dry, &send, sizeof dry); // what the effects add must not pile up
        slot.Process(dry, send, false, false);
        benchmark::DoNotOptimize(dry);
    }
    CountFrames(state);
}

void Asleep(benchmark::State& state)
{
    EffectSlot slot;
    slot.Reserve(EffectSlot::MemoryNeeded(kDefaultReverb, kRate));
    slot.Setup(kDefaultReverb, kRate);
    StereoBlock dry = Noise();
    for (auto _ : state) {
        slot.Process(dry, dry, true, true);
        benchmark::DoNotOptimize(dry);
    }
    CountFrames(state);
}

} // namespace

int main(int argc, char** argv)
{
    benchmark::RegisterBenchmark("memcpy", Copy);
    benchmark::RegisterBenchmark("asleep", Asleep);
    for (const NamedEffect& effect : kEffects)
        benchmark::RegisterBenchmark(effect.name, RunEffect, effect.fx);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
