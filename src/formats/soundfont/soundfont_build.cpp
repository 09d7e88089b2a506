// Instruments, layers and regions as presets, their zones, and zones of samples.
#include "formats/soundfont/soundfont_build.h"

#include "formats/soundfont/soundfont_names.h"
#include "formats/soundfont/soundfont_units1.h"
#include "model/collection.h"

#include <algorithm>
#include <set>

namespace vimbo::sf2 {
namespace {

constexpr unsigned kDrumBank = 128;
constexpr std::int32_t kCoarseFrames = 32768;
constexpr std::uint16_t kMaxExclusiveClass = 32767; ///< readers take the amount for signed

bool HasSamples(const Instrument& instrument)
{
    for (const Layer* layer : instrument.Layers())
        for (const Region* region : layer->Regions())
            if (const Waveform* wave = region->Wave(); wave != nullptr && wave->frames != 0)
                return true;
    return false;
}

/// The bank, or the next free one.
std::uint16_t TakeBank(std::set<unsigned>& taken, MidiLocation location)
{
    if (location.IsDrum())
        return kDrumBank;
    constexpr unsigned kBanks = kDrumBank;
    for (unsigned i = 0; i < kBanks; ++i) {
        const unsigned bank = (location.BankMsb() + i) % kBanks;
        if (taken.insert(bank * kBanks + location.Program()).second)
            return static_cast<std::uint16_t>(bank);
    }
    return static_cast<std::uint16_t>(location.BankMsb());
}

void SetOffset(Zone& zone, std::size_t fine, std::size_t coarse, std::int64_t frames) noexcept
{
    zone.generators[fine] = static_cast<std::int32_t>(frames % kCoarseFrames);
    zone.generators[coarse] = static_cast<std::int32_t>(frames / kCoarseFrames);
}

void SetLoop(Zone& zone, const LoopInfo& loop, const OutSample& sample) noexcept
{
    zone.generators[kGenSampleModes] =
        loop.type == LoopType::Off ? (loop.oneShot ? 2 : 0) : (loop.breakOnRelease ? 3 : 1);
    if (sample.loopEnd <= sample.loopStart && IsDefaultLoop(loop, sample.wave->frames))
        return; // both are off
    SetOffset(zone, kGenLoopStartOffset, kGenLoopStartCoarse,
              static_cast<std::int64_t>(loop.start) - sample.loopStart);
    SetOffset(zone, kGenLoopEndOffset, kGenLoopEndCoarse,
              static_cast<std::int64_t>(loop.end) - sample.loopEnd);
}

/// What concerns the sample but for its pitch.
void SetSample(Zone& zone, const Region& region, const OutSample& sample) noexcept
{
    SetOffset(zone, kGenStartOffset, kGenStartCoarse, region.startOffset);
    SetOffset(zone, kGenEndOffset, kGenEndCoarse, region.endOffset);
    SetLoop(zone, WholeLoop(GetEffectiveLoop(region), sample.wave->frames), sample);
    if (region.trigger.exclusionGroup <= kMaxExclusiveClass)
        zone.generators[kGenExclusiveClass] = region.trigger.exclusionGroup;
}

/// The pan of one channel of a stereo sound: the middle between the two is the pan that the sound has.
float PanOf(unsigned channel, float pan) noexcept
{
    return channel == 0 ? -1 + 2 * std::max(pan, 0.0f) : 1 + 2 * std::min(pan, 0.0f);
}

/// In version 1 the zone says the sample's whole pitch; what is no whole key goes to the tuning.
/// @return the semitones that went there
double SetPitch1(Zone& zone, const Region& region, const OutSample& sample, ArticulationBlock& block)
{
    const int rootKey = region.EffectiveRootKey();
    const Waveform& wave = *sample.wave;
    const PitchOfVersion1 pitch =
        PitchForVersion1(wave.rateHz, wave.fineTune, rootKey, block[kArtKeyToPitch]);
    zone.generators[kGenSamplePitch] = pitch.rootKey * 100;
    if (pitch.semitones != 0)
        block.Set(kArtTuning, block[kArtTuning] + static_cast<float>(pitch.semitones));
    return pitch.semitones;
}

/// Makes the zones of one instrument.
class Zones {
public:
    Zones(const Instrument& instrument, const SampleList& samples, unsigned major, ZoneCache& cache) noexcept
        : instrument_(instrument), samples_(samples), major_(major), cache_(cache)
    {
    }

