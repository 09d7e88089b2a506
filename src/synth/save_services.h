// What saving needs of the synthesizer.
#pragma once

#include "formats/save.h"
#include "synth/model_to_wavetable.h"
#include "synth/song_renderer.h"

#include <memory>

namespace vimbo::synth {

/// Services that render songs with the one kind of settings, synthesis models with the other. Several threads
/// may use them for collections of their own. Rendered frames lie in temporary files, which last as long as
/// any copy of the services. The instruments are those of the song's collection, of `banks` (which must
/// outlive the services), and of the default bank.
SaveServices MakeSaveServices(const RenderSettings& settings, const WavetableSettings& modelSettings = {},
                              std::span<Collection* const> banks = {});

} // namespace vimbo::synth
