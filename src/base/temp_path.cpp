#include "base/path.h"

#include "base/percent.h"
#include "base/text.h"
#include "base/user_folder.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <optional>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

namespace vimbo {

namespace {

namespace fs = std::filesystem;

constexpr mode_t kPrivateFolder = 0700;
constexpr int kMaxNames = 10000;
/// Longest kept name: with a serial number and ".trashinfo" it still fits the 255 bytes of a name.
constexpr std::size_t kMaxTrashedName = 236;

enum class Trashed { Yes, No, NotHere };

/// A trash folder and the folder that the paths in its info files start from ("" for absolute ones).
struct TrashFolder {
    std::string path;
    std::string base;
};

std::string HomeTrash()
{
    const std::string data = UserFolder("XDG_DATA_HOME", ".local/share");
    return data.empty() ? data : data + "/Trash";
}

/// Creates a folder for this user alone, or accepts one that is this user's. Links might lead anywhere.
bool MakePrivateFolder(const std::string& path) noexcept
{
    if (::mkdir(path.c_str(), kPrivateFolder) != 0 && errno != EEXIST)
        return false;
    struct stat status = {};
    return ::lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == ::geteuid();
}

bool MakeHomeTrash(const std::string& trash)
{
    std::error_code error;
    fs::create_directories(fs::path(trash).parent_path(), error);
    return ::mkdir(trash.c_str(), kPrivateFolder) == 0 || fs::is_directory(trash, error);
}

/// The uppermost folder of the file system that `folder` lies on.
std::string TopFolder(std::string folder)
{
    struct stat here = {};
    struct stat above = {};
    if (::stat(folder.c_str(), &here) != 0)
        return folder;
    while (folder != "/") {
        std::string parent = fs::path(folder).parent_path().native();
        if (::stat(parent.c_str(), &above) != 0 || above.st_dev != here.st_dev)
            break;
        folder = std::move(parent);
    }
    return folder;
}

/// The trash of another file system: an administrator's .Trash (which must be sticky) or the user's own.
std::string TopTrash(const std::string& top)
{
    const std::string prefix = top == "/" ? top : top + '/';
    const std::string shared = prefix + ".Trash";
    struct stat status = {};
    if (::lstat(shared.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && (status.st_mode & S_ISVTX) != 0) {
        std::string own = fmt::format("{}/{}", shared, ::getuid());
        if (MakePrivateFolder(own))
            return own;
    }
    std::string own = fmt::format("{}.Trash-{}", prefix, ::getuid());
    return MakePrivateFolder(own) ? own : std::string();
}

std::string InfoText(const std::string& path)
{
    const std::time_t now = std::time(nullptr);
    std::tm local = {};
    ::localtime_r(&now, &local);
    std::array<char, 32> date = {};
    std::strftime(date.data(), date.size(), "%Y-%m-%dT%H:%M:%S", &local);
    return fmt::format("[Trash Info]\nPath={}\nDeletionDate={}\n", PercentEncoded(path), date.data());
}

/// Reserves a name in the trash by its info file, as the specification asks for. EEXIST in errno: taken.
bool WriteInfo(const std::string& path, const std::string& text) noexcept
{
    const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (descriptor < 0)
        return false;
    const bool written = ::write(descriptor, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    if (::close(descriptor) == 0 && written)
        return true;
    ::unlink(path.c_str());
    errno = EIO;
    return false;
}

/// Renames, but never over a file that another program left there without an info file.
bool MoveNoReplace(const std::string& from, const std::string& to) noexcept
{
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
        return true;
    if (errno != EINVAL && errno != ENOSYS)
        return false;
    struct stat status = {};
    if (::lstat(to.c_str(), &status) == 0) {
        errno = EEXIST;
        return false;
    }
    return std::rename(from.c_str(), to.c_str()) == 0;
}

std::string ShortenedName(std::string name)
{
    if (name.size() <= kMaxTrashedName)
        return name;
    std::size_t end = kMaxTrashedName;
    while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xC0) == 0x80) // not inside a UTF-8 sequence
        --end;
    name.resize(end);
    return name;
}

Trashed MoveInto(const TrashFolder& trash, const std::string& folder, const std::string& name)
{
    const std::string files = trash.path + "/files/";
    const std::string infos = trash.path + "/info/";
    if (!MakePrivateFolder(trash.path + "/files") || !MakePrivateFolder(trash.path + "/info"))
        return Trashed::NotHere;
    const std::string from = (folder == "/" ? "" : folder) + '/' + name;
    const std::string info = InfoText(trash.base.empty() ? from : from.substr(trash.base.size()));
    const std::string kept = ShortenedName(name);
    for (int i = 1; i <= kMaxNames; ++i) {
        const std::string unique = i == 1 ? kept : fmt::format("{}.{}", kept, i);
        const std::string infoPath = infos + unique + ".trashinfo";
        if (WriteInfo(infoPath, info)) {
            if (MoveNoReplace(from, files + unique))
                return Trashed::Yes;
            const int reason = errno;
            ::unlink(infoPath.c_str());
            if (reason != EEXIST)
                return reason == EXDEV ? Trashed::NotHere : Trashed::No;
        } else if (errno != EEXIST) {
            return Trashed::NotHere;
        }
    }
    return Trashed::No;
}

bool MoveToTrash(const std::string& folder, const std::string& name)
{
    const std::string home = HomeTrash();
    if (!home.empty() && MakeHomeTrash(home)) {
        const Trashed result = MoveInto({home, ""}, folder, name);
        if (result != Trashed::NotHere)
            return result == Trashed::Yes;
    }
    const std::string top = TopFolder(folder);
    const std::string trash = TopTrash(top);
    return !trash.empty() && MoveInto({trash, top == "/" ? top : top + '/'}, folder, name) == Trashed::Yes;
}

} // namespace

bool MakeTempPath(std::u16string& out, std::u16string_view suffix)
{
    const std::string tail = WideToPath(suffix);
    if (tail.find('/') != std::string::npos || tail.find('\0') != std::string::npos)
        return false;
    std::error_code error;
    fs::path folder = fs::temp_directory_path(error);
    if (error)
        folder = "/tmp";
    std::string path = (folder / "Vimbo Studio XXXXXX").native() + tail;
    const int descriptor = ::mkostemps(path.data(), static_cast<int>(tail.size()), O_CLOEXEC);
    if (descriptor < 0)
        return false;
    ::close(descriptor);
    out = PathToWide(path);
    return true;
}

bool MoveToRecycleBin(std::u16string_view path)
{
    std::string bytes = WideToPath(path);
    if (bytes.find('\0') != std::string::npos)
        return false;
    while (bytes.size() > 1 && bytes.ends_with('/'))
        bytes.pop_back();
    struct stat status = {};
    if (bytes.empty() || ::lstat(bytes.c_str(), &status) != 0)
        return bytes.empty() || errno == ENOENT || errno == ENOTDIR;
    // The folder is resolved but not the name: a link itself goes to the trash, not what it leads to.
    const fs::path file(bytes);
    const std::string name = file.filename().native();
    std::error_code error;
    const fs::path folder = fs::canonical(file.has_parent_path() ? file.parent_path() : ".", error);
    if (error || name.empty() || name == "." || name == "..")
        return false;
    return MoveToTrash(folder.native(), name);
}

} // namespace vimbo
