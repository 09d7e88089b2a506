#include "synth/fm_voice.h"

#include "synth/model_voice.h"

#include <algorithm>

namespace vimbo::synth {
namespace {

constexpr float kQuietestDb = -96, kLoudestDb = 12;
constexpr float kEndPosition = 0.004f; ///< of an envelope: nothing is heard below
constexpr float kHighestKey = 127;

using Frames = std::array<float, kBlockFrames>;

PointSetting SettingOf(const FmEnvelope& envelope, bool isAmplitude, double timeFactor, bool holds,
                       float ticksPerSecond) noexcept
{
    const std::size_t points = std::min<std::size_t>(envelope.points, kFmPoints);
    return {std::span(envelope.point).first(points),
            envelope.startLevel,
            envelope.holdPoint,
            holds && envelope.holdPoint != kNoHold,
            isAmplitude,
            timeFactor,
            ticksPerSecond};
}

PointSetting AmplitudeOf(const Voice& voice, const FmVoice& fm, const VoiceClock& clock,
                         std::size_t i) noexcept
{
    return SettingOf(voice.region->fm->operators[i].envelope, true, fm.operators[i].timeFactor,
                     WaitsForKey(voice), clock.TicksPerSecond());
}

PointSetting PitchOf(const Voice& voice, const FmVoice& fm, const VoiceClock& clock) noexcept
{
    return SettingOf(voice.region->fm->pitchEnvelope, false, fm.pitchTimeFactor, WaitsForKey(voice),
                     clock.TicksPerSecond());
}

/// How far a key lies in a zone: 0 at the break key, 1 at its end and beyond.
float ZoneFraction(float keys, std::uint8_t width, float toTheEnd) noexcept
{
    const float zone = width != 0 ? width : toTheEnd;
    return zone > 0 ? Limited(keys / zone, 0.0f, 1.0f) : 1;
}

/// Straight, or slow at first: 99^f brought to 0..1.
float ZoneShare(float fraction, bool isCurved) noexcept
{
    constexpr double kLog2Of99 = 6.6293566200796095;
    return isCurved ? static_cast<float>((PortableExp2(kLog2Of99 * fraction) - 1) / 98) : fraction;
}

void SetFixedValues(const Voice& voice, FmVoice& fm) noexcept
{
    const FmPatch& patch = *voice.region->fm;
    for (std::size_t i = 0; i < kFmOperators; ++i) {
        FmOperatorState& state = fm.operators[i];
        const FmOperator& op = patch.operators[i];
        state.sources = SourcesOf(patch, i);
        state.levelDb = OperatorLevelDb(op, voice.key, voice.velocity);
        state.baseGain = state.levelDb > kQuietestDb ? DecibelsToGain(state.levelDb) : 0;
        state.timeFactor = KeyTimeFactor(op.keyToTime, voice.key);
    }
    fm.pitchTimeFactor = KeyTimeFactor(patch.pitchKeyToTime, voice.key);
    fm.pitchDepth = patch.pitchDepth * (patch.velocityToPitchEnvelope ? voice.velocity : 1);
}

/// Operators that an edit has switched on start with it.
void StartOperators(Voice& voice, FmVoice& fm, const VoiceClock& clock) noexcept
{
    const FmPatch& patch = *voice.region->fm;
    for (std::size_t i = 0; i < kFmOperators; ++i) {
        FmOperatorState& state = fm.operators[i];
        if (!patch.operators[i].isEnabled || state.envelope.IsStarted())
            continue;
        const PointSetting setting = AmplitudeOf(voice, fm, clock, i);
        state.envelope.Start(setting);
        if (voice.released && !voice.isReleaseTrigger)
            state.envelope.Release(setting);
        state.phase = TurnOf(patch.operators[i].startPhase);
        state.gain = state.baseGain * state.envelope.Gain();
    }
}

void StartLfo(Voice& voice, FmVoice& fm, const VoiceClock& clock) noexcept
{
    const FmPatch& patch = *voice.region->fm;
    const std::array<float, kLfoParams> params{static_cast<float>(patch.lfoShape), patch.lfoHz,
                                               patch.lfoDelay, patch.lfoRamp};
    if (fm.lfoRuns)
        fm.lfo.Edit(params, clock.TicksPerSecond());
    else if (patch.lfoHz > 0)
        fm.lfo.Start(params, clock.TicksPerSecond(), voice.random);
    fm.lfoRuns = patch.lfoHz > 0;
}

/// Semitones of bend, envelope and LFO.
float PitchModulation(const Voice& voice, const FmVoice& fm, float lfo) noexcept
{
    const FmPatch& patch = *voice.region->fm;
    return fm.pitchEnvelope.Value() * fm.pitchDepth +
           voice.pitchBend * PatchBendRange(voice, patch.bendRange) +
           lfo * ModulatedDepth(voice, patch.lfoPitch, patch.wheelLfoPitch, patch.touchLfoPitch);
}

void SetStep(const Voice& voice, const FmOperator& op, FmOperatorState& state, const VoiceClock& clock,
             float modulation) noexcept
{
    const FmPatch& patch = *voice.region->fm;
    const double bent = op.keepsPitch ? 0.0 : modulation;
    double hz = 0;
    if (op.ratio != 0) {
        const double key = voice.key + static_cast<double>(voice.tuningOffset) + patch.transpose;
        hz = op.ratio * kLowestKeyHz * SemitonesToRatio(key + bent) + op.detuneHz;
    } else {
        hz = op.fixedHz * SemitonesToRatio(bent);
    }
    state.step = StepOf(hz / clock.rateHz);
}

float TickGain(const FmOperator& op, FmOperatorState& state, const PointSetting& setting, float lfo) noexcept
{
    state.envelope.Tick(setting);
    float gain = state.baseGain;
    if (op.lfoDb != 0 && gain > 0)
        gain = DecibelsToGain(Limited(state.levelDb + lfo * op.lfoDb, kQuietestDb, kLoudestDb));
    return gain * state.envelope.Gain();
}

/// Cycles by which the sources move the phase.
void SumSources(const FmOperator& op, const FmSources& sources,
                const std::array<Frames, kFmOperators>& outputs, Frames& shift) noexcept
{
    shift.fill(0);
    for (std::size_t n = 0; n < sources.count; ++n) {
        const Frames& from = outputs[sources.index[n]];
        for (std::size_t i = 0; i < kBlockFrames; ++i)
            shift[i] += from[i];
    }
    for (float& value : shift)
        value *= op.modulation;
}

/// One block of an operator whose wave is a function of the phase.
template <class Wave>
void RunWaveform(FmOperatorState& state, float feedback, float target, const Frames& shift, Frames& out,
                 Wave wave) noexcept
{
    const float gainStep = (target - state.gain) / static_cast<float>(kBlockFrames);
    const float start = state.gain;
    const std::uint32_t phase = state.phase, step = state.step;
    constexpr int kFrames = kBlockFrames; // int: converts to float in vectors
    const auto at = [=](int i) { return phase + step * static_cast<std::uint32_t>(i); };
    const auto gainAt = [=](int i) { return start + gainStep * static_cast<float>(i + 1); };
    float* const to = out.data();
    const float* const shifts = shift.data();
    if (!state.sources.isSelf || feedback == 0) {
        for (int i = 0; i < kFrames; ++i)
            to[i] = wave(at(i) + TurnOf(shifts[i])) * gainAt(i);
        state.beforeLast = to[kFrames - 2];
        state.last = to[kFrames - 1];
    } else {
        float last = state.last, beforeLast = state.beforeLast;
        for (int i = 0; i < kFrames; ++i) {
            const float own = (last + beforeLast) * 0.5f * feedback;
            beforeLast = last;
            to[i] = last = wave(at(i) + TurnOf(shifts[i] + own)) * gainAt(i);
        }
        state.last = last;
        state.beforeLast = beforeLast;
    }
    state.phase = at(kFrames);
    state.gain = target;
}

void RunHarmonics(HarmonicShape shape, FmOperatorState& state, float feedback, float target,
                  const Frames& shift, Frames& out) noexcept
{
    const HarmonicSum sum(state.step);
    BandLimitedWave& wave = state.wave;
    const auto run = [&](auto of) { RunWaveform(state, feedback, target, shift, out, of); };
    switch (shape) {
    case HarmonicShape::Saw:
        return run([&](std::uint32_t phase) { return wave.Saw(sum, phase); });
    case HarmonicShape::Triangle:
        return run([&](std::uint32_t phase) { return wave.Triangle(sum, phase); });
    case HarmonicShape::Square:
        return run([&](std::uint32_t phase) { return wave.Square(sum, phase, 0x80000000u); });
    default:
        return run([&](std::uint32_t phase) { return BandLimitedWave::Pulse(sum, phase); });
    }
}

void RunOperator(const FmPatch& patch, const FmOperator& op, FmOperatorState& state, float target,
                 const Frames& shift, Frames& out) noexcept
{
    const auto run = [&](auto of) { RunWaveform(state, op.feedback, target, shift, out, of); };
    switch (op.oscillator) {
    case FmOscillator::Sine:
        return run([](std::uint32_t phase) { return SineOfTurn(phase); });
    case FmOscillator::BandLimited:
        return RunHarmonics(static_cast<HarmonicShape>(op.shape & 3), state, op.feedback, target, shift, out);
    case FmOscillator::Table:
        return run([&](std::uint32_t phase) { return TableShape(op.shape, phase, patch.table); });
    default:
        return run([&](std::uint32_t phase) { return OplShape(op.shape, phase); });
    }
}

/// The phase goes on in silence.
void SkipOperator(FmOperatorState& state, Frames& out) noexcept
{
    out.fill(0);
    state.phase += state.step * static_cast<std::uint32_t>(kBlockFrames);
    state.last = state.beforeLast = 0;
}

bool HasEnded(const FmOperatorState& state) noexcept
{
    return state.envelope.IsBehindLast() && state.envelope.Value() < kEndPosition;
}

bool IsHeard(const FmOperator& op) noexcept
{
    return op.isEnabled && op.isCarrier;
}

/// Peak that the carriers may reach in a block.
float PeakOf(const FmPatch& patch, const FmVoice& fm) noexcept
{
    float peak = 0;
    for (std::size_t i = 0; i < kFmOperators; ++i)
        if (IsHeard(patch.operators[i]))
            peak += fm.operators[i].gain;
    return peak;
}

} // namespace

float OperatorLevelDb(const FmOperator& op, float key, float velocity) noexcept
{
    float db = op.levelDb + VelocityDecibels(velocity, op.velocityDb);
    const auto breakKey = static_cast<float>(op.breakKey);
    if (key < breakKey)
        db += op.leftDb * ZoneShare(ZoneFraction(breakKey - key, op.leftKeys, breakKey), op.leftIsCurved);
    else if (key > breakKey)
        db += op.rightDb *
              ZoneShare(ZoneFraction(key - breakKey, op.rightKeys, kHighestKey - breakKey), op.rightIsCurved);
    return Limited(db, kQuietestDb, kLoudestDb);
}

EnvelopeLength NoteLengthOf(const FmPatch& patch, float key) noexcept
{
    EnvelopeLength length;
    for (const FmOperator& op : patch.operators) {
        if (!IsHeard(op))
            continue;
        const EnvelopeLength one =
            LengthOf(SettingOf(op.envelope, true, KeyTimeFactor(op.keyToTime, key), true, 1));
        length.heldSeconds = std::max(length.heldSeconds, one.heldSeconds);
        length.releaseSeconds = std::max(length.releaseSeconds, one.releaseSeconds);
        length.sustains |= one.sustains;
    }
    return length;
}

void InitFm(Voice& voice, FmVoice& fm, const VoiceClock& clock, bool isNoteOn) noexcept
{
    voice.isStereo = voice.isFiltered = false;
    voice.eqBands = 0;
    voice.panModulation = 0;
    SetFixedValues(voice, fm);
    StartOperators(voice, fm, clock);
    StartLfo(voice, fm, clock);
    if (!isNoteOn)
        return;
    fm.pitchEnvelope.Start(PitchOf(voice, fm, clock));
    SetPatchGain(voice, clock, false, fm.fadeDb);
    voice.gainEstimate = PeakOf(*voice.region->fm, fm);
}

void ReleaseFm(Voice& voice, FmVoice& fm, const VoiceClock& clock) noexcept
{
    for (std::size_t i = 0; i < kFmOperators; ++i)
        if (voice.region->fm->operators[i].isEnabled)
            fm.operators[i].envelope.Release(AmplitudeOf(voice, fm, clock, i));
    fm.pitchEnvelope.Release(PitchOf(voice, fm, clock));
}

void ShutDownFm(Voice&, FmVoice& fm, const VoiceClock&) noexcept
{
    fm.isShutDown = true;
}

void RunFm(Voice& voice, FmVoice& fm, const VoiceClock& clock, StereoBlock& out) noexcept
{
    const FmPatch& patch = *voice.region->fm;
    const float lfo = fm.lfoRuns ? fm.lfo.Tick(voice.random) : 0;
    fm.pitchEnvelope.Tick(PitchOf(voice, fm, clock));
    const float modulation = PitchModulation(voice, fm, lfo);
    const float before = PeakOf(patch, fm);
    out.Clear();
    std::array<Frames, kFmOperators> outputs;
    Frames shift;
    bool isAlive = false;
    for (std::size_t i = 0; i < kFmOperators; ++i) {
        const FmOperator& op = patch.operators[i];
        FmOperatorState& state = fm.operators[i];
        if (!op.isEnabled)
            continue;
        SetStep(voice, op, state, clock, modulation);
        const float target = TickGain(op, state, AmplitudeOf(voice, fm, clock, i), lfo);
        if (state.gain == 0 && target == 0) {
            SkipOperator(state, outputs[i]);
        } else {
            SumSources(op, state.sources, outputs, shift);
            RunOperator(patch, op, state, target, shift, outputs[i]);
        }
        if (!op.isCarrier)
            continue;
        isAlive |= !HasEnded(state);
        for (std::size_t n = 0; n < kBlockFrames; ++n)
            out.left[n] += outputs[i][n];
    }
    voice.gainEstimate = std::max(before, PeakOf(patch, fm));
    if (!SetPatchGain(voice, clock, fm.isShutDown, fm.fadeDb) || !isAlive)
        voice.isDead = true;
}

} // namespace vimbo::synth
