#include "base/last_error.h"
#include "formats/audible.h"
#include "formats/sfz/sfz.h"
#include "model/envelope.h"
#include "model/fix_up.h"
#include "sfz_folder.h"

#include <csignal>
#include <map>

#include <sys/resource.h>

namespace vimbo {
namespace {

using testing::RecordingHost;
using testing::SfzFolder;

constexpr int kReadRow = 388;
constexpr int kRowOfVariant0 = 389;
constexpr ParamId kVEnv = EnvelopeBase(EnvelopeIndex::Volume);

bool Save(Collection& items, const SfzFolder& folder, const std::string& name, std::uint32_t variant,
          std::uint32_t formats = FormatBit(DataFormat::Pcm16), float kbit = 0)
{
    const int row = kRowOfVariant0 + static_cast<int>(variant);
    FormatChoice choice = AutoChoice(row);
    choice.caps = formats | kCapsMono | kCapsStereo;
    choice.kbit = kbit;
    return SaveItem(&items, row, folder.Wide(name), choice);
}

void Load(Collection& items, const SfzFolder& folder, const std::string& name)
{
    items.loadOptions.autoCompactLayers = false;
    items.loadOptions.autoMoveTriggerParams = false;
    ASSERT_TRUE(LoadFile(items, folder.Wide(name), AllowRaw::No)) << WideToUtf8(LastError());
    EXPECT_EQ(items.formatRow, kReadRow);
    EXPECT_TRUE(IsConsistent(items));
}

Waveform& AddWave(Collection& items, std::u16string_view name, unsigned channels = 1,
                  std::uint32_t frames = 300)
{
    Waveform& wave = items.Create<Waveform>(name);
    SfzFolder::FillWave(wave, frames, channels);
    wave.Validate();
    return wave;
}

/// Values in every place that the second generation has.
void Fill(Collection& items)
{
    Waveform& piano = AddWave(items, u"Piano C#4");
    piano.rootKey = 61;
    piano.loop = {.type = LoopType::Forward, .start = 100, .end = 200};
    Waveform& pad = AddWave(items, u"Pad: a=b/c", 2);
    auto& instrument = items.Create<Instrument>(u"Grand");
    instrument.location.word = 0;
    instrument.SetParam(kArtVolume, -3);
    Layer& low = instrument.AddLayer();
    low.SetParam(kArtFilterType, static_cast<float>(FilterType::LowPass24));
    low.SetParam(kArtCutoff, 1234.5f);
    Region& first = low.AddRegion(piano.Handle(), {0, 59});
    first.SetParam(kArtTuning, -12.34f);
    first.SetParam(kArtVelToCutoff, 17);
    first.SetParam(kArtKeyToCutoff, 12.34f);
    first.SetParam(kArtEqGain + kEqBandParams, 3.5f);
    first.SetParam(kParamDelay, 0.125f);
    first.startOffset = 10;
    first.endOffset = -20;
    Region& second = low.AddRegion(piano.Handle(), {60, 127}, {1, 99}, 64);
    second.SetParam(kArtFilterType, 0);
    second.SetParam(kArtPan, -0.305f);
    second.SetParam(kArtVelToVolume, 57.13f);
    second.SetParam(kParamExclusionGroup, 7);
    second.SetParam(kVEnv + kEnvReleaseMode, 1);
    second.overrideFlags |= Region::kLoopType;
    second.loop.type = LoopType::Off;
    Layer& high = instrument.AddLayer();
    Region& third = high.AddRegion(pad.Handle(), {20, 90}, {30, 110});
    third.SetParam(kParamKeyFadeIn, 7);
    third.SetParam(kParamVelocityFadeOut, 10);
    third.SetParam(kParamVelocityFadeFormula, 1);
    third.SetParam(kParamPedalSwitch, 1);
    third.SetParam(kArtPLfoToPitch, 0.25f);
    third.SetParam(LfoBase(LfoIndex::Pitch) + kLfoShape, static_cast<float>(LfoShape::Square));
    third.SetParam(kArtVLfoToVolume, 2.5f);
    third.SetParam(LfoBase(LfoIndex::Volume) + kLfoFrequency, 3.21f);
    third.SetParam(kArtXLfoToPan, 0.4f);
    third.SetParam(kVEnv + kEnvAttack2Time, 0.123f);
    third.SetParam(kVEnv + kEnvDecay2Time, 1.5f);
    third.SetParam(kVEnv + kEnvSustain, 0.4567f);
    third.SetParam(kVEnv + kEnvRelease1Rate, 2.345f);
    third.SetParam(kVEnv + kEnvVelToAttack2, 1.7f);
    third.SetParam(kArtSend, 0.3f);
    FixUpItems(items, kPruneAll, AfterLoad::No);
}

/// Values that tell instruments apart, by place.
std::vector<float> ValuesOf(const Collection& items)
{
    std::vector<float> values;
    for (const Region& region : items.All<Region>()) {
        for (ParamId id = 0; id < kArticulationParams; ++id)
            values.push_back(IsHeard(region.articulation, id) ? region.articulation[id] : 0);
        for (ParamId id = kFirstTriggerParam; id <= kLastTriggerParam; ++id)
            values.push_back(region.trigger.Get(id));
        const LoopInfo loop = GetEffectiveLoop(region);
        for (const double value :
             {static_cast<double>(loop.type), loop.start, loop.end, static_cast<double>(loop.breakOnRelease),
              static_cast<double>(region.EffectiveRootKey()), static_cast<double>(region.startOffset),
              static_cast<double>(region.endOffset), static_cast<double>(region.Wave()->frames),
              static_cast<double>(region.Wave()->channels)})
            values.push_back(static_cast<float>(value));
    }
    return values;
}

TEST(SfzWrite, SecondGenerationHoldsAllOfIt)
{
    const SfzFolder folder;
    Collection items;
    Fill(items);
    for (const std::uint32_t variant : {kSfz2SameFolder, kSfz2SubFolder}) {
        RecordingHost host;
        items.SetHost(host);
        ASSERT_TRUE(Save(items, folder, "Grand.sfz", variant)) << WideToUtf8(LastError());
        Collection read;
        Load(read, folder, "Grand.sfz");
        const std::vector<float> wanted = ValuesOf(items), got = ValuesOf(read);
        ASSERT_EQ(got.size(), wanted.size());
        for (std::size_t i = 0; i < wanted.size(); ++i)
            EXPECT_FLOAT_EQ(got[i], wanted[i])
                << "value " << i % (wanted.size() / 3) << " of region " << i / (wanted.size() / 3);
        for (const ConversionNote& note : host.notes)
            EXPECT_TRUE(note.what == u"Name" && note.from == u"Pad: a=b/c")
                << WideToUtf8(note.what + u" " + note.from + u" -> " + note.to);
        // The same again, from what was read, over what was written.
        const std::string text = folder.Get("Grand.sfz");
        ASSERT_TRUE(Save(read, folder, "Grand.sfz", variant, AutoChoice(kRowOfVariant0).caps));
        EXPECT_EQ(folder.Get("Grand.sfz"), text);
        EXPECT_EQ(host.asked, 0);
        items.SetHost(SilentHost());
    }
    std::size_t files = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.Path("")))
        files += entry.is_regular_file() ? 1 : 0;
    EXPECT_EQ(files, 5u) << "one text, two samples, and those in the folder";
}

