// SFZ instruments: a text of opcodes beside its sample files. What the format table calls.
#pragma once

#include "formats/format_table.h"

namespace vimbo {

/// Variant words: the writer's; the reader takes both generations alike.
inline constexpr std::uint32_t kSfz1SameFolder = 0;
inline constexpr std::uint32_t kSfz1SubFolder = 1;
inline constexpr std::uint32_t kSfz2SameFolder = 2;
inline constexpr std::uint32_t kSfz2SubFolder = 3;

/// Samples stay on disk: only their headers are read. The paths in a file on disk are followed wherever they
/// lead, as far as they name regular files; of a text without a path of its own (or whose path begins with
/// '<'), none is. What could not be found or placed goes to the host. A file named "0-0-5 - Piano.sfz" gives
/// the instrument "Piano" of that MIDI location (see TakeProgram).
bool ReadSfz(Collection& collection, FileObject& file, std::uint32_t variant);
/// The first instrument goes to `file`, further ones to files of their own names beside it; samples beside
/// each or in a folder of its name. Files that are there already and hold something else are only replaced if
/// the host says so ("sfz-replace").
bool WriteSfz(Item& root, FileObject& file, FormatChoice& choice);
/// Compressed settings: 1 for FLAC, then Ogg Vorbis bit rates.
float SfzSubFormats(std::uint32_t index, std::uint32_t variant, std::u16string* name);

namespace sfz {

/// Where includes and samples may lie.
struct Surroundings {
    std::u16string folder;   ///< of the text
    std::u16string file;     ///< that holds it; "" for none
    bool stayInside = false; ///< nothing outside the folder is opened
    bool isNowhere = false;  ///< nothing is opened at all
};
/// Reads a text into the collection as one instrument, named as the collection is.
[[nodiscard]] bool ReadText(Collection& collection, std::string_view text, const Surroundings& place);

} // namespace sfz
} // namespace vimbo
