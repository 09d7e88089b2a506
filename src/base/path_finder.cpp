#include "base/path_finder.h"

#include "base/path.h"
#include "base/text.h"

#include <algorithm>
#include <filesystem>
#include <vector>

namespace vimbo {
namespace {

std::u16string Folded(std::u16string_view name)
{
    std::u16string folded(name);
    ComposeAccents(folded);
    std::ranges::transform(folded, folded.begin(), FoldCase);
    return folded;
}

bool Exists(std::u16string_view path)
{
    std::error_code error;
    return std::filesystem::exists(WideToPath(path), error);
}

} // namespace

const PathFinder::Folder& PathFinder::FolderAt(const std::u16string& path)
{
    const auto [place, isNew] = folders_.try_emplace(path);
    if (!isNew)
        return place->second;
    std::vector<DirectoryEntry> entries;
    if (ListDirectory(path.empty() ? std::u16string_view(u".") : std::u16string_view(path), entries))
        for (const DirectoryEntry& entry : entries)
            place->second.names.try_emplace(Folded(entry.name), entry.name);
    return place->second;
}

/// The entry that `name` means, as written or else by the folder's list; empty if there is none.
std::u16string PathFinder::FindIn(const std::u16string& folder, const std::u16string& name, bool mustBeFolder)
{
    std::u16string asWritten = JoinPath(folder, name);
    if (mustBeFolder ? IsDirectory(asWritten) : Exists(asWritten))
        return asWritten;
    const Folder& entries = FolderAt(folder);
    const auto match = entries.names.find(Folded(name));
    return match == entries.names.end() ? std::u16string() : JoinPath(folder, match->second);
}

/// The existing folder that a path means ("" for the current one), if there is one.
const std::optional<std::u16string>& PathFinder::FindFolder(const std::u16string& path)
{
    const auto [place, isNew] = found_.try_emplace(path);
    std::optional<std::u16string>& found = place->second; // stays where it is
    if (!isNew)
        return found;
    const std::size_t last = path.find_last_not_of(u'/');
    if (last == std::u16string::npos) {
        found = path.substr(0, 1);
        return found;
    }
    const std::size_t name = path.find_last_of(u'/', last) + 1; // 0 if there is none
    if (const std::optional<std::u16string>& parent = FindFolder(path.substr(0, name)))
        if (std::u16string entry = FindIn(*parent, path.substr(name, last + 1 - name), true); !entry.empty())
            found = std::move(entry);
    return found;
}

std::u16string PathFinder::Find(std::u16string_view path)
{
    if (path.empty() || path.find(u'\0') != std::u16string_view::npos)
        return {};
    std::u16string slashed(path);
    if (path.find(u'\\') != std::u16string_view::npos) {
        if (Exists(path))
            return slashed;
        std::ranges::replace(slashed, u'\\', u'/');
    }
    const std::size_t last = slashed.find_last_not_of(u'/');
    if (last == std::u16string::npos)
        return u"/";
    const std::size_t name = slashed.find_last_of(u'/', last) + 1;
    const std::optional<std::u16string>& folder = FindFolder(slashed.substr(0, name));
    if (!folder)
        return {};
    return FindIn(*folder, slashed.substr(name, last + 1 - name), last + 1 < slashed.size());
}

} // namespace vimbo
