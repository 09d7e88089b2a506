// Waves of operators and LA partials, by a phase in cycles / 2^32.
#pragma once

#include <array>
#include <cstdint>
#include <span>

namespace vimbo::synth {

/// sin(2 pi phase / 2^32): the polynomial of SineOfPhase, folded in whole numbers, so that it is exact near
/// every zero.
constexpr float SineOfTurn(std::uint32_t phase) noexcept
{
    // The second and third quarter are mirrored: half a cycle less the phase, by complement.
    const auto mirrored = static_cast<std::uint32_t>(static_cast<std::int32_t>(phase ^ (phase << 1)) >> 31);
    const std::uint32_t folded = (phase ^ mirrored) + (0x80000001u & mirrored);
    const float x = static_cast<float>(static_cast<std::int32_t>(folded)) * (1.0f / 4294967296.0f);
    const float z = x * x * 39.47842f; // (2 pi x)^2
    float sum = 2.7557319e-6f - 2.5052108e-8f * z;
    sum = sum * z - 0.0001984127f;
    sum = sum * z + 0.008333334f;
    sum = sum * z - 0.16666667f;
    sum = sum * z + 1;
    return sum * x * 6.2831855f;
}

/// Cycles as a phase; whole cycles do not count. `cycles` must lie within -128..128.
constexpr std::uint32_t TurnOf(float cycles) noexcept
{
    return static_cast<std::uint32_t>(static_cast<std::int32_t>(cycles * 16777216.0f)) << 8;
}

/// Cycles per frame as a phase step: 0 to half a cycle.
std::uint32_t StepOf(double cyclesPerFrame) noexcept;

/// The sum of all harmonics below half the output rate, as a closed form: for n = 2 * harmonics + 1 and
/// x = pi * phase, sin(n x) / sin(x), which is 1 + 2 * (cos(2x) + cos(4x) + ...).
class HarmonicSum {
public:
    /// @param step  phase of one frame; below 2^16 counts as 2^16
    explicit HarmonicSum(std::uint32_t step) noexcept
        : frequency_(static_cast<float>(step < kSlowest ? kSlowest : step) * (1.0f / 4294967296.0f)),
          n_(2 * (0x80000000u / (step < kSlowest ? kSlowest : step)) + 1)
    {
    }
    float operator()(std::uint32_t phase) const noexcept
    {
        const float below = SineOfTurn(phase >> 1);
        const float above = SineOfTurn(static_cast<std::uint32_t>(std::uint64_t{n_} * phase >> 1));
        return below < 1e-5f ? N() : above / below;
    }
    float N() const noexcept { return static_cast<float>(n_); }
    /// Cycles per frame.
    float Frequency() const noexcept { return frequency_; }

private:
    static constexpr std::uint32_t kSlowest = 1u << 16;
    float frequency_;
    std::uint32_t n_;
};

/// Band-limited waves as running sums of HarmonicSum that leak, so that errors and steps of pitch die away.
/// Full level is 1; overshoot is limited to kMost.
class BandLimitedWave {
public:
    static constexpr float kLeak = 0.999f, kMost = 2;

    /// Falls over the cycle, jumps up at phase 0.
    float Saw(const HarmonicSum& sum, std::uint32_t phase) noexcept
    {
        return Add(sum_, 2 * sum.Frequency() * (sum(phase) - 1));
    }
    /// High from phase 0 to `width`; without its mean.
    float Square(const HarmonicSum& sum, std::uint32_t phase, std::uint32_t width) noexcept
    {
        return Add(sum_, 2 * sum.Frequency() * (sum(phase) - sum(phase - width)));
    }
    /// Rises from phase 0 to a half.
    float Triangle(const HarmonicSum& sum, std::uint32_t phase) noexcept
    {
        return Add(outer_, 4 * sum.Frequency() * Square(sum, phase, 0x80000000u));
    }
    /// One needle per cycle, 1 high.
    static float Pulse(const HarmonicSum& sum, std::uint32_t phase) noexcept { return sum(phase) / sum.N(); }

private:
    static float Add(float& state, float value) noexcept
    {
        const float next = state * kLeak + value;
        return state = next > kMost ? kMost : next < -kMost ? -kMost : next;
    }
    float sum_ = 0, outer_ = 0;
};

inline constexpr std::size_t kWaveTableSize = 64;
/// One cycle; 32767 is full level.
using WaveTable = std::array<std::int16_t, kWaveTableSize>;
inline constexpr unsigned kTableShapes = 32, kOplShapes = 8;

/// The 32 shapes: 0 to 7 from a sine, 8 to 14 the same with a flat top, 16 to 22 from a triangle, 24 to 29
/// from a saw; 15, 23, 30 and 31 are the table. Within -1..1. Higher numbers: the low 5 bits.
float TableShape(unsigned shape, std::uint32_t phase, const WaveTable& table) noexcept;
/// The eight waves of OPL3: 0 to 7 of the above. Higher numbers: the low 3 bits.
float OplShape(unsigned shape, std::uint32_t phase) noexcept;

} // namespace vimbo::synth
