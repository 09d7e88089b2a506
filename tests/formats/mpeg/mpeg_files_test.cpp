// Files of MPEG audio: ours beside other programs, theirs beside us. A missing program skips its test with a
// notice.
#include "base/last_error.h"
#include "formats/mpeg/mpeg.h"
#include "formats/open.h"
#include "programs.h"
#include "test_files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace vimbo {
namespace {

using testing::Bytes;
using testing::HasProgram;
using testing::MakeBytes;
using testing::OutputOf;
using testing::ScratchFolder;

constexpr std::size_t kMp2Row = 242, kMp3CbrRow = 244, kMp3AbrRow = 245, kMp3VbrRow = 246;
constexpr std::uint32_t kFrames = 20001;

Waveform& AddTone(Collection& items, unsigned channels, std::uint32_t rateHz = 44100)
{
    auto& wave = items.Create<Waveform>(u"T\u00F6ne");
    wave.rateHz = rateHz;
    wave.channels = static_cast<std::uint8_t>(channels);
    wave.frames = kFrames;
    const std::span<float> samples = wave.AllocateSamples();
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i] = static_cast<float>(
            0.4 * std::sin(0.05 * static_cast<double>(i / channels) + static_cast<double>(i % channels)));
    return wave;
}

Bytes Written(Waveform& wave, std::size_t row, float kbit = 0)
{
    const FormatRow& entry = FormatRows()[row];
    FormatChoice choice{entry.caps, entry.variant, kbit};
    MemoryFile file;
    EXPECT_TRUE(WriteThroughRow(entry, wave, file, choice));
    return file.Release();
}

std::vector<float> FloatsOf(const std::string& output)
{
    std::vector<float> floats(output.size() / sizeof(float));
    std::memcpy(floats.data(), output.data(), floats.size() * sizeof(float));
    return floats;
}

double RmsDifference(std::span<const float> a, std::span<const float> b)
{
    double sum = 0;
    for (std::size_t i = 0; i < a.size() && i < b.size(); ++i)
        sum += (double{a[i]} - b[i]) * (double{a[i]} - b[i]);
    return std::sqrt(sum / static_cast<double>(std::max<std::size_t>(std::min(a.size(), b.size()), 1)));
}

struct Opened {
    explicit Opened(const std::u16string& path) { isOpen = LoadFile(items, path, AllowRaw::No); }
    Waveform& Wave() { return *items.List<Waveform>().front(); }
    Collection items;
    bool isOpen = false;
};

TEST(MpegFiles, OurFilesAsOthersReadThem)
{
    if (!HasProgram("ffprobe") || !HasProgram("mpg123"))
        GTEST_SKIP() << "ffprobe or mpg123 is not installed";
    const ScratchFolder folder;
    const struct {
        std::size_t row;
        const char* name;
        const char* codec;
        std::size_t extraFrames; ///< that no program cuts off
    } cases[] = {{kMp2Row, "a.mp2", "mp2", 481},
                 {kMp3CbrRow, "c.mp3", "mp3", 0},
                 {kMp3AbrRow, "b.mp3", "mp3", 0},
                 {kMp3VbrRow, "v.mp3", "mp3", 0}};
    for (const auto& c : cases) {
        for (const unsigned channels : {1u, 2u}) {
            Collection items;
            Waveform& wave = AddTone(items, channels);
            wave.SetText(kTextArtist, u"\u0141ukasz");
            const std::u16string path = folder.Put(c.name, Written(wave, c.row, 192));
            const std::string file = "'" + (folder.Path() / c.name).string() + "'";
            const std::string said =
                OutputOf("ffprobe -v error -show_entries stream=codec_name,sample_rate,channels"
                         ":format_tags=title,artist -of default=nw=1 " +
                         file);
            EXPECT_NE(said.find(std::string("codec_name=") + c.codec), std::string::npos) << said;
            EXPECT_NE(said.find("sample_rate=44100"), std::string::npos) << said;
            EXPECT_NE(said.find("channels=" + std::to_string(channels)), std::string::npos) << said;
            if (c.row != kMp2Row) {
                EXPECT_NE(said.find("TAG:title=T\xC3\xB6ne"), std::string::npos) << said;
                EXPECT_NE(said.find("TAG:artist=\xC5\x81ukasz"), std::string::npos) << said;
            }
            const auto theirs = FloatsOf(OutputOf("mpg123 -q -e f32 -s " + file));
            Opened opened(path);
            ASSERT_TRUE(opened.isOpen) << c.name;
            Waveform& back = opened.Wave();
            EXPECT_EQ(back.GetName(), c.row == kMp2Row ? u"a" : u"T\u00F6ne");
            EXPECT_EQ(back.bits, 1);
            EXPECT_EQ(back.SourceFormat(), DataFormat::Compressed);
            if (c.extraFrames == 0) {
                EXPECT_EQ(back.frames, kFrames) << c.name;
            }
            const auto ours = back.LockSamples();
            ASSERT_EQ(ours.size(), theirs.size()) << c.name;
            EXPECT_LT(RmsDifference(ours, theirs), 1e-6) << c.name;
            EXPECT_LT(RmsDifference(std::span(ours).subspan(c.extraFrames * channels), wave.LockSamples()),
                      0.01)
                << c.name << ": one frame's shift would be 0.014";
        }
    }
}

