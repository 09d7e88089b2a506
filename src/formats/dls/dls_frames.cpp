// The samples of one waveform on their way to a bank.
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

class WaveWriter {
public:
    WaveWriter(const OutWave& wave, FileObject& file) noexcept : wave_(wave), file_(file) {}

    bool Write()
    {
        std::unique_ptr<FrameSource> source = wave_.wave->OpenFrames();
        if (source == nullptr)
            return false;
        const bool takesOne = wave_.channel != OutWave::kWhole && source->Channels() == 2;
        if (!takesOne && source->Channels() != wave_.channels)
            source = WithChannels(std::move(source), wave_.channels);
        const std::uint32_t frames = wave_.wave->frames;
        for (std::uint32_t first = 0; first < frames;) {
            const std::size_t count = std::min<std::size_t>(kPieceFrames, frames - first);
            if (!Read(*source, first, count) || !(wave_.coding->isIma ? PutIma() : PutLinear()))
                return false;
            first += static_cast<std::uint32_t>(count);
        }
        return true;
    }

private:
    /// Silence behind the end of a source that is shorter than the waveform says.
    bool Read(FrameSource& source, std::uint32_t first, std::size_t count)
    {
        const unsigned channels = source.Channels();
        const std::size_t held = first < source.Frames() ? source.Frames() - first : 0;
        samples_.assign(count * channels, 0.0f);
        if (held != 0 && !source.Read(first, std::span(samples_).first(std::min(count, held) * channels)))
            return false;
        if (channels == wave_.channels)
            return true;
        for (std::size_t i = 0; i < count; ++i)
            samples_[i] = samples_[i * channels + wave_.channel];
        samples_.resize(count);
        return true;
    }

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

bool WriteFrames(const OutWave& wave, FileObject& file)
{
    return WaveWriter(wave, file).Write();
}

} // namespace vimbo::dls
