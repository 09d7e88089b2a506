// The loop of a waveform, and the override block of a region.
#pragma once

#include "base/byte_reader.h"
#include "model/features.h"

#include <cstdint>

namespace vimbo {

enum class LoopType : std::uint8_t { Off = 0, Forward = 1, Reverse = 2, Alternating = 3 };

/// Loop points are held in double precision: single precision would move the loops of recordings over 2^24
/// frames.
struct LoopInfo {
    LoopType type = LoopType::Off;
    bool breakOnRelease = false; ///< play the remainder of the sample when the key is released
    bool oneShot = false;        ///< play to the end whatever the key does; read and kept, by few formats
    double start = 0;            ///< first frame in the loop, may hold a fraction
    double end = 4294967296.0;   ///< first frame after the loop, may hold a fraction
    float pitch = 0;             ///< semitones added while the loop plays, -12 to 12

    friend bool operator==(const LoopInfo&, const LoopInfo&) = default;
};

/// Repairs loop points against a length: rounds (to frames without fractional loops, else to 0.01), puts them
/// inside [0, frames], limits the pitch.
void NormalizeLoop(LoopInfo& loop, std::uint32_t frames, FeatureMask features) noexcept;

/// True for a loop that says nothing: off, from 0, to 0 or `frames`.
bool IsDefaultLoop(const LoopInfo& loop, std::uint32_t frames) noexcept;

/// The loop's record of 15 bytes in state files; points that single precision cannot hold follow as doubles.
void WriteLoop(ByteWriter& out, const LoopInfo& loop);
[[nodiscard]] bool ReadLoop(ByteReader& in, LoopInfo& loop) noexcept;

} // namespace vimbo
