// DLS banks built in memory: connections, instruments and pools, refusals, writing at each level, damage.
#include "formats/dls/dls.h"

#include "base/last_error.h"
#include "formats/dls/dls_units.h"
#include "formats/wave/wave_records.h"
#include "model/consistency.h"
#include "model/envelope.h"
#include "model/fix_up.h"
#include "model/instrument.h"
#include "model/waveform.h"
#include "test_host.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <string>

namespace vimbo::dls {
namespace {

using testing::ScriptedHost;

constexpr std::uint32_t kAuto =
    FormatBit(DataFormat::Pcm8) | FormatBit(DataFormat::Pcm16) | kCapsMono | kCapsDualMono;
constexpr std::uint32_t kAutoPlus = 0x2122375;

// A bank of one waveform and instruments of regions, chunk by chunk.

void AddChunk(ByteWriter& out, FourCc id, std::span<const std::byte> body)
{
    out.Write(RiffChunkHead{id, static_cast<std::uint32_t>(body.size())});
    out.Append(body);
    out.Fill(body.size() & 1);
}
void AddList(ByteWriter& out, FourCc type, const ByteWriter& body, FourCc id = FourCc{"LIST"})
{
    out.Write(RiffChunkHead{id, static_cast<std::uint32_t>(4 + body.Size())});
    out.Write(type);
    out.Append(body.Bytes());
}
template <class... Records>
ByteWriter Bytes(const Records&... records)
{
    ByteWriter out;
    (out.Write(records), ...);
    return out;
}

struct RegionSpec {
    std::array<std::uint16_t, 4> ranges{0, 127, 0, 127};
    std::uint16_t options = 0, keyGroup = 0, layer = 0;
    WaveLink link{std::uint16_t{0}, std::uint16_t{0}, 1u, 0u};
    std::vector<Connection> connections;
    std::optional<std::pair<WsmpHead, WsmpLoop>> sample;
};

struct BankSpec {
    std::uint32_t bank = 0, program = 0;
    std::vector<Connection> common;
    std::vector<RegionSpec> regions;
    std::vector<std::uint32_t> cues{0};
    bool hasTable = true, hasWave = true;
    std::string software, waveRecord;
};

void AddConnections(ByteWriter& out, const std::vector<Connection>& connections)
{
    ByteWriter table = Bytes(TableHead{8u, static_cast<std::uint32_t>(connections.size())}), list;
    for (const Connection& at : connections)
        table.Write(ConnectionBlock{at.source, at.control, at.destination, at.transform, at.scale});
    AddChunk(list, FourCc{"art2"}, table.Bytes());
    AddList(out, FourCc{"lar2"}, list);
}

void AddRegion(ByteWriter& out, const RegionSpec& spec)
{
    ByteWriter body;
    const auto& r = spec.ranges;
    AddChunk(
        body, FourCc{"rgnh"},
        Bytes(RegionHeader{r[0], r[1], r[2], r[3], spec.options, spec.keyGroup}, U16le(spec.layer)).Bytes());
    if (spec.sample)
        AddChunk(body, FourCc{"wsmp"}, Bytes(spec.sample->first, spec.sample->second).Bytes());
    AddChunk(body, FourCc{"wlnk"}, Bytes(spec.link).Bytes());
    AddConnections(body, spec.connections);
    AddList(out, FourCc{"rgn2"}, body);
}

std::vector<std::byte> Build(const BankSpec& spec)
{
    ByteWriter regions, instrument, instruments, wave, pool, bank, table, file, info;
    for (const RegionSpec& region : spec.regions)
        AddRegion(regions, region);
    AddChunk(instrument, FourCc{"insh"},
             Bytes(InstrumentHeader{static_cast<std::uint32_t>(spec.regions.size()), spec.bank, spec.program})
                 .Bytes());
    AddList(instrument, FourCc{"lrgn"}, regions);
    AddConnections(instrument, spec.common);
    AddList(instruments, FourCc{"ins "}, instrument);
    AddChunk(bank, FourCc{"colh"}, Bytes(U32le(1)).Bytes());
    AddList(bank, FourCc{"lins"}, instruments);
    table = Bytes(TableHead{8u, static_cast<std::uint32_t>(spec.cues.size())});
    for (const std::uint32_t cue : spec.cues)
        table.Write(U32le(cue));
    if (spec.hasTable)
        AddChunk(bank, FourCc{"ptbl"}, table.Bytes());
    AddChunk(wave, FourCc{"fmt "},
             Bytes(FmtCommon{std::uint16_t{1}, std::uint16_t{1}, 22050u, 44100u, std::uint16_t{2}}, U16le(16))
                 .Bytes());
    ByteWriter samples;
    for (int i = 0; i < 10; ++i)
        samples.Write(I16le(static_cast<std::int16_t>(i * 1000)));
    AddChunk(wave, FourCc{"data"}, samples.Bytes());
    if (spec.hasWave)
        AddList(pool, FourCc{"wave"}, wave);
    AddList(bank, FourCc{"wvpl"}, pool);
    if (!spec.software.empty())
        AddChunk(info, FourCc{"ISFT"}, std::as_bytes(std::span(spec.software)));
    AddList(bank, FourCc{"INFO"}, info);
    AddList(file, FourCc{"DLS "}, bank, FourCc{"RIFF"});
    return file.Release();
}

struct Opened {
    explicit Opened(const BankSpec& spec, Host* host = nullptr) : Opened(Build(spec), host) {}
    explicit Opened(std::span<const std::byte> bytes, Host* host = nullptr) : file(bytes, u"bank.dls")
    {
        if (host != nullptr)
            items.SetHost(*host);
        isRead = ReadDls(items, file, 0);
    }
    Region& At(std::size_t index) const { return *items.List<Region>().at(index); }
    MemoryFile file;
    Collection items;
    bool isRead = false;
};

constexpr Connection Fixed(std::uint16_t destination, std::int32_t scale)
{
    return {0, 0, destination, 0, scale};
}
constexpr Connection By(std::uint16_t source, std::uint16_t destination, std::int32_t scale,
                        std::uint16_t control = 0)
{
    return {source, control, destination, 0, scale};
}
constexpr ParamId Env(EnvelopeIndex index, ParamId offset)
{
    return static_cast<ParamId>(EnvelopeBase(index) + offset);
}

TEST(DlsUnits, ConnectionsGiveValues)
{
    struct Row {
        std::vector<Connection> connections;
        ParamId id;
        double value;
    };
    constexpr std::int32_t kOctave = 78643200, kTwoOctaves = 157286400; // 1200 and 2400 cents, timecents
    constexpr Connection kFilter = Fixed(1280, 6900 * 65536);           // 440 Hz
    constexpr EnvelopeIndex kV = EnvelopeIndex::Volume, kP = EnvelopeIndex::Pitch, kF = EnvelopeIndex::Filter;
    const Row rows[] = {
        {{Fixed(4, -32768000)}, kArtPan, -1},
        {{Fixed(2, 0x12340000 | 250)}, kArtPan, 0.5},
        {{Fixed(3, 3276800)}, kArtTuning, 0.5},
        {{By(3, 3, 0)}, kArtKeyToPitch, 0},
        {{By(3, 3, 419430400)}, kArtKeyToPitch, 0.5},
        {{By(2, 1, -31457280)}, kArtVelToVolume, 48},
        {{By(129, 1, 1966080)}, kArtWheelToVolume, 3},
        {{By(138, 4, 16646144)}, kArtCc10ToPan, 0.5},
        {{By(3, 4, 34952531)}, kArtKeyToPan, 0.1},
        {{kFilter}, kArtCutoff, 440},
        {{kFilter}, kArtFilterType, 2},
        {{Fixed(1280, INT32_MAX)}, kArtFilterType, 0},
        {{kFilter, Fixed(1281, 655360 * 12)}, kArtResonance, 12},
        {{kFilter, Fixed(1281, 655360 * 12)}, kArtVolume, -6},
        {{kFilter, By(3, 1280, 838860800)}, kArtKeyToCutoff, 12},
        {{Fixed(1280, 900 * 65536), By(3, 1280, 838860800)}, kArtCutoff, 440}, // five octaves up
        {{kFilter, By(2, 1280, kTwoOctaves * 2)}, kArtVelToCutoff, 24},
        {{kFilter, By(2, 1280, kTwoOctaves)}, kArtCutoff, 880},
        {{kFilter, {2, 0, 1280, 0x4000, kTwoOctaves}}, kArtVelToCutoff, 24},
        {{kFilter, {2, 0, 1280, 0x4000, kTwoOctaves}}, kArtCutoff, 440},
        {{kFilter, By(5, 1280, -kOctave)}, kArtFEnvToCutoff, -12},
        {{By(5, 1280, -kOctave)}, kArtFEnvToCutoff, 0}, // nothing to move
        {{By(5, 3, kOctave)}, kArtPEnvToPitch, 12},
        {{By(5, 4, 32768000)}, kArtXEnvToPan, 1},
        {{By(9, 3, 327680)}, kArtPLfoToPitch, 0.05},
        {{By(9, 3, 327680, 129)}, kArtWheelPLfoToPitch, 0.05},
        {{By(9, 3, 327680)}, LfoBase(LfoIndex::Pitch) + kLfoDelay, 0.01},
        {{By(1, 1, 655360 * 3), Fixed(260, 0)}, LfoBase(LfoIndex::Volume) + kLfoFrequency, 8.18},
        {{kFilter, By(1, 1280, kOctave, 8)}, kArtTouchFLfoToCutoff, 12},
        {{By(1, 4, 16384000)}, kArtXLfoToPan, 0.5},
        {{By(9, 3, 327680), By(1, 3, 655360), Fixed(260, kOctave)}, kArtXLfoToPitch, 0.1},
        {{Fixed(518, kOctave)}, Env(kV, kEnvAttack2Time), 2},
        {{Fixed(518, INT32_MIN)}, Env(kV, kEnvAttack2Time), 0},
        {{Fixed(518, 0), By(2, 518, -kTwoOctaves)}, Env(kV, kEnvAttack2Time), 0.5},
        {{Fixed(518, 0), By(2, 518, -kTwoOctaves)}, Env(kV, kEnvVelToAttack2), 0.25},
        {{Fixed(519, 0), Fixed(522, 32768000)}, Env(kV, kEnvDecay2Time), 0.5},
        {{Fixed(520, 0x7FFF0000 | 250)}, Env(kV, kEnvSustain), 0.25},
        {{Fixed(524, 0), By(3, 524, -838860800)}, Env(kV, kEnvKeyToDecay1), 0.5},
        {{Fixed(524, kOctave * 5), By(3, 524, -838860800)}, Env(kV, kEnvDecay1Time), 1},
        {{Fixed(523, 0)}, Env(kV, kEnvAttack1Time), 1},
        {{Fixed(521, kTwoOctaves)}, Env(kV, kEnvRelease1Rate), 4},
        {{Fixed(525, 0)}, kArtShutdownRate, 1},
        {{By(5, 3, kOctave), Fixed(782, 0), Fixed(779, kOctave)}, Env(kP, kEnvDecay2Time), 2},
        {{kFilter, By(5, 1280, kOctave), Fixed(783, 0)}, Env(kF, kEnvAttack1Time), 1},
        {{Fixed(4, 32768000), Fixed(4, 0)}, kArtPan, 0}, // the last one
        {{{0, 7, 4, 0, 32768000}}, kArtPan, 0},          // means something else
    };
    for (const Row& row : rows) {
        const ArticulationBlock block = ToArticulation(row.connections, {}, {});
        EXPECT_NEAR(block[row.id], row.value, std::abs(row.value) * 1e-3 + 1e-4)
            << row.id << " from " << row.connections.back().source << " to "
            << row.connections.back().destination;
    }
}

TEST(DlsUnits, EverythingThatTheFormatHoldsComesBackExactly)
{
    ArticulationBlock block;
    const std::pair<ParamId, float> values[] = {
        {kArtTuning, -7.25f},       {kArtKeyToPitch, 0.37f},    {kArtVolume, -13.37f},
        {kArtVelToVolume, 71.5f},   {kArtKeyToVolume, -2.5f},   {kArtWheelToVolume, 4.25f},
        {kArtTouchToVolume, -1},    {kArtPan, 0.333f},          {kArtCc10ToPan, 0.75f},
        {kArtKeyToPan, -0.125f},    {kArtFilterType, 2},        {kArtCutoff, 1234.6f},
        {kArtVelToCutoff, 13.7f},   {kArtKeyToCutoff, 5.5f},    {kArtWheelToCutoff, -24},
        {kArtTouchToCutoff, 3.1f},  {kArtResonance, 11.11f},    {kArtVelToResonance, 2},
        {kArtWheelToResonance, -3}, {kArtTouchToResonance, 1},  {kArtPLfoToPitch, 0.07f},
        {kArtWheelPLfoToPitch, 1},  {kArtTouchPLfoToPitch, 2},  {kArtVelPLfoToPitch, -0.5f},
        {kArtVLfoToVolume, 2.22f},  {kArtWheelVLfoToVolume, 1}, {kArtFLfoToCutoff, 7},
        {kArtVelFLfoToCutoff, 3},   {kArtXLfoToPan, 0.6f},      {kArtXLfoToPitch, 1.5f},
        {kArtPEnvToPitch, -12},     {kArtFEnvToCutoff, 48.5f},  {kArtXEnvToPan, 0.25f},
        {kArtSend + 2, 0.21f},      {kArtCcToSend + 2, 0.5f},   {kArtSend + 4, 0.125f},
        {kArtShutdownRate, 0.1f}};
    for (const auto& [id, value] : values)
        block.Set(id, value);
    SetLfo(block, {LfoShape::Sine, LfoPolarity::Bipolar, 6.54f, 0, 0}, LfoIndex::Pitch);
    for (const LfoIndex index : {LfoIndex::Volume, LfoIndex::Filter, LfoIndex::X})
        SetLfo(block, {LfoShape::Sine, LfoPolarity::Bipolar, 0.25f, 1.234f, 0}, index);
    const auto envelope = [&](EnvelopeIndex index, float scale) {
        const std::pair<ParamId, float> stages[] = {{kEnvAttack1Time, 0.111f}, {kEnvAttack2Time, 0.013f},
                                                    {kEnvDecay1Time, 0.5f},    {kEnvDecay2Time, 2},
                                                    {kEnvSustain, 0.371f},     {kEnvRelease1Rate, 1.7f},
                                                    {kEnvVelToAttack2, 0.3f},  {kEnvVelToDecay2, 2.5f},
                                                    {kEnvKeyToDecay1, 0.9f},   {kEnvKeyToDecay2, 1.111f}};
        for (const auto& [offset, value] : stages)
            block.Set(Env(index, offset), value * (offset <= kEnvDecay1Time ? scale : 1));
    };
    envelope(EnvelopeIndex::Volume, 1);
    for (const EnvelopeIndex index : {EnvelopeIndex::Pitch, EnvelopeIndex::Filter, EnvelopeIndex::X})
        envelope(index, 3);
    ArticulationBlock held;
    const SendSlots sends{1, 2};
    const Sound sound = ToSound(block, sends, kDlsLevel2Plus, held);
    for (ParamId id = 0; id < kArticulationParams; ++id)
        EXPECT_EQ(held[id], block[id]) << id;
    EXPECT_EQ(sound.level.cents, -725);
    EXPECT_NEAR(sound.level.gainDb, -13.37 + 11.11 / 2, 1e-5);
    const auto has = [&](const Connection& wanted) {
        return std::ranges::find(sound.connections, wanted) != sound.connections.end();
    };
    EXPECT_TRUE(has({2, 0, 1, 0x8400, -46858240}));
    EXPECT_TRUE(has({1, 0, 0x500, 0x4000, 45875200}));
    EXPECT_TRUE(has({3, 0, 1280, 0, 384477867}));
}

TEST(DlsUnits, LevelsLimitWhatTheyHold)
{
    ArticulationBlock block, held;
    block.Set(kArtFilterType, static_cast<float>(FilterType::LowPass24));
    block.Set(kArtCutoff, 15000);
    block.Set(kArtResonance, 30);
    block.Set(kArtVelToVolume, 10);
    block.Set(Env(EnvelopeIndex::Volume, kEnvAttack1Time), 1);
    static_cast<void>(ToSound(block, {}, kDlsLevel2, held));
    EXPECT_NEAR(held[kArtCutoff], 8.1758 * std::exp2(11921 / 1200.0), 1);
    EXPECT_EQ(held[kArtResonance], 22.5f);
    static_cast<void>(ToSound(block, {}, kDlsLevel2Plus, held));
    EXPECT_EQ(held[kArtCutoff], 15000);
    EXPECT_EQ(held[kArtResonance], 30);
    static_cast<void>(ToSound(block, {}, kDlsLevel1, held));
    EXPECT_EQ(held[kArtFilterType], 0);
    EXPECT_EQ(held[kArtVelToVolume], 96);
    EXPECT_GT(held[Env(EnvelopeIndex::Volume, kEnvAttack2Time)], 0) << "the delay goes to the attack";
    block.Set(kArtFilterType, static_cast<float>(FilterType::HighPass12));
    EXPECT_EQ(ToSound(block, {}, kDlsLevel2Plus, held).level.gainDb, 0);
    EXPECT_EQ(held[kArtFilterType], 0);
    EXPECT_TRUE(ToSound(ArticulationBlock(), {}, kDlsLevel2, held).connections.empty());
}

TEST(DlsRead, RegionsTakeWhatTheirChunksSay)
{
    BankSpec spec;
    spec.bank = 0x80000000;
    spec.program = 3;
    spec.common = {Fixed(4, 16384000), Fixed(521, 0)};
    spec.regions.resize(3);
    spec.regions[0].ranges = {36, 40, 1, 100};
    spec.regions[0].options = kOptionSelfNonExclusive;
    spec.regions[0].keyGroup = 7;
    spec.regions[0].connections = {Fixed(4, 0)};
    spec.regions[1].ranges = {40, 50, 0, 127}; // overlaps the first
    spec.regions[2].ranges = {60, 55, 0, 200};
    spec.regions[2].layer = 1;
    WsmpHead head{20u, std::uint16_t{62}, std::int16_t{-30}, -655360, 0u, 1u};
    spec.regions[0].sample = {head, {16u, 1u, 2u, 6u}};
    head.unityNote = std::uint16_t{64};
    head.cents = std::int16_t{20};
    head.gain = 0;
    spec.regions[1].sample = {head, {16u, 0u, 3u, 4u}};
    const Opened opened(spec);
    ASSERT_TRUE(opened.isRead);
    const Instrument& drums = *opened.items.List<Instrument>().at(0);
    EXPECT_EQ(drums.GetName(), u"Drums 0-0: 3");
    EXPECT_TRUE(drums.location.IsDrum());
    EXPECT_EQ(drums.location.BankMsb(), 0u);
    EXPECT_EQ(drums.articulation[kArtPan], 0.5f);
    ASSERT_EQ(drums.Layers().size(), 3u);
    const Waveform& wave = *opened.items.List<Waveform>().at(0);
    EXPECT_EQ(wave.GetName(), u"Wave 0");
    EXPECT_EQ(wave.frames, 10u);
    EXPECT_EQ(wave.rootKey, 62) << "from the first region, as it has no record of its own";
    EXPECT_EQ(wave.fineTune, -30);
    const Region &first = opened.At(0), &second = opened.At(1), &third = opened.At(2);
    EXPECT_EQ(first.trigger.keys, (MidiRange{36, 40}));
    EXPECT_EQ(first.trigger.velocities, (MidiRange{1, 100}));
    EXPECT_EQ(first.trigger.exclusionGroup, 7);
    EXPECT_EQ(first.trigger.noteExclusionMode, 1);
    EXPECT_EQ(first.articulation[kArtPan], 0);
    EXPECT_EQ(first.articulation[Env(EnvelopeIndex::Volume, kEnvRelease1Rate)], 1) << "the instrument's";
    EXPECT_EQ(first.articulation[kArtVolume], -1);
    EXPECT_EQ(first.overrideFlags, 0);
    EXPECT_EQ(GetEffectiveLoop(first), (LoopInfo{LoopType::Forward, true, false, 2, 8, 0}));
    EXPECT_EQ(second.EffectiveRootKey(), 64);
    EXPECT_EQ(second.articulation[kArtTuning], 0.5f);
    EXPECT_EQ(second.articulation[kArtPan], 0.5f);
    EXPECT_EQ(GetEffectiveLoop(second), (LoopInfo{LoopType::Forward, false, false, 3, 7, 0}));
    EXPECT_EQ(third.trigger.keys, (MidiRange{55, 60}));
    EXPECT_EQ(GetEffectiveLoop(third).type, LoopType::Forward);
}

TEST(DlsRead, PhaseGroupsMakePairsAndGroups)
{
    BankSpec spec;
    spec.regions.resize(4);
    const auto link = [&](std::size_t index, std::uint16_t options, std::uint32_t channel) {
        spec.regions[index].link = {options, std::uint16_t{1}, channel, 0u};
    };
    link(0, 1, 1);
    link(1, 0, 2);
    link(2, 1, 1);
    spec.regions[2].ranges = {0, 10, 0, 127};
    const Opened opened(spec);
    EXPECT_EQ(opened.At(0).articulation[kArtPan], -1);
    EXPECT_EQ(opened.At(1).articulation[kArtPan], 1);
    EXPECT_EQ(opened.At(0).phaseGroup, 0);
    EXPECT_EQ(opened.At(2).phaseGroup, 1) << "no partner";
    EXPECT_EQ(opened.At(2).phaseMaster, 1);
    EXPECT_EQ(opened.At(3).phaseGroup, 0);
}

TEST(DlsRead, FaultsOfThePoolDropRegionsOrRefuse)
{
    BankSpec good;
    good.regions.resize(2);
    good.regions[1].link.tableIndex = 1u;
    {
        ScriptedHost host;
        const Opened opened(good, &host);
        EXPECT_TRUE(opened.isRead);
        EXPECT_EQ(opened.items.CountOf(ItemKind::Region), 1u);
        ASSERT_EQ(host.shown.size(), 1u);
        EXPECT_EQ(host.shown[0], u"Missing cue");
    }
    {
        BankSpec spec = good;
        spec.cues = {0, 4};
        ScriptedHost host;
        const Opened opened(spec, &host);
        EXPECT_EQ(opened.items.CountOf(ItemKind::Region), 1u);
        ASSERT_EQ(host.shown.size(), 1u);
        EXPECT_EQ(host.shown[0], u"Missing wave");
    }
    {
        BankSpec spec = good;
        spec.hasTable = false;
        spec.regions.resize(1);
        ScriptedHost host;
        const Opened opened(spec, &host);
        EXPECT_EQ(opened.items.CountOf(ItemKind::Region), 1u);
        ASSERT_EQ(host.shown.size(), 1u);
        EXPECT_TRUE(host.shown[0].starts_with(u"DLS parser warning: Mandatory 'ptbl' chunk is missing"));
    }
    std::vector<std::byte> bytes = Build(good);
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    bytes[text.find("ptbl") + 12] = std::byte{2}; // one cue more than the chunk has
    EXPECT_FALSE(Opened(bytes).isRead);
    EXPECT_EQ(LastError(), u"Could not read pool cue table");
    bytes[8] = std::byte{'d'};
    EXPECT_FALSE(Opened(bytes).isRead);
    EXPECT_EQ(LastError(), u"Not a RIFF DLS file");
    EXPECT_EQ(DetectDls(bytes, 0, bytes.size()), 0);
    EXPECT_EQ(DetectDls(Build(good), 0, 0), 6);
}

TEST(DlsRead, BanksOfEarlierVersionsGetTheirLayersJoined)
{
    for (const auto& [software, layers] : {std::pair{"Vimbo Studio v12.2", 1u},
                                           {"Vimbo Studio v12.7", 2u},
                                           {"Vimbo 11", 1u},
                                           {"Other 1.0", 2u},
                                           {"Vimbo Studio", 2u}}) {
        BankSpec spec;
        spec.regions.resize(2);
        spec.regions[0].ranges[1] = 50;
        spec.regions[1].ranges[0] = 51;
        spec.regions[1].layer = 1;
        spec.software = software;
        EXPECT_EQ(Opened(spec).items.List<Instrument>().at(0)->Layers().size(), layers) << software;
    }
}

Waveform& AddWave(Collection& items, std::u16string_view name, std::uint32_t frames, unsigned channels = 1)
{
    auto& wave = items.Create<Waveform>(name);
    wave.frames = frames;
    wave.channels = static_cast<std::uint8_t>(channels);
    wave.rateHz = 44100;
    wave.saveFormat = SaveFormat::Pcm16;
    const std::span<float> samples = wave.LockSamplesForWrite();
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i] = static_cast<float>(std::round(20000 * std::sin(0.05 * static_cast<double>(i))) / 32768);
    wave.loop.end = frames;
    wave.Validate();
    return wave;
}

struct Written {
    bool good = false;
    std::vector<std::byte> bytes;
};
Written Write(Item& root, std::uint32_t level = kDlsLevel2, std::uint32_t caps = kAuto)
{
    MemoryFile file;
    FormatChoice choice{caps, level, 0};
    Written written;
    written.good = WriteDls(root, file, choice);
    written.bytes = file.Release();
    return written;
}

/// What a file holds, as a user gets it.
void Load(Collection& out, const Written& written)
{
    MemoryFile file(written.bytes);
    out.SetName(u"loaded");
    out.loading = true;
    ASSERT_TRUE(ReadDls(out, file, 0));
    out.loading = false;
    for (Waveform& wave : out.All<Waveform>()) {
        ASSERT_TRUE(file.Seek(wave.sourceOffset));
        ASSERT_TRUE(wave.importProc->load(wave, file));
        static_cast<void>(wave.LockSamplesForWrite()); // there is no file to read again
    }
    FixUpItems(out, kPruneAll, AfterLoad::Yes, SourceHoldsStereo::No);
    EXPECT_TRUE(IsConsistent(out));
}

/// Regions of all kinds, a stereo sound among them.
void FillBank(Collection& items)
{
    items.SetName(u"Bank");
    items.SetText(kTextEngineer, u"Ann");
    items.SetText(kTextProduct, u"Set");
    Waveform& mono = AddWave(items, u"Mono", 301);
    mono.rootKey = 62;
    mono.fineTune = -7;
    mono.volume = -3.52f;
    mono.loop = {LoopType::Forward, true, false, 10, 290, 0};
    Waveform& stereo = AddWave(items, u"Wide", 200, 2);
    auto& instrument = items.Create<Instrument>(u"Inst");
    instrument.location.word = 5;
    instrument.location.SetBankMsb(9);
    instrument.location.SetBankLsb(3);
    instrument.SetText(kTextComments, u"Odd");
    Layer& lower = instrument.AddLayer();
    Region& low = lower.AddRegion(mono.Handle(), {0, 59}, {1, 100});
    low.articulation.Set(kArtTuning, 2);
    low.articulation.Set(kArtVolume, -1.25f);
    low.articulation.Set(kArtFilterType, 2);
    low.articulation.Set(kArtCutoff, 1234);
    low.articulation.Set(kArtResonance, 3.33f);
    low.trigger.Set(kParamExclusionGroup, 3);
    low.trigger.Set(kParamNoteExclusionMode, 1);
    Region& high = lower.AddRegion(mono.Handle(), {60, 127});
    high.SetParam(kParamRegionRootKey, 65);
    high.SetParam(kParamLoopType, 0);
    high.phaseGroup = 1;
    high.phaseMaster = 1;
    Region& wide = instrument.AddLayer().AddRegion(stereo.Handle(), {20, 90});
    wide.SetParam(kParamLoopType, 1);
    wide.SetParam(kParamLoopStart, 50);
    auto& drums = items.Create<Instrument>(u"Drums");
    drums.location.SetDrum(true);
    drums.AddLayer().AddRegion(mono.Handle(), {36, 36});
    FixUpItems(items, kPruneAll, AfterLoad::No);
}

TEST(DlsWrite, BanksComeBackAndSecondWritingGivesTheSameBytes)
{
    for (const std::uint32_t level : {kDlsLevel1, kDlsLevel2, kDlsLevel2Plus, kDlsLevel2PlusPlus}) {
        Collection items, again;
        FillBank(items);
        const Written one = Write(items, level);
        ASSERT_TRUE(one.good);
        Load(again, one);
        EXPECT_EQ(again.GetName(), u"Bank");
        EXPECT_EQ(again.GetText(kTextProduct), u"Set");
        const auto before = items.List<Region>(), after = again.List<Region>();
        ASSERT_EQ(after.size(), before.size());
        for (std::size_t i = 0; i < after.size(); ++i) {
            const Region &was = *before[i], &is = *after[i];
            SCOPED_TRACE(i);
            EXPECT_TRUE(is.trigger.SameValues(was.trigger));
            EXPECT_EQ(GetEffectiveLoop(is), GetEffectiveLoop(was));
            EXPECT_EQ(is.EffectiveRootKey(), was.EffectiveRootKey());
            EXPECT_EQ(is.phaseGroup, was.phaseGroup);
            EXPECT_EQ(is.phaseMaster, was.phaseMaster);
            EXPECT_TRUE(std::ranges::equal(is.Wave()->LockSamples(), was.Wave()->LockSamples()));
            for (ParamId id = 0; id < kArticulationParams; ++id) {
                const bool isFilter = id == kArtFilterType || id == kArtCutoff || id == kArtResonance;
                EXPECT_TRUE(is.articulation[id] == was.articulation[id] || (isFilter && level == kDlsLevel1))
                    << id << ": " << is.articulation[id];
            }
        }
        const Waveform &was = *items.List<Waveform>()[0], &is = *after[0]->Wave();
        EXPECT_EQ(is.volume, was.volume);
        EXPECT_EQ(is.fineTune, was.fineTune);
        EXPECT_EQ(is.loop, was.loop);
        EXPECT_EQ(again.List<Instrument>()[0]->location, items.List<Instrument>()[0]->location);
        EXPECT_EQ(again.List<Instrument>()[0]->GetText(kTextComments), u"Odd");
        EXPECT_TRUE(again.List<Instrument>()[1]->location.IsDrum());
        EXPECT_TRUE(Write(again, level).bytes == one.bytes);
    }
}

std::size_t Count(const Written& written, std::string_view what)
{
    const std::string_view text(reinterpret_cast<const char*>(written.bytes.data()), written.bytes.size());
    std::size_t count = 0;
    for (std::size_t at = 0; (at = text.find(what, at)) != text.npos; ++at)
        ++count;
    return count;
}

TEST(DlsWrite, ChunksFitTheLevel)
{
    Collection items;
    FillBank(items);
    using namespace std::string_view_literals;
    const Written one = Write(items, kDlsLevel1), two = Write(items, kDlsLevel2);
    EXPECT_EQ(Count(one, "rgn "), 5u);
    EXPECT_EQ(Count(one, "rgnh\14\0\0\0"sv), 5u);
    EXPECT_EQ(Count(one, "lart"), 2u) << "only the halves of the pair differ from the defaults";
    EXPECT_EQ(Count(two, "rgn2"), 5u);
    EXPECT_EQ(Count(two, "rgnh\16\0\0\0"sv), 5u);
    EXPECT_EQ(Count(two, "lar2"), 3u);
    EXPECT_EQ(Count(two, "wlnk\14\0\0\0\1\0\2\0\1\0\0\0\1\0\0\0"sv), 1u) << "left, group 1 is taken";
    EXPECT_EQ(Count(two, "wlnk\14\0\0\0\0\0\2\0\2\0\0\0\2\0\0\0"sv), 1u) << "right";
    EXPECT_EQ(Count(two, "wave"), 3u);
    EXPECT_EQ(Count(two, "ptbl\24\0\0\0\10\0\0\0\3\0\0\0\0\0\0\0"sv), 1u);
    EXPECT_EQ(Count(two, "insh\14\0\0\0\1\0\0\0\0\0\0\x80\0\0\0\0"sv), 1u);
    const Written stereo = Write(items, kDlsLevel2Plus, kAutoPlus | kCapsStereo);
    EXPECT_EQ(Count(stereo, "LIST"), Count(two, "LIST") - 5) << "a region, two articulations, a waveform";
    EXPECT_EQ(Count(Write(items, kDlsLevel2PlusPlus, kAutoPlus | kCapsStereo), "wlnk"), 5u);
}

TEST(DlsWrite, Level1AsksOnceAboutTooManyRegions)
{
    for (const std::size_t answer : {std::size_t{0}, std::size_t{1}}) {
        ScriptedHost host;
        host.answers["dls-level1-regions"] = answer;
        Collection items;
        items.SetHost(host);
        Waveform& wave = AddWave(items, u"Wave", 20);
        for (int i = 0; i < 2; ++i) {
            Layer& layer = items.Create<Instrument>(u"I").AddLayer();
            for (std::uint8_t key = 0; key < 17; ++key)
                layer.AddRegion(wave.Handle(), {key, key});
        }
        const Written written = Write(items, kDlsLevel1);
        EXPECT_EQ(Count(written, "rgn "), answer == 0 ? 34u : 32u);
        ASSERT_EQ(host.asked.size(), 1u);
        EXPECT_TRUE(host.asked[0].ends_with(u"Do you want to write all regions anyway?\n(if you answer No, "
                                            u"then some regions will be skipped)"));
        EXPECT_EQ(Count(Write(items, kDlsLevel2), "rgn2"), 34u);
        EXPECT_EQ(host.asked.size(), 1u);
    }
}

TEST(DlsWrite, ExtendedLevelsHoldOtherEncodings)
{
    struct Row {
        DataFormat format;
        double error;
    };
    for (const Row& row :
         {Row{DataFormat::Pcm8, 1 / 128.0}, Row{DataFormat::Pcm24, 0}, Row{DataFormat::Float32, 0},
          Row{DataFormat::MuLaw, 0.02}, Row{DataFormat::ALaw, 0.02}, Row{DataFormat::Adpcm4, 0.05}}) {
        Collection items, again;
        Waveform& wave = AddWave(items, u"Wave", 2501);
        Written written = Write(items, kDlsLevel2Plus, FormatBit(row.format) | kCapsMono | kCapsDualMono);
        ASSERT_TRUE(written.good);
        Load(again, written);
        Waveform& read = *again.List<Waveform>().at(0);
        ASSERT_EQ(read.frames, wave.frames);
        for (std::size_t i = 0; i < wave.frames; ++i)
            ASSERT_NEAR(read.LockSamples()[i], wave.LockSamples()[i], row.error) << i;
    }
    Collection items;
    AddWave(items, u"Wave", 20);
    EXPECT_FALSE(Write(items, kDlsLevel2Plus, FormatBit(DataFormat::Compressed) | kCapsMono).good);
    EXPECT_EQ(LastError(), u"The encoder for Compressed is missing");
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

TEST(DlsWrite, LossesAreTold)
{
    NotingHost host;
    Collection items;
    items.SetHost(host);
    Waveform& wave = AddWave(items, u"Wave", 100);
    wave.markers.emplace_back();
    auto& instrument = items.Create<Instrument>(u"I");
    instrument.channelFx[0].type = ChannelFxType::Delay;
    Region& region = instrument.AddLayer(u"Named").AddRegion(wave.Handle());
    region.startOffset = 5;
    region.articulation.Set(kArtFilterType, static_cast<float>(FilterType::HighPass12));
    region.articulation.Set(kArtVelPEnvToPitch, 2);
    region.trigger.Set(kParamDelay, 2);
    region.SetParam(kParamLoopType, static_cast<float>(LoopType::Alternating));
    instrument.AddLayer().AddRegion(NO_ITEM);
    items.Create<Instrument>(u"Empty");
    ASSERT_TRUE(Write(items).good);
    for (const std::u16string_view what :
         {u"Filter type", u"Markers", u"Channel effect 1", u"Region", u"Instrument", u"Name"})
        EXPECT_EQ(std::ranges::count(host.lost, what), 1) << std::string(what.begin(), what.end());
    for (const ParamId id : {kParamDelay, kParamLoopType, kParamStartOffset, kArtVelPEnvToPitch})
        EXPECT_EQ(std::ranges::count(host.lost, AnyParamRow(id).name), 1) << id;
}

TEST(DlsRead, DamagedBanksFailCleanly)
{
    Collection items;
    FillBank(items);
    BankSpec spec;
    spec.regions.resize(1);
    spec.regions[0].connections = {Fixed(1280, 0), By(2, 518, 1), By(1, 3, 5, 129)};
    std::vector<std::byte> small = Build(spec);
    const auto check = [](std::span<const std::byte> bytes) {
        const Opened opened(bytes);
        if (opened.isRead)
            EXPECT_TRUE(IsConsistent(opened.items));
        else
            EXPECT_FALSE(LastError().empty());
    };
    for (std::size_t n = 0; n < small.size(); ++n)
        check(std::span(small).first(n));
    for (const std::size_t width : {1u, 2u, 4u})
        for (std::size_t at = 0; at + width <= small.size(); ++at)
            for (const int fill : {0x00, 0x01, 0x7F, 0x80, 0xFF}) {
                std::vector<std::byte> bytes = small;
                std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(at), width,
                            static_cast<std::byte>(fill));
                check(bytes);
            }
}

} // namespace
} // namespace vimbo::dls
