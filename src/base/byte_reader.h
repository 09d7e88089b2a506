// Bounded reading and appending of bytes: the only ways in which parsed memory is touched.
#pragma once

#include "base/packed.h"

#include <cstring>
#include <span>
#include <string_view>
#include <vector>

namespace vimbo {

/// Reads records off the front of a span. It *is* the bytes that remain: there is no position to overflow.
class ByteReader {
public:
    ByteReader() noexcept = default;
    explicit ByteReader(std::span<const std::byte> bytes) noexcept : rest_(bytes) {}

    std::size_t Left() const noexcept { return rest_.size(); }
    std::span<const std::byte> Rest() const noexcept { return rest_; }

    /// Copies one record and steps past it. Short input: false, `out` all zero, no step.
    template <DiskRecord T>
    [[nodiscard]] bool Read(T& out) noexcept
    {
        out = T{};
        if (rest_.size() < sizeof(T))
            return false;
        std::memcpy(&out, rest_.data(), sizeof(T));
        rest_ = rest_.subspan(sizeof(T));
        return true;
    }

    /// Splits off the next `count` bytes, e.g. one chunk. More than is left: false, `out` empty, no step.
    [[nodiscard]] bool Take(std::uint64_t count, std::span<const std::byte>& out) noexcept
    {
        out = {};
        if (count > rest_.size())
            return false;
        out = rest_.first(static_cast<std::size_t>(count));
        rest_ = rest_.subspan(out.size());
        return true;
    }

    /// Steps past `count` bytes. More than is left: false, no step.
    [[nodiscard]] bool Skip(std::uint64_t count) noexcept
    {
        std::span<const std::byte> ignored;
        return Take(count, ignored);
    }

private:
    std::span<const std::byte> rest_;
};

/// Appends records to a growing buffer, and patches fields whose values become known later.
class ByteWriter {
public:
    std::size_t Size() const noexcept { return bytes_.size(); }
    std::span<const std::byte> Bytes() const noexcept { return bytes_; }
    std::vector<std::byte> Release() noexcept { return std::move(bytes_); }
    void Reserve(std::size_t bytes) { bytes_.reserve(bytes); }

    template <DiskRecord T>
    void Write(const T& record)
    {
        Append(std::as_bytes(std::span(&record, 1)));
    }

    void Append(std::span<const std::byte> bytes) { bytes_.insert(bytes_.end(), bytes.begin(), bytes.end()); }
    void Append(std::string_view text) { Append(std::as_bytes(std::span(text.data(), text.size()))); }
    void Fill(std::size_t count, std::byte value = std::byte{0})
    {
        bytes_.insert(bytes_.end(), count, value);
    }

    /// Appends `count` zero bytes and returns them to be filled in; valid until the next append.
    std::span<std::byte> Extend(std::size_t count)
    {
        bytes_.resize(bytes_.size() + count);
        return std::span(bytes_).last(count);
    }

    /// Overwrites the record at `offset`. A place that does not lie wholly inside: false, no change.
    template <DiskRecord T>
    [[nodiscard]] bool Patch(std::size_t offset, const T& record) noexcept
    {
        if (offset > bytes_.size() || bytes_.size() - offset < sizeof(T))
            return false;
        std::memcpy(bytes_.data() + offset, &record, sizeof(T));
        return true;
    }

private:
    std::vector<std::byte> bytes_;
};

} // namespace vimbo
