// Taking paths apart, finding files whose names were written by other systems, and scratch files.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vimbo {

/// Position of the last "." of the last path component, or path.size() if it has none. For a path that ends
/// in "..", the position of the last ".".
std::size_t GetExtension(std::u16string_view path) noexcept;

/// Position behind the last "/", ":" or "\\".
std::size_t GetFileName(std::u16string_view path) noexcept;

/// The last component without its extension: the name that an opened file gives to its collection.
std::u16string BaseName(std::u16string_view path);

/// Folder part of a path of this system ("/" separates), without the final "/"; "" if there is none, "/" for
/// the root.
std::u16string DirectoryOf(std::u16string_view path);

/// folder + "/" + name; an absolute name or an empty folder gives the name alone.
std::u16string JoinPath(std::u16string_view folder, std::u16string_view name);

/// Replaces decomposed accents by precomposed Latin-1 letters and drops other combining marks, in place.
/// @return true if any letter changed.
bool ComposeAccents(std::u16string& path);

/// The existing path that `path` means: as written, with "\\" read as "/", then component by component
/// without regard to letter case (an exact match wins, then the first in byte order). Empty if there is none.
/// Windows drive prefixes ("C:") are not resolved.
std::u16string FindExistingPath(std::u16string_view path);

/// True if the path names an existing directory / regular file (links followed).
bool IsDirectory(std::u16string_view path);
bool IsFile(std::u16string_view path);

/// Creates a folder and its missing parents; true if it exists afterwards.
[[nodiscard]] bool MakeDirectories(std::u16string_view path);

struct DirectoryEntry {
    std::u16string name;
    bool isDirectory = false;
};

/// The entries of a folder in byte order of their names, "." and ".." left out; false if it cannot be read.
[[nodiscard]] bool ListDirectory(std::u16string_view path, std::vector<DirectoryEntry>& out);

/// A path in the system's folder for temporary files, "Vimbo Studio", a part of its own for every call, then
/// the suffix
/// (".wav"). The empty file is created at once with access for this user only, so no two runs ever meet.
[[nodiscard]] bool MakeTempPath(std::u16string& out, std::u16string_view suffix);

/// Moves a file to the desktop's trash (freedesktop.org Trash specification 1.0); true also if there is no
/// such file.
[[nodiscard]] bool MoveToRecycleBin(std::u16string_view path);

} // namespace vimbo
