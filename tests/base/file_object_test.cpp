#include "base/file_object.h"
#include "base/path.h"
#include "base/text.h"

#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vimbo {
namespace {

namespace fs = std::filesystem;

std::span<const std::byte> Bytes(std::string_view text)
{
    return std::as_bytes(std::span(text));
}

std::string Contents(const fs::path& path)
{
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

mode_t Mode(const fs::path& path)
{
    struct stat status = {};
    return ::lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

void Put(const fs::path& path, std::string_view text)
{
    std::ofstream(path, std::ios::binary) << text;
}

class FileTest : public testing::Test {
protected:
    FileTest()
    {
        std::string name = (fs::temp_directory_path() / "vimbo-test-XXXXXX").native();
        folder = ::mkdtemp(name.data());
    }
    ~FileTest() override { fs::remove_all(folder); }

    std::u16string Wide(const std::string& name) const { return PathToWide((folder / name).native()); }
    std::size_t EntryCount() const
    {
        return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), {}));
    }

    fs::path folder;
};

/// Counts how often the system is asked.
class CountingFile final : public FileObject {
public:
    int reads = 0;

protected:
    std::int64_t ReadAt(std::uint64_t offset, std::span<std::byte> out) noexcept override
    {
        ++reads;
        return FileObject::ReadAt(offset, out);
    }
};

TEST_F(FileTest, EndOfFileIsNoFailure)
{
    Put(folder / "a", "12345");
    FileObject file;
    ASSERT_TRUE(file.Open(Wide("a"), FileMode::Read));
    EXPECT_EQ(file.Size(), 5U);
    std::array<std::byte, 8> buffer{};
    std::uint64_t got = 99;
    EXPECT_TRUE(file.ReadAll(buffer, &got));
    EXPECT_EQ(got, 5U);
    EXPECT_EQ(file.Position(), 5U);
    EXPECT_TRUE(file.ReadAll(buffer, &got));
    EXPECT_EQ(got, 0U);
    ASSERT_TRUE(file.Seek(2));
    U32le number = 7;
    EXPECT_FALSE(file.Read(number));
    EXPECT_EQ(number.Get(), 0U);
    ASSERT_TRUE(file.Seek(std::numeric_limits<std::int64_t>::max()));
    EXPECT_TRUE(file.ReadAll(buffer, &got)) << "far past the end is still only the end";
    EXPECT_EQ(got, 0U);
    EXPECT_FALSE(file.Seek(std::uint64_t{1} << 63));
    EXPECT_FALSE(file.WriteAll(Bytes("x"))) << "opened for reading";
    EXPECT_FALSE(file.Truncate(0));
    file.Close();
    EXPECT_FALSE(file.ReadAll(buffer, &got));
    EXPECT_TRUE(file.ReadAll({}, &got)) << "nothing asked for is always met";
    EXPECT_FALSE(file.Seek(0));
}

TEST_F(FileTest, OpenRefusesWhatIsNoFile)
{
    FileObject file;
    ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
    fs::create_directory(folder / "sub");
    Put(folder / "a", "content");
    for (const FileMode mode : {FileMode::Read, FileMode::ReadWrite, FileMode::Create}) {
        EXPECT_FALSE(file.Open(Wide("sub"), mode));
        EXPECT_FALSE(file.Open(Wide("fifo"), mode)) << "and must not wait for its other end";
        EXPECT_FALSE(file.Open(u"/dev/null", mode));
        EXPECT_FALSE(file.Open(u"", mode));
        EXPECT_FALSE(file.Open(Wide("a") + std::u16string(1, u'\0') + u"b", mode));
        EXPECT_FALSE(file.IsOpen());
    }
    EXPECT_FALSE(file.Open(Wide("missing"), FileMode::ReadWrite));
    EXPECT_EQ(file.Path(), Wide("missing"));
    EXPECT_EQ(Contents(folder / "a"), "content");
}

