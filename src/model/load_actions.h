// Steps of the fix-up pass that change what a collection holds, rather than repair it.
#pragma once

#include "model/fix_up.h"

namespace vimbo {

/// Moves articulation to the levels that features 1 to 3 permit. Tuning and volume of regions stay with them
/// in any case, as every format with regions has a place for them.
void MoveToPermittedLevels(Collection& collection);

/// Unmarks articulation values that equal those of the level above.
void UnmarkRedundantArticulation(Collection& collection);

/// Automatic names of all regions and layers.
void RebuildNames(Collection& collection);

/// The collection's load options, in their fixed order.
void CarryOutLoadOptions(Collection& collection, SourceHoldsStereo stereo);

} // namespace vimbo
