// ZIP archives: recognised, and handed to the desktop's own program for them.
#pragma once

#include "formats/format_table.h"

namespace vimbo {

bool ReadZip(Collection& collection, FileObject& file, std::uint32_t variant);
int DetectZip(std::span<const std::byte> head, std::uint32_t variant, std::uint64_t fileSize) noexcept;

} // namespace vimbo
