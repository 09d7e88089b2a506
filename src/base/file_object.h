// The one road to the disk: a file of the system, or bytes in memory that look like one.
#pragma once

#include "base/packed.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vimbo {

enum class FileMode : std::uint8_t {
    Read = 0,      ///< read access, the file must exist
    ReadWrite = 1, ///< read and write access, the file must exist
    Create = 2     ///< read and write access, created or truncated
};

/// A file with a 64-bit position. Sets no error text: a driver that sees a failed call says so in its own
/// words. Belongs to one thread at a time.
class FileObject {
public:
    FileObject() noexcept;
    virtual ~FileObject();
    FileObject(const FileObject&) = delete;
    FileObject& operator=(const FileObject&) = delete;

    /// Opens `path` and stores it. Closes what was open. A path that is not found as written is tried with
    /// "\\" as "/", without regard to letter case, and with composed accents; the stored path is then the one
    /// that was opened.
    [[nodiscard]] bool Open(std::u16string_view path, FileMode mode);
    /// Uses a descriptor that belongs to someone else: it is not closed here.
    void Attach(int descriptor, std::u16string_view path);
    virtual void Close() noexcept;
    virtual bool IsOpen() const noexcept;
    const std::u16string& Path() const noexcept { return path_; }

    /// Bytes in the file now; 0 if it is not open.
    virtual std::uint64_t Size() const noexcept;
    std::uint64_t Position() const noexcept { return position_; }
    /// Moves to an absolute position, which may lie past the end. False on a closed file or a position over
    /// 2^63 - 1.
    [[nodiscard]] bool Seek(std::uint64_t position) noexcept;

    /// Reads up to out.size() bytes and steps past them. False only if the system reports a failure; the end
    /// of the file gives true with a short `got`.
    [[nodiscard]] bool ReadAll(std::span<std::byte> out, std::uint64_t* got = nullptr) noexcept;
    /// Writes all bytes and steps past them; false with what was written in `written` if the system refuses.
    [[nodiscard]] bool WriteAll(std::span<const std::byte> bytes, std::uint64_t* written = nullptr) noexcept;
    /// Reads exactly out.size() bytes; a short file is false (the position is then past what was read).
    [[nodiscard]] bool ReadExact(std::span<std::byte> out) noexcept;
    /// Reads one record exactly; on a short file `out` is all zero.
    template <DiskRecord T>
    [[nodiscard]] bool Read(T& out) noexcept
    {
        out = T{};
        T record{};
        if (!ReadExact(std::as_writable_bytes(std::span(&record, 1))))
            return false;
        out = record;
        return true;
    }
    /// Reads a text line: at most line.size() - 1 characters, up to a line feed, a NUL or the end; characters
    /// below 32 are dropped; always NUL-terminated. True if at least one character was stored.
    [[nodiscard]] bool ReadLine(std::span<char> line) noexcept;

    /// Tells the system how long the file is going to be: it then finds the room once, in one piece if there
    /// is one. The length stays, and where the system cannot do that nothing happens.
    void Reserve(std::uint64_t size) noexcept;
    /// Sets the length of a writable file.
    [[nodiscard]] virtual bool Truncate(std::uint64_t size) noexcept;
    /// Hands everything written to the disk itself (fsync).
    [[nodiscard]] virtual bool Sync() noexcept;

protected:
    /// Reads at `offset`; returns bytes read, 0 at the end, -1 on failure. Likewise writes.
    virtual std::int64_t ReadAt(std::uint64_t offset, std::span<std::byte> out) noexcept;
    virtual std::int64_t WriteAt(std::uint64_t offset, std::span<const std::byte> bytes) noexcept;
    std::u16string path_;

private:
    class LookAhead; ///< small read-ahead buffer, so that record-wise parsing does not cost a system call
                     ///< each
    bool OpenExactly(const std::string& path, FileMode mode) noexcept;
    bool MakeLookAhead() noexcept;
    std::int64_t ReadBuffered(std::span<std::byte> out) noexcept;

    int descriptor_ = -1;
    bool ownsHandle_ = false;
    std::uint64_t position_ = 0;
    std::unique_ptr<LookAhead> lookAhead_;
};

/// A file that lives in memory: images built for other drivers, and tests. Reads and writes like a file on
/// disk.
class MemoryFile final : public FileObject {
public:
    MemoryFile() = default;
    /// Keeps its own exact-size copy of the bytes, so that an over-read is seen by tools.
    explicit MemoryFile(std::span<const std::byte> bytes, std::u16string_view path = u"");

    std::span<const std::byte> Bytes() const noexcept { return bytes_; }
    std::vector<std::byte> Release() noexcept { return std::move(bytes_); }

    void Close() noexcept override {}
    bool IsOpen() const noexcept override { return true; }
    std::uint64_t Size() const noexcept override { return bytes_.size(); }
    [[nodiscard]] bool Truncate(std::uint64_t size) noexcept override;
    [[nodiscard]] bool Sync() noexcept override { return true; }

protected:
    std::int64_t ReadAt(std::uint64_t offset, std::span<std::byte> out) noexcept override;
    std::int64_t WriteAt(std::uint64_t offset, std::span<const std::byte> bytes) noexcept override;

private:
    std::vector<std::byte> bytes_;
};

/// A file that is written whole or not at all: everything goes to a temporary file in the same folder, which
/// takes the place of the earlier one by Commit. Without Commit the destructor removes it and the earlier
/// file stays. Up to Seal the file has no name, where the file system can do that.
class GuardedFile {
public:
    GuardedFile() = default;
    ~GuardedFile();
    GuardedFile(const GuardedFile&) = delete;
    GuardedFile& operator=(const GuardedFile&) = delete;

    [[nodiscard]] bool Create(std::u16string_view path);
    FileObject& File() noexcept { return file_; }
    /// Ends the writing without taking the earlier file's place yet: bytes that are to replace others reach
    /// the disk, and the file is closed. False, with the new content gone, if the system refuses that.
    [[nodiscard]] bool Seal();
    /// Makes the new content the file at the path. An earlier file is replaced only after the new bytes have
    /// reached the disk, and its permission bits are kept.
    [[nodiscard]] bool Commit();

private:
    friend class GuardedFileSet;
    bool CreateBeside(const std::u16string& path);
    void Discard() noexcept;

    FileObject file_;
    int descriptor_ = -1;
    std::string target_;
    std::string temporary_; ///< "" as long as the new file has no name
};

/// Guarded files that take their places together. As long as Commit was not called, and if it fails, every
/// earlier file is what it was, and nothing new lies beside it.
class GuardedFileSet {
public:
    /// Seals the file and keeps it. @return false as Seal
    [[nodiscard]] bool Take(std::unique_ptr<GuardedFile> file);
    /// Puts all files into their places, in the order of Take, and forgets them.
    [[nodiscard]] bool Commit();

private:
    std::vector<std::unique_ptr<GuardedFile>> files_;
};

} // namespace vimbo
