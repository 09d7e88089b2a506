#include "model/song.h"

#include "base/last_error.h"
#include "model/collection.h"
#include "model/record_text.h"

#include <algorithm>
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

constexpr unsigned kMeta = 0xFF;

/// Steps over the events of a track's block, for counting them. Running status holds for every status, system
/// ones included; a claim that exceeds the block ends the walk.
class EventSkipper {
public:
    explicit EventSkipper(std::span<const std::byte> block) noexcept : rest_(block) {}

    /// False at the end of the block. An event counts as soon as a byte follows its delta time.
    bool Next() noexcept
    {
        ReadNumber();
        if (rest_.empty())
            return false;
        if (const unsigned byte = std::to_integer<unsigned>(rest_.front()); byte >= 0x80) {
            status_ = byte;
            Skip(1);
        }
        SkipBody();
        return true;
    }

private:
    void SkipBody() noexcept
    {
        if (status_ < 0xF0)
            Skip((status_ & 0xE0) == 0xC0 ? 1 : 2); // program change and channel pressure have one byte
        else if (status_ == 0xF1 || status_ == 0xF3)
            Skip(1);
        else if (status_ == 0xF2)
            Skip(2);
        else if (status_ == kMeta)
            SkipMeta();
        else if (status_ == 0xF0 || status_ == 0xF7)
            Skip(ReadNumber());
    }

    void SkipMeta() noexcept
    {
        Skip(1);
        Skip(ReadNumber());
    }

    /// Variable-length number of at most four bytes.
    std::uint32_t ReadNumber() noexcept
    {
        std::uint32_t value = 0;
        for (int i = 0; i < 4 && !rest_.empty(); ++i) {
            const std::uint32_t byte = std::to_integer<std::uint32_t>(rest_.front());
            Skip(1);
            value = value << 7 | (byte & 0x7F);
            if (byte < 0x80)
                break;
        }
        return value;
    }

    void Skip(std::size_t count) noexcept { rest_ = rest_.subspan(std::min(count, rest_.size())); }

    std::span<const std::byte> rest_;
    unsigned status_ = 0;
};

std::uint32_t CountEvents(std::span<const std::byte> block) noexcept
{
    EventSkipper events(block);
    std::uint32_t count = 0;
    while (events.Next())
        ++count;
    return count;
}

} // namespace

Song::Song(ItemKey key, Collection& owner) noexcept : TextItem(key, owner) {}

Song::Song(ItemKey key, Collection& owner, const Song& source)
    : TextItem(key, owner, source), format(source.format), division(source.division)
{
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
