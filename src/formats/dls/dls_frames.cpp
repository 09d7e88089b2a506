// The samples of one waveform on their way to a bank.
#include "base/host.h"
#include "base/last_error.h"
#include "codecs/ima.h"
#include "formats/dls/dls_build.h"

#include <algorithm>
#include <array>

namespace vimbo::dls {
namespace {

constexpr std::size_t kPieceFrames = std::size_t{64} * kImaBlockFrames;

bool Put(FileObject& file, std::span<const std::byte> bytes)
{
    return file.WriteAll(bytes) || Fail(u"Couldn't write to file!");
}

/// The frames of a waveform, or of one channel of it, as many as it says: silence behind the end of a shorter
/// source.
class OutFrames final : public FrameSource {
public:
    /// @param source  of the waveform, with its own number of channels
    OutFrames(const OutWave& wave, std::unique_ptr<FrameSource> source)
        : FrameSource(wave.wave->frames, wave.channels), source_(std::move(source)), channel_(wave.channel)
    {
        takesOne_ = channel_ != OutWave::kWhole && source_->Channels() == 2;
        if (!takesOne_ && source_->Channels() != wave.channels)
            source_ = WithChannels(std::move(source_), wave.channels);
    }

    bool Read(std::uint32_t first, std::span<float> out) override
    {
        const std::size_t count = out.size() / Channels();
        const std::size_t held =
            first < source_->Frames() ? std::min<std::size_t>(source_->Frames() - first, count) : 0;
        std::ranges::fill(out.subspan(held * Channels()), 0.0f);
        if (held == 0)
            return true;
        if (!takesOne_)
            return source_->Read(first, out.first(held * Channels()));
        both_.resize(2 * held);
        if (!source_->Read(first, both_))
            return false;
        for (std::size_t i = 0; i < held; ++i)
            out[i] = both_[2 * i + channel_];
        return true;
    }

private:
    std::unique_ptr<FrameSource> source_;
    unsigned channel_;
    bool takesOne_ = false;
    std::vector<float> both_;
};

/// Null with the Last error text on failure.
std::unique_ptr<FrameSource> OpenOut(const OutWave& wave)
{
    std::unique_ptr<FrameSource> source = wave.wave->OpenFrames();
    return source != nullptr ? std::make_unique<OutFrames>(wave, std::move(source)) : nullptr;
}

class WaveWriter {
public:
    WaveWriter(const OutWave& wave, FileObject& file) noexcept : wave_(wave), file_(file) {}

    bool Write()
    {
        const std::unique_ptr<FrameSource> source = OpenOut(wave_);
        if (source == nullptr)
            return false;
        const std::uint32_t frames = source->Frames();
        for (std::uint32_t first = 0; first < frames;) {
            const std::size_t count = std::min<std::size_t>(kPieceFrames, frames - first);
            samples_.resize(count * wave_.channels);
            if (!source->Read(first, samples_) || !(wave_.coding->isIma ? PutIma() : PutLinear()))
                return false;
            first += static_cast<std::uint32_t>(count);
        }
        return true;
    }

private:
    bool PutLinear()
    {
        const SampleCoding coding = wave_.coding->samples;
        bytes_.resize(static_cast<std::size_t>(StoredBytes(coding, samples_.size())));
        DeltaState none;
        EncodeSamples({coding, coding == SampleCoding::Pcm8, std::endian::little}, samples_, bytes_, none);
        return Put(file_, bytes_);
    }

    /// Pieces hold whole blocks; the last block of a waveform is filled up.
    bool PutIma()
    {
        const std::size_t blockSamples = std::size_t{kImaBlockFrames} * wave_.channels;
        const std::size_t blockBytes = kImaBlockBytes * wave_.channels;
        const std::span<ImaState> states = std::span(states_).first(wave_.channels);
        for (std::size_t at = 0; at < samples_.size(); at += blockSamples) {
            bytes_.assign(blockBytes, std::byte{0});
            const auto in = std::span(samples_).subspan(at, std::min(blockSamples, samples_.size() - at));
            EncodeImaBlock(states, in, bytes_);
            if (!Put(file_, bytes_))
                return false;
        }
        return true;
    }

    const OutWave& wave_;
    FileObject& file_;
    std::vector<float> samples_;
    std::vector<std::byte> bytes_;
    std::array<ImaState, kMaxChannels> states_;
};

} // namespace

bool CompressWaves(WaveList& waves, Host& host)
{
    const auto isMp3 = [](const OutWave& wave) { return wave.coding->IsMp3(); };
    if (std::ranges::none_of(waves.waves, isMp3))
        return true;
    if (!waves.scratch.Create())
        return Fail(u"Could not create file");
    for (std::size_t i = 0; i < waves.waves.size(); ++i) {
        OutWave& wave = waves.waves[i];
        if (!isMp3(wave))
            continue;
        if (host.IsCancelled())
            return Fail(u"Save aborted!");
        host.SetProgress(u"Compressing: " + std::u16string(wave.wave->GetName()),
                         static_cast<double>(i) / static_cast<double>(waves.waves.size()));
        const std::unique_ptr<FrameSource> source = OpenOut(wave);
        if (source == nullptr || !EncodeMp3(*source, {.rateHz = wave.wave->rateHz, .kbit = wave.mp3.kbit},
                                            waves.scratch.File(), wave.mp3))
            return false;
    }
    host.SetProgress(u"");
    return true;
}

bool WriteFrames(const OutWave& wave, FileObject& scratch, FileObject& file)
{
    return wave.coding->IsMp3() ? PutMp3(wave.mp3, scratch, file) : WaveWriter(wave, file).Write();
}

} // namespace vimbo::dls
