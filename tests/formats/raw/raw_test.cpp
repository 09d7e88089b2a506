#include "formats/raw/raw.h"

#include "base/last_error.h"

#include <gtest/gtest.h>

#include <cmath>

namespace vimbo {
namespace {

std::vector<std::byte> Bytes(std::initializer_list<int> values)
{
    std::vector<std::byte> bytes;
    for (int value : values)
        bytes.push_back(static_cast<std::byte>(value));
    return bytes;
}

const FormatRow& Row(int index)
{
    return FormatRows()[static_cast<std::size_t>(index)];
}

/// Reads through a row; null if the reader refuses.
Waveform* ReadThrough(int row, Collection& collection, std::span<const std::byte> bytes)
{
    MemoryFile file(bytes, u"/sounds/kick.bin");
    if (!Row(row).read(collection, file, Row(row).variant))
        return nullptr;
    const auto waves = collection.List<Waveform>();
    return waves.size() == 1 ? waves[0] : nullptr;
}

std::vector<float> Load(Waveform& wave, std::span<const std::byte> bytes)
{
    MemoryFile file(bytes);
    if (!file.Seek(wave.sourceOffset) || !wave.importProc->load(wave, file))
        return {};
    const auto samples = wave.LockSamples();
    return {samples.begin(), samples.end()};
}

Waveform& MakeWave(Collection& collection, std::span<const float> samples, std::uint8_t channels)
{
    auto& wave = collection.Create<Waveform>(u"w");
    wave.channels = channels;
    wave.frames = static_cast<std::uint32_t>(samples.size() / channels);
    const auto out = wave.LockSamplesForWrite();
    std::copy(samples.begin(), samples.end(), out.begin());
    return wave;
}

std::vector<std::byte> WriteThrough(int row, Waveform& wave, std::uint32_t caps)
{
    MemoryFile file;
    FormatChoice choice{caps, Row(row).variant, 0};
    EXPECT_TRUE(Row(row).write(wave, file, choice));
    return file.Release();
}

struct RawCase {
    int row;
    std::u16string_view extension;
    std::uint32_t rateHz;
    SaveFormat saveFormat;
    std::vector<std::byte> bytes;
    std::vector<float> samples;
    int swappedRow; ///< the write-only row of the other byte order, -1 if there is none
};

const std::vector<RawCase>& RawCases()
{
    constexpr float kMuPeak = 32124.0f / 32768;
    constexpr float kAPeak = 32256.0f / 32768;
    constexpr float kAStep = 8.0f / 32768;
    const auto signed8 = Bytes({0x80, 0xFF, 0x00, 0x40, 0x7F});
    const std::vector<float> samples8{-1, -1 / 128.0f, 0, 0.5f, 127 / 128.0f};
    const auto unsigned8 = Bytes({0x00, 0x7F, 0x80, 0xC0, 0xFF});
    const std::vector<float> samples16{-1, -0.5f, 1 / 32768.0f, 32767 / 32768.0f};
    static const std::vector<RawCase> kCases{
        {103,
         u"f32",
         44100,
         SaveFormat::Float32,
         Bytes({0, 0, 0x80, 0x3F, 0, 0, 0, 0xBF, 0, 0, 0xC0, 0x3F}),
         {1.0f, -0.5f, 1.5f},
         -1},
        {105,
         u"f64",
         44100,
         SaveFormat::Float32,
         Bytes({0, 0, 0, 0, 0, 0, 0xF0, 0x3F, 0, 0, 0, 0, 0, 0, 0xE0, 0xBF}),
         {1.0f, -0.5f},
         -1},
        {366, u"sb", 44100, SaveFormat::Pcm8, signed8, samples8, -1},
        {336, u"raw", 44100, SaveFormat::Pcm8, signed8, samples8, -1},
        {365, u"sam", 44100, SaveFormat::Pcm8, signed8, samples8, -1},
        {444, u"ub", 44100, SaveFormat::Pcm8, unsigned8, samples8, -1},
        {398, u"snd", 44100, SaveFormat::Pcm8, unsigned8, samples8, -1},
        {422, u"sw", 44100, SaveFormat::Pcm16, Bytes({0x00, 0x80, 0x00, 0xC0, 0x01, 0x00, 0xFF, 0x7F}),
         samples16, 423},
        {453, u"uw", 44100, SaveFormat::Pcm16, Bytes({0x00, 0x00, 0x00, 0x40, 0x01, 0x80, 0xFF, 0xFF}),
         samples16, 454},
        {377, u"sdw", 44100, SaveFormat::Pcm32, Bytes({0, 0, 0, 0x80, 0, 0, 0, 0x20}), {-1, 0.25f}, -1},
        {445, u"udw", 44100, SaveFormat::Pcm32, Bytes({0, 0, 0, 0, 0, 0, 0, 0xA0}), {-1, 0.25f}, -1},
        {21,
         u"alaw",
         8000,
         SaveFormat::ALaw,
         Bytes({0xAA, 0x2A, 0xD5, 0x55}),
         {kAPeak, -kAPeak, kAStep, -kAStep},
         -1},
        {22, u"alw", 8000, SaveFormat::ALaw, Bytes({0xAA, 0x2A}), {kAPeak, -kAPeak}, -1},
        {446, u"ulaw", 8000, SaveFormat::MuLaw, Bytes({0x80, 0x00, 0xFF}), {kMuPeak, -kMuPeak, 0}, -1},
        {448, u"ulw", 8000, SaveFormat::MuLaw, Bytes({0x80, 0x00}), {kMuPeak, -kMuPeak}, -1},
    };
    return kCases;
}

TEST(RawRows, KnownBytesAreReadAndWrittenBack)
{
    for (const RawCase& expected : RawCases()) {
        SCOPED_TRACE(expected.row);
        ASSERT_EQ(Row(expected.row).extension, expected.extension);
        Collection collection;
        collection.SetName(u"kick");
        Waveform* wave = ReadThrough(expected.row, collection, expected.bytes);
        ASSERT_NE(wave, nullptr);
        EXPECT_EQ(wave->GetName(), u"kick");
        EXPECT_EQ(wave->rateHz, expected.rateHz);
        EXPECT_EQ(wave->channels, 1);
        EXPECT_EQ(wave->saveFormat, expected.saveFormat);
        EXPECT_FALSE(wave->HasBlock()) << "samples stay in the file";
        EXPECT_EQ(Load(*wave, expected.bytes), expected.samples);
        if (Row(expected.row).write != nullptr) {
            EXPECT_EQ(WriteThrough(expected.row, *wave, Row(expected.row).caps), expected.bytes);
        }
        if (expected.swappedRow < 0)
            continue;
        auto swapped = expected.bytes;
        for (std::size_t i = 0; i + 1 < swapped.size(); i += 2)
            std::swap(swapped[i], swapped[i + 1]);
        EXPECT_EQ(Row(expected.swappedRow).read, nullptr);
        EXPECT_EQ(Row(expected.swappedRow).extension, expected.extension);
        EXPECT_EQ(WriteThrough(expected.swappedRow, *wave, Row(expected.swappedRow).caps), swapped);
    }
}

TEST(RawRows, OnlyWholeFramesCount)
{
    for (const RawCase& expected : RawCases()) {
        SCOPED_TRACE(expected.row);
        const std::size_t width = expected.bytes.size() / expected.samples.size();
        for (std::size_t size = 0; size <= expected.bytes.size(); ++size) {
            Collection collection;
            ClearLastError();
            const auto bytes = std::span(expected.bytes).first(size);
            Waveform* wave = ReadThrough(expected.row, collection, bytes);
            if (size < width) {
                EXPECT_EQ(wave, nullptr);
                EXPECT_EQ(LastError(), u"Zero length");
                continue;
            }
            ASSERT_NE(wave, nullptr);
            EXPECT_EQ(wave->frames, size / width);
            EXPECT_EQ(Load(*wave, bytes).size(), size / width);
        }
    }
}

TEST(RawRows, ChannelsFollowTheChoice)
{
    const std::vector<float> stereo{0.25f, 0.75f, -0.5f, 0.5f, 0, -1};
    constexpr std::uint32_t kPcm16 = 1u << 2;
    Collection collection;
    Waveform& wave = MakeWave(collection, stereo, 2);
    const auto interleaved = Bytes({0x20, 0x00, 0x60, 0x00, 0xC0, 0x00, 0x40, 0x00, 0x00, 0x00, 0x80, 0x00});
    EXPECT_EQ(WriteThrough(423, wave, kPcm16 | kCapsMono | kCapsStereo), interleaved);
    const auto mixed = Bytes({0x40, 0x00, 0x00, 0x00, 0xC0, 0x00});
    EXPECT_EQ(WriteThrough(423, wave, kPcm16 | kCapsMono), mixed);
    Waveform& mono = MakeWave(collection, std::vector<float>{0.5f}, 1);
    EXPECT_EQ(WriteThrough(423, mono, kPcm16 | kCapsStereo), Bytes({0x40, 0x00, 0x40, 0x00}));
}

std::vector<float> Ramp(std::size_t count)
{
    std::vector<float> samples(count);
    for (std::size_t i = 0; i < count; ++i)
        samples[i] = static_cast<float>(static_cast<int>(i * 37 % 2000) - 1000) / 1024.0f;
    return samples;
}

TEST(WriteSamples, IsTheInverseOfTheGenericImport)
{
    struct Case {
        DataFormat format;
        float tolerance;
    };
    const Case cases[] = {
        {DataFormat::Pcm8, 0x1p-8f},   {DataFormat::Pcm12, 0x1p-11f}, {DataFormat::Pcm16, 0x1p-16f},
        {DataFormat::Pcm20, 0x1p-19f}, {DataFormat::Pcm24, 0x1p-23f}, {DataFormat::Pcm32, 0x1p-23f},
        {DataFormat::Float32, 0.0f},   {DataFormat::Float64, 0.0f},   {DataFormat::MuLaw, 0x1p-5f},
        {DataFormat::ALaw, 0x1p-5f},   {DataFormat::Delta8, 0x1p-8f}, {DataFormat::Delta16, 0x1p-16f},
    };
    for (const Case& c : cases)
        for (std::uint32_t flags : {0u, kSourceBigEndian, kSourceUnsigned, kSourceSequentialStereo,
                                    kSourceSequentialStereo | kSourceBigEndian})
            for (std::size_t frames : {1u, 2u, 7u, 8193u, 20000u}) { // beyond one and two pieces
                const bool splitsByte = DataFormatBits(c.format) % 8 != 0 && frames % 2 != 0;
                if ((flags & kSourceSequentialStereo) != 0 && splitsByte)
                    continue; // no reader finds a plane that begins inside a byte
                SCOPED_TRACE(testing::Message()
                             << static_cast<int>(c.format) << " flags " << flags << " frames " << frames);
                Collection collection;
                const auto samples = Ramp(frames * 2);
                Waveform& wave = MakeWave(collection, samples, 2);
                MemoryFile file;
                const auto source = wave.OpenFrames();
                ASSERT_TRUE(WriteSamples(file, *source, c.format, flags));
                ASSERT_EQ(file.Size(), (std::uint64_t{DataFormatBits(c.format)} * frames * 2 + 7) / 8);
                Waveform& back = collection.Create<Waveform>(u"back");
                back.SetSourceFormat(c.format, flags);
                back.frames = wave.frames;
                back.channels = 2;
                const auto loaded = Load(back, file.Bytes());
                ASSERT_EQ(loaded.size(), samples.size());
                for (std::size_t i = 0; i < samples.size(); ++i)
                    ASSERT_NEAR(loaded[i], samples[i], c.tolerance) << i;
            }
}

TEST(WriteSamples, PlanesFollowEachOther)
{
    Collection collection;
    Waveform& wave = MakeWave(collection, std::vector<float>{0.25f, 0.5f, -0.25f, -0.5f, 0, 0.75f}, 2);
    MemoryFile file;
    const auto source = wave.OpenFrames();
    ASSERT_TRUE(WriteSamples(file, *source, DataFormat::Pcm8, kSourceSequentialStereo));
    const auto planes = Bytes({0x20, 0xE0, 0x00, 0x40, 0xC0, 0x60});
    EXPECT_TRUE(std::equal(planes.begin(), planes.end(), file.Bytes().begin(), file.Bytes().end()));
}

class FullDisk final : public FileObject {
public:
    bool IsOpen() const noexcept override { return true; }

protected:
    std::int64_t WriteAt(std::uint64_t, std::span<const std::byte>) noexcept override { return -1; }
};

TEST(RawRows, WriterRefusals)
{
    Collection collection;
    Waveform& wave = MakeWave(collection, std::vector<float>{0.5f}, 1);
    FormatChoice choice{Row(422).caps, Row(422).variant, 0};
    FullDisk full;
    EXPECT_FALSE(WriteRaw(wave, full, choice));
    EXPECT_EQ(LastError(), u"Writing to file failed");
    MemoryFile file;
    EXPECT_FALSE(WriteRaw(collection, file, choice));
    EXPECT_EQ(LastError(), u"The file format can not save this item");
    choice.caps = FormatBit(DataFormat::Adpcm4) | kCapsMono;
    EXPECT_FALSE(WriteRaw(wave, file, choice));
    EXPECT_EQ(LastError(), u"Invalid format for generic import function!");
    EXPECT_EQ(file.Size(), 0u);
}

/// Answers questions in turn and keeps them.
class ScriptedHost final : public Host {
public:
    std::size_t Ask(const Question& question) override
    {
        asked.push_back(question);
        return answer;
    }
    std::size_t answer = 0;
    std::vector<Question> asked;
};

std::size_t WavesAfterImport(Host& host)
{
    Collection collection;
    collection.SetHost(host);
    MemoryFile file(Bytes({0x80, 0x00, 0x7F}), u"/disk/unknown.xyz");
    EXPECT_TRUE(ReadUnrecognized(collection, file, 0)) << "also when nothing is loaded";
    return collection.CountOf(ItemKind::Waveform);
}

TEST(UnrecognizedImport, AnswersDecideAndTheAllwaysOnesHold)
{
    struct Case {
        std::size_t answer;
        std::size_t waves;
        std::size_t questions; ///< for two files
    };
    for (const Case& c : {Case{0, 1, 2}, Case{1, 1, 1}, Case{2, 0, 2}, Case{3, 0, 1}, Case{9, 0, 2}}) {
        ScriptedHost host;
        host.answer = c.answer;
        EXPECT_EQ(WavesAfterImport(host), c.waves) << c.answer;
        EXPECT_EQ(WavesAfterImport(host), c.waves) << c.answer;
        EXPECT_EQ(host.asked.size(), c.questions) << c.answer;
    }
    EXPECT_EQ(WavesAfterImport(SilentHost()), 0u) << "a host that cannot ask loads nothing";
}

TEST(UnrecognizedImport, QuestionAndResult)
{
    ScriptedHost host;
    Collection collection;
    collection.SetHost(host);
    const auto bytes = Bytes({0x80, 0x00, 0x40});
    Waveform* wave = ReadThrough(0, collection, bytes);
    ASSERT_NE(wave, nullptr);
    EXPECT_EQ(wave->rateHz, 44100u);
    EXPECT_EQ(wave->frames, 3u);
    EXPECT_EQ(wave->SourceFormat(), DataFormat::Pcm8);
    EXPECT_EQ(Load(*wave, bytes), (std::vector<float>{-1, 0, 0.5f}));
    ASSERT_EQ(host.asked.size(), 1u);
    const Question& question = host.asked[0];
    EXPECT_EQ(question.key, "raw-import");
    EXPECT_EQ(question.title, u"kick.bin");
    EXPECT_EQ(question.buttons,
              (std::vector<std::u16string>{u"OK", u"Allways OK", u"Cancel", u"Allways Cancel"}));
    EXPECT_EQ(question.defaultButton, 2u);
    EXPECT_EQ(
        question.text,
        u"The selected file can not be detected as any of the supported import types. Select OK to read it "
        u"as raw "
        u"data...\n\nYou'll need to adjust the data format on the 'Source' tab of the waveform properties.");
}

} // namespace
} // namespace vimbo
