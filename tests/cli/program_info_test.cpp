#include "cli/program_runner.h"

#include <set>

namespace vimbo::cli {
namespace {

using nlohmann::json;

std::vector<std::int16_t> Ramp(int count)
{
    std::vector<std::int16_t> samples;
    for (int i = 0; i < count; ++i)
        samples.push_back(static_cast<std::int16_t>(i * 100));
    return samples;
}

std::set<std::string> KeysOf(const json& object)
{
    std::set<std::string> keys;
    for (const auto& [key, value] : object.items())
        keys.insert(key);
    return keys;
}

TEST_F(ProgramTest, InfoDescribesAWaveformInJson)
{
    Put("loop.wav", WaveBytes(Ramp(80), 2, SamplerChunk(0, 10, 19)));
    const json list = RunJson({"info", "--json", "loop.wav"});
    ASSERT_EQ(list.size(), 1u);
    const json& file = list[0];
    EXPECT_EQ(KeysOf(file), (std::set<std::string>{"file", "format", "name", "texts", "waveforms",
                                                   "instruments", "songs"}));
    EXPECT_EQ(file["file"], "loop.wav");
    EXPECT_EQ(file["name"], "loop");
    EXPECT_EQ(file["texts"]["source"], "loop.wav");
    EXPECT_EQ(
        file["format"],
        (json{{"row", 480}, {"extension", "wav"}, {"description", "Microsoft wave"}, {"confidence", 100}}));
    ASSERT_EQ(file["waveforms"].size(), 1u);
    const json& wave = file["waveforms"][0];
    EXPECT_EQ(KeysOf(wave),
              (std::set<std::string>{"name", "frames", "rate", "channels", "bits", "dataFormat", "rootKey",
                                     "fineTune", "volume", "loop", "markers", "texts"}));
    EXPECT_EQ(wave["frames"], 40);
    EXPECT_EQ(wave["rate"], 22050);
    EXPECT_EQ(wave["channels"], 2);
    EXPECT_EQ(wave["bits"], 16);
    EXPECT_EQ(wave["dataFormat"], "PCM 16-bit");
    EXPECT_EQ(wave["rootKey"], 64);
    EXPECT_EQ(wave["loop"],
              (json{{"type", "forward"}, {"start", 10}, {"end", 20}, {"release", "infinite"}, {"pitch", 0}}));
    EXPECT_TRUE(wave["loop"]["end"].is_number_integer());
    EXPECT_TRUE(wave["markers"].is_array());
}

TEST_F(ProgramTest, InfoGivesEveryFileAnObject)
{
    Put("good.wav", WaveBytes(Ramp(4)));
    Put("empty.wav", "");
    Put("notes.qqq", "no format at all");
    Put("caf\xE9.wav", WaveBytes(Ramp(4)));
    std::filesystem::create_directory(folder_ / "folder");
    const json list = RunJson(
        {"info", "--json", "good.wav", "missing.wav", "empty.wav", "notes.qqq", "caf\xE9.wav", "folder"}, 1);
    ASSERT_EQ(list.size(), 6u);
    EXPECT_FALSE(list[0].contains("error"));
    const char* const errors[] = {"Could not open file", "File is of zero size",
                                  "Not detected as any supported file type"};
    for (std::size_t i = 0; i < 3; ++i)
        EXPECT_EQ(list[i + 1]["error"], errors[i]);
    EXPECT_EQ(list[1], (json{{"file", "missing.wav"}, {"error", errors[0]}}));
    EXPECT_EQ(list[4]["file"], "caf\uFFFD.wav");
    EXPECT_EQ(list[4]["waveforms"][0]["frames"], 4);
    EXPECT_TRUE(list[5].contains("error"));
}

TEST_F(ProgramTest, InfoTellsPeopleTheSame)
{
    Put("loop.wav", WaveBytes(Ramp(40), 1, SamplerChunk(1, 10, 19)));
    const ProgramResult result = Run({"info", "loop.wav", "missing.wav"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "vimbo: missing.wav: Could not open file\n");
    for (const char* words : {"Microsoft wave (row 480, wav, confidence 100%)", "40 frames", "22050 Hz",
                              "root key 64", "alternating from 10 to 20"})
        EXPECT_NE(result.out.find(words), std::string::npos) << words << "\n" << result.out;
}

TEST_F(ProgramTest, InfoReadsRawOnlyOnRequest)
{
    Put("dump.qqq", std::string(100, '\x07'));
    EXPECT_EQ(Run({"info", "dump.qqq"}).status, 1);
    const json list = RunJson({"info", "--raw", "--json", "dump.qqq"});
    EXPECT_EQ(list[0]["format"]["row"], 0);
    EXPECT_EQ(list[0]["format"]["confidence"], 0);
    EXPECT_EQ(list[0]["waveforms"][0]["frames"], 100);
    EXPECT_EQ(list[0]["waveforms"][0]["dataFormat"], "PCM 8-bit");
}

TEST_F(ProgramTest, WrongUsageIsToldFromFailure)
{
    Put("a.wav", WaveBytes(Ramp(4)));
    const std::vector<std::vector<std::string>> wrong = {
        {},
        {"play", "a.wav"},
        {"info"},
        {"info", "--nonsense", "a.wav"},
        {"convert", "a.wav"},
        {"convert", "-t", "wav"},
        {"convert", "a.wav", "-t", "nosuchformat"},
        {"convert", "a.wav", "-t", "wav", "--data-format", "pcm20", "-o", "b.wav"},
        {"convert", "a.wav", "-t", "wav", "--channels", "quad", "-o", "b.wav"},
        {"convert", "a.wav", "-t", "wav", "--kbit", "0", "-o", "b.wav"},
        {"convert", "a.wav", "-t", "wav", "--jobs", "0", "-o", "b.wav"},
        {"convert", "a.wav", "-t", "wav", "--force", "--no-clobber", "-o", "b.wav"},
        {"convert", "a.wav", "a.wav", "-t", "wav", "-o", "a.wav"},
        {"formats", "nosuchformat"},
        {"formats", "--json", "--markdown"}};
    for (const auto& arguments : wrong) {
        const ProgramResult result = Run(arguments);
        EXPECT_EQ(result.status, 2) << (arguments.empty() ? "nothing" : arguments.back());
        EXPECT_EQ(result.out, "");
        EXPECT_FALSE(result.err.empty());
    }
    EXPECT_FALSE(Exists("b.wav"));
    EXPECT_NE(Run({"convert", "a.wav", "-t", "wsv"}).err.find("did you mean wav"), std::string::npos);
}

TEST_F(ProgramTest, HelpAndVersionGoToStandardOutput)
{
    const std::vector<std::vector<std::string>> calls = {
        {"--help"}, {"info", "--help"}, {"convert", "--help"}, {"formats", "-h"}};
    for (const auto& arguments : calls) {
        const ProgramResult result = Run(arguments);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
        EXPECT_NE(result.out.find("Examples:"), std::string::npos);
    }
    EXPECT_EQ(Run({"--version"}).out, "vimbo 12.7\n");
}

} // namespace
} // namespace vimbo::cli
