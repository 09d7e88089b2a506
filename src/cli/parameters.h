// Articulation and trigger values by name, in the unit that is shown.
#pragma once

#include "model/articulation.h"
#include "model/trigger.h"

#include <string>
#include <vector>

namespace vimbo::cli {

struct ShownParam {
    ParamId id;
    std::string name; ///< unique: a name that an earlier id has too is followed by " #" and the id
    double value;     ///< in `unit`: factors in percent times 100, volume envelope levels as dB
    std::string unit; ///< "" for lists and plain numbers
    std::string text; ///< value and unit as a musician reads them
};

/// The values that are set at this level, by id.
std::vector<ShownParam> SetParams(const ArticulationBlock& block);
/// Trigger values that differ from the default, without the ranges.
std::vector<ShownParam> TriggerValues(const TriggerParams& trigger);

} // namespace vimbo::cli
