#include "formats/wave/wave_units.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace vimbo {
namespace {

constexpr double kTwo32 = 4294967296.0;
constexpr double kCentsToFraction = kTwo32 / 100;
constexpr double kDlsGainPerDb = 655360.0;

/// Truncates to 32 bits; what lies outside (and no number at all) goes to the nearest end.
std::uint32_t ToWord(double x) noexcept
{
    if (!(x > 0))
        return 0;
    return x >= kTwo32 ? std::numeric_limits<std::uint32_t>::max() : static_cast<std::uint32_t>(x);
}

constexpr std::uint32_t ReverseWord(std::uint32_t word) noexcept
{
    return word >> 24 | (word >> 8 & 0xFF00) | (word << 8 & 0xFF0000) | word << 24;
}

LoopType LoopTypeFromSmpl(std::uint32_t type) noexcept
{
    switch (type) {
    case 1:
        return LoopType::Alternating;
    case 2:
        return LoopType::Reverse;
    case 255:
        return LoopType::Off;
    default:
        return LoopType::Forward;
    }
}

std::uint32_t LoopTypeToSmpl(LoopType type) noexcept
{
    switch (type) {
    case LoopType::Alternating:
        return 1;
    case LoopType::Reverse:
        return 2;
    default:
        return 0;
    }
}

} // namespace

KeyTuning TuningFromSmpl(const SmplTuning& smpl, std::uint8_t rootKey) noexcept
{
    KeyTuning tuning{.rootKey = rootKey};
    const std::uint32_t low = smpl.unityNote & 0xFF;
    if (low < 128)
        tuning.rootKey = static_cast<std::uint8_t>(low);
    const std::uint32_t reversed = ReverseWord(smpl.unityNote);
    if (tuning.rootKey == 0 && reversed >= 1 && reversed <= 127)
        tuning.rootKey = static_cast<std::uint8_t>(reversed);
    // The file says how far the samples lie above the note, the model what brings them back.
    tuning.cents = static_cast<std::int8_t>(-std::lround(smpl.pitchFraction / kCentsToFraction));
    return tuning;
}

SmplTuning TuningToSmpl(const KeyTuning& tuning) noexcept
{
    SmplTuning smpl{.unityNote = tuning.rootKey};
    int cents = tuning.cents;
    if (cents > 0) { // the fraction only goes upwards: one note lower instead
        cents = smpl.unityNote == 0 ? 0 : cents - 100;
        smpl.unityNote -= smpl.unityNote == 0 ? 0 : 1;
    }
    smpl.pitchFraction = ToWord(0.5 - cents * kCentsToFraction);
    return smpl;
}

LoopInfo LoopFromSmpl(const SmplLoop& record) noexcept
{
    LoopInfo loop;
    loop.type = LoopTypeFromSmpl(record.type.Get());
    loop.start = record.start.Get();
    loop.end = record.end.Get() + 1.0 + record.fraction.Get() / kTwo32;
    return loop;
}

SmplLoop LoopToSmpl(const LoopInfo& loop) noexcept
{
    SmplLoop record;
    record.type = LoopTypeToSmpl(loop.type);
    const std::uint32_t start = ToWord(loop.start + 0.5);
    const double length = std::max(loop.end - loop.start, 0.0);
    const double whole = std::floor(length + 0.5);
    double last = start - 1.0 + whole;
    double fraction = length - whole;
    if (fraction < 0) {
        fraction += 1;
        last -= 1;
    }
    record.start = start;
    record.end = ToWord(last);
    record.fraction = last < 0 ? 0 : ToWord(fraction * kTwo32);
    return record;
}

DlsSample SampleFromWsmp(const WsmpHead& head, const WsmpLoop* record) noexcept
{
    DlsSample sample;
    // More than a semitone of fine tuning goes into the key.
    const int cents = head.cents.Get();
    const int semitones = std::abs(cents) > 100 ? cents / 100 : 0;
    const int key = std::min<int>(head.unityNote.Get(), 127) - semitones;
    sample.tuning.rootKey = static_cast<std::uint8_t>(std::clamp(key, 0, 127));
    sample.tuning.cents = static_cast<std::int8_t>(cents - semitones * 100);
    sample.gainDb = static_cast<float>(head.gain.Get() / kDlsGainPerDb);
    if (record != nullptr) {
        sample.loop.type = LoopType::Forward;
        sample.loop.breakOnRelease = record->type.Get() == 1;
        sample.loop.start = record->start.Get();
        sample.loop.end = sample.loop.start + record->length.Get();
    }
    return sample;
}

void SampleToWsmp(const DlsSample& sample, WsmpHead& head, WsmpLoop& record) noexcept
{
    head = {};
    head.bytes = sizeof(WsmpHead);
    head.unityNote = sample.tuning.rootKey;
    head.cents = sample.tuning.cents;
    const double gain = std::clamp(static_cast<double>(sample.gainDb), -96.0, 96.0);
    head.gain = static_cast<std::int32_t>(std::lround(gain * kDlsGainPerDb));
    head.loopCount = sample.loop.type == LoopType::Off ? 0 : 1;
    record = {};
    record.bytes = sizeof(WsmpLoop);
    record.type = sample.loop.breakOnRelease ? 1 : 0;
    const std::uint32_t start = ToWord(sample.loop.start + 0.5);
    record.start = start;
    record.length = ToWord(sample.loop.end - sample.loop.start + 0.5);
}

FmtMp3 Mp3FieldsOf(std::uint32_t rateHz, unsigned kbit) noexcept
{
    constexpr std::uint16_t kIdMpeg = 1, kCodecDelay = 1104; // mmreg.h; what most writers give
    constexpr std::uint32_t kHalfFramesBelow = 28000;
    const std::uint32_t bytesPerKbit = rateHz < kHalfFramesBelow ? 72000 : 144000;
    FmtMp3 fields;
    fields.extraBytes = static_cast<std::uint16_t>(sizeof(FmtMp3) - 2 * sizeof(U16le));
    fields.id = kIdMpeg;
    fields.blockBytes = static_cast<std::uint16_t>((rateHz / 2 + bytesPerKbit * kbit) / rateHz);
    fields.framesPerBlock = std::uint16_t{1};
    fields.codecDelay = kCodecDelay;
    return fields;
}

std::uint32_t SamplePeriod(std::uint32_t rateHz) noexcept
{
    return rateHz == 0 ? 0 : ToWord(1e9 / rateHz + 0.499);
}

} // namespace vimbo
