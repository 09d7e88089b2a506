// RIFF-MIDI: known bytes, texts by their places, banks in both directions, damage.
#include "base/last_error.h"
#include "formats/midi/midi.h"
#include "formats/open.h"
#include "formats/soundfont/soundfont.h"
#include "formats/wave/wave_records.h"
#include "midi_bytes.h"
#include "model/consistency.h"
#include "model/instrument.h"
#include "test_files.h"
#include "test_host.h"

#include <gtest/gtest.h>

namespace vimbo {
namespace {

using namespace testing;

constexpr std::size_t kSf2Row = 381;
const Bytes kNotes = Block({0, 0x93, 60, 99, 96, 60, 0}); // 11 bytes

void AddRiff(ByteWriter& out, FourCc id, std::span<const std::byte> body)
{
    out.Write(RiffChunkHead{id, static_cast<std::uint32_t>(body.size())});
    out.Append(body);
    out.Fill(body.size() & 1);
}
Bytes Join(std::string_view type, std::span<const std::byte> body)
{
    return FromText(std::string(type) + Text(body));
}
Bytes MakeRmi(const ByteWriter& body)
{
    ByteWriter out;
    AddRiff(out, FourCc{"RIFF"}, Join("RMID", body.Bytes()));
    return out.Release();
}

/// A song, and if wanted an instrument with a looped sample.
Song& Fill(Collection& items, bool hasBank)
{
    Song& song = items.Create<Song>(u"Caf\u00E9");
    song.format = 0;
    song.division = 96;
    Track& track = items.Create<Track>(u"t");
    track.SetParent(song.Handle());
    song.AddChild(track.Handle());
    track.SetData(kNotes);
    if (hasBank) {
        Waveform& wave = items.Create<Waveform>(u"tone");
        wave.frames = 101;
        wave.channels = 2;
        std::ranges::fill(wave.LockSamplesForWrite(), 0.5f);
        Instrument& instrument = items.Create<Instrument>(u"Organ");
        instrument.location.SetProgram(19);
        instrument.AddLayer().AddRegion(wave.Handle(), {24, 96}, {});
    }
    return song;
}

TEST(RmiWrite, KnownBytes)
{
    Collection items;
    Song& song = Fill(items, false);
    song.SetText(kTextArtist, u"Me!");
    MemoryFile file;
    FormatChoice choice;
    ASSERT_TRUE(WriteRmi(song, file, choice));
    using namespace std::string_literals;
    const std::string expected =
        "RIFF\x70\0\0\0RMIDdata\x21\0\0\0MThd\0\0\0\6\0\0\0\1\0\x60MTrk\0\0\0\x0B"s + Text(kNotes) +
        "\0LIST\x3A\0\0\0INFOIART\4\0\0\0Me!\0INAM\6\0\0\0Caf\xE9\0\0ISFT\x14\0\0\0Vimbo Studio v12.7\0\0"s;
    EXPECT_EQ(Text(file.Bytes()), expected);
    MemoryFile later; // images stand anywhere in a file
    ASSERT_TRUE(later.WriteAll(MakeBytes({1, 2, 3})) && midi::WriteRmiImage(song, later));
    EXPECT_EQ(Text(later.Bytes()).substr(3), expected);
    Song* read = nullptr;
    ASSERT_TRUE(midi::ReadRmiRange(items, later, 3, later.Size(), read));
    EXPECT_EQ(read->GetText(kTextArtist), u"Me!");
}

TEST(RmiRead, TextsCountBehindTheSongWhereverTheyStand)
{
    ByteWriter inner, body;
    AddRiff(inner, FourCc{"ICMT"}, FromText("odd"));
    AddRiff(inner, FourCc{"LIST"}, Join("any ", [&] {
                ByteWriter deep;
                AddRiff(deep, FourCc{"IPRD"}, FromText("deep"));
                return deep.Release();
            }()));
    AddRiff(body, FourCc{"IENG"}, FromText("lost"));
    AddRiff(body, FourCc{"data"}, MakeSmf(0, {kNotes}));
    AddRiff(body, FourCc{"LIST"}, Join("INFO", inner.Bytes()));
    AddRiff(body, FourCc{"ICOP"}, FromText("bare"));
    AddRiff(body, FourCc{"DISP"}, Join(std::string_view("\x08\0\0\0", 4), FromText("picture")));
    AddRiff(body, FourCc{"DISP"}, Join(std::string_view("\x01\0\0\0", 4), FromText("Shown")));
    AddRiff(body, FourCc{"DISP"}, Join(std::string_view("\x01\0\0\0", 4), {}));
    for (const std::uint32_t size : {0u, 0xFFFFFFFFu, static_cast<std::uint32_t>(body.Size() + 4)}) {
        Bytes bytes = MakeRmi(body);
        const U32le field(size); // 0 and all ones: never filled in
        std::memcpy(bytes.data() + 4, &field, 4);
        const Opened opened(bytes, ReadRmi);
        ASSERT_TRUE(opened.isRead);
        const Song& song = opened.At();
        EXPECT_EQ(song.GetName(), u"Shown");
        EXPECT_EQ(song.GetText(kTextComments), u"odd");
        EXPECT_EQ(song.GetText(kTextProduct), u"deep");
        EXPECT_EQ(song.GetText(kTextCopyright), u"bare");
        EXPECT_FALSE(song.HasText(kTextEngineer));
    }
}

TEST(Rmi, BanksGoBothWays)
{
    for (const std::uint32_t level : {kRmiPlain, kRmiDlsLevel1, kRmiDlsLevel2}) {
        SCOPED_TRACE(level);
        Collection items;
        Song& song = Fill(items, true);
        MemoryFile file;
        FormatChoice choice{0, level, 0};
        ASSERT_TRUE(WriteRmi(song, file, choice));
        const Opened opened(file.Bytes(), ReadRmi);
        ASSERT_TRUE(opened.isRead);
        EXPECT_EQ(opened.At().TrackAt(0)->EventCount(), 3u);
        U32le outer;
        std::memcpy(&outer, file.Bytes().data() + 4, 4);
        EXPECT_EQ(outer.Get() + 8, file.Size());
        EXPECT_EQ(Text(file.Bytes()).find("rgn2") != std::string::npos, level == kRmiDlsLevel2);
        const std::vector<Instrument*> instruments = opened.items.List<Instrument>();
        ASSERT_EQ(instruments.size(), level == kRmiPlain ? 0u : 1u);
        if (level == kRmiPlain)
            continue;
        EXPECT_EQ(instruments[0]->location.Program(), 19u);
        for (Waveform* wave : opened.items.List<Waveform>())
            EXPECT_EQ(wave->frames, 101u);
        EXPECT_EQ(opened.items.CountOf(ItemKind::Waveform), 2u); // the sides of a stereo sound
        EXPECT_TRUE(IsConsistent(opened.items));
    }
}

TEST(RmiRead, SoundFontsComeWithTheirSong)
{
    Collection items;
    Fill(items, true);
    MemoryFile bank;
    FormatChoice choice{FormatRows()[kSf2Row].caps, kSoundFont2, 0};
    ASSERT_TRUE(WriteSoundFont(items, bank, choice));
    ByteWriter body;
    AddRiff(body, FourCc{"data"}, MakeSmf(0, {kNotes}));
    body.Append(bank.Bytes()); // a form of its own already
    AddRiff(body, FourCc{"ICOP"}, FromText("behind it"));
    const ScratchFolder folder;
    Collection opened;
    ScriptedHost host;
    opened.SetHost(host);
    ASSERT_TRUE(LoadFile(opened, folder.Put("song.rmi", MakeRmi(body)), AllowRaw::No));
    EXPECT_TRUE(host.shown.empty());
    ASSERT_EQ(opened.CountOf(ItemKind::Song), 1u);
    EXPECT_EQ(opened.List<Song>()[0]->GetText(kTextCopyright), u"behind it");
    ASSERT_EQ(opened.CountOf(ItemKind::Instrument), 1u);
    EXPECT_EQ(opened.List<Instrument>()[0]->location.Program(), 19u);
    ASSERT_NE(opened.CountOf(ItemKind::Waveform), 0u);
    for (Waveform& wave : opened.All<Waveform>()) {
        const auto samples = wave.LockSamples();
        EXPECT_EQ(samples.size(), 101u * wave.channels);
        EXPECT_TRUE(std::ranges::all_of(samples, [](float sample) { return sample == 0.5f; }));
    }
    EXPECT_TRUE(IsConsistent(opened));
}

TEST(RmiRead, WhatCannotBeReadIsTold)
{
    ScriptedHost host;
    ByteWriter body;
    AddRiff(body, FourCc{"data"}, MakeSmf(0, {kNotes}));
    AddRiff(body, FourCc{"RIFF"}, FromText("bankLIST"));
    AddRiff(body, FourCc{"RIFF"}, FromText("sfbkLIST"));
    const Opened other(MakeRmi(body), ReadRmi, &host);
    EXPECT_TRUE(other.isRead);
    ASSERT_EQ(host.shown.size(), 2u);
    EXPECT_NE(host.shown[0].find(u"\"bank\""), std::u16string::npos);
    EXPECT_EQ(host.shown[1], u"Not a Sound Font v2.x file");

    ByteWriter noSong, noHeader;
    AddRiff(noSong, FourCc{"ICMT"}, FromText("text"));
    AddRiff(noHeader, FourCc{"data"}, FromText("MTrk"));
    const std::pair<Bytes, std::u16string> kRefusals[] = {
        {FromText("RIFF\4\0\0\0WAVE"), u"Not a RIFF-RMID file"},
        {FromText("RIFF"), u"Not a RIFF-RMID file"},
        {MakeRmi(noSong), u"The RIFF-MIDI file holds no song"},
        {MakeRmi(noHeader), u"Invalid or corrupt Midi file"},
    };
    for (const auto& [bytes, words] : kRefusals) {
        EXPECT_FALSE(Opened(bytes, ReadRmi).isRead);
        EXPECT_EQ(LastError(), words);
    }
}

} // namespace
} // namespace vimbo
