// Finding the first free number at or above a wanted one, many times over.
#pragma once

#include <cstdint>
#include <unordered_map>
#include <vector>

namespace vimbo {

/// Hands out numbers: the wanted one, or the first free one above it, in the ring of numbers 0 to `mask`.
/// Every taken number points to one that is nearer to a free one; paths are shortened when they are walked,
/// so that a long run of equal wishes costs little more than one step each.
class FreeNumbers {
public:
    explicit FreeNumbers(std::uint32_t mask) noexcept : mask_(mask) {}

    /// Marks a number as taken; it may be so already.
    void Mark(std::uint32_t number) { next_.try_emplace(number & mask_, (number + 1) & mask_); }

    /// The number taken. Comes back with `wanted` itself if all numbers of the ring are taken.
    std::uint32_t Take(std::uint32_t wanted)
    {
        if (next_.size() > mask_)
            return wanted;
        path_.clear();
        std::uint32_t number = wanted & mask_;
        for (auto found = next_.find(number); found != next_.end(); found = next_.find(number)) {
            path_.push_back(number);
            number = found->second;
        }
        path_.push_back(number);
        for (const std::uint32_t passed : path_)
            next_[passed] = (number + 1) & mask_;
        return number;
    }

private:
    std::uint32_t mask_;
    std::unordered_map<std::uint32_t, std::uint32_t> next_;
    std::vector<std::uint32_t> path_;
};

} // namespace vimbo
