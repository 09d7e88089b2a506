// Pairs of mono waveforms, panned left and right in dual layers, to stereo ones.
#include "base/text.h"
#include "model/instrument.h"
#include "model/side_names.h"
#include "model/stereo_maker.h"
#include "model/waveform.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <deque>
#include <numeric>
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
    std::uint64_t key = 0;
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
    ArticulationBlock::MarkWords differing = a.DifferenceTo(b);
    differing[kArtPan / 64] &= ~(std::uint64_t{1} << kArtPan % 64);
    return differing == ArticulationBlock::MarkWords{};
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

/// True if the region and the twin of it that plays `other` can be joined. They agree in all that both hold.
bool CanJoinTwin(const Region& region, const Waveform& wave, const Waveform& other) noexcept
{
    return &wave != &other && std::abs(region.articulation[kArtPan]) >= kHardPan &&
           (wave.frames == other.frames || region.endOffset == 0) && IsSameTuning(wave, other) &&
           IsSameLoop(wave.loop, other.loop);
}

/// Makes the twin after all, in a layer behind the others.
void MakeTwin(Region& region, const Waveform& other)
{
    Layer* layer = region.ParentLayer();
    Instrument* instrument = layer != nullptr ? layer->ParentInstrument() : nullptr;
    if (instrument == nullptr)
        return;
    Layer& added = instrument->AddLayer(layer->GetName());
    added.trigger = layer->trigger;
    added.articulation = layer->articulation;
    Region& twin = region.Owner().Clone(region);
    twin.SetParent(added.Handle());
    added.AddChild(twin.Handle());
    twin.rootKey = region.EffectiveRootKey();
    twin.loop = GetEffectiveLoop(region);
    twin.overrideFlags = Region::kAllOverrides;
    twin.SetSound(other.Handle());
    twin.articulation.Set(kArtPan, -region.articulation[kArtPan]);
    twin.DropEqualOverrides();
    added.Validate();
    twin.Validate();
}

/// Equal for blocks that only differ in their pan. Each value counts times an odd number of its own: the sums
/// do not wait for one another.
std::uint64_t SoundKey(const ArticulationBlock& block) noexcept
{
    const auto values = block.Values();
    std::uint64_t key = 0, factor = 0x9E3779B97F4A7C15;
    for (std::size_t id = 0; id < values.size(); ++id, factor += 0xD1B54A32D192ED02)
        key += id != kArtPan ? std::bit_cast<std::uint32_t>(values[id] + 0.0f) * factor : 0; // -0 is 0
    return key;
}

std::uint32_t Pack(unsigned a, unsigned b, unsigned c, unsigned d) noexcept
{
    return a | b << 8 | c << 16 | d << 24;
}

/// Equal for halves that can be joined, but not for many others.
std::uint64_t JoinKey(const Half& half) noexcept
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
         << static_cast<std::uint32_t>(region.endOffset) << wave.rateHz << static_cast<float>(wave.fineTune)
         << wave.volume << static_cast<std::uint32_t>(wave.loop.type);
    return hash.Value();
}

std::uint64_t NameKey(std::u16string_view name)
{
    const SideEnding ending = FindSideEnding(name);
    Hash hash;
    for (const char16_t unit : name.substr(0, ending.stem))
        hash << std::uint32_t{FoldCase(unit)};
    return (hash << std::uint32_t{ending.digit}).Value();
}

/// Many regions play each waveform: its key is worked out once.
class NameKeys {
public:
    std::uint64_t Of(const Waveform& wave)
    {
        const auto [place, isNew] = keys_.try_emplace(&wave, 0);
        if (isNew)
            place->second = NameKey(wave.GetName());
        return place->second;
    }

private:
    std::unordered_map<const Waveform*, std::uint64_t> keys_;
};

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
    for (Half& half : halves)
        half.key = JoinKey(half);
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
    bool TakePartner(std::size_t number, std::deque<std::size_t>& waiting, std::vector<HalfPair>& pairs) const
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
    /// That wait for their other side, in order. They leave near the front, which a deque does not mind.
    std::deque<std::size_t> left_, right_;
};

