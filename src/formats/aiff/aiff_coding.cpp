#include "formats/aiff/aiff_coding.h"

#include "base/last_error.h"
#include "base/text.h"
#include "codecs/gsm.h"
#include "codecs/ima.h"
#include "dsp/kernels/sample_convert.h"
#include "formats/aiff/aiff.h"
#include "model/plain_layout.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <string>

namespace vimbo {
namespace {

struct CodingRow {
    FourCc tag;
    AiffCodec codec;
    DataFormat format; ///< None: PCM of the file's width
    std::uint32_t flags = 0;
    unsigned minCodeBits = 0;
    unsigned maxCodeBits = 0;
};

constexpr std::array kCodings = {
    CodingRow{FourCc{"NONE"}, AiffCodec::Plain, DataFormat::None, kSourceBigEndian},
    CodingRow{FourCc{"none"}, AiffCodec::Plain, DataFormat::None, kSourceBigEndian},
    CodingRow{FourCc{"twos"}, AiffCodec::Plain, DataFormat::None, kSourceBigEndian},
    CodingRow{FourCc{"lpcm"}, AiffCodec::Plain, DataFormat::None, kSourceBigEndian},
    CodingRow{FourCc{"sowt"}, AiffCodec::Plain, DataFormat::None},
    CodingRow{FourCc{"in24"}, AiffCodec::Plain, DataFormat::Pcm24, kSourceBigEndian},
    CodingRow{FourCc{"in32"}, AiffCodec::Plain, DataFormat::Pcm32, kSourceBigEndian},
    CodingRow{FourCc{"fl32"}, AiffCodec::Plain, DataFormat::Float32, kSourceBigEndian},
    CodingRow{FourCc{"fl64"}, AiffCodec::Plain, DataFormat::Float64, kSourceBigEndian},
    CodingRow{FourCc{"FL32"}, AiffCodec::Plain, DataFormat::Float32, kSourceBigEndian}, // libsndfile's
    CodingRow{FourCc{"FL64"}, AiffCodec::Plain, DataFormat::Float64, kSourceBigEndian},
    CodingRow{FourCc{"42n1"}, AiffCodec::Plain, DataFormat::Pcm24}, // libsndfile's little-endian in24, in32
    CodingRow{FourCc{"23ni"}, AiffCodec::Plain, DataFormat::Pcm32},
    CodingRow{FourCc{"raw "}, AiffCodec::Plain, DataFormat::Pcm8, kSourceUnsigned}, // QuickTime's bytes
    CodingRow{FourCc{"alaw"}, AiffCodec::Plain, DataFormat::ALaw},
    CodingRow{FourCc{"ALAW"}, AiffCodec::Plain, DataFormat::ALaw},
    CodingRow{FourCc{"ulaw"}, AiffCodec::Plain, DataFormat::MuLaw},
    CodingRow{FourCc{"ULAW"}, AiffCodec::Plain, DataFormat::MuLaw},
    CodingRow{FourCc{"MAC3"}, AiffCodec::Mace3, DataFormat::Adpcm4},
    CodingRow{FourCc{"MAC6"}, AiffCodec::Mace6, DataFormat::Adpcm4},
    CodingRow{FourCc{"ima4"}, AiffCodec::Ima4, DataFormat::Adpcm4},
    CodingRow{FourCc{"IMA4"}, AiffCodec::Ima4, DataFormat::Adpcm4},
    CodingRow{FourCc{"GSM "}, AiffCodec::Gsm, DataFormat::Gsm},
    CodingRow{FourCc{"G721"}, AiffCodec::G726, DataFormat::Adpcm4, 0, 4, 4},
    CodingRow{FourCc{"G722"}, AiffCodec::G722, DataFormat::Adpcm4},
    CodingRow{FourCc{"G723"}, AiffCodec::G726, DataFormat::Adpcm4, 0, 3, 5},
    CodingRow{FourCc{"G726"}, AiffCodec::G726, DataFormat::Adpcm4, 0, 2, 5},
};

bool FailUnknown() noexcept
{
    return Fail(u"Unknown sample format or compression");
}

DataFormat PcmFormat(int bits) noexcept
{
    if (bits <= 8)
        return DataFormat::Pcm8;
    if (bits <= 16)
        return DataFormat::Pcm16;
    return bits <= 24 ? DataFormat::Pcm24 : DataFormat::Pcm32;
}

/// A packet of one channel; all zero for codings without packets.
struct PacketSize {
    std::size_t bytes = 0;
    std::size_t frames = 0;
};

PacketSize PacketOf(AiffCodec codec) noexcept
{
    switch (codec) {
    case AiffCodec::Ima4:
        return {kIma4PacketBytes, kIma4PacketFrames};
    case AiffCodec::Mace3:
        return {MacePacketBytes(MaceRatio::Three), kMacePacketFrames};
    case AiffCodec::Mace6:
        return {MacePacketBytes(MaceRatio::Six), kMacePacketFrames};
    case AiffCodec::Gsm:
        return {kGsmFrameBytes, kGsmFrameSamples};
    default:
        return {};
    }
}

/// Some writers count frames where they should count packets. The claim is theirs if it ends in the last
/// packet.
std::uint64_t PacketCodedFrames(AiffCodec codec, unsigned channels, std::uint64_t claimed,
                                std::uint64_t dataBytes) noexcept
{
    const PacketSize packet = PacketOf(codec);
    const std::uint64_t packets = dataBytes / (packet.bytes * channels);
    const std::uint64_t held = packets * packet.frames;
    // libsndfile up to 1.2 gives the packets of IMA in stereo as half of what they are.
    const bool isHalved = codec == AiffCodec::Ima4 && channels == 2 && claimed != 0 && claimed == packets / 2;
    if (claimed == packets || isHalved)
        return held;
    if (codec == AiffCodec::Gsm) // counts frames
        return std::min((claimed + packet.frames - 1) / packet.frames * packet.frames, held);
    if (claimed <= held && claimed + packet.frames > held)
        return claimed;
    return std::min(claimed * packet.frames, held);
}

/// Frames that a stream without packets holds.
std::uint64_t HeldFrames(const AiffCoding& coding, unsigned channels, std::uint64_t dataBytes) noexcept
{
    if (coding.codec == AiffCodec::G722)
        return dataBytes * 2;
    if (coding.codec == AiffCodec::G726)
        return dataBytes * 8 / coding.codeBits;
    const auto layout = PlainLayout(coding.format, coding.flags);
    return layout ? dataBytes / (StoredBits(layout->coding) / 8 * channels) : 0;
}

} // namespace

bool SettleAiffCoding(const FourCc& tag, int bits, AiffCoding& out)
{
    const auto row = std::ranges::find(kCodings, tag, &CodingRow::tag);
    if (row == kCodings.end())
        return Fail(u"Unsupported compression type: " +
                    NarrowToWide(std::string_view(tag.text.data(), tag.text.size())));
    out = {.codec = row->codec,
           .format = row->format,
           .flags = row->flags,
           .minCodeBits = row->minCodeBits,
           .maxCodeBits = row->maxCodeBits};
    if (row->format != DataFormat::None) {
        out.bits = DataFormatBits(row->format);
        return true;
    }
    if (bits < 1 || bits > 32)
        return FailUnknown();
    out.format = PcmFormat(bits);
    out.bits = static_cast<unsigned>(bits); // fewer than the container's are its top ones
    return true;
}

bool SettleMaudCoding(unsigned compression, unsigned bits, AiffCoding& out)
{
    out = {};
    switch (compression) {
    case 0:
        out.format = bits < 9 ? DataFormat::Pcm8 : DataFormat::Pcm16;
        out.flags = bits < 9 ? kSourceUnsigned : kSourceBigEndian;
        break;
    case 2:
        out.format = DataFormat::ALaw;
        break;
    case 3:
        out.format = DataFormat::MuLaw;
        break;
    default:
        return FailUnknown();
    }
    out.bits = DataFormatBits(out.format);
    return true;
}

bool SettleSpeech(unsigned channels, int bits, std::uint32_t claimedFrames, std::uint64_t dataBytes,
                  AiffCoding& coding)
{
    const bool isSpeech =
        coding.codec == AiffCodec::Gsm || coding.codec == AiffCodec::G722 || coding.codec == AiffCodec::G726;
    if (isSpeech && channels != 1)
        return Fail(coding.codec == AiffCodec::Gsm ? u"Can only handle (the standard!) mono GSM"
                                                   : u"Can only handle mono G.72x ADPCM format");
    if (coding.codec != AiffCodec::G726)
        return true;
    const int low = static_cast<int>(coding.minCodeBits);
    const int high = static_cast<int>(coding.maxCodeBits);
    if (bits < low || bits > high) {
        const double perFrame = claimedFrames != 0 ? static_cast<double>(dataBytes) * 8 / claimedFrames : 4.0;
        bits = static_cast<int>(std::lround(std::clamp<double>(perFrame, low, high)));
    }
    if (low == 3 && bits == 4) // G.723 has no 4-bit codes: those are G.721's
        bits = 3;
    coding.codeBits = static_cast<unsigned>(bits);
    return true;
}

std::uint32_t AiffFrameCount(const AiffCoding& coding, unsigned channels, std::uint32_t claimed,
                             std::uint64_t dataBytes) noexcept
{
    const std::uint64_t frames =
        PacketOf(coding.codec).frames != 0
            ? PacketCodedFrames(coding.codec, channels, claimed, dataBytes)
            : std::min<std::uint64_t>(claimed, HeldFrames(coding, channels, dataBytes));
    return static_cast<std::uint32_t>(
        std::min<std::uint64_t>(frames, std::numeric_limits<std::uint32_t>::max()));
}

void DescribeAiffSource(const AiffCoding& coding, Waveform& wave) noexcept
{
    if (coding.codec == AiffCodec::Plain) {
        wave.SetSourceFormat(coding.format, coding.flags);
    } else {
        wave.sourceWord = FormatBit(coding.format) | coding.flags;
        wave.importProc = &kAiffImport;
        // ADPCM can be written in mono only, and by another coder: that would lose too much of music.
        const bool isG72x = coding.codec == AiffCodec::G722 || coding.codec == AiffCodec::G726;
        wave.saveFormat = isG72x ? SaveFormat::Adpcm4 : SaveFormat::Pcm16;
        wave.sourceTag =
            static_cast<std::uint8_t>(static_cast<unsigned>(coding.codec) << 4 | coding.codeBits);
    }
    wave.bits = static_cast<std::uint8_t>(coding.bits);
}

} // namespace vimbo
