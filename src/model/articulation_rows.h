// The articulation part of the parameter table as arrays, for code that walks all of it.
#pragma once

#include "model/param.h"

#include <array>

namespace vimbo {

/// The rows, indexed by id.
extern const std::array<ParamRow, kArticulationParams> kArticulationRows;
/// Their default values.
extern const std::array<float, kArticulationParams> kArticulationDefaults;

} // namespace vimbo
