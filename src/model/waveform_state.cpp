// A waveform's record in state files and undo records.
#include "base/last_error.h"
#include "dsp/kernels/sample_convert.h"
#include "model/collection.h"
#include "model/record_text.h"
#include "model/sample_source.h"
#include "model/waveform.h"

#include <algorithm>
#include <atomic>
#include <utility>

namespace vimbo {
namespace {

/// The fixed part: this head, the loop's record, and the source below.
struct WaveHeadRecord {
    U32le frames, rateHz;
    std::uint8_t bits, channels, rootKey;
    std::int8_t fineTune;
    F32le volume;
};
static_assert(DiskRecord<WaveHeadRecord> && sizeof(WaveHeadRecord) == 16);

struct WaveSourceRecord {
    std::uint8_t saveFormat;
    U64le sourceOffset;
    U64le procedureId; ///< 0: none
    std::uint8_t tag;
};
static_assert(DiskRecord<WaveSourceRecord> && sizeof(WaveSourceRecord) == 18);

/// What readers noted for themselves, and whether the samples follow.
struct WaveReaderRecord {
    U64le formatOffset, sourceBytes;
    std::uint8_t sampleFlag;
};
static_assert(DiskRecord<WaveReaderRecord> && sizeof(WaveReaderRecord) == 17);

constexpr std::uint8_t kNoSamples = 0;
constexpr std::uint8_t kFloatSamples = 4;
constexpr SampleLayout kStoredLayout{SampleCoding::Float32, false, std::endian::little};

struct MarkerRecord {
    std::uint8_t isRange;
    U32le position, end, id;
    std::uint8_t nameLength; ///< UTF-16 units that follow
};
static_assert(DiskRecord<MarkerRecord> && sizeof(MarkerRecord) == 14);
constexpr std::size_t kMaxNameUnits = 255;

std::atomic<std::uint32_t> lastMarkerId = 0;

/// Keeps ids that come from a file from being given again.
void RaiseLastMarkerId(std::uint32_t id) noexcept
{
    std::uint32_t last = lastMarkerId.load(std::memory_order_relaxed);
    while (last < id && !lastMarkerId.compare_exchange_weak(last, id, std::memory_order_relaxed)) {
    }
}

/// The front of a name, without half of a surrogate pair at the cut.
std::u16string_view FittingName(std::u16string_view name) noexcept
{
    if (name.size() <= kMaxNameUnits)
        return name;
    const bool cutsPair = (name[kMaxNameUnits - 1] & 0xFC00) == 0xD800;
    return name.substr(0, cutsPair ? kMaxNameUnits - 1 : kMaxNameUnits);
}

void WriteMarker(ByteWriter& out, const Marker& marker)
{
    const std::u16string_view name = FittingName(marker.name);
    MarkerRecord record{};
    record.isRange = marker.isRange ? 1 : 0;
    record.position = marker.position;
    record.end = marker.end;
    record.id = marker.id;
    record.nameLength = static_cast<std::uint8_t>(name.size());
    out.Write(record);
    WriteUnits(out, name);
}

bool ReadMarker(ByteReader& in, Marker& marker)
{
    MarkerRecord record;
    std::span<const std::byte> name;
    if (!in.Read(record) || !in.Take(2u * record.nameLength, name))
        return false;
    marker.isRange = record.isRange != 0;
    marker.position = record.position.Get();
    marker.end = record.end.Get();
    marker.id = record.id.Get();
    marker.name = ReadUnits(name);
    return true;
}

bool ReadMarkers(ByteReader& in, std::vector<Marker>& markers)
{
    U16le count;
    if (!in.Read(count))
        return false;
    for (unsigned i = 0; i < count.Get(); ++i) {
        Marker marker{false, 0, 0, {}, 0}; // the id comes from the record
        if (!ReadMarker(in, marker))
            return false;
        markers.push_back(std::move(marker));
    }
    return true;
}

/// The block whose samples come next. The bytes are found before any memory is taken for them.
bool ReadBlock(ByteReader& in, const WaveHeadRecord& head, SampleBlockRef& block)
{
    const std::uint64_t samples = std::uint64_t{head.frames.Get()} * head.channels;
    std::span<const std::byte> bytes;
    if (head.channels == 0 || head.channels > kMaxChannels || !in.Take(samples * sizeof(float), bytes))
        return Fail(kDamagedRecord);
    block = SampleBlockRef::Allocate(head.frames.Get(), head.channels, static_cast<float>(head.rateHz.Get()));
    if (!block)
        return Fail(u"Out of memory");
    DeltaState unused;
    DecodeSamples(kStoredLayout, bytes, block->Samples(), unused);
    return true;
}

} // namespace

std::uint32_t Marker::NextId() noexcept
{
    return lastMarkerId.fetch_add(1, std::memory_order_relaxed) + 1;
}

bool Marker::SameAs(const Marker& other) const noexcept
{
    return isRange == other.isRange && position == other.position && end == other.end && name == other.name;
}

void Waveform::Serialize(ByteWriter& out) const
{
    TextItem::Serialize(out);
    // A block that can be read again stays out, and the record describes the block that it holds.
    const bool storesBlock = block_ && importProc == nullptr;
    WaveHeadRecord head{};
    head.frames = storesBlock ? block_->Frames() : frames;
    head.rateHz = rateHz;
    head.bits = bits;
    head.channels = storesBlock ? static_cast<std::uint8_t>(block_->Channels()) : channels;
    head.rootKey = rootKey;
    head.fineTune = fineTune;
    head.volume = volume;
    out.Write(head);
    WriteLoop(out, loop);
    out.Write(WaveSourceRecord{static_cast<std::uint8_t>(saveFormat), sourceOffset,
                               importProc != nullptr ? importProc->id : 0, sourceTag});
    out.Write(WaveReaderRecord{formatOffset, sourceBytes, storesBlock ? kFloatSamples : kNoSamples});
    if (storesBlock) {
        const std::span<const float> samples = std::as_const(*block_).Samples();
        DeltaState unused;
        EncodeSamples(kStoredLayout, samples, out.Extend(samples.size_bytes()), unused);
    }

    const std::size_t count = std::min(markers.size(), kMaxMarkers);
    out.Write(U16le(static_cast<std::uint16_t>(count)));
    for (const Marker& marker : std::span(markers).first(count))
        WriteMarker(out, marker);
    if (IsDerivedImport(importProc))
        WriteDerived(out, derived != nullptr ? *derived : DerivedSource());
}

bool Waveform::Deserialize(ByteReader& in)
{
    WaveHeadRecord head;
    LoopInfo readLoop;
    WaveSourceRecord source;
    WaveReaderRecord reader;
    if (!TextItem::Deserialize(in))
        return false;
    if (!in.Read(head) || !ReadLoop(in, readLoop) || !in.Read(source) || !in.Read(reader) ||
        (reader.sampleFlag != kNoSamples && reader.sampleFlag != kFloatSamples))
        return Fail(kDamagedRecord);
    SampleBlockRef readSamples;
    if (reader.sampleFlag == kFloatSamples && !ReadBlock(in, head, readSamples))
        return false;
    std::vector<Marker> readMarkers;
    if (!ReadMarkers(in, readMarkers))
        return Fail(kDamagedRecord);
    const ImportProcedure* const procedure = Owner().FindImportProcedure(source.procedureId.Get());
    std::shared_ptr<const DerivedSource> readDerived;
    if (IsDerivedImport(procedure)) {
        readDerived = ReadDerived(in, *procedure, Owner());
        if (readDerived == nullptr)
            return false;
    }

    frames = head.frames.Get();
    rateHz = head.rateHz.Get();
    bits = head.bits;
    channels = head.channels;
    rootKey = head.rootKey;
    fineTune = head.fineTune;
    volume = head.volume.Get();
    loop = readLoop;
    saveFormat =
        static_cast<SaveFormat>(std::min(source.saveFormat, static_cast<std::uint8_t>(SaveFormat::Default)));
    sourceOffset = source.sourceOffset.Get();
    importProc = procedure;
    derived = std::move(readDerived);
    sourceTag = source.tag;
    formatOffset = reader.formatOffset.Get();
    sourceBytes = reader.sourceBytes.Get();
    block_ = std::move(readSamples);
    markers = std::move(readMarkers);
    for (const Marker& marker : markers)
        RaiseLastMarkerId(marker.id);
    return true;
}

} // namespace vimbo
