#include "formats/texts/id3.h"

#include "base/byte_reader.h"
#include "base/text.h"
#include "model/param_ids.h"

#include <algorithm>
#include <array>
#include <string>
#include <vector>

namespace vimbo {
namespace {

constexpr std::uint8_t kUnsynchronised = 0x80; ///< in a tag's head
constexpr std::uint8_t kHasExtendedHead = 0x40;
constexpr std::uint8_t kHasFooter = 0x10;
constexpr std::size_t kMaxTextBytes = 1048576;
constexpr std::u16string_view kSoftware = u"Vimbo Studio v12.7";

/// Seven bits in each byte, so that no size looks like the start of an MPEG frame.
class SyncsafeSize {
public:
    std::uint32_t Get() const noexcept
    {
        std::uint32_t value = 0;
        for (const std::uint8_t byte : bytes_)
            value = value << 7 | (byte & 0x7Fu);
        return value;
    }
    void Set(std::uint32_t value) noexcept
    {
        for (std::size_t i = bytes_.size(); i-- > 0; value >>= 7)
            bytes_[i] = static_cast<std::uint8_t>(value & 0x7F);
    }

private:
    std::array<std::uint8_t, 4> bytes_{};
};

struct Id3Head {
    std::array<char, 3> id{};
    std::uint8_t version = 0;
    std::uint8_t revision = 0;
    std::uint8_t flags = 0;
    SyncsafeSize bytes; ///< without head and footer
};
static_assert(DiskRecord<Id3Head> && sizeof(Id3Head) == kId3HeadBytes);

struct FrameHead22 {
    std::array<char, 3> id{};
    std::uint8_t sizeTop = 0;
    U16be sizeLow;
};
static_assert(DiskRecord<FrameHead22> && sizeof(FrameHead22) == 6);

struct FrameHead {
    FourCc id;
    U32be bytes; ///< syncsafe in version 2.4
    std::uint8_t status = 0;
    std::uint8_t format = 0;
};
static_assert(DiskRecord<FrameHead> && sizeof(FrameHead) == 10);

/// A text property and the frames that carry it, in versions 2.3 and 2.4, and in 2.2.
struct FrameRow {
    std::string_view id;
    std::string_view id22;
    ParamId text;
};
constexpr std::array kFrameRows = {
    FrameRow{"TIT2", "TT2", kTextName},     FrameRow{"TPE1", "TP1", kTextArtist},
    FrameRow{"COMM", "COM", kTextComments}, FrameRow{"TCOP", "TCR", kTextCopyright},
    FrameRow{"TENC", "TEN", kTextEngineer}, FrameRow{"TALB", "TAL", kTextProduct},
};

/// One frame, its body as it was before unsynchronisation and the like.
struct Frame {
    std::string id;
    std::vector<std::byte> body;
};

bool ReadHead(std::span<const std::byte> bytes, Id3Head& head) noexcept
{
    return ByteReader(bytes).Read(head) && std::string_view(head.id.data(), head.id.size()) == "ID3" &&
           head.version >= 2 && head.version <= 4;
}

/// Takes out the zero bytes that keep 0xFF bytes from looking like a frame's start.
std::vector<std::byte> Resynchronise(std::span<const std::byte> bytes)
{
    std::vector<std::byte> out;
    out.reserve(bytes.size());
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        out.push_back(bytes[i]);
        if (bytes[i] == std::byte{0xFF} && i + 1 < bytes.size() && bytes[i + 1] == std::byte{0})
            ++i;
    }
    return out;
}

bool IsFrameId(std::string_view id) noexcept
{
    return std::ranges::all_of(id, [](char c) { return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'); });
}

class TagReader {
public:
    TagReader(std::uint8_t version, bool isUnsynchronised, std::span<const std::byte> frames) noexcept
        : version_(version), isUnsynchronised_(isUnsynchronised), in_(frames)
    {
    }

    void SkipExtendedHead() noexcept;
    /// The next frame whose body can be read. False at the end of the frames, or where padding begins.
    bool Next(Frame& frame);

private:
    bool TakeFrame22(Frame& frame);
    bool TakeFrame(Frame& frame);
    std::uint32_t SizeOf(const FrameHead& head) const noexcept;
    bool EndsSoundly(std::uint32_t bytes) const noexcept;

    std::uint8_t version_;
    bool isUnsynchronised_; ///< version 2.4 only: all its frames are; the older ones are undone as a whole
    ByteReader in_;
};

void TagReader::SkipExtendedHead() noexcept
{
    U32be plain;
    SyncsafeSize safe;
    ByteReader ahead = in_;
    const bool isSafe = version_ == 4; // its size counts itself
    if (isSafe ? !ahead.Read(safe) : !ahead.Read(plain))
        return;
    const std::uint64_t bytes = isSafe ? safe.Get() : std::uint64_t{plain.Get()} + sizeof(plain);
    static_cast<void>(in_.Skip(bytes));
}

bool TagReader::Next(Frame& frame)
{
    frame = {};
    return version_ == 2 ? TakeFrame22(frame) : TakeFrame(frame);
}

bool TagReader::TakeFrame22(Frame& frame)
{
    FrameHead22 head;
    std::span<const std::byte> body;
    if (!in_.Read(head) || !IsFrameId({head.id.data(), head.id.size()}))
        return false;
    if (!in_.Take(std::uint32_t{head.sizeTop} << 16 | head.sizeLow.Get(), body))
        return false;
    frame.id.assign(head.id.data(), head.id.size());
    frame.body.assign(body.begin(), body.end());
    return true;
}

bool TagReader::TakeFrame(Frame& frame)
{
    FrameHead head;
    std::span<const std::byte> body;
    if (!in_.Read(head) || !IsFrameId({head.id.text.data(), head.id.text.size()}) ||
        !in_.Take(SizeOf(head), body))
        return false;
    const bool isNew = version_ == 4;
    const unsigned packed = isNew ? 0x0C : 0xC0; // compressed or encrypted
    const bool isGrouped = (head.format & (isNew ? 0x40 : 0x20)) != 0;
    const bool hasLength = isNew && (head.format & 0x01) != 0;
    frame.id.assign(head.id.text.data(), head.id.text.size());
    const std::size_t extra = (isGrouped ? 1u : 0u) + (hasLength ? 4u : 0u);
    if ((head.format & packed) != 0 || extra > body.size())
        return true; // an empty frame
    body = body.subspan(extra);
    if (isNew && (isUnsynchronised_ || (head.format & 0x02) != 0))
        frame.body = Resynchronise(body);
    else
        frame.body.assign(body.begin(), body.end());
    return true;
}

/// True if another frame, padding or nothing follows behind a body of this size.
bool TagReader::EndsSoundly(std::uint32_t bytes) const noexcept
{
    ByteReader ahead = in_;
    FourCc id;
    if (!ahead.Skip(bytes))
        return false;
    return !ahead.Read(id) || id == FourCc{} || IsFrameId({id.text.data(), id.text.size()});
}

/// iTunes wrote plain sizes in tags of version 2.4.
std::uint32_t TagReader::SizeOf(const FrameHead& head) const noexcept
{
    const std::uint32_t plain = head.bytes.Get();
    if (version_ != 4)
        return plain;
    const std::uint32_t safe =
        (plain >> 24 & 0x7F) << 21 | (plain >> 16 & 0x7F) << 14 | (plain >> 8 & 0x7F) << 7 | (plain & 0x7F);
    return safe != plain && !EndsSoundly(safe) && EndsSoundly(plain) ? plain : safe;
}

/// One text of a frame, up to its NUL or the end; steps behind it.
std::u16string TakeText(std::uint8_t encoding, std::endian& order, ByteReader& in)
{
    std::u16string wide;
    std::string narrow;
    if (encoding == 1 || encoding == 2) {
        U16be unit;
        bool isFirst = true;
        while (in.Read(unit)) {
            auto value = static_cast<char16_t>(unit.Get());
            if (isFirst && encoding == 1 && (value == 0xFEFF || value == 0xFFFE)) {
                order = value == 0xFEFF ? std::endian::big : std::endian::little;
                isFirst = false;
                continue;
            }
            isFirst = false;
            if (order == std::endian::little)
                value = static_cast<char16_t>(value << 8 | value >> 8);
            if (value == 0)
                break;
            wide += value;
        }
        return wide;
    }
    std::byte byte;
    while (in.Read(byte) && byte != std::byte{0})
        narrow += static_cast<char>(byte);
    return encoding == 3 ? Utf8ToWide(narrow) : NarrowToWide(narrow);
}

/// The text of a text frame, or of a comment frame; of several texts the first.
std::u16string TextOf(const Frame& frame, bool isComment)
{
    ByteReader in(std::span(frame.body).first(std::min(frame.body.size(), kMaxTextBytes)));
    std::uint8_t encoding = 0;
    if (!in.Read(encoding) || encoding > 3)
        return {};
    // Without a mark UTF-16 is taken for what the writers without one are: Windows programs.
    std::endian order = encoding == 2 ? std::endian::big : std::endian::little;
    if (isComment) {
        constexpr std::size_t kLanguageBytes = 3;
        if (!in.Skip(kLanguageBytes))
            return {};
        // Programs keep data of their own in comments, which they name.
        if (TakeText(encoding, order, in).starts_with(u"iTun"))
            return {};
    }
    return TakeText(encoding, order, in);
}

FourCc FourCcOf(std::string_view id) noexcept
{
    FourCc result;
    std::copy_n(id.begin(), std::min(id.size(), result.text.size()), result.text.begin());
    return result;
}

/// UTF-16 with a mark, unless ASCII will do: of the other encodings readers think differently.
void WriteTextFrame(ByteWriter& out, FourCc id, bool isComment, std::u16string_view text)
{
    constexpr std::string_view kNoLanguage = "XXX";
    constexpr char16_t kMark = 0xFEFF;
    text = text.substr(0, (kMaxTextBytes - 16) / sizeof(char16_t));
    const bool isWide = std::ranges::any_of(text, [](char16_t unit) { return unit >= 0x80; });
    ByteWriter body;
    const auto put = [&body, isWide](char16_t unit) {
        if (isWide)
            body.Write(U16le(unit));
        else
            body.Write(static_cast<std::byte>(unit));
    };
    body.Write(isWide ? std::byte{1} : std::byte{0});
    if (isComment) {
        body.Append(kNoLanguage);
        if (isWide)
            put(kMark);
        put(0); // the comment's own name
    }
    if (isWide)
        put(kMark);
    std::ranges::for_each(text, put);
    FrameHead head;
    head.id = id;
    head.bytes = static_cast<std::uint32_t>(body.Size());
    out.Write(head);
    out.Append(body.Bytes());
}

bool IsMissing(const TextItem& item, ParamId text, std::u16string_view defaultName)
{
    return !item.HasText(text) || (text == kTextName && item.GetName() == defaultName);
}

} // namespace

std::uint64_t Id3TagBytes(std::span<const std::byte> head) noexcept
{
    Id3Head fields;
    if (!ReadHead(head, fields))
        return 0;
    const bool hasFooter = fields.version == 4 && (fields.flags & kHasFooter) != 0;
    return std::uint64_t{fields.bytes.Get()} + kId3HeadBytes * (hasFooter ? 2 : 1);
}

void ReadId3Texts(std::span<const std::byte> tag, std::u16string_view defaultName, TextItem& item)
{
    Id3Head head;
    if (!ReadHead(tag, head))
        return;
    tag = tag.subspan(sizeof(head));
    tag = tag.first(std::min<std::size_t>(tag.size(), head.bytes.Get()));
    const bool isUnsynchronised = (head.flags & kUnsynchronised) != 0;
    std::vector<std::byte> whole;
    if (isUnsynchronised && head.version < 4) {
        whole = Resynchronise(tag);
        tag = whole;
    }
    TagReader frames(head.version, isUnsynchronised, tag);
    if (head.version > 2 && (head.flags & kHasExtendedHead) != 0)
        frames.SkipExtendedHead();
    const std::u16string nameBefore(defaultName);
    Frame frame;
    while (frames.Next(frame)) {
        const auto row =
            std::ranges::find(kFrameRows, frame.id, head.version == 2 ? &FrameRow::id22 : &FrameRow::id);
        if (row == kFrameRows.end() || !IsMissing(item, row->text, nameBefore))
            continue;
        const std::u16string text = TextOf(frame, row->text == kTextComments);
        if (!text.empty())
            item.SetText(row->text, text);
    }
}

std::vector<std::byte> MakeId3Tag(const TextItem& item)
{
    ByteWriter frames;
    for (const FrameRow& row : kFrameRows)
        if (const std::u16string_view text = item.GetText(row.text); !text.empty())
            WriteTextFrame(frames, FourCcOf(row.id), row.text == kTextComments, text);
    WriteTextFrame(frames, FourCc{"TSSE"}, false, kSoftware);
    Id3Head head;
    head.id = {'I', 'D', '3'};
    head.version = 3;
    head.bytes.Set(static_cast<std::uint32_t>(frames.Size()));
    ByteWriter tag;
    tag.Write(head);
    tag.Append(frames.Bytes());
    return tag.Release();
}

} // namespace vimbo
