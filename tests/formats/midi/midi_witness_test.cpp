// Songs of others that we read, and files that we write, seen by independent programs. What is missing skips
// its test with a notice.
#include "base/text.h"
#include "formats/open.h"
#include "formats/save.h"
#include "model/song_analysis.h"
#include "programs.h"
#include "test_files.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <sstream>

namespace vimbo {
namespace {

using testing::HasProgram;

/// Without standard error, and with nothing to read.
std::string ResultOf(const std::string& command)
{
    return testing::OutputOf(command + " 2>/dev/null </dev/null");
}

namespace fs = std::filesystem;

constexpr int kMidRow = 232, kXmiRow = 528;
constexpr const char* kSongs = "/usr/share/games/openttd/baseset/openmsx";
constexpr const char* kWildmidi = "wildmidi -c /etc/wildmidi/wildmidi.cfg -x ";

/// A song as midicsv tells it.
struct Told {
    unsigned format = 0, tracks = 0, division = 0;
    std::map<std::uint64_t, double> tempos{{0, 500000.0}};
    std::uint64_t end = 0;
    std::multiset<std::uint64_t> notes; ///< times of their starts

    explicit Told(const std::string& lines)
    {
        std::istringstream text(lines);
        for (std::string line; std::getline(text, line);) {
            std::array<unsigned, 3> fields{};
            std::array<char, 32> kind{};
            unsigned long long tick = 0;
            if (std::sscanf(line.c_str(), "%*u, %llu, %31[^,], %u, %u, %u", &tick, kind.data(), &fields[0],
                            &fields[1], &fields[2]) < 2)
                continue;
            end = std::max<std::uint64_t>(end, tick);
            if (std::string(kind.data()) == "Header")
                format = fields[0], tracks = fields[1], division = fields[2];
            else if (std::string(kind.data()) == "Tempo")
                tempos[tick] = fields[0];
            else if (std::string(kind.data()) == "Note_on_c" && fields[2] != 0)
                notes.insert(tick);
        }
    }
    double SecondsAt(std::uint64_t tick) const
    {
        double sum = 0;
        for (auto at = tempos.begin(); at != tempos.end() && at->first < tick; ++at) {
            const auto next = std::next(at);
            const std::uint64_t to = next == tempos.end() ? tick : std::min(next->first, tick);
            sum += static_cast<double>(to - at->first) * at->second / 1e6 / division;
        }
        return sum;
    }
};

TEST(MidiWitness, OthersTellTheSameOfSongsAndOfWhatWeWrite)
{
    if (!HasProgram("midicsv") || !fs::is_directory(kSongs))
        GTEST_SKIP() << "needs midicsv and the songs of openttd-openmsx";
    const bool hasWildmidi = HasProgram("wildmidi") && fs::exists("/etc/wildmidi/wildmidi.cfg");
    for (const fs::directory_entry& entry : fs::directory_iterator(kSongs)) {
        SCOPED_TRACE(entry.path());
        if (entry.path().extension() != ".mid")
            continue;
        const testing::ScratchFolder folder;
        const auto put = [&](const char* name) { return (folder.Path() / name).string(); };
        Collection items;
        ASSERT_TRUE(LoadFile(items, PathToWide(entry.path().string()), AllowRaw::No));
        Song& song = *items.List<Song>().front();
        for (const auto& [row, name] : {std::pair{kMidRow, "a.mid"}, {kXmiRow, "a.xmi"}})
            ASSERT_TRUE(SaveItem(&song, row, folder.Wide(name), AutoChoice(row)));

        const std::string lines = ResultOf("midicsv '" + entry.path().string() + "'");
        EXPECT_EQ(ResultOf("midicsv " + put("a.mid")), lines);
        const Told told(lines);
        EXPECT_EQ(song.format, told.format);
        EXPECT_EQ(song.division, told.division);
        EXPECT_EQ(song.Children().size(), told.tracks);
        EXPECT_NEAR(SongSeconds(song), told.SecondsAt(told.end), 1e-6);

        if (!hasWildmidi)
            continue;
        ResultOf(kWildmidi + put("b.mid") + " " + put("a.xmi"));
        const Told other(ResultOf("midicsv " + put("b.mid")));
        ASSERT_EQ(other.notes.size(), told.notes.size());
        // It makes three ticks of an interval, and of a stream without tempos says nothing of that.
        constexpr double kInterval = 1.0 / 120, kTick = kInterval / 3;
        for (auto wanted = told.notes.begin(), got = other.notes.begin(); got != other.notes.end();
             ++wanted, ++got)
            ASSERT_NEAR(static_cast<double>(*got) * kTick, told.SecondsAt(*wanted), kInterval + 1e-4);
    }
    if (!hasWildmidi)
        GTEST_SKIP() << "the extended MIDI files were not looked at: needs wildmidi";
}

} // namespace
} // namespace vimbo