    OutZone Of(const Region& region, std::size_t place)
    {
        const OutSample& sample = samples_.samples[place];
        Zone values = DefaultZone();
        double pitchMoved = 0;
        ArticulationBlock block = region.articulation;
        if (sample.channel != OutSample::kWhole)
            block.Set(kArtPan, PanOf(sample.channel, block[kArtPan]));
        if (major_ == kVersion1) {
            pitchMoved = SetPitch1(values, region, sample, block);
            ArticulationToVersion1(block, instrument_, sample.wave->volume, values);
        } else {
            values = ZoneOf(cache_.TimbreOf(block), block, instrument_, sample.wave->volume);
            if (const int rootKey = region.EffectiveRootKey(); rootKey != sample.rootKey)
                values.generators[kGenRootKey] = rootKey;
        }
        SetSample(values, region, sample);
        const ZoneMarks unusual(values, DefaultZone());
        return {&region, region.trigger.keys, region.trigger.velocities, place, &cache_.Keep(values),
                unusual, pitchMoved};
    }

private:
    const Instrument& instrument_;
    const SampleList& samples_;
    unsigned major_;
    ZoneCache& cache_;
};

/// The range of the layer, unless it would cut something off, or the zones all say the same.
MidiRange RangeFor(const std::vector<OutZone>& zones, MidiRange layer, MidiRange OutZone::*range)
{
    const auto all = [&](auto test) {
        return std::ranges::all_of(zones, [&](const OutZone& zone) { return test(zone.*range); });
    };
    const bool saysLow = layer.low == 0 || all([&](MidiRange own) { return own.low == layer.low; });
    const bool saysHigh = layer.high == 127 || all([&](MidiRange own) { return own.high == layer.high; });
    const bool isNeeded = !saysLow || !saysHigh;
    return isNeeded && all([&](MidiRange own) { return layer.Contains(own); }) ? layer : MidiRange();
}

/// Without the ranges that its shown name ends with.
std::string NameOfLayer(const Layer& layer, std::size_t number)
{
    const std::u16string_view name = layer.GetName();
    std::string base = CutName(NarrowNameOf(name.substr(0, name.find(u':'))));
    return !base.empty() ? base : "Layer " + std::to_string(number);
}

/// True for the name that layers have until they are given one.
bool IsNumbered(std::string_view name) noexcept
{
    constexpr std::string_view kStem = "Layer ";
    return name.starts_with(kStem) &&
           name.find_first_not_of("0123456789", kStem.size()) == std::string_view::npos;
}

/// The range from the lowest to the highest edge.
MidiRange Span(const std::vector<OutZone>& zones, MidiRange OutZone::*range) noexcept
{
    MidiRange span = zones.front().*range;
    for (const OutZone& zone : zones) {
        span.low = std::min(span.low, (zone.*range).low);
        span.high = std::max(span.high, (zone.*range).high);
    }
    return span;
}

void AddLayer(std::vector<OutLayer>& layers, const Layer& layer, std::vector<OutZone> zones,
              const SampleList& samples)
{
    if (zones.empty())
        return;
    OutLayer& out = layers.emplace_back();
    out.layer = &layer;
    out.name = NameOfLayer(layer, layers.size());
    out.isNamed = !IsNumbered(out.name);
    out.keys = RangeFor(zones, layer.trigger.keys, &OutZone::keys);
    out.velocities = RangeFor(zones, layer.trigger.velocities, &OutZone::velocities);
    out.isRight = std::ranges::all_of(
        zones, [&](const OutZone& zone) { return samples.samples[zone.sample].type == kSampleRight; });
    out.mayDivide = layer.trigger.keys == Span(zones, &OutZone::keys) &&
                    layer.trigger.velocities == Span(zones, &OutZone::velocities);
    out.zones = std::move(zones);
    out.shape = ShapeOf(out);
}

} // namespace

std::vector<OutPreset> ListPresets(const ExportSet& set)
{
    std::vector<OutPreset> presets;
    std::set<unsigned> taken;
    for (const Instrument* instrument : set.Instruments())
        if (HasSamples(*instrument)) {
            const MidiLocation location = instrument->location;
            presets.push_back(
                {instrument, {}, TakeBank(taken, location), static_cast<std::uint16_t>(location.Program())});
        }
    std::ranges::stable_sort(presets, {},
                             [](const OutPreset& preset) { return std::pair(preset.bank, preset.program); });
    FieldNames names;
    for (OutPreset& preset : presets)
        preset.name = names.Take(NarrowNameOf(preset.instrument->GetName()));
    return presets;
}

std::vector<OutLayer> LayersOf(const Instrument& instrument, const SampleList& samples, unsigned major,
                               ZoneCache& cache)
{
    std::vector<OutLayer> layers;
    Zones make(instrument, samples, major, cache);
    for (const Layer* layer : instrument.Layers()) {
        std::vector<OutZone> zones, rights;
        for (const Region* region : layer->Regions()) {
            const auto found = samples.places.find(region->Wave());
            if (found == samples.places.end())
                continue;
            zones.push_back(make.Of(*region, found->second));
            if (samples.samples[found->second].channel == 0)
                rights.push_back(make.Of(*region, found->second + 1));
        }
        AddLayer(layers, *layer, std::move(zones), samples);
        AddLayer(layers, *layer, std::move(rights), samples);
    }
    return layers;
}

} // namespace vimbo::sf2
