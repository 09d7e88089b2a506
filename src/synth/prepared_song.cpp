#include "synth/prepared_song.h"

#include "base/text.h"
#include "model/song_analysis.h"
#include "model/track_events.h"
#include "synth/channel_state.h"

#include <algorithm>
#include <array>
#include <bitset>
#include <optional>

namespace vimbo::synth {
namespace {

constexpr std::size_t kMaxBars = 100'000;
constexpr unsigned kDrumFlagController = 128; // see the engine's messages
constexpr std::uint8_t kMetaLyric = 5;

std::uint8_t ByteAt(std::span<const std::byte> payload, std::size_t index) noexcept
{
    return index < payload.size() ? std::to_integer<std::uint8_t>(payload[index]) : std::uint8_t{0};
}

/// Universal non-realtime "General MIDI": on, off, level 2 on.
std::optional<GmMode> ParseGmMode(std::span<const std::byte> sysex) noexcept
{
    if (sysex.size() < 4 || ByteAt(sysex, 0) != 0x7E || ByteAt(sysex, 1) != 0x7F || ByteAt(sysex, 2) != 9)
        return std::nullopt;
    switch (ByteAt(sysex, 3)) {
    case 1:
        return GmMode::On;
    case 2:
        return GmMode::Off;
    case 3:
        return GmMode::Gm2;
    default:
        return std::nullopt;
    }
}

/// Roland GS data set "use for rhythm part": the map number, 0 for a melodic part.
std::optional<unsigned> ParseRhythmPart(std::span<const std::byte> sysex) noexcept
{
    if (sysex.size() < 8 || ByteAt(sysex, 0) != 0x41 || ByteAt(sysex, 2) != 0x42 ||
        ByteAt(sysex, 3) != 0x12 || ByteAt(sysex, 4) != 0x40 || (ByteAt(sysex, 5) & 0xF0) != 0x10 ||
        ByteAt(sysex, 6) != 0x15)
        return std::nullopt;
    return ByteAt(sysex, 7);
}

/// One track on its way through the merge.
struct Source {
    EventWalk walk;
    TrackEvent event;
    std::size_t track;
    unsigned port;
    int lastChannel = 0; ///< of the last channel message, for messages that mean the track's part
    bool isTempoOnly = false;
};

/// The port numbers in use, so that a file that uses port 100 alone does not ask for 1,616 channels.
class PortMap {
public:
    void Note(unsigned port) noexcept { isUsed_.set(port & 0xFF); }
    unsigned Count() const noexcept
    {
        return std::clamp(static_cast<unsigned>(isUsed_.count()), 1u, kMaxSongPorts);
    }
    unsigned Place(unsigned port) const noexcept
    {
        unsigned place = 0;
        for (unsigned i = 0; i < (port & 0xFF); ++i)
            place += isUsed_[i] ? 1u : 0u;
        return std::min(place, kMaxSongPorts - 1);
    }

private:
    std::bitset<256> isUsed_;
};

class Preparation {
public:
    Preparation(const Song& song, TempoMap tempo)
        : tempo_(std::move(tempo)), division_(song.division != 0 ? song.division : Song::kDefaultDivision)
    {
    }

    void Add(const Track& track, bool isTempoOnly)
    {
        const std::size_t index = song_.tracks.size();
        song_.tracks.emplace_back();
        sources_.push_back(
            {EventWalk(track.Data(), WalkEnd::EndOfTrack), {}, index, track.port, 0, isTempoOnly});
        Count(track, isTempoOnly);
    }

    PreparedSong Take()
    {
        song_.ports = ports_.Count();
        song_.events.reserve(channelEvents_);
        std::erase_if(sources_, [](Source& source) { return !source.walk.Next(source.event); });
        const auto isLater = [](const Source& a, const Source& b) {
            return a.event.time != b.event.time ? a.event.time > b.event.time : a.track > b.track;
        };
        std::ranges::make_heap(sources_, isLater);
        while (!sources_.empty()) {
            std::ranges::pop_heap(sources_, isLater);
            Source& source = sources_.back();
            TakeEvent(source);
            if (source.walk.Next(source.event))
                std::ranges::push_heap(sources_, isLater);
            else
                sources_.pop_back();
        }
        return std::move(song_);
    }

private:
    /// Ports that play, and room for the events.
    void Count(const Track& track, bool isTempoOnly)
    {
        EventWalk walk(track.Data(), WalkEnd::EndOfTrack);
        TrackEvent event;
        unsigned port = track.port;
        while (walk.Next(event)) {
            if (event.IsMeta(kMetaPort))
                port = ByteAt(event.payload, 0);
            if (!event.IsChannel() || isTempoOnly)
                continue;
            ports_.Note(port);
            ++channelEvents_;
        }
    }

    void TakeEvent(Source& source)
    {
        const TrackEvent& event = source.event;
        PutBarsBefore(event.time);
        const double seconds = tempo_.SecondsAt(event.time);
        if (event.status == kMetaStatus)
            TakeMeta(source, seconds);
        else if (source.isTempoOnly)
            return;
        else if (event.IsChannel())
            TakeChannel(source, seconds);
        else if (event.status == kSysexStatus)
            TakeSysex(source, seconds);
    }

