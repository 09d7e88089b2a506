// What is left of a command that the system ended while it was writing.
#include "cli/program_runner.h"

#include <chrono>
#include <csignal>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vimbo::cli {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

class KilledProgramTest : public ProgramTest {
protected:
    /// A wave file of silence that takes no room on the disk.
    void PutLongWave(const std::string& name, std::uint32_t dataBytes) const
    {
        constexpr std::size_t kDataSize = 40;
        std::string head = WaveBytes({});
        for (std::size_t i = 0; i < 4; ++i) {
            head[4 + i] = static_cast<char>((dataBytes + 36) >> 8 * i & 0xFF);
            head[kDataSize + i] = static_cast<char>(dataBytes >> 8 * i & 0xFF);
        }
        Put(name, head);
        fs::resize_file(folder_ / name, head.size() + dataBytes);
    }

    std::vector<fs::path> Temporaries() const
    {
        std::vector<fs::path> found;
        for (const auto& entry : fs::directory_iterator(folder_))
            if (entry.path().extension() == ".tmp")
                found.push_back(entry.path());
        return found;
    }

    /// Where files of no name can be had, a killed command leaves nothing at all.
    bool HasUnnamedFiles() const
    {
        const int descriptor = ::open(folder_.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
        if (descriptor >= 0)
            ::close(descriptor);
        return descriptor >= 0;
    }

    /// True if the command has a new file of the folder open that has some bytes.
    bool IsWriting(pid_t child) const
    {
        std::error_code gone;
        for (const auto& entry : fs::directory_iterator("/proc/" + std::to_string(child) + "/fd", gone)) {
            const std::string name = fs::read_symlink(entry.path(), gone).native();
            const bool isNew = name.starts_with(folder_.native() + "/.vimbo-") ||
                               (name.starts_with(folder_.native()) && name.ends_with("(deleted)"));
            struct stat status = {};
            if (isNew && ::stat(entry.path().c_str(), &status) == 0 && status.st_size > 0)
                return true;
        }
        return false;
    }

    /// Kills the command when a new file has some bytes. False if it ended before.
    bool KillWhileWriting(const std::vector<std::string>& arguments) const
    {
        const pid_t child = Start(arguments);
        const auto isWriting = [this, child] { return IsWriting(child); };
        int state = 0;
        const auto limit = Clock::now() + std::chrono::seconds(60);
        while (!isWriting() && Clock::now() < limit)
            if (::waitpid(child, &state, WNOHANG) == child)
                return false;
        ::kill(child, SIGKILL);
        ::waitpid(child, &state, 0);
        return WIFSIGNALED(state);
    }
};

TEST_F(KilledProgramTest, TheEarlierFileStaysWhole)
{
    constexpr std::uint32_t kBytes = 0x10000000;
    PutLongWave("long.wav", kBytes);
    const std::string earlier(100000, 'e');
    for (const std::string type : {"sf2", "wav"}) {
        const std::string output = "out." + type;
        Put(output, earlier);
        const std::vector<std::string> convert{"convert", "--force", "long.wav", "-t", type, "-o", output};
        ASSERT_TRUE(KillWhileWriting(convert)) << type << " was written too quickly to be caught";
        EXPECT_TRUE(Get(output) == earlier) << type;
        EXPECT_EQ(Temporaries().size(), HasUnnamedFiles() ? 0U : 1U);
        if (Temporaries().empty()) {
            EXPECT_EQ(Run(convert).status, 0);
            EXPECT_GT(fs::file_size(folder_ / output), kBytes);
            EXPECT_TRUE(Temporaries().empty());
            fs::remove(folder_ / output);
            continue;
        }
        // What it had written has a hidden name, which no later run takes for its own.
        const fs::path left = Temporaries().front();
        EXPECT_TRUE(left.filename().native().starts_with('.'));
        EXPECT_LT(fs::file_size(left), kBytes) << "killed behind the writing, which proves nothing";
        const auto time = fs::last_write_time(left);
        EXPECT_EQ(Run(convert).status, 0);
        EXPECT_GT(fs::file_size(folder_ / output), kBytes);
        ASSERT_EQ(Temporaries(), std::vector<fs::path>{left});
        EXPECT_EQ(fs::last_write_time(left), time);
        fs::remove(left);
        fs::remove(folder_ / output);
    }
}

} // namespace
} // namespace vimbo::cli
