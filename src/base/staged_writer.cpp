#include "base/staged_writer.h"

#include <algorithm>
#include <cstring>

namespace vimbo {

namespace {

/// Larger steps gain nothing; with much smaller ones the system's own work for each is most of the time.
constexpr std::uint64_t kStageBytes = 0x100000;
constexpr std::uint64_t kLeastBytes = 4096;

} // namespace

StagedWriter::StagedWriter(FileObject& file, std::uint64_t expected)
    : file_(file), capacity_(static_cast<std::size_t>(std::clamp(expected, kLeastBytes, kStageBytes))),
      place_(file.Position())
{
    buffer_ = std::make_unique_for_overwrite<std::byte[]>(capacity_);
}

std::span<std::byte> StagedWriter::Room() noexcept
{
    // Steps end at multiples of their size, so that they begin with whole pages.
    const auto room = [this] { return capacity_ - static_cast<std::size_t>(place_ % capacity_); };
    if (fill_ == room() && !Flush())
        return {};
    return std::span(buffer_.get(), room()).subspan(fill_);
}

bool StagedWriter::MoveTo(std::uint64_t place) noexcept
{
    if (place == place_ + fill_)
        return true;
    if (!Flush())
        return false;
    place_ = place;
    return true;
}

bool StagedWriter::AppendZeros(std::uint64_t bytes) noexcept
{
    while (bytes != 0) {
        const std::span<std::byte> room = Room();
        const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(room.size(), bytes));
        if (count == 0)
            return false;
        std::memset(room.data(), 0, count);
        fill_ += count;
        bytes -= count;
    }
    return true;
}

StagedWriter::Copied StagedWriter::AppendFrom(FileObject& source, std::uint64_t offset,
                                              std::uint64_t bytes) noexcept
{
    if (!source.Seek(offset))
        return Copied::CannotRead;
    while (bytes != 0) {
        const std::span<std::byte> room = Room();
        const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(room.size(), bytes));
        if (count == 0)
            return Copied::CannotWrite;
        if (!source.ReadExact(room.first(count)))
            return Copied::CannotRead;
        fill_ += count;
        bytes -= count;
    }
    return Copied::All;
}

bool StagedWriter::Flush() noexcept
{
    const bool isWritten = file_.Seek(place_) && file_.WriteAll(std::span(buffer_.get(), fill_));
    if (isWritten)
        place_ += fill_;
    fill_ = 0;
    return isWritten;
}

} // namespace vimbo
