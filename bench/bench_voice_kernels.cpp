// The kernels of voices, in nanoseconds per voice and frame: each alone and as a chain, beside plain forms.
#include "dsp/kernels/biquad.h"
#include "dsp/kernels/cubic_read.h"
#include "dsp/kernels/voice_filter.h"
#include "dsp/kernels/voice_mix.h"

#include <array>
#include <benchmark/benchmark.h>
#include <cmath>
#include <string>
#include <vector>

namespace {

using namespace vimbo;

constexpr std::size_t kFrames = 64;
constexpr std::size_t kVoices = 200;
constexpr std::size_t kWaveFrames = 48000;
constexpr float kRateHz = 48000;

using Block = std::array<float, kFrames>;

struct BenchVoice {
    double position = 1;
    double rate = 1;
    Block left{}, right{};
    VoiceFilterCoefs filter;
    VoiceFilterState state;
    std::array<BiquadCoefs, kMaxEqBands> eq;
    std::array<BiquadState, kMaxEqBands> eqState;
    float gainLeft = 0.1f, gainRight = 0.1f;
};

struct Stage {
    std::vector<float> wave = std::vector<float>(2 * kWaveFrames + 16);
    std::vector<BenchVoice> voices = std::vector<BenchVoice>(kVoices);
    std::vector<FilterLane> lanes;
    std::vector<EqLane> eqLanes;
    Block busLeft{}, busRight{};

    explicit Stage(VoiceFilterKind kind)
    {
        for (std::size_t i = 0; i < wave.size(); ++i)
            wave[i] = std::sin(static_cast<float>(i) * 0.05f);
        for (std::size_t i = 0; i < kVoices; ++i) {
            BenchVoice& voice = voices[i];
            const auto number = static_cast<float>(i);
            voice.rate = 0.5 + static_cast<double>(i) * 0.01;
            voice.filter = ComputeVoiceFilter(kind, 500 / kRateHz, number * 0.2f, 6);
            for (int band = 0; band < kMaxEqBands; ++band)
                voice.eq[static_cast<std::size_t>(band)] =
                    ComputeBiquad(EqMode::Peak, (200 + number * 10) / kRateHz, 3, 1);
            for (std::size_t f = 0; f < kFrames; ++f)
                voice.left[f] = voice.right[f] = std::sin(static_cast<float>(f + i));
        }
        for (BenchVoice& voice : voices) {
            lanes.push_back({voice.left.data(), &voice.filter, &voice.state});
            eqLanes.push_back({voice.left.data(), kMaxEqBands, voice.eq.data(), voice.eqState.data()});
        }
    }

