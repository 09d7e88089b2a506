// The conversion report: what was kept, approximated and lost.
#pragma once

#include "base/conversion_note.h"
#include "cli/json_values.h"

#include <span>
#include <string>

namespace vimbo::cli {

/// All notes, one object each.
Json NotesJson(std::span<const ConversionNote> notes);
/// Grouped by what happened to what, with counts and one example each; "" without notes. Each line is
/// indented.
std::string NotesText(std::span<const ConversionNote> notes);

} // namespace vimbo::cli
