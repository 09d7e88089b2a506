// Big files from many pieces of others: few large steps to the disk, whatever the pieces are.
#pragma once

#include "base/file_object.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace vimbo {

/// Copies ranges of files into another one. Any number of threads may help: the system takes the bytes of one
/// step after another, but reads for several.
class RangeCopy {
public:
    struct Range {
        std::size_t source;  ///< number of the file's path
        std::uint64_t from;  ///< where it begins there
        std::uint64_t held;  ///< bytes of it
        std::uint64_t to;    ///< where it begins in the other file; rising, without overlaps
        std::uint64_t bytes; ///< that it takes there: `held` ones, and zeros
    };
    /// @param out  not to be used otherwise while there is a Helper
    RangeCopy(FileObject& out, std::vector<std::u16string> paths, std::vector<Range> ranges);

    /// A thread's part of the work.
    class Helper {
    public:
        explicit Helper(RangeCopy& copy);
        /// Copies what comes next, up to a megabyte. @return false if there is nothing left to begin
        bool Step() noexcept;

    private:
        bool Fill(const Range& range, std::uint64_t first, std::span<std::byte> out) noexcept;
        bool Read(const Range& range, std::uint64_t first, std::span<std::byte> out);

        RangeCopy& copy_;
        std::unique_ptr<std::byte[]> buffer_;
        FileObject source_;
        std::optional<std::size_t> opened_;
    };
    /// No step begins any more.
    void Stop() noexcept { isStopped_ = true; }
    /// The range whose copying began last.
    std::size_t At() const noexcept { return at_; }

    /// When all helpers are done: false if the file took not everything.
    bool IsWritten() const noexcept { return isWritten_; }
    /// Likewise: true if the range is in its place, false if its file could not be read, or nobody began it.
    bool Holds(std::size_t range) const noexcept { return left_[range] == 0; }

private:
    /// A stretch of the file to be written, with all ranges in it side by side.
    struct Stretch {
        std::size_t range; ///< the first one
        std::uint64_t begin, end;
    };
    bool Write(const Stretch& stretch, std::span<const std::byte> bytes) noexcept;

    FileObject& out_;
    std::mutex mutex_; ///< of out_
    std::vector<std::u16string> paths_;
    std::vector<Range> ranges_;
    std::vector<Stretch> stretches_;
    std::vector<std::atomic<std::uint64_t>> left_; ///< bytes of each range
    std::atomic<std::size_t> next_ = 0, at_ = 0;
    std::atomic<bool> isStopped_ = false, isWritten_ = true;
};

} // namespace vimbo
