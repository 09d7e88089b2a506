// Limits and scales of generators: times, frequencies, rounding.
#include "formats/soundfont/soundfont_unit_parts.h"

namespace vimbo::sf2 {
namespace {

constexpr double kHighestHz = 20000;
constexpr double kHzOfZeroCents = 8.176;

} // namespace

Limits LimitsOf(std::size_t generator) noexcept
{
    switch (generator) {
    case kGenModLfoToPitch:
    case kGenVibLfoToPitch:
    case kGenModEnvToPitch:
    case kGenModLfoToCutoff:
    case kGenModEnvToCutoff:
        return {-12000, 12000};
    case kGenCutoff:
        return {1500, kHighestCents};
    case kGenResonance:
        return {0, 960};
    case kGenModLfoToVolume:
        return {-960, 960};
    case kGenChorusSend:
    case kGenReverbSend:
    case kGenModEnvSustain:
    case kGenVolEnvSustain:
        return {0, 1000};
    case kGenPan:
        return {-500, 500};
    case kGenModLfoFrequency:
    case kGenVibLfoFrequency:
        return {-16000, 4500};
    case kGenModLfoDelay:
    case kGenVibLfoDelay:
    case kGenModEnvDelay:
    case kGenModEnvHold:
    case kGenVolEnvDelay:
    case kGenVolEnvHold:
        return {-12000, 5000};
    case kGenModEnvAttack:
    case kGenModEnvDecay:
    case kGenModEnvRelease:
    case kGenVolEnvAttack:
    case kGenVolEnvDecay:
    case kGenVolEnvRelease:
        return {-12000, 8000};
    case kGenKeyToModEnvHold:
    case kGenKeyToModEnvDecay:
    case kGenKeyToVolEnvHold:
    case kGenKeyToVolEnvDecay:
        return {-1200, 1200};
    case kGenAttenuation:
        return {-1440, 1440};
    case kGenCoarseTune:
        return {-120, 120};
    case kGenFineTune:
        return {-99, 99};
    case kGenScaleTuning:
        return {0, 1200};
    default:
        return {0, 0}; // no part of the articulation
    }
}

float Stored(ParamId id, double value) noexcept
{
    constexpr double kAnyLimit = 1e6; // beyond every parameter's limits
    return RoundAndClamp(ArticulationParamRow(id),
                         static_cast<float>(std::clamp(value, -kAnyLimit, kAnyLimit)));
}

void MoveGenerator(Zone& zone, std::size_t generator, double by) noexcept
{
    zone.generators[generator] = ToWhole(zone.generators[generator] + by, LimitsOf(generator));
}

float TimecentsToSeconds(double timecents) noexcept
{
    if (!(timecents >= -11999))
        return 0;
    constexpr double kLongest = 24000; // about 12 days; keeps the power finite
    const double seconds = std::exp2(std::min(timecents, kLongest) / kCentsPerOctave);
    const double steps = seconds > 24 ? 10 : 100;
    return static_cast<float>(seconds > 2 ? std::round(seconds * steps) / steps : seconds);
}

double Timecents(double seconds) noexcept
{
    return seconds > 0 ? kCentsPerOctave * std::log2(seconds) : -12000;
}

int SecondsToTimecents(double seconds, int minimum, int maximum) noexcept
{
    return ToWhole(Timecents(seconds), {minimum, maximum});
}

float CentsToHz(double cents) noexcept
{
    if (cents >= kHighestCents)
        return static_cast<float>(kHighestHz);
    const double hz = kHzOfZeroCents * std::exp2(cents / kCentsPerOctave);
    const double step = hz >= 1000 ? 10 : hz >= 100 ? 1 : 0.01;
    return static_cast<float>(std::round(hz / step) * step);
}

} // namespace vimbo::sf2
