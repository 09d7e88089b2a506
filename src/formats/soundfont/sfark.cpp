// sfArk archives, each of one packed SoundFont. Their packing is not published; files of version 2 are
// unpacked by the free program `sfarkxtc`, which runs by itself, so that a damaged archive can do no harm
// here.
#include "base/last_error.h"
#include "base/path.h"
#include "base/text.h"
#include "formats/soundfont/soundfont.h"
#include "model/collection.h"
#include "model/waveform.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vimbo {
namespace {

namespace fs = std::filesystem;

constexpr const char* kProgram = "sfarkxtc";
constexpr const char* kArchiveName = "in.sfArk";
constexpr const char* kBankName = "out.sf2";
/// SoundFonts have 32-bit sizes, and the largest unpack in minutes.
constexpr rlim_t kMaxBankBytes = 0xFFFFFFFF;
constexpr rlim_t kMaxSeconds = 1800;

struct SfArkHeader {
    U32le flags;
    U32le originalBytes, packedBytes;
    U32le fileCheck, headerCheck;
    std::uint8_t versionNeeded; ///< 20: 2.0
    std::array<char, 5> madeBy;
    std::array<char, 5> signature;
    std::uint8_t method;
};
static_assert(DiskRecord<SfArkHeader> && sizeof(SfArkHeader) == 32);
constexpr std::array<char, 5> kSignature = {'s', 'f', 'A', 'r', 'k'};
/// Methods below are those of version 1.
constexpr std::uint8_t kFirstMethodOfVersion2 = 3;

/// A folder of this user's own that goes with everything in it.
class WorkFolder {
public:
    WorkFolder()
    {
        std::u16string unique;
        if (!MakeTempPath(unique, u".sfark"))
            return;
        marker_ = WideToPath(unique);
        std::error_code error;
        if (fs::create_directory(marker_ + ".d", error)) {
            path_ = marker_ + ".d";
            fs::permissions(path_, fs::perms::owner_all, error);
        }
    }
    ~WorkFolder()
    {
        std::error_code ignored;
        if (!path_.empty())
            fs::remove_all(path_, ignored);
        if (!marker_.empty())
            fs::remove(marker_, ignored);
    }
    WorkFolder(const WorkFolder&) = delete;
    WorkFolder& operator=(const WorkFolder&) = delete;

    const std::string& Path() const noexcept { return path_; } ///< empty: could not be made

private:
    std::string marker_; ///< the file that keeps the name unique
    std::string path_;
};

/// The program's path; empty if it is not installed.
std::string FindProgram()
{
    const char* search = std::getenv("PATH");
    std::string_view folders = search != nullptr ? search : "/usr/local/bin:/usr/bin";
    while (!folders.empty()) {
        const std::size_t end = folders.find(':');
        std::string path = std::string(folders.substr(0, end)) + "/" + kProgram;
        if (path.front() == '/' && ::access(path.c_str(), X_OK) == 0)
            return path;
        folders = end == std::string_view::npos ? std::string_view() : folders.substr(end + 1);
    }
    return {};
}

void Limit(int resource, rlim_t most) noexcept
{
    const rlimit limit{most, most};
    static_cast<void>(::setrlimit(static_cast<decltype(RLIMIT_CPU)>(resource), &limit));
}

/// The child's side: runs the program in `folder`, silent, with bounded time and output. Nothing here
/// allocates, as other threads' locks may be held.
[[noreturn]] void RunProgram(const char* program, const char* folder) noexcept
{
    const int nothing = ::open("/dev/null", O_RDWR);
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (nothing < 0 || ::dup2(nothing, stream) < 0)
            ::_exit(127);
    Limit(RLIMIT_CPU, kMaxSeconds);
    Limit(RLIMIT_FSIZE, kMaxBankBytes);
    Limit(RLIMIT_CORE, 0);
    if (::chdir(folder) == 0)
        ::execl(program, kProgram, kArchiveName, kBankName, static_cast<char*>(nullptr));
    ::_exit(127);
}

/// @return false if it failed, broke off, or the user stopped it
bool WaitFor(pid_t child, const Host& host)
{
    constexpr std::chrono::milliseconds kStep{10};
    int status = 0;
    for (;;) {
        const pid_t ended = ::waitpid(child, &status, WNOHANG);
        if (ended == child)
            return WIFEXITED(status) && WEXITSTATUS(status) == 0;
        if (ended < 0 && errno != EINTR)
            return false;
        if (host.IsCancelled()) {
            ::kill(child, SIGKILL);
            ::waitpid(child, &status, 0);
            return false;
        }
        std::this_thread::sleep_for(kStep);
    }
}

/// The program's own buffers hold short plain names only, so it sees the archive through a link.
bool Unpack(const std::u16string& archive, const std::string& folder, const Host& host)
{
    const std::string program = FindProgram();
    if (program.empty())
        return Fail(u"You need to install sfarkxtc before you can read sfArk files");
    std::error_code error;
    fs::create_symlink(fs::absolute(WideToPath(archive), error), folder + "/" + kArchiveName, error);
    if (error)
        return Fail(u"Could not create file");
    const pid_t child = ::fork();
    if (child == 0)
        RunProgram(program.c_str(), folder.c_str());
    return (child > 0 && WaitFor(child, host)) || Fail(u"The sfArk file could not be unpacked");
}

std::uint32_t VariantOf(FileObject& bank)
{
    std::array<std::byte, 64> head{};
    if (!bank.Seek(0) || !bank.ReadExact(head) || DetectSoundFont(head, kSoundFont1, bank.Size()) != 6)
        return kSoundFont2;
    return kSoundFont1;
}

/// Takes the samples into memory, as the bank will not stay. Waveforms that cannot be read go, and what plays
/// them stays without a sound, as of samples that were never there.
void KeepSamples(Collection& items)
{
    for (Waveform* wave : items.List<Waveform>()) {
        if (wave->LockSamplesForWrite().empty())
            items.Destroy(wave->Handle());
        else
            wave->SetText(kTextSourcePath, u"");
    }
}

} // namespace

bool ReadSfArk(Collection& collection, FileObject& file, std::uint32_t /*variant*/)
{
    SfArkHeader header;
    if (!file.Seek(0) || !file.Read(header) || header.signature != kSignature)
        return Fail(u"Not a sfArk file");
    if (header.method < kFirstMethodOfVersion2)
        return Fail(u"The file was made by sfArk 1. Only files of version 2 can be read");
    const WorkFolder folder;
    if (folder.Path().empty())
        return Fail(u"Could not create file");
    if (!Unpack(file.Path(), folder.Path(), collection.GetHost()))
        return false;
    const std::u16string path = PathToWide(folder.Path() + "/" + kBankName);
    FileObject bank;
    if (!bank.Open(path, FileMode::Read))
        return Fail(u"The sfArk file could not be unpacked");
    if (!ReadSoundFont(collection, bank, VariantOf(bank)))
        return false;
    KeepSamples(collection);
    return true;
}

int DetectSfArk(std::span<const std::byte> head, std::uint32_t /*variant*/, std::uint64_t /*fileSize*/)
{
    constexpr int kMatch = 6;
    SfArkHeader header;
    return ByteReader(head).Read(header) && header.signature == kSignature ? kMatch : 0;
}

} // namespace vimbo
