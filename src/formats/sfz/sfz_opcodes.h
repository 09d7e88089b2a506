// The opcodes that the model has a place for, with their aliases, and a record of their values.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace vimbo::sfz {

// Fields of the three envelopes and LFOs, in the order in which they are written.
using EgField = std::size_t;
inline constexpr EgField kEgDelay = 0, kEgStart = 1, kEgAttack = 2, kEgHold = 3, kEgDecay = 4, kEgSustain = 5,
                         kEgRelease = 6, kEgDepth = 7, kEgVelToDepth = 8, kEgVelToDelay = 9,
                         kEgVelToAttack = 10, kEgVelToHold = 11, kEgVelToDecay = 12, kEgVelToRelease = 13,
                         kEgKeyToDelay = 14, kEgKeyToAttack = 15, kEgKeyToHold = 16, kEgKeyToDecay = 17,
                         kEgKeyToRelease = 18, kEgFields = 19;
using LfoField = std::size_t;
inline constexpr LfoField kLfoFreq = 0, kLfoDelay = 1, kLfoFade = 2, kLfoDepth = 3, kLfoDepthWheel = 4,
                          kLfoDepthTouch = 5, kLfoDepthVelocity = 6, kLfoFields = 7;
inline constexpr std::size_t kEqFields = 4; ///< frequency, gain, width, mode
inline constexpr std::size_t kEqs = 3;

/// In the order in which they are written.
enum Op : std::size_t {
    kOffset,
    kEnd,
    kLoopMode,
    kLoopType,
    kLoopStart,
    kLoopEnd,
    kLoopTune,
    kLowKey,
    kHighKey,
    kKeyCenter,
    kXfInLowKey,
    kXfInHighKey,
    kXfOutLowKey,
    kXfOutHighKey,
    kXfKeyCurve,
    kLowVel,
    kHighVel,
    kXfInLowVel,
    kXfInHighVel,
    kXfOutLowVel,
    kXfOutHighVel,
    kXfVelCurve,
    kPedalLow,
    kPedalHigh,
    kTrigger,
    kLowRandom,
    kHighRandom,
    kSeqLength,
    kSeqPosition,
    kGroup,
    kOffBy,
    kOffMode,
    kOffTime,
    kDelay,
    kDelaySamples,
    kFirstSoundOp, ///< from here on: the articulation's
    kKeyTrack = kFirstSoundOp,
    kTune,
    kTranspose,
    kBendUp,
    kBendDown,
    kPitchRandom,
    kTuneRandom,
    kPitchEg,
    kPitchLfo = kPitchEg + kEgFields,
    kCutoff = kPitchLfo + kLfoFields,
    kCutoffWheel,
    kCutoffTouch,
    kFilType,
    kFilKeyTrack,
    kFilKeyCenter,
    kFilVelTrack,
    kResonance,
    kResonanceWheel,
    kResonanceTouch,
    kResonanceVelocity,
    kFilEg,
    kFilLfo = kFilEg + kEgFields,
    kVolume = kFilLfo + kLfoFields,
    kAmplitude,
    kGroupVolume,
    kMasterVolume,
    kGlobalVolume,
    kAmpKeyTrack,
    kAmpKeyCenter,
    kAmpVelTrack,
    kGainWheel,
    kGainTouch,
    kPan,
    kPanKeyTrack,
    kPanKeyCenter,
    kPanCc10,
    kPanRandom,
    kAmpEg,
    kAmpLfo = kAmpEg + kEgFields,
    kEffect1 = kAmpLfo + kLfoFields,
    kEffect2,
    kEffect3,
    kEffect4,
    kEq,
    kOps = kEq + kEqFields * kEqs,
    kKey = kOps, ///< sets three others
    kNoOp
};

enum class ValueKind : std::uint8_t {
    Float,
    Precise, ///< a float of more digits
    Integer,
    Key,
    LoopMode,
    LoopType,
    Curve,
    Trigger,
    FilterType,
    EqType,
    OffMode
};
enum class Generation : std::uint8_t { First, Second };

