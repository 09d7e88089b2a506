// Track blocks of any bytes: the walk stays inside, agrees with a plain one and with the track's count, does
// not depend on what follows an event, and gives the same events again after a builder has rewritten them.
#include "../tests/model/plain_walk.h"
#include "model/collection.h"
#include "model/song.h"
#include "model/song_analysis.h"
#include "model/track_builder.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

namespace {

using namespace vimbo;

void Require(bool condition)
{
    if (!condition)
        std::abort();
}

template <class AnyWalk = EventWalk>
std::vector<TrackEvent> Events(std::span<const std::byte> block, WalkEnd end = WalkEnd::Block)
{
    std::vector<TrackEvent> events;
    AnyWalk walk(block, end);
    TrackEvent event;
    while (walk.Next(event))
        events.push_back(event);
    return events;
}

bool AreSame(const TrackEvent& a, const TrackEvent& b)
{
    return a.time == b.time && a.status == b.status && a.channel == b.channel && a.metaType == b.metaType &&
           a.data1 == b.data1 && a.data2 == b.data2 && std::ranges::equal(a.payload, b.payload);
}

void CheckFields(std::span<const std::byte> block, const std::vector<TrackEvent>& events)
{
    std::uint64_t time = 0;
    for (const TrackEvent& event : events) {
        time += event.delta;
        Require(event.time == time && event.delta < 1u << 28);
        Require(event.data1 < 128 && event.data2 < 128 && event.channel < 16);
        Require(event.status == 0 || event.status >= 0x80);
        Require(event.payload.empty() ||
                (event.payload.data() >= block.data() &&
                 event.payload.data() + event.payload.size() <= block.data() + block.size()));
    }
}

void CheckAgainstPlain(std::span<const std::byte> block)
{
    for (const WalkEnd end : {WalkEnd::Block, WalkEnd::EndOfTrack}) {
        const std::vector<TrackEvent> events = Events(block, end), plain = Events<PlainWalk>(block, end);
        Require(std::ranges::equal(events, plain, [](const TrackEvent& a, const TrackEvent& b) {
            return AreSame(a, b) && a.delta == b.delta &&
                   (a.payload.empty() || a.payload.data() == b.payload.data());
        }));
    }
}

/// With more bytes behind it the walk runs without tests of the end for longer; all events but the last,
/// which may have been cut, stay.
void CheckLonger(std::span<const std::byte> block, const std::vector<TrackEvent>& events)
{
    std::vector<std::byte> longer(block.begin(), block.end());
    longer.resize(block.size() + 16, std::byte{0x7F});
    const std::vector<TrackEvent> more = Events(longer);
    Require(more.size() >= events.size());
    for (std::size_t i = 0; i + 1 < events.size(); ++i)
        Require(AreSame(events[i], more[i]));
}

/// Events without a status, which only a block's start can hold, are left out; long waits in their place are
/// bridged by events of the builder's own.
void CheckRebuilt(const std::vector<TrackEvent>& events)
{
    const auto first =
        std::ranges::find_if(events, [](const TrackEvent& event) { return event.status != 0; });
    const std::span<const TrackEvent> kept(first, events.end());
    TrackBuilder builder;
    for (const TrackEvent& event : events)
        builder.Put(event);
    std::vector<TrackEvent> rebuilt = Events(builder.Data());
    Require(rebuilt.size() >= kept.size());
    const std::size_t bridges = rebuilt.size() - kept.size();
    Require(bridges == 0 || kept[0].time >= (std::uint64_t{1} << 28));
    Require(std::equal(kept.begin(), kept.end(), rebuilt.begin() + static_cast<std::ptrdiff_t>(bridges),
                       AreSame));
}

void CheckAnalysis(std::span<const std::byte> block, std::size_t count)
{
    Collection items;
    Song& song = items.Create<Song>(u"s");
    Track& track = items.Create<Track>(u"t");
    Require(song.AddChild(track.Handle()));
    track.SetParent(song.Handle());
    track.SetData(block);
    Require(track.EventCount() == count && TotalEvents(song) == count);
    AnalyseTrack(track, &song, TakeChannel::Yes);
    Require(track.channel < 16 || track.channel == Track::kNoChannelYet);
    const double seconds = SongSeconds(song);
    Require(std::isfinite(seconds) && seconds >= 0);

    const std::vector<std::byte> tempos = ExtractTempoMap(block);
    Require(Events(tempos, WalkEnd::EndOfTrack).size() == Events(tempos).size());
    const TempoMap map(song);
    track.SetData(tempos);
    Require(TempoMap(song).Changes() == map.Changes() && !HasNotes(track));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::span<const std::byte> block = std::as_bytes(std::span(data, size));
    const std::vector<TrackEvent> events = Events(block);
    CheckFields(block, events);
    CheckAgainstPlain(block);
    CheckLonger(block, events);
    CheckRebuilt(events);
    CheckAnalysis(block, events.size());
    return 0;
}
