// The samples of a bank: their order, names, pairs and loops.
#include "base/text.h"
#include "formats/soundfont/soundfont_build.h"
#include "formats/soundfont/soundfont_names.h"
#include "model/collection.h"
#include "model/instrument_threads.h"
#include "model/sample_source.h"
#include "model/side_names.h"
#include "model/stereo_maker.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <optional>
#include <span>

namespace vimbo::sf2 {
namespace {

/// Of more regions with the same ranges at one side, the others are not looked at.
constexpr std::size_t kTried = 64;

bool IsWritable(const Waveform& wave) noexcept
{
    return wave.frames != 0 && (wave.channels == 1 || wave.channels == 2);
}

struct Use;

/// A region that plays something.
struct Played {
    Played(const Region& from, Waveform& plays, std::size_t number)
        : wave(&plays), layer(number),
          zone(from.trigger.keys.Word() | std::uint32_t{from.trigger.velocities.Word()} << 16),
          pan(from.articulation[kArtPan]), rootKey(from.EffectiveRootKey()),
          loop(WholeLoop(GetEffectiveLoop(from), plays.frames))
    {
    }

    Waveform* wave;
    std::size_t layer;
    std::uint32_t zone; ///< its keys and velocities
    float pan;
    std::uint8_t rootKey;
    LoopInfo loop;
    Use* use = nullptr; ///< of the waveform
};

/// What the regions of a waveform have in common, and its pair.
struct Use {
    std::size_t regions = 0;
    bool agree = true; ///< in root key and loop
    LoopInfo loop;     ///< of the first region
    std::uint8_t rootKey = 0;
    std::optional<LoopInfo> firstLooped;
    bool allLeft = true, allRight = true, allMiddle = true;
    Waveform* partner = nullptr; ///< the other half of a pair
    bool isLeft = false;         ///< of a pair

    void Add(const Played& region)
    {
        if (regions++ == 0) {
            loop = region.loop;
            rootKey = region.rootKey;
        }
        agree = agree && region.loop == loop && region.rootKey == rootKey;
        if (!firstLooped && region.loop.type != LoopType::Off)
            firstLooped = region.loop;
        allLeft = allLeft && region.pan == -1;
        allRight = allRight && region.pan == 1;
        allMiddle = allMiddle && region.pan == 0;
    }
};

bool AreSidesOfOneSource(const Waveform& left, const Waveform& right)
{
    SampleSource one, other;
    if (!IsDerivedImport(left.importProc) || !DescribeSource(left, one) || !DescribeSource(right, other) ||
        one.channel != 0 || other.channel != 1)
        return false;
    other.channel = 0;
    return one == other;
}

class ListMaker {
public:
    explicit ListMaker(const ExportSet& set) : set_(set) {}

    SampleList Make()
    {
        GatherUses();
        for (const std::vector<Played>& regions : played_)
            PairRegions(regions);
        PairUnused();
        for (Waveform* wave : set_.Waveforms())
            Add(*wave);
        return std::move(list_);
    }

private:
    /// Regions are scattered in memory: what is needed of them is looked up on all cores, and put together in
    /// their order.
    void GatherUses()
    {
        played_.resize(set_.Instruments().size());
        ForEachInstrument(set_.Instruments(), [this](const Instrument& instrument, std::size_t place) {
            played_[place] = PlayedBy(instrument);
        });
        for (std::vector<Played>& regions : played_)
            for (Played& region : regions) {
                region.use = &uses_[region.wave];
                region.use->Add(region);
            }
    }

    static std::vector<Played> PlayedBy(const Instrument& instrument)
    {
        std::vector<Played> played;
        std::size_t number = 0;
        for (const Layer* layer : instrument.Layers()) {
            for (const Region* region : layer->Regions())
                if (Waveform* wave = region->Wave(); wave != nullptr && IsWritable(*wave))
                    played.emplace_back(*region, *wave, number);
            ++number;
        }
        return played;
    }

