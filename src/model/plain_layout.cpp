#include "model/plain_layout.h"

namespace vimbo {

namespace {

std::optional<SampleCoding> CodingOf(DataFormat format) noexcept
{
    switch (format) {
    case DataFormat::Pcm8:
        return SampleCoding::Pcm8;
    case DataFormat::Pcm12:
        return SampleCoding::Pcm12;
    case DataFormat::Pcm16:
        return SampleCoding::Pcm16;
    case DataFormat::Pcm20:
        return SampleCoding::Pcm20;
    case DataFormat::Pcm24:
        return SampleCoding::Pcm24;
    case DataFormat::Pcm32:
        return SampleCoding::Pcm32;
    case DataFormat::Float32:
        return SampleCoding::Float32;
    case DataFormat::Float64:
        return SampleCoding::Float64;
    case DataFormat::MuLaw:
        return SampleCoding::MuLaw;
    case DataFormat::ALaw:
        return SampleCoding::ALaw;
    case DataFormat::Delta8:
        return SampleCoding::Delta8;
    case DataFormat::Delta16:
        return SampleCoding::Delta16;
    default:
        return std::nullopt;
    }
}

} // namespace

std::optional<SampleLayout> PlainLayout(DataFormat format, std::uint32_t flags) noexcept
{
    const std::optional<SampleCoding> coding = CodingOf(format);
    if (!coding)
        return std::nullopt;
    return SampleLayout{*coding, (flags & kSourceUnsigned) != 0,
                        (flags & kSourceBigEndian) != 0 ? std::endian::big : std::endian::little};
}

} // namespace vimbo
