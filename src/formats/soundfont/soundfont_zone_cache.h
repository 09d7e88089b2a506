// Zones of articulations, for writers: what is costly in them is worked out once for all regions that share
// it.
#pragma once

#include "formats/soundfont/soundfont_units.h"

#include <memory>
#include <unordered_map>

namespace vimbo::sf2 {

class ZoneCache {
public:
    /// What WriteTimbre makes of a block.
    struct Timbre {
        ArticulationBlock block;
        Zone zone;
        /// What `zone` is read as if that is not `block` again, and the zone of that.
        struct Other {
            ArticulationBlock block;
            Zone zone;
        };
        std::unique_ptr<const Other> read;
    };
    /// @param block  lives as long as the cache, unchanged: its values are known again by their place
    const Timbre& TimbreOf(const ArticulationBlock& block);

private:
    std::unordered_multimap<std::uint64_t, Timbre> timbres_; ///< by hash of all values but the mix
    std::unordered_map<const float*, const Timbre*> byPlace_;
};

/// The zone of an articulation, and always the same for what it is read as: where a value lies outside the
/// limits, another step than that at the limit may stand for what is left of it. Generators that depend on
/// the sample have their defaults.
/// @param timbre  of a block that differs in volume, tuning, pan and sends at most
Zone ZoneOf(const ZoneCache::Timbre& timbre, const ArticulationBlock& block, const Instrument& instrument,
            float waveGainDb);

} // namespace vimbo::sf2
