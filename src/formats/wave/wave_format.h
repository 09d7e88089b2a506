// The `fmt ` chunk: which coding, how many bits and channels, and how many frames the data holds.
#pragma once

#include "dsp/kernels/sample_convert.h"
#include "model/waveform.h"

#include <bit>
#include <cstdint>
#include <span>
#include <string_view>

namespace vimbo {

/// Format tags with the same decoder.
enum class WaveFamily : std::uint8_t {
    Pcm,
    Float,
    ALaw,
    MuLaw,
    MsAdpcm,
    ImaAdpcm,
    DialogicAdpcm,
    YamahaAdpcm,
    G72xAdpcm,
    Gsm,
    RockwellAdpcm,
    MpegLayer12,
    MpegLayer3,
    G722,
    Aac,
    Vorbis
};

/// "MS ADPCM" and so on, for messages.
std::u16string_view WaveFamilyName(WaveFamily family) noexcept;

/// A `fmt ` chunk as understood.
struct WaveFormat {
    std::uint16_t tag = 0; ///< that of the SubFormat in Extensible files
    WaveFamily family = WaveFamily::Pcm;
    std::uint16_t channels = 0; ///< in the file; a waveform keeps the first two
    std::uint32_t rateHz = 0;
    std::uint16_t blockAlign = 0;
    std::uint16_t samplesPerBlock = 0; ///< frames in a block of MS or IMA ADPCM; 0 if not said
    unsigned bits = 16;                ///< significant bits per sample; 1 for codings with a bit rate
    unsigned containerBits = 0;        ///< Extensible files; else 0
    SaveFormat saveFormat = SaveFormat::Pcm16;

    /// PCM, float and G.711: samples of equal size that can be read from any frame.
    bool IsLinear() const noexcept { return family <= WaveFamily::MuLaw; }
    bool IsMpeg() const noexcept
    {
        return family == WaveFamily::MpegLayer12 || family == WaveFamily::MpegLayer3;
    }
    /// Bytes of one sample, of one frame with all its channels. IsLinear() only.
    std::uint64_t SampleBytes() const noexcept;
    std::uint64_t FrameBytes() const noexcept { return SampleBytes() * channels; }
    /// Coding of the samples; of PCM over 32 bits, that of their top four bytes. IsLinear() only.
    SampleCoding LinearCoding() const noexcept;
    unsigned KeptChannels() const noexcept { return channels < kMaxChannels ? channels : kMaxChannels; }
};

/// Bytes of a `fmt ` body that ParseWaveFormat looks at.
inline constexpr std::size_t kFmtBytesRead = 64;
inline constexpr std::size_t kFmtBytesMin = 14;

/// Understands a `fmt ` body; one that ends early leaves the defaults (16 bits) where it says nothing.
/// Errors: "Unsupported compression type" and those of the codings.
/// @param body at least kFmtBytesMin bytes; fields in `order`
[[nodiscard]] bool ParseWaveFormat(std::span<const std::byte> body, std::endian order, WaveFormat& out);

/// Frames in `dataBytes` bytes of data. `factFrames` (0: unknown) is what the file claims: it is believed for
/// coded data, and limited to what the data holds for linear data.
std::uint32_t WaveFrameCount(const WaveFormat& format, std::uint64_t dataBytes,
                             std::uint32_t factFrames) noexcept;

/// Fills in a waveform's rate, channels, bits, source word and import procedure.
void DescribeWaveSource(const WaveFormat& format, std::endian order, Waveform& wave) noexcept;

} // namespace vimbo
