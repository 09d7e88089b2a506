#include "synth/model_to_wavetable.h"

#include "base/last_error.h"
#include "model/synth_model.h"
#include "model/unique_names.h"
#include "model/waveform.h"
#include "synth/compile_model.h"
#include "synth/engine.h"
#include "synth/fm_voice.h"
#include "synth/la_voice.h"

#include <algorithm>
#include <array>

namespace vimbo::synth {
namespace {

constexpr unsigned kVelocity = 64, kChannelVolume = 7, kKeys = 128;
constexpr unsigned kLongestMilliseconds = 600'000;
constexpr float kBothSidesToMono = 0.70710678f; // of a sound that pan has put in the middle

/// A region that plays all keys and nothing but the model.
SynthRegion PlainRegion()
{
    SynthRegion region;
    region.keys = region.velocities = {0, 127};
    std::ranges::copy(DefaultArticulation().Values(), region.params.begin());
    return region;
}

EnvelopeLength LengthOfNote(const SynthRegion& record, unsigned key) noexcept
{
    const auto at = static_cast<float>(key);
    if (record.model == VoiceModel::Fm && record.fm)
        return NoteLengthOf(*record.fm, at);
    if (record.model == VoiceModel::La && record.la)
        return NoteLengthOf(*record.la, at, static_cast<float>(kVelocity) / 127);
    return {};
}

/// Renders the record's note to the end of `out`.
void RenderNoteInto(std::span<float> out, SynthRegion record, unsigned key, double keyUpSeconds,
                    unsigned rateHz)
{
    SynthEngine engine({.channels = 1, .polyphony = 1, .gain = 1, .rateHz = rateHz, .threads = 1});
    engine.effectsOn = false;
    engine.clampOutput = false;
    auto instrument = std::make_unique<SynthInstrument>();
    instrument->regions.push_back(std::move(record));
    engine.PutInstrument(std::move(instrument));
    engine.PostEvent(SynthEvent::Make(0xC0, 0), 0);
    engine.PostEvent(SynthEvent::Make(0xB0, kChannelVolume, 127), 0);
    engine.PostEvent(SynthEvent::Make(0x90, key, kVelocity), 0);
    engine.PostEvent(SynthEvent::Make(0x80, key, 0), keyUpSeconds);
    alignas(32) std::array<float, 2 * kBlockFrames> block{};
    for (std::size_t at = 0; at < out.size(); at += kBlockFrames) {
        engine.Render(block);
        const std::size_t count = std::min(kBlockFrames, out.size() - at);
        for (std::size_t i = 0; i < count; ++i)
            out[at + i] = (block[2 * i] + block[2 * i + 1]) * kBothSidesToMono;
    }
}

bool IsBelow(const Item& item, const Item& root) noexcept
{
    if (root.Kind() == ItemKind::Collection)
        return true;
    for (const Item* at = &item; at != nullptr; at = at->ParentItem())
        if (at == &root)
            return true;
    return false;
}

/// The region of a model to be converted, and what comes in its place.
struct Job {
    Region* region;
    std::vector<Waveform*> waves;
};

std::vector<Job> JobsBelow(Item& root)
{
    std::vector<Job> jobs;
    const Item* const top = root.Kind() == ItemKind::SynthModel ? root.ParentItem() : &root;
    for (Region* region : root.Owner().List<Region>())
        if (region->Synth() && top && IsBelow(*region, *top))
            jobs.push_back({region, {}});
    return jobs;
}

/// Share `index` of `count` equal ones.
MidiRange ShareOf(MidiRange keys, unsigned index, unsigned count) noexcept
{
    const unsigned width = keys.high - keys.low + 1u;
    return {static_cast<std::uint8_t>(keys.low + width * index / count),
            static_cast<std::uint8_t>(keys.low + width * (index + 1) / count - 1)};
}

MidiRange KeysOf(const Region& region) noexcept
{
    const MidiRange keys = region.trigger.keys;
    const auto low = std::min<std::uint8_t>(keys.low, kKeys - 1);
    return {low, std::clamp<std::uint8_t>(keys.high, low, kKeys - 1)};
}

/// A waveform of the model's name, which others may have.
Waveform* RenderNamedAlike(const SynthModel& model, unsigned key, const WavetableSettings& settings)
{
    Collection& owner = model.Owner();
    SampleStore samples;
    SynthRegion record = PlainRegion();
    const bool sounds = TakeSynthModel(record, model, samples);
    const NotePlan plan = PlanNote(record, key, settings);
    auto& wave = owner.Create<Waveform>(model.GetName());
    wave.rateHz = std::clamp(settings.rateHz, 1000u, kMaxRateHz);
    wave.rootKey = static_cast<std::uint8_t>(std::min(key, kKeys - 1));
    wave.frames = static_cast<std::uint32_t>(wave.rateHz * plan.seconds + 0.5);
    const std::span<float> out = wave.AllocateSamples();
    if (out.empty() && wave.frames != 0) {
        owner.Destroy(wave.Handle());
        return nullptr;
    }
    std::ranges::fill(out, 0.0f);
    if (sounds)
        RenderNoteInto(out, std::move(record), wave.rootKey, plan.keyUpSeconds, wave.rateHz);
    wave.saveFormat = SaveFormat::Float32;
    wave.Validate();
    return &wave;
}

bool RenderWaves(Job& job, const WavetableSettings& settings, UniqueNames& names)
{
    const MidiRange keys = KeysOf(*job.region);
    const unsigned count = std::clamp(settings.waves, 1u, keys.high - keys.low + 1u);
    for (unsigned i = 0; i < count; ++i) {
        const MidiRange share = ShareOf(keys, i, count);
        Waveform* const wave =
            RenderNamedAlike(*job.region->Synth(), (share.low + share.high) / 2u, settings);
        if (!wave)
            return false;
        names.Add(*wave);
        job.waves.push_back(wave);
    }
    return true;
}

void SetKeys(Region& region, MidiRange keys)
{
    const Layer* const layer = region.ParentLayer();
    if (region.trigger.keys == keys)
        return;
    region.trigger.keys = keys;
    if (layer)
        region.trigger.MarkDifferences(layer->trigger);
}

/// The region plays the waveform, all of it, with the waveform's own settings.
void SetWave(Region& region, const Waveform& wave)
{
    region.SetSound(wave.Handle());
    region.overrideFlags = 0;
    region.startOffset = region.endOffset = 0;
    region.rootKey = wave.rootKey;
    region.loop = wave.loop;
}

/// Further shares become regions behind the first.
void ReplaceModel(const Job& job)
{
    Region& first = *job.region;
    const MidiRange keys = KeysOf(first);
    const auto count = static_cast<unsigned>(job.waves.size());
    SetWave(first, *job.waves.front());
    for (unsigned i = 1; i < count; ++i) {
        Region& next = first.Owner().Clone(first);
        if (Layer* layer = first.ParentLayer()) {
            next.SetParent(layer->Handle());
            layer->AddChild(next.Handle());
        }
        SetWave(next, *job.waves[i]);
        SetKeys(next, ShareOf(keys, i, count));
        // Shares meet at plain edges: only the outer ones keep their fades.
        next.trigger.keyFadeIn = 0;
        if (i + 1 < count)
            next.trigger.keyFadeOut = 0;
        next.RebuildName();
    }
    if (count > 1) {
        SetKeys(first, ShareOf(keys, 0, count));
        first.trigger.keyFadeOut = 0;
    }
    first.RebuildName();
}

} // namespace

NotePlan PlanNote(const SynthRegion& record, unsigned key, const WavetableSettings& settings) noexcept
{
    const double most = std::min(settings.maxMilliseconds, kLongestMilliseconds) * 0.001;
    const double least = std::min(settings.minMilliseconds * 0.001, most);
    const EnvelopeLength length = LengthOfNote(record, key);
    NotePlan plan;
    plan.seconds =
        length.sustains ? most : std::clamp(length.heldSeconds + length.releaseSeconds, least, most);
    if (settings.releasesAtOnce)
        return plan;
    plan.keyUpSeconds = length.sustains ? std::max(plan.seconds / 2, plan.seconds - length.releaseSeconds)
                                        : std::min(length.heldSeconds, plan.seconds);
    return plan;
}

Waveform* RenderModel(const SynthModel& model, unsigned key, const WavetableSettings& settings)
{
    Waveform* const wave = RenderNamedAlike(model, key, settings);
    if (wave)
        wave->EnsureUniqueName();
    return wave;
}

bool ConvertSynthModels(Item& root, const WavetableSettings& settings)
{
    Collection& owner = root.Owner();
    Host& host = owner.GetHost();
    std::vector<Job> jobs = JobsBelow(root);
    UniqueNames names(owner, ItemKind::Waveform);
    bool isComplete = true;
    for (Job& job : jobs) {
        host.SetStatus(u"Converting " + std::u16string(job.region->Synth()->GetName()));
        if (host.IsCancelled())
            isComplete = Fail(u"The conversion of synthesis models was stopped");
        isComplete = isComplete && RenderWaves(job, settings, names);
        if (!isComplete)
            break;
    }
    host.SetStatus({});
    for (const Job& job : jobs) {
        if (isComplete)
            ReplaceModel(job);
        else
            for (const Waveform* wave : job.waves)
                owner.Destroy(wave->Handle());
    }
    return isComplete;
}

} // namespace vimbo::synth
