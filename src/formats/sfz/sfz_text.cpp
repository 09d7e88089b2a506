#include "formats/sfz/sfz_text.h"

#include "base/text.h"

#include <algorithm>
#include <map>
#include <vector>

namespace vimbo::sfz {
namespace {

constexpr std::size_t kMaxValueBytes = 4096;
constexpr std::size_t kMaxDefines = 65536;
constexpr std::string_view kDefine = "#define";
constexpr std::string_view kInclude = "#include";

constexpr bool IsBlank(char c) noexcept
{
    return static_cast<unsigned char>(c) <= ' ';
}

constexpr bool IsNameChar(char c) noexcept
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

std::string_view SkipBlanks(std::string_view text) noexcept
{
    const auto start = std::ranges::find_if_not(text, IsBlank);
    return text.substr(static_cast<std::size_t>(start - text.begin()));
}

std::string_view WithoutTrail(std::string_view text) noexcept
{
    while (!text.empty() && IsBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

/// Splits off the text up to the first blank.
std::string_view TakeWord(std::string_view& text) noexcept
{
    const auto end = std::ranges::find_if(text, IsBlank);
    const std::string_view word = text.substr(0, static_cast<std::size_t>(end - text.begin()));
    text.remove_prefix(word.size());
    return word;
}

std::string_view TakeLine(std::string_view& text) noexcept
{
    const std::size_t end = std::min(text.find_first_of("\r\n"), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return line;
}

class Preprocessor {
public:
    Preprocessor(const IncludeLoader& load, TextLosses& losses) : load_(load), losses_(losses) {}

    void Add(std::string_view text, std::string_view id)
    {
        open_.emplace_back(id);
        bool inComment = false;
        while (!text.empty() && !losses_.isCut)
            AddLine(WithoutComments(TakeLine(text), inComment));
        open_.pop_back();
    }
    std::string Take() { return std::move(out_); }

private:
    static std::string WithoutComments(std::string_view line, bool& inComment)
    {
        std::string kept;
        while (!line.empty()) {
            if (inComment) {
                const std::size_t end = line.find("*/");
                inComment = end == std::string_view::npos;
                line.remove_prefix(inComment ? line.size() : end + 2);
                continue;
            }
            const std::size_t line2 = line.find("//"), block = line.find("/*");
            const std::size_t end = std::min({line2, block, line.size()});
            kept += line.substr(0, end);
            inComment = block < line2;
            line.remove_prefix(inComment ? block + 2 : line.size());
        }
        return kept;
    }

    /// Directives stand at the start of a line or behind a blank.
    void AddLine(std::string_view line)
    {
        std::size_t at = 0;
        while ((at = line.find('#', at)) != std::string_view::npos) {
            std::string_view rest = line.substr(at);
            const bool isStart = at == 0 || IsBlank(line[at - 1]);
            if (isStart && rest.starts_with(kDefine) && IsDefine(rest)) {
                Put(Expanded(line.substr(0, at)));
                line = rest;
                at = 0;
            } else if (isStart && rest.starts_with(kInclude) && IsInclude(rest, line.substr(0, at))) {
                line = rest;
                at = 0;
            } else {
                ++at;
            }
        }
        Put(Expanded(line));
        Put("\n");
    }

    /// "#define $name value"; steps past it.
    bool IsDefine(std::string_view& rest)
    {
        std::string_view in = SkipBlanks(rest.substr(kDefine.size()));
        if (!in.starts_with('$'))
            return false;
        const std::string_view name = TakeWord(in).substr(1);
        in = SkipBlanks(in);
        const std::string value = Expanded(TakeWord(in));
        rest = in;
        if (name.empty() || name.size() > kMaxValueBytes || value.size() > kMaxValueBytes ||
            defines_.size() >= kMaxDefines)
            return true;
        longest_ = std::max(longest_, name.size());
        defines_.insert_or_assign(std::string(name), value);
        return true;
    }

    /// "#include "name""; steps past it.
    bool IsInclude(std::string_view& rest, std::string_view before)
    {
        std::string_view in = SkipBlanks(rest.substr(kInclude.size()));
        if (!in.starts_with('"'))
            return false;
        const std::size_t end = in.find('"', 1);
        if (end == std::string_view::npos)
            return false;
        Put(Expanded(before));
        Put("\n");
        Include(Expanded(in.substr(1, end - 1)));
        rest = in.substr(end + 1);
        return true;
    }

    void Include(const std::string& name)
    {
        if (open_.size() > kMaxIncludeDepth || includes_ == kMaxIncludes) {
            ++losses_.refusedIncludes;
            return;
        }
        ++includes_;
        const std::optional<IncludedText> found = load_(name, open_.back());
        if (!found)
            ++losses_.missingIncludes;
        else if (std::ranges::find(open_, found->id) != open_.end())
            ++losses_.refusedIncludes;
        else
            Add(found->text, found->id);
    }

    std::string Expanded(std::string_view text) const
    {
        std::string out;
        for (std::size_t at; (at = text.find('$')) != std::string_view::npos;) {
            out += text.substr(0, at);
            text.remove_prefix(at + 1);
            const auto define = LongestAt(text);
            if (define == defines_.end()) {
                out += '$';
                continue;
            }
            out += define->second;
            text.remove_prefix(define->first.size());
            if (out.size() > kMaxTextBytes)
                break;
        }
        return out += text;
    }

    std::map<std::string, std::string, std::less<>>::const_iterator LongestAt(std::string_view text) const
    {
        for (std::size_t size = std::min(longest_, text.size()); size > 0; --size)
            if (const auto found = defines_.find(text.substr(0, size)); found != defines_.end())
                return found;
        return defines_.end();
    }

    void Put(std::string_view text)
    {
        if (out_.size() + text.size() > kMaxTextBytes)
            losses_.isCut = true;
        else
            out_ += text;
    }

    const IncludeLoader& load_;
    TextLosses& losses_;
    std::map<std::string, std::string, std::less<>> defines_;
    std::size_t longest_ = 0; ///< name
    std::vector<std::string> open_;
    std::size_t includes_ = 0;
    std::string out_;
};

/// Opcodes whose values may hold blanks: they end where the next opcode or header begins.
bool HoldsBlanks(std::string_view name) noexcept
{
    constexpr std::string_view kLabel = "label";
    return name == "sample" || name == "default_path" || name == "image" || name == "image_controls" ||
           name.find(kLabel) != std::string_view::npos;
}

/// Length of "name=" at the start of the text; 0 if there is none.
std::size_t OpcodeLength(std::string_view text) noexcept
{
    const auto end = std::ranges::find_if_not(text, IsNameChar);
    const auto size = static_cast<std::size_t>(end - text.begin());
    return size > 0 && size < text.size() && text[size] == '=' ? size : 0;
}

/// Splits off a value with blanks from a line.
std::string_view TakeRun(std::string_view& line) noexcept
{
    std::string_view rest = line;
    std::string_view value;
    while (!rest.empty() && rest.front() != '<' && (value.empty() || OpcodeLength(rest) == 0)) {
        TakeWord(rest);
        value = line.substr(0, line.size() - rest.size());
        rest = SkipBlanks(rest);
    }
    line = rest;
    return value;
}

std::string_view TakeValue(std::string_view name, std::string_view& line) noexcept
{
    line = SkipBlanks(line);
    if (OpcodeLength(line) != 0 && !HoldsBlanks(name))
        return {};
    if (HoldsBlanks(name))
        return TakeRun(line);
    // A header may follow without a blank.
    const std::size_t end = std::min(line.find_first_of("< \t"), line.size());
    const std::string_view value = line.substr(0, end);
    line.remove_prefix(end);
    return value;
}

std::string_view WithoutQuotes(std::string_view value) noexcept
{
    if (value.size() >= 2 && value.front() == '"' && value.back() == '"')
        return value.substr(1, value.size() - 2);
    return value;
}

void TokenizeLine(std::string_view line, const TextVisitor& visitor)
{
    while (!(line = SkipBlanks(line)).empty()) {
        if (line.front() == '<') {
            const auto end = std::ranges::find_if_not(line.substr(1), IsNameChar);
            const auto size = static_cast<std::size_t>(end - line.begin());
            const bool isHeader = size < line.size() && line[size] == '>';
            if (isHeader)
                visitor.header(line.substr(1, size - 1));
            line.remove_prefix(isHeader ? size + 1 : size);
            continue;
        }
        const std::size_t size = OpcodeLength(line);
        if (size == 0) {
            const std::size_t end = std::min(line.find_first_of("< \t", 1), line.size());
            line.remove_prefix(end);
            continue;
        }
        const std::string_view name = line.substr(0, size);
        line.remove_prefix(size + 1);
        visitor.opcode(name, WithoutQuotes(WithoutTrail(TakeValue(name, line))));
    }
}

bool IsUtf8(std::string_view text)
{
    return WideToUtf8(Utf8ToWide(text)) == text;
}

} // namespace

std::string Preprocess(std::string_view text, std::string_view id, const IncludeLoader& load,
                       TextLosses& losses)
{
    Preprocessor preprocessor(load, losses);
    preprocessor.Add(text, id);
    return preprocessor.Take();
}

void Tokenize(std::string_view text, const TextVisitor& visitor)
{
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    if (text.starts_with(kByteOrderMark))
        text.remove_prefix(kByteOrderMark.size());
    while (!text.empty())
        TokenizeLine(TakeLine(text), visitor);
}

std::u16string ToWide(std::string_view text)
{
    return IsUtf8(text) ? Utf8ToWide(text) : NarrowToWide(text);
}

} // namespace vimbo::sfz
