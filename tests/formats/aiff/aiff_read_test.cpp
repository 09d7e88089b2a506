#include "formats/aiff/aiff_units.h"

#include "base/last_error.h"
#include "formats/aiff/aiff_bytes.h"
#include "formats/open.h"

#include <gtest/gtest.h>

#include <limits>

namespace vimbo {
namespace {

/// Sustain loop 2 to 7 (marks 5 and 9), release loop 8 to 9 (marks 2 and 1), one mark of its own.
const ByteList kEveryChunk =
    Spell("'FORM' 000000DC 'AIFF'"
          "'NAME' 00000005 'T' C4 'n' 80 '!' 00"
          "'junk' 00000003 FFFFFF 00"
          "'COMM' 00000012 0002 00000003 0010 400D FA00000000000000"
          "'MARK' 00000032 0005"
          "  0005 00000002 03 'beg'  0009 00000007 04 'ends' 00"
          "  0002 00000008 00 00     0001 00000009 00 00"
          "  0007 00000001 03 'Hit'"
          "'INST' 00000014 3D E7 00 7F 01 7F FFFA 0002 0005 0009 0001 0002 0001"
          "'AUTH' 00000002 'Me'"
          "'(c) ' 00000004 '2001'"
          "'ANNO' 00000003 'One' 00"
          "'ANNO' 00000003 'Two' 00"
          "'SSND' 00000018 00000004 00000200 DEADBEEF 0001 FFFF 7FFF 8000 4000 C000");

TEST(AiffRead, EveryChunkOfAWholeFile)
{
    OpenedAiff opened(kEveryChunk);
    ASSERT_TRUE(opened.isRead) << WideToUtf8(LastError());
    Waveform& wave = *opened.wave;
    EXPECT_EQ(wave.frames, 3u);
    EXPECT_EQ(wave.rateHz, 32000u);
    EXPECT_EQ(wave.channels, 2);
    EXPECT_EQ(wave.bits, 16);
    EXPECT_EQ(wave.saveFormat, SaveFormat::Pcm16);
    EXPECT_TRUE(wave.HasGenericImport());
    EXPECT_EQ(wave.rootKey, 61);
    EXPECT_EQ(wave.fineTune, -25);
    EXPECT_EQ(wave.volume, -6);
    EXPECT_EQ(wave.loop.type, LoopType::Alternating);
    EXPECT_EQ(wave.loop.start, 2);
    EXPECT_EQ(wave.loop.end, 7);
    EXPECT_EQ(wave.GetName(), u"T\u00C4n\u20AC!");
    EXPECT_EQ(wave.GetText(kTextArtist), u"Me");
    EXPECT_EQ(wave.GetText(kTextCopyright), u"2001");
    EXPECT_EQ(wave.GetText(kTextComments), u"One\nTwo");
    ASSERT_EQ(wave.markers.size(), 2u);
    EXPECT_EQ(wave.markers[0].name, u"ReleaseLoop");
    EXPECT_TRUE(wave.markers[0].isRange);
    EXPECT_EQ(wave.markers[0].position, 8u);
    EXPECT_EQ(wave.markers[0].end, 9u);
    EXPECT_EQ(wave.markers[1].name, u"Hit");
    EXPECT_FALSE(wave.markers[1].isRange);
    EXPECT_EQ(wave.markers[1].position, 1u);
    const std::vector<float> wanted = {0x1p-15f, -0x1p-15f, 32767 * 0x1p-15f, -1, 0.5f, -0.5f};
    EXPECT_EQ(opened.Samples(), wanted);
}

TEST(AiffRead, OneWholeFileOpensThroughTheTable)
{
    int confidence = 0;
    MemoryFile file(kEveryChunk, u"x.aiff");
    EXPECT_EQ(DetectFormat(u"x.aiff", file, confidence), 16);
    EXPECT_EQ(DetectFormat(u"x.c01", file, confidence), 41);
    EXPECT_EQ(DetectFormat(u"x", file, confidence), 15);
    MemoryFile compressed(IffImage("AIFC", {}));
    EXPECT_EQ(DetectFormat(u"x.aifc", compressed, confidence), 17);
    MemoryFile maud(IffImage("MAUD", {}));
    EXPECT_EQ(DetectFormat(u"x", maud, confidence), 229);
    const ByteList cut(kEveryChunk.begin(), kEveryChunk.begin() + 11);
    EXPECT_EQ(DetectAiff(cut, 0, 11), 0);
}

/// What each tag makes of the same bytes, in one channel.
TEST(AiffRead, Tags)
{
    struct Case {
        std::string_view tag;
        unsigned bits;
        std::string_view data;
        std::vector<float> samples;
        unsigned keptBits;
    };
    const Case kCases[] = {
        {"NONE", 8, "40 C0", {0.5f, -0.5f}, 8},
        {"none", 5, "40 C0", {0.5f, -0.5f}, 5},
        {"twos", 12, "4000 8010", {0.5f, -1 + 0x1p-11f}, 12}, // the low four bits are padding
        {"lpcm", 16, "4000 0001", {0.5f, 0x1p-15f}, 16},
        {"sowt", 16, "0040 0100", {0.5f, 0x1p-15f}, 16},
        {"sowt", 24, "000040 010000", {0.5f, 0x1p-23f}, 24},
        {"NONE", 20, "400000 000010", {0.5f, 0x1p-19f}, 20},
        {"in24", 16, "400000 000001", {0.5f, 0x1p-23f}, 24},
        {"in32", 16, "40000000 00000100", {0.5f, 0x1p-23f}, 32},
        {"42n1", 24, "000040 010000", {0.5f, 0x1p-23f}, 24},
        {"23ni", 32, "00000040 00010000", {0.5f, 0x1p-23f}, 32},
        {"fl32", 32, "3F000000 BE800000", {0.5f, -0.25f}, 32},
        {"FL32", 32, "3F000000 BE800000", {0.5f, -0.25f}, 32},
        {"fl64", 64, "3FE0000000000000 BFD0000000000000", {0.5f, -0.25f}, 64},
        {"raw ", 8, "C0 40", {0.5f, -0.5f}, 8},
        {"ulaw", 16, "80 FF", {32124 * 0x1p-15f, 0}, 8}, // G.711: largest and smallest
        {"ALAW", 16, "AA 55", {32256 * 0x1p-15f, -8 * 0x1p-15f}, 8},
    };
    for (const Case& row : kCases) {
        SCOPED_TRACE(std::string(row.tag) + " " + std::to_string(row.bits));
        OpenedAiff opened(IffImage("AIFC", {Comm(1, 2, row.bits, row.tag), Ssnd(Spell(row.data))}));
        ASSERT_TRUE(opened.isRead) << WideToUtf8(LastError());
        EXPECT_EQ(opened.Samples(), row.samples);
        EXPECT_EQ(opened.wave->bits, row.keptBits);
        EXPECT_EQ(opened.wave->rateHz, 44100u);
    }
}

TEST(AiffRead, FramesOfPacketCodings)
{
    struct Case {
        std::string_view tag;
        unsigned channels, claimed, bytes, frames;
        DataFormat format;
    };
    const Case kCases[] = {
        {"ima4", 1, 10, 340, 640, DataFormat::Adpcm4},
        {"IMA4", 2, 9, 680, 576, DataFormat::Adpcm4},
        {"ima4", 1, 10, 100, 128, DataFormat::Adpcm4},  // cut short
        {"ima4", 1, 600, 340, 600, DataFormat::Adpcm4}, // counts frames
        {"ima4", 2, 5, 680, 640, DataFormat::Adpcm4},   // libsndfile's half count
        {"MAC3", 2, 10, 40, 60, DataFormat::Adpcm4},
        {"MAC6", 1, 10, 11, 60, DataFormat::Adpcm4}, // the pad byte is counted in the chunk
        {"MAC6", 1, 10, 9, 54, DataFormat::Adpcm4},
        {"GSM ", 1, 1500, 330, 1600, DataFormat::Gsm},
        {"GSM ", 1, 10, 330, 1600, DataFormat::Gsm}, // counts packets
        {"G721", 1, 100, 50, 100, DataFormat::Adpcm4},
        {"G722", 1, 101, 50, 100, DataFormat::Adpcm4},
        {"G723", 1, 80, 30, 80, DataFormat::Adpcm4},
        {"G723", 1, 80, 50, 80, DataFormat::Adpcm4},
        {"G726", 1, 80, 20, 80, DataFormat::Adpcm4},
    };
    for (const Case& row : kCases) {
        SCOPED_TRACE(std::string(row.tag) + " " + std::to_string(row.claimed));
        ByteList data(row.bytes, std::byte{0x5A});
        OpenedAiff opened(IffImage("AIFC", {Comm(row.channels, row.claimed, 16, row.tag), Ssnd(data)}));
        ASSERT_TRUE(opened.isRead) << WideToUtf8(LastError());
        EXPECT_EQ(opened.wave->frames, row.frames);
        EXPECT_EQ(opened.wave->SourceFormat(), row.format);
        const std::vector<float> samples = opened.Samples();
        ASSERT_EQ(samples.size(), std::size_t{row.frames} * row.channels);
        EXPECT_NE(samples[samples.size() / 2], 0.0f); // decoded, not filled up
    }
}

/// Each coder gets its codes: the stream begins as the coder's own output does.
TEST(AiffRead, SpeechWidths)
{
    ByteList data(60);
    for (std::size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<std::byte>(i * 89);
    struct Case {
        std::string_view tag;
        unsigned bits, frames, width;
    };
    const Case kCases[] = {{"G721", 16, 120, 4}, {"G723", 16, 160, 3}, {"G723", 5, 96, 5},
                           {"G723", 16, 96, 5},  {"G726", 2, 240, 2},  {"G726", 16, 120, 4}};
    for (const Case& row : kCases) {
        SCOPED_TRACE(std::string(row.tag) + " " + std::to_string(row.width));
        OpenedAiff opened(IffImage("AIFC", {Comm(1, row.frames, row.bits, row.tag), Ssnd(data)}));
        const auto decoder = MakeG726Decoder(row.width, BitPacking::BigEndian);
        std::vector<float> wanted(row.frames);
        ASSERT_EQ(decoder->Decode(data, wanted), row.frames);
        EXPECT_EQ(opened.Samples(), wanted);
    }
}

TEST(AiffRead, Maud)
{
    const auto image = [](std::string_view head, std::string_view data) {
        return IffImage("MAUD", {IffChunk("MHDR", Spell(head)), IffChunk("NAME", Spell("'Amiga'")),
                                 IffChunk("MDAT", Spell(data))});
    };
    // 44099 / 2 = 22049.5 Hz
    OpenedAiff stereo(image("00000002 0010 0010 0000AC43 0002 0001 0002 0000" + std::string(24, '0'),
                            "4000 C000 0001 8000"));
    ASSERT_TRUE(stereo.isRead);
    EXPECT_EQ(stereo.wave->rateHz, 22050u);
    EXPECT_EQ(stereo.wave->GetName(), u"Amiga");
    EXPECT_EQ(stereo.Samples(), (std::vector<float>{0.5f, -0.5f, 0x1p-15f, -1}));
    OpenedAiff bytes(image("00000003 0008 0008 00005622 0001 0000 0001 0000", "C0 40 80"));
    EXPECT_EQ(bytes.Samples(), (std::vector<float>{0.5f, -0.5f, 0}));
    OpenedAiff muLaw(image("00000009 0010 0008 00005622 0001 0000 0001 0003", "80 FF"));
    EXPECT_EQ(muLaw.Samples(), (std::vector<float>{32124 * 0x1p-15f, 0})); // fewer frames than claimed
    OpenedAiff noRate(image("00000001 0008 0008 00005622 0000 0000 0001 0002", "AA"));
    EXPECT_EQ(noRate.Samples(), (std::vector<float>{32256 * 0x1p-15f}));
    EXPECT_FALSE(OpenedAiff(image("00000001 0008 0008 00005622 0001 0000 0001 0006", "AA")).isRead);
    EXPECT_EQ(LastError(), u"Unknown sample format or compression");
}

TEST(AiffRead, LoopsThatAreNone)
{
    const ByteList marks = IffChunk("MARK", Spell("0002 0001 00000002 01 'a' 0002 00000001 01 'b'"));
    struct Case {
        std::string_view loops;
        LoopType type;
        double start, end;
        std::size_t markers;
    };
    const Case kCases[] = {
        {"0001 0001 0002 0000 0000 0000", LoopType::Off, 0, 0, 2},     // begins behind its end
        {"0001 0001 0001 0000 0000 0000", LoopType::Off, 0, 0, 2},     // empty
        {"0000 0002 0001 0000 0000 0000", LoopType::Off, 0, 0, 2},     // switched off
        {"0001 0002 0003 0000 0000 0000", LoopType::Off, 0, 0, 2},     // its end does not exist
        {"0001 0001 0002 0001 0002 0001", LoopType::Forward, 1, 2, 0}, // the release loop takes its place
        {"0003 0002 0001 0000 0000 0000", LoopType::Forward, 1, 2, 0},
    };
    for (const Case& row : kCases) {
        SCOPED_TRACE(row.loops);
        OpenedAiff opened(
            IffImage("AIFF", {Comm(1, 4, 8),
                              IffChunk("INST", Join({Spell("FF 00 00 7F 00 7F 0000"), Spell(row.loops)})),
                              marks, Ssnd(Spell("01020304"))}));
        ASSERT_TRUE(opened.isRead);
        EXPECT_EQ(opened.wave->rootKey, 60); // a note below 0 is none
        EXPECT_EQ(opened.wave->loop.type, row.type);
        EXPECT_EQ(opened.wave->markers.size(), row.markers);
        if (row.type != LoopType::Off) {
            EXPECT_EQ(opened.wave->loop.start, row.start);
            EXPECT_EQ(opened.wave->loop.end, row.end);
        }
    }
}

TEST(AiffRead, SizesThatAreWrong)
{
    const ByteList good = IffImage("AIFF", {Comm(1, 4, 16), Ssnd(Spell("4000 4000 4000 4000"))});
    const auto framesWith = [&good](std::size_t at, std::string_view field, std::size_t size) {
        ByteList image(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size));
        const ByteList bytes = Spell(field);
        std::ranges::copy(bytes, image.begin() + static_cast<std::ptrdiff_t>(at));
        OpenedAiff opened(image);
        return opened.isRead && opened.Samples().size() == opened.wave->frames ? opened.wave->frames : 999;
    };
    EXPECT_EQ(framesWith(4, "0000002A", good.size()), 4u); // the form ends inside of the samples
    EXPECT_EQ(framesWith(4, "7FFFFFFF", good.size()), 4u);
    EXPECT_EQ(framesWith(0, "'FORM'", good.size() - 3), 2u); // cut short
    EXPECT_EQ(framesWith(42, "7FFFFFFF", good.size()), 4u);
    EXPECT_EQ(framesWith(46, "00000002", good.size()), 3u); // SSND's offset
    EXPECT_EQ(framesWith(22, "7F000000", good.size()), 4u); // frames that do not exist
    EXPECT_EQ(framesWith(22, "00000003", good.size()), 3u);
    // A program that writes to a pipe never learns its sizes.
    ByteList open = good;
    for (const std::size_t at : {4u, 22u, 42u})
        std::ranges::fill(std::span(open).subspan(at, 4), std::byte{0});
    EXPECT_EQ(OpenedAiff(open).wave->frames, 4u);
    std::ranges::fill(std::span(open).subspan(22, 4), std::byte{0});
    open[7] = std::byte{0x36};
    open[45] = std::byte{0x10};
    EXPECT_EQ(OpenedAiff(open).wave->frames, 0u); // but an empty sound is one
}

TEST(AiffRead, RefusesWhatItCannotRead)
{
    const ByteList data = Ssnd(Spell("0102"));
    const struct {
        ByteList image;
        std::u16string_view error;
    } kCases[] = {
        {Spell("'RIFF' 00000004 'AIFF'"), u"No FORM starting IFF file"},
        {Spell("'FORM' 00000004 'AIF'"), u"No FORM starting IFF file"},
        {IffImage("8SVX", {}), u"Not an AIFF, AIFC, MAUD type IFF-FORM"},
        {IffImage("AIFF", {Comm(3, 1, 8), data}), u"Can't handle > 2 channel files"},
        {IffImage("AIFF", {Comm(0, 1, 8), data}), u"No channels"},
        {IffImage("AIFF", {Comm(1, 1, 8)}), u"No SSND data"},
        {IffImage("AIFF", {data}), u"Unknown sample format or compression"},
        {IffImage("AIFF", {Comm(1, 1, 0), data}), u"Unknown sample format or compression"},
        {IffImage("AIFC", {Comm(1, 1, 33, "twos"), data}), u"Unknown sample format or compression"},
        {IffImage("AIFC", {Comm(1, 1, 16, "DWVW"), data}), u"Unsupported compression type: DWVW"},
        {IffImage("AIFC", {Comm(2, 1, 16, "GSM "), data}), u"Can only handle (the standard!) mono GSM"},
        {IffImage("AIFC", {Comm(2, 1, 16, "G722"), data}), u"Can only handle mono G.72x ADPCM format"},
    };
    for (const auto& row : kCases) {
        OpenedAiff opened(row.image);
        EXPECT_FALSE(opened.isRead);
        EXPECT_EQ(LastError(), row.error);
        EXPECT_EQ(opened.wave, nullptr);
    }
}

TEST(AiffUnits, Rates)
{
    const struct {
        std::uint16_t signExponent;
        std::uint64_t mantissa;
        std::uint32_t rateHz;
    } kCases[] = {
        {0x400E, 0xAC44000000000000, 44100},
        {0x400D, 0xADDD17461745D174, 22255}, // 22254.54, the rate of early Macintoshes
        {0x3FFF, 0x8000000000000000, 1},
        {0x3FFE, 0x8000000000000000, 1}, // one half
        {0x3FFE, 0x7FFFFFFFFFFFFFFF, 0},
        {0x3FFD, 0xFFFFFFFFFFFFFFFF, 0},
        {0x401E, 0xFFFFFFFFFFFFFFFF, std::numeric_limits<std::uint32_t>::max()},
        {0x7FFF, 0x8000000000000000, std::numeric_limits<std::uint32_t>::max()},
        {0xC00E, 0xAC44000000000000, 0}, // negative
        {0, 0, 0},
    };
    for (const auto& row : kCases)
        EXPECT_EQ(RateFromExtended({row.signExponent, row.mantissa}), row.rateHz) << row.signExponent;
    EXPECT_EQ(RateToExtended(44100).signExponent.Get(), 0x400E);
    EXPECT_EQ(RateToExtended(44100).mantissa.Get(), 0xAC44000000000000u);
    for (const std::uint32_t rate : {0u, 1u, 3u, 8000u, 96000u, 768000u, 0xFFFFFFFFu})
        EXPECT_EQ(RateFromExtended(RateToExtended(rate)), rate);
}

} // namespace
} // namespace vimbo
