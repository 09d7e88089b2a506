// Streams of MPEG audio frames: finding the frames among whatever else there is, and decoding from any place.
#pragma once

#include "codecs/mpeg_audio.h"
#include "codecs/packet_stream.h"

#include <array>
#include <memory>
#include <vector>

namespace vimbo {

/// What the frames of a stream say of it.
struct MpegInfo {
    MpegHeader first; ///< header of the first frame with sound; channels and rate are those of the stream
    std::uint64_t frames = 0;     ///< to be had from Read
    std::uint64_t mpegFrames = 0; ///< with sound
    float kbit = 0;               ///< mean of the stream
    bool isTrimmed = false;       ///< the encoder's delay and padding are known, and left out
    std::uint64_t audioAt = 0;    ///< place of the first frame in the input, be it with sound or not
};

/// Reads layers I, II and III. A frame that says how long the stream is ("Xing", "Info", "VBRI") has no
/// sound. Where it also tells the encoder's delay and padding, these are left out, and so is what the decoder
/// needs to settle. Threads: one at a time for each object.
class MpegStream final : public PacketDecoder {
public:
    MpegStream();
    ~MpegStream() override;

    /// Looks for all frames; tags, garbage and a frame that breaks off are passed over. `input` outlives the
    /// object. Memory: 8 bytes for each MPEG frame. Errors: "No MPEG audio found", "Reading from file
    /// failed".
    [[nodiscard]] bool Open(ByteInput& input);
    const MpegInfo& Info() const noexcept { return info_; }
    /// What follows is bit by bit what reading from the start gives.
    [[nodiscard]] bool Seek(std::uint64_t frame) override;
    /// Full scale is 1, and samples may exceed it. What is damaged becomes silence.
    /// Errors: "Reading from file failed".
    [[nodiscard]] bool Read(std::span<float> out, std::size_t& frames) override;

private:
    class Scanner;
    class Window;

    void Trim(std::uint32_t delay, std::uint32_t padding, bool isWhole) noexcept;
    bool ReadFrame(std::uint64_t index, MpegHeader& header, std::span<const std::byte>& bytes);
    bool StartBefore(std::uint64_t index);
    bool DecodeFrame();
    void ToStreamChannels(unsigned channels) noexcept;

    std::unique_ptr<Window> window_;
    MpegDecoder decoder_;
    MpegInfo info_;
    std::vector<std::uint64_t> places_; ///< of frames with sound, in the input
    std::size_t freeBytes_ = 0;         ///< of a frame in the free format, but for padding
    std::uint64_t begin_ = 0;           ///< frames that are left out at the start
    std::uint64_t next_ = 0;            ///< MPEG frame that DecodeFrame takes
    std::uint64_t position_ = 0;        ///< frame that Read gives next, from begin_ on
    std::size_t taken_ = 0;             ///< frames of decoded_ that were handed out
    std::size_t held_ = 0;
    std::array<float, 2 * kMpegMostFrames> decoded_;
};

} // namespace vimbo
