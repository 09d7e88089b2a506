// FM patches: what six operators play. The block of a SynthModel of model 0.
#pragma once

#include "model/synth_model.h"
#include "synth/fm_shapes.h"
#include "synth/point_envelope.h"

#include <optional>

namespace vimbo::synth {

inline constexpr std::uint32_t kFmModel = 0;
inline constexpr std::size_t kFmOperators = 6;
inline constexpr std::size_t kFmPoints = 4;
inline constexpr std::size_t kFmMaxSources = 3;
/// In place of a hold point: the envelope runs through.
inline constexpr std::uint8_t kNoHold = 255;

enum class FmOscillator : std::uint8_t {
    Sine = 0,
    BandLimited = 1, ///< shapes: HarmonicShape
    Table = 2,       ///< shapes: TableShape
    Opl = 3          ///< shapes: OplShape; higher numbers, too
};
enum class HarmonicShape : std::uint8_t { Saw = 0, Triangle = 1, Square = 2, Pulse = 3 };

/// Up to four points and where the key holds them.
struct FmEnvelope {
    float startLevel = 0;
    std::uint8_t points = 0;          ///< in use
    std::uint8_t holdPoint = kNoHold; ///< points ahead of the hold
    std::array<LevelPoint, kFmPoints> point{};
    friend bool operator==(const FmEnvelope&, const FmEnvelope&) = default;
};

/// Limits stand behind the fields; Parse applies them.
struct FmOperator {
    bool isEnabled = false;
    bool isCarrier = false;                           ///< heard
    bool keepsPitch = false;                          ///< bend, pitch envelope and LFO do not move it
    bool leftIsCurved = false, rightIsCurved = false; ///< key scaling grows exponentially
    FmOscillator oscillator = FmOscillator::Sine;
    std::uint8_t shape = 0;     ///< 0 to 31
    std::uint8_t sources = 0;   ///< bit n: operator n, an earlier one or itself; the lowest three count
    std::uint8_t breakKey = 60; ///< 0 to 127
    std::uint8_t leftKeys = 0, rightKeys = 0; ///< width of the zones; 0: up to the end of the keyboard
    float ratio = 1;                          ///< 0 to 64; 0: fixedHz
    float detuneHz = 0;                       ///< -1000 to 1000
    float fixedHz = 0;                        ///< 0 to 96000
    float levelDb = 0;                        ///< -96 to 12
    float velocityDb = 0;                     ///< -96 to 96: as kArtVelToVolume
    float modulation = 2;                     ///< cycles of phase by a source of full level, 0 to 4
    float feedback = 0;                       ///< the same for itself
    float leftDb = 0, rightDb = 0; ///< level at the ends of the zones beside the break key, -96 to 96
    float lfoDb = 0;               ///< LFO to level, -96 to 96
    float keyToTime = 1;           ///< factor of times per octave, 0.25 to 4
    float startPhase = 0;          ///< cycles, 0 to 1
    FmEnvelope envelope;
    friend bool operator==(const FmOperator&, const FmOperator&) = default;
};

struct FmPatch {
    bool velocityToPitchEnvelope = false;
    std::int8_t transpose = 0;       ///< semitones, -60 to 60
    float bendRange = 2;             ///< semitones, 0 to 48
    float pitchDepth = 0;            ///< of the pitch envelope in semitones, -48 to 48
    float pitchKeyToTime = 1;        ///< as FmOperator::keyToTime
    FmEnvelope pitchEnvelope;        ///< levels -1 to 1
    std::uint8_t lfoShape = 0;       ///< as kLfoShape
    float lfoHz = 0;                 ///< 0 to 100
    float lfoDelay = 0, lfoRamp = 0; ///< seconds, 0 to 60
    float lfoPitch = 0, wheelLfoPitch = 0, touchLfoPitch = 0; ///< semitones, -48 to 48
    std::array<FmOperator, kFmOperators> operators;
    WaveTable table{}; ///< of the shapes that read one
    friend bool operator==(const FmPatch&, const FmPatch&) = default;

    /// The patch of a block; fields beyond their limits are brought there. None if the block has not the size
    /// of model 0.
    static std::optional<FmPatch> Parse(std::span<const std::byte> block) noexcept;
    /// Writes the patch, limited, so that Parse gives it back exactly. False for a block of another size.
    [[nodiscard]] bool Store(std::span<std::byte> block) const noexcept;
};

/// The patch of an item of model 0.
std::optional<FmPatch> FmPatchOf(const SynthModel& model) noexcept;
/// Makes the item one of model 0 that holds the patch.
void StorePatch(SynthModel& model, const FmPatch& patch);

/// The operators that one reads, lowest first, at most kFmMaxSources; disabled ones are left out.
struct FmSources {
    std::array<std::uint8_t, kFmMaxSources> index{};
    std::uint8_t count = 0; ///< without itself
    bool isSelf = false;
};
FmSources SourcesOf(const FmPatch& patch, std::size_t operatorIndex) noexcept;

} // namespace vimbo::synth
