#include "formats/wave/wave.h"

#include "base/last_error.h"
#include "wave_bytes.h"

#include <gtest/gtest.h>

namespace vimbo {
namespace {

const ByteList kEveryChunk =
    Spell("'RIFF' 78010000 'WAVE'"
          "'JUNK' 03000000 FFFFFF 00"
          "'fmt ' 10000000 0100 0200 44AC0000 10B10200 0400 1000"
          "'fact' 04000000 03000000"
          "'data' 0C000000 0000 FF7F 0080 0040 00C0 0100"
          "'smpl' 3C000000 00000000 00000000 93580000 3D000000 00000080 00000000 00000000"
          "  01000000 00000000"
          "  00000000 01000000 01000000 02000000 00000040 00000000"
          "'inst' 07000000 10 05 FA 00 7F 00 7F 00"
          "'cue ' 4C000000 03000000"
          "  07000000 00000000 'data' 00000000 00000000 01000000"
          "  08000000 01000000 'data' 00000000 00000000 02000000"
          "  09000000 02000000 'data' 00000000 00000000 00000000"
          "'LIST' 50000000 'adtl'"
          "  'labl' 08000000 07000000 'Hit' 00"
          "  'labl' 0A000000 07000000 'Later' 00"
          "  'ltxt' 14000000 08000000 01000000 'rgn ' 0000 0000 0000 0000"
          "  'note' 06000000 08000000 'N' 00"
          "'LIST' 28000000 'INFO'"
          "  'INAM' 05000000 'T' C4 'n' 80 00 00"
          "  'IPRD' 04000000 'Disc'"
          "  'IXYZ' 02000000 'a' 00");

TEST(WaveRead, EveryChunkOfAWholeFile)
{
    Opened opened(kEveryChunk);
    ASSERT_TRUE(opened.isRead);
    Waveform& wave = *opened.wave;
    EXPECT_EQ(wave.frames, 3u);
    EXPECT_EQ(wave.rateHz, 44100u);
    EXPECT_EQ(wave.channels, 2);
    EXPECT_EQ(wave.bits, 16);
    EXPECT_EQ(wave.saveFormat, SaveFormat::Pcm16);
    EXPECT_TRUE(wave.HasGenericImport());
    EXPECT_EQ(wave.SourceFormat(), DataFormat::Pcm16);
    EXPECT_EQ(wave.rootKey, 61);
    EXPECT_EQ(wave.fineTune, -50); // half a semitone sharp, so played half a semitone lower
    EXPECT_EQ(wave.volume, -6);    // inst gives the gain, not the key once smpl has given one
    EXPECT_EQ(wave.loop.type, LoopType::Alternating);
    EXPECT_EQ(wave.loop.start, 1);
    EXPECT_EQ(wave.loop.end, 3.25);
    EXPECT_EQ(wave.GetName(), u"T\u00C4n\u20AC");
    EXPECT_EQ(wave.GetText(kTextProduct), u"Disc");
    ASSERT_EQ(wave.markers.size(), 3u);
    EXPECT_EQ(wave.markers[0].name, u"Hit");
    EXPECT_EQ(wave.markers[0].position, 1u);
    EXPECT_FALSE(wave.markers[0].isRange);
    EXPECT_TRUE(wave.markers[1].isRange);
    EXPECT_EQ(wave.markers[1].position, 2u);
    EXPECT_EQ(wave.markers[1].end, 3u);
    EXPECT_EQ(wave.markers[2].name, u"");
    const std::vector<float> expected = {0, 32767 / 32768.0f, -1, 0.5f, -0.5f, 1 / 32768.0f};
    EXPECT_EQ(LoadFrom(wave, opened.file), expected);
}

TEST(WaveRead, ImageInsideALargerFile)
{
    const ByteList list =
        Join({Spell("'LIST' 28000000 'wave'"), Fmt(1, 1, 8000, 8), Chunk("data", Spell("80FF"))});
    // The same image stands at an odd place, and what follows it is no part of it.
    MemoryFile file(Join({Spell("00"), list, Chunk("smpl", ByteList(36, std::byte{1})), Spell("00")}));
    Collection collection;
    auto& wave = collection.Create<Waveform>(u"Inner");
    ASSERT_TRUE(ReadWaveRange(wave, file, 1, file.Size()));
    EXPECT_EQ(wave.frames, 2u);
    EXPECT_EQ(wave.rootKey, 60);
    EXPECT_EQ(LoadFrom(wave, file), (std::vector<float>{0, 127 / 128.0f}));
    EXPECT_FALSE(ReadWaveRange(wave, file, 0, file.Size()));
    EXPECT_EQ(LastError(), u"Not a RIFF-WAVE file");
}

TEST(WaveRead, BigEndianFiles)
{
    const ByteList image =
        Spell("'RIFX' 000000A0 'WAVE'"
              "'fmt ' 00000010 0001 0001 0000AC44 00015888 0002 0010"
              "'smpl' 0000003C 00000000 00000000 00000000 0000003D 80000000 00000000 00000000"
              "  00000001 00000000 00000000 00000002 00000001 00000001 80000000 00000000"
              "'cue ' 0000001C 00000001 00000007 00000000 'data' 00000000 00000000 00000001"
              "'data' 00000004 7FFF C000");
    Opened opened(image);
    ASSERT_TRUE(opened.isRead);
    EXPECT_EQ(opened.wave->rateHz, 44100u);
    EXPECT_EQ(opened.wave->rootKey, 61);
    EXPECT_EQ(opened.wave->fineTune, -50);
    EXPECT_EQ(opened.wave->loop.type, LoopType::Reverse);
    EXPECT_EQ(opened.wave->loop.end, 2.5);
    ASSERT_EQ(opened.wave->markers.size(), 1u);
    EXPECT_EQ(opened.wave->markers[0].position, 1u);
    EXPECT_EQ(LoadFrom(*opened.wave, opened.file), (std::vector<float>{32767 / 32768.0f, -0.5f}));
}

TEST(WaveRead, SizesThatAreWrongOrKeptElsewhere)
{
    const ByteList fmt = Fmt(1, 1, 8000, 8);
    const ByteList smpl = Chunk("smpl", Join({ByteList(12), Word(72), ByteList(20)}));
    const auto data = [](std::uint32_t size, std::size_t held) {
        return Join({Spell("'data'"), Word(size), ByteList(held)});
    };
    const auto form = [](std::string_view id, std::uint32_t size, const ByteList& rest) {
        return Join({Spell("'" + std::string(id) + "'"), Word(size), Spell("'WAVE'"), rest});
    };
    const auto ds64 = [](std::uint32_t riff, std::uint32_t bytes) {
        return Chunk("ds64",
                     Join({Word(riff), Word(0), Word(bytes), Word(0), Word(bytes), Word(0), Word(0)}));
    };
    constexpr std::uint32_t kOnes = 0xFFFFFFFF;
    const struct {
        const char* what;
        ByteList image;
        std::uint32_t frames;
        int rootKey;
    } cases[] = {
        {"sizes are right", form("RIFF", 90, Join({fmt, data(10, 10), smpl})), 10, 72},
        {"form too large", form("RIFF", 5000, Join({fmt, data(10, 10), smpl})), 10, 72},
        {"form ends inside the data", form("RIFF", 42, Join({fmt, data(10, 10), smpl})), 10, 72},
        {"form ends behind the data", form("RIFF", 46, Join({fmt, data(10, 10), smpl})), 10, 60},
        {"atem lifts that end", form("RIFF", 54, Join({fmt, Chunk("atem", {}), data(10, 10), smpl})), 10, 72},
        {"data runs past the file", form("RIFF", 46, Join({fmt, data(5000, 10)})), 10, 60},
        {"streamed: all ones", form("RIFF", kOnes, Join({fmt, data(kOnes, 10)})), 10, 60},
        {"streamed: zeros", form("RIFF", 0, Join({fmt, data(0, 10)})), 10, 60},
        {"streamed: sizes of an empty file", form("RIFF", 36, Join({fmt, data(0, 10)})), 10, 60},
        {"really empty", form("RIFF", 80, Join({fmt, data(0, 0), smpl})), 0, 72},
        {"RF64", form("RF64", kOnes, Join({ds64(126, 10), fmt, data(kOnes, 10), smpl})), 10, 72},
        {"BW64", form("BW64", kOnes, Join({ds64(126, 10), fmt, data(kOnes, 10), smpl})), 10, 72},
        {"RF64 with a ds64 of zeros", form("RF64", kOnes, Join({ds64(0, 0), fmt, data(10, 10), smpl})), 10,
         72},
        {"RF64 with a short form", form("RF64", kOnes, Join({ds64(82, 10), fmt, data(kOnes, 10), smpl})), 10,
         60},
        {"RF64 with its data cut", form("RF64", kOnes, Join({ds64(82, 5000), fmt, data(kOnes, 10)})), 10, 60},
        {"RF64 without ds64", form("RF64", kOnes, Join({fmt, data(kOnes, 10)})), 10, 60},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        Opened opened(c.image);
        ASSERT_TRUE(opened.isRead);
        EXPECT_EQ(opened.wave->frames, c.frames);
        EXPECT_EQ(opened.wave->rootKey, c.rootKey);
        EXPECT_EQ(LoadFrom(*opened.wave, opened.file).size(), c.frames);
    }
}

TEST(WaveRead, LinearLayouts)
{
    // 8000 Hz, mono; `rest` starts with the block align
    const auto extensible = [](const char* rest) {
        return Chunk("fmt ", Join({Spell("FEFF 0100 401F0000 803E0000"), Spell(rest),
                                   Spell("0000 0000 1000 800000AA00389B71")}));
    };
    const struct {
        const char* what;
        ByteList fmt;
        const char* data;
        DataFormat source;
        SaveFormat save;
        int bits;
        bool isPlain;
        std::size_t samples;
        float first, last;
    } cases[] = {
        {"12 bits are left-justified in 16", Fmt(1, 1, 8000, 12), "0040", DataFormat::Pcm16,
         SaveFormat::Pcm16, 12, true, 1, 0.5f, 0.5f},
        {"20 bits in 24, Extensible", extensible("0300 1800 1600 1400 04000000 0100"), "0000C0",
         DataFormat::Pcm24, SaveFormat::Pcm24, 20, true, 1, -0.5f, -0.5f},
        {"20 bits in 32, Extensible", extensible("0400 2000 1600 1400 04000000 0100"), "000000C0",
         DataFormat::Pcm32, SaveFormat::Pcm24, 20, false, 1, -0.5f, -0.5f},
        {"valid bits left open", extensible("0200 1000 1600 0000 04000000 0100"), "0040", DataFormat::Pcm16,
         SaveFormat::Pcm16, 16, true, 1, 0.5f, 0.5f},
        {"A-law in a wide container", extensible("0100 1000 1600 1000 04000000 0600"), "D5", DataFormat::ALaw,
         SaveFormat::ALaw, 8, true, 1, 8 / 32768.0f, 8 / 32768.0f},
        {"36 bits: the top four bytes", Fmt(1, 1, 8000, 36), "FFFFFFFF3F", DataFormat::Pcm32,
         SaveFormat::Pcm32, 36, false, 1, 0.5f, 0.5f},
        {"three channels of 16 bits", Fmt(1, 3, 8000, 16), "0040 0020 FF7F 00C0 00E0 FF7F", DataFormat::Pcm16,
         SaveFormat::Pcm16, 16, false, 4, 0.5f, -0.25f},
        {"three channels of 8 bits, one byte over", Fmt(1, 3, 8000, 8), "C0 40 00 77", DataFormat::Pcm8,
         SaveFormat::Pcm8, 8, false, 2, 0.5f, -0.5f},
        {"float 32", Fmt(3, 1, 8000, 32), "0000C03F", DataFormat::Float32, SaveFormat::Float32, 32, true, 1,
         1.5f, 1.5f},
        {"float 64 of three channels", Fmt(3, 3, 8000, 64),
         "000000000000F83F 000000000000E0BF 0000000000000000", DataFormat::Float64, SaveFormat::Float32, 64,
         false, 2, 1.5f, -0.5f},
        {"mu-law by its second tag", Fmt(369, 1, 8000, 8), "80 FF", DataFormat::MuLaw, SaveFormat::MuLaw, 8,
         true, 2, 32124 / 32768.0f, 0},
        {"no bits word", Chunk("fmt ", Spell("0100 0100 401F0000 803E0000 0200")), "0040", DataFormat::Pcm16,
         SaveFormat::Pcm16, 16, true, 1, 0.5f, 0.5f},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        Opened opened(WaveImage({c.fmt, Chunk("data", Spell(c.data))}));
        ASSERT_TRUE(opened.isRead);
        EXPECT_EQ(opened.wave->SourceFormat(), c.source);
        EXPECT_EQ(opened.wave->saveFormat, c.save);
        EXPECT_EQ(opened.wave->bits, c.bits);
        EXPECT_EQ(opened.wave->HasGenericImport(), c.isPlain);
        const std::vector<float> samples = LoadFrom(*opened.wave, opened.file);
        ASSERT_EQ(samples.size(), c.samples);
        EXPECT_EQ(samples.front(), c.first);
        EXPECT_EQ(samples.back(), c.last);
    }
}

TEST(WaveRead, StreamsAnyPartOfManyChannels)
{
    ByteList data;
    for (unsigned i = 0; i < 70000; ++i) // longer than one piece
        for (const unsigned value : {i & 0x7FFF, (i + 1) & 0x7FFF, 0x5555u})
            data.insert(data.end(), {std::byte(value & 0xFF), std::byte(value >> 8)});
    Opened opened(WaveImage({Fmt(1, 3, 8000, 16), Chunk("data", data)}));
    ASSERT_TRUE(opened.isRead);
    const std::vector<float> whole = LoadFrom(*opened.wave, opened.file);
    ASSERT_EQ(whole.size(), 140000u);
    const auto source = kWaveImport.stream(*opened.wave, std::make_unique<MemoryFile>(opened.file.Bytes()));
    ASSERT_NE(source, nullptr);
    std::vector<float> part(2 * 69990);
    ASSERT_TRUE(source->Read(7, part));
    EXPECT_TRUE(std::equal(part.begin(), part.end(), whole.begin() + 14));
    EXPECT_EQ(part[0], 7 / 32768.0f);
    EXPECT_EQ(part[1], 8 / 32768.0f);
}

TEST(WaveRead, CodedFilesAreDescribed)
{
    const ByteList coefficients(32);
    const struct {
        const char* what;
        ByteList fmt;
        std::size_t dataBytes;
        DataFormat source;
        SaveFormat save;
        int bits;
        std::uint32_t frames;
        const char16_t* decoder;
    } cases[] = {
        {"MS ADPCM", Chunk("fmt ", Join({Spell("0200 0100 22560000 00000000 0002 0400 2000"), coefficients})),
         100, DataFormat::Adpcm4, SaveFormat::Adpcm4, 4, 200, u"MS ADPCM"},
        {"IMA", Chunk("fmt ", Spell("1100 0200 22560000 00000000 0004 0400 0200 F903")), 100,
         DataFormat::Adpcm4, SaveFormat::Adpcm4, 4, 100, u"IMA ADPCM"},
        {"IMA, 3 bits", Chunk("fmt ", Spell("1100 0100 22560000 00000000 0004 0300 0200 F903")), 120,
         DataFormat::Adpcm3, SaveFormat::Adpcm4, 3, 320, u"IMA ADPCM"},
        {"Dialogic", Fmt(23, 1, 8000, 4), 100, DataFormat::Adpcm4, SaveFormat::Pcm16, 4, 200,
         u"Dialogic ADPCM"},
        {"Yamaha counts the low byte", Fmt(32, 2, 8000, 0x104), 100, DataFormat::Adpcm4, SaveFormat::Pcm16, 4,
         100, u"Yamaha ADPCM"},
        {"G.726 of 5 bits", Fmt(100, 1, 8000, 5), 100, DataFormat::Adpcm5, SaveFormat::Adpcm4, 5, 160,
         u"G.72x ADPCM"},
        {"Rockwell", Fmt(768, 1, 8000, 2), 100, DataFormat::Adpcm2, SaveFormat::Adpcm4, 2, 400,
         u"Rockwell ADPCM"},
        {"GSM", Fmt(49, 1, 8000, 0), 130, DataFormat::Gsm, SaveFormat::Pcm16, 2, 640, u"GSM 06.10"},
        {"GSM of modems", Fmt(771, 1, 8000, 0), 77, DataFormat::Gsm, SaveFormat::Pcm16, 2, 320, u"GSM 06.10"},
        {"G.722", Fmt(101, 1, 16000, 4), 100, DataFormat::Adpcm4, SaveFormat::Adpcm4, 4, 200, u"G.722"},
        // 192 kbit/s: one second
        {"MPEG layer 2",
         Chunk("fmt ", Spell("5000 0200 80BB0000 C05D0000 0100 0000 1600 0200 00EE0200 0100 0000 0000 1000"
                             "00000000 00000000")),
         24000, DataFormat::Compressed, static_cast<SaveFormat>(17), 1, 48000, u"MPEG"},
        // 417 bytes a frame at 44100 Hz are 127.7 kbit/s: class 128
        {"MPEG layer 3",
         Chunk("fmt ", Spell("5500 0200 44AC0000 803E0000 0100 0000 0C00 0100 00000000 A101 0100 7105")),
         16000, DataFormat::Compressed, static_cast<SaveFormat>(14), 1, 44100, u"MPEG"},
        // 8000 bytes a second are 64 kbit/s
        {"AAC", Chunk("fmt ", Spell("FF00 0200 44AC0000 401F0000 0100 0000")), 8000, DataFormat::Compressed,
         static_cast<SaveFormat>(10), 1, 44100, u"AAC"},
        {"Vorbis", Chunk("fmt ", Spell("4F67 0200 44AC0000 401F0000 0100 0000")), 8000,
         DataFormat::Compressed, static_cast<SaveFormat>(10), 1, 44100, u"Ogg Vorbis"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        Opened opened(WaveImage({c.fmt, Chunk("data", ByteList(c.dataBytes))}));
        ASSERT_TRUE(opened.isRead);
        EXPECT_EQ(opened.wave->SourceFormat(), c.source);
        EXPECT_EQ(opened.wave->saveFormat, c.save);
        EXPECT_EQ(opened.wave->bits, c.bits);
        EXPECT_EQ(opened.wave->frames, c.frames);
        // Zero bytes are codes of all these codings but the compressed ones.
        const auto samples = LoadFrom(*opened.wave, opened.file);
        if (c.source == DataFormat::Compressed) {
            EXPECT_TRUE(samples.empty());
            EXPECT_EQ(LastError(),
                      std::u16string_view(c.decoder) == u"MPEG"
                          ? u"No MPEG audio found"
                          : u"The decoder for " + std::u16string(c.decoder) + u" samples is missing");
        } else {
            EXPECT_EQ(samples.size(), std::size_t{c.frames} * opened.wave->channels) << c.what;
        }
        // The file's own count stands for coded data, however large.
        const ByteList fact = Chunk("fact", Word(4000000000));
        Opened lying(WaveImage({c.fmt, fact, Chunk("data", ByteList(100))}));
        EXPECT_EQ(lying.wave->frames, 4000000000u);
        // But it does not make the decoder ask for memory that the data cannot fill.
        LoadFrom(*lying.wave, lying.file);
        if (c.source != DataFormat::Compressed) {
            EXPECT_LE(lying.wave->frames, 800u);
        }
    }
}

TEST(WaveRead, HalvedFrameCountsOfImaStereo)
{
    const ByteList fmt =
        Chunk("fmt ", Spell("1100 0200 22560000 00000000 4000 0400 0200 3900")); // 57 frames in 64 bytes
    const auto frames = [&fmt](std::uint32_t fact) {
        return Opened(WaveImage({fmt, Chunk("fact", Word(fact)), Chunk("data", ByteList(192))})).wave->frames;
    };
    EXPECT_EQ(frames(171 / 2), 171u);
    EXPECT_EQ(frames(171), 171u);
    EXPECT_EQ(frames(84), 84u);
}

TEST(WaveRead, FactLimitsLinearDataAndIsLimitedByIt)
{
    const ByteList fmt = Fmt(7, 2, 8000, 8);
    const ByteList data = Chunk("data", ByteList(10));
    EXPECT_EQ(Opened(WaveImage({fmt, Chunk("fact", Word(3)), data})).wave->frames, 3u);
    EXPECT_EQ(Opened(WaveImage({fmt, Chunk("fact", Word(9)), data})).wave->frames, 5u);
    EXPECT_EQ(Opened(WaveImage({fmt, data, Chunk("fact", Word(9))})).wave->frames, 5u);
    EXPECT_EQ(Opened(WaveImage({fmt, Chunk("fact", Word(0)), data})).wave->frames, 5u);
}

TEST(WaveRead, TuningAndLoopsBySource)
{
    const ByteList fmt = Fmt(1, 1, 8000, 8);
    const ByteList data = Chunk("data", ByteList(100));
    const auto smpl = [](const char* note, const char* loop, const char* extra) {
        const ByteList tail = Spell(extra);
        return Chunk("smpl", Join({Spell("47000001 5E000000 00000000"), Spell(note), ByteList(8),
                                   Word(loop[0] != '\0' ? 1 : 0),
                                   Word(static_cast<std::uint32_t>(tail.size())), Spell(loop), tail}));
    };
    const char* kLoop = "00000000 00000000 0A000000 13000000 00000000 00000000"; // frames 10 to 19
    const struct {
        const char* what;
        ByteList chunk;
        int key, cents;
        LoopType type;
        double start, end;
        float pitch;
        bool release, oneShot;
        std::uint32_t frames;
    } cases[] = {
        {"a loop as usual", smpl("3C000000 00000000", kLoop, ""), 60, 0, LoopType::Forward, 10, 20, 0, false,
         false, 100},
        {"note stored big-endian", smpl("0000003E 00000000", "", ""), 62, 0, LoopType::Off, 0, 4294967296.0,
         0, false, false, 100},
        {"note over 127", smpl("C8000000 FFFFFFFF", "", ""), 60, -100, LoopType::Off, 0, 4294967296.0, 0,
         false, false, 100},
        {"type 255", smpl("3C000000 00000000", "00000000 FF000000 0A000000 13000000 00000000 00000000", ""),
         60, 0, LoopType::Off, 10, 20, 0, false, false, 100},
        {"type 1024", smpl("3C000000 00000000", "00000000 00040000 0A000000 13000000 00000000 00000000", ""),
         60, 0, LoopType::Forward, 10, 20, 0, false, false, 100},
        {"Creamware",
         smpl("3C000000 00000000", kLoop, "'CWDT' E7 1BDA08 01000000 00000000 64000000 00000000 3C000000"),
         60, 0, LoopType::Forward, 10, 19, -0.25f, true, false, 100},
        {"Creamware without a loop",
         smpl("3C000000 00000000", kLoop, "'CWDT' 00 1BDA08 02000000 00000000 64000000 00000000 3C000000"),
         60, 0, LoopType::Off, 10, 19, 0, false, false, 100},
        {"Akai", smpl("3C000000 00000000", kLoop, "0100 40 FE 0C 00 03 000000 0A000000 3C000000"), 66, 12,
         LoopType::Forward, 10, 20, 0, true, false, 50},
        {"Akai, one shot, end past the data",
         smpl("3C000000 00000000", kLoop, "0100 40 00 F4 00 01 000000 3C000000 82000000"), 64, -12,
         LoopType::Off, 10, 20, 0, false, true, 40},
        {"Akai with a wrong kind",
         smpl("3C000000 00000000", kLoop, "0300 40 00 F4 00 01 000000 3C000000 82000000"), 60, 0,
         LoopType::Forward, 10, 20, 0, false, false, 100},
        {"wsmp",
         Chunk("wsmp", Spell("14000000 3E00 1900 00003CFF 00000000 01000000"
                             "10000000 01000000 05000000 07000000")),
         62, 25, LoopType::Forward, 5, 12, 0, true, false, 100},
        {"wsmp with over a semitone", Chunk("wsmp", Spell("14000000 3E00 2EFF 00000000 00000000 00000000")),
         64, -10, LoopType::Off, 0, 4294967296.0, 0, false, false, 100},
        {"inst", Chunk("inst", Spell("3D F6 00 00 00 00 00")), 61, -10, LoopType::Off, 0, 4294967296.0, 0,
         false, false, 100},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        Opened opened(WaveImage({fmt, c.chunk, data}));
        ASSERT_TRUE(opened.isRead);
        const Waveform& wave = *opened.wave;
        EXPECT_EQ(wave.rootKey, c.key);
        EXPECT_EQ(wave.fineTune, c.cents);
        EXPECT_EQ(wave.loop.type, c.type);
        EXPECT_EQ(wave.loop.start, c.start);
        EXPECT_EQ(wave.loop.end, c.end);
        EXPECT_EQ(wave.loop.pitch, c.pitch);
        EXPECT_EQ(wave.loop.breakOnRelease, c.release);
        EXPECT_EQ(wave.loop.oneShot, c.oneShot);
        EXPECT_EQ(wave.frames, c.frames);
        EXPECT_EQ(LoadFrom(*opened.wave, opened.file).size(), c.frames);
    }
}

TEST(WaveRead, AkaiTextInFrontAndTrimmedPlace)
{
    const ByteList smpl =
        Chunk("smpl", Join({Spell("47000000 5E000000"), ByteList(24), Word(18),
                            Spell("'loop' 000000000000 0000 3C 00 00 00 00 000000 02000000 03000000")}));
    Opened opened(WaveImage(
        {Fmt(1, 2, 8000, 16), Chunk("data", Spell("0000 0000 0000 0000 0040 00C0 0000 0000")), smpl}));
    ASSERT_TRUE(opened.isRead);
    EXPECT_EQ(LoadFrom(*opened.wave, opened.file), (std::vector<float>{0.5f, -0.5f}));
}

TEST(WaveRead, AkaiSampleHeader)
{
    ByteList mesa(141);
    const auto put = [&mesa](std::size_t at, const char* bytes) {
        const ByteList spelled = Spell(bytes);
        std::copy(spelled.begin(), spelled.end(), mesa.begin() + static_cast<std::ptrdiff_t>(at));
    };
    put(2, "40 19 18 0B 18 19 0A 02 26 25 28 0A 0A"); // "ONANO 2+_.  "
    put(16, "01 0000 01 0A FE");
    put(38, "05000000 0080 14000000");
    put(138, "A861 E7");
    Opened opened(WaveImage({Fmt(1, 1, 8000, 8), Chunk("mesa", mesa), Chunk("data", ByteList(100))}));
    ASSERT_TRUE(opened.isRead);
    EXPECT_EQ(opened.wave->GetName(), u"ONANO 2+_.");
    EXPECT_EQ(opened.wave->rateHz, 25000u);
    EXPECT_EQ(opened.wave->rootKey, 66);
    EXPECT_EQ(opened.wave->fineTune, 10);
    EXPECT_EQ(opened.wave->loop.type, LoopType::Forward);
    EXPECT_TRUE(opened.wave->loop.breakOnRelease);
    EXPECT_EQ(opened.wave->loop.start, 5);
    EXPECT_EQ(opened.wave->loop.end, 25.5);
    EXPECT_EQ(opened.wave->loop.pitch, -0.25f);
}

TEST(WaveRead, LoopsNamedByCuePoints)
{
    const auto point = [](unsigned id, unsigned frame) {
        return Join({Word(id), Word(0), Spell("'data' 00000000 00000000"), Word(frame)});
    };
    const auto label = [](unsigned id, const char* text) {
        return Chunk("labl", Join({Word(id), Spell(text)}));
    };
    const ByteList fmt = Fmt(1, 1, 8000, 8);
    const ByteList data = Chunk("data", ByteList(100));
    const ByteList range =
        Join({Chunk("cue ", Join({Word(2), point(1, 10), point(2, 30)})),
              Chunk("LIST", Join({Spell("'adtl'"), label(1, "'Loop Range' 00"), label(2, "'Loop Ranges' 00"),
                                  Chunk("ltxt", Join({Word(1), Word(20), ByteList(12)}))}))});
    Opened ranged(WaveImage({fmt, data, range}));
    EXPECT_EQ(ranged.wave->loop.type, LoopType::Forward);
    EXPECT_EQ(ranged.wave->loop.start, 10);
    EXPECT_EQ(ranged.wave->loop.end, 30);
    ASSERT_EQ(ranged.wave->markers.size(), 1u);
    EXPECT_EQ(ranged.wave->markers[0].name, u"Loop Ranges");
    // A smpl chunk has the last word, even without a loop.
    Opened sampler(WaveImage({fmt, range, Chunk("smpl", ByteList(36)), data}));
    EXPECT_EQ(sampler.wave->loop.type, LoopType::Off);
    EXPECT_EQ(sampler.wave->markers.size(), 1u);

    const ByteList ends = Join(
        {Chunk("cue ", Join({Word(2), point(1, 10), point(2, 30)})),
         Chunk("LIST", Join({Spell("'adtl'"), label(1, "'Loop Start' 00"), label(2, "'Loop End' 00")}))});
    Opened ended(WaveImage({fmt, data, ends}));
    EXPECT_EQ(ended.wave->loop.type, LoopType::Forward);
    EXPECT_EQ(ended.wave->loop.start, 10);
    EXPECT_EQ(ended.wave->loop.end, 30);
    EXPECT_TRUE(ended.wave->markers.empty());
    // A count that the chunk does not hold gives no points.
    Opened claimed(WaveImage({fmt, data, Chunk("cue ", Join({Word(3), point(1, 10), point(2, 30)}))}));
    EXPECT_TRUE(claimed.isRead);
    EXPECT_TRUE(claimed.wave->markers.empty());
}

TEST(WaveRead, OnlyTheFirstOfAKindCounts)
{
    const ByteList smpl = Chunk("smpl", Join({ByteList(12), Word(72), ByteList(20)}));
    Opened opened(
        WaveImage({Chunk("fmt ", ByteList(13)), Fmt(1, 1, 8000, 8), Fmt(999, 2, 9000, 16), smpl,
                   Chunk("smpl", ByteList(36)), Chunk("data", Spell("C0 40")), Chunk("data", ByteList(6))}));
    ASSERT_TRUE(opened.isRead);
    EXPECT_EQ(opened.wave->rateHz, 8000u);
    EXPECT_EQ(opened.wave->rootKey, 72);
    EXPECT_EQ(LoadFrom(*opened.wave, opened.file), (std::vector<float>{0.5f, -0.5f}));
}

TEST(WaveRead, Refusals)
{
    const ByteList data = Chunk("data", ByteList(8));
    const ByteList mpeg = Spell("5000 0200 80BB0000 00000000 0100 0000 1600 0200 00EE0200 0900 0000 0000 1000"
                                "00000000 00000000");
    const ByteList ambisonic = Spell("FEFF 0100 401F0000 803E0000 0200 1000 1600 1000 04000000"
                                     "01000000 2107 D311 8644C8C1CA000000");
    const ByteList largeSubTag = Spell("FEFF 0100 401F0000 803E0000 0200 1000 1600 1000 04000000"
                                       "01000100 0000 1000 800000AA00389B71");
    const struct {
        ByteList image;
        const char16_t* words;
    } cases[] = {
        {Spell("'RIFF' 04000000 'AVI '"), u"Not a RIFF-WAVE file"},
        {Spell("'LIST' 04000000 'WAVE'"), u"Not a RIFF-WAVE file"},
        {Spell("'RIFF' 04000000 'WAV'"), u"Not a RIFF-WAVE file"},
        {WaveImage({data}), u"No wave data found!"},
        {WaveImage({Fmt(1, 1, 8000, 8)}), u"No wave data found!"},
        {WaveImage({Fmt(4, 1, 8000, 8), data}), u"Unsupported compression type"},
        {WaveImage({Fmt(65534, 1, 8000, 8), data}), u"Unsupported compression type"},
        {WaveImage({Chunk("fmt ", ambisonic), data}), u"Unsupported 'Extensible' subformat GUID"},
        {WaveImage({Chunk("fmt ", largeSubTag), data}), u"Unsupported 'Extensible' subformat GUID"},
        {WaveImage({Fmt(1, 0, 8000, 8), data}), u"No channels"},
        {WaveImage({Fmt(1, 1, 8000, 0), data}), u"Reading from file failed"},
        {WaveImage({Fmt(2, 1, 8000, 3), data}), u"Unsupported or invalid MS ADPCM file"},
        {WaveImage({Fmt(3, 1, 8000, 48), data}), u"Unsupported bits/sample for IEEE floating point samples"},
        {WaveImage({Fmt(17, 1, 8000, 5), data}), u"Unsupported or invalid IMA ADPCM file"},
        {WaveImage({Fmt(23, 2, 8000, 4), data}), u"Can only handle mono Dialogic ADPCM format"},
        {WaveImage({Fmt(23, 1, 8000, 3), data}), u"Unsupported or invalid Dialogic ADPCM file"},
        {WaveImage({Fmt(32, 3, 8000, 4), data}), u"> 2ch Yamaha ADPCM not supported"},
        {WaveImage({Fmt(32, 2, 8000, 5), data}), u"Unsupported bits/sample for Yamaha ADPCM format"},
        {WaveImage({Fmt(64, 1, 8000, 6), data}),
         u"Invalid no bits/sample for CCITT G.721/.723/.726 ADPCM encoding"},
        {WaveImage({Fmt(49, 2, 8000, 0), data}), u"Can only handle (the standard!) mono GSM"},
        {WaveImage({Fmt(59, 1, 8000, 5), data}), u"Unsupported or invalid Rockwell ADPCM file"},
        {WaveImage({Fmt(59, 2, 8000, 4), data}), u"Can only handle mono Rockwell ADPCM format"},
        {WaveImage({Chunk("fmt ", mpeg), data}), u"Can't handle mixed channel mode MPEG streams"},
    };
    for (const auto& c : cases) {
        const Opened opened(c.image);
        EXPECT_FALSE(opened.isRead);
        EXPECT_EQ(LastError(), c.words);
        EXPECT_EQ(opened.wave, nullptr);
    }
}

TEST(WaveRead, SamplesThatAreGoneFailToLoad)
{
    Opened opened(WaveImage({Fmt(1, 3, 8000, 16), Chunk("data", ByteList(600))}));
    ASSERT_TRUE(opened.isRead);
    ByteList bytes(opened.file.Bytes().begin(), opened.file.Bytes().end());
    bytes.pop_back();
    MemoryFile shortened(bytes);
    EXPECT_TRUE(LoadFrom(*opened.wave, shortened).empty());
    EXPECT_EQ(LastError(), u"Reading from file failed");
    EXPECT_FALSE(opened.wave->HasBlock());
    opened.wave->frames = 0xFFFFFFFF; // as a damaged state file could say
    EXPECT_TRUE(LoadFrom(*opened.wave, opened.file).empty());
    EXPECT_EQ(LastError(), u"Reading from file failed");
    opened.wave->frames = 0;
    EXPECT_TRUE(LoadFrom(*opened.wave, opened.file).empty());
    EXPECT_EQ(LastError(), u"Zero length");
}

TEST(WaveRead, InfoTextsOfOtherContainers)
{
    const ByteList info = Chunk(
        "LIST", Join({Spell("'INFO'"), Chunk("IART", Spell("'Ann' 00")), Chunk("ICMT", Spell("'odd'"))}));
    ByteList nested = Chunk("LIST", Join({Spell("'wave'"), Chunk("fmt ", ByteList(5)), info}));
    Collection collection;
    auto& wave = collection.Create<Waveform>(u"Kept");
    ReadInfoTexts(Join({Chunk("INAM", Spell("'Outside'")), nested}), wave);
    EXPECT_EQ(wave.GetText(kTextArtist), u"Ann");
    EXPECT_EQ(wave.GetText(kTextComments), u"odd");
    EXPECT_EQ(wave.GetName(), u"Kept");
    // Lists in lists end somewhere.
    wave.SetText(kTextArtist, u"");
    for (int i = 0; i < 100; ++i)
        nested = Chunk("LIST", Join({Spell("'wave'"), nested}));
    ReadInfoTexts(nested, wave);
    EXPECT_EQ(wave.GetText(kTextArtist), u"");
}

TEST(WaveDetect, ScoresByTheFirstBytes)
{
    const ByteList fmt = Fmt(1, 1, 8000, 8);
    const ByteList data = Chunk("data", ByteList(8));
    const ByteList bext = Chunk("bext", ByteList(3));
    const ByteList rockwell = WaveImage({Fmt(768, 1, 8000, 4), data});
    const ByteList late = WaveImage({fmt, fmt, fmt, fmt, bext});
    EXPECT_EQ(DetectWave(rockwell, 0, 0), 6);
    for (const char* id : {"'RF64'", "'BW64'", "'RIFX'"})
        EXPECT_EQ(DetectWave(Join({Spell(id), Spell("04000000 'WAVE'")}), 0, 0), 6);
    EXPECT_EQ(DetectWave(Spell("'RIFF' 04000000 'WAV'"), 0, 0), 0);
    EXPECT_EQ(DetectWave(Spell("'RIFF' 04000000 'wave'"), 0, 0), 0);
    EXPECT_EQ(DetectWave(Spell("'SDSS' 04000000 'WAVE'"), 0, 0), 0);
    EXPECT_EQ(DetectBroadcastWave(WaveImage({fmt, Chunk("JUNK", ByteList(7)), bext, data}), 0, 0), 6);
    EXPECT_EQ(DetectBroadcastWave(WaveImage({fmt, fmt, fmt, bext}), 0, 0), 6);
    EXPECT_EQ(DetectBroadcastWave(late, 0, 0), 2);
    EXPECT_EQ(DetectBroadcastWave(WaveImage({fmt, data, bext}), 0, 0), 2);
    EXPECT_EQ(DetectBroadcastWave(Spell("'RIFF' 04000000 'WAVE'"), 0, 0), 2);
    EXPECT_EQ(DetectBroadcastWave(Spell("'RIFF' 04000000 'AVI '"), 0, 0), 0);
    EXPECT_EQ(DetectRockwellWave(rockwell, 0, 0), 6);
    EXPECT_EQ(DetectRockwellWave(late, 0, 0), 0);
    EXPECT_EQ(DetectSmartSound(Spell("'SDSS' 04000000 'WAVE'"), 0, 0), 4);
    EXPECT_EQ(DetectSmartSound(late, 0, 0), 0);
}

} // namespace
} // namespace vimbo
