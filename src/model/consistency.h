// A check of the links between items, for tests and fuzzing.
#pragma once

#include "model/collection.h"

#include <string>

namespace vimbo {

/// Checks what holds between any two operations on a collection:
/// every item is found under its own handle, and counts, map and chains agree; every parent exists and is of
/// the kind above; every child slot is empty or names an item of a kind that can stand there, except that
/// slots of deleted waveforms may stay in regions and synthesis models, and any slots in the collection,
/// until Validate; a region has at most one child.
/// @param why  if given, says what is wrong.
bool IsConsistent(const Collection& collection, std::u16string* why = nullptr);

/// Checks what holds after FixUpItems beside that: every child slot resolves, to an item whose parent is the
/// holder; MIDI locations are unique; regions of one layer do not overlap, and lie in 0..127; every value
/// without a mark equals that of the level above; loops and offsets lie inside their waveforms.
bool IsFixedUp(const Collection& collection, std::u16string* why = nullptr);

} // namespace vimbo
