// What one voice costs in the whole engine: nanoseconds per voice and frame, by feature, for one thread and
// for two. 256 voices (the pool's size) sound all the time; a plain copy of as many floats stands beside
// them.
#include "synth/engine.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

namespace {

using namespace vimbo;
using namespace vimbo::synth;

constexpr std::size_t kVoices = SynthEngine::kVoices;

struct Feature {
    const char* name;
    int filter = 0; ///< FilterType
    bool hasEq = false, isStereo = false, isModulated = false, hasSends = false;
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
    region.wave.loopStart = 100;
    region.wave.loopEnd = 44000;
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

void Voices(benchmark::State& state, Feature feature, unsigned threads)
{
    SynthEngine engine({.polyphony = kVoices, .rateHz = 44100, .threads = threads});
    engine.PutInstrument(MakeInstrument(feature));
    for (unsigned i = 0; i < kVoices; ++i)
        engine.Dispatch(SynthEvent::Make(0x90 | i % 16, 20 + i % 90, 100));
    alignas(32) std::array<float, 2 * kBlockFrames> out{};
    for (int warm = 0; warm < 100; ++warm)
        engine.Render(out);
    if (engine.VoiceCount() != kVoices)
        state.SkipWithError("voices ended");
    for (auto _ : state) {
        engine.Render(out);
        benchmark::DoNotOptimize(out);
    }
    const double frames =
        static_cast<double>(kVoices * kBlockFrames) * static_cast<double>(state.iterations());
    state.counters["ns/voice/frame"] =
        benchmark::Counter(frames / 1e9, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    state.counters["voices/core at 44.1 kHz"] =
        benchmark::Counter(frames / 44100 / threads, benchmark::Counter::kIsRate);
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
};

const int kRegistered = [] {
    for (const Feature& feature : kFeatures)
        for (const unsigned threads : {1u, 2u})
            benchmark::RegisterBenchmark(
                (std::string("Voices/") + feature.name + "/threads:" + std::to_string(threads)).c_str(),
                Voices, feature, threads)
                ->UseRealTime();
    return 0;
}();

} // namespace
