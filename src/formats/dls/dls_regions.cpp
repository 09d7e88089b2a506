#include "formats/dls/dls_regions.h"

#include <algorithm>
#include <array>
#include <map>

namespace vimbo::dls {
namespace {

constexpr std::size_t kMaxLayers = 512;
constexpr std::size_t kMaxConnections = 4096; ///< of one list; the format knows about a hundred

} // namespace

bool IsList(ChunkCursor& chunk, FourCc& type) noexcept
{
    return chunk.Id() == FourCc{"LIST"} && chunk.Read(type);
}

void ReadConnections(ChunkCursor list, std::vector<Connection>& out)
{
    while (list.Next()) {
        TableHead head;
        if ((list.Id() != FourCc{"art1"} && list.Id() != FourCc{"art2"}) || !list.Read(head))
            continue;
        if (head.bytes.Get() > sizeof(head))
            list.Skip(head.bytes.Get() - sizeof(head));
        ConnectionBlock block;
        for (std::uint32_t i = 0; i < head.count.Get() && out.size() < kMaxConnections && list.Read(block);
             ++i)
            out.push_back({block.source.Get(), block.control.Get(), block.destination.Get(),
                           block.transform.Get(), block.scale.Get()});
    }
}

bool IsArticulation(FourCc type) noexcept
{
    return type == FourCc{"lart"} || type == FourCc{"lar2"};
}

RegionParts ReadRegion(ChunkCursor list)
{
    RegionParts parts;
    while (list.Next()) {
        FourCc type;
        if (list.Id() == FourCc{"rgnh"} && list.Read(parts.header)) {
            U16le layer;
            if (list.Read(layer))
                parts.layer = layer.Get();
        } else if (list.Id() == FourCc{"wlnk"}) {
            parts.hasLink = list.Read(parts.link);
        } else if (list.Id() == FourCc{"wsmp"}) {
            parts.sample = ReadSampleRecord(list);
        } else if (list.Id() == FourCc{"cdl "}) {
            parts.isConditional = true;
        } else if (IsList(list, type) && IsArticulation(type)) {
            ReadConnections(list.Inner(), parts.connections);
        }
    }
    return parts;
}

MidiRange RangeOf(U16le low, U16le high) noexcept
{
    const auto edge = [](U16le word) {
        return static_cast<std::uint8_t>(std::min<unsigned>(word.Get(), 127));
    };
    const MidiRange range{edge(low), edge(high)};
    return range.low <= range.high ? range : MidiRange{range.high, range.low};
}

Layer* LayerStack::LayerFor(unsigned number, const Zone& zone)
{
    const auto free = std::ranges::find_if(
        layers_, [&](const Place& at) { return at.number == number && at.grid.IsFree(zone); });
    if (free != layers_.end()) {
        free->grid.Add(zone);
        return free->layer;
    }
    if (layers_.size() == kMaxLayers)
        return nullptr;
    layers_.push_back({number, &instrument_.AddLayer(), {}});
    layers_.back().grid.Add(zone);
    return layers_.back().layer;
}

void SettlePhaseGroups(std::vector<PhaseLink>& links)
{
    using Key = std::array<unsigned, 3>;
    std::map<Key, std::vector<PhaseLink*>> rights;
    const auto keyOf = [](const PhaseLink& link) {
        const TriggerParams& trigger = link.region->trigger;
        return Key{trigger.keys.Word(), trigger.velocities.Word(), link.group};
    };
    for (PhaseLink& link : links)
        if (link.channel == kChannelRight)
            rights[keyOf(link)].push_back(&link);
    for (auto& [key, list] : rights)
        std::ranges::reverse(list); // taken from the back
    const auto place = [](PhaseLink& link, float pan) {
        if (!link.saysPan)
            link.region->articulation.Set(kArtPan, pan);
        link.region = nullptr;
    };
    for (PhaseLink& link : links) {
        const auto found = link.channel == kChannelLeft ? rights.find(keyOf(link)) : rights.end();
        if (found == rights.end() || found->second.empty())
            continue;
        place(*found->second.back(), 1);
        found->second.pop_back();
        place(link, -1);
    }
    for (const PhaseLink& link : links)
        if (link.region != nullptr) {
            link.region->phaseGroup = static_cast<std::uint16_t>(link.group);
            link.region->phaseMaster = link.isMaster ? 1 : 0;
        }
}

} // namespace vimbo::dls
