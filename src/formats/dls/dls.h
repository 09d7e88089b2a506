// DownLoadable Sounds banks of levels 1 and 2, and two extensions of level 2. What the format table and other
// drivers call; the records stand in dls_records.h.
#pragma once

#include "formats/format_table.h"

namespace vimbo {

// Variants of the rows, each with all that the ones before it have. The reader takes any.
inline constexpr std::uint32_t kDlsLevel1 = 1;
inline constexpr std::uint32_t kDlsLevel2 = 2;
inline constexpr std::uint32_t kDlsLevel2Plus = 3;     ///< wider ranges, more encodings of samples
inline constexpr std::uint32_t kDlsLevel2PlusPlus = 4; ///< likewise, mono waveforms only

bool ReadDls(Collection& collection, FileObject& file, std::uint32_t variant);
/// Writes from the file's position, so that other containers can hold a bank.
bool WriteDls(Item& root, FileObject& file, FormatChoice& choice);
int DetectDls(std::span<const std::byte> head, std::uint32_t variant, std::uint64_t fileSize);

/// Reads a bank that lies in [start, start + length) of a larger file.
[[nodiscard]] bool ReadDlsRange(Collection& collection, FileObject& file, std::uint64_t start,
                                std::uint64_t length);

} // namespace vimbo
