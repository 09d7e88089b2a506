// Samples of every plain encoding, from files: loaded whole, read in pieces, and refused where they are
// damaged.
#include "base/last_error.h"
#include "dsp/kernels/sample_convert.h"
#include "model/waveform.h"
#include "model_builders.h"
#include "test_files.h"

#include <cmath>
#include <functional>

namespace vimbo {
namespace {

using testing::Bytes;
using testing::MakeBytes;

/// A collection with one waveform whose bytes lie behind five others in a file.
class SourceFile {
public:
    static constexpr std::uint64_t kOffset = 5;

    explicit SourceFile(const Bytes& data) : wave(items.Create<Waveform>(u"tone"))
    {
        Bytes bytes(kOffset, std::byte{0xEE});
        bytes.insert(bytes.end(), data.begin(), data.end());
        wave.SetText(kTextSourcePath, folder.Put("tone.bin", bytes));
        wave.sourceOffset = kOffset;
    }

    void Describe(DataFormat format, std::uint32_t flags, std::uint32_t frames, unsigned channels)
    {
        wave.SetSourceFormat(format, flags);
        wave.frames = frames;
        wave.channels = static_cast<std::uint8_t>(channels);
    }

    std::vector<float> Loaded()
    {
        wave.FreeSamples();
        const std::span<float> samples = wave.LockSamples();
        return {samples.begin(), samples.end()};
    }

