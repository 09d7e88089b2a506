// Huffman decoding of MPEG audio layer III by look-up. Internal to this folder.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

namespace vimbo::mpeg {

/// Codes are looked up by their first kHeadBits bits; longer ones once more in a table of their own.
/// A code's entry: bits 0 to 7 its values (x * 16 + y), bits 8 to 15 its length. A link: the top bit, the
/// width of the second table in bits 16 to 23, its place in bits 0 to 15.
class HuffmanTable {
public:
    static constexpr unsigned kHeadBits = 8;
    static constexpr std::uint32_t kLink = 0x80000000u;

    /// @param word the stream's next bits, at its top
    std::uint32_t Find(std::uint64_t word) const noexcept
    {
        const std::uint32_t entry = entries_[word >> (64 - kHeadBits)];
        if ((entry & kLink) == 0)
            return entry;
        return entries_[(entry & 0xFFFF) + (word << kHeadBits >> (64 - (entry >> 16 & 0xFF)))];
    }

    static unsigned Length(std::uint32_t entry) noexcept { return entry >> 8 & 0xFF; }

    struct Code {
        std::uint32_t bits; ///< at the bottom
        unsigned length;
        unsigned values;
    };
    explicit HuffmanTable(const std::vector<Code>& codes);

private:
    std::vector<std::uint32_t> entries_;
};

/// A choice of table_select.
struct BigValueTable {
    const HuffmanTable* codes = nullptr; ///< null: all values are 0
    unsigned linbits = 0;                ///< of what is added to a value of 15
};

struct HuffmanTables {
    std::array<BigValueTable, 32> bigValues;
    std::array<const HuffmanTable*, 2> quads{}; ///< A and B; values v * 8 + w * 4 + x * 2 + y
};
/// Built at the first call.
const HuffmanTables& GetHuffmanTables();

} // namespace vimbo::mpeg
