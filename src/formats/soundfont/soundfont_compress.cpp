// Samples as FLAC or Ogg Vorbis streams, encoded on all cores.
#include "base/last_error.h"
#include "base/text.h"
#include "base/worker_pool.h"
#include "formats/soundfont/soundfont.h"
#include "formats/soundfont/soundfont_frames.h"
#include "formats/xiph/xiph.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>

namespace vimbo::sf2 {
namespace {

/// What a stream costs beyond its bytes: players need memory for its decoder.
constexpr std::uint64_t kStreamCost = 128;
constexpr unsigned kFlacLevel = 8;
constexpr std::u16string_view kCannotWrite = u"Couldn't write to file!";

/// One channel of a stereo source.
class OneChannel final : public FrameSource {
public:
    OneChannel(std::unique_ptr<FrameSource> stereo, unsigned channel)
        : FrameSource(stereo->Frames(), 1), stereo_(std::move(stereo)), channel_(channel)
    {
    }
    bool Read(std::uint32_t first, std::span<float> out) override
    {
        both_.resize(2 * out.size());
        if (!stereo_->Read(first, both_))
            return false;
        for (std::size_t i = 0; i < out.size(); ++i)
            out[i] = both_[2 * i + channel_];
        return true;
    }

private:
    std::unique_ptr<FrameSource> stereo_;
    std::vector<float> both_;
    unsigned channel_;
};

/// Silence behind a source that ends early.
class Padded final : public FrameSource {
public:
    Padded(std::unique_ptr<FrameSource> source, std::uint32_t frames)
        : FrameSource(frames, 1), source_(std::move(source))
    {
    }
    bool Read(std::uint32_t first, std::span<float> out) override
    {
        const std::uint32_t held = first < source_->Frames() ? source_->Frames() - first : 0;
        const std::size_t count = std::min<std::size_t>(out.size(), held);
        std::ranges::fill(out.subspan(count), 0.0f);
        return count == 0 || source_->Read(first, out.first(count));
    }

private:
    std::unique_ptr<FrameSource> source_;
};

class Compressor {
public:
    Compressor(const std::vector<OutSample>& samples, const CompressSettings& settings, Host& host,
               Streams& out)
        : samples_(samples), settings_(settings), host_(host), out_(out), errors_(samples.size())
    {
    }

    bool Run()
    {
        if (!out_.file.Create())
            return Fail(u"Could not create file");
        out_.type = IsFlac() ? kSampleFlac : kSampleVorbis;
        lengths_.resize(samples_.size());
        RunJobs(samples_.size(), settings_.workers, [this](std::size_t index) noexcept { Encode(index); });
        host_.SetProgress(u"");
        if (host_.IsCancelled())
            return Fail(u"Save aborted!");
        if (cannotStore_)
            return Fail(kCannotWrite);
        for (const std::u16string& error : errors_)
            if (!error.empty())
                host_.ShowMessage(error, u"Error!", MessageIcon::Error);
        if (std::ranges::any_of(lengths_, [](const StreamPlace& place) { return place.bytes != 0; }))
            out_.places = std::move(lengths_);
        return true;
    }

private:
    bool IsFlac() const noexcept { return settings_.setting == CompressSettings::kFlac; }

    void Encode(std::size_t index) noexcept
    {
        if (host_.IsCancelled() || cannotStore_)
            return;
        try {
            host_.SetProgress(u"Compressing: " + std::u16string(samples_[index].wave->GetName()),
                              static_cast<double>(index) / static_cast<double>(samples_.size()));
            std::unique_ptr<ScratchFile> scratch = TakeScratch();
            if (scratch == nullptr)
                cannotStore_ = true;
            else if (!EncodeTo(scratch->File(), index))
                errors_[index] = LastError();
            else if (!Keep(scratch->File(), index))
                cannotStore_ = true;
            GiveBack(std::move(scratch));
        } catch (const std::exception& e) {
            errors_[index] = NarrowToWide(e.what());
        }
    }

