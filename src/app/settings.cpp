#include "app/settings.h"

#include "base/last_error.h"
#include "base/text.h"

#include <algorithm>

#include <fmt/format.h>

namespace vimbo::app {

namespace {

/// Whether a value of the row's own type lies within its limits.
struct IsWithin {
    const SettingRow& row;

    bool operator()(bool) const { return true; }
    bool operator()(std::uint64_t) const { return true; }
    bool operator()(std::int64_t value) const { return value >= row.least && value <= row.most; }
    bool operator()(double value) const // not a number: false
    {
        return value >= static_cast<double>(row.least) && value <= static_cast<double>(row.most);
    }
    bool operator()(const std::u16string& value) const
    {
        return static_cast<std::int64_t>(value.size()) <= row.most &&
               value.find(u'\0') == std::u16string::npos;
    }
    bool operator()(const std::vector<std::int64_t>& values) const
    {
        return (values.size() == row.count || (values.empty() && row.mayBeUnset)) &&
               std::ranges::all_of(values, [this](std::int64_t value) { return (*this)(value); });
    }
    bool operator()(const std::vector<std::u16string>& values) const
    {
        return values.size() <= row.count && std::ranges::all_of(values, [this](const auto& value) {
                   return !value.empty() && (*this)(value);
               });
    }
};

} // namespace

SettingValue DefaultOf(const SettingRow& row)
{
    switch (row.type) {
    case SettingType::Flag:
        return row.whole != 0;
    case SettingType::Whole:
        return row.whole;
    case SettingType::Number:
        return row.number;
    case SettingType::Text:
    case SettingType::Path:
        return std::u16string(row.text);
    case SettingType::Mask:
        return ~std::uint64_t{0};
    case SettingType::Wholes:
        return std::vector<std::int64_t>(row.mayBeUnset ? 0 : row.count, row.whole);
    case SettingType::Paths:
        break;
    }
    return std::vector<std::u16string>();
}

std::string DescribeLimits(const SettingRow& row)
{
    switch (row.type) {
    case SettingType::Flag:
        return "true or false";
    case SettingType::Whole:
        return fmt::format("a whole number from {} to {}", row.least, row.most);
    case SettingType::Number:
        return fmt::format("a number from {} to {}", row.least, row.most);
    case SettingType::Text:
        return fmt::format("a text of up to {} characters", row.most);
    case SettingType::Path:
        return "a path";
    case SettingType::Mask:
        return "16 hexadecimal digits";
    case SettingType::Wholes:
        return fmt::format("{} whole numbers from {} to {}", row.count, row.least, row.most);
    case SettingType::Paths:
        break;
    }
    return fmt::format("a list of up to {} paths", row.count);
}

Settings::Settings()
{
    std::ranges::transform(kSettingRows, values_.begin(), DefaultOf);
}

bool Settings::SetValue(std::size_t row, SettingValue value)
{
    const SettingRow& rule = kSettingRows[row];
    if (value.index() != values_[row].index() || !std::visit(IsWithin{rule}, value))
        return Fail(Utf8ToWide(fmt::format("{} must be {}", rule.key, DescribeLimits(rule))));
    values_[row] = std::move(value);
    isChanged_[row] = true;
    return true;
}

void Settings::Reset(std::size_t row)
{
    values_[row] = DefaultOf(kSettingRows[row]);
    isChanged_[row] = true;
}

bool Settings::IsDefault(std::size_t row) const
{
    return values_[row] == DefaultOf(kSettingRows[row]);
}

} // namespace vimbo::app
