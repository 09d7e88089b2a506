// Files that are nothing but samples, the last-resort import of unknown files, and samples as ASCII text.
#pragma once

#include "formats/format_table.h"

namespace vimbo {

/// Variant word of the raw rows: the source word (DataFormat bit and flags) in the low 25 bits; the rows of
/// 8000 Hz telephony carry kRawTelephony as well.
inline constexpr std::uint32_t kRawTelephony = 1u << 31;

bool ReadRaw(Collection& collection, FileObject& file, std::uint32_t variant);
bool WriteRaw(Item& root, FileObject& file, FormatChoice& choice);

/// Row 0: asks whether the file is to be read as 8-bit samples. A cancel answer loads nothing and is no
/// failure.
bool ReadUnrecognized(Collection& collection, FileObject& file, std::uint32_t variant);

bool ReadAsciiAudio(Collection& collection, FileObject& file, std::uint32_t variant);
bool WriteAsciiAudio(Item& root, FileObject& file, FormatChoice& choice);
int DetectAsciiAudio(std::span<const std::byte> head, std::uint32_t variant, std::uint64_t fileSize) noexcept;

/// Generic save: writes all frames of `source` to the file in the given layout, piece by piece.
/// Errors: "Writing to file failed", and those of the source.
[[nodiscard]] bool WriteSamples(FileObject& file, FrameSource& source, DataFormat format,
                                std::uint32_t flags);

/// Decodes the numbers of an ASCII text audio file.
extern const ImportProcedure kAsciiImport;

} // namespace vimbo
