// PlayStation ADPCM ("VAG"): frames of 16 bytes with 28 samples, and the loop's place in the frames' flags.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace vimbo {

inline constexpr std::size_t kVagFrameBytes = 16;
inline constexpr std::size_t kVagFrameSamples = 28;

/// Second byte of a frame, its lowest three bits. Other values say nothing here.
enum class VagFlag : std::uint8_t {
    None = 0,
    LoopEnd = 3,   ///< the loop ends with this frame
    LoopStart = 6, ///< the loop begins with this frame
    End = 7        ///< the sample ends before this frame
};

/// The last two samples; as constructed, at the start of a stream.
struct VagState {
    int last = 0, beforeLast = 0; ///< -32768 to 32767
};

/// Half-open, in samples.
struct VagLoop {
    std::size_t start = 0, end = 0;

    bool operator==(const VagLoop&) const = default;
};

/// What a stream's flags tell without decoding it.
struct VagOutline {
    std::size_t samples = 0;     ///< up to the end's flag or, without one, to the last whole frame
    std::optional<VagLoop> loop; ///< up to the first loop end that has a start before it
    bool hasEnd = false;         ///< a frame was flagged as the end
};

VagOutline OutlineVag(std::span<const std::byte> in) noexcept;

/// Decodes up to the frame flagged as the end. Filters that the format does not have count as none, shifts
/// above 12 shift further. Samples saturate before they go on into the filter, as in the console.
/// @param in   whole frames; an incomplete last one is ignored
/// @param out  mono, int16 / 32768. Ending inside of a frame it can take no further one; what is not written
/// is
///             left alone
/// @return samples written
std::size_t DecodeVag(VagState& state, std::span<const std::byte> in, std::span<float> out) noexcept;

/// Encodes one frame with the filter and shift of least squared error, found by trying them all.
/// @param in   up to 28 samples, nominal -1 to 1; silence fills up
void EncodeVagFrame(VagState& state, std::span<const float> in, VagFlag flag,
                    std::span<std::byte, kVagFrameBytes> out) noexcept;

/// Bytes of a whole stream of `samples` samples with the end's frame.
std::size_t VagBytes(std::size_t samples) noexcept;

/// Encodes a whole stream, the last frame filled up with silence, and a frame flagged as the end.
/// @param in    mono, nominal -1 to 1
/// @param loop  if any, goes to the nearest frames' borders; both of its ends need a frame of their own, or
/// the
///              stream has no loop
/// @param out   VagBytes() of them; frames without a place are not made
/// @return bytes written
std::size_t EncodeVag(std::span<const float> in, const std::optional<VagLoop>& loop,
                      std::span<std::byte> out) noexcept;

} // namespace vimbo
