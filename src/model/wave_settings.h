// Root keys and loops that regions bring along, told to their waveforms.
#pragma once

#include "model/loop_info.h"

#include <cstdint>
#include <unordered_map>

namespace vimbo {

class Collection;
class Region;
class Waveform;

/// What the regions of each waveform say of its root key and loop. Where all of them agree, the waveform
/// takes it over.
class WaveSettingsVote {
public:
    /// To be called once for every region of a collection, when its overrides are set.
    /// @param below  what the region plays
    /// @param wave   `below`, or what the region's twin plays
    void Hear(const Region& region, const Waveform& below, const Waveform& wave);
    /// Sets waveforms and drops the regions' overrides that say the same.
    void Apply(Collection& collection) const;

private:
    /// Root key and loop of a region as it plays them, comparable between regions of one waveform.
    struct Settings {
        std::uint8_t rootKey;
        LoopInfo loop;
        friend bool operator==(const Settings&, const Settings&) noexcept = default;
    };
    struct Verdict {
        Settings settings;
        bool agree = true;
        bool overridden = false;

        bool Counts() const noexcept { return agree && overridden; }
    };
    static Settings SettingsOf(const Region& region, const Waveform& below, const Waveform& wave) noexcept;

    std::unordered_map<const Waveform*, Verdict> verdicts_;
};

} // namespace vimbo
