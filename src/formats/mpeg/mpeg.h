// MPEG audio streams wherever they lie: in WAV files and in banks.
#pragma once

#include "base/scratch_file.h"
#include "codecs/mp3_encoder.h"
#include "formats/format_choice.h"

namespace vimbo {

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
/// Encodes all frames at a constant bit rate to the file's position, and leaves the file standing behind the
/// stream. Readers that know of the first frame get back as many frames.
/// @param kbit  the nearest bit rate that the sample rate permits is taken
/// Errors: those of the source and of Mp3Encoder.
[[nodiscard]] bool EncodeMp3(FrameSource& source, std::uint32_t rateHz, unsigned kbit, FileObject& file,
                             Mp3Stream& out);
/// Copies it from its file to where another one stands. Errors: "Couldn't write to file!".
[[nodiscard]] bool PutMp3(const Mp3Stream& stream, FileObject& from, FileObject& to);

} // namespace vimbo
