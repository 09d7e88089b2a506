#include "synth/voice.h"

namespace vimbo::synth {
namespace {

template <class... Cases>
struct Overloaded : Cases... {
    using Cases::operator()...;
};
template <class... Cases>
Overloaded(Cases...) -> Overloaded<Cases...>; // clang 14 needs it

/// The state of the region's model, new.
void MakeModel(Voice& voice) noexcept
{
    switch (voice.region->model) {
    case VoiceModel::Wave:
        voice.model.emplace<WaveVoice>();
        break;
    case VoiceModel::Fm:
        voice.model.emplace<FmVoice>();
        break;
    case VoiceModel::La:
        voice.model.emplace<LaVoice>();
        break;
    }
}

bool PlaysItsRegion(const Voice& voice) noexcept
{
    switch (voice.region->model) {
    case VoiceModel::Wave:
        return std::holds_alternative<WaveVoice>(voice.model);
    case VoiceModel::Fm:
        return std::holds_alternative<FmVoice>(voice.model) && voice.region->fm;
    case VoiceModel::La:
        return std::holds_alternative<LaVoice>(voice.model) && voice.region->la;
    }
    return false;
}

/// Not for what rounding leaves of a whole number of ticks.
bool IsWaiting(const Voice& voice) noexcept
{
    return voice.delayLeft > 1e-6;
}

/// A voice that makes no sound and goes with this block.
void End(Voice& voice) noexcept
{
    voice.isDead = true;
    voice.gainEstimate = 0;
}

} // namespace

void InitVoice(Voice& voice, const VoiceClock& clock, bool isNoteOn) noexcept
{
    if (isNoteOn)
        MakeModel(voice);
    if (!PlaysItsRegion(voice)) { // an edit may have brought another model
        End(voice);
        return;
    }
    std::visit(Overloaded{[&](WaveVoice& wave) { InitWave(voice, wave, clock, isNoteOn); },
                          [&](FmVoice& fm) { InitFm(voice, fm, clock, isNoteOn); },
                          [&](LaVoice& la) { InitLa(voice, la, clock, isNoteOn); }},
               voice.model);
}

void ReleaseVoice(Voice& voice, const VoiceClock& clock) noexcept
{
    if (voice.isReleaseTrigger)
        return;
    voice.released = true;
    if (IsWaiting(voice)) {
        End(voice);
        return;
    }
    std::visit(Overloaded{[&](WaveVoice& wave) { ReleaseWave(voice, wave, clock); },
                          [&](FmVoice& fm) { ReleaseFm(voice, fm, clock); },
                          [&](LaVoice& la) { ReleaseLa(voice, la, clock); }},
               voice.model);
}

void ShutDownVoice(Voice& voice, const VoiceClock& clock) noexcept
{
    if (IsWaiting(voice)) {
        End(voice);
        return;
    }
    std::visit(Overloaded{[&](WaveVoice& wave) { ShutDownWave(voice, wave, clock); },
                          [&](FmVoice& fm) { ShutDownFm(voice, fm, clock); },
                          [&](LaVoice& la) { ShutDownLa(voice, la, clock); }},
               voice.model);
}

void RunVoice(Voice& voice, const VoiceClock& clock, StereoBlock& out) noexcept
{
    if (voice.isDead || IsWaiting(voice)) {
        voice.delayLeft -= clock.TickSeconds();
        voice.gainEstimate = 0;
        out.Clear();
        return;
    }
    std::visit(Overloaded{[&](WaveVoice& wave) { RunWave(voice, wave, clock, out); },
                          [&](FmVoice& fm) { RunFm(voice, fm, clock, out); },
                          [&](LaVoice& la) { RunLa(voice, la, clock, out); }},
               voice.model);
}

PanGains VoicePan(Voice& voice, float channelPan) noexcept
{
    const auto& p = voice.region->params;
    const float pan = Limited(p[kArtPan] + channelPan * p[kArtCc10ToPan] + voice.panModulation, -1.0f, 1.0f);
    if (pan != voice.lastPan) {
        voice.lastPan = pan;
        voice.lastPanGains = PanToGains(pan);
    }
    return voice.lastPanGains;
}

} // namespace vimbo::synth
