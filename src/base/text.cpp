#include "base/text.h"

#include "base/text_tables.h"

#include <algorithm>
#include <iterator>
#include <type_traits>
#include <utf8.h>

namespace vimbo {
namespace {

constexpr std::size_t kMaxNarrow = 0x100000;
constexpr char16_t kReplacement = 0xFFFD;
constexpr char16_t kByteEscape = 0xDC00; // + 0x80..0xFF: a byte of a path that is no UTF-8

/// How far a conversion into limited room came.
struct Converted {
    std::size_t written = 0;
    bool complete = false;
};

template <class Unit>
constexpr unsigned Value(Unit unit) noexcept
{
    return static_cast<std::make_unsigned_t<Unit>>(unit);
}
/// Copies the leading ASCII run, block by block so that the compiler can use vectors; nearly every name is
/// only that.
template <class To, class From>
std::size_t CopyAscii(To* out, const From* in, std::size_t count) noexcept
{
    constexpr std::size_t kBlock = 16;
    std::size_t i = 0;
    for (; i + kBlock <= count; i += kBlock) {
        unsigned bits = 0;
        for (std::size_t k = 0; k < kBlock; ++k)
            bits |= Value(in[i + k]);
        if (bits >= 0x80)
            break;
        for (std::size_t k = 0; k < kBlock; ++k)
            out[i + k] = static_cast<To>(in[i + k]);
    }
    for (; i < count && Value(in[i]) < 0x80; ++i)
        out[i] = static_cast<To>(in[i]);
    return i;
}

constexpr bool IsHighSurrogate(char32_t c) noexcept
{
    return (c & 0xFFFFFC00) == 0xD800;
}

constexpr bool IsLowSurrogate(char32_t c) noexcept
{
    return (c & 0xFFFFFC00) == 0xDC00;
}

/// The code point at `at`, which moves behind it; an unpaired surrogate comes back as it is. `at` <
/// text.size().
char32_t TakeCodePoint(std::u16string_view text, std::size_t& at) noexcept
{
    const char32_t unit = text[at++];
    if (!IsHighSurrogate(unit) || at == text.size() || !IsLowSurrogate(text[at]))
        return unit;
    return 0x10000 + ((unit - 0xD800) << 10) + (text[at++] - char32_t{0xDC00});
}

char NarrowPunctuation(char32_t c) noexcept
{
    switch (c) {
    case 0x02C6:
        return '^';
    case 0x2018:
    case 0x2019:
    case 0x201A:
        return '\'';
    case 0x201C:
    case 0x201D:
    case 0x201E:
        return '"';
    case 0x2022:
        return '*';
    case 0x2026:
        return '.';
    case 0x2039:
        return '<';
    case 0x203A:
        return '>';
    case 0x20AC:
        return 'E';
    default:
        break;
    }
    const auto found = std::find(kWindows1252.begin(), kWindows1252.end(), c);
    return found == kWindows1252.end() ? '?' : static_cast<char>(0x80 + (found - kWindows1252.begin()));
}

char NarrowCodePoint(char32_t c) noexcept
{
    if (c <= 0xFF)
        return static_cast<char>(c);
    for (const BestFitTable& table : kBestFitTables)
        if (c >= table.first && c - table.first < table.plain.size())
            return table.plain[c - table.first];
    return NarrowPunctuation(c);
}

Converted Widen(std::span<char16_t> out, std::string_view text) noexcept
{
    const std::size_t count = std::min(text.size(), out.size());
    for (std::size_t i = CopyAscii(out.data(), text.data(), count); i < count; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        out[i] = byte - 0x80u < kWindows1252.size() ? kWindows1252[byte - 0x80u] : byte;
    }
    return {count, count == text.size()};
}

Converted Narrow(std::span<char> out, std::u16string_view text) noexcept
{
    std::size_t written = CopyAscii(out.data(), text.data(), std::min(text.size(), out.size()));
    std::size_t at = written;
    while (at < text.size() && written < out.size())
        out[written++] = NarrowCodePoint(TakeCodePoint(text, at));
    return {written, at == text.size()};
}

template <class Unit>
std::basic_string_view<Unit> UntilNul(std::basic_string_view<Unit> text) noexcept
{
    return text.substr(0, text.find(Unit{}));
}

constexpr bool IsContinuation(char byte) noexcept
{
    return (Value(byte) & 0xC0) == 0x80;
}

/// Bytes of one malformed sequence: its lead with the continuation bytes that the lead calls for.
std::size_t MalformedLength(std::string_view rest) noexcept
{
    const auto lead = static_cast<unsigned char>(rest[0]);
    const std::size_t wanted = lead < 0xC0 || lead > 0xF7 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    std::size_t length = 1;
    while (length < std::min(wanted, rest.size()) && IsContinuation(rest[length]))
        ++length;
    return length;
}

/// Decodes UTF-8; at a malformed place, `onMalformed(result, rest)` appends what stands for it and returns
/// how many bytes (at least one) that covers.
template <class OnMalformed>
std::u16string DecodeUtf8(std::string_view text, OnMalformed onMalformed)
{
    std::u16string result(text.size(), u'\0');
    const std::size_t ascii = CopyAscii(result.data(), text.data(), text.size());
    result.resize(ascii);
    text.remove_prefix(ascii);
    while (!text.empty()) {
        const auto* begin = text.data();
        const auto* bad = utf8::find_invalid(begin, begin + text.size());
        utf8::unchecked::utf8to16(begin, bad, std::back_inserter(result));
        text.remove_prefix(static_cast<std::size_t>(bad - begin));
        if (!text.empty())
            text.remove_prefix(onMalformed(result, text));
    }
    return result;
}

/// Encodes UTF-8; `onUnpaired(result, unit)` appends what stands for an unpaired surrogate.
template <class OnUnpaired>
std::string EncodeUtf8(std::u16string_view text, OnUnpaired onUnpaired)
{
    std::string result(text.size(), '\0');
    std::size_t at = CopyAscii(result.data(), text.data(), text.size());
    result.resize(at);
    while (at < text.size()) {
        const char32_t c = TakeCodePoint(text, at);
        if (IsHighSurrogate(c) || IsLowSurrogate(c))
            onUnpaired(result, c);
        else
            utf8::unchecked::append(c, std::back_inserter(result));
    }
    return result;
}

void AppendReplacement(std::string& result)
{
    utf8::unchecked::append(kReplacement, std::back_inserter(result));
}

template <class Unit>
bool Terminate(std::span<Unit> out, Converted converted) noexcept
{
    out[converted.written] = Unit{};
    return converted.complete;
}

char16_t FoldLatin(char16_t c) noexcept
{
    const auto next = static_cast<char16_t>(c + 1);
    if (c < 0xC0)
        return c;
    if (c < 0xDF)
        return c == 0xD7 ? c : static_cast<char16_t>(c + 0x20); // D7 is the multiplication sign
    if (c < 0x100 || c == 0x138 || c == 0x149 || c == 0x17F)
        return c; // small letters without a capital of their own here
    if (c == 0x130)
        return u'i';
    if (c == 0x178)
        return 0xFF;
    // Pairs of capital and small letter; two stretches start at odd numbers.
    const bool oddCapitals = (c > 0x138 && c < 0x149) || c > 0x178;
    return ((c & 1) != 0) == oddCapitals ? next : c;
}

char16_t FoldGreek(char16_t c) noexcept
{
    switch (c) {
    case 0x370:
    case 0x372:
    case 0x376:
    case 0x3F7:
    case 0x3FA:
        return static_cast<char16_t>(c + 1);
    case 0x37F:
        return 0x3F3;
    case 0x386:
        return 0x3AC;
    case 0x388:
    case 0x389:
    case 0x38A:
        return static_cast<char16_t>(c + 0x25);
    case 0x38C:
        return 0x3CC;
    case 0x38E:
    case 0x38F:
        return static_cast<char16_t>(c + 0x3F);
    case 0x3A2:
        return c; // unassigned
    case 0x3C2:
        return 0x3C3;
    case 0x3CF:
        return 0x3D7;
    case 0x3F4:
        return 0x3B8;
    case 0x3F9:
        return 0x3F2;
    case 0x3FD:
    case 0x3FE:
    case 0x3FF:
        return static_cast<char16_t>(c - 0x82);
    default:
        break;
    }
    if (c >= 0x391 && c <= 0x3AB)
        return static_cast<char16_t>(c + 0x20);
    return c >= 0x3D8 && c <= 0x3EE ? static_cast<char16_t>(c | 1) : c;
}

char16_t FoldCyrillic(char16_t c) noexcept
{
    if (c < 0x410)
        return static_cast<char16_t>(c + 0x50);
    if (c < 0x430)
        return static_cast<char16_t>(c + 0x20);
    if (c < 0x460 || (c >= 0x482 && c < 0x48A)) // small letters; marks
        return c;
    if (c == 0x4C0)
        return 0x4CF;
    if (c > 0x4C0 && c < 0x4CF)
        return static_cast<char16_t>(c + (c & 1));
    return c == 0x4CF ? c : static_cast<char16_t>(c | 1);
}

} // namespace

std::u16string NarrowToWide(std::string_view text)
{
    text = UntilNul(text.substr(0, kMaxNarrow));
    std::u16string result(text.size(), u'\0');
    Widen(result, text);
    return result;
}

bool NarrowToWide(std::span<char16_t> out, std::string_view text) noexcept
{
    if (out.empty())
        return false;
    return Terminate(out, Widen(out.first(out.size() - 1), UntilNul(text.substr(0, kMaxNarrow))));
}

std::string WideToNarrow(std::u16string_view text)
{
    text = UntilNul(text);
    std::string result(text.size(), '\0');
    result.resize(Narrow(result, text).written);
    return result;
}

bool WideToNarrow(std::span<char> out, std::u16string_view text) noexcept
{
    if (out.empty())
        return false;
    return Terminate(out, Narrow(out.first(out.size() - 1), UntilNul(text)));
}

std::u16string Utf8ToWide(std::string_view text)
{
    return DecodeUtf8(text, [](std::u16string& result, std::string_view rest) {
        result.push_back(kReplacement);
        return MalformedLength(rest);
    });
}

std::string WideToUtf8(std::u16string_view text)
{
    return EncodeUtf8(text, [](std::string& result, char32_t) { AppendReplacement(result); });
}

std::u16string PathToWide(std::string_view path)
{
    return DecodeUtf8(path, [](std::u16string& result, std::string_view rest) {
        result.push_back(static_cast<char16_t>(kByteEscape + static_cast<unsigned char>(rest[0])));
        return std::size_t{1};
    });
}

std::string WideToPath(std::u16string_view path)
{
    return EncodeUtf8(path, [](std::string& result, char32_t unit) {
        if (unit >= kByteEscape + 0x80u && unit <= kByteEscape + 0xFFu)
            result.push_back(static_cast<char>(unit - kByteEscape));
        else
            AppendReplacement(result);
    });
}

char16_t FoldCase(char16_t unit) noexcept
{
    if (unit < 0x80)
        return unit >= u'A' && unit <= u'Z' ? static_cast<char16_t>(unit + 0x20) : unit;
    if (unit < 0x180)
        return FoldLatin(unit);
    if (unit >= 0x370 && unit < 0x400)
        return FoldGreek(unit);
    return unit >= 0x400 && unit < 0x530 ? FoldCyrillic(unit) : unit;
}

int CompareNoCase(std::u16string_view a, std::u16string_view b) noexcept
{
    const std::size_t common = std::min(a.size(), b.size());
    for (std::size_t i = 0; i < common; ++i) {
        const int difference = int{FoldCase(a[i])} - int{FoldCase(b[i])};
        if (difference != 0)
            return difference;
    }
    return a.size() == b.size() ? 0 : a.size() < b.size() ? -1 : 1;
}

} // namespace vimbo
