// Envelopes and LFOs of an articulation block as drivers work with them: whole records instead of numbered
// values, and their conversions to smaller forms.
#pragma once

#include "model/articulation.h"

#include <cstddef>
#include <span>
#include <vector>

namespace vimbo {

enum class EnvelopeIndex : std::uint8_t { Volume = 0, Pitch = 1, Filter = 2, X = 3 };
enum class LfoIndex : std::uint8_t { Pitch = 0, Volume = 1, Filter = 2, X = 3 };
inline constexpr std::size_t kEnvelopes = 4;
inline constexpr std::size_t kLfos = 4;

// Offsets of an envelope's 27 ids from its base.
inline constexpr ParamId kEnvInitialLevel = 0;
inline constexpr ParamId kEnvAttack1Time = 1;
inline constexpr ParamId kEnvVelToAttack1 = 2;
inline constexpr ParamId kEnvKeyToAttack1 = 3;
inline constexpr ParamId kEnvAttack1Level = 4;
inline constexpr ParamId kEnvAttack2Time = 5;
inline constexpr ParamId kEnvVelToAttack2 = 6;
inline constexpr ParamId kEnvKeyToAttack2 = 7;
inline constexpr ParamId kEnvAttack2Level = 8;
inline constexpr ParamId kEnvDecay1Time = 9;
inline constexpr ParamId kEnvVelToDecay1 = 10;
inline constexpr ParamId kEnvKeyToDecay1 = 11;
inline constexpr ParamId kEnvDecay1Level = 12;
inline constexpr ParamId kEnvDecay2Time = 13;
inline constexpr ParamId kEnvVelToDecay2 = 14;
inline constexpr ParamId kEnvKeyToDecay2 = 15;
inline constexpr ParamId kEnvSustain = 16;
inline constexpr ParamId kEnvRelease1Rate = 17; ///< seconds for a level difference of 1
inline constexpr ParamId kEnvRelease1Level = 18;
inline constexpr ParamId kEnvRelease2Time = 19;
inline constexpr ParamId kEnvRelease2Level = 20;
inline constexpr ParamId kEnvRelease3Time = 21;
inline constexpr ParamId kEnvRelease3Level = 22;
inline constexpr ParamId kEnvVelToRelease = 23;
inline constexpr ParamId kEnvKeyToRelease = 24;
inline constexpr ParamId kEnvReleaseMode = 25;
inline constexpr ParamId kEnvShutdownRate = 26; ///< of the volume envelope only
inline constexpr ParamId kEnvelopeParams = 27;
inline constexpr ParamId kLfoShape = 0;
inline constexpr ParamId kLfoFrequency = 1;
inline constexpr ParamId kLfoDelay = 2;
inline constexpr ParamId kLfoRamp = 3;
inline constexpr ParamId kLfoParams = 4;

constexpr ParamId EnvelopeBase(EnvelopeIndex index) noexcept
{
    return static_cast<ParamId>(kArtEnvelopes + kEnvelopeParams * static_cast<ParamId>(index));
}
constexpr ParamId LfoBase(LfoIndex index) noexcept
{
    return static_cast<ParamId>(kArtLfos + kLfoParams * static_cast<ParamId>(index));
}

enum class ReleaseMode : std::uint8_t { KeyRelease = 0, NoRelease = 1 };

/// One timed segment: its length and the level that it ends at.
struct EnvelopeStage {
    float seconds = 0;
    float level = 0;    ///< volume: position 0 to 1 (1 is 0 dB, 0 is -96 dB); others -1 to 1
    float velocity = 1; ///< factor of the time between the highest and the lowest velocity
    float key = 1;      ///< factor of the time per octave
    friend bool operator==(const EnvelopeStage&, const EnvelopeStage&) = default;
};

/// One envelope: attack 1, attack 2, decay 1, decay 2 to the sustain level, three release segments.
struct Envelope {
    float initialLevel = 0;
    EnvelopeStage attack1{0, 0};
    EnvelopeStage attack2{0, 1};
    EnvelopeStage decay1{0, 1};
    EnvelopeStage decay2{0, 1}; ///< its level is the sustain level
    float release1Rate = 0;     ///< seconds for a level difference of 1
    float release1Level = 0;
    float release2Seconds = 0;
    float release2Level = 0;
    float release3Seconds = 0;
    float release3Level = 0;
    float releaseVelocity = 1; ///< factor of all release times, as EnvelopeStage's
    float releaseKey = 1;
    ReleaseMode releaseMode = ReleaseMode::KeyRelease;
    float shutdownRate = 0.015f; ///< seconds from full volume to silence; volume envelope only
    friend bool operator==(const Envelope&, const Envelope&) = default;
};

/// An LFO's polarity, the top two bits of its shape value.
enum class LfoPolarity : std::uint8_t { Bipolar = 0, Unipolar = 1, NegativeUnipolar = 2 };
enum class LfoShape : std::uint8_t { Sine = 0, Triangle = 1, Square = 2, Noise = 3, SawUp = 4, SawDown = 5 };

struct Lfo {
    LfoShape shape = LfoShape::Sine;
    LfoPolarity polarity = LfoPolarity::Bipolar;
    float frequencyHz = 5;
    float delaySeconds = 0;
    float rampSeconds = 0;
    friend bool operator==(const Lfo&, const Lfo&) = default;
};

void GetEnvelope(const ArticulationBlock& block, Envelope& out, EnvelopeIndex index) noexcept;
/// Sets (and marks) every value of the envelope. Only the volume envelope has a shutdown rate: on the others
/// it is neither read (it stays 0.015) nor written.
void SetEnvelope(ArticulationBlock& block, const Envelope& envelope, EnvelopeIndex index);
void GetLfo(const ArticulationBlock& block, Lfo& out, LfoIndex index) noexcept;
void SetLfo(ArticulationBlock& block, const Lfo& lfo, LfoIndex index);

/// Where an LFO goes, and how far, in the units of the ids: pitch and cutoff in semitones, volume in dB, pan
/// as a factor. Each depth has a fixed part and parts by modulation wheel, aftertouch and velocity.
struct LfoDepth {
    float fixed = 0, wheel = 0, touch = 0, velocity = 0;
    /// Sum of the magnitudes.
    float Total() const noexcept;
    bool IsZero() const noexcept { return fixed == 0 && wheel == 0 && touch == 0 && velocity == 0; }
    friend bool operator==(const LfoDepth&, const LfoDepth&) = default;
};
struct LfoDepths {
    LfoDepth pitch, volume, cutoff;
    float pan = 0;
    friend bool operator==(const LfoDepths&, const LfoDepths&) = default;
};
/// Where an envelope goes: pitch and cutoff in semitones, fixed and by velocity; pan as a factor.
struct EnvelopeDepths {
    float pitch = 0, velocityPitch = 0, cutoff = 0, velocityCutoff = 0, pan = 0;
    friend bool operator==(const EnvelopeDepths&, const EnvelopeDepths&) = default;
};

/// An envelope or LFO with the depths that its own ids hold (P-ENV: pitch; F-ENV: cutoff; X-ENV: pan; P-LFO:
/// pitch; V-LFO: volume; F-LFO: cutoff; X-LFO: pan and pitch). The volume envelope has none.
void GetEnvelopeEx(const ArticulationBlock& block, Envelope& out, EnvelopeDepths& depths,
                   EnvelopeIndex index) noexcept;
void GetLfoEx(const ArticulationBlock& block, Lfo& out, LfoDepths& depths, LfoIndex index) noexcept;

/// Shape and polarity equal, frequency equal after rounding to 0.1 Hz, delay plus ramp equal within
/// `toleranceSeconds`.
bool SameLfoShape(const Lfo& a, const Lfo& b, float toleranceSeconds = 0.001f) noexcept;

/// Bits of a set of envelopes or LFOs.
constexpr unsigned IndexBit(EnvelopeIndex index) noexcept
{
    return 1u << static_cast<unsigned>(index);
}
constexpr unsigned IndexBit(LfoIndex index) noexcept
{
    return 1u << static_cast<unsigned>(index);
}

/// Depths of unlike units are compared by what strikes the ear about equally: 1 semitone of pitch, 6 dB,
/// 12 semitones of cutoff, half of one side's pan.
inline constexpr float kPitchStrength = 1, kVolumeStrength = 1.0f / 6, kCutoffStrength = 1.0f / 12,
                       kPanStrength = 2;
float Strength(const EnvelopeDepths& depths) noexcept;
float Strength(const LfoDepths& depths) noexcept;

/// Every level within 0.01, every time, rate and factor within 0.005 or 2 %, release modes equal; shutdown
/// rates do not count.
bool SameEnvelopeForm(const Envelope& a, const Envelope& b) noexcept;

/// For formats with one shared modulation envelope or LFO: the one of the strongest depth among those whose
/// bit is set in `candidates`, with the depths of all others that have the same form added to it (LFOs:
/// SameLfoShape with 0.5 s; negative unipolar ones come out unipolar with their depths negated). What is left
/// out stays in `dropped` (bits) so that a writer can report it. Nothing with a depth: `used` is 0 and the
/// rest default.
struct ModEnvelope {
    Envelope envelope;
    EnvelopeDepths depths;
    unsigned used = 0, dropped = 0;
};
struct ModLfo {
    Lfo lfo;
    LfoDepths depths;
    unsigned used = 0, dropped = 0;
};
/// @param candidates  IndexBit of P-ENV, F-ENV and X-ENV in any combination
ModEnvelope ComposeModEnv(const ArticulationBlock& block, unsigned candidates) noexcept;
ModLfo ComposeModLfo(const ArticulationBlock& block, unsigned candidates) noexcept;
/// The same over several blocks, such as the regions of a layer: the strongest block's. `dropped` has the
/// bits of every block's parts of another form; how far depths differ between blocks is not told.
ModEnvelope ComposeModEnv(std::span<const ArticulationBlock* const> blocks, unsigned candidates) noexcept;
ModLfo ComposeModLfo(std::span<const ArticulationBlock* const> blocks, unsigned candidates) noexcept;

/// Writes a shared LFO into the block: each destination with a depth (pan, then cutoff, then volume, then
/// pitch) goes to the LFO dedicated to it (X, F, V, P). If that one is unused or is the same (SameLfoShape
/// with 0.5 s), the depths are added; otherwise the LFO with the greater total depth wins. A pitch part whose
/// P-LFO is taken by another shape goes to a free X-LFO (or one of its own shape) before anything is dropped.
/// On equal depths what was there stays. A negative unipolar LFO is stored as a unipolar one, depths negated.
/// @return bits of the LFOs where a depth was lost, the new one or the one that was there (0: nothing lost)
unsigned MergeLfo(ArticulationBlock& block, const Lfo& lfo, const LfoDepths& depths);
/// Writes a shared envelope into P-ENV, F-ENV and X-ENV, where its depths are not 0: an unused one takes it,
/// one of the same form (SameEnvelopeForm) adds its depths, one in use with another form is kept unless the
/// new depth is greater.
/// @return bits of the envelopes where a depth was lost, the new one or the one that was there
unsigned MergeEnvelope(ArticulationBlock& block, const Envelope& envelope, const EnvelopeDepths& depths);

/// Six stages as most formats know them. Times in seconds; levels as in Envelope.
struct DahdsrEnvelope {
    float delay = 0, attack = 0, hold = 0;
    float decay = 0; ///< from full level to level 0; the way to `sustain` takes (1 - sustain) of it
    float sustain = 1;
    float release = 0; ///< from full level to level 0
    float velocityToDelay = 1, velocityToAttack = 1, velocityToHold = 1, velocityToDecay = 1,
          velocityToRelease = 1;
    float keyToDelay = 1, keyToAttack = 1, keyToHold = 1, keyToDecay = 1, keyToRelease = 1;
    ReleaseMode releaseMode = ReleaseMode::KeyRelease;
    friend bool operator==(const DahdsrEnvelope&, const DahdsrEnvelope&) = default;
};
/// The stages of a six-stage envelope: exact. Sustain is brought into 0..1, times into 0..1e6.
Envelope FromDahdsr(const DahdsrEnvelope& envelope) noexcept;
/// The nearest six-stage envelope; exact for what FromDahdsr made (but the decay of a sustain of 1, which is
/// not heard, comes back as 0). The sustain level and the time from the key's release to silence are kept;
/// the rise to the first peak and the way from there to the sustain level are each replaced by the straight
/// way of the least squared error over time, at a cost for ending earlier than the original. Factors come
/// from the stage that covers most of each new one. The form always rises to full level: a lower peak is
/// overshot, so that modulation envelopes should pass NormalizeBipolar and NormalizeToOne first. Levels below
/// 0 count as 0.
/// @param isVolume  attacks of a volume envelope run linear in gain, decays and releases in dB
DahdsrEnvelope ToDahdsr(const Envelope& envelope, bool isVolume) noexcept;
/// Without a delay stage: the delay moves into the attack so that the half level is reached at the same time,
/// or earlier if the peak were to come behind the time of the sustain level; that time is kept.
DahdsrEnvelope ToAhdsr(const Envelope& envelope, bool isVolume) noexcept;
/// Attack, decay, sustain, release: as ToAhdsr, and hold moves into the decay, which ends at the same time.
DahdsrEnvelope ToAdsr(const Envelope& envelope, bool isVolume) noexcept;
/// Six-stage form kept in an Envelope: what Normalize leaves without free levels. An envelope of that form
/// stays as it is; the shutdown rate stays in any case.
void ReduceToSixStages(Envelope& envelope, bool isVolume) noexcept;
/// The same without delay.
void ReduceToAhdsr(Envelope& envelope, bool isVolume) noexcept;
/// One release segment in place of three: level 0 is reached after the same time, from the sustain level
/// (from full level if the sustain is silent). If releases 2 and 3 do not change the level: nothing.
void FoldReleases(Envelope& envelope) noexcept;

/// A point of a free multi-stage envelope.
struct EnvelopePoint {
    double seconds = 0; ///< from the note's start, not decreasing; behind the sustain point from the release
    float level = 0;    ///< as in Envelope
    friend bool operator==(const EnvelopePoint&, const EnvelopePoint&) = default;
};
inline constexpr std::size_t kMaxEnvelopePoints = 32;
struct EnvelopePoints {
    std::vector<EnvelopePoint> points; ///< at most kMaxEnvelopePoints
    std::size_t sustainPoint = 0; ///< index of the point where the envelope stands until the key's release
    bool hasSustain = true;       ///< false: it runs through (release mode NoRelease)
    friend bool operator==(const EnvelopePoints&, const EnvelopePoints&) = default;
};
/// The corners that are played, in the order of time; exact, at most 9 points: stages without time and change
/// of level are left out, so are releases 2 and 3 that do not change the level, and the drop to silence
/// behind a last release level other than 0 is a point. Without release, the sustain level is the last point.
EnvelopePoints EnvelopeToPoints(const Envelope& envelope);
/// Line fitting: the four segments up to the sustain point and the three behind it that keep those of the
/// points as corners which leave the least squared error of the level over time; exact when the points need
/// no more. The highest corner ends attack 2 where the count allows. Without a sustain point all points make
/// the held part, the last level the sustain level. Repaired first: times that go back stand still, levels
/// are clamped to -1..1 (NaN: 0), parts of more than 32 points lose their least corners. A flat or nearly
/// flat first release segment, which release 1 cannot hold as a rate (above 100 s per level), goes to release
/// 2 behind an empty release 1, and a flat release 2 or 3 ends 0.0015 off its level, since flat ones are not
/// played.
/// @return the largest difference of level between the points and the fitted envelope, at the points' times
float EnvelopeFromPoints(const EnvelopePoints& points, Envelope& out) noexcept;
/// The level at a time, on straight lines between the corners (linear in position); `releaseSeconds` below 0:
/// the key is held. For tests, displays and fits.
float EnvelopeLevelAt(const Envelope& envelope, double seconds, double releaseSeconds = -1) noexcept;

/// Levels become 1 - x.
void InvertLevels(Envelope& envelope) noexcept;
/// If the peak is negative, or the minimum's magnitude exceeds the maximum's, levels and depths are negated;
/// then levels are clamped to 0..1. The time of release 1 from the sustain level is kept.
void NormalizeBipolar(Envelope& envelope, EnvelopeDepths& depths) noexcept;
/// Scales levels so that the greatest is 1, and release 1's rate so that its time is kept.
/// @return the factor by which depths have to be multiplied in turn: the former level of the greatest
/// magnitude, below 0 if that was negative (levels are then turned over); 0 and no change if all levels are 0
float NormalizeToOne(Envelope& envelope) noexcept;

} // namespace vimbo
