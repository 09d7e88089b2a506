#include "codecs/mpeg_huffman.h"

#include "codecs/mpeg_huffman_codes.h"

#include <algorithm>
#include <map>
#include <memory>

namespace vimbo::mpeg {
namespace {

using Rows = std::span<const std::string_view>;

struct NumberedRows {
    unsigned number;
    Rows rows;
};
const std::array<NumberedRows, 15> kCodeRows = {{
    {1, kCodes1},
    {2, kCodes2},
    {3, kCodes3},
    {5, kCodes5},
    {6, kCodes6},
    {7, kCodes7},
    {8, kCodes8},
    {9, kCodes9},
    {10, kCodes10},
    {11, kCodes11},
    {12, kCodes12},
    {13, kCodes13},
    {15, kCodes15},
    {16, kCodes16},
    {24, kCodes24},
}};

/// linbits of tables 16 to 31, which have the codes of 16 (to 23) and 24.
constexpr unsigned kFirstWithLinbits = 16, kSecondCodes = 24;
constexpr std::array<unsigned, 16> kLinbits = {1, 2, 3, 4, 6, 8, 10, 13, 4, 5, 6, 7, 8, 9, 11, 13};

std::vector<HuffmanTable::Code> ParseRows(Rows rows)
{
    std::vector<HuffmanTable::Code> codes;
    for (unsigned x = 0; x < rows.size(); ++x) {
        unsigned y = 0;
        HuffmanTable::Code code{};
        const auto flush = [&] {
            if (code.length == 0)
                return;
            code.values = x << 4 | y++;
            codes.push_back(code);
            code = {};
        };
        for (const char c : rows[x]) {
            if (c == ' ') {
                flush();
            } else {
                code.bits = code.bits << 1 | (c == '1' ? 1u : 0u);
                ++code.length;
            }
        }
        flush();
    }
    return codes;
}

/// All tables together; those that share codes share a table.
class Library {
public:
    Library()
    {
        for (const NumberedRows& row : kCodeRows)
            tables_.bigValues[row.number].codes = Add(row.rows);
        for (unsigned i = 0; i < kLinbits.size(); ++i) {
            const unsigned select = kFirstWithLinbits + i;
            const unsigned from = select < kSecondCodes ? kFirstWithLinbits : kSecondCodes;
            tables_.bigValues[select] = {tables_.bigValues[from].codes, kLinbits[i]};
        }
        tables_.quads = {Add(kCodesA), Add(kCodesB)};
    }
    const HuffmanTables& Get() const noexcept { return tables_; }

private:
    const HuffmanTable* Add(Rows rows)
    {
        return all_.emplace_back(std::make_unique<HuffmanTable>(ParseRows(rows))).get();
    }

    std::vector<std::unique_ptr<HuffmanTable>> all_;
    HuffmanTables tables_;
};

} // namespace

HuffmanTable::HuffmanTable(const std::vector<Code>& codes) : entries_(std::size_t{1} << kHeadBits)
{
    std::map<std::uint32_t, unsigned> tails; // longest tail behind each head
    for (const Code& code : codes) {
        if (code.length > kHeadBits) {
            unsigned& longest = tails[code.bits >> (code.length - kHeadBits)];
            longest = std::max(longest, code.length - kHeadBits);
        }
    }
    for (const auto& [head, bits] : tails) {
        entries_[head] = kLink | bits << 16 | static_cast<std::uint32_t>(entries_.size());
        entries_.resize(entries_.size() + (std::size_t{1} << bits));
    }
    for (const Code& code : codes) {
        const std::uint32_t entry = code.length << 8 | code.values;
        std::size_t first = 0;
        unsigned unused = 0; // bits that the look-up has behind the code
        if (code.length <= kHeadBits) {
            unused = kHeadBits - code.length;
            first = std::size_t{code.bits} << unused;
        } else {
            const unsigned tail = code.length - kHeadBits;
            const std::uint32_t link = entries_[code.bits >> tail];
            unused = (link >> 16 & 0xFF) - tail;
            first = (link & 0xFFFF) + (std::size_t{code.bits & ((1u << tail) - 1)} << unused);
        }
        std::fill_n(entries_.begin() + static_cast<std::ptrdiff_t>(first), std::size_t{1} << unused, entry);
    }
}

const HuffmanTables& GetHuffmanTables()
{
    static const Library library;
    return library.Get();
}

} // namespace vimbo::mpeg
