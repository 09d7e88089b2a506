// "Save all in multiple files...": every item of a kind in a file of its own, named automatically.
#pragma once

#include "formats/save.h"
#include "model/instrument.h"

#include <functional>
#include <optional>
#include <string>

namespace vimbo {

/// How file names are made of the base name that the user chose, here "foo.bar". Settings store the numbers.
enum class AutoNaming : int {
    BaseAndNumber = 210, ///< "foo - 07.bar"
    NumberAndBase = 211, ///< "07 - foo.bar"
    BaseAndName = 212,   ///< "foo - <name>.bar"
    Name = 213,          ///< "<name>.bar"
    NumberAndName = 214, ///< "07 - <name>.bar"
    SourceFile = 215,    ///< "<source-file-name>.bar"
    Prompt = 216,        ///< the user is asked for each file
    ProgramAndName = 218 ///< "<hibank>-<lobank>-<prg> - <name>.bar", "d" ahead of drum kits
};

enum class SubFolders : bool { No, Yes };

/// The path of one item's file, with the folder and extension of `basePath`. Item names are made legal, and
/// shortened so that the path has at most 259 units and the file name 255 bytes, as far as the folder leaves
/// room. With sub-folders: "foo/foo.bar". Nothing is created.
/// @param number  the item's, from 1
std::u16string AutoName(std::u16string_view basePath, const Item& item, AutoNaming naming,
                        SubFolders subFolders, std::size_t number);

/// True for rows that hold collections as a set of files, one for each instrument.
bool HasFilePerInstrument(const FormatRow& row) noexcept;
/// Takes what ProgramAndName puts ahead of a name off it; none if it does not begin so.
std::optional<MidiLocation> TakeProgram(std::u16string& name);

/// Where and how one item is saved.
struct SaveTarget {
    std::u16string path;
    int row = -1;
    FormatChoice choice;
};

struct SaveAllOptions {
    AutoNaming naming = AutoNaming::Name;
    SubFolders subFolders = SubFolders::No;
    const SaveServices* services = nullptr;
    /// Asks where one item shall go, with a name preset; it is this function that asks before files are
    /// replaced. False: the user gave up.
    std::function<bool(const Item& item, SaveTarget& target)> pickTarget;
};

struct SaveAllResult {
    std::size_t saved = 0, failed = 0, skipped = 0; ///< files
    bool cancelled = false;
};

/// A row that holds collections gets one file, whatever the naming. Else all instruments, waveforms or songs
/// are saved, the first of these that the row holds. Name collisions, failures and the end are told to the
/// collection's host; a failed file does not end the run.
/// @return false with the Last error text if nothing can be saved: "No instruments to save!", "No waveforms
/// to save!", "No songs to save!", "Can't 'Save all...' with this file format!", "Invalid export format
/// selected", and for the one file of a collection what SaveItem says
[[nodiscard]] bool SaveAll(Collection& collection, const SaveTarget& base, const SaveAllOptions& options,
                           SaveAllResult* result = nullptr);

} // namespace vimbo
