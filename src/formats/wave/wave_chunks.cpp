#include "formats/wave/wave_chunks.h"

#include <algorithm>

namespace vimbo {

void ReverseFields(std::span<std::byte> record, std::string_view fields) noexcept
{
    for (const char digit : fields) {
        const auto width = static_cast<std::size_t>(digit - '0');
        if (width > record.size())
            return;
        std::ranges::reverse(record.first(width));
        record = record.subspan(width);
    }
}

bool ChunkCursor::Next() noexcept
{
    if (next_ > end_ || end_ - next_ < sizeof(head_) || count_ == kMaxChunks)
        return false;
    if (!file_.Seek(next_) || !file_.Read(head_))
        return false;
    ++count_;
    start_ = next_ + sizeof(head_);
    if (order_ == std::endian::big)
        ReverseFields(std::as_writable_bytes(std::span(&head_, 1)), "11114");
    SetSize(ClaimedSize());
    return true;
}

std::uint32_t ChunkCursor::ClaimedSize() const noexcept
{
    return head_.size.Get();
}

void ChunkCursor::SetSize(std::uint64_t size) noexcept
{
    const std::uint64_t room = start_ < end_ ? end_ - start_ : 0;
    size_ = std::min(size, room);
    used_ = 0;
    // Chunks stand on even places, counted from where the range begins.
    next_ = start_ + size_ + ((start_ - origin_ + size_) & 1);
}

bool ChunkCursor::ReadBytes(std::span<std::byte> out) noexcept
{
    if (out.size() > Left() || !file_.Seek(start_ + used_) || !file_.ReadExact(out))
        return false;
    used_ += out.size();
    return true;
}

std::vector<std::byte> ChunkCursor::ReadRest(std::size_t limit)
{
    std::vector<std::byte> bytes(static_cast<std::size_t>(std::min<std::uint64_t>(Left(), limit)));
    if (!ReadBytes(bytes))
        bytes.clear();
    return bytes;
}

} // namespace vimbo
