// Where the samples lie in a bank, and their way there.
#pragma once

#include "formats/soundfont/soundfont_frames.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace vimbo::sf2 {

/// Where a sample lies in `smpl`.
struct Extent {
    std::uint64_t offset = 0; ///< bytes
    std::uint64_t bytes = 0;  ///< with the silence, or of the stream with its pad byte
    bool isStream = false;
};

/// Everything about the bank's data that is settled before it is written.
struct DataPlan {
    std::vector<Extent> extents;
    std::uint64_t bytes = 0; ///< of `smpl`
    bool is24 = false;

    std::uint64_t LowBytes() const noexcept { return is24 ? bytes / 2 + (bytes / 2 & 1) : 0; }
};
DataPlan PlanData(const std::vector<OutSample>& samples, const Streams& streams, bool is24);

/// Samples that some file holds as the bank wants them, on their way there in a thread of their own: most of
/// the bank, copied while its tables are made.
class WordCopy {
public:
    /// Begins. `file` and the samples' files are not to be written until Finish; `smpl` begins at `words`.
    WordCopy(FileObject& file, const DataPlan& plan, std::uint64_t words,
             const std::vector<OutSample>& samples);
    /// Gives up what is left.
    ~WordCopy();
    WordCopy(const WordCopy&) = delete;
    WordCopy& operator=(const WordCopy&) = delete;

    /// Waits for the end. @return false with the Last error text; nothing is to be written then
    [[nodiscard]] bool Finish(Host& host);
    /// After that: whether the sample is in its place, with the silence behind it.
    bool Holds(std::size_t sample) const noexcept { return isCopied_[sample]; }

private:
    /// A sample's bytes in a file and in the bank.
    struct Range {
        std::size_t sample, path;
        std::uint64_t from, held, to, bytes;
    };
    void Run() noexcept;
    void Copy();

    FileObject& file_;
    const std::vector<OutSample>& names_; ///< not touched by the thread
    std::vector<std::u16string> paths_;
    std::vector<Range> ranges_;
    std::uint64_t bytes_ = 0;
    std::vector<bool> isCopied_;
    bool isWritten_ = true;
    std::atomic<std::size_t> at_ = 0; ///< sample that is being copied
    std::atomic<bool> isStopped_ = false;
    std::mutex mutex_;
    std::condition_variable done_;
    bool isDone_ = false;
    std::jthread thread_; ///< ends before the rest goes
};

/// Writes the other samples to their places: `smpl` begins at `words`, the low bytes of 24 bits at
/// `lowBytes`. @return false with the Last error text
[[nodiscard]] bool WriteRest(FileObject& file, const DataPlan& plan, std::uint64_t words,
                             std::uint64_t lowBytes, const std::vector<OutSample>& samples,
                             const WordCopy& copied, Streams& streams, Host& host);

inline constexpr std::u16string_view kCannotWrite = u"Couldn't write to file!";

} // namespace vimbo::sf2
