// The one walk over a track's block of events.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

namespace vimbo {

inline constexpr std::uint8_t kMetaStatus = 0xFF;
inline constexpr std::uint8_t kSysexStatus = 0xF0;
inline constexpr std::uint8_t kQuarterFrame = 0xF1;
inline constexpr std::uint8_t kSongPosition = 0xF2;
inline constexpr std::uint8_t kSongSelect = 0xF3;
inline constexpr std::uint8_t kSysexMoreStatus = 0xF7;

// Channel statuses: the upper half of the status byte.
inline constexpr std::uint8_t kNoteOff = 0x80;
inline constexpr std::uint8_t kNoteOn = 0x90;
inline constexpr std::uint8_t kPolyPressure = 0xA0;
inline constexpr std::uint8_t kControlChange = 0xB0;
inline constexpr std::uint8_t kProgramChange = 0xC0;
inline constexpr std::uint8_t kChannelPressure = 0xD0;
inline constexpr std::uint8_t kPitchBend = 0xE0;

// Types of meta events.
inline constexpr std::uint8_t kMetaSequence = 0;
inline constexpr std::uint8_t kMetaText = 1;
inline constexpr std::uint8_t kMetaCopyright = 2;
inline constexpr std::uint8_t kMetaTrackName = 3;
inline constexpr std::uint8_t kMetaPort = 33;
inline constexpr std::uint8_t kMetaEndOfTrack = 47;
inline constexpr std::uint8_t kMetaTempo = 81;
inline constexpr std::uint8_t kMetaTimeSignature = 88;

/// One event, made afresh for each step of the walk.
struct TrackEvent {
    std::uint64_t time = 0;   ///< ticks from the start of the track
    std::uint32_t delta = 0;  ///< ticks since the event before
    std::uint8_t status = 0;  ///< channel events: 0x80 to 0xE0; system events: 0xF0 to 0xFE; meta: 0xFF
    std::uint8_t channel = 0; ///< of channel events, 0 to 15
    std::uint8_t metaType = 0;
    std::uint8_t data1 = 0;             ///< 0 to 127
    std::uint8_t data2 = 0;             ///< 0 to 127; 0 for events of one data byte
    std::span<const std::byte> payload; ///< of meta and sysex events; cut where the block ends

    bool IsChannel() const noexcept { return status >= 0x80 && status < 0xF0; }
    bool IsMeta(std::uint8_t type) const noexcept { return status == kMetaStatus && metaType == type; }
    /// A note-on that starts a note; one of velocity 0 is a note-off. One jump: neither half can be foreseen.
    bool StartsNote() const noexcept { return (status == kNoteOn) & (data2 != 0); }
};

/// Where a walk ends: with the block, or with its end-of-track event (which the walk still gives), whichever
/// comes first.
enum class WalkEnd : bool { Block, EndOfTrack };

/// Walks a block forward. Running status holds for every status, system ones included. Nothing outside the
/// block is read: an event that the block cuts short keeps what there is of it (missing data bytes are 0).
/// An event counts as soon as one byte follows its delta time. Data bytes ahead of any status make events of
/// status 0. Keep the walk and its event in local variables: then what a client does not look at costs
/// nothing. The block must outlive the walk and the payloads.
class EventWalk {
public:
    explicit EventWalk(std::span<const std::byte> block, WalkEnd end = WalkEnd::Block) noexcept
        : at_(block.data()), end_(at_ + block.size()), stop_(end)
    {
    }

    /// False at the end; the event is then of no use.
    [[gnu::always_inline]] bool Next(TrackEvent& event) noexcept
    {
        if (end_ - at_ < kLongestHead) [[unlikely]]
            return Step<false>(event);
        return TakeCommon(event) || Step<true>(event);
    }

private:
    // Far from the end no byte needs a test of its own. Delta, status, type and length of a meta event:
    static constexpr std::ptrdiff_t kLongestHead = 4 + 1 + 1 + 4;

    // What limits a walk is the way from one event's first byte to the next one's: bytes that say how many
    // bytes follow. Jumps on them let the processor run ahead into the next events, but a jump that it
    // foresees wrongly costs more than a whole event. Statuses come in runs and are foreseen; whether a delta
    // has one or two bytes is often chance, hence it is reckoned: `isLong` is 0 or 1. So each step waits for
    // a load, a shift and an addition, and no walk that finds its events one behind another has less to wait
    // for: bench_events has that chain alone. Two walks in turns, over the two halves of a block, would hide
    // half of the wait, but a block does not tell where an event in its middle begins.