TEST(SfzWrite, FirstGenerationTellsWhatItLacks)
{
    const SfzFolder folder;
    Collection items;
    Fill(items);
    RecordingHost host;
    items.SetHost(host);
    ASSERT_TRUE(Save(items, folder, "Old.sfz", kSfz1SameFolder));
    const std::string text = folder.Get("Old.sfz");
    for (const std::string_view later : {"lfo0", "eg0", "effect", "loop_type", "lpf_4p"})
        EXPECT_EQ(text.find(later), std::string::npos) << later;
    std::map<std::u16string, int> lost;
    for (const ConversionNote& note : host.notes)
        ++lost[note.what];
    EXPECT_EQ(lost[u"Filter type"], 1);
    EXPECT_EQ(lost[u"X-LFO to Pan position"], 1);
    EXPECT_EQ(lost[u"Send channel 1 level"], 1);
    Collection read;
    Load(read, folder, "Old.sfz");
    EXPECT_EQ(read.CountOf(ItemKind::Region), 3u);
}

TEST(SfzWrite, OneLineForARegionInTheStatedOrder)
{
    const SfzFolder folder;
    Collection items;
    Waveform& wave = AddWave(items, u"a b");
    auto& instrument = items.Create<Instrument>(u"x");
    instrument.location.word = 0;
    Layer& layer = instrument.AddLayer();
    layer.SetParam(kArtBendToPitch, 12);
    layer.AddRegion(wave.Handle(), {48, 59});
    Region& last = layer.AddRegion(wave.Handle(), {60, 61}, {1, 100}, 64);
    last.SetParam(kArtBendToPitch, 2);
    last.SetParam(kArtTuning, -1.5f);
    last.SetParam(kArtVolume, 3);
    last.SetParam(kVEnv + kEnvAttack2Time, 0.5f);
    last.SetParam(kParamExclusionGroup, 2);
    last.startOffset = 5;
    ASSERT_TRUE(Save(items, folder, "x.sfz", kSfz1SubFolder));
    EXPECT_EQ(
        folder.Get("x.sfz"),
        "/////////////////////////////////////////////////////// \n"
        "/// sfz definition file\n"
        "/// written by Vimbo Studio v12.7\n"
        "/////////////////////////////////////////////////////// \n"
        "\n<control> default_path=x/\n"
        "\n<group> bend_up=1200 bend_down=-1200\n"
        "<region> sample=a b.wav lokey=c3 hikey=b3\n"
        "<region> sample=a b.wav offset=5 lokey=c4 hikey=c#4 pitch_keycenter=e4 lovel=1 hivel=100 group=2 "
        "off_by=2 tune=-50 transpose=-1 bend_up=200 bend_down=-200 volume=3 ampeg_attack=0.5\n");
    EXPECT_TRUE(std::filesystem::exists(folder.Path("x/a b.wav")));
}

