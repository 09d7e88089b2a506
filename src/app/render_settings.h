// The settings in the form that the synthesizer takes.
#pragma once

#include "app/settings.h"
#include "synth/model_to_wavetable.h"
#include "synth/song_renderer.h"

namespace vimbo::app {

/// "mid2wav.": how songs become waveforms. What no setting steers has the synthesizer's own default.
synth::RenderSettings SongRendering(const Settings& settings);
/// "sy2wt.": how synthesis models do.
synth::WavetableSettings ModelRendering(const Settings& settings);

} // namespace vimbo::app
