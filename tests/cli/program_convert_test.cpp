#include "cli/program_runner.h"

#include "cli/commands.h"
#include "cli/interrupt.h"

#include <csignal>

#include <sys/stat.h>

namespace vimbo::cli {
namespace {

using nlohmann::json;

/// Different samples for each seed, on both sides of zero.
std::vector<std::int16_t> Samples(int seed, int count = 50)
{
    std::vector<std::int16_t> samples;
    for (int i = 0; i < count; ++i)
        samples.push_back(static_cast<std::int16_t>((i * 7919 + seed * 104729) % 65536 - 32768));
    return samples;
}

std::string LittleEndian(const std::vector<std::int16_t>& samples)
{
    return WaveBytes(samples).substr(44); // behind RIFF, fmt and the data chunk's head
}

TEST_F(ProgramTest, ConvertsTheSamplesThemselves)
{
    Put("a.wav", WaveBytes(Samples(1)));
    const ProgramResult result = Run({"convert", "a.wav", "-t", "sw"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out + result.err, "") << "one file that went well needs no words";
    EXPECT_EQ(Get("a.sw"), LittleEndian(Samples(1)));

    EXPECT_EQ(Run({"convert", "a.wav", "-t", "wav", "--data-format", "PCM 24-bit", "-o", "wide.wav"}).status,
              0);
    EXPECT_EQ(RunJson({"info", "--json", "wide.wav"})[0]["waveforms"][0]["dataFormat"], "PCM 24-bit");
    EXPECT_EQ(Run({"convert", "wide.wav", "-t", "sw", "--data-format", "pcm16"}).status, 0);
    EXPECT_EQ(Get("wide.sw"), LittleEndian(Samples(1))) << "24 bits hold 16 exactly";

    EXPECT_EQ(Run({"convert", "a.wav", "-t", "480", "--channels", "stereo", "-o", "two.wav"}).status, 0);
    EXPECT_EQ(RunJson({"info", "--json", "two.wav"})[0]["waveforms"][0]["channels"], 2);
}

TEST_F(ProgramTest, ConvertKeepsTheLoop)
{
    Put("a.wav", WaveBytes(Samples(1), 1, SamplerChunk(0, 10, 19)));
    EXPECT_EQ(Run({"convert", "a.wav", "-t", "wav:microsoft", "-o", "b.wav"}).status, 0);
    const json wave = RunJson({"info", "--json", "b.wav"})[0]["waveforms"][0];
    EXPECT_EQ(wave["loop"]["start"], 10);
    EXPECT_EQ(wave["loop"]["end"], 20);
    EXPECT_EQ(wave["rootKey"], 64);
}

TEST_F(ProgramTest, ExistingFilesAreSafe)
{
    Put("a.wav", WaveBytes(Samples(1)));
    Put("a.sw", "precious");
    const ProgramResult refused = Run({"convert", "a.wav", "-t", "sw"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.err, "vimbo: a.wav: a.sw exists already (--force replaces it)\n");
    EXPECT_EQ(RunJson({"convert", "a.wav", "-t", "sw", "--no-clobber", "--json"})[0]["status"], "skipped");
    EXPECT_EQ(Get("a.sw"), "precious");

    EXPECT_EQ(Run({"convert", "a.wav", "-t", "sw", "--force"}).status, 0);
    EXPECT_EQ(Get("a.sw"), LittleEndian(Samples(1)));

    EXPECT_EQ(Run({"convert", "a.wav", "-t", "wav"}).status, 1);
    EXPECT_EQ(Run({"convert", "a.wav", "-t", "wav", "--force", "--data-format", "pcm8"}).status, 0);
    EXPECT_EQ(RunJson({"info", "--json", "a.wav"})[0]["waveforms"][0]["bits"], 8) << "a file onto itself";
}

TEST_F(ProgramTest, AFailedWriteLeavesTheEarlierFileAndNothingElse)
{
    Put("a.wav", WaveBytes(Samples(1, 50000)));
    Put("out/a.sw", "precious");
    const auto before = Snapshot("out");
    constexpr std::uint64_t kLimit = 30000; // the output needs 100000
    const ProgramResult result = Run({"convert", "a.wav", "-t", "sw", "-o", "out", "--force"}, kLimit);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err.find("vimbo: a.wav: "), 0u) << result.err;
    EXPECT_EQ(Snapshot("out"), before);

    Put("broken.wav", "neither fish nor fowl");
    EXPECT_EQ(Run({"convert", "broken.wav", "-t", "sw", "-o", "out/a.sw", "--force"}).status, 1);
    EXPECT_EQ(Snapshot("out"), before);
}

TEST_F(ProgramTest, FoldersKeepTheirStructure)
{
    Put("in/kick.wav", WaveBytes(Samples(1)));
    Put("in/[Snares]/snare.wav", WaveBytes(Samples(2)));
    Put("[Snares]/rim.wav", WaveBytes(Samples(4)));
    Put("in/readme.qqq", "no sound in here");
    Put("in/.hidden.wav", WaveBytes(Samples(3)));
    const ProgramResult result = Run({"convert", "in", "-t", "sw", "-o", "out"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, "2 converted, 1 not recognised\n");
    const std::vector<std::pair<std::string, std::string>> expected{
        {"[Snares]/snare.sw", LittleEndian(Samples(2))}, {"kick.sw", LittleEndian(Samples(1))}};
    EXPECT_EQ(Snapshot("out"), expected);

    const ProgramResult verbose = Run({"convert", "-v", "in", "-t", "sw", "-o", "out", "--no-clobber"});
    EXPECT_NE(verbose.err.find("vimbo: in/readme.qqq: left out"), std::string::npos) << verbose.err;
    EXPECT_EQ(verbose.out, "0 converted, 2 skipped, 1 not recognised\n");
    EXPECT_EQ(Run({"convert", "[Snares]", "in/kick.wav", "-t", "wav", "-o", "again/"}).status, 0);
    EXPECT_EQ(Snapshot("again").size(), 2u);
    EXPECT_EQ(Run({"convert", "in/readme.qqq", "-t", "wav", "-o", "again"}).status, 1)
        << "named files must be read";
}

TEST_F(ProgramTest, NothingDependsOnTheNumberOfJobs)
{
    for (int i = 0; i < 40; ++i)
        Put("in/d" + std::to_string(i % 3) + "/s" + std::to_string(i) + ".wav",
            WaveBytes(Samples(i, 500 + i * 37)));
    Put("in/d1/s4.WAV", WaveBytes(Samples(100))); // wants the place of s4.wav
    Put("in/d2/torn.wav", "RIFF\x10\x00\x00\x00WAVE");
    const auto run = [this](const char* jobs, const char* out) {
        ProgramResult result = Run({"convert", "-v", "in", "-t", "wav", "--data-format", "pcm24", "-o", "out",
                                    "--json", "--jobs", jobs});
        std::filesystem::rename(folder_ / "out", folder_ / out);
        return result;
    };
    const ProgramResult one = run("1", "one");
    const ProgramResult many = run("7", "many");
    EXPECT_EQ(one.status, 1) << "two files fail";
    EXPECT_EQ(one.out, many.out);
    EXPECT_EQ(one.err, many.err);
    EXPECT_EQ(Snapshot("one").size(), 40u);
    EXPECT_EQ(Snapshot("one"), Snapshot("many"));
}

TEST_F(ProgramTest, ReportsInTheOrderOfTheInputs)
{
    Put("b.wav", WaveBytes(Samples(1, 60), 2));
    Put("a.wav", WaveBytes(Samples(2)));
    const json list =
        RunJson({"convert", "b.wav", "missing.wav", "a.wav", "-t", "sw", "-o", "out", "--json"}, 1);
    ASSERT_EQ(list.size(), 3u);
    EXPECT_EQ(list[0], (json{{"input", "b.wav"},
                             {"output", "out/b.sw"},
                             {"status", "converted"},
                             {"row", 422},
                             {"dataFormat", "PCM 16-bit"},
                             {"channels", 2},
                             {"bytes", 120},
                             {"report", json::array()}}));
    EXPECT_EQ(list[1]["status"], "failed");
    EXPECT_EQ(list[1]["error"], "Could not open file");
    EXPECT_EQ(list[1]["bytes"], nullptr);
    EXPECT_EQ(list[2]["input"], "a.wav");
}

TEST_F(ProgramTest, BanksGoToTextsAndBack)
{
    Put("a.wav", WaveBytes(Samples(1)));
    Put("b.wav", WaveBytes(Samples(2)));
    Put("in/0-0-3 - Pair.sfz", "<group> group_label=Low <region> sample=../a.wav key=40\n"
                               "<group> group_label=High <region> sample=../b.wav key=41 tune=-20");
    Put("in/d0-0-8 - Kit.sfz", "<region> sample=../a.wav key=43");
    const ProgramResult merged = Run({"convert", "in", "-t", "sf2", "--merge", "-o", "bank.sf2"});
    EXPECT_EQ(merged.status, 0) << merged.err;
    EXPECT_EQ(Run({"convert", "bank.sf2", "-t", "391", "--name-mode", "program", "-o", "texts/"}).status, 0);
    EXPECT_EQ(Run({"convert", "texts", "-t", "sf2", "--merge", "-o", "again.sf2"}).status, 0);
    for (const char* bank : {"bank.sf2", "again.sf2"}) {
        const json read = RunJson({"info", "--json", bank})[0];
        ASSERT_EQ(read["instruments"].size(), 2u) << bank;
        EXPECT_EQ(read["waveforms"].size(), 2u) << bank;
        EXPECT_EQ(read["instruments"][0]["name"], "Pair");
        EXPECT_EQ(read["instruments"][0]["program"], 3);
        EXPECT_EQ(read["instruments"][1]["drum"], true);
        EXPECT_EQ(read["instruments"][1]["layers"][0]["regions"][0]["rootKey"], 43);
    }
    EXPECT_EQ(
        Run({"verify", "bank.sf2", "again.sf2", "--limit-level", "0.01", "--limit-pitch", "0.1"}).status, 0);

    EXPECT_EQ(Run({"convert", "in", "-t", "sf2", "--merge"}).status, 2) << "where to?";
    EXPECT_EQ(Run({"convert", "a.wav", "-t", "sf2", "--merge", "-o", "texts"}).status, 2) << "a folder";
    EXPECT_EQ(Run({"convert", "in", "-t", "sf2", "--merge", "-o", "bank.sf2"}).status, 1) << "it exists";
    EXPECT_EQ(
        Run({"convert", "a.wav", "bank.sf2", "-t", "sf2", "--merge", "--force", "-o", "bank.sf2"}).status, 1)
        << "an input";
    Put("broken.sf2", "RIFF");
    const ProgramResult broken =
        Run({"convert", "a.wav", "broken.sf2", "-t", "sf2", "--merge", "-o", "c.sf2"});
    EXPECT_EQ(broken.status, 1);
    EXPECT_NE(broken.err.find("broken.sf2"), std::string::npos) << broken.err;
    EXPECT_FALSE(Exists("c.sf2"));
}

TEST_F(ProgramTest, DryRunsOnlyTell)
{
    Put("in/a.wav", WaveBytes(Samples(1)));
    Put("in/b.wav", "RIFF");
    const ProgramResult result =
        Run({"convert", "in/a.wav", "in/b.wav", "-t", "sw", "-o", "out", "--dry-run"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "in/a.wav -> out/a.sw\n");
    EXPECT_EQ(result.err.find("vimbo: in/b.wav: "), 0u) << result.err;
    EXPECT_FALSE(Exists("out"));
    EXPECT_EQ(RunJson({"convert", "in/a.wav", "-t", "sw", "--dry-run", "--json"})[0]["status"],
              "would convert");
}

TEST_F(ProgramTest, RawFilesAndPipesAndOddNames)
{
    Put("dump.qqq", std::string(64, '\x10'));
    EXPECT_EQ(Run({"convert", "dump.qqq", "--raw", "-t", "wav", "-o", "dump.wav"}).status, 0);
    EXPECT_EQ(RunJson({"info", "--json", "dump.wav"})[0]["waveforms"][0]["frames"], 64);

    ASSERT_EQ(::mkfifo((folder_ / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(Run({"convert", "pipe", "-t", "wav"}).status, 1) << "does not wait for a writer";

    Put("-dash.wav", WaveBytes(Samples(1)));
    EXPECT_EQ(Run({"convert", "-t", "sw", "--", "-dash.wav"}).status, 0);
    EXPECT_TRUE(Exists("-dash.sw"));
    Put("caf\xE9.wav", WaveBytes(Samples(1)));
    EXPECT_EQ(RunJson({"convert", "caf\xE9.wav", "-t", "sw", "--json"})[0]["output"], "caf\uFFFD.sw");
    EXPECT_TRUE(Exists("caf\xE9.sw"));
}

TEST_F(ProgramTest, AnInterruptSkipsWhatRemains)
{
    Put("a.wav", WaveBytes(Samples(1)));
    ConvertOptions options;
    options.inputs = {folder_ / "a.wav"};
    options.type = "sw";
    EXPECT_EXIT(
        {
            WatchInterrupts();
            std::raise(SIGINT);
            Console console(false, false);
            std::exit(RunConvert(options, console));
        },
        ::testing::ExitedWithCode(kExitFailed), "Cancelled");
    EXPECT_FALSE(Exists("a.sw"));
}

} // namespace
} // namespace vimbo::cli
