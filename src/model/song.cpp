#include "model/song.h"

#include "base/last_error.h"
#include "model/collection.h"
#include "model/record_text.h"
#include "model/track_events.h"

#include <limits>
#include <new>

namespace vimbo {

namespace {

struct SongRecord {
    U16le format;
    U16le division;
};
static_assert(DiskRecord<SongRecord> && sizeof(SongRecord) == 4);

struct TrackRecord {
    std::uint8_t port;
    std::uint8_t channel;
    U16le sequence;
    U32le dataBytes;
    U32le eventCount;
};
static_assert(DiskRecord<TrackRecord> && sizeof(TrackRecord) == 12);

std::uint32_t CountEvents(std::span<const std::byte> block) noexcept
{
    EventWalk walk(block);
    TrackEvent event;
    std::uint32_t count = 0;
    while (walk.Next(event))
        ++count;
    return count;
}

} // namespace

Song::Song(ItemKey key, Collection& owner) noexcept : TextItem(key, owner) {}

Song::Song(ItemKey key, Collection& owner, const Song& source)
    : TextItem(key, owner, source), format(source.format), division(source.division)
{
}

Track* Song::TrackAt(std::size_t index) const noexcept
{
    return static_cast<Track*>(Child(index));
}

void Song::Validate()
{
    TextItem::Validate();
    if (division == 0)
        division = kDefaultDivision;
    if (GetName().empty())
        SetName(Owner().GetName());
}

void Song::Serialize(ByteWriter& out) const
{
    TextItem::Serialize(out);
    out.Write(SongRecord{format, division});
}

bool Song::Deserialize(ByteReader& in)
{
    SongRecord record;
    if (!TextItem::Deserialize(in))
        return false;
    if (!in.Read(record))
        return Fail(kDamagedRecord);
    format = record.format.Get();
    division = record.division.Get();
    return true;
}

Track::Track(ItemKey key, Collection& owner) noexcept : LabelItem(key, owner) {}

Track::Track(ItemKey key, Collection& owner, const Track& source)
    : LabelItem(key, owner, source), port(source.port), channel(source.channel), sequence(source.sequence),
      data_(source.data_), eventCount_(source.eventCount_)
{
}

void Track::SetData(std::span<const std::byte> block) noexcept
{
    std::vector<std::byte> fresh;
    try {
        if (block.size() <= std::numeric_limits<std::uint32_t>::max())
            fresh.assign(block.begin(), block.end());
    } catch (const std::bad_alloc&) {
        fresh.clear();
    }
    data_ = std::move(fresh);
    eventCount_ = CountEvents(data_);
}

void Track::Serialize(ByteWriter& out) const
{
    LabelItem::Serialize(out);
    out.Write(TrackRecord{port, channel, sequence, static_cast<std::uint32_t>(data_.size()), eventCount_});
    out.Append(data_);
}

bool Track::Deserialize(ByteReader& in)
{
    TrackRecord record;
    std::span<const std::byte> block;
    if (!LabelItem::Deserialize(in))
        return false;
    if (!in.Read(record) || !in.Take(record.dataBytes.Get(), block))
        return Fail(kDamagedRecord);
    port = record.port;
    channel = record.channel;
    sequence = record.sequence.Get();
    SetData(block);
    return true;
}

} // namespace vimbo
