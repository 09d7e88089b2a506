#include "model/features.h"

#include <algorithm>
#include <array>

namespace vimbo {
namespace {

// clang-format off
constexpr std::array kTexts = std::to_array<FeatureText>({
    {Feature::TriggerCrossFade,           u"Trigger: X-fade between regions"},
    {Feature::ArticulationOnInstrument,   u"Architecture: Articulation on Instrument level"},
    {Feature::ArticulationOnLayer,        u"Architecture: Articulation on Layer level"},
    {Feature::ArticulationOnRegion,       u"Architecture: Articulation on Region level"},
    {Feature::WaveCompressedFormats,      u"Waves: Compressed data formats"},
    {Feature::WaveDlsFlags,               u"Waves: DLS waveform flags"},
    {Feature::WaveFractionalLoops,        u"Waves: Fractional loop-points"},
    {Feature::WaveReverseLoops,           u"Waves: Reverse and bi-directional loops"},
    {Feature::WaveSampledRelease,         u"Waves: Sampled release (key-up breaks loop)"},
    {Feature::WaveRegionOffsets,          u"Waves: Region level start/end offsets"},
    {Feature::WaveLoopTuning,             u"Waves: Tuning of loop pitch"},
    {Feature::TriggerDelay,               u"Trigger: Delay time"},
    {Feature::TriggerType,                u"Trigger: Trigger type"},
    {Feature::LfoPitchAndModulation,      u"LFOs: Pitch/Modulation LFOs (2+ LFOs)"},
    {Feature::LfoSeparate,                u"LFOs: Separate P/V/F/X LFOs (3+ LFOs)"},
    {Feature::LfoShapes,                  u"LFOs: Shapes"},
    {Feature::LfoRamp,                    u"LFOs: Ramp time"},
    {Feature::LfoModulation,              u"LFOs: MW/AT/Velocity to LFO"},
    {Feature::EnvModulationAndVolume,     u"Envs: Modulation/Volume envelopes (2+ envs)"},
    {Feature::EnvSeparate,                u"Envs: Separate P/V/F/X envelopes (3+ envs)"},
    {Feature::EnvSixStages,               u"Envs: Six-stages (DAHDSR)"},
    {Feature::EnvMoreLevels,              u"Envs: More levels + bi-directional (AADDSR)"},
    {Feature::EnvThreeReleases,           u"Envs: Three Release segments"},
    {Feature::EnvKeyToAttackRelease,      u"Envs: Key to Attack/Release"},
    {Feature::EnvVelocityToAttack1,       u"Envs: Velocity to Attack 1 time (Delay)"},
    {Feature::EnvVelocityToAttack2,       u"Envs: Velocity to Attack 2 time (Attack)"},
    {Feature::EnvVelocityToDecay,         u"Envs: Velocity to Decay 1/2 time (Hold/Dcy)"},
    {Feature::EnvVelocityToRelease,       u"Envs: Velocity to Release rate"},
    {Feature::EnvVelocityToDepth,         u"Envs: Velocity to M-EG to Pitch/Cutoff"},
    {Feature::FilterLowPass,              u"Filter: Low Pass Filter"},
    {Feature::FilterMoreTypes,            u"Filter: Additional filter types"},
    {Feature::FilterControllersToCutoff,  u"Filter: Mod wheel/Aftertouch to Cutoff"},
    {Feature::FilterKeyVelocityToCutoff,  u"Filter: Key/Velocity to Cutoff"},
    {Feature::FilterToResonance,          u"Filter: Velocity/MW/AT to Resonance"},
    {Feature::EffectSends,                u"Effects: Effect send levels"},
    {Feature::EffectEq,                   u"Effects: EQ"},
    {Feature::MixerChannelDepths,         u"Mixer: Channel command depths"},
    {Feature::MixerKeyToVolumePan,        u"Mixer: Key to Volume/Pan"},
    {Feature::MixerRandomToPan,           u"Mixer: Random to Pan"},
    {Feature::PitchBend,                  u"Pitch: Pitch bend to Pitch"},
    {Feature::PitchKey,                   u"Pitch: Key to Pitch"},
    {Feature::PitchRandom,                u"Pitch: Random to Pitch"},
    {Feature::VolumeControllers,          u"Volume: Mod wheel/Aftertouch to Volume"},
});

constexpr std::array kPresets = std::to_array<FeaturePreset>({
    {u"All parameters supported by Vimbo Studio",         {~std::uint64_t{0}}},
    {u"Akai S1000-series (.P)",                           {0xB42740C4E88}},
    {u"Akai S3000-series (.P)",                           {0xB43740D4E88}},
    {u"DLS level 1 melodic (.DLS)",                       {0x000040C0002}},
    {u"DLS level 2 (.DLS)",                               {0x22A442C424A}},
    {u"DLS level 2+ (.DLS)",                              {0x22A442C426A}},
    {u"DLS level 2++ (.DLS)",                             {0xA6F5F2C426A}},
    {u"GigaStudio (.GIG)",                                {0x300400C6608}},
    {u"Gravis UltraSound GF1 (.PAT)",                     {0x20000C04388}},
    {u"Kontakt (.NKI)",                                   {0xB5FFD2D6F2D}},
    {u"Korg Trinity (.PCG)",                              {0xB4EFF6F3004}},
    {u"Korg Triton (.PCG)",                               {0xB4FFF6F7804}},
    {u"Korg Kronos/M3 (.PCG)",                            {0xB5FFF6F7805}},
    {u"Kurzweil K2000-series (.KRZ)",                     {0x353DFEC4304}},
    {u"SFZ v1 (.SFZ)",                                    {0xF5BFF2E772D}},
    {u"SFZ v2 (.SFZ)",                                    {0xF5FFFEF7F2F}},
    {u"SoundFont 2.0 (.SF2)",                             {0x2084428460C}},
    {u"SoundFont 2.01 (.SF2)",                            {0xB6F7F2C460C}},
    {u"Yamaha Motif/Motif ES (.W2V/.W7V)",                {0xB5FE46F5004}},
    {u"Yamaha Motif XS/Motif XF (.X0V/.X3V)",             {0xB5FE46F7004}},
    {u"Yamaha Tyros 2/3 normal voice (.TVN/.UVN)",        {0xA1FE66F5004}},
    {u"Minimal for portability",                          {0}},
});
// clang-format on

consteval std::uint64_t KnownBits()
{
    std::uint64_t bits = 0;
    for (const FeatureText& text : kTexts)
        bits |= std::uint64_t{1} << static_cast<unsigned>(text.feature);
    return bits;
}

} // namespace

std::span<const FeatureText> FeatureTexts() noexcept
{
    return kTexts;
}

std::span<const FeaturePreset> FeaturePresets() noexcept
{
    return kPresets;
}

std::u16string_view FeaturePresetName(FeatureMask mask) noexcept
{
    const auto found = std::ranges::find_if(kPresets, [mask](const FeaturePreset& preset) {
        return ((preset.mask.bits ^ mask.bits) & KnownBits()) == 0;
    });
    return found != kPresets.end() ? found->text : u"Custom set";
}

} // namespace vimbo
