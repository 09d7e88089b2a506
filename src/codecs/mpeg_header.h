// The header of an MPEG audio frame: ISO/IEC 11172-3 and 13818-3, 2.4.1.3, and what everybody calls MPEG 2.5.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace vimbo {

enum class MpegVersion : std::uint8_t { Mpeg1, Mpeg2, Mpeg25 };
enum class MpegMode : std::uint8_t { Stereo, Joint, Dual, Mono };

inline constexpr std::size_t kMpegHeaderBytes = 4;
/// Frames that one MPEG frame holds, at most.
inline constexpr std::size_t kMpegMostFrames = 1152;
/// Longest MPEG frame that is decoded. With a bit rate in the header they have up to 1729 bytes; in the free
/// format the encoder decides.
inline constexpr std::size_t kMpegMostBytes = 4096;

/// Valid once ParseMpegHeader has filled it in.
struct MpegHeader {
    MpegVersion version = MpegVersion::Mpeg1;
    MpegMode mode = MpegMode::Stereo;
    std::uint8_t layer = 3; ///< 1 to 3
    std::uint8_t modeExtension = 0;
    std::uint8_t rateIndex = 0;
    bool hasCrc = false;
    bool isPadded = false;
    std::uint16_t kbit = 0; ///< 0: free format
    std::uint32_t rateHz = 0;

    unsigned Channels() const noexcept { return mode == MpegMode::Mono ? 1 : 2; }
    /// MPEG 2 and 2.5: half the granules in layer III.
    bool IsLow() const noexcept { return version != MpegVersion::Mpeg1; }
    bool IsFree() const noexcept { return kbit == 0; }
    /// Frames (samples per channel) that it decodes to.
    std::size_t Frames() const noexcept;
    /// Bytes that padding adds.
    std::size_t PaddingBytes() const noexcept { return !isPadded ? 0 : layer == 1 ? 4 : 1; }
    /// Header and all; 0 in the free format.
    std::size_t FrameBytes() const noexcept;
    /// Layer III only.
    std::size_t SideInfoBytes() const noexcept;
    /// Where the data begin: behind the header and its checksum.
    std::size_t DataAt() const noexcept { return kMpegHeaderBytes + (hasCrc ? 2 : 0); }
};

/// False if the bytes (at least kMpegHeaderBytes) are no header.
[[nodiscard]] bool ParseMpegHeader(std::span<const std::byte> bytes, MpegHeader& out) noexcept;

/// True if both may be frames of one stream: all but bit rate, padding, mode and checksum agree.
bool IsSameMpegStream(const MpegHeader& a, const MpegHeader& b) noexcept;

} // namespace vimbo
