// The passes over a huge collection: 2,000 instruments with 100,000 regions on 20,000 waveforms, each time
// for all of it; and what is made to be as bad as it can be for one step, with 10,000 items and with 100,000.
#include "model/fix_up.h"
#include "model/instrument.h"
#include "model/merge.h"
#include "model/song.h"
#include "model/song_merge.h"
#include "model/stereo_pairs.h"
#include "model/track_builder.h"
#include "model/waveform.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <random>
#include <string>
#include <string_view>

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

/// An instrument of as many layers as there are ranges, a region in each.
void MakeStack(Collection& items, const std::vector<Ranges>& ranges)
{
    Instrument& instrument = items.Create<Instrument>(u"Stack");
    for (const Ranges& each : ranges)
        instrument.AddLayer().AddRegion(NO_ITEM, each.keys, each.velocities);
}

Instrument& First(Collection& items)
{
    return *items.All<Instrument>().begin();
}

void AddReadersRegions(Collection& items, const std::vector<Ranges>& ranges, bool hasTags)
{
    items.loading = true;
    Instrument& instrument = items.Create<Instrument>(u"Stack");
    int number = 0;
    for (const Ranges& each : ranges)
        instrument.FindOrAddRegion(NO_ITEM, each.keys, each.velocities, Layer::kNoRootKey,
                                   hasTags ? number++ / 2 : Instrument::kNoTag);
    items.loading = false;
}

Waveform& MakeWave(Collection& items, std::u16string_view name, std::size_t number)
{
    Waveform& wave = items.Create<Waveform>(name);
    wave.frames = 1000;
    wave.SetSourceFormat(DataFormat::Pcm16, 0);
    wave.sourceOffset = std::uint64_t{number} * 100000;
    wave.SetText(kTextSourcePath, u"/bank.sf2");
    return wave;
}

/// The number as capitals and small letters: names that only differ in case.
std::u16string InCases(std::size_t number)
{
    std::u16string name;
    for (int bit = 0; bit < 17; ++bit, number >>= 1)
        name.push_back((number & 1) != 0 ? u'X' : u'x');
    return name;
}

void FixUp(Collection& items)
{
    FixUpItems(items, kPruneAll, AfterLoad::Yes, SourceHoldsStereo::No);
}

/// Something that the passes meet, made as bad as it can be for them.
struct Adversary {
    const char* name;
    void (*build)(Collection& items, std::size_t count);
    void (*run)(Collection& items, std::size_t count);
};

template <Shapes kShapes>
void BuildStack(Collection& items, std::size_t count)
{
    MakeStack(items, MakeRanges(kShapes, count));
}

template <Shapes kShapes>
void AddAsReader(Collection& items, std::size_t count)
{
    AddReadersRegions(items, MakeRanges(kShapes, count), false);
}

void Compact(Collection& items, std::size_t)
{
    First(items).CompactLayers(MoveParamsUp::No, KeepArticulation::No);
}

void FixUpAll(Collection& items, std::size_t)
{
    FixUp(items);
}

void Nothing(Collection&, std::size_t) {}

