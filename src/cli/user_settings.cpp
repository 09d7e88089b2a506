#include "cli/user_settings.h"

#include "app/settings_file.h"
#include "base/host.h"
#include "base/last_error.h"
#include "base/text.h"
#include "cli/display.h"

#include <algorithm>

namespace vimbo::cli {

namespace {

/// Prints what is told about the settings file.
class SettingsHost final : public Host {
public:
    SettingsHost(Console& console, std::u16string_view path) : console_(console), file_(WideToPath(path)) {}

    /// A line of its own for each of the message's.
    void ShowMessage(std::u16string_view text, std::u16string_view, MessageIcon) override
    {
        while (!text.empty()) {
            const std::size_t end = std::min(text.find(u'\n'), text.size());
            console_.Say(Severity::Note, file_, Printable(text.substr(0, end)));
            text.remove_prefix(std::min(end + 1, text.size()));
        }
    }

private:
    Console& console_;
    const std::string file_;
};

} // namespace

app::Settings LoadUserSettings(Console& console)
{
    const std::u16string path = app::UserSettingsPath();
    SettingsHost host(console, path);
    return app::LoadSettings(path, host);
}

bool SaveUserSettings(app::Settings& settings, Console& console)
{
    const std::u16string path = app::UserSettingsPath();
    SettingsHost host(console, path);
    const bool saved = app::SaveSettings(settings, path, host);
    if (!saved)
        console.Say(Severity::Error, WideToPath(path), Printable(LastError()));
    else
        console.Say(Severity::Detail, WideToPath(path), "saved");
    return saved;
}

} // namespace vimbo::cli
