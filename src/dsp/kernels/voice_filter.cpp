#include "dsp/kernels/voice_filter.h"

#include "dsp/kernels/lane_tiles.h"
#include "dsp/kernels/portable_math.h"

#include <algorithm>

namespace vimbo {
namespace {

static_assert(kFilterFrames == kTileFrames);

// ---- Coefficients, once per control tick.

constexpr double kLog2OfSemitone = 1.0 / 12;
constexpr double kLog2OfDecibel = 0.16609640474436813; // log2(10) / 20
constexpr double kLog2OfE = 1.4426950408889634;
constexpr double kTwoPi = 6.283185307179586;
constexpr float kHighestRatio = 0.5f; // cutoff / output rate
constexpr float kNoDampingDb = 96;    // resonance from which a section rings for ever

/// Parts of the plain recursion, of which every frame has two passes with one input:
///     low += f * band;  high = input - q * band - low;  band += f * high
struct Recursion {
    double f, q;
};

Recursion RecursionOf(float ratio, float resonanceDb) noexcept
{
    const double f = 2 * SineOfPhase(ratio / 4);
    const double q = resonanceDb >= kNoDampingDb ? 0 : PortableExp2(-resonanceDb * kLog2OfDecibel);
    return {f, std::min(q, 2 - f)};
}

enum class SvfOutput { Low, High, Band, Notch };

/// Both passes worked out as one linear step.
SvfCoefs SvfOf(SvfOutput output, const Recursion& r) noexcept
{
    const double square = r.f * r.f, sum = r.q + r.f;
    SvfCoefs coefs;
    coefs.square = static_cast<float>(square);
    coefs.cross = static_cast<float>(r.f * (2 - r.f * sum));
    coefs.damping = static_cast<float>(2 * r.f * sum + square - square * sum * sum);
    const double stays = 1 - r.f * sum; // of the band, over one pass
    if (output == SvfOutput::High) {
        coefs.outError = static_cast<float>(stays);
        coefs.outBand = static_cast<float>(r.f + sum * stays);
    } else if (output == SvfOutput::Notch) {
        coefs.outError = static_cast<float>(r.q * r.f);
        coefs.outBand = static_cast<float>(r.q * stays);
    }
    return coefs;
}

// ---- Sections. V is a vector of lanes, or a float. Load and Save take the lanes of one vector.

struct NoSection {
    template <class V>
    struct Of {
        VIMBO_INLINE void Load(const FilterLane*) noexcept {}
        VIMBO_INLINE void Step(V&) noexcept {}
        VIMBO_INLINE void Save(const FilterLane*) noexcept {}
    };
};

struct OnePoleLow {
    template <class V>
    struct Of {
        V feed, y1;

        VIMBO_INLINE void Load(const FilterLane* lanes) noexcept
        {
            GatherField(feed, [=](std::size_t i) { return lanes[i].coefs->poleFeed; });
            GatherField(y1, [=](std::size_t i) { return lanes[i].state->y1; });
        }
        VIMBO_INLINE void Step(V& sample) noexcept
        {
            y1 = y1 + feed * (sample - y1);
            Flush(y1);
            sample = y1;
        }
        VIMBO_INLINE void Save(const FilterLane* lanes) noexcept
        {
            ScatterField(y1, [=](std::size_t i) -> float& { return lanes[i].state->y1; });
        }
    };
};

struct OnePoleHigh {
    template <class V>
    struct Of {
        V feed, decay, x1, y1;

