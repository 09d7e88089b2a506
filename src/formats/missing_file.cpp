#include "formats/open.h"

#include "base/path.h"

namespace vimbo {

namespace {

/// `name` as the bank spells it below `folder`: with its own folder parts first, then its file part alone.
std::u16string LookBelow(PathFinder& finder, std::u16string_view folder, std::u16string_view name)
{
    std::u16string found = finder.Find(JoinPath(folder, name));
    if (!found.empty() && IsFile(found))
        return found;
    found = finder.Find(JoinPath(folder, name.substr(GetFileName(name))));
    return !found.empty() && IsFile(found) ? found : std::u16string();
}

} // namespace

MissingFileSearch::MissingFileSearch(Host& host, std::u16string_view bankPath)
    : host_(host), bankFolder_(DirectoryOf(bankPath))
{
}

bool MissingFileSearch::Find(std::u16string_view name, std::u16string_view filter, std::u16string& out)
{
    out.clear();
    if (name.empty())
        return false;
    if (!lastFolder_.empty())
        out = LookBelow(finder_, lastFolder_, name);
    if (out.empty())
        out = LookBelow(finder_, bankFolder_, name);
    if (!out.empty())
        return true;
    if (!refused_.insert(std::u16string(name)).second)
        return false;
    std::u16string text = u"Please locate the missing file: ";
    text += name;
    if (!host_.PickFile(text, filter, out) || !IsFile(out)) {
        out.clear();
        return false;
    }
    refused_.erase(std::u16string(name));
    lastFolder_ = DirectoryOf(out);
    return true;
}

} // namespace vimbo
