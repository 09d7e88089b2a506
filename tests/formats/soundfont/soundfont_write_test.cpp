#include "base/last_error.h"
#include "base/text.h"
#include "formats/open.h"
#include "formats/soundfont/soundfont.h"
#include "formats/soundfont/soundfont_build.h"
#include "formats/soundfont/soundfont_tables.h"
#include "formats/soundfont/soundfont_units1.h"
#include "model/consistency.h"
#include "model/envelope.h"
#include "model/fix_up.h"
#include "model/instrument.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>

namespace vimbo::sf2 {
namespace {

constexpr std::uint32_t kPcm16 = FormatBit(DataFormat::Pcm16), kPcm24 = FormatBit(DataFormat::Pcm24),
                        kCompressed = FormatBit(DataFormat::Compressed);
constexpr std::uint32_t kAuto = kPcm16 | kPcm24 | kCapsMono | kCapsDualMono;
constexpr FormatChoice kVersion1Choice{kPcm16 | kCapsMono, kSoundFont1, 0};

/// A waveform whose samples are codes of `bits` bits.
Waveform& AddWave(Collection& items, std::u16string_view name, std::uint32_t frames, unsigned channels = 1,
                  unsigned bits = 16)
{
    auto& wave = items.Create<Waveform>(name);
    wave.frames = frames;
    wave.channels = static_cast<std::uint8_t>(channels);
    wave.rateHz = 44100;
    wave.saveFormat = bits == 24 ? SaveFormat::Pcm24 : SaveFormat::Pcm16;
    const std::span<float> samples = wave.LockSamplesForWrite();
    const double codes = std::exp2(bits - 1);
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i] =
            static_cast<float>(std::round(0.7 * codes * std::sin(0.05 * static_cast<double>(i))) / codes);
    wave.loop.end = frames;
    wave.Validate();
    return wave;
}

Instrument& AddInstrument(Collection& items, std::u16string_view name, unsigned program)
{
    auto& instrument = items.Create<Instrument>(name);
    instrument.location.word = program;
    return instrument;
}

struct Written {
    bool good = false;
    std::vector<std::byte> bytes;
    FormatChoice choice;
};
Written Write(Item& root, FormatChoice choice = {kAuto, kSoundFont2, 0})
{
    MemoryFile file;
    Written written;
    written.choice = choice;
    written.good = WriteSoundFont(root, file, written.choice);
    written.bytes = file.Release();
    return written;
}

/// What a file holds, as a user gets it.
void Load(Collection& out, const Written& written, std::uint32_t variant = kSoundFont2)
{
    MemoryFile file(written.bytes);
    out.SetName(u"loaded");
    out.loading = true;
    ASSERT_TRUE(ReadSoundFont(out, file, variant));
    out.loading = false;
    for (Waveform& wave : out.All<Waveform>()) {
        ASSERT_TRUE(file.Seek(wave.sourceOffset));
        ASSERT_TRUE(wave.importProc->load(wave, file));
        static_cast<void>(wave.LockSamplesForWrite()); // there is no file to read again
    }
    FixUpItems(out, kPruneAll, AfterLoad::Yes, SourceHoldsStereo::No);
    EXPECT_TRUE(IsConsistent(out));
}

struct Bank {
    explicit Bank(const Written& written) : file(written.bytes) { EXPECT_TRUE(ReadTables(file, tables)); }
    /// "43=12348 53=0 | 53=1": the zones of an owner.
    static std::string Zones(const ZoneTables& zones, std::size_t owner)
    {
        std::string text;
        const IndexRange range = zones.Zones(owner);
        for (std::size_t zone = range.first; zone < range.end; ++zone) {
            text += zone != range.first ? "| " : "";
            for (const Generator& generator : zones.GeneratorsOf(zone))
                text += std::to_string(generator.type.Get()) + "=" +
                        std::to_string(static_cast<std::int16_t>(generator.amount.Get())) + " ";
            for (const Modulator& modulator : zones.ModulatorsOf(zone))
                text += "(" + std::to_string(modulator.source.Get()) + ">" +
                        std::to_string(modulator.destination.Get()) + "=" +
                        std::to_string(modulator.amount.Get()) + ") ";
        }
        return text;
    }
    std::string InstrumentZones(std::size_t index) const { return Zones(tables.instrumentZones, index); }
    std::string PresetZones(std::size_t index) const { return Zones(tables.presetZones, index); }
    std::u16string SampleName(std::size_t index) const { return NameOf(tables.sampleHeaders[index].name); }

