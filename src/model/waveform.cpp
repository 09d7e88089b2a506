#include "model/waveform.h"

#include "base/last_error.h"
#include "base/numeric.h"
#include "model/collection.h"
#include "model/loop_convert.h"
#include "model/sample_source.h"

#include <algorithm>
#include <cmath>
#include <new>

namespace vimbo {
namespace {

constexpr std::u16string_view kOutOfMemory = u"Out of memory";
constexpr std::uint32_t kFallbackRateHz = 44100;
constexpr std::uint8_t kMaxKey = 127;
constexpr std::int8_t kMaxFineTune = 100; // cents
constexpr float kMaxVolumeDb = 96;

/// Shows what is being read for as long as it lives.
class ReadingNotice {
public:
    explicit ReadingNotice(const Waveform& wave) : host_(wave.Owner().GetHost())
    {
        host_.SetProgress(std::u16string(u"Reading: ").append(wave.GetName()));
    }
    ~ReadingNotice() { host_.SetProgress(u""); }
    ReadingNotice(const ReadingNotice&) = delete;
    ReadingNotice& operator=(const ReadingNotice&) = delete;

private:
    Host& host_;
};

/// Frames of a block that is in memory; without a block, none.
class BlockSource final : public FrameSource {
public:
    BlockSource(SampleBlockRef block, unsigned channels)
        : FrameSource(block ? block->Frames() : 0, block ? block->Channels() : channels),
          block_(std::move(block))
    {
    }

