// Any bytes as a Standard MIDI File: what was read is sound, is written and read again without a change, and
// can be made one track of the same length. Prepared for playing it keeps its time.
#include "formats/midi/midi.h"
#include "model/consistency.h"
#include "model/fix_up.h"
#include "model/song_analysis.h"
#include "model/song_merge.h"
#include "synth/channel_state.h"
#include "synth/prepared_song.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace {

using namespace vimbo;

void Require(bool condition)
{
    if (!condition)
        std::abort();
}

std::vector<std::byte> Written(Collection& items)
{
    MemoryFile file;
    FormatChoice choice;
    Require(WriteSmf(*items.List<Song>().back(), file, choice));
    return file.Release();
}

void CheckMerge(Song& song)
{
    const double seconds = SongSeconds(song);
    const std::uint16_t format = song.format;
    ConvertToFormat0(song);
    Require(song.Children().size() <= 1 && IsConsistent(song.Owner()));
    // Of several tempos at one time another one may come last; patterns lose what follows their ends.
    if (format != 2 || song.Children().empty())
        Require(std::abs(SongSeconds(song) - seconds) <= 1e-6 * std::max(1.0, seconds));
}

/// Events in order, on channels that an engine of the song has, not behind the song's end; no more of
/// anything than the blocks hold.
void CheckPreparation(const Song& song)
{
    const synth::PreparedSong prepared = synth::PrepareSong(song);
    const std::size_t channels = std::size_t{prepared.ports} * synth::kChannelsPerPort;
    Require(prepared.ports <= synth::kMaxSongPorts && prepared.events.size() <= TotalEvents(song));
    double last = 0;
    for (const synth::TimedEvent& timed : prepared.events) {
        Require(timed.seconds >= last && timed.event.Channel() < channels);
        last = timed.seconds;
    }
    const double seconds = SongSeconds(song);
    Require(song.format == 2 || last <= seconds * (1 + 1e-9) + 1e-6);
    Require(std::ranges::is_sorted(prepared.bars));
    Require(synth::NeededPatches(prepared).size() <= prepared.events.size());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto bytes = std::as_bytes(std::span(data, size));
    Require(DetectSmf(bytes, 0, size) >= 0);
    MemoryFile file(bytes);
    Collection items;
    if (!ReadSmf(items, file, 0))
        return 0;
    Require(IsConsistent(items));
    const std::vector<std::byte> written = Written(items);
    constexpr std::size_t kHeader = 6; // may overlap with what follows it in a damaged file
    Require(written.size() <= size + kHeader);
    MemoryFile again(written);
    Collection copy;
    Require(ReadSmf(copy, again, 0));
    Require(Written(copy) == written);
    for (Song* song : items.List<Song>()) {
        CheckPreparation(*song);
        CheckMerge(*song);
    }
    FixUpItems(items, kPruneAll, AfterLoad::Yes, SourceHoldsStereo::No);
    Require(IsConsistent(items));
    return 0;
}
