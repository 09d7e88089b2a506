// What the program does about memory at its start and at its end.
#pragma once

#include "model/collection.h"

#include <memory>

namespace vimbo::cli {

/// Asks the system for large pages for the heap, where it has them: the items of a bank fill thousands of
/// small ones, and each costs a trap into the system. To be called first in `main`.
void PrepareHeap() noexcept;

/// Keeps the items until the program ends: the system takes their memory back at once, their destructors
/// one by one. For the last collection of a run only.
void LeaveToExit(std::unique_ptr<Collection> collection);

} // namespace vimbo::cli
