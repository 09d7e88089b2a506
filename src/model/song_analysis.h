// What a song's blocks tell: names, channels, tempo, length.
#pragma once

#include "model/song.h"
#include "model/track_events.h"

#include <vector>

namespace vimbo {

enum class TakeChannel : bool { No, Yes };

/// Fills a track's summaries from the events at time 0 (up to the end-of-track event), the first of each
/// kind: sequence number, port, name, and with TakeChannel::Yes the channel of the first channel event; what
/// has no event keeps its value. With a song, its texts and name come from there too: the first text becomes
/// the song's comment, a copyright its copyright, each if that is empty; a track name renames the song. A
/// first text that did not become a comment names the track until a track name does. Empty texts are passed
/// over.
void AnalyseTrack(Track& track, Song* song, TakeChannel takeChannel);
/// True if the track starts a note.
bool HasNotes(const Track& track) noexcept;
/// The track's tempo and time signature events at their times, and an end-of-track event after the last.
std::vector<std::byte> ExtractTempoMap(std::span<const std::byte> block);

/// Highest port of any track plus 1, at least 1.
unsigned PortCount(const Song& song) noexcept;
std::uint64_t TotalEvents(const Song& song) noexcept;

/// Tempo changes of a song on its common time line; for format 2, of one track. At one tick the last tempo of
/// the last track counts; a tempo of 0 or of fewer than three bytes does not.
class TempoMap {
public:
    /// All tracks of the song: formats 0 and 1.
    explicit TempoMap(const Song& song);
    /// One pattern of a format 2 song.
    TempoMap(const Song& song, const Track& track);
    /// Ticks to seconds: by quarter notes and tempo (120 beats per minute until one is set), or by a division
    /// in SMPTE frames (tempo has no effect then). Time grows with the logarithm of the number of tempos.
    double SecondsAt(std::uint64_t ticks) const noexcept;
    /// Beats per minute at the start; 120 if no tempo is set.
    double FirstTempo() const noexcept;
    /// Number of stretches of one tempo; 1 if it never changes.
    std::size_t Changes() const noexcept;

private:
    struct Change {
        std::uint64_t tick;
        std::uint32_t tempo; ///< microseconds for a quarter note
    };
    struct Stretch {
        std::uint64_t tick;
        double seconds; ///< at its tick
        std::uint32_t tempo;
    };
    explicit TempoMap(std::uint16_t division) noexcept;
    static void Collect(const Track& track, std::vector<Change>& changes);
    /// @param changes by tick; of those at one tick the last counts
    void Build(std::span<const Change> changes);
    void Add(const Change& change);

    double ticksPerUnit_;            ///< a unit is a quarter note, with SMPTE divisions a second
    bool isTempoFixed_;              ///< by an SMPTE division
    std::vector<Stretch> stretches_; ///< of one tempo each, by tick; the first starts at 0
};

/// Seconds to the end of the last track (format 2: the sum of the patterns).
double SongSeconds(const Song& song);

} // namespace vimbo
