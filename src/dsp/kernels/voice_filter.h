// The resonant filters of voices: state-variable and one-pole sections, many voices side by side.
#pragma once

#include <cstdint>
#include <span>

namespace vimbo {

/// Frames that filters and equalizers run over at a time.
inline constexpr int kFilterFrames = 64;

/// Numbered like the filter types of articulations. 6 and 18 dB low- and high-passes hold a one-pole section,
/// 18 dB and above end in a state-variable section with the resonance, 24 dB have one without before it.
enum class VoiceFilterKind : std::uint8_t {
    PassThru = 0,
    LowPass6 = 1,
    LowPass12 = 2,
    LowPass18 = 3,
    LowPass24 = 4,
    HighPass6 = 5,
    HighPass12 = 6,
    HighPass18 = 7,
    HighPass24 = 8,
    BandPass6 = 9,   ///< one section
    BandPass12 = 10, ///< two in series
    BandReject6 = 11,
    BandReject12 = 12
};
inline constexpr int kVoiceFilterKinds = 13;

/// One frame of a state-variable section: both passes of the double-sampled recursion, taken together. With
/// error = input - low:
///     low  += cross * band + square * error
///     band += cross * error - damping * band
/// The steps are differences, since coefficients near 1 would lose low cutoffs to rounding. High output:
/// outError * error - outBand * band; notch output: input less the same sum; before the step, both.
struct SvfCoefs {
    float square = 0, cross = 0, damping = 0;
    float outError = 0, outBand = 0;
};

/// Everything that a filter needs for one control tick.
struct VoiceFilterCoefs {
    float poleDecay = 0; ///< one-pole: what stays of the output from frame to frame
    float poleFeed = 0;  ///< one-pole: factor of the input (low-pass) or of its change (high-pass)
    SvfCoefs first;      ///< of two in series, the one without resonance; else unused
    SvfCoefs last;
};

/// What a voice's channel carries from block to block; zero at note-on.
struct VoiceFilterState {
    float low1 = 0, band1 = 0; ///< section `first`
    float low2 = 0, band2 = 0; ///< section `last`
    float x1 = 0, y1 = 0;      ///< one-pole: the input and the output before
};

/// @param baseRatio   cutoff / output rate
/// @param semitones   added to the cutoff; the sum is limited to half the output rate
/// @param resonanceDb 0 or above, limited to what is stable at the cutoff
/// Same bits on every machine.
VoiceFilterCoefs ComputeVoiceFilter(VoiceFilterKind kind, float baseRatio, float semitones,
                                    float resonanceDb) noexcept;

/// One channel of a voice: a stereo voice has two lanes with one set of coefficients.
struct FilterLane {
    float* samples; ///< kFilterFrames, filtered in place
    const VoiceFilterCoefs* coefs;
    VoiceFilterState* state;
};

/// Filters kFilterFrames frames of each lane. Lanes are computed side by side, so many at a time are quicker
/// than the same one by one, with the same results to the last bit. Lanes must not share samples or states.
/// Errors: none. Thread: any.
void RunVoiceFilter(VoiceFilterKind kind, std::span<const FilterLane> lanes) noexcept;

/// The plain twin: the same results, one lane at a time.
void RunVoiceFilterPlain(VoiceFilterKind kind, std::span<const FilterLane> lanes) noexcept;

} // namespace vimbo
