// Any bytes as RIFF-MIDI, with whatever stands in it as a bank: what was read is sound, and the song is
// written and read again with its texts.
#include "formats/midi/midi.h"
#include "model/consistency.h"
#include "model/fix_up.h"
#include "model/song.h"

#include <cstdlib>

namespace {

using namespace vimbo;

void Require(bool condition)
{
    if (!condition)
        std::abort();
}

void WriteAndRead(Song& song)
{
    song.SetName(u"song"); // an empty name would get a default one
    MemoryFile file;
    FormatChoice choice{0, kRmiPlain, 0};
    Require(WriteRmi(song, file, choice));
    Collection again;
    Require(ReadRmi(again, file, 0) && again.CountOf(ItemKind::Song) == 1);
    const Song& read = *again.All<Song>().begin();
    Require(read.GetName() == song.GetName() && read.division == song.division && read.format == song.format);
    Require(read.Children().size() == song.Children().size());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto bytes = std::as_bytes(std::span(data, size));
    MemoryFile file(bytes);
    Collection items;
    if (!ReadRmi(items, file, 0))
        return 0;
    Require(DetectRmi(bytes, 0, size) == 6);
    Require(IsConsistent(items));
    FixUpItems(items, kPruneAll, AfterLoad::Yes, SourceHoldsStereo::No);
    Require(IsConsistent(items));
    for (Song* song : items.List<Song>())
        WriteAndRead(*song);
    return 0;
}
