#include "formats/texts/id3.h"

#include "base/text.h"
#include "formats/aiff/aiff_bytes.h"

#include <gtest/gtest.h>

namespace vimbo {
namespace {

/// A tag with its true size: head flags, then frames.
ByteList Tag(unsigned version, unsigned flags, const ByteList& frames)
{
    const auto size = static_cast<unsigned>(frames.size());
    const auto byte = [](unsigned x) { return ByteList{static_cast<std::byte>(x & 0x7F)}; };
    return Join({Spell("'ID3'"),
                 {std::byte(version)},
                 Spell("00"),
                 {std::byte(flags)},
                 byte(size >> 21),
                 byte(size >> 14),
                 byte(size >> 7),
                 byte(size),
                 frames});
}

/// Texts of a waveform named "Default" behind the tag: name, artist, comment, copyright, engineer, product.
std::u16string TextsOf(const ByteList& tag)
{
    Collection collection;
    auto& wave = collection.Create<Waveform>(u"Default");
    ReadId3Texts(tag, u"Default", wave);
    std::u16string all;
    for (const ParamId id :
         {kTextName, kTextArtist, kTextComments, kTextCopyright, kTextEngineer, kTextProduct})
        all.append(wave.GetText(id)).append(u"|");
    return all;
}

TEST(Id3, TextsOfEveryVersion)
{
    const struct {
        const char* what;
        ByteList tag;
        std::u16string_view texts;
    } kCases[] = {
        {"2.2",
         Tag(2, 0,
             Spell("'TT2' 000003 00 'Ab' 'TP1' 000002 00 'C' 'COM' 000007 00 'eng' 00 'Hi'"
                   "'TCR' 000002 00 'D' 'TEN' 000002 00 'E' 'TAL' 000002 00 'F'")),
         u"Ab|C|Hi|D|E|F|"},
        {"2.3",
         Tag(3, 0,
             Spell("'TIT2' 00000003 0000 00 'Ab' 'TPE1' 00000002 0000 00 'C'"
                   "'TCOP' 00000002 0000 00 'D' 'TENC' 00000002 0000 00 'E'"
                   "'TALB' 00000002 0000 00 'F' 00000000000000000000")),
         u"Ab|C||D|E|F|"},
        {"Windows-1252, ended by a NUL", Tag(3, 0, Spell("'TIT2' 00000006 0000 00 80 C4 00 'xy'")),
         u"\u20AC\u00C4||||||"},
        {"UTF-16, little-endian", Tag(3, 0, Spell("'TIT2' 00000009 0000 01 FFFE 4100 AC20 0000")),
         u"A\u20AC||||||"},
        {"UTF-16, big-endian by its mark", Tag(3, 0, Spell("'TIT2' 00000005 0000 01 FEFF 20AC")),
         u"\u20AC||||||"},
        {"UTF-16 without a mark", Tag(4, 0, Spell("'TIT2' 00000005 0000 02 0041 20AC")), u"A\u20AC||||||"},
        {"UTF-8", Tag(4, 0, Spell("'TIT2' 00000005 0000 03 'A' E282AC")), u"A\u20AC||||||"},
        {"comment with a description",
         Tag(3, 0, Spell("'COMM' 00000010 0000 01 'eng' FFFE 4400 0000 FFFE 4800 4900")), u"Default||HI||||"},
        {"comments of programs",
         Tag(3, 0,
             Spell("'COMM' 0000000F 0000 00 'eng' 'iTunNORM' 00 '00'"
                   "'COMM' 00000007 0000 00 'eng' 00 'Hi'")),
         u"Default||Hi||||"},
        {"the first of each", Tag(3, 0, Spell("'TIT2' 00000002 0000 00 'A' 'TIT2' 00000002 0000 00 'B'")),
         u"A||||||"},
        {"unsynchronised as a whole", Tag(3, 0x80, Spell("'TIT2' 00000004 0000 00 FF00 E0 'A'")),
         u"\u00FF\u00E0A||||||"},
        {"unsynchronised frame", Tag(4, 0, Spell("'TIT2' 00000005 0002 00 FF00 E0 'A'")),
         u"\u00FF\u00E0A||||||"},
        {"extended head of 2.3", Tag(3, 0x40, Spell("00000006 000000000000 'TIT2' 00000002 0000 00 'A'")),
         u"A||||||"},
        {"extended head of 2.4", Tag(4, 0x40, Spell("00000006 0100 'TIT2' 00000002 0000 00 'A'")),
         u"A||||||"},
        {"grouped, with a length", Tag(4, 0, Spell("'TIT2' 00000007 0041 07 00000002 00 'A'")), u"A||||||"},
        {"compressed and encrypted",
         Tag(3, 0, Spell("'TIT2' 00000002 0080 00 'A' 'TPE1' 00000002 0040 00 'B'")), u"Default||||||"},
        {"unknown encoding", Tag(3, 0, Spell("'TIT2' 00000002 0000 04 'A'")), u"Default||||||"},
        {"a frame that is cut off",
         Tag(3, 0, Spell("'TPE1' 00000002 0000 00 'B' 'TIT2' 00000009 0000 00 'A'")), u"Default|B|||||"},
        {"version 5", Tag(5, 0, Spell("'TIT2' 00000002 0000 00 'A'")), u"Default||||||"},
    };
    for (const auto& row : kCases)
        EXPECT_EQ(TextsOf(row.tag), std::u16string(row.texts).substr(0, row.texts.rfind(u"|") + 1))
            << row.what;
}

/// Sizes of version 2.4 hold 7 bits a byte; iTunes wrote all 8.
TEST(Id3, LongFramesOfBothWriters)
{
    for (const std::string_view size : {"00000148", "000000C8"}) { // 200 bytes
        const ByteList frames = Join({Spell("'TPE1'"), Spell(size), Spell("0000 00"),
                                      ByteList(199, std::byte{'x'}), Spell("'TIT2' 00000002 0000 00 'A'")});
        EXPECT_EQ(TextsOf(Tag(4, 0, frames)), u"A|" + std::u16string(199, u'x') + u"|||||") << size;
    }
}

TEST(Id3, WritesWhatItReads)
{
    Collection collection;
    auto& wave = collection.Create<Waveform>(u"Ab");
    wave.SetText(kTextComments, u"\u20AC");
    const ByteList frames = Spell("'TIT2' 00000003 0000 00 'Ab'"
                                  "'COMM' 0000000C 0000 01 'XXX' FFFE 0000 FFFE AC20"
                                  "'TSSE' 00000013 0000 00 'Vimbo Studio v12.7'");
    EXPECT_EQ(MakeId3Tag(wave), Tag(3, 0, frames));
    wave.SetText(kTextArtist, u"C");
    wave.SetText(kTextCopyright, u"\u00C4");
    wave.SetText(kTextEngineer, u"E");
    wave.SetText(kTextProduct, std::u16string(300000, u'\u0142'));
    const auto tag = MakeId3Tag(wave);
    EXPECT_EQ(Id3TagBytes(tag), tag.size());
    EXPECT_EQ(TextsOf(tag), u"Ab|C|\u20AC|\u00C4|E|" + std::u16string(300000, u'\u0142') + u"|");
}

TEST(Id3, TellsHowLongATagIs)
{
    EXPECT_EQ(Id3TagBytes(Spell("'ID3' 0300 00 00000105")), 143u);
    EXPECT_EQ(Id3TagBytes(Spell("'ID3' 0400 10 00000105")), 153u); // with a footer
    EXPECT_EQ(Id3TagBytes(Spell("'ID3' 0300 10 7F7F7F7F")), 0x0FFFFFFFu + 10);
    EXPECT_EQ(Id3TagBytes(Spell("'ID3' 0300 00 000001")), 0u);
    EXPECT_EQ(Id3TagBytes(Spell("'TAG' 0300 00 00000105")), 0u);
}

TEST(Id3, TextsOfTheFileItselfComeFirst)
{
    const ByteList tag = Tag(3, 0, Spell("'TIT2' 00000002 0000 00 'A' 'TPE1' 00000002 0000 00 'B'"));
    const auto nameAndArtist = [](const Waveform& wave) {
        return std::u16string(wave.GetName()).append(u" ").append(wave.GetText(kTextArtist));
    };
    const ByteList sound = Ssnd(Spell("01"));
    EXPECT_EQ(
        nameAndArtist(*OpenedAiff(IffImage("AIFF", {IffChunk("ID3 ", tag), Comm(1, 1, 8), sound})).wave),
        u"A B");
    EXPECT_EQ(nameAndArtist(*OpenedAiff(IffImage("AIFF", {IffChunk("id3 ", tag), Comm(1, 1, 8), sound,
                                                          IffChunk("NAME", Spell("'N'"))}))
                                 .wave),
              u"N B");
    const ByteList data = Chunk("data", Spell("0000"));
    EXPECT_EQ(nameAndArtist(*Opened(WaveImage({Fmt(1, 1, 8000, 16), data, Chunk("id3 ", tag)})).wave),
              u"A B");
    const ByteList info = Chunk("LIST", Join({Spell("'INFO'"), Chunk("INAM", Spell("'N' 00"))}));
    EXPECT_EQ(nameAndArtist(*Opened(WaveImage({Chunk("ID3 ", tag), Fmt(1, 1, 8000, 16), data, info})).wave),
              u"N B");
}

TEST(Id3, DamageIsHarmless)
{
    const ByteList good =
        Tag(4, 0x40,
            Spell("00000006 0100 'TIT2' 00000007 0041 07 00000002 00 'A' 'COMM' 00000010 0002 01 'eng' "
                  "FFFE 4400 0000 FFFE 4800 4900 'TPE1' 00000002 0000 00 'B'"));
    Collection collection;
    for (std::size_t at = 0; at < good.size(); ++at) {
        auto& wave = collection.Create<Waveform>(u"Default");
        ReadId3Texts(std::span(good).first(at), u"Default", wave);
        for (const int fill : {0x00, 0x7F, 0x80, 0xFF}) {
            ByteList damaged = good;
            damaged[at] = static_cast<std::byte>(fill);
            const std::vector<std::byte> exact(damaged); // its own allocation, so that an over-read is seen
            ReadId3Texts(exact, u"Default", wave);
            for (const ParamId id : {kTextName, kTextArtist, kTextComments})
                EXPECT_LE(wave.GetText(id).size(), good.size());
        }
    }
    EXPECT_EQ(TextsOf(good).substr(0, 7), u"A|B|HI|");
}

} // namespace
} // namespace vimbo
