// Instruments and engines for tests of the synthesizer.
#pragma once

#include "synth/engine.h"

#include <array>
#include <cmath>
#include <memory>
#include <vector>

namespace vimbo::synth {

inline std::shared_ptr<const SynthSample> MakeSample(std::span<const float> frames, float rateHz = 48000)
{
    auto sample = SynthSample::Create(static_cast<std::uint32_t>(frames.size()), 1, rateHz);
    std::ranges::copy(frames, sample->Fill().begin());
    sample->WrapLoop(0, LoopType::Forward);
    return sample;
}

/// Full scale without end: what comes out is the gain.
inline std::shared_ptr<const SynthSample> Ones()
{
    static const auto kSample = MakeSample(std::vector<float>(256, 1.0f));
    return kSample;
}

/// A looped region over all keys that plays the sample unshifted at key 60, with every value at its default.
inline SynthRegion MakeRegion(std::shared_ptr<const SynthSample> sample = Ones(), std::uint32_t id = 1)
{
    SynthRegion region;
    region.regionId = id;
    region.keys = region.velocities = {0, 127};
    region.fades = CrossFadeRanges(TriggerParams{});
    region.allowOverlap = true;
    std::ranges::copy(DefaultArticulation().Values(), region.params.begin());
    region.wave.end = sample->Frames();
    region.wave.loopType = LoopType::Forward;
    region.wave.loopEnd = sample->Frames();
    region.wave.sample = std::move(sample);
    return region;
}

inline std::unique_ptr<SynthInstrument> MakeInstrument(std::vector<SynthRegion> regions,
                                                       std::uint32_t patch = 0)
{
    auto instrument = std::make_unique<SynthInstrument>();
    instrument->patch = patch;
    instrument->regions = std::move(regions);
    return instrument;
}

struct Rendered {
    std::vector<float> left, right;
    float Peak() const
    {
        float peak = 0;
        for (std::size_t i = 0; i < left.size(); ++i)
            peak = std::max({peak, std::abs(left[i]), std::abs(right[i])});
        return peak;
    }
};

inline Rendered RenderBlocks(SynthEngine& engine, std::size_t blocks)
{
    Rendered out;
    alignas(32) std::array<float, 2 * kBlockFrames> block{};
    for (std::size_t b = 0; b < blocks; ++b) {
        engine.Render(block);
        for (std::size_t i = 0; i < kBlockFrames; ++i) {
            out.left.push_back(block[2 * i]);
            out.right.push_back(block[2 * i + 1]);
        }
    }
    return out;
}

inline constexpr unsigned kNoteOnStatus = 0x90, kNoteOffStatus = 0x80, kControlStatus = 0xB0;

} // namespace vimbo::synth
