#include "formats/soundfont/soundfont_zone_cache.h"

#include "formats/soundfont/soundfont_word_hash.h"

#include <algorithm>
#include <array>
#include <bit>
#include <span>

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

std::uint64_t HashOf(const ArticulationBlock& block) noexcept
{
    // Two values at a time.
    constexpr std::size_t kPairs = kArticulationParams / 2;
    constexpr auto kMasks = [] {
        std::array<std::uint64_t, kPairs + 1> masks{};
        for (std::size_t id = 0; id < kArticulationParams; ++id)
            if ((kMixMarks[id / 64] >> id % 64 & 1) == 0)
                masks[id / 2] |= std::uint64_t{0xFFFFFFFF} << id % 2 * 32;
        return masks;
    }();
    const std::span<const float, kArticulationParams> values = block.Values();
    WordHash hash;
    for (std::size_t i = 0; i < kPairs; ++i) {
        const std::array<float, 2> pair{values[2 * i], values[2 * i + 1]};
        hash.Add(std::bit_cast<std::uint64_t>(pair) & kMasks[i]);
    }
    if constexpr (kArticulationParams % 2 != 0)
        hash.Add(std::bit_cast<std::uint32_t>(values.back()) & kMasks[kPairs]);
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
    timbre.read = std::make_unique<ZoneCache::Timbre::Other>(std::move(read));
    return timbre;
}

} // namespace

ZoneCache::Timbre& ZoneCache::TimbreOf(const ArticulationBlock& block)
{
    const std::uint64_t hash = HashOf(block);
    const auto [first, last] = timbres_.equal_range(hash);
    const auto found = std::find_if(
        first, last, [&](const auto& entry) { return HaveSameTimbre(entry.second.block, block); });
    return found != last ? found->second : timbres_.emplace(hash, MakeTimbre(block))->second;
}

Zone ZoneOf(ZoneCache::Timbre& timbre, const ArticulationBlock& block, const Instrument& instrument,
            float waveGainDb)
{
    Zone zone = timbre.zone;
    WriteMix(block, &instrument, waveGainDb, zone);
    if (timbre.read == nullptr) {
        ArticulationBlock read = block;
        ReadMix(zone, read, instrument);
        if (!read.SameValues(block))
            WriteMix(read, &instrument, 0, zone);
        return zone;
    }
    ReadMix(zone, timbre.read->block, instrument);
    zone = timbre.read->zone;
    WriteMix(timbre.read->block, &instrument, 0, zone);
    return zone;
}

} // namespace vimbo::sf2
