// Walking the chunks of a byte range of a RIFF file, in either byte order.
#pragma once

#include "base/file_object.h"
#include "formats/wave/wave_records.h"

#include <bit>
#include <span>
#include <string_view>
#include <vector>

namespace vimbo {

/// Reverses each field of a record in place; `fields` holds their widths in bytes, one digit each. Fields
/// that do not lie wholly inside stay as they are.
void ReverseFields(std::span<std::byte> record, std::string_view fields) noexcept;

/// Steps through the chunks that lie in [start, end) of a file. Positions are 64-bit and absolute; a chunk
/// that claims to run past the end is cut there. Advances with every step, and stops after kMaxChunks of
/// them.
class ChunkCursor {
public:
    static constexpr std::uint32_t kMaxChunks = 1000000;

    /// @param end at most the file's size
    ChunkCursor(FileObject& file, std::uint64_t start, std::uint64_t end, std::endian order) noexcept
        : file_(file), origin_(start), next_(start), end_(end), order_(order)
    {
    }

    /// To the next chunk. False when fewer than 8 bytes remain or the file cannot be read.
    [[nodiscard]] bool Next() noexcept;

    const FourCc& Id() const noexcept { return head_.id; }
    /// The size that the chunk's head gives, and what of it lies inside the range.
    std::uint32_t ClaimedSize() const noexcept;
    std::uint64_t Size() const noexcept { return size_; }
    std::uint64_t Start() const noexcept { return start_; } ///< of the body
    std::uint64_t Left() const noexcept { return size_ - used_; }
    std::uint64_t End() const noexcept { return end_; }

    /// Moves the end of the range.
    void SetEnd(std::uint64_t end) noexcept { end_ = end; }
    /// Gives the current chunk another size, which is cut to the range; the next chunk follows behind it.
    void SetSize(std::uint64_t size) noexcept;

    /// Reads the next bytes of the body. More than is left: false, no step.
    [[nodiscard]] bool ReadBytes(std::span<std::byte> out) noexcept;
    /// The next record of the body; `fields` as for ReverseFields, needed by big-endian files. On failure
    /// `out` is zero.
    template <DiskRecord T>
    [[nodiscard]] bool Read(T& out, std::string_view fields = {}) noexcept
    {
        const auto bytes = std::as_writable_bytes(std::span(&out, 1));
        out = T{};
        if (!ReadBytes(bytes))
            return false;
        if (order_ == std::endian::big)
            ReverseFields(bytes, fields);
        return true;
    }
    /// Up to `limit` of the bytes that are left in the body; empty if they cannot be read.
    std::vector<std::byte> ReadRest(std::size_t limit);
    void Skip(std::uint64_t count) noexcept { used_ += count < Left() ? count : Left(); }

    /// A cursor over the chunks in what is left of the body.
    ChunkCursor Inner() const noexcept { return {file_, start_ + used_, start_ + size_, order_}; }

private:
    FileObject& file_;
    std::uint64_t origin_;
    std::uint64_t next_;
    std::uint64_t end_;
    std::endian order_;
    RiffChunkHead head_;
    std::uint64_t start_ = 0;
    std::uint64_t size_ = 0;
    std::uint64_t used_ = 0;
    std::uint32_t count_ = 0;
};

} // namespace vimbo
