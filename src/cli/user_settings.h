// The user's settings as the commands read and save them.
#pragma once

#include "app/settings.h"
#include "cli/console.h"

namespace vimbo::cli {

/// What is wrong with the file is told, and its defaults are used. Commands take from the settings only how
/// songs and synthesis models become waveforms: everything else that they do depends on their arguments
/// alone.
app::Settings LoadUserSettings(Console& console);

/// False, and told, if the settings could not be saved.
[[nodiscard]] bool SaveUserSettings(app::Settings& settings, Console& console);

} // namespace vimbo::cli
