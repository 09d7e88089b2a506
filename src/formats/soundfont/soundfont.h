// SoundFont banks: sf2, sf3 (compressed samples), sf2pack, sbk (version 1), sfark.
#pragma once

#include "formats/format_table.h"

namespace vimbo {

// Variants of the rows.
inline constexpr std::uint32_t kSoundFont2 = 0;
inline constexpr std::uint32_t kSoundFont1 = 1;
inline constexpr std::uint32_t kSoundFont3 = 3;
inline constexpr std::uint32_t kSoundFontPacked = 4;

bool ReadSoundFont(Collection& collection, FileObject& file, std::uint32_t variant);
/// Reads a bank of any version that lies in [start, start + length) of a larger file, from its `RIFF` word
/// on. Its instruments and waveforms join what the collection has; so do the bank's texts.
[[nodiscard]] bool ReadSoundFontRange(Collection& collection, FileObject& file, std::uint64_t start,
                                      std::uint64_t length);
bool WriteSoundFont(Item& root, FileObject& file, FormatChoice& choice);
int DetectSoundFont(std::span<const std::byte> head, std::uint32_t variant, std::uint64_t fileSize);
/// Compressed settings of sf3: FLAC, and Ogg Vorbis by quality.
float SoundFontSubFormats(std::uint32_t index, std::uint32_t variant, std::u16string* name);

bool ReadSfArk(Collection& collection, FileObject& file, std::uint32_t variant);
int DetectSfArk(std::span<const std::byte> head, std::uint32_t variant, std::uint64_t fileSize);

/// 16-bit words with the 8 low bits of each sample elsewhere (formatOffset); mono.
extern const ImportProcedure kSm24Import;
/// A part of the one compressed stream (FLAC or Ogg Vorbis) that holds all samples of a packed bank: it lies
/// in sourceBytes bytes from sourceOffset, the part begins at its frame formatOffset.
extern const ImportProcedure kPackedImport;

} // namespace vimbo
