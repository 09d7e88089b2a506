// The walk over a track's events beside two reads of the same bytes, one that does not look at them and one
// that does, and beside the walk in its plain form. Ten million events, so that the block does not fit into a
// cache; items per second are events.
#include "../tests/model/plain_walk.h"
#include "model/track_builder.h"

#include <benchmark/benchmark.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace {

using namespace vimbo;

constexpr std::int64_t kEvents = 10'000'000;

/// What is in the block.
enum class Tune {
    Random,     ///< waits and kinds of events by chance, so that no processor foresees their lengths
    FullStatus, ///< the same, but channels alternate: each event has its status byte
    Bars,       ///< a piece in sixteenths: a drum and a bass pattern, some melody by chance
};

unsigned Below(std::mt19937& random, unsigned limit)
{
    return static_cast<unsigned>(random() % limit); // the same everywhere
}

/// Notes, controllers, bends, program changes and lyrics as in a piece of music: chords, then short waits and
/// waits of two bytes.
std::vector<std::byte> MakeRandom(bool hasFullStatus)
{
    std::mt19937 random(1);
    const auto below = [&](unsigned limit) { return static_cast<std::uint8_t>(Below(random, limit)); };
    constexpr std::byte kLyric[] = {std::byte{'l'}, std::byte{'a'}, std::byte{'-'}};
    TrackBuilder builder;
    std::uint64_t time = 0;
    for (std::int64_t i = 0; i < kEvents; ++i) {
        const unsigned wait = below(100);
        time += wait < 35 ? 0 : wait < 60 ? 1 + random() % 120 : 128 + random() % 900;
        builder.SetTime(time);
        if (hasFullStatus)
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

/// Notes of one channel on a grid of 120 ticks, each 100 ticks long.
std::vector<std::byte> MakeBars()
{
    constexpr unsigned kStepTicks = 120, kNoteTicks = 100;
    constexpr std::uint16_t kHits[] = {0x1111, 0x1010, 0x5555, 0x0492}; // kick, snare, hat, bass: bit = step
    constexpr std::uint16_t kMelody = 0x4949; // steps at which one of two notes is by chance
    std::mt19937 random(1);
    TrackBuilder builder;
    std::int64_t events = 0;
    for (std::uint64_t step = 0; events < kEvents; ++step) {
        std::vector<std::uint8_t> keys;
        for (std::size_t i = 0; i < std::size(kHits); ++i)
            if ((kHits[i] >> step % 16 & 1) != 0)
                keys.push_back(static_cast<std::uint8_t>(36 + 2 * i));
        if ((kMelody >> step % 16 & 1) != 0 && Below(random, 2) == 0)
            keys.push_back(static_cast<std::uint8_t>(60 + Below(random, 12)));
        for (const bool isOn : {true, false}) {
            builder.SetTime(step * kStepTicks + (isOn ? 0 : kNoteTicks));
            for (std::size_t i = 0; i < keys.size() && events < kEvents; ++i, ++events)
                builder.PutChannel(kNoteOn, keys[i],
                                   static_cast<std::uint8_t>(isOn ? 64 + Below(random, 64) : 0));
        }
    }
    return {builder.Data().begin(), builder.Data().end()};
}

const std::vector<std::byte>& Block(Tune tune)
{
    static const std::vector<std::byte> kBlocks[] = {MakeRandom(false), MakeRandom(true), MakeBars()};
    return kBlocks[static_cast<std::size_t>(tune)];
}

template <class Read>
void Measure(benchmark::State& state, Tune tune, Read read)
{
    const std::vector<std::byte>& block = Block(tune);
    benchmark::DoNotOptimize(read(block)); // what is known beforehand is found out here
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

/// Bytes that a channel event, or the lyric of the random tunes, takes behind its delta, by the status byte.
constexpr std::array<std::uint8_t, 256> MakeLengths()
{
    std::array<std::uint8_t, 256> lengths{};
    for (unsigned status = 0x80; status < 0x100; ++status)
        lengths[status] = (status & 0xE0) == kProgramChange ? 2 : 3;
    lengths[kMetaStatus] = 6;
    return lengths;
}
constexpr std::array<std::uint8_t, 256> kLengths = MakeLengths();

std::uint32_t Load(const std::byte* at)
{
    std::uint32_t word = 0;
    std::memcpy(&word, at, sizeof word);
    return word;
}

/// What holds for any walk whose steps wait for one another, in its barest form: events that all have a
/// status byte, deltas of one or two bytes, nothing delivered, nothing tested. The length comes out of a
/// table.
std::uint64_t ChainByTable(const std::vector<std::byte>& block)
{
    const std::byte *at = block.data(), *const end = at + block.size() - 16;
    std::uint64_t count = 0;
    for (; at < end; ++count) {
        const std::uint32_t word = Load(at), isLong = word >> 7 & 1;
        at += 1 + isLong + kLengths[word >> (8 + 8 * isLong) & 0xFF];
    }
    return count;
}

/// The same, but the status is jumped on: the processor foresees its length, and only the delta's is waited
/// for.
std::uint64_t ChainByJump(const std::vector<std::byte>& block)
{
    const std::byte *at = block.data(), *const end = at + block.size() - 16;
    std::uint64_t count = 0;
    for (; at < end; ++count) {
        const std::byte* const status = at + 1 + (std::to_integer<unsigned>(*at) >> 7);
        const auto kind = std::to_integer<unsigned>(*status);
        at = status + 3;
        if ((kind & 0xE0) == kProgramChange) {
            at = status + 2;
            asm volatile(""); // no arithmetic in place of the jump
        } else if (kind == kMetaStatus) {
            at = status + 6;
            asm volatile("");
        }
    }
    return count;
}

/// Lengths of all events, found ahead.
const std::vector<std::uint8_t>& Lengths(const std::vector<std::byte>& block)
{
    static std::map<const void*, std::vector<std::uint8_t>> known;
    std::vector<std::uint8_t>& lengths = known[block.data()];
    if (!lengths.empty())
        return lengths;
    lengths.reserve(static_cast<std::size_t>(kEvents));
    unsigned running = 0;
    for (std::size_t at = 0; at < block.size();) {
        const std::size_t start = at;
        while (std::to_integer<unsigned>(block[at++]) >= 0x80) {
        }
        if (const auto next = std::to_integer<unsigned>(block[at]); next >= 0x80) {
            running = next;
            ++at;
        }
        at += kLengths[running] - 1u;
        lengths.push_back(static_cast<std::uint8_t>(at - start));
    }
    return lengths;
}

/// No step waits for another: the lengths are known.
std::uint64_t LastTickKnownLengths(const std::vector<std::byte>& block)
{
    const std::byte* at = block.data();
    const std::size_t count = Lengths(block).size() - 4; // far from the end
    const std::uint8_t* const lengths = Lengths(block).data();
    std::uint64_t time = 0;
    for (std::size_t i = 0; i < count; at += lengths[i++]) {
        const std::uint32_t word = Load(at), isLong = word >> 7 & 1;
        time += ((0 - isLong) & word & 0x7F) << 7 | (word >> 8 * isLong & 0x7F);
    }
    return time;
}

/// A block in two or more parts, each with a status at its start.
const std::vector<std::vector<std::byte>>& Parts(const std::vector<std::byte>& block, std::size_t count)
{
    static std::map<std::pair<const void*, std::size_t>, std::vector<std::vector<std::byte>>> known;
    auto& parts = known[{block.data(), count}];
    if (!parts.empty())
        return parts;
    std::size_t at = 0, number = 0;
    unsigned running = 0;
    const std::size_t perPart = static_cast<std::size_t>(kEvents) / count;
    for (const std::uint8_t length : Lengths(block)) {
        std::size_t status = at;
        while (std::to_integer<unsigned>(block[status++]) >= 0x80) {
        }
        const auto first = block.begin() + static_cast<std::ptrdiff_t>(at);
        const auto behindDelta = block.begin() + static_cast<std::ptrdiff_t>(status);
        const auto next = first + length;
        const bool hasStatus = std::to_integer<unsigned>(*behindDelta) >= 0x80;
        if (hasStatus)
            running = std::to_integer<unsigned>(*behindDelta);
        if (number++ % perPart == 0 && parts.size() < count) {
            parts.emplace_back(first, behindDelta);
            if (!hasStatus)
                parts.back().push_back(static_cast<std::byte>(running));
            parts.back().insert(parts.back().end(), behindDelta, next);
        } else {
            parts.back().insert(parts.back().end(), first, next);
        }
        at += length;
    }
    return parts;
}

/// The parts are walked at the same time, a step of each in turn: the steps of one hide the others' waits.
template <std::size_t... kParts>
std::uint64_t CountParts(const std::vector<std::byte>& block, std::index_sequence<kParts...>)
{
    const auto& parts = Parts(block, sizeof...(kParts));
    std::tuple walks{EventWalk(parts[kParts])...};
    std::array<TrackEvent, sizeof...(kParts)> events;
    std::uint64_t count = 0;
    while (((std::get<kParts>(walks).Next(events[kParts]) ? 1u : 0u) & ...) != 0)
        count += sizeof...(kParts);
    return count;
}

template <std::size_t kCount>
std::uint64_t CountInParts(const std::vector<std::byte>& block)
{
    return CountParts(block, std::make_index_sequence<kCount>());
}

/// A jump on every byte, the least that a reader does who takes bytes as they come.
std::uint64_t CountHighBytes(const std::vector<std::byte>& block)
{
    std::uint64_t high = 0;
    for (const std::byte byte : block)
        if (std::to_integer<std::uint8_t>(byte) >= 0x80) {
            ++high;
            benchmark::DoNotOptimize(high); // no arithmetic in place of the jump
        }
    return high;
}

template <class AnyWalk>
std::uint64_t Count(const std::vector<std::byte>& block)
{
    AnyWalk walk(block);
    TrackEvent event;
    std::uint64_t count = 0;
    while (walk.Next(event))
        ++count;
    if (count != static_cast<std::uint64_t>(kEvents))
        std::abort();
    return count;
}

std::uint64_t CountNotes(const std::vector<std::byte>& block)
{
    EventWalk walk(block);
    TrackEvent event;
    std::uint64_t notes = 0;
    while (walk.Next(event))
        notes += event.StartsNote();
    return notes;
}

std::uint64_t LastTick(const std::vector<std::byte>& block)
{
    EventWalk walk(block);
    TrackEvent event;
    std::uint64_t last = 0;
    while (walk.Next(event))
        last = event.time;
    return last;
}

/// Uses every field, as a player does.
template <class AnyWalk>
std::uint64_t Walk(const std::vector<std::byte>& block)
{
    AnyWalk walk(block);
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
    constexpr struct {
        Tune tune;
        const char* suffix;
    } kTunes[] = {
        {Tune::Random, "/random"}, {Tune::FullStatus, "/random_full_status"}, {Tune::Bars, "/bars"}};
    for (const auto& [tune, suffix] : kTunes) {
        const auto add = [tune = tune, suffix = suffix](const std::string& name, auto read) {
            benchmark::RegisterBenchmark((name + suffix).c_str(), [tune, read](benchmark::State& state) {
                Measure(state, tune, read);
            })->Unit(benchmark::kMillisecond);
        };
        add("memory_read", Sum);
        add("jump_per_byte", CountHighBytes);
        add("plain_count", Count<PlainWalk>);
        add("plain_walk", Walk<PlainWalk>);
        add("last_tick_known_lengths", LastTickKnownLengths);
        if (tune == Tune::FullStatus) {
            add("chain_by_table", ChainByTable);
            add("chain_by_jump", ChainByJump);
        }
        add("count_two_parts", CountInParts<2>);
        add("count_four_parts", CountInParts<4>);
        add("count", Count<EventWalk>);
        add("count_notes", CountNotes);
        add("last_tick", LastTick);
        add("walk", Walk<EventWalk>);
        add("rebuild", Rebuild);
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
