// Cutting ASCII text audio into numbers, other words and comments. Internal to the driver.
#pragma once

#include "base/file_object.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <span>
#include <string_view>
#include <vector>

namespace vimbo {

constexpr bool IsAsciiSeparator(unsigned char c) noexcept
{
    return c == ',' || c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

struct AsciiNumber {
    double value = 0;
    bool hasFraction = false; ///< written with a point or an exponent
};

/// A decimal number of at most 32 bits; "inf" and "nan" are none.
inline bool ParseAsciiNumber(std::string_view text, AsciiNumber& out) noexcept
{
    const bool isNegative = text.starts_with('-');
    if (isNegative || text.starts_with('+'))
        text.remove_prefix(1);
    if (text.empty() || !(text[0] == '.' || (text[0] >= '0' && text[0] <= '9')))
        return false;
    const char* end = text.data() + text.size();
    double magnitude = 0;
    const auto result = std::from_chars(text.data(), end, magnitude);
    if (result.ec != std::errc() || result.ptr != end || magnitude > 0x1p31)
        return false;
    out.value = isNegative ? -magnitude : magnitude;
    out.hasFraction = text.find_first_of(".eE") != std::string_view::npos;
    return true;
}

/// Cuts text into numbers, other words, comments and line ends. Works on memory without allocating, or on a
/// file from its position on with one fixed buffer.
class AsciiScanner {
public:
    enum class Kind { Number, Word, Comment, LineEnd, End };

    explicit AsciiScanner(std::span<const std::byte> text) noexcept : rest_(text) { SkipByteOrderMark(); }
    explicit AsciiScanner(FileObject& file) : file_(&file), buffer_(kBufferBytes)
    {
        Refill();
        SkipByteOrderMark();
    }

    AsciiScanner(const AsciiScanner&) = delete;
    AsciiScanner& operator=(const AsciiScanner&) = delete;

    Kind Next() noexcept;
    const AsciiNumber& Value() const noexcept { return number_; }
    /// The comment with its ";", cut to the room.
    std::string_view Text() const noexcept { return {text_.data(), length_}; }
    /// True if the file could not be read; Next then says End.
    bool Failed() const noexcept { return failed_; }

private:
    static constexpr std::size_t kBufferBytes = 65536;
    static constexpr int kEnd = -1;

    int Peek() noexcept
    {
        if (rest_.empty() && !Refill())
            return kEnd;
        return std::to_integer<int>(rest_.front());
    }
    void Step() noexcept { rest_ = rest_.subspan(1); }
    bool Refill() noexcept;
    void SkipByteOrderMark() noexcept;
    void Collect() noexcept
    {
        if (length_ < text_.size())
            text_[length_++] = static_cast<char>(rest_.front());
        else
            isCut_ = true;
        Step();
    }
    Kind ReadComment() noexcept;
    Kind ReadWord() noexcept;

    FileObject* file_ = nullptr;
    std::vector<std::byte> buffer_;
    std::span<const std::byte> rest_;
    bool atLineStart_ = true;
    bool failed_ = false;
    bool isCut_ = false;
    std::size_t length_ = 0;
    std::array<char, 4096> text_;
    AsciiNumber number_;
};

inline bool AsciiScanner::Refill() noexcept
{
    std::uint64_t got = 0;
    if (file_ == nullptr || failed_)
        return false;
    failed_ = !file_->ReadAll(buffer_, &got);
    rest_ = std::span(buffer_).first(failed_ ? 0 : static_cast<std::size_t>(got));
    return !rest_.empty();
}

inline void AsciiScanner::SkipByteOrderMark() noexcept
{
    constexpr std::array kMark{std::byte{0xEF}, std::byte{0xBB}, std::byte{0xBF}};
    if (rest_.size() >= kMark.size() && std::equal(kMark.begin(), kMark.end(), rest_.begin()))
        rest_ = rest_.subspan(kMark.size());
}

inline AsciiScanner::Kind AsciiScanner::Next() noexcept
{
    length_ = 0;
    isCut_ = false;
    for (int c = Peek(); c != kEnd; c = Peek()) {
        if (c == '\n' || c == '\r') {
            Step();
            atLineStart_ = true;
            return Kind::LineEnd;
        }
        if (c == ';' && atLineStart_)
            return ReadComment();
        if (!IsAsciiSeparator(static_cast<unsigned char>(c)))
            return ReadWord();
        Step();
    }
    return Kind::End;
}

inline AsciiScanner::Kind AsciiScanner::ReadComment() noexcept
{
    for (int c = Peek(); c != kEnd && c != '\n' && c != '\r'; c = Peek())
        Collect();
    return Kind::Comment;
}

inline AsciiScanner::Kind AsciiScanner::ReadWord() noexcept
{
    atLineStart_ = false;
    for (int c = Peek(); c != kEnd && !IsAsciiSeparator(static_cast<unsigned char>(c)); c = Peek())
        Collect();
    return !isCut_ && ParseAsciiNumber(Text(), number_) ? Kind::Number : Kind::Word;
}

} // namespace vimbo