TEST(SfzWrite, FilesOfOthersStay)
{
    const SfzFolder folder;
    Collection items;
    Fill(items);
    RecordingHost host;
    items.SetHost(host);
    folder.Put("piano c#4.wav", "someone's");
    folder.Put("Piano C#4.wav", "someone else's");
    ASSERT_TRUE(Save(items, folder, "Grand.sfz", kSfz2SameFolder));
    EXPECT_EQ(host.asked, 1);
    EXPECT_EQ(folder.Get("Piano C#4.wav"), "someone else's");
    EXPECT_NE(folder.Get("Grand.sfz").find("sample=Piano C#4 (2).wav"), std::string::npos);
    ASSERT_TRUE(Save(items, folder, "Grand.sfz", kSfz2SameFolder));
    EXPECT_FALSE(std::filesystem::exists(folder.Path("Piano C#4 (3).wav"))) << "the second one was the same";
    host.answer = 2;
    std::filesystem::remove(folder.Path("Pad_ a-b_c.wav"));
    EXPECT_FALSE(Save(items, folder, "New.sfz", kSfz2SameFolder));
    EXPECT_EQ(LastError(), u"Save aborted!");
    EXPECT_FALSE(std::filesystem::exists(folder.Path("New.sfz")));
    host.answer = 0;
    ASSERT_TRUE(Save(items, folder, "Grand.sfz", kSfz2SameFolder));
    EXPECT_NE(folder.Get("Piano C#4.wav"), "someone else's");
    // Samples that are in use are never replaced, whatever the answer.
    Collection read;
    read.SetHost(host);
    Load(read, folder, "Grand.sfz");
    const std::string before = folder.Get("Piano C#4.wav");
    ASSERT_TRUE(Save(read, folder, "Other.sfz", kSfz2SameFolder, FormatBit(DataFormat::Pcm8)));
    EXPECT_EQ(folder.Get("Piano C#4.wav"), before);
}

