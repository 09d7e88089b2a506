// Channel layouts and cuts.
#include "base/last_error.h"
#include "dsp/kernels/sample_convert.h"
#include "model/collection.h"
#include "model/waveform.h"

#include <algorithm>
#include <cassert>

namespace vimbo {
namespace {

constexpr std::u16string_view kOutOfMemory = u"Out of memory";
constexpr std::u16string_view kInvalidAlgorithm = u"Invalid algorithm";

/// A new block shaped like `source`, but with other frames and channels; empty with the Last error text set.
SampleBlockRef NewBlock(const Waveform& source, std::uint32_t frames, unsigned channels)
{
    SampleBlockRef block = SampleBlockRef::Allocate(frames, channels, static_cast<float>(source.rateHz));
    if (!block)
        Fail(kOutOfMemory);
    return block;
}

/// True once the samples are in memory, or if there are none to have.
bool Loads(Waveform& wave)
{
    const std::size_t samples = wave.LockSamples().size();
    assert(samples == 0 || samples == std::size_t{wave.frames} * wave.channels);
    return samples != 0 || (wave.frames == 0 && wave.importProc == nullptr);
}

void CopyChannel(std::span<const float> stereo, std::size_t channel, std::span<float> out) noexcept
{
    for (std::size_t i = 0; i < out.size(); ++i)
        out[i] = stereo[2 * i + channel];
}

bool ChannelsAreEqual(std::span<const float> stereo) noexcept
{
    for (std::size_t i = 0; i + 1 < stereo.size(); i += 2)
        if (stereo[i] != stereo[i + 1])
            return false;
    return true;
}

bool IsBlankOrDash(char16_t unit) noexcept
{
    return unit == u' ' || unit == u'-';
}

/// Where a position goes when the frames [from, to) are taken out.
struct Cut {
    std::uint32_t from, to;

    std::uint32_t Length() const noexcept { return to - from; }

    std::uint32_t Moved(std::uint32_t position) const noexcept
    {
        return position >= to ? position - Length() : std::min(position, from);
    }

    bool Removes(const Marker& marker) const noexcept
    {
        if (marker.position < from || marker.position >= to)
            return false;
        return !marker.isRange || marker.end <= to;
    }
};

void CutLoop(LoopInfo& loop, const Cut& cut, std::uint32_t framesAfter) noexcept
{
    const double from = cut.from, to = cut.to, length = cut.Length();
    if (loop.start >= to)
        loop.start -= length;
    else if (loop.start >= from)
        loop.start = from;
    if (loop.end >= to)
        loop.end -= length;
    else if (loop.end > from)
        loop.end = std::min(from + 1, static_cast<double>(framesAfter));
    if (loop.start >= loop.end)
        loop.type = LoopType::Off;
}

} // namespace

std::u16string_view WithoutStereoSuffix(std::u16string_view name) noexcept
{
    const std::size_t size = name.size();
    if (size < 2 || (name[size - 1] != u'S' && name[size - 1] != u's') || !IsBlankOrDash(name[size - 2]))
        return name;
    name.remove_suffix(2);
    while (name.ends_with(u' '))
        name.remove_suffix(1);
    return name;
}

bool Waveform::ToMono(MonoMode mode, Waveform** second)
{
    if (channels != 2)
        return true;
    if (mode < MonoMode::Average || mode > MonoMode::LeftIfEqual)
        return Fail(kInvalidAlgorithm);
    if (!Loads(*this))
        return false;
    const std::span<const float> stereo = LockSamples();
    if (mode == MonoMode::LeftIfEqual && !ChannelsAreEqual(stereo))
        return true;

    SampleBlockRef mono = NewBlock(*this, frames, 1);
    SampleBlockRef right = mode == MonoMode::Split && mono ? NewBlock(*this, frames, 1) : mono;
    if (!mono || !right)
        return false;
    if (mode == MonoMode::Average)
        AverageToMono(stereo, mono->Samples());
    else
        CopyChannel(stereo, mode == MonoMode::Right ? 1 : 0, mono->Samples());
    if (mode == MonoMode::Split)
        CopyChannel(stereo, 1, right->Samples());

    ReplaceBlock(std::move(mono));
    if (mode == MonoMode::Split) {
        const std::u16string name(WithoutStereoSuffix(GetName()));
        Waveform& other = Owner().Clone(*this);
        other.ReplaceBlock(std::move(right));
        other.SetName(name + u" -R");
        SetName(name + u" -L");
        other.Validate();
        if (second != nullptr)
            *second = &other;
    }
    Validate();
    return true;
}

bool Waveform::ToStereo(StereoMode mode, Waveform* second)
{
    if (channels != 1)
        return true;
    if (mode < StereoMode::Duplicate || mode > StereoMode::SecondAndRight)
        return Fail(kInvalidAlgorithm);
    const bool usesSecond = mode == StereoMode::LeftAndSecond || mode == StereoMode::SecondAndRight;
    if (usesSecond && second == nullptr)
        return Fail(u"No 2nd waveform specified");
    if (usesSecond && second->channels != 1)
        return Fail(u"2nd waveform is not mono");
    if (!Loads(*this) || (usesSecond && !Loads(*second)))
        return false;

    const std::span<const float> own = LockSamples();
    const std::span<const float> others = usesSecond ? second->LockSamples() : std::span<float>();
    const std::uint32_t framesAfter = usesSecond ? std::max(frames, second->frames) : frames;
    SampleBlockRef block = NewBlock(*this, framesAfter, 2);
    if (!block)
        return false;
    const std::span<float> stereo = block->Samples();
    const auto put = [stereo](std::span<const float> samples, std::size_t channel) {
        for (std::size_t i = 0; i < samples.size(); ++i)
            stereo[2 * i + channel] = samples[i];
    };
    std::ranges::fill(stereo, 0.0f);
    const bool isRight = mode == StereoMode::AsRight || mode == StereoMode::SecondAndRight;
    put(own, isRight ? 1 : 0);
    put(mode == StereoMode::Duplicate ? own : others, isRight ? 0 : 1);

    if (usesSecond) {
        bits = std::max(bits, second->bits);
        rootKey = static_cast<std::uint8_t>((rootKey + second->rootKey) >> 1);
    }
    ReplaceBlock(std::move(block));
    Validate();
    return true;
}

bool Waveform::CutRange(std::uint32_t from, std::uint32_t to)
{
    const Cut cut{from, std::min(to, frames)};
    if (cut.from >= cut.to)
        return Fail(u"Nothing to cut");
    if (cut.Length() == frames)
        return Fail(u"The cut would leave nothing");
    if (!Loads(*this))
        return false;
    const std::uint32_t framesAfter = frames - cut.Length();
    SampleBlockRef block = NewBlock(*this, framesAfter, channels);
    if (!block)
        return false;
    const std::span<const float> samples = LockSamples();
    const auto kept =
        std::ranges::copy(samples.first(std::size_t{cut.from} * channels), block->Samples().begin());
    std::ranges::copy(samples.subspan(std::size_t{cut.to} * channels), kept.out);
    ReplaceBlock(std::move(block));

    CutLoop(loop, cut, framesAfter);
    std::erase_if(markers, [&cut](const Marker& marker) { return cut.Removes(marker); });
    for (Marker& marker : markers) {
        marker.position = cut.Moved(marker.position);
        if (marker.isRange)
            marker.end = cut.Moved(marker.end);
    }
    return true;
}

} // namespace vimbo
