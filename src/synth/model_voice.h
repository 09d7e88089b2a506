// What voices of FM and LA patches have in common.
#pragma once

#include "synth/voice.h"

namespace vimbo::synth {

inline constexpr float kLowestKeyHz = 8.175798f; ///< MIDI key 0

/// The channel's bend range, or the patch's own where no RPN has set it; 0 stays 0.
inline float PatchBendRange(const Voice& voice, float own) noexcept
{
    return voice.bendRange != kUnsetBendRange && own != 0 ? voice.bendRange : own;
}

/// A velocity-free depth with its parts by modulation wheel and aftertouch.
inline float ModulatedDepth(const Voice& voice, float fixed, float wheel, float touch) noexcept
{
    return fixed + voice.modWheel * wheel + voice.aftertouch * touch;
}

/// Nobody lets a release trigger's key go: its envelopes run through.
inline bool WaitsForKey(const Voice& voice) noexcept
{
    return voice.region->trigger != static_cast<std::uint8_t>(TriggerKind::KeyRelease);
}

/// The gain of the whole voice: soft pedal, and the fade of a voice that is shut down (one tick of it, from
/// full level to silence in the region's shutdown time). @return false when that has reached silence
bool SetPatchGain(Voice& voice, const VoiceClock& clock, bool isShutDown, float& fadeDb) noexcept;

} // namespace vimbo::synth
