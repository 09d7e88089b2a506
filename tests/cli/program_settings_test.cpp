// The user's settings on the command line, and the commands that they steer.
#include "cli/program_runner.h"

namespace vimbo::cli {
namespace {

using Words = std::vector<std::string>;

/// A quarter note at 120 beats per minute.
std::string SongBytes()
{
    using namespace std::string_literals;
    return "MThd\0\0\0\6\0\0\0\1\0\x60MTrk\0\0\0\x0C\0\x90\x3C\x64\x60\x80\x3C\x40\0\xFF\x2F\0"s;
}

class ProgramSettings : public ProgramTest {
protected:
    ProgramSettings() { settingsFile_ = "settings.toml"; }

    /// Runs the settings command and gives what it prints.
    std::string Settings(Words words, int expectedStatus = 0)
    {
        words.insert(words.begin(), "settings");
        const ProgramResult result = Run(words);
        EXPECT_EQ(result.status, expectedStatus) << result.err;
        return result.out + result.err;
    }
    void Set(const std::string& key, const std::string& value) { EXPECT_EQ(Settings({key, value}), ""); }

    /// Frames and rate of a wave file.
    std::pair<unsigned, unsigned> Measure(const std::string& file)
    {
        const nlohmann::json wave = RunJson({"info", "--json", file})[0]["waveforms"][0];
        return {wave["frames"], wave["rate"]};
    }
};

TEST_F(ProgramSettings, AreShownSetAndReset)
{
    EXPECT_EQ(Settings({"mid2wav.dwSampleRate"}), "48000\n");
    EXPECT_FALSE(Exists("settings.toml")) << "showing writes nothing";
    Set("MID2WAV.dwSampleRate", "44100");
    EXPECT_EQ(Settings({"mid2wav.dwSampleRate"}), "44100\n");
    EXPECT_EQ(Settings({"aio.nLatency", "-1"}), "vimbo: aio.nLatency is not used yet\n");
    EXPECT_EQ(Settings({"aio.acVKlo", "[QWERTY]", "-q"}), "");
    EXPECT_EQ(Settings({"aio.acVKlo"}), "[QWERTY]\n");

    const std::string used = Settings({}), all = Settings({"--all"});
    EXPECT_NE(used.find("mid2wav.dwSampleRate       44100                        Hz of songs"),
              std::string::npos)
        << used;
    EXPECT_NE(used.find("mid2wav.bEffects           true                 default reverb"), std::string::npos);
    EXPECT_EQ(std::ranges::count(used, '\n'), 10) << "only those that steer something";
    EXPECT_NE(all.find("load.bAutoSortColl         true                 default not used yet\n"),
              std::string::npos);
    const nlohmann::json json = RunJson({"settings", "--json", "mid2wav.iMaxPolyphony"});
    EXPECT_EQ(json,
              nlohmann::json::parse(R"([{"key": "mid2wav.iMaxPolyphony", "type": "integer", "value": 128,
        "default": 128, "isDefault": true, "used": true, "meaning": "notes that may sound together",
        "least": 1, "most": 65000}])"));
    EXPECT_EQ(RunJson({"settings", "--json", "--all"}).size(), 94u);

