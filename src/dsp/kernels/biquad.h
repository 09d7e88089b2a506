// The equalizer of voices: up to three second-order sections in series, many voices side by side.
#pragma once

#include <cstdint>
#include <span>

namespace vimbo {

inline constexpr int kMaxEqBands = 3;
/// Frames that RunEqLanes works on at a time.
inline constexpr int kEqFrames = 64;

enum class EqMode : std::uint8_t { Peak = 0, LowShelf = 1, HighShelf = 2 };

/// y = b0 x + b1 x1 + b2 x2 - a1 y1 - a2 y2. The default passes everything.
struct BiquadCoefs {
    float b0 = 1, b1 = 0, b2 = 0, a1 = 0, a2 = 0;
};

/// Transposed form; zero at note-on.
struct BiquadState {
    float s1 = 0, s2 = 0;
};

/// @param ratio  centre or corner frequency / output rate, brought into 1e-6 to 0.49
/// @param gainDb of the peak or the shelf
/// @param q      width, brought to 1e-3 and above
/// Same bits on every machine. Source: R. Bristow-Johnson, Cookbook formulae for audio EQ biquad filter
/// coefficients.
BiquadCoefs ComputeBiquad(EqMode mode, float ratio, float gainDb, float q) noexcept;

/// One channel of a voice: a stereo voice has two lanes with one set of coefficients.
struct EqLane {
    float* samples;           ///< kEqFrames, in place
    std::uint8_t bands;       ///< 0 to kMaxEqBands; lanes of one call may differ
    const BiquadCoefs* coefs; ///< of `bands` bands, in the order of the series
    BiquadState* states;      ///< as many
};

/// Runs kEqFrames frames of each lane through its bands. Lanes are computed side by side, with the results of
/// one by one to the last bit. Lanes must not share samples or states. Errors: none. Thread: any.
void RunEqLanes(std::span<const EqLane> lanes) noexcept;

/// The plain twin: the same results, one lane at a time.
void RunEqLanesPlain(std::span<const EqLane> lanes) noexcept;

} // namespace vimbo
