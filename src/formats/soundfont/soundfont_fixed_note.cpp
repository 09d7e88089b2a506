#include "formats/soundfont/soundfont_fixed_note.h"

#include "formats/soundfont/soundfont_unit_parts.h"

#include <array>
#include <cmath>

namespace vimbo::sf2 {
namespace {

constexpr double kHighestVelocity = 127, kMiddleVelocity = 64;
/// A velocity amount of 96 dB makes the gain the velocity squared.
constexpr double kDbPerDecade = 40, kFullVelocityDb = 96;

struct Depth {
    ParamId fixed, velocity;
};
/// Sums of a fixed part and a part by bipolar velocity.
constexpr std::array kDepths{
    Depth{kArtPLfoToPitch, kArtVelPLfoToPitch},   Depth{kArtXLfoToPitch, kArtVelXLfoToPitch},
    Depth{kArtPEnvToPitch, kArtVelPEnvToPitch},   Depth{kArtVLfoToVolume, kArtVelVLfoToVolume},
    Depth{kArtFLfoToCutoff, kArtVelFLfoToCutoff}, Depth{kArtFEnvToCutoff, kArtVelFEnvToCutoff},
    Depth{kArtResonance, kArtVelToResonance}};
/// Times, and the factors between them at the highest and the lowest velocity.
constexpr std::array kTimes{
    Depth{kEnvAttack1Time, kEnvVelToAttack1},  Depth{kEnvAttack2Time, kEnvVelToAttack2},
    Depth{kEnvDecay1Time, kEnvVelToDecay1},    Depth{kEnvDecay2Time, kEnvVelToDecay2},
    Depth{kEnvRelease1Rate, kEnvVelToRelease}, Depth{kEnvRelease2Time, kEnvVelToRelease},
    Depth{kEnvRelease3Time, kEnvVelToRelease}};

void Put(ArticulationBlock& block, ParamId id, double value)
{
    block.Set(id, Stored(id, value));
}

/// The pitch that the key has, without tracking.
void FixKey(Region& region, int key)
{
    ArticulationBlock& block = region.articulation;
    const auto keys = static_cast<float>(key - region.rootKey);
    block.Set(kArtTuning, block[kArtTuning] + keys * block[kArtKeyToPitch]);
    block.Set(kArtKeyToPitch, 0);
}

void FixEnvelopeTimes(ArticulationBlock& block, double bipolar)
{
    for (std::size_t n = 0; n < kEnvelopes; ++n) {
        const ParamId base = EnvelopeBase(static_cast<EnvelopeIndex>(n));
        const auto id = [base](ParamId offset) { return static_cast<ParamId>(base + offset); };
        for (const Depth& time : kTimes)
            if (const double factor = block[id(time.velocity)]; factor != 1)
                Put(block, id(time.fixed), block[id(time.fixed)] * std::pow(factor, bipolar / 2));
        for (const Depth& time : kTimes)
            if (block[id(time.velocity)] != 1)
                block.Set(id(time.velocity), 1);
    }
}

void FixVelocity(ArticulationBlock& block, int velocity)
{
    const double bipolar = (velocity - kMiddleVelocity) / (kHighestVelocity - kMiddleVelocity);
    const double decades = std::log10(std::max(velocity, 1) / kHighestVelocity);
    Put(block, kArtVolume,
        block[kArtVolume] + decades * kDbPerDecade * block[kArtVelToVolume] / kFullVelocityDb);
    block.Set(kArtVelToVolume, 0);
    if (const double semitones = block[kArtVelToCutoff]; semitones != 0) {
        Put(block, kArtCutoff, block[kArtCutoff] * std::exp2(bipolar * semitones / 12));
        block.Set(kArtVelToCutoff, 0);
    }
    for (const Depth& depth : kDepths)
        if (const double byVelocity = block[depth.velocity]; byVelocity != 0) {
            Put(block, depth.fixed, block[depth.fixed] + bipolar * byVelocity);
            block.Set(depth.velocity, 0);
        }
    FixEnvelopeTimes(block, bipolar);
}

} // namespace

void FixNote(Region& region, const SampleSettings& settings)
{
    if (settings.fixedKey >= 0)
        FixKey(region, settings.fixedKey);
    if (settings.fixedVelocity >= 0)
        FixVelocity(region.articulation, settings.fixedVelocity);
}

} // namespace vimbo::sf2
