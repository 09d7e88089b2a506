// Which regions a note starts, who has to go for it, and what pedals and releases do.
#include "synth/synth_fixture.h"

#include <gtest/gtest.h>

#include <set>

namespace vimbo::synth {
namespace {

class EngineNotes : public ::testing::Test {
protected:
    SynthEngine engine{{.gain = 1, .threads = 1}};

    void Send(unsigned status, unsigned data1, unsigned data2 = 0)
    {
        engine.Dispatch(SynthEvent::Make(status, data1, data2));
    }
    void Use(std::vector<SynthRegion> regions) { engine.PutInstrument(MakeInstrument(std::move(regions))); }
    std::size_t Voices() const { return engine.VoiceCount(); }
    /// Voices that are left when all that fades has faded.
    std::size_t VoicesAfter(double seconds = 0.5)
    {
        RenderBlocks(engine, static_cast<std::size_t>(seconds * 48000 / kBlockFrames));
        return Voices();
    }
};

TEST_F(EngineNotes, KeysVelocitiesAndTriggersChooseRegions)
{
    std::vector<SynthRegion> regions(6, MakeRegion());
    regions[0].keys = {0, 59};
    regions[1].keys = {60, 127};
    regions[1].velocities = {0, 63};
    regions[2].velocities = {64, 127};
    regions[3].trigger = 1; // release
    regions[4].pedal = 1;   // down
    regions[5].pedal = 2;   // up
    Use(std::move(regions));
    Send(kNoteOnStatus, 50, 40);
    EXPECT_EQ(Voices(), 2u); // low keys; pedal up
    Send(kNoteOnStatus, 70, 40);
    EXPECT_EQ(Voices(), 4u);
    Send(kControlStatus, 64, 127);
    Send(kNoteOnStatus, 71, 100);
    EXPECT_EQ(Voices(), 6u); // loud; pedal down
    Send(kControlStatus, 64, 0);
    Send(kNoteOffStatus, 71);
    EXPECT_EQ(Voices(), 7u); // and the release region
    EXPECT_EQ(VoicesAfter(), 4u + 1u);
    Send(kNoteOffStatus, 99); // a stray one starts release regions as well
    EXPECT_EQ(Voices(), 6u);
}

TEST_F(EngineNotes, RoundRobinTakesTurns)
{
    std::vector<SynthRegion> regions;
    for (std::uint32_t i = 0; i < 3; ++i) {
        regions.push_back(MakeRegion(Ones(), i));
        regions.back().trigger = 2;
        regions.back().params[kArtVolume] = -20.0f * static_cast<float>(i);
    }
    regions.push_back(MakeRegion(Ones(), 9)); // another group: each note
    regions.back().trigger = 5;
    regions.back().params[kArtVolume] = -96;
    regions[2].keys = {61, 127}; // not for key 60: there are two to choose from there
    Use(std::move(regions));
    std::vector<int> decibels;
    for (const unsigned key : {60u, 60u, 60u, 61u, 61u, 61u, 60u}) {
        Send(kNoteOnStatus, key, 127);
        EXPECT_EQ(Voices(), 2u);
        const float level = RenderBlocks(engine, 20).left.back() / (0.6200012f * std::sqrt(0.5f));
        decibels.push_back(static_cast<int>(std::lround(20 * std::log10(level))));
        Send(kControlStatus, 120);
    }
    EXPECT_EQ(decibels, (std::vector<int>{0, -20, 0, -20, -40, 0, -20}));
}

TEST_F(EngineNotes, OverlapAndExclusiveClassesShutOlderVoices)
{
    std::vector<SynthRegion> regions(2, MakeRegion());
    regions[0].keys = {0, 60};
    regions[0].allowOverlap = false;
    regions[1].keys = {61, 127};
    regions[1].exclusiveClass = 7;
    Use(std::move(regions));
    Send(kNoteOnStatus, 60, 100);
    Send(kNoteOnStatus, 60, 100);
    EXPECT_EQ(VoicesAfter(), 1u);
    Send(kNoteOnStatus, 59, 100);
    EXPECT_EQ(VoicesAfter(), 2u) << "another key";
    Send(kNoteOnStatus, 70, 100);
    Send(kNoteOnStatus, 71, 100);
    EXPECT_EQ(VoicesAfter(), 3u) << "one of the class";
    Send(kControlStatus, 126, 0); // mono: all but the first note go
    EXPECT_EQ(Voices(), 1u);
    Send(kNoteOnStatus, 75, 100);
    EXPECT_EQ(VoicesAfter(), 1u);
}

TEST_F(EngineNotes, PedalsHoldNotes)
{
    std::vector<SynthRegion> regions(2, MakeRegion());
    regions[1].trigger = 1;
    Use(std::move(regions));
    Send(kControlStatus, 64, 127);
    Send(kNoteOnStatus, 60, 100);
    Send(kNoteOnStatus, 60, 90); // the same key again: two note-offs, one each
    Send(kNoteOffStatus, 60);
    Send(kNoteOffStatus, 60);
    EXPECT_EQ(VoicesAfter(), 2u);
    Send(kControlStatus, 64, 0);
    EXPECT_EQ(Voices(), 4u) << "release regions start when the pedal lets go";
    EXPECT_EQ(VoicesAfter(), 2u);
    Send(kControlStatus, 120);

    Send(kNoteOnStatus, 60, 100);
    Send(kControlStatus, 66, 127); // sostenuto holds what sounds now
    Send(kNoteOnStatus, 62, 100);
    Send(kNoteOffStatus, 60);
    Send(kNoteOffStatus, 62);
    EXPECT_EQ(VoicesAfter(), 2u); // 60 held; the release region of 62
    Send(kControlStatus, 66, 0);
    EXPECT_EQ(VoicesAfter(), 2u); // release regions only
    Send(kControlStatus, 120);

    Send(kNoteOnStatus, 60, 100);
    Send(kControlStatus, 123);
    EXPECT_EQ(VoicesAfter(), 0u) << "all notes off starts no release regions";
}

TEST_F(EngineNotes, FullPoolsStealTheQuietest)
{
    engine.clampOutput = false;
    Send(kControlStatus, 7, 20); // the sum of all stays well below the engine's limit
    Use({MakeRegion()});
    for (unsigned key = 0; key < 128; ++key)
        Send(kNoteOnStatus, key, key == 77 ? 20 : 127);
    RenderBlocks(engine, 40);
    ASSERT_EQ(Voices(), 128u);
    const float before = RenderBlocks(engine, 1).Peak();
    Send(kNoteOnStatus, 0, 127); // 128 groups: one has to go
    EXPECT_EQ(Voices(), 128u);
    const float after = RenderBlocks(engine, 40).left.back();
    EXPECT_GT(after, before * 1.004f) << "a loud one went: the new one is worth 0.8 %";

    // Each note needs three voices: the pool of 256 holds 85 notes.
    Send(kControlStatus, 120);
    Use(std::vector<SynthRegion>(3, MakeRegion()));
    for (unsigned key = 0; key < 120; ++key) {
        Send(kNoteOnStatus, key, 100);
        EXPECT_LE(Voices(), SynthEngine::kVoices);
    }
    EXPECT_GE(Voices(), SynthEngine::kVoices - 3);
    EXPECT_EQ(Voices() % 3, 0u) << "no note is left in part";
}

TEST_F(EngineNotes, PortamentoMovesTheHeldNote)
{
    std::vector<float> sine(480);
    for (std::size_t i = 0; i < sine.size(); ++i)
        sine[i] = std::sin(2 * 3.14159265f * static_cast<float>(i) / 120); // 400 Hz
    Use({MakeRegion(MakeSample(sine))});
    Send(kControlStatus, 65, 127);
    Send(kControlStatus, 5, 0); // 0.005 s a semitone, with the LSB at rest
    Send(kControlStatus, 37, 0);
    Send(kNoteOnStatus, 60, 127);
    RenderBlocks(engine, 20);
    Send(kNoteOnStatus, 72, 127);
    EXPECT_EQ(Voices(), 1u);
    RenderBlocks(engine, 60); // 0.08 s: the glide is over after 0.06
    const Rendered out = RenderBlocks(engine, 75);
    int crossings = 0;
    for (std::size_t i = 1; i < out.left.size(); ++i)
        crossings += out.left[i - 1] < 0 && out.left[i] >= 0 ? 1 : 0;
    EXPECT_NEAR(crossings, 80, 1); // 800 Hz for 0.1 s
    Send(kNoteOffStatus, 72);
    EXPECT_EQ(VoicesAfter(), 0u);
}

TEST_F(EngineNotes, CoarseTuningIsSubtracted)
{
    std::vector<SynthRegion> regions(2, MakeRegion());
    regions[0].keys = {0, 0};
    regions[1].keys = {1, 127};
    regions[1].trigger = 1; // never by note-on
    Use(std::move(regions));
    for (const auto& [controller, value] : {std::pair{101u, 0u}, {100u, 2u}, {6u, 65u}})
        Send(kControlStatus, controller, value);
    Send(kNoteOnStatus, 0, 100);
    EXPECT_EQ(Voices(), 1u) << "clamped to key 0";
    Send(kNoteOnStatus, 1, 100);
    EXPECT_EQ(Voices(), 2u) << "plays key 0";
}

} // namespace
} // namespace vimbo::synth
