// Synthesis models as waveforms, for formats and programs that only know samples.
#pragma once

#include "model/collection.h"
#include "synth/synth_instrument.h"

namespace vimbo {
class SynthModel;
class Waveform;
} // namespace vimbo

namespace vimbo::synth {

/// How models are rendered; the names are those of the settings store ("sy2wt.").
struct WavetableSettings {
    unsigned rateHz = 48000;         ///< dwSampleRate
    unsigned maxMilliseconds = 2000; ///< dwmsMaxLength
    unsigned minMilliseconds = 250;  ///< dwmsMinLength; the greatest length wins where it is shorter
    unsigned waves = 1;              ///< iNumWaves; at most one per key
    /// The key goes up with the key's own event, before anything has sounded: only what a model does after
    /// the key's release is rendered. Otherwise it is held for as long as the model's envelopes move, and so
    /// that the release of a sound that stands ends with the waveform.
    bool releasesAtOnce = false;
};

/// How one note of a model is rendered.
struct NotePlan {
    double seconds = 0;      ///< of the waveform
    double keyUpSeconds = 0; ///< when the key is released
};
/// The model's own estimate, within the settings' lengths. A record without a model: the shortest.
NotePlan PlanNote(const SynthRegion& record, unsigned key, const WavetableSettings& settings) noexcept;

/// One note of a model at velocity 64, as a new mono waveform of the model's collection, which is named after
/// it; a model that plays nothing gives silence. Null with the Last error text if memory runs out.
Waveform* RenderModel(const SynthModel& model, unsigned key, const WavetableSettings& settings);

/// Puts waveforms in the place of all synthesis models below `root` (a collection, instrument, layer or
/// region; a model: its region's). Each has the key that was rendered as its root key, the middle of its
/// share: with several waves a region becomes as many, with equal shares of its keys. The status line says
/// "Converting" and the item's name. All or nothing: false with the Last error text if memory runs out or the
/// user stops it. Fits SaveServices::convertSynthModels.
[[nodiscard]] bool ConvertSynthModels(Item& root, const WavetableSettings& settings = {});

} // namespace vimbo::synth