    testing::ScratchFolder folder;
    Collection items;
    Waveform& wave;
};

TEST(GenericImport, KnownBytes)
{
    struct Row {
        const char* name;
        DataFormat format;
        std::uint32_t flags;
        unsigned channels;
        Bytes bytes;
        std::vector<float> samples;
    };
    const std::uint32_t planes = kSourceSequentialStereo;
    const std::vector<Row> rows = {
        {"signed bytes", DataFormat::Pcm8, 0, 1, MakeBytes({0x40, 0x80}), {0.5f, -1}},
        {"unsigned bytes", DataFormat::Pcm8, kSourceUnsigned, 1, MakeBytes({0xC0, 0x00}), {0.5f, -1}},
        {"16 bits", DataFormat::Pcm16, 0, 2, MakeBytes({0, 0x40, 0, 0xC0}), {0.5f, -0.5f}},
        {"16 bits big", DataFormat::Pcm16, kSourceBigEndian, 1, MakeBytes({0x40, 0, 0xC0, 0}), {0.5f, -0.5f}},
        {"12 bits", DataFormat::Pcm12, 0, 1, MakeBytes({0x00, 0x04, 0xC0, 0x00, 0x08}), {0.5f, -0.5f, -1}},
        {"12 bits big", DataFormat::Pcm12, kSourceBigEndian, 1, MakeBytes({0x40, 0x0C, 0x00}), {0.5f, -0.5f}},
        {"20 bits", DataFormat::Pcm20, 0, 2, MakeBytes({0x00, 0x00, 0x04, 0x00, 0xC0}), {0.5f, -0.5f}},
        {"24 bits", DataFormat::Pcm24, 0, 1, MakeBytes({0, 0, 0x40}), {0.5f}},
        {"32 bits big", DataFormat::Pcm32, kSourceBigEndian, 1, MakeBytes({0xC0, 0, 0, 0}), {-0.5f}},
        {"floats", DataFormat::Float32, 0, 1, MakeBytes({0, 0, 0, 0x3F}), {0.5f}},
        {"doubles", DataFormat::Float64, 0, 1, MakeBytes({0, 0, 0, 0, 0, 0, 0xE0, 0x3F}), {0.5f}},
        {"mu-law", DataFormat::MuLaw, 0, 1, MakeBytes({0x80}), {32124 / 32768.0f}},
        {"a-law", DataFormat::ALaw, 0, 1, MakeBytes({0x2A}), {-32256 / 32768.0f}},
        {"differences", DataFormat::Delta8, 0, 1, MakeBytes({0x40, 0x40, 0x40}), {0.5f, -1, -0.5f}},
        {"byte planes",
         DataFormat::Pcm8,
         planes,
         2,
         MakeBytes({0x40, 0x20, 0xC0, 0xE0}),
         {0.5f, -0.5f, 0.25f, -0.25f}},
        {"float planes",
         DataFormat::Float32,
         planes,
         2,
         MakeBytes({0, 0, 0, 0x3F, 0, 0, 0x80, 0xBF}),
         {0.5f, -1}},
        {"difference planes",
         DataFormat::Delta8,
         planes,
         2,
         MakeBytes({0x40, 0, 0x20, 0}),
         {0.5f, 0.25f, 0.5f, 0.25f}},
        {"mono says nothing of planes", DataFormat::Pcm8, planes, 1, MakeBytes({0x40, 0x20}), {0.5f, 0.25f}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        SourceFile source(row.bytes);
        const std::size_t frames = row.samples.size() / row.channels;
        source.Describe(row.format, row.flags, static_cast<std::uint32_t>(frames), row.channels);
        EXPECT_EQ(source.Loaded(), row.samples);
    }
}

TEST(GenericImport, SecondPlaneMayLieAnywhere)
{
    // Right plane ahead of the left one; then planes of three 12-bit frames, whose odd total is rounded down.
    SourceFile source(MakeBytes({0xC0, 0xE0, 1, 1, 0x40, 0x20}));
    source.Describe(DataFormat::Pcm8, kSourceSequentialStereo, 2, 2);
    source.wave.secondOffset = SourceFile::kOffset;
    source.wave.sourceOffset = SourceFile::kOffset + 4;
    EXPECT_EQ(source.Loaded(), (std::vector<float>{0.5f, -0.5f, 0.25f, -0.25f}));

    SourceFile packed(MakeBytes({0x40, 0x02, 0x00, 0xFF, 0xC0, 0x0E, 0x00, 0xFF}));
    packed.Describe(DataFormat::Pcm12, kSourceSequentialStereo | kSourceBigEndian, 3, 2);
    EXPECT_EQ(packed.Loaded(), (std::vector<float>{0.5f, -0.5f, 0.25f, -0.25f, 0, 0}));
}

/// Noise that any encoding can be read from; floats in both byte orders are numbers.
Bytes Noise(std::size_t count)
{
    Bytes bytes(count);
    std::uint32_t state = 1;
    for (std::size_t i = 0; i < count; ++i) {
        state = state * 1664525 + 1013904223;
        bytes[i] = static_cast<std::byte>(i % 4 == 3 || i % 4 == 0 ? 0x3E : state >> 24);
    }
    return bytes;
}

TEST(GenericImport, PiecesEqualTheWholeFromAnyPlace)
{
    constexpr std::uint32_t kFrames = 20001; // more than one piece, an odd number
    SourceFile source(Noise(std::size_t{kFrames} * 2 * 8));
    const auto formats = {DataFormat::Pcm8,  DataFormat::Pcm12, DataFormat::Pcm16,   DataFormat::Pcm20,
                          DataFormat::Pcm24, DataFormat::Pcm32, DataFormat::Float32, DataFormat::Float64,
                          DataFormat::MuLaw, DataFormat::ALaw,  DataFormat::Delta8,  DataFormat::Delta16};
    for (const DataFormat format : formats)
        for (unsigned channels : {1u, 2u})
            for (std::uint32_t flags : {0u, kSourceBigEndian, kSourceSequentialStereo}) {
                SCOPED_TRACE(::testing::Message()
                             << static_cast<int>(format) << " " << channels << " " << flags);
                source.Describe(format, flags, kFrames, channels);
                const std::vector<float> whole = source.Loaded();
                ASSERT_EQ(whole.size(), kFrames * channels);
                source.wave.FreeSamples();
                const std::unique_ptr<FrameSource> frames = source.wave.OpenFrames();
                ASSERT_NE(frames, nullptr);
                EXPECT_FALSE(source.wave.HasBlock());
                // Onwards, back, over a gap, and the odd frames of packed pairs.
                const std::vector<std::pair<std::uint32_t, std::uint32_t>> reads = {
                    {0, 10}, {10, 17000}, {3, 4}, {16383, 3}, {kFrames - 1, 1}, {7, 1}, {0, kFrames}};
                for (const auto& [first, count] : reads) {
                    std::vector<float> out(count * channels);
                    ASSERT_TRUE(frames->Read(first, out));
                    EXPECT_TRUE(std::equal(out.begin(), out.end(),
                                           whole.begin() + static_cast<std::ptrdiff_t>(first * channels)))
                        << first;
                }
                // Stored samples are those bytes that the floats become, however they come.
                const bool isBig = (flags & kSourceBigEndian) != 0;
                for (const SampleLayout layout :
                     {SampleLayout{SampleCoding::Pcm8, true}, SampleLayout{SampleCoding::Pcm8},
                      SampleLayout{SampleCoding::Pcm16}, SampleLayout{SampleCoding::Pcm24},
                      SampleLayout{SampleCoding::Pcm16, false, std::endian::big},
                      SampleLayout{SampleCoding::Pcm24, false, std::endian::big},
                      SampleLayout{SampleCoding::Pcm32, false,
                                   isBig ? std::endian::big : std::endian::little},
                      SampleLayout{SampleCoding::Float32}, SampleLayout{SampleCoding::MuLaw}}) {
                    constexpr std::uint32_t kFirst = 7;
                    const auto wanted = std::span(whole).subspan(kFirst * channels);
                    Bytes stored(StoredBytes(layout.coding, wanted.size())), encoded(stored.size());
                    DeltaState none;
                    EncodeSamples(layout, wanted, encoded, none);
                    ASSERT_TRUE(frames->ReadStored(layout, kFirst, stored));
                    EXPECT_EQ(stored, encoded) << static_cast<int>(layout.coding);
                }
            }
}

TEST(GenericImport, Refusals)
{
    struct Row {
        const char* name;
        std::function<void(Waveform&)> damage;
        std::u16string_view error;
    };
    const std::vector<Row> rows = {
        {"frames", [](Waveform& wave) { wave.frames = 0; }, u"Zero length"},
        {"no channels", [](Waveform& wave) { wave.channels = 0; }, u"No channels"},
        {"channels", [](Waveform& wave) { wave.channels = 3; }, u"Too many channels"},
        {"coder", [](Waveform& wave) { wave.sourceWord = FormatBit(DataFormat::Adpcm4); },
         u"Invalid format for generic import function!"},
        {"no format", [](Waveform& wave) { wave.sourceWord = kSourceBigEndian; },
         u"Invalid format for generic import function!"},
        {"one frame too many", [](Waveform& wave) { ++wave.frames; }, u"Reading from file failed"},
        {"length", [](Waveform& wave) { wave.frames = 0xFFFFFFFF; }, u"Reading from file failed"},
        {"offset", [](Waveform& wave) { wave.sourceOffset = std::uint64_t{1} << 62; },
         u"Reading from file failed"},
        {"second plane",
         [](Waveform& wave) {
             wave.sourceWord |= kSourceSequentialStereo;
             wave.secondOffset = SourceFile::kOffset + 5;
         },
         u"Reading from file failed"},
        {"second plane far away",
         [](Waveform& wave) {
             wave.sourceWord |= kSourceSequentialStereo;
             wave.secondOffset = ~std::uint64_t{0};
         },
         u"Reading from file failed"},
        {"generated", [](Waveform& wave) { wave.SetText(kTextSourcePath, u"<Clipboard>"); },
         u"Reading from file failed"},
        {"no file", [](Waveform& wave) { wave.SetText(kTextSourcePath, u"/nowhere/at all"); },
         u"Could not open file"},
        {"no procedure", [](Waveform& wave) { wave.importProc = nullptr; }, u"No wave data import procedure"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        SourceFile source(Bytes(8, std::byte{0x40}));
        source.Describe(DataFormat::Pcm16, 0, 2, 2);
        ASSERT_EQ(source.Loaded().size(), 4u);
        source.wave.FreeSamples();
        row.damage(source.wave);
        ClearLastError();
        EXPECT_FALSE(source.wave.EnsureData());
        EXPECT_EQ(LastError(), row.error);
        EXPECT_FALSE(source.wave.HasBlock());
        if (source.wave.importProc == nullptr)
            continue;
        ClearLastError();
        EXPECT_EQ(source.wave.OpenFrames(), nullptr);
        EXPECT_EQ(LastError(), row.error);
    }
}

TEST(GenericImport, ReadsAgainAfterAFailureAndTellsWhatItReads)
{
    SourceFile source(MakeBytes({0x40}));
    RecordingHost host;
    source.items.SetHost(host);
    source.Describe(DataFormat::Pcm8, 0, 2, 1);
    EXPECT_TRUE(source.Loaded().empty());
    EXPECT_TRUE(source.wave.HasGenericImport());
    source.wave.frames = 1;
    EXPECT_EQ(source.Loaded(), std::vector<float>{0.5f});
    EXPECT_EQ(host.progress, (std::vector<std::u16string>{u"Reading: tone", u"", u"Reading: tone", u""}));
}

TEST(FrameSource, ChannelsAreConverted)
{
    SourceFile source(Noise(4 * 20001));
    source.Describe(DataFormat::Pcm16, 0, 20001, 2);
    const std::vector<float> stereo = source.Loaded();
    const std::unique_ptr<FrameSource> mono = WithChannels(source.wave.OpenFrames(), 1);
    ASSERT_NE(mono, nullptr);
    std::vector<float> out(19000);
    ASSERT_TRUE(mono->Read(1001, out));
    EXPECT_EQ(out[18999], (stereo[40000] + stereo[40001]) / 2);
    EXPECT_EQ(mono->Frames(), 20001u);

    source.Describe(DataFormat::Pcm16, 0, 20001, 1);
    const float last = source.Loaded()[20000];
    const std::unique_ptr<FrameSource> doubled = WithChannels(source.wave.OpenFrames(), 2);
    ASSERT_NE(doubled, nullptr);
    std::vector<float> pair(2);
    ASSERT_TRUE(doubled->Read(20000, pair));
    EXPECT_EQ(pair, (std::vector<float>{last, last}));
    EXPECT_EQ(WithChannels(source.wave.OpenFrames(), 3), nullptr);
}

} // namespace
} // namespace vimbo
