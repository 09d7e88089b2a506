// Streams of packets that are read from any frame: one road from their decoders to a waveform's samples.
#pragma once

#include "formats/xiph/file_range.h"
#include "model/frame_source.h"

#include <memory>

namespace vimbo {

/// A decoder with its input.
struct PacketInput {
    std::unique_ptr<FileRange> input;
    std::unique_ptr<PacketDecoder> decoder; ///< null: could not be opened
};

/// Frames behind the stream's end are silent.
class PacketFrames final : public FrameSource {
public:
    /// @param stream  at frame 0; its decoder has as many channels as the frames
    /// @param owned   null if the caller keeps the file open as long as this lives
    PacketFrames(std::uint32_t frames, PacketInput stream, std::unique_ptr<FileObject> owned) noexcept
        : FrameSource(frames, stream.decoder->Channels()), owned_(std::move(owned)),
          stream_(std::move(stream))
    {
    }

    [[nodiscard]] bool Read(std::uint32_t first, std::span<float> out) override;

private:
    bool MoveTo(std::uint32_t first);

    std::unique_ptr<FileObject> owned_;
    PacketInput stream_;
    std::uint64_t position_ = 0;
};

} // namespace vimbo
