// The frames of a bank's samples on their way to the file.
#pragma once

#include "base/scratch_file.h"
#include "formats/format_choice.h"
#include "formats/soundfont/soundfont_build.h"

#include <memory>
#include <vector>

namespace vimbo::sf2 {

/// The sample's frames, mono, as many as the waveform says. Null with the Last error text on failure.
std::unique_ptr<FrameSource> OpenSample(const OutSample& sample);

/// A sample's stream in the scratch file; no bytes: the sample stays uncompressed.
struct StreamPlace {
    std::uint64_t offset = 0;
    std::uint64_t bytes = 0;
    unsigned bits = 0; ///< per sample, 0 for those without a width
};
struct Streams {
    ScratchFile file;
    std::vector<StreamPlace> places; ///< of each sample; empty if none is compressed
    std::uint16_t type = 0;          ///< bit of the sample headers
};

/// How samples are compressed: FLAC at the width that each waveform asks for, or Ogg Vorbis by quality.
struct CompressSettings {
    static constexpr float kFlac = 1; ///< the setting that stands for FLAC
    FormatChoice choice;
    float setting = kFlac;   ///< other values: quality
    std::size_t workers = 0; ///< 0: all cores; the streams do not depend on it
};

/// Encodes all samples side by side. One that fails, after a message to the user, or that would not become
/// smaller is left out. @return false with the Last error text if nothing can be stored, or if the user
/// stopped it
[[nodiscard]] bool CompressSamples(const std::vector<OutSample>& samples, const CompressSettings& settings,
                                   Host& host, Streams& out);

} // namespace vimbo::sf2