    void TakeChannel(Source& source, double seconds)
    {
        const TrackEvent& event = source.event;
        const unsigned port = ports_.Place(source.port);
        source.lastChannel = static_cast<int>(port * kChannelsPerPort + event.channel);
        Put(seconds, event.status | event.channel, event.data1, event.data2, port);
        PreparedTrack& track = song_.tracks[source.track];
        ++track.channelEvents;
        if (track.channel == PreparedTrack::kNoChannel)
            track.channel = source.lastChannel;
        else if (track.channel != source.lastChannel)
            track.channel = PreparedTrack::kMixed;
    }

    void TakeMeta(Source& source, double seconds)
    {
        const TrackEvent& event = source.event;
        switch (event.metaType) {
        case kMetaTimeSignature:
            if (event.payload.size() >= 2 && ByteAt(event.payload, 0) != 0)
                SetMeter(ByteAt(event.payload, 0), ByteAt(event.payload, 1), event.time);
            break;
        case kMetaLyric:
            if (!event.payload.empty() && !source.isTempoOnly)
                song_.markers.push_back({seconds, TextOf(event.payload)});
            break;
        case kMetaTrackName:
            if (!event.payload.empty())
                song_.tracks[source.track].name = TextOf(event.payload);
            break;
        case kMetaPort:
            source.port = ByteAt(event.payload, 0);
            break;
        default:
            break;
        }
    }

    void TakeSysex(Source& source, double seconds)
    {
        if (const auto mode = ParseGmMode(source.event.payload))
            song_.gmMode = *mode;
        else if (const auto map = ParseRhythmPart(source.event.payload))
            Put(seconds, 0xB0u | static_cast<unsigned>(source.lastChannel % 16), kDrumFlagController,
                *map == 2 ? 127u : 0u, static_cast<unsigned>(source.lastChannel) / kChannelsPerPort);
    }

    void Put(double seconds, unsigned status, unsigned data1, unsigned data2, unsigned port)
    {
        song_.events.push_back({seconds, SynthEvent::Make(status, data1, data2, port)});
    }

    static std::u16string TextOf(std::span<const std::byte> payload)
    {
        return NarrowToWide({reinterpret_cast<const char*>(payload.data()), payload.size()});
    }

    /// A bar has numerator * 4 / 2^exponent quarter notes; a new meter begins a bar.
    void SetMeter(unsigned numerator, unsigned exponent, std::uint64_t tick) noexcept
    {
        barTicks_ =
            std::max<std::uint64_t>((std::uint64_t{numerator} * division_ * 4) >> std::min(exponent, 31u), 1);
        nextBar_ = tick;
        PutBarsBefore(tick + 1);
    }

    void PutBarsBefore(std::uint64_t tick)
    {
        if ((division_ & 0x8000) != 0) { // frames know no bars
            if (song_.bars.empty())
                song_.bars.push_back(0);
            return;
        }
        for (; nextBar_ < tick && song_.bars.size() < kMaxBars; nextBar_ += barTicks_) {
            const double seconds = tempo_.SecondsAt(nextBar_);
            if (song_.bars.empty() || seconds > song_.bars.back())
                song_.bars.push_back(seconds);
        }
    }

    PreparedSong song_;
    TempoMap tempo_;
    std::uint64_t division_;
    std::vector<Source> sources_;
    PortMap ports_;
    std::size_t channelEvents_ = 0;
    std::uint64_t barTicks_ = std::max<std::uint64_t>(division_ * 4, 1); ///< four quarter notes
    std::uint64_t nextBar_ = 0;
};

} // namespace

PreparedSong PrepareSong(const Song& song)
{
    Preparation preparation(song, TempoMap(song));
    for (std::size_t i = 0; i < song.Children().size(); ++i)
        if (const Track* track = song.TrackAt(i))
            preparation.Add(*track, false);
    return preparation.Take();
}

PreparedSong PrepareTrack(const Song& song, const Track& track)
{
    constexpr std::uint16_t kPatterns = 2;
    Preparation preparation(song, song.format == kPatterns ? TempoMap(song, track) : TempoMap(song));
    for (std::size_t i = 0; i < song.Children().size(); ++i)
        if (const Track* other = song.TrackAt(i); other && (other == &track || song.format != kPatterns))
            preparation.Add(*other, other != &track);
    return preparation.Take();
}

std::vector<std::uint32_t> NeededPatches(const PreparedSong& song)
{
    struct Channel {
        MidiLocation location;
        bool hasProgram = false;
    };
    std::vector<Channel> channels(std::size_t{song.ports} * kChannelsPerPort);
    for (std::size_t c = kDrumChannel; c < channels.size(); c += kChannelsPerPort)
        channels[c].location.SetDrum(true);
    std::vector<std::uint32_t> needed;
    for (const TimedEvent& timed : song.events) {
        const SynthEvent event = timed.event;
        if (event.Channel() >= channels.size())
            continue;
        Channel& channel = channels[event.Channel()];
        const auto need = [&needed, &channel] {
            channel.hasProgram = true;
            if (std::ranges::find(needed, channel.location.word) == needed.end())
                needed.push_back(channel.location.word);
        };
        switch (event.Status()) {
        case 0xB0:
            if (event.Data1() == 0)
                channel.location.SetBankMsb(event.Data2());
            else if (event.Data1() == 32)
                channel.location.SetBankLsb(event.Data2());
            else if (event.Data1() == kDrumFlagController)
                channel.location.SetDrum(event.Data2() >= 64);
            break;
        case 0xC0:
            channel.location.SetProgram(event.Data1());
            need();
            break;
        case 0x90:
            if (event.Data2() != 0 && !channel.hasProgram)
                need();
            break;
        default:
            break;
        }
    }
    return needed;
}

} // namespace vimbo::synth
