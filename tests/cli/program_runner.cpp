#include "cli/program_runner.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>

#include <csignal>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vimbo::cli {

namespace fs = std::filesystem;

namespace {

void AppendLittle(std::string& out, std::uint32_t value, int bytes)
{
    for (int i = 0; i < bytes; ++i)
        out += static_cast<char>(value >> (8 * i) & 0xFF);
}

std::string ReadAll(const fs::path& path)
{
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

fs::path MakeFolder()
{
    std::string pattern = fs::temp_directory_path() / "vimbo-cli-XXXXXX";
    if (!::mkdtemp(pattern.data()))
        std::abort();
    return pattern;
}

/// Becomes the program; never returns.
[[noreturn]] void Become(const fs::path& folder, const std::vector<std::string>& arguments,
                         rlim_t maxFileBytes, const std::string& settingsFile)
{
    ::setenv("VIMBO_SETTINGS", settingsFile.c_str(), 1);
    std::vector<std::string> words{VIMBO_PROGRAM};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> pointers;
    for (std::string& word : words)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);
    if (maxFileBytes != 0) {
        const rlimit limit{maxFileBytes, maxFileBytes};
        ::signal(SIGXFSZ, SIG_IGN); // a write past the limit fails instead
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    const int in = ::open("/dev/null", O_RDONLY);
    const int out = ::open((folder / ".stdout").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const int err = ::open((folder / ".stderr").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (::dup2(in, 0) == 0 && ::dup2(out, 1) == 1 && ::dup2(err, 2) == 2 && ::chdir(folder.c_str()) == 0)
        ::execv(VIMBO_PROGRAM, pointers.data());
    ::_exit(127);
}

} // namespace

std::string WaveBytes(const std::vector<std::int16_t>& samples, unsigned channels, std::string_view extra)
{
    constexpr std::uint32_t kRateHz = 22050;
    std::string body = "WAVEfmt ";
    AppendLittle(body, 16, 4);
    AppendLittle(body, 1, 2); // PCM
    AppendLittle(body, channels, 2);
    AppendLittle(body, kRateHz, 4);
    AppendLittle(body, kRateHz * channels * 2, 4);
    AppendLittle(body, channels * 2, 2);
    AppendLittle(body, 16, 2);
    body += "data";
    AppendLittle(body, static_cast<std::uint32_t>(samples.size() * 2), 4);
    for (const std::int16_t sample : samples)
        AppendLittle(body, static_cast<std::uint16_t>(sample), 2);
    body += extra;
    std::string file = "RIFF";
    AppendLittle(file, static_cast<std::uint32_t>(body.size()), 4);
    return file + body;
}

std::string SamplerChunk(std::uint32_t type, std::uint32_t first, std::uint32_t last)
{
    std::string chunk = "smpl";
    AppendLittle(chunk, 36 + 24, 4);
    for (const std::uint32_t word : {0u, 0u, 45351u, 64u, 0u, 0u, 0u, 1u, 0u}) // root key 64, one loop
        AppendLittle(chunk, word, 4);
    for (const std::uint32_t word : {0u, type, first, last, 0u, 0u})
        AppendLittle(chunk, word, 4);
    return chunk;
}

ProgramTest::ProgramTest() : folder_(MakeFolder()) {}

ProgramTest::~ProgramTest()
{
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
}

ProgramResult ProgramTest::Run(const std::vector<std::string>& arguments, std::uint64_t maxFileBytes) const
{
    const pid_t child = Start(arguments, maxFileBytes);
    int state = 0;
    ::waitpid(child, &state, 0);
    return {WIFEXITED(state) ? WEXITSTATUS(state) : -1, ReadAll(folder_ / ".stdout"),
            ReadAll(folder_ / ".stderr")};
}

int ProgramTest::Start(const std::vector<std::string>& arguments, std::uint64_t maxFileBytes) const
{
    const pid_t child = ::fork();
    if (child == 0)
        Become(folder_, arguments, maxFileBytes, settingsFile_);
    return child;
}

nlohmann::json ProgramTest::RunJson(const std::vector<std::string>& arguments, int expectedStatus) const
{
    const ProgramResult result = Run(arguments);
    EXPECT_EQ(result.status, expectedStatus) << result.err;
    EXPECT_TRUE(nlohmann::json::accept(result.out)) << result.out;
    return nlohmann::json::parse(result.out, nullptr, false);
}

void ProgramTest::Put(const std::string& name, std::string_view bytes) const
{
    fs::create_directories((folder_ / name).parent_path());
    std::ofstream(folder_ / name, std::ios::binary) << bytes;
}

std::string ProgramTest::Get(const std::string& name) const
{
    return ReadAll(folder_ / name);
}

bool ProgramTest::Exists(const std::string& name) const
{
    return fs::exists(folder_ / name);
}

std::vector<std::pair<std::string, std::string>> ProgramTest::Snapshot(const std::string& name) const
{
    std::vector<std::pair<std::string, std::string>> files;
    for (const auto& entry : fs::recursive_directory_iterator(folder_ / name)) {
        if (entry.is_regular_file())
            files.emplace_back(fs::relative(entry.path(), folder_ / name), ReadAll(entry.path()));
    }
    std::sort(files.begin(), files.end());
    return files;
}

} // namespace vimbo::cli
