// Recognising WAV files and their relatives by their first bytes.
#include "base/byte_reader.h"
#include "formats/wave/wave.h"
#include "formats/wave/wave_records.h"

namespace vimbo {
namespace {

constexpr int kSure = 6;
constexpr int kClue = 4;
constexpr int kWeak = 2;

/// Steps past the head of a form; false if it is no "WAVE" form.
bool ReadFormHead(ByteReader& in, FourCc& id) noexcept
{
    RiffFormHead form;
    if (!in.Read(form) || form.type != FourCc{"WAVE"})
        return false;
    id = form.chunk.id;
    return true;
}

bool IsRiffWave(ByteReader& in) noexcept
{
    FourCc id;
    return ReadFormHead(in, id) && (id == FourCc{"RIFF"} || id == FourCc{"RF64"});
}

} // namespace

int DetectWave(std::span<const std::byte> head, std::uint32_t /*variant*/,
               std::uint64_t /*fileSize*/) noexcept
{
    ByteReader in(head);
    FourCc id;
    if (!ReadFormHead(in, id))
        return 0;
    const bool isKnown =
        id == FourCc{"RIFF"} || id == FourCc{"RF64"} || id == FourCc{"BW64"} || id == FourCc{"RIFX"};
    return isKnown ? kSure : 0;
}

int DetectBroadcastWave(std::span<const std::byte> head, std::uint32_t /*variant*/,
                        std::uint64_t /*fileSize*/) noexcept
{
    constexpr int kChunksSearched = 4;
    ByteReader in(head);
    if (!IsRiffWave(in))
        return 0;
    RiffChunkHead chunk;
    for (int i = 0; i < kChunksSearched && in.Read(chunk); ++i) {
        if (chunk.id == FourCc{"bext"})
            return kSure;
        const std::uint64_t padded = (std::uint64_t{chunk.size.Get()} + 1) & ~std::uint64_t{1};
        if (chunk.id == FourCc{"data"} || !in.Skip(padded))
            break;
    }
    return kWeak;
}

int DetectRockwellWave(std::span<const std::byte> head, std::uint32_t /*variant*/,
                       std::uint64_t /*fileSize*/) noexcept
{
    constexpr std::uint16_t kRockwellTag = 768;
    ByteReader in(head);
    RiffChunkHead format;
    U16le tag;
    const bool isTagged = IsRiffWave(in) && in.Read(format) && in.Read(tag) && tag.Get() == kRockwellTag;
    return isTagged ? kSure : 0;
}

int DetectSmartSound(std::span<const std::byte> head, std::uint32_t /*variant*/,
                     std::uint64_t /*fileSize*/) noexcept
{
    ByteReader in(head);
    FourCc id;
    return ReadFormHead(in, id) && id == FourCc{"SDSS"} ? kClue : 0;
}

} // namespace vimbo
