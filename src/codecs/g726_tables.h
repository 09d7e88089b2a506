// Tables of ITU-T G.726, one set for each width of a code. Internal to this folder.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace vimbo::g726 {

/// Half of a quantizer, by magnitude |I|; the other half is its mirror image.
template <unsigned Bits>
struct Half {
    static constexpr std::size_t kCount = 1u << (Bits - 1);
    std::array<int, kCount - 1> decisions; ///< lowest normalized logarithm of |I| = 1, 2 ...
    std::array<int, kCount> levels;        ///< normalized logarithm of the output, 2^7 = a factor of 2
    std::array<int, kCount> scaleSteps;    ///< W(I), 2^4 = 1
    std::array<int, kCount> speeds;        ///< F(I)
};

inline constexpr int kNone = -2048; ///< logarithm of an output that is zero

template <unsigned Bits>
inline constexpr Half<Bits> kHalf;
template <>
inline constexpr Half<2> kHalf<2> = {{261}, {116, 365}, {-22, 439}, {0, 7}};
template <>
inline constexpr Half<3> kHalf<3> = {{8, 218, 331}, {kNone, 135, 273, 373}, {-4, 30, 137, 582}, {0, 1, 2, 7}};
template <>
inline constexpr Half<4> kHalf<4> = {{-124, 80, 178, 246, 300, 349, 400},
                                     {kNone, 4, 135, 213, 273, 323, 373, 425},
                                     {-12, 18, 41, 64, 112, 198, 355, 1122},
                                     {0, 0, 0, 1, 1, 1, 3, 7}};
template <>
inline constexpr Half<5> kHalf<5> = {
    {-122, -16, 68, 139, 198, 250, 298, 339, 378, 413, 445, 475, 502, 528, 553},
    {kNone, -66, 28, 104, 169, 224, 274, 318, 358, 395, 429, 459, 488, 514, 539, 566},
    {14, 14, 24, 39, 40, 41, 58, 100, 141, 179, 219, 280, 358, 440, 529, 696},
    {0, 0, 0, 0, 0, 1, 1, 1, 1, 1, 2, 3, 4, 5, 6, 6}};

/// What a code means, ready for the decoder's steps.
struct Meaning {
    int level;
    int scaleStep; ///< 2^9 = 1
    int speed;     ///< F(I)
    int sign;      ///< -1 or 0
};

/// By code: the negative half counts down from the top.
template <unsigned Bits>
constexpr auto SpreadMeanings()
{
    std::array<Meaning, 1u << Bits> meanings{};
    for (std::size_t code = 0; code < meanings.size(); ++code) {
        const bool negative = code >= Half<Bits>::kCount;
        const std::size_t magnitude = negative ? meanings.size() - 1 - code : code;
        meanings[code] = {kHalf<Bits>.levels[magnitude], kHalf<Bits>.scaleSteps[magnitude] * 32,
                          kHalf<Bits>.speeds[magnitude], negative ? -1 : 0};
    }
    return meanings;
}
template <unsigned Bits>
inline constexpr auto kMeanings = SpreadMeanings<Bits>();

} // namespace vimbo::g726
