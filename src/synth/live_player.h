// Plays a song on an engine that another thread renders: transport, mute and solo, meters. Knows no timer and
// no window: whoever owns one calls Tick.
#pragma once

#include "synth/engine.h"
#include "synth/prepared_song.h"

#include <bitset>
#include <vector>

namespace vimbo::synth {

/// All calls from one thread, the one with the timer. The engine must have the song's instruments, and stay
/// longer than the player.
class LivePlayer {
public:
    static constexpr unsigned kTickMs = 20;          ///< how often Tick wants to be called
    static constexpr double kLookaheadSeconds = 0.1; ///< events are posted this much ahead of their time

    enum class State { Stopped, Playing, Paused };

    LivePlayer(SynthEngine& engine, PreparedSong song);

    /// From the position on.
    void Play();
    /// Notes are released; the position stays.
    void Pause();
    /// Notes are released; back to the start.
    void Stop();
    /// Brings every channel into the state that it has there. No note that began before is taken up.
    void Seek(double seconds);
    /// One step of the timer.
    void Tick();

    State GetState() const noexcept { return state_; }
    double PositionSeconds() const noexcept { return position_; }
    const PreparedSong& Song() const noexcept { return song_; }
    std::size_t Channels() const noexcept { return rows_.size(); }
    /// Bar line at or before the position, from 0.
    std::size_t Bar() const noexcept;

    void SetMute(std::size_t channel, bool mute);
    void SetSolo(std::size_t channel, bool solo);
    bool IsMuted(std::size_t channel) const noexcept { return rows_[channel].mute; }
    bool IsSolo(std::size_t channel) const noexcept { return rows_[channel].solo; }
    /// Keys that were struck and not let go, as posted.
    const std::bitset<128>& HeldKeys(std::size_t channel) const noexcept { return rows_[channel].held; }
    /// Smoothed peak of the channel.
    float Level(std::size_t channel) const noexcept { return rows_[channel].level; }
    /// The level as 0 to 8 lamps, about 5.3 dB each.
    unsigned Lamps(std::size_t channel) const noexcept;

private:
    struct Row {
        bool mute = false, solo = false;
        bool silencePending = false; ///< its notes are to be released
        float level = 0;
        std::bitset<128> held;
    };

    bool IsSilenced(const Row& row) const noexcept { return hasSolo_ ? !row.solo : row.mute; }
    void SilenceNewlyMuted(const std::vector<bool>& before);
    std::vector<bool> SilencedRows() const;
    bool PostSilences();
    bool PostQueued();
    void PostDue();
    bool PostSongEvent(const TimedEvent& timed);
    void SilenceAll();
    void MoveTo(double seconds);
    void QueueState(double seconds);
    void UpdateMeters();

    SynthEngine& engine_;
    PreparedSong song_;
    std::vector<Row> rows_;
    State state_ = State::Stopped;
    double position_ = 0;
    std::size_t next_ = 0; ///< of song_.events
    bool hasSolo_ = false;
    std::vector<SynthEvent> queue_; ///< state that is still to be posted, ahead of events
    std::size_t queued_ = 0;        ///< of queue_ that have been posted
};

} // namespace vimbo::synth
