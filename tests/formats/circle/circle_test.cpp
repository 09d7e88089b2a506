// Banks that go through three formats and come back: nothing changes that the reports do not name.
#include "circle.h"
#include "test_files.h"

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <numbers>

namespace vimbo {
namespace {

using namespace testing;

constexpr std::string_view kRealBank = "/usr/share/sounds/sf2/TimGM6mb.sf2";

using Order = std::array<Leg, 3>;
constexpr std::array kOrders = {Order{kSf2Leg, kSfzLeg, kDlsLeg}, Order{kSf2Leg, kDlsLeg, kSfzLeg},
                                Order{kSfzLeg, kSf2Leg, kDlsLeg}, Order{kSfzLeg, kDlsLeg, kSf2Leg},
                                Order{kDlsLeg, kSf2Leg, kSfzLeg}, Order{kDlsLeg, kSfzLeg, kSf2Leg}};

std::string NameOf(const Order& order)
{
    std::string name;
    for (const Leg& leg : order)
        name += std::string(leg.word) + "-";
    return name + std::string(order[0].word);
}

/// Kinds of values that differ after a bank, as its first format has it, went through the others and back.
/// Every difference must have been named by one of the reports on the way.
std::set<std::string> Circle(Collection& bank, const Order& order, const std::filesystem::path& folder)
{
    SCOPED_TRACE(NameOf(order));
    LossHost ignored, host;
    std::array<std::unique_ptr<Collection>, 4> stages;
    for (auto& stage : stages)
        stage = std::make_unique<Collection>();
    const std::array legs = {order[0], order[1], order[2], order[0]};
    Collection* at = &bank;
    for (std::size_t i = 0; i < legs.size(); ++i) {
        const auto place = folder / (NameOf(order) + std::to_string(i));
        EXPECT_TRUE(GoThrough(*at, legs[i], place, i == 0 ? ignored : host, *stages[i]))
            << WideToUtf8(LastError());
        at = stages[i].get();
    }
    Comparison comparison;
    comparison.Compare(*stages.front(), *stages.back());
    EXPECT_GT(comparison.compared, 100 * bank.CountOf(ItemKind::Region) / 4);
    std::set<std::string> kinds;
    for (const Difference& difference : comparison.differences) {
        kinds.insert(difference.what.substr(difference.what.find('|') + 1));
        EXPECT_TRUE(host.named.contains(difference.what)) << difference.text;
    }
    return kinds;
}

Waveform& AddTone(Collection& items, std::u16string_view name, double cycles, std::uint32_t frames = 4000)
{
    Waveform& wave = items.Create<Waveform>(name);
    wave.frames = frames;
    wave.rateHz = 32000;
    wave.saveFormat = SaveFormat::Pcm16;
    wave.bits = 16;
    const std::span<float> samples = wave.LockSamplesForWrite();
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const double phase = 2 * std::numbers::pi * cycles * static_cast<double>(i) / frames;
        samples[i] = static_cast<float>(std::round(16000 * std::sin(phase)) / 32768);
    }
    wave.loop.end = frames;
    return wave;
}

constexpr ParamId At(EnvelopeIndex index, ParamId offset)
{
    return static_cast<ParamId>(EnvelopeBase(index) + offset);
}

void SetStages(Region& region, EnvelopeIndex index, float factor)
{
    const std::pair<ParamId, float> stages[] = {{kEnvAttack1Time, 0.25f}, {kEnvAttack2Time, 0.125f},
                                                {kEnvDecay1Time, 0.5f},   {kEnvDecay2Time, 2},
                                                {kEnvSustain, 0.375f},    {kEnvRelease1Rate, 1.5f}};
    for (const auto& [offset, value] : stages)
        region.SetParam(At(index, offset), offset == kEnvSustain ? value : value * factor);
}

void SetWave(Region& region, LfoIndex index, float hz)
{
    region.SetParam(static_cast<ParamId>(LfoBase(index) + kLfoFrequency), hz);
    region.SetParam(static_cast<ParamId>(LfoBase(index) + kLfoDelay), 0.75f);
}

/// Two programs and a kit with all that the three formats share.
void FillBank(Collection& items)
{
    Waveform& soft = AddTone(items, u"Soft C4", 40);
    soft.rootKey = 61;
    soft.fineTune = -23;
    soft.volume = -4;
    soft.loop = {.type = LoopType::Forward, .start = 1000, .end = 3500};
    Waveform &left = AddTone(items, u"Hard -L", 50), &right = AddTone(items, u"Hard -R", 60);
    Waveform& drum = AddTone(items, u"Drum", 10, 900);

    auto& piano = items.Create<Instrument>(u"Piano");
    piano.location.SetProgram(3);
    piano.channelFx[0] = kDefaultReverb;
    piano.channelFx[1] = kDefaultChorus;
    Layer &one = piano.AddLayer(), &two = piano.AddLayer();
    Region& low = one.AddRegion(soft.Handle(), {0, 59}, {0, 64});
    low.SetParam(kArtTuning, -7.25f);
    low.SetParam(kArtVolume, -3.2f);
    low.SetParam(kArtVelToVolume, 48);
    low.SetParam(kArtFilterType, static_cast<float>(FilterType::LowPass12));
    low.SetParam(kArtCutoff, 1200);
    low.SetParam(kArtResonance, 7.5f);
    low.SetParam(kArtVelToCutoff, 12);
    low.SetParam(kArtFEnvToCutoff, 24);
    low.SetParam(kArtSend, 0.25f);
    low.SetParam(kArtSend + kSendParams, 0.5f);
    SetStages(low, EnvelopeIndex::Volume, 1);
    low.SetParam(At(EnvelopeIndex::Volume, kEnvKeyToDecay2), 0.8f);
    SetStages(low, EnvelopeIndex::Filter, 2);
    Region& high = one.AddRegion(soft.Handle(), {60, 127}, {0, 64}, 67);
    high.SetParam(kArtPLfoToPitch, 0.35f);
    high.SetParam(kArtWheelPLfoToPitch, 0.5f);
    SetWave(high, LfoIndex::Pitch, 6.5f);
    high.SetParam(kArtVLfoToVolume, 3.5f);
    SetWave(high, LfoIndex::Volume, 2.25f);
    high.SetParam(kArtPEnvToPitch, -2.5f);
    SetStages(high, EnvelopeIndex::Pitch, 1);
    one.AddRegion(left.Handle(), {0, 127}, {65, 127}).SetParam(kArtPan, -1);
    two.AddRegion(right.Handle(), {0, 127}, {65, 127}).SetParam(kArtPan, 1);

    auto& pad = items.Create<Instrument>(u"Pad");
    pad.location.SetProgram(90);
    Region& wide = pad.AddLayer().AddRegion(soft.Handle());
    wide.SetParam(kArtKeyToPitch, 0.5f);
    wide.SetParam(kArtPan, 0.25f);

    auto& kit = items.Create<Instrument>(u"Kit");
    kit.location.SetDrum(true);
    Layer& drums = kit.AddLayer();
    for (const std::uint8_t key : std::initializer_list<std::uint8_t>{36, 42, 46}) {
        Region& region = drums.AddRegion(drum.Handle(), {key, key}, {0, 127}, key);
        region.SetParam(kParamExclusionGroup, key == 36 ? 0.0f : 7.0f);
        region.SetParam(kArtVolume, -6);
    }
}

TEST(BankCircle, WhatAllFormatsShareComesBackThroughAnyOrder)
{
    const ScratchFolder folder;
    for (const Order& order : kOrders) {
        Collection items;
        FillBank(items);
        // LFOs are triangles in one format, of either form in another, sines in the third.
        const std::set<std::string> allowed = {"P-LFO Wave Shape", "V-LFO Wave Shape"};
        for (const std::string& kind : Circle(items, order, folder.Path()))
            EXPECT_TRUE(allowed.contains(kind)) << kind << " through " << NameOf(order);
    }
}

TEST(BankCircle, RealBankComesBackThroughAnyOrder)
{
    if (!std::filesystem::exists(kRealBank))
        GTEST_SKIP() << "needs TimGM6mb.sf2";
    // Named by the reports: times that grow faster with the key than a straight line from 0, or further than
    // a factor of 16 over all keys; cutoffs outside 200 to 7998 Hz; what controllers send to effects.
    const std::set<std::string> allowed = {"P-LFO Wave Shape",
                                           "V-LFO Wave Shape",
                                           "F-LFO Wave Shape",
                                           "Filter Cutoff frequency",
                                           "V-ENV Decay 2 Time",
                                           "V-ENV Key number to Decay 2 Time",
                                           "CC91 to Send channel 1 level"};
    const ScratchFolder folder;
    for (const Order& order : kOrders) {
        Collection items;
        ASSERT_TRUE(LoadPlain(items, kRealBank));
        for (Instrument* instrument : items.List<Instrument>()) // a quarter of the programs, and the kits
            if (!instrument->location.IsDrum() && instrument->location.Program() % 4 != 1)
                items.Destroy(instrument->Handle());
        ASSERT_EQ(items.CountOf(ItemKind::Instrument), 40u);
        for (const std::string& kind : Circle(items, order, folder.Path()))
            EXPECT_TRUE(allowed.contains(kind)) << kind << " through " << NameOf(order);
    }
}

} // namespace
} // namespace vimbo
