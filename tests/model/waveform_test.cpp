#include "model/waveform.h"

#include "base/last_error.h"
#include "model_builders.h"
#include "test_files.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <numeric>

namespace vimbo {
namespace {

Waveform& AddWave(Collection& items, std::u16string_view name, unsigned channels, std::vector<float> samples)
{
    Waveform& wave = items.Create<Waveform>(name);
    wave.frames = static_cast<std::uint32_t>(samples.size() / channels);
    wave.channels = static_cast<std::uint8_t>(channels);
    wave.rateHz = 44100;
    std::ranges::copy(samples, wave.LockSamplesForWrite().begin());
    return wave;
}

std::vector<float> SamplesOf(Waveform& wave)
{
    const std::span<float> samples = wave.LockSamples();
    return {samples.begin(), samples.end()};
}

Marker Point(std::uint32_t position)
{
    return {false, position, 0, u"p"};
}

Marker Range(std::uint32_t position, std::uint32_t end)
{
    return {true, position, end, u"r"};
}

TEST(SampleBlock, HasSilentGuardsAndIsShared)
{
    EXPECT_FALSE(SampleBlockRef::Allocate(4, 0, 44100));
    for (unsigned channels : {1u, 2u}) {
        SampleBlockRef block = SampleBlockRef::Allocate(5, channels, 44100);
        ASSERT_TRUE(block);
        const std::span<float> samples = block->Samples();
        ASSERT_EQ(samples.size(), 5 * channels);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(samples.data()) % 16, 0u);
        std::ranges::fill(samples, 1.0f);
        for (std::size_t i = 1; i <= channels; ++i)
            EXPECT_EQ(*(samples.data() - i), 0.0f);
        for (std::size_t i = 0; i < 3 * channels; ++i)
            EXPECT_EQ(samples.data()[samples.size() + i], 0.0f);

        const SampleBlockRef shared = block;
        block = {};
        EXPECT_EQ(shared->Samples()[4], 1.0f);
    }
}

TEST(Loop, IsPutInsideTheWaveform)
{
    struct Row {
        double start, end;
        double wantedStart, wantedEnd;
    };
    const double nan = std::nan("");
    const double infinity = std::numeric_limits<double>::infinity();
    FeatureMask all, whole;
    whole.bits &= ~(std::uint64_t{1} << static_cast<unsigned>(Feature::WaveFractionalLoops));

    const auto check = [](const FeatureMask& features, std::initializer_list<Row> rows) {
        for (const Row& row : rows) {
            SCOPED_TRACE(::testing::Message() << row.start << " to " << row.end);
            LoopInfo loop{.type = LoopType::Forward, .start = row.start, .end = row.end, .pitch = 12.345f};
            NormalizeLoop(loop, 100, features);
            EXPECT_DOUBLE_EQ(loop.start, row.wantedStart);
            EXPECT_DOUBLE_EQ(loop.end, row.wantedEnd);
            EXPECT_EQ(loop.pitch, 12.0f);
        }
    };
    check(all, {{0, 4294967296.0, 0, 100},
                {10, 100, 10, 100},
                {10, 101, 10, 100},
                {-1, 50, 0, 50},
                {60, 50, 0, 50},
                {50, 50, 0, 50},
                {1, 0, 1, 100},
                {nan, nan, 0, 100},
                {-infinity, infinity, 0, 100},
                {3.126, 10.5, 3.13, 10.5},
                {99.996, 99.999, 0, 100}, // both round to 100
                {99.9999, 100, 0, 100}});
    check(whole, {{3.5, 10.5, 4, 11}, // the length is what is rounded
                  {3.2, 10.9, 3, 11},
                  {3.5, 99.9, 4, 100},
                  {infinity, infinity, 0, 100}});

    LoopInfo pitched{.pitch = 1.234f};
    NormalizeLoop(pitched, 10, all);
    EXPECT_FLOAT_EQ(pitched.pitch, 1.23f);
    EXPECT_TRUE(IsDefaultLoop(pitched, 10));
    EXPECT_TRUE(IsDefaultLoop({.end = 0}, 10));
    EXPECT_FALSE(IsDefaultLoop({.end = 9}, 10));
    EXPECT_FALSE(IsDefaultLoop({.type = LoopType::Forward, .end = 10}, 10));
}

TEST(Loop, RecordKeepsWidePoints)
{
    const auto roundTrip = [](const LoopInfo& loop, std::size_t bytes) {
        ByteWriter out;
        WriteLoop(out, loop);
        EXPECT_EQ(out.Size(), bytes);
        LoopInfo back;
        ByteReader in(out.Bytes());
        EXPECT_TRUE(ReadLoop(in, back));
        EXPECT_EQ(back, loop);
        for (std::size_t cut = 0; cut < out.Size(); ++cut) {
            ByteReader shortened(out.Bytes().first(cut));
            EXPECT_FALSE(ReadLoop(shortened, back));
        }
    };
    roundTrip({LoopType::Alternating, true, false, 1.5, 4294967296.0, -3.25f}, 15);
    roundTrip({LoopType::Forward, false, true, 16777217.0, 33554435.01, 0}, 31);
}

TEST(Waveform, SourceDescriptions)
{
    Collection items;
    Waveform& wave = items.Create<Waveform>(u"w");
    struct Row {
        DataFormat format;
        unsigned bits;
        SaveFormat save;
    };
    for (const Row& row :
         {Row{DataFormat::Pcm12, 12, SaveFormat::Pcm16}, Row{DataFormat::Pcm20, 20, SaveFormat::Pcm24},
          Row{DataFormat::Float64, 64, SaveFormat::Float32}, Row{DataFormat::Delta8, 8, SaveFormat::Pcm8},
          Row{DataFormat::ALaw, 8, SaveFormat::ALaw}, Row{DataFormat::Adpcm3, 3, SaveFormat::ALaw}}) {
        wave.SetSourceFormat(row.format, kSourceBigEndian);
        EXPECT_EQ(wave.sourceWord, (1u << static_cast<unsigned>(row.format)) | 1u << 24);
        EXPECT_EQ(wave.bits, row.bits);
        EXPECT_EQ(wave.saveFormat, row.save);
    }
    const std::vector<std::pair<int, DataFormat>> widths = {
        {8, DataFormat::Pcm8}, {9, DataFormat::Pcm16}, {17, DataFormat::Pcm24}, {25, DataFormat::Pcm32}};
    for (const auto& [bits, format] : widths) {
        wave.SetSourceBits(bits, 0);
        EXPECT_EQ(wave.SourceFormat(), format);
    }
}

TEST(Waveform, BlockLifeCycle)
{
    testing::ScratchFolder folder;
    Collection items;
    Waveform& wave = items.Create<Waveform>(u"w");
    EXPECT_TRUE(wave.LockSamples().empty()); // no frames
    wave.SetText(kTextSourcePath, folder.Put("w.bin", testing::MakeBytes({0x40, 0xC0})));
    wave.SetSourceFormat(DataFormat::Pcm8, 0);
    wave.frames = 2;

    wave.LockSamples()[0] = 9; // reading only: not the truth
    wave.FreeSamples();
    EXPECT_EQ(SamplesOf(wave), (std::vector<float>{0.5f, -0.5f}));
    Waveform& described = items.Clone(wave);
    EXPECT_FALSE(described.HasBlock());

    wave.LockSamplesForWrite()[0] = 9;
    EXPECT_EQ(wave.importProc, nullptr);
    Waveform& owned = items.Clone(wave);
    wave.LockSamples()[1] = 7;
    EXPECT_EQ(SamplesOf(owned), (std::vector<float>{9, -0.5f}));
    EXPECT_EQ(SamplesOf(described), (std::vector<float>{0.5f, -0.5f}));

    described.ReplaceBlock(SampleBlockRef::Allocate(3, 2, 11025.6f));
    EXPECT_EQ(described.frames, 3u);
    EXPECT_EQ(described.channels, 2);
    EXPECT_EQ(described.rateHz, 11026u);
    EXPECT_EQ(described.importProc, nullptr);

    Waveform& silent = items.Create<Waveform>(u"s");
    silent.frames = 2;
    EXPECT_EQ(SamplesOf(silent), (std::vector<float>{0, 0}));
}

TEST(Waveform, FailedImportLeavesNoBlock)
{
    static const auto load = [](Waveform& wave, FileObject& file) {
        EXPECT_FALSE(file.IsOpen()); // a source that is no file
        wave.AllocateSamples();
        return Fail(u"half way");
    };
    const ImportProcedure broken{5, load, nullptr};
    Collection items;
    Waveform& wave = items.Create<Waveform>(u"w");
    wave.SetText(kTextSourcePath, u"<Clipboard>");
    wave.frames = 3;
    wave.importProc = &broken;
    EXPECT_TRUE(wave.LockSamplesForWrite().empty());
    EXPECT_EQ(wave.OpenFrames(), nullptr); // cannot be streamed, so it is loaded
    EXPECT_EQ(LastError(), u"half way");
    EXPECT_FALSE(wave.HasBlock());
    EXPECT_EQ(wave.importProc, &broken);
    EXPECT_EQ(wave.frames, 3u);
}

TEST(Waveform, ValidateRepairs)
{
    Collection items;
    items.SetText(kTextSourcePath, u"/here");
    Waveform& wave = AddWave(items, u"w", 1, std::vector<float>(100));
    wave.rateHz = 0;
    wave.rootKey = 200;
    wave.fineTune = -128;
    wave.volume = 1.236f;
    wave.bits = 20;
    wave.markers = {Range(100, 50), Point(100), Point(70), Range(60, 300), Range(50, 20), Point(50)};
    wave.Validate();
    EXPECT_EQ(wave.GetText(kTextSourcePath), u"/here");
    EXPECT_EQ(wave.rateHz, 44100u);
    EXPECT_EQ(wave.rootKey, 127);
    EXPECT_EQ(wave.fineTune, -100);
    EXPECT_FLOAT_EQ(wave.volume, 1.24f);
    EXPECT_EQ(wave.loop.end, 100);
    EXPECT_EQ(wave.saveFormat, SaveFormat::Pcm24);
    ASSERT_EQ(wave.markers.size(), 5u);
    const std::vector<Marker> expected = {Range(20, 50), Range(50, 100), Point(50), Range(60, 100),
                                          Point(70)};
    EXPECT_TRUE(std::ranges::equal(wave.markers, expected,
                                   [](const Marker& a, const Marker& b) { return a.SameAs(b); }));

    wave.volume = std::nanf("");
    wave.saveFormat = SaveFormat::MuLaw;
    wave.bits = 0;
    wave.loop.pitch = 1;
    wave.markers.assign(kMaxMarkers + 1, Point(1));
    items.features.bits &= ~(1ull << static_cast<unsigned>(Feature::WaveCompressedFormats));
    items.features.bits &= ~(1ull << static_cast<unsigned>(Feature::WaveLoopTuning));
    wave.Validate();
    EXPECT_EQ(wave.volume, 0.0f);
    EXPECT_EQ(wave.saveFormat, SaveFormat::Pcm16);
    EXPECT_EQ(wave.bits, 16);
    EXPECT_EQ(wave.loop.pitch, 0.0f);
    EXPECT_EQ(wave.markers.size(), kMaxMarkers);
}

TEST(Waveform, ToMono)
{
    Collection items;
    const std::vector<float> stereo = {1, 2, 3, 6};
    const auto mono = [&](MonoMode mode) {
        Waveform& wave = AddWave(items, u"w", 2, stereo);
        EXPECT_TRUE(wave.ToMono(mode));
        return SamplesOf(wave);
    };
    EXPECT_EQ(mono(MonoMode::Average), (std::vector<float>{1.5f, 4.5f}));
    EXPECT_EQ(mono(MonoMode::Left), (std::vector<float>{1, 3}));
    EXPECT_EQ(mono(MonoMode::Right), (std::vector<float>{2, 6}));
    EXPECT_EQ(mono(MonoMode::LeftIfEqual), stereo);
    Waveform& equal = AddWave(items, u"w", 2, {5, 5, 6, 6});
    EXPECT_TRUE(equal.ToMono(MonoMode::LeftIfEqual));
    EXPECT_EQ(SamplesOf(equal), (std::vector<float>{5, 6}));
    EXPECT_FALSE(AddWave(items, u"w", 2, stereo).ToMono(static_cast<MonoMode>(5)));
    EXPECT_EQ(LastError(), u"Invalid algorithm");

    const std::vector<std::pair<std::u16string_view, std::u16string_view>> names = {{u"Piano S", u"Piano"},
                                                                                    {u"Piano  -s", u"Piano"},
                                                                                    {u"Bass", u"Bass"},
                                                                                    {u"S", u"S"},
                                                                                    {u"A-S S", u"A-S"}};
    for (const auto& [name, base] : names) {
        Waveform& wave = AddWave(items, name, 2, stereo);
        wave.rootKey = 33;
        wave.loop = {.type = LoopType::Forward, .start = 0, .end = 1};
        Waveform* right = nullptr;
        ASSERT_TRUE(wave.ToMono(MonoMode::Split, &right));
        ASSERT_NE(right, nullptr);
        EXPECT_EQ(wave.GetName(), std::u16string(base) + u" -L");
        EXPECT_EQ(right->GetName(), std::u16string(base) + u" -R");
        EXPECT_EQ(SamplesOf(wave), (std::vector<float>{1, 3}));
        EXPECT_EQ(SamplesOf(*right), (std::vector<float>{2, 6}));
        EXPECT_EQ(right->rootKey, 33);
        EXPECT_EQ(right->loop, wave.loop);
    }
    ExpectConsistent(items);
}

TEST(Waveform, ToStereo)
{
    Collection items;
    const auto stereo = [&](StereoMode mode) {
        Waveform& wave = AddWave(items, u"w", 1, {1, 2});
        Waveform& second = AddWave(items, u"w", 1, {5, 6, 7});
        wave.bits = 8;
        second.bits = 24;
        wave.rootKey = 61;
        second.rootKey = 64;
        EXPECT_TRUE(wave.ToStereo(mode, &second));
        EXPECT_EQ(wave.rootKey, mode < StereoMode::LeftAndSecond ? 61 : 62);
        EXPECT_EQ(wave.bits, mode < StereoMode::LeftAndSecond ? 8 : 24);
        return SamplesOf(wave);
    };
    EXPECT_EQ(stereo(StereoMode::Duplicate), (std::vector<float>{1, 1, 2, 2}));
    EXPECT_EQ(stereo(StereoMode::AsLeft), (std::vector<float>{1, 0, 2, 0}));
    EXPECT_EQ(stereo(StereoMode::AsRight), (std::vector<float>{0, 1, 0, 2}));
    EXPECT_EQ(stereo(StereoMode::LeftAndSecond), (std::vector<float>{1, 5, 2, 6, 0, 7}));
    EXPECT_EQ(stereo(StereoMode::SecondAndRight), (std::vector<float>{5, 1, 6, 2, 7, 0}));

    Waveform& wave = AddWave(items, u"w", 1, {1, 2});
    Waveform& wide = AddWave(items, u"w", 2, {1, 2});
    EXPECT_FALSE(wave.ToStereo(static_cast<StereoMode>(5)));
    EXPECT_EQ(LastError(), u"Invalid algorithm");
    EXPECT_FALSE(wave.ToStereo(StereoMode::LeftAndSecond));
    EXPECT_EQ(LastError(), u"No 2nd waveform specified");
    EXPECT_FALSE(wave.ToStereo(StereoMode::SecondAndRight, &wide));
    EXPECT_EQ(LastError(), u"2nd waveform is not mono");
    EXPECT_EQ(SamplesOf(wave), (std::vector<float>{1, 2}));
}

TEST(Waveform, CutRangeMovesLoopAndMarkers)
{
    struct Row {
        double start, end;
        double wantedStart, wantedEnd;
        LoopType type;
    };
    const std::vector<Row> rows = {
        {0, 2, 0, 2, LoopType::Forward},     {0, 3, 0, 3, LoopType::Forward}, {7, 9, 4, 6, LoopType::Forward},
        {6, 10, 3, 7, LoopType::Forward},    {1, 6, 1, 3, LoopType::Forward}, {1, 5, 1, 4, LoopType::Forward},
        {4, 9.5, 3, 6.5, LoopType::Forward}, {4, 5, 3, 4, LoopType::Forward}, {4, 6, 3, 3, LoopType::Off},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(::testing::Message() << row.start << " to " << row.end);
        Collection items;
        std::vector<float> ramp(20);
        std::iota(ramp.begin(), ramp.end(), 0.0f);
        Waveform& wave = AddWave(items, u"w", 2, ramp);
        wave.loop = {.type = LoopType::Forward, .start = row.start, .end = row.end};
        ASSERT_TRUE(wave.CutRange(3, 6));
        EXPECT_EQ(SamplesOf(wave), (std::vector<float>{0, 1, 2, 3, 4, 5, 12, 13, 14, 15, 16, 17, 18, 19}));
        EXPECT_EQ(wave.loop.start, row.wantedStart);
        EXPECT_EQ(wave.loop.end, row.wantedEnd);
        EXPECT_EQ(wave.loop.type, row.type);
    }

    Collection items;
    Waveform& wave = AddWave(items, u"w", 1, std::vector<float>(10));
    wave.markers = {Point(2),    Point(3),    Point(5),    Point(6),   Range(1, 8),
                    Range(1, 4), Range(4, 6), Range(4, 8), Range(7, 9)};
    ASSERT_TRUE(wave.CutRange(3, 6));
    const std::vector<Marker> expected = {Point(2),    Point(3),    Range(1, 5),
                                          Range(1, 3), Range(3, 5), Range(4, 6)};
    EXPECT_TRUE(std::ranges::equal(wave.markers, expected,
                                   [](const Marker& a, const Marker& b) { return a.SameAs(b); }));

    EXPECT_FALSE(wave.CutRange(4, 4));
    EXPECT_FALSE(wave.CutRange(7, 9));
    EXPECT_FALSE(wave.CutRange(0, 1000));
    wave.loop = {.type = LoopType::Forward, .start = 1, .end = 6};
    ASSERT_TRUE(wave.CutRange(5, 1000));
    EXPECT_EQ(wave.frames, 5u);
    EXPECT_EQ(wave.loop.end, 5); // not behind the new end
}

TEST(Waveform, FindsMarkers)
{
    Collection items;
    Waveform& wave = items.Create<Waveform>(u"w");
    wave.markers = {Point(10), Range(12, 20), Range(4000000000u, 4000000010u)};
    EXPECT_EQ(wave.FindMarker(u"r"), &wave.markers[1]);
    EXPECT_EQ(wave.FindMarker(u"q"), nullptr);
    EXPECT_EQ(wave.FindMarkerAt(12, 2, 0), &wave.markers[0]);
    EXPECT_EQ(wave.FindMarkerAt(12, 2, 8), &wave.markers[1]);
    EXPECT_EQ(wave.FindMarkerAt(0, 9, 0), nullptr);
    EXPECT_EQ(wave.FindMarkerAt(4000000003u, 3, 10), &wave.markers[2]);
    EXPECT_NE(Marker().id, Marker().id);
}

TEST(Waveform, Parameters)
{
    struct Row {
        std::uint16_t id;
        float set, get;
        bool isSet;
    };
    Collection items;
    Waveform& wave = AddWave(items, u"w", 1, {0});
    EXPECT_FALSE(wave.IsParamSet(kParamLoopType));
    EXPECT_FALSE(wave.IsParamSet(kParamWaveFineTune));
    for (const Row& row :
         {Row{204, 2.9f, 2, true}, Row{204, 99, 3, true}, Row{204, 0, 0, false}, Row{205, -0.1f, 1, true},
          Row{206, 3.5f, 3.5f, true}, Row{207, 8e9f, 4294967296.0f, true}, Row{208, 13, 12, true},
          Row{208, 0, 0, false}, Row{217, 44100.5f, 44101, true}, Row{217, 1e9f, 768000, true},
          Row{217, 0, 1, true}, Row{218, 60.5f, 61, true}, Row{218, -3, 0, true}, Row{219, -2.5f, -3, true},
          Row{219, 0.4f, 0, false}, Row{220, -200, -96, true}, Row{221, 4.9f, 4, true}, Row{221, 1, 1, false},
          Row{221, 50, 21, true}}) {
        SCOPED_TRACE(::testing::Message() << row.id << " " << row.set);
        wave.SetParam(row.id, row.set);
        EXPECT_EQ(wave.GetParam(row.id), row.get);
        wave.SetParam(row.id, std::nanf(""));
        EXPECT_EQ(wave.GetParam(row.id), row.get);
        EXPECT_EQ(wave.IsParamSet(row.id), row.isSet);
        EXPECT_EQ(wave.GetParamInfo(row.id).id, row.id);
    }
    wave.SetParam(kParamWaveRate, 8000);
    EXPECT_EQ(wave.Block()->RateHz(), 8000.0f);
    wave.ClearParam(kParamWaveRootKey, 48);
    EXPECT_EQ(wave.rootKey, 48);
    EXPECT_EQ(wave.GetParamInfo(kTextName).name, u"Name");

    const auto withFractions = wave.GetParamInfo(kParamLoopEnd).editClass;
    items.features.bits &= ~(1ull << static_cast<unsigned>(Feature::WaveFractionalLoops));
    EXPECT_NE(wave.GetParamInfo(kParamLoopEnd).editClass, withFractions);
    EXPECT_EQ(wave.GetParamInfo(kParamLoopEnd).name, WaveParamRow(kParamLoopEnd).name);
}

Waveform& FullWave(Collection& items)
{
    Waveform& wave = AddWave(items, u"Caf\u00E9", 2, {0.5f, -0.5f, 0.25f, std::nextafter(1.0f, 2.0f)});
    wave.SetSourceFormat(DataFormat::Pcm24, kSourceSequentialStereo);
    wave.importProc = nullptr;
    wave.secondOffset = 0x123456789A;
    wave.rootKey = 69;
    wave.fineTune = -7;
    wave.volume = -3.5f;
    wave.loop = {LoopType::Reverse, true, true, 16777217.5, 20000000, 0.25f};
    wave.saveFormat = SaveFormat::Float32;
    wave.sourceOffset = 0x9876543210;
    wave.formatOffset = 36;
    wave.sourceBytes = 1000;
    wave.sourceTag = 5;
    wave.markers = {Point(0), Range(0, 1)};
    wave.markers[1].name = std::u16string(254, u'x') + u"\U0001F3B5"; // 256 units: the pair does not fit
    return wave;
}

TEST(Waveform, StateRecordRoundTrip)
{
    Collection items;
    Waveform& wave = FullWave(items);
    ByteWriter out;
    wave.Serialize(out);

    Collection others;
    auto* back = static_cast<Waveform*>(others.CreateItem(wave.Handle()));
    ByteReader in(out.Bytes());
    ASSERT_TRUE(back->Deserialize(in));
    EXPECT_EQ(in.Left(), 0u);
    EXPECT_EQ(back->GetName(), wave.GetName());
    EXPECT_EQ(SamplesOf(*back), SamplesOf(wave));
    EXPECT_EQ(back->secondOffset, wave.secondOffset);
    EXPECT_EQ(back->loop, wave.loop);
    EXPECT_EQ(back->markers[1].name, std::u16string(254, u'x'));
    EXPECT_EQ(back->markers[0].id, wave.markers[0].id);
    back->markers[1].name = wave.markers[1].name;
    ByteWriter again;
    back->Serialize(again);
    EXPECT_TRUE(std::ranges::equal(out.Bytes(), again.Bytes()));

    // A marker id out of a file is not given a second time.
    wave.markers[0].id = Marker::NextId() + 1000;
    ByteWriter later;
    wave.Serialize(later);
    ByteReader laterIn(later.Bytes());
    ASSERT_TRUE(back->Deserialize(laterIn));
    EXPECT_GT(Marker::NextId(), wave.markers[0].id);
}

TEST(Waveform, StateRecordLayout)
{
    Collection items;
    Waveform& wave = items.Create<Waveform>(u"w");
    wave.SetSourceFormat(DataFormat::Pcm16, 0);
    wave.frames = 0x01020304;
    wave.rateHz = 0x0000AC44;
    wave.volume = 1;
    wave.loop.end = 1;
    wave.sourceOffset = 0x0102030405060708;
    wave.sourceTag = 9;
    ByteWriter out;
    wave.Serialize(out);
    // Fixed part of 49 bytes, two numbers of readers, no samples, no markers.
    const auto expected = testing::MakeBytes(
        {4, 3, 2,    1,    0x44, 0xAC, 0, 0, 16, 1, 60, 0, 0, 0, 0x80, 0x3F, 0, 0, 0, 0, 0, 0, 0,
         0, 0, 0x80, 0x3F, 0,    0,    0, 0, 1,  8, 7,  6, 5, 4, 3,    2,    1, 1, 0, 0, 0, 0, 0,
         0, 0, 9,    0,    0,    0,    0, 0, 0,  0, 0,  0, 0, 0, 0,    0,    0, 0, 0, 0, 0, 0});
    EXPECT_TRUE(std::ranges::equal(out.Bytes().last(expected.size()), expected));
    EXPECT_EQ(expected.size(), 49u + 16 + 1 + 2);
}

TEST(Waveform, DamagedStateRecordsFailCleanly)
{
    Collection items;
    Waveform& wave = FullWave(items);
    ByteWriter out;
    wave.Serialize(out);
    const testing::Bytes good(out.Bytes().begin(), out.Bytes().end());

    Collection others;
    Waveform& back = others.Create<Waveform>(u"untouched");
    for (std::size_t size = 0; size < good.size(); ++size) {
        const testing::Bytes cut(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size));
        ByteReader in(cut);
        ClearLastError();
        EXPECT_FALSE(back.Deserialize(in)) << size;
        EXPECT_FALSE(LastError().empty());
        EXPECT_FALSE(back.HasBlock());
        EXPECT_EQ(back.frames, 0u);
    }
    for (std::size_t at = 0; at + 4 <= good.size(); ++at) // huge counts find no bytes, and take no memory
        for (int fill : {0x00, 0x7F, 0xFF}) {
            testing::Bytes bad = good;
            std::fill_n(bad.begin() + static_cast<std::ptrdiff_t>(at), 4, static_cast<std::byte>(fill));
            ByteReader in(bad);
            if (back.Deserialize(in)) {
                EXPECT_LE(back.loop.type, LoopType::Alternating);
                EXPECT_LE(back.saveFormat, SaveFormat::Default);
            }
        }

    wave.SetSourceFormat(DataFormat::Pcm16, 0);
    const ImportProcedure strange{77, kGenericImport.load, nullptr};
    wave.importProc = &strange;
    ByteWriter described;
    wave.Serialize(described);
    ByteReader in(described.Bytes());
    ASSERT_TRUE(back.Deserialize(in));
    EXPECT_EQ(back.importProc, nullptr); // nobody here knows procedure 77
    EXPECT_FALSE(back.HasBlock());
}

} // namespace
} // namespace vimbo
