// Banks that we write, opened by independent programs. A missing program or bank skips its test with a
// notice.
#include "base/text.h"
#include "formats/format_table.h"
#include "formats/open.h"
#include "formats/save.h"
#include "programs.h"
#include "test_files.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstdlib>

namespace vimbo {
namespace {

using testing::HasProgram;

/// With standard error.
std::string ResultOf(const std::string& command)
{
    return testing::OutputOf(command + " 2>&1");
}

using testing::ScratchFolder;

constexpr int kSf2Row = 381, kDls2Row = 64;
constexpr std::string_view kBank = "/usr/share/sounds/sf2/TimGM6mb.sf2";

std::size_t CountOf(const std::string& text, std::string_view what)
{
    std::size_t count = 0;
    for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1))
        ++count;
    return count;
}

class BankWitness : public ::testing::Test {
protected:
    /// The General MIDI bank, written through a row. "" if the test has to be skipped.
    std::string Rewrite(const std::string& program, int row, const std::string& name)
    {
        if (!HasProgram(program) || !std::filesystem::exists(kBank))
            return {};
        Collection bank;
        if (!LoadFile(bank, Utf8ToWide(kBank), AllowRaw::No) ||
            !SaveItem(&bank, row, folder_.Wide(name), AutoChoice(row)))
            ADD_FAILURE() << "the bank could not be rewritten";
        return (folder_.Path() / name).string();
    }

    ScratchFolder folder_;
};

TEST_F(BankWitness, Sf2dumpFindsTheSamePresetsAndSamples)
{
    const std::string path = Rewrite("sf2dump", kSf2Row, "bank.sf2");
    if (path.empty())
        GTEST_SKIP() << "needs sf2dump and TimGM6mb.sf2";
    const std::string before = ResultOf("sf2dump " + std::string(kBank)), after = ResultOf("sf2dump " + path);
    EXPECT_NE(after.find("Presets (136)"), std::string::npos) << after.substr(0, 500);
    for (const std::string_view what : {"(Preset: ", "Bank: 128", "Sample Type: Mono", "SampleRate: 22050"})
        EXPECT_EQ(CountOf(after, what), CountOf(before, what)) << what;
}

TEST_F(BankWitness, FluidsynthOpensTheBankWithoutComplaint)
{
    const std::string path = Rewrite("fluidsynth", kSf2Row, "bank.sf2");
    if (path.empty())
        GTEST_SKIP() << "needs fluidsynth and TimGM6mb.sf2";
    const std::string output =
        ResultOf("printf 'inst 1\nquit\n' | fluidsynth -qn -a file -o audio.file.name=/dev/null " + path);
    EXPECT_EQ(CountOf(output, "error"), 0u) << output.substr(0, 500);
    EXPECT_NE(output.find("000-000 Piano 1"), std::string::npos) << output.substr(0, 500);
    EXPECT_NE(output.find("128-000 "), std::string::npos) << "the drum kit stays in bank 128";
}

TEST_F(BankWitness, DlsdumpFindsAllInstruments)
{
    const std::string path = Rewrite("dlsdump", kDls2Row, "bank.dls");
    if (path.empty())
        GTEST_SKIP() << "needs dlsdump and TimGM6mb.sf2";
    const std::string output = ResultOf("dlsdump " + path);
    EXPECT_NE(output.find("Sample 520)"), std::string::npos) << output.substr(0, 500);
    EXPECT_NE(output.find("Instrument 136)"), std::string::npos);
    EXPECT_NE(output.find("\"Piano 1\""), std::string::npos);
}

} // namespace
} // namespace vimbo
