#include "model/song_merge.h"

#include "model/collection.h"
#include "model/track_builder.h"

#include <array>
#include <functional>
#include <queue>

namespace vimbo {

namespace {

constexpr std::uint16_t kPatterns = 2;
constexpr std::array kDefaultTempo = {std::byte{0x07}, std::byte{0xA1}, std::byte{0x20}}; // 500,000 us

std::vector<const Track*> TracksOf(const Song& song)
{
    std::vector<const Track*> tracks;
    for (std::size_t i = 0; i < song.Children().size(); ++i)
        if (const Track* track = song.TrackAt(i))
            tracks.push_back(track);
    return tracks;
}

/// A walk with the event that is due next.
struct Voice {
    explicit Voice(const Track& track) noexcept : walk(track.Data(), WalkEnd::EndOfTrack) {}
    bool Step() noexcept { return walk.Next(event); }
    EventWalk walk;
    TrackEvent event;
};

void PutInTimeOrder(const std::vector<const Track*>& tracks, TrackBuilder& out)
{
    using Due = std::pair<std::uint64_t, std::size_t>; // time, then order of tracks
    std::priority_queue<Due, std::vector<Due>, std::greater<>> due;
    std::vector<Voice> voices;
    voices.reserve(tracks.size());
    for (const Track* track : tracks) {
        Voice& voice = voices.emplace_back(*track);
        if (voice.Step())
            due.emplace(voice.event.time, voices.size() - 1);
    }
    std::uint64_t end = 0;
    while (!due.empty()) {
        Voice& voice = voices[due.top().second];
        end = due.top().first;
        if (!voice.event.IsMeta(kMetaEndOfTrack))
            out.Put(voice.event);
        const std::size_t index = due.top().second;
        due.pop();
        if (voice.Step())
            due.emplace(voice.event.time, index);
    }
    out.SetTime(end);
    out.PutEndOfTrack();
}

void PutBehindOneAnother(const std::vector<const Track*>& tracks, TrackBuilder& out)
{
    std::uint64_t start = 0;
    bool hasTempo = false;
    for (const Track* track : tracks) {
        out.SetTime(start);
        if (hasTempo)
            out.PutMeta(kMetaTempo, kDefaultTempo);
        std::uint64_t end = start;
        EventWalk walk(track->Data(), WalkEnd::EndOfTrack);
        TrackEvent event;
        while (walk.Next(event)) {
            event.time += start;
            end = event.time;
            hasTempo = hasTempo || event.IsMeta(kMetaTempo);
            if (!event.IsMeta(kMetaEndOfTrack))
                out.Put(event);
        }
        start = end;
    }
    out.SetTime(start);
    out.PutEndOfTrack();
}

} // namespace

void ConvertToFormat0(Song& song)
{
    const std::vector<const Track*> tracks = TracksOf(song);
    if (tracks.size() >= 2) {
        TrackBuilder builder;
        if (song.format == kPatterns)
            PutBehindOneAnother(tracks, builder);
        else
            PutInTimeOrder(tracks, builder);
        Collection& owner = song.Owner();
        Track& combined = owner.Create<Track>(u"Combined track");
        combined.SetData(builder.Data());
        combined.channel = Track::kControlTrack;
        song.ClearChildren(); // each track would otherwise search the list for itself
        for (const Track* track : tracks)
            owner.Destroy(track->Handle());
        combined.SetParent(song.Handle());
        song.AddChild(combined.Handle());
    }
    song.format = 0;
}

} // namespace vimbo