    EXPECT_EQ(Settings({"--reset", "mid2wav.dwSampleRate"}), "");
    EXPECT_EQ(Settings({"mid2wav.dwSampleRate"}), "48000\n");
    EXPECT_EQ(Settings({"aio.acVKlo"}), "[QWERTY]\n");
    EXPECT_EQ(Settings({"--reset", "all"}), "");
    EXPECT_EQ(Settings({"aio.acVKlo"}), "ZSXDCVGBHNJM,L.\n");
}

TEST_F(ProgramSettings, WrongUseChangesNothing)
{
    Set("mid2wav.wszGMBank", "");
    const std::string before = Get("settings.toml");
    EXPECT_EQ(Settings({"mid2wav.bEfects"}, 2),
              "vimbo: there is no setting \"mid2wav.bEfects\"; \"vimbo settings --all\" lists them\n");
    EXPECT_EQ(Settings({"mid2wav.bEffects", "maybe"}, 2), "vimbo: mid2wav.bEffects must be true or false\n");
    EXPECT_EQ(Settings({"mid2wav.dwSampleRate", "-1"}, 2),
              "vimbo: mid2wav.dwSampleRate must be a whole number from 8000 to 768000\n");
    for (const Words& words : {Words{"--reset", "nothing"}, Words{"--reset", "all", "mid2wav.bEffects"},
                               Words{"a", "b", "c"}, Words{"--reset"}})
        Settings(words, 2);
    EXPECT_EQ(Get("settings.toml"), before);
    settingsFile_ = "";
    EXPECT_EQ(Settings({"mid2wav.bEffects", "no"}, 1), "vimbo: There is no file to keep settings in\n");
    EXPECT_EQ(Settings({"mid2wav.bEffects"}), "true\n");
}

TEST_F(ProgramSettings, ADamagedFileIsToldAndKept)
{
    Put("settings.toml", "[mid2wav]\nbEffects = \n");
    EXPECT_NE(Settings({"mid2wav.bEffects"}).find("vimbo: settings.toml: line 2: "), std::string::npos);
    EXPECT_NE(Settings({"mid2wav.bEffects", "no"}).find("is kept as "), std::string::npos);
    EXPECT_EQ(Get("settings.toml.damaged"), "[mid2wav]\nbEffects = \n");
    EXPECT_EQ(Settings({"mid2wav.bEffects"}), "false\n");
    Put("settings.toml", "[mid2wav]\nbEffects = 7\ndwSampleRate = 0\n");
    EXPECT_EQ(Settings({"mid2wav.bEffects"}), "true\nvimbo: settings.toml: line 3: mid2wav.dwSampleRate must "
                                              "be a whole number from 8000 to 768000; "
                                              "the default is used\nvimbo: settings.toml: line 2: "
                                              "mid2wav.bEffects must be true or false; the default "
                                              "is used\n");
}

TEST_F(ProgramSettings, SteerRenderingUnlessOptionsSayOtherwise)
{
    Put("song.mid", SongBytes());
    Put("tone.wav", WaveBytes(std::vector<std::int16_t>(22050, 16000)));
    Put("bank.sfz", "<region> sample=tone.wav\n");
    EXPECT_EQ(Settings({"mid2wav.wszGMBank", "gone.sfz"}), "vimbo: gone.sfz: there is no such file now\n");
    Set("mid2wav.wszGMBank", "bank.sfz");
    EXPECT_EQ(Settings({"mid2wav.wszGMBank"}), (std::filesystem::canonical(folder_) / "bank.sfz\n").native());
    Set("mid2wav.dwSampleRate", "32000");
    Set("mid2wav.bDeleteSilence", "off");
    // A song of half a second with its half second of silence behind.
    const Words render{"render", "song.mid", "-v", "--force", "--tail", "0", "-o", "out.wav"};
    const auto with = [&render](Words more) {
        more.insert(more.begin(), render.begin(), render.end());
        return more;
    };
    const ProgramResult result = Run(render);
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.err.find("1 of " + (std::filesystem::canonical(folder_) / "bank.sfz").native()),
              std::string::npos)
        << result.err;
    const std::pair whole = Measure("out.wav");
    EXPECT_NEAR(whole.first, 32000, 64);
    EXPECT_EQ(whole.second, 32000u);
    const std::string byDefault = Get("out.wav");

    ASSERT_EQ(Run(with({"--rate", "16000"})).status, 0);
    EXPECT_EQ(Measure("out.wav").second, 16000u);
    ASSERT_EQ(Run(with({"--trim-silence"})).status, 0);
    EXPECT_LT(Measure("out.wav").first, 24000u);
    ASSERT_EQ(Run(with({"--no-normalize"})).status, 0);
    const std::string asPlayed = Get("out.wav");
    EXPECT_TRUE(asPlayed != byDefault);
    Set("mid2wav.bNormalizePeak", "no");
    ASSERT_EQ(Run(render).status, 0);
    EXPECT_TRUE(Get("out.wav") == asPlayed);
    ASSERT_EQ(Run(with({"--normalize"})).status, 0);
    EXPECT_TRUE(Get("out.wav") == byDefault);
    EXPECT_EQ(Run(with({"--normalize", "--no-normalize"})).status, 2);
    Set("mid2wav.iMaxPolyphony", "4"); // each note louder
    ASSERT_EQ(Run(render).status, 0);
    EXPECT_TRUE(Get("out.wav") != asPlayed);
    ASSERT_EQ(Run(with({"--polyphony", "128"})).status, 0);
    EXPECT_TRUE(Get("out.wav") == asPlayed);

    ASSERT_EQ(Run({"convert", "song.mid", "-t", "wav", "-o", "converted.wav"}).status, 0);
    EXPECT_EQ(Measure("converted.wav").second, 32000u);
    settingsFile_ = "";
    ASSERT_EQ(Run(with({"--gm-bank", "bank.sfz"})).status, 0);
    EXPECT_EQ(Measure("out.wav").second, 48000u);
}

} // namespace
} // namespace vimbo::cli
