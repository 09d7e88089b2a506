#include "base/last_error.h"
#include "formats/sfz/sfz.h"
#include "model/envelope.h"
#include "sfz_folder.h"

#include <cmath>

namespace vimbo {
namespace {

using testing::RecordingHost;
using testing::SfzFolder;

/// The text as the driver leaves it, with a sample "w.wav" of 300 frames beside it.
struct Read {
    explicit Read(std::string_view text, const SfzFolder* files = nullptr, bool isLooped = false)
    {
        const SfzFolder own;
        const SfzFolder& folder = files != nullptr ? *files : own;
        if (!std::filesystem::exists(folder.Path("w.wav")))
            folder.PutWave("w.wav", 300, 1, isLooped);
        items.SetHost(host);
        items.SetName(u"test");
        good = sfz::ReadText(items, text, {folder.Wide(""), folder.Wide("test.sfz")});
        EXPECT_TRUE(IsConsistent(items));
        regions = items.List<Region>();
    }
    Region& First()
    {
        EXPECT_FALSE(regions.empty());
        return *regions.front();
    }

    RecordingHost host;
    Collection items;
    bool good = false;
    std::vector<Region*> regions;
};

constexpr ParamId kVEnv = EnvelopeBase(EnvelopeIndex::Volume), kPEnv = EnvelopeBase(EnvelopeIndex::Pitch),
                  kFEnv = EnvelopeBase(EnvelopeIndex::Filter), kPLfo = LfoBase(LfoIndex::Pitch),
                  kVLfo = LfoBase(LfoIndex::Volume), kFLfo = LfoBase(LfoIndex::Filter),
                  kXLfo = LfoBase(LfoIndex::X);

TEST(SfzRead, OpcodesToParameters)
{
    const struct {
        std::string_view opcodes;
        ParamId id;
        double value;
    } kCases[] = {
        {"amp_veltrack=50", kArtVelToVolume, 48},
        {"off_time=0.5", kArtShutdownRate, 0.5},
        {"off_mode=time", kArtShutdownRate, 0.006},
        {"off_mode=normal ampeg_release=2", kArtShutdownRate, 2},
        {"off_mode=fast ampeg_release=2", kArtShutdownRate, 0.015},
        {"amp_keytrack=1", kArtKeyToVolume, 12},
        {"amp_keytrack=1 amp_keycenter=48 volume=-3", kArtVolume, 9},
        {"volume=-6.5", kArtVolume, -6.5},
        {"volume=-6 amplitude=50 group_volume=1", kArtVolume, -11.02},
        {"amplitude=0", kArtVolume, -96},
        {"gain_cc1=6", kArtWheelToVolume, 6},
        {"volume_oncc129=-4", kArtTouchToVolume, -4},
        {"pitch_keytrack=50", kArtKeyToPitch, 0.5},
        {"tune=-25 transpose=12", kArtTuning, 11.75},
        {"pitch=30", kArtTuning, 0.3},
        {"tune_random=100", kArtTuning, -0.5},
        {"tune_random=-100", kArtRandomToPitch, 1},
        {"pitch_random=40", kArtRandomToPitch, 0.4},
        {"bend_up=1200 bend_down=-1200", kArtBendToPitch, 12},
        {"bendup=700", kArtBendToPitch, 7},
        {"pan=-50", kArtPan, -0.5},
        {"pan=10 pan_keytrack=2 pan_keycenter=50", kArtPan, 0.3},
        {"pan_keytrack=2", kArtKeyToPan, 0.24},
        {"pan_cc10=50", kArtCc10ToPan, 0.5},
        {"pan_random=-20", kArtRandomToPan, 0.2},
        {"effect1=30", kArtSend, 0.3},
        {"effect4=100", kArtSend + 3 * kSendParams, 1},
        {"cutoff=500", kArtFilterType, 2},
        {"cutoff=500", kArtCutoff, 500},
        {"resonance=6", kArtFilterType, 0},
        {"cutoff=500 fil_type=hpf_2p resonance=6", kArtResonance, 6},
        {"cutoff=500 fil_type=hpf_2p", kArtFilterType, 6},
        {"cutoff=500 filtype=LPF_4P", kArtFilterType, 4},
        {"cutoff=500 fil_type=brf_2p", kArtFilterType, 12},
        {"cutoff=1000 fil_veltrack=1200", kArtVelToCutoff, 12},
        {"cutoff=1000 fil_veltrack=1200", kArtCutoff, 1414.2},
        {"cutoff=1000 fil_keytrack=100", kArtKeyToCutoff, 12},
        {"cutoff=1000 fil_keytrack=100 fil_keycenter=48", kArtCutoff, 2000},
        {"cutoff=1000 cutoff_cc1=1200", kArtWheelToCutoff, 12},
        {"cutoff=1000 cutoff_chanaft=-2400", kArtTouchToCutoff, -24},
        {"cutoff=1000 resonance_cc131=3", kArtVelToResonance, 3},
        {"cutoff=900 resonance=5 fil_type=lshelf", kArtEqGain + 2 * kEqBandParams, 5},
        {"cutoff=900 resonance=5 fil_type=lshelf", kArtFilterType, 0},
        {"eq2_freq=700 eq2_gain=-3 eq2_bw=2", kArtEqQ + kEqBandParams, 0.67},
        {"ampeg_delay=0.1", kVEnv + kEnvAttack1Time, 0.1},
        {"ampeg_attack=0.2", kVEnv + kEnvAttack2Time, 0.2},
        {"ampeg_hold=0.3", kVEnv + kEnvDecay1Time, 0.3},
        {"ampeg_decay=2 ampeg_sustain=25", kVEnv + kEnvDecay2Time, 1.5},
        {"ampeg_sustain=25", kVEnv + kEnvSustain, 0.25},
        {"ampeg_release=1.5", kVEnv + kEnvRelease1Rate, 1.5},
        {"ampeg_start=40", kVEnv + kEnvInitialLevel, 0.4},
        {"ampeg_attack=1 ampeg_vel2attack=3", kVEnv + kEnvVelToAttack2, 4},
        {"ampeg_attack=1 ampeg_vel2attack=3", kVEnv + kEnvAttack2Time, 2},
        {"pitcheg_depth=1200 pitcheg_vel2depth=-100", kArtPEnvToPitch, 12},
        {"pitcheg_depth=1200 pitcheg_vel2depth=-100", kArtVelPEnvToPitch, -1},
        {"pitcheg_attack=3", kPEnv + kEnvAttack2Time, 3},
        {"fileg_depth=2400 fileg_sustain=0", kArtFEnvToCutoff, 24},
        {"fileg_sustain=0", kFEnv + kEnvSustain, 0},
        {"pitchlfo_freq=6 pitchlfo_depth=50", kArtPLfoToPitch, 0.5},
        {"pitchlfo_freq=6 pitchlfo_depthcc1=100", kArtWheelPLfoToPitch, 1},
        {"pitchlfo_freq=6 pitchlfo_delay=0.5 pitchlfo_fade=2", kPLfo + kLfoRamp, 2},
        {"pitchlfo_depth=50", kArtPLfoToPitch, 0}, // it stands still
        {"amplfo_freq=3 amplfo_depth=4 amplfo_depthchanaft=2", kArtTouchVLfoToVolume, 2},
        {"amplfo_freq=3 amplfo_depth=4", kVLfo + kLfoFrequency, 3},
        {"fillfo_freq=3 fillfo_depth=1200", kArtFLfoToCutoff, 12},
        {"fillfo_freq=3 fillfo_depth=1200", kFLfo + kLfoFrequency, 3},
        {"lfo01_wave=0 lfo01_freq=4 lfo01_pitch=50", kPLfo + kLfoShape, 1},
        {"lfo1_freq=4 lfo1_pan=50 lfo1_wave=6", kXLfo + kLfoShape, 4},
        {"lfo1_freq=4 lfo1_pan=50", kArtXLfoToPan, 0.5},
        {"eg1_level1=1 eg1_time1=2 eg1_level2=0.5 eg1_time2=1 eg1_sustain=2 eg1_ampeg=100",
         kVEnv + kEnvSustain, 0.5},
        {"eg1_level1=1 eg1_time1=2 eg1_level2=0.5 eg1_time2=1 eg1_sustain=2 eg1_pitch=-300", kArtPEnvToPitch,
         -3},
        {"loop_mode=one_shot", kVEnv + kEnvReleaseMode, 1},
        {"lokey=c2 hikey=e2", kParamLowKey, 36},
        {"lokey=36 hikey=e2", kParamHighKey, 40},
        {"key=c#4", kParamHighKey, 61},
        {"lovel=20 hivel=90", kParamLowVelocity, 20},
        {"lokey=40 hikey=80 xfin_lokey=40 xfin_hikey=50", kParamKeyFadeIn, 10},
        {"lokey=40 hikey=80 xfin_lokey=40 xfin_hikey=50", kParamLowKey, 45},
        {"lokey=40 hikey=80 xfout_lokey=71 xfout_hikey=80", kParamKeyFadeOut, 9},
        {"lokey=40 hikey=80 xfout_lokey=71 xfout_hikey=80", kParamHighKey, 75},
        {"xfin_lovel=0 xfin_hivel=64 xf_velcurve=gain", kParamVelocityFadeFormula, 1},
        {"trigger=release_key", kParamTriggerType, 1},
        {"seq_length=4 seq_position=2", kParamTriggerType, 2},
        {"lorand=0.5 hirand=1", kParamTriggerType, 2},
        {"on_locc64=64 on_hicc64=127", kParamPedalSwitch, 1},
        {"locc64=0 hicc64=63", kParamPedalSwitch, 2},
        {"group=3 off_by=3", kParamExclusionGroup, 3},
        {"delay=0.25 delay_samples=441", kParamDelay, 0.26},
    };
    const SfzFolder folder;
    for (const auto& each : kCases) {
        Read read("<region> sample=w.wav " + std::string(each.opcodes), &folder);
        ASSERT_TRUE(read.good);
        EXPECT_NEAR(read.First().GetParam(each.id), each.value, 1e-4) << each.opcodes << " " << each.id;
    }
}

TEST(SfzRead, LevelsReachOnlyWhatFollows)
{
    Read read("volume=-1 <global> pan=10 <master> transpose=1 <group> volume=-2 <region> sample=w.wav "
              "<region> sample=w.wav key=10 volume=-3 <group> tune=5 <region> sample=w.wav key=20 "
              "<master> <region> sample=w.wav key=30");
    ASSERT_EQ(read.regions.size(), 4u);
    const auto values = [&](std::size_t i) {
        const ArticulationBlock& block = read.regions[i]->articulation;
        return std::array<float, 3>{block[kArtVolume], block[kArtTuning], block[kArtPan]};
    };
    using Values = std::array<float, 3>;
    EXPECT_EQ(values(0), (Values{-2, 1, 0.1f}));
    EXPECT_EQ(values(1), (Values{-3, 1, 0.1f}));
    EXPECT_EQ(values(2), (Values{0, 1.05f, 0.1f}));
    EXPECT_EQ(values(3), (Values{0, 0, 0.1f}));
    EXPECT_FALSE(read.regions[0]->articulation.IsSet(kArtVolume)) << "the group says it";
    EXPECT_TRUE(read.regions[1]->articulation.IsSet(kArtVolume));
    EXPECT_EQ(read.items.List<Waveform>().size(), 1u) << "one file, one waveform";
}

TEST(SfzRead, LoopsAndOffsets)
{
    const struct {
        std::string_view opcodes;
        bool fileLoops;
        LoopType type;
        double start, end;
        bool breaks;
    } kCases[] = {
        {"", true, LoopType::Forward, 100, 200, false},
        {"", false, LoopType::Off, 0, 300, false},
        {"loop_mode=no_loop", true, LoopType::Off, 100, 200, false},
        {"loop_mode=loop_continuous", false, LoopType::Forward, 0, 300, false},
        {"loopmode=loop_sustain loopstart=10 loopend=19", false, LoopType::Forward, 10, 20, true},
        {"loop_mode=loop_continuous loop_start=250 loop_end=5000", true, LoopType::Forward, 250, 300, false},
        {"loop_mode=loop_continuous loop_type=alternate", true, LoopType::Alternating, 100, 200, false},
        {"loop_type=backward", true, LoopType::Reverse, 100, 200, false},
        {"loop_start=9000 loop_end=3 loop_mode=loop_continuous", false, LoopType::Off, 300, 300, false},
    };
    for (const auto& each : kCases) {
        Read read("<region> sample=w.wav " + std::string(each.opcodes), nullptr, each.fileLoops);
        const LoopInfo loop = GetEffectiveLoop(read.First());
        EXPECT_EQ(loop.type, each.type) << each.opcodes;
        EXPECT_EQ(loop.breakOnRelease, each.breaks) << each.opcodes;
        if (each.type != LoopType::Off) {
            EXPECT_EQ(loop.start, each.start) << each.opcodes;
            EXPECT_EQ(loop.end, each.end) << each.opcodes;
        }
    }
    Read offsets("<region> sample=w.wav offset=10 end=249");
    EXPECT_EQ(offsets.First().startOffset, 10);
    EXPECT_EQ(offsets.First().endOffset, -50);
    EXPECT_TRUE(Read("<region> sample=w.wav end=-1").regions.empty());
}

TEST(SfzRead, KeysAreShiftedAndRootsFollow)
{
    Read shifted("<control> note_offset=2 octave_offset=-1 <region> sample=w.wav lokey=c4 hikey=72 "
                 "pitch_keycenter=c5");
    EXPECT_EQ(shifted.First().trigger.keys, (MidiRange{50, 62}));
    EXPECT_EQ(shifted.First().EffectiveRootKey(), 62);
    EXPECT_EQ(Read("<region> sample=w.wav key=40").First().EffectiveRootKey(), 40);
    EXPECT_EQ(Read("<region> sample=w.wav").First().EffectiveRootKey(), 60);
    Read cc("<region> sample=w.wav lokey=-1 hikey=-1");
    EXPECT_TRUE(cc.regions.empty());
    EXPECT_EQ(cc.host.Count(u"Regions"), 1u);
}

TEST(SfzRead, LabelsNameLayers)
{
    Read read("<master> master_label=All of them <group> <region> sample=w.wav region_label=One\n"
              "<group> group_label=Hard <region> sample=w.wav <region> sample=w.wav sw_label=On <group> "
              "<region> sample=w.wav <master> <region> sample=w.wav");
    std::vector<std::u16string> names;
    for (const Layer& layer : read.items.All<Layer>())
        names.emplace_back(layer.GetName());
    EXPECT_EQ(names,
              (std::vector<std::u16string>{u"All of them", u"Hard", u"Hard", u"All of them", u"Layer 5"}));
    EXPECT_EQ(read.host.Count(u"Opcode group_label") + read.host.Count(u"Opcode master_label"), 0u);
    ASSERT_EQ(read.host.notes.size(), 2u);
    EXPECT_EQ(read.host.notes[0].reason, u"it is for display only");
}

TEST(SfzRead, TextsThatAreMergedShareTheirSamples)
{
    const SfzFolder folder;
    folder.PutWave("samples/w.wav", 300, 1, true);
    folder.PutWave("other/w.wav", 300, 1, true);
    folder.Put("0-1-5 - Piano.sfz",
               "<region> sample=samples/w.wav key=50 <region> sample=other/w.wav key=40");
    folder.Put("d0-0-9 - Kit - old.sfz",
               "<region> sample=other/../samples/w.wav key=70 loop_end=149\n"
               "<region> sample=SAMPLES\\w.wav pitch_keycenter=71 loop_mode=no_loop\n"
               "<region> sample=other/w.wav key=40");
    folder.Put("1-2-128 - Pad.sfz", "<region> sample=samples/w.wav key=50");
    Collection items;
    for (const char* name : {"0-1-5 - Piano.sfz", "d0-0-9 - Kit - old.sfz", "1-2-128 - Pad.sfz"})
        ASSERT_TRUE(MergeFile(items, folder.Wide(name))) << name;
    EXPECT_TRUE(IsConsistent(items));
    EXPECT_EQ(items.CountOf(ItemKind::Waveform), 2u) << "one for each file";
    std::vector<std::tuple<int, LoopType, double>> sounds;
    for (const Region& region : items.All<Region>()) {
        const LoopInfo loop = GetEffectiveLoop(region);
        sounds.emplace_back(region.EffectiveRootKey(), loop.type, loop.end);
    }
    const std::vector<std::tuple<int, LoopType, double>> wanted = {
        {50, LoopType::Forward, 200}, {40, LoopType::Forward, 200}, {70, LoopType::Forward, 150},
        {71, LoopType::Off, 200},     {40, LoopType::Forward, 200}, {50, LoopType::Forward, 200}};
    EXPECT_EQ(sounds, wanted);
    std::vector<std::pair<std::u16string, std::uint32_t>> places;
    for (const Instrument& each : items.All<Instrument>())
        places.emplace_back(each.GetName(), each.location.word);
    EXPECT_EQ(places, (std::vector<std::pair<std::u16string, std::uint32_t>>{
                          {u"Piano", (1u << MidiLocation::kBankLsbShift) + 5},
                          {u"Kit - old", MidiLocation::kDrumBit + 9},
                          {u"1-2-128 - Pad", 0}}));
}

TEST(SfzRead, GroupsThatOthersTurnOff)
{
    Read read("<region> sample=w.wav key=42 group=70001 <region> sample=w.wav key=46 group=5 off_by=7 "
              "<region> sample=w.wav key=44 group=7");
    ASSERT_EQ(read.regions.size(), 3u);
    EXPECT_EQ(read.regions[0]->trigger.exclusionGroup, 0);
    EXPECT_EQ(read.regions[1]->trigger.exclusionGroup, 7);
    EXPECT_EQ(read.regions[2]->trigger.exclusionGroup, 7);
    EXPECT_EQ(read.host.Count(u"Groups"), 1u);
}

TEST(SfzRead, PathsOfOtherSystems)
{
    SfzFolder folder;
    folder.PutWave("Samples/Sub Folder/Piano C4.wav");
    folder.PutWave("Samples/b.wav");
    folder.Put("inc/part.SFZ", "<region> sample=Sub folder\\PIANO c4.WAV key=2\n#include \"deeper.sfz\"");
    folder.Put("inc/deeper.sfz", "<region> sample=b.wav key=3\n#include \"../test.sfz\"");
    const std::string text =
        "<control> default_path=SAMPLES\\ <region> sample=sub folder/piano c4.wav key=1\n"
        "#include \"INC\\part.sfz\"\n<control> <region> sample=../" +
        folder.Path("").parent_path().filename().string() + "/w.wav";
    folder.Put("test.sfz", text);
    Read read(text, &folder);
    ASSERT_TRUE(read.good);
    EXPECT_EQ(read.regions.size(), 4u);
    EXPECT_EQ(read.items.List<Waveform>().size(), 3u);
    EXPECT_EQ(read.host.Count(u"#include"), 1u) << "the circle";
    EXPECT_TRUE(read.host.messages.empty());
}

TEST(SfzRead, NothingOutsideIfSo)
{
    const SfzFolder folder;
    folder.PutWave("in/w.wav");
    folder.PutWave("out.wav");
    folder.Put("out.sfz", "<region> sample=w.wav key=3");
    const std::string text =
        "#include \"../out.sfz\"\n<region> sample=w.wav key=1 <region> sample=../out.wav "
        "<region> sample=" +
        folder.Path("out.wav").string();
    const auto count = [&](const sfz::Surroundings& place) {
        Collection items;
        EXPECT_TRUE(sfz::ReadText(items, text, place));
        return items.CountOf(ItemKind::Region);
    };
    EXPECT_EQ(count({folder.Wide("in"), u"", false, false}), 4u);
    EXPECT_EQ(count({folder.Wide("in"), u"", true, false}), 1u);
    EXPECT_EQ(count({folder.Wide("in"), u"", false, true}), 0u);
    MemoryFile file(std::as_bytes(std::span(text)));
    Collection items;
    EXPECT_TRUE(ReadSfz(items, file, 0));
    EXPECT_EQ(items.CountOf(ItemKind::Region), 0u);
}

TEST(SfzRead, WhatIsMissingIsToldOnce)
{
    const SfzFolder folder;
    folder.Put("text.wav", "no sound at all, but long enough to be looked at as a file");
    folder.Put("other.sfz", "<region> sample=w.wav");
    Read read(
        "<region> sample=none.wav <region> sample=none.wav key=2 <region> sample=w.wav <region> sample=*sine "
        "<region> sample=*sine <region> sample=text.wav <region> sample=other.sfz sw_last=36 <region> key=5\n"
        "<region> sample=w.wav key=9 cutoff2=100 sw_last=36 volume=loud",
        &folder);
    ASSERT_TRUE(read.good);
    EXPECT_EQ(read.regions.size(), 2u);
    EXPECT_EQ(read.host.Count(u"Sample"), 3u);
    EXPECT_EQ(read.host.Count(u"Generated sound *sine"), 2u);
    EXPECT_EQ(read.host.Count(u"Opcode sw_last"), 2u);
    EXPECT_EQ(read.host.Count(u"Opcode cutoff2"), 1u);
    EXPECT_EQ(read.host.Count(u"Opcode volume=loud"), 1u) << "it has no number";
    EXPECT_EQ(read.host.Count(u"Regions"), 1u) << "without a sample";
    ASSERT_EQ(read.host.messages.size(), 2u);
    EXPECT_EQ(read.host.messages[0], "Couldn't openwave\nnone.wav");
    EXPECT_EQ(read.host.messages[1].find("Supported types"), 0u);
    EXPECT_TRUE(Read("just a text").regions.empty());
}

TEST(SfzRead, WhatIsBentIsTold)
{
    const struct {
        std::string_view opcodes;
        std::u16string_view what;
    } kCases[] = {
        {"bend_up=200 bend_down=-1200", u"bend_down"},
        {"pitch_random=10 tune_random=20", u"pitch_random"},
        {"cutoff=900 fil_type=peak resonance=6 cutoff_cc1=100", u"Filters of a gain"},
        {"cutoff=900 fil_type=lshelf eq3_gain=2", u"Filters of a gain"},
        {"lfo1_freq=2 lfo1_wave=4 lfo1_pitch=20", u"LFO waves"},
        {"lfo1_freq=2 lfo1_pitch=20 lfo2_freq=3 lfo2_pitch=10 lfo3_freq=4 lfo3_pitch=5", u"LFOs"},
        {"ampeg_depth=50", u"ampeg_depth"},
        {"ampeg_vel2attack=1", u"Velocity to times"},
        {"ampeg_attack_oncc133=-1", u"Key number to times"},
        {"trigger=release_key", u"trigger=release_key"},
        {"lorand=0.2 hirand=0.4", u"Random ranges"},
        {"group=1 off_by=2", u"Groups"},
        {"locc64=20", u"Pedal ranges"},
        {"seq_length=3 seq_position=2", u"seq_position"},
        {"end=299 loop_mode=loop_continuous loop_end=300", u"Sample offsets"},
        {"<effect> type=flanger", u"Effect flanger"},
        {"<effect> type=large_hall", u"Effect large_hall"},
        {"<effect> type=chorus wet=3", u"Effect settings"},
    };
    for (const auto& each : kCases) {
        const Read read("<region> sample=w.wav " + std::string(each.opcodes));
        EXPECT_EQ(read.host.Count(each.what), 1u) << each.opcodes;
        EXPECT_EQ(read.host.notes.size(), 1u) << each.opcodes;
    }
    for (const std::string_view kept :
         {"seq_length=2 seq_position=1 <region> sample=w.wav key=1 seq_length=2 seq_position=2",
          "end=299 loop_mode=loop_continuous loop_end=299", "<effect> type=fverb", "trigger=release"})
        EXPECT_TRUE(Read("<region> sample=w.wav " + std::string(kept)).host.notes.empty()) << kept;
}

TEST(SfzRead, EffectsGoByTheNumbersOfTheirHeaders)
{
    const Read read("<effect> <effect> type=chorus <effect> type=stereo <effect> type=small_room <effect> "
                    "type=delay <region> sample=w.wav effect2=50");
    const auto& slots = read.items.List<Instrument>().front()->channelFx;
    EXPECT_EQ(slots[0], ChannelFx());
    EXPECT_EQ(slots[1], kDefaultChorus);
    EXPECT_EQ(slots[2], ChannelFx());
    EXPECT_EQ(slots[3], kDefaultReverb);
    EXPECT_EQ(read.host.Count(u"Effect settings"), 2u) << "an unknown kind, and one beyond the slots";
}

TEST(SfzRead, TimesFollowTheKeyOverTheRegionsRange)
{
    // 2 s at key 48, 1 s at key 60: half per octave
    Read read("<region> sample=w.wav lokey=48 hikey=60 ampeg_decay=6 ampeg_decay_oncc133=-10.58333333 "
              "ampeg_sustain=0 <region> sample=w.wav key=72 ampeg_decay=3.5 ampeg_decaycc133=-5.2916667 "
              "ampeg_sustain=0");
    EXPECT_EQ(read.host.Count(u"Key number to times"), 1u) << "at the octave above the second";
    const Region &first = *read.regions[0], &second = *read.regions[1];
    EXPECT_NEAR(first.articulation[kVEnv + kEnvDecay2Time], 1, 0.002);
    EXPECT_NEAR(first.articulation[kVEnv + kEnvKeyToDecay2], 0.5, 0.002);
    EXPECT_NEAR(second.articulation[kVEnv + kEnvDecay2Time], 0.5, 0.002);
}

TEST(SfzRead, AnyTruncationReads)
{
    const SfzFolder folder;
    const std::string text =
        "#define $A 3\n<control> default_path=./\n<group> eg01_time$A=1 <region> sample=w.wav "
        "key=c#$A lfo1_freq=2 lfo1_pan=3 <effect> type=chorus <region> sample=w.wav";
    for (std::size_t size = 0; size <= text.size(); ++size)
        EXPECT_TRUE(Read(std::string_view(text).substr(0, size), &folder).good);
}

} // namespace
} // namespace vimbo
