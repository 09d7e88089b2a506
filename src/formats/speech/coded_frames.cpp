#include "formats/speech/coded_frames.h"

#include "base/last_error.h"
#include "model/collection.h"

#include <algorithm>

namespace vimbo {

namespace {

constexpr std::size_t kPieceBytes = 64 * 1024;
/// A claim of up to this many times what the stream can give is believed, and the rest is silence.
constexpr std::uint64_t kBelievedRatio = 4;
constexpr std::uint64_t kBelievedExtra = 65536;

/// Bytes of a piece: as many whole units as come near to kPieceBytes.
std::size_t PieceBytes(const StreamDecoder& decoder) noexcept
{
    const std::size_t unit = std::max<std::size_t>(decoder.UnitBytes(), 1);
    return std::max<std::size_t>(kPieceBytes / unit, 1) * unit;
}

} // namespace

CodedFrames::CodedFrames(const Waveform& wave, std::uint64_t offset, std::uint64_t bytes, Restart restart,
                         FileObject& file, std::unique_ptr<FileObject> owned)
    : FrameSource(wave.frames, wave.channels), file_(file), owned_(std::move(owned)), offset_(offset),
      bytes_(offset < file.Size() ? std::min(bytes, file.Size() - offset) : 0), restart_(std::move(restart))
{
    Rewind();
}

void CodedFrames::Rewind()
{
    decoder_ = restart_();
    read_ = 0;
    position_ = 0;
    taken_ = 0;
    held_ = 0;
}

/// Reads and decodes the next piece; at the end of the stream it holds nothing.
bool CodedFrames::DecodePiece()
{
    taken_ = 0;
    held_ = 0;
    const auto wanted =
        static_cast<std::size_t>(std::min<std::uint64_t>(PieceBytes(*decoder_), bytes_ - read_));
    if (wanted == 0)
        return true;
    raw_.resize(wanted);
    if (!file_.Seek(offset_ + read_) || !file_.ReadExact(raw_))
        return Fail(u"Reading from file failed");
    read_ += wanted;
    decoded_.resize(static_cast<std::size_t>(decoder_->FramesIn(wanted)) * decoder_->Channels());
    held_ = decoder_->Decode(raw_, decoded_);
    return !decoder_->IsCorrupted() || Fail(u"Corrupted GSM stream");
}

/// Hands out decoded frames, or skips them where `out` is null; returns how many.
std::size_t CodedFrames::TakeDecoded(std::span<float> out) noexcept
{
    const unsigned from = decoder_->Channels();
    const unsigned to = Channels();
    const std::size_t frames = std::min(held_ - taken_, out.size() / to);
    const float* samples = decoded_.data() + taken_ * from;
    if (from == to) {
        std::copy_n(samples, frames * to, out.data());
    } else {
        for (std::size_t i = 0; i < frames; ++i) {
            for (unsigned channel = 0; channel < to; ++channel)
                out[i * to + channel] = samples[i * from + std::min(channel, from - 1)];
        }
    }
    taken_ += frames;
    position_ += frames;
    return frames;
}

bool CodedFrames::Read(std::uint32_t first, std::span<float> out)
{
    if (first < position_)
        Rewind();
    while (!out.empty()) {
        if (taken_ == held_) {
            if (!DecodePiece())
                return false;
            if (held_ == 0 && read_ == bytes_) {
                std::ranges::fill(out, 0.0f);
                return true;
            }
        }
        if (position_ < first) { // frames ahead of those asked for
            const auto skipped =
                static_cast<std::size_t>(std::min<std::uint64_t>(first - position_, held_ - taken_));
            taken_ += skipped;
            position_ += skipped;
            continue;
        }
        const std::size_t frames = TakeDecoded(out);
        out = out.subspan(frames * Channels());
        first += static_cast<std::uint32_t>(frames);
    }
    return true;
}

bool LoadCodedStream(Waveform& wave, FileObject& file, std::uint64_t offset, std::uint64_t bytes,
                     const CodedFrames::Restart& restart)
{
    if (wave.frames == 0)
        return Fail(u"Zero length");
    const std::uint64_t held = offset < file.Size() ? std::min(bytes, file.Size() - offset) : 0;
    const std::uint64_t possible = restart()->FramesIn(held);
    if (wave.frames > possible * kBelievedRatio + kBelievedExtra) {
        wave.frames = static_cast<std::uint32_t>(possible);
        if (wave.frames == 0)
            return Fail(u"Reading from file failed");
        NormalizeLoop(wave.loop, wave.frames, wave.Owner().features);
    }
    CodedFrames frames(wave, offset, bytes, restart, file, nullptr);
    return LoadFrames(wave, frames);
}

} // namespace vimbo
