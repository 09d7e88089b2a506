#include "base/file_object.h"

#include "base/path_lookup.h"
#include "base/text.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <optional>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vimbo {

namespace {

constexpr int kMaxLinks = 40; ///< as many as the system itself follows
constexpr int kMaxNames = 1000;
constexpr mode_t kPermissionBits = 0777;

/// The folder with its final "/".
std::string FolderOf(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "./" : path.substr(0, slash + 1);
}

/// Follows links to the file that is really meant, which need not exist. Replacing the link would lose it.
std::optional<std::string> FollowLinks(std::string path)
{
    for (int i = 0; i < kMaxLinks; ++i) {
        std::array<char, PATH_MAX> link;
        const ssize_t length = ::readlink(path.c_str(), link.data(), link.size());
        if (length < 0)
            return path;
        const std::string target(link.data(), static_cast<std::size_t>(length));
        path = target.starts_with('/') ? target : FolderOf(path) + target;
    }
    return std::nullopt;
}

/// Calls `make(name)` with hidden names in `folder` until one is not taken. The names are short, so that long
/// targets have theirs too. @return what the last call returned
template <class Make>
int WithFreeName(const std::string& folder, std::string& name, Make make)
{
    static std::atomic<unsigned> serial = 0;
    int result = -1;
    for (int i = 0; i < kMaxNames; ++i) {
        name = folder + ".vimbo-" + std::to_string(::getpid()) + '-' + std::to_string(++serial) + ".tmp";
        result = make(name.c_str());
        if (result >= 0 || (errno != EEXIST && errno != EINTR))
            break;
    }
    return result;
}

/// Creates a file that no one else has.
int CreateTemporary(const std::string& folder, mode_t mode, std::string& name)
{
    return WithFreeName(folder, name, [mode](const char* path) {
        return ::open(path, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    });
}

/// A file of no name, of which nothing is left if the process is ended. -1 where that cannot be had.
int CreateUnnamed(const std::string& folder, mode_t mode) noexcept
{
    // Without this folder it could never be named.
    return ::access("/proc/self/fd", X_OK) == 0 ? ::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, mode)
                                                : -1;
}

bool NameFile(int descriptor, const std::string& folder, std::string& name)
{
    const std::string open = "/proc/self/fd/" + std::to_string(descriptor);
    return WithFreeName(folder, name, [&open](const char* path) {
               return ::linkat(AT_FDCWD, open.c_str(), AT_FDCWD, path, AT_SYMLINK_FOLLOW);
           }) == 0;
}

/// Makes a rename in the folder last. Not every file system can; the new file is in its place either way.
void SyncFolder(const std::string& folder) noexcept
{
    const int descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0)
        return;
    static_cast<void>(::fsync(descriptor));
    ::close(descriptor);
}

bool SyncFile(int descriptor) noexcept
{
    int result = ::fsync(descriptor);
    while (result != 0 && errno == EINTR)
        result = ::fsync(descriptor);
    return result == 0;
}

} // namespace

GuardedFile::~GuardedFile()
{
    Discard();
}

void GuardedFile::Discard() noexcept
{
    file_.Close();
    if (descriptor_ >= 0)
        ::close(descriptor_);
    descriptor_ = -1;
    if (!temporary_.empty())
        ::unlink(temporary_.c_str());
    temporary_.clear();
}

bool GuardedFile::Create(std::u16string_view path)
{
    Discard();
    const std::u16string opened = OpenByLookup(
        path, FileMode::Create, [this](const std::u16string& candidate) { return CreateBeside(candidate); });
    if (opened.empty())
        return false;
    file_.Attach(descriptor_, opened);
    return true;
}