        VIMBO_INLINE void Load(const FilterLane* lanes) noexcept
        {
            GatherField(feed, [=](std::size_t i) { return lanes[i].coefs->poleFeed; });
            GatherField(decay, [=](std::size_t i) { return lanes[i].coefs->poleDecay; });
            GatherField(x1, [=](std::size_t i) { return lanes[i].state->x1; });
            GatherField(y1, [=](std::size_t i) { return lanes[i].state->y1; });
        }
        VIMBO_INLINE void Step(V& sample) noexcept
        {
            y1 = feed * (sample - x1) + decay * y1;
            Flush(y1);
            x1 = sample;
            sample = y1;
        }
        VIMBO_INLINE void Save(const FilterLane* lanes) noexcept
        {
            ScatterField(x1, [=](std::size_t i) -> float& { return lanes[i].state->x1; });
            ScatterField(y1, [=](std::size_t i) -> float& { return lanes[i].state->y1; });
        }
    };
};

/// Which of a filter's two state-variable sections.
struct FirstOfTwo {
    static constexpr auto kCoefs = &VoiceFilterCoefs::first;
    static constexpr auto kLow = &VoiceFilterState::low1, kBand = &VoiceFilterState::band1;
};
struct Last {
    static constexpr auto kCoefs = &VoiceFilterCoefs::last;
    static constexpr auto kLow = &VoiceFilterState::low2, kBand = &VoiceFilterState::band2;
};

template <SvfOutput Output, class Place>
struct StateVariable {
    template <class V>
    struct Of {
        V square, cross, damping, outError, outBand, low, band;

        template <class Member>
        VIMBO_INLINE static void Gather(V& v, const FilterLane* lanes, Member member) noexcept
        {
            GatherField(v, [=](std::size_t i) { return (lanes[i].coefs->*Place::kCoefs).*member; });
        }
        VIMBO_INLINE void Load(const FilterLane* lanes) noexcept
        {
            Gather(square, lanes, &SvfCoefs::square);
            Gather(cross, lanes, &SvfCoefs::cross);
            Gather(damping, lanes, &SvfCoefs::damping);
            if constexpr (Output == SvfOutput::High || Output == SvfOutput::Notch) {
                Gather(outError, lanes, &SvfCoefs::outError);
                Gather(outBand, lanes, &SvfCoefs::outBand);
            }
            GatherField(low, [=](std::size_t i) { return lanes[i].state->*Place::kLow; });
            GatherField(band, [=](std::size_t i) { return lanes[i].state->*Place::kBand; });
        }
        VIMBO_INLINE void Step(V& sample) noexcept
        {
            const V error = sample - low;
            if constexpr (Output == SvfOutput::High)
                sample = outError * error - outBand * band;
            else if constexpr (Output == SvfOutput::Notch)
                sample = sample - (outError * error + outBand * band);
            // The sums are ordered so that each state waits for the error once: the chain from frame to frame
            // is what the loop's time consists of.
            low = (low + cross * band) + square * error;
            band = (band - damping * band) + cross * error;
            Flush(low);
            Flush(band);
            if constexpr (Output == SvfOutput::Low)
                sample = low;
            else if constexpr (Output == SvfOutput::Band)
                sample = band;
        }
        VIMBO_INLINE void Save(const FilterLane* lanes) noexcept
        {
            ScatterField(low, [=](std::size_t i) -> float& { return lanes[i].state->*Place::kLow; });
            ScatterField(band, [=](std::size_t i) -> float& { return lanes[i].state->*Place::kBand; });
        }
    };
};

/// Two sections in series.
template <class First, class Second>
struct Series {
    template <class V>
    struct Chain {
        typename First::template Of<V> first;
        typename Second::template Of<V> second;

