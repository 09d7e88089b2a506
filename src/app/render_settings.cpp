#include "app/render_settings.h"

namespace vimbo::app {

namespace {

/// The table's limits are those of an unsigned number.
unsigned Unsigned(const Settings& settings, SettingKey<std::int64_t> key)
{
    return static_cast<unsigned>(settings.Get(key));
}

} // namespace

synth::RenderSettings SongRendering(const Settings& settings)
{
    synth::RenderSettings rendering;
    rendering.rateHz = Unsigned(settings, "mid2wav.dwSampleRate");
    rendering.effects = settings.Get<bool>("mid2wav.bEffects");
    rendering.normalizePeak = settings.Get<bool>("mid2wav.bNormalizePeak");
    rendering.trimSilence = settings.Get<bool>("mid2wav.bDeleteSilence");
    rendering.gmBank = settings.Get<std::u16string>("mid2wav.wszGMBank");
    rendering.polyphony = Unsigned(settings, "mid2wav.iMaxPolyphony");
    return rendering;
}

synth::WavetableSettings ModelRendering(const Settings& settings)
{
    synth::WavetableSettings rendering;
    rendering.rateHz = Unsigned(settings, "sy2wt.dwSampleRate");
    rendering.maxMilliseconds = Unsigned(settings, "sy2wt.dwmsMaxLength");
    rendering.minMilliseconds = Unsigned(settings, "sy2wt.dwmsMinLength");
    rendering.waves = Unsigned(settings, "sy2wt.iNumWaves");
    return rendering;
}

} // namespace vimbo::app