    /// Takes a channel event whose delta has one or two bytes; any other: false, nothing taken. Only far from
    /// the end.
    [[gnu::always_inline]] bool TakeCommon(TrackEvent& event) noexcept
    {
        const std::uint32_t first = At(at_), isLong = first >> 7;
        const std::byte* const last = at_ + isLong;
        const std::uint32_t low = At(last), next = At(last + 1);
        if (low >= 0x80 || next >= 0xF0 || (next < 0x80 && status_ >= 0xF0)) [[unlikely]]
            return false;
        event.delta = ((0 - isLong) & first & 0x7F) << 7 | low;
        event.time = time_ += event.delta;
        if (next >= 0x80) {
            KeepJump();
            status_ = static_cast<std::uint8_t>(next);
            TakeData(event, last + 2);
        } else {
            KeepJump();
            TakeData(event, last + 1);
        }
        event.status = status_ & 0xF0;
        event.channel = status_ & 0x0F;
        event.metaType = 0;
        event.payload = {};
        return true;
    }

    [[gnu::always_inline]] void TakeData(TrackEvent& event, const std::byte* data) noexcept
    {
        event.data1 = At(data) & 0x7F;
        if ((status_ & 0xE0) != kProgramChange) [[likely]] {
            KeepJump();
            event.data2 = At(data + 1) & 0x7F;
            at_ = data + 2;
        } else {
            KeepJump();
            event.data2 = 0;
            at_ = data + 1;
        }
    }

    /// Keeps the compiler from reckoning where a jump is better; no instruction.
    [[gnu::always_inline]] static void KeepJump() noexcept { asm volatile(""); }
    static std::uint8_t At(const std::byte* at) noexcept { return std::to_integer<std::uint8_t>(*at); }

    /// Any event.
    template <bool kIsFarFromEnd>
    [[gnu::always_inline]] bool Step(TrackEvent& event) noexcept
    {
        event.delta = Number<kIsFarFromEnd>();
        if (!kIsFarFromEnd && at_ == end_)
            return false;
        event.time = time_ += event.delta;
        if (const auto first = std::to_integer<std::uint8_t>(*at_); first >= 0x80) {
            status_ = first;
            ++at_;
        }
        event.metaType = event.data1 = event.data2 = 0;
        event.payload = {};
        if (status_ < 0xF0) [[likely]]
            TakeChannel<kIsFarFromEnd>(event);
        else
            TakeSystem<kIsFarFromEnd>(event);
        return true;
    }

    template <bool kIsFarFromEnd>
    [[gnu::always_inline]] void TakeChannel(TrackEvent& event) noexcept
    {
        event.status = status_ & 0xF0;
        event.channel = status_ & 0x0F;
        event.data1 = Byte<kIsFarFromEnd>() & 0x7F;
        if ((status_ & 0xE0) != kProgramChange) // nor channel pressure
            event.data2 = Byte<kIsFarFromEnd>() & 0x7F;
    }

    template <bool kIsFarFromEnd>
    [[gnu::always_inline]] void TakeSystem(TrackEvent& event) noexcept
    {
        event.status = status_;
        event.channel = 0;
        if (status_ == kMetaStatus) {
            event.metaType = Byte<kIsFarFromEnd>();
            event.payload = Payload<kIsFarFromEnd>();
            if (stop_ == WalkEnd::EndOfTrack && event.metaType == kMetaEndOfTrack)
                at_ = end_;
        } else if (status_ == kSysexStatus || status_ == kSysexMoreStatus) {
            event.payload = Payload<kIsFarFromEnd>();
        } else if (status_ <= kSongSelect) {
            event.data1 = Byte<kIsFarFromEnd>() & 0x7F;
            if (status_ == kSongPosition)
                event.data2 = Byte<kIsFarFromEnd>() & 0x7F;
        }
    }

    template <bool kIsFarFromEnd>
    [[gnu::always_inline]] std::uint8_t Byte() noexcept
    {
        return kIsFarFromEnd || at_ != end_ ? std::to_integer<std::uint8_t>(*at_++) : std::uint8_t{0};
    }

    /// Variable-length number of at most four bytes.
    template <bool kIsFarFromEnd>
    [[gnu::always_inline]] std::uint32_t Number() noexcept
    {
        std::uint32_t value = 0;
        for (int i = 0; i < 4; ++i) {
            if (!kIsFarFromEnd && at_ == end_)
                break;
            const auto byte = std::to_integer<std::uint32_t>(*at_++);
            value = value << 7 | (byte & 0x7F);
            if (byte < 0x80)
                break;
        }
        return value;
    }

    template <bool kIsFarFromEnd>
    [[gnu::always_inline]] std::span<const std::byte> Payload() noexcept
    {
        const std::size_t claim = Number<kIsFarFromEnd>();
        const std::size_t size = std::min(claim, static_cast<std::size_t>(end_ - at_));
        const std::span<const std::byte> payload(at_, size);
        at_ += size;
        return payload;
    }

    const std::byte* at_;
    const std::byte* end_;
    std::uint64_t time_ = 0;
    std::uint8_t status_ = 0;
    WalkEnd stop_;
};

} // namespace vimbo
