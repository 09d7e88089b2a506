// The user's wish to stop (Ctrl-C, or a polite kill).
#pragma once

namespace vimbo::cli {

/// From here on the first such signal is only noted, so that no half-written file stays behind; a second one
/// ends the program at once.
void WatchInterrupts() noexcept;
bool IsInterrupted() noexcept;

} // namespace vimbo::cli
