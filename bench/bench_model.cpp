// The passes over a huge collection: 2,000 instruments with 100,000 regions on 20,000 waveforms. Each time is
// for the whole collection.
#include "model/fix_up.h"
#include "model/instrument.h"
#include "model/stereo_pairs.h"
#include "model/waveform.h"

#include <benchmark/benchmark.h>

#include <memory>

namespace {

using namespace vimbo;

constexpr unsigned kInstruments = 2000;
constexpr unsigned kLayers = 5;
constexpr unsigned kRegions = 10; ///< in each layer
constexpr unsigned kWaveforms = 20000;

std::u16string Numbered(std::u16string_view word, unsigned number)
{
    const std::string digits = std::to_string(number);
    return std::u16string(word).append(digits.begin(), digits.end());
}

/// As a reader leaves it: a tenth of the names clash, values are set everywhere, every second layer is the
/// right half of a stereo pair.
std::unique_ptr<Collection> RoughCollection()
{
    auto items = std::make_unique<Collection>();
    std::vector<ItemHandle> waves;
    for (unsigned i = 0; i < kWaveforms; ++i) {
        Waveform& wave = items->Create<Waveform>(Numbered(u"Sample ", i % (kWaveforms * 9 / 10)));
        wave.frames = 1000 + i / 2;
        wave.SetSourceFormat(DataFormat::Pcm16, 0);
        wave.sourceOffset = std::uint64_t{i} * 100000;
        wave.SetText(kTextSourcePath, u"/bank.sf2");
        waves.push_back(wave.Handle());
    }
    for (unsigned i = 0; i < kInstruments; ++i) {
        Instrument& instrument = items->Create<Instrument>(Numbered(u"Preset ", i % 1800));
        instrument.location.word = i * 7919 % 4096;
        for (unsigned l = 0; l < kLayers; ++l) {
            Layer& layer = instrument.AddLayer();
            for (unsigned r = 0; r < kRegions; ++r) {
                const auto low = static_cast<std::uint8_t>(r * 12);
                Region& region = layer.AddRegion(waves[(i * 10 + r * 2 + l % 2) % kWaveforms],
                                                 {low, static_cast<std::uint8_t>(low + 12)},
                                                 {0, static_cast<std::uint8_t>(127 - l)}, 60);
                region.articulation.Set(kArtPan, l % 2 == 0 ? -1.0f : 1.0f);
                for (ParamId id = 80; id < 120; ++id)
                    region.articulation.Set(id, static_cast<float>(r));
            }
        }
    }
    return items;
}

void RunPass(benchmark::State& state, SourceHoldsStereo stereo)
{
    std::size_t regions = 0;
    for (auto step : state) {
        state.PauseTiming();
        std::unique_ptr<Collection> items = RoughCollection();
        regions += items->CountOf(ItemKind::Region);
        state.ResumeTiming();
        FixUpItems(*items, kPruneAll, AfterLoad::Yes, stereo);
        state.PauseTiming();
        items.reset();
        state.ResumeTiming();
    }
    state.counters["regions/s"] =
        benchmark::Counter(static_cast<double>(regions), benchmark::Counter::kIsRate);
}

void BM_FixUpAfterLoad(benchmark::State& state)
{
    RunPass(state, SourceHoldsStereo::Yes);
}
BENCHMARK(BM_FixUpAfterLoad)->Unit(benchmark::kMillisecond);

void BM_FixUpAndJoinStereo(benchmark::State& state)
{
    RunPass(state, SourceHoldsStereo::No);
}
BENCHMARK(BM_FixUpAndJoinStereo)->Unit(benchmark::kMillisecond);

void BM_FixUpAgain(benchmark::State& state)
{
    const std::unique_ptr<Collection> items = RoughCollection();
    FixUpItems(*items, kPruneAll, AfterLoad::Yes);
    for (auto step : state)
        FixUpItems(*items, kPruneAll, AfterLoad::No);
}
BENCHMARK(BM_FixUpAgain)->Unit(benchmark::kMillisecond);

void BM_MergeAndRemoveDuplicates(benchmark::State& state)
{
    for (auto step : state) {
        state.PauseTiming();
        std::unique_ptr<Collection> first = RoughCollection(), second = RoughCollection();
        state.ResumeTiming();
        first->Merge(*second);
        benchmark::DoNotOptimize(RemoveDuplicateWaves(*first));
        state.PauseTiming();
        first.reset();
        second.reset();
        state.ResumeTiming();
    }
}
BENCHMARK(BM_MergeAndRemoveDuplicates)->Unit(benchmark::kMillisecond);

void BM_Build(benchmark::State& state)
{
    for (auto step : state)
        benchmark::DoNotOptimize(RoughCollection());
}
BENCHMARK(BM_Build)->Unit(benchmark::kMillisecond);

} // namespace
