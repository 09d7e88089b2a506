// Songs on disk: Standard MIDI Files, RIFF-MIDI with or without a DLS bank, and the extended MIDI of the
// Miles Sound System. What the format table and other drivers call; the records stand in midi_records.h.
#pragma once

#include "formats/format_table.h"

namespace vimbo {

class Song;
class Track;

// Variants of the rows that write RIFF-MIDI.
inline constexpr std::uint32_t kRmiPlain = 0;
inline constexpr std::uint32_t kRmiDlsLevel1 = 1;
inline constexpr std::uint32_t kRmiDlsLevel2 = 2;

/// Tracks keep their bytes as they stand, damaged ones too. What may stand in front of the header is passed
/// over.
bool ReadSmf(Collection& collection, FileObject& file, std::uint32_t variant);
bool WriteSmf(Item& root, FileObject& file, FormatChoice& choice);
int DetectSmf(std::span<const std::byte> head, std::uint32_t variant, std::uint64_t fileSize);

bool ReadRmi(Collection& collection, FileObject& file, std::uint32_t variant);
/// The variants with instruments take all that the song's collection holds.
bool WriteRmi(Item& root, FileObject& file, FormatChoice& choice);
int DetectRmi(std::span<const std::byte> head, std::uint32_t variant, std::uint64_t fileSize);

/// A song for each sequence.
bool ReadXmi(Collection& collection, FileObject& file, std::uint32_t variant);
/// One sequence, with the instruments of the song's collection. Time is rounded down to 120ths of a second.
bool WriteXmi(Item& root, FileObject& file, FormatChoice& choice);
int DetectXmi(std::span<const std::byte> head, std::uint32_t variant, std::uint64_t fileSize);

namespace midi {

/// A look at each track that was read from a Standard MIDI File, for what its events carry beside music. What
/// is found joins the collection; the track stays as it is.
using TrackScan = void (*)(Collection& collection, const Track& track);
/// The scans of all drivers that have one.
std::span<const TrackScan> AllTrackScans() noexcept;

/// Reads the Standard MIDI File in [start, start + length) of a larger file.
/// @param song the song that was made, the last one if there are more headers; null on failure
/// Error: "Invalid or corrupt Midi file".
[[nodiscard]] bool ReadSmfRange(Collection& collection, FileObject& file, std::uint64_t start,
                                std::uint64_t length, Song*& song,
                                std::span<const TrackScan> scans = AllTrackScans());
/// Reads the RIFF-MIDI image in [start, start + length), with the bank in it.
/// @param song as for ReadSmfRange; null also for an image that only holds a bank
[[nodiscard]] bool ReadRmiRange(Collection& collection, FileObject& file, std::uint64_t start,
                                std::uint64_t length, Song*& song);

/// Bytes of a song as a Standard MIDI File.
std::uint64_t SmfBytes(const Song& song) noexcept;
/// Appends that file at the file's position.
[[nodiscard]] bool WriteSmfImage(const Song& song, FileObject& file);
/// Appends the song with its texts as RIFF-MIDI without instruments, of even length.
[[nodiscard]] bool WriteRmiImage(const Song& song, FileObject& file);

/// The song that a format for one song stores of an item: the item itself, or the collection's first. The
/// user is told of further ones. Null with the Last error text for other items.
Song* SongToWrite(Item& root);

} // namespace midi
} // namespace vimbo