        VIMBO_INLINE void Load(const FilterLane* lanes) noexcept
        {
            first.Load(lanes);
            second.Load(lanes);
        }
        VIMBO_INLINE void Step(V& sample) noexcept
        {
            first.Step(sample);
            second.Step(sample);
        }
        VIMBO_INLINE void Save(const FilterLane* lanes) noexcept
        {
            first.Save(lanes);
            second.Save(lanes);
        }
    };
};

template <SvfOutput Output>
using OneSvf = Series<NoSection, StateVariable<Output, Last>>;
template <SvfOutput Output>
using TwoSvf = Series<StateVariable<Output, FirstOfTwo>, StateVariable<Output, Last>>;

template <class Sections>
struct FilterKernel {
    template <Isa Version>
    VIMBO_INLINE static void Run(const FilterLane* lanes, std::size_t count) noexcept
    {
        static constexpr VoiceFilterCoefs kCoefs;
        std::array<float, kTileFrames> silence{};
        VoiceFilterState state;
        RunLanes<Sections::template Chain, Version>(lanes, count, {silence.data(), &kCoefs, &state});
    }
};

/// Calls `run` with the sections of `kind`; not at all for the filter that passes all.
template <class Action>
void WithSections(VoiceFilterKind kind, const Action& run)
{
    using enum SvfOutput;
    switch (kind) {
    case VoiceFilterKind::PassThru:
        return;
    case VoiceFilterKind::LowPass6:
        return run(Series<OnePoleLow, NoSection>());
    case VoiceFilterKind::LowPass12:
        return run(OneSvf<Low>());
    case VoiceFilterKind::LowPass18:
        return run(Series<OnePoleLow, StateVariable<Low, Last>>());
    case VoiceFilterKind::LowPass24:
        return run(TwoSvf<Low>());
    case VoiceFilterKind::HighPass6:
        return run(Series<OnePoleHigh, NoSection>());
    case VoiceFilterKind::HighPass12:
        return run(OneSvf<High>());
    case VoiceFilterKind::HighPass18:
        return run(Series<OnePoleHigh, StateVariable<High, Last>>());
    case VoiceFilterKind::HighPass24:
        return run(TwoSvf<High>());
    case VoiceFilterKind::BandPass6:
        return run(OneSvf<Band>());
    case VoiceFilterKind::BandPass12:
        return run(TwoSvf<Band>());
    case VoiceFilterKind::BandReject6:
        return run(OneSvf<Notch>());
    case VoiceFilterKind::BandReject12:
        return run(TwoSvf<Notch>());
    }
}

// ---- What coefficients each kind needs.

enum class Pole { None, Low, High };
struct Recipe {
    Pole pole = Pole::None;
    int svfs = 0;
    SvfOutput output = SvfOutput::Low;
};

Recipe RecipeOf(VoiceFilterKind kind) noexcept
{
    using enum SvfOutput;
    static constexpr Recipe kRecipes[kVoiceFilterKinds] = {{}, // all
                                                           {Pole::Low, 0},
                                                           {Pole::None, 1, Low},
                                                           {Pole::Low, 1, Low},
                                                           {Pole::None, 2, Low}, // low
                                                           {Pole::High, 0},
                                                           {Pole::None, 1, High},
                                                           {Pole::High, 1, High},
                                                           {Pole::None, 2, High}, // high
                                                           {Pole::None, 1, Band},
                                                           {Pole::None, 2, Band},
                                                           {Pole::None, 1, Notch},
                                                           {Pole::None, 2, Notch}};
    const auto index = static_cast<std::size_t>(kind);
    return index < kVoiceFilterKinds ? kRecipes[index] : Recipe{};
}

} // namespace

VoiceFilterCoefs ComputeVoiceFilter(VoiceFilterKind kind, float baseRatio, float semitones,
                                    float resonanceDb) noexcept
{
    VoiceFilterCoefs coefs;
    const Recipe recipe = RecipeOf(kind);
    const double cutoff = std::max(baseRatio, 0.0f) * PortableExp2(semitones * kLog2OfSemitone);
    const float ratio = cutoff < kHighestRatio ? static_cast<float>(cutoff) : kHighestRatio;
    if (recipe.pole != Pole::None) {
        const double decay = PortableExp2(-kTwoPi * kLog2OfE * ratio);
        coefs.poleDecay = static_cast<float>(decay);
        coefs.poleFeed = static_cast<float>(recipe.pole == Pole::Low ? 1 - decay : (1 + decay) / 2);
    }
    if (recipe.svfs > 0)
        coefs.last = SvfOf(recipe.output, RecursionOf(ratio, std::max(resonanceDb, 0.0f)));
    if (recipe.svfs > 1)
        coefs.first = SvfOf(recipe.output, RecursionOf(ratio, 0));
    return coefs;
}

void RunVoiceFilter(VoiceFilterKind kind, std::span<const FilterLane> lanes) noexcept
{
    WithSections(
        kind, [=]<class Sections>(Sections) { RunBest<FilterKernel<Sections>>(lanes.data(), lanes.size()); });
}

void RunVoiceFilterPlain(VoiceFilterKind kind, std::span<const FilterLane> lanes) noexcept
{
    WithSections(kind, [=]<class Sections>(Sections) {
        RunLanesPlain<Sections::template Chain>(lanes.data(), lanes.size());
    });
}

} // namespace vimbo
