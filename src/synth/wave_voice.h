// Voices that play samples: four envelopes, four LFOs, filter and equalizer.
#pragma once

#include "synth/stereo_block.h"
#include "synth/voice_envelope.h"
#include "synth/voice_lfo.h"
#include "synth/wave_player.h"

#include <array>
#include <limits>

namespace vimbo::synth {

struct Voice;
struct VoiceClock;

/// State of a voice of VoiceModel::Wave.
struct WaveVoice {
    // Bits of `running`; LFO n is 1 << n.
    static constexpr std::uint8_t kPitchEnvelope = 16, kFilterEnvelope = 32, kExtraEnvelope = 64;
    static constexpr float kNever = std::numeric_limits<float>::quiet_NaN();

    std::array<VoiceEnvelope, kEnvelopes> envelopes; ///< the volume envelope always runs
    std::array<VoiceLfo, kLfos> lfos;
    WavePlayer player;
    std::uint8_t running = 0;

    // Fixed at note-on, worked out again when the region is edited.
    float velocity = 0;  ///< bipolar
    float octaves = 0;   ///< above middle C
    float semitones = 0; ///< from the root key
    float levelDb = 0;
    float pan = 0;
    float randomPitch = 0, randomPan = 0; ///< -1 to 1

    // What the voice's gain, rate and filter were last worked out for.
    float lastDb = kNever, lastSemitones = kNever, lastCutoff = kNever, lastResonance = kNever;
    double rate = 0; ///< frames per output frame
};

/// See InitVoice and its siblings.
void InitWave(Voice& voice, WaveVoice& wave, const VoiceClock& clock, bool isNoteOn) noexcept;
void ReleaseWave(Voice& voice, WaveVoice& wave, const VoiceClock& clock) noexcept;
void ShutDownWave(Voice& voice, WaveVoice& wave, const VoiceClock& clock) noexcept;
void RunWave(Voice& voice, WaveVoice& wave, const VoiceClock& clock, StereoBlock& out) noexcept;

} // namespace vimbo::synth
