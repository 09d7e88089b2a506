// The JSON that other programs read. Names and order are an interface; docs/cli.md describes them.
#pragma once

#include "cli/convert_job.h"
#include "cli/json_values.h"
#include "formats/format_table.h"

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vimbo::cli {

/// A loaded file. @param file path of the system; @param confidence percent
Json DescribeFileJson(std::string_view file, const Collection& collection, int confidence);
/// A file that could not be read.
Json FailedFileJson(std::string_view file, std::string_view error);

/// One row of the format table.
Json DescribeRowJson(int row);

/// The report of a conversion, one object per output file.
Json DescribeReportsJson(std::span<const JobResult> results, int row);

/// Indented text with a final line feed; valid UTF-8 whatever was put in.
std::string ToText(const Json& json);

/// Texts of an item that are not empty, without its name, as pairs of the JSON's key and the text in UTF-8.
std::vector<std::pair<std::string, std::string>> ListTexts(const TextItem& item);
/// "off", "forward", "reverse" or "alternating".
std::string_view LoopTypeWord(LoopType type) noexcept;
/// The encoding of the samples where they lie, or the one to save in where that is not known.
std::string DataFormatOf(const Waveform& wave);
/// Words for the kinds in a kinds byte: "waveform", "instrument" ...
std::vector<std::string> KindWords(std::uint8_t kinds);

} // namespace vimbo::cli
