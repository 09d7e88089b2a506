#include "formats/wave/wave.h"

#include "base/last_error.h"
#include "formats/wave/wave_units.h"
#include "model/instrument.h"
#include "wave_bytes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <numeric>

namespace vimbo {
namespace {

constexpr std::uint32_t kWavCaps = 0x327F75; // every data format of the wav row, mono and stereo

Waveform& Add(Collection& collection, unsigned channels, std::uint32_t rateHz, std::vector<float> samples)
{
    auto& wave = collection.Create<Waveform>(u"A");
    wave.channels = static_cast<std::uint8_t>(channels);
    wave.rateHz = rateHz;
    wave.frames = static_cast<std::uint32_t>(samples.size() / channels);
    if (!samples.empty())
        std::ranges::copy(samples, wave.AllocateSamples().begin());
    return wave;
}

ByteList Written(Waveform& wave, DataFormat format, std::uint32_t variant = kWaveVariantPlain)
{
    MemoryFile file;
    FormatChoice choice{.caps = FormatBit(format) | kCapsMono | kCapsStereo, .variant = variant};
    if (!WriteWave(wave, file, choice))
        return {};
    return {file.Bytes().begin(), file.Bytes().end()};
}

TEST(WaveWrite, SmallestFileWithPadByte)
{
    Collection collection;
    Waveform& wave = Add(collection, 1, 8000, {0.5f, -0.5f, 0});
    EXPECT_EQ(Written(wave, DataFormat::Pcm8),
              Spell("'RIFF' 86000000 'WAVE'"
                    "'fmt ' 10000000 0100 0100 401F0000 401F0000 0100 0800"
                    "'data' 04000000 C0 40 80 80"
                    "'LIST' 2A000000 'INFO' 'INAM' 02000000 'A' 00 'ISFT' 14000000 'Vimbo Studio v12.7' 0000"
                    "'smpl' 24000000 00000000 00000000 48E80100 3C000000 00000000 00000000 00000000 00000000 "
                    "00000000"));
}

/// Everything that a file can hold: texts, tuning, a loop with a fraction, markers of each kind.
Waveform& AddFull(Collection& collection)
{
    Waveform& wave = Add(collection, 2, 44100, {0, 0.5f, -1, 1, 0.25f, -0.25f});
    wave.SetName(u"T\u00C4");
    wave.SetText(kTextArtist, u"Ann");
    wave.SetText(kTextProduct, u"CD");
    wave.fineTune = 30;
    wave.loop.type = LoopType::Alternating;
    wave.loop.start = 1;
    wave.loop.end = 2.75;
    wave.loop.pitch = -0.25f;
    wave.loop.breakOnRelease = true;
    wave.markers = {Marker{.position = 1, .name = u"Odd"}, Marker{.position = 2, .name = u""},
                    Marker{.isRange = true, .position = 0, .end = 2, .name = u"Even"}};
    return wave;
}

const ByteList kFullData = Spell("'data' 0C000000 0000 0040 0080 FF7F 0020 00E0");
// 30 cents up is written as one key down and 70 cents of upward detune; 1.75 frames end at frame 1, and 3/4.
const ByteList kFullSmpl =
    Spell("'smpl' 3C000000 00000000 00000000 94580000 3B000000 333333B3 00000000 00000000"
          "  01000000 00000000"
          "  00000000 01000000 01000000 01000000 000000C0 00000000");

TEST(WaveWrite, TextsMarkersLoopAndTuning)
{
    Collection collection;
    const ByteList expected = Join({Spell("'RIFF' 5E010000 'WAVE'"
                                          "'fmt ' 10000000 0100 0200 44AC0000 10B10200 0400 1000"),
                                    kFullData,
                                    Spell("'LIST' 44000000 'INFO'"
                                          "  'INAM' 04000000 'T' C4 0000"
                                          "  'ISFT' 14000000 'Vimbo Studio v12.7' 0000"
                                          "  'IART' 04000000 'Ann' 00"
                                          "  'IPRD' 04000000 'CD' 0000"
                                          "'cue ' 4C000000 03000000"
                                          "  00000000 00000000 'data' 00000000 00000000 01000000"
                                          "  01000000 01000000 'data' 00000000 00000000 02000000"
                                          "  02000000 02000000 'data' 00000000 00000000 00000000"
                                          "'LIST' 42000000 'adtl'"
                                          "  'labl' 08000000 00000000 'Odd' 00"
                                          "  'labl' 09000000 02000000 'Even' 00 00"
                                          "  'ltxt' 14000000 02000000 02000000 'rgn ' 0000 0000 0000 0000"),
                                    kFullSmpl});
    EXPECT_EQ(Written(AddFull(collection), DataFormat::Pcm16), expected);
}

TEST(WaveWrite, Variants)
{
    Collection collection;
    Waveform& wave = AddFull(collection);
    const ByteList fmt = Spell("'fmt ' 10000000 0100 0200 44AC0000 10B10200 0400 1000");
    EXPECT_EQ(Written(wave, DataFormat::Pcm16, kWaveVariantSmplFirst),
              Join({Spell("'RIFF' 74000000 'WAVE'"), fmt, kFullSmpl, kFullData}));

    wave.markers.clear();
    for (const std::uint16_t text : {kTextArtist, kTextProduct})
        wave.SetText(text, u"");
    const ByteList creamware =
        Join({Spell("'RIFF' A8000000 'WAVE'"), fmt, kFullData,
              Spell("'LIST' 10000000 'INFO' 'INAM' 04000000 'T' C4 0000"),
              Spell("'smpl' 58000000 00000000 00000000 00000000 3B000000 333333B3 00000000 00000000 01000000 "
                    "1C000000"
                    "  00000000 01000000 01000000 02000000 000000C0 00000000"
                    "  'CWDT' E7 1BDA08 01000000 00000000 03000000 00000000 3C000000")});
    EXPECT_EQ(Written(wave, DataFormat::Pcm16, kWaveVariantCreamware), creamware);
    wave.loop = {};
    wave.loop.end = 3;
    const ByteList unlooped = Written(wave, DataFormat::Pcm16, kWaveVariantCreamware);
    EXPECT_EQ(unlooped.size(), creamware.size());
    EXPECT_EQ(ByteList(unlooped.end() - 52, unlooped.end()),
              Spell("00000000 00000000 00000000 02000000 00000000 00000000"
                    "'CWDT' 00 1BDA08 02000000 00000000 03000000 00000000 3C000000"));

    Waveform& mono = Add(collection, 1, 8000, {1.5f});
    const ByteList extensible = Written(mono, DataFormat::Float32, kWaveVariantExtensible);
    ASSERT_GT(extensible.size(), 84u);
    EXPECT_EQ(ByteList(extensible.begin() + 12, extensible.begin() + 84),
              Spell("'fmt ' 28000000 FEFF 0100 401F0000 007D0000 0400 2000 1600 2000 04000000"
                    "  03000000 0000 1000 800000AA00389B71"
                    "'fact' 04000000 01000000 'data' 04000000 0000C03F"));
}

TEST(WaveWrite, HeadsOfEachCoding)
{
    Collection collection;
    Waveform& wave = Add(collection, 2, 8000, {0.5f, -0.5f});
    const struct {
        DataFormat format;
        const char* bytes;
    } cases[] = {
        {DataFormat::Pcm24,
         "'fmt ' 10000000 0100 0200 401F0000 80BB0000 0600 1800 'data' 06000000 000040 0000C0"},
        {DataFormat::Pcm32,
         "'fmt ' 10000000 0100 0200 401F0000 00FA0000 0800 2000 'data' 08000000 00000040 000000C0"},
        {DataFormat::Float32, "'fmt ' 10000000 0300 0200 401F0000 00FA0000 0800 2000 'fact' 04000000 01000000"
                              "'data' 08000000 0000003F 000000BF"},
        {DataFormat::MuLaw,
         "'fmt ' 12000000 0700 0200 401F0000 803E0000 0200 0800 0000 'fact' 04000000 01000000"
         "'data' 02000000 8F 0F"},
        {DataFormat::ALaw,
         "'fmt ' 12000000 0600 0200 401F0000 803E0000 0200 0800 0000 'fact' 04000000 01000000"
         "'data' 02000000 A5 25"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.bytes);
        const ByteList expected = Spell(c.bytes);
        const ByteList written = Written(wave, c.format);
        ASSERT_GE(written.size(), 12 + expected.size());
        EXPECT_EQ(ByteList(written.begin() + 12,
                           written.begin() + 12 + static_cast<std::ptrdiff_t>(expected.size())),
                  expected);
    }
}

TEST(WaveWrite, ReadsBackWhatItWrote)
{
    Collection collection;
    Waveform& wave = AddFull(collection);
    for (const auto& [start, end] : {std::pair{0.0, 0.3}, {0.5, 2.0}, {1.25, 2.9}, {0.0, 3.0}}) {
        for (const int cents : {-100, -99, -1, 0, 1, 100}) {
            wave.fineTune = static_cast<std::int8_t>(cents);
            wave.loop.start = start;
            wave.loop.end = end;
            MemoryFile file(Written(wave, DataFormat::Pcm16));
            Collection again;
            ASSERT_TRUE(ReadWave(again, file, 0));
            Waveform& back = *again.List<Waveform>().front();
            EXPECT_EQ(back.rootKey * 100 - back.fineTune, wave.rootKey * 100 - cents);
            EXPECT_EQ(back.loop.type, wave.loop.type);
            EXPECT_EQ(back.loop.start, std::floor(start + 0.5));
            if (end - start >= 0.5) { // less has no last frame to name
                EXPECT_NEAR(back.loop.end - back.loop.start, end - start, 1e-9);
            }
            ASSERT_EQ(back.markers.size(), wave.markers.size());
            for (std::size_t i = 0; i < wave.markers.size(); ++i)
                EXPECT_TRUE(back.markers[i].SameAs(wave.markers[i]));
            EXPECT_EQ(back.GetText(kTextArtist), u"Ann");
        }
    }
}

TEST(WaveWrite, EmptyWaveformAndLongLabels)
{
    Collection collection;
    Waveform& wave = Add(collection, 1, 8000, {});
    wave.markers = {Marker{.name = std::u16string(300, u'x')}};
    const ByteList written = Written(wave, DataFormat::Pcm16);
    MemoryFile file(written);
    Collection again;
    ASSERT_TRUE(ReadWave(again, file, 0));
    EXPECT_EQ(again.List<Waveform>().front()->frames, 0u);
    EXPECT_EQ(again.List<Waveform>().front()->markers[0].name, std::u16string(256, u'x'));
}

TEST(WaveUnits, DlsSampleRecord)
{
    DlsSample sample;
    sample.tuning = {.rootKey = 62, .cents = -10};
    sample.gainDb = -6;
    sample.loop = {.type = LoopType::Forward, .breakOnRelease = true, .start = 5, .end = 12};
    WsmpHead head;
    WsmpLoop loop;
    SampleToWsmp(sample, head, loop);
    const auto bytes = [](const auto& record) {
        const auto span = std::as_bytes(std::span(&record, 1));
        return ByteList(span.begin(), span.end());
    };
    EXPECT_EQ(bytes(head), Spell("14000000 3E00 F6FF 0000C4FF 00000000 01000000"));
    EXPECT_EQ(bytes(loop), Spell("10000000 01000000 05000000 07000000"));
    const DlsSample back = SampleFromWsmp(head, &loop);
    EXPECT_EQ(back.tuning, sample.tuning);
    EXPECT_EQ(back.gainDb, sample.gainDb);
    EXPECT_EQ(back.loop, sample.loop);
    sample.loop.type = LoopType::Off;
    SampleToWsmp(sample, head, loop);
    EXPECT_EQ(head.loopCount.Get(), 0u);
}

/// Fails once `room` bytes are written.
class FullDisk final : public FileObject {
public:
    explicit FullDisk(std::uint64_t room) noexcept : room_(room) {}
    bool IsOpen() const noexcept override { return true; }
    std::uint64_t Size() const noexcept override { return 0; }

protected:
    std::int64_t WriteAt(std::uint64_t offset, std::span<const std::byte> bytes) noexcept override
    {
        return offset + bytes.size() > room_ ? -1 : static_cast<std::int64_t>(bytes.size());
    }

private:
    std::uint64_t room_;
};

TEST(WaveWrite, CodedFormatsSayWhatTheyHold)
{
    const struct {
        DataFormat format;
        const char* fmt; ///< the chunk from its tag on
        std::uint32_t fact;
        std::size_t dataBytes;
    } cases[] = {
        {DataFormat::Gsm, "3100 0100 401F0000 59060000 4100 0000 0200 4001", 640, 130},
        {DataFormat::Adpcm2, "6400 0100 401F0000 D0070000 2000 0200", 401, 102},
        {DataFormat::Adpcm3, "1400 0100 401F0000 B80B0000 3000 0300 0200 0000", 401, 152},
        {DataFormat::Adpcm4, "4000 0100 401F0000 A00F0000 4000 0400 0200 0000", 401, 202},
        {DataFormat::Adpcm5, "1400 0100 401F0000 88130000 5000 0500 0200 0000", 401, 252},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(static_cast<int>(c.format));
        Collection collection;
        Waveform& wave = collection.Create<Waveform>(u"coded");
        wave.rateHz = 8000;
        wave.channels = 2; // mixed down
        wave.frames = 401;
        ASSERT_FALSE(wave.LockSamplesForWrite().empty());
        std::ranges::fill(wave.LockSamplesForWrite(), 0.0f);
        const ByteList bytes = Written(wave, c.format);
        const ByteList head = Join({Chunk("fmt ", Spell(c.fmt)), Chunk("fact", Word(c.fact))});
        ASSERT_GT(bytes.size(), 12 + head.size());
        EXPECT_TRUE(std::equal(head.begin(), head.end(), bytes.begin() + 12));
        Opened read(bytes);
        ASSERT_TRUE(read.isRead);
        EXPECT_EQ(read.wave->sourceBytes, c.dataBytes);
        EXPECT_EQ(read.wave->frames, c.fact);
        EXPECT_EQ(LoadFrom(*read.wave, read.file).size(), c.fact);
    }
}

TEST(WaveWrite, CompressedWavesComeBackFrameByFrame)
{
    Collection collection;
    std::vector<float> tone(2 * 30001);
    for (std::size_t i = 0; i < tone.size(); ++i)
        tone[i] = static_cast<float>(
            0.4 * std::sin(0.03 * static_cast<double>(i / 2) + static_cast<double>(i % 2)));
    Waveform& wave = Add(collection, 2, 44100, tone);
    wave.loop = {.type = LoopType::Forward, .start = 5000, .end = 29000};
    wave.saveFormat = BitrateToSaveFormat(192);
    const ByteList bytes = Written(wave, DataFormat::Compressed);
    // 627 bytes a frame; 1152 frames of sound, told in the last word as 1104
    const ByteList head =
        Join({Chunk("fmt ", Spell("5500 0200 44AC0000 C05D0000 0100 0000 0C00 0100 00000000 7302 0100 5004")),
              Chunk("fact", Word(30001))});
    ASSERT_GT(bytes.size(), 12 + head.size());
    EXPECT_TRUE(std::equal(head.begin(), head.end(), bytes.begin() + 12));
    const std::size_t perSecond = 24000;
    EXPECT_NEAR(static_cast<double>(bytes.size()), 30001.0 / 44100 * perSecond, 3000);
    Opened read(bytes);
    ASSERT_TRUE(read.isRead);
    EXPECT_EQ(read.wave->frames, 30001u);
    EXPECT_EQ(read.wave->saveFormat, BitrateToSaveFormat(192));
    EXPECT_EQ(read.wave->loop.end, 29000);
    const auto loaded = LoadFrom(*read.wave, read.file);
    ASSERT_EQ(loaded.size(), tone.size());
    const auto difference = [&](std::size_t shift) { // its ends are steps
        return std::inner_product(loaded.begin() + 4000, loaded.end() - 4000,
                                  tone.begin() + 3998 + static_cast<std::ptrdiff_t>(shift), 0.0,
                                  std::plus<>(), [](float a, float b) { return std::abs(a - b); });
    };
    EXPECT_LT(difference(2) / static_cast<double>(loaded.size()), 0.01);
    EXPECT_LT(difference(2), difference(0) * 0.9) << "one frame late";
    EXPECT_LT(difference(2), difference(4) * 0.9) << "one frame early";
    // The same in pieces, from the end to the start.
    Opened again(bytes);
    const auto source = again.wave->importProc->stream(*again.wave, std::make_unique<MemoryFile>(bytes));
    ASSERT_NE(source, nullptr);
    std::vector<float> pieces(tone.size());
    for (std::uint32_t first = 30000; first <= 30000; first -= 2500) {
        const std::size_t frames = std::min<std::size_t>(2500, 30001 - first);
        ASSERT_TRUE(source->Read(first, std::span(pieces).subspan(2 * std::size_t{first}, 2 * frames)));
    }
    EXPECT_TRUE(std::ranges::equal(pieces, loaded));
}

TEST(WaveWrite, BitRatesOfCompressedWaves)
{
    const struct {
        std::uint32_t rateHz;
        float wanted;
        SaveFormat save;
        std::uint16_t kbit;
    } cases[] = {
        {44100, 0, SaveFormat::Pcm16, 256},
        {44100, 64, SaveFormat::Pcm16, 64},
        {44100, 0, BitrateToSaveFormat(128), 128},
        {22050, 320, SaveFormat::Pcm16, 160}, // the highest of MPEG 2
        {8000, 320, SaveFormat::Pcm16, 64},   // and of MPEG 2.5 in LAME
    };
    for (const auto& c : cases) {
        Collection collection;
        Waveform& wave = Add(collection, 1, c.rateHz, std::vector<float>(5000, 0.1f));
        wave.saveFormat = c.save;
        MemoryFile file;
        FormatChoice choice{.caps = FormatBit(DataFormat::Compressed) | kCapsMono, .kbit = c.wanted};
        ASSERT_TRUE(WriteWave(wave, file, choice));
        const std::span<const std::byte> average = file.Bytes().subspan(28, 4);
        const unsigned bytes = std::to_integer<unsigned>(average[0]) | std::to_integer<unsigned>(average[1])
                                                                           << 8;
        EXPECT_EQ(bytes * 8 / 1000, c.kbit) << c.rateHz << " Hz";
    }
    Collection collection;
    Waveform& wave = Add(collection, 1, 96000, std::vector<float>(50));
    MemoryFile file;
    FormatChoice choice{.caps = FormatBit(DataFormat::Compressed) | kCapsMono};
    EXPECT_FALSE(WriteWave(wave, file, choice));
    EXPECT_EQ(LastError(),
              u"The format wants 48000 Hz, and the waveform has 96000 Hz. Resampling on saving is not "
              u"possible yet");
}

TEST(WaveWrite, Refusals)
{
    Collection collection;
    Waveform& wave = AddFull(collection);
    const struct {
        std::uint32_t caps, variant;
        const char16_t* words;
    } cases[] = {
        {FormatBit(DataFormat::Pcm12), kWaveVariantPlain, u"Unsupported subformat"},
        {FormatBit(DataFormat::MuLaw), kWaveVariantExtensible, u"Unsupported subformat"},
        {FormatBit(DataFormat::Compressed), kWaveVariantExtensible, u"Unsupported subformat"},
        {FormatBit(DataFormat::Adpcm4), kWaveVariantExtensible, u"Unsupported subformat"},
    };
    for (const auto& c : cases) {
        MemoryFile file;
        FormatChoice choice{.caps = c.caps | kCapsMono | kCapsStereo, .variant = c.variant};
        EXPECT_FALSE(WriteWave(wave, file, choice));
        EXPECT_EQ(LastError(), c.words);
        EXPECT_TRUE(file.Bytes().empty());
    }
    FormatChoice choice{.caps = kWavCaps};
    MemoryFile file;
    EXPECT_FALSE(WriteWave(collection.Create<Instrument>(u"I"), file, choice));
    EXPECT_EQ(LastError(), u"The file format can not save this item");
    wave.saveFormat = SaveFormat::Pcm16;
    const std::size_t whole = Written(wave, DataFormat::Pcm16).size();
    for (const std::uint64_t room : {std::size_t{0}, std::size_t{20}, std::size_t{50}, whole - 1}) {
        ClearLastError();
        FullDisk disk(room);
        EXPECT_FALSE(WriteWave(wave, disk, choice));
        EXPECT_EQ(LastError(), u"Couldn't write to file!");
    }
    FullDisk disk(whole);
    EXPECT_TRUE(WriteWave(wave, disk, choice));
}

TEST(WaveWrite, SubFormatsAreLayerThreeRates)
{
    std::u16string name;
    EXPECT_EQ(WaveSubFormats(0, 0, &name), 32.0f);
    EXPECT_EQ(name, u"32 kbit/s");
    float last = 0;
    std::uint32_t count = 0;
    while (WaveSubFormats(count, 0, nullptr) > last)
        last = WaveSubFormats(count++, 0, nullptr);
    EXPECT_EQ(last, 320.0f);
    EXPECT_EQ(WaveSubFormats(count, 0, &name), 0.0f);
}

/// Silence without end, and a file that keeps nothing but its first and last bytes.
class Silence final : public FrameSource {
public:
    explicit Silence(const Waveform& wave) noexcept : FrameSource(wave.frames, wave.channels) {}
    bool Read(std::uint32_t /*first*/, std::span<float> out) override
    {
        std::ranges::fill(out, 0.0f);
        return true;
    }
};

const ImportProcedure kSilence{
    99, [](Waveform&, FileObject&) { return Fail(u"not to be loaded"); },
    [](const Waveform& wave, std::unique_ptr<FileObject>) -> std::unique_ptr<FrameSource> {
        return std::make_unique<Silence>(wave);
    }};

class CountingFile final : public FileObject {
public:
    bool IsOpen() const noexcept override { return true; }
    std::uint64_t Size() const noexcept override { return size; }

