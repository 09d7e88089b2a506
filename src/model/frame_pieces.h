// New samples made of pieces of old ones: what loop conversion and trimming share.
#pragma once

#include "model/loop_info.h"

#include <cstdint>
#include <span>
#include <vector>

namespace vimbo {

class Region;
class Waveform;

/// A loop with whole points inside the waveform. Positions and lengths are in frames.
struct WholeLoop {
    std::uint64_t start = 0, end = 0;
    std::uint64_t Length() const noexcept { return end - start; }
};

/// A run of frames of the new samples: where it comes from, or silence.
struct Piece {
    enum class Kind { Copy, Reversed, Silence };
    std::uint64_t from = 0; ///< first frame of the old samples
    std::uint64_t length = 0;
    Kind kind = Kind::Copy;
};

/// What a converted loop plays once: its body, perhaps backwards, perhaps there and back.
struct Cycle {
    WholeLoop body;
    bool reverse = false;
    bool unroll = false;
    std::uint64_t Length() const noexcept { return body.Length() * (unroll ? 2 : 1); }
};

/// True for a loop that is on and holds anything.
bool HasLoop(const LoopInfo& loop) noexcept;
/// The waveform's loop as a player takes it: inside its frames.
LoopInfo LoopInside(const LoopInfo& loop, std::uint32_t frames) noexcept;
/// The frames that the loop touches at all.
WholeLoop TouchedFrames(const LoopInfo& loop) noexcept;

/// Makes the waveform's block of the pieces. False with the Last error text; nothing changed then.
[[nodiscard]] bool Rebuild(Waveform& wave, std::span<const Piece> pieces);
/// Appends `count` frames that go on from a cycle's end as the loop does, from `position` in the cycle.
void AppendLoopStart(std::vector<Piece>& pieces, const Cycle& cycle, std::uint64_t count,
                     std::uint64_t position);

std::vector<Region*> RegionsOf(const Waveform& wave);
/// `frames` as far as a region's offset can hold it.
std::int32_t ToOffset(std::int64_t frames) noexcept;

} // namespace vimbo