TEST(MpegFiles, FilesOfLame)
{
    if (!HasProgram("lame") || !HasProgram("sox") || !HasProgram("mpg123"))
        GTEST_SKIP() << "lame, sox or mpg123 is not installed";
    const ScratchFolder folder;
    const std::string wav = "'" + (folder.Path() / "in.wav").string() + "'";
    const std::string mp3 = "'" + (folder.Path() / "out.mp3").string() + "'";
    ASSERT_EQ(OutputOf("sox -r 44100 -n -c 2 -b 16 " + wav + " synth 30001s pinknoise gain -6 2>&1"), "");
    for (const char* options : {"-b 128 -m s", "-b 64 -m j", "-V 5", "--abr 140", "-b 160 -p",
                                "-b 96 --resample 22.05", "-b 24 -m m --resample 8"}) {
        OutputOf(std::string("lame --quiet ") + options +
                 " --id3v2-only --tt Title --ta Artist --tc Words --tl Album " + wav + " " + mp3);
        const auto theirs = FloatsOf(OutputOf("mpg123 -q -e f32 -s " + mp3));
        Opened opened(folder.Wide("out.mp3"));
        ASSERT_TRUE(opened.isOpen) << options;
        Waveform& wave = opened.Wave();
        EXPECT_EQ(wave.GetName(), u"Title");
        EXPECT_EQ(wave.GetText(kTextArtist), u"Artist");
        EXPECT_EQ(wave.GetText(kTextComments), u"Words");
        EXPECT_EQ(wave.GetText(kTextProduct), u"Album");
        const auto ours = wave.LockSamples();
        ASSERT_EQ(ours.size(), theirs.size()) << options;
        EXPECT_LT(RmsDifference(ours, theirs), 1e-6) << options;
        if (wave.rateHz == 44100) {
            EXPECT_EQ(wave.frames, 30001u) << options;
        }
    }
}

