// What a user wants done with everything that is loaded.
#include "model/load_options.h"

#include "base/last_error.h"
#include "model/instrument.h"
#include "model/load_actions.h"
#include "model/loop_convert.h"
#include "model/stereo_pairs.h"

#include <unordered_set>

namespace vimbo {

namespace {

void MoveCommonValuesUp(Collection& collection)
{
    if (collection.features.Has(Feature::ArticulationOnLayer))
        for (Layer& layer : collection.All<Layer>())
            layer.MoveArticulationUp(MoveUpMode::Individually);
    if (collection.features.Has(Feature::ArticulationOnInstrument))
        for (Instrument& instrument : collection.All<Instrument>())
            instrument.MoveArticulationUp(MoveUpMode::Individually);
}

/// Waveforms with regions that loop them in their own way, or that end before their end: their frames must
/// stay where they are.
std::unordered_set<const Waveform*> WavesWithOwnLoops(const Collection& collection)
{
    constexpr unsigned kPoints = Region::kLoopType | Region::kLoopStart | Region::kLoopEnd;
    std::unordered_set<const Waveform*> waves;
    for (const Region& region : collection.All<Region>())
        if ((region.overrideFlags & kPoints) != 0 || region.endOffset != 0)
            if (const Waveform* wave = region.Wave())
                waves.insert(wave);
    return waves;
}

void ConvertLoops(Collection& collection)
{
    const LoadOptions& options = collection.loadOptions;
    if (!options.autoAppend32 && !options.autoBid2Fwd)
        return;
    const std::unordered_set<const Waveform*> fixed = WavesWithOwnLoops(collection);
    LoopConversions conversions;
    conversions.reverseToForward = false;
    conversions.atLeast32 = false;
    conversions.append32 = options.autoAppend32;
    bool anyChanged = false;
    for (Waveform& wave : collection.All<Waveform>()) {
        conversions.alternatingToForward = options.autoBid2Fwd && !fixed.contains(&wave);
        bool changed = false;
        if (!ConvertLoop(wave, conversions, changed))
            collection.GetHost().ShowMessage(LastError(), wave.GetName(), MessageIcon::Warning);
        anyChanged = anyChanged || changed;
    }
    if (anyChanged) // regions copy the loops of their waveforms
        for (Region& region : collection.All<Region>())
            region.Validate();
}

void CompactInstruments(Collection& collection)
{
    const KeepArticulation keep =
        collection.features.Has(Feature::ArticulationOnRegion) ? KeepArticulation::No : KeepArticulation::Yes;
    for (Instrument& instrument : collection.All<Instrument>())
        instrument.CompactLayers(MoveParamsUp::Yes, keep);
}

} // namespace

void CarryOutLoadOptions(Collection& collection, SourceHoldsStereo stereo)
{
    const LoadOptions& options = collection.loadOptions;
    if (options.ensureUniqueNames) {
        collection.MakeNamesUnique(ItemKind::Instrument);
        collection.MakeNamesUnique(ItemKind::Waveform);
    }
    if (options.autoMoveArticulation)
        MoveCommonValuesUp(collection);
    if (options.autoMoveTriggerParams)
        for (Layer& layer : collection.All<Layer>())
            layer.MoveTriggerUp();
    if (options.autoSplitStereo)
        SplitStereoToLayers(collection);
    else if (options.autoMergeStereo && stereo == SourceHoldsStereo::No)
        MergeStereoPairs(collection, DeleteUnused::Yes);
    if (options.autoCompactLayers)
        CompactInstruments(collection);
    ConvertLoops(collection);
    if (options.autoSortWaves)
        collection.SortKind(ItemKind::Waveform, SortMode::ByName);
    if (options.autoSortColl) {
        collection.Validate(); // locations may still clash, and change by that
        collection.SortKind(ItemKind::Instrument, SortMode::ByLocation);
    }
    MoveToPermittedLevels(collection); // layers that were joined may have gathered articulation
}

} // namespace vimbo
