// Making one track of many.
#include "model/song_merge.h"

#include "model/collection.h"
#include "model/consistency.h"
#include "model/song_analysis.h"
#include "model/track_builder.h"
#include "test_files.h"

#include <gtest/gtest.h>

#include <string>

namespace vimbo {
namespace {

using testing::Bytes;
using testing::MakeBytes;

Song& MakeSong(Collection& items, std::uint16_t format, std::initializer_list<Bytes> blocks)
{
    Song& song = items.Create<Song>(u"song");
    song.format = format;
    song.division = 96;
    for (const Bytes& block : blocks) {
        Track& track = items.Create<Track>(u"part");
        track.SetParent(song.Handle());
        song.AddChild(track.Handle());
        track.SetData(block);
    }
    return song;
}

/// "time:status+channel data1" of each event, with the type of metas.
std::string Told(const Track& track)
{
    std::string text;
    EventWalk walk(track.Data());
    TrackEvent event;
    while (walk.Next(event))
        text += std::to_string(event.time) + ":" +
                (event.status == kMetaStatus
                     ? "m" + std::to_string(event.metaType)
                     : std::to_string(event.status + event.channel) + "," + std::to_string(event.data1)) +
                " ";
    return text;
}

TEST(SongMerge, EventsOfOneTimeKeepTheOrderOfTheirTracks)
{
    Collection items;
    Song& song = MakeSong(items, 1,
                          {MakeBytes({0, 0xC0, 1, 10, 0x90, 60, 9, 10, 60, 0, 0, 0xFF, 47, 0}),
                           MakeBytes({10, 0x91, 50, 9, 0, 51, 9, 90, 0x81, 50, 0, 50, 0xFF, 47, 0}),
                           MakeBytes({20, 0xF0, 2, 1, 0xF7, 0, 0x92, 40, 9})}); // ends without an end
    ConvertToFormat0(song);
    ASSERT_EQ(song.Children().size(), 1u);
    const Track& track = *song.TrackAt(0);
    EXPECT_EQ(Told(track), "0:192,1 10:144,60 10:145,50 10:145,51 20:144,60 20:240,0 20:146,40 100:129,50 "
                           "150:m47 ");
    EXPECT_EQ(track.GetName(), u"Combined track");
    EXPECT_EQ(track.channel, Track::kControlTrack);
    EXPECT_EQ(song.format, 0);
    EXPECT_EQ(items.CountOf(ItemKind::Track), 1u);
    EXPECT_TRUE(IsConsistent(items));
}

TEST(SongMerge, PatternsFollowOneAnotherAtTheirOwnTempo)
{
    Collection items;
    Song& song =
        MakeSong(items, 2,
                 {MakeBytes({0, 0xFF, 81, 3, 0x0F, 0x42, 0x40, 96, 0xFF, 47, 0}), // a second a quarter
                  MakeBytes({0, 0x90, 60, 9, 96, 60, 0, 0, 0xFF, 47, 0}),
                  MakeBytes({48, 0x90, 62, 9, 0, 0xFF, 47, 0, 9, 0x90, 1, 1})}); // behind its end
    const double seconds = SongSeconds(song);
    EXPECT_NEAR(seconds, 1.0 + 0.5 + 0.25, 1e-9);
    ConvertToFormat0(song);
    EXPECT_EQ(Told(*song.TrackAt(0)), "0:m81 96:m81 96:144,60 192:144,60 192:m81 240:144,62 240:m47 ");
    EXPECT_NEAR(SongSeconds(song), seconds, 1e-9);
}

TEST(SongMerge, ASingleTrackStaysAsItIs)
{
    Collection items;
    const Bytes block = MakeBytes({0, 0x90, 60, 9, 5, 0x90, 60, 0, 0, 0xFF, 47, 0}); // without running status
    Song& song = MakeSong(items, 1, {block});
    song.AddChild(ItemHandle(ItemKind::Track, 12345)); // a slot whose track is gone
    ConvertToFormat0(song);
    EXPECT_EQ(song.format, 0);
    EXPECT_EQ(song.TrackAt(0)->GetName(), u"part");
    EXPECT_TRUE(std::ranges::equal(song.TrackAt(0)->Data(), block));
}

} // namespace
} // namespace vimbo
