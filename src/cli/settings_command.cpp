#include "cli/commands.h"
#include "cli/display.h"
#include "cli/report_json.h"
#include "cli/user_settings.h"

#include "app/setting_text.h"
#include "app/settings_file.h"
#include "base/last_error.h"
#include "base/path.h"
#include "base/text.h"

#include <fmt/format.h>

#include <filesystem>
#include <numeric>

namespace vimbo::cli {

namespace {

using app::kSettingRows;
using app::SettingRow;
using app::SettingType;

/// A setting's value for programs.
struct JsonWriter {
    SettingType type;

    Json operator()(const std::u16string& value) const
    {
        return type == SettingType::Text ? WideToUtf8(value) : PathToUtf8(WideToPath(value));
    }
    Json operator()(const std::vector<std::u16string>& values) const
    {
        Json list = Json::array();
        for (const std::u16string& value : values)
            list.push_back((*this)(value));
        return list;
    }
    Json operator()(std::uint64_t mask) const { return fmt::format("{:016x}", mask); }
    template <class T>
    Json operator()(const T& value) const
    {
        return value;
    }
};

std::string_view TypeWord(SettingType type)
{
    constexpr std::array<std::string_view, 8> kWords = {"boolean", "integer", "number",   "string",
                                                        "path",    "mask",    "integers", "paths"};
    return kWords[static_cast<std::size_t>(type)];
}

bool HasLimits(SettingType type)
{
    return type == SettingType::Whole || type == SettingType::Number || type == SettingType::Wholes;
}

Json RowJson(const app::Settings& settings, std::size_t index)
{
    const SettingRow& row = kSettingRows[index];
    Json json{{"key", row.key},
              {"type", TypeWord(row.type)},
              {"value", std::visit(JsonWriter{row.type}, settings.Value(index))},
              {"default", std::visit(JsonWriter{row.type}, app::DefaultOf(row))},
              {"isDefault", settings.IsDefault(index)},
              {"used", !row.meaning.empty()},
              {"meaning", row.meaning}};
    if (HasLimits(row.type)) {
        json["least"] = row.least;
        json["most"] = row.most;
    }
    return json;
}

std::string RowLine(const app::Settings& settings, std::size_t index)
{
    const SettingRow& row = kSettingRows[index];
    std::string line = fmt::format(
        "{:26} {:20} {:7} {}", row.key, Printable(SettingText(row, settings.Value(index))),
        settings.IsDefault(index) ? "default" : "", row.meaning.empty() ? "not used yet" : row.meaning);
    line.erase(line.find_last_not_of(' ') + 1);
    return line + "\n";
}

/// One run of the command.
class SettingsJob {
public:
    SettingsJob(const SettingsOptions& options, Console& console)
        : options_(options), console_(console), settings_(LoadUserSettings(console))
    {
    }

    int Run()
    {
        if (!options_.reset.empty())
            return Reset();
        if (options_.key.empty())
            return List();
        const std::size_t row = Find(options_.key);
        if (row == kSettingRows.size())
            return kExitUsage;
        return options_.value ? Set(row) : Show(row);
    }

private:
    /// Complains if there is none.
    std::size_t Find(const std::string& key)
    {
        const std::size_t row = app::FindSettingAnyCase(key);
        if (row == kSettingRows.size())
            console_.Say(Severity::Error, "",
                         fmt::format("there is no setting \"{}\"; \"vimbo settings --all\" lists them",
                                     Printable(key)));
        return row;
    }

    int Save() { return SaveUserSettings(settings_, console_) ? kExitGood : kExitFailed; }

    int Reset()
    {
        if (options_.reset == "all") {
            for (std::size_t row = 0; row < kSettingRows.size(); ++row)
                settings_.Reset(row);
            return Save();
        }
        const std::size_t row = Find(options_.reset);
        if (row == kSettingRows.size())
            return kExitUsage;
        settings_.Reset(row);
        return Save();
    }

    int Set(std::size_t row)
    {
        const SettingRow& rule = kSettingRows[row];
        std::optional<app::SettingValue> value = app::ParseSetting(rule, TypedText(rule));
        if (!value || !settings_.SetValue(row, std::move(*value))) {
            console_.Say(Severity::Error, "", Printable(LastError()));
            return kExitUsage;
        }
        if (rule.meaning.empty())
            console_.Say(Severity::Note, "", fmt::format("{} is not used yet", rule.key));
        else if (rule.type == SettingType::Path && !options_.value->empty() &&
                 !IsFile(PathToWide(TypedText(rule))))
            console_.Say(Severity::Note, *options_.value, "there is no such file now");
        return Save();
    }

    /// A path holds wherever the program is started next.
    std::string TypedText(const SettingRow& rule) const
    {
        std::error_code error;
        if (rule.type != SettingType::Path || options_.value->empty())
            return *options_.value;
        return std::filesystem::absolute(*options_.value, error).native();
    }

    int Show(std::size_t row)
    {
        const std::string text = options_.json ? ToText(Json::array({RowJson(settings_, row)}))
                                               : SettingText(kSettingRows[row], settings_.Value(row)) + "\n";
        return WriteOut(text) ? kExitGood : kExitFailed;
    }

    int List()
    {
        const std::u16string path = app::UserSettingsPath();
        console_.Say(Severity::Detail, "",
                     path.empty() ? "there is no settings file"
                                  : "settings file: " + Printable(WideToPath(path)));
        Json json = Json::array();
        std::string lines;
        for (std::size_t row = 0; row < kSettingRows.size(); ++row) {
            if (kSettingRows[row].meaning.empty() && !options_.all)
                continue;
            if (options_.json)
                json.push_back(RowJson(settings_, row));
            else
                lines += RowLine(settings_, row);
        }
        return WriteOut(options_.json ? ToText(json) : lines) ? kExitGood : kExitFailed;
    }

    const SettingsOptions& options_;
    Console& console_;
    app::Settings settings_;
};

} // namespace

int RunSettings(const SettingsOptions& options, Console& console)
{
    return SettingsJob(options, console).Run();
}

} // namespace vimbo::cli
