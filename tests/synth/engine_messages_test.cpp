// Controllers and programs, measured at the output.
#include "synth/synth_fixture.h"

#include <gtest/gtest.h>

#include <utility>

namespace vimbo::synth {
namespace {

class EngineMessages : public ::testing::Test {
protected:
    SynthEngine engine{{.channels = 32, .gain = 1, .threads = 1}};
    unsigned channel = 0;

    EngineMessages() { engine.PutInstrument(MakeInstrument({MakeRegion()})); }

    void Send(unsigned status, unsigned data1, unsigned data2 = 0)
    {
        engine.Dispatch(SynthEvent::Make(status | channel % 16, data1, data2, channel / 16));
    }
    void Control(unsigned controller, unsigned value) { Send(kControlStatus, controller, value); }
    /// Levels of both sides once everything stands.
    std::pair<float, float> Levels()
    {
        const Rendered out = RenderBlocks(engine, 120);
        return {out.left.back(), out.right.back()};
    }
};

TEST_F(EngineMessages, VolumeAndPanFollowTheirLaws)
{
    Send(kNoteOnStatus, 60, 127);
    const float half = std::sqrt(0.5f);
    const float full = half; // at centre
    const auto expectLevel = [&](double volume) { EXPECT_NEAR(Levels().first / (full * volume), 1, 1e-4); };
    expectLevel(std::pow(100.0 / 127, 2));
    Control(7, 127);
    expectLevel(1);
    Control(11, 64);
    expectLevel(std::pow(64.0 / 127, 2));
    Control(7, 50);
    expectLevel(std::pow(50.0 / 127, 2) * std::pow(64.0 / 127, 2));
    Control(39, 64); // 14 bits from here
    expectLevel(std::pow((50.0 * 128 + 64) / 16129, 2) * std::pow(64.0 / 127, 2));
    Control(121, 0); // back to 100 and 127, in 7 bits
    expectLevel(std::pow(100.0 / 127, 2));

    Control(7, 127);
    for (const auto& [value, pan] :
         {std::pair{0u, -1.0}, {1u, -62.0 / 63}, {64u, 0.0}, {96u, 32.0 / 63}, {127u, 1.0}}) {
        Control(10, value);
        const auto [left, right] = Levels();
        const double angle = (pan + 1) * 3.14159265358979 / 4;
        EXPECT_NEAR(left, std::cos(angle), 2e-5) << value;
        EXPECT_NEAR(right, std::sin(angle), 2e-5) << value;
    }
}

TEST_F(EngineMessages, RampsTakeTheirTime)
{
    Send(kNoteOnStatus, 60, 127);
    Levels();
    Control(10, 0);
    // Half a 40th of a second for the full range: 9 ticks of 64 frames at 48 kHz.
    const Rendered out = RenderBlocks(engine, 12);
    EXPECT_GT(out.right[7 * kBlockFrames], 0.05f);
    EXPECT_NEAR(out.right[10 * kBlockFrames - 1], 0, 1e-6);
    for (std::size_t i = 1; i < out.right.size(); ++i)
        EXPECT_LT(std::abs(out.right[i] - out.right[i - 1]), 0.01f) << "a click at " << i;
}

TEST_F(EngineMessages, EventsForMissingChannelsAndWrongBytesAreDropped)
{
    engine.Dispatch(SynthEvent::Make(kNoteOnStatus, 60, 100, 2)); // port 2: channels 32 to 47
    engine.Dispatch(SynthEvent::Make(0xF0, 60, 100));
    engine.Dispatch(SynthEvent::Make(kNoteOnStatus, 200, 100));
    EXPECT_EQ(engine.VoiceCount(), 0u);
    channel = 31;
    Send(kNoteOnStatus, 60, 100);
    EXPECT_EQ(engine.VoiceCount(), 1u);
    Send(kNoteOnStatus, 60, 0); // a note-off
    RenderBlocks(engine, 200);
    EXPECT_EQ(engine.VoiceCount(), 0u);
}

TEST_F(EngineMessages, ProgramsFallBack)
{
    // Each patch is told by its level.
    const auto put = [this](std::uint32_t patch, float decibels) {
        SynthRegion region = MakeRegion();
        region.params[kArtVolume] = decibels;
        engine.PutInstrument(MakeInstrument({std::move(region)}, patch));
    };
    const auto patchOf = [](unsigned msb, unsigned lsb, unsigned program, bool drum) {
        MidiLocation location;
        location.SetBankMsb(msb);
        location.SetBankLsb(lsb);
        location.SetProgram(program);
        location.SetDrum(drum);
        return location.word;
    };
    put(patchOf(0, 0, 5, false), -10);
    put(patchOf(8, 0, 5, false), -20);
    put(patchOf(8, 3, 5, false), -30);
    put(patchOf(0, 0, 0, true), -40);
    put(patchOf(0, 0, 16, true), -50);
    const auto levelOf = [&](unsigned msb, unsigned lsb, unsigned program) {
        Control(0, msb);
        Control(32, lsb);
        Send(0xC0, program);
        Send(kNoteOnStatus, 60, 127);
        const float level = RenderBlocks(engine, 20).Peak();
        Control(120, 0);
        return static_cast<int>(std::lround(20 * std::log10(level / (0.62 * std::sqrt(0.5)))));
    };
    EXPECT_EQ(levelOf(8, 3, 5), -30);
    EXPECT_EQ(levelOf(8, 4, 5), -20);
    EXPECT_EQ(levelOf(9, 4, 5), -10);
    EXPECT_EQ(levelOf(9, 4, 77), -10) << "nothing found: the binding stays";
    channel = 9;
    EXPECT_EQ(levelOf(0, 0, 16), -50);
    EXPECT_EQ(levelOf(0, 0, 17), -40) << "the standard kit";
    channel = 25;
    Send(kNoteOnStatus, 60, 127); // no program change: a drum channel plays the kit
    EXPECT_NEAR(20 * std::log10(RenderBlocks(engine, 20).Peak() / (0.62 * std::sqrt(0.5))), -40, 0.2);
}

TEST_F(EngineMessages, BendAndTuning)
{
    std::vector<float> sine(4800);
    for (std::size_t i = 0; i < sine.size(); ++i)
        sine[i] = static_cast<float>(std::sin(2 * 3.14159265358979 * static_cast<double>(i) / 48));
    engine.PutInstrument(MakeInstrument({MakeRegion(MakeSample(sine))}));
    // Semitones from 1000 Hz, by the time of many whole periods.
    const auto semitones = [this](unsigned key = 60) {
        Send(kNoteOnStatus, key, 127);
        RenderBlocks(engine, 60);
        const Rendered out = RenderBlocks(engine, 750);
        double first = -1, last = -1;
        int periods = -1;
        for (std::size_t i = 1; i < out.left.size(); ++i)
            if (out.left[i - 1] < 0 && out.left[i] >= 0) {
                last = static_cast<double>(i) - out.left[i] / (out.left[i] - out.left[i - 1]);
                if (++periods == 0)
                    first = last;
            }
        Control(120, 0);
        return 12 * std::log2(periods * 48.0 / (last - first));
    };
    constexpr double kTenthOfACent = 0.001;
    EXPECT_NEAR(semitones(), 0, kTenthOfACent);
    EXPECT_NEAR(semitones(67), 7, kTenthOfACent);
    Send(0xE0, 127, 127);
    EXPECT_NEAR(semitones(), DefaultArticulation()[kArtBendToPitch], kTenthOfACent);
    Send(0xE0, 0, 0);
    EXPECT_NEAR(semitones(), -DefaultArticulation()[kArtBendToPitch], kTenthOfACent);
    for (const auto& [controller, value] : {std::pair{101u, 0u}, {100u, 0u}, {6u, 12u}, {38u, 50u}})
        Control(controller, value);
    EXPECT_NEAR(semitones(), -12.5, kTenthOfACent);
    Send(0xE0, 0, 64);
    for (const auto& [controller, value] : {std::pair{100u, 1u}, {6u, 96u}, {38u, 0u}})
        Control(controller, value);
    EXPECT_NEAR(semitones(), 0.5, kTenthOfACent);
    Control(96, 0); // one step of 8192 up
    EXPECT_NEAR(semitones(), 0.5 + 1.0 / 8192, kTenthOfACent);
    Control(101, 127);
    Control(100, 127);
    Control(6, 0);
    EXPECT_NEAR(semitones(), 0, kTenthOfACent);
}

} // namespace
} // namespace vimbo::synth