TEST_F(FileTest, CreateTruncatesAndObeysTheUmask)
{
    const mode_t before = ::umask(027);
    Put(folder / "old", "long content");
    FileObject file;
    ASSERT_TRUE(file.Open(Wide("old"), FileMode::Create));
    EXPECT_EQ(file.Size(), 0U);
    ASSERT_TRUE(file.Open(Wide("new"), FileMode::Create));
    ASSERT_TRUE(file.WriteAll(Bytes("abc")));
    EXPECT_EQ(Mode(folder / "new"), 0640U);
    ASSERT_TRUE(file.Open(file.Path(), FileMode::ReadWrite)) << "the stored path itself may be the argument";
    EXPECT_EQ(file.Position(), 0U);
    ASSERT_TRUE(file.Seek(5) && file.WriteAll(Bytes("Z")) && file.Sync());
    EXPECT_EQ(Contents(folder / "new"), std::string("abc\0\0Z", 6));
    ::umask(before);
}

TEST_F(FileTest, AttachedDescriptorsStayOpen)
{
    Put(folder / "a", "xyz");
    const int descriptor = ::open((folder / "a").c_str(), O_RDONLY | O_CLOEXEC);
    {
        FileObject file;
        file.Attach(descriptor, u"shown");
        std::array<std::byte, 3> buffer{};
        EXPECT_TRUE(file.ReadExact(buffer));
        EXPECT_EQ(file.Path(), u"shown");
        EXPECT_TRUE(file.Open(Wide("a"), FileMode::Read));
        file.Attach(descriptor, file.Path());
    }
    EXPECT_EQ(::close(descriptor), 0);
}

TEST_F(FileTest, SmallReadsShareOneSystemCallAndLargeOnesPassBy)
{
    Put(folder / "a", std::string(100000, 'x'));
    CountingFile file;
    ASSERT_TRUE(file.Open(Wide("a"), FileMode::Read));
    U32le field;
    for (int i = 0; i < 1000; ++i)
        ASSERT_TRUE(file.Read(field));
    EXPECT_EQ(file.reads, 1);
    std::vector<std::byte> large(90000);
    ASSERT_TRUE(file.ReadExact(large));
    EXPECT_EQ(file.reads, 2);

    Put(folder / "b", "next");
    ASSERT_TRUE(file.Open(Wide("b"), FileMode::Read) && file.Read(field));
    EXPECT_EQ(field.Get(), 0x7478656EU) << "nothing of the earlier file";
}

// The disk and the memory form run through the same pseudo-random life and must agree at every step.
TEST_F(FileTest, DiskAndMemoryAgree)
{
    FileObject disk;
    MemoryFile memory;
    ASSERT_TRUE(disk.Open(Wide("a"), FileMode::Create));
    std::uint32_t seed = 12345;
    const auto random = [&seed](std::uint32_t below) {
        return (seed = seed * 1664525 + 1013904223) / 65536 % below;
    };
    for (int step = 0; step < 20000; ++step) {
        const std::uint32_t action = random(8);
        const std::size_t size = random(action == 0 ? 9000 : 40);
        if (action < 5) {
            std::vector<std::byte> a(size), b(size);
            std::uint64_t gotA = 0, gotB = 0;
            ASSERT_TRUE(disk.ReadAll(a, &gotA) && memory.ReadAll(b, &gotB));
            ASSERT_EQ(gotA, gotB) << step;
            ASSERT_EQ(a, b) << step;
        } else if (action < 6) {
            const std::vector<std::byte> bytes(size, static_cast<std::byte>(random(256)));
            ASSERT_TRUE(disk.WriteAll(bytes) && memory.WriteAll(bytes));
        } else if (action < 7 || step % 16 != 0) {
            const std::uint32_t position = random(12000);
            ASSERT_TRUE(disk.Seek(position) && memory.Seek(position));
        } else {
            const std::uint32_t length = random(12000);
            ASSERT_TRUE(disk.Truncate(length) && memory.Truncate(length));
        }
        ASSERT_EQ(disk.Position(), memory.Position()) << step;
        ASSERT_EQ(disk.Size(), memory.Size()) << step;
    }
    const std::string written = Contents(folder / "a");
    ASSERT_GT(written.size(), 4096U);
    EXPECT_TRUE(std::ranges::equal(Bytes(written), memory.Bytes()));
}

