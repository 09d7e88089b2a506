// Finding the first free number at or above a wanted one, many times over.
#pragma once

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <map>

namespace vimbo {

/// Numbers that are taken, as runs without a gap. Every call takes O(log n) time for n runs.
class NumberRuns {
public:
    /// False if it was taken already.
    bool Take(std::uint64_t number)
    {
        auto behind = lasts_.upper_bound(number);
        if (behind != lasts_.begin() && std::prev(behind)->second >= number)
            return false;
        std::uint64_t last = number;
        if (behind != lasts_.end() && behind->first - 1 == number) {
            last = behind->second;
            behind = lasts_.erase(behind);
        }
        if (behind != lasts_.begin() && std::prev(behind)->second + 1 == number)
            std::prev(behind)->second = last;
        else
            lasts_.emplace_hint(behind, number, last);
        return true;
    }
    /// The first number from `from` on that is not taken.
    std::uint64_t FirstFree(std::uint64_t from) const
    {
        const auto behind = lasts_.upper_bound(from);
        return behind == lasts_.begin() ? from : std::max(from, std::prev(behind)->second + 1);
    }

private:
    std::map<std::uint64_t, std::uint64_t> lasts_; ///< by the first number of each run
};

/// Hands out numbers: the wanted one, or the first free one above it, in the ring of numbers 0 to `mask`.
/// Every call takes O(log n) time for n numbers taken, whatever they are.
class FreeNumbers {
public:
    explicit FreeNumbers(std::uint32_t mask) noexcept : mask_(mask) {}

    /// Marks a number as taken; it may be so already.
    void Mark(std::uint32_t number) { taken_ += runs_.Take(number & mask_) ? 1 : 0; }

    /// The number taken. Comes back with `wanted` itself if all numbers of the ring are taken.
    std::uint32_t Take(std::uint32_t wanted)
    {
        if (taken_ > mask_)
            return wanted;
        std::uint64_t number = runs_.FirstFree(wanted & mask_);
        if (number > mask_)
            number = runs_.FirstFree(0);
        Mark(static_cast<std::uint32_t>(number));
        return static_cast<std::uint32_t>(number);
    }

private:
    std::uint32_t mask_;
    std::uint64_t taken_ = 0;
    NumberRuns runs_;
};

} // namespace vimbo
