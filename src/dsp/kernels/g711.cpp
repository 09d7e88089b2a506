#include "dsp/kernels/g711.h"

#include <algorithm>
#include <bit>

namespace vimbo {
namespace {

// Both laws are eight segments of sixteen steps, each segment twice as wide as the one before (A-law's first
// two are equal). Mu-law shifts magnitudes by 33 units of its 14-bit scale, 132 in 16 bits, so that segments
// start at powers of two; its largest magnitude is 8158.75 units.
constexpr int kMuLawBias = 132;
constexpr int kMuLawClip = 32635;
constexpr unsigned kSignBit = 0x80;
constexpr unsigned kALawEvenBits = 0x55; // A-law inverts every second bit for transmission

constexpr std::int16_t ExpandMuLaw(unsigned code)
{
    const unsigned inverted = ~code & 0xFF;
    const unsigned segment = inverted >> 4 & 7;
    const int middle = static_cast<int>(((inverted & 15) << 3) + kMuLawBias) << segment;
    const int magnitude = middle - kMuLawBias;
    return static_cast<std::int16_t>((inverted & kSignBit) != 0 ? -magnitude : magnitude);
}

constexpr std::int16_t ExpandALaw(unsigned code)
{
    const unsigned plain = code ^ kALawEvenBits;
    const unsigned segment = plain >> 4 & 7;
    const unsigned step = ((plain & 15) << 4) + 8; // the middle of the interval
    const int magnitude = static_cast<int>(segment == 0 ? step : (step + 256) << (segment - 1));
    return static_cast<std::int16_t>((plain & kSignBit) != 0 ? magnitude : -magnitude);
}

template <class Expand>
constexpr std::array<std::int16_t, 256> ExpandAll(Expand expand)
{
    std::array<std::int16_t, 256> table{};
    for (unsigned code = 0; code < table.size(); ++code)
        table[code] = expand(code);
    return table;
}

/// Segment and step of a magnitude of 128 to 32767, as they stand in a code's low seven bits.
unsigned SegmentAndStep(unsigned magnitude) noexcept
{
    const auto segment = static_cast<unsigned>(std::bit_width(magnitude)) - 8;
    return segment << 4 | (magnitude >> (segment + 3) & 15);
}

} // namespace

constexpr std::array<std::int16_t, 256> kMuLawToLinear = ExpandAll(ExpandMuLaw);
constexpr std::array<std::int16_t, 256> kALawToLinear = ExpandAll(ExpandALaw);

std::uint8_t LinearToMuLaw(std::int16_t value) noexcept
{
    const int magnitude = std::min(value < 0 ? -value : value, kMuLawClip) + kMuLawBias;
    const unsigned sign = value < 0 ? kSignBit : 0;
    return static_cast<std::uint8_t>(~(sign | SegmentAndStep(static_cast<unsigned>(magnitude))));
}

std::uint8_t LinearToALaw(std::int16_t value) noexcept
{
    const auto magnitude = static_cast<unsigned>(std::min(value < 0 ? -value : value, 32767));
    const unsigned sign = value < 0 ? 0 : kSignBit;
    const unsigned code = magnitude < 256 ? magnitude >> 4 : SegmentAndStep(magnitude);
    return static_cast<std::uint8_t>((sign | code) ^ kALawEvenBits);
}

} // namespace vimbo
