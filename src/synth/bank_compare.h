// Two banks side by side, by ear: every instrument of one played against its counterpart in the other.
#pragma once

#include "model/instrument.h"
#include "synth/note_measure.h"

#include <functional>
#include <string>
#include <vector>

namespace vimbo {
class Collection;
}

namespace vimbo::synth {

struct CompareGrid {
    std::vector<unsigned> keys; ///< 0 to 127; empty: every octave, for drum kits every third key
    std::vector<unsigned> velocities{40, 80, 127}; ///< 1 to 127
    double holdSeconds = 0.5, releaseSeconds = 0.4;
    unsigned rateHz = 44100;
};

struct ComparedNote {
    unsigned key = 0, velocity = 0;
    NoteDifference difference;
};

struct ComparedInstrument {
    MidiLocation location;
    std::u16string nameA, nameB;
    bool isMissing = false;          ///< b has none at this location
    std::vector<ComparedNote> notes; ///< those that sound in a or b
    /// Greatest magnitude of a difference over all notes that sound in both; 0 without any.
    double Worst(const std::function<double(const NoteDifference&)>& of) const;
};

/// In the order of a's instruments. Both collections must have gone through the fix-up pass. `isCancelled`
/// is asked before each instrument.
std::vector<ComparedInstrument> CompareBanks(Collection& a, Collection& b, const CompareGrid& grid,
                                             const std::function<bool(double fraction)>& isCancelled);

} // namespace vimbo::synth
