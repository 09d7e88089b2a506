// The user's own folders.
#pragma once

#include <string>

namespace vimbo {

/// A base folder of the user (XDG Base Directory specification 0.8): what the environment variable names if
/// that is an absolute path, else `below` in the home folder. "" if the user has no home.
/// @param variable  such as "XDG_CONFIG_HOME"
/// @param below     such as ".config"
std::string UserFolder(const char* variable, const char* below);

} // namespace vimbo
