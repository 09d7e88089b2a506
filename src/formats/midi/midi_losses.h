// What files of songs cannot hold, told by reading them back.
#pragma once

#include "formats/conversion_notes.h"
#include "formats/format_table.h"

namespace vimbo {
class Song;
}

namespace vimbo::midi {

/// Reads the finished file back and notes how its song's texts, tracks, format and division differ from those
/// of the song that was written, and which songs and instruments of the collection are not in it. Costs
/// nothing if the host wants no notes. The file's position is not kept.
void NoteLosses(const Item& root, const Song& song, FileObject& file, ReadFn read);

} // namespace vimbo::midi
