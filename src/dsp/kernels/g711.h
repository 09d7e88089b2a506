// ITU-T G.711 (11/88) mu-law and A-law: 8-bit codes to 16-bit linear values and back.
#pragma once

#include <array>
#include <cstdint>

namespace vimbo {

/// Linear value of each code, left aligned in 16 bits (mu-law peaks at +-32124, A-law at +-32256).
extern const std::array<std::int16_t, 256> kMuLawToLinear;
extern const std::array<std::int16_t, 256> kALawToLinear;

/// The code for a 16-bit linear value, by the decision values of the recommendation.
std::uint8_t LinearToMuLaw(std::int16_t value) noexcept;
std::uint8_t LinearToALaw(std::int16_t value) noexcept;

} // namespace vimbo
