#include "model/data_format.h"

#include "base/text.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstddef>

namespace vimbo {
namespace {

struct DataFormatRow {
    std::u16string_view name;
    unsigned bits;
};

constexpr std::array<DataFormatRow, 20> kDataFormats = {{
    {u"PCM 8-bit", 8},         {u"PCM 12-bit", 12}, {u"PCM 16-bit", 16},   {u"PCM 20-bit", 20},
    {u"PCM 24-bit", 24},       {u"PCM 32-bit", 32}, {u"Float 32-bit", 32}, {u"Float 64-bit", 64},
    {u"Mu-law 8-bit", 8},      {u"A-law 8-bit", 8}, {u"GSM 2-bit", 2},     {u"ADPCM 2-bit", 2},
    {u"ADPCM 3-bit", 3},       {u"ADPCM 4-bit", 4}, {u"ADPCM 5-bit", 5},   {u"Delta PCM 8-bit", 8},
    {u"Delta PCM 16-bit", 16}, {u"Compressed", 1},  {u"Ascii text", 8},    {u"MIDI", 0},
}};

struct SaveFormatRow {
    std::u16string_view name;
    DataFormat format;
    float kbit;
};

constexpr std::array<SaveFormatRow, 22> kSaveFormats = {{
    {u"PCM 8-bit", DataFormat::Pcm8, 0},
    {u"PCM 16-bit", DataFormat::Pcm16, 0},
    {u"PCM 24-bit", DataFormat::Pcm24, 0},
    {u"PCM 32-bit", DataFormat::Pcm32, 0},
    {u"Float 32-bit", DataFormat::Float32, 0},
    {u"Mu-law 8-bit", DataFormat::MuLaw, 0},
    {u"A-law 8-bit", DataFormat::ALaw, 0},
    {u"ADPCM 4-bit", DataFormat::Adpcm4, 0},
    {u"Compressed 32 kbit/s", DataFormat::Compressed, 32},
    {u"Compressed 48 kbit/s", DataFormat::Compressed, 48},
    {u"Compressed 64 kbit/s", DataFormat::Compressed, 64},
    {u"Compressed 80 kbit/s", DataFormat::Compressed, 80},
    {u"Compressed 96 kbit/s", DataFormat::Compressed, 96},
    {u"Compressed 112 kbit/s", DataFormat::Compressed, 112},
    {u"Compressed 128 kbit/s", DataFormat::Compressed, 128},
    {u"Compressed 144 kbit/s", DataFormat::Compressed, 144},
    {u"Compressed 160 kbit/s", DataFormat::Compressed, 160},
    {u"Compressed 192 kbit/s", DataFormat::Compressed, 192},
    {u"Compressed 224 kbit/s", DataFormat::Compressed, 224},
    {u"Compressed 256 kbit/s", DataFormat::Compressed, 256},
    {u"Compressed 320 kbit/s", DataFormat::Compressed, 320},
    {u"Default", DataFormat::None, 0},
}};

/// kbit/s from which the next class begins, for the classes 32 to 256.
constexpr std::array<float, 12> kBitrateLimits = {40, 56, 72, 88, 104, 120, 136, 152, 176, 208, 240, 288};

} // namespace

std::u16string_view DataFormatName(DataFormat format) noexcept
{
    const auto index = static_cast<std::size_t>(format);
    return index < kDataFormats.size() ? kDataFormats[index].name : std::u16string_view();
}

unsigned DataFormatBits(DataFormat format) noexcept
{
    const auto index = static_cast<std::size_t>(format);
    return index < kDataFormats.size() ? kDataFormats[index].bits : 0;
}

DataFormat FirstFormatOf(std::uint32_t mask) noexcept
{
    mask &= kDataFormatMask;
    return mask == 0 ? DataFormat::None : static_cast<DataFormat>(std::countr_zero(mask));
}

DataFormat DataFormatByName(std::u16string_view name) noexcept
{
    const auto found =
        std::find_if(kDataFormats.begin(), kDataFormats.end(),
                     [name](const DataFormatRow& row) { return CompareNoCase(row.name, name) == 0; });
    return found == kDataFormats.end() ? DataFormat::None
                                       : static_cast<DataFormat>(found - kDataFormats.begin());
}

std::u16string_view SaveFormatName(SaveFormat format) noexcept
{
    const auto index = static_cast<std::size_t>(format);
    return index < kSaveFormats.size() ? kSaveFormats[index].name : std::u16string_view();
}

SaveFormat SaveFormatOf(DataFormat format) noexcept
{
    switch (format) {
    case DataFormat::Pcm8:
    case DataFormat::Delta8:
        return SaveFormat::Pcm8;
    case DataFormat::Pcm12:
    case DataFormat::Pcm16:
    case DataFormat::Delta16:
        return SaveFormat::Pcm16;
    case DataFormat::Pcm20:
    case DataFormat::Pcm24:
        return SaveFormat::Pcm24;
    case DataFormat::Pcm32:
        return SaveFormat::Pcm32;
    case DataFormat::Float32:
    case DataFormat::Float64:
        return SaveFormat::Float32;
    case DataFormat::MuLaw:
        return SaveFormat::MuLaw;
    case DataFormat::ALaw:
        return SaveFormat::ALaw;
    default:
        return SaveFormat::Default;
    }
}

SaveFormat BitrateToSaveFormat(float kbit) noexcept
{
    const float whole = std::trunc(kbit + std::copysign(0.499f, kbit));
    const auto above = std::find_if(kBitrateLimits.begin(), kBitrateLimits.end(), [whole](float limit) {
        return !(whole >= limit); // what is no number counts as the lowest rate
    });
    return static_cast<SaveFormat>(static_cast<int>(SaveFormat::Compressed32) +
                                   (above - kBitrateLimits.begin()));
}

DataFormat SaveFormatToDataFormat(SaveFormat format, float& kbit) noexcept
{
    const auto index = static_cast<std::size_t>(format);
    const SaveFormatRow& row = kSaveFormats[std::min(index, kSaveFormats.size() - 1)];
    kbit = row.kbit;
    return row.format;
}

} // namespace vimbo