    const Use* UseOf(const Waveform& wave) const
    {
        const auto found = uses_.find(&wave);
        return found != uses_.end() && found->second.regions != 0 ? &found->second : nullptr;
    }

    static bool CanPair(const Waveform& left, const Use& leftUse, const Waveform& right, const Use& rightUse)
    {
        return left.rateHz == right.rateHz && leftUse.partner == nullptr && rightUse.partner == nullptr &&
               (AreSidesOfOneName(left.GetName(), right.GetName()) || AreSidesOfOneSource(left, right));
    }

    static void Pair(Waveform& left, Use& leftUse, Waveform& right, Use& rightUse)
    {
        leftUse.partner = &right;
        leftUse.isLeft = true;
        rightUse.partner = &left;
    }

    /// A reader puts linked samples to the sides wherever they are played, so all regions must say that.
    /// @param regions  of one instrument
    void PairRegions(std::span<const Played> regions)
    {
        using Right = std::pair<std::uint32_t, const Played*>;
        std::vector<Right> rights; // by zones, and in their order
        for (const Played& region : regions)
            if (region.wave->channels == 1 && region.use->allRight)
                rights.push_back({region.zone, &region});
        if (rights.empty())
            return;
        std::ranges::stable_sort(rights, {}, &Right::first);
        for (const Played& left : regions) {
            if (left.wave->channels != 1 || !left.use->allLeft || left.use->partner != nullptr)
                continue;
            auto at = std::ranges::lower_bound(rights, left.zone, {}, &Right::first);
            for (std::size_t tried = 0; tried < kTried && at != rights.end() && at->first == left.zone;
                 ++tried, ++at) {
                const Played& right = *at->second;
                if (right.layer != left.layer && CanPair(*left.wave, *left.use, *right.wave, *right.use)) {
                    Pair(*left.wave, *left.use, *right.wave, *right.use);
                    break;
                }
            }
        }
    }

    void PairUnused()
    {
        std::map<std::pair<std::u16string, std::uint32_t>, Waveform*> halves;
        for (Waveform* wave : set_.Waveforms()) {
            const SideEnding ending = FindSideEnding(wave->GetName());
            if (UseOf(*wave) != nullptr || wave->channels != 1 || !ending.isClear || !IsWritable(*wave))
                continue;
            const auto [place, isNew] =
                halves.try_emplace({FoldedName(wave->GetName().substr(0, ending.stem)), wave->frames}, wave);
            if (isNew)
                continue;
            const bool isLeft = ending.side == SideEnding::Side::Left;
            Waveform &left = isLeft ? *wave : *place->second, &right = isLeft ? *place->second : *wave;
            Use &leftUse = uses_[&left], &rightUse = uses_[&right];
            if (CanPair(left, leftUse, right, rightUse))
                Pair(left, leftUse, right, rightUse);
        }
    }

    void Add(Waveform& wave)
    {
        if (!IsWritable(wave) || list_.places.contains(&wave))
            return;
        const auto found = uses_.find(&wave);
        Waveform* const partner = found != uses_.end() ? found->second.partner : nullptr;
        if (partner == nullptr) {
            AddSamples(wave);
            return;
        }
        const bool isLeft = found->second.isLeft;
        AddSamples(isLeft ? wave : *partner);
        AddSamples(isLeft ? *partner : wave);
        Link();
    }

    /// The last two samples are a pair.
    void Link()
    {
        const std::size_t right = list_.samples.size() - 1;
        OutSample &one = list_.samples[right - 1], &other = list_.samples[right];
        one.type = kSampleLeft;
        other.type = kSampleRight;
        one.link = static_cast<std::uint16_t>(right);
        other.link = static_cast<std::uint16_t>(right - 1);
    }

    void AddSamples(Waveform& wave)
    {
        OutSample sample;
        sample.wave = &wave;
        sample.rootKey = wave.rootKey;
        SetLoop(sample);
        list_.places.emplace(&wave, list_.samples.size());
        if (wave.channels == 1) {
            list_.samples.push_back(sample);
            return;
        }
        for (const unsigned channel : {0u, 1u}) {
            sample.channel = channel;
            list_.samples.push_back(sample);
        }
        const Use* use = UseOf(wave);
        if (use == nullptr || use->allMiddle)
            Link();
    }

