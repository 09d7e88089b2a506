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

/// With the songs that banks of the extended levels may hold.
bool ReadDls(Collection& collection, FileObject& file, std::uint32_t variant);
/// The extended levels hold the collection's first song too.
bool WriteDls(Item& root, FileObject& file, FormatChoice& choice);
int DetectDls(std::span<const std::byte> head, std::uint32_t variant, std::uint64_t fileSize);

/// Reads a bank that lies in [start, start + length) of a larger file, from its `RIFF` word on. Its
/// instruments and waveforms join what the collection has; so do the bank's texts. Songs in it are left out,
/// so that banks in songs in banks come to an end.
[[nodiscard]] bool ReadDlsRange(Collection& collection, FileObject& file, std::uint64_t start,
                                std::uint64_t length);

/// Shapes of banks inside other files.
enum class DlsImage : std::uint8_t {
    Level1, ///< asks about regions beyond the level's limit, as the row does
    Level2,
    Level1Mono ///< level 1 in its records, without its limit of regions; stereo waveforms become two
};
/// Appends a collection's instruments and waveforms at the file's position, as one `RIFF` `DLS ` chunk of
/// even length. Losses are noted as by WriteDls, but not those of songs, which are the outer file's.
/// @param caps   as in FormatChoice: encodings and channels that the samples may have
/// @param bytes  length of the chunk with its head; where it is 0, nothing was written: there was no
/// instrument
/// @return false after writing the Last error text
[[nodiscard]] bool WriteDlsImage(Collection& collection, FileObject& file, DlsImage image, std::uint32_t caps,
                                 std::uint64_t& bytes);

} // namespace vimbo
