#include "app/setting_text.h"

#include "base/last_error.h"
#include "base/text.h"

#include <algorithm>
#include <charconv>

#include <fmt/format.h>

namespace vimbo::app {

namespace {

template <class T, class... Base>
std::optional<T> NumberOf(std::string_view text, Base... base)
{
    T value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base...);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(value) : std::nullopt;
}

std::optional<std::int64_t> WholeOf(std::string_view text)
{
    if (text.starts_with("0x") || text.starts_with("0X"))
        return text.substr(2).starts_with('-') ? std::nullopt : NumberOf<std::int64_t>(text.substr(2), 16);
    return NumberOf<std::int64_t>(text);
}

std::optional<bool> FlagOf(std::string_view text)
{
    constexpr std::array<std::string_view, 4> kYes = {"true", "on", "yes", "1"};
    constexpr std::array<std::string_view, 4> kNo = {"false", "off", "no", "0"};
    const auto isWord = [text](std::string_view word) {
        return CompareNoCase(Utf8ToWide(text), Utf8ToWide(word)) == 0;
    };
    if (std::ranges::any_of(kYes, isWord))
        return true;
    return std::ranges::any_of(kNo, isWord) ? std::optional(false) : std::nullopt;
}

std::optional<std::vector<std::int64_t>> WholesOf(std::string_view text)
{
    std::vector<std::int64_t> values;
    while (!text.empty()) {
        const std::size_t comma = std::min(text.find(','), text.size());
        const std::optional<std::int64_t> value = WholeOf(text.substr(0, comma));
        if (!value)
            return std::nullopt;
        values.push_back(*value);
        text.remove_prefix(std::min(comma + 1, text.size()));
    }
    return values;
}

std::optional<SettingValue> Parsed(const SettingRow& row, std::string_view text)
{
    const auto wrap = [](auto value) { return value ? std::optional<SettingValue>(*value) : std::nullopt; };
    switch (row.type) {
    case SettingType::Flag:
        return wrap(FlagOf(text));
    case SettingType::Whole:
        return wrap(WholeOf(text));
    case SettingType::Number:
        return wrap(NumberOf<double>(text));
    case SettingType::Text:
        return Utf8ToWide(text);
    case SettingType::Path:
        return PathToWide(text);
    case SettingType::Mask:
        return wrap(text.size() == 16 ? NumberOf<std::uint64_t>(text, 16) : std::nullopt);
    case SettingType::Wholes:
        return wrap(WholesOf(text));
    case SettingType::Paths:
        break;
    }
    return std::nullopt;
}

struct Writer {
    SettingType type;

    std::string operator()(bool value) const { return value ? "true" : "false"; }
    std::string operator()(std::int64_t value) const { return fmt::format("{}", value); }
    std::string operator()(double value) const { return fmt::format("{}", value); }
    std::string operator()(std::uint64_t value) const { return fmt::format("{:016x}", value); }
    std::string operator()(const std::u16string& value) const
    {
        return type == SettingType::Text ? WideToUtf8(value) : WideToPath(value);
    }
    std::string operator()(const std::vector<std::int64_t>& values) const
    {
        return fmt::format("{}", fmt::join(values, ","));
    }
    std::string operator()(const std::vector<std::u16string>& values) const
    {
        std::string text;
        for (const std::u16string& value : values)
            text += (text.empty() ? "" : "\n") + WideToPath(value);
        return text;
    }
};

} // namespace

std::size_t FindSettingAnyCase(std::string_view key)
{
    const auto found = std::ranges::find_if(kSettingRows, [wide = Utf8ToWide(key)](const SettingRow& row) {
        return CompareNoCase(Utf8ToWide(row.key), wide) == 0;
    });
    return static_cast<std::size_t>(found - kSettingRows.begin());
}

std::optional<SettingValue> ParseSetting(const SettingRow& row, std::string_view text)
{
    std::optional<SettingValue> value = Parsed(row, text);
    if (!value && row.type == SettingType::Paths)
        (void)Fail(Utf8ToWide(fmt::format("{} is kept by the program, and can only be reset", row.key)));
    else if (!value)
        (void)Fail(Utf8ToWide(fmt::format("{} must be {}", row.key, DescribeLimits(row))));
    return value;
}

std::string SettingText(const SettingRow& row, const SettingValue& value)
{
    return std::visit(Writer{row.type}, value);
}

} // namespace vimbo::app
