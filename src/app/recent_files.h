// Files and folders that the program used last, as the settings keep them.
#pragma once

#include "app/settings.h"

namespace vimbo::app {

/// Number `index` of the list, the latest first; "" past its end.
std::u16string GetRecentFile(const Settings& settings, std::size_t index);
/// Puts the path at the head of the list (which it is in once) as an absolute one. The oldest of more than
/// the list holds are forgotten, and so is a path that is longer than paths can be.
void AddRecentFile(Settings& settings, std::u16string_view path);
void RemoveRecentFile(Settings& settings, std::u16string_view path);

enum class FileRole { Input, Output };
enum class AddToRecent { No, Yes };

/// Stores the file's folder as the one that was last read from or saved to, and, if wanted, adds the file to
/// the list.
void RememberFile(Settings& settings, std::u16string_view path, FileRole role, AddToRecent add);

/// "kick.wav - Vimbo Studio": the main window's title with this file.
std::u16string WindowTitle(std::u16string_view path);

} // namespace vimbo::app