TEST(MpegFiles, Detection)
{
    Collection items;
    const Bytes layer3 = Written(AddTone(items, 2), kMp3CbrRow, 128);
    const Bytes layer2 = Written(AddTone(items, 1), kMp2Row, 128);
    Bytes longTag = MakeBytes({'I', 'D', '3', 3, 0, 0, 0, 4, 0, 10}); // 65546 bytes
    longTag.resize(32768);
    const Bytes text(500, std::byte{'a'});
    const struct {
        const Bytes& bytes;
        std::uint32_t variant;
        int score;
    } cases[] = {
        {layer3, kMpegLayer3, 6},  {layer3, kMpegLayer2, 2}, {layer3, kMpegAnyLayer, 4},
        {layer2, kMpegLayer2, 6},  {layer2, kMpegLayer1, 2}, {longTag, kMpegLayer3, 3},
        {longTag, kMpegLayer2, 2}, {text, kMpegLayer3, 2},   {text, kMpegAnyLayer, 0},
    };
    for (const auto& c : cases)
        EXPECT_EQ(DetectMpeg(std::span(c.bytes).first(std::min<std::size_t>(c.bytes.size(), 32768)),
                             c.variant, c.bytes.size()),
                  c.score)
            << c.variant;
    // A stream without its start, by its extension.
    const ScratchFolder folder;
    const Bytes cut(layer3.begin() + 5000, layer3.end());
    EXPECT_TRUE(Opened(folder.Put("cut.mp3", cut)).isOpen);
    EXPECT_TRUE(Opened(folder.Put("whole.bin", layer3)).isOpen);
    EXPECT_FALSE(Opened(folder.Put("text.mp3", text)).isOpen);
    EXPECT_EQ(LastError(), u"No MPEG audio found");
}

TEST(MpegFiles, SfzInstrumentsPlayThem)
{
    const ScratchFolder folder;
    Collection items;
    folder.Put("samples/tone.mp3", Written(AddTone(items, 2), kMp3CbrRow, 192));
    const std::string text = "<region> sample=samples/tone.mp3 lokey=40 hikey=50 loop_mode=loop_continuous "
                             "loop_start=1000 loop_end=18999\n";
    Opened opened(folder.Put("a.sfz", std::as_bytes(std::span(text))));
    ASSERT_TRUE(opened.isOpen);
    Waveform& wave = opened.Wave();
    EXPECT_EQ(wave.frames, kFrames) << "without what the encoder puts around it, or loops would move";
    EXPECT_EQ(wave.loop.start, 1000);
    const auto samples = wave.LockSamples();
    ASSERT_EQ(samples.size(), 2u * kFrames);
    EXPECT_LT(RmsDifference(samples, AddTone(items, 2).LockSamples()), 0.003);
}

TEST(MpegFiles, SettingsAndRefusals)
{
    const struct {
        std::size_t row;
        const char16_t* first;
        float least, most;
    } cases[] = {{kMp2Row, u"MP2 CBR 32 kbit/s", 32, 384},
                 {kMp3CbrRow, u"MP3 CBR 32 kbit/s", 32, 320},
                 {kMp3AbrRow, u"MP3 ABR 32 kbit/s", 32, 320},
                 {kMp3VbrRow, u"MP3 VBR Quality 9", 65, 245}};
    for (const auto& c : cases) {
        std::uint32_t index = 0;
        std::u16string name;
        float kbit = 0, last = 0;
        while (GetSubFormat(static_cast<int>(c.row), index, kbit, name)) {
            EXPECT_GT(kbit, last) << "they rise, so that the next one up can be found";
            if (last == 0) {
                EXPECT_EQ(kbit, c.least);
                EXPECT_EQ(name, c.first);
            }
            last = kbit;
        }
        EXPECT_EQ(last, c.most);
    }
    Collection items;
    EXPECT_LT(Written(AddTone(items, 2), kMp3VbrRow, 65).size(),
              Written(AddTone(items, 2), kMp3VbrRow, 245).size());
    for (const std::size_t row : {kMp2Row, kMp3CbrRow}) {
        const FormatRow& entry = FormatRows()[row];
        FormatChoice choice{entry.caps, entry.variant, 0};
        MemoryFile file;
        EXPECT_FALSE(WriteThroughRow(entry, items, file, choice));
        EXPECT_EQ(LastError(), u"The file format can not save this item");
        EXPECT_FALSE(WriteThroughRow(entry, AddTone(items, 1, 96000), file, choice));
        EXPECT_EQ(LastError().substr(0, 28), u"The format wants 48000 Hz, a");
    }
}

} // namespace
} // namespace vimbo
