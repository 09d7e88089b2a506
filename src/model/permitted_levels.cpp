// Articulation at the levels that the feature mask permits.
#include "model/instrument.h"
#include "model/load_actions.h"

namespace vimbo {

namespace {

constexpr bool StaysAtRegions(ParamId id) noexcept
{
    return id == kArtTuning || id == kArtVolume;
}

bool HasMarksBesidesTuningAndVolume(ArticulationBlock block) noexcept
{
    block.Unmark(kArtTuning);
    block.Unmark(kArtVolume);
    return block.HasAnySet();
}

bool HasRegionMarks(const Layer& layer)
{
    for (const Region* region : layer.Regions())
        if (HasMarksBesidesTuningAndVolume(region->articulation))
            return true;
    return false;
}

/// Gives `block` the values of `wanted`, marked where they differ from `above`; tuning and volume keep
/// theirs. Averages may hold what no block of them does, such as two LFOs at once.
void Replace(ArticulationBlock& block, const ArticulationBlock& wanted, const ArticulationBlock& above,
             FeatureMask features)
{
    ArticulationBlock fresh = wanted;
    for (const ParamId id : {kArtTuning, kArtVolume})
        fresh.Assign(id, block[id]);
    fresh.MarkDifferences(above);
    fresh.Normalize(features);
    block = fresh;
}

/// Regions follow the layer in everything but tuning and volume.
void ResetRegions(Layer& layer)
{
    for (Region* region : layer.Regions())
        for (ParamId id = 0; id < kArticulationParams; ++id)
            if (!StaysAtRegions(id) || !region->articulation.IsSet(id))
                region->articulation.Inherit(id, layer.articulation[id]);
}

const ArticulationBlock& Above(const Layer& layer) noexcept
{
    const Instrument* instrument = layer.ParentInstrument();
    return instrument != nullptr ? instrument->articulation : DefaultArticulation();
}

/// No articulation at regions: one block for each layer.
void GatherAtLayer(Layer& layer)
{
    if (layer.MoveArticulationUp(MoveUpMode::AllOrNothing, 0, kArticulationParams,
                                 KeepVolumeAndTuning::Yes) &&
        !HasRegionMarks(layer))
        return;
    Replace(layer.articulation, layer.GetEffective(), Above(layer), layer.Owner().features);
    ResetRegions(layer);
}

bool HasMarksBelow(const Instrument& instrument)
{
    for (const Layer* layer : instrument.Layers())
        if (HasMarksBesidesTuningAndVolume(layer->articulation) || HasRegionMarks(*layer))
            return true;
    return false;
}

/// A layer's own tuning and volume go to its regions, so that the layer can give up its block.
void KeepTuningAndVolumeAtRegions(Layer& layer)
{
    for (Region* region : layer.Regions())
        for (const ParamId id : {kArtTuning, kArtVolume})
            if (layer.articulation.IsSet(id))
                region->articulation.Mark(id);
}

/// Neither at layers nor at regions: one block for the instrument.
void GatherAtInstrument(Instrument& instrument)
{
    instrument.MoveArticulationUp(MoveUpMode::AllOrNothing, 0, kArticulationParams, KeepVolumeAndTuning::Yes);
    const bool average = HasMarksBelow(instrument);
    if (average)
        Replace(instrument.articulation, instrument.GetEffective(), DefaultArticulation(),
                instrument.Owner().features);
    for (Layer* layer : instrument.Layers()) {
        KeepTuningAndVolumeAtRegions(*layer);
        layer->articulation = instrument.articulation;
        layer->articulation.UnmarkAll();
        ResetRegions(*layer);
    }
}

} // namespace

void MoveToPermittedLevels(Collection& collection)
{
    const FeatureMask features = collection.features;
    const bool onInstrument = features.Has(Feature::ArticulationOnInstrument);
    const bool onLayer = features.Has(Feature::ArticulationOnLayer);
    const bool onRegion = features.Has(Feature::ArticulationOnRegion);
    if (onInstrument && onLayer && onRegion)
        return;
    if (!onInstrument)
        for (Instrument& instrument : collection.All<Instrument>())
            instrument.PushArticulationDown();
    if (!onRegion)
        for (Layer& layer : collection.All<Layer>())
            GatherAtLayer(layer);
    if (!onLayer && onInstrument && !onRegion)
        for (Instrument& instrument : collection.All<Instrument>())
            GatherAtInstrument(instrument);
    else if (!onLayer) // regions may hold it, so nothing has to be averaged
        for (Layer& layer : collection.All<Layer>())
            layer.PushArticulationDown();
    UnmarkRedundantArticulation(collection);
}

} // namespace vimbo
