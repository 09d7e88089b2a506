#include "model/song_analysis.h"

#include "base/text.h"
#include "model/track_builder.h"

#include <algorithm>
#include <string>

namespace vimbo {

namespace {

std::u16string PayloadText(std::span<const std::byte> payload)
{
    std::string narrow(payload.size(), '\0');
    std::transform(payload.begin(), payload.end(), narrow.begin(),
                   [](std::byte byte) { return static_cast<char>(byte); });
    return NarrowToWide(narrow);
}

/// One run over the events at time 0.
class TrackAnalysis {
public:
    TrackAnalysis(Track& track, Song* song, TakeChannel takeChannel) noexcept
        : track_(track), song_(song), takesChannel_(takeChannel == TakeChannel::Yes)
    {
    }

    void Run()
    {
        EventWalk walk(track_.Data(), WalkEnd::EndOfTrack);
        TrackEvent event;
        while (!IsSettled() && walk.Next(event) && event.time == 0) {
            if (event.status == kMetaStatus)
                TakeMeta(event);
            else if (event.IsChannel())
                TakeFirstChannel(event.channel);
        }
    }

private:
    bool IsSettled() const noexcept
    {
        return hasPort_ && hasSequence_ && hasChannel_ && (hasTextName_ || hasTrackName_);
    }

    void TakeFirstChannel(std::uint8_t channel) noexcept
    {
        if (!takesChannel_ || hasChannel_)
            return;
        hasChannel_ = true;
        track_.channel = channel;
    }

    void TakeMeta(const TrackEvent& event)
    {
        if (event.metaType == kMetaSequence)
            TakeSequence(event.payload);
        else if (event.metaType == kMetaPort)
            TakePort(event.payload);
        else if (event.metaType >= kMetaText && event.metaType <= kMetaTrackName)
            TakeText(event.metaType, PayloadText(event.payload));
    }

    void TakeSequence(std::span<const std::byte> payload) noexcept
    {
        if (!hasSequence_ && payload.size() == 2)
            track_.sequence = static_cast<std::uint16_t>(std::to_integer<unsigned>(payload[0]) << 8 |
                                                         std::to_integer<unsigned>(payload[1]));
        hasSequence_ = true;
    }

    void TakePort(std::span<const std::byte> payload) noexcept
    {
        if (hasPort_ || payload.empty())
            return;
        hasPort_ = true;
        track_.port = std::to_integer<std::uint8_t>(payload[0]);
    }

    void TakeText(std::uint8_t type, const std::u16string& text)
    {
        if (text.empty())
            return;
        if (type == kMetaTrackName)
            TakeTrackName(text);
        else if (type == kMetaCopyright)
            FillSongText(kTextCopyright, text);
        else if (!hasText_)
            TakeFirstText(text);
    }

    void TakeFirstText(const std::u16string& text)
    {
        hasText_ = true;
        if (FillSongText(kTextComments, text) || hasTrackName_)
            return;
        hasTextName_ = true;
        track_.SetName(text);
    }

    void TakeTrackName(const std::u16string& name)
    {
        if (!hasTrackName_)
            track_.SetName(name);
        hasTrackName_ = true;
        if (song_ != nullptr)
            song_->SetName(name);
    }

    /// False if there is no song, or it has that text already.
    bool FillSongText(std::uint16_t id, const std::u16string& text)
    {
        if (song_ == nullptr || song_->HasText(id))
            return false;
        song_->SetText(id, text);
        return true;
    }

    Track& track_;
    Song* song_;
    bool takesChannel_;
    bool hasPort_ = false, hasSequence_ = false, hasChannel_ = false;
    bool hasText_ = false, hasTextName_ = false, hasTrackName_ = false;
};

std::uint64_t EndTick(const Track& track) noexcept
{
    EventWalk walk(track.Data(), WalkEnd::EndOfTrack);
    TrackEvent event;
    std::uint64_t end = 0;
    while (walk.Next(event))
        end = event.time;
    return end;
}

} // namespace

void AnalyseTrack(Track& track, Song* song, TakeChannel takeChannel)
{
    TrackAnalysis(track, song, takeChannel).Run();
}

bool HasNotes(const Track& track) noexcept
{
    EventWalk walk(track.Data(), WalkEnd::EndOfTrack);
    TrackEvent event;
    while (walk.Next(event))
        if (event.StartsNote())
            return true;
    return false;
}

std::vector<std::byte> ExtractTempoMap(std::span<const std::byte> block)
{
    TrackBuilder builder;
    EventWalk walk(block, WalkEnd::EndOfTrack);
    TrackEvent event;
    while (walk.Next(event))
        if (event.IsMeta(kMetaTempo) || event.IsMeta(kMetaTimeSignature))
            builder.Put(event);
    builder.PutEndOfTrack();
    return {builder.Data().begin(), builder.Data().end()};
}

unsigned PortCount(const Song& song) noexcept
{
    unsigned highest = 0;
    for (std::size_t i = 0; i < song.Children().size(); ++i)
        if (const Track* track = song.TrackAt(i))
            highest = std::max<unsigned>(highest, track->port);
    return highest + 1;
}

std::uint64_t TotalEvents(const Song& song) noexcept
{
    std::uint64_t total = 0;
    for (std::size_t i = 0; i < song.Children().size(); ++i)
        if (const Track* track = song.TrackAt(i))
            total += track->EventCount();
    return total;
}

double SongSeconds(const Song& song)
{
    constexpr std::uint16_t kPatterns = 2;
    std::uint64_t lastTick = 0;
    double patternSeconds = 0;
    for (std::size_t i = 0; i < song.Children().size(); ++i) {
        const Track* track = song.TrackAt(i);
        if (track == nullptr)
            continue;
        if (song.format == kPatterns)
            patternSeconds += TempoMap(song, *track).SecondsAt(EndTick(*track));
        else
            lastTick = std::max(lastTick, EndTick(*track));
    }
    return song.format == kPatterns ? patternSeconds : TempoMap(song).SecondsAt(lastTick);
}

} // namespace vimbo
