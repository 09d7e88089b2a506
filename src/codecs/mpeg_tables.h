// Tables of MPEG audio: ISO/IEC 11172-3 (MPEG 1) and 13818-3 (MPEG 2, with half the sampling rates); MPEG 2.5
// halves them once more. Internal to this folder.
#pragma once

#include <array>
#include <cstdint>

namespace vimbo::mpeg {

// clang-format off

/// Bit rates in kbit/s by the header's index; 0 is the free format. 11172-3, 2.4.2.3; 13818-3, 2.4.2.3.
using BitRates = std::array<std::uint16_t, 15>;
inline constexpr std::array<BitRates, 3> kBitRates = {{           // by layer
    {0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448},
    {0, 32, 48, 56,  64,  80,  96, 112, 128, 160, 192, 224, 256, 320, 384},
    {0, 32, 40, 48,  56,  64,  80,  96, 112, 128, 160, 192, 224, 256, 320},
}};
inline constexpr std::array<BitRates, 3> kBitRatesLow = {{        // MPEG 2 and 2.5
    {0, 32, 48, 56,  64,  80,  96, 112, 128, 144, 160, 176, 192, 224, 256},
    {0,  8, 16, 24,  32,  40,  48,  56,  64,  80,  96, 112, 128, 144, 160},
    {0,  8, 16, 24,  32,  40,  48,  56,  64,  80,  96, 112, 128, 144, 160},
}};
/// By the header's index; half of it in MPEG 2, a quarter in 2.5.
inline constexpr std::array<std::uint32_t, 3> kRatesHz = {44100, 48000, 32000};

// Layers I and II

inline constexpr unsigned kSubbands = 32;

/// Layer II: how many quantisation steps an allocation stands for; 0 codes nothing. Steps 3, 5 and 9 are coded in
/// groups of three samples. 11172-3, tables B.2a to B.2d; 13818-3, table B.1.
struct Allocation {
    std::uint8_t bits;                   ///< of the allocation itself
    std::array<std::uint16_t, 16> steps; ///< 2^bits of them
};
inline constexpr Allocation kAlloc4Low    {4, {0, 3, 7, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 16383, 32767, 65535}};
inline constexpr Allocation kAlloc4Middle {4, {0, 3, 5, 7, 9, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 65535}};
inline constexpr Allocation kAlloc3High   {3, {0, 3, 5, 7, 9, 15, 31, 65535}};
inline constexpr Allocation kAlloc2High   {2, {0, 3, 5, 65535}};
inline constexpr Allocation kAlloc4Narrow {4, {0, 3, 5, 9, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 16383, 32767}};
inline constexpr Allocation kAlloc3Narrow {3, {0, 3, 5, 9, 15, 31, 63, 127}};
inline constexpr Allocation kAlloc4Lsf    {4, {0, 3, 5, 7, 9, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 16383}};
inline constexpr Allocation kAlloc2Lsf    {2, {0, 3, 5, 9}};

/// Runs of subbands with the same allocation.
struct AllocationRun {
    const Allocation* allocation = nullptr;
    unsigned end = 0; ///< subband behind the last one; 0: no run
};
using AllocationTable = std::array<AllocationRun, 4>;
inline constexpr AllocationTable kTableB2a = {{{&kAlloc4Low, 3}, {&kAlloc4Middle, 11}, {&kAlloc3High, 23}, {&kAlloc2High, 27}}};
inline constexpr AllocationTable kTableB2b = {{{&kAlloc4Low, 3}, {&kAlloc4Middle, 11}, {&kAlloc3High, 23}, {&kAlloc2High, 30}}};
inline constexpr AllocationTable kTableB2c = {{{&kAlloc4Narrow, 2}, {&kAlloc3Narrow, 8}}};
inline constexpr AllocationTable kTableB2d = {{{&kAlloc4Narrow, 2}, {&kAlloc3Narrow, 12}}};
inline constexpr AllocationTable kTableB1Lsf = {{{&kAlloc4Lsf, 4}, {&kAlloc3Narrow, 11}, {&kAlloc2Lsf, 30}}};

// Layer III

inline constexpr unsigned kLongBands = 22;
inline constexpr unsigned kShortBands = 13;

/// Where scale factor bands begin, and the end of the last one. 11172-3, table B.8; 13818-3, table B.2.
struct BandEdges {
    std::array<std::uint16_t, kLongBands + 1> longs;
    std::array<std::uint16_t, kShortBands + 1> shorts; ///< of each of three windows
};
inline constexpr std::array<BandEdges, 9> kBandEdges = {{ // 3 * version + index of the rate
    {{0, 4, 8, 12, 16, 20, 24, 30, 36, 44, 52, 62, 74, 90, 110, 134, 162, 196, 238, 288, 342, 418, 576},        // 44100 Hz
     {0, 4, 8, 12, 16, 22, 30, 40, 52, 66, 84, 106, 136, 192}},
    {{0, 4, 8, 12, 16, 20, 24, 30, 36, 42, 50, 60, 72, 88, 106, 128, 156, 190, 230, 276, 330, 384, 576},        // 48000 Hz
     {0, 4, 8, 12, 16, 22, 28, 38, 50, 64, 80, 100, 126, 192}},
    {{0, 4, 8, 12, 16, 20, 24, 30, 36, 44, 54, 66, 82, 102, 126, 156, 194, 240, 296, 364, 448, 550, 576},       // 32000 Hz
     {0, 4, 8, 12, 16, 22, 30, 42, 58, 78, 104, 138, 180, 192}},
    {{0, 6, 12, 18, 24, 30, 36, 44, 54, 66, 80, 96, 116, 140, 168, 200, 238, 284, 336, 396, 464, 522, 576},     // 22050 Hz
     {0, 4, 8, 12, 18, 24, 32, 42, 56, 74, 100, 132, 174, 192}},
    {{0, 6, 12, 18, 24, 30, 36, 44, 54, 66, 80, 96, 114, 136, 162, 194, 232, 278, 332, 394, 464, 540, 576},     // 24000 Hz
     {0, 4, 8, 12, 18, 26, 36, 48, 62, 80, 104, 136, 180, 192}},
    {{0, 6, 12, 18, 24, 30, 36, 44, 54, 66, 80, 96, 116, 140, 168, 200, 238, 284, 336, 396, 464, 522, 576},     // 16000 Hz
     {0, 4, 8, 12, 18, 26, 36, 48, 62, 80, 104, 134, 174, 192}},
    {{0, 6, 12, 18, 24, 30, 36, 44, 54, 66, 80, 96, 116, 140, 168, 200, 238, 284, 336, 396, 464, 522, 576},     // 11025 Hz
     {0, 4, 8, 12, 18, 26, 36, 48, 62, 80, 104, 134, 174, 192}},
    {{0, 6, 12, 18, 24, 30, 36, 44, 54, 66, 80, 96, 116, 140, 168, 200, 238, 284, 336, 396, 464, 522, 576},     // 12000 Hz
     {0, 4, 8, 12, 18, 26, 36, 48, 62, 80, 104, 134, 174, 192}},
    {{0, 12, 24, 36, 48, 60, 72, 88, 108, 132, 160, 192, 232, 280, 336, 400, 476, 566, 568, 570, 572, 574, 576}, // 8000 Hz
     {0, 8, 16, 24, 36, 52, 72, 96, 124, 160, 162, 164, 166, 192}},
}};

/// Bits of the scale factors in the lower and the higher bands, by scalefac_compress. 11172-3, 2.4.2.7.
inline constexpr std::array<std::array<std::uint8_t, 2>, 16> kScaleFactorBits = {{
    {0, 0}, {0, 1}, {0, 2}, {0, 3}, {3, 0}, {1, 1}, {1, 2}, {1, 3}, {2, 1}, {2, 2}, {2, 3}, {3, 1}, {3, 2}, {3, 3}, {4, 2}, {4, 3},
}};

/// MPEG 2: number of scale factors of each of four widths. 13818-3, 2.4.3.2.
/// [which way scalefac_compress is read][long, short, mixed]
using PartSizes = std::array<std::uint8_t, 4>;
inline constexpr std::array<std::array<PartSizes, 3>, 6> kScaleFactorParts = {{
    {{{ 6,  5, 5, 5}, { 9,  9,  9, 9}, { 6,  9,  9, 9}}},
    {{{ 6,  5, 7, 3}, { 9,  9, 12, 6}, { 6,  9, 12, 6}}},
    {{{11, 10, 0, 0}, {18, 18,  0, 0}, {15, 18,  0, 0}}},
    {{{ 7,  7, 7, 0}, {12, 12, 12, 0}, { 6, 15, 12, 0}}},
    {{{ 6,  6, 6, 3}, {12,  9,  9, 6}, { 6, 12,  9, 6}}},
    {{{ 8,  8, 5, 0}, {15, 12,  9, 0}, { 6, 18,  9, 0}}},
}};

/// What preflag adds to the scale factors of long blocks. 11172-3, table B.6.
inline constexpr std::array<std::uint8_t, kLongBands> kPreemphasis = {
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 3, 3, 3, 2, 0};

/// Coefficients of the alias reduction. 11172-3, table B.9.
inline constexpr std::array<double, 8> kAliasCoefficients = {
    -0.6, -0.535, -0.33, -0.185, -0.095, -0.041, -0.0142, -0.0037};

/// Synthesis window D times 65536, first half. 11172-3, table B.3. The second half is the first one backwards, with the
/// sign turned but for multiples of 64.
inline constexpr std::array<std::int32_t, 257> kSynthesisWindow = {
         0,     -1,     -1,     -1,     -1,     -1,     -1,     -2, // 0
        -2,     -2,     -2,     -3,     -3,     -4,     -4,     -5, // 8
        -5,     -6,     -7,     -7,     -8,     -9,    -10,    -11, // 16
       -13,    -14,    -16,    -17,    -19,    -21,    -24,    -26, // 24
       -29,    -31,    -35,    -38,    -41,    -45,    -49,    -53, // 32
       -58,    -63,    -68,    -73,    -79,    -85,    -91,    -97, // 40
      -104,   -111,   -117,   -125,   -132,   -139,   -147,   -154, // 48
      -161,   -169,   -176,   -183,   -190,   -196,   -202,   -208, // 56
       213,    218,    222,    225,    227,    228,    228,    227, // 64
       224,    221,    215,    208,    200,    189,    177,    163, // 72
       146,    127,    106,     83,     57,     29,     -2,    -36, // 80
       -72,   -111,   -153,   -197,   -244,   -294,   -347,   -401, // 88
      -459,   -519,   -581,   -645,   -711,   -779,   -848,   -919, // 96
      -991,  -1064,  -1137,  -1210,  -1283,  -1356,  -1428,  -1498, // 104
     -1567,  -1634,  -1698,  -1759,  -1817,  -1870,  -1919,  -1962, // 112
     -2001,  -2032,  -2057,  -2075,  -2085,  -2087,  -2080,  -2063, // 120
      2037,   2000,   1952,   1893,   1822,   1739,   1644,   1535, // 128
      1414,   1280,   1131,    970,    794,    605,    402,    185, // 136
       -45,   -288,   -545,   -814,  -1095,  -1388,  -1692,  -2006, // 144
     -2330,  -2663,  -3004,  -3351,  -3705,  -4063,  -4425,  -4788, // 152
     -5153,  -5517,  -5879,  -6237,  -6589,  -6935,  -7271,  -7597, // 160
     -7910,  -8209,  -8491,  -8755,  -8998,  -9219,  -9416,  -9585, // 168
     -9727,  -9838,  -9916,  -9959,  -9966,  -9935,  -9863,  -9750, // 176
     -9592,  -9389,  -9139,  -8840,  -8492,  -8092,  -7640,  -7134, // 184
      6574,   5959,   5288,   4561,   3776,   2935,   2037,   1082, // 192
        70,   -998,  -2122,  -3300,  -4533,  -5818,  -7154,  -8540, // 200
     -9975, -11455, -12980, -14548, -16155, -17799, -19478, -21189, // 208
    -22929, -24694, -26482, -28289, -30112, -31947, -33791, -35640, // 216
    -37489, -39336, -41176, -43006, -44821, -46617, -48390, -50137, // 224
    -51853, -53534, -55178, -56778, -58333, -59838, -61289, -62684, // 232
    -64019, -65290, -66494, -67629, -68692, -69679, -70590, -71420, // 240
    -72169, -72835, -73415, -73908, -74313, -74630, -74856, -74992, // 248
     75038  // 256
};

// clang-format on

} // namespace vimbo::mpeg
