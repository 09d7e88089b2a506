// The text of SFZ files: comments, #define and #include, then headers and opcodes.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace vimbo::sfz {

inline constexpr std::size_t kMaxTextBytes = std::size_t{64} << 20; ///< with all that is included
inline constexpr std::size_t kMaxIncludeDepth = 32;
inline constexpr std::size_t kMaxIncludes = 4096;

struct IncludedText {
    std::string id; ///< tells files apart: their paths
    std::string text;
};
/// Finds the file of an #include; nothing if it is not there.
/// @param includer  id of the text that names it; "" for the first
using IncludeLoader =
    std::function<std::optional<IncludedText>(std::string_view name, std::string_view includer)>;

/// What the preprocessor had to leave out.
struct TextLosses {
    std::uint64_t missingIncludes = 0;
    std::uint64_t refusedIncludes = 0; ///< in a circle, too deep or too many
    bool isCut = false;                ///< the text grew beyond kMaxTextBytes
};

/// The text without comments, with all includes in place and all $names replaced. A name is replaced by the
/// longest one that is defined there.
std::string Preprocess(std::string_view text, std::string_view id, const IncludeLoader& load,
                       TextLosses& losses);

/// Statements in the order of the text. What is neither a header nor an opcode is stepped over.
struct TextVisitor {
    std::function<void(std::string_view header)> header; ///< without the brackets
    std::function<void(std::string_view name, std::string_view value)> opcode;
};
void Tokenize(std::string_view text, const TextVisitor& visitor);

/// 8-bit text of the file: UTF-8 if it is valid, else Windows-1252.
std::u16string ToWide(std::string_view text);

} // namespace vimbo::sfz
