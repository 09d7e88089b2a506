// A song as a player needs it: all tracks in one list, by seconds.
#pragma once

#include "model/song.h"
#include "synth/event_ring.h"

#include <string>
#include <vector>

namespace vimbo::synth {

/// What the song's system exclusive messages ask for; the last one counts.
enum class GmMode : std::uint8_t { Off = 0, On = 1, Gm2 = 2 };

struct TimedEvent {
    double seconds = 0;
    SynthEvent event;
};

struct SongMarker {
    double seconds = 0;
    std::u16string text; ///< a lyric
};

struct PreparedTrack {
    static constexpr int kNoChannel = -1, kMixed = -2;
    std::u16string name; ///< the last track name in the block
    std::size_t channelEvents = 0;
    int channel = kNoChannel; ///< of all its channel events (port * 16 + channel), or kMixed
};

struct PreparedSong {
    std::vector<TimedEvent> events; ///< channel messages by time; of equal times the lower track's first
    std::vector<double> bars;       ///< seconds of each bar line, the first at 0
    std::vector<SongMarker> markers;
    std::vector<PreparedTrack> tracks;
    unsigned ports = 1; ///< ports in use are numbered without gaps
    GmMode gmMode = GmMode::Off;

    /// Time of the last channel event.
    double Seconds() const noexcept { return events.empty() ? 0 : events.back().seconds; }
};

inline constexpr unsigned kMaxSongPorts = 16; ///< higher ports share the last one's channels

/// Prepares a song of format 0 or 1: the tracks sound together. 120 beats a minute hold until a tempo is set;
/// with a division in SMPTE frames tempo events have no effect.
PreparedSong PrepareSong(const Song& song);
/// Prepares one track with the tempo and meter of its song.
PreparedSong PrepareTrack(const Song& song, const Track& track);

/// The patches that the song plays, as MidiLocation words, in the order of their first use: programs as they
/// are set, and program 0 of the bank for channels that play without a program.
std::vector<std::uint32_t> NeededPatches(const PreparedSong& song);

} // namespace vimbo::synth
