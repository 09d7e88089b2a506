// Loading the codec libraries that a user may lack, when they are first needed.
#pragma once

#include <span>

namespace vimbo {

/// Fills `slots` with the functions named by `names` (same length) from the dynamic library `libraryName`
/// ("libmp3lame.so.0"). Nothing is done if every required slot is filled already. The library is looked for
/// among the loaded ones, then by the system's search, then in the program's own folder. A name whose first
/// character is '\n' is optional. @return false if the library or a required name is missing; slots are then
/// left empty.
[[nodiscard]] bool LoadLibrarySymbols(const char* libraryName, std::span<const char* const> names,
                                      std::span<void*> slots) noexcept;

} // namespace vimbo
