// The fixed table of file formats: what each row can read, write and hold. Nothing else in the program knows
// a format.
#pragma once

#include "base/file_object.h"
#include "model/collection.h"
#include "model/data_format.h"
#include "model/waveform.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace vimbo {

inline constexpr std::size_t kFormatRowCount = 532;
inline constexpr std::size_t kDetectHeadBytes = 32768; ///< how much of a file's start detectors get to see

/// Bits of FormatRow::kinds: the format can hold items of that kind.
inline constexpr std::uint8_t kKindWave = 0x01;
inline constexpr std::uint8_t kKindSynth = 0x02;
inline constexpr std::uint8_t kKindInstrument = 0x10;
inline constexpr std::uint8_t kKindTrack = 0x20;
inline constexpr std::uint8_t kKindSong = 0x40;
inline constexpr std::uint8_t kKindCollection = 0x80;

/// Capability word: bits 0 to 19 are the DataFormats that the writer accepts; these are the channel bits.
inline constexpr std::uint32_t kCapsMono = 1u << 20;
inline constexpr std::uint32_t kCapsStereo = 1u << 21;
inline constexpr std::uint32_t kCapsDualMono = 1u << 25; ///< stereo is carried as a pair of mono waveforms
inline constexpr std::uint32_t kCapsChannels = kCapsMono | kCapsStereo | kCapsDualMono;

/// The save request that goes to a writer.
struct FormatChoice {
    std::uint32_t caps =
        0; ///< chosen subset of the row's caps: all of them ("Auto") or one format bit; channel bits
    std::uint32_t variant = 0; ///< copied from the row by the save path
    float kbit = 0;            ///< chosen compressed setting in kbit/s; 0: the waveform decides
};

/// Fills `collection` from `file`, which stands at position 0. The collection is empty but for its name (the
/// file's base name) and source path. False after writing the Last error text. The file does not stay open
/// afterwards.
using ReadFn = bool (*)(Collection& collection, FileObject& file, std::uint32_t variant);
/// Writes `root` (of a kind that the row allows) to the empty file. False after writing the Last error text.
using WriteFn = bool (*)(Item& root, FileObject& file, FormatChoice& choice);
/// Scores the first bytes of a file, at most kDetectHeadBytes: 0 no match, 2 no test possible, 3 or 4 weaker
/// clues, 6 full structural match. Allocates nothing and is never stricter than the reader.
using DetectFn = int (*)(std::span<const std::byte> head, std::uint32_t variant, std::uint64_t fileSize);
/// Compressed setting `index` of a row: its value in kbit/s and display name; 0 or less past the end.
using SubFormatFn = float (*)(std::uint32_t index, std::uint32_t variant, std::u16string* name);

struct FormatRow {
    std::u16string_view extension; ///< lower case, no dot; '?' matches any character, '*' ends the comparison
    ReadFn read = nullptr;
    WriteFn write = nullptr;
    DetectFn detect = nullptr;
    std::u16string_view description;
    std::uint8_t kinds = 0;
    std::uint32_t caps = 0;
    std::uint32_t variant = 0; ///< private to the driver; sibling rows share functions by it
    SubFormatFn subFormats = nullptr;
};

/// All rows. A row's place is stored in users' settings and never changes.
std::span<const FormatRow, kFormatRowCount> FormatRows() noexcept;
/// The row of an index, null outside the table.
const FormatRow* FindRow(int row) noexcept;

/// True if the row exists, has a reader and can hold the kind.
bool RowSupportsKind(int row, ItemKind kind) noexcept;

/// Next row with a reader (writer) at or after `index`, which is moved behind it; false at the end of the
/// table.
struct EnumeratedRow {
    int row = -1;
    std::u16string_view extension;
    std::u16string_view description;
    std::uint8_t kinds = 0;
    std::uint32_t caps = 0;
};
bool EnumRowsForRead(int& index, EnumeratedRow& out) noexcept;
bool EnumRowsForWrite(int& index, EnumeratedRow& out) noexcept;

/// First writable row with this extension (case and a leading '.' ignored) whose kinds meet `kindMask`; -1 if
/// none.
int FindRowByExtension(std::u16string_view extension, std::uint8_t kindMask) noexcept;

/// Capabilities of the row, or of the first writing row behind it with the very same extension; 0 if there is
/// none.
std::uint32_t GetRowCaps(int row, std::uint32_t& variant) noexcept;

/// "<none>" / "" for rows out of range.
std::u16string_view RowDescription(int row) noexcept;
std::u16string_view RowExtension(int row) noexcept;

/// The row's compressed setting `index`, stepping it; false past the end.
bool GetSubFormat(int row, std::uint32_t& index, float& kbit, std::u16string& name);

/// Runs a row's function behind the module's border: exceptions become the Last error text.
[[nodiscard]] bool ReadThroughRow(const FormatRow& row, Collection& out, FileObject& file) noexcept;
[[nodiscard]] bool WriteThroughRow(const FormatRow& row, Item& root, FileObject& file,
                                   FormatChoice& choice) noexcept;

/// The shared detector of formats that cannot be told by their content: always 2.
int DetectNothing(std::span<const std::byte> head, std::uint32_t variant, std::uint64_t fileSize) noexcept;

} // namespace vimbo
