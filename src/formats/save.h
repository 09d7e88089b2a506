// From an item and a row of the format table to a file on disk.
#pragma once

#include "formats/format_table.h"

#include <string>
#include <string_view>

namespace vimbo {

struct SaveOptions {
    bool force = false; ///< call the writer even if the item holds nothing for the format
    bool lastUse =
        false; ///< the collection is thrown away afterwards: samples that live in a replaced file may go
};

/// Writes `root` through the row into a file that is written whole or not at all: the earlier file stays
/// until the new one is complete, and if writing fails. Samples that live in the replaced file are brought
/// into memory, unless this is the collection's last use. Errors: "No item selected", "Invalid export format
/// selected", "Empty item - nothing to save", "Could not create file", and those of the writer.
[[nodiscard]] bool SaveToPath(Item* root, std::u16string_view path, int row, FormatChoice choice,
                              SaveOptions options = {});

/// The choice that takes everything a row offers ("Auto").
FormatChoice AutoChoice(int row) noexcept;

/// A legal file name out of an item name: reserved characters become "_", '"' becomes "'", "<>" become "()";
/// "noname" for an empty result. `size` limits the UTF-16 units.
std::u16string SanitizeFileName(std::u16string_view name, std::size_t size = 259);

} // namespace vimbo