    /// A file that some other job is done with, emptied, or a new one.
    std::unique_ptr<ScratchFile> TakeScratch()
    {
        std::unique_ptr<ScratchFile> scratch;
        {
            const std::lock_guard lock(mutex_);
            if (!free_.empty()) {
                scratch = std::move(free_.back());
                free_.pop_back();
            }
        }
        if (scratch != nullptr)
            return scratch->File().Truncate(0) && scratch->File().Seek(0) ? std::move(scratch) : nullptr;
        scratch = std::make_unique<ScratchFile>();
        return scratch->Create() ? std::move(scratch) : nullptr;
    }

    void GiveBack(std::unique_ptr<ScratchFile> scratch)
    {
        const std::lock_guard lock(mutex_);
        if (scratch != nullptr)
            free_.push_back(std::move(scratch));
    }

    unsigned FlacBits(const Waveform& wave) const
    {
        float kbit = 0;
        return PickDataFormat(wave, settings_.choice, kbit, nullptr) == DataFormat::Pcm24 ? 24 : 16;
    }

    bool EncodeTo(FileObject& file, std::size_t index) const
    {
        const OutSample& sample = samples_[index];
        const std::unique_ptr<FrameSource> source = OpenSample(sample);
        if (source == nullptr)
            return false;
        if (!IsFlac()) {
            VorbisSettings vorbis;
            vorbis.quality = std::clamp(settings_.setting, -0.1f, 1.0f);
            vorbis.rateHz = sample.wave->rateHz;
            vorbis.serial = static_cast<std::int32_t>(index + 1);
            return EncodeVorbis(*source, vorbis, file);
        }
        FlacSettings flac;
        flac.bits = FlacBits(*sample.wave);
        flac.level = kFlacLevel;
        flac.rateHz = sample.wave->rateHz;
        return EncodeFlac(*source, flac, file);
    }

    /// Moves a stream that is worth it behind the others. Their order there depends on the threads; the bank
    /// has them in the order of the samples.
    bool Keep(FileObject& from, std::size_t index)
    {
        const std::uint64_t bytes = from.Size();
        if (bytes == 0 || bytes + kStreamCost >= std::uint64_t{samples_[index].wave->frames} * 2)
            return true;
        const std::lock_guard lock(mutex_);
        FileObject& to = out_.file.File();
        const std::uint64_t offset = to.Size();
        if (!from.Seek(0) || !to.Seek(offset) || !CopyBytes(from, to, bytes))
            return false;
        lengths_[index] = {offset, bytes, IsFlac() ? FlacBits(*samples_[index].wave) : 0};
        return true;
    }

    const std::vector<OutSample>& samples_;
    const CompressSettings& settings_;
    Host& host_;
    Streams& out_;
    std::vector<StreamPlace> lengths_;
    std::vector<std::u16string> errors_; ///< by sample
    std::atomic<bool> cannotStore_ = false;
    std::mutex mutex_; ///< guards what follows, and the file of the streams
    std::vector<std::unique_ptr<ScratchFile>> free_;
};

} // namespace

std::unique_ptr<FrameSource> OpenSample(const OutSample& sample)
{
    Waveform& wave = *sample.wave;
    std::unique_ptr<FrameSource> source = wave.OpenFrames();
    if (source == nullptr)
        return nullptr;
    if (source->Channels() == 2 && sample.channel != OutSample::kWhole)
        source = std::make_unique<OneChannel>(std::move(source), sample.channel);
    else if (source->Channels() != 1)
        source = WithChannels(std::move(source), 1);
    if (source->Frames() != wave.frames)
        source = std::make_unique<Padded>(std::move(source), wave.frames);
    return source;
}

bool CompressSamples(const std::vector<OutSample>& samples, const CompressSettings& settings, Host& host,
                     Streams& out)
{
    return Compressor(samples, settings, host, out).Run();
}

} // namespace vimbo::sf2

namespace vimbo {

float SoundFontSubFormats(std::uint32_t index, std::uint32_t /*variant*/, std::u16string* name)
{
    constexpr std::uint32_t kQualities = 9; // 0.1 to 0.9; the highest one's place is FLAC's
    if (index > kQualities)
        return 0;
    if (index == kQualities) {
        if (name != nullptr)
            *name = u"FLAC";
        return sf2::CompressSettings::kFlac;
    }
    if (name != nullptr) {
        *name = u"Vorbis quality 0.";
        name->push_back(static_cast<char16_t>(u'1' + index));
    }
    return static_cast<float>(index + 1) / 10;
}

} // namespace vimbo
