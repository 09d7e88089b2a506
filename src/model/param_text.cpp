// Numbered parameters as users read them.
#include "base/numeric.h"
#include "base/text.h"
#include "model/articulation.h"
#include "model/data_format.h"
#include "model/envelope.h"

#include <array>
#include <cmath>
#include <fmt/format.h>
#include <span>

namespace vimbo {
namespace {

using Entries = std::span<const std::u16string_view>;

constexpr int kFirstAlternate = 2;
constexpr int kLastAlternate = 17;
constexpr int kPolarityShift = 6;
constexpr int kShapeBits = 0x3F;
constexpr float kVolumeRangeDb = 96; ///< of a volume envelope's level, 0 to 1

constexpr auto kUnits =
    std::to_array<std::u16string_view>({u"", u"dB", u"st", u"x", u"%", u"Hz", u"s", u"ms"});
constexpr auto kPedalSwitches =
    std::to_array<std::u16string_view>({u"Don't switch", u"Play on Down", u"Play on Up"});
constexpr auto kLfoShapes =
    std::to_array<std::u16string_view>({u"Sine", u"Triangle", u"Square", u"Noise", u"Saw-Up", u"Saw-Down"});
constexpr auto kReleaseModes = std::to_array<std::u16string_view>({u"Key Release", u"No Release"});
constexpr auto kFilterTypes = std::to_array<std::u16string_view>(
    {u"Pass-thru", u"Low-Pass 6 dB/oct", u"Low-Pass 12 dB/oct", u"Low-Pass 18 dB/oct", u"Low-Pass 24 dB/oct",
     u"High-Pass 6 dB/oct", u"High-Pass 12 dB/oct", u"High-Pass 18 dB/oct", u"High-Pass 24 dB/oct",
     u"Band-Pass 6 dB/oct", u"Band-Pass 12 dB/oct", u"Band-Reject 6 dB/oct", u"Band-Reject 12 dB/oct"});
constexpr auto kEqModes = std::to_array<std::u16string_view>({u"Peak", u"Lo-shelf", u"Hi-shelf"});
constexpr auto kLoopTypes = std::to_array<std::u16string_view>({u"", u"Forward", u"Reverse", u"Alternating"});
constexpr auto kLoopReleases = std::to_array<std::u16string_view>({u"Infinite", u"Break on Release"});
constexpr auto kChannelFxTypes =
    std::to_array<std::u16string_view>({u"None", u"Chorus", u"Reverb", u"Delay", u"Tremolo", u"Compressor",
                                        u"Distortion", u"Phaser", u"Transient"});
constexpr auto kNoteExclusions = std::to_array<std::u16string_view>({u"Self exclusive", u"Non-exclusive"});
constexpr auto kFadeFormulas = std::to_array<std::u16string_view>({u"Equal-Power", u"Linear Gain"});

std::u16string_view EntryAt(Entries entries, int value) noexcept
{
    const auto index = static_cast<std::size_t>(value);
    return value >= 0 && index < entries.size() ? entries[index] : std::u16string_view();
}

std::u16string TriggerTypeText(int value)
{
    if (value >= kFirstAlternate && value <= kLastAlternate)
        return Utf8ToWide(fmt::format("Alternate Gr.{}", value - kFirstAlternate + 1));
    return value == 0 ? u"Key Press" : value == 1 ? u"Key Release" : u"";
}

std::u16string LfoShapeText(int value)
{
    const std::u16string_view shape = EntryAt(kLfoShapes, value & kShapeBits);
    const int polarity = value >> kPolarityShift;
    if (polarity == 0 || shape.empty())
        return polarity == 0 ? std::u16string(shape) : std::u16string();
    return polarity == 1 ? std::u16string(shape) + u'+' : std::u16string();
}

std::u16string SaveFormatText(int value)
{
    return value >= 0 && value <= static_cast<int>(SaveFormat::Default)
               ? std::u16string(SaveFormatName(static_cast<SaveFormat>(value)))
               : std::u16string();
}

constexpr bool IsList(EditClass editClass) noexcept
{
    return editClass >= EditClass::TriggerType;
}

unsigned DecimalsOf(EditClass editClass) noexcept
{
    switch (editClass) {
    case EditClass::Whole:
        return 0;
    case EditClass::OneDecimal:
    case EditClass::Percent: // three of the factor
        return 1;
    case EditClass::TwoDecimals:
        return 2;
    default:
        return 3;
    }
}

/// Without trailing zeros, and without the sign of a zero.
std::string NumberText(double value, unsigned decimals)
{
    std::string text = fmt::format("{:.{}f}", value, decimals);
    if (decimals > 0) {
        text.erase(text.find_last_not_of('0') + 1);
        if (text.back() == '.')
            text.pop_back();
    }
    return text == "-0" ? "0" : text;
}

std::u16string ListText(EditClass editClass, int value)
{
    const std::u16string entry = ListEntryText(editClass, value);
    if (!entry.empty())
        return entry;
    return value == 0 ? u"Off" : Utf8ToWide(fmt::format("{}", value));
}

bool IsVolumeLevel(const ParamRow& row) noexcept
{
    return row.editClass == EditClass::FourDecimals && row.unit == ParamUnit::Db;
}

/// The names' letter ahead of `what` becomes "M".
std::u16string WithSharedLetter(std::u16string_view name, std::u16string_view what)
{
    std::u16string shown(name);
    const std::size_t at = shown.find(what);
    if (at != std::u16string::npos && at > 0)
        shown[at - 1] = u'M';
    return shown;
}

bool IsOfPitchLfo(ParamId id) noexcept
{
    const ParamId base = LfoBase(LfoIndex::Pitch);
    return (id >= kArtPLfoToPitch && id <= kArtVelPLfoToPitch) || (id >= base && id < base + kLfoParams);
}

bool IsOfVolumeEnvelope(ParamId id) noexcept
{
    const ParamId base = EnvelopeBase(EnvelopeIndex::Volume);
    return id >= base && id < base + kEnvelopeParams;
}

} // namespace

std::u16string DisplayName(ParamId id, FeatureMask features)
{
    const std::u16string_view name = AnyParamRow(id).name;
    const ParamGroup group = id < kArticulationParams ? GroupOf(id) : ParamGroup::Other;
    const bool keepsPitchLfo = features.Has(Feature::LfoPitchAndModulation) && IsOfPitchLfo(id);
    if (group == ParamGroup::Lfo && !features.Has(Feature::LfoSeparate) && !keepsPitchLfo)
        return WithSharedLetter(name, u"-LFO");
    if (group == ParamGroup::Envelope && !features.Has(Feature::EnvSeparate) && !IsOfVolumeEnvelope(id))
        return WithSharedLetter(name, u"-ENV");
    return std::u16string(name);
}

std::u16string_view UnitWord(ParamUnit unit) noexcept
{
    return EntryAt(kUnits, static_cast<int>(unit));
}

std::u16string ListEntryText(EditClass editClass, int value)
{
    const auto entry = [value](Entries entries) { return std::u16string(EntryAt(entries, value)); };
    switch (editClass) {
    case EditClass::TriggerType:
        return TriggerTypeText(value);
    case EditClass::PedalSwitch:
        return entry(kPedalSwitches);
    case EditClass::LfoShape:
        return LfoShapeText(value);
    case EditClass::ReleaseMode:
        return entry(kReleaseModes);
    case EditClass::FilterType:
        return entry(kFilterTypes);
    case EditClass::EqMode:
        return entry(kEqModes);
    case EditClass::LoopType:
        return entry(kLoopTypes);
    case EditClass::LoopRelease:
        return entry(kLoopReleases);
    case EditClass::ChannelFxType:
        return entry(kChannelFxTypes);
    case EditClass::NoteExclusion:
        return entry(kNoteExclusions);
    case EditClass::FadeFormula:
        return entry(kFadeFormulas);
    case EditClass::SaveFormat:
        return SaveFormatText(value);
    default:
        return {};
    }
}

std::u16string FormatParamValue(ParamId id, float value)
{
    const ParamRow& row = AnyParamRow(id);
    if (std::isnan(value))
        value = row.defaultValue;
    if (row.editClass == EditClass::Key)
        return Utf8ToWide(NoteName(RoundToInt(value)));
    if (IsList(row.editClass))
        return ListText(row.editClass, RoundToInt(value));
    double shown = value;
    if (row.editClass == EditClass::Percent)
        shown *= 100;
    else if (IsVolumeLevel(row))
        shown = (shown - 1) * kVolumeRangeDb;
    std::u16string text = Utf8ToWide(NumberText(shown, DecimalsOf(row.editClass)));
    if (row.unit != ParamUnit::None)
        text.append(u" ").append(UnitWord(row.unit));
    return text;
}

} // namespace vimbo
