#include "model/loop_convert.h"

#include "base/last_error.h"
#include "model/collection.h"
#include "model/frame_pieces.h"
#include "model/instrument.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <unordered_map>
#include <vector>

namespace vimbo {
namespace {

constexpr std::uint64_t kMaxFrames = std::numeric_limits<std::uint32_t>::max();
constexpr double kSemitonesPerOctave = 12;
constexpr float kMaxLoopPitch = 12; // semitones

/// The loop's points rounded to frames, the length rather than the end, as it gives the pitch.
WholeLoop NearestWhole(const LoopInfo& loop, std::uint32_t frames) noexcept
{
    const double length = std::clamp(std::round(loop.end - loop.start), 1.0, static_cast<double>(frames));
    const double start = std::min(std::round(loop.start), frames - length);
    const auto first = static_cast<std::uint64_t>(start);
    return {first, first + static_cast<std::uint64_t>(length)};
}

/// What has to be done, known from the loop alone.
struct Plan {
    LoopInfo loop; ///< as it will be
    Cycle cycle;
    std::uint64_t copies = 1;   ///< of the cycle
    bool leavesForward = false; ///< the body follows once more, for a voice that leaves the loop at its end
    std::uint64_t ahead = 0;    ///< silent frames before everything
    std::uint64_t behind = 0;   ///< frames from the loop's start after everything

