// Writing Standard MIDI Files: the tracks' bytes as the song has them.
#include "base/byte_reader.h"
#include "base/last_error.h"
#include "base/text.h"
#include "formats/export_set.h"
#include "formats/midi/midi.h"
#include "formats/midi/midi_losses.h"
#include "formats/midi/midi_records.h"
#include "model/song.h"

#include <fmt/format.h>

namespace vimbo {
namespace midi {
namespace {

constexpr std::size_t kMostTracks = 0xFFFF;

std::vector<const Track*> TracksOf(const Song& song)
{
    std::vector<const Track*> tracks;
    for (std::size_t i = 0; i < song.Children().size(); ++i)
        if (const Track* track = song.TrackAt(i))
            tracks.push_back(track);
    return tracks;
}

template <DiskRecord... Records>
bool Put(FileObject& file, const Records&... records)
{
    ByteWriter bytes;
    (bytes.Write(records), ...);
    return file.WriteAll(bytes.Bytes());
}

bool PutTracks(const std::vector<const Track*>& tracks, FileObject& file)
{
    for (const Track* track : tracks) {
        const ChunkHead head{FourCc{"MTrk"}, static_cast<std::uint32_t>(track->Data().size())};
        if (!Put(file, head) || !file.WriteAll(track->Data()))
            return false;
    }
    return true;
}

} // namespace

std::uint64_t SmfBytes(const Song& song) noexcept
{
    std::uint64_t bytes = sizeof(ChunkHead) + sizeof(SmfHeader);
    for (std::size_t i = 0; i < song.Children().size(); ++i)
        if (const Track* track = song.TrackAt(i))
            bytes += sizeof(ChunkHead) + track->Data().size();
    return bytes;
}

bool WriteSmfImage(const Song& song, FileObject& file)
{
    const std::vector<const Track*> tracks = TracksOf(song);
    if (tracks.size() > kMostTracks)
        return Fail(Utf8ToWide(
            fmt::format("The song has {} tracks; a MIDI file can have {}", tracks.size(), kMostTracks)));
    const ChunkHead head{FourCc{"MThd"}, std::uint32_t{sizeof(SmfHeader)}};
    const SmfHeader header{song.format, static_cast<std::uint16_t>(tracks.size()), song.division};
    return (Put(file, head, header) && PutTracks(tracks, file)) || Fail(u"Couldn't write to file!");
}

Song* SongToWrite(Item& root)
{
    const std::vector<Song*> songs = SongsToExport(root);
    if (songs.empty()) {
        Fail(u"The file format can not save this item");
        return nullptr;
    }
    if (songs.size() > 1)
        root.Owner().GetHost().ShowMessage(
            Utf8ToWide(
                fmt::format("Only the first of {} songs is saved: the format holds one", songs.size())),
            u"Vimbo Studio", MessageIcon::Warning);
    return songs.front();
}

} // namespace midi

bool WriteSmf(Item& root, FileObject& file, FormatChoice& /*choice*/)
{
    const Song* song = midi::SongToWrite(root);
    if (song == nullptr || !midi::WriteSmfImage(*song, file))
        return false;
    midi::NoteLosses(root, *song, file, ReadSmf);
    return true;
}

} // namespace vimbo
