// Tables of ITU-T G.722. Internal to this folder.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

namespace vimbo::g722 {

inline constexpr std::size_t kTaps = 12; ///< of each of the filter's two phases
using Taps = std::array<std::int16_t, kTaps>;

/// Coefficients h0, h2 ... h22 of the 24-tap filter, 2^13 = 1; h1, h3 ... are the same backwards.
inline constexpr Taps kFilter = {3, -11, 12, 32, -210, 951, 3876, -805, 362, -156, 53, -11};

constexpr Taps Backwards(Taps taps)
{
    std::reverse(taps.begin(), taps.end());
    return taps;
}
inline constexpr Taps kFilterBackwards = Backwards(kFilter);

/// 2^(i / 32) * 2048, of which the scale factors are shifted copies.
inline constexpr std::array<int, 32> kLogToLinear = {2048, 2093, 2139, 2186, 2233, 2282, 2332, 2383,  //
                                                     2435, 2489, 2543, 2599, 2656, 2714, 2774, 2834,  //
                                                     2896, 2960, 3025, 3091, 3158, 3228, 3298, 3371,  //
                                                     3444, 3520, 3597, 3676, 3756, 3838, 3922, 4008}; //

/// Scale factor by logarithm / 64 (blocks SCALEL and SCALEH). `Octaves` from 4 up to the largest.
template <int Octaves>
constexpr auto MakeScales()
{
    std::array<std::int16_t, Octaves * 32 + 1> scales{};
    for (std::size_t i = 0; i < scales.size(); ++i) {
        const int shift = Octaves - 1 - static_cast<int>(i / 32);
        const int wide = kLogToLinear[i % 32];
        scales[i] = static_cast<std::int16_t>((shift < 0 ? wide << -shift : wide >> shift) * 4);
    }
    return scales;
}

/// Output levels of the 6, 5 and 4-bit quantizers, by magnitude from 1; 2^12 = the scale factor.
inline constexpr std::array<int, 30> kLevels6 = {17,   54,   91,   130,  170,  211,  254,  300,  347,  396,
                                                 447,  501,  558,  618,  682,  750,  822,  899,  982,  1072,
                                                 1170, 1279, 1399, 1535, 1689, 1873, 2088, 2376, 2738, 3101};
inline constexpr std::array<int, 15> kLevels5 = {35,  110,  190,  276,  370,  473,  587, 714,
                                                 858, 1023, 1219, 1458, 1765, 2195, 2919};
inline constexpr std::array<int, 7> kLevels4 = {150, 323, 530, 786, 1121, 1612, 2557};

/// Where the codes of a low quantizer lie: magnitudes 1 to `count`, largest at the lower code. The negative
/// half's `wrapped` smallest stand at the very top, so that no code is all zeros on the line.
struct LowCodes {
    int half, count, wrapped;

    constexpr int Positive(int magnitude) const { return half + count - magnitude; }
    constexpr int Negative(int magnitude) const
    {
        return magnitude <= wrapped ? 2 * half - magnitude : half + wrapped - magnitude;
    }
};
inline constexpr LowCodes kCodes6 = {32, 30, 2};
inline constexpr LowCodes kCodes5 = {16, 15, 1};
inline constexpr LowCodes kCodes4 = {8, 7, 0};

/// Quantizer output by the 6 bits of the low sub-band, 2^15 = the scale factor. `dropped` bits are not looked
/// at.
using LowLevels = std::array<int, 64>;

template <std::size_t Count>
constexpr LowLevels SpreadLevels(const std::array<int, Count>& levels, LowCodes codes, int dropped)
{
    LowLevels spread{};
    const auto put = [&](int code, int level) {
        for (int i = code << dropped; i < (code + 1) << dropped; ++i)
            spread[static_cast<std::size_t>(i)] = level * 8;
    };
    for (int code = 0; code < 2 * codes.half; ++code) // those that no encoder sends keep this
        put(code, codes.wrapped > 0 ? -levels[0] : 0);
    for (int magnitude = 1; magnitude <= codes.count; ++magnitude) {
        put(codes.Positive(magnitude), levels[static_cast<std::size_t>(magnitude - 1)]);
        put(codes.Negative(magnitude), -levels[static_cast<std::size_t>(magnitude - 1)]);
    }
    return spread;
}
inline constexpr LowLevels kLow6 = SpreadLevels(kLevels6, kCodes6, 0);
inline constexpr LowLevels kLow5 = SpreadLevels(kLevels5, kCodes5, 1);
inline constexpr LowLevels kLow4 = SpreadLevels(kLevels4, kCodes4, 2);

/// How far the logarithmic scale moves, by magnitude of the 4-bit quantizer from 0.
inline constexpr std::array<int, 8> kLowSteps = {-60, -30, 58, 172, 334, 538, 1198, 3042};

constexpr LowLevels SpreadLowSteps()
{
    LowLevels spread{};
    spread.fill(kLowSteps[0]);
    for (int magnitude = 1; magnitude <= kCodes4.count; ++magnitude)
        for (int i = 0; i < 4; ++i) {
            const int step = kLowSteps[static_cast<std::size_t>(magnitude)];
            spread[static_cast<std::size_t>(kCodes4.Positive(magnitude) * 4 + i)] = step;
            spread[static_cast<std::size_t>(kCodes4.Negative(magnitude) * 4 + i)] = step;
        }
    return spread;
}

struct LowBand {
    static constexpr LowLevels kLevels = kLow4; ///< the predictor hears 4 bits in every mode
    static constexpr LowLevels kSteps = SpreadLowSteps();
    static constexpr auto kScales = MakeScales<9>();
};

struct HighBand {
    static constexpr std::array<int, 4> kLevels = {-7408, -1616, 7408, 1616};
    static constexpr std::array<int, 4> kSteps = {798, -214, 798, -214};
    static constexpr auto kScales = MakeScales<11>();
};

/// Decision levels of the 6-bit quantizer, 2^12 = the scale factor.
inline constexpr std::array<int, 29> kDecisions = {35,   72,   110,  150,  190,  233,  276,  323,  370,  422,
                                                   473,  530,  587,  650,  714,  786,  858,  940,  1023, 1121,
                                                   1219, 1339, 1458, 1612, 1765, 1980, 2195, 2557, 2919};
inline constexpr int kHighDecision = 564; ///< the high sub-band's 2-bit quantizer has this one only

} // namespace vimbo::g722
