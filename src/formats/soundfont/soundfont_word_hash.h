// Hashes of many numbers.
#pragma once

#include <cstdint>

namespace vimbo::sf2 {

/// Multiplies each word by an odd number of its own, so that the products do not wait for one another.
class WordHash {
public:
    void Add(std::uint64_t word) noexcept
    {
        sum_ += (word + 1) * factor_;
        factor_ += 0xD1B54A32D192ED02;
    }
    std::uint64_t Get() const noexcept { return sum_ ^ sum_ >> 32; }

private:
    std::uint64_t sum_ = 0;
    std::uint64_t factor_ = 0x9E3779B97F4A7C15;
};

} // namespace vimbo::sf2
