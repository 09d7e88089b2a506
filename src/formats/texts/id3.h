// ID3v2 tags (versions 2.2 to 2.4, id3.org): the texts that an item can hold. Tags stand in front of MPEG
// streams and in chunks of AIFF and WAV files.
#pragma once

#include "model/text_item.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace vimbo {

inline constexpr std::size_t kId3HeadBytes = 10;
/// As much of a tag as is worth reading: texts stand ahead of all but the largest pictures.
inline constexpr std::size_t kId3BytesRead = 16 * 1024 * 1024;

/// Bytes of the tag that begins here, with its head and footer; 0 if none does. The claim may exceed what is
/// there.
std::uint64_t Id3TagBytes(std::span<const std::byte> head) noexcept;

/// Gives the item the texts that it lacks: name, artist, comment, copyright, engineer ("encoded by") and
/// product (album). Damaged tags are read as far as they go.
/// @param tag          begins with the tag's head; may be cut short
/// @param defaultName  a name that counts as none
void ReadId3Texts(std::span<const std::byte> tag, std::u16string_view defaultName, TextItem& item);

/// A tag of version 2.3 with the item's texts and the program's name. A reader gets back what was put in, up
/// to 1 MB of each text.
std::vector<std::byte> MakeId3Tag(const TextItem& item);

} // namespace vimbo
