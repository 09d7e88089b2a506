// IMA ADPCM: IMA Digital Audio Focus and Technical Working Groups, Recommended Practices for Enhancing
// Digital Audio Compatibility in Multimedia Systems, rev. 3.00 (1992), in the blocks of WAV files (format tag
// 17) and the packets of QuickTime and AIFF-C ("ima4").
//
// Differences are summed up from shifted steps, each cut off, as the recommendation tells. Some programs
// multiply first and cut off once: their output drifts away by a few 16-bit units until the next header.
#pragma once

#include <cstddef>
#include <span>

namespace vimbo {

/// One channel of a coder that goes on from block to block; as constructed, at the start of a stream.
struct ImaState {
    int predictor = 0; ///< -32768 to 32767
    int stepIndex = 0; ///< 0 to 88
};

inline constexpr std::size_t kIma4PacketBytes = 34; ///< of one channel
inline constexpr std::size_t kIma4PacketFrames = 64;

/// Frames in a WAV block of `blockBytes` bytes, also a short one: the header's and one per whole code of each
/// channel. With 4 bits that is `blockBytes / channels * 2 - 7`. 0 for a block shorter than its headers, for
/// no channels and for other than 2, 3 or 4 bits.
std::size_t ImaBlockFrames(std::size_t blockBytes, std::size_t channels, unsigned bits) noexcept;

/// Bytes of a 4-bit WAV block that holds `frames` frames, whole 4-byte groups of each channel. 0 frames: 0.
std::size_t ImaBlockBytes(std::size_t frames, std::size_t channels) noexcept;

/// Decodes one WAV block: a 4-byte header per channel, then 4-byte groups of the channels in turn. Blocks are
/// independent of each other.
/// @param block     any length; a step index above 88 counts as 88, and where a last, incomplete round of
///                  groups leaves a channel without codes they count as 0
/// @param channels  1 and more
/// @param bits      2, 3 or 4
/// @param out       interleaved, int16 / 32768; what is not written is left alone
/// @return frames written, the lesser of ImaBlockFrames() and the whole frames that `out` holds
std::size_t DecodeImaBlock(std::span<const std::byte> block, std::size_t channels, unsigned bits,
                           std::span<float> out) noexcept;

/// Encodes one 4-bit WAV block. Where the first difference is too large for the step left by the block
/// before, the header raises the step, so that a sound's attack is not blunted.
/// @param states  one per channel; carries the step from block to block
/// @param in      interleaved, nominal -1 to 1. At most as many frames as the block holds are taken; fewer
/// are
///                filled up to whole groups by staying at the last value
/// @param out     the block's place; 512 bytes per channel hold 1017 frames. Holding less than the headers:
/// no
///                block is made
/// @return bytes written, ImaBlockBytes() of the frames taken
std::size_t EncodeImaBlock(std::span<ImaState> states, std::span<const float> in,
                           std::span<std::byte> out) noexcept;

/// Decodes "ima4" packets, a packet of each channel in turn. A packet's header holds only the upper 9 bits of
/// the predictor; it counts where it says something else than the state, as when playing starts in the
/// middle.
/// @param states  one per channel, 1 and more
/// @param in      whole rounds of packets; an incomplete last one is ignored
/// @param out     interleaved, int16 / 32768. Ending inside of a packet it can take no further one; what is
/// not
///                written is left alone
/// @return frames written
std::size_t DecodeIma4(std::span<ImaState> states, std::span<const std::byte> in,
                       std::span<float> out) noexcept;

/// Encodes "ima4" packets, the last round filled up by staying at the last value. Headers may change the step
/// as those of WAV blocks do.
/// @param states  one per channel
/// @param in      interleaved, nominal -1 to 1; all but a stream's last part must hold a multiple of 64
/// frames
/// @param out     34 bytes per channel and 64 frames; packets without a place are not made
/// @return bytes written
std::size_t EncodeIma4(std::span<ImaState> states, std::span<const float> in,
                       std::span<std::byte> out) noexcept;

} // namespace vimbo
