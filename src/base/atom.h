// Write-side tree of size-prefixed big-endian atoms, for the containers of the QuickTime family.
#pragma once

#include "base/file_object.h"
#include "base/packed.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace vimbo {

enum class Rewritable : bool { No, Yes };

/// One atom: an 8-byte header (total size, type), a payload, then the children in order. The parent owns its
/// children.
class Atom {
public:
    explicit Atom(FourCc type, Rewritable rewritable = Rewritable::No) noexcept;
    virtual ~Atom();
    Atom(const Atom&) = delete;
    Atom& operator=(const Atom&) = delete;

    /// Appends a child and returns it.
    template <class T>
    T& Add(std::unique_ptr<T> child)
    {
        T& added = *child;
        children_.push_back(std::move(child));
        return added;
    }

    /// Header, payload and children in bytes; saturates at 0xFFFFFFFF.
    std::uint32_t TotalSize() const;
    /// Writes the atom at the file's position. Errors: "Couldn't write to file!".
    [[nodiscard]] bool Write(FileObject& file);
    /// Writes a rewritable atom again at its place, and returns the file to where it was. The payload's size
    /// must not have changed. Errors: "Invalid re-write", "File seek failed".
    [[nodiscard]] bool Rewrite(FileObject& file);

    virtual std::uint64_t PayloadSize() const { return 0; }
    [[nodiscard]] virtual bool WritePayload(FileObject& file);

private:
    FourCc type_;
    Rewritable rewritable_;
    std::uint64_t fileOffset_ = 0;
    bool written_ = false;
    std::vector<std::unique_ptr<Atom>> children_;
};

/// An atom whose payload is a buffer, zero-filled at construction.
class DataAtom : public Atom {
public:
    DataAtom(FourCc type, std::uint32_t size, Rewritable rewritable = Rewritable::No);
    /// Full-atom form: the first four bytes hold the version and the 24-bit flags, if size is at least 4.
    DataAtom(FourCc type, std::uint32_t size, std::uint8_t version, std::uint32_t flags,
             Rewritable rewritable = Rewritable::No);

    std::span<std::byte> Data() noexcept { return data_; }
    /// Bytes that a subclass writes behind the buffer: counted by PayloadSize.
    void SetExtraSize(std::uint32_t bytes) noexcept { extraSize_ = bytes; }

    std::uint64_t PayloadSize() const override { return std::uint64_t{data_.size()} + extraSize_; }
    [[nodiscard]] bool WritePayload(FileObject& file) override;

private:
    std::vector<std::byte> data_;
    std::uint32_t extraSize_ = 0;
};

} // namespace vimbo
