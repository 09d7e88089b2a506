// ASCII text audio: what was counted can be loaded, in one go and in pieces, and what is written reads back
// alike.
#include "base/file_object.h"
#include "formats/raw/raw.h"

#include <cstdlib>
#include <cstring>

namespace {

using namespace vimbo;

void Require(bool condition)
{
    if (!condition)
        std::abort();
}

/// Reads and loads; null if the text is refused.
Waveform* LoadText(Collection& collection, std::span<const std::byte> text)
{
    MemoryFile file(text);
    if (!ReadAsciiAudio(collection, file, 0))
        return nullptr;
    Waveform& wave = *collection.All<Waveform>().begin();
    Require(file.Seek(wave.sourceOffset) && wave.importProc->load(wave, file));
    return &wave;
}

void CheckStream(Waveform& wave, std::span<const std::byte> text)
{
    const auto source = wave.importProc->stream(wave, std::make_unique<MemoryFile>(text));
    const auto whole = wave.LockSamples();
    std::vector<float> samples(whole.size());
    Require(source && source->Read(0, samples));
    Require(std::memcmp(samples.data(), whole.data(), whole.size_bytes()) == 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto text = std::as_bytes(std::span(data, size));
    const int score = DetectAsciiAudio(text, 0, size);
    Require(score == 2 || score == 4);
    Collection collection;
    Waveform* wave = LoadText(collection, text);
    if (wave == nullptr)
        return 0;
    CheckStream(*wave, text);

    MemoryFile written;
    FormatChoice choice{0x300055, 0, 0};
    Require(WriteAsciiAudio(*wave, written, choice));
    Collection second;
    const Waveform* back = LoadText(second, written.Bytes());
    Require(back && back->frames == wave->frames && back->channels == wave->channels &&
            back->rateHz == wave->rateHz);
    return 0;
}
