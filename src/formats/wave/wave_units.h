// Both directions of the unit conversions of WAV files: `smpl` tuning and loops, and the DLS sample record.
#pragma once

#include "formats/wave/wave_records.h"
#include "model/loop_info.h"

#include <cstdint>

namespace vimbo {

/// Which key plays the samples as they are.
struct KeyTuning {
    std::uint8_t rootKey = 60;
    std::int8_t cents = 0; ///< correction that playing needs, -100 to 100

    friend bool operator==(const KeyTuning&, const KeyTuning&) = default;
};

/// Unity note and pitch fraction of a `smpl` chunk.
struct SmplTuning {
    std::uint32_t unityNote = 60;
    std::uint32_t pitchFraction = 0; ///< upward detune of the samples, 2^32 = one semitone

    friend bool operator==(const SmplTuning&, const SmplTuning&) = default;
};

/// @param rootKey stays if the unity note is no key. Notes that big-endian machines stored reversed are
/// understood.
KeyTuning TuningFromSmpl(const SmplTuning& smpl, std::uint8_t rootKey) noexcept;
SmplTuning TuningToSmpl(const KeyTuning& tuning) noexcept;

/// Loop ends of `smpl` are inclusive and carry their fraction apart. Play counts are not kept.
LoopInfo LoopFromSmpl(const SmplLoop& loop) noexcept;
SmplLoop LoopToSmpl(const LoopInfo& loop) noexcept;

/// What the sample record of DLS says; a file may hold it without a loop.
struct DlsSample {
    KeyTuning tuning;
    float gainDb = 0;
    LoopInfo loop; ///< Off without a loop record
};

/// @param loop null if there is none
DlsSample SampleFromWsmp(const WsmpHead& head, const WsmpLoop* loop) noexcept;
/// Fills both records; the head's loop count is 0 if the loop is off. DLS has forward loops only.
void SampleToWsmp(const DlsSample& sample, WsmpHead& head, WsmpLoop& loop) noexcept;

/// What `fmt ` says of a stream of MPEG layer 3 behind the common part.
FmtMp3 Mp3FieldsOf(std::uint32_t rateHz, unsigned kbit) noexcept;

/// Nanoseconds per frame, rounded; 0 for a rate of 0.
std::uint32_t SamplePeriod(std::uint32_t rateHz) noexcept;

} // namespace vimbo
