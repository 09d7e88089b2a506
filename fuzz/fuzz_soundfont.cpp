// Any bytes as a SoundFont bank of each kind: read, put in order, and fetch the samples whole and in pieces.
#include "formats/soundfont/soundfont.h"
#include "model/consistency.h"
#include "model/fix_up.h"
#include "model/waveform.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace vimbo {
namespace {

constexpr std::uint32_t kMostFrames = 1u << 20;

void Require(bool condition)
{
    if (!condition)
        std::abort();
}

/// Pieces give the same frames as the whole, where the coding is exact.
void CheckSamples(Waveform& wave, std::span<const std::byte> bytes)
{
    MemoryFile file(bytes);
    if (wave.frames > kMostFrames || !file.Seek(wave.sourceOffset) || !wave.importProc->load(wave, file))
        return;
    const std::span<const float> whole = wave.LockSamples();
    const auto source = wave.importProc->stream(wave, std::make_unique<MemoryFile>(bytes));
    Require(source != nullptr && source->Frames() == wave.frames && source->Channels() == wave.channels);
    const std::uint32_t first = wave.frames / 2;
    std::vector<float> part(std::size_t{wave.frames - first} * wave.channels);
    const bool isPlain = wave.HasGenericImport() || wave.importProc == &kSm24Import;
    if (!source->Read(first, part)) {
        Require(!isPlain);
        return;
    }
    Require(!isPlain ||
            std::memcmp(part.data(), whole.last(part.size()).data(), part.size() * sizeof(float)) == 0);
}

void ReadBytes(std::span<const std::byte> bytes, std::uint32_t variant)
{
    MemoryFile file(bytes);
    Collection items;
    if (!ReadSoundFont(items, file, variant))
        return;
    Require(IsConsistent(items));
    const std::size_t most = 16;
    std::vector<Waveform*> waves = items.List<Waveform>();
    waves.resize(std::min(waves.size(), most));
    for (Waveform* wave : waves)
        CheckSamples(*wave, bytes);
    FixUpItems(items, kPruneAll, AfterLoad::Yes);
    Require(IsConsistent(items));
}

} // namespace
} // namespace vimbo

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto bytes = std::as_bytes(std::span(data, size));
    for (const std::uint32_t variant : {vimbo::kSoundFont1, vimbo::kSoundFont2, vimbo::kSoundFontPacked}) {
        vimbo::Require(vimbo::DetectSoundFont(bytes, variant, size) >= 0);
        vimbo::ReadBytes(bytes, variant);
    }
    vimbo::Require(vimbo::DetectSfArk(bytes, 0, size) >= 0);
    return 0;
}
