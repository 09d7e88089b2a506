// Instruments in the form that voices play: every region with all values resolved.
#pragma once

#include "model/instrument.h"
#include "synth/synth_sample.h"

#include <array>
#include <memory>
#include <string>
#include <vector>

namespace vimbo::synth {

enum class VoiceModel : std::uint32_t {
    Wave = 0x57617665, ///< "Wave"
    La = 0x4C696E41,   ///< "LinA"
    Fm = 0x464D6F64    ///< "FMod"
};

struct SendLevel {
    float level = 0, ccToLevel = 0;
};

struct FmPatch;   // fm_patch.h
struct LaProgram; // la_patch.h

/// A waveform as a region plays it.
struct WaveSound {
    std::shared_ptr<const SynthSample> sample;
    LoopType loopType = LoopType::Off;
    bool breakOnRelease = false;
    double loopStart = 0, loopEnd = 0; ///< frames of the sample; may hold fractions
    float loopTuning = 0;              ///< semitones
    std::int64_t start = 0, end = 0;   ///< frames that are played
};

/// Full gain everywhere.
inline constexpr FadeRange kNoFade{0, 0, 127, 127, FadeFormula::EqualPower};

/// One region, ready to play.
struct SynthRegion {
    VoiceModel model = VoiceModel::Wave;
    std::uint32_t regionId = 0; ///< serial of the source region: finds the region again after an edit
    MidiRange keys, velocities; ///< with the fades inside
    CrossFade fades{kNoFade, kNoFade};
    std::uint8_t trigger = 0;         ///< 0 note-on, 1 note-off, 2 to 17 round robin groups 0 to 15
    std::uint8_t pedal = 0;           ///< 0 always, 1 while the sustain pedal is down, others while it is up
    std::uint16_t exclusiveClass = 0; ///< 0: none
    bool allowOverlap = false; ///< false: a new note on the same key shuts this region's older voices down
    std::uint16_t phaseGroup = 0;
    bool isPhaseMaster = false;
    float delaySeconds = 0;

    /// All values by id. Tuning holds root key and fine tune, volume the waveform's gain.
    std::array<float, kArticulationParams> params{};

    WaveSound wave;                      ///< of VoiceModel::Wave
    std::shared_ptr<const FmPatch> fm;   ///< of VoiceModel::Fm
    std::shared_ptr<const LaProgram> la; ///< of VoiceModel::La

    SendLevel Send(std::size_t send) const noexcept
    {
        return {params[kArtSend + kSendParams * send], params[kArtCcToSend + kSendParams * send]};
    }
    /// Gain of the cross-fades at a key and velocity (0 to 127) inside the ranges.
    float CrossFadeGain(unsigned key, unsigned velocity) const noexcept
    {
        return fades.keys.GainAt(key) * fades.velocities.GainAt(velocity);
    }
};

/// Not changed any more once an engine has it.
struct SynthInstrument {
    std::uint32_t patch = 0; ///< as MidiLocation's word
    std::u16string name;     ///< at most 79 characters
    std::vector<SynthRegion> regions;
    std::array<ChannelFx, kChannelFxSlots> effects;
};

/// Compiles an instrument. Samples are read from their files; regions whose sample cannot be had are left
/// out, so are regions that play nothing. Two mono regions that are the sides of one sound become one region
/// with a stereo sample. Levels are expected to be resolved (FixUpItems). Never null.
std::unique_ptr<SynthInstrument> CompileInstrument(const Instrument& instrument, SampleStore& samples);

} // namespace vimbo::synth
