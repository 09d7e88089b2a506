#include "base/file_object.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <stdexcept>

namespace vimbo {

namespace {

bool Resize(std::vector<std::byte>& bytes, std::uint64_t size) noexcept
{
    try {
        if (size > bytes.max_size())
            return false;
        bytes.resize(static_cast<std::size_t>(size));
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

} // namespace

MemoryFile::MemoryFile(std::span<const std::byte> bytes, std::u16string_view path)
    : bytes_(bytes.begin(), bytes.end())
{
    path_ = path;
}

bool MemoryFile::Truncate(std::uint64_t size) noexcept
{
    return Resize(bytes_, size);
}

std::int64_t MemoryFile::ReadAt(std::uint64_t offset, std::span<std::byte> out) noexcept
{
    if (offset >= bytes_.size() || out.empty())
        return 0;
    const auto start = static_cast<std::size_t>(offset);
    const std::size_t count = std::min(out.size(), bytes_.size() - start);
    std::memcpy(out.data(), bytes_.data() + start, count);
    return static_cast<std::int64_t>(count);
}

std::int64_t MemoryFile::WriteAt(std::uint64_t offset, std::span<const std::byte> bytes) noexcept
{
    // Positions stay below 2^63 and spans below 2^63 bytes, so the sum cannot wrap. A gap is filled with
    // zeros.
    const std::uint64_t end = offset + bytes.size();
    if (bytes.empty() || (end > bytes_.size() && !Resize(bytes_, end)))
        return bytes.empty() ? 0 : -1;
    std::memcpy(bytes_.data() + offset, bytes.data(), bytes.size());
    return static_cast<std::int64_t>(bytes.size());
}

} // namespace vimbo