constexpr Adversary kAdversaries[] = {
    // What one walk over all regions takes, and one over all names: what memory alone costs more per item
    // when there are many.
    {"plain/touch_regions", BuildStack<kAnySize>,
     [](Collection& items, std::size_t) {
         for (Region& region : items.All<Region>())
             region.startOffset = 1;
     }},
    {"plain/rename", BuildStack<kAnySize>,
     [](Collection& items, std::size_t) {
         for (Region& region : items.All<Region>())
             region.SetName(u"a name of its own");
     }},
    {"compact/any_size", BuildStack<kAnySize>, Compact},
    {"compact/around_middle", BuildStack<kAroundMiddle>, Compact},
    {"compact/full_keys", BuildStack<kFullKeys>, Compact},
    {"compact/small", BuildStack<kSmall>, Compact},
    {"compact/two_sorts", BuildStack<kTwoSorts>, Compact},
    {"compact/by_articulation",
     [](Collection& items, std::size_t count) {
         MakeStack(items, std::vector<Ranges>(count));
         std::size_t number = 0;
         for (Layer& layer : items.All<Layer>()) { // always ten of a kind
             const std::size_t kind = number++ % (count / 10);
             layer.SetParam(kArtTuning, static_cast<float>(kind % 1000) / 100);
             layer.SetParam(kArtVolume, -static_cast<float>(kind / 1000));
         }
     },
     [](Collection& items, std::size_t) {
         First(items).CompactLayers(MoveParamsUp::Yes, KeepArticulation::Yes);
     }},
    {"find_or_add/any_size", Nothing, AddAsReader<kAnySize>},
    {"find_or_add/around_middle", Nothing, AddAsReader<kAroundMiddle>},
    {"find_or_add/full_keys", Nothing, AddAsReader<kFullKeys>},
    {"find_or_add/small", Nothing, AddAsReader<kSmall>},
    {"find_or_add/two_sorts", Nothing, AddAsReader<kTwoSorts>},
    {"find_or_add/a_tag_for_two", Nothing,
     [](Collection& items, std::size_t count) {
         AddReadersRegions(items, MakeRanges(kAnySize, count), true);
     }},
    {"find_or_add/inverted", Nothing,
     [](Collection& items, std::size_t count) {
         std::vector<Ranges> ranges = MakeRanges(kAnySize, count);
         for (Ranges& each : ranges)
             std::swap(each.keys.low, each.keys.high);
         AddReadersRegions(items, ranges, false);
     }},
    {"find_or_add/open_edges",
     [](Collection& items, std::size_t count) {
         items.loading = true;
         Layer& layer = items.Create<Instrument>(u"Stack").AddLayer();
         layer.trigger.Set(kParamHighKey, 60);
         for (std::size_t i = 1; i < count / 2; ++i)
             First(items).AddLayer().AddRegion(NO_ITEM);
     },
     [](Collection& items, std::size_t count) {
         for (std::size_t i = 0; i < count / 2; ++i)
             First(items).FindOrAddRegion(NO_ITEM, {MidiRange::kKeep, 127}, {}, Layer::kNoRootKey);
     }},
    {"copy_regions/any_size", BuildStack<kAnySize>,
     [](Collection& items, std::size_t) {
         std::vector<const Region*> regions;
         for (const Region& region : items.All<Region>())
             regions.push_back(&region);
         items.Create<Instrument>(u"Target").AddRegionCopies(regions);
     }},
    {"clear_ranges/one_layer",
     [](Collection& items, std::size_t count) {
         Layer& layer = items.Create<Instrument>(u"i").AddLayer();
         for (const Ranges& each : MakeRanges(kSmall, count))
             layer.AddRegion(NO_ITEM, each.keys, each.velocities);
     },
     [](Collection& items, std::size_t) { ClearRegionRanges(items); }},
    {"names/all_equal",
     [](Collection& items, std::size_t count) {
         for (std::size_t i = 0; i < count; ++i)
             MakeWave(items, u"wave", i);
     },
     FixUpAll},
    {"names/pairs_of_numbers",
     [](Collection& items, std::size_t count) {
         for (std::size_t i = 0; i < count; ++i)
             MakeWave(items, Numbered(u"wave ", static_cast<unsigned>(i / 2)), i);
     },
     FixUpAll},
    {"names/all_cases",
     [](Collection& items, std::size_t count) {
         for (std::size_t i = 0; i < count; ++i)
             MakeWave(items, InCases(i), i);
     },
     FixUpAll},
    {"fix_up/one_layer_all_overlap",
     [](Collection& items, std::size_t count) {
         Layer& layer = items.Create<Instrument>(u"i").AddLayer();
         const ItemHandle wave = MakeWave(items, u"wave", 0).Handle();
         for (const Ranges& each : MakeRanges(kAroundMiddle, count))
             layer.AddRegion(wave, each.keys, each.velocities);
     },
     FixUpAll},
    {"fix_up/layers_of_one_region",
     [](Collection& items, std::size_t count) {
         MakeStack(items, std::vector<Ranges>(count));
         const ItemHandle wave = MakeWave(items, u"wave", 0).Handle();
         for (Region& region : items.All<Region>())
             region.SetSound(wave);
     },
     FixUpAll},
    {"fix_up/one_location",
     [](Collection& items, std::size_t count) {
         const ItemHandle wave = MakeWave(items, u"wave", 0).Handle();
         for (std::size_t i = 0; i < count; ++i)
             items.Create<Instrument>(u"i").AddLayer().AddRegion(wave);
         for (Instrument& instrument : items.All<Instrument>())
             instrument.location.word = 5;
     },
     FixUpAll},
    {"fix_up/empty_regions", BuildStack<kAnySize>, FixUpAll},
    {"fix_up/phase_groups",
     [](Collection& items, std::size_t count) {
         MakeStack(items, MakeRanges(kSmall, count));
         const ItemHandle wave = MakeWave(items, u"wave", 0).Handle();
         std::size_t number = 0;
         for (Region& region : items.All<Region>()) {
             region.SetSound(wave);
             region.phaseGroup = 1;
             region.phaseMaster = number++ % 2 == 0;
         }
     },
     FixUpAll},
    {"stereo/lefts_then_rights",
     [](Collection& items, std::size_t count) {
         MakeStack(items, std::vector<Ranges>(count));
         std::size_t number = 0;
         for (Region& region : items.All<Region>()) {
             region.SetSound(MakeWave(items, u"wave", number).Handle());
             region.articulation.Set(kArtPan, number++ < count / 2 ? -1.0f : 1.0f);
         }
     },
     [](Collection& items, std::size_t) { MergeStereoPairs(items, DeleteUnused::Yes); }},
    {"stereo/all_of_one_side",
     [](Collection& items, std::size_t count) {
         MakeStack(items, std::vector<Ranges>(count));
         const ItemHandle wave = MakeWave(items, u"wave", 0).Handle();
         std::size_t number = 0;
         for (Region& region : items.All<Region>()) {
             region.SetSound(wave);
             region.articulation.Set(kArtPan, number++ % 2 == 0 ? -1.0f : 1.0f);
         }
     },
     [](Collection& items, std::size_t) { MergeStereoPairs(items, DeleteUnused::Yes); }},
    {"stereo/by_names",
     [](Collection& items, std::size_t count) {
         MakeStack(items, std::vector<Ranges>(count));
         std::size_t number = 0;
         for (Region& region : items.All<Region>()) {
             region.SetSound(MakeWave(items, number % 2 == 0 ? u"wave L" : u"wave R", number).Handle());
             ++number;
         }
     },
     [](Collection& items, std::size_t) { MergeStereoWaves(items, DeleteUnused::Yes); }},
    {"stereo/split",
     [](Collection& items, std::size_t count) {
         MakeStack(items, std::vector<Ranges>(count));
         std::size_t number = 0;
         for (Region& region : items.All<Region>()) {
             Waveform& wave = MakeWave(items, u"wave", number++);
             wave.channels = 2;
             region.SetSound(wave.Handle());
         }
     },
     [](Collection& items, std::size_t) { SplitStereoToLayers(items); }},
    {"duplicates/equal_but_the_end",
     [](Collection& items, std::size_t count) {
         for (std::size_t i = 0; i < count; ++i) {
             Waveform& wave = items.Create<Waveform>(u"wave");
             wave.frames = 64;
             wave.AllocateSamples().back() = static_cast<float>(i / 2);
         }
     },
     [](Collection& items, std::size_t) { RemoveDuplicateWaves(items); }},
    {"duplicates/one_source_of_two_files",
     [](Collection& items, std::size_t count) {
         for (std::size_t i = 0; i < count; ++i)
             MakeWave(items, u"wave", 0).volume = static_cast<float>(i);
     },
     [](Collection& items, std::size_t count) {
         const FileStart second{count / 2};
         ShareSources(items, {&second, 1}, Unplayed::Keep);
     }},
    {"merge/one_by_one", Nothing,
     [](Collection& items, std::size_t count) {
         CollectionMerger merger(items);
         for (std::size_t i = 0; i < count; ++i) {
             Collection other;
             other.Create<Instrument>(u"i").location.word = 5;
             merger.Merge(other);
         }
     }},
    {"waves/unify_one_of_all",
     [](Collection& items, std::size_t count) {
         MakeStack(items, std::vector<Ranges>(count));
         const ItemHandle wave = MakeWave(items, u"wave", 0).Handle();
         for (Region& region : items.All<Region>()) {
             region.SetSound(wave);
             region.SetParam(kParamRegionRootKey, 50);
         }
     },
     [](Collection& items, std::size_t) { UnifyRegionWaveSettings(items); }},
    {"songs/join_tracks",
     [](Collection& items, std::size_t count) {
         Song& song = items.Create<Song>(u"song");
         TrackBuilder builder;
         builder.PutChannel(kNoteOn, 60, 64);
         for (std::size_t i = 0; i < count; ++i) {
             Track& track = items.Create<Track>(u"track");
             track.SetData(builder.Data());
             track.SetParent(song.Handle());
             song.AddChild(track.Handle());
         }
     },
     [](Collection& items, std::size_t) { ConvertToFormat0(*items.All<Song>().begin()); }},
};

