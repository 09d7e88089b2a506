// MPEG audio, layers I, II and III of MPEG 1, 2 and 2.5, frame by frame. ISO/IEC 11172-3 and 13818-3.
#pragma once

#include "codecs/mpeg_header.h"

#include <cstddef>
#include <memory>
#include <span>

namespace vimbo {

/// Allocates when it is made, and never after that. Any bytes may be given to it: what cannot be decoded
/// becomes silence. Threads: one at a time for each object.
class MpegDecoder {
public:
    MpegDecoder();
    ~MpegDecoder();
    MpegDecoder(const MpegDecoder&) = delete;
    MpegDecoder& operator=(const MpegDecoder&) = delete;

    /// Forgets all frames.
    void Reset() noexcept;
    /// Decodes the next MPEG frame of a stream.
    /// @param header  of that frame
    /// @param frame   all its bytes; of those behind kMpegMostBytes nothing is read
    /// @param out     room for header.Frames() frames of header.Channels() interleaved samples; full scale is
    /// 1, and
    ///                they may exceed it
    /// @return frames written: header.Frames()
    std::size_t Decode(const MpegHeader& header, std::span<const std::byte> frame,
                       std::span<float> out) noexcept;
    /// Takes the bits that later frames of layer III may have in this one, and decodes nothing: for frames
    /// ahead of those that are wanted.
    void Feed(const MpegHeader& header, std::span<const std::byte> frame) noexcept;

private:
    struct State;
    std::unique_ptr<State> state_;
};

/// How far back frames of layer III may reach for their data, in bytes that are neither header nor side
/// information.
inline constexpr std::size_t kMpegReservoirBytes = 511;

} // namespace vimbo
