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
#include <unordered_map>

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
    const auto one = a.Values(), other = b.Values();
    return std::ranges::equal(one.first<kArtPan>(), other.first<kArtPan>()) &&
           std::ranges::equal(one.subspan<kArtPan + 1>(), other.subspan<kArtPan + 1>());
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

/// Equal for halves that can be joined.
std::uint64_t JoinKey(const Half& half)
{
    const Region& region = *half.region;
    Hash hash;
    for (ParamId id = kFirstTriggerParam; id <= kLastTriggerParam; ++id)
        hash << region.trigger.Get(id);
    hash << std::abs(half.Pan()) << static_cast<std::uint32_t>(region.startOffset)
         << static_cast<std::uint32_t>(region.endOffset) << std::uint32_t{region.phaseGroup}
         << std::uint32_t{region.EffectiveRootKey()};
    const auto values = region.articulation.Values();
    for (std::size_t id = 0; id < values.size(); ++id)
        if (id != kArtPan)
            hash << values[id];
    const Waveform& wave = *half.wave;
    hash << wave.rateHz << std::uint32_t{wave.rootKey} << static_cast<float>(wave.fineTune) << wave.volume
         << static_cast<std::uint32_t>(wave.loop.type);
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

/// Halves of one key that wait for their other side, in order.
struct Waiting {
    /// Those further back are not tried: only regions that cannot be joined for want of a second waveform
    /// heap up.
    static constexpr std::size_t kTried = 64;
    std::deque<Half*> left, right;

    /// Takes the first one that `half` can be joined with out of the line; null if there is none.
    Half* TakePartner(const Half& half)
    {
        std::deque<Half*>& line = half.IsLeft() ? right : left;
        const std::size_t tried = std::min(line.size(), kTried);
        for (std::size_t i = 0; i < tried; ++i)
            if (Half* found = line[i]; CanJoin(*found, half)) {
                line.erase(line.begin() + static_cast<std::ptrdiff_t>(i));
                return found;
            }
        return nullptr;
    }
    void Add(Half& half) { (half.IsLeft() ? left : right).push_back(&half); }
};

/// Joins halves with the same key; the earlier region of a pair is kept.
void JoinByKey(std::vector<Half>& halves, std::span<const std::uint64_t> keys, StereoMaker& maker,
               RegionChanges& changes)
{
    std::unordered_map<std::uint64_t, Waiting> waiting;
    for (std::size_t i = 0; i < halves.size(); ++i) {
        Half& half = halves[i];
        if (half.isTaken)
            continue;
        Waiting& line = waiting[keys[i]];
        Half* const earlier = line.TakePartner(half);
        if (earlier == nullptr) {
            line.Add(half);
            continue;
        }
        Half &left = half.IsLeft() ? half : *earlier, &right = half.IsLeft() ? *earlier : half;
        if (const Waveform* stereo = maker.StereoOf(*left.wave, *right.wave, *earlier->wave)) {
            changes.Merge(*earlier->region, *half.region, *stereo);
            half.isTaken = earlier->isTaken = true;
        }
    }
}

/// Halves whose names belong together first: so stacked pairs are not mixed up.
void JoinPairs(const Instrument& instrument, StereoMaker& maker, RegionChanges& changes)
{
    std::vector<Half> halves = HalvesOf(instrument);
    std::vector<std::uint64_t> keys, named;
    for (const Half& half : halves) {
        keys.push_back(JoinKey(half));
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
