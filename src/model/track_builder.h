// Making a track's block event by event.
#pragma once

#include "model/track_events.h"

#include <array>
#include <vector>

namespace vimbo {

/// Bytes of a number of at most 28 bits, most significant group first; higher bits are lost.
struct VariableLength {
    std::array<std::byte, 4> bytes;
    std::uint8_t size;
    explicit VariableLength(std::uint32_t value) noexcept;
};

/// Writes events behind one another. Deltas of 2^28 ticks and more are bridged by empty text events, since a
/// block cannot hold them: seven bytes for each 2^28 ticks. Short tracks need no allocation until they are
/// copied out. Channel events use running status among themselves; other events end it, so that strict
/// readers of Standard MIDI Files and walks that run on any status understand the block alike.
class TrackBuilder {
public:
    /// OR-ed into the status of channel events from then on. @param channel 0 to 15
    void SetChannel(std::uint8_t channel) noexcept { channel_ = channel & 15; }
    /// Absolute time in ticks of what is put next. A time before the last event's counts as that time.
    void SetTime(std::uint64_t ticks) noexcept;
    /// @param status 0x80 to 0xE0; data bytes 0 to 127 (program change and channel pressure have one)
    void PutChannel(std::uint8_t status, std::uint8_t data1, std::uint8_t data2 = 0);
    /// @param status 0xF1 or 0xF3 with one, 0xF2 with two data bytes; others are ignored
    void PutCommon(std::uint8_t status, std::uint8_t data1, std::uint8_t data2 = 0);
    /// @param payload cut to what a length can say, 2^28 - 1 bytes; it must not lie in this builder
    void PutMeta(std::uint8_t type, std::span<const std::byte> payload);
    /// @param payload as for PutMeta, without the status byte; `isContinuation` writes 0xF7
    void PutSysex(std::span<const std::byte> payload, bool isContinuation = false);
    /// An event of a walk, as it is, at its time and on its own channel. An event without a status is left
    /// out.
    void Put(const TrackEvent& event);
    void PutEndOfTrack() { PutMeta(kMetaEndOfTrack, {}); }

    /// What was put so far; valid until the next put.
    std::span<const std::byte> Data() const noexcept;
    bool IsEmpty() const noexcept { return Data().empty(); }

private:
    static constexpr std::size_t kInlineBytes = 256;
    /// The bytes of an event ahead of its payload.
    class Head {
    public:
        void Put(std::uint8_t byte) noexcept { bytes_[size_++] = std::byte{byte}; }
        void Put(const VariableLength& number) noexcept;
        std::span<const std::byte> Bytes() const noexcept { return std::span(bytes_).first(size_); }

    private:
        std::array<std::byte, 4 + 1 + 1 + 4> bytes_; // delta, status, type and length of a meta event
        std::size_t size_ = 0;
    };
    /// The delta time of an event at the current time, behind the bridges that it needs.
    Head Start();
    /// The same and the status of an event that is not a channel event.
    Head StartOther(std::uint8_t status);
    void AppendWithPayload(Head& head, std::span<const std::byte> payload);
    void Append(std::span<const std::byte> bytes);

    std::uint64_t writtenTime_ = 0; ///< of the last event
    std::uint64_t time_ = 0;        ///< of the next one
    std::uint8_t channel_ = 0;
    std::uint8_t runningStatus_ = 0; ///< full byte of the last channel event; 0: status must be written
    std::size_t size_ = 0;           ///< while the bytes are still inside
    std::array<std::byte, kInlineBytes> inside_;
    std::vector<std::byte> outside_; ///< all bytes, once there are more than fit inside
};

} // namespace vimbo
