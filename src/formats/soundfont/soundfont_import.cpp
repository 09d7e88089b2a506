// Fetching the samples of SoundFont banks that no other loader can read: 24 bits in two places, and the one
// stream of packed banks.
#include "base/last_error.h"
#include "dsp/kernels/sample_convert.h"
#include "formats/soundfont/soundfont.h"
#include "formats/xiph/file_range.h"
#include "formats/xiph/xiph.h"

#include <algorithm>

namespace vimbo {
namespace {

constexpr std::size_t kPieceFrames = 16384;

bool FailReading() noexcept
{
    return Fail(u"Reading from file failed");
}

/// 16-bit words at one place of the file, their low bytes at another.
class SplitFrames final : public FrameSource {
public:
    /// @param owned null if the caller keeps the file open as long as this lives
    SplitFrames(const Waveform& wave, FileObject& file, std::unique_ptr<FileObject> owned)
        : FrameSource(wave.frames, 1), file_(file), owned_(std::move(owned)), words_(wave.sourceOffset),
          lowBytes_(wave.formatOffset)
    {
    }

    bool Read(std::uint32_t first, std::span<float> out) override
    {
        for (std::uint64_t frame = first; !out.empty();) {
            const auto piece = out.first(std::min(out.size(), kPieceFrames));
            if (!ReadPiece(frame, piece))
                return false;
            frame += piece.size();
            out = out.subspan(piece.size());
        }
        return true;
    }

private:
    bool ReadPiece(std::uint64_t frame, std::span<float> out)
    {
        high_.resize(out.size() * 2);
        low_.resize(out.size());
        if (!file_.Seek(words_ + frame * 2) || !file_.ReadExact(high_) || !file_.Seek(lowBytes_ + frame) ||
            !file_.ReadExact(low_))
            return FailReading();
        whole_.resize(out.size() * 3);
        for (std::size_t i = 0; i < out.size(); ++i) {
            whole_[3 * i] = low_[i];
            whole_[3 * i + 1] = high_[2 * i];
            whole_[3 * i + 2] = high_[2 * i + 1];
        }
        DeltaState none;
        DecodeSamples({SampleCoding::Pcm24, false, std::endian::little}, whole_, out, none);
        return true;
    }

    FileObject& file_;
    std::unique_ptr<FileObject> owned_;
    std::uint64_t words_;
    std::uint64_t lowBytes_;
    std::vector<std::byte> high_, low_, whole_;
};

/// Refuses what the file does not hold, before anything is allocated for it.
bool CheckSplit(const Waveform& wave, const FileObject& file)
{
    const auto holds = [size = file.Size()](std::uint64_t offset, std::uint64_t bytes) {
        return offset <= size && bytes <= size - offset;
    };
    if (wave.frames == 0)
        return Fail(u"Zero length");
    const bool isHeld =
        holds(wave.sourceOffset, std::uint64_t{wave.frames} * 2) && holds(wave.formatOffset, wave.frames);
    return (isHeld && wave.channels == 1) || FailReading();
}

bool LoadSplit(Waveform& wave, FileObject& file)
{
    if (!CheckSplit(wave, file))
        return false;
    SplitFrames frames(wave, file, nullptr);
    return LoadFrames(wave, frames);
}

std::unique_ptr<FrameSource> StreamSplit(const Waveform& wave, std::unique_ptr<FileObject> file)
{
    if (!CheckSplit(wave, *file))
        return nullptr;
    FileObject& opened = *file;
    return std::make_unique<SplitFrames>(wave, opened, std::move(file));
}

/// A part of the one stream that holds all samples of a bank.
class PackedFrames final : public FrameSource {
public:
    PackedFrames(const Waveform& wave, FileObject& file, std::unique_ptr<FileObject> owned)
        : FrameSource(wave.frames, 1), owned_(std::move(owned)),
          input_(file, wave.sourceOffset, wave.sourceBytes), start_(wave.formatOffset)
    {
    }

    /// Sees that the stream has the part's last frame.
    bool Open(const Waveform& wave)
    {
        const bool isVorbis = (wave.sourceWord & FormatBit(DataFormat::Compressed)) != 0;
        if (!(isVorbis ? OpenAs<VorbisDecoder>() : OpenAs<FlacDecoder>()))
            return false;
        if (wave.frames == 0)
            return Fail(u"Zero length");
        float last = 0;
        std::size_t got = 0;
        if (decoder_->Channels() != 1 || wave.channels != 1 || !decoder_->Seek(start_ + wave.frames - 1) ||
            !decoder_->Read(std::span(&last, 1), got) || got != 1)
            return FailReading();
        position_ = start_ + wave.frames;
        return true;
    }

    bool Read(std::uint32_t first, std::span<float> out) override
    {
        const std::uint64_t place = start_ + first;
        if (place != position_ && !decoder_->Seek(place))
            return FailReading();
        position_ = place + out.size();
        std::size_t got = 0;
        if (!decoder_->Read(out, got))
            return false;
        std::ranges::fill(out.subspan(got), 0.0f);
        return true;
    }

private:
    template <class Decoder>
    bool OpenAs()
    {
        auto decoder = std::make_unique<Decoder>();
        const bool isOpen = decoder->Open(input_);
        decoder_ = std::move(decoder);
        return isOpen;
    }

    std::unique_ptr<FileObject> owned_;
    FileRange input_;
    std::unique_ptr<PacketDecoder> decoder_;
    std::uint64_t start_;
    std::uint64_t position_ = 0; ///< of the decoder
};

bool LoadPacked(Waveform& wave, FileObject& file)
{
    PackedFrames frames(wave, file, nullptr);
    return frames.Open(wave) && LoadFrames(wave, frames);
}

std::unique_ptr<FrameSource> StreamPacked(const Waveform& wave, std::unique_ptr<FileObject> file)
{
    FileObject& opened = *file;
    auto frames = std::make_unique<PackedFrames>(wave, opened, std::move(file));
    if (!frames->Open(wave))
        return nullptr;
    return frames;
}

} // namespace

const ImportProcedure kSm24Import{9, LoadSplit, StreamSplit};
const ImportProcedure kPackedImport{19, LoadPacked, StreamPacked};

} // namespace vimbo
