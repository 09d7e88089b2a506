// What one voice costs in the whole engine: nanoseconds per voice and frame, by feature, for one thread and
// for two, and how many times more the second carries. 256 voices (the pool's size) sound all the time; a
// plain copy of as many floats stands beside them.
#include "synth/engine.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <limits>
#include <vector>

namespace {

using namespace vimbo;
using namespace vimbo::synth;

constexpr std::size_t kVoices = SynthEngine::kVoices;

struct Feature {
    const char* name;
    int filter = 0; ///< FilterType
    bool hasEq = false, isStereo = false, isModulated = false, hasSends = false, isOneChannel = false;
    std::uint32_t loopFrames = 43900;
};

std::shared_ptr<const SynthSample> MakeNoise(unsigned channels)
{
    auto sample = SynthSample::Create(44100, channels, 44100);
    SynthRandom random;
    for (float& frame : sample->Fill())
        frame = random.NextBipolar();
    return sample;
}

std::unique_ptr<SynthInstrument> MakeInstrument(const Feature& feature)
{
    auto instrument = std::make_unique<SynthInstrument>();
    SynthRegion region;
    region.regionId = 1;
    region.keys = region.velocities = {0, 127};
    region.fades = CrossFadeRanges(TriggerParams{});
    region.allowOverlap = true;
    const auto values = DefaultArticulation().Values();
    std::copy(values.begin(), values.end(), region.params.begin());
    region.wave.sample = MakeNoise(feature.isStereo ? 2 : 1);
    region.wave.end = region.wave.sample->Frames();
    region.wave.loopType = LoopType::Forward;
    region.wave.loopEnd = feature.loopFrames;
    region.params[kArtFilterType] = static_cast<float>(feature.filter);
    region.params[kArtCutoff] = 2000;
    region.params[kArtResonance] = 6;
    if (feature.hasEq)
        region.params[kArtEqGain] = 6;
    if (feature.isModulated) {
        region.params[kArtPLfoToPitch] = 0.2f;
        region.params[kArtFLfoToCutoff] = 6;
        region.params[kArtVLfoToVolume] = 3;
        region.params[kArtFEnvToCutoff] = 12;
        region.params[kArtXLfoToPan] = 0.2f;
    }
    if (feature.hasSends) {
        region.params[kArtSend] = 0.3f;
        region.params[kArtSend + kSendParams] = 0.3f;
        instrument->effects[0] = kDefaultReverb;
        instrument->effects[1] = kDefaultChorus;
    }
    instrument->regions.push_back(std::move(region));
    return instrument;
}

/// An engine whose voices all sound.
class Stage {
public:
    Stage(const Feature& feature, unsigned threads)
        : engine_({.polyphony = kVoices, .rateHz = 44100, .threads = threads})
    {
        engine_.PutInstrument(MakeInstrument(feature));
        for (unsigned i = 0; i < kVoices; ++i)
            engine_.Dispatch(SynthEvent::Make(0x90 | (feature.isOneChannel ? 0 : i % 16), 20 + i % 90, 100));
        Render(100);
    }
    std::size_t VoiceCount() const { return engine_.VoiceCount(); }

    /// Nanoseconds per voice and frame over a run of blocks.
    double Measure()
    {
        Render(20); // wakes workers, fills the caches
        const auto before = std::chrono::steady_clock::now();
        Render(kBlocks);
        const std::chrono::duration<double, std::nano> time = std::chrono::steady_clock::now() - before;
        return time.count() / static_cast<double>(kBlocks * kVoices * kBlockFrames);
    }

private:
    static constexpr std::size_t kBlocks = 50;

    void Render(std::size_t blocks)
    {
        for (std::size_t i = 0; i < blocks; ++i) {
            engine_.Render(out_);
            benchmark::DoNotOptimize(out_);
        }
    }

    SynthEngine engine_;
    alignas(32) std::array<float, 2 * kBlockFrames> out_{};
};

/// Short runs with one thread and with two in turn, the best of each: what other programs take away falls on
/// both alike. The time of an iteration is that of both runs; the counters are what counts.
void Voices(benchmark::State& state, Feature feature)
{
    Stage one(feature, 1), two(feature, 2);
    if (one.VoiceCount() != kVoices || two.VoiceCount() != kVoices)
        state.SkipWithError("voices ended");
    double bestOne = std::numeric_limits<double>::max(), bestTwo = bestOne;
    for (auto _ : state) {
        bestOne = std::min(bestOne, one.Measure());
        bestTwo = std::min(bestTwo, two.Measure());
    }
    state.counters["1 thread, ns/voice/frame"] = bestOne;
    state.counters["2 threads"] = bestTwo;
    state.counters["gain"] = bestOne / bestTwo;
    state.counters["voices/core at 44.1 kHz"] = 1e9 / 44100 / bestOne;
}

/// The memory's part: one block of floats read and written per voice.
void Copy(benchmark::State& state)
{
    std::vector<float> from(kVoices * kBlockFrames, 1.0f), to(from.size());
    for (auto _ : state) {
        std::memcpy(to.data(), from.data(), from.size() * sizeof(float));
        benchmark::DoNotOptimize(to.data());
        benchmark::ClobberMemory();
    }
    state.counters["ns/voice/frame"] =
        benchmark::Counter(static_cast<double>(from.size()) * static_cast<double>(state.iterations()) / 1e9,
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(Copy);

constexpr Feature kFeatures[] = {
    {"plain"},
    {"filter_12dB", 2},
    {"filter_24dB", 4},
    {"filter_12dB_modulated", 2, false, false, true},
    {"filter_12dB_eq", 2, true},
    {"filter_12dB_stereo", 2, false, true},
    {"filter_12dB_sends", 2, false, false, false, true},
    {.name = "plain_cycles_of_64", .loopFrames = 64},
    {"plain_one_channel", 0, false, false, false, false, true},
    {"filter_12dB_one_channel", 2, false, false, false, false, true},
};

const int kRegistered = [] {
    for (const Feature& feature : kFeatures)
        benchmark::RegisterBenchmark((std::string("Voices/") + feature.name).c_str(), Voices, feature)
            ->UseRealTime();
    return 0;
}();

} // namespace
