// AIFF and its relatives (AIFF-C, Typhoon waves, MAUD). What the format table and other drivers call; the
// records stand in aiff_records.h.
#pragma once

#include "codecs/mace.h"
#include "formats/format_table.h"
#include "formats/speech/coded_frames.h"

namespace vimbo {

bool ReadAiff(Collection& collection, FileObject& file, std::uint32_t variant);
bool WriteAiff(Item& root, FileObject& file, FormatChoice& choice);
int DetectAiff(std::span<const std::byte> head, std::uint32_t variant, std::uint64_t fileSize) noexcept;
int DetectAifc(std::span<const std::byte> head, std::uint32_t variant, std::uint64_t fileSize) noexcept;
int DetectMaud(std::span<const std::byte> head, std::uint32_t variant, std::uint64_t fileSize) noexcept;

/// Reads a whole AIFF image that lies in [start, start + length) of a larger file into `wave`.
[[nodiscard]] bool ReadAiffRange(Waveform& wave, FileObject& file, std::uint64_t start, std::uint64_t length);

/// The packets of Apple's IMA coding and of MACE as streams; QuickTime files hold the same.
std::unique_ptr<StreamDecoder> MakeIma4Decoder(unsigned channels);
std::unique_ptr<StreamDecoder> MakeMaceDecoder(MaceRatio ratio, unsigned channels);

/// Decodes the samples of files that are no plain PCM, float or G.711; how they are coded stands in the
/// waveform's sourceTag.
extern const ImportProcedure kAiffImport;

} // namespace vimbo
