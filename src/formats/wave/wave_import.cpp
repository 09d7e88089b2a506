// Fetching the samples of WAV files that the general loader of plain samples cannot read: more than two
// channels, odd widths, and the coded families. The `fmt ` chunk is read again, so that nothing but its place
// need be remembered.
#include "base/last_error.h"
#include "dsp/kernels/sample_convert.h"
#include "formats/mpeg/mpeg.h"
#include "formats/wave/wave.h"
#include "formats/wave/wave_codecs.h"
#include "formats/wave/wave_format.h"
#include "formats/wave/wave_records.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <vector>

namespace vimbo {
namespace {

constexpr std::uint64_t kPieceBytes = 256 * 1024;

bool FailReading() noexcept
{
    return Fail(u"Reading from file failed");
}

std::endian OrderOf(const Waveform& wave) noexcept
{
    return (wave.sourceWord & kSourceBigEndian) != 0 ? std::endian::big : std::endian::little;
}

/// Reads the waveform's `fmt ` chunk again, and checks that it is still the one that described the waveform.
bool RereadFormat(const Waveform& wave, FileObject& file, WaveFormat& format, std::vector<std::byte>& body)
{
    RiffChunkHead head;
    if (wave.formatOffset < sizeof(head) || !file.Seek(wave.formatOffset - sizeof(head)) || !file.Read(head))
        return FailReading();
    if (OrderOf(wave) == std::endian::big)
        std::ranges::reverse(std::as_writable_bytes(std::span(&head.size, 1)));
    body.resize(std::min<std::size_t>(head.size.Get(), kFmtBytesRead));
    if (!file.ReadExact(body))
        return FailReading();
    if (!ParseWaveFormat(body, OrderOf(wave), format))
        return false;
    return format.KeptChannels() == wave.channels || FailReading();
}

/// Linear samples of any width and number of channels: the first two channels of each frame, and of samples
/// wider than 32 bits their top.
class LinearFrames final : public FrameSource {
public:
    /// @param owned null if the caller keeps the file open as long as this lives
    LinearFrames(const Waveform& wave, const WaveFormat& format, FileObject& file,
                 std::unique_ptr<FileObject> owned)
        : FrameSource(wave.frames, wave.channels), file_(file), owned_(std::move(owned)),
          offset_(wave.sourceOffset), order_(OrderOf(wave)), frameBytes_(format.FrameBytes()),
          sampleBytes_(format.SampleBytes()),
          keptBytes_(format.family == WaveFamily::Float ? sampleBytes_
                                                        : std::min<std::uint64_t>(sampleBytes_, 4)),
          layout_{format.LinearCoding(), format.LinearCoding() == SampleCoding::Pcm8, order_}
    {
    }

    bool Read(std::uint32_t first, std::span<float> out) override
    {
        const std::uint64_t most = std::max<std::uint64_t>(kPieceBytes / frameBytes_, 1);
        std::uint64_t frame = first;
        while (!out.empty()) {
            const std::size_t frames =
                static_cast<std::size_t>(std::min<std::uint64_t>(most, out.size() / Channels()));
            if (!ReadPiece(frame, out.first(frames * Channels())))
                return false;
            out = out.subspan(frames * Channels());
            frame += frames;
        }
        return true;
    }

private:
    /// One piece: whole frames, or of a single frame that is larger than a piece the channels that are kept.
    bool ReadPiece(std::uint64_t frame, std::span<float> out)
    {
        const std::size_t frames = out.size() / Channels();
        const std::uint64_t wanted = frames > 1 ? frames * frameBytes_ : Channels() * sampleBytes_;
        raw_.resize(static_cast<std::size_t>(wanted));
        if (!file_.Seek(offset_ + frame * frameBytes_) || !file_.ReadExact(raw_))
            return FailReading();
        Compact(frames);
        DeltaState none;
        DecodeSamples(layout_, kept_, out, none);
        return true;
    }

    /// Gathers the kept samples of each frame into kept_.
    void Compact(std::size_t frames)
    {
        // The top of a sample is its end in little-endian files, its start in the others.
        const std::uint64_t top = order_ == std::endian::little ? sampleBytes_ - keptBytes_ : 0;
        kept_.resize(static_cast<std::size_t>(frames * Channels() * keptBytes_));
        std::byte* to = kept_.data();
        for (std::size_t i = 0; i < frames; ++i) {
            for (unsigned channel = 0; channel < Channels(); ++channel) {
                const auto from = static_cast<std::size_t>(i * frameBytes_ + channel * sampleBytes_ + top);
                std::memcpy(to, &raw_[from], static_cast<std::size_t>(keptBytes_));
                to += keptBytes_;
            }
        }
    }

    FileObject& file_;
    std::unique_ptr<FileObject> owned_;
    std::uint64_t offset_;
    std::endian order_;
    std::uint64_t frameBytes_;
    std::uint64_t sampleBytes_;
    std::uint64_t keptBytes_;
    SampleLayout layout_;
    std::vector<std::byte> raw_;
    std::vector<std::byte> kept_;
};

/// True if the file really holds the data of all the waveform's frames.
bool HoldsAllFrames(const Waveform& wave, const WaveFormat& format, const FileObject& file) noexcept
{
    const std::uint64_t size = file.Size();
    if (wave.sourceOffset > size)
        return false;
    const std::uint64_t held = std::min(wave.sourceBytes, size - wave.sourceOffset);
    return wave.frames <= held / format.FrameBytes();
}

bool LoadLinear(Waveform& wave, const WaveFormat& format, FileObject& file)
{
    if (wave.frames == 0)
        return Fail(u"Zero length");
    if (!HoldsAllFrames(wave, format, file))
        return FailReading();
    LinearFrames frames(wave, format, file, nullptr);
    return LoadFrames(wave, frames);
}

std::unique_ptr<FrameSource> StreamLinear(const Waveform& wave, const WaveFormat& format,
                                          std::unique_ptr<FileObject> file)
{
    FileObject& opened = *file;
    if (HoldsAllFrames(wave, format, opened))
        return std::make_unique<LinearFrames>(wave, format, opened, std::move(file));
    FailReading();
    return nullptr;
}

bool LoadWave(Waveform& wave, FileObject& file)
{
    WaveFormat format;
    std::vector<std::byte> body;
    if (!RereadFormat(wave, file, format, body))
        return false;
    if (format.IsLinear())
        return LoadLinear(wave, format, file);
    if (format.IsMpeg())
        return LoadMpeg(wave, file, wave.sourceOffset, wave.sourceBytes);
    WaveStream stream;
    return SettleWaveStream(wave, format, body, stream) &&
           LoadCodedStream(wave, file, stream.offset, stream.bytes, stream.restart);
}

std::unique_ptr<FrameSource> StreamWave(const Waveform& wave, std::unique_ptr<FileObject> file)
{
    WaveFormat format;
    std::vector<std::byte> body;
    if (file == nullptr || !RereadFormat(wave, *file, format, body))
        return nullptr;
    if (format.IsLinear())
        return StreamLinear(wave, format, std::move(file));
    if (format.IsMpeg())
        return StreamMpeg(wave, std::move(file), wave.sourceOffset, wave.sourceBytes);
    WaveStream stream;
    if (!SettleWaveStream(wave, format, body, stream))
        return nullptr;
    FileObject& opened = *file;
    return std::make_unique<CodedFrames>(wave, stream.offset, stream.bytes, std::move(stream.restart), opened,
                                         std::move(file));
}

} // namespace

const ImportProcedure kWaveImport{2, LoadWave, StreamWave};

} // namespace vimbo
