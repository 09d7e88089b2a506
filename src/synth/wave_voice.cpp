#include "synth/wave_voice.h"

#include "synth/voice.h"

#include <cmath>

namespace vimbo::synth {
namespace {

using Params = std::array<float, kArticulationParams>;

constexpr float kEnvelopeDb = 96;
constexpr float kSoftPedalDb = -9, kLoudestDb = 12, kSilentDb = -96;
constexpr float kEndPosition = 0.004f; ///< of the volume envelope: nothing is heard below

constexpr std::uint8_t Bit(LfoIndex index) noexcept
{
    return static_cast<std::uint8_t>(1u << static_cast<unsigned>(index));
}

/// The fixed part, and parts by modulation wheel, aftertouch and velocity, as they stand in four ids.
float LfoDepthOf(const Voice& voice, float velocity, ParamId first) noexcept
{
    const float* const depth = &voice.region->params[first];
    return depth[0] + velocity * depth[3] + voice.modWheel * depth[1] + voice.aftertouch * depth[2];
}

/// What envelopes and LFOs give in one tick; 0 for those that do not run.
struct Modulation {
    std::array<float, kEnvelopes> envelopes{};
    std::array<float, kLfos> lfos{};

    float Of(EnvelopeIndex index) const noexcept { return envelopes[static_cast<std::size_t>(index)]; }
    float Of(LfoIndex index) const noexcept { return lfos[static_cast<std::size_t>(index)]; }
};

EnvelopeSetting SettingOf(const Voice& voice, const WaveVoice& wave, const VoiceClock& clock,
                          std::size_t index) noexcept
{
    const auto kind = static_cast<EnvelopeIndex>(index);
    const auto params = std::span(voice.region->params).subspan(EnvelopeBase(kind)).first<kEnvelopeParams>();
    const bool isReleaseTrigger = voice.region->trigger == static_cast<std::uint8_t>(TriggerKind::KeyRelease);
    return {params, kind, isReleaseTrigger, wave.velocity, wave.octaves, clock.TicksPerSecond()};
}

VoiceLfo::Params LfoParamsOf(const Voice& voice, std::size_t index) noexcept
{
    const ParamId base = LfoBase(static_cast<LfoIndex>(index));
    return std::span(voice.region->params).subspan(base).first<kLfoParams>();
}

/// LFOs with a frequency and a depth, and envelopes with a depth.
std::uint8_t WhatRuns(const Params& p, float velocity) noexcept
{
    const auto hasDepth = [&p](ParamId first) {
        return p[first] != 0 || p[first + 1u] != 0 || p[first + 2u] != 0 || p[first + 3u] != 0;
    };
    const std::array depths{hasDepth(kArtPLfoToPitch), hasDepth(kArtVLfoToVolume), hasDepth(kArtFLfoToCutoff),
                            hasDepth(kArtXLfoToPitch) || p[kArtXLfoToPan] != 0};
    unsigned bits = 0;
    for (std::size_t n = 0; n < kLfos; ++n)
        if (depths[n] && p[LfoBase(static_cast<LfoIndex>(n)) + kLfoFrequency] > 0)
            bits |= 1u << n;
    if (p[kArtPEnvToPitch] + velocity * p[kArtVelPEnvToPitch] != 0)
        bits |= WaveVoice::kPitchEnvelope;
    if (p[kArtFEnvToCutoff] + velocity * p[kArtVelFEnvToCutoff] != 0)
        bits |= WaveVoice::kFilterEnvelope;
    if (p[kArtXEnvToPan] != 0)
        bits |= WaveVoice::kExtraEnvelope;
    return static_cast<std::uint8_t>(bits);
}

bool EnvelopeRuns(std::uint8_t bits, std::size_t index) noexcept
{
    constexpr std::array<std::uint8_t, kEnvelopes> kBits{
        255, WaveVoice::kPitchEnvelope, WaveVoice::kFilterEnvelope, WaveVoice::kExtraEnvelope};
    return index == 0 || (bits & kBits[index]) != 0;
}

void SetFixedValues(const Voice& voice, WaveVoice& wave) noexcept
{
    const Params& p = voice.region->params;
    wave.velocity = BipolarVelocity(voice.velocity);
    wave.octaves = OctaveDistance(voice.key);
    wave.semitones =
        (voice.key - 60) * p[kArtKeyToPitch] + p[kArtTuning] + wave.randomPitch * p[kArtRandomToPitch];
    wave.levelDb = p[kArtVolume] + VelocityDecibels(voice.velocity, p[kArtVelToVolume]) +
                   wave.octaves * p[kArtKeyToVolume];
    wave.pan = wave.octaves * p[kArtKeyToPan] + wave.randomPan * p[kArtRandomToPan];
    wave.lastDb = wave.lastSemitones = wave.lastCutoff = wave.lastResonance = WaveVoice::kNever;
}

/// Envelopes and LFOs that the region did not use before start with the edit.
void StartModulators(Voice& voice, WaveVoice& wave, const VoiceClock& clock, std::uint8_t before,
                     bool isNoteOn) noexcept
{
    for (std::size_t n = 0; n < kLfos; ++n) {
        if ((wave.running >> n & 1) == 0)
            continue;
        if ((before >> n & 1) != 0)
            wave.lfos[n].Edit(LfoParamsOf(voice, n), clock.TicksPerSecond());
        else
            wave.lfos[n].Start(LfoParamsOf(voice, n), clock.TicksPerSecond(), voice.random);
    }
    for (std::size_t n = 0; n < kEnvelopes; ++n) {
        if (!EnvelopeRuns(wave.running, n))
            continue;
        const EnvelopeSetting setting = SettingOf(voice, wave, clock, n);
        if (!isNoteOn && EnvelopeRuns(before, n)) {
            wave.envelopes[n].Edit(setting);
            continue;
        }
        wave.envelopes[n].Start(setting);
        if (!isNoteOn && voice.released)
            wave.envelopes[n].Release(setting);
    }
}

VoiceFilterKind FilterKindOf(float value) noexcept
{
    const bool isKnown = value >= 0 && value < static_cast<float>(kVoiceFilterKinds);
    return isKnown ? static_cast<VoiceFilterKind>(value) : VoiceFilterKind::PassThru;
}

void SetFilterKind(Voice& voice) noexcept
{
    const VoiceFilterKind kind = FilterKindOf(voice.region->params[kArtFilterType]);
    if (kind != voice.filterKind)
        voice.filterState = voice.filterStateRight = {};
    voice.filterKind = kind;
    voice.isFiltered = kind != VoiceFilterKind::PassThru;
}

/// Bands without gain are left out.
void SetEq(Voice& voice, const VoiceClock& clock) noexcept
{
    const Params& p = voice.region->params;
    std::uint8_t bands = 0;
    for (std::size_t n = 0; n < kEqBands; ++n) {
        const float* const band = &p[kArtEqMode + n * kEqBandParams]; // mode, frequency, gain, Q
        const float gainDb = Limited(band[2], kSilentDb, -kSilentDb);
        if (!(band[2] < 0) && !(band[2] > 0))
            continue;
        const EqMode mode = band[0] == 1 ? EqMode::LowShelf : band[0] == 2 ? EqMode::HighShelf : EqMode::Peak;
        voice.eq[bands++] = ComputeBiquad(mode, Limited(band[1] / clock.rateHz, 0.0f, 1.0f), gainDb,
                                          Limited(band[3], 0.0f, 1000.0f));
    }
    if (bands != voice.eqBands)
        voice.eqState = voice.eqStateRight = {};
    voice.eqBands = bands;
}

Modulation TickModulators(Voice& voice, WaveVoice& wave, const VoiceClock& clock) noexcept
{
    Modulation out;
    for (std::size_t n = 0; n < kEnvelopes; ++n)
        if (EnvelopeRuns(wave.running, n))
            out.envelopes[n] = wave.envelopes[n].Tick(SettingOf(voice, wave, clock, n));
    for (std::size_t n = 0; n < kLfos; ++n)
        if ((wave.running >> n & 1) != 0)
            out.lfos[n] = wave.lfos[n].Tick(voice.random);
    return out;
}

void SetLevel(Voice& voice, WaveVoice& wave, const Modulation& m) noexcept
{
    const Params& p = voice.region->params;
    float db = (m.Of(EnvelopeIndex::Volume) - 1) * kEnvelopeDb + wave.levelDb +
               voice.modWheel * p[kArtWheelToVolume] + voice.aftertouch * p[kArtTouchToVolume];
    if ((wave.running & Bit(LfoIndex::Volume)) != 0)
        db += m.Of(LfoIndex::Volume) * LfoDepthOf(voice, wave.velocity, kArtVLfoToVolume);
    if (voice.softPedal)
        db += kSoftPedalDb;
    if (db == wave.lastDb)
        return;
    wave.lastDb = db;
    voice.envelopeGain = db > kSilentDb ? DecibelsToGain(Limited(db, kSilentDb, kLoudestDb)) : 0;
}

void SetPan(Voice& voice, const WaveVoice& wave, const Modulation& m) noexcept
{
    const Params& p = voice.region->params;
    const float pan =
        wave.pan + m.Of(LfoIndex::X) * p[kArtXLfoToPan] + m.Of(EnvelopeIndex::X) * p[kArtXEnvToPan];
    voice.panModulation = Limited(pan, -100.0f, 100.0f);
}

/// Computes the coefficients only when the filter has moved.
void SetFilter(Voice& voice, WaveVoice& wave, const VoiceClock& clock, const Modulation& m) noexcept
{
    const Params& p = voice.region->params;
    float cutoff = wave.velocity * p[kArtVelToCutoff] + wave.octaves * p[kArtKeyToCutoff] +
                   voice.modWheel * p[kArtWheelToCutoff] + voice.aftertouch * p[kArtTouchToCutoff];
    if ((wave.running & WaveVoice::kFilterEnvelope) != 0)
        cutoff +=
            m.Of(EnvelopeIndex::Filter) * (p[kArtFEnvToCutoff] + wave.velocity * p[kArtVelFEnvToCutoff]);
    if ((wave.running & Bit(LfoIndex::Filter)) != 0)
        cutoff += m.Of(LfoIndex::Filter) * LfoDepthOf(voice, wave.velocity, kArtFLfoToCutoff);
    const float resonance =
        Limited(p[kArtResonance] + wave.velocity * p[kArtVelToResonance] +
                    voice.modWheel * p[kArtWheelToResonance] + voice.aftertouch * p[kArtTouchToResonance],
                0.0f, 1000.0f);
    if (cutoff == wave.lastCutoff && resonance == wave.lastResonance)
        return;
    wave.lastCutoff = cutoff;
    wave.lastResonance = resonance;
    voice.filterCoefs =
        ComputeVoiceFilter(voice.filterKind, Limited(p[kArtCutoff] / clock.rateHz, 0.0f, 100.0f),
                           Limited(cutoff, -1000.0f, 1000.0f), resonance);
}

float BendRange(const Voice& voice) noexcept
{
    const float own = voice.region->params[kArtBendToPitch];
    return voice.bendRange != kUnsetBendRange && own != 0 ? voice.bendRange : own;
}

void SetRate(Voice& voice, WaveVoice& wave, const VoiceClock& clock, const Modulation& m) noexcept
{
    const Params& p = voice.region->params;
    float pitch = wave.semitones + voice.tuningOffset + voice.pitchBend * BendRange(voice);
    if ((wave.running & WaveVoice::kPitchEnvelope) != 0)
        pitch += m.Of(EnvelopeIndex::Pitch) * (p[kArtPEnvToPitch] + wave.velocity * p[kArtVelPEnvToPitch]);
    if ((wave.running & Bit(LfoIndex::Pitch)) != 0)
        pitch += m.Of(LfoIndex::Pitch) * LfoDepthOf(voice, wave.velocity, kArtPLfoToPitch);
    if ((wave.running & Bit(LfoIndex::X)) != 0)
        pitch += m.Of(LfoIndex::X) * LfoDepthOf(voice, wave.velocity, kArtXLfoToPitch);
    if (pitch == wave.lastSemitones)
        return;
    wave.lastSemitones = pitch;
    const SynthSample* const sample = voice.region->wave.sample.get();
    const double ratio = sample ? static_cast<double>(sample->RateHz()) / clock.rateHz : 0;
    wave.rate = Limited(ratio * SemitonesToRatio(pitch), WavePlayer::kSlowest, WavePlayer::kFastest);
}

void ReadSample(Voice& voice, WaveVoice& wave, StereoBlock& out) noexcept
{
    const WaveSound& sound = voice.region->wave;
    if (voice.isStereo)
        wave.player.Read(sound, wave.rate, voice.released, out.left, out.right);
    else
        wave.player.Read(sound, wave.rate, voice.released, out.left);
}

} // namespace

void InitWave(Voice& voice, WaveVoice& wave, const VoiceClock& clock, bool isNoteOn) noexcept
{
    const std::uint8_t before = isNoteOn ? 0 : wave.running;
    if (isNoteOn) {
        wave.randomPitch = voice.random.NextBipolar();
        wave.randomPan = voice.random.NextBipolar();
    }
    SetFixedValues(voice, wave);
    wave.running = WhatRuns(voice.region->params, wave.velocity);
    StartModulators(voice, wave, clock, before, isNoteOn);
    if (isNoteOn)
        wave.player.Start(voice.region->wave);
    else
        wave.player.Edit(voice.region->wave, voice.released);
    voice.isStereo = voice.region->wave.sample && voice.region->wave.sample->Channels() == 2;
    SetFilterKind(voice);
    SetEq(voice, clock);
    if (!isNoteOn)
        return;
    Modulation atStart;
    for (std::size_t n = 0; n < kEnvelopes; ++n)
        atStart.envelopes[n] = EnvelopeRuns(wave.running, n) ? wave.envelopes[n].Value() : 0;
    SetLevel(voice, wave, atStart);
    SetPan(voice, wave, atStart);
}

void ReleaseWave(Voice& voice, WaveVoice& wave, const VoiceClock& clock) noexcept
{
    for (std::size_t n = 0; n < kEnvelopes; ++n)
        if (EnvelopeRuns(wave.running, n))
            wave.envelopes[n].Release(SettingOf(voice, wave, clock, n));
    wave.player.Release();
}

void ShutDownWave(Voice& voice, WaveVoice& wave, const VoiceClock& clock) noexcept
{
    constexpr auto kVolume = static_cast<std::size_t>(EnvelopeIndex::Volume);
    wave.envelopes[kVolume].ShutDown(SettingOf(voice, wave, clock, kVolume));
}

void RunWave(Voice& voice, WaveVoice& wave, const VoiceClock& clock, StereoBlock& out) noexcept
{
    voice.gainEstimate = 1;
    const Modulation m = TickModulators(voice, wave, clock);
    SetLevel(voice, wave, m);
    SetPan(voice, wave, m);
    if (voice.isFiltered)
        SetFilter(voice, wave, clock, m);
    SetRate(voice, wave, clock, m);
    ReadSample(voice, wave, out);
    const bool isFaded = wave.envelopes[0].IsFinished() && m.Of(EnvelopeIndex::Volume) < kEndPosition;
    if (isFaded || wave.player.HasEnded())
        voice.isDead = true;
}

} // namespace vimbo::synth
