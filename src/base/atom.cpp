#include "base/atom.h"

#include "base/last_error.h"

#include <algorithm>
#include <limits>

namespace vimbo {

namespace {

constexpr std::uint64_t kMaxSize = std::numeric_limits<std::uint32_t>::max();

struct AtomHeader {
    U32be totalSize; ///< header, payload and children
    FourCc type;
};
static_assert(DiskRecord<AtomHeader> && sizeof(AtomHeader) == 8);

/// ISO/IEC 14496-12, 4.2: what a full atom's payload begins with.
struct VersionAndFlags {
    U32be versionAndFlags; ///< 8 bits of version, 24 of flags
};
static_assert(DiskRecord<VersionAndFlags> && sizeof(VersionAndFlags) == 4);

constexpr std::uint32_t kFlagBits = 0x00FFFFFF;

} // namespace

Atom::Atom(FourCc type, Rewritable rewritable) noexcept : type_(type), rewritable_(rewritable) {}

Atom::~Atom() = default;

std::uint32_t Atom::TotalSize() const
{
    std::uint64_t total = std::min(PayloadSize(), kMaxSize) + sizeof(AtomHeader);
    for (const auto& child : children_)
        total += child->TotalSize();
    return static_cast<std::uint32_t>(std::min(total, kMaxSize));
}

bool Atom::Write(FileObject& file)
{
    if (rewritable_ == Rewritable::Yes) {
        fileOffset_ = file.Position();
        written_ = true;
    }
    const AtomHeader header = {TotalSize(), type_};
    if (!file.WriteAll(std::as_bytes(std::span(&header, 1))) || !WritePayload(file))
        return Fail(u"Couldn't write to file!");
    return std::all_of(children_.begin(), children_.end(),
                       [&file](const std::unique_ptr<Atom>& child) { return child->Write(file); });
}

bool Atom::Rewrite(FileObject& file)
{
    if (rewritable_ == Rewritable::No || !written_)
        return Fail(u"Invalid re-write");
    const std::uint64_t back = file.Position();
    if (!file.Seek(fileOffset_))
        return Fail(u"File seek failed");
    const bool whole = Write(file);
    if (!file.Seek(back))
        return Fail(u"File seek failed");
    return whole;
}

bool Atom::WritePayload(FileObject&)
{
    return true;
}

DataAtom::DataAtom(FourCc type, std::uint32_t size, Rewritable rewritable)
    : Atom(type, rewritable), data_(size)
{
}

DataAtom::DataAtom(FourCc type, std::uint32_t size, std::uint8_t version, std::uint32_t flags,
                   Rewritable rewritable)
    : DataAtom(type, size, rewritable)
{
    const VersionAndFlags field = {std::uint32_t{version} << 24 | (flags & kFlagBits)};
    if (data_.size() >= sizeof(field))
        std::ranges::copy(std::as_bytes(std::span(&field, 1)), data_.begin());
}

bool DataAtom::WritePayload(FileObject& file)
{
    return file.WriteAll(data_);
}

} // namespace vimbo
