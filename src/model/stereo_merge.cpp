// Pairs of mono waveforms, panned left and right in dual layers, to stereo ones.
#include "base/text.h"
#include "model/instrument.h"
#include "model/side_names.h"
#include "model/stereo_maker.h"
#include "model/waveform.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <unordered_map>
#include <utility>

namespace vimbo {
namespace {

constexpr float kHardPan = 0.75f;

class Hash {
public:
    Hash& operator<<(std::uint32_t word) noexcept
    {
        value_ = (value_ ^ word) * 0x100000001B3;
        value_ ^= value_ >> 29; // high bits reach the low ones
        return *this;
    }
    Hash& operator<<(float value) noexcept { return *this << std::bit_cast<std::uint32_t>(value + 0.0f); }
    std::uint64_t Value() const noexcept { return value_; }

private:
    std::uint64_t value_ = 0xCBF29CE484222325; // FNV-1a over words
};

/// A region that may be one half of a pair.
struct Half {
    Region* region;
    Waveform* wave;
    std::size_t layer; ///< its number in the instrument
    bool isTaken = false;

    float Pan() const noexcept { return region->articulation[kArtPan]; }
    bool IsLeft() const noexcept { return Pan() < 0; }
};

bool IsSameLoop(const LoopInfo& a, const LoopInfo& b) noexcept
{
    if (a.type == LoopType::Off && b.type == LoopType::Off)
        return a.oneShot == b.oneShot;
    return a == b;
}

/// Equal in all values but the pan.
bool IsSameSound(const ArticulationBlock& a, const ArticulationBlock& b) noexcept
{
    ArticulationBlock differing;
    differing.MarkAll(a.DifferenceTo(b));
    differing.Unmark(kArtPan);
    return std::ranges::all_of(differing.Marks(), [](std::uint64_t word) { return word == 0; });
}

bool IsSameTuning(const Waveform& a, const Waveform& b) noexcept
{
    return a.rateHz == b.rateHz && a.rootKey == b.rootKey && a.fineTune == b.fineTune && a.volume == b.volume;
}

/// True if one region with a stereo waveform sounds like these two.
bool CanJoin(const Half& a, const Half& b)
{
    const Region &one = *a.region, &other = *b.region;
    const bool endsAlike = a.wave->frames == b.wave->frames || one.endOffset == 0;
    return a.layer != b.layer && a.wave != b.wave && a.Pan() == -b.Pan() && endsAlike &&
           one.startOffset == other.startOffset && one.endOffset == other.endOffset &&
           one.phaseGroup == other.phaseGroup && one.trigger.SameValues(other.trigger) &&
           IsSameTuning(*a.wave, *b.wave) && IsSameLoop(a.wave->loop, b.wave->loop) &&
           one.EffectiveRootKey() == other.EffectiveRootKey() &&
           IsSameLoop(GetEffectiveLoop(one), GetEffectiveLoop(other)) &&
           IsSameSound(one.articulation, other.articulation);
}

/// Numbers that are equal for blocks which only differ in their pan. Regions share most of their values, so
/// each copy is gone through once.
class SoundKeys {
public:
    std::uint32_t Of(const ArticulationBlock& block)
    {
        const auto values = block.Values();
        const auto [place, isNew] = keys_.try_emplace(values.data(), 0);
        if (isNew)
            place->second = KeyOf(values);
        return place->second;
    }

private:
    /// Each value times an odd number of its own: the sums do not wait for one another.
    static std::uint32_t KeyOf(std::span<const float, kArticulationParams> values) noexcept
    {
        std::uint64_t key = 0, factor = 0x9E3779B97F4A7C15;
        for (std::size_t id = 0; id < values.size(); ++id, factor += 0xD1B54A32D192ED02)
            key += id != kArtPan ? std::bit_cast<std::uint32_t>(values[id] + 0.0f) * factor : 0; // -0 is 0
        return static_cast<std::uint32_t>(key >> 32);
    }

    std::unordered_map<const float*, std::uint32_t> keys_;
};

std::uint32_t Pack(unsigned a, unsigned b, unsigned c, unsigned d) noexcept
{
    return a | b << 8 | c << 16 | d << 24;
}

/// Equal for halves that can be joined.
std::uint64_t JoinKey(const Half& half, SoundKeys& sounds)
{
    const Region& region = *half.region;
    const TriggerParams& trigger = region.trigger;
    const Waveform& wave = *half.wave;
    Hash hash;
    hash << (std::uint32_t{trigger.keys.Word()} | std::uint32_t{trigger.velocities.Word()} << 16)
         << Pack(trigger.keyFadeIn, trigger.keyFadeOut, trigger.velocityFadeIn, trigger.velocityFadeOut)
         << Pack(trigger.triggerType, trigger.pedalSwitch, trigger.noteExclusionMode, wave.rootKey)
         << (std::uint32_t{trigger.exclusionGroup} | std::uint32_t{region.phaseGroup} << 16)
         << trigger.delaySeconds << std::abs(half.Pan()) << static_cast<std::uint32_t>(region.startOffset)
         << static_cast<std::uint32_t>(region.endOffset) << sounds.Of(region.articulation) << wave.rateHz
         << static_cast<float>(wave.fineTune) << wave.volume << static_cast<std::uint32_t>(wave.loop.type);
    return hash.Value();
}

std::uint64_t NameKey(const Half& half)
{
    const std::u16string_view name = half.wave->GetName();
    const SideEnding ending = FindSideEnding(name);
    Hash hash;
    for (const char16_t unit : name.substr(0, ending.stem))
        hash << std::uint32_t{FoldCase(unit)};
    return (hash << std::uint32_t{ending.digit}).Value();
}

std::vector<Half> HalvesOf(const Instrument& instrument)
{
    std::vector<Half> halves;
    std::size_t number = 0;
    for (const Layer* layer : instrument.Layers()) {
        for (Region* region : layer->Regions())
            if (Waveform* wave = region->Wave(); wave != nullptr && wave->channels == 1 &&
                                                 wave->frames != 0 &&
                                                 std::abs(region->articulation[kArtPan]) >= kHardPan)
                halves.push_back({region, wave, number});
        ++number;
    }
    return halves;
}

struct HalfPair {
    std::size_t earlier, later; ///< numbers of halves
};

/// Finds the pairs among halves of one key.
class PairFinder {
public:
    explicit PairFinder(const std::vector<Half>& halves) noexcept : halves_(halves) {}

