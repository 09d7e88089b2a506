// SoundFont banks of all versions, built in memory: zones, samples, refusals, and damage.
#include "base/last_error.h"
#include "formats/soundfont/bank_builder.h"
#include "formats/soundfont/soundfont.h"
#include "formats/soundfont/soundfont_units.h"
#include "formats/xiph/xiph.h"
#include "model/consistency.h"
#include "model/envelope.h"
#include "model/fix_up.h"
#include "model/instrument.h"
#include "model/waveform.h"
#include "test_files.h"
#include "test_host.h"

#include <gtest/gtest.h>

#include <cmath>

namespace vimbo {
namespace {

using namespace sf2;
using testing::ScratchFolder;
using testing::ScriptedHost;

/// One sample of ten frames that count up, its loop from 2 to 6.
BankBuilder TenFrames()
{
    BankBuilder bank;
    bank.AddWords({0, 0, 100, 200, 300, 400, 500, 600, 700, 800, 900, 1000});
    SampleHeader& sample = bank.AddSample("Ten", 2, 12);
    sample.loopStart = 4u;
    sample.loopEnd = 8u;
    sample.originalPitch = 64;
    sample.pitchCorrection = -7;
    return bank;
}

struct Opened {
    explicit Opened(BankBuilder bank, std::uint32_t variant = kSoundFont2, Host* host = nullptr)
        : Opened(bank.Build(), variant, host)
    {
    }
    explicit Opened(std::vector<std::byte> bytes, std::uint32_t variant = kSoundFont2, Host* host = nullptr)
        : file(bytes, u"bank.sf2")
    {
        if (host != nullptr)
            items.SetHost(*host);
        isRead = ReadSoundFont(items, file, variant);
    }
    std::vector<Region*> Regions() const { return items.List<Region>(); }
    Waveform& Wave(std::size_t index) const { return *items.List<Waveform>()[index]; }
    std::vector<float> Load(Waveform& wave)
    {
        if (!file.Seek(wave.sourceOffset) || !wave.importProc->load(wave, file))
            return {};
        const auto samples = wave.LockSamples();
        return {samples.begin(), samples.end()};
    }
    MemoryFile file;
    Collection items;
    bool isRead = false;
};

TEST(SoundFontRead, SumsZonesOfPresetAndInstrument)
{
    BankBuilder bank = TenFrames();
    const Modulator wheelToCutoff{129, kGenCutoff, std::int16_t{300}, 0, 0};
    const Modulator other{1026, kGenCutoff, std::int16_t{1}, 0, 0}; // has no place
    bank.instrumentModulators = {wheelToCutoff, other};
    bank.AddInstrument("Both", {{{kGenCoarseTune, 3}, {kGenCutoff, 6000}, {kGenSampleModes, 1}},
                                {{kGenKeyRange, Range(0, 60)}, {kGenFineTune, 50}, {kGenSample, 0}},
                                {{kGenCutoff, 9000}}, // neither global nor of a sample
                                {{kGenSample, 0}, {kGenKeyRange, Range(50, 127)}, {kGenCoarseTune, -2}},
                                {{kGenSample, 7}}});
    bank.AddPreset("Piano", 128, 5,
                   {{{kGenCoarseTune, 1}, {kGenVelocityRange, Range(1, 100)}},
                    {{kGenCoarseTune, 10}, {kGenRootKey, 1}, {kGenInstrument, 0}},
                    {{kGenKeyRange, Range(55, 58)}, {kGenInstrument, 0}},
                    {{kGenInstrument, 9}}});
    const Opened opened(bank);
    ASSERT_TRUE(opened.isRead);
    EXPECT_EQ(opened.items.GetName(), u"Test bank");
    EXPECT_EQ(opened.items.GetText(kTextComments), u"Remark");
    const Instrument& piano = *opened.items.List<Instrument>().at(0);
    EXPECT_EQ(piano.GetName(), u"Piano");
    EXPECT_TRUE(piano.location.IsDrum());
    EXPECT_EQ(piano.location.Program(), 5u);
    EXPECT_EQ(piano.location.BankMsb(), 0u);
    const std::vector<Layer*> layers = piano.Layers();
    ASSERT_EQ(layers.size(), 4u); // the two zones overlap from 50 to 60
    EXPECT_EQ(layers[0]->GetName().substr(0, 4), u"Both");
    EXPECT_EQ(layers[0]->trigger.velocities, (MidiRange{1, 100}));
    EXPECT_EQ(layers[2]->trigger.keys, (MidiRange{55, 58}));
    struct Want {
        MidiRange keys;
        float tuning;
    };
    const Want wants[] = {{{0, 60}, 13.5f}, {{50, 127}, 8}, {{55, 58}, 4.5f}, {{55, 58}, -1}};
    for (std::size_t i = 0; i < 4; ++i) {
        const Region& region = *layers[i]->Regions().at(0);
        EXPECT_EQ(region.trigger.keys, wants[i].keys);
        EXPECT_EQ(region.trigger.velocities, (MidiRange{1, 100}));
        EXPECT_NEAR(region.articulation[kArtTuning], wants[i].tuning, 1e-4);
        EXPECT_NEAR(region.articulation[kArtCutoff], 262, 1); // global in the instrument
        EXPECT_NEAR(region.articulation[kArtWheelToCutoff], 3, 1e-4);
        EXPECT_EQ(region.EffectiveRootKey(), 64); // presets may not set it
        EXPECT_EQ(GetEffectiveLoop(region).type, LoopType::Forward);
    }
}

TEST(SoundFontRead, AppliesSampleSettings)
{
    BankBuilder bank = TenFrames();
    const ZoneSpec zones[] = {
        {{kGenSampleModes, 0}},
        {{kGenSampleModes, 1}, {kGenLoopStartOffset, 1}, {kGenLoopEndOffset, -1}},
        {{kGenSampleModes, 2}, {kGenExclusiveClass, 3}},
        {{kGenSampleModes, 3}, {kGenRootKey, 70}, {kGenStartOffset, 2}, {kGenEndOffset, -1}},
        {{kGenSampleModes, 1}, {kGenLoopStartCoarse, 1}, {kGenStartOffset, -5}},
        {{kGenKey, 67}, {kGenScaleTuning, 50}},
    };
    std::vector<ZoneSpec> placed;
    for (int i = 0; const ZoneSpec& zone : zones) {
        placed.push_back({{kGenKeyRange, Range(i, i)}});
        placed.back().insert(placed.back().end(), zone.begin(), zone.end());
        placed.back().push_back({kGenSample, 0});
        ++i;
    }
    bank.AddInstrument("I", placed);
    bank.AddPreset("P", 0, 0, {{{kGenInstrument, 0}}});
    const Opened opened(bank);
    const std::vector<Region*> regions = opened.Regions();
    ASSERT_EQ(regions.size(), std::size(zones));
    const auto loop = [&](std::size_t i) { return GetEffectiveLoop(*regions[i]); };
    EXPECT_EQ(loop(0).type, LoopType::Off);
    EXPECT_EQ(loop(1), (LoopInfo{LoopType::Forward, false, false, 3, 5, 0}));
    EXPECT_EQ(loop(2).type, LoopType::Off);
    EXPECT_TRUE(loop(2).oneShot);
    EXPECT_EQ(regions[2]->trigger.exclusionGroup, 3);
    EXPECT_EQ(loop(3), (LoopInfo{LoopType::Forward, true, false, 2, 6, 0}));
    EXPECT_EQ(regions[3]->EffectiveRootKey(), 70);
    EXPECT_EQ(regions[3]->startOffset, 2);
    EXPECT_EQ(regions[3]->endOffset, -1);
    EXPECT_EQ(loop(4).type, LoopType::Off); // it would begin behind the sample
    EXPECT_EQ(regions[4]->startOffset, 0);
    EXPECT_FLOAT_EQ(regions[5]->articulation[kArtTuning], 1.5f); // 3 keys above the root, half a tone each
    EXPECT_EQ(regions[5]->articulation[kArtKeyToPitch], 0);
    EXPECT_EQ(regions[0]->overrideFlags, Region::kLoopType);
    const Waveform& wave = opened.Wave(0);
    EXPECT_EQ(wave.frames, 10u);
    EXPECT_EQ(wave.rateHz, 32000u);
    EXPECT_EQ(wave.rootKey, 64);
    EXPECT_EQ(wave.fineTune, -7);
}

TEST(SoundFontRead, MovesWhatAllRegionsSayToTheWaveform)
{
    BankBuilder bank = TenFrames();
    bank.AddSample("Drum", 2, 12).originalPitch = 255;
    bank.AddInstrument("I", {{{kGenRootKey, 48}, {kGenSampleModes, 0}, {kGenSample, 0}}, {{kGenSample, 1}}});
    bank.AddPreset("P", 3, 0, {{{kGenInstrument, 0}}});
    const Opened opened(bank);
    EXPECT_EQ(opened.Wave(0).rootKey, 48);
    EXPECT_EQ(opened.Wave(0).loop.type, LoopType::Off);
    EXPECT_EQ(opened.Wave(1).rootKey, 60);
    EXPECT_EQ(opened.Regions()[0]->overrideFlags, 0);
    EXPECT_EQ(opened.Regions()[1]->articulation[kArtKeyToPitch], 0); // unpitched
    EXPECT_EQ(opened.items.List<Instrument>()[0]->location.BankMsb(), 3u);
}

TEST(SoundFontRead, StacksOverlapsAndJoinsStereoPairs)
{
    BankBuilder bank = TenFrames();
    bank.AddSample("Pair L", 2, 12, kSampleLeft).link = std::uint16_t{2};
    bank.AddSample("Pair R", 2, 12, kSampleRight).link = std::uint16_t{1};
    bank.AddSample("Lone L", 2, 12, kSampleLeft).link = std::uint16_t{9};
    bank.AddInstrument("I", {{{kGenPan, -500}, {kGenSample, 1}},
                             {{kGenPan, 300}, {kGenSample, 2}},
                             {{kGenPan, 250}, {kGenSample, 3}}});
    bank.AddPreset("P", 0, 0, {{{kGenInstrument, 0}}});
    Opened opened(bank);
    const std::vector<Region*> regions = opened.Regions();
    ASSERT_EQ(opened.items.CountOf(ItemKind::Layer), 3u);
    EXPECT_EQ(regions[0]->articulation[kArtPan], -1);
    EXPECT_EQ(regions[1]->articulation[kArtPan], 1);
    EXPECT_FLOAT_EQ(regions[2]->articulation[kArtPan], 0.5f);
    FixUpItems(opened.items, kPruneAll, AfterLoad::Yes, SourceHoldsStereo::No);
    EXPECT_EQ(opened.items.CountOf(ItemKind::Region), 2u);
    EXPECT_EQ(opened.items.CountOf(ItemKind::Waveform), 3u); // the unused one stays
}

TEST(SoundFontRead, FindsSamplesInTheirPlaces)
{
    BankBuilder bank = TenFrames();
    bank.lowBytes.assign(12, std::byte{0x80});
    bank.AddSample("Cut", 10, 40);
    bank.AddSample("Outside", 12, 20);
    bank.AddSample("Backward", 6, 3);
    bank.AddSample("None", 0, 0);
    bank.AddSample("Rom", 4, 8, kSampleMono | kSampleRom);
    ScriptedHost host;
    Opened opened(bank, kSoundFont2, &host);
    ASSERT_EQ(opened.items.CountOf(ItemKind::Waveform), 2u);
    Waveform& ten = opened.Wave(0);
    EXPECT_EQ(ten.bits, 24);
    const std::vector<float> samples = opened.Load(ten);
    ASSERT_EQ(samples.size(), 10u);
    for (float wanted = 100; const float sample : samples) {
        EXPECT_FLOAT_EQ(sample, (wanted * 256 + 0x80) / 8388608);
        wanted += 100;
    }
    const auto source = ten.importProc->stream(ten, std::make_unique<MemoryFile>(opened.file.Bytes()));
    std::vector<float> part(4);
    ASSERT_TRUE(source != nullptr && source->Read(6, part));
    EXPECT_TRUE(std::equal(part.begin(), part.end(), samples.begin() + 6));
    EXPECT_EQ(opened.Wave(1).frames, 2u);
    ASSERT_EQ(host.asked.size(), 1u);
    EXPECT_EQ(host.asked[0],
              u"This SoundFont references ROM waveforms.\n\nWould you like to skip these, or load "
              u"them from \"1mgm.sf2\"?\n(i.e. the AWE32 ROM equivalent from the SB Live-drivers)");
    ten.frames = 1000; // more than the file has
    EXPECT_TRUE(opened.Load(ten).empty());
}

TEST(SoundFontRead, TakesRomSamplesFromTheirBank)
{
    const ScratchFolder folder;
    BankBuilder rom = TenFrames();
    ScriptedHost host;
    host.answers["soundfont-rom"] = 1;
    host.picked = folder.Put("rom.sf2", rom.Build());
    BankBuilder bank;
    bank.AddSample("Rom", 4, 8, kSampleMono | kSampleRom);
    Opened opened(bank, kSoundFont2, &host);
    EXPECT_EQ(host.asked.back(), u"Please locate 1mgm.sf2");
    ASSERT_EQ(opened.items.CountOf(ItemKind::Waveform), 1u);
    EXPECT_FLOAT_EQ(opened.Wave(0).LockSamples()[0], 300 / 32768.0f);
    host.picked = folder.Put("no.sf2", std::vector<std::byte>(40));
    EXPECT_EQ(Opened(bank, kSoundFont2, &host).items.CountOf(ItemKind::Waveform), 0u);
    EXPECT_EQ(host.shown.back(), u"Invalid 1mgm.sf2 - skipping ROM");
}

TEST(SoundFontRead, TakesOtherAmountsOfTheVelocityCurve)
{
    constexpr std::uint16_t kSensitivity = 16; // as an amount source: not always the whole amount
    const auto curve = [](std::int16_t amount) { return Modulator{0x0502, kGenAttenuation, amount, 0, 0}; };
    const Modulator linear{0x0102, kGenAttenuation, std::int16_t{1200}, 0, 0};
    const Modulator moved{0x0502, kGenAttenuation, std::int16_t{0}, kSensitivity, 0};
    struct Case {
        std::vector<Modulator> instrument, preset;
        float want;
    };
    const Case cases[] = {{{}, {}, 96},
                          {{curve(0)}, {}, 0},
                          {{curve(480)}, {}, 48},
                          {{curve(480)}, {curve(-100)}, 38},
                          {{}, {curve(-960)}, 0},
                          {{linear, curve(0)}, {}, 48}, // as this program writes it
                          {{curve(0), linear}, {}, 48},
                          {{curve(-480)}, {}, 96},
                          {{moved}, {}, 96}};
    for (const Case& c : cases) {
        BankBuilder bank = TenFrames();
        bank.instrumentModulators = c.instrument;
        bank.presetModulators = c.preset;
        bank.AddInstrument("I", {{{kGenSample, 0}}});
        bank.AddPreset("P", 0, 0, {{{kGenInstrument, 0}}});
        const Opened opened(bank);
        EXPECT_FLOAT_EQ(opened.Regions().at(0)->articulation[kArtVelToVolume], c.want) << &c - cases;
    }
}

TEST(SoundFontRead, FixedVelocityIsThatOfEveryNote)
{
    constexpr std::uint16_t kVelocityUp = 514;
    BankBuilder bank = TenFrames();
    bank.instrumentModulators = {{kVelocityUp, kGenVolEnvAttack, std::int16_t{1200}, 0, 0},
                                 {kVelocityUp, kGenVibLfoToPitch, std::int16_t{100}, 0, 0},
                                 {0x0102, kGenCutoff, std::int16_t{-2400}, 0, 0}};
    const ZoneSpec common = {{kGenVolEnvAttack, 0}, {kGenVibLfoToPitch, 200}, {kGenCutoff, 8000}};
    std::vector<ZoneSpec> zones{common}; // global
    for (const auto& [keys, velocity] :
         {std::pair{Range(0, 9), 1}, {Range(10, 19), 64}, {Range(20, 29), 127}})
        zones.push_back({{kGenKeyRange, keys}, {kGenVelocity, velocity}, {kGenSample, 0}});
    bank.AddInstrument("I", zones);
    bank.AddPreset("P", 0, 0, {{{kGenInstrument, 0}}});
    const Opened opened(bank);
    const std::vector<Region*> regions = opened.Regions();
    ASSERT_EQ(regions.size(), 3u);
    // Level: 40 dB per decade. Attack: an octave of time to either side. Cutoff: at full velocity the
    // file's, 831 Hz, and two octaves lower at the lowest.
    const float dB[] = {-84.15f, -11.90f, 0}, attack[] = {0.5f, 1, 2}, vibrato[] = {1, 2, 3},
                hz[] = {207.7f, 415.3f, 830.6f};
    for (std::size_t i = 0; i < 3; ++i) {
        const ArticulationBlock& block = regions[i]->articulation;
        EXPECT_NEAR(block[kArtVolume], dB[i], 0.01);
        EXPECT_NEAR(block[kArtEnvelopes + kEnvAttack2Time], attack[i], 0.01);
        EXPECT_NEAR(block[kArtPLfoToPitch], vibrato[i], 0.01);
        EXPECT_NEAR(block[kArtCutoff], hz[i], 1.5);
        for (const ParamId id : {kArtVelToVolume, kArtVelPLfoToPitch, kArtVelToCutoff})
            EXPECT_EQ(block[id], 0) << id;
        EXPECT_EQ(block[kArtEnvelopes + kEnvVelToAttack2], 1);
    }
}

class NotedHost final : public Host {
public:
    std::vector<std::u16string> notes;
    bool WantsNotes() const override { return true; }
    void NoteConversion(ConversionNote note) override
    {
        const std::string count = std::to_string(note.count);
        notes.push_back(note.what + u" " + std::u16string(count.begin(), count.end()));
    }
};

TEST(SoundFontRead, TellsWhatWasLost)
{
    BankBuilder bank = TenFrames();
    bank.AddSample("Cut", 10, 40);
    bank.AddSample("Outside", 12, 20);
    bank.presetModulators.assign(3, {1026, kGenCutoff, std::int16_t{1}, 0, 0});
    bank.AddInstrument("I", {{{kGenStartOffset, -1}, {kGenVelocity, 90}, {kGenSample, 0}}});
    bank.AddPreset("P", 0, 0, {{{kGenRootKey, 60}, {14, 1}, {kGenInstrument, 0}}});
    NotedHost host;
    const Opened opened(bank, kSoundFont2, &host);
    EXPECT_EQ(host.notes,
              (std::vector<std::u16string>{u"Samples 1", u"Samples 1", u"Modulators 3", u"Generators 1",
                                           u"Generators 1", u"Sample offsets 1"}));
}

/// A sine of `frames` frames as a coded stream.
std::vector<std::byte> Coded(std::uint32_t frames, bool isFlac)
{
    Collection items;
    Waveform& wave = items.Create<Waveform>(u"Sine");
    wave.frames = frames;
    wave.rateHz = 44100;
    for (std::size_t i = 0; float& sample : wave.LockSamplesForWrite())
        sample = 0.5f * std::sin(0.05f * static_cast<float>(i++));
    MemoryFile out;
    const auto source = wave.OpenFrames();
    EXPECT_TRUE(isFlac ? EncodeFlac(*source, FlacSettings{}, out)
                       : EncodeVorbis(*source, VorbisSettings{}, out));
    return out.Release();
}

TEST(SoundFontRead, ReadsCompressedSamples)
{
    BankBuilder bank;
    bank.major = 3;
    bank.padsSamples = false;
    for (const bool isFlac : {false, true}) {
        const auto start = static_cast<std::uint32_t>(bank.samples.size());
        const std::vector<std::byte> coded = Coded(5000, isFlac);
        bank.samples.insert(bank.samples.end(), coded.begin(), coded.end());
        const auto end = static_cast<std::uint32_t>(bank.samples.size());
        SampleHeader& header =
            bank.AddSample(isFlac ? "Flac" : "Vorbis", start, end, kSampleVorbis | kSampleMono);
        header.loopStart = 100u; // not from the start of the data
        header.loopEnd = 4000u;
        if (bank.samples.size() % 2 == 0)
            bank.samples.push_back(std::byte{0});
    }
    bank.AddSample("Neither", 1, 90, kSampleVorbis | kSampleMono);
    bank.AddInstrument("I", {{{kGenSample, 1}}});
    bank.AddPreset("P", 0, 0, {{{kGenInstrument, 0}}});
    Opened opened(bank, kSoundFont3);
    ASSERT_TRUE(opened.isRead); // tables at an odd place
    ASSERT_EQ(opened.items.CountOf(ItemKind::Waveform), 2u);
    EXPECT_EQ(opened.items.CountOf(ItemKind::Region), 1u);
    for (std::size_t i = 0; i < 2; ++i) {
        Waveform& wave = opened.Wave(i);
        EXPECT_EQ(wave.frames, 5000u);
        EXPECT_EQ(wave.rateHz, 32000u);
        EXPECT_EQ(wave.loop.start, 100);
        const std::vector<float> samples = opened.Load(wave);
        ASSERT_EQ(samples.size(), 5000u);
        EXPECT_NEAR(samples[2000], 0.5f * std::sin(100.0f), 0.03f);
    }
}

TEST(SoundFontRead, ReadsPackedBanks)
{
    BankBuilder bank;
    bank.form = "sfpk";
    bank.samples = Coded(9000, true);
    bank.AddSample("Part", 3000, 4000);
    bank.AddSample("Behind", 8000, 12000);
    Opened opened(bank, kSoundFontPacked);
    ASSERT_TRUE(opened.isRead);
    EXPECT_EQ(opened.Wave(1).frames, 1000u);
    Waveform& part = opened.Wave(0);
    const std::vector<float> samples = opened.Load(part);
    ASSERT_EQ(samples.size(), 1000u);
    EXPECT_NEAR(samples[7], 0.5f * std::sin(0.05f * 3007), 1e-3f);
    const auto source = part.importProc->stream(part, std::make_unique<MemoryFile>(opened.file.Bytes()));
    std::vector<float> last(10);
    ASSERT_TRUE(source != nullptr && source->Read(990, last));
    EXPECT_TRUE(std::equal(last.begin(), last.end(), samples.begin() + 990));
    bank.samples.assign(200, std::byte{1}); // of a coding that is not known
    EXPECT_EQ(Opened(bank, kSoundFontPacked).items.CountOf(ItemKind::Waveform), 0u);
}

TEST(SoundFontRead, ReadsVersion1)
{
    BankBuilder bank;
    bank.major = 1;
    bank.AddWords({0, 100, 200, 300});
    bank.AddSample("Rom", 4, 9);
    bank.AddSample("First", 0, 3);
    constexpr unsigned kSamplePitch = 55;
    bank.AddInstrument("I",
                       {{{kGenVolEnvAttack, 500}, {kGenPan, 127}, {kSamplePitch, 6210}, {kGenSample, 1}}});
    bank.AddPreset("P", 0, 0, {{{kGenPan, 0}, {kGenVolEnvRelease, 2000}, {kGenInstrument, 0}}});
    Opened opened(bank, kSoundFont1);
    ASSERT_TRUE(opened.isRead);
    ASSERT_EQ(opened.items.CountOf(ItemKind::Waveform), 1u); // the first one is of the ROM
    EXPECT_EQ(opened.Wave(0).GetName(), u"First");
    EXPECT_EQ(opened.Wave(0).rateHz, 44100u);
    const Region& region = *opened.Regions().at(0);
    EXPECT_EQ(region.articulation[kArtPan], 1); // the preset fills in only what is open
    EXPECT_EQ(region.EffectiveRootKey(), 62);
    EXPECT_NEAR(region.articulation[kArtTuning], -0.1f, 1e-4);
    Zone zone = DefaultZone();
    zone.generators[kGenVolEnvAttack] = -1200; // half a second
    zone.generators[kGenVolEnvRelease] = 1200;
    zone.generators[kGenModLfoFrequency] = -725;
    zone.generators[kGenVibLfoFrequency] = -15600;
    zone.generators[kGenPan] = 500;
    zone.generators[kGenFineTune] = -10;
    Instrument& scratch = opened.items.Create<Instrument>(u"");
    ArticulationBlock wanted;
    ZoneToArticulation(zone, wanted, &scratch);
    EXPECT_TRUE(region.articulation.SameValues(wanted));
    EXPECT_FALSE(Opened(bank, kSoundFontPacked).isRead);
    bank.samples.clear();
    EXPECT_FALSE(Opened(bank, kSoundFont1).isRead);
    EXPECT_EQ(LastError(), u"Not a SoundFont v1.x file");
}

TEST(SoundFontRead, UnwrapsLongTables)
{
    BankBuilder bank = TenFrames();
    const ZoneSpec filler(700, Gen2{kGenCoarseTune, 1});
    std::vector<ZoneSpec> zones;
    for (int key = 0; key < 100; ++key) { // 70300 generators
        zones.push_back({{kGenKeyRange, Range(key, key)}});
        zones.back().insert(zones.back().end(), filler.begin(), filler.end());
        zones.back().push_back({kGenFineTune, key});
        zones.back().push_back({kGenSample, 0});
    }
    bank.AddInstrument("I", zones);
    bank.AddPreset("P", 0, 0, {{{kGenInstrument, 0}}});
    const Opened opened(bank);
    ASSERT_EQ(opened.Regions().size(), 100u);
    EXPECT_NEAR(opened.Regions()[99]->articulation[kArtTuning], 1.99f, 1e-4);
}

TEST(SoundFontRead, RefusesToMultiplyZonesWithoutEnd)
{
    BankBuilder bank = TenFrames();
    std::vector<ZoneSpec> zones, links(600, ZoneSpec{{kGenInstrument, 0}});
    for (int i = 0; i < 600; ++i)
        zones.push_back({{kGenKeyRange, Range(i % 128, i % 128)},
                         {kGenVelocityRange, Range(i / 128, i / 128)},
                         {kGenSample, 0}});
    bank.AddInstrument("I", zones);
    bank.AddPreset("P", 0, 0, links);
    EXPECT_FALSE(Opened(bank).isRead);
    EXPECT_EQ(LastError(), u"The SoundFont bank has too many zones");
}

TEST(SoundFontRead, DetectsAndRefuses)
{
    struct Case {
        std::string_view form;
        std::uint16_t major;
        int v2, v1, v3, packed;
    };
    constexpr Case kCases[] = {{"sfbk", 2, 6, 2, 2, 0}, {"sfbk", 1, 2, 6, 2, 0}, {"sfbk", 3, 2, 2, 6, 0},
                               {"sfpk", 2, 0, 0, 0, 6}, {"WAVE", 2, 0, 0, 0, 0}, {"sfbk", 4, 2, 2, 2, 0}};
    for (const Case& c : kCases) {
        BankBuilder bank = TenFrames();
        bank.form = c.form;
        bank.major = c.major;
        const std::vector<std::byte> bytes = bank.Build();
        const auto score = [&](std::uint32_t variant) {
            return DetectSoundFont(bytes, variant, bytes.size());
        };
        EXPECT_EQ(score(kSoundFont2), c.v2);
        EXPECT_EQ(score(kSoundFont1), c.v1);
        EXPECT_EQ(score(kSoundFont3), c.v3);
        EXPECT_EQ(score(kSoundFontPacked), c.packed);
        EXPECT_EQ(Opened(bytes).isRead, c.form == "sfbk");
    }
    ClearLastError();
    EXPECT_FALSE(Opened(std::vector<std::byte>(100)).isRead);
    EXPECT_EQ(LastError(), u"Not a Sound Font v2.x file");
}

/// Whatever the bytes say, what is read must hold together and its samples must lie in the file.
void CheckDamaged(const std::vector<std::byte>& bytes, std::uint32_t variant)
{
    Opened opened(bytes, variant);
    if (!opened.isRead)
        return;
    EXPECT_TRUE(IsConsistent(opened.items));
    for (Waveform* wave : opened.items.List<Waveform>()) {
        const bool isLoaded = !opened.Load(*wave).empty();
        EXPECT_EQ(isLoaded, wave->HasBlock());
    }
}

TEST(SoundFontRead, StandsDamage)
{
    BankBuilder bank = TenFrames();
    bank.lowBytes.assign(12, std::byte{0x80});
    bank.presetModulators = bank.instrumentModulators = {{129, kGenCutoff, std::int16_t{300}, 0, 0}};
    bank.AddInstrument("I", {{{kGenCutoff, 6000}}, {{kGenKeyRange, Range(0, 60)}, {kGenSample, 0}}});
    bank.AddPreset("P", 0, 5, {{{kGenCoarseTune, 1}}, {{kGenInstrument, 0}}});
    for (std::uint16_t major = 1; major <= 3; ++major) {
        bank.major = major;
        const std::uint32_t variant = major == 1 ? kSoundFont1 : kSoundFont2;
        const std::vector<std::byte> bytes = bank.Build();
        ASSERT_TRUE(Opened(bytes, variant).isRead);
        for (std::size_t size = 0; size < bytes.size(); ++size) {
            const std::vector<std::byte> cut(bytes.begin(),
                                             bytes.begin() + static_cast<std::ptrdiff_t>(size));
            EXPECT_FALSE(Opened(cut, variant).isRead) << size; // the last table is cut or not there
        }
        for (const std::size_t width : {1u, 2u, 4u})
            for (const std::byte value : {std::byte{0}, std::byte{0x7F}, std::byte{0x80}, std::byte{0xFF}})
                for (std::size_t at = 0; at + width <= bytes.size(); ++at) {
                    std::vector<std::byte> damaged = bytes;
                    std::fill_n(damaged.begin() + static_cast<std::ptrdiff_t>(at), width, value);
                    CheckDamaged(damaged, variant);
                }
    }
}

/// An sfArk 2 archive without packed audio: blocks of a zlib stream (here a stored one), of which the program
/// that unpacks them reads 16-bit words from the top.
std::vector<std::byte> SfArk(std::span<const std::byte> bank, std::uint8_t method = 4)
{
    const auto adler = [](std::span<const std::byte> bytes, std::uint32_t a) {
        std::uint32_t b = 0;
        for (const std::byte byte : bytes) {
            a = (a + std::to_integer<std::uint32_t>(byte)) % 65521;
            b = (b + a) % 65521;
        }
        return b << 16 | a;
    };
    const auto size = static_cast<std::uint32_t>(bank.size());
    ByteWriter body;
    body.Write(U32le(size + 11));
    body.Append(std::string_view("\x78\x01\x01"));
    body.Write(U16le(static_cast<std::uint16_t>(size)));
    body.Write(U16le(static_cast<std::uint16_t>(~size)));
    body.Append(bank);
    body.Write(U32be(adler(bank, 1)));
    body.Fill(body.Size() % 2);
    std::vector<std::byte> words = body.Release();
    for (std::size_t i = 0; i + 1 < words.size(); i += 2)
        std::swap(words[i], words[i + 1]);
    ByteWriter out;
    constexpr std::string_view kName("a\0", 2);
    for (const std::uint32_t word :
         {0u, size, static_cast<std::uint32_t>(44 + words.size()), adler(bank, 0), 0u})
        out.Write(U32le(word));
    out.Write(std::uint8_t{20});
    out.Append(std::string_view("2.10 sfArk"));
    out.Write(method);
    out.Write(U16le(0));
    out.Write(U32le(size));
    out.Write(U32le(size));
    out.Append(kName);
    EXPECT_TRUE(out.Patch(16, U32le(adler(out.Bytes(), 0))));
    out.Append(words);
    return out.Release();
}

TEST(SfArkRead, UnpacksThroughTheProgram)
{
    BankBuilder bank = TenFrames();
    bank.AddInstrument("I", {{{kGenSample, 0}}});
    bank.AddPreset("P", 0, 0, {{{kGenInstrument, 0}}});
    const ScratchFolder folder;
    const std::vector<std::byte> archive = SfArk(bank.Build());
    EXPECT_EQ(DetectSfArk(archive, 0, archive.size()), 6);
    const auto read = [&](const std::vector<std::byte>& bytes, Collection& items) {
        FileObject file;
        return file.Open(folder.Put("x.sfArk", bytes), FileMode::Read) && ReadSfArk(items, file, 0);
    };
    Collection refused;
    EXPECT_FALSE(read(SfArk(bank.Build(), 2), refused));
    EXPECT_EQ(LastError(), u"The file was made by sfArk 1. Only files of version 2 can be read");
    Collection items;
    if (!read(archive, items)) {
        ASSERT_EQ(LastError(), u"You need to install sfarkxtc before you can read sfArk files");
        GTEST_SKIP();
    }
    Waveform& wave = *items.List<Waveform>().at(0);
    EXPECT_EQ(wave.importProc, nullptr); // nothing refers to the unpacked file
    EXPECT_FLOAT_EQ(wave.LockSamples()[9], 1000 / 32768.0f);
    EXPECT_EQ(items.CountOf(ItemKind::Region), 1u);
    std::vector<std::byte> damaged = archive;
    damaged[60] ^= std::byte{0xFF};
    EXPECT_FALSE(read(damaged, refused));
    EXPECT_EQ(LastError(), u"The sfArk file could not be unpacked");
}

} // namespace
} // namespace vimbo
