// Mono waveforms whose names say that they belong together, to stereo ones.
#include "model/instrument.h"
#include "model/side_names.h"
#include "model/stereo_maker.h"
#include "model/waveform.h"

#include <algorithm>
#include <deque>
#include <map>
#include <tuple>
#include <unordered_map>

namespace vimbo {
namespace {

/// Who plays what.
struct Players {
    explicit Players(const Collection& items)
    {
        for (const Instrument& instrument : items.All<Instrument>())
            for (const Layer* layer : instrument.Layers()) {
                places.emplace(layer, places.size());
                for (Region* region : layer->Regions())
                    if (const Waveform* wave = region->Wave())
                        regions[wave].push_back(region);
            }
    }
    const std::vector<Region*>& Of(const Waveform& wave) const
    {
        static const std::vector<Region*> kNone;
        const auto found = regions.find(&wave);
        return found != regions.end() ? found->second : kNone;
    }
    std::size_t PlaceOf(const Layer* layer) const
    {
        const auto found = places.find(layer);
        return found != places.end() ? found->second : places.size();
    }

    /// The regions of each waveform, in the order of instruments and layers.
    std::unordered_map<const Waveform*, std::vector<Region*>> regions;
    std::unordered_map<const Layer*, std::size_t> places; ///< in that order
};

struct RegionPair {
    Region *left, *right;
};

/// Regions of two waveforms that belong together: in one instrument, with the same ranges.
std::vector<RegionPair> PairRegions(const std::vector<Region*>& left, const std::vector<Region*>& right)
{
    const auto zone = [](const Region& region) {
        const Layer* layer = region.ParentLayer();
        return std::tuple(layer != nullptr ? layer->Parent() : NO_ITEM, region.trigger.keys.Word(),
                          region.trigger.velocities.Word());
    };
    std::map<decltype(zone(*left.front())), std::deque<Region*>> waiting;
    for (Region* region : right)
        waiting[zone(*region)].push_back(region);
    std::vector<RegionPair> pairs;
    for (Region* region : left)
        if (auto& line = waiting[zone(*region)]; !line.empty()) {
            pairs.push_back({region, line.front()});
            line.pop_front();
        }
    return pairs;
}

bool ComesFirst(const Region& a, const Region& b, const Players& players)
{
    if ((a.phaseMaster != 0) != (b.phaseMaster != 0))
        return a.phaseMaster != 0;
    return players.PlaceOf(a.ParentLayer()) <= players.PlaceOf(b.ParentLayer());
}

/// @return true if a stereo waveform was made and all pairs of regions play it
bool JoinWaves(Waveform& left, Waveform& right, const Players& players, StereoMaker& maker,
               RegionChanges& changes)
{
    const std::vector<RegionPair> pairs = PairRegions(players.Of(left), players.Of(right));
    const bool isUsed = !players.Of(left).empty() || !players.Of(right).empty();
    if (isUsed && pairs.empty())
        return false;
    const Waveform* stereo = maker.StereoOf(left, right, left);
    if (stereo == nullptr)
        return false;
    for (const RegionPair& pair : pairs) {
        const bool keepsLeft = ComesFirst(*pair.left, *pair.right, players);
        changes.Merge(keepsLeft ? *pair.left : *pair.right, keepsLeft ? *pair.right : *pair.left, *stereo);
    }
    return true;
}

} // namespace

StereoMergeCounts MergeStereoWaves(Collection& collection, DeleteUnused deleteUnused)
{
    using Key = std::tuple<std::u16string, char16_t, std::uint32_t, std::uint32_t, std::uint8_t>;
    StereoMaker maker(collection);
    RegionChanges changes;
    const Players players(collection);
    std::map<Key, std::deque<Waveform*>> waiting; ///< of one side only
    std::size_t merged = 0;
    for (Waveform* wave : collection.List<Waveform>()) {
        const SideEnding ending = FindSideEnding(wave->GetName());
        if (wave->channels != 1 || wave->frames == 0 || ending.side == SideEnding::Side::None)
            continue;
        std::deque<Waveform*>& line = waiting[{FoldedName(wave->GetName().substr(0, ending.stem)),
                                               ending.digit, wave->frames, wave->rateHz, wave->rootKey}];
        if (line.empty() || FindSideEnding(line.front()->GetName()).side == ending.side) {
            line.push_back(wave);
            continue;
        }
        Waveform* const earlier = line.front();
        const bool isLeft = ending.side == SideEnding::Side::Left;
        if (JoinWaves(isLeft ? *wave : *earlier, isLeft ? *earlier : *wave, players, maker, changes))
            ++merged;
        line.pop_front();
    }
    StereoMergeCounts counts = changes.Finish(collection, maker, deleteUnused);
    counts.merged = merged;
    return counts;
}

} // namespace vimbo
