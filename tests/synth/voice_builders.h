// Regions, samples and voices for the tests of the synthesizer.
#pragma once

#include "model/articulation.h"
#include "synth/voice.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <span>
#include <utility>
#include <vector>

namespace vimbo::synth {

inline constexpr VoiceClock kClock{48000};
inline constexpr double kTicks = 750; ///< per second at 48 kHz

/// The defaults of the parameter table.
inline std::array<float, kArticulationParams> DefaultParams()
{
    std::array<float, kArticulationParams> params{};
    std::ranges::copy(DefaultArticulation().Values(), params.begin());
    return params;
}

template <class F>
std::shared_ptr<SynthSample> MakeSample(std::uint32_t frames, unsigned channels, float rateHz, F valueAt)
{
    auto sample = SynthSample::Create(frames, channels, rateHz);
    for (std::size_t i = 0; i < sample->Fill().size(); ++i)
        sample->Fill()[i] = valueAt(i / channels, i % channels);
    return sample;
}

/// A sine of 1000 Hz at rate 48000, looped endlessly.
inline SynthRegion SineRegion()
{
    constexpr std::uint32_t kFrames = 4800;
    SynthRegion region;
    region.params = DefaultParams();
    const auto sample = MakeSample(kFrames, 1, 48000, [](std::size_t i, std::size_t) {
        return static_cast<float>(std::sin(2 * std::numbers::pi * static_cast<double>(i) / 48));
    });
    sample->WrapLoop(0, LoopType::Forward);
    region.wave = {sample, LoopType::Forward, false, 0, kFrames, 0, 0, kFrames};
    return region;
}

struct Strike {
    float key = 60;
    unsigned velocity = 127;
};

/// A voice that stands on its own.
class TestVoice {
public:
    explicit TestVoice(const SynthRegion& region, Strike strike = {}, float bendRange = kUnsetBendRange)
    {
        voice.region = &region;
        voice.key = strike.key;
        voice.velocity = static_cast<float>(strike.velocity) / 127;
        voice.bendRange = bendRange;
        voice.delayLeft = region.delaySeconds;
        InitVoice(voice, kClock, true);
    }
    /// One tick. @return its left side
    std::span<const float> Run()
    {
        RunVoice(voice, kClock, block);
        return block.left;
    }
    void Run(unsigned ticks)
    {
        while (ticks-- > 0)
            Run();
    }
    double GainDb() const { return 20 * std::log10(voice.envelopeGain); }

    Voice voice;
    StereoBlock block;
};

} // namespace vimbo::synth
