// The passes over a huge collection: 2,000 instruments with 100,000 regions on 20,000 waveforms, and searches
// for room in one instrument of as many regions. Each time is for the whole collection.
#include "model/fix_up.h"
#include "model/instrument.h"
#include "model/stereo_pairs.h"
#include "model/waveform.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <random>

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

/// Ranges of regions that get in one another's way.
enum Shapes : int {
    kAnySize,      ///< any part of either axis
    kAroundMiddle, ///< all overlap all others, in corners of their own
    kFullKeys,     ///< many velocity ranges
    kSmall,        ///< up to 8 keys and velocities
    kTwoSorts      ///< two shapes that overlap a little
};

struct Ranges {
    MidiRange keys, velocities;
};

std::vector<Ranges> MakeRanges(int shapes, std::size_t count)
{
    std::mt19937 engine(1);
    const auto below = [&](unsigned limit) { return static_cast<unsigned>(engine() % limit); };
    const auto range = [](unsigned a, unsigned b) {
        return MidiRange{static_cast<std::uint8_t>(std::min(a, b)),
                         static_cast<std::uint8_t>(std::max(a, b))};
    };
    const auto axis = [&] {
        if (shapes == kAroundMiddle)
            return range(below(64), 64 + below(64));
        if (shapes != kSmall)
            return range(below(128), below(128));
        const unsigned low = below(120);
        return range(low, low + below(8));
    };
    std::vector<Ranges> all(count);
    for (std::size_t i = 0; i < count; ++i) {
        all[i] = {axis(), axis()};
        if (shapes == kFullKeys)
            all[i].keys = {};
        if (shapes == kTwoSorts)
            all[i] = i % 2 == 0 ? Ranges{{0, 70}, {0, 127}} : Ranges{{66, 127}, {0, 127}};
    }
    return all;
}

void BM_CompactLayers(benchmark::State& state)
{
    const std::vector<Ranges> ranges =
        MakeRanges(static_cast<int>(state.range(0)), static_cast<std::size_t>(state.range(1)));
    std::size_t left = 0;
    for (auto step : state) {
        state.PauseTiming();
        auto items = std::make_unique<Collection>();
        Instrument& instrument = items->Create<Instrument>(u"Stack");
        for (const Ranges& each : ranges)
            instrument.AddLayer().AddRegion(NO_ITEM, each.keys, each.velocities);
        state.ResumeTiming();
        instrument.CompactLayers(MoveParamsUp::No, KeepArticulation::No);
        state.PauseTiming();
        left = instrument.Children().size();
        items.reset();
        state.ResumeTiming();
    }
    state.counters["layers"] = static_cast<double>(left);
}
BENCHMARK(BM_CompactLayers)
    ->ArgNames({"shapes", "regions"})
    ->ArgsProduct({benchmark::CreateDenseRange(kAnySize, kTwoSorts, 1), {10000, 100000}})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

void BM_FindOrAddRegion(benchmark::State& state)
{
    const std::vector<Ranges> ranges =
        MakeRanges(static_cast<int>(state.range(0)), static_cast<std::size_t>(state.range(1)));
    std::size_t layers = 0;
    for (auto step : state) {
        Collection items;
        items.loading = true;
        Instrument& instrument = items.Create<Instrument>(u"Stack");
        for (const Ranges& each : ranges)
            instrument.FindOrAddRegion(NO_ITEM, each.keys, each.velocities, Layer::kNoRootKey);
        layers = instrument.Children().size();
    }
    state.counters["layers"] = static_cast<double>(layers);
}
BENCHMARK(BM_FindOrAddRegion)
    ->ArgNames({"shapes", "regions"})
    ->ArgsProduct({benchmark::CreateDenseRange(kAnySize, kTwoSorts, 1), {10000, 100000}})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

} // namespace
