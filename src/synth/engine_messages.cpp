// What MIDI messages do to a channel.
#include "synth/engine.h"

#include <algorithm>

namespace vimbo::synth {
namespace {

// How many ticks a ramp over the full range takes, by kind of value, in units of 1/40 second.
constexpr double kFullRamp = 1, kHalfRamp = 0.5, kVolumeRamp = 1.0 / 96;

enum Controller : unsigned {
    kBankMsb = 0,
    kModWheel = 1,
    kPortamentoTime = 5,
    kDataMsb = 6,
    kVolume = 7,
    kPan = 10,
    kExpression = 11,
    kBankLsb = 32,
    kModWheelLsb = 33,
    kPortamentoTimeLsb = 37,
    kDataLsb = 38,
    kVolumeLsb = 39,
    kPanLsb = 42,
    kExpressionLsb = 43,
    kSustain = 64,
    kPortamento = 65,
    kSostenuto = 66,
    kSoft = 67,
    kReverbSend = 91,
    kChorusSend = 93,
    kDataIncrement = 96,
    kDataDecrement = 97,
    kRpnLsb = 100,
    kRpnMsb = 101,
    kAllSoundOff = 120,
    kResetAll = 121,
    kAllNotesOff = 123,
    kMonoMode = 126,
    kPolyMode = 127,
    kDrumFlag = 128 ///< made by song preparation, never sent by MIDI
};

constexpr unsigned kRpnBendRange = 0, kRpnFineTuning = 1, kRpnCoarseTuning = 2, kRpnLastMsbOnly = 4,
                   kRpnNull = 16383;
constexpr unsigned kMidiMax = 127;
constexpr unsigned kSwitchOn = 64;

constexpr float ToUnit(unsigned value) noexcept
{
    return static_cast<float>(value) / 127;
}

/// -1 to 1 exactly, with the centre at 0: `centre` steps below, one less above.
constexpr float ToBipolar(unsigned value, unsigned centre) noexcept
{
    const int distance = static_cast<int>(value) - static_cast<int>(centre);
    return static_cast<float>(distance + (distance < 0 ? 1 : 0)) / static_cast<float>(centre - 1);
}

/// A controller of volume as an amplitude; with an LSB the scale is that of 127 squared.
float VolumeFactor(unsigned msb, unsigned lsb) noexcept
{
    const float part = lsb == kNeverSent ? ToUnit(msb) : static_cast<float>(msb * 128 + lsb) / (127.0f * 127);
    return part * part;
}

} // namespace

void SynthEngine::Dispatch(SynthEvent event) noexcept
{
    const unsigned channel = event.Channel();
    if (channel >= channels_.size())
        return;
    ChannelState& state = channels_[channel];
    // Controllers have one number beyond MIDI's.
    const unsigned data1 = event.Data1(), data2 = std::min(event.Data2(), kMidiMax);
    if (data1 > kMidiMax && !(event.Status() == 0xB0 && data1 == kDrumFlag))
        return;
    switch (event.Status()) {
    case 0x80:
        NoteOff(channel, data1);
        break;
    case 0x90:
        if (data2 == 0)
            NoteOff(channel, data1);
        else
            NoteOn(channel, false, data1, data2);
        break;
    case 0xA0:
        for (std::uint16_t g = state.firstGroup; g != kNoIndex; g = groups_[g].next)
            for (std::uint16_t v = groups_[g].key == data1 ? groups_[g].firstVoice : kNoIndex; v != kNoIndex;
                 v = voices_[v].nextInGroup)
                voices_[v].aftertouch = ToUnit(data2);
        break;
    case 0xB0:
        Control(state, channel, data1, data2);
        break;
    case 0xC0:
        ChangeProgram(state, channel, data1);
        break;
    case 0xD0:
        GlideTo(state, state.aftertouch, ToUnit(data1), kFullRamp);
        break;
    case 0xE0:
        SetPitchBend(state, data1, data2);
        break;
    default: // system messages
        break;
    }
}

/// At once if nothing sounds.
void SynthEngine::GlideTo(ChannelState& state, Ramp& ramp, float target, double factor) noexcept
{
    if (!state.HasGroups()) {
        ramp.Set(target);
        return;
    }
    ramp.GlideTo(target, rampUnit_ * factor);
    state.rampsRun = true;
}

void SynthEngine::SetPitchBend(ChannelState& state, unsigned lsb, unsigned msb) noexcept
{
    int bend = (static_cast<int>(msb) - 64) * 128 + static_cast<int>(lsb);
    if (bend >= 1)
        ++bend;
    GlideTo(state, state.pitchBend, static_cast<float>(bend) / 8192, kHalfRamp);
}

void SynthEngine::Control(ChannelState& state, unsigned channel, unsigned controller, unsigned value) noexcept
{
    ControllerMemory& memory = state.memory;
    const auto byte = static_cast<std::uint8_t>(value);
    const bool isOn = value >= kSwitchOn;
    switch (controller) {
    case kBankMsb:
        return memory.location.SetBankMsb(value);
    case kBankLsb:
        return memory.location.SetBankLsb(value);
    case kModWheel:
        memory.modWheel = byte;
        return SetModWheel(state);
    case kModWheelLsb:
        memory.modWheelLsb = byte;
        return SetModWheel(state);
    case kPortamentoTime:
    case kPortamentoTimeLsb: {
        (controller == kPortamentoTime ? memory.portamentoTime : memory.portamentoTimeLsb) = byte;
        const double time = memory.portamentoTime * 128 + memory.portamentoTimeLsb + 1;
        // exp(x * 0.00027076062) * 0.005
        state.portamentoSeconds =
            static_cast<float>(PortableExp2(time * 0.00027076062 * 1.4426950408889634) * 0.005);
        return;
    }
    case kDataMsb:
        memory.dataMsb = byte;
        return EnterData(state);
    case kDataLsb:
        memory.dataLsb = byte;
        return EnterData(state);
    case kDataIncrement:
        return StepData(state, true);
    case kDataDecrement:
        return StepData(state, false);
    case kVolume:
        memory.volume = byte;
        return SetVolume(state);
    case kVolumeLsb:
        memory.volumeLsb = byte;
        return SetVolume(state);
    case kExpression:
        memory.expression = byte;
        return SetVolume(state);
    case kExpressionLsb:
        memory.expressionLsb = byte;
        return SetVolume(state);
    case kPan:
        memory.pan = byte;
        return SetPan(state);
    case kPanLsb:
        memory.panLsb = byte;
        return SetPan(state);
    case kSustain:
        return SetSustain(state, isOn);
    case kPortamento:
        state.portamento = isOn;
        return;
    case kSostenuto:
        return SetSostenuto(state, isOn);
    case kSoft:
        return SetSoft(state, isOn);
    case kReverbSend:
        return GlideTo(state, state.sends[0], ToUnit(value), kFullRamp);
    case kChorusSend:
        return GlideTo(state, state.sends[1], ToUnit(value), kFullRamp);
    case kRpnLsb:
        memory.rpnLsb = byte;
        return;
    case kRpnMsb:
        memory.rpnMsb = byte;
        return;
    case kAllSoundOff:
        return KillChannel(state);
    case kResetAll:
        return ResetControllers(state, channel);
    case kAllNotesOff:
        for (std::uint16_t g = state.firstGroup; g != kNoIndex; g = groups_[g].next)
            ReleaseGroup(g, false);
        return;
    case kMonoMode:
    case kPolyMode:
        state.mono = controller == kMonoMode;
        return KeepFirstGroup(state);
    case kDrumFlag:
        return memory.location.SetDrum(isOn);
    default:
        return;
    }
}

void SynthEngine::SetModWheel(ChannelState& state) noexcept
{
    const ControllerMemory& memory = state.memory;
    const float value = memory.modWheelLsb == kNeverSent
                            ? ToUnit(memory.modWheel)
                            : static_cast<float>(memory.modWheel * 128 + memory.modWheelLsb) * 6.200012e-5f;
    GlideTo(state, state.modWheel, value, kFullRamp);
}

void SynthEngine::SetVolume(ChannelState& state) noexcept
{
    const ControllerMemory& memory = state.memory;
    const float volume =
        VolumeFactor(memory.volume, memory.volumeLsb) * VolumeFactor(memory.expression, memory.expressionLsb);
    GlideTo(state, state.volume, volume, kVolumeRamp);
}

void SynthEngine::SetPan(ChannelState& state) noexcept
{
    const ControllerMemory& memory = state.memory;
    const float pan = memory.panLsb == kNeverSent ? ToBipolar(memory.pan, 64)
                                                  : ToBipolar(memory.pan * 128u + memory.panLsb, 8192);
    GlideTo(state, state.pan, pan, kHalfRamp);
}

void SynthEngine::StepData(ChannelState& state, bool isUp) noexcept
{
    ControllerMemory& memory = state.memory;
    const unsigned rpn = memory.rpnMsb * 128u + memory.rpnLsb;
    if (rpn >= kRpnCoarseTuning && rpn <= kRpnLastMsbOnly) {
        if (isUp ? memory.dataMsb < kMidiMax : memory.dataMsb > 0)
            memory.dataMsb = static_cast<std::uint8_t>(memory.dataMsb + (isUp ? 1 : -1));
    } else {
        const unsigned lsb = std::min<unsigned>(memory.dataLsb, kMidiMax);
        const int value = static_cast<int>(memory.dataMsb * 128u + lsb) + (isUp ? 1 : -1);
        const int limited = std::clamp(value, 0, 16383);
        memory.dataMsb = static_cast<std::uint8_t>(limited / 128);
        memory.dataLsb = static_cast<std::uint8_t>(limited % 128);
    }
    EnterData(state);
}

/// The registered parameter takes the data. An LSB that was never sent counts as 255.
void SynthEngine::EnterData(ChannelState& state) noexcept
{
    const ControllerMemory& memory = state.memory;
    const int msb = memory.dataMsb, lsb = memory.dataLsb;
    switch (memory.rpnMsb * 128u + memory.rpnLsb) {
    case kRpnBendRange:
        state.bendRange = static_cast<float>(msb) + static_cast<float>(lsb) * 0.01f;
        break;
    case kRpnFineTuning:
        state.fineTuning = static_cast<float>((msb - 64) * 128 + lsb) / 8192;
        break;
    case kRpnCoarseTuning:
        state.coarseTuning = msb - 64;
        break;
    case kRpnNull:
        state.bendRange = kUnsetBendRange;
        state.fineTuning = 0;
        state.coarseTuning = 0;
        break;
    default:
        break;
    }
}

void SynthEngine::SetSustain(ChannelState& state, bool isDown) noexcept
{
    state.sustain = isDown;
    if (!isDown)
        ReleaseHeld(state);
}

void SynthEngine::SetSostenuto(ChannelState& state, bool isDown) noexcept
{
    for (std::uint16_t g = state.firstGroup; g != kNoIndex; g = groups_[g].next)
        groups_[g].isSostenutoHeld = isDown && !groups_[g].isReleaseTrigger;
    if (!isDown)
        ReleaseHeld(state);
}

/// Notes that sound keep the softness that they have when the pedal goes up.
void SynthEngine::SetSoft(ChannelState& state, bool isDown) noexcept
{
    state.soft = isDown;
    if (!isDown)
        return;
    for (std::uint16_t g = state.firstGroup; g != kNoIndex; g = groups_[g].next)
        for (std::uint16_t v = groups_[g].firstVoice; v != kNoIndex; v = voices_[v].nextInGroup)
            voices_[v].softPedal = true;
}

void SynthEngine::KeepFirstGroup(ChannelState& state) noexcept
{
    while (state.firstGroup != state.lastGroup)
        KillGroup(state.lastGroup);
}

void SynthEngine::ResetControllers(ChannelState& state, unsigned channel) noexcept
{
    ControllerMemory& memory = state.memory;
    memory.volume = 100;
    memory.expression = 127;
    memory.modWheel = 0;
    memory.volumeLsb = memory.expressionLsb = memory.modWheelLsb = memory.panLsb = kNeverSent;
    Control(state, channel, kVolume, memory.volume);
    Control(state, channel, kExpression, memory.expression);
    Control(state, channel, kModWheel, memory.modWheel);
    Control(state, channel, kSustain, 0);
    Control(state, channel, kPortamento, 0);
    Control(state, channel, kSostenuto, 0);
    SetPitchBend(state, 0, 64);
    GlideTo(state, state.aftertouch, 0, kFullRamp);
}

void SynthEngine::ChangeProgram(ChannelState& state, unsigned channel, unsigned program) noexcept
{
    state.memory.location.SetProgram(program);
    const SynthInstrument* found = instruments_.FindNearest(state.memory.location);
    if (!found || found == state.instrument)
        return;
    SetEffects(channel, *found);
    state.instrument = found;
}

} // namespace vimbo::synth
