// Voices of FM patches: six operators, each a phase, an envelope and a gain.
#pragma once

#include "synth/fm_patch.h"
#include "synth/stereo_block.h"
#include "synth/voice_lfo.h"

namespace vimbo::synth {

struct Voice;
struct VoiceClock;

/// State of one operator.
struct FmOperatorState {
    PointEnvelope envelope;
    BandLimitedWave wave;
    std::uint32_t phase = 0, step = 0; ///< cycles / 2^32
    float gain = 0;                    ///< at the end of the last block
    float last = 0, beforeLast = 0;    ///< outputs, for feedback
    FmSources sources;

    // Fixed at note-on, worked out again when the region is edited.
    float levelDb = 0;
    float baseGain = 0; ///< of levelDb
    double timeFactor = 1;
};

/// State of a voice of VoiceModel::Fm.
struct FmVoice {
    std::array<FmOperatorState, kFmOperators> operators;
    PointEnvelope pitchEnvelope;
    VoiceLfo lfo;
    double pitchTimeFactor = 1;
    float pitchDepth = 0; ///< semitones
    float fadeDb = 0;     ///< of a voice that is shut down
    bool isShutDown = false;
    bool lfoRuns = false;
};

/// See InitVoice and its siblings.
void InitFm(Voice& voice, FmVoice& fm, const VoiceClock& clock, bool isNoteOn) noexcept;
void ReleaseFm(Voice& voice, FmVoice& fm, const VoiceClock& clock) noexcept;
void ShutDownFm(Voice& voice, FmVoice& fm, const VoiceClock& clock) noexcept;
void RunFm(Voice& voice, FmVoice& fm, const VoiceClock& clock, StereoBlock& out) noexcept;

/// Level in dB that an operator has at a key of 0 to 127 and a velocity of 0 to 1, at its envelope's top.
float OperatorLevelDb(const FmOperator& op, float key, float velocity) noexcept;
/// How long a note lasts: the longest carrier's.
EnvelopeLength NoteLengthOf(const FmPatch& patch, float key) noexcept;

} // namespace vimbo::synth
