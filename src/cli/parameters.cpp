#include "cli/parameters.h"

#include "base/text.h"
#include "cli/json_values.h"

#include <array>
#include <bit>

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

/// Without the ranges.
const std::array<std::string, kLastTriggerParam + 1>& TriggerNames()
{
    static const auto kNames = [] {
        std::array<std::string, kLastTriggerParam + 1> names;
        for (ParamId id = kParamKeyFadeIn; id <= kLastTriggerParam; ++id)
            names[id] = WideToUtf8(TriggerParamRow(id).name);
        return names;
    }();
    return kNames;
}

} // namespace

double ShownParam::ValueInUnit() const
{
    if (IsVolumeLevel(*row))
        return ShortDouble(static_cast<float>((stored - 1.0) * kVolumeEnvelopeRangeDb));
    return row->unit == ParamUnit::Percent ? ShortDouble(stored * 100) : ShortDouble(stored);
}

std::string ShownParam::Unit() const
{
    return WideToUtf8(UnitWord(row->unit));
}

std::string ShownParam::Text() const
{
    return WideToUtf8(FormatParamValue(row->id, stored));
}

std::vector<ShownParam> SetParams(const ArticulationBlock& block)
{
    constexpr std::size_t kWordBits = 64;
    std::vector<ShownParam> shown;
    const auto marks = block.Marks();
    for (std::size_t word = 0; word < marks.size(); ++word)
        for (std::uint64_t bits = marks[word]; bits != 0; bits &= bits - 1) {
            const auto bit = static_cast<std::size_t>(std::countr_zero(bits));
            const auto id = static_cast<ParamId>(word * kWordBits + bit);
            shown.push_back({&ArticulationParamRow(id), ArticulationNames()[id], block[id]});
        }
    return shown;
}

std::vector<ShownParam> TriggerValues(const TriggerParams& trigger)
{
    std::vector<ShownParam> shown;
    for (ParamId id = kParamKeyFadeIn; id <= kLastTriggerParam; ++id) {
        const ParamRow& row = TriggerParamRow(id);
        if (const float value = trigger.Get(id); value != row.defaultValue)
            shown.push_back({&row, TriggerNames()[id], value});
    }
    return shown;
}

const std::string& ParamTexts::Of(const ShownParam& param)
{
    const std::uint64_t key = std::uint64_t{param.row->id} << 32 | std::bit_cast<std::uint32_t>(param.stored);
    const auto [made, isNew] = made_.try_emplace(key);
    if (isNew)
        made->second.append(param.name).append(": ").append(param.Text());
    return made->second;
}

} // namespace vimbo::cli
