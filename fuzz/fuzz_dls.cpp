// Any bytes as a DLS bank: read, put in order, fetch samples, and write what was read at each level. What is
// written can be read.
#include "formats/dls/dls.h"
#include "model/consistency.h"
#include "model/fix_up.h"
#include "model/waveform.h"

#include <cstdlib>
#include <vector>

namespace vimbo {
namespace {

constexpr std::uint32_t kMostFrames = 1u << 18;
constexpr std::size_t kMostWaves = 16;

void Require(bool condition)
{
    if (!condition)
        std::abort();
}

/// Samples into memory, as the file has no path; false if some can't be had.
bool LoadSamples(Collection& items, std::span<const std::byte> bytes)
{
    const std::vector<Waveform*> waves = items.List<Waveform>();
    if (waves.size() > kMostWaves)
        return false;
    for (Waveform* wave : waves) {
        MemoryFile file(bytes);
        if (wave->frames > kMostFrames || !file.Seek(wave->sourceOffset) ||
            !wave->importProc->load(*wave, file))
            return false;
        static_cast<void>(wave->LockSamplesForWrite());
    }
    return true;
}

void WriteAndRead(Collection& items, std::uint32_t level)
{
    constexpr std::uint32_t kPcm16 = FormatBit(DataFormat::Pcm16);
    FormatChoice choice{kPcm16 | kCapsMono | kCapsDualMono, level, 0};
    MemoryFile file;
    Require(WriteDls(items, file, choice));
    Collection again;
    Require(ReadDls(again, file, 0));
    Require(IsConsistent(again));
}

void ReadBytes(std::span<const std::byte> bytes)
{
    MemoryFile file(bytes);
    Collection items;
    if (!ReadDls(items, file, 0))
        return;
    Require(IsConsistent(items));
    const bool isLoaded = LoadSamples(items, bytes);
    FixUpItems(items, kPruneAll, AfterLoad::Yes, SourceHoldsStereo::No);
    Require(IsConsistent(items));
    if (!isLoaded)
        return;
    for (const std::uint32_t level : {kDlsLevel1, kDlsLevel2, kDlsLevel2Plus})
        WriteAndRead(items, level);
}

} // namespace
} // namespace vimbo

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto bytes = std::as_bytes(std::span(data, size));
    vimbo::Require(vimbo::DetectDls(bytes, 0, size) >= 0);
    vimbo::ReadBytes(bytes);
    return 0;
}
