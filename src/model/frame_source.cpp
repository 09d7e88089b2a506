#include "model/frame_source.h"

#include "base/last_error.h"
#include "dsp/kernels/sample_convert.h"

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

namespace vimbo {
namespace {

constexpr std::size_t kPieceFrames = 8192; ///< bytes and floats of a piece stay in the cache

/// Mono from stereo, or stereo from mono, a piece at a time.
class ConvertedSource final : public FrameSource {
public:
    ConvertedSource(std::unique_ptr<FrameSource> source, unsigned channels)
        : FrameSource(source->Frames(), channels), source_(std::move(source)),
          piece_(kPieceFrames * source_->Channels())
    {
    }

    bool Read(std::uint32_t first, std::span<float> out) override
    {
        while (!out.empty()) {
            const std::size_t frames = std::min(kPieceFrames, out.size() / Channels());
            const auto piece = std::span(piece_).first(frames * source_->Channels());
            if (frames == 0 || !source_->Read(first, piece))
                return false;
            if (Channels() == 1)
                AverageToMono(piece, out.first(frames));
            else
                DuplicateToStereo(piece, out.first(2 * frames));
            out = out.subspan(frames * Channels());
            first += static_cast<std::uint32_t>(frames);
        }
        return true;
    }

private:
    std::unique_ptr<FrameSource> source_;
    std::vector<float> piece_;
};

} // namespace

bool FrameSource::ReadStored(const SampleLayout& layout, std::uint32_t first, std::span<std::byte> out)
{
    const auto frameBytes = static_cast<std::size_t>(StoredBytes(layout.coding, channels_));
    DeltaState none;
    while (!out.empty()) {
        const std::size_t frames = std::min(kPieceFrames, out.size() / frameBytes);
        piece_.resize(frames * channels_);
        if (frames == 0 || !Read(first, piece_))
            return false;
        EncodeSamples(layout, piece_, out.first(frames * frameBytes), none);
        out = out.subspan(frames * frameBytes);
        first += static_cast<std::uint32_t>(frames);
    }
    return true;
}

bool SurvivesFloats(SampleCoding coding) noexcept
{
    return coding == SampleCoding::Pcm8 || coding == SampleCoding::Pcm16 || coding == SampleCoding::Pcm24;
}

std::unique_ptr<FrameSource> WithChannels(std::unique_ptr<FrameSource> source, unsigned channels)
{
    if (source == nullptr || source->Channels() == channels)
        return source;
    if (source->Channels() + channels != 3) { // anything but one of them mono and the other stereo
        Fail(channels == 0 || source->Channels() == 0 ? u"No channels" : u"Too many channels");
        return nullptr;
    }
    return std::make_unique<ConvertedSource>(std::move(source), channels);
}

} // namespace vimbo
