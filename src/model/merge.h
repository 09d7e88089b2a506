// Many collections into one.
#pragma once

#include "model/collection.h"
#include "model/free_numbers.h"

namespace vimbo {

class Instrument;

/// Collection::Merge for one collection after another, in time that grows with what they hold, not with what
/// the target holds already: O(n log n) for n items in all. Until the last one, nobody else may add
/// instruments to the target, or change where they answer.
class CollectionMerger {
public:
    explicit CollectionMerger(Collection& target);
    void Merge(Collection& other);

private:
    Collection& target_;
    FreeNumbers words_;     ///< of the locations of all instruments
    FreeNumbers locations_; ///< the same as MakeLocationUnique counts them, from the first merge on
    bool isFirst_ = true;
};

/// Moves the instrument to the first free location at or behind its own, and marks that as taken: the major
/// bank is raised first.
void MakeLocationUnique(Instrument& instrument, FreeNumbers& locations);

} // namespace vimbo
