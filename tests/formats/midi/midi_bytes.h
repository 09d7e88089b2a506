// Songs for the tests of all drivers of MIDI files.
#pragma once

#include "base/byte_reader.h"
#include "base/file_object.h"
#include "formats/midi/midi_records.h"
#include "model/collection.h"
#include "model/song.h"
#include "test_files.h"

#include <string_view>

namespace vimbo::testing {

inline Bytes EndOfTrack()
{
    return MakeBytes({0, 0xFF, 47, 0});
}
/// Events and an end-of-track event.
inline Bytes Block(std::initializer_list<int> events)
{
    Bytes block = MakeBytes(events), end = EndOfTrack();
    block.insert(block.end(), end.begin(), end.end());
    return block;
}

inline void AddChunk(ByteWriter& out, FourCc id, std::span<const std::byte> body)
{
    out.Write(midi::ChunkHead{id, static_cast<std::uint32_t>(body.size())});
    out.Append(body);
}

/// A Standard MIDI File whose header counts wrongly.
inline Bytes MakeSmf(std::uint16_t format, std::initializer_list<Bytes> tracks, std::uint16_t division = 96)
{
    ByteWriter out;
    out.Write(midi::ChunkHead{FourCc{"MThd"}, 6u});
    out.Write(midi::SmfHeader{format, std::uint16_t{77}, division});
    for (const Bytes& track : tracks)
        AddChunk(out, FourCc{"MTrk"}, track);
    return out.Release();
}

struct Opened {
    template <class ReadFunction>
    Opened(std::span<const std::byte> bytes, ReadFunction read, Host* host = nullptr) : file(bytes)
    {
        items.SetName(u"file");
        if (host != nullptr)
            items.SetHost(*host);
        isRead = read(items, file, 0);
    }
    Song& At(std::size_t index = 0) const { return *items.List<Song>().at(index); }
    MemoryFile file;
    Collection items;
    bool isRead = false;
};

inline std::string Text(std::span<const std::byte> bytes)
{
    std::string text(bytes.size(), '\0');
    std::transform(bytes.begin(), bytes.end(), text.begin(),
                   [](std::byte b) { return static_cast<char>(b); });
    return text;
}
inline Bytes FromText(std::string_view text)
{
    const auto bytes = std::as_bytes(std::span(text.data(), text.size()));
    return {bytes.begin(), bytes.end()};
}

} // namespace vimbo::testing
