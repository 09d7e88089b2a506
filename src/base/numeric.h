// Decibel, key and number helpers that many formats share. Single precision where files depend on the
// rounding.
#pragma once

#include <cstdint>
#include <string>

namespace vimbo {

/// Decibels to linear gain. At or below -96 dB: 0. Exactly 0, 6, 12, -6, -12 dB give 1, 2, 5, 0.5, 0.25;
/// other results of 1 or more are rounded to 0.001. (12 dB gives 5 while GainToDb(4) gives 12: files depend
/// on both.)
float DbToGain(float db) noexcept;

/// Linear gain to decibels, in steps of 0.01. At or below 1.5848933e-5: -96. 1, 2, 4, 0.5, 0.25 are exact.
float GainToDb(float gain) noexcept;

/// MIDI key (60 = middle C, fractions allowed) to Hz in equal temperament, A4 = 440 Hz.
float KeyToHz(float key) noexcept;

enum class MiddleC : bool { IsC4, IsC3 };

/// "C#3" for a key number; key 0 lies in octave -1 (middle C is C4) or -2 (middle C is C3). Negative keys
/// continue down.
std::string NoteName(int key, MiddleC middleC = MiddleC::IsC4);

/// Decimal digits with a blank between groups of three: 1234567 gives "1 234 567".
std::string GroupedNumber(std::uint32_t value);

/// x rounded to a multiple of 0.01: scaled by 100, half added away from zero, truncated.
double RoundToHundredth(double x) noexcept;

/// Rounds half away from zero and truncates to int; values beyond int saturate, NaN gives 0.
int RoundToInt(double x) noexcept;

} // namespace vimbo
