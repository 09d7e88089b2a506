// What joining pairs of mono waveforms needs, whatever tells that they are pairs.
#pragma once

#include "model/hashed_text.h"
#include "model/stereo_pairs.h"

#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace vimbo {

class Layer;
class Region;
class Waveform;

/// Equal for names that differ in case only.
std::u16string FoldedName(std::u16string_view name);

/// Makes the stereo waveforms, one per pair of mono ones, and keeps account of what they are made from.
class StereoMaker {
public:
    explicit StereoMaker(Collection& items) : items_(items) {}

    /// The stereo waveform of a pair, made when it is first asked for; null if that failed, which the host
    /// has shown then.
    /// @param named  the one of the two whose name it gets
    Waveform* StereoOf(Waveform& left, Waveform& right, const Waveform& named);
    /// True if a name was given that another waveform had, too.
    bool MadeEqualNames() const noexcept { return madeEqualNames_; }
    /// Deletes the mono waveforms of all pairs that nothing plays any more. @return their number
    std::size_t DeleteUnused();

private:
    Waveform* Make(Waveform& left, Waveform& right, const Waveform& named);
    std::u16string StereoName(std::u16string_view name, std::u16string_view other);

    Collection& items_;
    struct PairHash {
        std::size_t operator()(const std::pair<ItemHandle, ItemHandle>& pair) const noexcept
        {
            return ItemHandleHash()(pair.first) * 31 + ItemHandleHash()(pair.second);
        }
    };
    std::unordered_map<std::pair<ItemHandle, ItemHandle>, Waveform*, PairHash> made_;
    std::set<HashedText> names_; ///< of all waveforms, folded
    bool madeEqualNames_ = false;
};

/// Regions that became part of others, and those that took them over.
class RegionChanges {
public:
    /// `kept` plays the stereo waveform for both from now on.
    void Merge(Region& kept, Region& gone, const Waveform& stereo);
    /// The same where no other region was made.
    void Merge(Region& kept, const Waveform& stereo);
    /// Destroys what went so far, with layers left empty, and puts the others into the middle.
    void Apply(Collection& items);
    /// Applies what is left, and deletes waveforms if wished.
    StereoMergeCounts Finish(Collection& items, StereoMaker& maker, DeleteUnused deleteUnused);

private:
    void DestroyGone(Collection& items);
    void Centre(Layer& layer);

    bool IsKept(const Region* region) const noexcept;

    std::vector<Region*> kept_, gone_;
    std::vector<const Region*> keptSorted_;
    std::size_t merged_ = 0;
};

} // namespace vimbo