    /// Goes through halves in their order, given by their numbers; appends the pairs.
    void Find(std::span<const std::size_t> numbers, std::vector<HalfPair>& pairs)
    {
        left_.clear();
        right_.clear();
        for (const std::size_t number : numbers) {
            const bool isLeft = halves_[number].IsLeft();
            if (!TakePartner(number, isLeft ? right_ : left_, pairs))
                (isLeft ? left_ : right_).push_back(number);
        }
    }

private:
    /// Those further back are not tried: only regions that cannot be joined for want of a second waveform
    /// heap up.
    static constexpr std::size_t kTried = 64;

    /// The first of those waiting with which the half can be joined; false if there is none.
    bool TakePartner(std::size_t number, std::vector<std::size_t>& waiting,
                     std::vector<HalfPair>& pairs) const
    {
        const auto end = waiting.begin() + static_cast<std::ptrdiff_t>(std::min(waiting.size(), kTried));
        const auto found = std::find_if(waiting.begin(), end, [&](std::size_t other) {
            return CanJoin(halves_[other], halves_[number]);
        });
        if (found == end)
            return false;
        pairs.push_back({*found, number});
        waiting.erase(found);
        return true;
    }

    const std::vector<Half>& halves_;
    std::vector<std::size_t> left_, right_; ///< that wait for their other side, in order
};

std::vector<HalfPair> FindPairs(const std::vector<Half>& halves, std::span<const std::uint64_t> keys)
{
    std::vector<std::size_t> order;
    order.reserve(halves.size());
    for (std::size_t i = 0; i < halves.size(); ++i)
        if (!halves[i].isTaken)
            order.push_back(i);
    std::ranges::sort(order, {}, [&](std::size_t i) { return std::pair(keys[i], i); });
    std::vector<HalfPair> pairs;
    PairFinder finder(halves);
    const std::span<const std::size_t> all(order);
    for (std::size_t first = 0, last; first < all.size(); first = last) {
        for (last = first + 1; last < all.size() && keys[all[last]] == keys[all[first]];)
            ++last;
        if (last - first > 1)
            finder.Find(all.subspan(first, last - first), pairs);
    }
    std::ranges::sort(pairs, {}, &HalfPair::later);
    return pairs;
}

/// Joins halves with the same key; the earlier region of a pair is kept.
void JoinByKey(std::vector<Half>& halves, std::span<const std::uint64_t> keys, StereoMaker& maker,
               RegionChanges& changes)
{
    for (const HalfPair& pair : FindPairs(halves, keys)) {
        Half &earlier = halves[pair.earlier], &later = halves[pair.later];
        Half &left = later.IsLeft() ? later : earlier, &right = later.IsLeft() ? earlier : later;
        if (const Waveform* stereo = maker.StereoOf(*left.wave, *right.wave, *earlier.wave)) {
            changes.Merge(*earlier.region, *later.region, *stereo);
            earlier.isTaken = later.isTaken = true;
        }
    }
}

/// Halves whose names belong together first: so stacked pairs are not mixed up.
void JoinPairs(const Instrument& instrument, StereoMaker& maker, RegionChanges& changes)
{
    std::vector<Half> halves = HalvesOf(instrument);
    if (halves.empty())
        return;
    SoundKeys sounds;
    std::vector<std::uint64_t> keys, named;
    for (const Half& half : halves) {
        keys.push_back(JoinKey(half, sounds));
        named.push_back(std::rotl(keys.back(), 1) ^ NameKey(half));
    }
    JoinByKey(halves, named, maker, changes);
    JoinByKey(halves, keys, maker, changes);
}

} // namespace

StereoMergeCounts MergeStereoPairs(Collection& collection, DeleteUnused deleteUnused)
{
    StereoMaker maker(collection);
    RegionChanges changes;
    for (const Instrument& instrument : collection.All<Instrument>())
        JoinPairs(instrument, maker, changes);
    return changes.Finish(collection, maker, deleteUnused);
}

StereoMergeCounts MergeStereoPairs(Instrument& instrument, DeleteUnused deleteUnused)
{
    StereoMaker maker(instrument.Owner());
    RegionChanges changes;
    JoinPairs(instrument, maker, changes);
    return changes.Finish(instrument.Owner(), maker, deleteUnused);
}

} // namespace vimbo
