#include "synth/synth_sample.h"

#include "base/last_error.h"
#include "model/waveform.h"

#include <algorithm>
#include <new>

namespace vimbo::synth {

std::shared_ptr<SynthSample> SynthSample::Create(std::uint32_t frames, unsigned channels, float rateHz)
{
    const std::size_t floats = (kFramesBefore + frames + kFramesBehind) * channels;
    std::unique_ptr<float[]> data(new (std::nothrow) float[floats]());
    if (!data) {
        (void)Fail(u"Out of memory");
        return nullptr;
    }
    return std::shared_ptr<SynthSample>(new SynthSample(std::move(data), frames, channels, rateHz));
}

void SynthSample::WrapLoop(double loopStart, LoopType type) noexcept
{
    if (type == LoopType::Off || !(loopStart >= 0 && loopStart < frames_))
        return;
    const auto start = static_cast<std::size_t>(loopStart);
    float* const first = data_.get() + kFramesBefore * channels_;
    for (std::size_t i = 0; i < kFramesBehind; ++i) {
        // The turn falls on the frame behind the last: it repeats the last one, then all go back.
        const std::size_t back = frames_ - std::min(std::max<std::size_t>(i, 1), frames_ - start);
        const std::size_t from =
            type == LoopType::Alternating ? back : start + i; // round: copied just before
        std::copy_n(first + from * channels_, channels_, first + (frames_ + i) * channels_);
    }
}

namespace {

bool ReadInto(Waveform& wave, std::span<float> out, unsigned channels)
{
    auto source = wave.OpenFrames();
    if (!source)
        return false;
    if (source->Channels() != channels)
        source = WithChannels(std::move(source), channels);
    return source->Read(0, out);
}

/// Both sides into one stereo sample. The right one is as long as the left.
bool ReadPair(Waveform& left, Waveform& right, SynthSample& sample)
{
    std::unique_ptr<float[]> side(new (std::nothrow) float[sample.Frames()]);
    if (!side)
        return false;
    const std::span<float> out = sample.Fill();
    Waveform* const waves[] = {&left, &right};
    for (std::size_t channel = 0; channel < 2; ++channel) {
        if (!ReadInto(*waves[channel], {side.get(), sample.Frames()}, 1))
            return false;
        for (std::size_t i = 0; i < sample.Frames(); ++i)
            out[2 * i + channel] = side[i];
    }
    return true;
}

const void* BlockOf(const Waveform* wave) noexcept
{
    return wave && wave->HasBlock() ? static_cast<const void*>(wave->Block()->Samples().data()) : nullptr;
}

} // namespace

std::shared_ptr<const SynthSample> SampleStore::Get(Waveform& wave, Waveform* right, LoopType type,
                                                    double loopStart)
{
    const Key key{wave.Handle(),  right ? right->Handle() : ItemHandle(),
                  &wave.Owner(),  BlockOf(&wave),
                  BlockOf(right), wave.frames,
                  type,           type == LoopType::Off ? 0 : loopStart};
    const std::lock_guard lock(mutex_);
    auto& entry = samples_[key];
    if (auto sample = entry.lock())
        return sample;
    const unsigned channels = right ? 2 : wave.channels;
    auto sample = SynthSample::Create(wave.frames, channels, static_cast<float>(wave.rateHz));
    if (!sample)
        return nullptr;
    if (!(right ? ReadPair(wave, *right, *sample) : ReadInto(wave, sample->Fill(), channels)))
        return nullptr;
    sample->WrapLoop(loopStart, type);
    entry = sample;
    return sample;
}

} // namespace vimbo::synth
