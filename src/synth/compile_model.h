// From the synthesis models of a collection to what FM and LA voices play.
#pragma once

#include "synth/synth_instrument.h"

namespace vimbo {
class SynthModel;
}

namespace vimbo::synth {

/// Makes `record` one of VoiceModel::Fm or La that plays the model. Samples of LA patches are read from their
/// files; one that cannot be had leaves its partial silent.
/// @return false, and no change, for a model that plays nothing
bool TakeSynthModel(SynthRegion& record, const SynthModel& model, SampleStore& samples);

} // namespace vimbo::synth
