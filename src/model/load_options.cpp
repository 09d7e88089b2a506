// What a user wants done with everything that is loaded.
#include "model/load_options.h"

#include "model/instrument.h"
#include "model/load_actions.h"
#include "model/loop_convert.h"
#include "model/stereo_pairs.h"

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

void ConvertAllLoops(Collection& collection)
{
    const LoadOptions& options = collection.loadOptions;
    if (!options.autoAppend32 && !options.autoBid2Fwd)
        return;
    LoopConversions conversions;
    conversions.alternatingToForward = options.autoBid2Fwd;
    conversions.reverseToForward = false;
    conversions.atLeast32 = false;
    conversions.append32 = options.autoAppend32;
    ConvertLoops(collection, conversions);
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
    ConvertAllLoops(collection);
    if (options.autoSortWaves)
        collection.SortKind(ItemKind::Waveform, SortMode::ByName);
    if (options.autoSortColl) {
        collection.Validate(); // locations may still clash, and change by that
        collection.SortKind(ItemKind::Instrument, SortMode::ByLocation);
    }
    MoveToPermittedLevels(collection); // layers that were joined may have gathered articulation
}

} // namespace vimbo
