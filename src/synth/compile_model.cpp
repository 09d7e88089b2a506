#include "synth/compile_model.h"

#include "model/collection.h"
#include "model/waveform.h"
#include "synth/fm_patch.h"
#include "synth/la_patch.h"
#include "synth/synth_math.h"

#include <algorithm>
#include <cmath>

namespace vimbo::synth {
namespace {

LaWave TakeWave(Waveform& wave, SampleStore& samples)
{
    LaWave taken;
    WaveSound& sound = taken.sound;
    sound.end = wave.frames;
    sound.loopType = wave.loop.type;
    sound.breakOnRelease = wave.loop.breakOnRelease;
    sound.loopStart = wave.loop.start;
    sound.loopEnd = std::min(wave.loop.end, static_cast<double>(wave.frames));
    sound.loopTuning = wave.loop.pitch;
    const bool wraps = sound.loopType != LoopType::Off && std::ceil(sound.loopEnd) >= wave.frames;
    sound.sample = wave.frames == 0
                       ? nullptr
                       : samples.Get(wave, nullptr, wraps ? sound.loopType : LoopType::Off, sound.loopStart);
    taken.rootKey = static_cast<float>(wave.rootKey) - static_cast<float>(wave.fineTune) * 0.01f;
    taken.gain = DecibelsToGain(wave.volume);
    return taken;
}

bool TakeFm(SynthRegion& record, const SynthModel& model)
{
    const std::optional<FmPatch> patch = FmPatchOf(model);
    if (!patch)
        return false;
    record.model = VoiceModel::Fm;
    record.fm = std::make_shared<FmPatch>(*patch);
    return true;
}

bool TakeLa(SynthRegion& record, const SynthModel& model, SampleStore& samples)
{
    const std::optional<LaPatch> patch = LaPatchOf(model);
    if (!patch)
        return false;
    auto program = std::make_shared<LaProgram>();
    program->patch = *patch;
    for (std::size_t i = 0; i < program->waves.size(); ++i) {
        const bool isPlayed =
            patch->partials[i / kWavesPerPartial].isEnabled && patch->partials[i / kWavesPerPartial].isPcm;
        if (Waveform* wave = isPlayed ? model.Owner().Find<Waveform>(model.WaveReference(i)) : nullptr)
            program->waves[i] = TakeWave(*wave, samples);
    }
    record.model = VoiceModel::La;
    record.la = std::move(program);
    return true;
}

} // namespace

bool TakeSynthModel(SynthRegion& record, const SynthModel& model, SampleStore& samples)
{
    return model.Model() == kFmModel ? TakeFm(record, model) : TakeLa(record, model, samples);
}

} // namespace vimbo::synth
