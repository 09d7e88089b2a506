// Any bytes as an extended MIDI file, as the events of a sequence, and as a track that becomes such events:
// what was decoded starts the same notes at the same times after another round.
#include "formats/midi/midi.h"
#include "formats/midi/xmi_events.h"
#include "model/consistency.h"
#include "model/fix_up.h"
#include "model/track_events.h"

#include <cstdlib>
#include <tuple>

namespace {

using namespace vimbo;

constexpr std::size_t kMostBytes = 65536; ///< of streams: days of silence take megabytes

void Require(bool condition)
{
    if (!condition)
        std::abort();
}

using Start = std::tuple<std::uint64_t, std::uint8_t, std::uint8_t, std::uint8_t>;

/// Times, channels, keys and velocities of all notes of a block, which has an end.
std::vector<Start> StartsOf(std::span<const std::byte> block)
{
    std::vector<Start> starts;
    EventWalk walk(block, WalkEnd::EndOfTrack);
    TrackEvent event;
    while (walk.Next(event))
        if (event.StartsNote())
            starts.emplace_back(event.time, event.channel, event.data1, event.data2);
    Require(event.IsMeta(kMetaEndOfTrack));
    return starts;
}

/// The stream of a block that makes the only track of a song; empty if it lasts too long.
std::vector<std::byte> Encoded(std::span<const std::byte> block, std::uint16_t division)
{
    Collection items;
    Song& song = items.Create<Song>(u"s");
    Track& track = items.Create<Track>(u"t");
    track.SetParent(song.Handle());
    song.AddChild(track.Handle());
    song.division = division;
    track.SetData(block);
    midi::XmiEncoded out;
    if (!midi::EncodeXmi(song, track, out))
        return {};
    Require(out.stream.size() >= 4 && out.stream.size() % 2 == 0);
    return std::move(out.stream);
}

void CheckStream(std::span<const std::byte> stream)
{
    const std::vector<std::byte> block = midi::DecodeXmi(stream).block;
    const std::vector<Start> starts = StartsOf(block);
    const std::vector<std::byte> again = Encoded(block, midi::kXmiDivision);
    if (!again.empty() && again.size() < kMostBytes)
        Require(StartsOf(midi::DecodeXmi(again).block) == starts);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto bytes = std::as_bytes(std::span(data, size));
    CheckStream(bytes);
    if (size > 2) {
        const auto division = static_cast<std::uint16_t>(data[0] << 8 | data[1]);
        if (const std::vector<std::byte> stream = Encoded(bytes.subspan(2), division);
            stream.size() < kMostBytes)
            CheckStream(stream);
    }
    MemoryFile file(bytes);
    Collection items;
    if (!ReadXmi(items, file, 0))
        return 0;
    Require(IsConsistent(items));
    FixUpItems(items, kPruneAll, AfterLoad::Yes, SourceHoldsStereo::No);
    if (items.CountOf(ItemKind::Song) == 0)
        return 0;
    MemoryFile written;
    FormatChoice choice;
    Song& song = *items.List<Song>().front();
    Collection again;
    if (items.CountOf(ItemKind::Instrument) == 0 && WriteXmi(song, written, choice)) {
        Require(ReadXmi(again, written, 0) && again.CountOf(ItemKind::Song) == 1);
    }
    return 0;
}
