// Any bytes as an Ogg Vorbis file, their page checksums put right: read, and fetch the samples whole and in
// pieces.
#include "formats/xiph/xiph.h"
#include "model/consistency.h"

#include <ogg/ogg.h>

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

/// Without this nearly every change would stop at the checksum.
void MendPages(std::span<unsigned char> bytes)
{
    constexpr std::size_t kHeadBytes = 27;
    while (bytes.size() >= kHeadBytes && std::equal(bytes.begin(), bytes.begin() + 4, "OggS")) {
        const std::size_t headBytes = kHeadBytes + bytes[26];
        std::size_t bodyBytes = 0;
        for (std::size_t i = kHeadBytes; i < headBytes && i < bytes.size(); ++i)
            bodyBytes += bytes[i];
        if (headBytes + bodyBytes > bytes.size())
            return;
        ogg_page page{bytes.data(), static_cast<long>(headBytes), bytes.data() + headBytes,
                      static_cast<long>(bodyBytes)};
        ogg_page_checksum_set(&page);
        bytes = bytes.subspan(headBytes + bodyBytes);
    }
}

void CheckStream(const Waveform& wave, std::span<const std::byte> bytes, std::span<const float> whole)
{
    constexpr std::uint32_t kPieceFrames = 5000;
    const auto source = wave.importProc->stream(wave, std::make_unique<MemoryFile>(bytes));
    Require(source != nullptr && source->Frames() == wave.frames && source->Channels() == wave.channels);
    std::vector<float> piece;
    for (std::uint32_t first = 0; first < wave.frames; first += kPieceFrames) {
        piece.resize(std::size_t{std::min(kPieceFrames, wave.frames - first)} * wave.channels);
        Require(source->Read(first, piece));
        Require(piece.size() <= whole.size());
    }
    static_cast<void>(source->Read(wave.frames / 2, std::span(piece).first(wave.channels)));
}

void ReadBytes(std::span<const std::byte> bytes)
{
    constexpr std::uint32_t kMostFrames = 1u << 20;
    MemoryFile file(bytes);
    Collection items;
    if (!ReadOgg(items, file, 0)) {
        Require(items.CountOf(ItemKind::Waveform) == 0);
        return;
    }
    Waveform& wave = *items.List<Waveform>().front();
    wave.frames = std::min(wave.frames, kMostFrames);
    wave.Validate();
    Require(IsConsistent(items));
    if (file.Seek(wave.sourceOffset) && wave.importProc->load(wave, file))
        CheckStream(wave, bytes, wave.LockSamples());
}

} // namespace
} // namespace vimbo

/// libvorbisfile loses some bytes when a chained stream cannot be opened (its issue 125).
extern "C" const char* __lsan_default_suppressions()
{
    return "leak:libvorbisfile.so";
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::vector<unsigned char> mended(data, data + size);
    vimbo::MendPages(mended);
    const auto bytes = std::as_bytes(std::span(mended));
    vimbo::ReadBytes(bytes);
    vimbo::Require(vimbo::DetectOgg(bytes, 0, size) >= 0);
    return 0;
}
