// Every sample encoding in both directions: the plain form, the fast form, and memcpy of the float side as
// the limit. Bytes per second count the float side, four bytes a sample, whatever the encoding's own width.
#include "dsp/kernels/sample_convert.h"

#include <benchmark/benchmark.h>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

namespace {

using namespace vimbo;

constexpr std::size_t kSamples = 64 * 1024; // 256 KiB of floats: what a reader converts at a time

struct NamedLayout {
    const char* name;
    SampleLayout layout;
};

constexpr std::endian kBig = std::endian::big;
constexpr std::endian kLittle = std::endian::little;
const std::vector<NamedLayout> kLayouts = {
    {"pcm8", {SampleCoding::Pcm8, false, kLittle}},
    {"pcm8_unsigned", {SampleCoding::Pcm8, true, kLittle}},
    {"pcm12", {SampleCoding::Pcm12, false, kLittle}},
    {"pcm12_big", {SampleCoding::Pcm12, false, kBig}},
    {"pcm16", {SampleCoding::Pcm16, false, kLittle}},
    {"pcm16_big", {SampleCoding::Pcm16, false, kBig}},
    {"pcm20", {SampleCoding::Pcm20, false, kLittle}},
    {"pcm20_big", {SampleCoding::Pcm20, false, kBig}},
    {"pcm24", {SampleCoding::Pcm24, false, kLittle}},
    {"pcm24_big", {SampleCoding::Pcm24, false, kBig}},
    {"pcm24_in_32", {SampleCoding::Pcm24In32, false, kLittle}},
    {"pcm32", {SampleCoding::Pcm32, false, kLittle}},
    {"pcm32_big", {SampleCoding::Pcm32, false, kBig}},
    {"float32", {SampleCoding::Float32, false, kLittle}},
    {"float32_big", {SampleCoding::Float32, false, kBig}},
    {"float64", {SampleCoding::Float64, false, kLittle}},
    {"float64_big", {SampleCoding::Float64, false, kBig}},
    {"mulaw", {SampleCoding::MuLaw, false, kLittle}},
    {"alaw", {SampleCoding::ALaw, false, kLittle}},
    {"delta8", {SampleCoding::Delta8, false, kLittle}},
    {"delta16", {SampleCoding::Delta16, false, kLittle}},
};

std::vector<float> Sweep()
{
    std::vector<float> samples(kSamples);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const double t = static_cast<double>(i) / static_cast<double>(samples.size());
        samples[i] = static_cast<float>(0.9 * std::sin(20000.0 * t * t));
    }
    return samples;
}

using DecodeFunction = decltype(&DecodeSamples);
using EncodeFunction = decltype(&EncodeSamples);

std::vector<std::byte> Encoded(const SampleLayout& layout, const std::vector<float>& samples)
{
    std::vector<std::byte> bytes(StoredBytes(layout.coding, samples.size()));
    DeltaState delta;
    EncodeSamples(layout, samples, bytes, delta);
    return bytes;
}

void CountFloatBytes(benchmark::State& state)
{
    state.SetBytesProcessed(static_cast<std::int64_t>(kSamples * sizeof(float)) * state.iterations());
}

void Decode(benchmark::State& state, DecodeFunction decode, SampleLayout layout)
{
    std::vector<float> samples = Sweep();
    const std::vector<std::byte> bytes = Encoded(layout, samples);
    for (auto _ : state) {
        DeltaState delta;
        decode(layout, bytes, samples, delta);
        benchmark::DoNotOptimize(samples.data());
        benchmark::ClobberMemory();
    }
    CountFloatBytes(state);
}

void Encode(benchmark::State& state, EncodeFunction encode, SampleLayout layout)
{
    const std::vector<float> samples = Sweep();
    std::vector<std::byte> bytes(StoredBytes(layout.coding, samples.size()));
    for (auto _ : state) {
        DeltaState delta;
        encode(layout, samples, bytes, delta);
        benchmark::DoNotOptimize(bytes.data());
        benchmark::ClobberMemory();
    }
    CountFloatBytes(state);
}

void Memcpy(benchmark::State& state)
{
    const std::vector<float> from = Sweep();
    std::vector<float> to(from.size());
    for (auto _ : state) {
        std::memcpy(to.data(), from.data(), from.size() * sizeof(float));
        benchmark::DoNotOptimize(to.data());
        benchmark::ClobberMemory();
    }
    CountFloatBytes(state);
}

} // namespace

int main(int argc, char** argv)
{
    benchmark::RegisterBenchmark("memcpy", Memcpy);
    for (const auto& [name, layout] : kLayouts) {
        const std::string text = name;
        benchmark::RegisterBenchmark(("decode/" + text + "/plain").c_str(), Decode, DecodeSamplesPlain,
                                     layout);
        benchmark::RegisterBenchmark(("decode/" + text + "/fast").c_str(), Decode, DecodeSamples, layout);
        benchmark::RegisterBenchmark(("encode/" + text + "/plain").c_str(), Encode, EncodeSamplesPlain,
                                     layout);
        benchmark::RegisterBenchmark(("encode/" + text + "/fast").c_str(), Encode, EncodeSamples, layout);
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
