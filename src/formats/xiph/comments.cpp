#include "formats/xiph/comments.h"

#include "base/byte_reader.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <optional>

namespace vimbo {
namespace {

struct CommentRow {
    std::string_view name;
    std::uint16_t text;
    bool isWritten;
};
/// By preference, where two names stand for one text.
constexpr std::array kCommentRows = {
    CommentRow{"TITLE", kTextName, true},          CommentRow{"ARTIST", kTextArtist, true},
    CommentRow{"COMMENT", kTextComments, true},    CommentRow{"DESCRIPTION", kTextComments, false},
    CommentRow{"COPYRIGHT", kTextCopyright, true}, CommentRow{"ENGINEER", kTextEngineer, true},
    CommentRow{"ALBUM", kTextProduct, true},
};
constexpr std::string_view kPictureName = "METADATA_BLOCK_PICTURE";

char UpperOf(char letter) noexcept
{
    return letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
}

bool EqualNames(std::string_view a, std::string_view b) noexcept
{
    return std::ranges::equal(a, b, {}, UpperOf, UpperOf);
}

/// Splits "NAME=text".
bool Split(std::string_view comment, std::string_view& name, std::string_view& text) noexcept
{
    const std::size_t place = comment.find('=');
    if (place == std::string_view::npos)
        return false;
    name = comment.substr(0, place);
    text = comment.substr(place + 1);
    return true;
}

/// The first comment of this name, empty if there is none.
std::string_view FindComment(std::span<const std::string> comments, std::string_view wanted) noexcept
{
    std::string_view name, text;
    for (const std::string& comment : comments) {
        if (Split(comment, name, text) && EqualNames(name, wanted))
            return text;
    }
    return {};
}

/// Capital letters without the marks that some writers put between words.
std::string PlainName(std::string_view name)
{
    std::string plain;
    for (const char letter : name) {
        if (letter != '_' && letter != '-')
            plain += UpperOf(letter);
    }
    return plain;
}

struct LoopComments {
    std::optional<double> start, end, length;
    bool isAlternating = false;
};

std::optional<double> FrameOf(std::string_view text) noexcept
{
    std::uint32_t frame = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, frame);
    return error == std::errc() && stop == end ? std::optional<double>(frame) : std::nullopt;
}

LoopComments FindLoop(std::span<const std::string> comments)
{
    LoopComments loop;
    std::string_view name, text;
    for (const std::string& comment : comments) {
        if (!Split(comment, name, text))
            continue;
        const std::string plain = PlainName(name);
        if (plain == "LOOPSTART" || plain == "LOOPBEGIN")
            loop.start = FrameOf(text);
        else if (plain == "LOOPEND")
            loop.end = FrameOf(text);
        else if (plain == "LOOPLENGTH")
            loop.length = FrameOf(text);
        else if (plain == "LOOPBIDI")
            loop.isAlternating = text != "0";
    }
    return loop;
}

void ApplyLoop(const LoopComments& found, Waveform& wave)
{
    if (wave.loop.type != LoopType::Off || (!found.start && !found.end))
        return;
    const double start = found.start.value_or(0);
    const double end = found.length ? start + *found.length : found.end.value_or(wave.frames);
    if (end <= start)
        return;
    wave.loop.type = found.isAlternating ? LoopType::Alternating : LoopType::Forward;
    wave.loop.start = start;
    wave.loop.end = end;
}

void AddLoop(const LoopInfo& loop, std::vector<std::string>& comments)
{
    const double start = std::round(loop.start);
    const double length = std::round(loop.end) - start;
    if (loop.type == LoopType::Off || !(length >= 1) || !(start >= 0 && start + length <= 4294967296.0))
        return;
    comments.push_back("LOOPSTART=" + std::to_string(static_cast<std::uint64_t>(start)));
    comments.push_back("LOOPLENGTH=" + std::to_string(static_cast<std::uint64_t>(length)));
    if (loop.type == LoopType::Alternating)
        comments.push_back("LOOP_BIDI=1");
}

} // namespace

std::vector<std::string> ParseCommentHeader(std::span<const std::byte> bytes)
{
    std::vector<std::string> comments;
    ByteReader in(bytes);
    U32le length;
    U32le count;
    std::span<const std::byte> text;
    if (!in.Read(length) || !in.Take(length.Get(), text) || !in.Read(count))
        return comments;
    for (std::uint32_t i = 0; i < count.Get() && in.Read(length) && in.Take(length.Get(), text); ++i) {
        std::string& comment = comments.emplace_back(text.size(), '\0');
        std::ranges::transform(text, comment.begin(), [](std::byte b) { return static_cast<char>(b); });
    }
    return comments;
}

void ApplyComments(std::span<const std::string> comments, CoverPicker& cover, Waveform& wave)
{
    for (auto row = kCommentRows.rbegin(); row != kCommentRows.rend(); ++row) {
        const std::string_view text = FindComment(comments, row->name);
        if (!text.empty())
            wave.SetTextUtf8(row->text, text);
    }
    std::string_view name, text;
    std::vector<std::byte> block;
    for (const std::string& comment : comments) {
        if (Split(comment, name, text) && EqualNames(name, kPictureName) && DecodeBase64(text, block))
            cover.Offer(block);
    }
    if (!cover.Image().empty())
        wave.SetImage(cover.Image());
    ApplyLoop(FindLoop(comments), wave);
}

std::vector<std::string> MakeComments(const Waveform& wave)
{
    std::vector<std::string> comments;
    for (const CommentRow& row : kCommentRows) {
        const std::string& text = wave.GetTextUtf8(row.text);
        if (row.isWritten && !text.empty())
            comments.push_back(std::string(row.name) + "=" + text);
    }
    AddLoop(wave.loop, comments);
    return comments;
}

std::string MakePictureComment(std::span<const std::byte> image)
{
    return std::string(kPictureName) + "=" + EncodeBase64(MakePictureBlock(image));
}

} // namespace vimbo