TEST_F(FileTest, ReadLine)
{
    using namespace std::string_view_literals;
    MemoryFile file(Bytes("o e\r\n\ttwo\n\nab\0cd\r\t\n0123456789\nend"sv));
    const std::array<const char*, 8> expected = {"o e", "two", "", "ab", "cd", "01234", "56789", ""};
    std::array<char, 6> line{};
    for (const char* text : expected) {
        line.fill('?');
        EXPECT_EQ(file.ReadLine(line), text[0] != '\0') << text;
        EXPECT_STREQ(line.data(), text);
    }
    EXPECT_TRUE(file.ReadLine(line)) << "the last line has no line feed";
    EXPECT_STREQ(line.data(), "end");
    EXPECT_FALSE(file.ReadLine(line));
    EXPECT_STREQ(line.data(), "");
    EXPECT_FALSE(file.ReadLine({}));
}

TEST(MemoryFile, RefusesSizesThatCannotBe)
{
    MemoryFile file(Bytes("abc"));
    ASSERT_TRUE(file.Seek(std::numeric_limits<std::int64_t>::max()));
    std::uint64_t written = 1;
    EXPECT_FALSE(file.WriteAll(Bytes("x"), &written));
    EXPECT_EQ(written, 0U);
#ifndef __SANITIZE_ADDRESS__ // which ends the program on a request of this size
    EXPECT_FALSE(file.Truncate(std::uint64_t{1} << 62));
#endif
    EXPECT_EQ(file.Size(), 3U);
    const auto bytes = file.Release();
    EXPECT_TRUE(std::ranges::equal(bytes, Bytes("abc")));
}

TEST_F(FileTest, PathsOfOtherSystemsAreFound)
{
    fs::create_directories(folder / "Samples" / "Drums");
    fs::create_directories(folder / "SAMPLES2");
    for (const char* name :
         {"Samples/Drums/Kick.wav", "Samples/b\xC3\x84r.wav", "Samples/exact", "Samples/EXACT",
          "Samples/raw\xFF"
          "A",
          "sample\\s", "samples2", "SAMPLES2/in", "caf\xC3\xA9.wav"})
        Put(folder / name, name);
    struct Row {
        const char* written;
        const char* found;
    };
    const std::string root = folder.native() + '/';
    for (const Row& row : std::initializer_list<Row>{
             {"Samples/Drums/Kick.wav", "Samples/Drums/Kick.wav"},
             {"samples\\DRUMS\\kick.WAV", "Samples/Drums/Kick.wav"},
             {"samples//./drums/../Drums/kick.wav", "Samples/./Drums/../Drums/Kick.wav"},
             {"samples/B\xC3\xA4R.WAV", "Samples/b\xC3\x84r.wav"},
             {"samples/exact", "Samples/exact"},
             {"samples/Exact", "Samples/EXACT"},
             {"SAMPLES/RAW\xFF"
              "a",
              "Samples/raw\xFF"
              "A"},
             {"sample\\s", "sample\\s"},
             {"Samples2/IN", "SAMPLES2/in"},
             {"samples/drums", "Samples/Drums"},
             {"Samples/Exact/x", ""},
             {"Samples/Drums/Kick.wav/", ""},
             {"nowhere/Kick.wav", ""},
             {"Samples/Drums/Kick", ""}}) {
        const std::string expected = row.found[0] == '\0' ? "" : root + row.found;
        EXPECT_EQ(WideToPath(FindExistingPath(PathToWide(root + row.written))), expected) << row.written;
    }

    FileObject file;
    ASSERT_TRUE(file.Open(Wide("samples\\drums\\KICK.WAV"), FileMode::ReadWrite));
    EXPECT_EQ(file.Path(), Wide("Samples/Drums/Kick.wav"));
    ASSERT_TRUE(file.Open(Wide("CAFe\xCC\x81.wav"), FileMode::Read)) << "decomposed, and in other case";
    EXPECT_EQ(file.Path(), Wide("caf\xC3\xA9.wav"));

    const fs::path before = fs::current_path();
    fs::current_path(folder / "Samples");
    EXPECT_EQ(FindExistingPath(u"DRUMS\\kick.wav"), u"Drums/Kick.wav");
    EXPECT_EQ(FindExistingPath(u"..\\samples\\EXACT"), u"../Samples/EXACT");
    EXPECT_EQ(FindExistingPath(u""), u"");
    fs::current_path(before);
}

