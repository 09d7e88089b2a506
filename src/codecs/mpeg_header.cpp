#include "codecs/mpeg_header.h"

#include "codecs/mpeg_tables.h"

namespace vimbo {

bool ParseMpegHeader(std::span<const std::byte> bytes, MpegHeader& out) noexcept
{
    if (bytes.size() < kMpegHeaderBytes)
        return false;
    std::uint32_t word = 0;
    for (std::size_t i = 0; i < kMpegHeaderBytes; ++i)
        word = word << 8 | std::to_integer<std::uint32_t>(bytes[i]);
    const auto field = [&word](unsigned bits) { // from the top
        const std::uint32_t value = word >> (32 - bits);
        word <<= bits;
        return value;
    };
    constexpr std::uint32_t kSync = 0x7FF, kReservedVersion = 1, kReservedLayer = 0, kBadBitRate = 15,
                            kReservedRate = 3;
    if (field(11) != kSync)
        return false;
    const std::uint32_t version = field(2), layer = field(2), noCrc = field(1), bitRate = field(4),
                        rate = field(2), padding = field(1);
    field(1); // private
    const std::uint32_t mode = field(2), extension = field(2);
    if (version == kReservedVersion || layer == kReservedLayer || bitRate == kBadBitRate ||
        rate == kReservedRate)
        return false;
    out.version = version == 3 ? MpegVersion::Mpeg1 : version == 2 ? MpegVersion::Mpeg2 : MpegVersion::Mpeg25;
    out.layer = static_cast<std::uint8_t>(4 - layer);
    out.mode = static_cast<MpegMode>(mode);
    out.modeExtension = static_cast<std::uint8_t>(extension);
    out.rateIndex = static_cast<std::uint8_t>(rate);
    out.hasCrc = noCrc == 0;
    out.isPadded = padding != 0;
    out.kbit = (out.IsLow() ? mpeg::kBitRatesLow : mpeg::kBitRates)[out.layer - 1u][bitRate];
    out.rateHz = mpeg::kRatesHz[rate] >> static_cast<unsigned>(out.version);
    return true;
}

bool IsSameMpegStream(const MpegHeader& a, const MpegHeader& b) noexcept
{
    return a.version == b.version && a.layer == b.layer && a.rateIndex == b.rateIndex &&
           a.IsFree() == b.IsFree();
}

std::size_t MpegHeader::Frames() const noexcept
{
    if (layer == 1)
        return 384;
    return layer == 3 && IsLow() ? 576 : 1152;
}

std::size_t MpegHeader::FrameBytes() const noexcept
{
    if (IsFree())
        return 0;
    const std::size_t slotBytes = layer == 1 ? 4 : 1;
    return Frames() / 8 * kbit * 1000 / rateHz / slotBytes * slotBytes + PaddingBytes();
}

std::size_t MpegHeader::SideInfoBytes() const noexcept
{
    if (IsLow())
        return Channels() == 1 ? 9 : 17;
    return Channels() == 1 ? 17 : 32;
}

} // namespace vimbo
