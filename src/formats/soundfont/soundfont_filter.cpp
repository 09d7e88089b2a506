// The filter of a zone.
#include "formats/soundfont/soundfont_unit_parts.h"

#include <algorithm>

namespace vimbo::sf2 {
namespace {

constexpr double kNoFilterHz = 19900;
constexpr int kHighestFilterCents = 13498;    ///< the highest cutoff that is not read as no filter
constexpr double kZeroCentsPerHz = 0.1223092; ///< the inverse of CentsToHz(0)
constexpr double kLogOfSemitone = 0.057762265;

constexpr std::array kFilterDepths{
    kArtVelToCutoff,       kArtKeyToCutoff,       kArtWheelToCutoff,   kArtTouchToCutoff, kArtFLfoToCutoff,
    kArtWheelFLfoToCutoff, kArtTouchFLfoToCutoff, kArtVelFLfoToCutoff, kArtFEnvToCutoff,  kArtVelFEnvToCutoff,
    kArtVelToResonance,    kArtWheelToResonance,  kArtTouchToResonance};

constexpr std::array kFilterSlots{
    Linear{kSlotVelToCutoff, kArtVelToCutoff, -0.005}, // half of the range: the parameter is bipolar
    Linear{kSlotKeyToCutoff, kArtKeyToCutoff, 0.01 * kKeysPart},
    Linear{kSlotWheelToCutoff, kArtWheelToCutoff, 0.01},
    Linear{kSlotTouchToCutoff, kArtTouchToCutoff, 0.01},
    Linear{kSlotVelToResonance, kArtVelToResonance, 0.1},
    Linear{kSlotWheelToResonance, kArtWheelToResonance, 0.1},
    Linear{kSlotTouchToResonance, kArtTouchToResonance, 0.1}};

/// Factor from the cutoff at full velocity and at the centre of the file's key tracking to the cutoff at the
/// parameter's centres: the middle velocity and middle C.
double CutoffFactor(const ArticulationBlock& block) noexcept
{
    return std::exp(kLogOfSemitone * (block[kArtKeyToCutoff] * kOctavesToMiddleC - block[kArtVelToCutoff]));
}

float StoredCutoff(int cents, double factor) noexcept
{
    return Stored(kArtCutoff, CentsToHz(cents) * factor);
}

bool IsWritable(FilterType type) noexcept
{
    return (type >= FilterType::LowPass6 && type <= FilterType::LowPass24) || type == FilterType::BandPass6 ||
           type == FilterType::BandPass12;
}

} // namespace

bool HasFilter(const Zone& zone) noexcept
{
    return CentsToHz(zone.generators[kGenCutoff]) < kNoFilterHz || zone.generators[kGenResonance] > 0;
}

void ReadFilter(const Zone& zone, ArticulationBlock& out)
{
    out.Set(kArtFilterType, static_cast<float>(FilterType::LowPass12));
    out.Set(kArtResonance, Stored(kArtResonance, zone.generators[kGenResonance] * 0.1));
    ReadSlots(zone, kFilterSlots, out);
    // The sum of instrument and preset may be lower; players stop at the generator's own limit.
    const int cents = std::max(zone.generators[kGenCutoff], LimitsOf(kGenCutoff).minimum);
    out.Set(kArtCutoff, StoredCutoff(cents, CutoffFactor(out)));
}

void WriteFilter(const ArticulationBlock& block, Zone& out) noexcept
{
    if (static_cast<FilterType>(block[kArtFilterType]) == FilterType::PassThru)
        return;
    WriteSlots(block, kFilterSlots, out);
    const int resonance = ToWhole(block[kArtResonance] * 10.0, LimitsOf(kGenResonance));
    out.generators[kGenResonance] = resonance;
    // An open filter without resonance is read as none; one that something closes must stay.
    const bool maySeemOpen =
        resonance > 0 || std::ranges::all_of(kFilterDepths, [&](ParamId id) { return block[id] == 0; });
    const Limits limits{LimitsOf(kGenCutoff).minimum, maySeemOpen ? kHighestCents : kHighestFilterCents};
    const double factor = CutoffFactor(block);
    const double formula = kCentsPerOctave * std::log2(block[kArtCutoff] / factor * kZeroCentsPerHz);
    out.generators[kGenCutoff] = Invert(formula, limits, ToWhole(formula, limits), block[kArtCutoff],
                                        [&](int cents) { return StoredCutoff(cents, factor); });
}

void DropUnwritableFilter(ArticulationBlock& block)
{
    if (IsWritable(static_cast<FilterType>(block[kArtFilterType])))
        return;
    for (const ParamId id : kFilterDepths)
        block.Inherit(id, 0);
    for (const ParamId id : {kArtFilterType, kArtCutoff, kArtResonance})
        block.Inherit(id, DefaultArticulation()[id]);
}

void MakeFilterSourcesBipolar(Zone& zone) noexcept
{
    if (!HasFilter(zone) || !Halve(zone, kSlotUniKeyToCutoff, kSlotKeyToCutoff))
        return;
    MoveGenerator(zone, kGenCutoff, zone.slots[kSlotKeyToCutoff]);
    if (!HasFilter(zone))
        zone.generators[kGenCutoff] = kHighestFilterCents;
}

} // namespace vimbo::sf2
