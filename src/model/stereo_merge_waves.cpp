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

/// The regions of each waveform, in the order of instruments and layers.
using RegionsByWave = std::unordered_map<const Waveform*, std::vector<Region*>>;

RegionsByWave FindRegions(const Collection& items)
{
    RegionsByWave regions;
    for (const Instrument& instrument : items.All<Instrument>())
        for (const Layer* layer : instrument.Layers())
            for (Region* region : layer->Regions())
                if (const Waveform* wave = region->Wave())
                    regions[wave].push_back(region);
    return regions;
}

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

bool ComesFirst(const Region& a, const Region& b)
{
    if ((a.phaseMaster != 0) != (b.phaseMaster != 0))
        return a.phaseMaster != 0;
    const Layer *one = a.ParentLayer(), *other = b.ParentLayer();
    if (one == other || one == nullptr)
        return true;
    for (const Layer* layer : one->ParentInstrument()->Layers())
        if (layer == one || layer == other)
            return layer == one;
    return true;
}

/// @return true if a stereo waveform was made and all pairs of regions play it
bool JoinWaves(Waveform& left, Waveform& right, const RegionsByWave& regions, StereoMaker& maker,
               RegionChanges& changes)
{
    static const std::vector<Region*> kNone;
    const auto of = [&regions](const Waveform& wave) -> const std::vector<Region*>& {
        const auto found = regions.find(&wave);
        return found != regions.end() ? found->second : kNone;
    };
    const std::vector<RegionPair> pairs = PairRegions(of(left), of(right));
    const bool isUsed = !of(left).empty() || !of(right).empty();
    if (isUsed && pairs.empty())
        return false;
    const Waveform* stereo = maker.StereoOf(left, right, left);
    if (stereo == nullptr)
        return false;
    for (const RegionPair& pair : pairs) {
        const bool keepsLeft = ComesFirst(*pair.left, *pair.right);
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
    const RegionsByWave regions = FindRegions(collection);
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
        if (JoinWaves(isLeft ? *wave : *earlier, isLeft ? *earlier : *wave, regions, maker, changes))
            ++merged;
        line.pop_front();
    }
    StereoMergeCounts counts = changes.Finish(collection, maker, deleteUnused);
    counts.merged = merged;
    return counts;
}

} // namespace vimbo
