#include "model/text_item.h"

#include "base/last_error.h"
#include "base/text.h"
#include "model/record_text.h"

#include <algorithm>
#include <new>

namespace vimbo {

namespace {

constexpr std::uint16_t kEndOfTexts = 0xFFFF;

constexpr bool IsBlankOrControl(char16_t unit) noexcept
{
    return unit <= u' ';
}

/// Unicode class Cc, without the NUL that ends a text.
constexpr bool IsControlInside(char16_t unit) noexcept
{
    return (unit > 0 && unit < u' ') || (unit >= 0x7F && unit < 0xA0);
}

std::u16string_view Trimmed(std::u16string_view text) noexcept
{
    text.remove_prefix(static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), IsBlankOrControl) -
                                                text.begin()));
    text = text.substr(0, text.find(u'\0'));
    while (!text.empty() && IsBlankOrControl(text.back()))
        text.remove_suffix(1);
    return text;
}

void WriteTextHead(ByteWriter& out, std::uint16_t id, std::size_t bytes)
{
    out.Write(U16le(id));
    out.Write(U32le(static_cast<std::uint32_t>(bytes)));
}

/// The converted copy, made now if there is none. Without memory for it, an empty text that all share.
template <class Convert>
const std::string& Cached(std::unique_ptr<std::string>& copy, const std::u16string& wide,
                          Convert convert) noexcept
{
    static const std::string kNoText;
    try {
        if (!copy)
            copy = std::make_unique<std::string>(convert(wide));
        return *copy;
    } catch (const std::bad_alloc&) {
        return kNoText;
    }
}

bool StartsWith(std::span<const std::byte> bytes, std::string_view start) noexcept
{
    return bytes.size() >= start.size() &&
           std::equal(start.begin(), start.end(), bytes.begin(),
                      [](char a, std::byte b) { return std::byte{static_cast<unsigned char>(a)} == b; });
}

} // namespace

TextItem::TextItem(ItemKey key, Collection& owner) noexcept : Item(key, owner) {}

TextItem::TextItem(ItemKey key, Collection& owner, const TextItem& source) : Item(key, owner, source)
{
    CopyTexts(source);
}

TextItem::TextSlot* TextItem::Slot(std::uint16_t id) noexcept
{
    return id >= kTextName && id <= kTextSourcePath ? &texts_[id - kTextName] : nullptr;
}

const TextItem::TextSlot* TextItem::Slot(std::uint16_t id) const noexcept
{
    return id >= kTextName && id <= kTextSourcePath ? &texts_[id - kTextName] : nullptr;
}

std::u16string_view TextItem::GetText(std::uint16_t id) const noexcept
{
    const TextSlot* slot = Slot(id);
    return slot != nullptr ? std::u16string_view(slot->wide) : std::u16string_view();
}

const std::string& TextItem::GetTextNarrow(std::uint16_t id) const
{
    static const TextSlot kNone;
    const TextSlot& slot = Slot(id) != nullptr ? *Slot(id) : kNone;
    return Cached(slot.narrow, slot.wide, [](const std::u16string& wide) { return WideToNarrow(wide); });
}

const std::string& TextItem::GetTextUtf8(std::uint16_t id) const
{
    static const TextSlot kNone;
    const TextSlot& slot = Slot(id) != nullptr ? *Slot(id) : kNone;
    return Cached(slot.utf8, slot.wide, WideToUtf8);
}

void TextItem::SetText(std::uint16_t id, std::u16string_view text)
{
    TextSlot* slot = Slot(id);
    if (slot == nullptr)
        return;
    std::u16string kept(text);
    if (id == kTextName)
        std::replace_if(kept.begin(), kept.end(), IsControlInside, u' ');
    kept = Trimmed(kept);
    *slot = {};
    if (kept.empty() && id == kTextName)
        kept = DefaultName();
    slot->wide = std::move(kept);
}

void TextItem::SetTextNarrow(std::uint16_t id, std::string_view text)
{
    SetText(id, NarrowToWide(text));
}

void TextItem::SetTextUtf8(std::uint16_t id, std::string_view text)
{
    SetText(id, Utf8ToWide(text));
}

bool TextItem::HasText(std::uint16_t id) const noexcept
{
    return id == kTextImage ? !image_.empty() : !GetText(id).empty();
}

std::span<const std::byte> TextItem::GetImage() const noexcept
{
    return image_;
}

void TextItem::SetImage(std::span<const std::byte> bytes)
{
    image_.assign(bytes.begin(), bytes.end());
}

std::u16string_view TextItem::GetSourcePath() const
{
    return HasText(kTextSourcePath) ? GetText(kTextSourcePath) : Item::GetSourcePath();
}

const ParamRow& TextItem::GetParamInfo(std::uint16_t id) const
{
    const ParamRow& row = TextParamRow(id);
    return row.id == id ? row : Item::GetParamInfo(id);
}

void TextItem::Serialize(ByteWriter& out) const
{
    Item::Serialize(out);
    for (std::uint16_t id = kTextName; id <= kTextSourcePath; ++id) {
        const std::u16string_view text = GetText(id);
        if (text.empty())
            continue;
        WriteTextHead(out, id, 2 * text.size());
        WriteUnits(out, text);
    }
    if (!image_.empty()) {
        WriteTextHead(out, kTextImage, image_.size());
        out.Append(image_);
    }
    out.Write(U16le(kEndOfTexts));
}

bool TextItem::Deserialize(ByteReader& in)
{
    if (!Item::Deserialize(in))
        return false;
    ClearTexts();
    for (;;) {
        U16le id;
        U32le size;
        std::span<const std::byte> bytes;
        if (!in.Read(id))
            return Fail(kDamagedRecord);
        if (id.Get() == kEndOfTexts)
            return true;
        if (!in.Read(size) || !in.Take(size.Get(), bytes) || !TakeTextRecord(id.Get(), bytes))
            return Fail(kDamagedRecord);
    }
}

void TextItem::CopyTexts(const TextItem& source)
{
    ClearTexts();
    for (std::size_t i = 0; i < kTexts; ++i)
        texts_[i].wide = source.texts_[i].wide;
    image_ = source.image_;
}

void TextItem::ClearTexts() noexcept
{
    texts_ = {};
    image_.clear();
}

bool TextItem::TakeTextRecord(std::uint16_t id, std::span<const std::byte> bytes)
{
    if (id == kTextImage)
        SetImage(bytes);
    else if (Slot(id) != nullptr && bytes.size() % 2 == 0)
        SetText(id, ReadUnits(bytes));
    else
        return false;
    return true;
}

std::string_view ImageMimeType(std::span<const std::byte> image) noexcept
{
    if (image.size() < 8)
        return {};
    if (StartsWith(image, "\xFF\xD8"))
        return "image/jpeg";
    if (StartsWith(image, "\x89PNG\r\n\x1A\n"))
        return "image/png";
    // With and without a newline ahead.
    if (StartsWith(image, "\nGIF") || StartsWith(image, "GIF8"))
        return "image/gif";
    return {};
}

bool IsImageExtension(std::u16string_view extension) noexcept
{
    if (extension.starts_with(u'.'))
        extension.remove_prefix(1);
    const auto is = [extension](std::u16string_view known) { return CompareNoCase(extension, known) == 0; };
    return is(u"jpg") || is(u"jpeg") || is(u"png") || is(u"gif");
}

} // namespace vimbo
