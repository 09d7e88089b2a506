// Any bytes as a FLAC file: read, fetch the samples whole and in pieces, write, and read what was written.
#include "formats/xiph/comments.h"
#include "formats/xiph/xiph.h"
#include "model/consistency.h"

#include <algorithm>
#include <cstdlib>
#include <vector>

namespace vimbo {
namespace {

void Require(bool condition)
{
    if (!condition)
        std::abort();
}

/// Pieces read in order give the same samples as the whole.
void CheckStream(const Waveform& wave, std::span<const std::byte> bytes, std::span<const float> whole)
{
    constexpr std::uint32_t kPieceFrames = 1000;
    const auto source = wave.importProc->stream(wave, std::make_unique<MemoryFile>(bytes));
    Require(source != nullptr && source->Frames() == wave.frames && source->Channels() == wave.channels);
    std::vector<float> piece;
    for (std::uint32_t first = 0; first < wave.frames; first += kPieceFrames) {
        piece.resize(std::size_t{std::min(kPieceFrames, wave.frames - first)} * wave.channels);
        Require(source->Read(first, piece));
        Require(std::ranges::equal(piece, whole.subspan(std::size_t{first} * wave.channels, piece.size())));
    }
    // Back to the middle: the packets' own numbers may be false, but it must end.
    static_cast<void>(source->Read(wave.frames / 2, std::span(piece).first(wave.channels)));
}

/// A whole semitone of fine tuning comes back as the next root key.
int CentsOf(const Waveform& wave)
{
    return wave.rootKey * 100 - wave.fineTune;
}

void CheckWritten(Waveform& wave)
{
    FormatChoice choice{.caps = FormatBit(DataFormat::Pcm24) | kCapsMono | kCapsStereo};
    MemoryFile written;
    if (!WriteFlac(wave, written, choice)) // the rate may be none that the format has
        return;
    Collection again;
    Require(ReadFlac(again, written, 0));
    const Waveform& back = *again.List<Waveform>().front();
    Require(back.frames == wave.frames && back.channels == wave.channels && CentsOf(back) == CentsOf(wave));
    Require(back.markers.size() == wave.markers.size());
}

void ReadBytes(std::span<const std::byte> bytes)
{
    constexpr std::uint32_t kMostFrames = 1u << 20; // silence compresses well: do not fill the memory with it
    MemoryFile file(bytes);
    Collection items;
    if (!ReadFlac(items, file, 0)) {
        Require(items.CountOf(ItemKind::Waveform) == 0);
        return;
    }
    Waveform& wave = *items.List<Waveform>().front();
    wave.frames = std::min(wave.frames, kMostFrames);
    wave.Validate();
    Require(IsConsistent(items));
    if (!file.Seek(wave.sourceOffset) || !wave.importProc->load(wave, file))
        return;
    CheckStream(wave, bytes, wave.LockSamples());
    CheckWritten(wave);
}

} // namespace
} // namespace vimbo

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto bytes = std::as_bytes(std::span(data, size));
    vimbo::ReadBytes(bytes);
    vimbo::Require(vimbo::DetectFlac(bytes, 0, size) >= 0);
    vimbo::CoverPicker cover;
    cover.Offer(bytes);
    static_cast<void>(vimbo::ParseCommentHeader(bytes));
    return 0;
}
