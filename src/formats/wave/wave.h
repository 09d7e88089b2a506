// RIFF WAVE and its relatives (RF64, LIST form, SmartSound, broadcast, Rockwell). What the format table and
// other drivers call; the records stand in wave_records.h.
#pragma once

#include "formats/format_table.h"

namespace vimbo {

/// Variant word of the writer. Any other value: an ordinary file.
inline constexpr std::uint32_t kWaveVariantPlain = 0;
inline constexpr std::uint32_t kWaveVariantExtensible = 65534;
inline constexpr std::uint32_t kWaveVariantCreamware =
    0x54445743; ///< "CWDT": Creamware STS flavour of `smpl`
inline constexpr std::uint32_t kWaveVariantSmplFirst =
    0xFFFFFFFF; ///< `smpl` before `data`, nothing after `data`

bool ReadWave(Collection& collection, FileObject& file, std::uint32_t variant);
bool WriteWave(Item& root, FileObject& file, FormatChoice& choice);
int DetectWave(std::span<const std::byte> head, std::uint32_t variant, std::uint64_t fileSize) noexcept;
int DetectBroadcastWave(std::span<const std::byte> head, std::uint32_t variant,
                        std::uint64_t fileSize) noexcept;
int DetectRockwellWave(std::span<const std::byte> head, std::uint32_t variant,
                       std::uint64_t fileSize) noexcept;
int DetectSmartSound(std::span<const std::byte> head, std::uint32_t variant, std::uint64_t fileSize) noexcept;
/// The compressed settings of the `wav` row (MPEG layer 3 bit rates).
float WaveSubFormats(std::uint32_t index, std::uint32_t variant, std::u16string* name);

/// Reads a whole WAV image that lies in [start, start + length) of a larger file into `wave`.
[[nodiscard]] bool ReadWaveRange(Waveform& wave, FileObject& file, std::uint64_t start, std::uint64_t length);

/// Texts of the INFO tags (INAM, IART, ICMT, ICOP, IENG, IPRD) found in any LIST INFO below `chunks`, into
/// `item`: for other containers that carry the same tags. Walks nested lists, at most 8 deep.
void ReadInfoTexts(std::span<const std::byte> chunks, TextItem& item);

/// Decodes the samples of WAV files that are no plain PCM.
extern const ImportProcedure kWaveImport;

} // namespace vimbo
