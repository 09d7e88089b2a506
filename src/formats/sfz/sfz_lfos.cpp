// LFOs of an articulation.
#include "formats/sfz/sfz_unit_parts.h"
#include "model/envelope.h"

#include <algorithm>

namespace vimbo::sfz {
namespace {

/// An LFO with names of its own: where its depths go, and their unit.
struct LfoRow {
    LfoIndex index;
    std::size_t base;
    FlexTarget target;
    ParamId depth; ///< fixed; then wheel, aftertouch, velocity
    double read, write;
};
constexpr LfoRow kLfoRows[] = {
    {LfoIndex::Pitch, kPitchLfo, kFlexPitch, kArtPLfoToPitch, 0.01, 100},
    {LfoIndex::Volume, kAmpLfo, kFlexVolume, kArtVLfoToVolume, 1, 1},
    {LfoIndex::Filter, kFilLfo, kFlexCutoff, kArtFLfoToCutoff, 0.01, 100},
};
constexpr std::size_t kDepths = 4;

struct WaveRow {
    int wave;
    LfoShape shape;
};
/// lfoN_wave; the first of a shape is written.
constexpr WaveRow kWaves[] = {{1, LfoShape::Sine},   {0, LfoShape::Triangle}, {3, LfoShape::Square},
                              {2, LfoShape::Square}, {4, LfoShape::Square},   {5, LfoShape::Square},
                              {6, LfoShape::SawUp},  {7, LfoShape::SawDown},  {12, LfoShape::Noise}};

void ReadLfo(const Record& record, const LfoRow& row, ArticulationBlock& block)
{
    if (record[row.base + kLfoFreq] <= 0) // it stands still
        return;
    Lfo lfo;
    lfo.frequencyHz = static_cast<float>(record[row.base + kLfoFreq]);
    lfo.delaySeconds = static_cast<float>(record[row.base + kLfoDelay]);
    lfo.rampSeconds = static_cast<float>(record[row.base + kLfoFade]);
    SetLfo(block, lfo, row.index);
    for (std::size_t i = 0; i < kDepths; ++i)
        SetValue(block, static_cast<ParamId>(row.depth + i), record[row.base + kLfoDepth + i] * row.read);
}

LfoDepth ToDepth(const std::array<double, kDepths>& amounts, double factor) noexcept
{
    const auto at = [&](std::size_t i) { return static_cast<float>(amounts[i] * factor); };
    return {at(0), at(1), at(2), at(3)};
}

int WaveOf(LfoShape shape) noexcept
{
    return std::ranges::find_if(kWaves, [shape](const WaveRow& row) { return row.shape == shape; })->wave;
}

void ReadFlexLfos(const Record& record, ArticulationBlock& block, UnitLosses& losses)
{
    for (const auto& [number, flex] : record.lfos) {
        if (flex.freq <= 0)
            continue;
        const auto* wave = std::ranges::find_if(
            kWaves, [wanted = flex.wave](const WaveRow& row) { return row.wave == wanted; });
        Lfo lfo;
        lfo.shape = wave != std::end(kWaves) ? wave->shape : LfoShape::Sine;
        losses.waves += wave == std::end(kWaves) || WaveOf(lfo.shape) != flex.wave ? 1 : 0;
        lfo.frequencyHz = static_cast<float>(flex.freq);
        lfo.delaySeconds = static_cast<float>(flex.delay);
        lfo.rampSeconds = static_cast<float>(flex.fade);
        LfoDepths depths;
        depths.volume = ToDepth(flex.depths[kFlexVolume], 1);
        depths.pitch = ToDepth(flex.depths[kFlexPitch], 0.01);
        depths.cutoff = ToDepth(flex.depths[kFlexCutoff], 0.01);
        depths.pan = static_cast<float>(flex.depths[kFlexPan][0] * 0.01);
        if (MergeLfo(block, lfo, depths) != 0)
            ++losses.lfos;
    }
}

FlexLfo ToFlex(const Lfo& lfo)
{
    FlexLfo flex;
    flex.wave = WaveOf(lfo.shape);
    flex.freq = lfo.frequencyHz;
    flex.delay = lfo.delaySeconds;
    flex.fade = lfo.rampSeconds;
    return flex;
}

/// A wave between 0 and 1 has half the effect; a file has waves around 0 only.
double PolarityFactor(const Lfo& lfo) noexcept
{
    return lfo.polarity == LfoPolarity::Bipolar ? 1 : lfo.polarity == LfoPolarity::Unipolar ? 2 : -2;
}

void WriteLfo(const ArticulationBlock& block, const LfoRow& row, Generation generation, Record& out)
{
    Lfo lfo;
    GetLfo(block, lfo, row.index);
    std::array<double, kDepths> depths{};
    const double factor = row.write * PolarityFactor(lfo);
    for (std::size_t i = 0; i < kDepths; ++i)
        depths[i] = block[static_cast<ParamId>(row.depth + i)] * factor;
    const bool isUsed = std::ranges::any_of(depths, [](double depth) { return depth != 0; });
    if (!isUsed && lfo == Lfo{})
        return;
    if (isUsed && generation == Generation::Second && lfo.shape != LfoShape::Sine) {
        FlexLfo flex = ToFlex(lfo);
        flex.depths[row.target] = depths;
        out.lfos[1 + static_cast<unsigned>(row.index)] = flex;
        return;
    }
    out[row.base + kLfoFreq] = lfo.frequencyHz;
    out[row.base + kLfoDelay] = lfo.delaySeconds;
    out[row.base + kLfoFade] = lfo.rampSeconds;
    for (std::size_t i = 0; i < kDepths; ++i)
        out[row.base + kLfoDepth + i] = depths[i];
}

void WriteXLfo(const ArticulationBlock& block, Record& out)
{
    Lfo lfo;
    LfoDepths depths;
    GetLfoEx(block, lfo, depths, LfoIndex::X);
    if (depths.pan == 0 && depths.pitch.IsZero())
        return;
    FlexLfo flex = ToFlex(lfo);
    const double factor = 100 * PolarityFactor(lfo);
    flex.depths[kFlexPan][0] = depths.pan * factor;
    flex.depths[kFlexPitch] = {depths.pitch.fixed * factor, depths.pitch.wheel * factor,
                               depths.pitch.touch * factor, depths.pitch.velocity * factor};
    out.lfos[1 + static_cast<unsigned>(LfoIndex::X)] = flex;
}

} // namespace

void ReadLfos(const Record& record, ArticulationBlock& block, UnitLosses& losses)
{
    for (const LfoRow& row : kLfoRows)
        ReadLfo(record, row, block);
    ReadFlexLfos(record, block, losses);
}

void WriteLfos(const ArticulationBlock& block, Generation generation, Record& out)
{
    for (const LfoRow& row : kLfoRows)
        if (row.index != LfoIndex::Filter || block[kArtFilterType] != 0)
            WriteLfo(block, row, generation, out);
    if (generation == Generation::Second)
        WriteXLfo(block, out);
}

} // namespace vimbo::sfz
