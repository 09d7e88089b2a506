// One sounding region.
#pragma once

#include "dsp/kernels/biquad.h"
#include "dsp/kernels/voice_filter.h"
#include "synth/fm_voice.h"
#include "synth/la_voice.h"
#include "synth/stereo_block.h"
#include "synth/synth_instrument.h"
#include "synth/wave_voice.h"

#include <limits>
#include <variant>

namespace vimbo::synth {

/// The bend range of a channel where no RPN has set it.
inline constexpr float kUnsetBendRange = -1.1234568e31f;
inline constexpr std::uint16_t kNoIndex = std::numeric_limits<std::uint16_t>::max();

/// Rates that voices count by.
struct VoiceClock {
    float rateHz = 48000;
    float TicksPerSecond() const noexcept { return rateHz / static_cast<float>(kBlockFrames); }
    float TickSeconds() const noexcept { return static_cast<float>(kBlockFrames) / rateHz; }
};

/// A record of the voice pool, written by one thread in each block: copied as a whole when the pool closes a
/// gap, so it points at nothing inside itself. What the engine sets stands first; the rest belongs to the
/// model.
struct alignas(kCacheLine) Voice {
    const SynthRegion* region = nullptr;
    std::uint16_t group = kNoIndex;       ///< index of its NoteGroup
    std::uint16_t nextInGroup = kNoIndex; ///< index of the group's next voice
    std::uint16_t channel = 0;
    float key = 60;                     ///< as struck, 0 to 127
    float velocity = 1;                 ///< 0 to 1
    float bendRange = kUnsetBendRange;  ///< semitones
    float tuningOffset = 0;             ///< semitones; from the channel, portamento included
    float modWheel = 0, aftertouch = 0; ///< 0 to 1
    float pitchBend = 0;                ///< -1 to 1
    double delayLeft = 0;               ///< seconds
    float crossfadeGain = 1;
    float previousLeft = 0, previousRight = 0; ///< gains at the end of the last block
    bool released = false;
    bool softPedal = false;
    bool isReleaseTrigger = false;
    bool isOrphan = false;  ///< its region is gone from the instrument
    bool isFresh = true;    ///< no block has run yet
    bool isAudible = false; ///< in this block
    SynthRandom random;     ///< seeded by the engine at note-on

    // What the model tells the mixer after each tick.
    bool isStereo = false;
    bool isDead = false;      ///< gone after this block
    bool isFiltered = false;  ///< the mixer runs the filter of `filter.kind` over the block
    std::uint8_t eqBands = 0; ///< bands in use, of `eq`
    float envelopeGain = 0;   ///< after InitVoice: at the envelope's initial level
    float gainEstimate = 0;   ///< peak of the model's own output: 1 for samples, 0 before the sound starts
    float panModulation = 0;
    float lastPan = 2; ///< beyond all: not worked out yet
    PanGains lastPanGains;
    VoiceFilterKind filterKind = VoiceFilterKind::PassThru;
    VoiceFilterCoefs filterCoefs;
    VoiceFilterState filterState, filterStateRight;
    std::array<BiquadCoefs, kEqBands> eq;
    std::array<BiquadState, kEqBands> eqState, eqStateRight;

    std::variant<WaveVoice, FmVoice, LaVoice> model;
};
static_assert(std::is_trivially_copyable_v<Voice>);

/// Starts the voice of voice.region (isNoteOn: everything afresh), or takes over another form of its region
/// while it sounds: changed times count from the next stage on, phases go on, the play position stays if it
/// lies inside the new range.
void InitVoice(Voice& voice, const VoiceClock& clock, bool isNoteOn) noexcept;
/// Note-off: envelopes go to their release stage, loops that break on release end. Not for release triggers.
/// A voice that still waits for its start is dead.
void ReleaseVoice(Voice& voice, const VoiceClock& clock) noexcept;
/// Fades the voice out at its shutdown rate, whatever its envelope does.
void ShutDownVoice(Voice& voice, const VoiceClock& clock) noexcept;
/// One tick: modulation, and 64 frames of the sound before filter, EQ and gains into `out` (mono: left only).
/// Sets the fields above for the mixer. Reads and writes nothing but the voice and the region.
void RunVoice(Voice& voice, const VoiceClock& clock, StereoBlock& out) noexcept;
/// Pan gains for this block: the region's pan, `channelPan` (-1 to 1) by its depth, and modulation.
PanGains VoicePan(Voice& voice, float channelPan) noexcept;

} // namespace vimbo::synth
