#include "formats/dls/dls_pool.h"

#include "base/last_error.h"
#include "formats/dls/dls_records.h"
#include "formats/wave/wave.h"

namespace vimbo::dls {
namespace {

/// More cues than a bank can have waveforms for in 4 GB.
constexpr std::uint64_t kMaxCues = std::uint64_t{1} << 24;

std::u16string DefaultWaveName(std::size_t index)
{
    const std::string number = std::to_string(index);
    return u"Wave " + std::u16string(number.begin(), number.end());
}

std::optional<WsmpHead> FindRecord(ChunkCursor list)
{
    while (list.Next())
        if (list.Id() == FourCc{"wsmp"})
            if (const std::optional<SampleRecord> record = ReadSampleRecord(list))
                return record->head;
    return std::nullopt;
}

/// Null with the Last error text if the samples can't be described.
Waveform* MakeWave(Collection& items, FileObject& file, const ChunkCursor& chunk, std::size_t index)
{
    auto& wave = items.Create<Waveform>(DefaultWaveName(index));
    wave.SetText(kTextSourcePath, file.Path());
    const std::uint64_t start = chunk.Start() - sizeof(RiffChunkHead);
    if (ReadWaveRange(wave, file, start, sizeof(RiffChunkHead) + chunk.Size()))
        return &wave;
    items.Destroy(wave.Handle());
    return nullptr;
}

} // namespace

std::optional<SampleRecord> ReadSampleRecord(ChunkCursor& chunk)
{
    SampleRecord record;
    if (!chunk.Read(record.head))
        return std::nullopt;
    if (record.head.bytes.Get() > sizeof(record.head))
        chunk.Skip(record.head.bytes.Get() - sizeof(record.head));
    WsmpLoop loop;
    if (record.head.loopCount.Get() != 0 && chunk.Read(loop))
        record.loop = loop;
    return record;
}

bool Pool::ReadTable(ChunkCursor& chunk)
{
    constexpr std::u16string_view kDamaged = u"Could not read pool cue table";
    TableHead head;
    if (!chunk.Read(head))
        return Fail(kDamaged);
    if (head.bytes.Get() > sizeof(head))
        chunk.Skip(head.bytes.Get() - sizeof(head));
    const std::uint64_t count = head.count.Get();
    if (count > chunk.Left() / sizeof(U32le) || count > kMaxCues)
        return Fail(kDamaged);
    const std::vector<std::byte> bytes = chunk.ReadRest(static_cast<std::size_t>(count) * sizeof(U32le));
    ByteReader in(bytes);
    cues_.clear();
    U32le offset;
    while (in.Read(offset))
        cues_.push_back(offset.Get());
    hasTable_ = true;
    return cues_.size() == count || Fail(kDamaged);
}

std::uint64_t Pool::ReadWaves(Collection& items, FileObject& file, ChunkCursor list)
{
    std::optional<std::uint64_t> origin;
    std::uint64_t unreadable = 0;
    FourCc type;
    while (list.Next()) {
        const std::uint64_t place = list.Start() - sizeof(RiffChunkHead);
        if (!origin)
            origin = place;
        if (list.Id() != FourCc{"LIST"} || !list.Read(type) || type != FourCc{"wave"})
            continue;
        byOffset_.emplace(place - *origin, entries_.size());
        entries_.push_back({MakeWave(items, file, list, entries_.size()), FindRecord(list.Inner())});
        unreadable += entries_.back().wave == nullptr ? 1 : 0;
    }
    return unreadable;
}

Pool::Entry* Pool::Find(std::uint32_t cue) noexcept
{
    if (!hasTable_)
        return cue < entries_.size() ? &entries_[cue] : nullptr;
    if (cue >= cues_.size())
        return nullptr;
    const auto found = byOffset_.find(cues_[cue]);
    return found != byOffset_.end() ? &entries_[found->second] : &unreadable_;
}

} // namespace vimbo::dls
