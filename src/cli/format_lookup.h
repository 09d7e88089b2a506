// From the words on the command line to a row of the format table and a save request.
#pragma once

#include "cli/options.h"
#include "formats/format_table.h"

#include <string>
#include <string_view>
#include <vector>

namespace vimbo::cli {

/// Result of a look-up: `error` is empty if it succeeded, else a sentence for the user.
struct TypeLookup {
    int row = -1;
    std::string error;
};

/// Finds the row to write. A number below the table's length is a row; "ext" the first writable row with that
/// extension, those for waveforms first; "ext:words" the first writable one whose description has all the
/// words, in any case.
TypeLookup FindType(std::string_view type);

/// Rows with this extension, in order; a leading dot and letter case do not matter.
std::vector<int> RowsWithExtension(std::u16string_view extension);

/// "; did you mean ...?" with the writable extensions that look alike, "" if there are none.
std::string SuggestExtensions(std::u16string_view extension);

/// The format with this name: as in the table ("PCM 16-bit") or in short ("pcm16", "float32", "mu-law"), in
/// any case.
DataFormat FindDataFormat(std::string_view name);

struct ChoiceLookup {
    FormatChoice choice;
    std::string error;
};

/// The save request for a writable row. A bit rate alone asks for the row's compressed format.
ChoiceLookup MakeChoice(int row, std::string_view dataFormat, ChannelWish channels, float kbit);

/// "480 (wav, Microsoft wave)".
std::string NameRow(int row);

/// Names of the formats in a capability mask, in order.
std::vector<std::string> DataFormatNames(std::uint32_t caps);

} // namespace vimbo::cli
