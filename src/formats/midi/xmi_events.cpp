#include "formats/midi/xmi_events.h"

#include "base/byte_reader.h"
#include "base/last_error.h"
#include "model/song_analysis.h"
#include "model/track_builder.h"

#include <algorithm>
#include <array>

namespace vimbo::midi {
namespace {

constexpr std::uint8_t kBankSelect = 0, kXmiBankSelect = 114;                      // controllers
constexpr std::array kTempo = {std::byte{0x07}, std::byte{0xA1}, std::byte{0x20}}; // 500,000 us

class XmiDecoder {
public:
    explicit XmiDecoder(std::span<const std::byte> stream) noexcept : in_(stream) {}

    XmiDecoded Decode()
    {
        builder_.PutMeta(kMetaTempo, kTempo);
        U8 byte;
        while (!isOver_ && in_.Read(byte))
            isOver_ = byte.Get() < 0x80 ? !Delay(byte.Get()) : !Event(byte.Get());
        while (!offs_.empty())
            PutFirstOff();
        builder_.SetTime(time_); // behind the last note-off, if that is later
        builder_.PutEndOfTrack();
        out_.block.assign(builder_.Data().begin(), builder_.Data().end());
        return std::move(out_);
    }

private:
    using U8 = Packed<std::uint8_t, std::endian::big>;
    static constexpr std::size_t kMostOffs = 256;
    struct NoteOff {
        std::uint64_t due;
        std::uint8_t channel, key, velocity;
    };

    bool Delay(std::uint8_t ticks)
    {
        time_ += ticks;
        while (!offs_.empty() && offs_.front().due <= time_)
            PutFirstOff();
        return true;
    }

    void PutFirstOff()
    {
        const NoteOff off = offs_.front();
        offs_.erase(offs_.begin());
        builder_.SetTime(off.due);
        builder_.SetChannel(off.channel);
        builder_.PutChannel(kNoteOff, off.key, off.velocity);
    }

    /// False at the end.
    bool Event(std::uint8_t status)
    {
        builder_.SetTime(time_);
        if (status < 0xF0)
            return ChannelEvent(status & 0xF0, status & 0x0F);
        if (status == kMetaStatus)
            return Meta();
        if (status == kSysexStatus || status == kSysexMoreStatus) {
            std::span<const std::byte> payload;
            if (!Payload(payload))
                return false;
            builder_.PutSysex(payload, status == kSysexMoreStatus);
            return true;
        }
        // Other system messages have no place in the stream: their data bytes would be delays.
        const unsigned dataBytes = status > kSongSelect ? 0 : status == kSongPosition ? 2 : 1;
        return in_.Skip(dataBytes);
    }

    bool ChannelEvent(std::uint8_t status, std::uint8_t channel)
    {
        U8 first, second;
        if (!in_.Read(first) || ((status & 0xE0) != kProgramChange && !in_.Read(second)))
            return false;
        builder_.SetChannel(channel);
        const bool isBank = status == kControlChange && first.Get() == kXmiBankSelect;
        builder_.PutChannel(status, isBank ? kBankSelect : first.Get(), second.Get());
        return status != kNoteOn || ScheduleOff(channel, first.Get(), second.Get());
    }

    bool ScheduleOff(std::uint8_t channel, std::uint8_t key, std::uint8_t velocity)
    {
        std::uint32_t duration = 0;
        if (!Number(duration))
            return false;
        if (offs_.size() == kMostOffs) {
            ++out_.endlessNotes;
            return true;
        }
        const NoteOff off{time_ + duration, channel, key, velocity};
        offs_.insert(std::ranges::upper_bound(offs_, off.due, {}, &NoteOff::due), off);
        return true;
    }

    bool Meta()
    {
        U8 type;
        std::span<const std::byte> payload;
        if (!in_.Read(type) || !Payload(payload) || type.Get() == kMetaEndOfTrack)
            return false;
        if (type.Get() == kMetaTempo)
            ++out_.tempos;
        else
            builder_.PutMeta(type.Get(), payload);
        return true;
    }

    bool Number(std::uint32_t& value) noexcept
    {
        U8 byte;
        value = 0;
        for (int i = 0; i < 4; ++i) {
            if (!in_.Read(byte))
                return false;
            value = value << 7 | (byte.Get() & 0x7Fu);
            if (byte.Get() < 0x80)
                break;
        }
        return true;
    }

    bool Payload(std::span<const std::byte>& payload) noexcept
    {
        std::uint32_t size = 0;
        return Number(size) && in_.Take(size, payload);
    }