    bool RewritesBody() const noexcept { return cycle.reverse || cycle.unroll || copies > 1; }
    bool Changes() const noexcept { return RewritesBody() || ahead != 0 || behind != 0; }
    /// Frames that come between the old body and what followed it.
    std::uint64_t Inserted() const noexcept
    {
        return cycle.Length() * copies - (leavesForward ? 0 : cycle.body.Length());
    }
};

/// A longer loop of whole frames plays faster by the ratio of the lengths, so that its period is kept.
float CorrectedPitch(const LoopInfo& loop, std::uint64_t frames) noexcept
{
    const double ratio = static_cast<double>(frames) / (loop.end - loop.start);
    const double pitch = loop.pitch + (ratio != 1 ? kSemitonesPerOctave * std::log2(ratio) : 0);
    return std::clamp(static_cast<float>(pitch), -kMaxLoopPitch, kMaxLoopPitch);
}

/// The loop as it will be where its body is rewritten. An unrolled loop that is left at its end must have
/// its forward half last, so that what follows fits: it then starts with the backward half.
void RewriteLoop(Plan& plan) noexcept
{
    const WholeLoop& body = plan.cycle.body;
    plan.loop.pitch = CorrectedPitch(plan.loop, body.Length());
    const std::uint64_t start = body.start + (plan.leavesForward && plan.cycle.unroll ? body.Length() : 0);
    plan.loop.start = static_cast<double>(start);
    plan.loop.end = static_cast<double>(start + plan.cycle.Length() * plan.copies);
    if (plan.cycle.unroll || plan.cycle.reverse)
        plan.loop.type = LoopType::Forward;
}

Plan MakePlan(const LoopInfo& loop, std::uint32_t frames, const LoopConversions& conversions) noexcept
{
    Plan plan;
    plan.loop = loop;
    plan.cycle.body = NearestWhole(loop, frames);
    plan.cycle.unroll = conversions.alternatingToForward && loop.type == LoopType::Alternating;
    plan.cycle.reverse = conversions.reverseToForward && loop.type == LoopType::Reverse;
    if (conversions.atLeast32)
        plan.copies = (kMinLoopFrames + plan.cycle.Length() - 1) / plan.cycle.Length();
    WholeLoop& body = plan.cycle.body;
    if (plan.RewritesBody()) {
        plan.leavesForward =
            (plan.cycle.unroll || plan.cycle.reverse) && loop.breakOnRelease && body.end < frames;
        RewriteLoop(plan);
    } else {
        body = TouchedFrames(loop);
    }
    const std::uint64_t after = frames - body.end;
    if (conversions.append32 && after < kMinLoopFrames)
        plan.behind = kMinLoopFrames - after;
    if (conversions.prepend32 && body.start < kMinLoopFrames)
        plan.ahead = kMinLoopFrames - body.start;
    plan.loop.start += static_cast<double>(plan.ahead);
    plan.loop.end += static_cast<double>(plan.ahead);
    return plan;
}

std::vector<Piece> PiecesOf(const Plan& plan, std::uint32_t frames)
{
    using enum Piece::Kind;
    const WholeLoop& body = plan.cycle.body;
    std::vector<Piece> pieces{{0, plan.ahead, Silence}, {0, body.start, Copy}};
    for (std::uint64_t i = 0; i < plan.copies; ++i) {
        pieces.push_back({body.start, body.Length(), plan.cycle.reverse ? Reversed : Copy});
        if (plan.cycle.unroll)
            pieces.push_back({body.start, body.Length(), Reversed});
    }
    if (plan.leavesForward)
        pieces.push_back({body.start, body.Length(), Copy});
    const std::uint64_t after = frames - body.end;
    pieces.push_back({body.end, after, Copy});
    AppendLoopStart(pieces, plan.cycle, plan.behind, after);
    return pieces;
}

/// Where a frame of the old samples lies in the new ones.
std::uint32_t MovedFrame(const Plan& plan, std::uint32_t frame) noexcept
{
    const WholeLoop& body = plan.cycle.body;
    std::uint64_t moved = frame;
    if (frame >= body.end)
        moved += plan.Inserted();
    else if (plan.cycle.reverse && frame >= body.start)
        moved = body.start + body.end - 1 - frame;
    return static_cast<std::uint32_t>(std::min(moved + plan.ahead, kMaxFrames));
}

void MoveMarker(Marker& marker, const Plan& plan) noexcept
{
    const std::uint32_t first = MovedFrame(plan, marker.position);
    std::uint32_t last = first;
    if (marker.isRange && marker.end > marker.position)
        last = MovedFrame(plan, marker.end - 1);
    marker.end = marker.isRange && marker.end > marker.position ? std::max(first, last) + 1 : first;
    marker.position = std::min(first, last);
}

/// Regions count frames too, from the waveform's start and back from its end.
void MoveInRegions(std::span<Region* const> regions, const Plan& plan)
{
    const auto move = [&plan](double point) {
        const bool isBehind = point > static_cast<double>(plan.cycle.body.end);
        return point + static_cast<double>(plan.ahead + (isBehind ? plan.Inserted() : 0));
    };
    for (Region* region : regions) {
        region->loop.start = move(region->loop.start);
        region->loop.end = move(region->loop.end);
        region->loop = GetEffectiveLoop(*region);
        if (region->startOffset > 0)
            region->startOffset = ToOffset(static_cast<std::int64_t>(move(region->startOffset)));
        if (region->endOffset < 0)
            region->endOffset = ToOffset(region->endOffset - static_cast<std::int64_t>(plan.behind));
    }
}

/// @param regions  all that play the waveform
bool Convert(Waveform& wave, const LoopConversions& conversions, const auto& regions, bool& changed)
{
    changed = false;
    const LoopInfo loop = LoopInside(wave.loop, wave.frames);
    if (wave.frames == 0 || !HasLoop(loop))
        return true;
    const Plan plan = MakePlan(loop, wave.frames, conversions);
    if (!plan.Changes())
        return true;
    if (!Rebuild(wave, PiecesOf(plan, wave.frames)))
        return false;
    changed = true;
    wave.loop = plan.loop;
    for (Marker& marker : wave.markers)
        MoveMarker(marker, plan);
    std::ranges::stable_sort(wave.markers, {}, &Marker::position);
    MoveInRegions(regions(wave), plan);
    return true;
}

} // namespace

bool ConvertLoop(Waveform& wave, const LoopConversions& conversions, bool& changed)
{
    return Convert(wave, conversions, RegionsOf, changed);
}

std::size_t ConvertLoops(Collection& collection, const LoopConversions& conversions)
{
    std::unordered_map<ItemHandle, std::vector<Region*>, ItemHandleHash> regions;
    for (Region& region : collection.All<Region>())
        if (!region.Children().empty())
            regions[ChildHandle(ItemKind::Region, region.Children().front())].push_back(&region);
    const auto regionsOf = [&regions](const Waveform& wave) -> std::span<Region* const> {
        const auto found = regions.find(wave.Handle());
        return found != regions.end() ? std::span<Region* const>(found->second) : std::span<Region* const>();
    };
    std::size_t count = 0;
    for (Waveform& wave : collection.All<Waveform>()) {
        LoopConversions wanted = conversions;
        const std::span<Region* const> users = regionsOf(wave);
        if (std::any_of(users.begin(), users.end(), // they would play the unrolled body in their own way
                        [](const Region* region) { return region->Overrides(Region::kLoopType); }))
            wanted.alternatingToForward = wanted.reverseToForward = false;
        bool changed = false;
        if (!Convert(wave, wanted, regionsOf, changed))
            collection.GetHost().ShowMessage(LastError(), wave.GetName(), MessageIcon::Warning);
        else if (changed)
            ++count;
    }
    return count;
}

} // namespace vimbo
