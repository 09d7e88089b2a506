// Pictures in FLAC and Ogg files: PICTURE blocks (RFC 9639, 8.8), which Ogg files carry as base64 text.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vimbo {

/// The best of the pictures that it is shown: the front cover, else the first.
class CoverPicker {
public:
    /// Body of a PICTURE block; anything that is none is passed over.
    void Offer(std::span<const std::byte> block);
    const std::vector<std::byte>& Image() const noexcept { return image_; }

private:
    std::vector<std::byte> image_;
    bool isFrontCover_ = false;
};

/// PICTURE block of an image as front cover, its size in pixels unsaid.
std::vector<std::byte> MakePictureBlock(std::span<const std::byte> image);

/// Base64 with padding (RFC 4648).
std::string EncodeBase64(std::span<const std::byte> bytes);
/// False for text that is no base64; padding may be missing.
[[nodiscard]] bool DecodeBase64(std::string_view text, std::vector<std::byte>& out);

} // namespace vimbo
