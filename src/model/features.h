// The feature mask: which facilities of the model a user wishes to keep.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace vimbo {

/// Bit numbers of the mask (setting `features`, default all ones).
enum class Feature : std::uint8_t {
    TriggerCrossFade = 0,
    ArticulationOnInstrument = 1,
    ArticulationOnLayer = 2,
    ArticulationOnRegion = 3,
    WaveCompressedFormats = 5,
    WaveDlsFlags = 6,
    WaveFractionalLoops = 7,
    WaveReverseLoops = 8,
    WaveSampledRelease = 9,
    WaveRegionOffsets = 10,
    WaveLoopTuning = 11,
    TriggerDelay = 12,
    TriggerType = 13,
    LfoPitchAndModulation = 14,
    LfoSeparate = 15,
    LfoShapes = 16,
    LfoRamp = 17,
    LfoModulation = 18,
    EnvModulationAndVolume = 19,
    EnvSeparate = 20,
    EnvSixStages = 21,
    EnvMoreLevels = 22,
    EnvThreeReleases = 23,
    EnvKeyToAttackRelease = 24,
    EnvVelocityToAttack1 = 25,
    EnvVelocityToAttack2 = 26,
    EnvVelocityToDecay = 27,
    EnvVelocityToRelease = 28,
    EnvVelocityToDepth = 29,
    FilterLowPass = 30,
    FilterMoreTypes = 31,
    FilterControllersToCutoff = 32,
    FilterKeyVelocityToCutoff = 33,
    FilterToResonance = 34,
    EffectSends = 35,
    EffectEq = 36,
    MixerChannelDepths = 37,
    MixerKeyToVolumePan = 38,
    MixerRandomToPan = 39,
    PitchBend = 40,
    PitchKey = 41,
    PitchRandom = 42,
    VolumeControllers = 43,
    KeepSeparateLfos = 63 ///< of masks with every bit set: LFOs are never merged
};

struct FeatureMask {
    std::uint64_t bits = ~std::uint64_t{0};
    constexpr bool Has(Feature feature) const noexcept
    {
        return (bits >> static_cast<unsigned>(feature) & 1) != 0;
    }
    friend constexpr bool operator==(FeatureMask, FeatureMask) noexcept = default;
};

struct FeatureText {
    Feature feature;
    std::u16string_view text; ///< as the options show it
};
/// The bits that have a text, in bit order.
std::span<const FeatureText> FeatureTexts() noexcept;

struct FeaturePreset {
    std::u16string_view text;
    FeatureMask mask;
};
std::span<const FeaturePreset> FeaturePresets() noexcept;
/// The preset that equals the mask in all bits that have a text; "Custom set" if there is none.
std::u16string_view FeaturePresetName(FeatureMask mask) noexcept;

} // namespace vimbo
