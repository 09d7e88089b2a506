#include "base/file_object.h"

#include "base/path_lookup.h"
#include "base/text.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <limits>

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vimbo {

namespace {

constexpr std::size_t kPieceBytes = 0x10000000; ///< most that one system call is asked for
constexpr std::size_t kLookAheadBytes = 4096;
constexpr std::uint64_t kWorthReserving = 0x100000; ///< less is found as quickly without
constexpr auto kMaxPosition = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
static_assert(sizeof(off_t) == 8);

int OpenFlags(FileMode mode) noexcept
{
    // O_NONBLOCK: a FIFO without a writer must not hold the program up before its type is known.
    constexpr int kAlways = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    switch (mode) {
    case FileMode::Read:
        return kAlways | O_RDONLY;
    case FileMode::ReadWrite:
        return kAlways | O_RDWR;
    case FileMode::Create:
        break;
    }
    return kAlways | O_RDWR | O_CREAT | O_TRUNC;
}

template <class Call>
auto Uninterrupted(Call call) noexcept
{
    auto result = call();
    while (result < 0 && errno == EINTR)
        result = call();
    return result;
}

/// Only what has bytes at positions is a file here: regular files and block devices.
bool MakeUsable(int descriptor) noexcept
{
    struct stat status = {};
    if (::fstat(descriptor, &status) != 0 || (!S_ISREG(status.st_mode) && !S_ISBLK(status.st_mode)))
        return false;
    const int flags = ::fcntl(descriptor, F_GETFL);
    return flags >= 0 && ::fcntl(descriptor, F_SETFL, flags & ~O_NONBLOCK) == 0;
}

} // namespace

class FileObject::LookAhead {
public:
    void Forget() noexcept { count_ = 0; }

    /// Copies what it holds from `offset` on; 0 if it holds nothing there.
    std::size_t Copy(std::uint64_t offset, std::span<std::byte> out) const noexcept
    {
        if (offset < offset_ || offset - offset_ >= count_)
            return 0;
        const auto skip = static_cast<std::size_t>(offset - offset_);
        const std::size_t bytes = std::min(out.size(), count_ - skip);
        std::memcpy(out.data(), bytes_.data() + skip, bytes);
        return bytes;
    }

    bool Fill(FileObject& file, std::uint64_t offset) noexcept
    {
        const std::int64_t got = file.ReadAt(offset, bytes_);
        offset_ = offset;
        count_ = got > 0 ? static_cast<std::size_t>(got) : 0;
        return got >= 0;
    }

private:
    std::array<std::byte, kLookAheadBytes> bytes_;
    std::uint64_t offset_ = 0;
    std::size_t count_ = 0;
};

FileObject::FileObject() noexcept = default;

FileObject::~FileObject()
{
    FileObject::Close();
}

bool FileObject::Open(std::u16string_view path, FileMode mode)
{
    const std::u16string wanted(path); // the argument may be a view of the stored path
    FileObject::Close();
    path_ = wanted;
    std::u16string opened = OpenByLookup(wanted, mode, [&](const std::u16string& candidate) {
        return OpenExactly(WideToPath(candidate), mode);
    });
    if (opened.empty())
        return false;
    path_ = std::move(opened);
    return true;
}

bool FileObject::OpenExactly(const std::string& path, FileMode mode) noexcept
{
    if (path.find('\0') != std::string::npos)
        return false;
    const int descriptor = Uninterrupted([&] { return ::open(path.c_str(), OpenFlags(mode), 0666); });
    if (descriptor < 0)
        return false;
    if (!MakeUsable(descriptor)) {
        ::close(descriptor);
        return false;
    }
    descriptor_ = descriptor;
    ownsHandle_ = true;
    return true;
}

void FileObject::Attach(int descriptor, std::u16string_view path)
{
    std::u16string stored(path);
    FileObject::Close();
    path_ = std::move(stored);
    descriptor_ = descriptor;
}

void FileObject::Close() noexcept
{
    if (ownsHandle_)
        ::close(descriptor_);
    descriptor_ = -1;
    ownsHandle_ = false;
    position_ = 0;
    if (lookAhead_)
        lookAhead_->Forget();
}

bool FileObject::IsOpen() const noexcept
{
    return descriptor_ >= 0;
}

std::uint64_t FileObject::Size() const noexcept
{
    struct stat status = {};
    if (descriptor_ < 0 || ::fstat(descriptor_, &status) != 0)
        return 0;
    if (S_ISBLK(status.st_mode)) {
        std::uint64_t bytes = 0;
        return ::ioctl(descriptor_, BLKGETSIZE64, &bytes) == 0 ? bytes : 0;
    }
    return static_cast<std::uint64_t>(std::max<off_t>(status.st_size, 0));
}

bool FileObject::Seek(std::uint64_t position) noexcept
{
    if (!IsOpen() || position > kMaxPosition)
        return false;
    position_ = position;
    return true;
}

std::int64_t FileObject::ReadBuffered(std::span<std::byte> out) noexcept
{
    // Only descriptors gain by it: what overrides ReadAt has its bytes at hand, or keeps a buffer of its own.
    if (descriptor_ < 0 || out.size() >= kLookAheadBytes || !MakeLookAhead())
        return ReadAt(position_, out);
    if (const std::size_t held = lookAhead_->Copy(position_, out))
        return static_cast<std::int64_t>(held);
    // Where the bytes ahead cannot be read (a scratched disc), those asked for may still be.
    if (!lookAhead_->Fill(*this, position_))
        return ReadAt(position_, out);
    return static_cast<std::int64_t>(lookAhead_->Copy(position_, out));
}

bool FileObject::MakeLookAhead() noexcept
{
    try {
        if (!lookAhead_)
            lookAhead_ = std::make_unique<LookAhead>();
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

bool FileObject::ReadAll(std::span<std::byte> out, std::uint64_t* got) noexcept
{
    std::size_t total = 0;
    std::int64_t bytes = 0;
    while (total < out.size()) {
        bytes = ReadBuffered(out.subspan(total, std::min(out.size() - total, kPieceBytes)));
        if (bytes <= 0)
            break;
        total += static_cast<std::size_t>(bytes);
        position_ += static_cast<std::uint64_t>(bytes);
    }
    if (got != nullptr)
        *got = total;
    return bytes >= 0;
}

bool FileObject::WriteAll(std::span<const std::byte> bytes, std::uint64_t* written) noexcept
{
    if (lookAhead_)
        lookAhead_->Forget();
    std::size_t total = 0;
    while (total < bytes.size()) {
        const std::int64_t done =
            WriteAt(position_, bytes.subspan(total, std::min(bytes.size() - total, kPieceBytes)));
        if (done <= 0)
            break;
        total += static_cast<std::size_t>(done);
        position_ += static_cast<std::uint64_t>(done);
    }
    if (written != nullptr)
        *written = total;
    return total == bytes.size();
}

bool FileObject::ReadExact(std::span<std::byte> out) noexcept
{
    std::uint64_t got = 0;
    return ReadAll(out, &got) && got == out.size();
}

bool FileObject::ReadLine(std::span<char> line) noexcept
{
    if (line.empty())
        return false;
    std::size_t stored = 0;
    for (std::size_t taken = 0; taken + 1 < line.size(); ++taken) {
        unsigned char byte = 0;
        if (!ReadExact(std::as_writable_bytes(std::span(&byte, 1))) || byte == '\n' || byte == '\0')
            break;
        if (byte >= 32)
            line[stored++] = static_cast<char>(byte);
    }
    line[stored] = '\0';
    return stored > 0;
}

void FileObject::Reserve(std::uint64_t size) noexcept
{
    if (size >= kWorthReserving && size <= kMaxPosition)
        static_cast<void>(::fallocate(descriptor_, FALLOC_FL_KEEP_SIZE, 0, static_cast<off_t>(size)));
}

bool FileObject::Truncate(std::uint64_t size) noexcept
{
    if (lookAhead_)
        lookAhead_->Forget();
    return size <= kMaxPosition &&
           Uninterrupted([&] { return ::ftruncate(descriptor_, static_cast<off_t>(size)); }) == 0;
}

bool FileObject::Sync() noexcept
{
    return Uninterrupted([&] { return ::fsync(descriptor_); }) == 0;
}

std::int64_t FileObject::ReadAt(std::uint64_t offset, std::span<std::byte> out) noexcept
{
    if (offset > kMaxPosition)
        return -1;
    // A range that crosses the last position is an error to the system; here it is only the end of the file.
    const auto bytes = static_cast<std::size_t>(std::min<std::uint64_t>(out.size(), kMaxPosition - offset));
    return Uninterrupted([&] { return ::pread(descriptor_, out.data(), bytes, static_cast<off_t>(offset)); });
}

std::int64_t FileObject::WriteAt(std::uint64_t offset, std::span<const std::byte> bytes) noexcept
{
    if (offset > kMaxPosition)
        return -1;
    return Uninterrupted(
        [&] { return ::pwrite(descriptor_, bytes.data(), bytes.size(), static_cast<off_t>(offset)); });
}

} // namespace vimbo
