// The filter banks of MPEG audio: the hybrid bank of layer III and the polyphase synthesis of all layers.
// Internal to this folder.
#pragma once

#include "codecs/mpeg_tables.h"

#include <array>
#include <cstddef>
#include <span>

namespace vimbo::mpeg {

inline constexpr unsigned kLines =
    18; ///< frequency lines of a subband in layer III, and time slots of a granule
inline constexpr unsigned kGranuleFrames = kLines * kSubbands;

/// Time slots of one channel that are synthesised at once: kLines in layers II and III, 12 in layer I. Rows
/// have room for whole vectors.
inline constexpr unsigned kSlotRoom = 24;
struct alignas(32) SubbandSlots {
    std::array<std::array<float, kSlotRoom>, kSubbands> rows; ///< [subband][slot]
};

/// [frequency line][subband]
struct alignas(32) SpectrumLines {
    std::array<std::array<float, kSubbands>, kLines> rows;
};

enum class BlockType : std::uint8_t { Long, Start, Short, Stop };

/// What the inverse transform of one channel leaves for the next granule.
class HybridFilter {
public:
    void Reset() noexcept { overlap_ = {}; }
    /// Inverse transform, window, overlap and the turning of every other sample in every other subband.
    /// @param lines     spectrum after alias reduction; short blocks: line 3 * f + w is line f of window w
    /// @param subbands  those from here on are 0
    /// @param isMixed   the two lowest subbands have long blocks
    void Run(const SpectrumLines& lines, unsigned subbands, BlockType type, bool isMixed,
             SubbandSlots& out) noexcept;

private:
    SpectrumLines overlap_{};
};

/// Takes out what neighbouring subbands have of each other. @param borders how many of them, from the lowest
/// on
void ReduceAliases(SpectrumLines& lines, unsigned borders) noexcept;

/// The polyphase filter bank of one channel.
class SynthesisFilter {
public:
    void Reset() noexcept { history_ = {}; }
    /// @param slots  12 or kLines
    /// @param out    frame i goes to out[i * stride]; slots * kSubbands frames
    void Run(SubbandSlots& in, unsigned slots, float* out, std::size_t stride) noexcept;

private:
    static constexpr unsigned kPast = 16; ///< slots that the window reaches back, rounded up

    struct alignas(32) History {
        std::array<std::array<float, kPast + kSlotRoom>, kSubbands> rows;
    };
    History history_{}; ///< cosine transforms of the slots: [coefficient][past slots, then present ones]
};

} // namespace vimbo::mpeg
