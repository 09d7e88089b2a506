// The coded families of WAV files as streams that can be decoded.
#pragma once

#include "formats/speech/coded_frames.h"
#include "formats/wave/wave_format.h"

namespace vimbo {

/// Where a coded stream lies in the file, and how to start decoding it.
struct WaveStream {
    std::uint64_t offset = 0;
    std::uint64_t bytes = 0;
    CodedFrames::Restart restart;
};

/// Settles how the waveform's data are decoded. Errors: "The decoder for ... samples is missing".
/// @param fmtBody the `fmt ` chunk's body, as far as it was read
[[nodiscard]] bool SettleWaveStream(const Waveform& wave, const WaveFormat& format,
                                    std::span<const std::byte> fmtBody, WaveStream& out);

} // namespace vimbo
