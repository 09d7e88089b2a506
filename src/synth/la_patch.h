// LA patches: two partials, each a synthesized wave with filter or a waveform. The block of a SynthModel of
// model 1.
#pragma once

#include "model/synth_model.h"
#include "synth/point_envelope.h"
#include "synth/synth_instrument.h"

#include <optional>

namespace vimbo::synth {

inline constexpr std::uint32_t kLaModel = 1;
inline constexpr std::size_t kLaPartials = 2;
inline constexpr std::size_t kLaLfos = 3;
inline constexpr std::size_t kLaEqBands = 2;
inline constexpr std::size_t kLaPoints = 5;
/// Points of an envelope ahead of the hold; the last one follows the key's release.
inline constexpr unsigned kLaHoldPoint = 4;
inline constexpr std::size_t kWavesPerPartial = SynthModel::kWaveReferences / kLaPartials;

/// How the partials A (upper) and B (lower) come together.
enum class LaStructure : std::uint8_t {
    Mix = 0,     ///< A + B
    MixRing = 1, ///< A + A*B
    Ring = 2,    ///< A*B
    Stereo = 3   ///< A left, B right
};
enum class LaWaveform : std::uint8_t { Saw = 0, Square = 1 };
enum class LaLfoShape : std::uint8_t { Triangle = 0, Sine = 1, Square = 2, Random = 3 };
enum class LaLfoMode : std::uint8_t { KeyOn = 0, TvaStage = 1 };
enum class LaEqMode : std::uint8_t { Peak = 0, LowShelf = 1, HighShelf = 2 };

struct LaLfo {
    LaLfoShape shape = LaLfoShape::Triangle;
    LaLfoMode mode = LaLfoMode::KeyOn; ///< TvaStage: starts anew when the first partial's TVA enters `stage`
    std::uint8_t stage = 0;            ///< 0 to 5; 4 is the hold, 5 the release
    float hz = 0;                      ///< 0 to 100
    float delay = 0, ramp = 0;         ///< seconds, 0 to 60
    friend bool operator==(const LaLfo&, const LaLfo&) = default;
};

struct LaEq {
    LaEqMode mode = LaEqMode::Peak;
    float hz = 1000;  ///< 10 to 20000
    float gainDb = 0; ///< -24 to 24
    float q = 0.7f;   ///< 0.1 to 20
    friend bool operator==(const LaEq&, const LaEq&) = default;
};

struct LaEnvelope {
    float startLevel = 0;
    std::array<LevelPoint, kLaPoints> point{};
    friend bool operator==(const LaEnvelope&, const LaEnvelope&) = default;
};

/// Level or cutoff that changes on one side of a key.
struct LaBias {
    std::uint8_t key = 60;
    bool isAbove = false; ///< else below
    float perOctave = 0;  ///< dB or semitones per octave beyond the key, -48 to 48
    friend bool operator==(const LaBias&, const LaBias&) = default;
};

/// Limits stand behind the fields; Parse applies them.
struct LaPartial {
    bool isEnabled = false;
    bool isPcm = false; ///< plays a waveform; no filter then
    bool ignoresBend = false;
    bool filterIsGentle = false; ///< 12 dB per octave in place of 24
    LaWaveform waveform = LaWaveform::Saw;
    std::uint8_t pitchLfo = 0, pulseLfo = 0, filterLfo = 0, levelLfo = 0; ///< 0 to 2
    std::array<std::uint8_t, kWavesPerPartial - 1>
        waveSplit{}; ///< lowest keys of its 2nd to 4th waveform; 0: none

    float coarse = 0;             ///< semitones, -60 to 60
    float fine = 0;               ///< cents, -100 to 100
    float keyFollow = 1;          ///< semitones per key around key 60, -2 to 2
    float pitchDepth = 0;         ///< of the pitch envelope in semitones, -48 to 48
    float velocityPitchDepth = 0; ///< by bipolar velocity, -48 to 48
    float lfoPitch = 0, wheelLfoPitch = 0, touchLfoPitch = 0; ///< semitones, -6 to 6

    float pulseWidth = 0;                                  ///< 0 to 1: to 0.5 a half wave, narrower above
    float pulseSensitivity = -4;                           ///< octaves of width per 1, -10 to 0
    float velocityPulse = 0, touchPulse = 0, lfoPulse = 0; ///< added to the width, -1 to 1

    float cutoff = 120;              ///< semitones above key 0's pitch, 0 to 136
    float resonance = 0;             ///< 0 to 30
    std::uint8_t resonanceCurve = 0; ///< 0 to 31: straight to late
    float cutoffKeyFollow = 0;       ///< semitones per key around key 60, -2 to 2
    LaBias filterBias;
    float filterDepth = 0;                ///< of the filter envelope in semitones, -48 to 48
    float velocityFilterDepth = 0;        ///< by bipolar velocity, -48 to 48
    float filterKeyToTime = 1;            ///< factor of times per octave, 0.25 to 4
    float lfoCutoff = 0, touchCutoff = 0; ///< semitones, -48 to 48
    LaEnvelope filterEnvelope;            ///< levels -1 to 1

    float levelDb = 0;    ///< -96 to 12
    float velocityDb = 0; ///< -96 to 96: as kArtVelToVolume
    std::array<LaBias, 2> levelBias;
    float keyToTime = 1;                ///< as filterKeyToTime
    float velocityToTime = 1;           ///< factor between the lowest and the highest velocity, 0.25 to 4
    float lfoLevel = 0, touchLevel = 0; ///< dB, -48 to 48
    LaEnvelope levelEnvelope;           ///< positions
    friend bool operator==(const LaPartial&, const LaPartial&) = default;
};

/// A waveform of the collection as partials play it.
struct LaWave {
    WaveSound sound;
    float rootKey = 60; ///< with the fine tune
    float gain = 1;
};

struct LaPatch {
    LaStructure structure = LaStructure::Mix;
    float bendRange = 2;      ///< semitones, 0 to 48
    float balance = 0;        ///< -1 upper partial alone, 1 lower alone
    float pitchKeyToTime = 1; ///< as LaPartial::filterKeyToTime
    LaEnvelope pitchEnvelope; ///< levels -1 to 1; shared
    std::array<LaLfo, kLaLfos> lfos;
    std::array<LaEq, kLaEqBands> eq;
    std::array<LaPartial, kLaPartials> partials;
    friend bool operator==(const LaPatch&, const LaPatch&) = default;

    /// The patch of a block; fields beyond their limits are brought there. None if the block has not the size
    /// of model 1. Wave references are the item's matter.
    static std::optional<LaPatch> Parse(std::span<const std::byte> block) noexcept;
    /// Writes the patch, limited, so that Parse gives it back exactly; wave references stay. False for a
    /// block of another size.
    [[nodiscard]] bool Store(std::span<std::byte> block) const noexcept;
};

/// A patch with the samples of its waveforms: the first four are the upper partial's.
struct LaProgram {
    LaPatch patch;
    std::array<LaWave, SynthModel::kWaveReferences> waves;
};

/// The patch of an item of model 1.
std::optional<LaPatch> LaPatchOf(const SynthModel& model) noexcept;
/// Makes the item one of model 1 that holds the patch.
void StorePatch(SynthModel& model, const LaPatch& patch);

/// Number of the waveform, 0 to 7, that a partial plays at a key.
std::size_t WaveAtKey(const LaPatch& patch, std::size_t partial, float key) noexcept;
/// Height of the resonance in dB: 0 to 30.
float ResonanceDb(const LaPartial& partial) noexcept;

} // namespace vimbo::synth