bool GuardedFile::CreateBeside(const std::u16string& path)
{
    const std::string written = WideToPath(path);
    if (written.empty() || written.ends_with('/') || written.find('\0') != std::string::npos)
        return false;
    std::optional<std::string> target = FollowLinks(written);
    if (!target)
        return false;
    struct stat earlier = {};
    const bool replaces = ::lstat(target->c_str(), &earlier) == 0;
    // A rename would put a plain file in the place of a device, and pass over a write protection.
    if (replaces &&
        (!S_ISREG(earlier.st_mode) || ::faccessat(AT_FDCWD, target->c_str(), W_OK, AT_EACCESS) != 0))
        return false;

    // What replaces a private file is private from the first byte on.
    const mode_t mode = replaces ? 0600 : 0666;
    const std::string folder = FolderOf(*target);
    std::string temporary;
    descriptor_ = CreateUnnamed(folder, mode);
    if (descriptor_ < 0) {
        descriptor_ = CreateTemporary(folder, mode, temporary);
        if (descriptor_ < 0)
            return false;
        temporary_ = std::move(temporary);
    }
    target_ = std::move(*target);
    if (!replaces || ::fchmod(descriptor_, earlier.st_mode & kPermissionBits) == 0)
        return true;
    Discard();
    return false;
}

bool GuardedFile::Seal()
{
    if (descriptor_ < 0)
        return !temporary_.empty();
    file_.Close();
    struct stat earlier = {};
    const bool replaces = ::lstat(target_.c_str(), &earlier) == 0;
    bool whole = !replaces || SyncFile(descriptor_);
    if (temporary_.empty()) {
        std::string name;
        whole = whole && NameFile(descriptor_, FolderOf(target_), name);
        temporary_ = whole ? std::move(name) : std::string();
    }
    // Network file systems tell a full disk only here.
    whole = ::close(descriptor_) == 0 && whole;
    descriptor_ = -1;
    if (!whole)
        Discard();
    return whole;
}

bool GuardedFile::Commit()
{
    if (!Seal())
        return false;
    struct stat earlier = {};
    const bool replaces = ::lstat(target_.c_str(), &earlier) == 0;
    const bool isPlaced = std::rename(temporary_.c_str(), target_.c_str()) == 0;
    if (isPlaced) {
        temporary_.clear();
        if (replaces)
            SyncFolder(FolderOf(target_));
    }
    Discard();
    return isPlaced;
}

namespace {

/// Files that new ones replace, kept under hidden names until all are in their places.
class Earlier {
public:
    Earlier() = default;
    Earlier(const Earlier&) = delete;
    Earlier& operator=(const Earlier&) = delete;
    /// Without Forget, every place gets back what it held.
    ~Earlier()
    {
        for (std::size_t i = places_.size(); i-- > 0;) {
            const Place& place = places_[i];
            if (place.kept.empty()) {
                ::unlink(place.path.c_str());
                continue;
            }
            static_cast<void>(std::rename(place.kept.c_str(), place.path.c_str()));
            ::unlink(place.kept.c_str()); // still there if both names are the same file's
        }
    }

    /// Called right before the place gets its new file. False if the earlier file can't be kept.
    bool Keep(const std::string& path)
    {
        struct stat earlier = {};
        if (::lstat(path.c_str(), &earlier) != 0) {
            places_.push_back({path, {}});
            return true;
        }
        if (!S_ISREG(earlier.st_mode))
            return false;
        std::string kept;
        const int descriptor = CreateTemporary(FolderOf(path), 0600, kept);
        if (descriptor < 0)
            return false;
        ::close(descriptor);
        ::unlink(kept.c_str());
        // A second name leaves the file in its place meanwhile; not every file system has them.
        if (::link(path.c_str(), kept.c_str()) != 0 && std::rename(path.c_str(), kept.c_str()) != 0)
            return false;
        places_.push_back({path, std::move(kept)});
        return true;
    }

    void Forget() noexcept
    {
        for (const Place& place : places_)
            if (!place.kept.empty())
                ::unlink(place.kept.c_str());
        places_.clear();
    }

private:
    struct Place {
        std::string path;
        std::string kept; ///< "" if there was no file
    };
    std::vector<Place> places_;
};

} // namespace

bool GuardedFileSet::Take(std::unique_ptr<GuardedFile> file)
{
    if (!file->Seal())
        return false;
    files_.push_back(std::move(file));
    return true;
}

bool GuardedFileSet::Commit()
{
    Earlier earlier;
    for (const std::unique_ptr<GuardedFile>& file : files_)
        if (!earlier.Keep(file->target_) || !file->Commit())
            return false;
    earlier.Forget();
    files_.clear();
    return true;
}

} // namespace vimbo
