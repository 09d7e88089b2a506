// FLAC and Ogg Vorbis files. What the format table calls, and what banks use that hold such streams.
#pragma once

#include "codecs/flac_stream.h"
#include "codecs/vorbis_stream.h"
#include "formats/format_table.h"

namespace vimbo {

/// Variant word of the `flac` rows.
inline constexpr std::uint32_t kFlacVariantDefault = 0;
inline constexpr std::uint32_t kFlacVariantMaxCompression = 1;

bool ReadFlac(Collection& collection, FileObject& file, std::uint32_t variant);
bool WriteFlac(Item& root, FileObject& file, FormatChoice& choice);
int DetectFlac(std::span<const std::byte> head, std::uint32_t variant, std::uint64_t fileSize) noexcept;

bool ReadOgg(Collection& collection, FileObject& file, std::uint32_t variant);
bool WriteOgg(Item& root, FileObject& file, FormatChoice& choice);
int DetectOgg(std::span<const std::byte> head, std::uint32_t variant, std::uint64_t fileSize) noexcept;
/// Nominal bit rates of the `ogg` row.
float OggSubFormats(std::uint32_t index, std::uint32_t variant, std::u16string* name);

/// Decode the stream that lies in sourceBytes bytes from sourceOffset of the source; 0 bytes: to its end.
extern const ImportProcedure kFlacImport;
extern const ImportProcedure kVorbisImport;

/// Describes the stream that lies in [offset, offset + bytes) of `file` (0 bytes: to its end): frames,
/// channels, rate, bits, encoding and import procedure. Samples are decoded only if the stream does not say
/// how long it is, or says what it cannot hold.
/// Errors: those of FlacDecoder::Open, "Files of more than two channels are not supported", "No samples could
/// be decoded".
[[nodiscard]] bool DescribeFlac(Waveform& wave, FileObject& file, std::uint64_t offset, std::uint64_t bytes);
/// The same; errors: those of VorbisDecoder::Open, and of too many channels.
/// @param comments null, or gets the stream's comments
[[nodiscard]] bool DescribeVorbis(Waveform& wave, FileObject& file, std::uint64_t offset, std::uint64_t bytes,
                                  std::vector<std::string>* comments = nullptr);

/// Encodes all frames to the file's position, and leaves the file standing behind the stream. Settings: see
/// the codecs; FLAC of 8 to 24 bits, codes rounded as in PCM files of that width. The same source and
/// settings give the same bytes; several threads may encode at once. Errors: those of the source and the
/// encoders.
[[nodiscard]] bool EncodeFlac(FrameSource& source, const FlacSettings& settings, FileObject& file);
[[nodiscard]] bool EncodeVorbis(FrameSource& source, const VorbisSettings& settings, FileObject& file);

} // namespace vimbo
