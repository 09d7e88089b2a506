// Stereo waveforms to pairs of mono ones in dual layers.
#include "base/last_error.h"
#include "model/instrument.h"
#include "model/instrument_threads.h"
#include "model/sample_source.h"
#include "model/stereo_pairs.h"

#include <algorithm>
#include <unordered_map>

namespace vimbo {
namespace {

/// What the regions of a stereo waveform play afterwards.
struct Halves {
    Waveform* left;
    Waveform* right;
};
using HalvesOf = std::unordered_map<const Waveform*, Halves>;

/// The image's two edges. The middle between them is the pan that the stereo sound had; one that was panned
/// becomes narrower, as nothing can lie beyond the sides.
float LeftPan(float pan) noexcept
{
    return -1 + 2 * std::max(pan, 0.0f);
}

float RightPan(float pan) noexcept
{
    return 1 + 2 * std::min(pan, 0.0f);
}

const Halves* Find(const HalvesOf& halves, const Region& region)
{
    const auto found = halves.find(region.Wave());
    return found != halves.end() ? &found->second : nullptr;
}

/// Layers with regions whose waveform was split, and the new ones behind them.
struct Sides {
    Layer* left;
    Layer* right;
};

void AddPartner(Layer& layer, const Region& region)
{
    Region& partner = layer.Owner().Clone(region);
    layer.AddChild(partner.Handle());
    partner.SetParent(layer.Handle());
    partner.phaseMaster = 0;
}

/// Regions whose waveform was split get partners in a new layer behind theirs. All of them play what they
/// played before.
std::vector<Sides> AddPartners(Instrument& instrument, const HalvesOf& halves)
{
    std::vector<Sides> added;
    std::vector<ItemHandle> order;
    for (Layer* layer : instrument.Layers()) {
        order.push_back(layer->Handle());
        Layer* behind = nullptr;
        for (const Region* region : layer->Regions()) {
            if (Find(halves, *region) == nullptr)
                continue;
            if (behind == nullptr) {
                behind = &instrument.AddLayer(layer->GetName());
                order.push_back(behind->Handle());
                behind->trigger = layer->trigger;
                behind->articulation = layer->articulation;
                behind->drum = layer->drum;
                added.push_back({layer, behind});
            }
            AddPartner(*behind, *region);
        }
    }
    instrument.ClearChildren();
    for (const ItemHandle layer : order)
        instrument.AddChild(layer); // there is memory for as many
    return added;
}

void PlayHalf(Layer& layer, const HalvesOf& halves, Waveform* Halves::*half, float (*panOf)(float))
{
    for (Region* region : layer.Regions()) {
        const Halves* const sides = Find(halves, *region);
        if (sides == nullptr)
            continue;
        region->SetSound((sides->*half)->Handle());
        region->articulation.Set(kArtPan, panOf(region->articulation[kArtPan]));
        region->RebuildName();
    }
    layer.RebuildName();
}

/// Changes nothing outside the layers, so that several threads may do it for an instrument each.
void PlayHalves(const std::vector<Sides>& added, const HalvesOf& halves)
{
    for (const auto& [left, right] : added) {
        PlayHalf(*left, halves, &Halves::left, LeftPan);
        PlayHalf(*right, halves, &Halves::right, RightPan);
    }
}

bool SplitWave(Waveform& wave, HalvesOf& halves)
{
    if (Waveform* right = SplitStereo(wave)) {
        halves.emplace(&wave, Halves{&wave, right});
        return true;
    }
    wave.Owner().GetHost().ShowMessage(LastError(), u"Error!", MessageIcon::Error);
    return false;
}

/// Stereo waveforms of one instrument, in the order of their first use, and how many regions of it play each.
std::vector<Waveform*> StereoWavesOf(const Instrument& instrument,
                                     std::unordered_map<const Waveform*, std::size_t>& uses)
{
    std::vector<Waveform*> waves;
    for (const Layer* layer : instrument.Layers())
        for (const Region* region : layer->Regions())
            if (Waveform* wave = region->Wave(); wave != nullptr && wave->channels == 2)
                if (++uses[wave] == 1)
                    waves.push_back(wave);
    return waves;
}

} // namespace

std::size_t SplitStereoToLayers(Collection& collection)
{
    HalvesOf halves;
    for (Waveform* wave : collection.List<Waveform>())
        if (wave->channels == 2 && wave->frames != 0)
            SplitWave(*wave, halves);
    if (halves.empty())
        return 0;
    std::unordered_map<const Instrument*, std::vector<Sides>> added;
    for (Instrument& instrument : collection.All<Instrument>())
        added.emplace(&instrument, AddPartners(instrument, halves));
    ForEachInstrument(collection, [&](Instrument& instrument) { PlayHalves(added.at(&instrument), halves); });
    return halves.size();
}

std::size_t SplitStereoToLayers(Instrument& instrument)
{
    Collection& items = instrument.Owner();
    std::unordered_map<const Waveform*, std::size_t> ownUses, allUses;
    const std::vector<Waveform*> waves = StereoWavesOf(instrument, ownUses);
    for (const Region& region : items.All<Region>())
        if (const Waveform* wave = region.Wave(); wave != nullptr && ownUses.contains(wave))
            ++allUses[wave];

    HalvesOf halves;
    for (Waveform* wave : waves) {
        if (allUses[wave] == ownUses[wave]) {
            SplitWave(*wave, halves);
            continue;
        }
        // Other instruments go on playing the stereo waveform.
        Waveform& copy = items.Clone(*wave);
        HalvesOf ofCopy;
        if (SplitWave(copy, ofCopy))
            halves.emplace(wave, ofCopy.at(&copy));
        else
            items.Destroy(copy.Handle());
    }
    if (!halves.empty())
        PlayHalves(AddPartners(instrument, halves), halves);
    return halves.size();
}

} // namespace vimbo
