#include "formats/xiph/pictures.h"

#include "base/byte_reader.h"
#include "model/text_item.h"

namespace vimbo {
namespace {

constexpr std::uint32_t kFrontCover = 3;
constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/// What stands between the description and the image.
struct PictureShape {
    U32be width, height; ///< pixels; 0: unknown
    U32be depth;         ///< bits per pixel
    U32be colours;       ///< of an indexed image
};
static_assert(DiskRecord<PictureShape> && sizeof(PictureShape) == 16);

/// Takes a length and as many bytes.
bool TakeField(ByteReader& in, std::span<const std::byte>& out) noexcept
{
    U32be length;
    return in.Read(length) && in.Take(length.Get(), out);
}

} // namespace

void CoverPicker::Offer(std::span<const std::byte> block)
{
    ByteReader in(block);
    U32be type;
    PictureShape shape;
    std::span<const std::byte> mime, description, image;
    if (!in.Read(type) || !TakeField(in, mime) || !TakeField(in, description) || !in.Read(shape) ||
        !TakeField(in, image))
        return;
    const bool isFrontCover = type.Get() == kFrontCover;
    // Only images count: the block may hold an address instead.
    if (ImageMimeType(image).empty() || isFrontCover_ || (!isFrontCover && !image_.empty()))
        return;
    image_.assign(image.begin(), image.end());
    isFrontCover_ = isFrontCover;
}

std::vector<std::byte> MakePictureBlock(std::span<const std::byte> image)
{
    const std::string_view mime = ImageMimeType(image);
    ByteWriter out;
    out.Write(U32be(kFrontCover));
    out.Write(U32be(static_cast<std::uint32_t>(mime.size())));
    out.Append(mime);
    out.Write(U32be(0)); // no description
    out.Write(PictureShape{});
    out.Write(U32be(static_cast<std::uint32_t>(image.size())));
    out.Append(image);
    return out.Release();
}

std::string EncodeBase64(std::span<const std::byte> bytes)
{
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        std::uint32_t group = 0;
        for (std::size_t i = 0; i < 3; ++i)
            group = group << 8 | (at + i < bytes.size() ? std::to_integer<std::uint32_t>(bytes[at + i]) : 0);
        for (std::size_t i = 0; i < 4; ++i)
            text += at + i <= bytes.size() ? kAlphabet[group >> (18 - 6 * i) & 63] : '=';
    }
    return text;
}

bool DecodeBase64(std::string_view text, std::vector<std::byte>& out)
{
    out.clear();
    while (!text.empty() && text.back() == '=')
        text.remove_suffix(1);
    std::uint32_t group = 0;
    unsigned bits = 0;
    for (const char letter : text) {
        const std::size_t value = kAlphabet.find(letter);
        if (value == std::string_view::npos)
            return false;
        group = group << 6 | static_cast<std::uint32_t>(value);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            out.push_back(static_cast<std::byte>(group >> bits));
        }
    }
    return bits < 6;
}

} // namespace vimbo
