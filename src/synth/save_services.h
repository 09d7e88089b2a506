// What saving needs of the synthesizer.
#pragma once

#include "formats/save.h"
#include "synth/song_renderer.h"

#include <memory>

namespace vimbo::synth {

/// Services that render songs with these settings, and synthesis models with their own. Several threads may
/// use them for collections of their own. Rendered frames lie in temporary files, which last as long
/// as any copy of the services. The instruments are those of the song's collection, of `banks` (which must
/// outlive the services), and of the default bank.
SaveServices MakeSaveServices(const RenderSettings& settings, std::span<Collection* const> banks = {});

} // namespace vimbo::synth
