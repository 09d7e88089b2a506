// Finding many files whose names were written by other systems.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace vimbo {

/// FindExistingPath for many names: each folder is listed once, when a name in it is first not found as
/// written. Precomposed and decomposed accents count as equal too. What is created or removed meanwhile may
/// not be noticed. Belongs to one thread at a time.
class PathFinder {
public:
    /// The existing path that `path` means, "\\" read as "/"; empty if there is none.
    std::u16string Find(std::u16string_view path);

private:
    struct Folder {
        std::map<std::u16string, std::u16string> names; ///< by folded name; the first in byte order
    };
    const Folder& FolderAt(const std::u16string& path);
    std::u16string FindIn(const std::u16string& folder, const std::u16string& name, bool mustBeFolder);
    const std::optional<std::u16string>& FindFolder(const std::u16string& path);

    std::unordered_map<std::u16string, Folder> folders_;
    std::unordered_map<std::u16string, std::optional<std::u16string>> found_; ///< by paths as written
};

} // namespace vimbo
