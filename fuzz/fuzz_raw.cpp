// Raw rows: loading in one go, loading in pieces and writing back agree. First byte: which row.
#include "base/file_object.h"
#include "formats/format_choice.h"
#include "formats/raw/raw.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

namespace {

using namespace vimbo;

constexpr std::uint32_t kPcm16 = FormatBit(DataFormat::Pcm16);
constexpr std::array<std::uint32_t, 9> kVariants{FormatBit(DataFormat::Pcm8),
                                                 FormatBit(DataFormat::Pcm8) | kSourceUnsigned,
                                                 kPcm16,
                                                 kPcm16 | kSourceUnsigned,
                                                 kPcm16 | kSourceBigEndian,
                                                 FormatBit(DataFormat::Pcm32) | kSourceUnsigned,
                                                 FormatBit(DataFormat::Float32),
                                                 FormatBit(DataFormat::ALaw) | kRawTelephony,
                                                 FormatBit(DataFormat::MuLaw) | kRawTelephony};

void Require(bool condition)
{
    if (!condition)
        std::abort();
}

void CheckPieces(Waveform& wave, std::span<const std::byte> bytes, std::span<const float> whole)
{
    const auto source = wave.importProc->stream(wave, std::make_unique<MemoryFile>(bytes));
    Require(source != nullptr);
    std::vector<float> piece(7);
    for (std::size_t first = 0; first < whole.size(); first += piece.size()) {
        piece.resize(std::min(piece.size(), whole.size() - first));
        Require(source->Read(static_cast<std::uint32_t>(first), piece));
        Require(std::memcmp(piece.data(), whole.data() + first, piece.size() * sizeof(float)) == 0);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const std::uint32_t variant = kVariants[data[0] % kVariants.size()];
    MemoryFile file(std::as_bytes(std::span(data, size)).subspan(1));
    Collection collection;
    if (!ReadRaw(collection, file, variant))
        return 0;
    Waveform& wave = *collection.All<Waveform>().begin();
    Require(file.Seek(wave.sourceOffset) && wave.importProc->load(wave, file));
    CheckPieces(wave, file.Bytes(), wave.LockSamples());

    MemoryFile written;
    FormatChoice choice{(variant & kDataFormatMask) | kCapsMono, variant, 0};
    Require(WriteRaw(wave, written, choice));
    Require(written.Size() == wave.sourceBytes);
    const bool isExact = (variant & (FormatBit(DataFormat::Pcm8) | kPcm16)) != 0;
    if (isExact)
        Require(std::memcmp(written.Bytes().data(), file.Bytes().data(), written.Bytes().size()) == 0);
    return 0;
}
