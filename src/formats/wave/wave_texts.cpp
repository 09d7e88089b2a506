#include "formats/wave/wave_texts.h"

#include "base/byte_reader.h"
#include "base/text.h"
#include "formats/wave/wave.h"

#include <algorithm>
#include <limits>

namespace vimbo {
namespace {

constexpr std::size_t kMaxTextBytes = 1048576;
constexpr std::size_t kMaxLabelBytes = 1024; // markers keep 255 characters of it
constexpr int kMaxListDepth = 8;

const InfoTag* FindInfoTag(const FourCc& id) noexcept
{
    const auto tag = std::ranges::find(kInfoTags, id, &InfoTag::id);
    return tag != kInfoTags.end() ? &*tag : nullptr;
}

void SetInfoText(TextItem& item, const InfoTag& tag, std::span<const std::byte> bytes)
{
    item.SetTextNarrow(tag.text, NarrowTextOf(bytes.first(std::min(bytes.size(), kMaxTextBytes))));
}

/// One chunk off the front of `in`, cut to what is there, with its pad byte.
bool TakeChunk(ByteReader& in, FourCc& id, std::span<const std::byte>& body) noexcept
{
    RiffChunkHead head;
    if (!in.Read(head))
        return false;
    id = head.id;
    const auto size = std::min<std::uint64_t>(head.size.Get(), in.Left());
    if (!in.Take(size, body))
        return false;
    static_cast<void>(in.Skip(size & 1)); // the last chunk may lack its pad byte
    return true;
}

void WalkInfo(ByteReader in, bool isInfo, int depth, TextItem& item)
{
    FourCc id;
    std::span<const std::byte> body;
    while (TakeChunk(in, id, body)) {
        const InfoTag* tag = isInfo ? FindInfoTag(id) : nullptr;
        FourCc type;
        ByteReader inner(body);
        if (tag != nullptr)
            SetInfoText(item, *tag, body);
        else if (id == FourCc{"LIST"} && depth < kMaxListDepth && inner.Read(type))
            WalkInfo(inner, type == FourCc{"INFO"}, depth + 1, item);
    }
}

} // namespace

void ReadInfoTexts(std::span<const std::byte> chunks, TextItem& item)
{
    WalkInfo(ByteReader(chunks), false, 0, item);
}

void ReadInfoTags(ChunkCursor tags, TextItem& item)
{
    while (tags.Next()) {
        if (const InfoTag* tag = FindInfoTag(tags.Id()))
            SetInfoText(item, *tag, tags.ReadRest(kMaxTextBytes));
    }
}

std::string NarrowTextOf(std::span<const std::byte> bytes)
{
    const auto end = std::ranges::find(bytes, std::byte{0});
    std::string text(static_cast<std::size_t>(end - bytes.begin()), '\0');
    std::transform(bytes.begin(), end, text.begin(), [](std::byte b) { return static_cast<char>(b); });
    return text;
}

std::string AkaiNameToNarrow(std::span<const std::uint8_t, 12> name)
{
    static constexpr std::string_view kCharacters = "0123456789 ABCDEFGHIJKLMNOPQRSTUVWXYZ_+-.";
    std::string text;
    for (const std::uint8_t code : name)
        text += code < kCharacters.size() ? kCharacters[code] : '_';
    return text;
}

void CueTexts::ReadPoints(ChunkCursor& chunk)
{
    U32le count;
    if (!chunk.Read(count, kWordField) || count.Get() == 0)
        return;
    points_.clear();
    if (chunk.Left() / sizeof(CuePoint) < count.Get())
        return;
    // More markers than a waveform can have are not worth their memory.
    const std::size_t kept = std::min<std::size_t>(count.Get(), kMaxMarkers);
    points_.reserve(kept);
    CuePoint point;
    while (points_.size() < kept && chunk.Read(point, kCuePointFields))
        points_.push_back(point);
    if (points_.size() < kept)
        points_.clear();
}

void CueTexts::ReadList(ChunkCursor list)
{
    while (list.Next()) {
        U32le id;
        CueLength length;
        if (list.Id() == FourCc{"labl"} && labels_.size() < kMaxMarkers && list.Read(id, kWordField))
            labels_.try_emplace(id.Get(), NarrowToWide(NarrowTextOf(list.ReadRest(kMaxLabelBytes))));
        else if (list.Id() == FourCc{"ltxt"} && lengths_.size() < kMaxMarkers &&
                 list.Read(length, kCueLengthFields))
            lengths_.try_emplace(length.id.Get(), length.frames.Get());
    }
}

std::uint32_t CueTexts::LengthOf(std::uint32_t id) const
{
    const auto found = lengths_.find(id);
    return found != lengths_.end() ? found->second : 0;
}

bool CueTexts::ApplyLoopPoint(Waveform& wave, NamedLoop& loop, const CuePoint& point,
                              std::u16string_view label) const
{
    const double frame = point.frame.Get();
    if (label == u"Loop Range") {
        const std::uint32_t length = LengthOf(point.id.Get());
        if (loop.isOpen && length != 0) {
            wave.loop.type = LoopType::Forward;
            wave.loop.start = frame;
            wave.loop.end = frame + length;
            loop.isOpen = false;
        }
        return true;
    }
    if (label != u"Loop Start" && label != u"Loop End")
        return false;
    if (loop.isOpen) {
        const bool isStart = label == u"Loop Start";
        (isStart ? wave.loop.start : wave.loop.end) = frame;
        (isStart ? loop.hasStart : loop.hasEnd) = true;
    }
    return true;
}

void CueTexts::Apply(Waveform& wave, bool mayHoldLoop) const
{
    NamedLoop loop{.isOpen = mayHoldLoop};
    for (const CuePoint& point : points_) {
        const std::uint32_t id = point.id.Get();
        const auto found = labels_.find(id);
        const std::u16string_view label = found != labels_.end() ? found->second : std::u16string_view();
        if (ApplyLoopPoint(wave, loop, point, label))
            continue;
        Marker& marker = wave.markers.emplace_back();
        const std::uint32_t length = LengthOf(id);
        const std::uint32_t most = std::numeric_limits<std::uint32_t>::max();
        marker.position = point.frame.Get();
        marker.isRange = length != 0;
        marker.end = marker.isRange ? marker.position + std::min(length, most - marker.position) : 0;
        marker.name = label;
    }
    if (loop.isOpen && loop.hasStart && loop.hasEnd && wave.loop.start < wave.loop.end)
        wave.loop.type = LoopType::Forward;
}

} // namespace vimbo
