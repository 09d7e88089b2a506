// A part of a file as the codecs' input, and a file from its position on as their sink.
#pragma once

#include "base/file_object.h"
#include "codecs/packet_stream.h"

#include <algorithm>

namespace vimbo {

/// The bytes [offset, offset + bytes) of a file, as far as it has them. 0 bytes: to its end.
class FileRange final : public ByteInput {
public:
    FileRange(FileObject& file, std::uint64_t offset, std::uint64_t bytes) noexcept
        : file_(file), offset_(std::min(offset, file.Size())), size_(file.Size() - offset_)
    {
        if (bytes != 0)
            size_ = std::min(size_, bytes);
    }
    std::uint64_t Size() const noexcept override { return size_; }
    bool Read(std::uint64_t offset, std::span<std::byte> out, std::size_t& got) noexcept override
    {
        got = 0;
        if (offset >= size_)
            return true;
        out = out.first(static_cast<std::size_t>(std::min<std::uint64_t>(out.size(), size_ - offset)));
        std::uint64_t read = 0;
        const bool good = file_.Seek(offset_ + offset) && file_.ReadAll(out, &read);
        got = static_cast<std::size_t>(read);
        return good;
    }

private:
    FileObject& file_;
    std::uint64_t offset_;
    std::uint64_t size_;
};

class FileSink final : public ByteSink {
public:
    explicit FileSink(FileObject& file) noexcept : file_(file), start_(file.Position()), end_(start_) {}

    bool Write(std::uint64_t offset, std::span<const std::byte> bytes) noexcept override
    {
        if (!file_.Seek(start_ + offset) || !file_.WriteAll(bytes))
            return false;
        end_ = std::max(end_, file_.Position());
        return true;
    }
    /// Moves the file behind the last byte that was written.
    [[nodiscard]] bool SeekEnd() noexcept { return file_.Seek(end_); }

private:
    FileObject& file_;
    std::uint64_t start_;
    std::uint64_t end_;
};

} // namespace vimbo
