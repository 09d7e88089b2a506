// Any bytes as a WAV file: read, fetch the samples whole and in pieces, write, and read what was written.
#include "formats/wave/wave.h"
#include "model/consistency.h"

#include <cstdlib>
#include <cstring>
#include <vector>

namespace vimbo {
namespace {

void Require(bool condition)
{
    if (!condition)
        std::abort();
}

/// Pieces give the same frames as the whole.
void CheckStream(const Waveform& wave, std::span<const std::byte> bytes, std::span<const float> whole)
{
    const auto source = wave.importProc->stream(wave, std::make_unique<MemoryFile>(bytes));
    Require(source != nullptr && source->Frames() == wave.frames && source->Channels() == wave.channels);
    const std::uint32_t first = wave.frames / 2;
    std::vector<float> part(std::size_t{wave.frames - first} * wave.channels);
    Require(source->Read(first, part));
    Require(std::memcmp(part.data(), whole.last(part.size()).data(), part.size() * sizeof(float)) == 0);
}

void CheckWritten(Waveform& wave, std::uint8_t pick)
{
    static constexpr DataFormat kFormats[] = {DataFormat::Pcm8, DataFormat::Pcm24, DataFormat::Float32,
                                              DataFormat::ALaw};
    static constexpr std::uint32_t kVariants[] = {kWaveVariantPlain, kWaveVariantExtensible,
                                                  kWaveVariantCreamware, kWaveVariantSmplFirst};
    const std::uint32_t variant = kVariants[pick >> 2 & 3];
    const DataFormat format = variant == kWaveVariantExtensible ? DataFormat::Pcm16 : kFormats[pick & 3];
    FormatChoice choice{.caps = FormatBit(format) | kCapsMono | kCapsStereo, .variant = variant};
    MemoryFile written;
    Require(WriteWave(wave, written, choice));
    Collection again;
    Require(ReadWave(again, written, 0));
    Require(again.List<Waveform>().front()->channels == wave.channels);
    Require(again.List<Waveform>().front()->frames >= wave.frames); // 8-bit data counts its pad byte
}

void ReadBytes(std::span<const std::byte> bytes)
{
    MemoryFile file(bytes);
    Collection items;
    if (!ReadWave(items, file, 0)) {
        Require(items.CountOf(ItemKind::Waveform) == 0);
        return;
    }
    Require(IsConsistent(items));
    Waveform& wave = *items.List<Waveform>().front();
    if (!file.Seek(wave.sourceOffset) || !wave.importProc->load(wave, file))
        return;
    CheckStream(wave, bytes, wave.LockSamples());
    wave.Validate();
    CheckWritten(wave, std::to_integer<std::uint8_t>(bytes.back()));
}

} // namespace
} // namespace vimbo

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto bytes = std::as_bytes(std::span(data, size));
    vimbo::ReadBytes(bytes);
    for (const auto detect : {vimbo::DetectWave, vimbo::DetectBroadcastWave, vimbo::DetectRockwellWave})
        vimbo::Require(detect(bytes, 0, size) >= 0);
    vimbo::Collection items;
    vimbo::ReadInfoTexts(bytes, items);
    return 0;
}
