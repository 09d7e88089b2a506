// From items to the records that voices play.
#include "model/envelope.h"
#include "model/fix_up.h"
#include "model/synth_model.h"
#include "model/waveform.h"
#include "voice_builders.h"

#include <gtest/gtest.h>

namespace vimbo::synth {
namespace {

/// An instrument of which each region stands in a layer of its own.
class CompileInstrumentTest : public testing::Test {
protected:
    Waveform& AddWave(std::u16string_view name, std::uint32_t frames, float first = 0)
    {
        auto& wave = items.Create<Waveform>(name);
        wave.frames = frames;
        wave.rateHz = 32000;
        const std::span<float> block = wave.AllocateSamples();
        for (std::size_t i = 0; i < block.size(); ++i)
            block[i] = first + static_cast<float>(i);
        return wave;
    }
    Region& Add(const Waveform& wave)
    {
        Region& region = instrument.AddLayer().AddRegion(wave.Handle());
        return region;
    }
    std::unique_ptr<SynthInstrument> Compile()
    {
        FixUpItems(items, 0, AfterLoad::No);
        return CompileInstrument(instrument, samples);
    }

    Collection items;
    Instrument& instrument = items.Create<Instrument>(u"Piano");
    SampleStore samples;
};

TEST_F(CompileInstrumentTest, TakesValuesLoopAndTrigger)
{
    Waveform& wave = AddWave(u"w", 1000);
    wave.rootKey = 48;
    wave.fineTune = -25;
    wave.volume = -3;
    wave.loop = {LoopType::Alternating, true, false, 100.5, 900.25, 0.5f};
    Region& region = Add(wave);
    region.SetParam(kArtKeyToPitch, 0.5f);
    region.SetParam(kArtTuning, 2);
    region.SetParam(kArtVolume, 1);
    region.SetParam(kParamLoopStart, 200);
    region.SetParam(kParamStartOffset, 10);
    region.SetParam(kParamEndOffset, -20);
    region.SetParam(kParamTriggerType, 5);
    region.SetParam(kParamPedalSwitch, 2);
    region.SetParam(kParamExclusionGroup, 300);
    region.SetParam(kParamNoteExclusionMode, 1);
    region.SetParam(kParamDelay, 0.25f);
    instrument.location.word = 0x201234;
    instrument.channelFx[2] = kDefaultReverb;
    instrument.SetName(std::u16string(100, u'x'));
    const auto compiled = Compile();
    EXPECT_EQ(compiled->patch, 0x201234u);
    EXPECT_EQ(compiled->name, std::u16string(79, u'x'));
    EXPECT_EQ(compiled->effects[2], kDefaultReverb);
    ASSERT_EQ(compiled->regions.size(), 1u);
    const SynthRegion& record = compiled->regions[0];
    EXPECT_EQ(record.model, VoiceModel::Wave);
    EXPECT_EQ(record.regionId, region.Handle().Serial());
    EXPECT_NEAR(record.params[kArtTuning], 2 + (60 - 48) * 0.5 - 0.25, 1e-5);
    EXPECT_NEAR(record.params[kArtVolume], -2, 1e-5);
    EXPECT_EQ(record.params[kArtCutoff], 8000);
    EXPECT_EQ(record.trigger, 5);
    EXPECT_EQ(record.pedal, 2);
    EXPECT_EQ(record.exclusiveClass, 300);
    EXPECT_TRUE(record.allowOverlap);
    EXPECT_EQ(record.delaySeconds, 0.25f);
    EXPECT_EQ(record.wave.loopType, LoopType::Alternating);
    EXPECT_TRUE(record.wave.breakOnRelease);
    EXPECT_EQ(record.wave.loopStart, 200);
    EXPECT_EQ(record.wave.loopEnd, 900.25);
    EXPECT_EQ(record.wave.loopTuning, 0.5f);
    EXPECT_EQ(record.wave.start, 10);
    EXPECT_EQ(record.wave.end, 980);
    ASSERT_TRUE(record.wave.sample);
    EXPECT_EQ(record.wave.sample->Frames(), 1000u);
    EXPECT_EQ(record.wave.sample->RateHz(), 32000);
    EXPECT_EQ(record.wave.sample->Data()[999], 999);
    region.SetParam(kParamRegionRootKey, 72);
    EXPECT_NEAR(Compile()->regions[0].params[kArtTuning], 2 + (60 - 72) * 0.5 - 0.25, 1e-5);
}

TEST_F(CompileInstrumentTest, FadesReachAcrossTheEdges)
{
    Waveform& wave = AddWave(u"w", 100);
    Region& low = Add(wave);
    low.SetParam(kParamHighKey, 59);
    low.SetParam(kParamKeyFadeOut, 5);
    low.SetParam(kParamKeyFadeFormula, 1);
    Region& high = Add(wave);
    high.SetParam(kParamLowKey, 60);
    high.SetParam(kParamKeyFadeIn, 5);
    high.SetParam(kParamKeyFadeFormula, 1);
    high.SetParam(kParamHighVelocity, 126);
    high.SetParam(kParamVelocityFadeOut, 4);
    const auto compiled = Compile();
    ASSERT_EQ(compiled->regions.size(), 2u);
    const SynthRegion &a = compiled->regions[0], &b = compiled->regions[1];
    // 5 keys around the edge: 58 to 62, and the sixths between 57 and 63.
    EXPECT_EQ(a.keys.high, 62);
    EXPECT_EQ(b.keys.low, 58);
    for (unsigned key = 0; key <= 127; ++key) {
        const double rising = std::clamp((static_cast<double>(key) - 57) / 6, 0.0, 1.0);
        EXPECT_NEAR(b.CrossFadeGain(key, 64), rising, 1e-5) << key;
        EXPECT_NEAR(a.CrossFadeGain(key, 64), 1 - rising, 1e-5) << key;
    }
    // What lies beyond 127 is cut off, but the curve stays where it was: 124 full, 129 silent.
    EXPECT_EQ(b.velocities.high, 127);
    EXPECT_NEAR(b.CrossFadeGain(100, 124), 1, 1e-5);
    EXPECT_NEAR(b.CrossFadeGain(100, 126), std::sqrt(3.0 / 5), 1e-5);
    EXPECT_NEAR(b.CrossFadeGain(100, 127), std::sqrt(2.0 / 5), 1e-5);
}

TEST_F(CompileInstrumentTest, SidesOfOneSoundBecomeStereo)
{
    Waveform& left = AddWave(u"l", 100, 1000);
    Waveform& right = AddWave(u"r", 100, -1000);
    Waveform& stereo = AddWave(u"s", 100);
    stereo.channels = 2;
    ASSERT_FALSE(stereo.AllocateSamples().empty());
    Add(stereo).SetParam(kArtPan, 1);
    Region& first = Add(right);
    first.SetParam(kArtPan, 1);
    Region& second = Add(left);
    second.SetParam(kArtPan, -1);
    auto compiled = Compile();
    ASSERT_EQ(compiled->regions.size(), 2u);
    EXPECT_EQ(compiled->regions[0].params[kArtPan], 1) << "stereo already";
    const SynthRegion& pair = compiled->regions[1];
    EXPECT_EQ(pair.regionId, first.Handle().Serial());
    EXPECT_EQ(pair.params[kArtPan], 0);
    ASSERT_EQ(pair.wave.sample->Channels(), 2u);
    EXPECT_EQ(pair.wave.sample->Data()[2 * 7], 1007);
    EXPECT_EQ(pair.wave.sample->Data()[2 * 7 + 1], -993);

    // Whatever differs keeps them apart.
    const auto staysApart = [&](ParamId id, float value) {
        const float before = second.GetParam(id);
        second.SetParam(id, value);
        EXPECT_EQ(Compile()->regions.size(), 3u) << id;
        second.SetParam(id, before);
        EXPECT_EQ(Compile()->regions.size(), 2u) << id;
    };
    staysApart(kArtPan, -0.99f);
    staysApart(kArtTuning, 0.01f);
    staysApart(kArtEnvelopes + kEnvAttack2Time, 0.1f);
    staysApart(kParamDelay, 0.1f);
    staysApart(kParamLowKey, 10);
    staysApart(kParamHighVelocity, 100);
    staysApart(kParamVelocityFadeOut, 3);
    staysApart(kParamExclusionGroup, 1);
    staysApart(kParamRegionRootKey, 61);
    staysApart(kParamEndOffset, -1);
    left.fineTune = 3;
    EXPECT_EQ(Compile()->regions.size(), 3u);
    left.fineTune = 0;
    left.rateHz = 31999;
    EXPECT_EQ(Compile()->regions.size(), 3u);
}

TEST_F(CompileInstrumentTest, SidesPairInTheirOrder)
{
    struct Side {
        float offset;
        float pan;
    };
    std::vector<std::uint32_t> ids;
    for (const Side& side : {Side{1000, -1}, Side{2000, -1}, Side{3000, 1}, Side{4000, 1}, Side{5000, -1}}) {
        Region& region = Add(AddWave(u"w", 100, side.offset));
        region.SetParam(kArtPan, side.pan);
        ids.push_back(region.Handle().Serial());
    }
    const auto compiled = Compile();
    ASSERT_EQ(compiled->regions.size(), 3u);
    for (const std::size_t i : {0u, 1u, 4u}) {
        const SynthRegion& region = compiled->regions[std::min<std::size_t>(i, 2)];
        EXPECT_EQ(region.regionId, ids[i]);
        ASSERT_EQ(region.wave.sample->Channels(), i == 4 ? 1u : 2u);
        EXPECT_EQ(region.wave.sample->Data()[0], static_cast<float>(i + 1) * 1000);
        if (i != 4) {
            EXPECT_EQ(region.wave.sample->Data()[1], static_cast<float>(i + 3) * 1000);
        }
    }
}

TEST_F(CompileInstrumentTest, PhaseGroupsFollowTheirMaster)
{
    Waveform& wave = AddWave(u"w", 100);
    Waveform& other = AddWave(u"o", 100);
    other.rootKey = 72;
    Region& master = Add(wave);
    Region& follower = Add(other);
    Region& stranger = Add(wave);
    // After the levels are resolved, so that it is the compiler that links.
    FixUpItems(items, 0, AfterLoad::No);
    for (Region* region : {&master, &follower})
        region->phaseGroup = 3;
    master.phaseMaster = 1;
    stranger.phaseGroup = 4;
    const ParamId pitchEnvelope = EnvelopeBase(EnvelopeIndex::Pitch) + kEnvAttack2Time;
    for (const ParamId id : {kArtTuning, kArtRandomToPitch, kArtPLfoToPitch})
        master.articulation.Set(id, 1.5f);
    master.articulation.Set(LfoBase(LfoIndex::Pitch) + kLfoFrequency, 7);
    master.articulation.Set(LfoBase(LfoIndex::X) + kLfoFrequency, 9);
    master.articulation.Set(pitchEnvelope, 4);
    master.articulation.Set(kArtVolume, -9);
    auto compiled = CompileInstrument(instrument, samples);
    ASSERT_EQ(compiled->regions.size(), 3u);
    const auto& linked = compiled->regions[1].params;
    EXPECT_EQ(linked[kArtTuning], 1.5f - 12) << "the root key is its own";
    EXPECT_EQ(linked[kArtRandomToPitch], 1.5f);
    EXPECT_EQ(linked[LfoBase(LfoIndex::Pitch) + kLfoFrequency], 7);
    EXPECT_EQ(linked[LfoBase(LfoIndex::X) + kLfoFrequency], 5) << "the master does not use it";
    EXPECT_EQ(linked[pitchEnvelope], 0);
    EXPECT_EQ(linked[kArtVolume], 0);
    EXPECT_EQ(compiled->regions[2].params[kArtTuning], 0) << "another group";
    master.articulation.Set(kArtPEnvToPitch, 2);
    master.articulation.Set(kArtXLfoToPitch, 2);
    compiled = CompileInstrument(instrument, samples);
    EXPECT_EQ(compiled->regions[1].params[pitchEnvelope], 4);
    EXPECT_EQ(compiled->regions[1].params[LfoBase(LfoIndex::X) + kLfoFrequency], 9);
    for (const ParamId id : {kParamLowVelocity, kParamVelocityFadeOut, kParamLowKey}) {
        const TriggerParams before = follower.trigger;
        follower.trigger.Set(id, 2);
        EXPECT_EQ(CompileInstrument(instrument, samples)->regions[1].params[kArtRandomToPitch], 0) << id;
        follower.trigger = before;
    }
}

TEST_F(CompileInstrumentTest, SamplesAreSharedAndLoopsWrap)
{
    Waveform& wave = AddWave(u"w", 100, 1);
    Add(wave);
    Add(wave);
    Region& looped = Add(wave);
    looped.SetParam(kParamLoopType, 1);
    looped.SetParam(kParamLoopStart, 40);
    const auto compiled = Compile();
    ASSERT_EQ(compiled->regions.size(), 3u);
    EXPECT_EQ(compiled->regions[0].wave.sample, compiled->regions[1].wave.sample);
    EXPECT_EQ(compiled->regions[0].wave.sample->Data()[100], 0) << "silence behind the end";
    ASSERT_EQ(compiled->regions[2].wave.loopEnd, 100);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(compiled->regions[2].wave.sample->Data()[100 + i], 41 + i)
            << "the loop's start behind its end";
}

TEST_F(CompileInstrumentTest, WhatCannotSoundIsLeftOut)
{
    auto& lost = items.Create<Waveform>(u"lost"); // no source to read from
    lost.frames = 100;
    lost.importProc = &kGenericImport;
    lost.SetSourceBits(16, 0);
    auto& empty = items.Create<Waveform>(u"empty");
    Waveform& good = AddWave(u"good", 100);
    Add(lost);
    Add(empty);
    instrument.AddLayer().AddRegion(NO_ITEM);
    Layer& layer = instrument.AddLayer();
    layer.AddRegion(NO_ITEM).SetSound(items.Create<SynthModel>(u"fm").Handle());
    Region& kept = Add(good);
    const auto compiled = CompileInstrument(instrument, samples);
    ASSERT_EQ(compiled->regions.size(), 1u);
    EXPECT_EQ(compiled->regions[0].regionId, kept.Handle().Serial());
}

} // namespace
} // namespace vimbo::synth
