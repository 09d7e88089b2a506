// MPEG audio: its files, and streams in WAV files and in banks.
#pragma once

#include "base/scratch_file.h"
#include "codecs/mp3_encoder.h"
#include "formats/format_choice.h"

#include <array>

namespace vimbo {

/// Variant words of the rows that read: which layer the row is for.
inline constexpr std::uint32_t kMpegAnyLayer = 0;
inline constexpr std::uint32_t kMpegLayer1 = 1;
inline constexpr std::uint32_t kMpegLayer2 = 2;
inline constexpr std::uint32_t kMpegLayer3 = 3;
/// Of the `mp3` rows that write.
inline constexpr std::uint32_t kMp3VariantConstant = 0;
inline constexpr std::uint32_t kMp3VariantAverage = 1;
inline constexpr std::uint32_t kMp3VariantVariable = 2;

/// Files of any layer, whatever the row. Errors: "No MPEG audio found", "Reading from file failed".
bool ReadMpeg(Collection& collection, FileObject& file, std::uint32_t variant);
int DetectMpeg(std::span<const std::byte> head, std::uint32_t variant, std::uint64_t fileSize) noexcept;
/// Through LAME and TwoLAME; texts go to an ID3 tag in `mp3` files.
bool WriteMp3(Item& root, FileObject& file, FormatChoice& choice);
bool WriteMp2(Item& root, FileObject& file, FormatChoice& choice);
/// Bit rates; of variable rate the means that the qualities are known to come near to.
float Mp3SubFormats(std::uint32_t index, std::uint32_t variant, std::u16string* name);
float Mp2SubFormats(std::uint32_t index, std::uint32_t variant, std::u16string* name);

/// Decodes the stream that lies in sourceBytes bytes from sourceOffset of the source.
extern const ImportProcedure kMpegImport;

/// ISO/IEC 11172-3, bit rates of layer III in kbit/s.
inline constexpr std::array<unsigned, 14> kMp3Kbit = {32,  40,  48,  56,  64,  80,  96,
                                                      112, 128, 160, 192, 224, 256, 320};

/// Decodes the stream in [offset, offset + bytes) of the file into the waveform's block. A waveform that
/// claims more frames than the stream has is shortened. Errors: "Zero length", "Out of memory", "Reading from
/// file failed", "No MPEG audio found".
[[nodiscard]] bool LoadMpeg(Waveform& wave, FileObject& file, std::uint64_t offset, std::uint64_t bytes);
/// The same piece by piece; behind the stream's end there is silence.
/// @return null with the Last error text on failure
std::unique_ptr<FrameSource> StreamMpeg(const Waveform& wave, std::unique_ptr<FileObject> file,
                                        std::uint64_t offset, std::uint64_t bytes);

/// A stream of layer III that waits in a scratch file for its place: files tell sizes ahead of it.
struct Mp3Stream {
    std::uint64_t offset = 0;
    std::uint64_t bytes = 0;
    unsigned kbit = 0; ///< that it has
};
/// Bit rate for layer III out of what was picked: whole kbit/s, 128 for what is none.
unsigned Mp3KbitFor(float kbit) noexcept;
/// Encodes all frames to the file's position, and leaves the file standing behind the
/// stream. Readers that know of the first frame get back as many frames.
/// @param settings  but for the channels, which are the source's; the nearest bit rate that the sample rate
///                  permits is taken
/// Errors: those of the source and of Mp3Encoder.
[[nodiscard]] bool EncodeMp3(FrameSource& source, Mp3Settings settings, FileObject& file, Mp3Stream& out);
/// All frames through an encoder that was started. Errors: those of the source and of the encoder.
[[nodiscard]] bool EncodeMpeg(FrameSource& source, MpegEncoder& encoder);
/// Copies it from its file to where another one stands. Errors: "Couldn't write to file!".
[[nodiscard]] bool PutMp3(const Mp3Stream& stream, FileObject& from, FileObject& to);

} // namespace vimbo
