#include "codecs/vag.h"

#include "codecs/adpcm_witness.h"

namespace vimbo {
namespace {

using namespace vimbo::testing;

/// Frame with the same byte in all of its codes.
Bytes Frame(int head, int flag, int codes)
{
    Bytes out(kVagFrameBytes, static_cast<std::byte>(codes));
    out[0] = static_cast<std::byte>(head);
    out[1] = static_cast<std::byte>(flag);
    return out;
}

Bytes Join(std::initializer_list<Bytes> parts)
{
    Bytes out;
    for (const Bytes& part : parts)
        out.insert(out.end(), part.begin(), part.end());
    return out;
}

Pcm Decode(std::span<const std::byte> in, std::size_t room = 100000)
{
    VagState state;
    std::vector<float> out(room);
    out.resize(DecodeVag(state, in, out));
    return ToPcm(out);
}

Bytes VagFile(std::span<const std::byte> frames)
{
    FileMaker file(std::endian::big);
    file.Tag("VAGp").Put(0x20, 4).Put(0, 4).Put(frames.size(), 4).Put(22050, 4).Put(0, 8).Put(0, 8).Put(0, 8);
    file.Put(0, 4);
    return file.Add(frames).Get();
}

TEST(Vag, KnownFrames)
{
    // Lower code first; 1 << 12 >> 2 and -1 << 12 >> 2 without a filter.
    const Pcm plain = Decode(Frame(0x02, 0, 0xF1));
    ASSERT_EQ(plain.size(), kVagFrameSamples);
    EXPECT_EQ(Pcm(plain.begin(), plain.begin() + 3), (Pcm{1024, -1024, 1024}));

    // 60 / 64 of the sample before, whole numbers towards 0, from -1024 on; shift 12 makes the codes' unit 1.
    const Pcm ringing = Decode(Join({Frame(0x02, 0, 0xF1), Frame(0x1C, 0, 0x00)}));
    EXPECT_EQ(Pcm(ringing.begin() + 28, ringing.begin() + 32), (Pcm{-960, -900, -843, -790}));

    // All filters on -1024 after 1024, as (-1024 * 115 + 1024 * -52) / 64; one that does not exist is none.
    for (const auto& [head, wanted] :
         {std::pair{0x0C, 0}, {0x2C, -2672}, {0x3C, -2448}, {0x4C, -2912}, {0xFC, 0}})
        EXPECT_EQ(Decode(Join({Frame(0x02, 0, 0xF1), Frame(head, 0, 0x00)}))[28], wanted);

    // Saturation before the filter's next turn: 60 / 64 of 32767.
    const Pcm loud = Decode(Join({Frame(0x10, 0, 0x77), Frame(0x1C, 0, 0x00)}));
    EXPECT_EQ(Pcm(loud.begin(), loud.begin() + 3), (Pcm{28672, 32767, 32767}));
    EXPECT_EQ(loud[28], 30719);
}

TEST(Vag, FlagsTellLoopAndEnd)
{
    const Bytes plain = Frame(0x0C, 2, 0x11), start = Frame(0x0C, 6, 0x11), end = Frame(0x0C, 3, 0x11);
    const Bytes stop = Frame(0x00, 7, 0x77);
    const struct {
        Bytes stream;
        std::size_t samples;
        std::optional<VagLoop> loop;
        bool hasEnd;
    } cases[] = {
        {{}, 0, {}, false},
        {stop, 0, {}, true},
        {Join({plain, start, plain, end, stop, start, end}), 112, VagLoop{28, 112}, true},
        {Join({start, start, end, end}), 112, VagLoop{28, 84}, false},
        {Join({end, plain, start}), 84, {}, false},
        {Join({plain, Frame(0, 0x0F, 0), plain}), 28, {}, true},
    };
    for (const auto& each : cases) {
        const VagOutline outline = OutlineVag(each.stream);
        EXPECT_EQ(outline.samples, each.samples);
        EXPECT_EQ(outline.loop, each.loop);
        EXPECT_EQ(outline.hasEnd, each.hasEnd);
        EXPECT_EQ(Decode(each.stream).size(), each.samples);
        Bytes cut = each.stream;
        cut.resize(cut.size() - std::min<std::size_t>(cut.size(), 1));
        EXPECT_EQ(Decode(cut).size(), OutlineVag(cut).samples);
    }
}

TEST(Vag, PiecesEqualTheWhole)
{
    Random random(7);
    Bytes stream = RandomBytes(random, 40 * kVagFrameBytes);
    for (std::size_t at = 1; at < stream.size(); at += kVagFrameBytes)
        stream[at] &= std::byte{0xFB};
    const Pcm whole = Decode(stream);
    VagState state;
    Pcm pieces;
    for (std::size_t at = 0; at < stream.size(); at += 4 * kVagFrameBytes) {
        std::vector<float> out(4 * kVagFrameSamples);
        ASSERT_EQ(DecodeVag(state, std::span(stream).subspan(at, 4 * kVagFrameBytes), out), out.size());
        const Pcm piece = ToPcm(out);
        pieces.insert(pieces.end(), piece.begin(), piece.end());
    }
    EXPECT_EQ(pieces, whole);
    EXPECT_EQ(Decode(stream, 45), Pcm(whole.begin(), whole.begin() + 45));
}

TEST(Vag, EncoderKeepsItsErrorBound)
{
    const struct {
        const char* name;
        Pcm sound;
        double leastSnrDb;
    } cases[] = {{"speech", SpeechLike(20000), 50.0},
                 {"music", MusicLike(20000), 47.0},
                 {"noise", NoiseOf(20000, 9000), 20.5}};
    for (const auto& each : cases) {
        Bytes stream(VagBytes(each.sound.size()));
        ASSERT_EQ(EncodeVag(ToFloats(each.sound), {}, stream), stream.size());
        const double snrDb = SnrDb(each.sound, Decode(stream));
        EXPECT_GE(snrDb, each.leastSnrDb) << each.name;
        RecordProperty(each.name, std::to_string(snrDb));
    }
    const Bytes silence = [] {
        Bytes stream(VagBytes(56));
        EncodeVag(std::vector<float>(56), {}, stream);
        return stream;
    }();
    EXPECT_EQ(Decode(silence), Pcm(56));
}

TEST(Vag, EncoderMarksLoopAndEnd)
{
    const auto sound = ToFloats(MusicLike(280));
    const struct {
        VagLoop asked;
        std::optional<VagLoop> made;
    } cases[] = {{{0, 280}, VagLoop{0, 280}},
                 {{41, 99}, VagLoop{28, 112}},
                 {{42, 98}, VagLoop{56, 112}},
                 {{56, 84}, {}},
                 {{100, 20}, {}},
                 {{28, 5000}, VagLoop{28, 280}}};
    for (const auto& each : cases) {
        Bytes stream(VagBytes(sound.size()));
        ASSERT_EQ(EncodeVag(sound, each.asked, stream), 11 * kVagFrameBytes);
        const VagOutline outline = OutlineVag(stream);
        EXPECT_EQ(outline.samples, 280u);
        EXPECT_TRUE(outline.hasEnd);
        EXPECT_EQ(outline.loop, each.made) << each.asked.start << " " << each.asked.end;
    }
    Bytes small(5 * kVagFrameBytes + 3);
    EXPECT_EQ(EncodeVag(sound, {}, small), 5 * kVagFrameBytes);
}

TEST(Vag, AgreesWithFfmpeg)
{
    NEED_PROGRAM("ffmpeg");
    for (const Pcm& sound : {SpeechLike(5000), MusicLike(5000)}) {
        Bytes stream(VagBytes(sound.size()));
        EncodeVag(ToFloats(sound), {}, stream);
        stream.resize(stream.size() - kVagFrameBytes); // ffmpeg plays the end's frame too
        EXPECT_EQ(FfmpegDecoded("a.vag", VagFile(stream)), Decode(stream));
    }
    // Every filter and shift; quiet ones, since ffmpeg lets the filter's memory grow beyond 16 bits.
    Random random(11);
    Bytes stream = RandomBytes(random, 500 * kVagFrameBytes);
    for (std::size_t at = 0; at < stream.size(); at += kVagFrameBytes) {
        stream[at] = static_cast<std::byte>(random.Below(5) << 4 | (8 + random.Below(8)));
        stream[at + 1] &= std::byte{0xFB};
    }
    EXPECT_EQ(FfmpegDecoded("a.vag", VagFile(stream)), Decode(stream));
}

} // namespace
} // namespace vimbo
