// The player's transport on an engine whose blocks the test renders itself.
#include "synth/live_player.h"

#include "synth/synth_fixture.h"

#include <gtest/gtest.h>

namespace vimbo::synth {
namespace {

class LivePlayerTest : public ::testing::Test {
protected:
    SynthEngine engine{{.gain = 1, .threads = 1}};

    LivePlayerTest()
    {
        engine.metersOn = true;
        engine.PutInstrument(MakeInstrument({MakeRegion()}));
    }

    /// Channel 0 holds key 60 from 0 to 1 s and from 2 to 3 s; channel 1 key 70 all the time; its volume
    /// falls at 1.5 s.
    static PreparedSong Notes()
    {
        PreparedSong song;
        song.events = {{0, SynthEvent::Make(0x90, 60, 127)}, {0, SynthEvent::Make(0x91, 70, 127)},
                       {1, SynthEvent::Make(0x80, 60)},      {1.5, SynthEvent::Make(0xB1, 7, 10)},
                       {2, SynthEvent::Make(0x90, 60, 127)}, {3, SynthEvent::Make(0x80, 60)},
                       {3, SynthEvent::Make(0x81, 70)}};
        song.bars = {0, 1, 2, 3};
        return song;
    }

    /// As the timer and the audio thread would: a tick each 20 ms.
    void Run(LivePlayer& player, double seconds)
    {
        for (double t = 0; t < seconds; t += 0.02) {
            player.Tick();
            RenderBlocks(engine, 15); // 960 frames
        }
    }
};

TEST_F(LivePlayerTest, PlaysPausesAndStops)
{
    LivePlayer player(engine, Notes());
    player.Play();
    Run(player, 0.5);
    EXPECT_EQ(engine.VoiceCount(), 2u);
    EXPECT_NEAR(player.PositionSeconds(), 0.5, 0.05);
    EXPECT_TRUE(player.HeldKeys(0)[60] && player.HeldKeys(1)[70]);
    EXPECT_GT(player.Lamps(0), 5u);
    Run(player, 1);
    EXPECT_EQ(player.Bar(), 1u);
    EXPECT_FALSE(player.HeldKeys(0)[60]);
    EXPECT_EQ(engine.VoiceCount(), 1u);
    player.Pause();
    const double at = player.PositionSeconds();
    Run(player, 0.3);
    EXPECT_EQ(engine.VoiceCount(), 0u);
    EXPECT_EQ(player.PositionSeconds(), at);
    player.Play();
    Run(player, 3);
    EXPECT_EQ(player.GetState(), LivePlayer::State::Stopped);
    EXPECT_EQ(player.PositionSeconds(), 0);
    EXPECT_EQ(engine.VoiceCount(), 0u);
}

TEST_F(LivePlayerTest, SoloBeatsMute)
{
    LivePlayer player(engine, Notes());
    player.SetMute(1, true);
    player.Play();
    Run(player, 0.3);
    EXPECT_EQ(engine.VoiceCount(), 1u);
    player.SetSolo(1, true); // its note began while it was mute: it is not taken up
    Run(player, 0.3);
    EXPECT_EQ(engine.VoiceCount(), 0u) << "what sounded is let go";
    player.SetSolo(1, false);
    player.SetMute(1, false);
    Run(player, 1.6); // the second note of channel 0
    EXPECT_EQ(engine.VoiceCount(), 1u);
}

TEST_F(LivePlayerTest, SeeksInTheRightState)
{
    LivePlayer player(engine, Notes());
    player.Seek(1.9);
    player.Play();
    Run(player, 0.05);
    engine.Dispatch(SynthEvent::Make(0x91, 50, 127));
    EXPECT_NEAR(RenderBlocks(engine, 5).left.back(), std::pow(10 / 127.0, 2) * std::sqrt(0.5), 1e-4)
        << "the volume that was set before";
    player.Seek(0.5);
    Run(player, 0.1);
    EXPECT_NEAR(player.PositionSeconds(), 0.6, 0.05);
    engine.Dispatch(SynthEvent::Make(0x91, 50, 127));
    EXPECT_NEAR(RenderBlocks(engine, 30).left.back(), 0.6200012 * std::sqrt(0.5), 1e-3)
        << "and not what comes later";
}

} // namespace
} // namespace vimbo::synth
