// Both directions of the unit conversions of AIFF files.
#pragma once

#include "formats/aiff/aiff_records.h"
#include "model/waveform.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vimbo {

/// Name of the marker that stands for a second loop, which plays after the key is released.
inline constexpr std::u16string_view kAiffReleaseLoop = u"ReleaseLoop";

/// Nearest whole rate; 0 for what is negative or no number, the largest for what is beyond 32 bits.
std::uint32_t RateFromExtended(const Extended80& rate) noexcept;
/// Exact.
Extended80 RateToExtended(std::uint32_t rateHz) noexcept;

/// Play modes of `INST`. Modes that the format does not know count as forward; it has no reverse loops.
LoopType LoopTypeFromMode(int mode) noexcept;
std::int16_t LoopTypeToMode(LoopType type) noexcept;

/// Whole dB, nearest.
std::int16_t GainToInst(float gainDb) noexcept;

/// Texts that have a chunk.
struct AiffText {
    FourCc id;
    ParamId text;
};
inline constexpr std::array kAiffTexts = {
    AiffText{FourCc{"NAME"}, kTextName},
    AiffText{FourCc{"AUTH"}, kTextArtist},
    AiffText{FourCc{"(c) "}, kTextCopyright},
    AiffText{FourCc{"ANNO"}, kTextComments},
};

inline constexpr std::size_t kMaxAiffMarks = 32767; ///< ids are positive 16-bit numbers
/// A mark's name as its byte of a length lets it be.
std::string MarkName(std::u16string_view name);

struct AiffRange {
    std::uint32_t begin = 0, end = 0; ///< frames, half-open
};
/// The loop in whole frames; none if nothing is left of it.
std::optional<AiffRange> AiffLoopRange(const LoopInfo& loop, std::uint32_t frames) noexcept;
/// The marker that stands for the release loop; null without a loop, where it is a marker like any other.
const Marker* FindAiffReleaseLoop(const Waveform& wave, bool isLooped);

/// Tells the host what the file, of that encoding, lacks of the waveform (aiff_losses.cpp).
void NoteAiffLosses(const Waveform& wave, DataFormat format, unsigned channels, std::uint32_t frames);

} // namespace vimbo
