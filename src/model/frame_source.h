// Reading a waveform's samples piece by piece, without building its block.
#pragma once

#include "dsp/kernels/sample_convert.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace vimbo {

/// Frames of one waveform, readable from any place. Used by writers: memory stays small however long the
/// waveform is.
class FrameSource {
public:
    virtual ~FrameSource() = default;
    std::uint32_t Frames() const noexcept { return frames_; }
    unsigned Channels() const noexcept { return channels_; }

    /// Fills `out` with the interleaved frames that start at `first`. out.size() is a multiple of Channels(),
    /// and the range lies inside the waveform. @return false with the Last error text if the data cannot be
    /// read.
    [[nodiscard]] virtual bool Read(std::uint32_t first, std::span<float> out) = 0;
    /// The same frames as samples of a file, which is quick where a file already holds them so; the bytes are
    /// those that EncodeSamples gives either way. Not for delta codings, nor for those of half bytes.
    /// @param out  whole frames
    [[nodiscard]] virtual bool ReadStored(const SampleLayout& layout, std::uint32_t first,
                                          std::span<std::byte> out);

protected:
    FrameSource(std::uint32_t frames, unsigned channels) noexcept : frames_(frames), channels_(channels) {}

private:
    std::uint32_t frames_;
    unsigned channels_;
    std::vector<float> piece_; ///< on its way through ReadStored
};

/// True for codings whose samples are the same bytes again after they were floats.
bool SurvivesFloats(SampleCoding coding) noexcept;

/// The same frames with another number of channels: stereo averaged to mono, or mono put into both channels.
std::unique_ptr<FrameSource> WithChannels(std::unique_ptr<FrameSource> source, unsigned channels);

} // namespace vimbo
