// The Last error text: how a failed call tells its caller's user what went wrong.
#pragma once

#include <string>
#include <string_view>

namespace vimbo {

/// Stores `text` as this thread's Last error text and returns false, so `return Fail(u"...")` reads as one
/// thought. The text is cut to a fixed room (1023 UTF-16 units); storing cannot fail. A later failure
/// overwrites it.
bool Fail(std::u16string_view text) noexcept;

/// This thread's Last error text; empty if nothing has failed yet. Nothing clears it but ClearLastError.
std::u16string LastError();

/// Empties this thread's text: for callers that report per file and must not repeat an older one.
void ClearLastError() noexcept;

} // namespace vimbo
