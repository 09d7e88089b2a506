// Articulation and trigger values by name, in the unit that is shown.
#pragma once

#include "model/articulation.h"
#include "model/trigger.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace vimbo::cli {

struct ShownParam {
    const ParamRow* row;
    std::string_view name; ///< unique: a name that an earlier id has too is followed by " #" and the id
    float stored;

    /// Factors in percent times 100, volume envelope levels as dB.
    double ValueInUnit() const;
    std::string Unit() const; ///< "" for lists and plain numbers
    std::string Text() const; ///< value and unit as a musician reads them
};

/// The values that are set at this level, by id.
std::vector<ShownParam> SetParams(const ArticulationBlock& block);
/// Trigger values that differ from the default, without the ranges.
std::vector<ShownParam> TriggerValues(const TriggerParams& trigger);

/// "Volume: -3 dB" for many values: most of a bank's come more than once.
class ParamTexts {
public:
    /// Stays where it is.
    const std::string& Of(const ShownParam& param);

private:
    std::unordered_map<std::uint64_t, std::string> made_; ///< by id and the value's bits
};

} // namespace vimbo::cli
