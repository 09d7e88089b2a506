// Items with text properties, and items with only a label.
#pragma once

#include "model/item.h"

#include <array>
#include <memory>

namespace vimbo {

/// Base of Collection, Instrument, Song and Waveform: seven texts (209 to 215) and one image (216).
class TextItem : public Item {
public:
    std::u16string_view GetText(std::uint16_t id) const noexcept;
    /// Windows-1252 and UTF-8 copies, made when first asked for and kept until the text changes.
    const std::string& GetTextNarrow(std::uint16_t id) const;
    const std::string& GetTextUtf8(std::uint16_t id) const;
    /// Leading and trailing characters up to 32 are cut, the text ends at its first NUL; in a name, control
    /// characters inside become blanks, and an empty name becomes the default name. Other ids are ignored.
    void SetText(std::uint16_t id, std::u16string_view text);
    void SetTextNarrow(std::uint16_t id, std::string_view text);
    void SetTextUtf8(std::uint16_t id, std::string_view text);
    bool HasText(std::uint16_t id) const noexcept;

    /// The image's bytes; empty if there is none.
    std::span<const std::byte> GetImage() const noexcept;
    void SetImage(std::span<const std::byte> bytes);

    void SetName(std::u16string_view name) override { SetText(kTextName, name); }
    std::u16string_view GetName() const override { return GetText(kTextName); }
    std::u16string_view GetSourcePath() const override;
    const ParamRow& GetParamInfo(std::uint16_t id) const override;
    void Serialize(ByteWriter& out) const override;
    [[nodiscard]] bool Deserialize(ByteReader& in) override;

protected:
    TextItem(ItemKey key, Collection& owner) noexcept;
    TextItem(ItemKey key, Collection& owner, const TextItem& source);
    /// Takes all texts and the image.
    void CopyTexts(const TextItem& source);
    /// Empties all texts and the image, without a default name.
    void ClearTexts() noexcept;
    /// "<collection>" or "<collection> 3"; instruments "<collection>: 3rd instrument"; songs and others the
    /// kind word.
    virtual std::u16string DefaultName();

private:
    struct TextSlot {
        std::u16string wide;
        mutable std::unique_ptr<std::string> narrow;
        mutable std::unique_ptr<std::string> utf8;
    };
    static constexpr std::size_t kTexts = kTextSourcePath - kTextName + 1;
    bool TakeTextRecord(std::uint16_t id, std::span<const std::byte> bytes);
    TextSlot* Slot(std::uint16_t id) noexcept;
    const TextSlot* Slot(std::uint16_t id) const noexcept;

    std::array<TextSlot, kTexts> texts_;
    std::vector<std::byte> image_;
};

/// "image/jpeg", "image/png" or "image/gif" by the first bytes; "" for anything else or fewer than 8 bytes.
std::string_view ImageMimeType(std::span<const std::byte> image) noexcept;
/// True for "jpg", "jpeg", "png", "gif" in any case, with or without the dot.
bool IsImageExtension(std::u16string_view extension) noexcept;

/// Base of Layer, Region, SynthModel and Track: a name and nothing else.
class LabelItem : public Item {
public:
    void SetName(std::u16string_view name) override;
    std::u16string_view GetName() const override;
    void Serialize(ByteWriter& out) const override;
    [[nodiscard]] bool Deserialize(ByteReader& in) override;

protected:
    LabelItem(ItemKey key, Collection& owner) noexcept;
    LabelItem(ItemKey key, Collection& owner, const LabelItem& source);

private:
    std::u16string name_;
};

} // namespace vimbo
