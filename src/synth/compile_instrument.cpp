// From the items of a collection to the records that voices play.
#include "model/envelope.h"
#include "model/waveform.h"
#include "synth/compile_model.h"
#include "synth/synth_instrument.h"

#include <algorithm>
#include <cmath>
#include <compare>
#include <deque>
#include <map>
#include <tuple>

namespace vimbo::synth {
namespace {

constexpr std::size_t kMostNameCharacters = 79;
constexpr float kMiddleC = 60;

/// A record on its way, and where its sample comes from.
struct Draft {
    SynthRegion record;
    Waveform* wave = nullptr;  ///< null for synthesis models
    Waveform* right = nullptr; ///< the other side of a fused pair
    float rootKey = kMiddleC;
    bool isGone = false;

    bool IsSide(float pan) const noexcept { return record.params[kArtPan] == pan; }
    bool IsMonoWave() const noexcept { return wave && wave->channels == 1; }
};

std::u16string CutName(std::u16string_view name)
{
    name = name.substr(0, kMostNameCharacters);
    if (!name.empty() && name.back() >= 0xD800 && name.back() < 0xDC00) // half of a pair
        name.remove_suffix(1);
    return std::u16string(name);
}

void TakeTrigger(SynthRegion& record, const Region& region)
{
    const TriggerParams& trigger = region.trigger;
    record.fades = CrossFadeRanges(trigger);
    record.keys = {record.fades.keys.low, record.fades.keys.high};
    record.velocities = {record.fades.velocities.low, record.fades.velocities.high};
    record.trigger = trigger.triggerType;
    record.pedal = trigger.pedalSwitch;
    record.exclusiveClass = trigger.exclusionGroup;
    record.allowOverlap = trigger.noteExclusionMode == static_cast<std::uint8_t>(NoteExclusion::NonExclusive);
    record.delaySeconds = trigger.delaySeconds;
    record.phaseGroup = region.phaseGroup;
    record.isPhaseMaster = region.phaseMaster != 0;
}

void TakeSound(WaveSound& sound, const Region& region, const Waveform& wave)
{
    const std::int64_t frames = wave.frames;
    sound.start = std::clamp<std::int64_t>(region.startOffset, 0, frames);
    sound.end = std::clamp(frames + region.endOffset, sound.start, frames);
    const LoopInfo loop = GetEffectiveLoop(region);
    sound.loopType = loop.type;
    sound.breakOnRelease = loop.breakOnRelease;
    sound.loopStart = loop.start;
    sound.loopEnd = std::min(loop.end, static_cast<double>(frames));
    sound.loopTuning = loop.pitch;
}

std::vector<Draft> DraftRegions(const Instrument& instrument, SampleStore& samples)
{
    std::vector<Draft> drafts;
    for (const Layer* layer : instrument.Layers())
        for (const Region* region : layer->Regions()) {
            Waveform* const wave = region->Wave();
            const SynthModel* const synth = region->Synth();
            if (!wave && !synth)
                continue;
            Draft& draft = drafts.emplace_back();
            draft.wave = wave;
            draft.record.regionId = region->Handle().Serial();
            TakeTrigger(draft.record, *region);
            std::ranges::copy(region->articulation.Values(), draft.record.params.begin());
            if (synth) {
                draft.isGone = !TakeSynthModel(draft.record, *synth, samples);
                continue;
            }
            draft.rootKey = static_cast<float>(region->EffectiveRootKey());
            TakeSound(draft.record.wave, *region, *wave);
            draft.isGone = draft.record.wave.start >= draft.record.wave.end;
        }
    return drafts;
}

/// Equal for the master of a phase group and those that follow it.
auto PhaseKey(const SynthRegion& region) noexcept
{
    return std::tuple(region.phaseGroup, region.keys.Word(), region.fades.velocities); // the ranges with them
}

void TakePitch(SynthRegion& region, const SynthRegion& master)
{
    const auto take = [&](ParamId first, std::size_t count) {
        std::copy_n(master.params.begin() + first, count, region.params.begin() + first);
    };
    const auto uses = [&](ParamId first, std::size_t count) {
        return std::any_of(master.params.begin() + first, master.params.begin() + first + count,
                           [](float depth) { return depth != 0; });
    };
    take(kArtTuning, kArtRandomToPitch - kArtTuning + 1);
    if (uses(kArtPEnvToPitch, 2))
        take(EnvelopeBase(EnvelopeIndex::Pitch), kEnvelopeParams);
    if (uses(kArtPLfoToPitch, 4))
        take(LfoBase(LfoIndex::Pitch), kLfoParams);
    if (uses(kArtXLfoToPitch, 4))
        take(LfoBase(LfoIndex::X), kLfoParams);
}

/// Regions of a phase group move in pitch as their master does. Before root keys are applied: each keeps its
/// own.
void LinkPhases(std::vector<Draft>& drafts)
{
    std::map<decltype(PhaseKey(SynthRegion())), const SynthRegion*> masters; // of several the first
    for (const Draft& draft : drafts)
        if (draft.record.phaseGroup != 0 && draft.record.isPhaseMaster)
            masters.emplace(PhaseKey(draft.record), &draft.record);
    for (Draft& draft : drafts) {
        if (draft.record.phaseGroup == 0 || draft.record.isPhaseMaster)
            continue;
        if (const auto master = masters.find(PhaseKey(draft.record)); master != masters.end())
            TakePitch(draft.record, *master->second);
    }
}

/// Root key, fine tune and the waveform's gain become part of the values.
void ApplyWave(SynthRegion& record, const Waveform& wave, float rootKey) noexcept
{
    record.params[kArtTuning] +=
        (kMiddleC - rootKey) * record.params[kArtKeyToPitch] + static_cast<float>(wave.fineTune) * 0.01f;
    record.params[kArtVolume] += wave.volume;
}

/// Any order of mono regions by all that the two sides of one sound have in common: when they start, what
/// they play of their samples, and all values but the pan.
struct SideOrder {
    static auto Common(const Draft& draft) noexcept
    {
        const SynthRegion& record = draft.record;
        const WaveSound& sound = record.wave;
        return std::tuple(record.fades.keys, record.fades.velocities, record.delaySeconds, record.trigger,
                          record.pedal, record.exclusiveClass, record.allowOverlap, draft.wave->frames,
                          draft.wave->rateHz, sound.loopType, sound.breakOnRelease, sound.loopStart,
                          sound.loopEnd, sound.loopTuning, sound.start, sound.end);
    }
    bool operator()(const Draft* a, const Draft* b) const noexcept
    {
        if (const auto order = Common(*a) <=> Common(*b); order != 0)
            return order < 0;
        const auto &one = a->record.params, &other = b->record.params;
        for (std::size_t id = 0; id < kArticulationParams; ++id)
            if (id != kArtPan && one[id] != other[id])
                return one[id] < other[id];
        return false;
    }
};

/// Two mono regions at both sides become one in the middle, with a stereo sample: each with the first one
/// behind it that is free.
void FusePairs(std::vector<Draft>& drafts)
{
    std::map<const Draft*, std::deque<Draft*>, SideOrder> waiting; // those of one key wait on one side
    for (Draft& draft : drafts) {
        if (draft.isGone || !draft.IsMonoWave() || (!draft.IsSide(-1) && !draft.IsSide(1)))
            continue;
        const bool isLeft = draft.IsSide(-1);
        std::deque<Draft*>& line = waiting[&draft];
        if (line.empty() || line.front()->IsSide(-1) == isLeft) {
            line.push_back(&draft);
            continue;
        }
        Draft& kept = *line.front();
        line.pop_front();
        kept.right = isLeft ? kept.wave : draft.wave;
        kept.wave = isLeft ? draft.wave : kept.wave;
        kept.record.params[kArtPan] = 0;
        draft.isGone = true;
    }
}

/// @return false if the samples cannot be had
bool TakeSample(Draft& draft, SampleStore& samples)
{
    WaveSound& sound = draft.record.wave;
    // Only a loop up to the sample's end is interpolated across the seam; others share their sample.
    const bool wraps = sound.loopType != LoopType::Off && std::ceil(sound.loopEnd) >= draft.wave->frames;
    sound.sample =
        samples.Get(*draft.wave, draft.right, wraps ? sound.loopType : LoopType::Off, sound.loopStart);
    return sound.sample != nullptr;
}

} // namespace

std::unique_ptr<SynthInstrument> CompileInstrument(const Instrument& instrument, SampleStore& samples)
{
    auto compiled = std::make_unique<SynthInstrument>();
    compiled->patch = instrument.location.word & (MidiLocation::kDrumBit * 2 - 1);
    compiled->name = CutName(instrument.GetName());
    compiled->effects = instrument.channelFx;

    std::vector<Draft> drafts = DraftRegions(instrument, samples);
    LinkPhases(drafts);
    for (Draft& draft : drafts)
        if (draft.wave)
            ApplyWave(draft.record, *draft.wave, draft.rootKey);
    FusePairs(drafts);
    for (Draft& draft : drafts)
        if (!draft.isGone && (!draft.wave || TakeSample(draft, samples)))
            compiled->regions.push_back(std::move(draft.record));
    return compiled;
}

} // namespace vimbo::synth