TEST_F(FileTest, NewFilesKeepTheirNames)
{
    fs::create_directories(folder / "Out");
    Put(folder / "Out" / "Old.wav", "old");
    FileObject file;
    ASSERT_TRUE(file.Open(Wide("Out/old.wav"), FileMode::Create)) << "case tells new files apart";
    EXPECT_EQ(file.Path(), Wide("Out/old.wav"));
    EXPECT_EQ(Contents(folder / "Out" / "Old.wav"), "old");
    ASSERT_TRUE(file.Open(Wide("back\\slash"), FileMode::Create));
    EXPECT_TRUE(fs::exists(folder / "back\\slash"));
    EXPECT_FALSE(file.Open(Wide("OUT/Sub\\x"), FileMode::Create)) << "the folder Sub is nowhere";
    ASSERT_TRUE(file.Open(Wide("OUT/New:1.wav"), FileMode::Create)) << "a folder in other case is found";
    EXPECT_EQ(file.Path(), Wide("Out/New:1.wav"));
    EXPECT_FALSE(file.Open(Wide("missing/x.wav"), FileMode::Create));
    fs::create_directories(folder / "Out" / "a");
    fs::create_directories(folder / "Out" / "a\\b");
    EXPECT_FALSE(file.Open(Wide("Out/a\\b"), FileMode::Create)) << "its folder exists as written";
    EXPECT_TRUE(fs::is_empty(folder / "Out" / "a"));
}

TEST_F(FileTest, GuardedFileReplacesWholeOrNotAtAll)
{
    Put(folder / "a", "earlier");
    ::chmod((folder / "a").c_str(), 0604);
    fs::create_symlink("a", folder / "link");
    fs::create_symlink("later", folder / "dangling");
    {
        GuardedFile given;
        ASSERT_TRUE(given.Create(Wide("a")) && given.File().WriteAll(Bytes("half")));
        EXPECT_EQ(given.File().Path(), Wide("a"));
        EXPECT_LE(EntryCount(), 4U) << "links, the earlier file, and at most one more";
    }
    EXPECT_EQ(Contents(folder / "a"), "earlier") << "not committed";

    GuardedFile file;
    ASSERT_TRUE(file.Create(Wide("link")) && file.File().WriteAll(Bytes("new")));
    EXPECT_EQ(Contents(folder / "a"), "earlier");
    ASSERT_TRUE(file.Commit());
    EXPECT_FALSE(file.File().IsOpen());
    EXPECT_FALSE(file.Commit()) << "only once";
    EXPECT_EQ(Contents(folder / "a"), "new");
    EXPECT_EQ(Mode(folder / "a"), 0604U);
    EXPECT_TRUE(fs::is_symlink(folder / "link"));

    const mode_t before = ::umask(022);
    ASSERT_TRUE(file.Create(Wide("dangling")) && file.Commit());
    EXPECT_EQ(Mode(folder / "later"), 0644U);
    ::umask(before);
    const std::string longest(NAME_MAX, 'n');
    ASSERT_TRUE(file.Create(Wide(longest)) && file.Commit());
    EXPECT_TRUE(fs::exists(folder / longest));
    EXPECT_EQ(EntryCount(), 5U) << "no temporary is left";
}

TEST_F(FileTest, GuardedFileRefusals)
{
    GuardedFile file;
    EXPECT_FALSE(file.Commit());
    fs::create_directory(folder / "sub");
    fs::create_symlink("loop", folder / "loop");
    for (const char* name : {"sub", "sub/", "missing/a", "loop", "new/"})
        EXPECT_FALSE(file.Create(Wide(name))) << name;
    EXPECT_FALSE(file.Create(u"/dev/null"));
    EXPECT_FALSE(file.Create(u""));
    ASSERT_TRUE(file.Create(Wide("a")));
    fs::create_directory(folder / "a"); // in the way of the rename
    EXPECT_FALSE(file.Commit());
    EXPECT_EQ(EntryCount(), 3U);
    if (::geteuid() != 0) {
        Put(folder / "protected", "x");
        ::chmod((folder / "protected").c_str(), 0444);
        EXPECT_FALSE(file.Create(Wide("protected")));
    }
}

