// MACE 3:1 and 6:1, the Macintosh Audio Compression and Expansion of Apple's Sound Manager (Inside Macintosh:
// Sound, 1994). Apple never published the coding; arithmetic and tables are as others found them by analysis,
// so that the output agrees with the Sound Manager's. Both are codings of 8-bit sound: the 16-bit output
// holds each 8-bit sample in both of its bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace vimbo {

enum class MaceRatio : std::uint8_t { Three, Six };

inline constexpr std::size_t kMacePacketFrames = 6;

/// Bytes of a packet of one channel.
constexpr std::size_t MacePacketBytes(MaceRatio ratio) noexcept
{
    return ratio == MaceRatio::Three ? 2 : 1;
}

/// One channel of a stream; as constructed, at its start.
struct MaceState {
    int index = 0;    ///< which row of levels counts, in sixteenths
    int level = 0;    ///< what the next difference is added to
    int factor = 0;   ///< 6:1 only: how much of the last value stays, / 32768
    int previous = 0; ///< 6:1 only: the value before, halved
    int earlier = 0;  ///< 6:1 only: and the one before that
};

/// Decodes packets, one of each channel in turn. Any bytes are a valid stream.
/// @param states  one per channel, 1 and more
/// @param in      whole rounds of packets; an incomplete last one is ignored
/// @param out     interleaved, int16 / 32768; rounds for which it has no room are not decoded
/// @return frames written, 6 per round
std::size_t DecodeMace(std::span<MaceState> states, MaceRatio ratio, std::span<const std::byte> in,
                       std::span<float> out) noexcept;

} // namespace vimbo
