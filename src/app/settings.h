// The persistent options of a user, in memory.
#pragma once

#include "app/setting_rows.h"

#include <bitset>
#include <type_traits>

namespace vimbo::app {

/// A value for every row of the table, always of the row's type and within its limits.
class Settings {
public:
    /// All defaults.
    Settings();

    /// settings.Get<bool>("mid2wav.bEffects")
    template <class T>
    const T& Get(SettingKey<T> key) const noexcept
    {
        return *std::get_if<T>(&values_[key.Row()]);
    }
    /// False with the Last error text, without any change, if the value lies outside the limits.
    template <class T>
    [[nodiscard]] bool Set(SettingKey<T> key, std::type_identity_t<T> value)
    {
        return SetValue(key.Row(), std::move(value));
    }

    /// The same by row numbers, 0 to kSettingRows.size() - 1. A value of another type than the row's fails
    /// too.
    const SettingValue& Value(std::size_t row) const noexcept { return values_[row]; }
    [[nodiscard]] bool SetValue(std::size_t row, SettingValue value);
    void Reset(std::size_t row);
    bool IsDefault(std::size_t row) const;

    /// True if the row was set or reset since ForgetChanges.
    bool IsChanged(std::size_t row) const noexcept { return isChanged_[row]; }
    void ForgetChanges() noexcept { isChanged_.reset(); }

private:
    std::array<SettingValue, kSettingRows.size()> values_;
    std::bitset<kSettingRows.size()> isChanged_;
};

SettingValue DefaultOf(const SettingRow& row);
/// What the row takes, for people: "a whole number from 1 to 128".
std::string DescribeLimits(const SettingRow& row);

} // namespace vimbo::app
