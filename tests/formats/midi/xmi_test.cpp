// Extended MIDI: streams against blocks in both directions, forms, banks, damage.
#include "base/last_error.h"
#include "formats/midi/midi.h"
#include "formats/midi/xmi_events.h"
#include "midi_bytes.h"
#include "model/consistency.h"
#include "model/instrument.h"
#include "model/song_analysis.h"
#include "test_host.h"

#include <gtest/gtest.h>

namespace vimbo::midi {
namespace {

using namespace testing;

const std::string kFront = Text(MakeBytes({0, 0xFF, 81, 3, 0x07, 0xA1, 0x20})); // 120 beats per minute

Song& MakeSong(Collection& items, std::span<const std::byte> block, std::uint16_t division = 480)
{
    Song& song = items.Create<Song>(u"song");
    song.format = 0;
    song.division = division;
    Track& track = items.Create<Track>(u"t");
    track.SetParent(song.Handle());
    song.AddChild(track.Handle());
    track.SetData(block);
    return song;
}

/// The stream of a block, as text; "" if it is refused.
std::string Encoded(std::span<const std::byte> block, std::uint16_t division = 480,
                    XmiEncoded* told = nullptr)
{
    Collection items;
    const Song& song = MakeSong(items, block, division);
    XmiEncoded out;
    if (!EncodeXmi(song, *song.TrackAt(0), out))
        return {};
    if (told != nullptr)
        *told = out;
    return Text(out.stream);
}

std::string Raw(std::initializer_list<int> bytes)
{
    return Text(MakeBytes(bytes));
}

TEST(XmiDecode, KnownStreams)
{
    const std::string end = Text(EndOfTrack());
    struct Case {
        std::initializer_list<int> stream, block; ///< between the tempo and the end
    };
    const Case kCases[] = {
        {{}, {}},
        // Delays add up; durations become note-offs with the note's velocity, ahead of what follows.
        {{0x90, 60, 100, 10, 127, 1, 0xC1, 5}, {0, 0x90, 60, 100, 10, 0x80, 60, 100, 0x76, 0xC1, 5}},
        // Due at the end of a delay: before the next note; of two notes the earlier first.
        {{0x90, 60, 1, 5, 0x90, 62, 2, 3, 5, 0x90, 60, 3, 0},
         {0, 0x90, 60, 1, 0, 62, 2, 3, 0x80, 62, 2, 2, 60, 1, 0, 0x90, 60, 3, 0, 0x80, 60, 3}},
        // The own bank select; aftertouch has one data byte, poly pressure two.
        {{0xB2, 114, 9, 0xD2, 7, 0xA2, 1, 2}, {0, 0xB2, 0, 9, 0, 0xD2, 7, 0, 0xA2, 1, 2}},
        // Metas and sysex stay, but for tempos, which the stream's clock does not follow.
        {{0xFF, 1, 1, 'x', 0xFF, 81, 3, 1, 2, 3, 0xF0, 2, 1, 0xF7, 0xF7, 1, 9},
         {0, 0xFF, 1, 1, 'x', 0, 0xF0, 2, 1, 0xF7, 0, 0xF7, 1, 9}},
        // Behind the end of the track nothing counts.
        {{0x90, 60, 1, 2, 0xFF, 47, 0, 0xC0, 1}, {0, 0x90, 60, 1, 2, 0x80, 60, 1}},
        // Cut events are left out, and so is a duration without an end.
        {{0xC0, 1, 0xFF, 1, 5, 'x'}, {0, 0xC0, 1}},
        {{0xF2, 1, 2, 0xF8, 0xF1, 3, 0xC0, 1}, {0, 0xC0, 1}},
    };
    for (const Case& test : kCases)
        EXPECT_EQ(Text(DecodeXmi(MakeBytes(test.stream)).block), kFront + Raw(test.block) + end);
}

TEST(XmiDecode, KeepsThePauseAtTheEndAndAtMost256NoteOffs)
{
    const XmiDecoded pause = DecodeXmi(MakeBytes({0x90, 1, 1, 2, 100, 100, 0xFF, 47, 0}));
    EXPECT_EQ(Text(pause.block), kFront + Raw({0, 0x90, 1, 1, 2, 0x80, 1, 1, 0x81, 0x46, 0xFF, 47, 0}));
    Bytes many;
    for (int i = 0; i < 258; ++i)
        for (const int byte : {0x90 + i % 2, i / 2 % 128, 1, 0x81, 0})
            many.push_back(static_cast<std::byte>(byte));
    const XmiDecoded decoded = DecodeXmi(many);
    EXPECT_EQ(decoded.endlessNotes, 2u);
    EXPECT_EQ(std::ranges::count(decoded.block, std::byte{0x80}), 128);
}

TEST(XmiEncode, KnownBlocks)
{
    struct Case {
        std::initializer_list<int> block, stream; ///< ahead of the end of the track
        std::uint16_t division = 480;
    };
    const Case kCases[] = {
        // A quarter of 480 ticks is 60 intervals; 240 ticks at 250,000 us are 15.
        {{0, 0xB0, 0, 3, 0x83, 0x60, 0x90, 60, 99, 0x81, 0x70, 0x80, 60, 64},
         {0xB0, 0, 3, 60, 0x90, 60, 99, 30, 30}},
        {{0, 0xFF, 81, 3, 3, 0xD0, 0x90, 0x81, 0x70, 0xC0, 1, 0, 0xFF, 1, 1, 'x'}, {15, 0xC0, 1}},
        // Long waits and durations; the first note-off of a key ends its first note; the last note stays
        // open.
        {{0x8F, 0,    0x90, 60, 1, 0x83, 0x60, 60,   2,    0x8F, 0, 60, 0,
          0x83, 0x60, 60,   0,  0, 61,   3,    0x83, 0x60, 0xF0, 2, 5,  0xF7},
         {127, 113, 0x90, 60,   1,  0x82, 0x2C, 60, 0x90, 60, 2, 0x82, 0x2C,
          127, 127, 46,   0x90, 61, 3,    60,   60, 0xF0, 2,  5, 0xF7}},
        // 25 SMPTE frames of 40 ticks: 1000 ticks a second, whatever the tempo.
        {{0, 0xFF, 81, 3, 1, 0, 0, 0x87, 0x68, 0xC0, 1}, {120, 0xC0, 1}, 0xE728},
    };
    for (const Case& test : kCases) {
        std::string expected = Raw(test.stream) + Raw({0xFF, 47, 0});
        expected.append(expected.size() % 2, '\0');
        EXPECT_EQ(Encoded(Block(test.block), test.division), expected);
    }
    // Tempos, other metas, system messages and release velocities have no place.
    XmiEncoded told;
    Encoded(Block({0, 0xFF, 1, 0, 0, 0xF3, 1, 0, 0x90, 1, 1, 0, 0x80, 1, 9, 96, 0xFF, 81, 3, 1, 1, 1}), 96,
            &told);
    EXPECT_EQ(told.metas + told.tempos + told.systemEvents + told.releaseVelocities, 4u);
    // 2^28 ticks of half a second each.
    EXPECT_EQ(Encoded(Block({0xFF, 0xFF, 0xFF, 0x7F, 0x90, 1, 1}), 1), "");
    EXPECT_NE(LastError().find(u"too long"), std::u16string::npos);
}

void AddForm(ByteWriter& out, FourCc id, std::string_view type, std::span<const std::byte> body)
{
    Bytes inner = FromText(type);
    inner.insert(inner.end(), body.begin(), body.end());
    AddChunk(out, id, inner);
    out.Fill(inner.size() & 1);
}

TEST(XmiRead, ASongForEachSequence)
{
    for (const std::size_t count : {std::size_t{1}, std::size_t{3}}) {
        ByteWriter catalog, file;
        for (std::size_t i = 0; i < count; ++i) {
            ByteWriter form;
            AddChunk(form, FourCc{"TIMB"}, MakeBytes({0, 0}));
            AddChunk(form, FourCc{"EVNT"}, MakeBytes({0xC0, static_cast<int>(i), 120, 0xFF, 47, 0}));
            AddForm(catalog, FourCc{"FORM"}, "XMID", form.Bytes());
        }
        AddForm(file, FourCc{"FORM"}, "XDIR", MakeBytes({'I', 'N', 'F', 'O', 0, 0, 0, 2, 9, 0}));
        AddForm(file, FourCc{"CAT "}, "XMID", catalog.Bytes());
        const Opened opened(file.Bytes(), ReadXmi);
        ASSERT_TRUE(opened.isRead);
        ASSERT_EQ(opened.items.CountOf(ItemKind::Song), count);
        EXPECT_EQ(opened.At(count - 1).GetName(), count == 1 ? u"file" : u"file 03");
        EXPECT_EQ(opened.At(0).division, 60);
        EXPECT_NEAR(SongSeconds(opened.At(0)), 1.0, 1e-9);
        EXPECT_EQ(DetectXmi(file.Bytes(), 0, 0), 6);
    }
    EXPECT_FALSE(Opened(FromText("FORM....AIFF"), ReadXmi).isRead);
    EXPECT_EQ(LastError(), u"Not an extended MIDI file");
    EXPECT_FALSE(Opened(FromText("FORM....XDIR"), ReadXmi).isRead);
    EXPECT_EQ(LastError(), u"The extended MIDI file holds no sequence");
    EXPECT_EQ(DetectXmi(FromText("FORM....AIFF"), 0, 0), 0);
}

TEST(XmiWrite, KnownBytesWithAndWithoutABank)
{
    Collection items;
    ScriptedHost host;
    items.SetHost(host);
    Song& song = MakeSong(items, Block({0, 0xC0, 1}));
    Track& second = items.Clone(*song.TrackAt(0));
    second.SetParent(song.Handle());
    song.AddChild(second.Handle());
    song.format = 1;
    second.SetData(Block({0, 0x91, 60, 1, 0x83, 0x60, 60, 0}));
    MemoryFile file;
    FormatChoice choice;
    ASSERT_TRUE(WriteXmi(song, file, choice));
    using namespace std::string_literals;
    const std::string front =
        "FORM\0\0\0\x0EXDIRINFO\0\0\0\2\1\0"
        "CAT \0\0\0\x22XMIDFORM\0\0\0\x16XMIDEVNT\0\0\0\xA\xC0\1\x91\x3C\1\x3C\x3C\xFF\x2F\0"s;
    EXPECT_EQ(Text(file.Bytes()), front);
    EXPECT_EQ(song.Children().size(), 2u); // the merging was done on a copy

    Waveform& wave = items.Create<Waveform>(u"tone");
    wave.frames = 11;
    std::ranges::fill(wave.LockSamplesForWrite(), 0.5f);
    Layer& layer = items.Create<Instrument>(u"Piano").AddLayer();
    for (std::uint8_t key = 0; key < 20; ++key) // more than level 1 would have
        layer.AddRegion(wave.Handle(), {key, key}, {});
    MemoryFile withBank;
    ASSERT_TRUE(WriteXmi(items, withBank, choice));
    EXPECT_TRUE(host.asked.empty());
    EXPECT_EQ(Text(withBank.Bytes()).substr(0, front.size()), front);
    U32be size;
    std::memcpy(&size, withBank.Bytes().data() + front.size() + 4, 4);
    EXPECT_EQ(front.size() + 8 + size.Get(), withBank.Size());
    EXPECT_EQ(Text(withBank.Bytes()).substr(front.size() + 8, 8), "XDLSRIFF");
    EXPECT_EQ(Text(withBank.Bytes()).find("rgn2"), std::string::npos);
    const Opened opened(withBank.Bytes(), ReadXmi);
    ASSERT_TRUE(opened.isRead);
    EXPECT_EQ(opened.items.CountOf(ItemKind::Region), 20u);

    MemoryFile none;
    EXPECT_FALSE(WriteXmi(items.Create<Song>(u"empty"), none, choice));
    EXPECT_EQ(LastError(), u"The file format can not save this item");
}

} // namespace
} // namespace vimbo::midi
