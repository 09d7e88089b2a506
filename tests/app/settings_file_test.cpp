// Settings on disk: what is written reads back, here and elsewhere; what is not ours stays; damage costs
// nothing.
#include "app/settings_file.h"

#include "base/last_error.h"
#include "programs.h"
#include "test_files.h"
#include "test_host.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace vimbo::app {
namespace {

namespace fs = std::filesystem;
using vimbo::testing::ScriptedHost;
using Texts = std::vector<std::u16string>;

class SettingsFile : public ::testing::Test {
protected:
    void Write(std::string_view text, const std::string& name = "settings.toml")
    {
        folder_.Put(name, std::as_bytes(std::span(text)));
    }
    std::string Read(const std::string& name = "settings.toml") const
    {
        const vimbo::testing::Bytes bytes = folder_.Get(name);
        return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
    }
    Settings Load() { return LoadSettings(path_, host_); }
    bool Save(Settings& settings) { return SaveSettings(settings, path_, host_); }
    std::vector<std::string> Names() const
    {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder_.Path()))
            names.push_back(entry.path().filename());
        std::ranges::sort(names);
        return names;
    }

    vimbo::testing::ScratchFolder folder_;
    const std::u16string path_ = folder_.Wide("settings.toml");
    ScriptedHost host_;
};

/// Values of all types that are not the defaults.
void FillOddly(Settings& settings)
{
    ASSERT_TRUE(settings.Set<bool>("mid2wav.bEffects", false));
    ASSERT_TRUE(settings.Set<std::int64_t>("aio.nLatency", -1));
    ASSERT_TRUE(settings.Set<std::int64_t>("fmt.vox.dwDataFormat", 0xFFFFFFFF));
    ASSERT_TRUE(settings.Set<double>("aio.fdbMixGain", -0.1));
    ASSERT_TRUE(settings.Set<std::u16string>("aio.szMidiInDev", u"Fader \"8\" 'x'\t\u00FC\n\u4E16"));
    ASSERT_TRUE(
        settings.Set<std::u16string>("mid2wav.wszGMBank", u"/b\u00E4nke/\xDCFF\xDC80%41.sf2")); // no UTF-8
    ASSERT_TRUE(settings.Set<std::uint64_t>("features", 0x8000000000000001));
    ASSERT_TRUE(settings.Set<std::vector<std::int64_t>>("app.ptLastPos", {-5, 7}));
    ASSERT_TRUE(settings.Set<Texts>("app.LastFilesW", {u"/a.wav", u"/b/\xDC9F\n.mid", u"file:///odd"}));
}

TEST_F(SettingsFile, EveryTypeComesBackAndOthersReadIt)
{
    Settings settings;
    FillOddly(settings);
    ASSERT_TRUE(Save(settings));
    const Settings back = Load();
    for (std::size_t row = 0; row < kSettingRows.size(); ++row) {
        EXPECT_EQ(back.Value(row), settings.Value(row)) << kSettingRows[row].key;
        EXPECT_FALSE(back.IsChanged(row));
    }
    EXPECT_EQ(host_.shown, Texts());

    if (vimbo::testing::OutputOf("python3 -c 'import tomllib; print(1)' 2>&1") != "1\n")
        GTEST_SKIP() << "no python3 with tomllib";
    EXPECT_EQ(
        vimbo::testing::OutputOf(
            "python3 -c \"import tomllib; t = tomllib.load(open('" + folder_.Path().string() +
            "/settings.toml', 'rb')); print(t['mid2wav']['bEffects'], t['aio']['fdbMixGain'], "
            "t['fmt']['vox']['dwDataFormat'], t['features'], ascii(t['aio']['szMidiInDev']), "
            "t['app']['ptLastPos'], t['VersionNumber'])\""),
        "False -0.1 4294967295 8000000000000001 'Fader \"8\" \\'x\\'\\t\\xfc\\n\\u4e16' [-5, 7] 12.7\n");
}

