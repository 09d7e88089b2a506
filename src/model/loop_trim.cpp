// Cutting off what a loop never plays.
#include "model/collection.h"
#include "model/frame_pieces.h"
#include "model/instrument.h"
#include "model/loop_convert.h"

#include <algorithm>

namespace vimbo {
namespace {

struct CutPoints {
    std::uint64_t from = 0, end = 0; ///< what stays
    std::uint64_t loopStart = 0;     ///< of the loop that ends last
};

void Widen(CutPoints& cut, const LoopInfo& loop, std::uint32_t frames) noexcept
{
    const LoopInfo inside = LoopInside(loop, frames);
    if (!HasLoop(inside))
        return;
    const WholeLoop whole = TouchedFrames(inside);
    cut.from = std::min(cut.from, whole.start);
    if (whole.end > cut.end) {
        cut.end = whole.end;
        cut.loopStart = whole.start;
    }
}

/// What is cut off behind the loop, as a waveform of its own; null with the Last error text.
Waveform* MakeRelease(const Waveform& wave, std::uint64_t from)
{
    Waveform& release = wave.Owner().Clone(wave);
    const Piece tail{from, wave.frames - from};
    if (!Rebuild(release, std::span(&tail, 1))) {
        wave.Owner().Destroy(release.Handle());
        return nullptr;
    }
    release.SetName(std::u16string(wave.GetName()) + u" Release");
    release.loop = {};
    std::erase_if(release.markers, [from](const Marker& marker) { return marker.position < from; });
    for (Marker& marker : release.markers) {
        marker.position -= static_cast<std::uint32_t>(from);
        marker.end -= static_cast<std::uint32_t>(std::min<std::uint64_t>(from, marker.end));
    }
    release.Validate();
    return &release;
}

void MoveMarkersAfterCut(Waveform& wave, const CutPoints& cut)
{
    const auto moved = [&cut](std::uint64_t frame) {
        return static_cast<std::uint32_t>(std::clamp(frame, cut.from, cut.end) - cut.from);
    };
    std::erase_if(wave.markers, [&cut](const Marker& marker) {
        const std::uint64_t end = marker.isRange ? marker.end : marker.position + std::uint64_t{1};
        return marker.position >= cut.end || end <= cut.from;
    });
    for (Marker& marker : wave.markers) {
        marker.position = moved(marker.position);
        marker.end = moved(marker.end);
    }
}

void MoveAfterCut(Waveform& wave, const CutPoints& cut, std::span<Region* const> regions,
                  std::uint32_t framesBefore)
{
    const auto move = [&cut](LoopInfo& loop) {
        const auto from = static_cast<double>(cut.from), end = static_cast<double>(cut.end);
        loop.start = std::clamp(loop.start, from, end) - from;
        loop.end = std::clamp(loop.end, from, end) - from;
    };
    move(wave.loop);
    MoveMarkersAfterCut(wave, cut);
    const auto from = static_cast<std::int64_t>(cut.from);
    for (Region* region : regions) {
        move(region->loop);
        region->loop = GetEffectiveLoop(*region);
        region->startOffset = ToOffset(std::max<std::int64_t>(0, region->startOffset - from));
        const std::int64_t playedEnd = std::int64_t{framesBefore} + region->endOffset - from;
        region->endOffset = ToOffset(
            std::clamp<std::int64_t>(playedEnd - std::int64_t{wave.frames}, -std::int64_t{wave.frames}, 0));
    }
}

CutPoints FindCut(const Waveform& wave, const TrimAfterLoop& options, std::span<Region* const> regions)
{
    CutPoints cut{wave.frames, 0, 0};
    Widen(cut, wave.loop, wave.frames);
    if (options.minEndOfRegions)
        for (const Region* region : regions)
            Widen(cut, GetEffectiveLoop(*region), wave.frames);
    if (!options.cutAfterEnd)
        cut.end = wave.frames;
    if (!options.cutBeforeStart)
        cut.from = 0;
    return cut;
}

} // namespace

bool TrimWaveAfterLoop(Waveform& wave, const TrimAfterLoop& options, bool& changed, Waveform** release)
{
    changed = false;
    const LoopInfo loop = LoopInside(wave.loop, wave.frames);
    if (wave.frames == 0 || !HasLoop(loop))
        return true;
    const std::uint32_t framesBefore = wave.frames;
    const std::vector<Region*> regions = RegionsOf(wave);
    const CutPoints cut = FindCut(wave, options, regions);
    std::vector<Piece> pieces{{cut.from, cut.end - cut.from}};
    if (options.cutAfterEnd && options.append32)
        AppendLoopStart(pieces, {.body = {cut.loopStart, cut.end}}, kMinLoopFrames, 0);
    if (pieces.size() == 1 && pieces.front().length == framesBefore)
        return true;

    Waveform* made = nullptr;
    if (options.cutAfterEnd && options.saveRelease && cut.end + kMinLoopFrames < framesBefore) {
        made = MakeRelease(wave, cut.end);
        if (made == nullptr)
            return false;
    }
    if (!Rebuild(wave, pieces)) {
        if (made != nullptr)
            wave.Owner().Destroy(made->Handle());
        return false;
    }
    changed = true;
    wave.loop = loop;
    MoveAfterCut(wave, cut, regions, framesBefore);
    if (release != nullptr)
        *release = made;
    return true;
}

} // namespace vimbo
