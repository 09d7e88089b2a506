// Standard MIDI Files: names and channels of tracks, ranges, refusals, damage, and bytes that stay.
#include "base/last_error.h"
#include "formats/midi/midi.h"
#include "midi_bytes.h"
#include "model/consistency.h"
#include "model/fix_up.h"
#include "test_host.h"

#include <gtest/gtest.h>

namespace vimbo {
namespace {

using namespace testing;

const Bytes kTempo = Block({0, 0xFF, 81, 3, 7, 0xA1, 0x20});
const Bytes kNotes = Block({0, 0x93, 60, 99, 96, 60, 0});

/// "name/channel/sequence" of each track.
std::string Told(const Song& song)
{
    std::string text;
    for (std::size_t i = 0; i < song.Children().size(); ++i) {
        const Track& track = *song.TrackAt(i);
        text += WideToUtf8(track.GetName()) + "/" + std::to_string(track.channel) + "/" +
                std::to_string(track.sequence) + " ";
    }
    return text;
}

TEST(SmfRead, NamesAndChannelsOfTracks)
{
    const Bytes short4 = EndOfTrack(), title = Block({0, 0xFF, 3, 2, 'H', 'i'});
    const Bytes fifth = Block({0, 0xFF, 0, 2, 0, 5}), zero = Block({0, 0xFF, 0, 2, 0, 0});
    struct Case {
        std::uint16_t format;
        std::initializer_list<Bytes> tracks;
        std::string told;
    };
    const Case kCases[] = {
        {0, {kNotes, kTempo}, "Master Track/255/0 Master Track/255/0 "},
        {1,
         {kTempo, kNotes, kTempo, kNotes},
         "Control Track/254/0 Track 02/3/0 Track 03/255/0 Track 04/3/0 "},
        {1, {kNotes, kNotes, kNotes}, "Track 01/3/0 Track 01/3/0 Track 02/3/0 "},
        {1, {title, kNotes}, "Hi/254/0 Track 02/3/0 "},
        {1, {short4, kNotes, short4, kNotes}, "Track 01/3/0 Track 03/3/0 "}, // skipped, but counted
        {2, {kNotes, kNotes, title}, "Pattern 00/255/0 Pattern 01/255/1 Hi/255/2 "},
        {2, {zero, fifth, zero}, "Track 01/255/0 Pattern 05/255/5 Track 02/255/0 "},
    };
    for (const Case& test : kCases) {
        SCOPED_TRACE(test.told);
        const Opened opened(MakeSmf(test.format, test.tracks), ReadSmf);
        ASSERT_TRUE(opened.isRead);
        EXPECT_EQ(Told(opened.At()), test.told);
        EXPECT_EQ(opened.At().format, test.format);
        EXPECT_EQ(opened.At().division, 96);
    }
}

TEST(SmfRead, OnlyAControlTrackNamesTheSong)
{
    const Bytes texts = Block({0, 0xFF, 3, 2, 'H', 'i', 0, 0xFF, 1, 1, 't', 0, 0xFF, 2, 1, 'c'});
    const Opened control(MakeSmf(1, {texts, kNotes}), ReadSmf), single(MakeSmf(0, {texts}), ReadSmf);
    EXPECT_EQ(control.At().GetName(), u"Hi");
    EXPECT_EQ(control.At().GetText(kTextComments), u"t");
    EXPECT_EQ(control.At().GetText(kTextCopyright), u"c");
    EXPECT_EQ(single.At().GetName(), u"file");
    EXPECT_FALSE(single.At().HasText(kTextComments));
    EXPECT_EQ(single.At().TrackAt(0)->GetName(), u"Hi");
}

TEST(SmfRead, ChunksStandAnywhereAndTracksNeedAHeader)
{
    ByteWriter bytes;
    AddChunk(bytes, FourCc{"MTrk"}, kNotes); // ahead of any header
    AddChunk(bytes, FourCc{"junk"}, MakeBytes({1, 2, 3}));
    bytes.Append(MakeSmf(1, {kTempo, kNotes}));
    AddChunk(bytes, FourCc{"XFIH"}, MakeBytes({1}));
    bytes.Append(MakeSmf(0, {kNotes}, 0xE728));
    bytes.Write(midi::ChunkHead{FourCc{"MTrk"}, 0xFFFFFFFFu}); // cut short: what there is of it
    bytes.Append(MakeBytes({0, 0x90, 60, 9, 5}));
    const Opened opened(bytes.Bytes(), ReadSmf);
    ASSERT_TRUE(opened.isRead);
    ASSERT_EQ(opened.items.CountOf(ItemKind::Song), 2u);
    EXPECT_EQ(Told(opened.At(0)), "Control Track/254/0 Track 02/3/0 ");
    EXPECT_EQ(opened.At(1).division, 0xE728);
    ASSERT_EQ(opened.At(1).Children().size(), 2u);
    EXPECT_EQ(opened.At(1).TrackAt(1)->Data().size(), 5u);
}

TEST(SmfRead, RangesAreNotLeft)
{
    const Bytes inner = MakeSmf(1, {kTempo, kNotes}), outer = MakeSmf(0, {kNotes});
    Bytes bytes = MakeBytes({1, 2, 3});
    for (const Bytes* part : {&inner, &outer})
        bytes.insert(bytes.end(), part->begin(), part->end());
    MemoryFile file(bytes);
    Collection items;
    Song* song = nullptr;
    ASSERT_TRUE(midi::ReadSmfRange(items, file, 3, inner.size(), song));
    EXPECT_EQ(items.CountOf(ItemKind::Song), 1u);
    EXPECT_EQ(song->Children().size(), 2u);
    for (const auto& [start, length] :
         {std::pair<std::uint64_t, std::uint64_t>{3, 13}, {1000, 5}, {~0ull, ~0ull}})
        EXPECT_FALSE(midi::ReadSmfRange(items, file, start, length, song)) << start;
    EXPECT_EQ(LastError(), u"Invalid or corrupt Midi file");
    EXPECT_EQ(song, nullptr);
}

TEST(SmfRead, ScansSeeEveryTrackAndMayAddItems)
{
    const midi::TrackScan scan = [](Collection& items, const Track& track) {
        items.Create<Waveform>(track.GetName());
    };
    MemoryFile file(MakeSmf(1, {kTempo, kNotes}));
    Collection items;
    Song* song = nullptr;
    ASSERT_TRUE(midi::ReadSmfRange(items, file, 0, file.Size(), song, std::span(&scan, 1)));
    const std::vector<Waveform*> found = items.List<Waveform>();
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[1]->GetName(), u"Track 02");
}

TEST(SmfWrite, GivesTheTracksBackByteByByte)
{
    // Running status over a meta event, an unknown status, no end: nothing of it is put right.
    const Bytes odd = MakeBytes({0, 0x90, 1, 2, 0, 0xFF, 1, 0, 5, 9, 9, 0, 0xF4, 0x81});
    Bytes bytes = MakeSmf(1, {kTempo, odd, kNotes}, 0);
    const Opened opened(bytes, ReadSmf);
    MemoryFile written;
    FormatChoice choice;
    ASSERT_TRUE(WriteSmf(opened.At(), written, choice));
    EXPECT_EQ(midi::SmfBytes(opened.At()), written.Size());
    bytes[11] = std::byte{3}; // the right count
    EXPECT_EQ(Text(written.Bytes()), Text(bytes));
}

TEST(SmfWrite, TakesOneSongAndSaysSo)
{
    Collection items;
    ScriptedHost host;
    items.SetHost(host);
    MemoryFile file;
    FormatChoice choice;
    EXPECT_FALSE(WriteSmf(items.Create<Waveform>(u"w"), file, choice));
    EXPECT_EQ(LastError(), u"The file format can not save this item");
    items.Create<Song>(u"a");
    Song& song = items.Create<Song>(u"b");
    EXPECT_TRUE(WriteSmf(song, file, choice));
    EXPECT_TRUE(host.shown.empty());
    EXPECT_TRUE(WriteSmf(items, file, choice));
    EXPECT_EQ(host.shown,
              std::vector<std::u16string>{u"Only the first of 2 songs is saved: the format holds one"});
}

} // namespace
} // namespace vimbo