    MemoryFile file;
    Tables tables;
};

float ValueOf(const Collection& items, std::u16string_view instrument, ParamId id)
{
    for (const Instrument& found : items.All<Instrument>())
        if (found.GetName() == instrument)
            return found.Layers().front()->Regions().front()->GetParam(id);
    ADD_FAILURE() << "no such instrument";
    return 0;
}

TEST(SoundFontWrite, TablesSayWhatDiffersInTheOrderOfTheStandard)
{
    Collection items;
    items.SetName(u"Test");
    items.SetText(kTextEngineer, u"Ann");
    Waveform& wave = AddWave(items, u"Wave", 100);
    wave.rootKey = 62;
    wave.fineTune = -7;
    wave.loop.type = LoopType::Forward;
    wave.loop.start = 10;
    wave.loop.end = 90;
    Layer& layer = AddInstrument(items, u"Inst", 5).AddLayer(u"Zones");
    Region& low = layer.AddRegion(wave.Handle(), {0, 59}, {1, 100});
    Region& high = layer.AddRegion(wave.Handle(), {60, 127});
    for (Region* region : {&low, &high})
        region->articulation.Set(kArtPan, 0.5f);
    low.articulation.Set(kArtVelToVolume, 48);
    low.articulation.Set(kArtTuning, -1.25f);
    high.SetParam(kParamRegionRootKey, 64);
    high.SetParam(kParamLoopStart, 12);
    high.startOffset = 40000;
    high.trigger.Set(kParamExclusionGroup, 3);
    const Written written = Write(items);
    ASSERT_TRUE(written.good);

    const Bank bank(written);
    EXPECT_EQ(bank.InstrumentZones(0), "17=250 54=1 | 43=15104 44=25601 51=-1 52=-25 53=0 (258>48=1200) "
                                       "(1282>48=0) | 43=32572 0=7232 2=2 4=1 57=3 58=64 53=0 ");
    EXPECT_EQ(bank.PresetZones(0), "41=0 ");
    EXPECT_EQ(bank.tables.major, 2);
    EXPECT_EQ(bank.tables.minor, 1);
    ASSERT_EQ(bank.tables.sampleHeaders.size(), 1u);
    const SampleHeader& header = bank.tables.sampleHeaders[0];
    EXPECT_EQ(header.start.Get(), 0u);
    EXPECT_EQ(header.end.Get(), 100u);
    EXPECT_EQ(header.loopStart.Get(), 10u);
    EXPECT_EQ(header.loopEnd.Get(), 90u);
    EXPECT_EQ(header.originalPitch, 62);
    EXPECT_EQ(header.pitchCorrection, -7);
    EXPECT_EQ(header.type.Get(), kSampleMono);
    EXPECT_EQ(bank.tables.samples.bytes, 2u * (100 + 46));
    const std::string_view text(reinterpret_cast<const char*>(written.bytes.data()), written.bytes.size());
    constexpr std::string_view kInfo("ifil\4\0\0\0\2\0\1\0isng\10\0\0\0EMU8000\0INAM\6\0\0\0Test\0\0IENG\4",
                                     47);
    EXPECT_EQ(text.substr(24, kInfo.size()), kInfo);
    EXPECT_NE(text.find(std::string_view("ISFT\x14\0\0\0Vimbo Studio v12.7\0\0", 28)), text.npos);
    EXPECT_EQ(text.size() % 2, 0u);
}

TEST(SoundFontWrite, ZonesThatDifferByAnAmountShareAnInstrument)
{
    Collection items;
    Waveform& wave = AddWave(items, u"Wave", 64);
    float tuning = 0;
    for (const char16_t* name : {u"A", u"B", u"C"}) {
        Layer& layer = AddInstrument(items, name, static_cast<unsigned>(tuning)).AddLayer(u"Same");
        for (const std::uint8_t key : {std::uint8_t{10}, std::uint8_t{20}}) {
            Region& region = layer.AddRegion(wave.Handle(), {key, key});
            region.articulation.Set(kArtTuning, tuning + (key == 10 ? 0.0f : tuning == 2 ? 1.0f : -1.0f));
        }
        ++tuning;
    }
    const Bank bank(Write(items));
    EXPECT_EQ(bank.tables.instruments.size(), 2u + 1);
    EXPECT_EQ(bank.PresetZones(0), "41=0 ");
    EXPECT_EQ(bank.PresetZones(1), "51=1 41=0 ");
    EXPECT_EQ(bank.PresetZones(2), "41=1 ");
    EXPECT_EQ(bank.InstrumentZones(1), "43=2570 51=2 53=0 | 43=5140 51=3 53=0 ");
}

TEST(SoundFontWrite, TheBandThatItsLayerAgreesWithComesFirst)
{
    Collection items;
    Waveform& wave = AddWave(items, u"Wave", 64);
    // In the first layer what a band agrees on, in the second what is above, as its band does not agree.
    for (const float own : {3.0f, 0.0f}) {
        Layer& layer = AddInstrument(items, u"I", static_cast<unsigned>(own)).AddLayer(u"L");
        layer.articulation.Set(kArtTuning, own);
        for (const MidiRange velocities : {MidiRange{0, 63}, MidiRange{64, 127}})
            for (const std::uint8_t key : {std::uint8_t{10}, std::uint8_t{20}}) {
                const bool isFirst = velocities.low == 0, isVaried = isFirst == (own == 3);
                layer.AddRegion(wave.Handle(), {key, key}, velocities)
                    .articulation.Set(kArtTuning, isVaried ? key * 0.1f : 3.0f);
            }
    }
    ExportSet set;
    set.Fill(items, IncludeWaves::Yes);
    const SampleList samples = ListSamples(set);
    ZoneCache cache;
    for (const Instrument* instrument : set.Instruments()) {
        const std::vector<OutLayer> layers = LayersOf(*instrument, samples, 2, cache);
        ASSERT_EQ(layers.size(), 1u);
        const std::vector<OutLayer> bands = BandsOf(layers[0], BandAxis::Velocities);
        ASSERT_EQ(bands.size(), 2u);
        EXPECT_EQ(bands[0].velocities, (MidiRange{64, 127})) << instrument->location.word;
    }
}

TEST(SoundFontWrite, LayersWithoutNamesShareInstrumentsToo)
{
    Collection items;
    Waveform& wave = AddWave(items, u"Wave", 64);
    for (const unsigned program : {0u, 1u, 2u}) {
        Instrument& instrument = AddInstrument(items, u"I", program);
        Layer& other = instrument.AddLayer(program == 2 ? u"Own" : u"");
        other.AddRegion(wave.Handle(), {60, 60}).articulation.Set(kArtTuning, program == 1 ? 2.0f : 0.0f);
        instrument.AddLayer().AddRegion(wave.Handle(), {60, 60}).articulation.Set(kArtTuning, 1);
    }
    const Bank bank(Write(items));
    EXPECT_EQ(bank.tables.instruments.size(), 2u + 1);
    EXPECT_EQ(bank.PresetZones(0), "41=0 | 51=1 41=0 ");
    EXPECT_EQ(bank.PresetZones(1), "51=2 41=0 | 51=1 41=0 ");
    EXPECT_EQ(bank.PresetZones(2), "41=1 | 51=1 41=0 ");
}

TEST(SoundFontWrite, NamesOfLayersGoBeforeABankIsRefused)
{
    // 200 zones, all different, in each of 80 presets: 16,000 zones alone, 200 if they are shared.
    Collection items;
    Waveform& wave = AddWave(items, u"Wave", 64);
    for (unsigned program = 0; program < 80; ++program) {
        Layer& layer =
            AddInstrument(items, u"I", program).AddLayer(u"Of " + Utf8ToWide(std::to_string(program)));
        for (unsigned i = 0; i < 200; ++i) {
            const auto key = static_cast<std::uint8_t>(i % 100);
            const MidiRange velocities = i < 100 ? MidiRange{0, 63} : MidiRange{64, 127};
            ArticulationBlock& block = layer.AddRegion(wave.Handle(), {key, key}, velocities).articulation;
            block.Set(kArtTuning, static_cast<float>(i) * 0.01f);
            block.Set(kArtPan, static_cast<float>(i) * 0.01f - 0.99f);
            block.Set(kArtVolume, static_cast<float>(i) * -0.1f - 1);
            block.Set(kArtVelToVolume, static_cast<float>(i) * 0.1f + 20);
            block.Set(kArtSend, static_cast<float>(i) * 0.004f + 0.1f);
        }
    }
    const Bank bank(Write(items));
    EXPECT_EQ(bank.tables.presets.size(), 80u + 1);
    EXPECT_EQ(bank.tables.instruments.size(), 2u + 1) << "one for each band of velocities";
}

TEST(SoundFontWrite, SecondWritingGivesTheSameBytes)
{
    Collection items;
    Waveform& stereo = AddWave(items, u"A stereo sound of long name", 200, 2);
    Waveform& mono = AddWave(items, u"Mono", 300);
    AddWave(items, u"Unused", 50);
    Instrument& first = AddInstrument(items, u"First", 3);
    Layer& layer = first.AddLayer(u"Layer: old");
    layer.AddRegion(mono.Handle(), {0, 40});
    Region& side = layer.AddRegion(stereo.Handle(), {41, 127});
    side.articulation.Set(kArtFilterType, static_cast<float>(FilterType::LowPass12));
    side.articulation.Set(kArtCutoff, 1234);
    side.articulation.Set(kArtKeyToPitch, 0.5f);
    side.articulation.Set(kArtEnvelopes + kEnvDecay2Time, 3);
    side.articulation.Set(kArtEnvelopes + kEnvSustain, 0.5f);
    Instrument& drums = AddInstrument(items, u"First", 3);
    drums.location.SetDrum(true);
    drums.AddLayer(u"").AddRegion(mono.Handle(), {36, 36});
    FixUpItems(items, kPruneAll, AfterLoad::No);

    const Written one = Write(items);
    ASSERT_TRUE(one.good);
    Collection again;
    Load(again, one);
    EXPECT_EQ(again.CountOf(ItemKind::Instrument), 2u);
    EXPECT_EQ(again.CountOf(ItemKind::Waveform), 3u);
    EXPECT_EQ(again.List<Instrument>()[0]->Layers().size(), 1u) << "the right half must join the left one";
    EXPECT_TRUE(again.List<Instrument>()[1]->location.IsDrum());
    const Region& read = *again.List<Instrument>()[0]->Layers()[0]->Regions()[1];
    ASSERT_NE(read.Wave(), nullptr);
    EXPECT_EQ(read.Wave()->channels, 2);
    EXPECT_TRUE(std::ranges::equal(read.Wave()->LockSamples(), stereo.LockSamples()));
    EXPECT_NEAR(read.articulation[kArtCutoff], 1234, 10);
    EXPECT_EQ(read.articulation[kArtKeyToPitch], 0.5f);
    EXPECT_EQ(read.articulation[kArtPan], 0);
    const Written two = Write(again);
    EXPECT_TRUE(one.bytes == two.bytes);
    Collection third;
    Load(third, two);
    for (const ParamId id : {kArtCutoff, kArtVolume, ParamId{kArtEnvelopes + kEnvDecay2Time}})
        EXPECT_EQ(ValueOf(third, u"First", id), ValueOf(again, u"First", id));
}

TEST(SoundFontWrite, HalvesAreLinkedOnlyWhereReadersMayPutThemToTheSides)
{
    Collection items;
    Waveform& left = AddWave(items, u"Str (L)", 100);
    Waveform& right = AddWave(items, u"Str (R)", 100);
    Waveform& other = AddWave(items, u"Bass L", 100);
    Waveform& bass = AddWave(items, u"Bass R", 100);
    AddWave(items, u"Pad -R", 80);
    AddWave(items, u"Pad -L", 80);
    Instrument& instrument = AddInstrument(items, u"I", 0);
    const auto add = [&](Waveform& wave, float pan, std::uint8_t key) {
        instrument.AddLayer().AddRegion(wave.Handle(), {key, key}).articulation.Set(kArtPan, pan);
    };
    add(left, -1, 50);
    add(right, 1, 50);
    add(other, -0.9f, 60);
    add(bass, 0.9f, 60);
    const Bank bank(Write(items));
    const auto& headers = bank.tables.sampleHeaders;
    ASSERT_EQ(headers.size(), 6u);
    EXPECT_EQ(headers[0].type.Get(), kSampleLeft);
    EXPECT_EQ(headers[0].link.Get(), 1);
    EXPECT_EQ(headers[1].type.Get(), kSampleRight);
    EXPECT_EQ(headers[1].link.Get(), 0);
    EXPECT_EQ(bank.SampleName(1), u"Str (R)");
    EXPECT_EQ(headers[2].type.Get(), kSampleMono);
    EXPECT_EQ(headers[3].type.Get(), kSampleMono);
    EXPECT_EQ(bank.SampleName(4), u"Pad -L") << "left halves come first";
    EXPECT_EQ(headers[4].link.Get(), 5);
}

TEST(SoundFontWrite, NamesStayUniqueWhenTheyAreCut)
{
    Collection items;
    for (const char16_t* name :
         {u"A very long name of a sound 1", u"A very long name of a sound 2", u"A very long name, of another",
          u"a very long name, of one more", u"EOS", u"A very long name, of a stereo sound"})
        AddWave(items, name, 20, std::u16string_view(name).ends_with(u"stereo sound") ? 2 : 1);
    AddWave(items, u"Stem of nineteen ch", 20, 2);
    const Bank bank(Write(items));
    std::vector<std::u16string> names;
    for (std::size_t i = 0; i < bank.tables.sampleHeaders.size(); ++i)
        names.push_back(bank.SampleName(i));
    const std::vector<std::u16string> wanted = {u"A very long name of1",
                                                u"A very long name of2",
                                                u"A very long name, of",
                                                u"a very long name, 1",
                                                u"EOS 1",
                                                u"A very long name, oL",
                                                u"A very long name, oR",
                                                u"Stem of nineteen chL",
                                                u"Stem of nineteen chR"};
    EXPECT_EQ(names, wanted);
}

TEST(SoundFontWrite, BanksKeepProgramsApart)
{
    Collection items;
    Waveform& wave = AddWave(items, u"Wave", 20);
    const auto add = [&](unsigned msb, unsigned lsb, unsigned program) {
        Instrument& instrument = AddInstrument(items, u"I", program);
        instrument.location.SetBankMsb(msb);
        instrument.location.SetBankLsb(lsb);
        instrument.AddLayer().AddRegion(wave.Handle());
    };
    add(0, 1, 7);
    add(0, 0, 7);
    add(1, 0, 7);
    const Bank bank(Write(items));
    std::vector<unsigned> banks;
    for (const PresetHeader& header : bank.tables.presets)
        banks.push_back(header.bank.Get());
    EXPECT_EQ(banks, (std::vector<unsigned>{0, 1, 2, 0}));
}

TEST(SoundFontWrite, Samples24BitsWideKeepTheirLowBytes)
{
    Collection items;
    Waveform& wave = AddWave(items, u"Wide", 77, 1, 24);
    AddWave(items, u"Plain", 33);
    const Written automatic = Write(items);
    const Bank bank(automatic);
    EXPECT_EQ(bank.tables.minor, 4);
    EXPECT_EQ(bank.tables.lowBytes.bytes, 77u + 33 + 2 * 46);
    Collection again;
    Load(again, automatic);
    EXPECT_TRUE(std::ranges::equal(again.List<Waveform>()[1]->LockSamples(), wave.LockSamples()));
    const Bank plain(Write(items, {kPcm16 | kCapsMono, kSoundFont2, 0}));
    EXPECT_EQ(plain.tables.minor, 1);
    EXPECT_EQ(plain.tables.lowBytes.bytes, 0u);
}

TEST(SoundFontWrite, CompressedBanksHoldStreamsWhereTheyAreSmaller)
{
    Collection items;
    Waveform& longer = AddWave(items, u"Longer", 9001);
    longer.loop.type = LoopType::Forward;
    longer.loop.start = 100;
    longer.loop.end = 9000;
    Waveform& shorter = AddWave(items, u"Shorter", 11);
    AddWave(items, u"Stereo", 5000, 2).loop = longer.loop;
    const FormatChoice flac{kCompressed | kPcm16 | kPcm24, kSoundFont3, 1.0f};
    const Written written = Write(items, flac);
    ASSERT_TRUE(written.good);
    const Bank bank(written);
    EXPECT_EQ(bank.tables.major, 3);
    EXPECT_EQ(bank.tables.minor, 0);
    const auto& headers = bank.tables.sampleHeaders;
    ASSERT_EQ(headers.size(), 4u);
    EXPECT_EQ(headers[0].type.Get(), kSampleFlac | kSampleMono);
    EXPECT_EQ(headers[2].loopStart.Get(), 100u) << "counts from the stream, not from the bank";
    EXPECT_LT(headers[0].end.Get() - headers[0].start.Get(), 2u * 9001);
    EXPECT_EQ(headers[1].type.Get(), kSampleMono);
    EXPECT_EQ(headers[2].type.Get(), kSampleFlac | kSampleLeft);
    Collection again;
    Load(again, written);
    std::map<std::u16string, Waveform*> waves;
    for (Waveform* wave : again.List<Waveform>())
        waves.emplace(wave->GetName(), wave);
    EXPECT_TRUE(std::ranges::equal(waves.at(u"Longer")->LockSamples(), longer.LockSamples()));
    EXPECT_TRUE(std::ranges::equal(waves.at(u"Shorter")->LockSamples(), shorter.LockSamples()));
    EXPECT_TRUE(Write(items, flac).bytes == written.bytes);

    const Bank vorbis(Write(items, {kCompressed, kSoundFont3, 0.3f}));
    EXPECT_EQ(vorbis.tables.sampleHeaders[0].type.Get(), kSampleVorbis | kSampleMono);
    const Bank wide(Write(items, {kPcm24, kSoundFont3, 1.0f}));
    EXPECT_EQ(wide.tables.major, 2);
    EXPECT_EQ(wide.tables.minor, 4);

    Collection tiny;
    AddWave(tiny, u"Tiny", 11);
    EXPECT_EQ(Bank(Write(tiny, flac)).tables.major, 2);
}

TEST(SoundFontWrite, SettingsOfCompressionEndWithFlac)
{
    std::u16string name;
    std::uint32_t count = 0;
    float last = 0;
    for (float value = 0; (value = SoundFontSubFormats(count, kSoundFont3, &name)) > 0; ++count) {
        EXPECT_GT(value, last);
        last = value;
    }
    EXPECT_EQ(count, 10u);
    EXPECT_EQ(last, 1.0f);
    EXPECT_EQ(name, u"FLAC");
}

/// A full plane of keys and velocities, no two zones of which have anything in common.
void FillPlane(Layer& layer, const Waveform& wave, bool alike)
{
    unsigned number = 0;
    for (unsigned key = 0; key < 128; ++key)
        for (unsigned velocity = 0; velocity < 128; ++velocity, ++number) {
            const auto edge = [](unsigned value) { return static_cast<std::uint8_t>(value); };
            Region& region =
                layer.AddRegion(wave.Handle(), {edge(key), edge(key)}, {edge(velocity), edge(velocity)});
            const unsigned value = alike ? velocity : number * 7919 % 1999;
            region.articulation.Set(kArtPan, static_cast<float>(value % 1000) * 0.002f - 0.998f);
            region.articulation.Set(kArtTuning, static_cast<float>(alike ? key : value % 91) * 0.1f - 3);
        }
}

TEST(SoundFontWrite, TooManyValuesAreRefusedUnlessZonesCanShareThem)
{
    for (const bool alike : {true, false}) {
        Collection items;
        Layer& layer = AddInstrument(items, u"I", 0).AddLayer(u"Plane");
        FillPlane(layer, AddWave(items, u"Wave", 30), alike);
        const Written written = Write(items);
        ASSERT_EQ(written.good, alike);
        if (!alike) {
            const Written first = Write(items, kVersion1Choice);
            EXPECT_FALSE(first.good);
            EXPECT_TRUE(first.bytes.empty());
            EXPECT_TRUE(
                LastError().starts_with(u"Save failed - Too many 'parameter' values!\nThe SBK format can "
                                        u"handle a maximum of 65536 parameter values...\n"));
            Write(items);
            EXPECT_TRUE(written.bytes.empty());
            EXPECT_TRUE(LastError().starts_with(u"Save failed - Too much data!\n\nThe SF2 file format is"));
            // Two ranges, pan, two tunings and the sample for almost every one of 16,384 zones.
            const std::u16string count = LastError().substr(LastError().find(u"This bank would take "));
            EXPECT_GT(std::stoi(WideToUtf8(count.substr(21))), 16384 * 4) << WideToUtf8(count);
            EXPECT_LT(std::stoi(WideToUtf8(count.substr(21))), 16384 * 6 + 10) << WideToUtf8(count);
            EXPECT_TRUE(count.ends_with(u" generators of instruments.\n"));
            continue;
        }
        EXPECT_EQ(Bank(written).tables.instruments.size(), 1u + 1) << "one for all velocities";
        Collection again;
        Load(again, written);
        ASSERT_EQ(again.List<Instrument>()[0]->Layers().size(), 1u);
        EXPECT_EQ(again.List<Instrument>()[0]->Layers()[0]->Regions().size(), 128u * 128);
        EXPECT_TRUE(Write(again).bytes == written.bytes);
    }
}

class NotingHost final : public Host {
public:
    bool WantsNotes() const override { return true; }
    void NoteConversion(ConversionNote note) override
    {
        if (note.fidelity != Fidelity::Kept)
            lost.push_back(note.what);
    }
    std::vector<std::u16string> lost;
};

/// Samples that lie in a file as the bank wants them are copied from there.
TEST(SoundFontWrite, BanksOnDiskAreRewrittenFromThere)
{
    Collection items;
    Instrument& instrument = AddInstrument(items, u"I", 0);
    instrument.AddLayer(u"La").AddRegion(AddWave(items, u"Long", 700000).Handle(), {0, 60});
    Waveform &left = AddWave(items, u"Piano -L", 300), &right = AddWave(items, u"Piano -R", 200);
    instrument.AddLayer(u"Le").AddRegion(left.Handle(), {61, 90}).articulation.Set(kArtPan, -1);
    instrument.AddLayer(u"Ri").AddRegion(right.Handle(), {61, 90}).articulation.Set(kArtPan, 1);
    const Written one = Write(items);
    ASSERT_TRUE(one.good);

    const std::string path = testing::TempDir() + "vimbo_rewritten.sf2";
    const auto store = [&](std::size_t bytes) {
        FileObject file;
        return file.Open(Utf8ToWide(path), FileMode::Create) &&
               file.WriteAll(std::span(one.bytes).first(bytes));
    };
    ASSERT_TRUE(store(one.bytes.size()));
    Collection again;
    ASSERT_TRUE(LoadFile(again, Utf8ToWide(path), AllowRaw::No));
    ASSERT_EQ(again.CountOf(ItemKind::Waveform), 2u) << "the halves are joined";
    // The shorter half has grown by silence, as both halves of a waveform have one length.
    const Written two = Write(again);
    ASSERT_TRUE(two.good);
    for (const Waveform& wave : again.All<Waveform>())
        EXPECT_FALSE(wave.HasBlock());
    for (Waveform& wave : again.All<Waveform>())
        static_cast<void>(wave.LockSamplesForWrite()); // from memory
    EXPECT_TRUE(Write(again).bytes == two.bytes);

    struct Stopper final : Host {
        bool IsCancelled() const override { return true; }
    } stopper;
    Collection stopped;
    ASSERT_TRUE(LoadFile(stopped, Utf8ToWide(path), AllowRaw::No));
    stopped.SetHost(stopper);
    EXPECT_FALSE(Write(stopped).good);
    EXPECT_EQ(LastError(), u"Save aborted!");

    Collection cut;
    ASSERT_TRUE(LoadFile(cut, Utf8ToWide(path), AllowRaw::No));
    ASSERT_TRUE(store(100000));
    ClearLastError();
    EXPECT_FALSE(Write(cut).good);
    EXPECT_FALSE(LastError().empty());
    std::remove(path.c_str());
}

TEST(SoundFontWrite, Version1SpeltOut)
{
    Collection items;
    Waveform& wave = AddWave(items, u"Wv", 4);
    wave.rateHz = 22050;
    wave.rootKey = 50;
    Region& region = AddInstrument(items, u"In", 5).AddLayer(u"La").AddRegion(wave.Handle(), {0, 59});
    region.articulation.Set(kArtPan, 1);
    region.articulation.Set(kArtTuning, -1.25f);
    const Written written = Write(items, kVersion1Choice);
    ASSERT_TRUE(written.good);
    const std::string_view text(reinterpret_cast<const char*>(written.bytes.data()), written.bytes.size());
    const auto part = [&](std::string_view mark) {
        const std::size_t at = text.find(mark);
        return at != text.npos ? text.substr(at) : std::string_view();
    };
    EXPECT_TRUE(part("ifil").starts_with({"ifil\4\0\0\0\1\0\0\0isng\10\0\0\0EMU8000\0", 28}));
    std::string names("snam\50\0\0\0Wv", 10);
    names += std::string(18, '\0') + "EOS" + std::string(17, '\0');
    EXPECT_TRUE(part("snam").starts_with(names + std::string("smpl\144\0\0\0", 8))); // 4 + 46 frames
    EXPECT_TRUE(part("phdr").starts_with({"phdr\114\0\0\0In\0", 11}));
    EXPECT_TRUE(part("pbag").starts_with({"pbag\10\0\0\0\0\0\0\0\1\0\0\0pmod\12\0\0\0", 24}));
    EXPECT_TRUE(part("pgen").starts_with({"pgen\10\0\0\0\51\0\0\0\0\0\0\0inst", 20}));
    // Keys, pan of 127, LFOs of 8 Hz, semitone and cents, key 62: an octave above 50 at twice the rate.
    EXPECT_TRUE(part("igen").starts_with({"igen\44\0\0\0\53\0\0\73\21\0\177\0\26\0\141\0\30\0\141\0"
                                          "\63\0\377\377\64\0\347\377\67\0\70\30\65\0\0\0\0\0\0\0",
                                          44}));
    EXPECT_EQ(part("shdr"), std::string_view("shdr\40\0\0\0\0\0\0\0\4\0\0\0\0\0\0\0\0\0\0\0"
                                             "\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0",
                                             40));
    Collection empty;
    EXPECT_FALSE(Write(empty, kVersion1Choice).good);
    EXPECT_EQ(LastError(), u"A SoundFont v1 bank needs at least one waveform");
}

TEST(SoundFontWrite, Version1AmountsStandForTheNearestValue)
{
    for (unsigned i = 0; i < kGenerators; ++i)
        for (const int amount : {1, 2, 50, 95, 96, 126, 127}) {
            const std::int32_t value = FromVersion1(i, amount);
            EXPECT_EQ(FromVersion1(i, ToVersion1(i, value)), value) << i << " " << amount;
        }
    EXPECT_EQ(ToVersion1(kGenVolEnvAttack, -1200), 500);
    EXPECT_EQ(ToVersion1(kGenVolEnvRelease, 8000), 32758) << "the first of the highest value";
    EXPECT_EQ(ToVersion1(kGenAttenuation, -50), 127);
    EXPECT_EQ(ToVersion1(kGenAttenuation, 60), 64);
    EXPECT_EQ(ToVersion1(kGenVolEnvSustain, 500), 48) << "496, not 506.5";
    EXPECT_EQ(ToVersion1(kGenModLfoToPitch, -15), -2);
    EXPECT_EQ(ToVersion1(kGenVibLfoFrequency, 4500), 255);
    Zone closing = DefaultZone();
    closing.generators[kGenCutoff] = 13498;
    EXPECT_EQ(HeldByVersion1(closing).generators[kGenCutoff], 14400);
    closing.generators[kGenModEnvToCutoff] = -2400;
    EXPECT_EQ(HeldByVersion1(closing).generators[kGenCutoff], 11800) << "none would lose the envelope";
}

TEST(SoundFontWrite, Version1SoundsTheSameAndIsWrittenTheSame)
{
    Collection items;
    Waveform& wave = AddWave(items, u"Mono", 300);
    wave.rateHz = 32000;
    wave.fineTune = 20;
    wave.volume = -2;
    wave.loop.type = LoopType::Forward;
    wave.loop.start = 40;
    wave.loop.end = 290;
    Waveform& stereo = AddWave(items, u"Wide", 200, 2);
    Layer& layer = AddInstrument(items, u"I", 3).AddLayer(u"La");
    constexpr std::array<float, 3> kTracking{1, 0.5f, 0};
    for (std::uint8_t i = 0; i < 3; ++i) {
        Region& region = layer.AddRegion(wave.Handle(), {i, i});
        region.articulation.Set(kArtKeyToPitch, kTracking[i]);
        region.articulation.Set(kArtFilterType, static_cast<float>(FilterType::LowPass12));
        region.articulation.Set(kArtCutoff, 2000);
        region.articulation.Set(kArtVelToCutoff, 12);
        region.articulation.Set(kArtEnvelopes + kEnvelopeParams * 1 + kEnvSustain, 0.9f);
        region.articulation.Set(kArtEnvelopes + kEnvelopeParams * 1 + kEnvDecay2Time, 1);
    }
    layer.AddRegion(stereo.Handle(), {60, 90});
    FixUpItems(items, kPruneAll, AfterLoad::No);
    const Written one = Write(items, kVersion1Choice);
    ASSERT_TRUE(one.good);
    Collection again;
    Load(again, one, kSoundFont1);
    const auto regions = again.List<Instrument>().at(0)->Layers().at(0)->Regions();
    ASSERT_EQ(regions.size(), 4u);
    const double wanted = 12 * std::log2(32000.0 / 44100) + 0.2; // of key 60 at root key 60
    for (std::size_t i = 0; i < 3; ++i) {
        const ArticulationBlock& block = regions[i]->articulation;
        EXPECT_EQ(block[kArtKeyToPitch], kTracking[i]);
        const double sounding =
            block[kArtTuning] + (60 - regions[i]->EffectiveRootKey()) * double{kTracking[i]};
        EXPECT_NEAR(sounding, wanted, 0.01) << i;
        EXPECT_NEAR(block[kArtCutoff], 2000, 40) << "at the middle velocity, as the file has no other";
        EXPECT_NEAR(block[kArtVolume], -2, 0.06);
        EXPECT_EQ(GetEffectiveLoop(*regions[i]).start, 40);
    }
    EXPECT_EQ(regions[3]->Wave()->channels, 2);
    EXPECT_TRUE(Write(again, kVersion1Choice).bytes == one.bytes);
}

TEST(SoundFontWrite, LossesAreTold)
{
    NotingHost host;
    Collection items;
    items.SetHost(host);
    Waveform& wave = AddWave(items, u"Wave", 100);
    wave.markers.emplace_back();
    Instrument& instrument = AddInstrument(items, u"I", 0);
    instrument.channelFx[0].type = ChannelFxType::Delay;
    Region& region = instrument.AddLayer().AddRegion(wave.Handle());
    region.articulation.Set(kArtFilterType, static_cast<float>(FilterType::HighPass12));
    region.trigger.Set(kParamDelay, 2);
    region.SetParam(kParamLoopType, static_cast<float>(LoopType::Alternating));
    instrument.AddLayer().AddRegion(NO_ITEM);
    AddInstrument(items, u"Empty", 1);
    // One that is set in its own way, one like what is read, one too many.
    instrument.channelFx[1] = kDefaultChorus;
    instrument.channelFx[1].values[0] = 0.9f;
    instrument.channelFx[2] = kDefaultReverb;
    instrument.channelFx[3] = kDefaultReverb;
    region.articulation.Set(kArtSend + kSendParams * 1, 0.5f);
    region.articulation.Set(kArtSend + kSendParams * 2, 0.5f);
    region.ParentLayer()->SetName(u"A layer of more than 20 characters");
    ASSERT_TRUE(Write(items).good);
    for (const std::u16string_view what :
         {u"Filter type", u"Markers", u"Channel effect 1", u"Channel effect 2", u"Channel effect 4",
          u"Region", u"Instrument", u"Name"})
        EXPECT_EQ(std::ranges::count(host.lost, what), 1) << WideToUtf8(std::u16string(what));
    for (const ParamId id : {kParamDelay, kParamLoopType})
        EXPECT_EQ(std::ranges::count(host.lost, AnyParamRow(id).name), 1) << id;
    EXPECT_EQ(std::ranges::count(host.lost, u"Channel effect 3"), 0);
    host.lost.clear();
    region.articulation.Set(kArtSend + kSendParams * 2, 0); // to the reverb
    ASSERT_TRUE(Write(items).good);
    EXPECT_EQ(std::ranges::count(host.lost, u"Channel effect 3"), 1);
    host.lost.clear();
    wave.rateHz = 22050;
    region.articulation.Set(kArtVelToVolume, 48);
    ASSERT_TRUE(Write(items, kVersion1Choice).good);
    for (const ParamId id : {kParamWaveRate, kArtVelToVolume})
        EXPECT_EQ(std::ranges::count(host.lost, AnyParamRow(id).name), 1) << id;
    EXPECT_EQ(std::ranges::count(host.lost, AnyParamRow(kArtTuning).name), 0);
}

} // namespace
} // namespace vimbo::sf2
