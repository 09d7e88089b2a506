#include "dsp/kernels/biquad.h"

#include "dsp/kernels/lane_tiles.h"
#include "dsp/kernels/portable_math.h"

#include <algorithm>
#include <array>

namespace vimbo {
namespace {

static_assert(kEqFrames == kTileFrames);

/// sin(x) for -pi/2 to pi/2, Taylor: the term left out is below 5e-14. SineOfPhase is too coarse for the
/// coefficients of low bands.
double QuarterSine(double x) noexcept
{
    double sum = 1;
    for (int n = 16; n > 0; n -= 2)
        sum = 1 - sum * x * x / (n * (n + 1));
    return sum * x;
}

/// One band of one lane, as the tile machinery takes it.
struct BandLane {
    float* samples;
    const BiquadCoefs* coefs;
    BiquadState* state;
};

/// V is a vector of lanes, or a float.
template <class V>
struct Biquad {
    V b0, b1, b2, a1, a2, s1, s2;

    VIMBO_INLINE void Load(const BandLane* lanes) noexcept
    {
        GatherField(b0, [=](std::size_t i) { return lanes[i].coefs->b0; });
        GatherField(b1, [=](std::size_t i) { return lanes[i].coefs->b1; });
        GatherField(b2, [=](std::size_t i) { return lanes[i].coefs->b2; });
        GatherField(a1, [=](std::size_t i) { return lanes[i].coefs->a1; });
        GatherField(a2, [=](std::size_t i) { return lanes[i].coefs->a2; });
        GatherField(s1, [=](std::size_t i) { return lanes[i].state->s1; });
        GatherField(s2, [=](std::size_t i) { return lanes[i].state->s2; });
    }
    VIMBO_INLINE void Step(V& sample) noexcept
    {
        V y = b0 * sample + s1;
        Flush(y); // the states follow: they are made of outputs and inputs
        s1 = (b1 * sample + s2) - a1 * y;
        s2 = b2 * sample - a2 * y;
        sample = y;
    }
    VIMBO_INLINE void Save(const BandLane* lanes) noexcept
    {
        ScatterField(s1, [=](std::size_t i) -> float& { return lanes[i].state->s1; });
        ScatterField(s2, [=](std::size_t i) -> float& { return lanes[i].state->s2; });
    }
};

struct EqKernel {
    template <Isa Version>
    VIMBO_INLINE static void Run(const BandLane* lanes, std::size_t count) noexcept
    {
        static constexpr BiquadCoefs kCoefs;
        std::array<float, kTileFrames> silence{};
        BiquadState state;
        RunLanes<Biquad, Version>(lanes, count, {silence.data(), &kCoefs, &state});
    }
};

struct EqPlain {
    static void Run(const BandLane* lanes, std::size_t count) noexcept
    {
        RunLanesPlain<Biquad>(lanes, count);
    }
};

/// Band by band over those lanes that have it, so that no lane passes through another one's band.
template <class Action>
void ForEachBand(std::span<const EqLane> lanes, const Action& run) noexcept
{
    std::array<BandLane, 16> batch;
    for (std::uint8_t band = 0; band < kMaxEqBands; ++band) {
        std::size_t count = 0;
        for (const EqLane& lane : lanes) {
            if (lane.bands <= band)
                continue;
            batch[count++] = {lane.samples, lane.coefs + band, lane.states + band};
            if (count == batch.size()) {
                run(batch.data(), count);
                count = 0;
            }
        }
        if (count > 0)
            run(batch.data(), count);
    }
}

} // namespace

BiquadCoefs ComputeBiquad(EqMode mode, float ratio, float gainDb, float q) noexcept
{
    const double half = 3.141592653589793 * std::clamp(ratio, 1e-6f, 0.49f); // w / 2
    const double halfSine = QuarterSine(half), halfCosine = QuarterSine(1.5707963267948966 - half);
    const double cosine = 1 - 2 * halfSine * halfSine;
    const double alpha = halfSine * halfCosine / std::max(q, 1e-3f); // sin(w) / 2q
    const double root = PortableExp2(gainDb * 0.041524101186092034); // log2(10) / 80
    const double a = root * root;

    double b0, b1, b2, a0, a1, a2;
    if (mode == EqMode::Peak) {
        b0 = 1 + alpha * a;
        b1 = a1 = -2 * cosine;
        b2 = 1 - alpha * a;
        a0 = 1 + alpha / a;
        a2 = 1 - alpha / a;
    } else { // a high shelf is a low shelf of the mirrored frequency: the signs of cosines and odd terms
             // change
        const double sign = mode == EqMode::LowShelf ? 1 : -1;
        const double c = sign * cosine, slope = 2 * root * alpha;
        b0 = a * ((a + 1) - (a - 1) * c + slope);
        b1 = sign * 2 * a * ((a - 1) - (a + 1) * c);
        b2 = a * ((a + 1) - (a - 1) * c - slope);
        a0 = (a + 1) + (a - 1) * c + slope;
        a1 = sign * -2 * ((a - 1) + (a + 1) * c);
        a2 = (a + 1) + (a - 1) * c - slope;
    }
    const auto normal = [a0](double x) { return static_cast<float>(x / a0); };
    return {normal(b0), normal(b1), normal(b2), normal(a1), normal(a2)};
}

void RunEqLanes(std::span<const EqLane> lanes) noexcept
{
    ForEachBand(lanes, [](const BandLane* batch, std::size_t count) { RunBest<EqKernel>(batch, count); });
}

void RunEqLanesPlain(std::span<const EqLane> lanes) noexcept
{
    ForEachBand(lanes, EqPlain::Run);
}

} // namespace vimbo