/// All files below a folder, with digests of what they hold.
std::map<std::string, std::size_t> Files(const SfzFolder& folder)
{
    std::map<std::string, std::size_t> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.Path(""))) {
        const std::string name = std::filesystem::relative(entry.path(), folder.Path("")).string();
        files[name] = entry.is_regular_file() ? std::hash<std::string>()(folder.Get(name)) : 0;
    }
    return files;
}

class CancellingHost final : public Host {
public:
    std::size_t Ask(const Question&) override { return 0; } // replace
    bool IsCancelled() const override { return calls++ >= allowed; }
    mutable int calls = 0;
    int allowed = 0;
};

TEST(SfzWrite, AFailureLeavesEveryFileAsItWas)
{
    const SfzFolder folder;
    Collection items;
    Fill(items);
    Waveform& tooLong = AddWave(items, u"Long", 1, 100000); // for the disk below
    auto& second = items.Create<Instrument>(u"Other");
    second.AddLayer().AddRegion(tooLong.Handle());
    FixUpItems(items, kPruneAll, AfterLoad::No);
    RecordingHost host;
    host.answer = 0; // replace
    items.SetHost(host);
    for (const char* name : {"Piano C#4.wav", "Long.wav", "Other.sfz", "Grand.sfz", "Sub/Piano C#4.wav"})
        folder.Put(name, std::string("the earlier ") + name);
    const auto before = Files(folder);

    rlimit limit = {};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &limit), 0);
    const auto previous = std::signal(SIGXFSZ, SIG_IGN);
    rlimit small = limit;
    small.rlim_cur = 50000;
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    const bool saved = Save(items, folder, "Grand.sfz", kSfz2SameFolder);
    const bool savedBelow = Save(items, folder, "Sub.sfz", kSfz2SubFolder);
    const bool savedNew = Save(items, folder, "New.sfz", kSfz2SubFolder);
    ::setrlimit(RLIMIT_FSIZE, &limit);
    std::signal(SIGXFSZ, previous);
    EXPECT_FALSE(saved || savedBelow || savedNew);
    EXPECT_EQ(Files(folder), before) << "a full disk";

    CancellingHost cancelling;
    items.SetHost(cancelling);
    for (cancelling.allowed = 0; cancelling.allowed < 1000; ++cancelling.allowed) {
        cancelling.calls = 0;
        if (Save(items, folder, "Grand.sfz", kSfz2SameFolder))
            break;
        ASSERT_EQ(LastError(), u"Save aborted!");
        ASSERT_EQ(Files(folder), before) << "stopped at question " << cancelling.allowed;
    }
    EXPECT_GT(cancelling.allowed, 1);
    const auto after = Files(folder);
    EXPECT_EQ(after.size(), before.size() + 1) << "the stereo sample is new";
    for (const char* name : {"Piano C#4.wav", "Long.wav", "Other.sfz", "Grand.sfz"})
        EXPECT_NE(after.at(name), before.at(name)) << name;
    items.SetHost(SilentHost());
}

