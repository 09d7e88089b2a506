// Measurements on rendered frames at 48 kHz.
#pragma once

#include "voice_builders.h"

#include <cmath>
#include <complex>
#include <numbers>
#include <vector>

namespace vimbo::synth {

inline constexpr double kRate = 48000;

/// The left side of so many ticks.
inline std::vector<float> Record(TestVoice& voice, unsigned ticks)
{
    std::vector<float> out;
    while (ticks-- > 0) {
        const auto block = voice.Run();
        out.insert(out.end(), block.begin(), block.end());
    }
    return out;
}

inline double Decibels(double amplitude)
{
    return 20 * std::log10(std::max(amplitude, 1e-12));
}

/// Amplitude of a sine of `hz`; exact if the frames hold whole cycles of everything that sounds.
inline double AmplitudeAt(std::span<const float> frames, double hz)
{
    std::complex<double> sum = 0;
    for (std::size_t i = 0; i < frames.size(); ++i)
        sum += static_cast<double>(frames[i]) *
               std::polar(1.0, -2 * std::numbers::pi * hz / kRate * static_cast<double>(i));
    return 2 * std::abs(sum) / static_cast<double>(frames.size());
}

inline double PeakOf(std::span<const float> frames)
{
    double peak = 0;
    for (const float value : frames)
        peak = std::max<double>(peak, std::abs(value));
    return peak;
}

/// Frequency from the first to the last upward zero crossing.
inline double MeasureHz(std::span<const float> frames)
{
    double first = -1, last = -1;
    int periods = -1;
    for (std::size_t i = 1; i < frames.size(); ++i) {
        const double before = frames[i - 1], now = frames[i];
        if (!(before < 0 && now >= 0))
            continue;
        last = static_cast<double>(i) - now / (now - before);
        first = first < 0 ? last : first;
        ++periods;
    }
    return kRate * periods / (last - first);
}

inline double Cents(double hz, double expected)
{
    return 1200 * std::log2(hz / expected);
}

/// Amplitudes of frequencies i * kRate / 8192 up to half the rate, seen through a Blackman-Harris window: a
/// sine shows its amplitude in the nearest bins, and less than -90 dB of it five bins away.
inline std::vector<double> Spectrum(std::span<const float> frames)
{
    constexpr std::size_t kSize = 8192;
    std::vector<std::complex<double>> turn(kSize);
    std::vector<double> windowed(kSize);
    for (std::size_t i = 0; i < kSize; ++i) {
        const double w = 2 * std::numbers::pi * static_cast<double>(i) / kSize;
        turn[i] = std::polar(1.0, -w);
        windowed[i] =
            static_cast<double>(frames[i]) *
            (0.35875 - 0.48829 * std::cos(w) + 0.14128 * std::cos(2 * w) - 0.01168 * std::cos(3 * w));
    }
    std::vector<double> out(kSize / 2);
    for (std::size_t k = 0; k < out.size(); ++k) {
        std::complex<double> sum = 0;
        for (std::size_t i = 0; i < kSize; ++i)
            sum += windowed[i] * turn[k * i % kSize];
        out[k] = 2 * std::abs(sum) / (0.35875 * kSize);
    }
    return out;
}

/// The strongest amplitude more than five bins away from 0 and every multiple of `hz`.
inline double StrongestAlias(std::span<const double> spectrum, double hz)
{
    const double spacing = hz / kRate * 2 * static_cast<double>(spectrum.size());
    double strongest = 0;
    for (std::size_t k = 6; k < spectrum.size(); ++k) {
        const auto bin = static_cast<double>(k);
        if (std::abs(bin - spacing * std::round(bin / spacing)) > 5)
            strongest = std::max(strongest, spectrum[k]);
    }
    return strongest;
}

} // namespace vimbo::synth