/// The numbers of halves in the order of their keys.
std::vector<std::size_t> OrderByKey(const std::vector<Half>& halves)
{
    std::vector<std::size_t> order(halves.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::ranges::sort(order, {}, [&](std::size_t i) { return std::pair(halves[i].key, i); });
    return order;
}

/// Calls `visit` for each run of numbers of halves with one key.
template <class Visit>
void ForEqualKeys(const std::vector<Half>& halves, std::span<const std::size_t> order, Visit visit)
{
    for (std::size_t first = 0, last; first < order.size(); first = last) {
        for (last = first + 1; last < order.size() && halves[order[last]].key == halves[order[first]].key;)
            ++last;
        visit(order.subspan(first, last - first));
    }
}

/// Leaves out what is alone with its key. Comparing sounds costs most: two halves of one key are just tried,
/// only where there are more the sound becomes a part of the key.
void RefineKeys(std::vector<Half>& halves)
{
    ForEqualKeys(halves, OrderByKey(halves), [&](std::span<const std::size_t> numbers) {
        for (const std::size_t number : numbers) {
            Half& half = halves[number];
            if (numbers.size() == 1)
                half.isTaken = true;
            else if (numbers.size() > 2)
                half.key = std::rotl(half.key, 1) ^ SoundKey(half.region->articulation);
        }
    });
    std::erase_if(halves, [](const Half& half) { return half.isTaken; });
}

std::vector<HalfPair> FindPairs(const std::vector<Half>& halves)
{
    std::vector<HalfPair> pairs;
    PairFinder finder(halves);
    ForEqualKeys(halves, OrderByKey(halves), [&](std::span<const std::size_t> numbers) {
        if (numbers.size() > 1)
            finder.Find(numbers, pairs);
    });
    std::ranges::sort(pairs, {}, &HalfPair::later);
    return pairs;
}

/// Joins halves with the same key; the earlier region of a pair is kept.
void JoinByKey(std::vector<Half>& halves, StereoMaker& maker, RegionChanges& changes)
{
    for (const HalfPair& pair : FindPairs(halves)) {
        Half &earlier = halves[pair.earlier], &later = halves[pair.later];
        Half &left = later.IsLeft() ? later : earlier, &right = later.IsLeft() ? earlier : later;
        if (const Waveform* stereo = maker.StereoOf(*left.wave, *right.wave, *earlier.wave)) {
            changes.Merge(*earlier.region, *later.region, *stereo);
            earlier.isTaken = later.isTaken = true;
        }
    }
    std::erase_if(halves, [](const Half& half) { return half.isTaken; });
}

/// Halves whose names belong together first: so stacked pairs are not mixed up.
void JoinPairs(const Instrument& instrument, NameKeys& names, StereoMaker& maker, RegionChanges& changes)
{
    std::vector<Half> halves = HalvesOf(instrument);
    RefineKeys(halves);
    for (Half& half : halves)
        half.key ^= names.Of(*half.wave);
    JoinByKey(halves, maker, changes);
    for (Half& half : halves)
        half.key ^= names.Of(*half.wave);
    JoinByKey(halves, maker, changes);
}

} // namespace

struct StereoPairMerger::State {
    explicit State(Collection& collection) : items(collection), maker(collection) {}
    Collection& items;
    StereoMaker maker;
    RegionChanges changes;
    NameKeys names;
    std::size_t nextTwin = 0;
    bool joinsTwins = true;

    /// Joins or makes the twins of an instrument, or all that are left.
    void JoinTwins(const Instrument* instrument)
    {
        for (; nextTwin < items.twins.size(); ++nextTwin) {
            Region* region = items.Find<Region>(items.twins[nextTwin].region);
            Waveform* wave = region != nullptr ? region->Wave() : nullptr;
            Waveform* other = items.Find<Waveform>(items.twins[nextTwin].wave);
            if (wave == nullptr || other == nullptr)
                continue; // it went, so would have its twin
            const Layer* layer = region->ParentLayer();
            if (instrument != nullptr && layer != nullptr && layer->Parent() != instrument->Handle())
                return;
            if (!JoinTwin(*region, *wave, *other))
                MakeTwin(*region, *other);
        }
    }

    bool JoinTwin(Region& region, Waveform& wave, Waveform& other)
    {
        if (!joinsTwins || !CanJoinTwin(region, wave, other))
            return false;
        const bool isLeft = region.articulation[kArtPan] < 0;
        const Waveform* stereo =
            isLeft ? maker.StereoOf(wave, other, wave) : maker.StereoOf(other, wave, wave);
        if (stereo != nullptr)
            changes.Merge(region, *stereo);
        return stereo != nullptr;
    }
};

StereoPairMerger::StereoPairMerger(Collection& collection) : state_(std::make_unique<State>(collection)) {}
StereoPairMerger::~StereoPairMerger() = default;

void StereoPairMerger::Merge(const Instrument& instrument)
{
    state_->JoinTwins(&instrument);
    JoinPairs(instrument, state_->names, state_->maker, state_->changes);
    state_->changes.Apply(state_->items);
}

void StereoPairMerger::KeepApart()
{
    state_->joinsTwins = false;
    state_->JoinTwins(nullptr);
    state_->items.twins.clear();
}

StereoMergeCounts StereoPairMerger::Finish(DeleteUnused deleteUnused)
{
    state_->JoinTwins(nullptr);
    state_->items.twins.clear();
    return state_->changes.Finish(state_->items, state_->maker, deleteUnused);
}

StereoMergeCounts MergeStereoPairs(Collection& collection, DeleteUnused deleteUnused)
{
    StereoPairMerger merger(collection);
    for (const Instrument& instrument : collection.All<Instrument>())
        merger.Merge(instrument);
    return merger.Finish(deleteUnused);
}

StereoMergeCounts MergeStereoPairs(Instrument& instrument, DeleteUnused deleteUnused)
{
    StereoPairMerger merger(instrument.Owner());
    merger.Merge(instrument);
    return merger.Finish(deleteUnused);
}

} // namespace vimbo
