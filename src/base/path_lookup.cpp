#include "base/path_lookup.h"

#include "base/path.h"
#include "base/text.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

#include <sys/stat.h>

namespace vimbo {

namespace {

namespace fs = std::filesystem;

std::optional<mode_t> TypeOf(const std::string& path) noexcept
{
    struct stat status = {};
    if (path.find('\0') != std::string::npos || ::stat(path.c_str(), &status) != 0)
        return std::nullopt;
    return status.st_mode & S_IFMT;
}

std::u16string WithSlashes(std::u16string_view path)
{
    std::u16string slashed(path);
    std::replace(slashed.begin(), slashed.end(), u'\\', u'/');
    return slashed;
}

template <class Visit>
bool ForEachEntry(const std::string& folder, Visit visit)
{
    std::error_code error;
    fs::directory_iterator at(folder, error);
    while (!error && at != fs::directory_iterator()) {
        visit(*at);
        at.increment(error);
    }
    return !error;
}

constexpr bool IsAscii(char c) noexcept
{
    return static_cast<unsigned char>(c) < 0x80;
}

/// CompareNoCase() == 0, deciding most names without converting them: a lookup meets every name of a folder.
bool IsSameNoCase(const std::string& a, const std::string& b)
{
    const auto sameAscii = [](char x, char y) {
        return IsAscii(x) && IsAscii(y) &&
               FoldCase(static_cast<char16_t>(x)) == FoldCase(static_cast<char16_t>(y));
    };
    const auto [inA, inB] = std::mismatch(a.begin(), a.end(), b.begin(), b.end(), sameAscii);
    if (inA == a.end() || inB == b.end())
        return inA == a.end() && inB == b.end();
    if (IsAscii(*inA) && IsAscii(*inB))
        return false;
    return CompareNoCase(PathToWide(a), PathToWide(b)) == 0;
}

enum class Wanted : bool { Anything, Folder };

/// The first name in byte order in `folder` that differs from `name` in letter case only.
std::string MatchInFolder(const std::string& folder, const std::string& name, Wanted wanted)
{
    std::string best;
    const auto consider = [&](const fs::directory_entry& entry) {
        const std::string& path = entry.path().native();
        std::string found = path.substr(path.rfind('/') + 1);
        std::error_code error;
        if (IsSameNoCase(found, name) && (best.empty() || found < best) &&
            (wanted == Wanted::Anything || entry.is_directory(error)))
            best = std::move(found);
    };
    return ForEachEntry(folder.empty() ? "." : folder, consider) ? best : std::string();
}

/// Resolves a path of this system from the left; a folder is only listed when the next name is not in it as
/// written.
std::string MatchPath(const std::string& path)
{
    std::string found = path.starts_with('/') ? "/" : "";
    for (std::size_t at = 0; at < path.size();) {
        const std::size_t end = std::min(path.find('/', at), path.size());
        const std::string name = path.substr(at, end - at);
        const Wanted wanted = end < path.size() ? Wanted::Folder : Wanted::Anything;
        at = end + 1;
        if (name.empty())
            continue;
        const std::string prefix = found.empty() || found == "/" ? found : found + '/';
        const std::optional<mode_t> type = TypeOf(prefix + name);
        const bool asWritten = type && (wanted == Wanted::Anything || *type == S_IFDIR);
        const std::string match = asWritten ? name : MatchInFolder(found, name, wanted);
        if (match.empty())
            return {};
        found = prefix + match;
    }
    return found;
}

} // namespace

bool IsDirectory(std::u16string_view path)
{
    return TypeOf(WideToPath(path)) == mode_t{S_IFDIR};
}

bool IsFile(std::u16string_view path)
{
    return TypeOf(WideToPath(path)) == mode_t{S_IFREG};
}

std::u16string FindExistingPath(std::u16string_view path)
{
    if (path.empty() || path.find(u'\0') != std::u16string_view::npos)
        return {};
    if (TypeOf(WideToPath(path)))
        return std::u16string(path);
    const std::string slashed = WideToPath(WithSlashes(path));
    return PathToWide(TypeOf(slashed) ? slashed : MatchPath(slashed));
}

std::u16string FindPathToCreate(std::u16string_view path)
{
    const std::u16string asWritten = DirectoryOf(path);
    if (asWritten.empty() || IsDirectory(asWritten))
        return {};
    const std::u16string slashed = WithSlashes(path);
    const std::u16string folder = FindExistingPath(DirectoryOf(slashed));
    return folder.empty() ? folder : JoinPath(folder, slashed.substr(slashed.rfind(u'/') + 1));
}

std::u16string OpenByLookup(std::u16string_view path, FileMode mode,
                            const std::function<bool(const std::u16string&)>& open)
{
    const auto tryBoth = [&](const std::u16string& written) -> std::u16string {
        if (open(written))
            return written;
        const bool create = mode == FileMode::Create;
        std::u16string found = create ? FindPathToCreate(written) : FindExistingPath(written);
        return !found.empty() && found != written && open(found) ? found : std::u16string();
    };
    std::u16string candidate(path);
    std::u16string opened = tryBoth(candidate);
    if (opened.empty() && ComposeAccents(candidate))
        opened = tryBoth(candidate);
    return opened;
}

bool MakeDirectories(std::u16string_view path)
{
    const std::string bytes = WideToPath(path);
    std::error_code error;
    if (bytes.empty() || bytes.find('\0') != std::string::npos)
        return false;
    fs::create_directories(bytes, error);
    return fs::is_directory(bytes, error);
}

bool ListDirectory(std::u16string_view path, std::vector<DirectoryEntry>& out)
{
    const std::string folder = WideToPath(path);
    std::vector<std::pair<std::string, bool>> entries;
    const auto keep = [&entries](const fs::directory_entry& entry) {
        std::error_code error; // a dangling link has no type, and is listed all the same
        const bool isDirectory = entry.is_directory(error);
        entries.emplace_back(entry.path().filename().native(), isDirectory);
    };
    if (folder.find('\0') != std::string::npos || !ForEachEntry(folder, keep))
        return false;
    std::sort(entries.begin(), entries.end());
    out.clear();
    for (const auto& [name, isDirectory] : entries)
        out.push_back({PathToWide(name), isDirectory});
    return true;
}

} // namespace vimbo
