// The format list of the documentation.
#pragma once

#include <string>

namespace vimbo::cli {

/// docs/formats.md, whole.
std::string FormatsDocument();

} // namespace vimbo::cli