    static constexpr std::size_t kTailBytes = 54 + 44; ///< LIST and smpl
    std::uint64_t size = 0;
    ByteList head, tail;

protected:
    std::int64_t WriteAt(std::uint64_t offset, std::span<const std::byte> bytes) noexcept override
    {
        EXPECT_EQ(offset, size);
        size += bytes.size();
        if (head.size() < 100)
            head.insert(head.end(), bytes.begin(), bytes.end());
        const auto last = bytes.last(std::min(bytes.size(), kTailBytes));
        tail.insert(tail.end(), last.begin(), last.end());
        tail.erase(tail.begin(), tail.end() - static_cast<std::ptrdiff_t>(std::min(tail.size(), kTailBytes)));
        return static_cast<std::int64_t>(bytes.size());
    }
};

TEST(WaveWrite, SizesOverFourGigabytesMakeAnRf64File)
{
    Collection collection;
    auto& wave = collection.Create<Waveform>(u"Long");
    wave.channels = 2;
    wave.rateHz = 48000;
    wave.frames = 1u << 29; // 4 GiB of 32-bit floats
    wave.importProc = &kSilence;
    wave.SetText(kTextSourcePath, u"<Generated>");
    FormatChoice choice{.caps = FormatBit(DataFormat::Float32) | kCapsStereo};
    CountingFile file;
    ASSERT_TRUE(WriteWave(wave, file, choice));
    // 12 form, 36 ds64, 24 fmt, 12 fact, 8 + 4 GiB data, 54 LIST, 44 smpl
    constexpr std::uint64_t kTotal = 0x100000000 + 12 + 36 + 24 + 12 + 8 + 54 + 44;
    EXPECT_EQ(file.size, kTotal);
    const auto riffBytes = static_cast<std::uint32_t>(kTotal - 8 - 0x100000000);
    EXPECT_EQ(ByteList(file.head.begin(), file.head.begin() + 92),
              Join({Spell("'RF64' FFFFFFFF 'WAVE' 'ds64' 1C000000"), Word(riffBytes), Word(1),
                    Spell("00000000 01000000 00000020 00000000 00000000"
                          "'fmt ' 10000000 0300 0200 80BB0000 00DC0500 0800 2000"
                          "'fact' 04000000 00000020 'data' FFFFFFFF")}));
    EXPECT_EQ(ByteList(file.tail.begin(), file.tail.begin() + 4), Spell("'LIST'"));
}

} // namespace
} // namespace vimbo