TEST_F(FileTest, GuardedFileSetReplacesAllOrNone)
{
    Put(folder / "a", "earlier a");
    Put(folder / "b", "earlier b");
    const auto take = [&](GuardedFileSet& set, const char* name) {
        auto file = std::make_unique<GuardedFile>();
        return file->Create(Wide(name)) && file->File().WriteAll(Bytes("new")) && set.Take(std::move(file));
    };
    {
        GuardedFileSet given;
        ASSERT_TRUE(take(given, "a") && take(given, "c"));
    }
    EXPECT_EQ(Contents(folder / "a"), "earlier a") << "not committed";
    EXPECT_EQ(EntryCount(), 2U);
    {
        GuardedFileSet set;
        ASSERT_TRUE(take(set, "a") && take(set, "c") && take(set, "b") && take(set, "d"));
        fs::create_directory(folder / "d"); // in the way of the last one
        EXPECT_FALSE(set.Commit());
    }
    EXPECT_EQ(Contents(folder / "a"), "earlier a");
    EXPECT_EQ(Contents(folder / "b"), "earlier b");
    EXPECT_EQ(EntryCount(), 3U) << "neither new files nor temporaries are left";
    GuardedFileSet set;
    ASSERT_TRUE(take(set, "a") && take(set, "c") && take(set, "b") && set.Commit());
    for (const char* name : {"a", "b", "c"})
        EXPECT_EQ(Contents(folder / name), "new");
    EXPECT_EQ(EntryCount(), 4U);
}

