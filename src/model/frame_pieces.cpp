#include "model/frame_pieces.h"

#include "base/last_error.h"
#include "model/collection.h"
#include "model/instrument.h"
#include "model/waveform.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace vimbo {
namespace {

constexpr std::uint64_t kMaxFrames = std::numeric_limits<std::uint32_t>::max();

void CopyFrames(std::span<const float> from, std::span<float> to, unsigned channels, Piece::Kind kind)
{
    if (kind == Piece::Kind::Copy) {
        std::ranges::copy(from, to.begin());
        return;
    }
    const std::size_t frames = to.size() / channels;
    for (std::size_t i = 0; i < frames; ++i)
        std::ranges::copy(from.subspan((frames - 1 - i) * channels, channels),
                          to.begin() + static_cast<std::ptrdiff_t>(i * channels));
}

bool Plays(const Region& region, const Waveform& wave) noexcept
{
    return !region.Children().empty() &&
           ChildHandle(ItemKind::Region, region.Children().front()) == wave.Handle();
}

} // namespace

bool HasLoop(const LoopInfo& loop) noexcept
{
    return loop.type != LoopType::Off && loop.end > loop.start;
}

LoopInfo LoopInside(const LoopInfo& loop, std::uint32_t frames) noexcept
{
    LoopInfo inside = loop;
    NormalizeLoop(inside, frames, FeatureMask());
    return inside;
}

WholeLoop TouchedFrames(const LoopInfo& loop) noexcept
{
    return {static_cast<std::uint64_t>(std::floor(loop.start)),
            static_cast<std::uint64_t>(std::ceil(loop.end))};
}

bool Rebuild(Waveform& wave, std::span<const Piece> pieces)
{
    std::uint64_t frames = 0;
    for (const Piece& piece : pieces)
        frames += piece.length;
    if (frames > kMaxFrames)
        return Fail(u"The waveform would become too long");
    const std::span<const float> old = wave.LockSamples();
    if (old.empty())
        return false;
    const unsigned channels = wave.channels;
    SampleBlockRef block = SampleBlockRef::Allocate(static_cast<std::uint32_t>(frames), channels,
                                                    static_cast<float>(wave.rateHz));
    if (!block)
        return Fail(u"Out of memory");
    std::span<float> rest = block->Samples();
    for (const Piece& piece : pieces) {
        const auto from = static_cast<std::size_t>(piece.from * channels);
        const auto size = static_cast<std::size_t>(piece.length * channels);
        if (piece.kind == Piece::Kind::Silence)
            std::ranges::fill(rest.first(size), 0.0f);
        else
            CopyFrames(old.subspan(from, size), rest.first(size), channels, piece.kind);
        rest = rest.subspan(size);
    }
    wave.ReplaceBlock(std::move(block));
    return true;
}

void AppendLoopStart(std::vector<Piece>& pieces, const Cycle& cycle, std::uint64_t count,
                     std::uint64_t position)
{
    const WholeLoop& body = cycle.body;
    while (count != 0) {
        position %= cycle.Length();
        const std::uint64_t within = position % body.Length();
        const std::uint64_t length = std::min(count, body.Length() - within);
        if (cycle.reverse || position >= body.Length())
            pieces.push_back({body.end - within - length, length, Piece::Kind::Reversed});
        else
            pieces.push_back({body.start + within, length});
        count -= length;
        position += length;
    }
}

std::vector<Region*> RegionsOf(const Waveform& wave)
{
    std::vector<Region*> regions;
    for (Region& region : wave.Owner().All<Region>())
        if (Plays(region, wave))
            regions.push_back(&region);
    return regions;
}

std::int32_t ToOffset(std::int64_t frames) noexcept
{
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(
        frames, std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()));
}

} // namespace vimbo