    bool Read(std::uint32_t first, std::span<float> out) override
    {
        if (out.empty())
            return true;
        const std::span<const float> samples = block_->Samples();
        const std::size_t start = std::size_t{first} * Channels();
        std::copy_n(samples.begin() + static_cast<std::ptrdiff_t>(start), out.size(), out.begin());
        return true;
    }

private:
    SampleBlockRef block_;
};

SampleBlockRef CopyOf(const SampleBlock& source) noexcept
{
    SampleBlockRef copy = SampleBlockRef::Allocate(source.Frames(), source.Channels(), source.RateHz());
    if (copy)
        std::ranges::copy(source.Samples(), copy->Samples().begin());
    return copy;
}

} // namespace

Waveform::Waveform(ItemKey key, Collection& owner) noexcept : TextItem(key, owner) {}

Waveform::Waveform(ItemKey key, Collection& owner, const Waveform& source)
    : TextItem(key, owner, source), frames(source.frames), rateHz(source.rateHz), bits(source.bits),
      channels(source.channels), rootKey(source.rootKey), fineTune(source.fineTune), volume(source.volume),
      loop(source.loop), saveFormat(source.saveFormat), sourceOffset(source.sourceOffset),
      formatOffset(source.formatOffset), sourceBytes(source.sourceBytes), importProc(source.importProc),
      sourceTag(source.sourceTag), markers(source.markers), derived(source.derived)
{
    for (Marker& marker : markers)
        marker.id = Marker::NextId();
    // With a procedure the copy can load by itself; without one, the source's block is all there is.
    if (importProc == nullptr && source.block_)
        block_ = CopyOf(*source.block_);
}

Waveform::~Waveform() = default;

void Waveform::SetSourceFormat(DataFormat format, std::uint32_t flags) noexcept
{
    importProc = &kGenericImport;
    derived = nullptr;
    sourceWord = (format == DataFormat::None ? 0 : FormatBit(format)) | flags;
    bits = static_cast<std::uint8_t>(DataFormatBits(format));
    const SaveFormat wish = SaveFormatOf(format);
    if (wish != SaveFormat::Default)
        saveFormat = wish;
}

void Waveform::SetSourceBits(int bitsPerSample, std::uint32_t flags) noexcept
{
    if (bitsPerSample < 9)
        SetSourceFormat(DataFormat::Pcm8, flags);
    else if (bitsPerSample < 17)
        SetSourceFormat(DataFormat::Pcm16, flags);
    else if (bitsPerSample < 25)
        SetSourceFormat(DataFormat::Pcm24, flags);
    else
        SetSourceFormat(DataFormat::Pcm32, flags);
}

std::unique_ptr<FileObject> Waveform::OpenSource() const
{
    auto file = std::make_unique<FileObject>();
    const std::u16string_view path = GetSourcePath();
    // Made by the program, e.g. "<Clipboard>": there is no file. Parts of derived sources open theirs.
    if (path.starts_with(u'<') || IsDerivedImport(importProc))
        return file;
    if (!file->Open(path, FileMode::Read) || !file->Seek(sourceOffset)) {
        Fail(u"Could not open file");
        return nullptr;
    }
    return file;
}

bool Waveform::EnsureData()
try {
    if (block_)
        return true;
    if (importProc == nullptr)
        return Fail(u"No wave data import procedure");
    const ReadingNotice notice(*this);
    const std::unique_ptr<FileObject> file = OpenSource();
    if (file != nullptr && importProc->load(*this, *file))
        return true;
    FreeSamples();
    return false;
} catch (const std::bad_alloc&) {
    FreeSamples();
    return Fail(kOutOfMemory);
}

std::span<float> Waveform::LockSamples()
{
    if (!block_ && importProc != nullptr && !EnsureData())
        return {};
    if (!block_) {
        if (frames == 0)
            return {};
        std::ranges::fill(AllocateSamples(), 0.0f);
    }
    return block_ ? block_->Samples() : std::span<float>();
}

std::span<float> Waveform::LockSamplesForWrite()
{
    const std::span<float> samples = LockSamples();
    if (block_) {
        importProc = nullptr;
        derived = nullptr;
    }
    return samples;
}

std::span<float> Waveform::AllocateSamples()
{
    FreeSamples(); // first, so that two blocks never exist at a time
    block_ = SampleBlockRef::Allocate(frames, channels, static_cast<float>(rateHz));
    if (block_)
        return block_->Samples();
    Fail(kOutOfMemory);
    return {};
}

void Waveform::FreeSamples() noexcept
{
    block_ = {};
}

void Waveform::ReplaceBlock(SampleBlockRef block) noexcept
{
    if (!block)
        return;
    block_ = std::move(block);
    frames = block_->Frames();
    channels = static_cast<std::uint8_t>(block_->Channels());
    rateHz = static_cast<std::uint32_t>(std::max(0, RoundToInt(double{block_->RateHz()})));
    importProc = nullptr;
    derived = nullptr;
}

std::unique_ptr<FrameSource> Waveform::OpenFrames()
try {
    if (!block_ && importProc != nullptr && importProc->stream != nullptr) {
        std::unique_ptr<FileObject> file = OpenSource();
        return file != nullptr ? importProc->stream(*this, std::move(file)) : nullptr;
    }
    LockSamples();
    if (!block_ && (frames != 0 || importProc != nullptr))
        return nullptr;
    return std::make_unique<BlockSource>(block_, channels);
} catch (const std::bad_alloc&) {
    Fail(kOutOfMemory);
    return nullptr;
}

const Marker* Waveform::FindMarker(std::u16string_view name) const noexcept
{
    const auto found = std::ranges::find(markers, name, &Marker::name);
    return found != markers.end() ? &*found : nullptr;
}

const Marker* Waveform::FindMarkerAt(std::uint32_t position, std::uint32_t tolerance,
                                     std::uint32_t rangeLength) const noexcept
{
    const auto found = std::ranges::find_if(markers, [&](const Marker& marker) {
        const std::uint32_t distance =
            marker.position > position ? marker.position - position : position - marker.position;
        const bool hasLength =
            marker.isRange && marker.end >= marker.position && marker.end - marker.position == rangeLength;
        return distance <= tolerance && (rangeLength == 0 || hasLength);
    });
    return found != markers.end() ? &*found : nullptr;
}

void Waveform::NormalizeMarkers()
{
    for (Marker& marker : markers)
        if (marker.isRange && marker.end < marker.position)
            std::swap(marker.position, marker.end);
    std::erase_if(markers, [this](const Marker& marker) { return marker.position >= frames; });
    for (Marker& marker : markers)
        if (marker.isRange)
            marker.end = std::min(marker.end, frames);
    std::ranges::stable_sort(markers, {}, &Marker::position);
    if (markers.size() > kMaxMarkers)
        markers.resize(kMaxMarkers);
}

/// A loop that runs backwards becomes a forward one. Without its samples it stays as it is, to be tried
/// again.
void Waveform::PlayLoopForward()
{
    if (loop.type != LoopType::Reverse && loop.type != LoopType::Alternating)
        return;
    bool changed = false;
    if (!ConvertLoop(*this, {.atLeast32 = false}, changed) || !changed)
        return;
    NormalizeLoop(loop, frames, Owner().features);
    if (!Owner().features.Has(Feature::WaveLoopTuning))
        loop.pitch = 0;
}

void Waveform::Validate()
{
    TextItem::Validate();
    if (!HasText(kTextSourcePath))
        SetText(kTextSourcePath, Owner().GetText(kTextSourcePath));
    if (rateHz == 0)
        rateHz = kFallbackRateHz;

    rootKey = std::min(rootKey, kMaxKey);
    fineTune = std::clamp(fineTune, static_cast<std::int8_t>(-kMaxFineTune), kMaxFineTune);
    const auto rounded = static_cast<float>(RoundToHundredth(double{volume}));
    volume = std::isnan(rounded) ? 0 : std::clamp(rounded, -kMaxVolumeDb, kMaxVolumeDb);

    const FeatureMask features = Owner().features;
    NormalizeLoop(loop, frames, features);
    if (!features.Has(Feature::WaveLoopTuning))
        loop.pitch = 0;
    if (!features.Has(Feature::WaveReverseLoops))
        PlayLoopForward();
    NormalizeMarkers();

    if (saveFormat >= SaveFormat::Default)
        saveFormat = bits < 17 ? SaveFormat::Pcm16 : bits < 25 ? SaveFormat::Pcm24 : SaveFormat::Float32;
    if (!features.Has(Feature::WaveCompressedFormats) && saveFormat > SaveFormat::Float32)
        saveFormat = SaveFormat::Pcm16;
    if (bits == 0) {
        float kbit = 0;
        const unsigned nominal = DataFormatBits(SaveFormatToDataFormat(saveFormat, kbit));
        bits = static_cast<std::uint8_t>(nominal != 0 ? nominal : 16);
    }
}

bool LoadFrames(Waveform& wave, FrameSource& source)
{
    const std::span<float> samples = wave.AllocateSamples();
    if (samples.empty())
        return false;
    if (source.Read(0, samples))
        return true;
    wave.FreeSamples();
    return false;
}

} // namespace vimbo
