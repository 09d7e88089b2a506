// Microsoft ADPCM, WAV format tag 2: Microsoft, New Multimedia Data Types and Data Techniques, rev. 3.0
// (1994).
//
// The prediction's fraction is dropped by a shift, i.e. downwards, as in Microsoft's own coder and in most
// programs; the document writes a division. Streams whose encoder divided come out a few units off.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace vimbo {

/// Prediction from the last two samples, 256 = 1.
struct MsAdpcmCoefficients {
    std::int16_t last = 0, beforeLast = 0;
};

/// The seven pairs that every file's list begins with.
inline constexpr std::array<MsAdpcmCoefficients, 7> kMsAdpcmStandardPairs{
    {{256, 0}, {512, -256}, {0, 0}, {192, 64}, {240, 0}, {460, -208}, {392, -232}}};

/// Frames in a block of `blockBytes` bytes, also a short one: the header's two and one per code of each
/// channel. 0 for a block shorter than its headers of 7 bytes per channel, and for no channels.
std::size_t MsAdpcmBlockFrames(std::size_t blockBytes, std::size_t channels) noexcept;

/// Decodes one block; blocks are independent of each other.
/// @param pairs     of the file's `fmt ` chunk; a block's index past their end counts as the last one. Empty:
///                  the standard ones
/// @param block     any length
/// @param channels  1 and more
/// @param out       interleaved, int16 / 32768; what is not written is left alone
/// @return frames written, the lesser of MsAdpcmBlockFrames() and the whole frames that `out` holds
std::size_t DecodeMsAdpcmBlock(std::span<const MsAdpcmCoefficients> pairs, std::span<const std::byte> block,
                               std::size_t channels, std::span<float> out) noexcept;

} // namespace vimbo
