// The walk over a track's block without any haste: one byte at a time, the end tested for each.
#pragma once

#include "model/track_events.h"

namespace vimbo {

/// Gives what EventWalk gives.
class PlainWalk {
public:
    explicit PlainWalk(std::span<const std::byte> block, WalkEnd end = WalkEnd::Block) noexcept
        : rest_(block), stop_(end)
    {
    }

    bool Next(TrackEvent& event) noexcept
    {
        event = {};
        event.delta = Number();
        if (rest_.empty())
            return false;
        event.time = time_ += event.delta;
        if (std::to_integer<int>(rest_.front()) >= 0x80)
            status_ = Take();
        const bool isChannel = status_ < 0xF0;
        event.status = isChannel ? status_ & 0xF0 : status_;
        event.channel = isChannel ? status_ & 0x0F : 0;
        if (status_ == kMetaStatus)
            event.metaType = Take();
        if (status_ == kMetaStatus || status_ == kSysexStatus || status_ == kSysexMoreStatus)
            event.payload = Payload();
        if (DataBytes() > 0)
            event.data1 = Take() & 0x7F;
        if (DataBytes() > 1)
            event.data2 = Take() & 0x7F;
        if (stop_ == WalkEnd::EndOfTrack && event.IsMeta(kMetaEndOfTrack))
            rest_ = {};
        return true;
    }

private:
    int DataBytes() const noexcept
    {
        const int kind = status_ >> 4;
        if (kind == 0xC || kind == 0xD || status_ == kQuarterFrame || status_ == kSongSelect)
            return 1;
        return kind != 0xF || status_ == kSongPosition ? 2 : 0;
    }

    std::uint8_t Take() noexcept
    {
        if (rest_.empty())
            return 0;
        const auto byte = std::to_integer<std::uint8_t>(rest_.front());
        rest_ = rest_.subspan(1);
        return byte;
    }

    std::uint32_t Number() noexcept
    {
        std::uint32_t value = 0;
        for (int bytes = 0; bytes < 4 && !rest_.empty(); ++bytes) {
            const std::uint8_t byte = Take();
            value = value * 128 + byte % 128;
            if (byte < 128)
                break;
        }
        return value;
    }

    std::span<const std::byte> Payload() noexcept
    {
        const std::size_t claim = Number();
        const std::span<const std::byte> payload = rest_.first(std::min(claim, rest_.size()));
        rest_ = rest_.subspan(payload.size());
        return payload;
    }

    std::span<const std::byte> rest_;
    std::uint64_t time_ = 0;
    std::uint8_t status_ = 0;
    WalkEnd stop_;
};

} // namespace vimbo