/// Stands for an opcode that was not given and has no value by default.
inline constexpr double kUnset = -1e30;
/// pitch_keycenter=sample
inline constexpr double kKeyOfSample = -2;

struct OpcodeRow {
    std::string_view name;
    Op op = kNoOp;
    ValueKind kind = ValueKind::Float;
    double defaultValue = 0;
    Generation since = Generation::First;
};
/// Null for opcodes without a place. Any form of a controller's suffix is understood.
const OpcodeRow* FindOpcode(std::string_view name);
/// "depthcc1", "cutoff_cc1", "cutoff_chanaft" with "_oncc" and the number.
std::string Canonical(std::string_view name);
/// The row whose name is written; null for those that are only read.
const OpcodeRow* RowOf(std::size_t op) noexcept;

inline constexpr double kNoLoop = 0, kOneShot = 1, kLoopContinuous = 2, kLoopSustain = 3;
inline constexpr double kLoopForward = 0, kLoopBackward = 1, kLoopAlternate = 2;
inline constexpr double kTriggerAttack = 0, kTriggerRelease = 1, kTriggerReleaseKey = 2;
inline constexpr double kOffFast = 0, kOffNormal = 1, kOffTimed = 2;
inline constexpr double kOffSeconds = 0.006; ///< off_time that is not given
/// Filters of fil_type behind the model's own types 1 to 12.
inline constexpr double kFilPeak = 13, kFilHighShelf = 14, kFilLowShelf = 15;

/// A decimal number, which may begin with "+".
[[nodiscard]] bool ParseNumber(std::string_view text, double& out);
/// The number of a value; false for one that has none.
[[nodiscard]] bool ParseValue(const OpcodeRow& row, std::string_view text, double& out);
/// " name=value".
void AppendOpcode(std::string& out, const OpcodeRow& row, double value);
/// Brings all values to what their written form reads as.
struct Record;
void RoundToText(Record& record);
/// " name=value" of six digits.
void AppendNumber(std::string& out, std::string_view name, double value);
/// MIDI key of "60" or "c#4"; false if it is neither.
[[nodiscard]] bool ParseKey(std::string_view text, double& out);

// Envelopes of any number of points and LFOs of any wave, of the second generation.
inline constexpr std::size_t kMaxFlexPoints = 32;
inline constexpr unsigned kMaxFlex = 64; ///< numbers above are not read
enum FlexTarget : std::size_t { kFlexVolume, kFlexPitch, kFlexCutoff, kFlexPan, kFlexTargets };
struct FlexEnvelope {
    std::array<double, kMaxFlexPoints> seconds{}; ///< from the point before
    std::array<double, kMaxFlexPoints> levels{};
    std::size_t points = 0; ///< the highest that was given, and one
    double sustain = kUnset;
    std::array<double, kFlexTargets> depths{}; ///< volume in %, pitch and cutoff in cents, pan in %
    friend bool operator==(const FlexEnvelope&, const FlexEnvelope&) = default;
};
struct FlexLfo {
    double wave = 1, freq = 0, delay = 0, fade = 0;
    /// By target: fixed, wheel, aftertouch, velocity. Volume in dB, others as above.
    std::array<std::array<double, 4>, kFlexTargets> depths{};
    friend bool operator==(const FlexLfo&, const FlexLfo&) = default;
};

/// The values of one level.
struct Record {
    Record();
    std::array<double, kOps> values;
    std::map<unsigned, FlexEnvelope> envelopes;
    std::map<unsigned, FlexLfo> lfos;
    std::string sample; ///< with its default path; "" for none
    std::string label;  ///< of the group, else of the master

    double& operator[](std::size_t op) { return values[op]; }
    double operator[](std::size_t op) const { return values[op]; }
};
/// Takes "eg1_time2=0.5", "lfo01_pitch_oncc1=20" and the like; false if there is no place for it.
[[nodiscard]] bool TakeFlexOpcode(Record& record, std::string_view name, std::string_view value);

/// " eg01_points=..." and so on; `before` is what the level above holds.
void AppendFlexDifferences(std::string& out, const Record& record, const Record& before);

} // namespace vimbo::sfz
