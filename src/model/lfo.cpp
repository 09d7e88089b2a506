// LFOs of an articulation block as records, and their placement by destination.
#include "model/envelope.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace vimbo {
namespace {

/// Delay and fade-in of two LFOs that may share one place, in seconds: losing a depth is worse than moving
/// its start by this.
constexpr float kPlacementTolerance = 0.5f;

constexpr std::array kAllLfos{LfoIndex::Pitch, LfoIndex::Volume, LfoIndex::Filter, LfoIndex::X};
/// First ids of the four depths (fixed, wheel, touch, velocity) of each.
constexpr ParamId kPitchDepth = kArtPLfoToPitch, kXPitchDepth = kArtXLfoToPitch,
                  kVolumeDepth = kArtVLfoToVolume, kCutoffDepth = kArtFLfoToCutoff;

constexpr ParamId Next(ParamId id, int steps) noexcept
{
    return static_cast<ParamId>(id + steps);
}

LfoDepth GetDepth(const ArticulationBlock& block, ParamId first) noexcept
{
    return {block[first], block[Next(first, 1)], block[Next(first, 2)], block[Next(first, 3)]};
}

/// Leaves zeros unmarked where zeros stand already.
void SetDepth(ArticulationBlock& block, ParamId first, const LfoDepth& depth)
{
    const std::array values{depth.fixed, depth.wheel, depth.touch, depth.velocity};
    for (int i = 0; i < 4; ++i)
        if (values[static_cast<std::size_t>(i)] != 0 || block[Next(first, i)] != 0)
            block.Set(Next(first, i), values[static_cast<std::size_t>(i)]);
}

LfoDepth operator+(const LfoDepth& a, const LfoDepth& b) noexcept
{
    return {a.fixed + b.fixed, a.wheel + b.wheel, a.touch + b.touch, a.velocity + b.velocity};
}

LfoDepths operator+(const LfoDepths& a, const LfoDepths& b) noexcept
{
    return {a.pitch + b.pitch, a.volume + b.volume, a.cutoff + b.cutoff, a.pan + b.pan};
}

LfoDepth operator-(const LfoDepth& a) noexcept
{
    // 0 - x, so that zeros stay positive.
    return {0 - a.fixed, 0 - a.wheel, 0 - a.touch, 0 - a.velocity};
}

/// A negative unipolar LFO is a unipolar one with its depths negated.
void MakePolarityPositive(Lfo& lfo, LfoDepths& depths) noexcept
{
    if (lfo.polarity != LfoPolarity::NegativeUnipolar)
        return;
    lfo.polarity = LfoPolarity::Unipolar;
    depths = {-depths.pitch, -depths.volume, -depths.cutoff, 0 - depths.pan};
}

struct PlacedLfo {
    Lfo lfo;
    LfoDepths depths;
    bool IsUsed() const noexcept { return Strength(depths) != 0; }
    bool HasRoomFor(const Lfo& other) const noexcept
    {
        return !IsUsed() || SameLfoShape(lfo, other, kPlacementTolerance);
    }
};

PlacedLfo GetPlaced(const ArticulationBlock& block, LfoIndex index) noexcept
{
    PlacedLfo out;
    GetLfoEx(block, out.lfo, out.depths, index);
    MakePolarityPositive(out.lfo, out.depths);
    return out;
}

void SetDepths(ArticulationBlock& block, LfoIndex index, const LfoDepths& depths)
{
    switch (index) {
    case LfoIndex::Pitch:
        return SetDepth(block, kPitchDepth, depths.pitch);
    case LfoIndex::Volume:
        return SetDepth(block, kVolumeDepth, depths.volume);
    case LfoIndex::Filter:
        return SetDepth(block, kCutoffDepth, depths.cutoff);
    case LfoIndex::X:
        SetDepth(block, kXPitchDepth, depths.pitch);
        if (depths.pan != 0 || block[kArtXLfoToPan] != 0)
            block.Set(kArtXLfoToPan, depths.pan);
    }
}

/// Adds the part where there is room, else the stronger of the two stays. @return bit of `index` on a loss
unsigned Place(ArticulationBlock& block, LfoIndex index, const Lfo& lfo, const LfoDepths& part)
{
    const PlacedLfo present = GetPlaced(block, index);
    const bool hasRoom = present.HasRoomFor(lfo);
    if (!hasRoom && !(Strength(part) > Strength(present.depths)))
        return IndexBit(index);
    SetLfo(block, hasRoom && present.IsUsed() ? present.lfo : lfo, index);
    SetDepths(block, index, hasRoom ? present.depths + part : part);
    return hasRoom ? 0 : IndexBit(index);
}

} // namespace

float LfoDepth::Total() const noexcept
{
    return std::abs(fixed) + std::abs(wheel) + std::abs(touch) + std::abs(velocity);
}

float Strength(const LfoDepths& depths) noexcept
{
    return kPitchStrength * depths.pitch.Total() + kVolumeStrength * depths.volume.Total() +
           kCutoffStrength * depths.cutoff.Total() + kPanStrength * std::abs(depths.pan);
}

