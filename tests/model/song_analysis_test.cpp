#include "model/song_analysis.h"

#include "model/model_builders.h"
#include "model/track_builder.h"

#include <string>

namespace vimbo {
namespace {

struct Meta {
    unsigned char type;
    std::string text;
};

/// A track of meta events at time 0, then a program change on channel 6 if asked for, and the end.
std::vector<std::byte> Block(const std::vector<Meta>& metas, bool hasChannel = false)
{
    TrackBuilder builder;
    for (const Meta& meta : metas)
        builder.PutMeta(meta.type, std::as_bytes(std::span(meta.text)));
    builder.SetChannel(6);
    if (hasChannel)
        builder.PutChannel(kProgramChange, 1);
    builder.PutEndOfTrack();
    return {builder.Data().begin(), builder.Data().end()};
}

TEST(AnalyseTrack, NamesTrackAndSongByTheFirstTexts)
{
    const struct {
        const char* why;
        std::vector<Meta> metas;
        std::u16string_view track, song, comment, copyright;
        bool hasSong = true;
        std::u16string_view oldComment = u"", oldCopyright = u"";
    } kCases[] = {
        {"first text becomes the comment", {{1, "a"}, {1, "b"}}, u"old", u"S", u"a", u""},
        {"else it names the track", {{1, "a"}, {1, "b"}}, u"a", u"S", u"c", u"", true, u"c"},
        {"as without a song", {{1, "a"}, {1, "b"}}, u"a", u"S", u"", u"", false},
        {"a track name comes before a text", {{3, "n"}, {1, "a"}}, u"n", u"S", u"", u"", false},
        {"and replaces it", {{1, "a"}, {3, "n"}}, u"n", u"S", u"", u"", false},
        {"first name for the track, last for the song", {{3, "n"}, {3, "m"}}, u"n", u"m", u"", u""},
        {"no song to rename", {{3, "n"}, {3, "m"}}, u"n", u"S", u"", u"", false},
        {"first copyright", {{2, "x"}, {2, "y"}}, u"old", u"S", u"", u"x"},
        {"a copyright that was there", {{2, "x"}}, u"old", u"S", u"", u"z", true, u"", u"z"},
        {"no song for a copyright", {{2, "x"}}, u"old", u"S", u"", u"", false},
        {"empty texts are none", {{1, ""}, {3, ""}, {2, ""}, {1, "a"}}, u"a", u"S", u"", u"", false},
        {"Windows-1252", {{3, "\xC4\x93"}}, u"\u00C4\u201C", u"\u00C4\u201C", u"", u""},
        {"other types are no texts", {{4, "a"}, {5, "b"}, {6, "c"}}, u"old", u"S", u"", u""},
    };
    for (const auto& c : kCases) {
        Collection items;
        Song& song = items.Create<Song>(u"S");
        song.SetText(kTextComments, c.oldComment);
        song.SetText(kTextCopyright, c.oldCopyright);
        Track& track = Nest(song, items.Create<Track>(u"old"));
        track.SetData(Block(c.metas));
        AnalyseTrack(track, c.hasSong ? &song : nullptr, TakeChannel::Yes);
        EXPECT_EQ(track.GetName(), c.track) << c.why;
        EXPECT_EQ(song.GetName(), c.song) << c.why;
        EXPECT_EQ(song.GetText(kTextComments), c.comment) << c.why;
        EXPECT_EQ(song.GetText(kTextCopyright), c.copyright) << c.why;
    }
}

TEST(AnalyseTrack, TakesSummariesOnlyFromTheStart)
{
    using namespace std::string_literals;
    const struct {
        const char* why;
        std::vector<std::byte> block;
        unsigned port, channel, sequence;
        TakeChannel takeChannel = TakeChannel::Yes;
    } kCases[] = {
        {"nothing", {}, 9, 255, 77},
        {"all", Block({{0, "\x12\x34"}, {33, "\x02"}}, true), 2, 6, 0x1234},
        {"the first of each", Block({{0, "\1\2"}, {33, "\3"}, {0, "\4\5"}, {33, "\6"}}), 3, 255, 0x0102},
        {"a sequence number of another size", Block({{0, "\1"}, {0, "\1\2"}}), 9, 255, 77},
        {"channel not asked for", Block({}, true), 9, 255, 77, TakeChannel::No},
    };
    for (const auto& c : kCases) {
        Collection items;
        Track& track = items.Create<Track>(u"t");
        track.port = 9;
        track.sequence = 77;
        track.SetData(c.block);
        AnalyseTrack(track, nullptr, c.takeChannel);
        EXPECT_EQ(track.port, c.port) << c.why;
        EXPECT_EQ(track.channel, c.channel) << c.why;
        EXPECT_EQ(track.sequence, c.sequence) << c.why;
    }
}

TEST(AnalyseTrack, StopsAtTimeAtTheEndAndWhenAllIsSettled)
{
    Collection items;
    Song& song = items.Create<Song>(u"S");
    const auto named = [&](std::initializer_list<unsigned char> block) {
        Track& track = AddTrack(song, block);
        AnalyseTrack(track, &song, TakeChannel::Yes);
        return std::u16string(track.GetName());
    };
    EXPECT_EQ(named({1, 0xFF, 3, 1, 'a', 0, 0xFF, 0x2F, 0}), u"unnamed");
    EXPECT_EQ(named({0, 0xFF, 0x2F, 0, 0, 0xFF, 3, 1, 'a'}), u"unnamed");
    EXPECT_EQ(named({0, 0x91, 1, 1, 0, 0xFF, 3, 1, 'a'}), u"a");
    EXPECT_EQ(song.GetName(), u"a");
    named({0, 0xFF, 0, 2, 0, 1, 0, 0xFF, 33, 1, 1, 0, 0xFF, 3, 1, 'b', 0, 0x91, 1, 1, 0, 0xFF, 3, 1, 'c'});
    EXPECT_EQ(song.GetName(), u"b");
}

TEST(SongAnalysis, FindsNotesPortsAndEvents)
{
    Collection items;
    Song& song = items.Create<Song>(u"s");
    EXPECT_EQ(PortCount(song), 1u);
    EXPECT_EQ(TotalEvents(song), 0u);
    const Track& notes = AddTrack(song, {0, 0xB0, 7, 100, 9, 0x90, 60, 1});
    Track& silent = AddTrack(song, {0, 0x90, 60, 0, 0, 0x80, 60, 64, 0, 0xFF, 0x2F, 0, 0, 0x90, 60, 1});
    silent.port = 5;
    EXPECT_TRUE(HasNotes(notes));
    EXPECT_FALSE(HasNotes(silent));
    EXPECT_EQ(PortCount(song), 6u);
    EXPECT_EQ(TotalEvents(song), 6u);
}

TEST(SongAnalysis, ExtractsTempoAndMeterAtTheirTimes)
{
    const unsigned char block[] = {0,    0xFF, 3, 1, 'a',  10,   0xFF, 81, 3,    7,  0xA1, 0x20, 0x81, 0,
                                   0x90, 1,    1, 5, 0xFF, 88,   4,    3,  2,    24, 8,    0,    81,   3,
                                   6,    0,    0, 9, 0xFF, 0x2F, 0,    0,  0xFF, 81, 3,    1,    1,    1};
    const std::vector<unsigned char> expected = {10,   0xFF, 81, 3, 7, 0xA1, 0x20, 0x81, 5,
                                                 0xFF, 88,   4,  3, 2, 24,   8,    0,    0xFF,
                                                 81,   3,    6,  0, 0, 0,    0xFF, 0x2F, 0};
    const std::vector<std::byte> map = ExtractTempoMap(std::as_bytes(std::span(block)));
    EXPECT_TRUE(std::ranges::equal(map, std::as_bytes(std::span(expected))));
}

struct Tempo {
    std::uint64_t tick;
    unsigned microseconds;
};

Track& AddTempos(Song& song, const std::vector<Tempo>& tempos, std::uint64_t endTick)
{
    TrackBuilder builder;
    for (const auto& [tick, tempo] : tempos) {
        const unsigned char payload[] = {static_cast<unsigned char>(tempo >> 16),
                                         static_cast<unsigned char>(tempo >> 8),
                                         static_cast<unsigned char>(tempo)};
        builder.SetTime(tick);
        builder.PutMeta(kMetaTempo, std::as_bytes(std::span(payload)));
    }
    builder.SetTime(endTick);
    builder.PutEndOfTrack();
    Track& track = Nest(song, song.Owner().Create<Track>(u""));
    track.SetData(builder.Data());
    return track;
}

TEST(TempoMap, TurnsTicksIntoSeconds)
{
    const struct {
        const char* why;
        std::uint16_t division;
        std::vector<std::vector<Tempo>> tracks;
        std::uint64_t ticks;
        double seconds, bpm;
        std::size_t changes;
    } kCases[] = {
        {"120 by default", 480, {{}}, 480, 0.5, 120, 1},
        {"no track at all", 96, {}, 192, 1.0, 120, 1},
        {"one tempo", 480, {{{0, 1'000'000}}}, 480, 1.0, 60, 1},
        {"default until the first", 480, {{{480, 1'000'000}}}, 960, 1.5, 120, 2},
        {"a change in the middle", 480, {{{0, 250'000}, {960, 750'000}}}, 1440, 1.25, 240, 2},
        {"before a change", 480, {{{0, 250'000}, {960, 750'000}}}, 480, 0.25, 240, 2},
        {"at a change", 480, {{{0, 250'000}, {960, 750'000}}}, 960, 0.5, 240, 2},
        {"merged from two tracks", 100, {{{0, 600'000}, {200, 600'000}}, {{100, 300'000}}}, 300, 1.5, 100, 3},
        {"at one tick the last track counts", 100, {{{0, 600'000}}, {{0, 400'000}}}, 100, 0.4, 150, 1},
        {"and its last tempo", 100, {{{50, 600'000}, {50, 900'000}}}, 100, 0.25 + 0.45, 120, 2},
        {"a tempo of 0 is none", 480, {{{0, 0}, {480, 0}}}, 960, 1.0, 120, 1},
        {"equal tempos are no change", 480, {{{0, 500'000}, {480, 500'000}}}, 960, 1.0, 120, 1},
        {"division 0", 0, {{}}, 24, 0.5, 120, 1},
        {"25 frames of 40: milliseconds", 0xE728, {{{0, 1'000'000}}}, 1500, 1.5, 60, 1},
        {"24 frames of 4", 0xE804, {}, 96, 1.0, 120, 1},
        {"30 frames of 80", 0xE250, {}, 2400, 1.0, 120, 1},
        {"29 is the drop-frame rate", 0xE302, {}, 60000, 1001.0, 120, 1},
        {"no ticks in a frame", 0xE700, {}, 25, 1.0, 120, 1},
    };
    for (const auto& c : kCases) {
        Collection items;
        Song& song = items.Create<Song>(u"s");
        song.division = c.division;
        for (const auto& tempos : c.tracks)
            AddTempos(song, tempos, tempos.empty() ? 0 : tempos.back().tick);
        const TempoMap map(song);
        EXPECT_NEAR(map.SecondsAt(c.ticks), c.seconds, 1e-12 * c.seconds) << c.why;
        EXPECT_EQ(map.SecondsAt(0), 0.0) << c.why;
        EXPECT_NEAR(map.FirstTempo(), c.bpm, 1e-9) << c.why;
        EXPECT_EQ(map.Changes(), c.changes) << c.why;
    }
}

TEST(TempoMap, PassesOverShortTempoEventsAndTimesBehindTheEnd)
{
    Collection items;
    Song& song = items.Create<Song>(u"s");
    AddTrack(song, {0, 0xFF, 81, 2, 1, 1, 0, 0xFF, 0x2F, 0, 0, 0xFF, 81, 3, 1, 1, 1});
    AddTrack(song, {0, 0xFF, 81, 3, 1, 1}); // cut
    EXPECT_EQ(TempoMap(song).FirstTempo(), 120.0);
}

TEST(SongSeconds, IsTheLongestTrackOrTheSumOfPatterns)
{
    Collection items;
    Song& song = items.Create<Song>(u"s");
    EXPECT_EQ(SongSeconds(song), 0.0);
    song.division = 100;
    AddTempos(song, {{0, 1'000'000}}, 100);
    AddTempos(song, {{50, 2'000'000}}, 150);
    EXPECT_DOUBLE_EQ(SongSeconds(song), 0.5 + 2.0);
    song.format = 2; // the second pattern starts at 120 beats per minute
    EXPECT_DOUBLE_EQ(SongSeconds(song), 1.0 + (0.25 + 2.0));
    EXPECT_DOUBLE_EQ(TempoMap(song, *song.TrackAt(1)).SecondsAt(150), 2.25);
}

} // namespace
} // namespace vimbo
