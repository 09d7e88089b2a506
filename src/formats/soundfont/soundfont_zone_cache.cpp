#include "formats/soundfont/soundfont_zone_cache.h"

#include "formats/soundfont/soundfont_word_hash.h"

#include <algorithm>
#include <bit>

namespace vimbo::sf2 {
namespace {

constexpr auto kMixMarks = [] {
    ArticulationBlock::MarkWords marks{};
    const auto mark = [&](std::size_t id) { marks[id / 64] |= std::uint64_t{1} << id % 64; };
    for (const ParamId id : {kArtVolume, kArtTuning, kArtPan})
        mark(id);
    for (std::size_t i = 0; i < kSendParams * kChannelFxSlots; ++i)
        mark(kArtSend + i);
    return marks;
}();

bool IsOfMix(std::size_t id) noexcept
{
    return (kMixMarks[id / 64] >> id % 64 & 1) != 0;
}

std::uint64_t HashOf(const ArticulationBlock& block) noexcept
{
    WordHash hash;
    const auto values = block.Values();
    for (std::size_t id = 0; id < values.size(); ++id)
        hash.Add(IsOfMix(id) ? 0 : std::bit_cast<std::uint32_t>(values[id]));
    return hash.Get();
}

bool HaveSameTimbre(const ArticulationBlock& a, const ArticulationBlock& b) noexcept
{
    const ArticulationBlock::MarkWords differing = a.DifferenceTo(b);
    for (std::size_t word = 0; word < differing.size(); ++word)
        if ((differing[word] & ~kMixMarks[word]) != 0)
            return false;
    return true;
}

ZoneCache::Timbre MakeTimbre(const ArticulationBlock& block)
{
    ZoneCache::Timbre timbre{block, DefaultZone(), nullptr};
    WriteTimbre(block, timbre.zone);
    ZoneCache::Timbre::Other read{{}, DefaultZone()};
    ReadTimbre(timbre.zone, read.block);
    if (HaveSameTimbre(read.block, block))
        return timbre;
    WriteTimbre(read.block, read.zone);
    timbre.read = std::make_unique<const ZoneCache::Timbre::Other>(std::move(read));
    return timbre;
}

} // namespace

const ZoneCache::Timbre& ZoneCache::TimbreOf(const ArticulationBlock& block)
{
    const auto [place, isNew] = byPlace_.try_emplace(block.Values().data());
    if (!isNew)
        return *place->second;
    const std::uint64_t hash = HashOf(block);
    const auto [first, last] = timbres_.equal_range(hash);
    const auto found = std::find_if(
        first, last, [&](const auto& entry) { return HaveSameTimbre(entry.second.block, block); });
    place->second = found != last ? &found->second : &timbres_.emplace(hash, MakeTimbre(block))->second;
    return *place->second;
}

Zone ZoneOf(const ZoneCache::Timbre& timbre, const ArticulationBlock& block, const Instrument& instrument,
            float waveGainDb)
{
    Zone zone = timbre.zone;
    WriteMix(block, &instrument, waveGainDb, zone);
    ArticulationBlock read = timbre.read ? timbre.read->block : block;
    ReadMix(zone, read, instrument);
    if (read.SameValues(block))
        return zone;
    if (timbre.read)
        zone = timbre.read->zone;
    WriteMix(read, &instrument, 0, zone);
    return zone;
}

} // namespace vimbo::sf2
