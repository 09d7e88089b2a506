// Any bytes as an AIFF file: read, fetch the samples whole and in pieces, write, and read what was written;
// and any bytes as an ID3 tag.
#include "formats/aiff/aiff.h"
#include "formats/texts/id3.h"
#include "model/consistency.h"

#include <algorithm>
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
    for (const std::uint32_t first : {wave.frames / 2, wave.frames / 3}) {
        std::vector<float> part(std::size_t{wave.frames - first} * wave.channels);
        Require(source->Read(first, part));
        Require(std::memcmp(part.data(), whole.last(part.size()).data(), part.size() * sizeof(float)) == 0);
    }
}

void CheckWritten(Waveform& wave, std::uint8_t pick)
{
    static constexpr DataFormat kFormats[] = {DataFormat::Pcm8, DataFormat::Pcm16, DataFormat::Pcm24,
                                              DataFormat::Pcm32};
    FormatChoice choice{.caps = FormatBit(kFormats[pick & 3]) | kCapsMono | kCapsStereo};
    MemoryFile written;
    Require(WriteAiff(wave, written, choice));
    Collection again;
    Require(ReadAiff(again, written, 0));
    Waveform& back = *again.List<Waveform>().front();
    Require(back.channels == wave.channels && back.frames == wave.frames && back.rateHz == wave.rateHz);
    Require(back.rootKey == wave.rootKey && back.fineTune == wave.fineTune);
    const auto rounded = [](double frame) { return static_cast<std::uint32_t>(frame + 0.5); };
    if (wave.loop.type != LoopType::Off && rounded(wave.loop.start) < rounded(wave.loop.end))
        Require(back.loop.start == rounded(wave.loop.start) && back.loop.end == rounded(wave.loop.end));
}

void ReadBytes(std::span<const std::byte> bytes)
{
    MemoryFile file(bytes);
    Collection items;
    if (!ReadAiff(items, file, 0)) {
        Require(items.CountOf(ItemKind::Waveform) == 0);
        return;
    }
    Require(IsConsistent(items));
    Waveform& wave = *items.List<Waveform>().front();
    Require(wave.frames <= bytes.size() * kMacePacketFrames);
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
    for (const auto detect : {vimbo::DetectAiff, vimbo::DetectAifc, vimbo::DetectMaud})
        vimbo::Require(detect(bytes, 0, size) >= 0);
    vimbo::Collection items;
    vimbo::ReadId3Texts(bytes, u"", items);
    return 0;
}