TEST(SfzWrite, WhatIsLostIsTold)
{
    const SfzFolder folder;
    Collection items;
    Waveform& wave = AddWave(items, u"w: x");
    wave.bits = 24;
    wave.saveFormat = SaveFormat::Pcm24;
    auto& instrument = items.Create<Instrument>(u"x");
    instrument.location.word = 5;
    instrument.channelFx[1] = kDefaultReverb;
    instrument.channelFx[2] = {ChannelFxType::Chorus, {4, 0, 0}, {0.1f}};
    instrument.channelFx[3].type = ChannelFxType::Tremolo;
    Layer& layer = instrument.AddLayer(u"Bright  one, 2 (L)");
    instrument.AddLayer(u"key=3").AddRegion(wave.Handle());
    instrument.AddLayer().AddRegion(wave.Handle());
    Region& region = layer.AddRegion(wave.Handle());
    region.SetParam(kArtShutdownRate, 0.25f);
    region.SetParam(kArtSend + kSendParams, 0.5f);
    // Lower notes of longer decay; levels that six stages do not have.
    region.SetParam(kVEnv + kEnvDecay1Time, 0.25f);
    region.SetParam(kVEnv + kEnvDecay1Level, 0.8f);
    region.SetParam(kVEnv + kEnvDecay2Time, 2);
    region.SetParam(kVEnv + kEnvSustain, 0.6f);
    region.SetParam(kVEnv + kEnvRelease1Rate, 1.5f);
    region.phaseGroup = 3;
    RecordingHost host;
    items.SetHost(host);
    ASSERT_TRUE(Save(items, folder, "x.sfz", kSfz2SameFolder)) << WideToUtf8(LastError());
    std::map<std::u16string, int> lost;
    for (const ConversionNote& note : host.notes)
        ++lost[note.what];
    const std::map<std::u16string, int> wanted = {{u"Program", 1},          {u"Channel effect 3", 1},
                                                  {u"Channel effect 4", 1}, {u"Name", 2},
                                                  {u"Samples", 1},          {u"Phase group", 1}};
    EXPECT_EQ(lost, wanted);
    EXPECT_TRUE(std::filesystem::exists(folder.Path("w_ x.wav")));
    EXPECT_NE(folder.Get("x.sfz").find("<effect>\n\n<effect> type=fverb\n\n<effect> type=chorus\n\n"),
              std::string::npos)
        << folder.Get("x.sfz");
    Collection read;
    Load(read, folder, "x.sfz");
    const Instrument& back = *read.List<Instrument>().front();
    EXPECT_EQ(back.channelFx[1], kDefaultReverb);
    const Region& held = *read.List<Region>().front();
    EXPECT_EQ(back.Layers()[0]->GetName(), u"Bright  one, 2 (L)");
    EXPECT_EQ(back.Layers()[1]->GetName(), u"Layer 2") << "it would be read as an opcode";
    EXPECT_EQ(back.Layers()[1]->Regions()[0]->articulation[kArtShutdownRate], 0.015f);
    EXPECT_EQ(folder.Get("x.sfz").find("Layer 3"), std::string::npos);
    EXPECT_FLOAT_EQ(held.articulation[kArtShutdownRate], 0.25f);
    EXPECT_FLOAT_EQ(held.articulation[kArtSend + kSendParams], 0.5f);
    for (const ParamId offset :
         {kEnvDecay1Time, kEnvDecay1Level, kEnvDecay2Time, kEnvSustain, kEnvRelease1Rate})
        EXPECT_NEAR(held.articulation[kVEnv + offset], region.articulation[kVEnv + offset], 2e-3) << offset;
}

TEST(SfzWrite, CompressedSamplesAndSeveralInstruments)
{
    const SfzFolder folder;
    Collection items;
    Fill(items);
    auto& drums = items.Create<Instrument>(u"Drums/1");
    drums.location.word = MidiLocation::kDrumBit;
    for (int i = 0; i < 3; ++i)
        drums.AddLayer()
            .AddRegion(items.List<Waveform>().front()->Handle())
            .SetParam(kParamTriggerType, static_cast<float>(TriggerKind::FirstAlternate));
    ASSERT_TRUE(Save(items, folder, "Set.sfz", kSfz2SubFolder, FormatBit(DataFormat::Compressed), 1));
    EXPECT_TRUE(std::filesystem::exists(folder.Path("Set/Piano C#4.flac")));
    EXPECT_TRUE(std::filesystem::exists(folder.Path("Drums_1/Piano C#4.flac")));
    Collection read;
    Load(read, folder, "Drums_1.sfz");
    ASSERT_EQ(read.CountOf(ItemKind::Region), 3u);
    for (const Region& region : read.All<Region>())
        EXPECT_EQ(region.trigger.triggerType, static_cast<std::uint8_t>(TriggerKind::FirstAlternate));
    const std::string text = folder.Get("Drums_1.sfz");
    EXPECT_NE(text.find("lorand=0.333333 hirand=0.666667"), std::string::npos) << text;
    ASSERT_TRUE(Save(items, folder, "Ogg.sfz", kSfz2SameFolder, FormatBit(DataFormat::Compressed), 96));
    EXPECT_TRUE(std::filesystem::exists(folder.Path("Piano C#4.ogg")));
}

} // namespace
} // namespace vimbo
