#include "model/track_builder.h"

#include <algorithm>
#include <cstring>

namespace vimbo {

namespace {

constexpr std::uint32_t kLargestNumber = 0x0FFFFFFF;

constexpr bool IsChannelStatus(std::uint8_t status) noexcept
{
    return status >= 0x80 && status < 0xF0;
}

} // namespace

VariableLength::VariableLength(std::uint32_t value) noexcept
    : bytes{}, size(static_cast<std::uint8_t>(1 + (value >= 0x80) + (value >= 0x4000) + (value >= 0x200000)))
{
    for (unsigned i = size; i-- > 0; value >>= 7)
        bytes[i] = static_cast<std::byte>((value & 0x7F) | (i + 1 < size ? 0x80u : 0u));
}

void TrackBuilder::SetTime(std::uint64_t ticks) noexcept
{
    time_ = std::max(ticks, writtenTime_);
}

void TrackBuilder::PutChannel(std::uint8_t status, std::uint8_t data1, std::uint8_t data2)
{
    if (!IsChannelStatus(status))
        return;
    Head head = Start();
    const auto full = static_cast<std::uint8_t>((status & 0xF0) | channel_);
    if (full != runningStatus_)
        head.Put(full);
    head.Put(data1 & 0x7F);
    if ((full & 0xE0) != kProgramChange) // nor channel pressure
        head.Put(data2 & 0x7F);
    runningStatus_ = full;
    Append(head.Bytes());
}

void TrackBuilder::PutCommon(std::uint8_t status, std::uint8_t data1, std::uint8_t data2)
{
    if (status < kQuarterFrame || status > kSongSelect)
        return;
    Head head = StartOther(status);
    head.Put(data1 & 0x7F);
    if (status == kSongPosition)
        head.Put(data2 & 0x7F);
    Append(head.Bytes());
}

void TrackBuilder::PutMeta(std::uint8_t type, std::span<const std::byte> payload)
{
    Head head = StartOther(kMetaStatus);
    head.Put(type);
    AppendWithPayload(head, payload);
}

void TrackBuilder::PutSysex(std::span<const std::byte> payload, bool isContinuation)
{
    Head head = StartOther(isContinuation ? kSysexMoreStatus : kSysexStatus);
    AppendWithPayload(head, payload);
}

void TrackBuilder::Put(const TrackEvent& event)
{
    SetTime(event.time);
    if (event.IsChannel()) {
        const std::uint8_t ownChannel = channel_;
        SetChannel(event.channel);
        PutChannel(event.status, event.data1, event.data2);
        channel_ = ownChannel;
    } else if (event.status == kMetaStatus) {
        PutMeta(event.metaType, event.payload);
    } else if (event.status == kSysexStatus || event.status == kSysexMoreStatus) {
        PutSysex(event.payload, event.status == kSysexMoreStatus);
    } else if (event.status > kSongSelect) {
        Append(StartOther(event.status).Bytes()); // no data
    } else {
        PutCommon(event.status, event.data1, event.data2);
    }
}

std::span<const std::byte> TrackBuilder::Data() const noexcept
{
    if (outside_.empty())
        return std::span(inside_).first(size_);
    return outside_;
}

TrackBuilder::Head TrackBuilder::Start()
{
    std::uint64_t delta = time_ - writtenTime_;
    writtenTime_ = time_;
    for (; delta > kLargestNumber; delta -= kLargestNumber) {
        Head bridge;
        bridge.Put(VariableLength(kLargestNumber));
        bridge.Put(kMetaStatus);
        bridge.Put(kMetaText);
        bridge.Put(0);
        Append(bridge.Bytes());
        runningStatus_ = 0;
    }
    Head head;
    head.Put(VariableLength(static_cast<std::uint32_t>(delta)));
    return head;
}

TrackBuilder::Head TrackBuilder::StartOther(std::uint8_t status)
{
    Head head = Start();
    head.Put(status);
    runningStatus_ = 0;
    return head;
}

void TrackBuilder::AppendWithPayload(Head& head, std::span<const std::byte> payload)
{
    payload = payload.first(std::min<std::size_t>(payload.size(), kLargestNumber));
    head.Put(VariableLength(static_cast<std::uint32_t>(payload.size())));
    Append(head.Bytes());
    Append(payload);
}

void TrackBuilder::Head::Put(const VariableLength& number) noexcept
{
    for (std::size_t i = 0; i < number.size; ++i)
        bytes_[size_++] = number.bytes[i];
}

void TrackBuilder::Append(std::span<const std::byte> bytes)
{
    if (bytes.empty())
        return;
    if (outside_.empty() && bytes.size() <= inside_.size() - size_) {
        std::memcpy(inside_.data() + size_, bytes.data(), bytes.size());
        size_ += bytes.size();
        return;
    }
    if (outside_.empty()) {
        outside_.reserve(std::max(2 * kInlineBytes, size_ + bytes.size()));
        outside_.assign(inside_.begin(), inside_.begin() + static_cast<std::ptrdiff_t>(size_));
    }
    outside_.insert(outside_.end(), bytes.begin(), bytes.end());
}

} // namespace vimbo
