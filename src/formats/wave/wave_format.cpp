#include "formats/wave/wave_format.h"

#include "base/byte_reader.h"
#include "base/last_error.h"
#include "formats/wave/wave.h"
#include "formats/wave/wave_chunks.h"
#include "formats/wave/wave_tags.h"

#include <algorithm>
#include <array>
#include <limits>

namespace vimbo {
namespace {

struct LinearRow {
    SampleCoding coding;
    DataFormat format;
};

constexpr std::array kLinearFormats = {
    LinearRow{SampleCoding::Pcm8, DataFormat::Pcm8},
    LinearRow{SampleCoding::Pcm16, DataFormat::Pcm16},
    LinearRow{SampleCoding::Pcm24, DataFormat::Pcm24},
    LinearRow{SampleCoding::Pcm32, DataFormat::Pcm32},
    LinearRow{SampleCoding::Float32, DataFormat::Float32},
    LinearRow{SampleCoding::Float64, DataFormat::Float64},
    LinearRow{SampleCoding::ALaw, DataFormat::ALaw},
    LinearRow{SampleCoding::MuLaw, DataFormat::MuLaw},
};

const FamilyRow& RowOf(WaveFamily family) noexcept
{
    return *std::ranges::find(kFamilies, family, &FamilyRow::family);
}

/// Reads a record in either byte order; false if the bytes end before it does.
template <DiskRecord T>
bool ReadOrdered(ByteReader& in, std::endian order, std::string_view fields, T& out) noexcept
{
    if (!in.Read(out))
        return false;
    if (order == std::endian::big)
        ReverseFields(std::as_writable_bytes(std::span(&out, 1)), fields);
    return true;
}

/// Tag 65534: the coding proper stands in a GUID.
bool ParseExtensible(ByteReader in, std::endian order, WaveFormat& out)
{
    FmtExtensible extensible;
    if (!ReadOrdered(in, order, kFmtExtensibleFields, extensible))
        return true; // the tag stays, and is then no known coding
    if (extensible.subTag.Get() > 0xFFFF || extensible.guidRest != kWaveGuidRest)
        return Fail(u"Unsupported 'Extensible' subformat GUID");
    out.tag = static_cast<std::uint16_t>(extensible.subTag.Get());
    out.containerBits = extensible.containerBits.Get();
    // Some writers leave the significant bits at zero.
    out.bits = extensible.validBits.Get() != 0 ? extensible.validBits.Get() : out.containerBits;
    return true;
}

bool IsFloatWidth(std::uint64_t bits) noexcept
{
    return bits == 32 || bits == 64;
}

/// Bits per sample, where the coding does not fix them.
bool ParseBits(ByteReader in, std::endian order, const FamilyRow& row, WaveFormat& out)
{
    if (row.fixedBits != 0) {
        out.bits = row.fixedBits;
        return true;
    }
    U16le word;
    if (out.containerBits == 0) {
        if (!ReadOrdered(in, order, "2", word)) {
            out.bits = row.family == WaveFamily::Float ? 32 : 16;
            return true;
        }
        out.bits = row.family == WaveFamily::YamahaAdpcm ? word.Get() & 0xFFu : word.Get();
    }
    const bool isBadFloat =
        row.family == WaveFamily::Float && (!IsFloatWidth(out.bits) || !IsFloatWidth(out.SampleBytes() * 8));
    if (out.bits < row.minBits || out.bits > row.maxBits || isBadFloat)
        return Fail(row.badBits);
    return true;
}

SaveFormat PcmSaveFormat(unsigned bits) noexcept
{
    if (bits <= 8)
        return SaveFormat::Pcm8;
    if (bits <= 16)
        return SaveFormat::Pcm16;
    return bits <= 24 ? SaveFormat::Pcm24 : SaveFormat::Pcm32;
}

std::uint16_t ParseSamplesPerBlock(ByteReader in, std::endian order, WaveFamily family) noexcept
{
    FmtBlocks blocks;
    const bool hasBlocks = family == WaveFamily::MsAdpcm || family == WaveFamily::ImaAdpcm;
    return hasBlocks && ReadOrdered(in, order, "222", blocks) ? blocks.samplesPerBlock.Get()
                                                              : std::uint16_t{0};
}

bool ParseMpegBitRate(ByteReader in, std::endian order, WaveFormat& out)
{
    FmtMpeg mpeg;
    if (!ReadOrdered(in, order, kFmtMpegFields, mpeg))
        mpeg = {};
    const unsigned mode = mpeg.mode.Get();
    if ((mode & kMpegModeSingleChannel) != 0 && (mode & kMpegModeTwoChannels) != 0)
        return Fail(u"Can't handle mixed channel mode MPEG streams");
    const std::uint32_t bitRate = mpeg.bitRate.Get() < 8000 ? 128000 : mpeg.bitRate.Get();
    out.saveFormat = BitrateToSaveFormat(static_cast<float>(bitRate) * 0.001f);
    return true;
}

/// Layer 3: a block is one MPEG frame, of 1152 samples (576 at low rates).
float Mp3Kbit(ByteReader in, std::endian order, std::uint32_t rateHz, float averageKbit) noexcept
{
    FmtMp3 mp3;
    if (!ReadOrdered(in, order, kFmtMp3Fields, mp3))
        return averageKbit;
    const float bytesToKbit = rateHz < 28000 ? 72000.0f : 144000.0f;
    return static_cast<float>(mp3.blockBytes.Get()) * static_cast<float>(rateHz) / bytesToKbit;
}

bool ParseSaveFormat(ByteReader in, std::endian order, const FamilyRow& row, std::uint32_t averageBytes,
                     WaveFormat& out)
{
    const float averageKbit = static_cast<float>(averageBytes) * 8 * 0.001f;
    out.saveFormat = row.saveFormat;
    if (row.family == WaveFamily::Pcm)
        out.saveFormat = PcmSaveFormat(out.bits);
    else if (row.family == WaveFamily::MpegLayer12)
        return ParseMpegBitRate(in, order, out);
    else if (row.family == WaveFamily::MpegLayer3)
        out.saveFormat = BitrateToSaveFormat(Mp3Kbit(in, order, out.rateHz, averageKbit));
    else if (row.saveFormat == SaveFormat::Default)
        out.saveFormat = BitrateToSaveFormat(averageKbit);
    return true;
}

DataFormat AdpcmFormat(unsigned bits) noexcept
{
    switch (bits) {
    case 2:
        return DataFormat::Adpcm2;
    case 3:
        return DataFormat::Adpcm3;
    case 5:
        return DataFormat::Adpcm5;
    default:
        return DataFormat::Adpcm4;
    }
}

DataFormat SourceFormatOf(const WaveFormat& format) noexcept
{
    if (format.IsLinear())
        return std::ranges::find(kLinearFormats, format.LinearCoding(), &LinearRow::coding)->format;
    if (format.family == WaveFamily::Gsm)
        return DataFormat::Gsm;
    return format.bits == 1 ? DataFormat::Compressed : AdpcmFormat(format.bits);
}

/// True if the general loader of plain samples can read the data as it lies.
bool IsPlain(const WaveFormat& format) noexcept
{
    if (!format.IsLinear() || format.channels > kMaxChannels)
        return false;
    if (format.family != WaveFamily::Pcm)
        return true;
    // Where container and significant bits differ in width, the container's must be taken from the file.
    const bool sameWidth = format.SampleBytes() == (format.bits + 7) / 8;
    return sameWidth && format.SampleBytes() <= 4;
}

/// Bits that one sample of one channel takes, for data whose length says how many frames it holds.
double CodedBits(const WaveFormat& format) noexcept
{
    if (format.containerBits != 0)
        return format.containerBits;
    if (format.family == WaveFamily::Gsm)
        return 65.0 * 8 / 320; // Microsoft's framing: 65 bytes for two frames of 160 samples
    return format.bits;
}

double CodedFrames(const WaveFormat& format, double dataBytes) noexcept
{
    float kbit = 0;
    if (format.bits == 1 && SaveFormatToDataFormat(format.saveFormat, kbit) == DataFormat::Compressed &&
        kbit > 0 && format.containerBits == 0)
        return dataBytes * 8 * format.rateHz / (static_cast<double>(kbit) * 1000) + 0.499;
    return dataBytes * 8 / (format.channels * CodedBits(format));
}

/// libsndfile up to 1.2 gives the frames of IMA ADPCM in stereo as half of what they are.
bool IsHalvedCount(const WaveFormat& format, std::uint64_t blockFrames, std::uint32_t factFrames) noexcept
{
    return format.family == WaveFamily::ImaAdpcm && format.channels == 2 && blockFrames != 0 &&
           blockFrames / 2 == factFrames;
}

} // namespace

std::u16string_view WaveFamilyName(WaveFamily family) noexcept
{
    return RowOf(family).name;
}

std::uint64_t WaveFormat::SampleBytes() const noexcept
{
    if (family == WaveFamily::ALaw || family == WaveFamily::MuLaw)
        return 1;
    return (std::uint64_t{containerBits != 0 ? containerBits : bits} + 7) / 8;
}

SampleCoding WaveFormat::LinearCoding() const noexcept
{
    const std::uint64_t bytes = SampleBytes();
    switch (family) {
    case WaveFamily::ALaw:
        return SampleCoding::ALaw;
    case WaveFamily::MuLaw:
        return SampleCoding::MuLaw;
    case WaveFamily::Float:
        return bytes == 4 ? SampleCoding::Float32 : SampleCoding::Float64;
    default:
        break;
    }
    static constexpr std::array kPcm = {SampleCoding::Pcm8, SampleCoding::Pcm16, SampleCoding::Pcm24};
    return bytes <= kPcm.size() ? kPcm[bytes - 1] : SampleCoding::Pcm32;
}

bool ParseWaveFormat(std::span<const std::byte> body, std::endian order, WaveFormat& out)
{
    ByteReader in(body);
    FmtCommon common;
    out = {};
    if (!ReadOrdered(in, order, kFmtFields, common))
        return Fail(u"Reading from file failed");
    out.tag = common.tag.Get();
    out.channels = common.channels.Get();
    out.rateHz = common.rateHz.Get();
    out.blockAlign = common.blockAlign.Get();
    if (out.channels == 0)
        return Fail(u"No channels");
    if (out.tag == kTagExtensible && !ParseExtensible(in, order, out))
        return false;
    const auto list = std::ranges::find_if(kTags, [&out](const TagList& row) {
        return out.tag != 0 && std::ranges::count(row.tags, out.tag) != 0;
    });
    if (list == kTags.end())
        return Fail(u"Unsupported compression type");
    out.family = list->family;
    const FamilyRow& row = RowOf(out.family);
    if (row.maxChannels != 0 && out.channels > row.maxChannels)
        return Fail(row.badChannels);
    out.samplesPerBlock = ParseSamplesPerBlock(in, order, out.family);
    if (!ParseBits(in, order, row, out) || !ParseSaveFormat(in, order, row, common.averageBytes.Get(), out))
        return false;
    return out.bits != 0 || Fail(u"Reading from file failed");
}

std::uint32_t WaveFrameCount(const WaveFormat& format, std::uint64_t dataBytes,
                             std::uint32_t factFrames) noexcept
{
    constexpr std::uint32_t kMost = std::numeric_limits<std::uint32_t>::max();
    if (format.IsLinear()) {
        const auto held =
            static_cast<std::uint32_t>(std::min<std::uint64_t>(dataBytes / format.FrameBytes(), kMost));
        return factFrames != 0 ? std::min(factFrames, held) : held;
    }
    const std::uint64_t blocks = format.blockAlign != 0 ? dataBytes / format.blockAlign : 0;
    const std::uint64_t blockFrames = std::min<std::uint64_t>(blocks, kMost) * format.samplesPerBlock;
    if (IsHalvedCount(format, blockFrames, factFrames))
        return static_cast<std::uint32_t>(std::min<std::uint64_t>(blockFrames, kMost));
    if (factFrames != 0)
        return factFrames;
    if (format.tag == kTagUsrGsm)
        return static_cast<std::uint32_t>(std::min<std::uint64_t>(dataBytes / 38, kMost / 160) * 160);
    const double frames = CodedFrames(format, static_cast<double>(dataBytes));
    return frames >= kMost ? kMost : static_cast<std::uint32_t>(frames);
}

void DescribeWaveSource(const WaveFormat& format, std::endian order, Waveform& wave) noexcept
{
    std::uint32_t flags = order == std::endian::big ? kSourceBigEndian : 0;
    const DataFormat source = SourceFormatOf(format);
    if (source == DataFormat::Pcm8)
        flags |= kSourceUnsigned;
    wave.rateHz = format.rateHz;
    wave.channels = static_cast<std::uint8_t>(format.KeptChannels());
    if (IsPlain(format)) {
        wave.SetSourceFormat(source, flags);
    } else {
        wave.sourceWord = FormatBit(source) | flags;
        wave.importProc = &kWaveImport;
    }
    wave.bits = static_cast<std::uint8_t>(std::min(format.bits, 255u));
    wave.saveFormat = format.saveFormat;
}

} // namespace vimbo
