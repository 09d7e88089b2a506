// Voices of LA patches: two partials with pitch, filter and level envelopes, mixed or multiplied.
#pragma once

#include "dsp/kernels/voice_filter.h"
#include "synth/fm_shapes.h"
#include "synth/la_patch.h"
#include "synth/stereo_block.h"
#include "synth/voice_lfo.h"
#include "synth/wave_player.h"

#include <limits>

namespace vimbo::synth {

struct Voice;
struct VoiceClock;

/// State of one partial.
struct LaPartialState {
    PointEnvelope level, filter;
    BandLimitedWave wave;
    WavePlayer player;
    std::uint32_t phase = 0; ///< cycles / 2^32
    float gain = 0;          ///< at the end of the last block
    VoiceFilterCoefs filterCoefs;
    VoiceFilterState filterState;
    bool isStarted = false;
    bool isFinished = false;

    // Fixed at note-on, worked out again when the region is edited.
    std::uint8_t waveIndex = 0;
    float levelDb = 0;
    float semitones = 0; ///< synthesized waves: above key 0's pitch; waveforms: above their root
    float pitchDepth = 0, filterDepth = 0;
    float cutoff = 0; ///< semitones above key 0's pitch
    float resonanceDb = 0;
    float filterGain = 1;
    float openness = 0; ///< share of the sound that passes by the filter
    double levelTimeFactor = 1, filterTimeFactor = 1;
    float lastCutoff = std::numeric_limits<float>::quiet_NaN();
};

/// State of a voice of VoiceModel::La.
struct LaVoice {
    std::array<LaPartialState, kLaPartials> partials;
    PointEnvelope pitchEnvelope;
    std::array<VoiceLfo, kLaLfos> lfos;
    double pitchTimeFactor = 1;
    float velocity = 0; ///< bipolar
    float fadeDb = 0;   ///< of a voice that is shut down
    bool isShutDown = false;
    std::uint8_t tvaStage = 0;
    std::array<bool, kLaLfos> lfoRuns{};
};

/// See InitVoice and its siblings.
void InitLa(Voice& voice, LaVoice& la, const VoiceClock& clock, bool isNoteOn) noexcept;
void ReleaseLa(Voice& voice, LaVoice& la, const VoiceClock& clock) noexcept;
void ShutDownLa(Voice& voice, LaVoice& la, const VoiceClock& clock) noexcept;
void RunLa(Voice& voice, LaVoice& la, const VoiceClock& clock, StereoBlock& out) noexcept;

/// Share of the cycle for which a square is high, at a pulse width of 0 to 1.
float PulseShare(float width, float sensitivity) noexcept;
/// How long a note lasts: the longer partial's, a waveform without loop included.
EnvelopeLength NoteLengthOf(const LaProgram& program, float key, float velocity) noexcept;

} // namespace vimbo::synth
