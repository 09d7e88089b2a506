#include "synth/wave_sink.h"

#include "base/last_error.h"
#include "base/path.h"
#include "base/text.h"
#include "dsp/kernels/voice_mix.h"
#include "model/waveform.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <filesystem>
#include <limits>

namespace vimbo::synth {
namespace {

constexpr std::size_t kChannels = 2;
constexpr std::size_t kBufferFloats = 1u << 16;
constexpr std::uint64_t kFrameBytes = kChannels * sizeof(float);

} // namespace

ScratchFile& ScratchFile::operator=(ScratchFile&& other) noexcept
{
    std::swap(path_, other.path_);
    return *this;
}

ScratchFile::~ScratchFile()
{
    std::error_code error; // a file that stays in the folder for temporary files does no harm
    if (!path_.empty())
        std::filesystem::remove(WideToPath(path_), error);
}

bool ScratchFile::Make()
{
    return !path_.empty() || MakeTempPath(path_, u".f32");
}

bool WaveSink::Open(const std::u16string& path)
{
    buffer_.clear();
    buffer_.reserve(kBufferFloats);
    return file_.Open(path, FileMode::Create) || Fail(u"Could not create file");
}

bool WaveSink::Put(SynthEngine::Block block)
{
    const float peak = std::max(PeakOf(block.data()), PeakOf(block.data() + kBlockFrames));
    peak_ = std::max(peak_, peak);
    if (peak >= kSilence)
        for (std::size_t i = 0; i < block.size(); ++i)
            if (std::abs(block[i]) >= kSilence) {
                lastLoud_ = frames_ + i / kChannels;
                if (!isLoud_)
                    firstLoud_ = lastLoud_;
                isLoud_ = true;
            }
    frames_ += kBlockFrames;
    buffer_.insert(buffer_.end(), block.begin(), block.end());
    return buffer_.size() + block.size() <= kBufferFloats || Flush();
}

bool WaveSink::Flush()
{
    const bool good = file_.WriteAll(std::as_bytes(std::span(buffer_)));
    buffer_.clear();
    return good || Fail(u"Writing to file failed");
}

/// Rewrites the file piece by piece.
bool WaveSink::Scale(float factor)
{
    std::uint64_t position = 0;
    const std::uint64_t end = frames_ * kFrameBytes;
    while (position < end) {
        buffer_.resize(static_cast<std::size_t>(
            std::min<std::uint64_t>(kBufferFloats, (end - position) / sizeof(float))));
        const auto bytes = std::as_writable_bytes(std::span(buffer_));
        if (!file_.Seek(position) || !file_.ReadExact(bytes))
            return Fail(u"Reading from file failed");
        for (float& sample : buffer_)
            sample *= factor;
        if (!file_.Seek(position) || !file_.WriteAll(bytes))
            return Fail(u"Writing to file failed");
        position += bytes.size();
    }
    return true;
}

bool WaveSink::Describe(Waveform& wave, unsigned rateHz, const Finish& finish)
{
    if (!Flush())
        return false;
    const float factor = !finish.normalizePeak ? finish.gain : peak_ > 0 ? 1 / peak_ : 1;
    if (factor != 1 && !Scale(factor))
        return false;
    const std::u16string path = file_.Path();
    file_.Close();
    const bool trims = finish.trimSilence && isLoud_;
    const std::uint64_t first = trims ? firstLoud_ : 0;
    const std::uint64_t frames = trims ? lastLoud_ + 1 - firstLoud_ : frames_;
    if (frames > std::numeric_limits<std::uint32_t>::max())
        return Fail(u"The sound is too long for one waveform");
    wave.SetSourceFormat(DataFormat::Float32,
                         std::endian::native == std::endian::little ? 0 : kSourceBigEndian);
    wave.saveFormat = SaveFormat::Default;
    wave.rateHz = rateHz;
    wave.channels = kChannels;
    wave.frames = static_cast<std::uint32_t>(frames);
    wave.SetText(kTextSourcePath, path);
    wave.sourceOffset = first * kFrameBytes;
    wave.sourceBytes = frames * kFrameBytes;
    return true;
}

} // namespace vimbo::synth
