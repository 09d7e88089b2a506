// Where the samples lie in a bank, and their way there.
#pragma once

#include "base/range_copy.h"
#include "formats/soundfont/soundfont_frames.h"

#include <condition_variable>
#include <mutex>
#include <optional>
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
/// the bank, copied while its tables are made. Whoever waits for the end helps.
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
    bool Holds(std::size_t sample) const noexcept
    {
        return rangeOf_[sample] != kNone && copy_->Holds(rangeOf_[sample]);
    }

private:
    static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

    void Run() noexcept;
    /// @return false with the Last error text if the user wants no more of it
    bool Help(Host& host);
    bool GoesOn(Host& host) const;

    const std::vector<OutSample>& names_; ///< not touched by the thread
    std::vector<std::size_t> rangeOf_;    ///< each sample's number in copy_, or kNone
    std::vector<std::size_t> sampleOf_;   ///< of each range
    std::optional<RangeCopy> copy_;
    std::mutex mutex_;
    std::condition_variable done_;
    bool isDone_ = true;  ///< the thread
    std::jthread thread_; ///< ends before the rest goes
};

/// Writes the other samples to their places: `smpl` begins at `words`, the low bytes of 24 bits at
/// `lowBytes`. @return false with the Last error text
[[nodiscard]] bool WriteRest(FileObject& file, const DataPlan& plan, std::uint64_t words,
                             std::uint64_t lowBytes, const std::vector<OutSample>& samples,
                             const WordCopy& copied, Streams& streams, Host& host);

inline constexpr std::u16string_view kCannotWrite = u"Couldn't write to file!";

} // namespace vimbo::sf2
