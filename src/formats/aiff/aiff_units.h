// Both directions of the unit conversions of AIFF files.
#pragma once

#include "formats/aiff/aiff_records.h"
#include "model/loop_info.h"

#include <cstdint>
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

} // namespace vimbo
