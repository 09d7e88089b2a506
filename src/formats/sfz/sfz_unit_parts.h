// What the files of the unit conversions share.
#pragma once

#include "formats/sfz/sfz_units.h"

namespace vimbo::sfz {

inline void SetValue(ArticulationBlock& block, ParamId id, double value)
{
    block.Set(id, static_cast<float>(value));
}

// sfz_lfos.cpp
void ReadLfos(const Record& record, ArticulationBlock& block, UnitLosses& losses);
void WriteLfos(const ArticulationBlock& block, Generation generation, Record& out);

// sfz_envelopes.cpp
void ReadEnvelopes(const Record& record, ArticulationBlock& block, UnitLosses& losses);
/// The record's key range must be set: times that follow the key are fitted to it.
void WriteEnvelopes(const ArticulationBlock& block, Generation generation, Record& out);

} // namespace vimbo::sfz
