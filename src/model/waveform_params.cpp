// The loop and the waveform's own values as numbered parameters.
#include "base/numeric.h"
#include "model/collection.h"
#include "model/waveform.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace vimbo {
namespace {

constexpr float kDefaultSaveFormat = 1;

/// A loop point's row for users who do not want fractions.
const ParamRow& WholeFrameRow(std::uint16_t id) noexcept
{
    static const std::array<ParamRow, 2> kRows = [] {
        std::array<ParamRow, 2> rows = {WaveParamRow(kParamLoopStart), WaveParamRow(kParamLoopEnd)};
        for (ParamRow& row : rows)
            row.editClass = EditClass::Whole;
        return rows;
    }();
    return kRows[id == kParamLoopStart ? 0 : 1];
}

int RoundedWithin(float value, const ParamRow& row) noexcept
{
    return RoundToInt(std::clamp(value, row.minimum, row.maximum));
}

int TruncatedWithin(float value, const ParamRow& row) noexcept
{
    return static_cast<int>(std::clamp(value, row.minimum, row.maximum));
}

} // namespace

bool Waveform::IsParamSet(std::uint16_t id) const
{
    switch (id) {
    case kParamLoopRelease:
    case kParamLoopStart:
    case kParamLoopEnd:
    case kParamWaveRate:
    case kParamWaveRootKey:
        return true;
    case kParamLoopType:
    case kParamLoopPitch:
    case kParamWaveFineTune:
    case kParamWaveVolume:
        return GetParam(id) != 0;
    case kParamWaveSaveFormat:
        return GetParam(id) != kDefaultSaveFormat;
    default:
        return TextItem::IsParamSet(id);
    }
}

float Waveform::GetParam(std::uint16_t id) const
{
    switch (id) {
    case kParamLoopType:
        return static_cast<float>(loop.type);
    case kParamLoopRelease:
        return loop.breakOnRelease ? 1.0f : 0.0f;
    case kParamLoopStart:
        return static_cast<float>(loop.start);
    case kParamLoopEnd:
        return static_cast<float>(loop.end);
    case kParamLoopPitch:
        return loop.pitch;
    case kParamWaveRate:
        return static_cast<float>(rateHz);
    case kParamWaveRootKey:
        return rootKey;
    case kParamWaveFineTune:
        return fineTune;
    case kParamWaveVolume:
        return volume;
    case kParamWaveSaveFormat:
        return static_cast<float>(saveFormat);
    default:
        return TextItem::GetParam(id);
    }
}

void Waveform::SetParam(std::uint16_t id, float value)
{
    if (std::isnan(value))
        return;
    const ParamRow& row = WaveParamRow(id);
    switch (id) {
    case kParamLoopType:
        loop.type = static_cast<LoopType>(TruncatedWithin(value, row));
        break;
    case kParamLoopRelease:
        loop.breakOnRelease = value != 0;
        break;
    case kParamLoopStart:
        loop.start = std::clamp(value, row.minimum, row.maximum);
        break;
    case kParamLoopEnd:
        loop.end = std::clamp(value, row.minimum, row.maximum);
        break;
    case kParamLoopPitch:
        loop.pitch = std::clamp(value, row.minimum, row.maximum);
        break;
    case kParamWaveRate:
        rateHz = static_cast<std::uint32_t>(RoundedWithin(value, row));
        if (block_)
            block_->SetRateHz(static_cast<float>(rateHz));
        break;
    case kParamWaveRootKey:
        rootKey = static_cast<std::uint8_t>(RoundedWithin(value, row));
        break;
    case kParamWaveFineTune:
        fineTune = static_cast<std::int8_t>(RoundedWithin(value, row));
        break;
    case kParamWaveVolume:
        volume = std::clamp(value, row.minimum, row.maximum);
        break;
    case kParamWaveSaveFormat:
        saveFormat = static_cast<SaveFormat>(TruncatedWithin(value, row));
        break;
    default:
        TextItem::SetParam(id, value);
    }
}

void Waveform::ClearParam(std::uint16_t id, float inherited)
{
    SetParam(id, inherited);
}

const ParamRow& Waveform::GetParamInfo(std::uint16_t id) const
{
    const bool isPoint = id == kParamLoopStart || id == kParamLoopEnd;
    if (isPoint && !Owner().features.Has(Feature::WaveFractionalLoops))
        return WholeFrameRow(id);
    const ParamRow& row = WaveParamRow(id);
    return row.id == id ? row : TextItem::GetParamInfo(id);
}

} // namespace vimbo
