#include "base/numeric.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <fmt/format.h>
#include <limits>
#include <string>
#include <string_view>

namespace vimbo {
namespace {

constexpr float kSilenceDb = -96.0f;
constexpr float kSilenceGain = 1.5848933e-5f;      // 10^(-96/20)
constexpr float kLogGainPerDb = 0.115129255f;      // ln(10) / 20
constexpr float kHundredthsPerLogGain = 868.5889f; // hundredths of a dB: 100 * 20 / ln(10)
constexpr float kLogRatioPerKey = 0.05776226504f;  // ln(2) / 12
constexpr float kKeyZeroHz = 8.17579891565f;

struct ExactPoint {
    float from, to;
};
constexpr std::array<ExactPoint, 5> kExactGains = {{{0, 1}, {6, 2}, {12, 5}, {-6, 0.5f}, {-12, 0.25f}}};
constexpr std::array<ExactPoint, 5> kExactDecibels = {{{1, 0}, {2, 6}, {4, 12}, {0.5f, -6}, {0.25f, -12}}};

/// The table's value for exactly `x`, else null.
const float* FindExact(const std::array<ExactPoint, 5>& table, float x) noexcept
{
    const auto found = std::find_if(table.begin(), table.end(), [x](ExactPoint p) { return p.from == x; });
    return found == table.end() ? nullptr : &found->to;
}

} // namespace

float DbToGain(float db) noexcept
{
    if (!(db > kSilenceDb)) // NaN too
        return 0.0f;
    if (const float* exact = FindExact(kExactGains, db))
        return *exact;
    const float gain = std::exp(db * kLogGainPerDb);
    return gain >= 1.0f ? std::trunc(gain * 1000.0f + 0.5f) * 0.001f : gain;
}

float GainToDb(float gain) noexcept
{
    if (!(gain > kSilenceGain))
        return kSilenceDb;
    if (const float* exact = FindExact(kExactDecibels, gain))
        return *exact;
    const float hundredths = std::log(gain) * kHundredthsPerLogGain;
    return std::trunc(hundredths + std::copysign(0.499f, hundredths)) * 0.01f;
}

float KeyToHz(float key) noexcept
{
    return std::exp(key * kLogRatioPerKey) * kKeyZeroHz;
}

std::string NoteName(int key, MiddleC middleC)
{
    static constexpr std::array<std::string_view, 12> kNames = {"C",  "C#", "D",  "D#", "E",  "F",
                                                                "F#", "G",  "G#", "A",  "A#", "B"};
    const int pitchClass = (key % 12 + 12) % 12;
    const int octave = key / 12 - (key % 12 < 0 ? 1 : 0); // rounded down
    const int lowest = middleC == MiddleC::IsC3 ? -2 : -1;
    std::string name(kNames[static_cast<std::size_t>(pitchClass)]); // regions show two each
    return name += std::to_string(octave + lowest);
}

std::string GroupedNumber(std::uint32_t value)
{
    std::string digits = fmt::format("{}", value);
    for (std::size_t at = digits.size(); at > 3;) {
        at -= 3;
        digits.insert(at, 1, ' ');
    }
    return digits;
}

double RoundToHundredth(double x) noexcept
{
    const double scaled = x * 100.0;
    if (!std::isfinite(scaled))
        return x;
    return std::trunc(scaled + std::copysign(0.5, scaled)) * 0.01;
}

int RoundToInt(double x) noexcept
{
    if (std::isnan(x))
        return 0;
    constexpr double kMin = std::numeric_limits<int>::min();
    constexpr double kMax = std::numeric_limits<int>::max();
    return static_cast<int>(std::clamp(std::round(x), kMin, kMax));
}

} // namespace vimbo
