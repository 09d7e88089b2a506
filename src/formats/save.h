// From an item and a row of the format table to a file on disk.
#pragma once

#include "formats/format_table.h"

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vimbo {

class Song;

/// What saving needs from the parts of the program above it. A function that is not there counts as failed.
struct SaveServices {
    /// A new waveform in the song's collection with the sound of the song; null if it was stopped or failed.
    std::function<Waveform*(Song& song)> renderSong;
    /// Puts waveforms in the place of all synthesis models below `root`.
    std::function<bool(Item& root)> convertSynthModels;
};

/// Brings samples into memory before the file that they lie in is replaced: afterwards they could not be
/// fetched there. Where the samples of a collection lie is found out once, by the first file that exists;
/// waveforms that come later are not known.
class SampleKeeper {
public:
    explicit SampleKeeper(Collection& collection) noexcept : collection_(collection) {}
    /// True if the file holds none of the samples, or does not exist; false with the Last error text if
    /// samples cannot be read.
    [[nodiscard]] bool DetachFrom(std::u16string_view path);
    /// The same, and for `copy`, which is the collection or was copied from it.
    [[nodiscard]] bool DetachFrom(std::u16string_view path, Collection& copy);

private:
    using FileId =
        std::pair<std::uint64_t, std::uint64_t>; ///< device and inode: one file under all its names
    using Waves = std::map<FileId, std::vector<ItemHandle>>;
    static bool Identify(std::u16string_view path, FileId& id);
    void FindSources();
    Waves::const_iterator WavesIn(std::u16string_view path);
    bool Detach(Waves::const_iterator file);

    Collection& collection_;
    Waves wavesIn_;
    bool isKnown_ = false;
};

struct SaveOptions {
    bool force = false; ///< call the writer even if the item holds nothing for the format
    bool lastUse =
        false; ///< the collection is thrown away afterwards: samples that live in a replaced file may go
    bool interactive = false; ///< tell the user by the status line; a saved collection remembers file and row
    bool isFixedUp = false;   ///< FixUpItems has run with this prune mask since the last change
    bool isPrivateCopy = false; ///< the collection is the caller's own copy and may be changed
    const SaveServices* services = nullptr;
    /// For many files from one collection: its own, also where the item lies in a copy of it.
    SampleKeeper* keeper = nullptr;
};

/// Writes `root` through the row into a file that is written whole or not at all: the earlier file stays
/// until the new one is complete, and if writing fails. Samples that live in the replaced file are brought
/// into memory, unless this is the collection's last use.
/// FixUpItems runs on the collection first, and empty items below `root` go; nothing else in it changes: what
/// the format cannot hold (songs, synthesis models, stereo waveforms where pairs are wanted) is converted in
/// a copy. A layer, region or synthesis model is written as an instrument of its own, a track as a song; an
/// empty one is pruned like all that is below an instrument or song, and does not exist afterwards.
/// Errors: "No item selected", "Invalid export format selected", "Save aborted!", "Failed to render synth to
/// wave", "Empty item - nothing to save", "Could not create file", and those of the writer.
[[nodiscard]] bool SaveItem(Item* root, int row, std::u16string_view path, FormatChoice choice,
                            const SaveOptions& options = {});
/// The same for a row that need not stand in the table.
[[nodiscard]] bool SaveThroughRow(Item& root, const FormatRow& row, std::u16string_view path,
                                  FormatChoice choice, const SaveOptions& options = {});
/// SaveItem with a word to the user, if that is wanted.
[[nodiscard]] bool SaveToPath(Item* root, std::u16string_view path, int row, FormatChoice choice,
                              SaveOptions options = {});

/// The prune mask of the fix-up pass ahead of saving an item of this kind: all kinds below what is written.
std::uint8_t SavePruneMask(ItemKind kind) noexcept;

/// The choice that takes everything a row offers ("Auto").
FormatChoice AutoChoice(int row) noexcept;

enum class PlainLatin : bool { No, Yes };
enum class UpperCase : bool { No, Yes };

/// A legal file name out of an item name: reserved characters become "_", '"' becomes "'", "<>" become "()";
/// "noname" for an empty result. `size` limits the UTF-16 units. Plain Latin: without characters beyond
/// Windows-1252.
std::u16string SanitizeFileName(std::u16string_view name, std::size_t size = 259,
                                PlainLatin plainLatin = PlainLatin::No);
/// The same for 8-bit names (Windows-1252), where "<" and ">" are reserved and "|" stays. Upper case: blanks
/// and "." become "_" too.
std::string SanitizeFileNameNarrow(std::string_view name, std::size_t size = 259,
                                   UpperCase upperCase = UpperCase::No);

} // namespace vimbo
