#include "base/last_error.h"

#include <algorithm>
#include <array>

namespace vimbo {

namespace {

constexpr std::size_t kRoom = 1023;

struct ErrorText {
    std::array<char16_t, kRoom> units{};
    std::size_t length = 0;
};

thread_local constinit ErrorText lastError;

constexpr bool IsHighSurrogate(char16_t unit) noexcept
{
    return unit >= 0xD800 && unit <= 0xDBFF;
}

} // namespace

bool Fail(std::u16string_view text) noexcept
{
    std::size_t length = std::min(text.size(), kRoom);
    if (length < text.size() && IsHighSurrogate(text[length - 1]))
        --length; // half a character would not survive the way to the user
    std::copy_n(text.begin(), length, lastError.units.begin());
    lastError.length = length;
    return false;
}

std::u16string LastError()
{
    return std::u16string(lastError.units.data(), lastError.length);
}

void ClearLastError() noexcept
{
    lastError.length = 0;
}

} // namespace vimbo