TEST_F(SettingsFile, WithoutAFileThereAreDefaultsAndTheFirstSaveWritesThemInOrder)
{
    Settings settings = Load();
    EXPECT_EQ(settings.Get<std::int64_t>("app.iPaneSplitL"), 221);
    EXPECT_EQ(settings.Get<std::vector<std::int64_t>>("app.aiLastExp"), (std::vector<std::int64_t>(5, -1)));
    EXPECT_EQ(settings.Get<double>("aio.fdbWaveGain"), -6.0);
    EXPECT_EQ(settings.Get<std::u16string>("aio.acVKlo"), u"ZSXDCVGBHNJM,L.");
    EXPECT_EQ(settings.Get<std::u16string>("mid2wav.wszGMBank"), u"");
    EXPECT_EQ(settings.Get<std::uint64_t>("features"), 0xFFFFFFFFFFFFFFFF);
    ASSERT_TRUE(Save(settings));
    const std::string text = Read();
    std::size_t at = 0, written = 0;
    for (const SettingRow& row : kSettingRows) {
        if (row.mayBeUnset || row.key == "features")
            continue;
        at = text.find("\n" + std::string(row.key.substr(row.key.rfind('.') + 1)) + " = ", at);
        ASSERT_NE(at, std::string::npos) << row.key;
        ++written;
    }
    EXPECT_EQ(static_cast<std::size_t>(std::ranges::count(text, '=')), written + 2); // features, version
    EXPECT_NE(text.find("\nszAudioOutSampleRate = 48000\n"), std::string::npos)
        << "a number, whatever its name";
    EXPECT_EQ(text.find("ptLastPos"), std::string::npos);
    EXPECT_EQ(host_.shown, Texts());
}

TEST_F(SettingsFile, WhatDoesNotFitReadsAsTheDefaultAndIsNamed)
{
    Write("features = 'ffff'\n"
          "[mid2wav]\n"
          "dwSampleRate = 44100\n"
          "bEffects = 0\n" // people write flags so
          "bNormalizePeak = 'no'\n"
          "bDeleteSilence = 2\n"
          "iMaxPolyphony = 65001\n"
          "wszGMBank = 5\n"
          "[app]\n"
          "iPaneSplitL = 5\n"
          "aiLastExp = [1, 2, 3, 4, 532]\n"
          "ptLastPos = [1]\n"
          "LastFilesW = ['a', 1]\n"
          "[aio]\n"
          "fdbMixGain = 3\n"
          "fdbWaveGain = nan\n"
          "szMidiInDev = 'a name of thirty-two characters.'\n"
          "[sy2wt]\n"
          "iNumWaves = 2.0\n");
    const Settings settings = Load();
    EXPECT_EQ(settings.Get<std::int64_t>("mid2wav.dwSampleRate"), 44100);
    EXPECT_EQ(settings.Get<bool>("mid2wav.bEffects"), false);
    EXPECT_EQ(settings.Get<double>("aio.fdbMixGain"), 3.0);
    EXPECT_EQ(settings.Get<std::int64_t>("app.iPaneSplitL"), 221);
    const Settings defaults;
    std::size_t kept = 0;
    for (std::size_t row = 0; row < kSettingRows.size(); ++row)
        kept += settings.Value(row) == defaults.Value(row) ? 1 : 0;
    EXPECT_EQ(kept, kSettingRows.size() - 3);
    ASSERT_EQ(host_.shown.size(), 1u);
    const std::u16string& told = host_.shown[0];
    EXPECT_EQ(std::ranges::count(told, u'\n'), 11) << WideToUtf8(told);
    EXPECT_NE(
        told.find(
            u"line 7: mid2wav.iMaxPolyphony must be a whole number from 1 to 65000; the default is used"),
        std::u16string::npos)
        << WideToUtf8(told);
}

TEST_F(SettingsFile, SavingKeepsWhatIsNotItsOwn)
{
    Write("later = 1979-05-27\n"
          "[mid2wav]\n"
          "bEffects = true\n"
          "dwSampleRate = 'fast'\n"
          "iMaxPolyphony = 0\n"
          "wszLater = \"x\\ny\"\n"
          "[mid2wav.\"sub group\".'deep.er']\n"
          "\"odd key\" = [ {a = 1}, {b = [2]} ]\n"
          "[[others]]\n"
          "n = inf\n"
          "[empty]\n");
    Settings settings = Load();
    ASSERT_TRUE(settings.Set<std::int64_t>("mid2wav.iMaxPolyphony", 64));
    Write(Read().replace(Read().find("true"), 4, "false")); // another program saves meanwhile
    ASSERT_TRUE(Save(settings));
    const std::string text = Read();
    for (const char* line :
         {"\nlater = 1979-05-27\n", "\nbEffects = false\n", "\ndwSampleRate = \"fast\"\n",
          "\niMaxPolyphony = 64\n", "\nwszLater = \"x\\ny\"\n",
          "\n[mid2wav.\"sub group\".\"deep.er\"]\n\"odd key\" = [ { a = 1 }, { b = [ 2 ] } ]\n",
          "\nothers = [ { n = inf } ]\n", "\n[empty]\n"})
        EXPECT_NE(text.find(line), std::string::npos) << line << text;
    Settings again = Load();
    ASSERT_TRUE(Save(again));
    EXPECT_EQ(Read(), text);
    again.Reset(FindSetting("mid2wav.dwSampleRate")); // in memory it had its default all the time
    ASSERT_TRUE(Save(again));
    EXPECT_NE(Read().find("\ndwSampleRate = 48000\n"), std::string::npos);
}

