// What a file contains, for people to read.
#pragma once

#include "model/collection.h"

#include <string_view>

namespace vimbo::cli {

/// Prints several lines. @param file path of the system; @param confidence percent, 0: not known
/// @return false if the system refused
[[nodiscard]] bool PrintFileText(std::string_view file, const Collection& collection, int confidence);

} // namespace vimbo::cli
