// Files that are nothing but a stream of speech or ADPCM codes: G.721, G.722, G.723, G.726, GSM 06.10,
// Dialogic, Rockwell and Yamaha. What the format table calls.
#pragma once

#include "formats/format_table.h"

namespace vimbo {

/// Which coding a row stands for: bits 12 to 15 of its variant word.
enum class SpeechCoding : std::uint8_t { G721, G722, G723, G726, Gsm, UsrGsm, Dialogic, Rockwell, Yamaha };

/// Variant word of the speech rows.
/// @param codeBits      width of a code; 0: the reader asks
/// @param littleEndian  the writer fills bytes from their lowest bit
constexpr std::uint32_t SpeechVariant(SpeechCoding coding, std::uint32_t codeBits = 0,
                                      bool littleEndian = false) noexcept
{
    return static_cast<std::uint32_t>(coding) << 12 | (littleEndian ? 0x100u : 0u) | codeBits;
}
/// GSM rows: the frames' first nibble is not looked at.
inline constexpr std::uint32_t kSpeechByteAligned = 0x200;
/// Dialogic rows: 6000 Hz rather than 8000.
inline constexpr std::uint32_t kSpeech6000Hz = 0x400;

bool ReadSpeech(Collection& collection, FileObject& file, std::uint32_t variant);
bool WriteSpeech(Item& root, FileObject& file, FormatChoice& choice);
/// GSM in the records of US Robotics modems, inside a WAV form.
bool WriteUsrGsm(Item& root, FileObject& file, FormatChoice& choice);
/// Raw frames, each with its nibble.
int DetectGsm(std::span<const std::byte> head, std::uint32_t variant, std::uint64_t fileSize) noexcept;
int DetectUsrGsm(std::span<const std::byte> head, std::uint32_t variant, std::uint64_t fileSize) noexcept;
/// A WAV form with format tag 771.
int DetectUsrGsmWave(std::span<const std::byte> head, std::uint32_t variant, std::uint64_t fileSize) noexcept;

/// Decodes these streams; which one it is stands in the waveform's sourceTag.
extern const ImportProcedure kSpeechImport;

} // namespace vimbo
