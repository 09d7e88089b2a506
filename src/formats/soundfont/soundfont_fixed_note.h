// Zones that play every note as one key, or as if it were struck with one velocity.
#pragma once

#include "formats/soundfont/soundfont_zones.h"
#include "model/instrument.h"

namespace vimbo::sf2 {

/// Brings fixed key and velocity of a zone (-1: none) into the region's articulation: what they would give
/// becomes the fixed part of each value, and the value no longer follows key or velocity. Needs the region's
/// root key. Source: SoundFont 2.04, section 8.1.3, generators 46 and 47.
void FixNote(Region& region, const SampleSettings& settings);

} // namespace vimbo::sf2
