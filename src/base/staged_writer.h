// Big files from many pieces: few large steps to the disk, whatever the pieces are.
#pragma once

#include "base/file_object.h"

#include <memory>

namespace vimbo {

/// Gathers pieces that follow one another and writes them together. Bytes of other files go the same way,
/// which costs one copy out of the system's cache and one into it.
class StagedWriter {
public:
    enum class Copied { All, CannotRead, CannotWrite };

    /// Starts at the file's position. Until Flush the file is not to be used otherwise.
    /// @param expected  bytes that will come, as far as is known: little needs no large buffer
    StagedWriter(FileObject& file, std::uint64_t expected);

    /// Goes on at another place.
    [[nodiscard]] bool MoveTo(std::uint64_t place) noexcept;
    [[nodiscard]] bool AppendZeros(std::uint64_t bytes) noexcept;
    /// Appends a range of another file. If that can't be read, what was read of it may be in the file; MoveTo
    /// its start to write something else there.
    Copied AppendFrom(FileObject& source, std::uint64_t offset, std::uint64_t bytes) noexcept;
    /// Everything to the file, which then stands behind it.
    [[nodiscard]] bool Flush() noexcept;

private:
    /// Room before the next step ends, at least one byte. Empty: the file takes no more.
    std::span<std::byte> Room() noexcept;

    FileObject& file_;
    std::unique_ptr<std::byte[]> buffer_;
    std::size_t capacity_;
    std::size_t fill_ = 0;
    std::uint64_t place_; ///< of the buffer's first byte in the file
};

} // namespace vimbo
