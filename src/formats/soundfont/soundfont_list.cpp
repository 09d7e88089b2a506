// The samples of a bank: their order, names, pairs and loops.
#include "base/text.h"
#include "formats/soundfont/soundfont_build.h"
#include "formats/soundfont/soundfont_names.h"
#include "model/collection.h"
#include "model/sample_source.h"
#include "model/side_names.h"
#include "model/stereo_maker.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <optional>

namespace vimbo::sf2 {
namespace {

/// Of more regions with the same ranges at one side, the others are not looked at.
constexpr std::size_t kTried = 64;

bool IsWritable(const Waveform& wave) noexcept
{
    return wave.frames != 0 && (wave.channels == 1 || wave.channels == 2);
}

/// What the regions of a waveform have in common.
struct Use {
    std::size_t regions = 0;
    bool agree = true; ///< in root key and loop
    LoopInfo loop;     ///< of the first region
    std::uint8_t rootKey = 0;
    std::optional<LoopInfo> firstLooped;
    bool allLeft = true, allRight = true, allMiddle = true;

    void Add(const Region& region, const Waveform& wave)
    {
        const LoopInfo own = WholeLoop(GetEffectiveLoop(region), wave.frames);
        const float pan = region.articulation[kArtPan];
        if (regions++ == 0) {
            loop = own;
            rootKey = region.EffectiveRootKey();
        }
        agree = agree && own == loop && region.EffectiveRootKey() == rootKey;
        if (!firstLooped && own.type != LoopType::Off)
            firstLooped = own;
        allLeft = allLeft && pan == -1;
        allRight = allRight && pan == 1;
        allMiddle = allMiddle && pan == 0;
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
        for (const Instrument* instrument : set_.Instruments())
            PairRegions(*instrument);
        PairUnused();
        for (Waveform* wave : set_.Waveforms())
            Add(*wave);
        SetNames();
        return std::move(list_);
    }

private:
    template <class Visit>
    static void ForEachRegion(const Instrument& instrument, Visit visit)
    {
        std::size_t number = 0;
        for (const Layer* layer : instrument.Layers()) {
            for (const Region* region : layer->Regions())
                if (Waveform* wave = region->Wave(); wave != nullptr && IsWritable(*wave))
                    visit(*region, *wave, number);
            ++number;
        }
    }

    void GatherUses()
    {
        for (const Instrument* instrument : set_.Instruments())
            ForEachRegion(*instrument, [this](const Region& region, Waveform& wave, std::size_t) {
                uses_[&wave].Add(region, wave);
            });
    }

    const Use* UseOf(const Waveform& wave) const
    {
        const auto found = uses_.find(&wave);
        return found != uses_.end() ? &found->second : nullptr;
    }

    bool CanPair(const Waveform& left, const Waveform& right) const
    {
        return left.rateHz == right.rateHz && !partners_.contains(&left) && !partners_.contains(&right) &&
               (AreSidesOfOneName(left.GetName(), right.GetName()) || AreSidesOfOneSource(left, right));
    }

    void Pair(Waveform& left, Waveform& right)
    {
        partners_[&left] = &right;
        partners_[&right] = &left;
        lefts_.insert(&left);
    }

    /// A reader puts linked samples to the sides wherever they are played, so all regions must say that.
    void PairRegions(const Instrument& instrument)
    {
        struct Half {
            Waveform* wave;
            std::size_t layer;
        };
        const auto zoneOf = [](const Region& region) {
            return region.trigger.keys.Word() | std::uint32_t{region.trigger.velocities.Word()} << 16;
        };
        std::unordered_map<std::uint32_t, std::vector<Half>> rights;
        ForEachRegion(instrument, [&](const Region& region, Waveform& wave, std::size_t layer) {
            if (wave.channels != 1 || !uses_[&wave].allRight)
                return;
            std::vector<Half>& line = rights[zoneOf(region)];
            if (line.size() < kTried)
                line.push_back({&wave, layer});
        });
        if (rights.empty())
            return;
        ForEachRegion(instrument, [&](const Region& region, Waveform& wave, std::size_t layer) {
            if (wave.channels != 1 || !uses_[&wave].allLeft)
                return;
            const auto line = rights.find(zoneOf(region));
            if (line == rights.end())
                return;
            for (const Half& right : line->second)
                if (right.layer != layer && CanPair(wave, *right.wave))
                    return Pair(wave, *right.wave);
        });
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
            if (CanPair(left, right))
                Pair(left, right);
        }
    }

    void Add(Waveform& wave)
    {
        if (!IsWritable(wave) || list_.places.contains(&wave))
            return;
        const auto found = partners_.find(&wave);
        if (found == partners_.end()) {
            AddSamples(wave);
            return;
        }
        const bool isLeft = lefts_.contains(&wave);
        AddSamples(isLeft ? wave : *found->second);
        AddSamples(isLeft ? *found->second : wave);
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

    void SetNames()
    {
        FieldNames names;
        names.Reserve("EOS"); // ends the list
        for (std::size_t i = 0; i < list_.samples.size(); ++i) {
            OutSample& sample = list_.samples[i];
            const bool isStereo = sample.channel != OutSample::kWhole;
            if (!isStereo && sample.type == kSampleMono) {
                sample.name = names.Take(NarrowNameOf(sample.wave->GetName()));
                continue;
            }
            OutSample& other = list_.samples[++i];
            const NamePair pair =
                isStereo ? names.TakePair(NarrowNameOf(WithoutStereoSuffix(sample.wave->GetName())))
                         : PairNames(names, *sample.wave, *other.wave);
            sample.name = pair.left;
            other.name = pair.right;
        }
    }

    /// Halves named as splitting a stereo waveform names them are named by their stem, so that joining and
    /// splitting them gives the same names.
    static NamePair PairNames(FieldNames& names, const Waveform& left, const Waveform& right)
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

    const ExportSet& set_;
    SampleList list_;
    std::unordered_map<const Waveform*, Use> uses_;
    std::unordered_map<const Waveform*, Waveform*> partners_;
    std::unordered_set<const Waveform*> lefts_;
};

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

} // namespace vimbo::sf2
