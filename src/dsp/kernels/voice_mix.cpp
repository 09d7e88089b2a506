#include "dsp/kernels/voice_mix.h"

#include "dsp/kernels/multiversion.h"
#include "dsp/kernels/sample_convert.h"
#include "dsp/kernels/sample_rules.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>

namespace vimbo {
namespace {

constexpr std::array<float, kMixFrames> kFrameNumbers = [] {
    std::array<float, kMixFrames> numbers{};
    for (std::size_t i = 0; i < kMixFrames; ++i)
        numbers[i] = static_cast<float>(i + 1);
    return numbers;
}();

enum class Output { Store, Add };

/// One side. A constant gain is a ramp without slope: old + 0 * n is exactly old.
template <Output Where>
struct Ramp {
    template <Isa>
    VIMBO_INLINE static void Run(const float* in, float oldGain, float newGain, float* out) noexcept
    {
        const float slope = (newGain - oldGain) / static_cast<float>(kMixFrames); // exact: a power of two
        std::array<float, kMixFrames> ramped;
        for (std::size_t i = 0; i < kMixFrames; ++i)
            ramped[i] = in[i] * (oldGain + slope * kFrameNumbers[i]);
        for (std::size_t i = 0; i < kMixFrames; ++i)
            out[i] = Where == Output::Add ? out[i] + ramped[i] : ramped[i];
    }
};

/// Right first: the left side may replace the input of both.
template <Output Where>
struct RampBoth {
    template <Isa Version>
    VIMBO_INLINE static void Run(const GainRamp* gains, const float* inLeft, const float* inRight,
                                 float* left, float* right) noexcept
    {
        const GainRamp g = *gains;
        Ramp<Where>::template Run<Version>(inRight, g.oldRight, g.newRight, right);
        Ramp<Where>::template Run<Version>(inLeft, g.oldLeft, g.newLeft, left);
    }
};

template <Output Where>
struct Scale {
    template <Isa>
    VIMBO_INLINE static void Run(float* __restrict to, const float* __restrict from, float gain) noexcept
    {
        for (std::size_t i = 0; i < kMixFrames; ++i)
            to[i] = Where == Output::Add ? to[i] + from[i] * gain : from[i] * gain;
    }
};

struct Add {
    template <Isa>
    VIMBO_INLINE static void Run(float* __restrict to, const float* __restrict from) noexcept
    {
        for (std::size_t i = 0; i < kMixFrames; ++i)
            to[i] += from[i];
    }
};

struct Peak {
    /// Without their sign, floats are ordered like the integers of the same bits.
    template <Isa>
    VIMBO_INLINE static void Run(const float* in, std::int32_t* peak) noexcept
    {
        std::int32_t largest = 0;
        for (std::size_t i = 0; i < kMixFrames; ++i) {
            const std::int32_t bits = std::bit_cast<std::int32_t>(in[i]) & 0x7FFFFFFF;
            largest = bits > largest ? bits : largest;
        }
        *peak = largest;
    }
};

} // namespace

void StoreRamp(const GainRamp& gains, const float* inLeft, const float* inRight, float* left,
               float* right) noexcept
{
    RunBest<RampBoth<Output::Store>>(&gains, inLeft, inRight, left, right);
}

void AddRamp(const GainRamp& gains, const float* inLeft, const float* inRight, float* left,
             float* right) noexcept
{
    RunBest<RampBoth<Output::Add>>(&gains, inLeft, inRight, left, right);
}

void AddTo(float* to, const float* from) noexcept
{
    RunBest<Add>(to, from);
}

void StoreTo(float* to, const float* from) noexcept
{
    std::copy_n(from, kMixFrames, to);
}

void AddScaled(float* to, const float* from, float gain) noexcept
{
    RunBest<Scale<Output::Add>>(to, from, gain);
}

void StoreScaled(float* to, const float* from, float gain) noexcept
{
    RunBest<Scale<Output::Store>>(to, from, gain);
}

float PeakOf(const float* block) noexcept
{
    std::int32_t bits = 0;
    RunBest<Peak>(block, &bits);
    return std::bit_cast<float>(bits);
}

void Interleave(const float* left, const float* right, float* out) noexcept
{
    Interleave(std::span(left, kMixFrames), std::span(right, kMixFrames), std::span(out, 2 * kMixFrames));
}

} // namespace vimbo
