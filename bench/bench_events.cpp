// The walk over a track's events beside reading the same bytes without looking at them. Ten million events,
// so that the block does not fit into a cache; items per second are events.
#include "model/track_builder.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace vimbo;

constexpr std::int64_t kEvents = 10'000'000;

/// Keeps the status of channel events out of running status: note-offs are events of their own, and channels
/// alternate.
enum class Running : bool { No, Yes };

/// Notes, controllers, bends, program changes and lyrics as in a piece of music: chords, then short waits and
/// waits of two bytes.
std::vector<std::byte> MakeBlock(Running running)
{
    std::mt19937 random(1); // its sequence is the same everywhere
    const auto below = [&random](unsigned limit) { return static_cast<std::uint8_t>(random() % limit); };
    constexpr std::byte kLyric[] = {std::byte{'l'}, std::byte{'a'}, std::byte{'-'}};
    TrackBuilder builder;
    std::uint64_t time = 0;
    for (std::int64_t i = 0; i < kEvents; ++i) {
        const unsigned wait = below(100);
        time += wait < 35 ? 0 : wait < 60 ? 1 + random() % 120 : 128 + random() % 900;
        builder.SetTime(time);
        if (running == Running::No)
            builder.SetChannel(static_cast<std::uint8_t>(i & 1));
        const unsigned kind = below(100);
        if (kind < 86)
            builder.PutChannel(kNoteOn, below(128), kind % 2 == 0 ? 0 : 1 + below(127));
        else if (kind < 95)
            builder.PutChannel(kControlChange, 1, below(128));
        else if (kind < 98)
            builder.PutChannel(kPitchBend, below(128), below(128));
        else if (kind < 99)
            builder.PutChannel(kProgramChange, below(128));
        else
            builder.PutMeta(5, kLyric);
    }
    return {builder.Data().begin(), builder.Data().end()};
}

const std::vector<std::byte>& Block(Running running)
{
    static const std::vector<std::byte> kWithout = MakeBlock(Running::No), kWith = MakeBlock(Running::Yes);
    return running == Running::Yes ? kWith : kWithout;
}

template <class Read>
void Measure(benchmark::State& state, Running running, Read read)
{
    const std::vector<std::byte>& block = Block(running);
    for (auto _ : state)
        benchmark::DoNotOptimize(read(block));
    state.SetItemsProcessed(kEvents * state.iterations());
    state.SetBytesProcessed(static_cast<std::int64_t>(block.size()) * state.iterations());
}

/// The least that any reader of the bytes does: every word once.
std::uint64_t Sum(const std::vector<std::byte>& block)
{
    std::uint64_t sum = 0;
    for (std::size_t i = 0; i + 8 <= block.size(); i += 8) {
        std::uint64_t word = 0;
        std::memcpy(&word, block.data() + i, sizeof word);
        sum += word;
    }
    return sum;
}

std::uint64_t Count(const std::vector<std::byte>& block)
{
    EventWalk walk(block);
    TrackEvent event;
    std::uint64_t count = 0;
    while (walk.Next(event))
        ++count;
    if (count != static_cast<std::uint64_t>(kEvents))
        std::abort();
    return count;
}

/// Uses every field, as a player does.
std::uint64_t Walk(const std::vector<std::byte>& block)
{
    EventWalk walk(block);
    TrackEvent event;
    std::uint64_t mixed = 0;
    while (walk.Next(event))
        mixed += event.time ^ event.delta ^ event.status ^ event.channel ^ event.metaType ^
                 (unsigned{event.data1} << 8) ^ (unsigned{event.data2} << 16) ^ event.payload.size();
    return mixed;
}

std::uint64_t Rebuild(const std::vector<std::byte>& block)
{
    TrackBuilder builder;
    EventWalk walk(block);
    TrackEvent event;
    while (walk.Next(event))
        builder.Put(event);
    return builder.Data().size();
}

} // namespace

int main(int argc, char** argv)
{
    for (const Running running : {Running::Yes, Running::No}) {
        const std::string suffix = running == Running::Yes ? "/running_status" : "/full_status";
        const auto add = [&](const char* name, auto read) {
            benchmark::RegisterBenchmark((name + suffix).c_str(), [running, read](benchmark::State& state) {
                Measure(state, running, read);
            })->Unit(benchmark::kMillisecond);
        };
        add("memory_read", Sum);
        add("count", Count);
        add("walk", Walk);
        add("rebuild", Rebuild);
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
