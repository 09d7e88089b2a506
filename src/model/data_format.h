// Encodings of sample data in files (DataFormat) and a waveform's wish for its output (SaveFormat).
#pragma once

#include <cstdint>
#include <string_view>

namespace vimbo {

/// The code is also the bit number in the capability masks of the format table. Codes are stored in settings.
enum class DataFormat : std::uint8_t {
    Pcm8 = 0,
    Pcm12 = 1,
    Pcm16 = 2,
    Pcm20 = 3,
    Pcm24 = 4,
    Pcm32 = 5,
    Float32 = 6,
    Float64 = 7,
    MuLaw = 8,
    ALaw = 9,
    Gsm = 10,
    Adpcm2 = 11,
    Adpcm3 = 12,
    Adpcm4 = 13,
    Adpcm5 = 14,
    Delta8 = 15,
    Delta16 = 16,
    Compressed = 17,
    AsciiText = 18,
    Midi = 19,
    None = 20 ///< no or mixed format
};

inline constexpr std::uint32_t kDataFormatMask = 0xFFFFF;

constexpr std::uint32_t FormatBit(DataFormat format) noexcept
{
    return 1u << static_cast<unsigned>(format);
}

/// Flags of the source word, beside its one DataFormat bit.
inline constexpr std::uint32_t kSourceSequentialStereo = 1u
                                                         << 22; ///< all left samples, then all right samples
inline constexpr std::uint32_t kSourceUnsigned = 1u << 23;
inline constexpr std::uint32_t kSourceBigEndian =
    1u << 24; ///< also the other bit order of packed 12 and 20-bit data

/// "PCM 16-bit" and so on; "" for None.
std::u16string_view DataFormatName(DataFormat format) noexcept;
/// Nominal bits per sample: 8, 12, 16 ...; 1 for Compressed, 0 for Midi and None.
unsigned DataFormatBits(DataFormat format) noexcept;
/// The lowest set bit among bits 0 to 19, or None.
DataFormat FirstFormatOf(std::uint32_t mask) noexcept;
/// The format with this name, compared without regard to case; None if there is none.
DataFormat DataFormatByName(std::u16string_view name) noexcept;

enum class SaveFormat : std::uint8_t {
    Pcm8 = 0,
    Pcm16 = 1,
    Pcm24 = 2,
    Pcm32 = 3,
    Float32 = 4,
    MuLaw = 5,
    ALaw = 6,
    Adpcm4 = 7,
    Compressed32 = 8, ///< 8 to 20: "Compressed 32 kbit/s" to "Compressed 320 kbit/s"
    Compressed320 = 20,
    Default = 21
};

/// "Compressed 128 kbit/s" and so on.
std::u16string_view SaveFormatName(SaveFormat format) noexcept;
/// The wish that plain samples of this encoding come with; Default for encodings that are none.
SaveFormat SaveFormatOf(DataFormat format) noexcept;
/// The class whose range holds `kbit` kbit/s, after rounding to a whole number.
SaveFormat BitrateToSaveFormat(float kbit) noexcept;
/// The DataFormat of a wish; `kbit` gets the kbit/s of the compressed classes, else 0.
DataFormat SaveFormatToDataFormat(SaveFormat format, float& kbit) noexcept;

} // namespace vimbo
