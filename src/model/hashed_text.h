// Texts as keys of ordered maps.
#pragma once

#include <compare>
#include <cstddef>
#include <functional>
#include <string>
#include <utility>

namespace vimbo {

/// A text in an order that is quick to tell: by the hash, and only of equal hashes by the units. An ordered
/// map of these looks up about as fast as an unordered one, but never slower than by O(log n) comparisons: a
/// file can be made so that all hashes are equal.
struct HashedText {
    explicit HashedText(std::u16string units)
        : hash(std::hash<std::u16string>()(units)), text(std::move(units))
    {
    }
    friend std::strong_ordering operator<=>(const HashedText&, const HashedText&) = default;
    friend bool operator==(const HashedText&, const HashedText&) = default;

    std::size_t hash;
    std::u16string text;
};

} // namespace vimbo
