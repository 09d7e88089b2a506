#include "synth/model_voice.h"

#include "model/envelope.h"

namespace vimbo::synth {
namespace {

constexpr float kRangeDb = 96, kSoftPedalDb = -9;

} // namespace

bool SetPatchGain(Voice& voice, const VoiceClock& clock, bool isShutDown, float& fadeDb) noexcept
{
    if (isShutDown) {
        const float rate = voice.region->params[EnvelopeBase(EnvelopeIndex::Volume) + kEnvShutdownRate];
        fadeDb -= kRangeDb / Limited(rate * clock.TicksPerSecond(), 1.0f, 1e6f);
    }
    voice.envelopeGain =
        fadeDb > -kRangeDb ? DecibelsToGain(fadeDb + (voice.softPedal ? kSoftPedalDb : 0)) : 0;
    return voice.envelopeGain > 0;
}

} // namespace vimbo::synth
