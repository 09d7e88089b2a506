// From a path to a filled, normalised Collection: detection, opening, merging, replacing, finding missing
// files.
#pragma once

#include "base/path_finder.h"
#include "formats/format_table.h"
#include "model/stereo_pairs.h"

#include <set>
#include <string>
#include <string_view>

namespace vimbo {

/// Command codes of the opening modes.
enum class OpenMode { New = 101, Merge = 103, ReplaceWaves = 151 };

/// Whether a file that no format matches may go to the raw import of row 0 (which asks the user first).
enum class AllowRaw : bool { No, Yes };

/// Scores the file against every readable row. @param confidence percent, 0 for row 0
/// @return the best row, or -1 for an empty file or when nothing matches at all. The file's position is kept.
int DetectFormat(std::u16string_view path, FileObject& file, int& confidence);

/// Loads into exactly this collection, which is emptied first. Errors: "Could not open file", "File is of
/// zero size", "Not a supported import file type", "Not detected as any supported file type", and those of
/// the reader; the collection is then empty and named "Empty collection".
[[nodiscard]] bool LoadFile(Collection& collection, std::u16string_view path, AllowRaw allowRaw,
                            int* confidence = nullptr);
/// Reads into a temporary collection and moves its items into this one.
[[nodiscard]] bool MergeFile(Collection& collection, std::u16string_view path);
/// After items of several files came together: a sample that several of them refer to is kept once, likewise
/// waveforms that are equal, if the load options say so.
/// The parameters are those of ShareSources.
/// @param count  equal waveforms are looked for among the first ones
void FinishMerge(Collection& collection, std::span<const FileStart> files, Unplayed unplayed,
                 std::size_t count = std::numeric_limits<std::size_t>::max());
/// Gives the samples and loops of the file's waveforms to waveforms of the same names.
/// @param replaced number of waveforms that got new samples
[[nodiscard]] bool ReplaceWaveforms(Collection& collection, std::u16string_view path, int& replaced);

enum class Announce : bool { No, Yes };
/// The entry for menus, command lines and drops. A folder opens every entry, merging after the first; it
/// stops at the first entry that fails. Takes O(n log n) time for all items of all files. @param opened
/// number of files that were opened
[[nodiscard]] bool OpenPath(Collection& collection, std::u16string_view path, OpenMode mode,
                            Announce announce, int* opened = nullptr);

/// Description and confidence in percent for previews: "Unknown file type" without a row; "" and 0 if
/// unreadable.
void DescribeFile(std::u16string_view path, std::u16string& name, int& confidence);
/// True if some format other than the raw fallback matches.
bool IsKnownFormat(std::u16string_view path);

/// Finds a file that a bank refers to: in the folder where the user found the last missing one, in the bank's
/// folder, else by asking through the host ("Please locate the missing file: ..."). The search belongs to one
/// bank and changes no process-wide directory, so that workers that read other banks are not disturbed.
/// @param name as the bank spells it; folder parts, either slash and any letter case are tried
class MissingFileSearch {
public:
    MissingFileSearch(Host& host, std::u16string_view bankPath);
    /// @param out the existing path; @return false if the user gave up, or was asked for this name before
    [[nodiscard]] bool Find(std::u16string_view name, std::u16string_view filter, std::u16string& out);

private:
    Host& host_;
    PathFinder finder_;
    std::u16string bankFolder_;
    std::u16string lastFolder_; ///< where the user found the last one: its siblings lie there too
    std::set<std::u16string> refused_;
};

/// The procedures of all drivers, by which state files know how samples are fetched.
std::span<const ImportProcedure* const> AllImportProcedures() noexcept;

} // namespace vimbo
