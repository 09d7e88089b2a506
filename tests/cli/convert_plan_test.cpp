#include "cli/convert_plan.h"

#include <gtest/gtest.h>

#include <set>

namespace vimbo::cli {
namespace {

namespace fs = std::filesystem;

FileQueries Queries(std::set<fs::path> existing = {})
{
    return {[existing](const fs::path& path) { return existing.count(path.lexically_normal()) != 0; },
            [](const fs::path& path) { return path.lexically_normal(); }};
}

InputFile Named(const char* path)
{
    return {path, "", true, true};
}

std::vector<PlannedJob> Plan(const std::vector<InputFile>& inputs, std::optional<fs::path> output,
                             bool isFolder, Existing existing, std::set<fs::path> existingFiles = {})
{
    return PlanConversion(inputs, {"flac", std::move(output), isFolder, existing},
                          Queries(std::move(existingFiles)));
}

TEST(ConvertPlan, PutsOutputsWhereTheyBelong)
{
    const InputFile found{"in/deep/er/b.v2.aif", "deep/er", false, true};
    const std::vector<InputFile> inputs{Named("x/a.wav"), found, Named(".hidden"), Named("noextension")};
    const auto paths = [&](std::optional<fs::path> output, bool isFolder) {
        std::vector<std::string> result;
        for (const PlannedJob& job : Plan(inputs, std::move(output), isFolder, Existing::Refuse))
            result.push_back(job.output.native());
        return result;
    };
    EXPECT_EQ(paths(std::nullopt, false), (std::vector<std::string>{"x/a.flac", "in/deep/er/b.v2.flac",
                                                                    ".hidden.flac", "noextension.flac"}));
    EXPECT_EQ(paths("out", true), (std::vector<std::string>{"out/a.flac", "out/deep/er/b.v2.flac",
                                                            "out/.hidden.flac", "out/noextension.flac"}));
    const auto single = Plan({Named("x/a.wav")}, "y.bin", false, Existing::Refuse);
    EXPECT_EQ(single.at(0).output, "y.bin");
}

TEST(ConvertPlan, GivesEachOutputToOneInput)
{
    const InputFile text{"d/a.txt", "", false, false}; // not recognised: takes no name
    const auto jobs = Plan({text, Named("d/a.wav"), Named("d/./a.aif"), Named("d/b.aif")}, std::nullopt,
                           false, Existing::Replace);
    ASSERT_EQ(jobs.size(), 3u);
    EXPECT_EQ(jobs[0].state, JobState::Run);
    EXPECT_EQ(jobs[1].state, JobState::Fail);
    EXPECT_NE(jobs[1].message.find("d/a.wav"), std::string::npos);
    EXPECT_EQ(jobs[2].state, JobState::Run);
}

TEST(ConvertPlan, NeverWritesOverAnotherInput)
{
    const auto jobs =
        Plan({Named("a.aif"), Named("a.flac")}, std::nullopt, false, Existing::Replace, {"a.aif", "a.flac"});
    EXPECT_EQ(jobs.at(0).state, JobState::Fail);
    EXPECT_NE(jobs.at(0).message.find("input"), std::string::npos);
    EXPECT_EQ(jobs.at(1).state, JobState::Run) << "a file may be converted onto itself";
}

TEST(ConvertPlan, ObeysTheRuleForExistingFiles)
{
    const std::pair<Existing, JobState> rules[] = {{Existing::Refuse, JobState::Fail},
                                                   {Existing::LeaveAlone, JobState::Skip},
                                                   {Existing::Replace, JobState::Run}};
    for (const auto& [rule, state] : rules) {
        const auto jobs = Plan({Named("a.wav"), Named("b.wav")}, std::nullopt, false, rule, {"b.flac"});
        EXPECT_EQ(jobs.at(0).state, JobState::Run);
        EXPECT_EQ(jobs.at(1).state, state);
        EXPECT_EQ(jobs.at(1).message.empty(), state == JobState::Run);
    }
}

TEST(ConvertPlan, NumbersTheFilesOfSeveralWaveforms)
{
    EXPECT_EQ(NumberedOutput("out/kit.wav", 0, 3, u"Kick"), "out/kit-01-Kick.wav");
    EXPECT_EQ(NumberedOutput("kit.v2.wav", 11, 120, u"a/b:c"), "kit.v2-012-a_b_c.wav");
    EXPECT_EQ(NumberedOutput("kit.wav", 1, 2, u""), "kit-02-noname.wav");
    const std::u16string longName(400, u'\u4E00'); // three bytes each
    const fs::path fitted = NumberedOutput("kit.wav", 1, 2, longName).filename();
    EXPECT_LE(fitted.native().size(), 255u);
    EXPECT_GE(fitted.native().size(), 250u);
    EXPECT_EQ(fitted.extension(), ".wav");
}

} // namespace
} // namespace vimbo::cli
