#include "formats/xiph/riff_blocks.h"

#include "base/byte_reader.h"
#include "formats/wave/wave.h"
#include "formats/wave/wave_records.h"

#include <limits>
#include <utility>

namespace vimbo {
namespace {

/// One chunk, its body cut to what is there.
struct Chunk {
    FourCc id;
    std::span<const std::byte> body;
};

bool TakeChunk(ByteReader& in, Chunk& chunk) noexcept
{
    RiffChunkHead head;
    if (!in.Read(head))
        return false;
    chunk.id = head.id;
    const std::uint64_t size = std::min<std::uint64_t>(head.size.Get(), in.Left());
    if (!in.Take(size, chunk.body))
        return false;
    static_cast<void>(in.Skip(size & 1)); // the last chunk may lack its pad byte
    return true;
}

void PutChunk(ByteWriter& out, const Chunk& chunk)
{
    out.Write(RiffChunkHead{chunk.id, static_cast<std::uint32_t>(chunk.body.size())});
    out.Append(chunk.body);
    out.Fill(chunk.body.size() & 1);
}

/// `fmt ` of linear samples.
struct FmtPcm {
    FmtCommon common;
    U16le bits;
};
static_assert(DiskRecord<FmtPcm> && sizeof(FmtPcm) == 16);

FmtPcm MakeFmt(std::uint32_t rateHz, unsigned channels, unsigned bits)
{
    const unsigned frameBytes = channels * ((bits + 7) / 8);
    FmtPcm fmt;
    fmt.common.tag = std::uint16_t{1};
    fmt.common.channels = static_cast<std::uint16_t>(channels);
    fmt.common.rateHz = rateHz;
    fmt.common.averageBytes = rateHz * frameBytes;
    fmt.common.blockAlign = static_cast<std::uint16_t>(frameBytes);
    fmt.bits = static_cast<std::uint16_t>(bits);
    return fmt;
}

void PutFmt(ByteWriter& out, const FmtPcm& fmt)
{
    PutChunk(out, {FourCc{"fmt "}, std::as_bytes(std::span(&fmt, 1))});
}

bool DescribesSamples(const FourCc& id) noexcept
{
    return id == FourCc{"fmt "} || id == FourCc{"data"} || id == FourCc{"ds64"};
}

/// A WAV image without samples that holds the chunks of the blocks.
ByteWriter MakeImage(const RiffBlocks& blocks, const Waveform& wave)
{
    ByteWriter chunks;
    PutFmt(chunks, MakeFmt(wave.rateHz, 1, 16));
    PutChunk(chunks, {FourCc{"data"}, {}});
    for (const std::vector<std::byte>& block : blocks) {
        ByteReader in(block);
        Chunk chunk;
        const bool isChunk = TakeChunk(in, chunk) && chunk.id != FourCc{"RIFF"} && chunk.id != FourCc{"RF64"};
        if (isChunk && !DescribesSamples(chunk.id))
            PutChunk(chunks, chunk);
    }
    ByteWriter image;
    image.Write(RiffChunkHead{FourCc{"RIFF"}, static_cast<std::uint32_t>(sizeof(FourCc) + chunks.Size())});
    image.Write(FourCc{"WAVE"});
    image.Append(chunks.Bytes());
    return image;
}

/// The chunks of a WAV file without samples that say what the waveform says beside them.
ByteWriter WriteImage(const Waveform& wave)
{
    Collection scratch;
    auto& model = scratch.Create<Waveform>(u"");
    model.rateHz = wave.rateHz;
    model.rootKey = wave.rootKey;
    model.fineTune = wave.fineTune;
    model.loop = wave.loop;
    model.markers = wave.markers;
    FormatChoice choice{.caps = FormatBit(DataFormat::Pcm16) | kCapsMono, .variant = kWaveVariantPlain};
    MemoryFile file;
    ByteWriter image;
    if (WriteWave(model, file, choice))
        image.Append(file.Bytes());
    return image;
}

/// The texts stand in comments already.
bool IsInfo(const Chunk& chunk) noexcept
{
    FourCc type;
    return chunk.id == FourCc{"LIST"} && ByteReader(chunk.body).Read(type) && type == FourCc{"INFO"};
}

bool SaysAnything(const Waveform& wave) noexcept
{
    return wave.loop.type != LoopType::Off || wave.rootKey != 60 || wave.fineTune != 0 ||
           !wave.markers.empty();
}

} // namespace

void ApplyRiffBlocks(const RiffBlocks& blocks, Waveform& wave)
{
    if (blocks.empty())
        return;
    MemoryFile file(MakeImage(blocks, wave).Bytes());
    Collection scratch;
    auto& read = scratch.Create<Waveform>(wave.GetName());
    if (!ReadWaveRange(read, file, 0, file.Size()))
        return;
    wave.rootKey = read.rootKey;
    wave.fineTune = read.fineTune;
    wave.volume = read.volume;
    wave.loop = read.loop;
    wave.markers = read.markers;
    for (std::uint16_t id = kTextName; id <= kTextProduct; ++id) {
        if (read.HasText(id))
            wave.SetText(id, read.GetText(id));
    }
}

RiffBlocks MakeRiffBlocks(const Waveform& wave, unsigned channels, unsigned bits, std::uint64_t frames)
{
    const std::uint64_t dataBytes = frames * channels * ((bits + 7) / 8);
    if (!SaysAnything(wave) || dataBytes > std::numeric_limits<std::uint32_t>::max() / 2)
        return {};
    const ByteWriter image = WriteImage(wave);
    ByteReader in(image.Bytes());
    std::vector<Chunk> kept;
    Chunk chunk;
    std::uint64_t keptBytes = 0;
    for (bool more = in.Skip(sizeof(RiffFormHead)); more && TakeChunk(in, chunk);) {
        if (DescribesSamples(chunk.id) || IsInfo(chunk))
            continue;
        kept.push_back(chunk);
        keptBytes += sizeof(RiffChunkHead) + chunk.body.size() + (chunk.body.size() & 1);
    }
    const std::uint64_t formBytes =
        sizeof(FourCc) + 2 * sizeof(RiffChunkHead) + sizeof(FmtPcm) + dataBytes + (dataBytes & 1) + keptBytes;
    RiffBlocks blocks;
    ByteWriter block;
    const auto finish = [&] { blocks.push_back(std::exchange(block, ByteWriter()).Release()); };
    block.Write(RiffFormHead{{FourCc{"RIFF"}, static_cast<std::uint32_t>(formBytes)}, FourCc{"WAVE"}});
    finish();
    PutFmt(block, MakeFmt(wave.rateHz, channels, bits));
    finish();
    block.Write(RiffChunkHead{FourCc{"data"}, static_cast<std::uint32_t>(dataBytes)});
    finish();
    for (const Chunk& each : kept) {
        PutChunk(block, each);
        finish();
    }
    return blocks;
}

} // namespace vimbo
