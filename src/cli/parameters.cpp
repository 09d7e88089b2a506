#include "cli/parameters.h"

#include "base/text.h"
#include "cli/json_values.h"

#include <array>
#include <unordered_map>

namespace vimbo::cli {

namespace {

constexpr double kVolumeEnvelopeRangeDb = 96;

/// Names of all articulation values, made unique.
const std::array<std::string, kArticulationParams>& ArticulationNames()
{
    static const auto kNames = [] {
        std::array<std::string, kArticulationParams> names;
        std::unordered_map<std::u16string_view, int> seen;
        for (ParamId id = 0; id < kArticulationParams; ++id) {
            const std::u16string_view name = ArticulationParamRow(id).name;
            names[id] = WideToUtf8(name);
            if (seen[name]++ > 0)
                names[id] += " #" + std::to_string(id);
        }
        return names;
    }();
    return kNames;
}

bool IsVolumeLevel(const ParamRow& row) noexcept
{
    return row.editClass == EditClass::FourDecimals && row.unit == ParamUnit::Db;
}

double ValueInUnit(const ParamRow& row, float value)
{
    if (IsVolumeLevel(row))
        return ShortDouble(static_cast<float>((value - 1.0) * kVolumeEnvelopeRangeDb));
    return row.unit == ParamUnit::Percent ? ShortDouble(value * 100) : ShortDouble(value);
}

ShownParam Show(const ParamRow& row, std::string name, float value)
{
    return {row.id, std::move(name), ValueInUnit(row, value), WideToUtf8(UnitWord(row.unit)),
            WideToUtf8(FormatParamValue(row.id, value))};
}

} // namespace

std::vector<ShownParam> SetParams(const ArticulationBlock& block)
{
    std::vector<ShownParam> shown;
    for (ParamId id = 0; id < kArticulationParams; ++id)
        if (block.IsSet(id))
            shown.push_back(Show(ArticulationParamRow(id), ArticulationNames()[id], block[id]));
    return shown;
}

std::vector<ShownParam> TriggerValues(const TriggerParams& trigger)
{
    std::vector<ShownParam> shown;
    for (ParamId id = kParamKeyFadeIn; id <= kLastTriggerParam; ++id) {
        const ParamRow& row = TriggerParamRow(id);
        if (trigger.Get(id) != row.defaultValue)
            shown.push_back(Show(row, WideToUtf8(row.name), trigger.Get(id)));
    }
    return shown;
}

} // namespace vimbo::cli
