// Settings as people type them, and their limits.
#include "app/setting_text.h"

#include "base/last_error.h"
#include "base/text.h"

#include <gtest/gtest.h>

#include <set>

namespace vimbo::app {
namespace {

/// The text that remains of a typed one, or "!" and why it is refused.
std::string Typed(std::string_view key, std::string_view text)
{
    const std::size_t row = FindSettingAnyCase(key);
    Settings settings;
    const std::optional<SettingValue> value = ParseSetting(kSettingRows[row], text);
    if (!value || !settings.SetValue(row, *value))
        return "!" + WideToUtf8(LastError());
    return SettingText(kSettingRows[row], settings.Value(row));
}

TEST(SettingText, IsReadAndLimited)
{
    struct Case {
        std::string_view key, text;
        std::string expected;
    };
    const Case cases[] = {
        {"mid2wav.bEffects", "Off", "false"},
        {"MID2WAV.BEFFECTS", "1", "true"},
        {"mid2wav.bEffects", "2", "!mid2wav.bEffects must be true or false"},
        {"mid2wav.bEffects", "", "!mid2wav.bEffects must be true or false"},
        {"mid2wav.dwSampleRate", "0xAC44", "44100"},
        {"mid2wav.dwSampleRate", "44100 ",
         "!mid2wav.dwSampleRate must be a whole number from 8000 to 768000"},
        {"mid2wav.dwSampleRate", "7999", "!mid2wav.dwSampleRate must be a whole number from 8000 to 768000"},
        {"mid2wav.dwSampleRate", "768000", "768000"},
        {"mid2wav.dwSampleRate", "99999999999999999999",
         "!mid2wav.dwSampleRate must be a whole number from 8000 to 768000"},
        {"aio.nLatency", "-1", "-1"},
        {"aio.nLatency", "0x-1", "!aio.nLatency must be a whole number from -1 to 2147483647"},
        {"aio.fdbMixGain", "-0.5", "-0.5"},
        {"aio.fdbMixGain", "nan", "!aio.fdbMixGain must be a number from -96 to 96"},
        {"aio.szMidiInDev", "\xC3\xBC", "\xC3\xBC"},
        {"mid2wav.wszGMBank", "/\xFF.sf2", "/\xFF.sf2"},
        {"mid2wav.wszGMBank", std::string_view("a\0b", 3), "!mid2wav.wszGMBank must be a path"},
        {"features", "00000000000000ff", "00000000000000ff"},
        {"features", "ff", "!features must be 16 hexadecimal digits"},
        {"app.ptLastPos", "-3,4", "-3,4"},
        {"app.ptLastPos", "", ""},
        {"app.ptLastPos", "1,2,3", "!app.ptLastPos must be 2 whole numbers from -2147483647 to 2147483647"},
        {"app.aiLastExp", "", "!app.aiLastExp must be 5 whole numbers from -1 to 531"},
        {"app.LastFilesW", "/a", "!app.LastFilesW is kept by the program, and can only be reset"},
    };
    for (const Case& row : cases)
        EXPECT_EQ(Typed(row.key, row.text), row.expected) << row.key << " " << row.text;
    EXPECT_EQ(FindSettingAnyCase("mid2wav"), kSettingRows.size());
}

TEST(SettingRows, DefaultsLieWithinTheLimitsAndKeysTellTheType)
{
    std::set<std::string_view> keys;
    Settings settings;
    for (std::size_t row = 0; row < kSettingRows.size(); ++row) {
        const SettingRow& rule = kSettingRows[row];
        EXPECT_TRUE(keys.insert(rule.key).second) << rule.key;
        EXPECT_TRUE(settings.SetValue(row, DefaultOf(rule))) << rule.key;
        EXPECT_EQ(FindSetting(rule.key), row);
        const std::string_view name = rule.key.substr(rule.key.rfind('.') + 1);
        EXPECT_TRUE(rule.type != SettingType::Flag || name.starts_with('b')) << rule.key;
    }
    EXPECT_FALSE(settings.SetValue(FindSetting("mid2wav.bEffects"), std::int64_t{1})) << "of another type";
}

} // namespace
} // namespace vimbo::app
