// Reading a waveform's samples piece by piece, without building its block.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

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

protected:
    FrameSource(std::uint32_t frames, unsigned channels) noexcept : frames_(frames), channels_(channels) {}

private:
    std::uint32_t frames_;
    unsigned channels_;
};

/// The same frames with another number of channels: stereo averaged to mono, or mono put into both channels.
std::unique_ptr<FrameSource> WithChannels(std::unique_ptr<FrameSource> source, unsigned channels);

} // namespace vimbo
