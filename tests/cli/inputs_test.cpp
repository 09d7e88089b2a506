#include "cli/program_runner.h"

#include "cli/inputs.h"

namespace vimbo::cli {
namespace {

namespace fs = std::filesystem;

class InputsTest : public ProgramTest {
protected:
    std::vector<std::string> Gather(const std::string& root, const std::string& skipped = "") const
    {
        const fs::path output = skipped.empty() ? fs::path() : folder_ / skipped;
        std::vector<std::string> names;
        for (const InputFile& file : GatherInputs({folder_ / root}, output).files)
            names.push_back(file.subFolder / file.path.filename());
        return names;
    }
};

TEST_F(InputsTest, WalksFoldersInOrderAndLeavesOutWhatIsHidden)
{
    for (const char* name :
         {"in/b.wav", "in/a/z.wav", "in/a/deep/y.wav", "in/.hidden.wav", "in/.git/x.wav", "in/c.wav"})
        Put(name, "x");
    EXPECT_EQ(Gather("in"), (std::vector<std::string>{"a/deep/y.wav", "a/z.wav", "b.wav", "c.wav"}));
    EXPECT_EQ(Gather("in", "in/a"), (std::vector<std::string>{"b.wav", "c.wav"}));
    EXPECT_EQ(Gather("in", "in").size(), 4u) << "writing into the folder itself hides nothing";
}

TEST_F(InputsTest, FollowsLinksOnceAndEndsOnCycles)
{
    Put("in/real/a.wav", "x");
    Put("elsewhere/b.wav", "x");
    fs::create_directory_symlink(folder_ / "in", folder_ / "in/real/loop");
    fs::create_directory_symlink(folder_ / "in/real", folder_ / "in/alias");
    fs::create_directory_symlink(folder_ / "elsewhere", folder_ / "in/link");
    fs::create_directory_symlink(folder_ / "elsewhere", folder_ / "in/link2");
    fs::create_symlink(folder_ / "nowhere", folder_ / "in/broken.wav");
    EXPECT_EQ(Gather("in"), (std::vector<std::string>{"link/b.wav", "real/a.wav"}));
}

TEST_F(InputsTest, KeepsNamedFilesAsTheyAre)
{
    Put("in/a.wav", "x");
    const InputList list = GatherInputs({"missing.wav", folder_ / "in"}, "");
    ASSERT_EQ(list.files.size(), 2u);
    EXPECT_TRUE(list.files[0].isNamed);
    EXPECT_EQ(list.files[0].path, "missing.wav");
    EXPECT_FALSE(list.files[1].isNamed);
}

} // namespace
} // namespace vimbo::cli
