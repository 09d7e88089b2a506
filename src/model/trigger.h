// When a region sounds: ranges of keys and velocities, cross-fades at their edges, and trigger conditions.
#pragma once

#include "base/byte_reader.h"
#include "model/param.h"

#include <array>
#include <compare>
#include <cstdint>

namespace vimbo {

/// A range of keys or velocities, both ends included.
struct MidiRange {
    /// An edge of this value keeps what stands there.
    static constexpr std::uint8_t kKeep = 255;
    std::uint8_t low = 0;
    std::uint8_t high = 127;

    /// From a word with the low edge in the low byte; 0x7F00 is the full range.
    static constexpr MidiRange FromWord(std::uint16_t word) noexcept
    {
        return {static_cast<std::uint8_t>(word & 0xFF), static_cast<std::uint8_t>(word >> 8)};
    }
    constexpr std::uint16_t Word() const noexcept { return static_cast<std::uint16_t>(low | high << 8); }
    constexpr unsigned Width() const noexcept { return high < low ? 0u : high - low + 1u; }
    constexpr bool Contains(unsigned value) const noexcept { return value >= low && value <= high; }
    constexpr bool Contains(MidiRange other) const noexcept { return other.low >= low && other.high <= high; }
    constexpr bool Overlaps(MidiRange other) const noexcept { return low <= other.high && other.low <= high; }
    constexpr bool IsFull() const noexcept { return low == 0 && high == 127; }
    /// Within 0 to 127, the lower edge first.
    constexpr MidiRange Normalized() const noexcept
    {
        const std::uint8_t from = low > 127 ? std::uint8_t{0} : low;
        const std::uint8_t to = high > 127 ? std::uint8_t{127} : high;
        return from <= to ? MidiRange{from, to} : MidiRange{to, from};
    }
    friend constexpr bool operator==(MidiRange, MidiRange) noexcept = default;
};

enum class TriggerKind : std::uint8_t {
    KeyPress = 0,
    KeyRelease = 1,
    FirstAlternate = 2,
    LastAlternate = 17
};
enum class PedalSwitch : std::uint8_t { Ignore = 0, PlayOnDown = 1, PlayOnUp = 2 };
enum class FadeFormula : std::uint8_t { EqualPower = 0, LinearGain = 1 };
enum class NoteExclusion : std::uint8_t { SelfExclusive = 0, NonExclusive = 1 };

/// Values of ids 189 to 203, with a mark for each that was set at this level.
struct TriggerParams {
    MidiRange keys;
    MidiRange velocities;
    std::uint8_t keyFadeIn = 0; ///< fades count keys or velocities from the range's edges inward
    std::uint8_t keyFadeOut = 0;
    std::uint8_t velocityFadeIn = 0;
    std::uint8_t velocityFadeOut = 0;
    std::uint8_t keyFadeFormula = 0;
    std::uint8_t velocityFadeFormula = 0;
    std::uint8_t triggerType = 0; ///< TriggerKind; 2 to 17 are alternate groups 1 to 16
    std::uint8_t pedalSwitch = 0;
    std::uint16_t exclusionGroup = 0; ///< 0: none
    std::uint8_t noteExclusionMode = 0;
    float delaySeconds = 0;
    std::uint64_t marks = 0; ///< bit: id - 189

    static constexpr bool IsId(ParamId id) noexcept
    {
        return id >= kFirstTriggerParam && id <= kLastTriggerParam;
    }
    float Get(ParamId id) const noexcept;
    /// Rounds and clamps by the id's row, stores and marks. Other ids: nothing.
    void Set(ParamId id, float value) noexcept;
    /// The same without a change of the mark.
    void Assign(ParamId id, float value) noexcept;
    bool IsSet(ParamId id) const noexcept { return (marks >> (id - kFirstTriggerParam) & 1) != 0; }
    void Mark(ParamId id) noexcept { marks |= std::uint64_t{1} << (id - kFirstTriggerParam); }
    void Unmark(ParamId id) noexcept { marks &= ~(std::uint64_t{1} << (id - kFirstTriggerParam)); }

    /// Takes the source's values where nothing is marked. @return true if a value changed
    bool InheritFrom(const TriggerParams& source) noexcept;
    /// Marks what differs from the source, so that inheriting from it changes nothing.
    void MarkDifferences(const TriggerParams& source) noexcept;
    /// Unmarks what equals the source. @return true if a mark went
    bool ClearRedundant(const TriggerParams& source) noexcept;
    /// Equal in all values; marks do not count.
    bool SameValues(const TriggerParams& other) const noexcept;
    bool Overlaps(const TriggerParams& other) const noexcept
    {
        return keys.Overlaps(other.keys) && velocities.Overlaps(other.velocities);
    }

    /// A low edge above 127 becomes 0, a high one 127; inverted pairs are swapped; fades fit their range;
    /// list values out of their list become 0; the delay is rounded to 0.001 and limited to 0..100; then what
    /// the mask forbids (cross-fades, trigger type and pedal, delay) becomes 0.
    void Normalize(FeatureMask features) noexcept;
    /// Grows to hold what `other` holds too: the union of the ranges; other fields stay if they are equal and
    /// become their default otherwise.
    void Unite(const TriggerParams& other) noexcept;

    /// 28 bytes, as state files hold them.
    void Serialize(ByteWriter& out) const;
    /// False if the input is short.
    [[nodiscard]] bool Deserialize(ByteReader& in) noexcept;

    friend bool operator==(const TriggerParams&, const TriggerParams&) noexcept = default;
};

/// Where the gain of a cross-faded range rises and falls: full from `fullLow` to `fullHigh`, rising from
/// `low` to `fullLow`, falling from `fullHigh` to `high`. All ends included, 0 to 127. A fade of `w` steps is
/// centred on the range's edge, so that neighbours with equal fades add up to 1.
struct FadeRange {
    std::uint8_t low, fullLow, fullHigh, high;
    FadeFormula formula;
    /// Steps of the fades beyond 0 and 127: the curves go on as if there were such keys.
    std::uint8_t cutLow = 0, cutHigh = 0;
    friend auto operator<=>(const FadeRange&, const FadeRange&) = default;
    /// Gain 0 to 1 at a key or velocity; 0 outside.
    float GainAt(unsigned value) const noexcept;
};
struct CrossFade {
    FadeRange keys, velocities;
};
CrossFade CrossFadeRanges(const TriggerParams& trigger) noexcept;

} // namespace vimbo
