// The endings of names by which the two halves of a stereo sound are told apart.
#pragma once

#include <cstddef>
#include <string_view>

namespace vimbo {

struct SideEnding {
    enum class Side : char { None, Left, Right };
    Side side = Side::None;
    char16_t digit = 0;   ///< one that follows the letter; 0 if none does
    bool isClear = false; ///< the letter stands apart from the word; else it could be a part of it
    std::size_t stem = 0; ///< length of the name without the ending, its blanks and dashes; never 0
};

/// Looks at the end of `name` for L, R, l or r, bare or in brackets, perhaps with a digit behind a bare
/// letter. Side::None: there is none, or nothing but it.
SideEnding FindSideEnding(std::u16string_view name) noexcept;

/// True if the names are equal (case ignored) but for the sides, which are opposite.
bool AreSidesOfOneName(std::u16string_view a, std::u16string_view b) noexcept;

} // namespace vimbo
