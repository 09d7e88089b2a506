#include "formats/aiff/aiff_units.h"

#include "base/text.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

namespace vimbo {
namespace {

constexpr int kExponentBias = 16383;
constexpr std::uint32_t kMost = std::numeric_limits<std::uint32_t>::max();

std::uint32_t ToFrame(double position, std::uint32_t frames) noexcept
{
    return position > 0 ? static_cast<std::uint32_t>(std::min(position + 0.5, static_cast<double>(frames)))
                        : 0;
}

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

std::int16_t GainToInst(float gainDb) noexcept
{
    constexpr float kLoudest = 96; // of the parameter
    return static_cast<std::int16_t>(std::lround(std::clamp(gainDb, -kLoudest, kLoudest)));
}

std::string MarkName(std::u16string_view name)
{
    constexpr std::size_t kMaxBytes = 255;
    return WideToNarrow(name).substr(0, kMaxBytes);
}

std::optional<AiffRange> AiffLoopRange(const LoopInfo& loop, std::uint32_t frames) noexcept
{
    const AiffRange range{ToFrame(loop.start, frames), ToFrame(loop.end, frames)};
    if (loop.type == LoopType::Off || range.begin >= range.end)
        return std::nullopt;
    return range;
}

const Marker* FindAiffReleaseLoop(const Waveform& wave, bool isLooped)
{
    const Marker* marker = isLooped ? wave.FindMarker(kAiffReleaseLoop) : nullptr;
    return marker != nullptr && marker->isRange && marker->position < marker->end ? marker : nullptr;
}

} // namespace vimbo
