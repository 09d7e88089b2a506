// MPEG audio layer III up to the spectra: side information, scale factors, Huffman codes, stereo. Internal to
// this folder.
#pragma once

#include "codecs/mpeg_bits.h"
#include "codecs/mpeg_filters.h"
#include "codecs/mpeg_header.h"

#include <array>
#include <cstdint>
#include <span>

namespace vimbo::mpeg {

inline constexpr unsigned kMostChannels = 2;
inline constexpr unsigned kMostBands = 3 * kShortBands; ///< short blocks count each window's part as a band

/// Scale factor bands in the order of the stream.
struct BandLayout {
    std::array<std::uint16_t, kMostBands + 1> edges{}; ///< lines where they begin, and the end: 576
    unsigned bands = 0;
    unsigned longBands = 0; ///< of them, the first ones; the others are short ones of windows 0, 1, 2, 0 ...
    /// Short and mixed blocks: where the line belongs in SpectrumLines, as 32 * line + subband.
    std::array<std::uint16_t, kGranuleFrames> places{};

    unsigned WindowOf(unsigned band) const noexcept { return (band - longBands) % 3; }
};

/// A granule of one channel: ISO/IEC 11172-3 and 13818-3, 2.4.1.7.
struct GranuleInfo {
    unsigned bits = 0; ///< part2_3_length: of scale factors and codes
    unsigned bigValues = 0;
    unsigned globalGain = 0;
    unsigned scaleFactorChoice = 0; ///< scalefac_compress
    BlockType type = BlockType::Long;
    bool isMixed = false;
    std::array<unsigned, 3> tables{};
    std::array<unsigned, 3> windowGains{}; ///< subblock_gain
    std::array<unsigned, 3> regionEnds{};  ///< lines; the last one is that of the big values
    bool hasPreemphasis = false;
    bool isCoarse = false; ///< scalefac_scale
    unsigned quadTable = 0;

    bool IsShort() const noexcept { return type == BlockType::Short; }
};

struct SideInfo {
    unsigned dataBack = 0; ///< bytes from the frame's own data back to where its first granule begins
    std::array<std::array<bool, 4>, kMostChannels>
        sharesScaleFactors{}; ///< granule 1 with 0, by group of bands
    std::array<std::array<GranuleInfo, kMostChannels>, 2> granules{};
};
/// False if the bytes are not long enough or contradict themselves.
[[nodiscard]] bool ParseSideInfo(const MpegHeader& header, std::span<const std::byte> bytes,
                                 SideInfo& out) noexcept;

/// One channel's spectrum in the order of the stream.
struct Spectrum {
    std::array<float, kGranuleFrames> lines{};
    unsigned end = 0; ///< lines from here on are 0
    std::array<std::uint8_t, kMostBands> scaleFactors{};
    /// Largest values of the intensity positions, by band: those say that there is none. 0: no limit.
    std::array<std::uint8_t, kMostBands> illegal{};
};

const BandLayout& LayoutFor(const MpegHeader& header, const GranuleInfo& granule) noexcept;

/// Reads a granule's scale factors and codes.
/// @param shared   null, or which groups of scale factors stay as they are (second granule of MPEG 1)
/// @param bits     at the granule's start; its data end at most where the granule does
/// @param isIntensity  second channel of a frame with intensity stereo
void ReadGranule(const MpegHeader& header, const GranuleInfo& granule, const std::array<bool, 4>* shared,
                 bool isIntensity, MpegBits& bits, Spectrum& out) noexcept;

/// Middle/side and intensity stereo of one granule.
void ToLeftRight(const MpegHeader& header, const std::array<GranuleInfo, kMostChannels>& granules,
                 std::array<Spectrum, kMostChannels>& spectra) noexcept;

/// Sorts a spectrum by line and subband, short blocks window by window. @return subbands that are not 0
unsigned ToLines(const Spectrum& spectrum, const GranuleInfo& granule, const BandLayout& layout,
                 SpectrumLines& out) noexcept;

} // namespace vimbo::mpeg
