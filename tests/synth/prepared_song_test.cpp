// Songs by seconds: tempo, bars, ports, messages; and the patches that they need.
#include "synth/prepared_song.h"

#include "model/collection.h"
#include "model/instrument.h"
#include "model/track_builder.h"

#include <gtest/gtest.h>

namespace vimbo::synth {
namespace {

std::vector<std::byte> Bytes(std::initializer_list<int> values)
{
    std::vector<std::byte> bytes;
    for (const int value : values)
        bytes.push_back(static_cast<std::byte>(value));
    return bytes;
}

class PreparedSongTest : public ::testing::Test {
protected:
    Collection collection;
    Song& song = collection.Create<Song>(u"Song");

    Track& Add(const TrackBuilder& builder)
    {
        Track& track = collection.Create<Track>(u"Track");
        track.SetData(builder.Data());
        track.SetParent(song.Handle());
        song.AddChild(track.Handle());
        return track;
    }
};

TEST_F(PreparedSongTest, MergesTracksByTime)
{
    song.division = 100;
    TrackBuilder tempo;
    tempo.PutMeta(kMetaTimeSignature, Bytes({3, 2, 24, 8})); // 3/4
    tempo.SetTime(300);
    tempo.PutMeta(kMetaTempo, Bytes({0x0F, 0x42, 0x40})); // a second for a quarter, from tick 300 on
    tempo.SetTime(600);
    tempo.PutMeta(5, Bytes({'l', 'a'}));
    tempo.SetTime(1200);
    tempo.PutMeta(kMetaTimeSignature, Bytes({4, 2, 24, 8}));
    tempo.PutEndOfTrack();
    Add(tempo);
    TrackBuilder notes;
    notes.SetChannel(3);
    notes.PutMeta(kMetaTrackName, Bytes({'A'}));
    notes.PutChannel(kNoteOn, 60, 100);
    notes.SetTime(300);
    notes.PutChannel(kNoteOn, 61, 100);
    notes.SetTime(500);
    notes.PutChannel(kNoteOn, 62, 100);
    notes.SetTime(1700);
    notes.PutChannel(kNoteOff, 62, 0);
    notes.PutEndOfTrack();
    Add(notes);
    TrackBuilder others;
    others.PutMeta(kMetaPort, Bytes({100})); // the port behind port 0 in use
    others.SetChannel(0);
    others.SetTime(300);
    others.PutChannel(kProgramChange, 7);
    others.SetChannel(1);
    others.PutChannel(kNoteOn, 40, 0);
    others.PutEndOfTrack();
    Add(others);

    const PreparedSong prepared = PrepareSong(song);
    ASSERT_EQ(prepared.events.size(), 6u);
    const double seconds[] = {0, 1.5, 1.5, 1.5, 3.5, 15.5};
    for (std::size_t i = 0; i < 6; ++i)
        EXPECT_NEAR(prepared.events[i].seconds, seconds[i], 1e-9) << i;
    EXPECT_EQ(prepared.events[1].event, SynthEvent::Make(0x93, 61, 100)) << "the lower track first";
    EXPECT_EQ(prepared.events[2].event, SynthEvent::Make(0xC0, 7, 0, 1));
    EXPECT_EQ(prepared.events[3].event, SynthEvent::Make(0x91, 40, 0, 1));
    EXPECT_EQ(prepared.ports, 2u);
    ASSERT_EQ(prepared.bars.size(), 6u);
    const double bars[] = {0, 1.5, 4.5, 7.5, 10.5, 14.5};
    for (std::size_t i = 0; i < 6; ++i)
        EXPECT_NEAR(prepared.bars[i], bars[i], 1e-9) << i;
    ASSERT_EQ(prepared.markers.size(), 1u);
    EXPECT_EQ(prepared.markers[0].text, u"la");
    EXPECT_NEAR(prepared.markers[0].seconds, 4.5, 1e-9);
    ASSERT_EQ(prepared.tracks.size(), 3u);
    EXPECT_EQ(prepared.tracks[0].channel, PreparedTrack::kNoChannel);
    EXPECT_EQ(prepared.tracks[1].channel, 3);
    EXPECT_EQ(prepared.tracks[1].name, u"A");
    EXPECT_EQ(prepared.tracks[2].channel, PreparedTrack::kMixed);

    const PreparedSong one = PrepareTrack(song, *song.TrackAt(1));
    EXPECT_EQ(one.events.size(), 4u);
    EXPECT_NEAR(one.Seconds(), 15.5, 1e-9) << "in the tempo of the song";
    EXPECT_EQ(one.ports, 1u);

    song.division = 0xE764; // 25 frames of 100 ticks a second, whatever the tempo
    EXPECT_NEAR(PrepareSong(song).Seconds(), 1700 / 2500.0, 1e-9);
}

TEST_F(PreparedSongTest, SystemMessages)
{
    TrackBuilder builder;
    builder.SetChannel(2);
    builder.PutChannel(kControlChange, 7, 100);
    builder.PutSysex(Bytes({0x7E, 0x7F, 9, 3, 0xF7}));
    builder.PutSysex(Bytes({0x41, 0x10, 0x42, 0x12, 0x40, 0x11, 0x15, 2, 0x18, 0xF7})); // rhythm part
    builder.PutSysex(Bytes({0x41, 0x10, 0x42, 0x12, 0x40, 0x11, 0x15, 0, 0x1A, 0xF7}));
    builder.PutSysex(Bytes({0x43, 0x10, 0x4C, 0, 0, 0x7E, 0, 0xF7})); // another maker's
    builder.PutEndOfTrack();
    Add(builder);
    const PreparedSong prepared = PrepareSong(song);
    EXPECT_EQ(prepared.gmMode, GmMode::Gm2);
    ASSERT_EQ(prepared.events.size(), 3u);
    EXPECT_EQ(prepared.events[1].event, SynthEvent::Make(0xB2, 128, 127));
    EXPECT_EQ(prepared.events[2].event, SynthEvent::Make(0xB2, 128, 0));
}

TEST_F(PreparedSongTest, NeededPatches)
{
    TrackBuilder builder;
    const auto put = [&builder](unsigned channel, std::uint8_t status, unsigned a, unsigned b = 0) {
        builder.SetChannel(static_cast<std::uint8_t>(channel));
        builder.PutChannel(status, static_cast<std::uint8_t>(a), static_cast<std::uint8_t>(b));
    };
    put(0, kControlChange, 0, 8);
    put(0, kProgramChange, 5);
    put(0, kNoteOn, 60, 1);
    put(9, kNoteOn, 60, 1);    // the standard kit
    put(1, kNoteOn, 60, 0);    // no note
    put(2, kNoteOn, 60, 1);    // program 0
    put(3, kProgramChange, 0); // the same
    put(9, kProgramChange, 16);
    builder.PutEndOfTrack();
    Add(builder);
    MidiLocation first;
    first.SetBankMsb(8);
    first.SetProgram(5);
    const std::uint32_t kDrums = MidiLocation::kDrumBit;
    EXPECT_EQ(NeededPatches(PrepareSong(song)),
              (std::vector<std::uint32_t>{first.word, kDrums, 0, kDrums | 16}));
}

TEST_F(PreparedSongTest, NothingGrowsByAClaim)
{
    song.division = 1;
    TrackBuilder builder;
    builder.PutMeta(kMetaTimeSignature, Bytes({1, 31})); // bars of no ticks
    builder.SetTime(0xFFFFFFF);
    builder.PutChannel(kNoteOn, 1, 1);
    builder.PutEndOfTrack();
    Add(builder);
    EXPECT_LE(PrepareSong(song).bars.size(), 100'000u);
    EXPECT_TRUE(PrepareSong(collection.Create<Song>(u"Empty")).events.empty());
}

} // namespace
} // namespace vimbo::synth
