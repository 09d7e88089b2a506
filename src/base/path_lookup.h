// Where a path that does not open as written may lead. For FileObject and GuardedFile only; others use
// path.h.
#pragma once

#include "base/file_object.h"

#include <functional>
#include <string>
#include <string_view>

namespace vimbo {

/// The path at which a new file is created that does not open as written: "\\" read as "/" and the folder
/// found without regard to letter case. Empty if the folder exists as written (the name is then meant
/// literally) or nowhere.
std::u16string FindPathToCreate(std::u16string_view path);

/// Tries `open` on the path as written, on what the lookups find for it, and once more on both with composed
/// accents.
/// @return the path that `open` accepted, or an empty string.
std::u16string OpenByLookup(std::u16string_view path, FileMode mode,
                            const std::function<bool(const std::u16string&)>& open);

} // namespace vimbo
