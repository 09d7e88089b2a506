// What MIDI has set on one channel.
#pragma once

#include "synth/synth_instrument.h"
#include "synth/voice.h"

#include <array>
#include <cstdint>

namespace vimbo::synth {

/// A value that moves to its target in steps of one tick.
class Ramp {
public:
    explicit constexpr Ramp(float value = 0) noexcept : value_(value), target_(value) {}
    constexpr float Value() const noexcept { return value_; }
    constexpr float Target() const noexcept { return target_; }
    constexpr bool IsRunning() const noexcept { return ticksLeft_ != 0; }

    constexpr void Set(float value) noexcept
    {
        value_ = target_ = value;
        ticksLeft_ = 0;
    }
    /// Takes |target - value| * `ticksPerUnit` ticks, at least one; a running ramp is replaced.
    constexpr void GlideTo(float target, double ticksPerUnit) noexcept
    {
        if (!IsRunning() && target == value_)
            return;
        const float distance = target - value_;
        const double ticks = (distance < 0 ? -distance : distance) * ticksPerUnit;
        ticksLeft_ = ticks >= kLongest ? kLongest : ticks < 1 ? 1 : static_cast<std::uint32_t>(ticks);
        step_ = distance / static_cast<float>(ticksLeft_);
        target_ = target;
    }
    /// @return true if the value moved
    constexpr bool Step() noexcept
    {
        if (ticksLeft_ == 0)
            return false;
        value_ = --ticksLeft_ == 0 ? target_ : value_ + step_;
        return true;
    }

private:
    static constexpr std::uint32_t kLongest = 1u << 30;
    float value_, target_, step_ = 0;
    std::uint32_t ticksLeft_ = 0;
};

/// An LSB that was never sent: the controller then counts in 7 bits.
inline constexpr std::uint8_t kNeverSent = 255;

/// Controllers as they were sent, whatever the engine makes of them.
struct ControllerMemory {
    MidiLocation location;
    std::uint8_t volume = 100, expression = 127, modWheel = 0, pan = 64;
    std::uint8_t volumeLsb = kNeverSent, expressionLsb = kNeverSent, modWheelLsb = kNeverSent,
                 panLsb = kNeverSent;
    std::uint8_t rpnMsb = 0, rpnLsb = kNeverSent;
    std::uint8_t dataMsb = 0, dataLsb = kNeverSent;
    std::uint8_t portamentoTime = 1, portamentoTimeLsb = kNeverSent;
};

inline constexpr std::size_t kRoundRobinGroups = 16;
inline constexpr unsigned kChannelsPerPort = 16;
inline constexpr unsigned kDrumChannel = 9; ///< of each port

struct ChannelState {
    const SynthInstrument* instrument = nullptr;
    ControllerMemory memory;

    Ramp volume{0.6200012f}; ///< (100 / 127)^2
    Ramp aftertouch, modWheel, pitchBend, pan;
    std::array<Ramp, kSends> sends; ///< values of controllers 91 and 93; nothing drives the others
    Ramp glideKey;
    float bendRange = kUnsetBendRange;  ///< semitones
    float portamentoSeconds = 0.00875f; ///< for one semitone
    float fineTuning = 0;               ///< semitones
    int coarseTuning = 0;               ///< semitones
    bool sustain = false, soft = false, portamento = false, mono = false;
    bool rampsRun = false;
    std::array<std::uint8_t, kRoundRobinGroups> roundRobin{};

    std::uint16_t firstGroup = kNoIndex, lastGroup = kNoIndex; ///< in the order of their notes
    bool HasGroups() const noexcept { return firstGroup != kNoIndex; }
};

} // namespace vimbo::synth