TEST_F(FileTest, KilledWriterLeavesTheEarlierFile)
{
    Put(folder / "a", "earlier");
    const pid_t child = ::fork();
    if (child == 0) {
        GuardedFile file;
        if (file.Create(Wide("a")) && file.File().WriteAll(Bytes("half")))
            ::raise(SIGKILL);
        ::_exit(0);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(Contents(folder / "a"), "earlier");
    for (const auto& entry : fs::directory_iterator(folder))
        EXPECT_TRUE(entry.path().filename() == "a" || entry.path().filename().native().starts_with('.'));
}

TEST_F(FileTest, FoldersAreMadeAndListed)
{
    EXPECT_TRUE(MakeDirectories(Wide("x/y/z")));
    EXPECT_TRUE(MakeDirectories(Wide("x/y/z/")));
    Put(folder / "x" / "file", "");
    EXPECT_FALSE(MakeDirectories(Wide("x/file/z")));
    EXPECT_FALSE(MakeDirectories(Wide("x/file")));
    EXPECT_FALSE(MakeDirectories(u""));
    EXPECT_TRUE(IsFile(Wide("x/file")) && !IsFile(Wide("x")) && !IsFile(Wide("none")));
    EXPECT_TRUE(IsDirectory(Wide("x")) && !IsDirectory(Wide("x/file")) && !IsDirectory(Wide("none")));

    fs::create_symlink("nowhere", folder / "x" / "Link");
    fs::create_symlink("y", folder / "x" / "b");
    Put(folder / "x" / "\xFF", "");
    Put(folder / "x" / "\xC3\xA4", "");
    std::vector<DirectoryEntry> entries;
    ASSERT_TRUE(ListDirectory(Wide("x"), entries));
    std::string shown;
    for (const DirectoryEntry& entry : entries)
        shown += WideToPath(entry.name) + (entry.isDirectory ? "/ " : " ");
    EXPECT_EQ(shown, "Link b/ file y/ \xC3\xA4 \xFF ");
    EXPECT_FALSE(ListDirectory(Wide("none"), entries));
    EXPECT_FALSE(ListDirectory(Wide("x/file"), entries));
    EXPECT_EQ(entries.size(), 6U) << "a failed call leaves the caller's data alone";
}

TEST_F(FileTest, TempPathsNeverMeet)
{
    const std::string before = fs::temp_directory_path().native();
    ::setenv("TMPDIR", folder.c_str(), 1);
    std::u16string first;
    std::u16string second;
    ASSERT_TRUE(MakeTempPath(first, u".wav") && MakeTempPath(second, u".wav"));
    EXPECT_NE(first, second);
    EXPECT_TRUE(first.starts_with(Wide("Vimbo Studio")) && first.ends_with(u".wav"));
    EXPECT_EQ(Mode(WideToPath(first)), 0600U);
    EXPECT_TRUE(fs::is_empty(WideToPath(first)));
    EXPECT_FALSE(MakeTempPath(second, u"/../x"));
    ::setenv("TMPDIR", before.c_str(), 1);
}

TEST_F(FileTest, RecycleBinKeepsFilesWithTheirOrigin)
{
    ::setenv("XDG_DATA_HOME", (folder / "data").c_str(), 1);
    const fs::path trash = folder / "data" / "Trash";
    const std::string name = "100% \xC3\xA4.wav";
    for (const char* text : {"first", "second"}) {
        Put(folder / name, text);
        EXPECT_TRUE(MoveToRecycleBin(Wide(name)));
        EXPECT_FALSE(fs::exists(folder / name));
    }
    EXPECT_EQ(Contents(trash / "files" / name), "first");
    EXPECT_EQ(Contents(trash / "files" / (name + ".2")), "second");
    const std::string info = Contents(trash / "info" / (name + ".2.trashinfo"));
    EXPECT_TRUE(
        info.starts_with("[Trash Info]\nPath=" + folder.native() + "/100%25%20%C3%A4.wav\nDeletionDate=20"))
        << info;
    EXPECT_EQ(info.substr(info.size() - 10, 1), "T") << "date and time, then a line feed";
    EXPECT_EQ(Mode(trash), 0700U);

    // A name without an info file is someone's data, and the longest names must fit with their additions.
    const std::string longest(NAME_MAX, 'n');
    Put(trash / "files" / "a", "orphan");
    Put(folder / "a", "mine");
    Put(folder / longest, "long");
    fs::create_symlink("a", folder / "link");
    EXPECT_TRUE(MoveToRecycleBin(Wide("link")));
    EXPECT_TRUE(fs::exists(folder / "a"));
    EXPECT_TRUE(MoveToRecycleBin(Wide("a")) && MoveToRecycleBin(Wide(longest)));
    EXPECT_EQ(Contents(trash / "files" / "a"), "orphan");
    EXPECT_EQ(Contents(trash / "files" / "a.2"), "mine");
    EXPECT_FALSE(fs::exists(trash / "info" / "a.trashinfo"));
    EXPECT_EQ(EntryCount(), 1U);

    const fs::path before = fs::current_path();
    fs::current_path(folder / "data");
    Put("b", "");
    EXPECT_TRUE(MoveToRecycleBin(u"b"));
    EXPECT_NE(Contents(trash / "info" / "b.trashinfo").find("\nPath=" + folder.native() + "/data/b\n"),
              std::string::npos);
    fs::current_path(before);
    EXPECT_TRUE(MoveToRecycleBin(u""));
    EXPECT_TRUE(MoveToRecycleBin(Wide("none")) && MoveToRecycleBin(Wide("none/none")));
    ::unsetenv("XDG_DATA_HOME");
}

TEST_F(FileTest, RecycleBinOfAnotherFileSystem)
{
    struct stat here = {};
    struct stat other = {};
    if (::stat(folder.c_str(), &here) != 0 || ::stat("/dev/shm", &other) != 0 || here.st_dev == other.st_dev)
        GTEST_SKIP() << "no second file system to test with";
    ::setenv("XDG_DATA_HOME", (folder / "data").c_str(), 1);
    const fs::path trash = "/dev/shm/.Trash-" + std::to_string(::getuid());
    const bool wasThere = fs::exists(trash);
    const std::string name = "vimbo-test-" + std::to_string(::getpid());
    fs::create_directory("/dev/shm/" + name);
    Put("/dev/shm/" + name + '/' + name, "far");
    EXPECT_TRUE(MoveToRecycleBin(PathToWide("/dev/shm/" + name + '/' + name)));
    EXPECT_EQ(Contents(trash / "files" / name), "far");
    EXPECT_TRUE(Contents(trash / "info" / (name + ".trashinfo"))
                    .starts_with("[Trash Info]\nPath=" + name + '/' + name + '\n'));
    EXPECT_TRUE(fs::is_empty(folder / "data" / "Trash" / "info"));
    fs::remove(trash / "files" / name);
    fs::remove(trash / "info" / (name + ".trashinfo"));
    fs::remove_all("/dev/shm/" + name);
    if (!wasThere)
        fs::remove_all(trash);
    ::unsetenv("XDG_DATA_HOME");
}

} // namespace
} // namespace vimbo
