#include "base/path_finder.h"

#include "base/path.h"
#include "base/text.h"

#include <algorithm>
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
    return IsFile(path) || IsDirectory(path);
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

std::u16string PathFinder::Find(std::u16string_view path)
{
    if (path.empty() || path.find(u'\0') != std::u16string_view::npos)
        return {};
    std::u16string slashed(path);
    if (Exists(slashed))
        return slashed;
    std::ranges::replace(slashed, u'\\', u'/');
    if (Exists(slashed))
        return slashed;
    std::u16string found = slashed.starts_with(u'/') ? u"/" : u"";
    for (std::size_t at = 0; at < slashed.size();) {
        const std::size_t end = std::min(slashed.find(u'/', at), slashed.size());
        const std::u16string name = slashed.substr(at, end - at);
        at = end + 1;
        if (name.empty())
            continue;
        const std::u16string asWritten = JoinPath(found, name);
        if (end < slashed.size() ? IsDirectory(asWritten) : Exists(asWritten)) {
            found = asWritten;
            continue;
        }
        const Folder& folder = FolderAt(found);
        const auto match = folder.names.find(Folded(name));
        if (match == folder.names.end())
            return {};
        found = JoinPath(found, match->second);
    }
    return found;
}

} // namespace vimbo
