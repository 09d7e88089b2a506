// Both directions between the event stream of extended MIDI and a track's block. Differences of the stream:
// it counts time in 120ths of a second, whatever the tempo; a byte below 128 is a delay; every event has its
// status; a note-on carries its duration, and there are no note-offs.
#pragma once

#include "model/song.h"

#include <cstdint>
#include <span>
#include <vector>

namespace vimbo::midi {

inline constexpr std::uint16_t kXmiDivision = 60; ///< at the default tempo a tick is a 120th of a second

/// A block for a song of kXmiDivision.
struct XmiDecoded {
    std::vector<std::byte> block;
    std::uint64_t tempos = 0;       ///< tempo events left out: the stream's clock does not follow them
    std::uint64_t endlessNotes = 0; ///< more notes sounded at once than the converter keeps note-offs for
};
/// Stops at the stream's end-of-track event, and where the stream is cut. The block ends in an end-of-track
/// event, behind the last note-off.
XmiDecoded DecodeXmi(std::span<const std::byte> stream);

/// A stream out of a track's events. It ends in an end-of-track event: players run past the end of one
/// without.
struct XmiEncoded {
    std::vector<std::byte> stream; ///< of even length
    // What it has no place for, in numbers of events:
    std::uint64_t tempos = 0, metas = 0, systemEvents = 0, releaseVelocities = 0;
};
/// @param song gives the division; only the track's own tempo events count. Note-offs end the oldest note of
/// their key; notes that are never ended last to the end of the track.
/// @return false with the Last error text for a track of more than 25 days
[[nodiscard]] bool EncodeXmi(const Song& song, const Track& track, XmiEncoded& out);

} // namespace vimbo::midi
