// What a file contains, for people to read.
#pragma once

#include "model/collection.h"

#include <string>
#include <string_view>

namespace vimbo::cli {

/// Several lines that end in a line feed. @param file path of the system; @param confidence percent, 0: not
/// known
std::string DescribeFileText(std::string_view file, const Collection& collection, int confidence);

} // namespace vimbo::cli
