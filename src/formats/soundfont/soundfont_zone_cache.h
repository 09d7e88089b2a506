// Zones of articulations, for writers: what is costly in them is worked out once for all regions that share
// it.
#pragma once

#include "formats/soundfont/soundfont_units.h"

#include <deque>
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
            ArticulationBlock block; ///< with any mix
            Zone zone;
        };
        std::unique_ptr<Other> read;
    };
    Timbre& TimbreOf(const ArticulationBlock& block);
    /// A place for the zone that lasts as long as the cache.
    const Zone& Keep(const Zone& zone) { return zones_.emplace_back(zone); }

private:
    std::unordered_multimap<std::uint64_t, Timbre> timbres_; ///< by hash of all values but the mix
    std::deque<Zone> zones_;
};

/// The zone of an articulation, and always the same for what it is read as: where a value lies outside the
/// limits, another step than that at the limit may stand for what is left of it. Generators that depend on
/// the sample have their defaults.
/// @param timbre  of a block that differs in volume, tuning, pan and sends at most; the mix of what it is
/// read as changes
Zone ZoneOf(ZoneCache::Timbre& timbre, const ArticulationBlock& block, const Instrument& instrument,
            float waveGainDb);

} // namespace vimbo::sf2
