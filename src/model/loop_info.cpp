#include "model/loop_info.h"

#include "base/numeric.h"

#include <algorithm>
#include <cmath>

namespace vimbo {
namespace {

constexpr float kMaxLoopPitch = 12; // semitones

/// Set in the type byte when two doubles follow the record.
constexpr std::uint8_t kWidePointsFlag = 0x80;

struct LoopRecord {
    std::uint8_t type;
    std::uint8_t breakOnRelease;
    std::uint8_t oneShot;
    F32le start, end;
    F32le pitch;
};
static_assert(DiskRecord<LoopRecord> && sizeof(LoopRecord) == 15);

struct WidePoints {
    F64le start, end;
};
static_assert(DiskRecord<WidePoints> && sizeof(WidePoints) == 16);

void PutInside(LoopInfo& loop, double frames) noexcept
{
    if (!(loop.end > 0) || loop.end > frames)
        loop.end = frames;
    if (!(loop.start >= 0) || loop.start >= loop.end)
        loop.start = 0;
}

bool FitsSingle(double point) noexcept
{
    return static_cast<double>(static_cast<float>(point)) == point;
}

} // namespace

void NormalizeLoop(LoopInfo& loop, std::uint32_t frames, FeatureMask features) noexcept
{
    if (!features.Has(Feature::WaveFractionalLoops)) {
        // The length is rounded, not the end: it is what gives the loop its pitch.
        const double length = loop.end - loop.start;
        loop.start = std::trunc(loop.start + 0.5);
        loop.end = loop.start + std::trunc(length + 0.5);
    }
    PutInside(loop, frames);
    loop.start = RoundToHundredth(loop.start);
    loop.end = RoundToHundredth(loop.end);
    PutInside(loop, frames); // two points within one step may have met
    const auto pitch = static_cast<float>(RoundToHundredth(loop.pitch));
    loop.pitch = std::isnan(pitch) ? 0 : std::clamp(pitch, -kMaxLoopPitch, kMaxLoopPitch);
}

bool IsDefaultLoop(const LoopInfo& loop, std::uint32_t frames) noexcept
{
    return loop.type == LoopType::Off && loop.start == 0 && (loop.end == 0 || loop.end == frames);
}

void WriteLoop(ByteWriter& out, const LoopInfo& loop)
{
    const bool wide = !FitsSingle(loop.start) || !FitsSingle(loop.end);
    LoopRecord record{};
    record.type = static_cast<std::uint8_t>(static_cast<unsigned>(loop.type) | (wide ? kWidePointsFlag : 0u));
    record.breakOnRelease = loop.breakOnRelease ? 1 : 0;
    record.oneShot = loop.oneShot ? 1 : 0;
    record.start = static_cast<float>(loop.start);
    record.end = static_cast<float>(loop.end);
    record.pitch = loop.pitch;
    out.Write(record);
    if (wide)
        out.Write(WidePoints{loop.start, loop.end});
}

bool ReadLoop(ByteReader& in, LoopInfo& loop) noexcept
{
    LoopRecord record;
    WidePoints wide;
    if (!in.Read(record))
        return false;
    const bool isWide = (record.type & kWidePointsFlag) != 0;
    if (isWide && !in.Read(wide))
        return false;
    const unsigned type = record.type & ~unsigned{kWidePointsFlag};
    loop.type =
        type <= static_cast<unsigned>(LoopType::Alternating) ? static_cast<LoopType>(type) : LoopType::Off;
    loop.breakOnRelease = record.breakOnRelease != 0;
    loop.oneShot = record.oneShot != 0;
    loop.start = isWide ? wide.start.Get() : double{record.start.Get()};
    loop.end = isWide ? wide.end.Get() : double{record.end.Get()};
    loop.pitch = record.pitch.Get();
    return true;
}

} // namespace vimbo
