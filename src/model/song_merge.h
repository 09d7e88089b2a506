// Making one track of a song's many.
#pragma once

#include "model/song.h"

namespace vimbo {

/// Turns the song into format 0. Two or more tracks become one, "Combined track", with channel byte
/// Track::kControlTrack: those of a format 2 song behind one another, all others in time order, events of one
/// time in the order of their tracks. The old tracks are destroyed. Every event stays but the end-of-track
/// events, of which there is one, at the end of the longest track. A pattern behind one that sets a tempo
/// starts with the default tempo, so that the song lasts as long as before.
/// Errors: std::bad_alloc, with the song as it was.
void ConvertToFormat0(Song& song);

} // namespace vimbo