void GetLfo(const ArticulationBlock& block, Lfo& out, LfoIndex index) noexcept
{
    const ParamId base = LfoBase(index);
    const auto value = static_cast<unsigned>(std::clamp(block[Next(base, kLfoShape)], 0.0f, 255.0f) + 0.5f);
    out.shape = static_cast<LfoShape>(value & 0x3F);
    out.polarity = static_cast<LfoPolarity>(value >> 6 & 3);
    out.frequencyHz = block[Next(base, kLfoFrequency)];
    out.delaySeconds = block[Next(base, kLfoDelay)];
    out.rampSeconds = block[Next(base, kLfoRamp)];
}

void SetLfo(ArticulationBlock& block, const Lfo& lfo, LfoIndex index)
{
    const ParamId base = LfoBase(index);
    const unsigned value = (static_cast<unsigned>(lfo.shape) & 0x3F) | static_cast<unsigned>(lfo.polarity)
                                                                           << 6;
    block.Set(Next(base, kLfoShape), static_cast<float>(value));
    block.Set(Next(base, kLfoFrequency), lfo.frequencyHz);
    block.Set(Next(base, kLfoDelay), lfo.delaySeconds);
    block.Set(Next(base, kLfoRamp), lfo.rampSeconds);
}

void GetLfoEx(const ArticulationBlock& block, Lfo& out, LfoDepths& depths, LfoIndex index) noexcept
{
    GetLfo(block, out, index);
    depths = {};
    switch (index) {
    case LfoIndex::Pitch:
        depths.pitch = GetDepth(block, kPitchDepth);
        break;
    case LfoIndex::Volume:
        depths.volume = GetDepth(block, kVolumeDepth);
        break;
    case LfoIndex::Filter:
        depths.cutoff = GetDepth(block, kCutoffDepth);
        break;
    case LfoIndex::X:
        depths.pitch = GetDepth(block, kXPitchDepth);
        depths.pan = block[kArtXLfoToPan];
        break;
    }
}

bool SameLfoShape(const Lfo& a, const Lfo& b, float toleranceSeconds) noexcept
{
    // Floats that differ by the tolerance on paper differ by a little more in the machine.
    constexpr float kRounding = 1e-5f;
    const float apart = std::abs(a.delaySeconds + a.rampSeconds - b.delaySeconds - b.rampSeconds);
    return a.shape == b.shape && a.polarity == b.polarity &&
           std::round(a.frequencyHz * 10) == std::round(b.frequencyHz * 10) &&
           apart <= toleranceSeconds + kRounding;
}

ModLfo ComposeModLfo(const ArticulationBlock& block, unsigned candidates) noexcept
{
    std::array<PlacedLfo, kLfos> all;
    const PlacedLfo* strongest = nullptr;
    for (const LfoIndex index : kAllLfos) {
        if ((candidates & IndexBit(index)) == 0)
            continue;
        PlacedLfo& one = all[static_cast<std::size_t>(index)];
        one = GetPlaced(block, index);
        if (one.IsUsed() && (!strongest || Strength(one.depths) > Strength(strongest->depths)))
            strongest = &one;
    }
    ModLfo out;
    if (!strongest)
        return out;
    out.lfo = strongest->lfo;
    for (const LfoIndex index : kAllLfos) {
        const PlacedLfo& one = all[static_cast<std::size_t>(index)];
        if (!one.IsUsed())
            continue;
        const bool isSame = SameLfoShape(one.lfo, out.lfo, kPlacementTolerance);
        (isSame ? out.used : out.dropped) |= IndexBit(index);
        if (isSame)
            out.depths = out.depths + one.depths;
    }
    return out;
}

ModLfo ComposeModLfo(std::span<const ArticulationBlock* const> blocks, unsigned candidates) noexcept
{
    ModLfo out;
    for (const ArticulationBlock* block : blocks) {
        const ModLfo one = ComposeModLfo(*block, candidates);
        if (one.used != 0 && (out.used == 0 || Strength(one.depths) > Strength(out.depths)))
            out = one;
    }
    for (const ArticulationBlock* block : blocks) {
        const ModLfo one = ComposeModLfo(*block, candidates);
        out.dropped |= one.dropped;
        if (one.used != 0 && !SameLfoShape(one.lfo, out.lfo, kPlacementTolerance))
            out.dropped |= one.used;
    }
    return out;
}

unsigned MergeLfo(ArticulationBlock& block, const Lfo& lfo, const LfoDepths& depths)
{
    Lfo source = lfo;
    LfoDepths parts = depths;
    MakePolarityPositive(source, parts);
    unsigned lost = 0;
    if (parts.pan != 0)
        lost |= Place(block, LfoIndex::X, source, {{}, {}, {}, parts.pan});
    if (!parts.cutoff.IsZero())
        lost |= Place(block, LfoIndex::Filter, source, {{}, {}, parts.cutoff, 0});
    if (!parts.volume.IsZero())
        lost |= Place(block, LfoIndex::Volume, source, {{}, parts.volume, {}, 0});
    if (!parts.pitch.IsZero()) {
        const bool goesToX = !GetPlaced(block, LfoIndex::Pitch).HasRoomFor(source) &&
                             GetPlaced(block, LfoIndex::X).HasRoomFor(source);
        lost |= Place(block, goesToX ? LfoIndex::X : LfoIndex::Pitch, source, {parts.pitch, {}, {}, 0});
    }
    return lost;
}

} // namespace vimbo
