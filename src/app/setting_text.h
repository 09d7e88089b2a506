// Settings as people type and read them.
#pragma once

#include "app/settings.h"

#include <optional>

namespace vimbo::app {

/// The row of a key in any letter case; kSettingRows.size() if there is none.
std::size_t FindSettingAnyCase(std::string_view key);

/// The value that a text means: true, on, yes, 1 and their opposites; numbers, whole ones also as 0x...;
/// whole numbers with commas between them, "" for none; texts and paths as they are, in the system's
/// encoding. Nothing, with the Last error text, if the row takes no such text; limits are not checked. Lists
/// of paths are the program's own and cannot be typed.
std::optional<SettingValue> ParseSetting(const SettingRow& row, std::string_view text);

/// The text that ParseSetting reads; paths of a list stand on lines of their own.
std::string SettingText(const SettingRow& row, const SettingValue& value);

} // namespace vimbo::app