TEST_F(SettingsFile, DamagedFilesAreSetAside)
{
    std::string nested = "a";
    for (int i = 0; i < 200000; ++i)
        nested += ".a";
    const std::string files[] = {"[mid2wav]\nbEffects = \n",
                                 "[mid2wav\n",
                                 "[mid2wav]\nbEffects = true\nbEffects = false\n",
                                 "mid2wav = 5\n",
                                 "[fmt]\nvox = []\n",
                                 "a = \"\xFF\"\n",
                                 std::string("\0\1\2", 3),
                                 "a = " + std::string(100000, '['),
                                 nested + " = 1\n",
                                 std::string(2 << 20, '#')};
    for (const std::string& text : files) {
        const std::string shown = text.substr(0, 40);
        Write(text);
        host_.shown.clear();
        Settings settings = Load();
        ASSERT_EQ(host_.shown.size(), 1u) << shown;
        EXPECT_NE(host_.shown[0].find(u"; all settings have their defaults"), std::u16string::npos);
        EXPECT_EQ(Read(), text) << "loading changes nothing";
        EXPECT_TRUE(settings.IsDefault(FindSetting("mid2wav.bEffects")));
        ASSERT_TRUE(Save(settings)) << shown;
        ASSERT_EQ(host_.shown.size(), 2u) << shown;
        EXPECT_NE(host_.shown[1].find(u"settings.toml.damaged"), std::u16string::npos);
        EXPECT_EQ(Read("settings.toml.damaged"), text) << shown;
        (void)Load();
        EXPECT_EQ(host_.shown.size(), 2u) << shown;
        fs::remove(folder_.Path() / "settings.toml.damaged");
    }
    for (const char* text : {"[1", "[2"}) {
        Write(text);
        Settings settings = Load();
        ASSERT_TRUE(Save(settings));
    }
    EXPECT_EQ(Read("settings.toml.damaged") + Read("settings.toml.damaged-2"), "[1[2");
}

TEST_F(SettingsFile, WhatCannotBeReadOrWrittenStays)
{
    Settings settings;
    fs::create_directory(folder_.Path() / "settings.toml");
    EXPECT_TRUE(Load().IsDefault(0));
    EXPECT_EQ(host_.shown, Texts{u"is not a regular file; all settings have their defaults"});
    EXPECT_FALSE(Save(settings));
    EXPECT_EQ(LastError(), u"The settings file is not a regular file; it is left as it is");
    EXPECT_TRUE(fs::is_directory(folder_.Path() / "settings.toml"));

    Write("", "file");
    ASSERT_TRUE(settings.Set<bool>("mid2wav.bEffects", false));
    EXPECT_FALSE(SaveSettings(settings, folder_.Wide("file/settings.toml"), host_));
    EXPECT_TRUE(settings.IsChanged(FindSetting("mid2wav.bEffects"))) << "to be saved another time";
    EXPECT_FALSE(SaveSettings(settings, u"", host_));
    EXPECT_EQ(Names(), (std::vector<std::string>{"file", "settings.toml"}));
    EXPECT_TRUE(SaveSettings(settings, folder_.Wide("new/folders/settings.toml"), host_));
}

TEST_F(SettingsFile, LinksLeadToTheFile)
{
    Write("[1", "real.toml");
    fs::create_symlink("real.toml", folder_.Path() / "settings.toml");
    Settings settings = Load();
    ASSERT_TRUE(Save(settings));
    EXPECT_TRUE(fs::is_symlink(folder_.Path() / "settings.toml"));
    EXPECT_EQ(Read("real.toml.damaged"), "[1");
    EXPECT_EQ(Names(), (std::vector<std::string>{"real.toml", "real.toml.damaged", "settings.toml"}));
}

TEST(UserSettingsPath, ComesFromTheEnvironment)
{
    ::setenv("HOME", "/home/me", 1);
    ::unsetenv("XDG_CONFIG_HOME");
    ::unsetenv("VIMBO_SETTINGS");
    EXPECT_EQ(UserSettingsPath(), u"/home/me/.config/vimbo-studio/settings.toml");
    ::setenv("XDG_CONFIG_HOME", "relative", 1);
    EXPECT_EQ(UserSettingsPath(), u"/home/me/.config/vimbo-studio/settings.toml");
    ::setenv("XDG_CONFIG_HOME", "/etc/mine", 1);
    EXPECT_EQ(UserSettingsPath(), u"/etc/mine/vimbo-studio/settings.toml");
    ::setenv("VIMBO_SETTINGS", "here.toml", 1);
    EXPECT_EQ(UserSettingsPath(), u"here.toml");
    ::setenv("VIMBO_SETTINGS", "", 1);
    EXPECT_EQ(UserSettingsPath(), u"");
}

} // namespace
} // namespace vimbo::app