    ByteReader in_;
    TrackBuilder builder_;
    XmiDecoded out_;
    std::uint64_t time_ = 0;
    std::vector<NoteOff> offs_; ///< by due time, those of one time in the order of their notes
    bool isOver_ = false;
};

constexpr std::uint32_t kMostTicks = 0x0FFFFFFF; ///< of a duration; also bounds the bytes that delays take

/// Ticks of the file to ticks of the stream.
class XmiClock {
public:
    XmiClock(const Song& song, const Track& track) : map_(song, track) {}
    /// False beyond kMostTicks.
    bool Ticks(std::uint64_t time, std::uint32_t& ticks) const noexcept
    {
        constexpr double kRate = 120, kRounding = 1e-4; // whole ticks may come out a hair below
        const double exact = map_.SecondsAt(time) * kRate + kRounding;
        ticks = exact < kMostTicks ? static_cast<std::uint32_t>(exact) : kMostTicks;
        return exact < kMostTicks;
    }

private:
    TempoMap map_;
};

/// The durations of a track's notes, in the order of their note-ons.
class NoteDurations {
public:
    /// False if the track is too long.
    bool Measure(const Track& track, const XmiClock& clock)
    {
        first_.fill(kNone);
        last_.fill(kNone);
        EventWalk walk(track.Data(), WalkEnd::EndOfTrack);
        TrackEvent event;
        std::uint32_t now = 0;
        while (walk.Next(event)) {
            if (!clock.Ticks(event.time, now))
                return false;
            const std::size_t key = std::size_t{event.channel} * 128 + event.data1;
            if (event.StartsNote())
                Open(key, now);
            else if (event.status == kNoteOff || event.status == kNoteOn)
                Close(key, now);
        }
        for (std::size_t key = 0; key < first_.size(); ++key)
            while (first_[key] != kNone)
                Close(key, now);
        return true;
    }
    std::uint32_t operator[](std::size_t note) const noexcept { return notes_[note].ticks; }

private:
    static constexpr std::size_t kNone = static_cast<std::size_t>(-1);
    struct Note {
        std::uint32_t ticks; ///< while it sounds its start, then its duration
        std::size_t next;    ///< younger note of the same key
    };

    void Open(std::size_t key, std::uint32_t now)
    {
        const std::size_t note = notes_.size();
        notes_.push_back({now, kNone});
        (first_[key] == kNone ? first_[key] : notes_[last_[key]].next) = note;
        last_[key] = note;
    }

    void Close(std::size_t key, std::uint32_t now) noexcept
    {
        if (first_[key] == kNone)
            return;
        Note& note = notes_[first_[key]];
        note.ticks = now - note.ticks;
        first_[key] = note.next;
    }

    std::vector<Note> notes_;
    std::array<std::size_t, 16 * 128> first_, last_; ///< sounding notes of a channel's key
};

class XmiEncoder {
public:
    XmiEncoder(const XmiClock& clock, const NoteDurations& durations, XmiEncoded& out) noexcept
        : clock_(clock), durations_(durations), out_(out)
    {
    }

    void Encode(const Track& track)
    {
        EventWalk walk(track.Data(), WalkEnd::EndOfTrack);
        TrackEvent event;
        std::uint64_t end = 0;
        for (; walk.Next(event); end = event.time)
            Take(event);
        PutDelay(end);
        Put(kMetaStatus);
        Put(kMetaEndOfTrack);
        Put(0);
        if (stream_.Size() % 2 != 0)
            stream_.Fill(1);
        out_.stream = stream_.Release();
    }

private:
    void Take(const TrackEvent& event)
    {
        if (event.IsChannel())
            TakeChannel(event);
        else if (event.status == kSysexStatus || event.status == kSysexMoreStatus)
            PutSysex(event);
        else if (event.IsMeta(kMetaTempo))
            ++out_.tempos;
        else if (event.status == kMetaStatus)
            out_.metas += event.metaType != kMetaEndOfTrack;
        else
            ++out_.systemEvents;
    }

    void TakeChannel(const TrackEvent& event)
    {
        if (event.status == kNoteOff || (event.status == kNoteOn && event.data2 == 0)) {
            // 64 is what senders without a release velocity give.
            out_.releaseVelocities += event.data2 != 0 && event.data2 != 64;
            return;
        }
        PutDelay(event.time);
        Put(event.status | event.channel);
        Put(event.data1);
        if ((event.status & 0xE0) != kProgramChange) // nor channel pressure
            Put(event.data2);
        if (event.StartsNote())
            Put(VariableLength(durations_[note_++]));
    }

    void PutSysex(const TrackEvent& event)
    {
        PutDelay(event.time);
        Put(event.status);
        Put(VariableLength(static_cast<std::uint32_t>(event.payload.size())));
        stream_.Append(event.payload);
    }

    /// Up to a time of the track.
    void PutDelay(std::uint64_t time)
    {
        constexpr std::uint8_t kLongest = 127; // of one byte
        std::uint32_t now = 0;
        static_cast<void>(clock_.Ticks(time, now));
        const std::uint32_t delay = now - ticks_;
        ticks_ = now;
        stream_.Fill(delay / kLongest, std::byte{kLongest});
        if (delay % kLongest != 0)
            Put(delay % kLongest);
    }

    void Put(std::uint32_t byte) { stream_.Fill(1, static_cast<std::byte>(byte)); }
    void Put(const VariableLength& number) { stream_.Append(std::span(number.bytes).first(number.size)); }

    const XmiClock& clock_;
    const NoteDurations& durations_;
    XmiEncoded& out_;
    ByteWriter stream_;
    std::uint32_t ticks_ = 0; ///< of the last event
    std::size_t note_ = 0;
};

} // namespace

XmiDecoded DecodeXmi(std::span<const std::byte> stream)
{
    return XmiDecoder(stream).Decode();
}

bool EncodeXmi(const Song& song, const Track& track, XmiEncoded& out)
{
    out = {};
    const XmiClock clock(song, track);
    NoteDurations durations;
    if (!durations.Measure(track, clock))
        return Fail(u"The song is too long for extended MIDI, which counts up to 25 days");
    XmiEncoder(clock, durations, out).Encode(track);
    return true;
}

} // namespace vimbo::midi