    /// The loop that a reader then finds for the waveform: where the regions agree, theirs.
    void SetLoop(OutSample& sample) const
    {
        const Waveform& wave = *sample.wave;
        LoopInfo loop = WholeLoop(wave.loop, wave.frames);
        const Use* use = UseOf(wave);
        if (use != nullptr && use->agree) {
            sample.rootKey = use->rootKey;
            loop = use->loop;
            if (IsDefaultLoop(loop, wave.frames))
                return;
        } else if (loop.type == LoopType::Off) {
            if (use == nullptr || !use->firstLooped)
                return;
            loop = *use->firstLooped;
        }
        sample.loopStart = static_cast<std::uint32_t>(loop.start);
        sample.loopEnd = static_cast<std::uint32_t>(loop.end);
    }

    const ExportSet& set_;
    SampleList list_;
    std::unordered_map<const Waveform*, Use> uses_;
    std::vector<std::vector<Played>> played_; ///< by each instrument
};

/// Halves named as splitting a stereo waveform names them are named by their stem, so that joining and
/// splitting them gives the same names.
NamePair PairNames(FieldNames& names, const Waveform& left, const Waveform& right)
{
    const std::u16string_view one = left.GetName(), other = right.GetName();
    if (one.ends_with(u" -L") && other.ends_with(u" -R"))
        return names.TakePair(NarrowNameOf(one.substr(0, one.size() - 3)));
    NamePair pair{NarrowNameOf(one), NarrowNameOf(other)};
    if (names.TakeBoth(pair.left, pair.right))
        return pair;
    const SideEnding ending = FindSideEnding(one);
    return names.TakePair(NarrowNameOf(ending.stem != 0 ? one.substr(0, ending.stem) : one));
}

} // namespace

LoopInfo WholeLoop(const LoopInfo& loop, std::uint32_t frames) noexcept
{
    LoopInfo whole = loop;
    whole.start = std::trunc(loop.start + 0.5);
    whole.end = whole.start + std::trunc(loop.end - loop.start + 0.5); // the length gives the pitch
    if (!(whole.end >= 1) || whole.end > frames)
        whole.end = frames;
    if (!(whole.start >= 0) || whole.start >= whole.end)
        whole.start = 0;
    whole.type = loop.type == LoopType::Off ? LoopType::Off : LoopType::Forward;
    whole.breakOnRelease = loop.breakOnRelease && loop.type != LoopType::Off;
    whole.oneShot = loop.oneShot && loop.type == LoopType::Off;
    whole.pitch = 0;
    return whole;
}

LoopInfo LoopOf(const OutSample& sample) noexcept
{
    LoopInfo loop;
    loop.type = sample.loopEnd > sample.loopStart ? LoopType::Forward : LoopType::Off;
    loop.start = sample.loopStart;
    loop.end = loop.type != LoopType::Off ? sample.loopEnd : sample.wave->frames;
    return loop;
}

SampleList ListSamples(const ExportSet& set)
{
    return ListMaker(set).Make();
}

void NameSamples(SampleList& list)
{
    FieldNames names;
    names.Reserve("EOS"); // ends the list
    for (std::size_t i = 0; i < list.samples.size(); ++i) {
        OutSample& sample = list.samples[i];
        const bool isStereo = sample.channel != OutSample::kWhole;
        if (!isStereo && sample.type == kSampleMono) {
            sample.name = names.Take(NarrowNameOf(sample.wave->GetName()));
            continue;
        }
        OutSample& other = list.samples[++i];
        const NamePair pair = isStereo
                                  ? names.TakePair(NarrowNameOf(WithoutStereoSuffix(sample.wave->GetName())))
                                  : PairNames(names, *sample.wave, *other.wave);
        sample.name = pair.left;
        other.name = pair.right;
    }
}

} // namespace vimbo::sf2
