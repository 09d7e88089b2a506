// The user's settings on disk: a TOML file (toml.io, version 1.0) with a table per group.
#pragma once

#include "app/settings.h"

namespace vimbo {
class Host;
} // namespace vimbo

namespace vimbo::app {

/// The user's file: what the environment variable VIMBO_SETTINGS names, else "vimbo-studio/settings.toml" in
/// $XDG_CONFIG_HOME (~/.config). "": there is none, since the variable is empty or the user has no home.
std::u16string UserSettingsPath();

/// Reads settings. What is missing has its default, and so has what is of the wrong type or outside the
/// limits; the host then shows one message with a line for each of these. A file that cannot be read or is
/// damaged gives all defaults, with a message. Nothing on disk changes. Path "": all defaults.
Settings LoadSettings(std::u16string_view path, Host& host);

/// Writes all settings, whole or not at all, and forgets their changes. The file as it is now keeps: keys
/// that the program does not know; and values of settings that were not changed here, so that two programs
/// that save do not undo each other's changes, and a value that was refused on loading stays until it is set.
/// Comments are lost: the library does not keep them. A damaged file is renamed (".damaged", a number behind
/// it if that is taken), and the host told. Settings that may be unset are left out while they are.
/// @return false with the Last error text, and the earlier file in place; also for path ""
[[nodiscard]] bool SaveSettings(Settings& settings, std::u16string_view path, Host& host);

} // namespace vimbo::app