    /// Keeps the positions of one more block inside the wave.
    static void Advance(BenchVoice& voice)
    {
        voice.position += voice.rate * static_cast<double>(kFrames);
        if (voice.position + 4 * static_cast<double>(kFrames) > kWaveFrames)
            voice.position -= kWaveFrames - 1000;
    }
};

void Report(benchmark::State& state, std::size_t voices)
{
    const double frames = static_cast<double>(voices * kFrames) * static_cast<double>(state.iterations());
    state.counters["ns/voice-frame"] =
        benchmark::Counter(frames * 1e-9, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

template <auto Read>
void ReadMono(benchmark::State& state, double fixedRate)
{
    Stage stage(VoiceFilterKind::LowPass12);
    for (auto _ : state) {
        for (BenchVoice& voice : stage.voices) {
            const double rate = fixedRate > 0 ? fixedRate : voice.rate;
            Read(stage.wave.data() + 1, voice.position, rate, voice.left);
            Stage::Advance(voice);
        }
        benchmark::ClobberMemory();
    }
    Report(state, kVoices);
}

template <auto Read>
void ReadStereo(benchmark::State& state, double fixedRate)
{
    Stage stage(VoiceFilterKind::LowPass12);
    for (auto _ : state) {
        for (BenchVoice& voice : stage.voices) {
            const double rate = fixedRate > 0 ? fixedRate : voice.rate;
            Read(stage.wave.data() + 2, voice.position, rate, voice.left, voice.right);
            Stage::Advance(voice);
        }
        benchmark::ClobberMemory();
    }
    Report(state, kVoices);
}

template <auto Run>
void Filter(benchmark::State& state, VoiceFilterKind kind, std::size_t voices)
{
    Stage stage(kind);
    for (auto _ : state) {
        Run(kind, std::span<const FilterLane>(stage.lanes).first(voices));
        benchmark::ClobberMemory();
    }
    Report(state, voices);
}

/// Voices whose input is fresh in each block: with `amplitude` 0 they fall silent, and would be slower than
/// the sounding ones if states ever reached the denormals.
void FilterFresh(benchmark::State& state, VoiceFilterKind kind, float amplitude)
{
    Stage stage(kind);
    Block input;
    for (std::size_t f = 0; f < kFrames; ++f)
        input[f] = amplitude * std::sin(static_cast<float>(f));
    for (auto _ : state) {
        for (BenchVoice& voice : stage.voices)
            voice.left = input;
        RunVoiceFilter(kind, stage.lanes);
        benchmark::ClobberMemory();
    }
    Report(state, kVoices);
}

void FilterCoefs(benchmark::State& state, VoiceFilterKind kind)
{
    float semitones = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(ComputeVoiceFilter(kind, 500 / kRateHz, semitones, semitones * 0.5f));
        semitones = semitones < 24 ? semitones + 0.01f : 0;
    }
    Report(state, 1);
}

template <auto Run>
void Eq(benchmark::State& state)
{
    Stage stage(VoiceFilterKind::LowPass12);
    for (auto _ : state) {
        Run(stage.eqLanes);
        benchmark::ClobberMemory();
    }
    Report(state, kVoices);
}

void RampAndAdd(benchmark::State& state)
{
    Stage stage(VoiceFilterKind::LowPass12);
    for (auto _ : state) {
        for (BenchVoice& voice : stage.voices) {
            Block left, right;
            StoreRamp({voice.gainLeft, 0.2f, voice.gainRight, 0.3f}, voice.left.data(), voice.left.data(),
                      left.data(), right.data());
            AddTo(stage.busLeft.data(), left.data());
            AddTo(stage.busRight.data(), right.data());
        }
        benchmark::ClobberMemory();
    }
    Report(state, kVoices);
}

void RampAddedDirectly(benchmark::State& state)
{
    Stage stage(VoiceFilterKind::LowPass12);
    for (auto _ : state) {
        for (BenchVoice& voice : stage.voices)
            AddRamp({voice.gainLeft, 0.2f, voice.gainRight, 0.3f}, voice.left.data(), voice.left.data(),
                    stage.busLeft.data(), stage.busRight.data());
        benchmark::ClobberMemory();
    }
    Report(state, kVoices);
}

void Peak(benchmark::State& state)
{
    Stage stage(VoiceFilterKind::LowPass12);
    for (auto _ : state) {
        for (BenchVoice& voice : stage.voices)
            benchmark::DoNotOptimize(PeakOf(voice.left.data()));
    }
    Report(state, kVoices);
}

/// Mono voices from their wave to the bus through the filter.
void Chain(benchmark::State& state, VoiceFilterKind kind)
{
    Stage stage(kind);
    for (auto _ : state) {
        for (BenchVoice& voice : stage.voices) {
            ReadCubicMono(stage.wave.data() + 1, voice.position, voice.rate, voice.left);
            Stage::Advance(voice);
        }
        RunVoiceFilter(kind, stage.lanes);
        for (BenchVoice& voice : stage.voices) {
            Block left, right;
            StoreRamp({voice.gainLeft, 0.2f, voice.gainRight, 0.3f}, voice.left.data(), voice.left.data(),
                      left.data(), right.data());
            AddTo(stage.busLeft.data(), left.data());
            AddTo(stage.busRight.data(), right.data());
        }
        benchmark::ClobberMemory();
    }
    Report(state, kVoices);
}

/// The same as one loop over frames, the way that a voice is usually written down.
void ChainScalar(benchmark::State& state)
{
    Stage stage(VoiceFilterKind::LowPass12);
    for (auto _ : state) {
        for (BenchVoice& voice : stage.voices) {
            double position = voice.position;
            float low = voice.state.low2, band = voice.state.band2;
            const float f = 0.1f, q = 0.5f;
            float left = voice.gainLeft, right = voice.gainRight;
            for (std::size_t n = 0; n < kFrames; ++n) {
                const auto whole = static_cast<std::int32_t>(position);
                const auto t = static_cast<float>(position - whole);
                const float* const p = stage.wave.data() + whole;
                const float linear = 0.5f * (p[2] - p[0]);
                const float square = p[0] - 2.5f * p[1] + 2 * p[2] - 0.5f * p[3];
                const float cube = 0.5f * (p[3] - p[0]) + 1.5f * (p[1] - p[2]);
                const float x = p[1] + t * (linear + t * (square + t * cube));
                for (int pass = 0; pass < 2; ++pass) {
                    low = (low + band * f) + 1e-18f - 1e-18f;
                    band = (band + (x - band * q - low) * f) + 1e-18f - 1e-18f;
                }
                left += 0.001f;
                right += 0.001f;
                stage.busLeft[n] += low * left;
                stage.busRight[n] += low * right;
                position += voice.rate;
            }
            voice.state.low2 = low;
            voice.state.band2 = band;
            Stage::Advance(voice);
        }
        benchmark::ClobberMemory();
    }
    Report(state, kVoices);
}

const std::vector<std::pair<const char*, VoiceFilterKind>> kKinds = {
    {"low6", VoiceFilterKind::LowPass6},        {"low12", VoiceFilterKind::LowPass12},
    {"low18", VoiceFilterKind::LowPass18},      {"low24", VoiceFilterKind::LowPass24},
    {"high12", VoiceFilterKind::HighPass12},    {"high24", VoiceFilterKind::HighPass24},
    {"notch24", VoiceFilterKind::BandReject12},
};

void RegisterFilters()
{
    for (const auto& [name, kind] : kKinds) {
        const std::string text = std::string("filter/") + name;
        benchmark::RegisterBenchmark((text + "/plain").c_str(), Filter<RunVoiceFilterPlain>, kind, kVoices);
        benchmark::RegisterBenchmark((text + "/fast").c_str(), Filter<RunVoiceFilter>, kind, kVoices);
        benchmark::RegisterBenchmark((text + "/fresh_sound").c_str(), FilterFresh, kind, 1.0f);
        benchmark::RegisterBenchmark((text + "/fresh_silence").c_str(), FilterFresh, kind, 0.0f);
        benchmark::RegisterBenchmark((text + "/coefs").c_str(), FilterCoefs, kind);
    }
    for (std::size_t voices : {1u, 4u, 8u, 16u})
        benchmark::RegisterBenchmark(("filter/low12/" + std::to_string(voices) + "_voices").c_str(),
                                     Filter<RunVoiceFilter>, VoiceFilterKind::LowPass12, voices);
}

} // namespace

int main(int argc, char** argv)
{
    benchmark::RegisterBenchmark("read/mono/plain", ReadMono<ReadCubicMonoPlain>, 0.0);
    benchmark::RegisterBenchmark("read/mono/fast", ReadMono<ReadCubicMono>, 0.0);
    benchmark::RegisterBenchmark("read/mono/unshifted", ReadMono<ReadCubicMono>, 1.0);
    benchmark::RegisterBenchmark("read/stereo/plain", ReadStereo<ReadCubicStereoPlain>, 0.0);
    benchmark::RegisterBenchmark("read/stereo/fast", ReadStereo<ReadCubicStereo>, 0.0);
    benchmark::RegisterBenchmark("read/stereo/unshifted", ReadStereo<ReadCubicStereo>, 1.0);
    RegisterFilters();
    benchmark::RegisterBenchmark("eq/three_bands/plain", Eq<RunEqLanesPlain>);
    benchmark::RegisterBenchmark("eq/three_bands/fast", Eq<RunEqLanes>);
    benchmark::RegisterBenchmark("mix/ramp_then_add", RampAndAdd);
    benchmark::RegisterBenchmark("mix/ramp_added", RampAddedDirectly);
    benchmark::RegisterBenchmark("mix/peak", Peak);
    benchmark::RegisterBenchmark("chain/read_low12_mix/scalar", ChainScalar);
    benchmark::RegisterBenchmark("chain/read_low12_mix/fast", Chain, VoiceFilterKind::LowPass12);
    benchmark::RegisterBenchmark("chain/read_low24_mix/fast", Chain, VoiceFilterKind::LowPass24);
    benchmark::RegisterBenchmark("chain/read_mix/fast", Chain, VoiceFilterKind::PassThru);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