double Milliseconds(const Adversary& adversary, std::size_t count)
{
    constexpr int kRuns = 3;
    double best = 0;
    for (int i = 0; i < kRuns; ++i) {
        Collection items;
        adversary.build(items, count);
        const std::clock_t start = std::clock(); // of this process: others do not count
        adversary.run(items, count);
        const double taken = 1000.0 * static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
        best = i == 0 ? taken : std::min(best, taken);
    }
    return best;
}

/// 10,000 items and 100,000: the ratio of the times tells how they grow, 10 for n, 12.5 for n log n.
void MeasureGrowth(benchmark::State& state, const Adversary& adversary)
{
    constexpr std::size_t kSmallCount = 10000, kLargeCount = 100000;
    for (auto step : state) {
        const double less = Milliseconds(adversary, kSmallCount);
        const double more = Milliseconds(adversary, kLargeCount);
        state.SetIterationTime(more / 1000);
        state.counters["ms_of_10000"] = less;
        state.counters["ratio"] = more / less;
    }
}

/// For tools that count: what stands behind "--once" is done one time, for as many items, or only made ready.
/// Without a name the names are listed.
int Once(int argc, char** argv)
{
    for (const Adversary& adversary : kAdversaries) {
        if (argc < 4) {
            std::puts(adversary.name);
            continue;
        }
        if (std::string_view(argv[2]) != adversary.name)
            continue;
        const std::size_t count = std::strtoul(argv[3], nullptr, 10);
        Collection items;
        adversary.build(items, count);
        if (argc == 4)
            adversary.run(items, count);
        std::_Exit(0); // without taking the collection apart
    }
    return argc < 4 ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc > 1 && std::string_view(argv[1]) == "--once")
        return Once(argc, argv);
    for (const Adversary& adversary : kAdversaries)
        benchmark::RegisterBenchmark(
            (std::string("growth/") + adversary.name).c_str(),
            [&adversary](benchmark::State& state) { MeasureGrowth(state, adversary); })
            ->Iterations(1)
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
