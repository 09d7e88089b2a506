#include "synth/la_voice.h"

#include "synth/model_voice.h"

#include <algorithm>

namespace vimbo::synth {
namespace {

constexpr float kQuietestDb = -96, kLoudestDb = 12;
constexpr float kFinishedPosition = 1 - 75.0f / 96; ///< -75 dB: a level that ends a partial
constexpr float kMostLfoPitch = 6;                  ///< semitones
constexpr float kNarrowestPulse = 0.01f;
constexpr float kMiddleC = 60;

struct Frames {
    alignas(32) float data[kBlockFrames];
};

PointSetting SettingOf(const LaEnvelope& envelope, bool isAmplitude, double timeFactor, bool holds,
                       float ticksPerSecond) noexcept
{
    return {envelope.point, envelope.startLevel, kLaHoldPoint,  holds,
            isAmplitude,    timeFactor,          ticksPerSecond};
}

const LaPartial& PartialOf(const Voice& voice, std::size_t i) noexcept
{
    return voice.region->la->patch.partials[i];
}

const LaWave& WaveOf(const Voice& voice, const LaPartialState& state) noexcept
{
    return voice.region->la->waves[state.waveIndex];
}

PointSetting LevelOf(const Voice& voice, const LaVoice& la, const VoiceClock& clock, std::size_t i) noexcept
{
    return SettingOf(PartialOf(voice, i).levelEnvelope, true, la.partials[i].levelTimeFactor,
                     WaitsForKey(voice), clock.TicksPerSecond());
}

PointSetting FilterOf(const Voice& voice, const LaVoice& la, const VoiceClock& clock, std::size_t i) noexcept
{
    return SettingOf(PartialOf(voice, i).filterEnvelope, false, la.partials[i].filterTimeFactor,
                     WaitsForKey(voice), clock.TicksPerSecond());
}

PointSetting PitchOf(const Voice& voice, const LaVoice& la, const VoiceClock& clock) noexcept
{
    return SettingOf(voice.region->la->patch.pitchEnvelope, false, la.pitchTimeFactor, WaitsForKey(voice),
                     clock.TicksPerSecond());
}

float BiasAt(const LaBias& bias, float key) noexcept
{
    const float beyond =
        bias.isAbove ? key - static_cast<float>(bias.key) : static_cast<float>(bias.key) - key;
    return beyond > 0 ? bias.perOctave * beyond / 12 : 0;
}

double LevelTimeFactor(const LaPartial& partial, float key, float bipolarVelocity) noexcept
{
    const double byVelocity =
        partial.velocityToTime == 1 ? 1 : PortablePower(partial.velocityToTime, bipolarVelocity * 0.5);
    return KeyTimeFactor(partial.keyToTime, key) * byVelocity;
}

void SetFixedValues(const Voice& voice, const LaPartial& partial, LaPartialState& state,
                    float velocity) noexcept
{
    const float key = voice.key, keys = key - kMiddleC;
    state.levelDb = partial.levelDb + VelocityDecibels(voice.velocity, partial.velocityDb);
    for (const LaBias& bias : partial.levelBias)
        state.levelDb += BiasAt(bias, key);
    state.semitones = kMiddleC + keys * partial.keyFollow + partial.coarse + partial.fine * 0.01f;
    if (partial.isPcm)
        state.semitones -= WaveOf(voice, state).rootKey;
    state.pitchDepth = partial.pitchDepth + velocity * partial.velocityPitchDepth;
    state.filterDepth = Limited(partial.filterDepth + velocity * partial.velocityFilterDepth, -48.0f, 48.0f);
    state.cutoff = partial.cutoff + keys * partial.cutoffKeyFollow + BiasAt(partial.filterBias, key);
    state.resonanceDb = ResonanceDb(partial);
    state.filterGain = DecibelsToGain(state.resonanceDb * -0.5f);
    state.levelTimeFactor = LevelTimeFactor(partial, key, velocity);
    state.filterTimeFactor = KeyTimeFactor(partial.filterKeyToTime, key);
    state.lastCutoff = std::numeric_limits<float>::quiet_NaN();
}

float GainOf(const Voice& voice, const LaPartial& partial, const LaPartialState& state, float moreDb) noexcept
{
    const float db = Limited(state.levelDb + moreDb, kQuietestDb, kLoudestDb);
    const float waveGain = partial.isPcm ? WaveOf(voice, state).gain : 1;
    return db > kQuietestDb ? DecibelsToGain(db) * state.level.Gain() * waveGain : 0;
}

/// Partials that an edit has switched on start with it.
void StartPartial(Voice& voice, LaVoice& la, const VoiceClock& clock, std::size_t i) noexcept
{
    LaPartialState& state = la.partials[i];
    const PointSetting level = LevelOf(voice, la, clock, i), filter = FilterOf(voice, la, clock, i);
    state.isStarted = true;
    state.level.Start(level);
    state.filter.Start(filter);
    if (voice.released && !voice.isReleaseTrigger) {
        state.level.Release(level);
        state.filter.Release(filter);
    }
    state.gain = GainOf(voice, PartialOf(voice, i), state, 0);
    state.player.Start(WaveOf(voice, state).sound);
}

void PreparePartial(Voice& voice, LaVoice& la, const VoiceClock& clock, std::size_t i, bool isNoteOn) noexcept
{
    const LaPartial& partial = PartialOf(voice, i);
    LaPartialState& state = la.partials[i];
    state.waveIndex = static_cast<std::uint8_t>(WaveAtKey(voice.region->la->patch, i, voice.key));
    SetFixedValues(voice, partial, state, la.velocity);
    if (!partial.isEnabled || state.isFinished)
        return;
    if (!state.isStarted)
        StartPartial(voice, la, clock, i);
    else if (!isNoteOn && partial.isPcm)
        state.player.Edit(WaveOf(voice, state).sound, voice.released);
}

std::array<float, kLfoParams> LfoParamsOf(const LaLfo& lfo) noexcept
{
    constexpr std::array kShapes{OscillatorShape::Triangle, OscillatorShape::Sine, OscillatorShape::Square,
                                 OscillatorShape::Noise};
    return {static_cast<float>(kShapes[static_cast<std::size_t>(lfo.shape)]), lfo.hz, lfo.delay, lfo.ramp};
}

void StartLfo(Voice& voice, LaVoice& la, const VoiceClock& clock, std::size_t n) noexcept
{
    const LaLfo& lfo = voice.region->la->patch.lfos[n];
    if (lfo.hz > 0)
        la.lfos[n].Start(LfoParamsOf(lfo), clock.TicksPerSecond(), voice.random);
    la.lfoRuns[n] = lfo.hz > 0;
}

void EditLfo(Voice& voice, LaVoice& la, const VoiceClock& clock, std::size_t n) noexcept
{
    if (la.lfoRuns[n])
        la.lfos[n].Edit(LfoParamsOf(voice.region->la->patch.lfos[n]), clock.TicksPerSecond());
    else
        StartLfo(voice, la, clock, n);
}

/// Active bands move to the front.
void SetEq(Voice& voice, const VoiceClock& clock) noexcept
{
    voice.eqBands = 0;
    for (const LaEq& eq : voice.region->la->patch.eq)
        if (eq.gainDb != 0)
            voice.eq[voice.eqBands++] =
                ComputeBiquad(static_cast<EqMode>(eq.mode), eq.hz / clock.rateHz, eq.gainDb, eq.q);
}

/// Stage of the TVA that LFOs may follow: the first partial's.
unsigned TvaStage(const Voice& voice, const LaVoice& la) noexcept
{
    return la.partials[PartialOf(voice, 0).isEnabled ? 0 : 1].level.Stage();
}

using LfoValues = std::array<float, kLaLfos>;

LfoValues TickLfos(Voice& voice, LaVoice& la, const VoiceClock& clock) noexcept
{
    const LaPatch& patch = voice.region->la->patch;
    const unsigned stage = TvaStage(voice, la);
    LfoValues values{};
    for (std::size_t n = 0; n < kLaLfos; ++n) {
        const LaLfo& lfo = patch.lfos[n];
        if (lfo.mode == LaLfoMode::TvaStage && stage != la.tvaStage && stage == lfo.stage)
            StartLfo(voice, la, clock, n);
        if (la.lfoRuns[n])
            values[n] = la.lfos[n].Tick(voice.random);
    }
    la.tvaStage = static_cast<std::uint8_t>(stage);
    return values;
}

double PitchOfPartial(const Voice& voice, const LaVoice& la, const LaPartial& partial,
                      const LaPartialState& state, const LfoValues& lfos) noexcept
{
    const float depth = ModulatedDepth(voice, partial.lfoPitch, partial.wheelLfoPitch, partial.touchLfoPitch);
    const float lfo = Limited(lfos[partial.pitchLfo] * depth, -kMostLfoPitch, kMostLfoPitch);
    const float bend =
        partial.ignoresBend ? 0 : voice.pitchBend * PatchBendRange(voice, voice.region->la->patch.bendRange);
    return static_cast<double>(state.semitones) + voice.tuningOffset +
           la.pitchEnvelope.Value() * state.pitchDepth + lfo + bend;
}

void RunOscillator(const Voice& voice, const LaPartial& partial, LaPartialState& state,
                   const VoiceClock& clock, double pitch, const LfoValues& lfos, Frames& out) noexcept
{
    const std::uint32_t step = StepOf(kLowestKeyHz * SemitonesToRatio(pitch) / clock.rateHz);
    const HarmonicSum sum(step);
    if (partial.waveform == LaWaveform::Saw) {
        for (float& value : out.data) {
            value = state.wave.Saw(sum, state.phase);
            state.phase += step;
        }
        return;
    }
    const float width = partial.pulseWidth + (voice.velocity - 1) * partial.velocityPulse +
                        voice.aftertouch * partial.touchPulse + lfos[partial.pulseLfo] * partial.lfoPulse;
    const std::uint32_t share = TurnOf(PulseShare(width, partial.pulseSensitivity));
    for (float& value : out.data) {
        value = state.wave.Square(sum, state.phase, share);
        state.phase += step;
    }
}

/// How far the filter has faded out at its upper end, where its recursion would lift the octaves below: 0 at
/// a quarter of the output rate, 1 at four tenths.
float OpennessOf(float cutoff, const VoiceClock& clock) noexcept
{
    constexpr float kOctaves = 0.67807191f; // log2(0.4 / 0.25)
    const auto top = static_cast<float>(PortableLog2(clock.rateHz * 0.25 / kLowestKeyHz));
    return Limited((cutoff / 12 - top) / kOctaves, 0.0f, 1.0f);
}

void RunFilter(const Voice& voice, const LaPartial& partial, LaPartialState& state, const VoiceClock& clock,
               const LfoValues& lfos, Frames& frames) noexcept
{
    const VoiceFilterKind kind =
        partial.filterIsGentle ? VoiceFilterKind::LowPass12 : VoiceFilterKind::LowPass24;
    const float cutoff = state.cutoff + state.filter.Value() * state.filterDepth +
                         lfos[partial.filterLfo] * partial.lfoCutoff + voice.aftertouch * partial.touchCutoff;
    if (cutoff != state.lastCutoff) {
        state.lastCutoff = cutoff;
        state.filterCoefs = ComputeVoiceFilter(kind, kLowestKeyHz / clock.rateHz,
                                               Limited(cutoff, 0.0f, 200.0f), state.resonanceDb);
        state.openness = OpennessOf(cutoff, clock);
    }
    Frames filtered;
    for (std::size_t i = 0; i < kBlockFrames; ++i)
        filtered.data[i] = frames.data[i] * state.filterGain;
    const FilterLane lane{filtered.data, &state.filterCoefs, &state.filterState};
    RunVoiceFilter(kind, {&lane, 1});
    for (std::size_t i = 0; i < kBlockFrames; ++i)
        frames.data[i] = filtered.data[i] + (frames.data[i] - filtered.data[i]) * state.openness;
}

void ReadWave(const Voice& voice, LaPartialState& state, const VoiceClock& clock, double pitch,
              Frames& out) noexcept
{
    const WaveSound& sound = WaveOf(voice, state).sound;
    if (!sound.sample) {
        std::ranges::fill(out.data, 0.0f);
        return;
    }
    const double rate = sound.sample->RateHz() / clock.rateHz * SemitonesToRatio(pitch);
    if (sound.sample->Channels() == 1) {
        state.player.Read(sound, rate, voice.released, out.data);
        return;
    }
    Frames right;
    state.player.Read(sound, rate, voice.released, out.data, right.data);
    for (std::size_t i = 0; i < kBlockFrames; ++i)
        out.data[i] = (out.data[i] + right.data[i]) * 0.5f;
}

void ApplyGain(LaPartialState& state, float target, Frames& frames) noexcept
{
    const float start = state.gain, step = (target - start) / static_cast<float>(kBlockFrames);
    for (std::size_t i = 0; i < kBlockFrames; ++i)
        frames.data[i] *= start + step * static_cast<float>(i + 1);
    state.gain = target;
}

bool HasWaveEnded(const Voice& voice, const LaPartial& partial, const LaPartialState& state) noexcept
{
    return partial.isPcm && (!WaveOf(voice, state).sound.sample || state.player.HasEnded());
}

/// One partial's block; silence from one that is not there.
void RunPartial(Voice& voice, LaVoice& la, const VoiceClock& clock, std::size_t i, const LfoValues& lfos,
                Frames& out) noexcept
{
    const LaPartial& partial = PartialOf(voice, i);
    LaPartialState& state = la.partials[i];
    if (!partial.isEnabled || state.isFinished) {
        std::ranges::fill(out.data, 0.0f);
        return;
    }
    state.level.Tick(LevelOf(voice, la, clock, i));
    state.filter.Tick(FilterOf(voice, la, clock, i));
    const double pitch = PitchOfPartial(voice, la, partial, state, lfos);
    if (partial.isPcm) {
        ReadWave(voice, state, clock, pitch, out);
    } else {
        RunOscillator(voice, partial, state, clock, pitch, lfos, out);
        RunFilter(voice, partial, state, clock, lfos, out);
    }
    const float moreDb = voice.aftertouch * partial.touchLevel + lfos[partial.levelLfo] * partial.lfoLevel;
    ApplyGain(state, GainOf(voice, partial, state, moreDb), out);
    state.isFinished = (state.level.IsBehindLast() && state.level.Value() <= kFinishedPosition) ||
                       HasWaveEnded(voice, partial, state);
}

void Combine(const LaPatch& patch, const Frames& a, const Frames& b, StereoBlock& out) noexcept
{
    const float gainA = std::min(1.0f, 1 - patch.balance), gainB = std::min(1.0f, 1 + patch.balance);
    switch (patch.structure) {
    case LaStructure::Mix:
        for (std::size_t i = 0; i < kBlockFrames; ++i)
            out.left[i] = a.data[i] * gainA + b.data[i] * gainB;
        break;
    case LaStructure::MixRing:
        for (std::size_t i = 0; i < kBlockFrames; ++i)
            out.left[i] = a.data[i] * gainA + a.data[i] * b.data[i] * gainB;
        break;
    case LaStructure::Ring:
        for (std::size_t i = 0; i < kBlockFrames; ++i)
            out.left[i] = a.data[i] * b.data[i];
        break;
    case LaStructure::Stereo:
        for (std::size_t i = 0; i < kBlockFrames; ++i) {
            out.left[i] = a.data[i] * gainA;
            out.right[i] = b.data[i] * gainB;
        }
        break;
    }
}

float LoudestGain(const LaVoice& la) noexcept
{
    return la.partials[0].gain + la.partials[1].gain;
}

} // namespace

float PulseShare(float width, float sensitivity) noexcept
{
    width = Limited(width, 0.0f, 1.0f);
    if (width <= 0.5f)
        return 0.5f;
    return std::max(kNarrowestPulse, 0.5f * static_cast<float>(PortableExp2((width - 0.5f) * sensitivity)));
}

EnvelopeLength NoteLengthOf(const LaProgram& program, float key, float velocity) noexcept
{
    EnvelopeLength length;
    for (std::size_t i = 0; i < kLaPartials; ++i) {
        const LaPartial& partial = program.patch.partials[i];
        const WaveSound& sound = program.waves[WaveAtKey(program.patch, i, key)].sound;
        if (!partial.isEnabled || (partial.isPcm && !sound.sample))
            continue;
        const double factor = LevelTimeFactor(partial, key, BipolarVelocity(velocity));
        EnvelopeLength one = LengthOf(SettingOf(partial.levelEnvelope, true, factor, true, 1));
        if (partial.isPcm && sound.loopType == LoopType::Off) {
            const double semitones = kMiddleC + (key - kMiddleC) * partial.keyFollow + partial.coarse -
                                     program.waves[WaveAtKey(program.patch, i, key)].rootKey;
            const double seconds =
                sound.sample->Frames() / (sound.sample->RateHz() * SemitonesToRatio(semitones));
            one.heldSeconds = one.sustains ? seconds : std::min(one.heldSeconds, seconds);
            one.sustains = false;
        }
        length.heldSeconds = std::max(length.heldSeconds, one.heldSeconds);
        length.releaseSeconds = std::max(length.releaseSeconds, one.releaseSeconds);
        length.sustains |= one.sustains;
    }
    return length;
}

void InitLa(Voice& voice, LaVoice& la, const VoiceClock& clock, bool isNoteOn) noexcept
{
    const LaPatch& patch = voice.region->la->patch;
    voice.isStereo = patch.structure == LaStructure::Stereo;
    voice.isFiltered = false;
    voice.panModulation = 0;
    la.velocity = BipolarVelocity(voice.velocity);
    la.pitchTimeFactor = KeyTimeFactor(patch.pitchKeyToTime, voice.key);
    for (std::size_t i = 0; i < kLaPartials; ++i)
        PreparePartial(voice, la, clock, i, isNoteOn);
    for (std::size_t n = 0; n < kLaLfos; ++n)
        EditLfo(voice, la, clock, n);
    SetEq(voice, clock);
    if (!isNoteOn)
        return;
    la.tvaStage = static_cast<std::uint8_t>(TvaStage(voice, la));
    la.pitchEnvelope.Start(PitchOf(voice, la, clock));
    SetPatchGain(voice, clock, false, la.fadeDb);
    voice.gainEstimate = LoudestGain(la);
}

void ReleaseLa(Voice& voice, LaVoice& la, const VoiceClock& clock) noexcept
{
    for (std::size_t i = 0; i < kLaPartials; ++i) {
        LaPartialState& state = la.partials[i];
        if (!state.isStarted)
            continue;
        state.level.Release(LevelOf(voice, la, clock, i));
        state.filter.Release(FilterOf(voice, la, clock, i));
        state.player.Release();
    }
    la.pitchEnvelope.Release(PitchOf(voice, la, clock));
}

void ShutDownLa(Voice&, LaVoice& la, const VoiceClock&) noexcept
{
    la.isShutDown = true;
}

void RunLa(Voice& voice, LaVoice& la, const VoiceClock& clock, StereoBlock& out) noexcept
{
    const LaPatch& patch = voice.region->la->patch;
    const LfoValues lfos = TickLfos(voice, la, clock);
    la.pitchEnvelope.Tick(PitchOf(voice, la, clock));
    const float before = LoudestGain(la);
    std::array<Frames, kLaPartials> partials;
    bool isAlive = false;
    for (std::size_t i = 0; i < kLaPartials; ++i) {
        RunPartial(voice, la, clock, i, lfos, partials[i]);
        isAlive |= patch.partials[i].isEnabled && !la.partials[i].isFinished;
    }
    out.Clear();
    Combine(patch, partials[0], partials[1], out);
    voice.gainEstimate = std::max(before, LoudestGain(la));
    if (!SetPatchGain(voice, clock, la.isShutDown, la.fadeDb) || !isAlive)
        voice.isDead = true;
}

} // namespace vimbo::synth
