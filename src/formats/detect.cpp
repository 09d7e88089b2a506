#include "formats/open.h"

#include "base/path.h"
#include "base/text.h"

#include <algorithm>
#include <vector>

namespace vimbo {

namespace {

constexpr int kScoreOfExtension = 3;
constexpr int kScoreOfWildcardRow = 2;
constexpr int kLeastUsefulScore = 3;
constexpr int kFullScore = 9; ///< structural match and extension together

/// Part of the path that rows are compared with: behind the last dot of the last component, or the whole
/// name.
std::u16string_view ExtensionToCompare(std::u16string_view path)
{
    const std::u16string_view name = path.substr(GetFileName(path));
    const std::size_t dot = name.rfind(u'.');
    return dot == std::u16string_view::npos ? name : name.substr(dot + 1);
}

bool MatchesExtension(std::u16string_view pattern, std::u16string_view extension) noexcept
{
    std::size_t i = 0;
    for (; i < pattern.size(); ++i) {
        if (pattern[i] == u'*')
            return true;
        if (i >= extension.size())
            return false;
        if (pattern[i] != u'?' && FoldCase(pattern[i]) != FoldCase(extension[i]))
            return false;
    }
    return i == extension.size();
}

/// The first bytes of a file, without moving its position.
std::vector<std::byte> ReadHead(FileObject& file, std::uint64_t size)
{
    std::vector<std::byte> head(static_cast<std::size_t>(std::min<std::uint64_t>(size, kDetectHeadBytes)));
    const std::uint64_t before = file.Position();
    std::uint64_t got = 0;
    if (!file.Seek(0) || !file.ReadAll(head, &got))
        got = 0;
    head.resize(static_cast<std::size_t>(got));
    if (!file.Seek(before))
        head.clear();
    return head;
}

} // namespace

int DetectFormat(std::u16string_view path, FileObject& file, int& confidence)
{
    confidence = 0;
    const std::uint64_t size = file.Size();
    if (size == 0)
        return -1;
    const std::vector<std::byte> head = ReadHead(file, size);
    const std::u16string_view extension = ExtensionToCompare(path);

    int best = -1;
    int bestScore = -1;
    for (std::size_t row = 0; row < kFormatRowCount; ++row) {
        const FormatRow& entry = FormatRows()[row];
        if (!entry.read)
            continue;
        int score = 0;
        if (MatchesExtension(entry.extension, extension))
            score = row == 0 ? kScoreOfWildcardRow : kScoreOfExtension;
        if (entry.detect)
            score += entry.detect(head, entry.variant, size);
        if (score > bestScore) {
            best = static_cast<int>(row);
            bestScore = score;
        }
    }
    if (bestScore < kLeastUsefulScore)
        bestScore = 0;
    if (best < 0 || (bestScore == 0 && !RowExtension(best).starts_with(u'*')))
        return -1;
    confidence = best == 0 ? 0 : bestScore * 100 / kFullScore;
    return best;
}

void DescribeFile(std::u16string_view path, std::u16string& name, int& confidence)
{
    name.clear();
    confidence = 0;
    FileObject file;
    if (!file.Open(path, FileMode::Read))
        return;
    const int row = DetectFormat(path, file, confidence);
    name = row < 0 ? std::u16string(u"Unknown file type") : std::u16string(RowDescription(row));
}

bool IsKnownFormat(std::u16string_view path)
{
    FileObject file;
    int confidence = 0;
    return file.Open(path, FileMode::Read) && DetectFormat(path, file, confidence) > 0;
}

} // namespace vimbo
