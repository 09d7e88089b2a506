// Where the samples lie in a bank, and their way there.
#pragma once

#include "formats/soundfont/soundfont_frames.h"

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

/// Writes the samples to their places: `smpl` begins at `words`, the low bytes of 24 bits at `lowBytes`.
/// @return false with the Last error text
[[nodiscard]] bool WriteData(FileObject& file, const DataPlan& plan, std::uint64_t words,
                             std::uint64_t lowBytes, const std::vector<OutSample>& samples, Streams& streams,
                             Host& host);

inline constexpr std::u16string_view kCannotWrite = u"Couldn't write to file!";

} // namespace vimbo::sf2
