// Samples as voices read them: 32-bit floats in memory, shared by all instruments that play them.
#pragma once

#include "model/item_handle.h"
#include "model/loop_info.h"

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <span>

namespace vimbo {
class Waveform;
}

namespace vimbo::synth {

/// Interleaved frames with one silent frame in front and three behind, so that interpolation over four points
/// needs no test at the ends. Not changed any more once it is shared.
class SynthSample {
public:
    static constexpr std::size_t kFramesBefore = 1, kFramesBehind = 3;

    /// Silence. `channels` is 1 or 2. Null if memory runs out.
    static std::shared_ptr<SynthSample> Create(std::uint32_t frames, unsigned channels, float rateHz);

    std::uint32_t Frames() const noexcept { return frames_; }
    unsigned Channels() const noexcept { return channels_; }
    float RateHz() const noexcept { return rateHz_; }
    /// The first frame; readable from one frame before it to three frames behind the last.
    const float* Data() const noexcept { return data_.get() + kFramesBefore * channels_; }
    /// All frames, for filling.
    std::span<float> Fill() noexcept
    {
        return {data_.get() + kFramesBefore * channels_, std::size_t{frames_} * channels_};
    }
    /// Fills the frames behind the last one with what a loop that ends there plays next: its first frames
    /// round and round, or, if it alternates, its last ones back. Nothing for a start outside the sample.
    void WrapLoop(double loopStart, LoopType type) noexcept;

private:
    SynthSample(std::unique_ptr<float[]> data, std::uint32_t frames, unsigned channels, float rateHz) noexcept
        : data_(std::move(data)), frames_(frames), channels_(channels), rateHz_(rateHz)
    {
    }

    std::unique_ptr<float[]> data_;
    std::uint32_t frames_;
    unsigned channels_;
    float rateHz_;
};

/// The samples in use, each held once while any instrument plays it. Safe from any thread.
class SampleStore {
public:
    /// The waveform's samples, or those of two mono waveforms side by side, read on first use, for a loop
    /// that ends with the sample; others are LoopType::Off here. Null with the Last error text if they cannot
    /// be had.
    std::shared_ptr<const SynthSample> Get(Waveform& wave, Waveform* right, LoopType type, double loopStart);

private:
    struct Key {
        ItemHandle left, right;
        const void* collection;
        const void *leftBlock, *rightBlock; ///< other samples after an edit
        std::uint32_t frames;
        LoopType type;
        double loopStart;
        auto operator<=>(const Key&) const = default;
    };
    std::mutex mutex_;
    std::map<Key, std::weak_ptr<const SynthSample>> samples_;
};

} // namespace vimbo::synth
