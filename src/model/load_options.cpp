// What a user wants done with everything that is loaded.
#include "model/load_options.h"

#include "model/instrument_threads.h"
#include "model/levels.h"
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

/// Moves triggers up, and makes fewer regions and layers.
void SimplifyInstruments(Collection& collection, bool mergeStereo)
{
    const LoadOptions& options = collection.loadOptions;
    const KeepArticulation keep =
        collection.features.Has(Feature::ArticulationOnRegion) ? KeepArticulation::No : KeepArticulation::Yes;
    if (options.autoMoveTriggerParams && HasStrays(collection))
        for (Layer& layer : collection.All<Layer>())
            layer.MoveTriggerUp();
    else if (options.autoMoveTriggerParams)
        ForEachInstrument(collection, [](Instrument& instrument) {
            ForEachLayer(instrument, [](Layer& layer) { layer.MoveTriggerUp(); });
        });
    if (options.autoSplitStereo)
        SplitStereoToLayers(collection);
    StereoPairMerger merger(collection);
    if (!mergeStereo)
        merger.KeepApart();
    else
        for (const Instrument& instrument : collection.All<Instrument>())
            merger.Merge(instrument);
    if (options.autoCompactLayers)
        ForEachInstrument(collection, [keep](Instrument& instrument) {
            instrument.CompactLayers(MoveParamsUp::Yes, keep);
        });
    if (mergeStereo)
        merger.Finish(DeleteUnused::Yes);
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
    SimplifyInstruments(collection, options.autoMergeStereo && !options.autoSplitStereo &&
                                        stereo == SourceHoldsStereo::No);
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
