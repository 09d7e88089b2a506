#include "formats/aiff/aiff_units.h"

#include <bit>
#include <limits>

namespace vimbo {
namespace {

constexpr int kExponentBias = 16383;
constexpr std::uint32_t kMost = std::numeric_limits<std::uint32_t>::max();

} // namespace

std::uint32_t RateFromExtended(const Extended80& rate) noexcept
{
    const unsigned signExponent = rate.signExponent.Get();
    const int exponent = static_cast<int>(signExponent & 0x7FFF) - kExponentBias;
    if ((signExponent & 0x8000) != 0 || exponent < -1)
        return 0;
    if (exponent > 31)
        return rate.mantissa.Get() == 0 ? 0 : kMost;
    // The mantissa counts in 2^(exponent - 63); one bit is kept for rounding.
    const std::uint64_t doubled = rate.mantissa.Get() >> (62 - exponent);
    const std::uint64_t rounded = (doubled + 1) >> 1;
    return rounded > kMost ? kMost : static_cast<std::uint32_t>(rounded);
}

Extended80 RateToExtended(std::uint32_t rateHz) noexcept
{
    Extended80 rate;
    if (rateHz == 0)
        return rate;
    const int leadingZeros = std::countl_zero(std::uint64_t{rateHz});
    rate.mantissa = std::uint64_t{rateHz} << leadingZeros;
    rate.signExponent = static_cast<std::uint16_t>(kExponentBias + 63 - leadingZeros);
    return rate;
}

LoopType LoopTypeFromMode(int mode) noexcept
{
    if (mode <= 0)
        return LoopType::Off;
    return mode == 2 ? LoopType::Alternating : LoopType::Forward;
}

std::int16_t LoopTypeToMode(LoopType type) noexcept
{
    if (type == LoopType::Off)
        return 0;
    return type == LoopType::Alternating ? 2 : 1;
}

} // namespace vimbo
